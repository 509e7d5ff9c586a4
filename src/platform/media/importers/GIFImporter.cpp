// GIF importer (first frame) through giflib's record-by-record reader.
#include "platform/media/ComponentInternal.h"

#include <gif_lib.h>

#include <cstring>
#include <new>
#include <vector>

namespace plim::media {

namespace {

struct MemoryReader {
    const uint8_t *data;
    size_t size;
    size_t offset;
};

int ReadGif(GifFileType *gif, GifByteType *out, int count) {
    auto *r = static_cast<MemoryReader *>(gif->UserData);
    if (count < 0) return 0;
    size_t n = std::min<size_t>(static_cast<size_t>(count), r->size - r->offset);
    std::memcpy(out, r->data + r->offset, n);
    r->offset += n;
    return static_cast<int>(n);
}

}  // namespace

bool IsGIF(const uint8_t *data, size_t size) {
    return size >= 6 && (std::memcmp(data, "GIF87a", 6) == 0 || std::memcmp(data, "GIF89a", 6) == 0);
}

namespace {

// Reads the first frame into the screen-sized raster, row by row, so that nothing is allocated
// from a size the pixel limit has not seen and no later frame is read at all.
OSErr ReadFirstFrame(GifFileType *gif, const MemoryReader &reader, ImportedImage *out) {
    if (gif->SWidth <= 0 || gif->SHeight <= 0) return codecBadDataErr;
    if (gif->SWidth > 32767 || gif->SHeight > 32767) return ImportFailure(kPlimErrorTooLarge, codecBadDataErr);
    if (!decoders::DimensionsAcceptable(static_cast<uint64_t>(gif->SWidth), static_cast<uint64_t>(gif->SHeight)))
        return ImportFailure(kPlimErrorTooLarge, memFullErr);
    GraphicsControlBlock gcb{};
    gcb.TransparentColor = NO_TRANSPARENT_COLOR;
    for (;;) {
        GifRecordType record;
        if (DGifGetRecordType(gif, &record) != GIF_OK || record == TERMINATE_RECORD_TYPE) return codecBadDataErr;
        if (record == IMAGE_DESC_RECORD_TYPE) break;
        if (record != EXTENSION_RECORD_TYPE) continue;
        int code = 0;
        GifByteType *block = nullptr;
        if (DGifGetExtension(gif, &code, &block) != GIF_OK) return codecBadDataErr;
        // The last control block before the frame is the frame's.
        if (code == GRAPHICS_EXT_FUNC_CODE && block) {
            gcb.TransparentColor = NO_TRANSPARENT_COLOR;
            DGifExtensionToGCB(block[0], block + 1, &gcb);
        }
        while (block)
            if (DGifGetExtensionNext(gif, &block) != GIF_OK) return codecBadDataErr;
    }
    if (DGifGetImageDesc(gif) != GIF_OK) return codecBadDataErr;
    const GifImageDesc &d = gif->Image;
    const ColorMapObject *map = d.ColorMap ? d.ColorMap : gif->SColorMap;
    // A frame is decoded row by row however large it claims to be: hold its area to the limit
    // too, and refuse a file that ends before the frame's pixel data starts.
    if (!map || d.Width <= 0 || d.Height <= 0) return codecBadDataErr;
    if (!decoders::DimensionsAcceptable(static_cast<uint64_t>(d.Width), static_cast<uint64_t>(d.Height)))
        return ImportFailure(kPlimErrorTooLarge, codecBadDataErr);
    if (reader.offset >= reader.size) return ImportFailure(kPlimErrorTruncated, codecBadDataErr);

    decoders::Raster &r = out->raster;
    std::vector<GifPixelType> line;
    try {
        line.resize(static_cast<size_t>(d.Width));
    } catch (const std::bad_alloc &) {
        return memFullErr;
    }
    if (!r.Allocate(static_cast<uint32_t>(gif->SWidth), static_cast<uint32_t>(gif->SHeight), false)) return memFullErr;
    bool transparent = gcb.TransparentColor != NO_TRANSPARENT_COLOR;
    // Outside the first frame: transparent if the frame can be, otherwise the background.
    std::memset(r.pixels, 0, r.BytesPerRow() * r.height);
    if (!transparent)
        for (size_t i = 0; i < static_cast<size_t>(r.width) * r.height; i++) r.pixels[i * 4] = 255;

    // Interlaced frames store every 8th row from 0, every 8th from 4, every 4th from 2, then
    // every 2nd from 1.
    static constexpr int kStart[] = {0, 4, 2, 1}, kStep[] = {8, 8, 4, 2};
    const int passes = d.Interlace ? 4 : 1;
    for (int pass = 0; pass < passes; pass++) {
        const int first = d.Interlace ? kStart[pass] : 0, step = d.Interlace ? kStep[pass] : 1;
        for (int y = first; y < d.Height; y += step) {
            if (DGifGetLine(gif, line.data(), d.Width) != GIF_OK) return codecBadDataErr;
            int ty = d.Top + y;
            if (ty < 0 || ty >= gif->SHeight) continue;
            for (int x = 0; x < d.Width; x++) {
                int tx = d.Left + x;
                if (tx < 0 || tx >= gif->SWidth) continue;
                int index = line[static_cast<size_t>(x)];
                if (transparent && index == gcb.TransparentColor) continue;
                if (index >= map->ColorCount) index = 0;
                uint8_t *p = r.pixels + (static_cast<size_t>(ty) * r.width + static_cast<size_t>(tx)) * 4;
                p[0] = 255;
                p[1] = map->Colors[index].Red;
                p[2] = map->Colors[index].Green;
                p[3] = map->Colors[index].Blue;
            }
        }
    }
    r.alpha = transparent;
    out->depth = transparent ? 32 : 24;
    return noErr;
}

}  // namespace

OSErr ImportGIF(const uint8_t *data, size_t size, ImportedImage *out) {
    if (!IsGIF(data, size)) return codecBadDataErr;
    MemoryReader reader{data, size, 0};
    int error = 0;
    GifFileType *gif = DGifOpen(&reader, ReadGif, &error);
    if (!gif) return codecBadDataErr;
    OSErr result = ReadFirstFrame(gif, reader, out);
    DGifCloseFile(gif, &error);
    if (result != noErr) std::free(out->raster.Take());
    return result;
}

}  // namespace plim::media
