// What fdshare and the plug-in write to standard error. Any thread.
#pragma once

#include <string_view>

namespace host {

// Sends the plug-in's log to standard error, up to the level that `verbosity` asks for: none for 0.
void setUpLog(int verbosity);

// "fdshare: TEXT", at any verbosity.
void say(std::string_view text);

// The same from `-vv` on.
void sayInfo(std::string_view text);

}  // namespace host
