// A wall-clock time as the two tick readings give it.
#pragma once

#include <sys/time.h>

unsigned int ticksOf(const timeval& time);  // milliseconds, wraps about every 49.7 days
double highTicksOf(const timeval& time);    // milliseconds with the fraction
