// Formatting shared by strings and their callers inside the runtime.
#pragma once

#include <PlimBitmapLib/platform/CFString.h>

#include <cstdarg>
#include <string>

namespace plim::runtime {

// Appends the expansion of a printf-style format with %@ for objects. False when the format
// is malformed or memory runs out; `out` may then hold part of the text.
bool AppendFormatted(std::string &out, CFDictionaryRef formatOptions, const char *format,
                     va_list *arguments);

// The string's UTF-8 bytes (not null-terminated) and their count.
const char *StringBytes(CFStringRef str, CFIndex *byteCount);

}  // namespace plim::runtime
