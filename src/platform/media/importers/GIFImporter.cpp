// GIF importer (first frame) through giflib.
#include "platform/media/ComponentInternal.h"

#include <gif_lib.h>

#include <cstring>

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

OSErr ImportGIF(const uint8_t *data, size_t size, ImportedImage *out) {
    if (!IsGIF(data, size)) return codecBadDataErr;
    MemoryReader reader{data, size, 0};
    int error = 0;
    GifFileType *gif = DGifOpen(&reader, ReadGif, &error);
    if (!gif) return codecBadDataErr;
    OSErr result = codecBadDataErr;
    if (DGifSlurp(gif) == GIF_OK && gif->ImageCount > 0 && gif->SWidth > 0 && gif->SHeight > 0 &&
        gif->SWidth <= 32767 && gif->SHeight <= 32767) {
        const SavedImage &frame = gif->SavedImages[0];
        const ColorMapObject *map = frame.ImageDesc.ColorMap ? frame.ImageDesc.ColorMap : gif->SColorMap;
        GraphicsControlBlock gcb{};
        gcb.TransparentColor = NO_TRANSPARENT_COLOR;
        DGifSavedExtensionToGCB(gif, 0, &gcb);
        decoders::Raster &r = out->raster;
        if (map && r.Allocate(static_cast<uint32_t>(gif->SWidth), static_cast<uint32_t>(gif->SHeight), false)) {
            bool transparent = gcb.TransparentColor != NO_TRANSPARENT_COLOR;
            // Outside the first frame: transparent if the frame can be, otherwise the background.
            std::memset(r.pixels, 0, r.BytesPerRow() * r.height);
            if (!transparent)
                for (size_t i = 0; i < static_cast<size_t>(r.width) * r.height; i++) r.pixels[i * 4] = 255;
            const GifImageDesc &d = frame.ImageDesc;
            for (int y = 0; y < d.Height; y++) {
                int ty = d.Top + y;
                if (ty < 0 || ty >= gif->SHeight) continue;
                for (int x = 0; x < d.Width; x++) {
                    int tx = d.Left + x;
                    if (tx < 0 || tx >= gif->SWidth) continue;
                    int index = frame.RasterBits[static_cast<size_t>(y) * d.Width + x];
                    uint8_t *p = r.pixels + (static_cast<size_t>(ty) * r.width + tx) * 4;
                    if (transparent && index == gcb.TransparentColor) continue;
                    if (index >= map->ColorCount) index = 0;
                    p[0] = 255;
                    p[1] = map->Colors[index].Red;
                    p[2] = map->Colors[index].Green;
                    p[3] = map->Colors[index].Blue;
                }
            }
            r.alpha = transparent;
            out->depth = transparent ? 32 : 24;
            result = noErr;
        }
    }
    DGifCloseFile(gif, &error);
    return result;
}

}  // namespace plim::media
