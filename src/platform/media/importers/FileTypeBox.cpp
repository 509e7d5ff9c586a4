// The file-type box that opens ISO base media files (HEIF, AVIF): which brands the file claims.
#include "platform/media/ComponentInternal.h"

#include <algorithm>

namespace plim::media {

namespace {

OSType ReadOSType(const uint8_t *p) {
    return (static_cast<OSType>(p[0]) << 24) | (static_cast<OSType>(p[1]) << 16) |
           (static_cast<OSType>(p[2]) << 8) | static_cast<OSType>(p[3]);
}

}  // namespace

bool ClaimsBrand(const uint8_t *data, size_t size, std::span<const OSType> brands) {
    // size, 'ftyp', major brand, minor version, then compatible brands to the box's end. A box
    // size of 1 (64-bit size follows) or 0 (to the end of file) has no place in a file-type box.
    if (!data || size < 16 || ReadOSType(data + 4) != FourCC("ftyp")) return false;
    const size_t boxSize = ReadOSType(data);
    if (boxSize < 16 || boxSize > size) return false;
    auto listed = [&](OSType brand) { return std::find(brands.begin(), brands.end(), brand) != brands.end(); };
    if (listed(ReadOSType(data + 8))) return true;
    for (size_t at = 16; at + 4 <= boxSize; at += 4)
        if (listed(ReadOSType(data + at))) return true;
    return false;
}

}  // namespace plim::media
