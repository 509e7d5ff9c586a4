// Per-pixel arithmetic of the channel operations, with the simple float forms that define the
// results beside the integer forms the loops use.
#pragma once

#include <PlimBitmapLib/PlimCFImage.h>

#include <cmath>
#include <cstddef>
#include <cstdint>

namespace plim::pixel {

// The grey value of one pixel: the plain mean of the three samples as floats, scaled back with
// lroundf, low 8 bits kept.
inline uint8_t GreySampleReference(uint8_t r8, uint8_t g8, uint8_t b8) {
    float r = static_cast<float>(r8) / 255.0f;
    float g = static_cast<float>(g8) / 255.0f;
    float b = static_cast<float>(b8) / 255.0f;
    float grey = ((r + g) + b) / 3.0f;
    return static_cast<uint8_t>(lroundf(grey * 255.0f) & 0xFF);
}

// The alpha byte goes through the same float round trip; it comes back unchanged.
inline uint8_t GreyAlphaReference(uint8_t a8) {
    float a = static_cast<float>(a8) / 255.0f;
    return static_cast<uint8_t>(lroundf(a * 255.0f) & 0xFF);
}

// Integer form: a third of the sum is never a half, so the float error cannot move the
// rounding, and round(s / 3) is (s + 1) / 3.
inline uint8_t GreySample(uint32_t r, uint32_t g, uint32_t b) {
    return static_cast<uint8_t>((r + g + b + 1) / 3);
}

// The byte loops over every four-byte group of a buffer (row padding included).
void MakeGreyPixels(UInt8 *pixels, size_t count);
void MakeGreyPixelsReference(UInt8 *pixels, size_t count);
// Unpremultiplies ARGB groups and sets their alpha to 255; true when some colour byte exceeded
// its alpha.
bool UnpremultiplyToOpaque(UInt8 *pixels, size_t count);
// Inverts bytes 1 to 3 of each group, or all four when keepAlpha is false.
void InvertPixels(UInt8 *pixels, size_t count, bool keepAlpha);
void SetAlphaOpaque(UInt8 *pixels, size_t count);

// True unless the alpha info is 0, 5 or 6.
inline bool AlphaInfoHasAlpha(SInt32 info) {
    return !(info == kCGImageAlphaNone || info == kCGImageAlphaNoneSkipLast || info == kCGImageAlphaNoneSkipFirst);
}

}  // namespace plim::pixel
