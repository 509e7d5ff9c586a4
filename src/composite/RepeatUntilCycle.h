// Applying the same drawing step many times to one region of an image. The step's effect depends
// only on the region's pixels, so once the region shows a state it showed before, the passes
// repeat with that period and only the remainder of the count needs drawing (Brent's cycle
// detection: one saved state, compared after every pass).
#pragma once

#include <PlimBitmapLib/platform/MacTypes.h>

#include <cstdint>
#include <cstring>
#include <new>
#include <vector>

namespace plim::composite {

// The bytes of a rectangle of rows: `rows` rows of `rowLength` bytes, `stride` bytes apart.
struct Region {
    UInt8 *first;
    size_t rowLength, stride;
    UInt32 rows;
};

template <class Step>
void RepeatUntilCycle(uint64_t count, const Region &region, Step step) {
    if (count <= 2) {
        for (; count > 0; --count) step();
        return;
    }
    std::vector<UInt8> saved;
    try {
        saved.resize(region.rowLength * region.rows);
    } catch (const std::bad_alloc &) {
        for (; count > 0; --count) step();  // no room to compare states: every pass is drawn
        return;
    }
    auto save = [&] {
        for (UInt32 r = 0; r < region.rows; ++r)
            std::memcpy(&saved[r * region.rowLength], region.first + r * region.stride,
                        region.rowLength);
    };
    auto same = [&] {
        for (UInt32 r = 0; r < region.rows; ++r)
            if (std::memcmp(&saved[r * region.rowLength], region.first + r * region.stride,
                            region.rowLength) != 0)
                return false;
        return true;
    };
    save();
    step();
    --count;
    uint64_t power = 1, period = 1;
    while (count > 0) {
        if (same()) {
            for (count %= period; count > 0; --count) step();
            return;
        }
        if (power == period) {
            save();
            power *= 2;
            period = 0;
        }
        step();
        --count;
        ++period;
    }
}

}  // namespace plim::composite
