// The component registry: importers and exporters keyed by four-character subtype.
#pragma once

#include <PlimBitmapLib/platform/QuickTimeComponents.h>

#include "platform/graphics/decoders/Raster.h"
#include "platform/runtime/Errors.h"

#include <cstdint>
#include <span>
#include <vector>

namespace plim::media {

constexpr OSType FourCC(const char (&s)[5]) {
    return (static_cast<OSType>(static_cast<uint8_t>(s[0])) << 24) |
           (static_cast<OSType>(static_cast<uint8_t>(s[1])) << 16) |
           (static_cast<OSType>(static_cast<uint8_t>(s[2])) << 8) |
           static_cast<OSType>(static_cast<uint8_t>(s[3]));
}

// Memory that an importer may decode 32-bit A,R,G,B pixels straight into: `height` rows of
// `width` pixels, `rowBytes` apart.
struct ARGBTarget {
    uint8_t *pixels;
    size_t rowBytes;
    uint32_t width;
    uint32_t height;
};

// What an importer made of its bytes. Pixels are A,R,G,B (grey as R=G=B), not premultiplied;
// depth is what the importer reports: 1, 8, 24 or 32.
struct ImportedImage {
    decoders::Raster raster;
    int depth = 0;
    bool premultiplied = false;  // colour already multiplied by alpha
    // Set by an importer that has read only the header: the raster has its size and profile but
    // no pixels, and this decodes them (colour not premultiplied) when the picture is drawn, into
    // the drawing memory itself when that is 32-bit of the picture's size.
    OSErr (*decodeInto)(const uint8_t *data, size_t size, const ARGBTarget &target) = nullptr;
};

struct ImporterEntry {
    OSType subtype;
    bool (*recognise)(const uint8_t *data, size_t size);
    // Returns noErr or the error the description call reports.
    OSErr (*decode)(const uint8_t *data, size_t size, ImportedImage *out);
};

struct ExporterEntry {
    OSType subtype;
    // Appends a complete file to *file.
    OSErr (*encode)(CGImageRef image, std::vector<uint8_t> *file);
    // The same at a chosen quality; null for formats without one.
    OSErr (*encodeAtQuality)(CGImageRef image, CodecQ quality, std::vector<uint8_t> *file);
};

const ImporterEntry *FindImporter(OSType subtype);
// The first importer, in registry order, that recognises the bytes.
const ImporterEntry *RecogniseImporter(const uint8_t *data, size_t size);
const ExporterEntry *FindExporter(OSType subtype);

// Importers of each format (own files).
OSErr ImportPNG(const uint8_t *data, size_t size, ImportedImage *out);
OSErr ImportJPEG(const uint8_t *data, size_t size, ImportedImage *out);
bool IsTIFF(const uint8_t *data, size_t size);
OSErr ImportTIFF(const uint8_t *data, size_t size, ImportedImage *out);
bool IsGIF(const uint8_t *data, size_t size);
OSErr ImportGIF(const uint8_t *data, size_t size, ImportedImage *out);
bool IsBMP(const uint8_t *data, size_t size);
OSErr ImportBMP(const uint8_t *data, size_t size, ImportedImage *out);
bool IsPCTFile(const uint8_t *data, size_t size);
OSErr ImportPICTFile(const uint8_t *data, size_t size, ImportedImage *out);
bool IsWebP(const uint8_t *data, size_t size);
OSErr ImportWebP(const uint8_t *data, size_t size, ImportedImage *out);
bool IsAVIF(const uint8_t *data, size_t size);
OSErr ImportAVIF(const uint8_t *data, size_t size, ImportedImage *out);
bool IsHEIF(const uint8_t *data, size_t size);
OSErr ImportHEIF(const uint8_t *data, size_t size, ImportedImage *out);
bool IsJXL(const uint8_t *data, size_t size);
OSErr ImportJXL(const uint8_t *data, size_t size, ImportedImage *out);

// Exporters of each format (own files).
OSErr ExportPNG(CGImageRef image, std::vector<uint8_t> *file);
OSErr ExportJPEG(CGImageRef image, std::vector<uint8_t> *file);
OSErr ExportJPEGAtQuality(CGImageRef image, CodecQ quality, std::vector<uint8_t> *file);
OSErr ExportTIFF(CGImageRef image, std::vector<uint8_t> *file);
OSErr ExportPICT(CGImageRef image, std::vector<uint8_t> *file);
// WebP: lossless by default, lossy at a chosen quality.
OSErr ExportWebP(CGImageRef image, std::vector<uint8_t> *file);
OSErr ExportWebPAtQuality(CGImageRef image, CodecQ quality, std::vector<uint8_t> *file);

// Records why an importer failed where its result code says less (a picture over the limits is
// reported as memFullErr or codecUnimpErr, a file that ends early as bad data), and returns the
// code.
inline OSErr ImportFailure(PlimError reason, OSErr code) { return errors::Fail(reason, code); }

// Brings grey rasters to A,R,G,B so that every importer draws from one layout.
bool ExpandGreyToARGB(decoders::Raster *raster);
// Fills the raster with a codec's interleaved 8-bit rows of `channels` samples a pixel (grey,
// grey and alpha, RGB or RGBA), as A,R,G,B; false when the size is refused or memory runs out.
bool RasterFromInterleaved(const uint8_t *rows, size_t stride, uint32_t width, uint32_t height,
                           int channels, decoders::Raster *raster);
// Whether the bytes open with an ISO base media file-type box whose major or compatible brands
// include one of `brands`.
bool ClaimsBrand(const uint8_t *data, size_t size, std::span<const OSType> brands);

}  // namespace plim::media

struct ComponentInstanceRecord {
    OSType type = 0;
    OSType subtype = 0;
    const plim::media::ImporterEntry *importer = nullptr;
    const plim::media::ExporterEntry *exporter = nullptr;
    // Importer: the bytes come from the caller's handle, or from a file the importer read.
    Handle dataHandle = nullptr;
    std::vector<uint8_t> ownedBytes;
    bool ownsBytes = false;
    bool decoded = false;
    OSErr decodeError = noErr;
    plim::media::ImportedImage image;
    GWorldPtr destination = nullptr;
    // Exporter.
    CGImageRef input = nullptr;
    Handle output = nullptr;
    bool qualitySet = false;
    CodecQ quality = 0;
};

