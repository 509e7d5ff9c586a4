// The component registry: importers and exporters keyed by four-character subtype.
#pragma once

#include <PlimBitmapLib/platform/QuickTimeComponents.h>

#include "platform/graphics/decoders/Raster.h"
#include "platform/runtime/Errors.h"

#include <cstdint>
#include <vector>

namespace plim::media {

constexpr OSType FourCC(const char (&s)[5]) {
    return (static_cast<OSType>(static_cast<uint8_t>(s[0])) << 24) |
           (static_cast<OSType>(static_cast<uint8_t>(s[1])) << 16) |
           (static_cast<OSType>(static_cast<uint8_t>(s[2])) << 8) |
           static_cast<OSType>(static_cast<uint8_t>(s[3]));
}

// What an importer made of its bytes. Pixels are A,R,G,B (grey as R=G=B), not premultiplied;
// depth is what the importer reports: 1, 8, 24 or 32.
struct ImportedImage {
    decoders::Raster raster;
    int depth = 0;
    bool premultiplied = false;  // colour already multiplied by alpha
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

// Exporters of each format (own files).
OSErr ExportPNG(CGImageRef image, std::vector<uint8_t> *file);
OSErr ExportJPEG(CGImageRef image, std::vector<uint8_t> *file);
OSErr ExportJPEGAtQuality(CGImageRef image, CodecQ quality, std::vector<uint8_t> *file);
OSErr ExportTIFF(CGImageRef image, std::vector<uint8_t> *file);
OSErr ExportPICT(CGImageRef image, std::vector<uint8_t> *file);

// Records why an importer failed where its result code says less (a picture over the limits is
// reported as memFullErr or codecUnimpErr, a file that ends early as bad data), and returns the
// code.
inline OSErr ImportFailure(PlimError reason, OSErr code) { return errors::Fail(reason, code); }

// Brings grey rasters to A,R,G,B so that every importer draws from one layout.
bool ExpandGreyToARGB(decoders::Raster *raster);

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

