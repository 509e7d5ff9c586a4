// TIFF image destination: one image, written with libtiff (Deflate, one strip per 8 KB or so),
// colour unassociated-alpha RGBA, RGB or 8-bit grey, with the colour space's ICC profile.
#include <PlimBitmapLib/platform/CGImageDestination.h>
#include <PlimBitmapLib/platform/CFRuntime.h>
#include <PlimBitmapLib/platform/CFString.h>

#include "platform/graphics/destination/ImagePixels.h"
#include "platform/graphics/destination/TIFFFile.h"

#include <tiffio.h>

#include <cstring>
#include <new>
#include <vector>

struct CGImageDestination {
    CFRuntimeBase base;
    CFMutableDataRef data;
    CGImageRef image;
};

namespace {

void DestinationFinalize(CFTypeRef cf) {
    auto *d = static_cast<CGImageDestination *>(const_cast<void *>(cf));
    if (d->data) CFRelease(d->data);
    CGImageRelease(d->image);
}

const CFRuntimeClass kDestinationClass = {0, "CGImageDestination", nullptr, nullptr,
                                          DestinationFinalize, nullptr, nullptr, nullptr, nullptr};

struct MemoryFile {
    std::vector<uint8_t> &bytes;
    toff_t offset = 0;
};

tsize_t Read(thandle_t h, tdata_t buf, tsize_t count) {
    auto *f = static_cast<MemoryFile *>(h);
    if (count < 0 || f->offset > f->bytes.size()) return -1;
    size_t n = std::min<size_t>(static_cast<size_t>(count), f->bytes.size() - f->offset);
    std::memcpy(buf, f->bytes.data() + f->offset, n);
    f->offset += n;
    return static_cast<tsize_t>(n);
}
tsize_t Write(thandle_t h, tdata_t buf, tsize_t count) {
    auto *f = static_cast<MemoryFile *>(h);
    if (count < 0) return -1;
    size_t end = static_cast<size_t>(f->offset) + static_cast<size_t>(count);
    try {
        if (end > f->bytes.size()) f->bytes.resize(end);
    } catch (const std::bad_alloc &) {
        return -1;
    }
    std::memcpy(f->bytes.data() + f->offset, buf, static_cast<size_t>(count));
    f->offset = end;
    return count;
}
toff_t Seek(thandle_t h, toff_t off, int whence) {
    auto *f = static_cast<MemoryFile *>(h);
    toff_t base = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? f->offset : f->bytes.size();
    f->offset = base + off;
    return f->offset;
}
int Close(thandle_t) { return 0; }
toff_t FileSize(thandle_t h) { return static_cast<MemoryFile *>(h)->bytes.size(); }
int Map(thandle_t, tdata_t *, toff_t *) { return 0; }
void Unmap(thandle_t, tdata_t, toff_t) {}
int Silent(TIFF *, void *, const char *, const char *, va_list) { return 1; }

bool EncodeTIFF(const plim::graphics::EncodableRows &px, MemoryFile *file) {
    TIFFOpenOptions *options = TIFFOpenOptionsAlloc();
    if (!options) return false;
    TIFFOpenOptionsSetErrorHandlerExtR(options, Silent, nullptr);
    TIFFOpenOptionsSetWarningHandlerExtR(options, Silent, nullptr);
    TIFF *tif = TIFFClientOpenExt("memory", "w", file, Read, Write, Seek, Close, FileSize, Map,
                                  Unmap, options);
    TIFFOpenOptionsFree(options);
    if (!tif) return false;
    uint16_t spp = px.grey ? 1 : px.alpha ? 4 : 3;
    TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, px.width);
    TIFFSetField(tif, TIFFTAG_IMAGELENGTH, px.height);
    TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, 8);
    TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, spp);
    TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, px.grey ? PHOTOMETRIC_MINISBLACK : PHOTOMETRIC_RGB);
    TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tif, TIFFTAG_COMPRESSION, COMPRESSION_ADOBE_DEFLATE);
    TIFFSetField(tif, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
    if (px.alpha) {
        uint16_t extra[1] = {EXTRASAMPLE_UNASSALPHA};
        TIFFSetField(tif, TIFFTAG_EXTRASAMPLES, 1, extra);
    }
    if (!px.icc.empty())
        TIFFSetField(tif, TIFFTAG_ICCPROFILE, static_cast<uint32_t>(px.icc.size()), px.icc.data());
    size_t rowBytes = static_cast<size_t>(px.width) * spp;
    TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(tif, 0));
    bool ok = true;
    std::vector<uint8_t> row;
    try {
        row.resize(rowBytes);
    } catch (const std::bad_alloc &) {
        ok = false;
    }
    const auto order = px.alpha ? plim::graphics::SampleOrder::RGBA : plim::graphics::SampleOrder::RGB;
    for (uint32_t y = 0; ok && y < px.height; y++) {
        px.Read(y, order, row.data());
        ok = TIFFWriteScanline(tif, row.data(), y, 0) == 1;
    }
    if (ok) ok = TIFFWriteDirectory(tif) == 1;
    TIFFClose(tif);
    return ok;
}

}  // namespace

namespace plim::graphics {

bool WriteTIFF(CGImageRef image, std::vector<uint8_t> *file) {
    EncodableRows px;
    if (!px.Open(image)) return false;
    file->clear();
    // Room for the file however little it compresses, so that it is never moved while it
    // grows; pages it does not reach are never touched.
    const size_t samples = size_t{px.width} * px.height * (px.grey ? 1 : 4);
    try {
        file->reserve(samples + samples / 64 + 65536);
    } catch (const std::bad_alloc &) {
    }
    MemoryFile memory{*file};
    return EncodeTIFF(px, &memory);
}

}  // namespace plim::graphics

PLIM_EXPORT CFTypeID CGImageDestinationGetTypeID(void) {
    static const CFTypeID id = _CFRuntimeRegisterClass(&kDestinationClass);
    return id;
}

PLIM_EXPORT CGImageDestinationRef CGImageDestinationCreateWithData(CFMutableDataRef data,
                                                                   CFStringRef type, size_t count,
                                                                   CFDictionaryRef) {
    if (!data || !type || count != 1) return nullptr;
    if (CFStringCompare(type, kUTTypeTIFF, 0) != kCFCompareEqualTo) return nullptr;
    CFTypeID id = CGImageDestinationGetTypeID();
    if (id == _kCFRuntimeNotATypeID) return nullptr;
    auto *d = static_cast<CGImageDestination *>(const_cast<void *>(_CFRuntimeCreateInstance(
        nullptr, id, sizeof(CGImageDestination) - sizeof(CFRuntimeBase), nullptr)));
    if (!d) return nullptr;
    CFRetain(data);
    d->data = data;
    return d;
}

PLIM_EXPORT void CGImageDestinationAddImage(CGImageDestinationRef idst, CGImageRef image,
                                            CFDictionaryRef) {
    if (!idst || !image) return;
    CGImageRetain(image);
    CGImageRelease(idst->image);
    idst->image = image;
}

PLIM_EXPORT bool CGImageDestinationFinalize(CGImageDestinationRef idst) {
    if (!idst || !idst->image) return false;
    std::vector<uint8_t> bytes;
    if (!plim::graphics::WriteTIFF(idst->image, &bytes)) return false;
    CFDataSetLength(idst->data, 0);
    CFDataAppendBytes(idst->data, bytes.data(), static_cast<CFIndex>(bytes.size()));
    return CFDataGetLength(idst->data) == static_cast<CFIndex>(bytes.size());
}
