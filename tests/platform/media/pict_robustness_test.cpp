// Damaged pictures: every prefix and many random mutations of valid pictures must decode without
// crashing or reading out of bounds (this suite also runs under AddressSanitizer), and the reader
// must describe what it produced consistently.
#include <gtest/gtest.h>

#include <random>

#include "platform/media/PictTestSupport.h"
#include "platform/media/pict/PictCodec.h"

using namespace plim::pict;
using namespace pict_test;

namespace {

std::vector<std::vector<uint8_t>> SamplePictures() {
    std::vector<std::vector<uint8_t>> samples;
    std::mt19937 rng(11);
    for (bool alpha : {false, true}) {
        const int w = alpha ? 70 : 5, h = 3;
        std::vector<uint8_t> argb(static_cast<size_t>(w * h * 4));
        for (size_t i = 0; i < argb.size(); ++i)
            argb[i] = static_cast<uint8_t>(i % 7 == 0 ? rng() : 17);
        std::vector<uint8_t> file;
        EncodePictFile(argb.data(), w, h, static_cast<size_t>(w) * 4, alpha, &file);
        samples.emplace_back(file.begin() + 512, file.end());
    }
    {  // indexed, region variant, a pixel pattern before it
        PictBuilder b(2, Rect{0, 0, 4, 20});
        b.op(0x0012);
        b.u16(1);
        b.fill(8, 0);
        b.u16(0x8008);
        b.pixMapFields(Rect{0, 0, 2, 8}, 0, 0, 8, 1, 8);
        b.colorTable({Rgb{1, 2, 3}}, true);
        b.pixData({std::vector<uint8_t>(8, 0), std::vector<uint8_t>(8, 0)}, 8, true);
        b.op(0x0099);
        b.u16(0x8000u | 10);
        b.pixMapFields(Rect{0, 0, 4, 20}, 0, 0, 4, 1, 4);
        b.colorTable({Rgb{0, 0, 0}, Rgb{9, 9, 9}, Rgb{200, 0, 0}}, false, {0, 5, 15});
        b.rect(Rect{0, 0, 4, 20});
        b.rect(Rect{0, 0, 4, 20});
        b.u16(0);
        b.u16(10);
        b.rect(Rect{0, 0, 4, 20});
        std::vector<std::vector<uint8_t>> rows;
        for (int y = 0; y < 4; ++y)
            rows.push_back(std::vector<uint8_t>(10, static_cast<uint8_t>(0x5F + y)));
        b.pixData(rows, 10, true);
        b.end();
        samples.push_back(b.data());
    }
    {  // 16-bit direct with word packing, version 1 bitmap
        PictBuilder b(2, Rect{0, 0, 2, 6});
        b.directOp(0x009B, 12, Rect{0, 0, 2, 6}, 3, 16, 3, Rect{0, 0, 2, 6});
        b.u16(10);
        b.rect(Rect{0, 0, 2, 6});
        b.pixData({std::vector<uint8_t>(12, 0x42), {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}}, 12,
                  true, 2);
        b.end();
        samples.push_back(b.data());
        PictBuilder v1(1, Rect{0, 0, 2, 64});
        v1.bitMapOp(0x98, 8, Rect{0, 0, 2, 64}, Rect{0, 0, 2, 64}, Rect{0, 0, 2, 64});
        v1.pixData({std::vector<uint8_t>(8, 0xF0), std::vector<uint8_t>(8, 0x0F)}, 8, true);
        v1.end();
        samples.push_back(v1.data());
    }
    return samples;
}

// Decodes and cross-checks the two entry points on one (possibly damaged) picture.
void CheckConsistent(const std::vector<uint8_t>& data, PictStatus* statusOut = nullptr) {
    // Copy into an exact-size heap block so that any over-read trips the sanitizer.
    std::vector<uint8_t> exact(data);
    exact.shrink_to_fit();
    std::vector<uint8_t> argb;
    PictInfo info{};
    const PictStatus status = DecodePict(exact.data(), exact.size(), &argb, &info);
    if (statusOut) *statusOut = status;
    if (!argb.empty()) {
        ASSERT_GT(info.width, 0);
        ASSERT_GT(info.height, 0);
        ASSERT_EQ(argb.size(),
                  static_cast<size_t>(info.width) * static_cast<size_t>(info.height) * 4);
    } else {
        ASSERT_NE(status, PictStatus::Ok);
    }
    PictInfo quick{};
    const PictStatus quickStatus = ReadPictInfo(exact.data(), exact.size(), &quick);
    // Only drawing can exhaust the overdraw budget.
    if (status != PictStatus::TooLarge) {
        ASSERT_EQ(quickStatus, status);
    }
    if (status == PictStatus::Ok) {
        ASSERT_EQ(quick.width, info.width);
        ASSERT_EQ(quick.height, info.height);
        ASSERT_EQ(quick.depth, info.depth);
        ASSERT_TRUE(info.depth == 1 || info.depth == 8 || info.depth == 24 || info.depth == 32);
    }
}

}  // namespace

TEST(PictRobustness, EveryPrefixIsRejectedWithoutOverreading) {
    for (const auto& picture : SamplePictures()) {
        PictStatus full;
        CheckConsistent(picture, &full);
        ASSERT_EQ(full, PictStatus::Ok);
        for (size_t n = 0; n < picture.size(); ++n) {
            // Every proper prefix lacks at least the last byte of the end opcode.
            std::vector<uint8_t> prefix(picture.begin(), picture.begin() + static_cast<long>(n));
            PictStatus status;
            CheckConsistent(prefix, &status);
            ASSERT_NE(status, PictStatus::Ok) << "prefix of " << n << " bytes";
        }
    }
}

TEST(PictRobustness, RandomMutationsNeverCrash) {
    std::mt19937 rng(2024);
    int accepted = 0;
    for (const auto& picture : SamplePictures()) {
        for (int trial = 0; trial < 1500; ++trial) {
            std::vector<uint8_t> data = picture;
            const int edits = 1 + static_cast<int>(rng() % 6);
            for (int e = 0; e < edits; ++e) {
                const size_t at = rng() % data.size();
                switch (rng() % 4) {
                    case 0:
                        data[at] = static_cast<uint8_t>(rng());
                        break;
                    case 1:
                        data[at] ^= static_cast<uint8_t>(1u << (rng() % 8));
                        break;
                    case 2:
                        data[at] = (rng() & 1) ? 0xFF : 0x00;
                        break;
                    default:
                        data.erase(data.begin() + static_cast<long>(at));
                        break;
                }
                if (data.empty()) data.push_back(0);
            }
            PictStatus status;
            CheckConsistent(data, &status);
            if (status == PictStatus::Ok) ++accepted;
        }
    }
    // Mutating pixel bytes only changes colours, so some mutants must still decode.
    EXPECT_GT(accepted, 0);
}
