// Graphics exporter components: each encodes a rendered image into a complete file.
#include "platform/media/ComponentInternal.h"
#include "platform/runtime/NoThrow.h"

#include <PlimBitmapLib/platform/MacMemory.h>

#include <cstring>

namespace plim::media {

namespace {

const ExporterEntry kExporters[] = {
    {FourCC("PNGf"), ExportPNG, nullptr},
    {FourCC("JPEG"), ExportJPEG, ExportJPEGAtQuality},
    {FourCC("TIFF"), ExportTIFF, nullptr},
    {FourCC("PICT"), ExportPICT, nullptr},
    {FourCC("WEBP"), ExportWebP, ExportWebPAtQuality},
};

bool ValidExporter(ComponentInstance ci) {
    return ci && ci->type == GraphicsExporterComponentType && ci->exporter;
}

}  // namespace

const ExporterEntry *FindExporter(OSType subtype) {
    for (const ExporterEntry &e : kExporters)
        if (e.subtype == subtype) return &e;
    return nullptr;
}

}  // namespace plim::media

using namespace plim::media;

PLIM_EXPORT ComponentResult GraphicsExportSetInputCGImage(GraphicsExportComponent ci,
                                                          CGImageRef image) {
    if (!ValidExporter(ci)) return badComponentInstance;
    if (!image) return paramErr;
    CGImageRetain(image);
    CGImageRelease(ci->input);
    ci->input = image;
    return noErr;
}

PLIM_EXPORT ComponentResult GraphicsExportSetOutputHandle(GraphicsExportComponent ci, Handle h) {
    if (!ValidExporter(ci)) return badComponentInstance;
    if (!h) return paramErr;
    ci->output = h;
    return noErr;
}

PLIM_EXPORT ComponentResult GraphicsExportSetCompressionQuality(GraphicsExportComponent ci,
                                                                CodecQ spatialQuality) {
    if (!ValidExporter(ci)) return badComponentInstance;
    if (spatialQuality > codecLosslessQuality) return paramErr;
    ci->qualitySet = true;
    ci->quality = spatialQuality;
    return noErr;
}

PLIM_EXPORT ComponentResult GraphicsExportDoExport(GraphicsExportComponent ci,
                                                   UInt32 *actualSizeWritten) {
    if (actualSizeWritten) *actualSizeWritten = 0;
    if (!ValidExporter(ci)) return badComponentInstance;
    if (!ci->input || !ci->output) return paramErr;
    std::vector<uint8_t> file;
    OSErr err = plim::NoThrow(OSErr{memFullErr}, [&] {
        if (ci->qualitySet && ci->exporter->encodeAtQuality)
            return ci->exporter->encodeAtQuality(ci->input, ci->quality, &file);
        return ci->exporter->encode(ci->input, &file);
    });
    if (err != noErr) return err;
    if (file.size() > 0x7FFFFFFF) return memFullErr;
    SetHandleSize(ci->output, static_cast<Size>(file.size()));
    if (MemError() != noErr) return MemError();
    if (!file.empty()) std::memcpy(*ci->output, file.data(), file.size());
    if (actualSizeWritten) *actualSizeWritten = static_cast<UInt32>(file.size());
    return noErr;
}
