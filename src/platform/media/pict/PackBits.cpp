#include "platform/media/pict/PictCodec.h"

#include <algorithm>
#include <cstring>

namespace plim::pict {

namespace {

bool SameUnit(const uint8_t* a, const uint8_t* b, size_t unit) {
    return std::memcmp(a, b, unit) == 0;
}

// Length in units of the run of identical units starting at unit index i (at most 128).
size_t RunLength(const uint8_t* src, size_t units, size_t i, size_t unit) {
    size_t run = 1;
    while (i + run < units && run < 128 && SameUnit(src + (i + run) * unit, src + i * unit, unit)) {
        ++run;
    }
    return run;
}

}  // namespace

void PackBitsEncode(const uint8_t* src, size_t size, size_t unit, std::vector<uint8_t>* out) {
    if (unit != 1 && unit != 2) return;
    const size_t units = size / unit;
    size_t i = 0;
    while (i < units) {
        size_t run = RunLength(src, units, i, unit);
        if (run >= 3) {
            // A run packet: -(count - 1), then the unit once.
            out->push_back(static_cast<uint8_t>(static_cast<int8_t>(1 - static_cast<int>(run))));
            out->insert(out->end(), src + i * unit, src + (i + 1) * unit);
            i += run;
            continue;
        }
        // A literal packet that stops before the next run worth encoding as one.
        const size_t start = i;
        while (i < units && i - start < 128) {
            if (RunLength(src, units, i, unit) >= 3) break;
            ++i;
        }
        out->push_back(static_cast<uint8_t>(i - start - 1));
        out->insert(out->end(), src + start * unit, src + i * unit);
    }
}

size_t PackBitsDecode(const uint8_t* src, size_t srcSize, uint8_t* dst, size_t dstSize,
                      size_t unit) {
    if (unit != 1 && unit != 2) return 0;
    size_t in = 0;
    size_t out = 0;
    while (in < srcSize && out < dstSize) {
        const int n = static_cast<int8_t>(src[in++]);
        if (n >= 0) {
            const size_t want = (static_cast<size_t>(n) + 1) * unit;
            const size_t avail = std::min(want, srcSize - in);
            const size_t copy = std::min(avail, dstSize - out);
            std::memcpy(dst + out, src + in, copy);
            in += avail;
            out += copy;
        } else if (n != -128) {  // -128 is a no-op
            if (srcSize - in < unit) break;
            const size_t count = static_cast<size_t>(1 - n);
            for (size_t k = 0; k < count && out < dstSize; ++k) {
                const size_t copy = std::min(unit, dstSize - out);
                std::memcpy(dst + out, src + in, copy);
                out += copy;
            }
            in += unit;
        }
    }
    return out;
}

bool PackBitsUnpacksTo(const uint8_t* src, size_t srcSize, size_t size, size_t unit) {
    if (unit != 1 && unit != 2) return false;
    size_t in = 0;
    size_t out = 0;
    while (in < srcSize) {
        const int n = static_cast<int8_t>(src[in++]);
        if (n >= 0) {
            in += (static_cast<size_t>(n) + 1) * unit;
            out += (static_cast<size_t>(n) + 1) * unit;
        } else if (n != -128) {
            in += unit;
            out += static_cast<size_t>(1 - n) * unit;
        }
        if (out > size) return false;
    }
    return in == srcSize && out == size;
}

}  // namespace plim::pict
