// PICT importer: a file with its 512-byte header, decoded by our own codec.
#include "platform/media/ComponentInternal.h"
#include "platform/media/pict/PictCodec.h"

#include <cstring>
#include <new>
#include <vector>

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

namespace {

OSErr ImportError(pict::PictStatus status) {
    switch (status) {
    case pict::PictStatus::Unsupported: return codecUnimpErr;
    case pict::PictStatus::Truncated: return ImportFailure(kPlimErrorTruncated, corruptPICTDataErr);
    case pict::PictStatus::TooLarge: return ImportFailure(kPlimErrorTooLarge, corruptPICTDataErr);
    default: return corruptPICTDataErr;
    }
}

}  // namespace

OSErr ImportPICTFile(const uint8_t *data, size_t size, ImportedImage *out) {
    // Nothing after the header (the PICT loader puts 512 zero bytes in front of empty data).
    if (!data || size <= kHeaderSize) return ImportFailure(kPlimErrorTruncated, corruptPICTDataErr);
    // A walk that draws nothing finds the frame and checks every opcode to the end first, so a
    // picture over the pixel limit, or one that ends early, is refused before its canvas exists.
    pict::PictInfo info{};
    pict::PictStatus status = pict::ReadPictInfo(data + kHeaderSize, size - kHeaderSize, &info);
    if (status != pict::PictStatus::Ok) return ImportError(status);
    if (info.width > 32767 || info.height > 32767) return ImportFailure(kPlimErrorTooLarge, codecUnimpErr);
    if (!decoders::DimensionsAcceptable(static_cast<uint64_t>(info.width), static_cast<uint64_t>(info.height)))
        return ImportFailure(kPlimErrorTooLarge, memFullErr);
    std::vector<uint8_t> argb;
    try {
        status = pict::DecodePict(data + kHeaderSize, size - kHeaderSize, &argb, &info,
                                  static_cast<int64_t>(decoders::PixelLimit()));
    } catch (const std::bad_alloc &) {
        return memFullErr;
    }
    if (status != pict::PictStatus::Ok) return ImportError(status);
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
