// Premultiplying and unpremultiplying plain buffers of four-byte pixels.
#include "PixelArithmetic.h"
#include "platform/graphics/PremultiplyPixels.h"

#include <PlimBitmapLib/PlimPixelBuffer.h>

#include "platform/runtime/Output.h"

#include <array>
#include <cstddef>

namespace plim::pixel {

const uint8_t *UnpremultiplyTable() {
    static const std::array<uint8_t, 65536> table = [] {
        std::array<uint8_t, 65536> t{};
        for (unsigned a = 0; a < 256; ++a)
            for (unsigned c = 0; c < 256; ++c)
                t[a << 8 | c] = UnpremultiplySampleReference(static_cast<uint8_t>(c), static_cast<uint8_t>(a));
        return t;
    }();
    return table.data();
}

namespace {

template <int kAlpha>
void UnpremultiplyPixels(UInt8 *pixels, UInt32 length, const char (&message)[61]) {
    constexpr int c0 = kAlpha == 0 ? 1 : 0;
    const uint8_t *table = UnpremultiplyTable();
    const UInt32 count = length >> 2;
    bool invalid = false;
    for (UInt32 i = 0; i < count; ++i) {
        UInt8 *p = pixels + static_cast<size_t>(i) * 4;
        uint32_t a = p[kAlpha];
        uint32_t r = p[c0], g = p[c0 + 1], b = p[c0 + 2];
        invalid |= (r > a) | (g > a) | (b > a);
        const uint8_t *row = table + (a << 8);
        p[c0] = row[r];
        p[c0 + 1] = row[g];
        p[c0 + 2] = row[b];
    }
    // One message per call however many pixels are invalid; which pixel came first does not
    // change the text, so it is written after the pass.
    if (invalid) plim::output::Write(kPlimOutputStandardError, message);
}

const char kARGBMessage[61] = "PlimCFUnpremultiplyARGBBuffer - invalid unpremultiplication\n";
const char kRGBAMessage[61] = "PlimCFUnpremultiplyRGBABuffer - invalid unpremultiplication\n";

}  // namespace
}  // namespace plim::pixel

using namespace plim::pixel;

extern "C" {

void PlimCFPremultiplyARGBBuffer(UInt8 *pixels, UInt32 length) {
    plim::graphics::PremultiplyAlphaFirst(pixels, length >> 2);
}

void PlimCFPremultiplyRGBABuffer(UInt8 *pixels, UInt32 length) {
    plim::graphics::PremultiplyAlphaLast(pixels, length >> 2);
}

void PlimCFUnpremultiplyARGBBuffer(UInt8 *pixels, UInt32 length) {
    UnpremultiplyPixels<0>(pixels, length, kARGBMessage);
}

void PlimCFUnpremultiplyRGBABuffer(UInt8 *pixels, UInt32 length) {
    UnpremultiplyPixels<3>(pixels, length, kRGBAMessage);
}

}  // extern "C"
