// The library's messages go through here: to the caller's hook when one is set, otherwise to
// standard output (flushed after each message) or standard error, with one write call each.
#pragma once

#include <PlimBitmapLib/PlimErrors.h>

#include <cstddef>

namespace plim::output {

void Write(PlimOutputStream stream, const char *text, size_t length);

template <size_t N>
void Write(PlimOutputStream stream, const char (&text)[N]) {
    Write(stream, text, N - 1);
}

// A formatted message; a longer one than 255 bytes is cut.
void Printf(PlimOutputStream stream, const char *format, ...) __attribute__((format(printf, 2, 3)));

}  // namespace plim::output
