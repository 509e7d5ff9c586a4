// The per-sample arithmetic of premultiplication, in the exact order of operations that defines
// its results. The buffer functions use faster equivalents that must give the same bytes.
#pragma once

#include <cmath>
#include <cstdint>

namespace plim::pixel {

// round(C * A / 255) through float samples: a = A/255, c = C/255, x = (c*a)*255 in float, then
// floor(x + 0.5) in double, truncated, low 8 bits kept.
inline uint8_t PremultiplySampleReference(uint8_t color, uint8_t alpha) {
    float a = static_cast<float>(alpha) / 255.0f;
    float c = static_cast<float>(color) / 255.0f;
    float x = (c * a) * 255.0f;
    return static_cast<uint8_t>(static_cast<int>(std::floor(static_cast<double>(x) + 0.5)) & 0xFF);
}

// The inverse is rounded to float before it multiplies, so a few results fall one below
// round(C * 255 / A); colours above their alpha clamp to 255, alpha 0 gives 0.
inline uint8_t UnpremultiplySampleReference(uint8_t color, uint8_t alpha) {
    float a = static_cast<float>(alpha) / 255.0f;
    float c = static_cast<float>(color) / 255.0f;
    float inv = a == 0.0f ? 0.0f : static_cast<float>(1.0 / static_cast<double>(a));
    float x = inv * c;
    float value = x > 1.0f ? 255.0f : x * 255.0f;
    return static_cast<uint8_t>(static_cast<int>(std::floor(static_cast<double>(value) + 0.5)) & 0xFF);
}

// Integer form of PremultiplySampleReference, equal for every pair of bytes.
inline uint8_t PremultiplySample(uint32_t color, uint32_t alpha) {
    uint32_t t = color * alpha + 128;
    return static_cast<uint8_t>((t + (t >> 8)) >> 8);
}

// 256 x 256 table of UnpremultiplySampleReference, indexed [alpha << 8 | color].
const uint8_t *UnpremultiplyTable();

}  // namespace plim::pixel
