// TIFF importer: grey, RGB, palette, CMYK and CIELab pixels are read sample by sample; libtiff's
// RGBA reader handles every other photometric, compression and bit depth it knows.
#include "platform/media/ComponentInternal.h"
#include "platform/media/importers/TIFFSamples.h"
#include "platform/runtime/NoThrow.h"

#include <tiffio.h>

#include <cstring>

namespace plim::media {

namespace {

struct MemoryFile {
    const uint8_t *data;
    toff_t size;
    toff_t offset;
};

tsize_t Read(thandle_t h, tdata_t buf, tsize_t count) {
    auto *f = static_cast<MemoryFile *>(h);
    if (count < 0) return -1;
    toff_t left = f->offset < f->size ? f->size - f->offset : 0;
    toff_t n = static_cast<toff_t>(count) < left ? static_cast<toff_t>(count) : left;
    std::memcpy(buf, f->data + f->offset, n);
    f->offset += n;
    return static_cast<tsize_t>(n);
}
tsize_t Write(thandle_t, tdata_t, tsize_t) { return -1; }
toff_t Seek(thandle_t h, toff_t off, int whence) {
    auto *f = static_cast<MemoryFile *>(h);
    toff_t base = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? f->offset : f->size;
    f->offset = base + off;
    return f->offset;
}
int Close(thandle_t) { return 0; }
toff_t FileSize(thandle_t h) { return static_cast<MemoryFile *>(h)->size; }
int Map(thandle_t, tdata_t *, toff_t *) { return 0; }
void Unmap(thandle_t, tdata_t, toff_t) {}

int Silent(TIFF *, void *, const char *, const char *, va_list) { return 1; }

// Whether the first strip (or tile) of pixel data starts inside the file; a file cut before it
// holds no pixels, whatever its directory promises.
bool PixelDataPresent(TIFF *tif, toff_t fileSize) {
    int error = 0;
    uint64_t offset = TIFFGetStrileOffsetWithErr(tif, 0, &error);
    return !error && offset > 0 && offset < fileSize;
}

// libtiff's own buffers (strips, tiles, tag arrays) for a picture the pixel limit allows need no
// more than eight bytes a pixel.
tmsize_t MaxLibraryAllocation() {
    constexpr uint64_t kFloor = uint64_t{64} << 20;
    uint64_t bytes = decoders::PixelLimit() * 8;
    return static_cast<tmsize_t>(bytes > kFloor ? bytes : kFloor);
}

// Any other layout through libtiff's RGBA reader, 8 bits per sample.
OSErr ReadRGBA(TIFF *tif, ImportedImage *out) {
    OSErr result = codecBadDataErr;
    uint32_t width = 0, height = 0;
    uint16_t bps = 1, spp = 1, photometric = 0, extraCount = 0;
    uint16_t *extra = nullptr;
    TIFFGetField(tif, TIFFTAG_IMAGEWIDTH, &width);
    TIFFGetField(tif, TIFFTAG_IMAGELENGTH, &height);
    TIFFGetFieldDefaulted(tif, TIFFTAG_BITSPERSAMPLE, &bps);
    TIFFGetFieldDefaulted(tif, TIFFTAG_SAMPLESPERPIXEL, &spp);
    TIFFGetFieldDefaulted(tif, TIFFTAG_PHOTOMETRIC, &photometric);
    TIFFGetFieldDefaulted(tif, TIFFTAG_EXTRASAMPLES, &extraCount, &extra);
    char message[1024];
    decoders::Raster &r = out->raster;
    if (width <= 32767 && height <= 32767 && TIFFRGBAImageOK(tif, message) &&
        r.Allocate(width, height, false)) {
        if (TIFFReadRGBAImageOriented(tif, width, height, reinterpret_cast<uint32_t *>(r.pixels),
                                      ORIENTATION_TOPLEFT, 0)) {
            // libtiff packs R in the low byte; rearrange in place to A,R,G,B bytes.
            size_t count = static_cast<size_t>(width) * height;
            for (size_t i = 0; i < count; i++) {
                uint8_t *p = r.pixels + i * 4;
                uint8_t red = p[0], green = p[1], blue = p[2], alpha = p[3];
                p[0] = alpha;
                p[1] = red;
                p[2] = green;
                p[3] = blue;
            }
            bool grey = (photometric == PHOTOMETRIC_MINISBLACK ||
                         photometric == PHOTOMETRIC_MINISWHITE) &&
                        spp - extraCount == 1;
            r.alpha = extraCount > 0;
            // The RGBA reader hands out associated (premultiplied) alpha.
            out->premultiplied = r.alpha;
            out->depth = r.alpha ? 32 : grey ? (bps == 1 ? 1 : 8) : 24;
            result = noErr;
        }
    }
    return result;
}

}  // namespace

bool IsTIFF(const uint8_t *data, size_t size) {
    if (size < 4) return false;
    return (data[0] == 'I' && data[1] == 'I' && (data[2] == 42 || data[2] == 43) && data[3] == 0) ||
           (data[0] == 'M' && data[1] == 'M' && data[2] == 0 && (data[3] == 42 || data[3] == 43));
}

OSErr ImportTIFF(const uint8_t *data, size_t size, ImportedImage *out) {
    if (!IsTIFF(data, size)) return codecBadDataErr;
    MemoryFile file{data, static_cast<toff_t>(size), 0};
    TIFFOpenOptions *options = TIFFOpenOptionsAlloc();
    if (!options) return memFullErr;
    TIFFOpenOptionsSetErrorHandlerExtR(options, Silent, nullptr);
    TIFFOpenOptionsSetWarningHandlerExtR(options, Silent, nullptr);
    TIFFOpenOptionsSetMaxSingleMemAlloc(options, MaxLibraryAllocation());
    TIFF *tif = TIFFClientOpenExt("memory", "rm", &file, Read, Write, Seek, Close, FileSize, Map,
                                  Unmap, options);
    TIFFOpenOptionsFree(options);
    if (!tif) return codecBadDataErr;

    OSErr result = codecBadDataErr;
    if (PixelDataPresent(tif, file.size)) {
        result = plim::NoThrow(OSErr{memFullErr}, [&] {
            switch (ReadTIFFSamples(tif, out)) {
                case TIFFSampleRead::Done: return OSErr{noErr};
                case TIFFSampleRead::Failed: return OSErr{codecBadDataErr};
                default: return ReadRGBA(tif, out);
            }
        });
    }
    uint32_t profileLength = 0;
    void *profile = nullptr;
    if (result == noErr && TIFFGetField(tif, TIFFTAG_ICCPROFILE, &profileLength, &profile) &&
        profile && profileLength > 0) {
        auto *bytes = static_cast<const uint8_t *>(profile);
        result = plim::NoThrow(OSErr{memFullErr}, [&] {
            out->raster.icc.assign(bytes, bytes + profileLength);
            return OSErr{noErr};
        });
    }
    TIFFClose(tif);
    return result;
}

}  // namespace plim::media
