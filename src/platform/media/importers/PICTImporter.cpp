// PICT importer: a file with its 512-byte header, decoded by our own codec.
#include "platform/media/ComponentInternal.h"
#include "platform/media/pict/PictCodec.h"

#include <cstring>

namespace plim::media {

namespace {
constexpr size_t kHeaderSize = 512;
}

bool IsPCTFile(const uint8_t *data, size_t size) {
    if (!data || size <= kHeaderSize) return false;
    pict::PictInfo info{};
    return pict::ReadPictInfo(data + kHeaderSize, size - kHeaderSize, &info) ==
           pict::PictStatus::Ok;
}

OSErr ImportPICTFile(const uint8_t *data, size_t size, ImportedImage *out) {
    if (!data || size <= kHeaderSize) return corruptPICTDataErr;
    std::vector<uint8_t> argb;
    pict::PictInfo info{};
    pict::PictStatus status = pict::DecodePict(data + kHeaderSize, size - kHeaderSize, &argb, &info);
    if (status == pict::PictStatus::Unsupported) return codecUnimpErr;
    if (status != pict::PictStatus::Ok) return corruptPICTDataErr;
    if (info.width > 32767 || info.height > 32767) return codecUnimpErr;
    decoders::Raster &r = out->raster;
    if (!r.Allocate(static_cast<uint32_t>(info.width), static_cast<uint32_t>(info.height), false))
        return memFullErr;
    if (argb.size() != r.BytesPerRow() * r.height) return corruptPICTDataErr;
    std::memcpy(r.pixels, argb.data(), argb.size());
    r.alpha = info.depth == 32;
    out->depth = info.depth;
    return noErr;
}

}  // namespace plim::media
