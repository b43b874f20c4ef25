// Names between UTF-8, UTF-16LE and what a terminal or a log line can show.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "peer/Bytes.h"

namespace peer {

// Nothing if the text is no UTF-8. A surrogate that utf8FromUtf16 wrote goes back to what it was.
std::optional<Bytes> utf16FromUtf8(std::string_view text);

// A surrogate without its partner becomes the three bytes that it would have in UTF-8, so that
// different names stay different. An odd last byte is dropped.
std::string utf8FromUtf16(View bytes);

// One line and nothing that a terminal acts on: control characters and bytes that are no UTF-8 as
// backslash escapes.
std::string escaped(std::string_view text);

// As escaped(), in single quotes and for a shell's eyes if the text has anything that needs them.
std::string quoted(std::string_view text);

}  // namespace peer
