// The SIMD row kernels give the bytes of the per-pixel ones.
#include "platform/graphics/PixelRows.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

namespace {

using plim::graphics::Layout;

TEST(PixelRows, FastRowsMatchPerPixelRowsOnRandomInput) {
    std::mt19937 rng(5);
    auto randomBytes = [&](size_t n) {
        std::vector<uint8_t> v(n);
        for (auto &b : v) b = static_cast<uint8_t>(rng());
        // Some runs of opaque and transparent pixels, where the per-pixel rows take shortcuts.
        for (size_t i = 0; i + 4 <= n; i += 4) {
            if (rng() % 5 == 0) v[i] = v[i + 3] = 255;
            if (rng() % 7 == 0) v[i] = v[i + 1] = v[i + 2] = v[i + 3] = 0;
        }
        return v;
    };
    const CGImageAlphaInfo alphas[] = {kCGImageAlphaPremultipliedLast,
                                       kCGImageAlphaPremultipliedFirst,
                                       kCGImageAlphaLast,
                                       kCGImageAlphaFirst,
                                       kCGImageAlphaNoneSkipLast,
                                       kCGImageAlphaNoneSkipFirst};
    for (int round = 0; round < 200; ++round) {
        size_t n = rng() % 70;
        size_t x = rng() % 3;
        std::vector<uint8_t> row = randomBytes((n + x) * 4);
        for (CGImageAlphaInfo alpha : alphas) {
            std::vector<uint32_t> fast(n), slow(n);
            plim::graphics::FetchFor(Layout::RGB32, alpha)(row.data(), x, n, fast.data());
            plim::graphics::ScalarFetchFor(Layout::RGB32, alpha)(row.data(), x, n, slow.data());
            ASSERT_EQ(fast, slow) << "fetch, alpha " << alpha << ", n " << n;
        }
        // Blending takes any words, valid premultiplied or not.
        std::vector<uint8_t> wordBytes = randomBytes(n * 4);
        std::vector<uint32_t> words(n);
        if (n) std::memcpy(words.data(), wordBytes.data(), n * 4);
        std::vector<uint8_t> dst = randomBytes(n * 4);
        for (CGImageAlphaInfo alpha :
             {kCGImageAlphaPremultipliedLast, kCGImageAlphaPremultipliedFirst,
              kCGImageAlphaNoneSkipLast, kCGImageAlphaNoneSkipFirst}) {
            std::vector<uint8_t> fast = dst, slow = dst;
            plim::graphics::BlendFor(Layout::RGB32, alpha)(words.data(), n, fast.data());
            plim::graphics::ScalarBlendFor(Layout::RGB32, alpha)(words.data(), n, slow.data());
            ASSERT_EQ(fast, slow) << "blend, alpha " << alpha << ", n " << n;
        }
        // Reading and drawing in one pass, for every pair of 32-bit layouts.
        for (CGImageAlphaInfo from : alphas) {
            for (CGImageAlphaInfo to :
                 {kCGImageAlphaPremultipliedLast, kCGImageAlphaPremultipliedFirst,
                  kCGImageAlphaNoneSkipLast, kCGImageAlphaNoneSkipFirst}) {
                auto convert = plim::graphics::ConvertFor(Layout::RGB32, from, Layout::RGB32, to);
                if (!convert) continue;  // no one-pass row on this machine
                std::vector<uint8_t> fast = dst, slow = dst;
                convert(row.data(), x, n, fast.data());
                std::vector<uint32_t> w(n);
                plim::graphics::ScalarFetchFor(Layout::RGB32, from)(row.data(), x, n, w.data());
                plim::graphics::ScalarBlendFor(Layout::RGB32, to)(w.data(), n, slow.data());
                ASSERT_EQ(fast, slow) << "convert " << from << " to " << to << ", n " << n;
                // The same onto zero bytes, without regard to what the destination held.
                auto ontoZero = plim::graphics::ConvertFor(Layout::RGB32, from, Layout::RGB32, to, true);
                ASSERT_NE(ontoZero, nullptr);
                fast = dst;
                slow.assign(n * 4, 0);
                ontoZero(row.data(), x, n, fast.data());
                plim::graphics::ScalarBlendFor(Layout::RGB32, to)(w.data(), n, slow.data());
                ASSERT_EQ(fast, slow) << "onto zero, " << from << " to " << to << ", n " << n;
            }
        }
    }
}

}  // namespace
