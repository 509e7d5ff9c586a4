// Input pixels shared by the benchmarks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

namespace plim::bench {

// Valid premultiplied A,R,G,B pixels (colour never above alpha), the same for a given seed.
inline std::vector<uint8_t> RandomPremultipliedARGB(size_t bytes, unsigned seed) {
    std::vector<uint8_t> p(bytes);
    std::mt19937 rng(seed);
    for (size_t i = 0; i + 4 <= bytes; i += 4) {
        auto a = static_cast<uint8_t>(rng());
        p[i] = a;
        for (int c = 1; c < 4; ++c) p[i + c] = a ? static_cast<uint8_t>(rng() % (a + 1u)) : 0;
    }
    return p;
}

}  // namespace plim::bench
