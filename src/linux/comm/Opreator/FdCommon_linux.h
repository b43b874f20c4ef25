// Text and path helpers, the names of this machine and its user, and two clock readings. All sizes
// in bytes. Reentrant, as far as the C library is.
#pragma once

#include <string>

// The client path of the root of the local file system.
constexpr char kRootPath[] = "/.";

// What stands for the name of a computer that cannot be told.
constexpr char kComputerName[] = "Mac";

// One conversion over the whole of `src`, terminators included if `srcSize` counts them. The byte
// count written, -1 for text that cannot be converted or does not fit, or the count of characters
// converted irreversibly.
int utf8ToUtf16L(char* dst, int dstSize, char* src, int srcSize);
int utf16LToUtf8(char* dst, int dstSize, char* src, int srcSize);

bool adjustStr(char* s, int size);  // each '-' becomes a blank
int getFolderNameByPath(char* path, int size, int length);
bool getRootFlagByPath(const char* path);
bool isAllAsciiChar(const char* s, int size);
int winPath2LinuxPath(char* dst, int dstSize, const char* src, int srcLength);
int linuxPath2WinPath(char* dst, int dstSize, const char* src, int srcLength);
int compareIgnoreCase(const char* a, const char* b);  // the length decides first
bool starts_with(const std::string& s, const std::string& prefix);

// Throws std::out_of_range for a suffix longer than the text.
bool ends_with(const std::string& s, const std::string& suffix);

// New heap strings, released with free(), or null.
char* getMountPointFolder(const char* path);
char* getMountPointPath(const char* path);
bool isRootPath(const char* path);  // the empty text

// Each returns the length of the name, or -1.
int getHostName(char* name, int size);  // into a cleared buffer
int getLoginName(char* name, int size);
int getAccountName(char* name, int size);
int getComputerName(char* name, int size);

unsigned int GetCurrentTick();  // milliseconds, wraps
double GetCurrentTick_high();   // milliseconds with the fraction
