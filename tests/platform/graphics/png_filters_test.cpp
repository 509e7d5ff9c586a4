// PNG row filters: the vector rows give the bytes of the one-byte-at-a-time definitions, and
// filtering then unfiltering gives the row back.
#include "platform/graphics/decoders/PNGFilters.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace {

using namespace plim::decoders;

constexpr size_t kPad = 8;  // zero bytes before each row, as FilterRow needs

// Random rows, some smooth (where every filter has a chance to win) and some noise.
std::vector<uint8_t> Row(std::mt19937 &rng, size_t n) {
    std::vector<uint8_t> row(kPad + n, 0);
    const bool smooth = rng() % 2;
    int v = static_cast<int>(rng() % 256);
    for (size_t i = 0; i < n; i++) {
        v = smooth ? v + static_cast<int>(rng() % 7) - 3 : static_cast<int>(rng());
        row[kPad + i] = static_cast<uint8_t>(v);
    }
    return row;
}

TEST(PNGFilters, FastRowsMatchTheDefinitionsAndRoundTrip) {
    std::mt19937 rng(11);
    for (int round = 0; round < 400; round++) {
        const size_t bpp = std::vector<size_t>{1, 2, 3, 4, 6, 8}[rng() % 6];
        const size_t n = bpp * (rng() % 45 + (round % 2 ? 0 : 1));
        const std::vector<uint8_t> prev = round % 5 ? Row(rng, n) : std::vector<uint8_t>(kPad + n, 0);
        const std::vector<uint8_t> cur = Row(rng, n);
        const uint8_t *p = prev.data() + kPad, *c = cur.data() + kPad;

        std::vector<uint8_t> fast(n + 1), slow(n + 1);
        FilterRow(c, p, fast.data(), n, bpp);
        FilterRowReference(c, p, slow.data(), n, bpp);
        ASSERT_EQ(fast, slow) << "filter, bpp " << bpp << ", n " << n;

        for (uint8_t type = 0; type <= kFilterCount; type++) {
            std::vector<uint8_t> src(cur.begin() + kPad, cur.end()), a(n), b(n);
            bool fastOk = Unfilter(type, src.data(), p, a.data(), n, bpp);
            bool slowOk = UnfilterReference(type, src.data(), p, b.data(), n, bpp);
            ASSERT_EQ(fastOk, type < kFilterCount);
            ASSERT_EQ(slowOk, fastOk);
            if (fastOk) {
                ASSERT_EQ(a, b) << "unfilter " << int{type} << ", bpp " << bpp << ", n " << n;
            }
        }
        std::vector<uint8_t> back(n);
        ASSERT_TRUE(Unfilter(fast[0], fast.data() + 1, p, back.data(), n, bpp));
        ASSERT_TRUE(std::equal(back.begin(), back.end(), c)) << "round trip, bpp " << bpp;
    }
}

TEST(PNGFilters, ChoosesTheCheapestFilterFirstInTypeOrder) {
    // A ramp along the row: Sub leaves ones; Up (from an equal row above) zeros everywhere.
    const size_t n = 64;
    std::vector<uint8_t> row(kPad + n, 0), zeros(kPad + n, 0);
    for (size_t i = 0; i < n; i++) row[kPad + i] = static_cast<uint8_t>(i);
    std::vector<uint8_t> out(n + 1);
    FilterRow(row.data() + kPad, zeros.data() + kPad, out.data(), n, 1);
    EXPECT_EQ(out[0], kFilterSub);
    FilterRow(row.data() + kPad, row.data() + kPad, out.data(), n, 1);
    EXPECT_EQ(out[0], kFilterUp);
    // All zeros: every filter costs nothing, and None comes first.
    FilterRow(zeros.data() + kPad, zeros.data() + kPad, out.data(), n, 4);
    EXPECT_EQ(out[0], kFilterNone);
}

}  // namespace
