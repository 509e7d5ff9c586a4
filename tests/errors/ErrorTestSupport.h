// Shared by the last-error and output-hook tests.
#pragma once

#include <PlimBitmapLib/PlimBitmapLib.h>

#include <string>
#include <utility>
#include <vector>

namespace errortest {

// The reason `call` left, with the last error cleared first.
template <typename Call>
PlimError ReasonOf(Call call) {
    PlimClearLastError();
    call();
    return PlimGetLastError();
}

// Everything the library writes while one of these is alive, piece by piece, instead of on
// standard output and standard error.
class HeldOutput {
public:
    HeldOutput() { PlimSetOutputHook(Hold, this); }
    ~HeldOutput() { PlimSetOutputHook(nullptr, nullptr); }
    HeldOutput(const HeldOutput &) = delete;
    HeldOutput &operator=(const HeldOutput &) = delete;

    std::vector<std::pair<PlimOutputStream, std::string>> pieces;

    std::string All(PlimOutputStream stream) const {
        std::string text;
        for (const auto &piece : pieces)
            if (piece.first == stream) text += piece.second;
        return text;
    }

private:
    static void Hold(void *context, PlimOutputStream stream, const char *text, size_t length) {
        static_cast<HeldOutput *>(context)->pieces.emplace_back(stream, std::string(text, length));
    }
};

}  // namespace errortest
