// Component instances of the media layer: graphics importers and exporters, the registry that
// finds them by subtype or by content, and data references.
#include "platform/graphics/PremultiplyPixels.h"
#include "platform/media/ComponentInternal.h"
#include "platform/runtime/Errors.h"
#include "platform/runtime/NoThrow.h"

#include <PlimBitmapLib/platform/CFString.h>
#include <PlimBitmapLib/platform/MacMemory.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>

struct OpaqueGWorldPtr {
    UInt32 pixelFormat;
    int width;
    int height;
    uint8_t *pixels;
    size_t rowBytes;
};

namespace plim::media {

namespace {

using Instance = ComponentInstanceRecord;

const ImporterEntry kImporters[] = {
    {FourCC("PNGf"), decoders::IsPNG, ImportPNG},
    {FourCC("JPEG"), decoders::IsJPEG, ImportJPEG},
    {FourCC("TIFF"), IsTIFF, ImportTIFF},
    {FourCC("GIFf"), IsGIF, ImportGIF},
    {FourCC("BMPf"), IsBMP, ImportBMP},
    {FourCC("WEBP"), IsWebP, ImportWebP},
    // Before HEIF: an AVIF file may list HEIF's structural brands too.
    {FourCC("AVIF"), IsAVIF, ImportAVIF},
    {FourCC("HEIF"), IsHEIF, ImportHEIF},
    {FourCC("JXL "), IsJXL, ImportJXL},
    {FourCC("PICT"), IsPCTFile, ImportPICTFile},
    {FourCC("PCT "), nullptr, ImportPICTFile},
};

bool ValidImporter(Instance *ci) {
    return ci && ci->type == GraphicsImporterComponentType && ci->importer;
}

// The bytes the importer reads: the caller's handle, or a file the importer read.
bool SourceBytes(const Instance *ci, const uint8_t **data, size_t *size) {
    if (ci->ownsBytes) {
        *data = ci->ownedBytes.data();
        *size = ci->ownedBytes.size();
    } else if (ci->dataHandle && *ci->dataHandle) {
        *data = reinterpret_cast<const uint8_t *>(*ci->dataHandle);
        *size = static_cast<size_t>(GetHandleSize(ci->dataHandle));
    } else {
        return false;
    }
    return true;
}

OSErr Decode(Instance *ci) {
    if (ci->decoded) return ci->decodeError;
    const uint8_t *data = nullptr;
    size_t size = 0;
    if (!SourceBytes(ci, &data, &size)) return paramErr;
    ci->decoded = true;
    // Importers are C++ over C codecs; one that runs out of memory in a container reports it.
    ci->decodeError = plim::NoThrow(OSErr{memFullErr}, [&] { return ci->importer->decode(data, size, &ci->image); });
    if (ci->decodeError == noErr && (ci->image.depth != 1 && ci->image.depth != 8 &&
                                     ci->image.depth != 24 && ci->image.depth != 32))
        ci->decodeError = codecUnimpErr;
    return ci->decodeError;
}

Handle NewHandleWith(const void *bytes, size_t size) {
    Handle h = nullptr;
    if (PtrToHand(bytes, &h, static_cast<long>(size)) != noErr) return nullptr;
    return h;
}

// The whole file; false, with the reason recorded, when it cannot be read.
bool ReadFile(const char *path, std::vector<uint8_t> *out) {
    FILE *f = std::fopen(path, "rb");
    if (!f) return plim::errors::Fail(plim::errors::FromErrno(errno, kPlimErrorReadFailed), false);
    uint8_t block[65536];
    size_t n;
    bool ok = true;
    try {
        while ((n = std::fread(block, 1, sizeof block, f)) > 0) out->insert(out->end(), block, block + n);
    } catch (const std::bad_alloc &) {
        ok = plim::errors::Fail(kPlimErrorOutOfMemory, false);
    }
    if (ok && std::ferror(f)) ok = plim::errors::Fail(plim::errors::FromErrno(errno, kPlimErrorReadFailed), false);
    std::fclose(f);
    return ok;
}

// Whether drawing labels the importer's 32-bit pixels premultiplied, so that they must be
// multiplied (with rounding) on the way; picture importers hand their samples over as they are.
bool DrawsPremultiplied(const Instance *ci) {
    return ci->image.depth == 32 && !ci->image.premultiplied && ci->subtype != FourCC("PICT") &&
           ci->subtype != FourCC("PCT ");
}

void DrawInto(const Instance *ci, const OpaqueGWorldPtr *port) {
    const decoders::Raster &r = ci->image.raster;
    int width = std::min<int>(port->width, static_cast<int>(r.width));
    int height = std::min<int>(port->height, static_cast<int>(r.height));
    const bool premultiply = DrawsPremultiplied(ci);
    for (int y = 0; y < height; y++) {
        const uint8_t *src = r.pixels + r.BytesPerRow() * static_cast<size_t>(y);
        uint8_t *dst = port->pixels + port->rowBytes * static_cast<size_t>(y);
        switch (port->pixelFormat) {
        case k32ARGBPixelFormat:
            std::memcpy(dst, src, static_cast<size_t>(width) * 4);
            if (premultiply) graphics::PremultiplyAlphaFirst(dst, static_cast<size_t>(width));
            break;
        case k8IndexedGrayPixelFormat:
            for (int x = 0; x < width; x++) {
                const uint8_t *p = src + x * 4;
                // Grey sources have R = G = B; colour drawn to grey uses Rec. 601 weights.
                dst[x] = (p[1] == p[2] && p[2] == p[3])
                             ? p[1]
                             : static_cast<uint8_t>((p[1] * 299u + p[2] * 587u + p[3] * 114u + 500u) / 1000u);
            }
            break;
        case k1MonochromePixelFormat:
            std::memset(dst, 0, (static_cast<size_t>(width) + 7) / 8);
            for (int x = 0; x < width; x++)
                if (src[x * 4 + 1] >= 128) dst[x >> 3] |= static_cast<uint8_t>(0x80u >> (x & 7));
            break;
        }
    }
}

// Pixels the importer left for drawing time: decoded straight into a 32-bit surface of the
// picture's size, saving a copy of a large picture; otherwise into the importer's raster first.
OSErr DecodeAndDraw(Instance *ci, const OpaqueGWorldPtr *port) {
    const uint8_t *data = nullptr;
    size_t size = 0;
    if (!SourceBytes(ci, &data, &size)) return paramErr;
    decoders::Raster &r = ci->image.raster;
    auto decodeInto = ci->image.decodeInto;
    if (port->pixelFormat == k32ARGBPixelFormat && static_cast<uint32_t>(port->width) == r.width &&
        static_cast<uint32_t>(port->height) == r.height) {
        const ARGBTarget target{port->pixels, port->rowBytes, r.width, r.height};
        OSErr err = plim::NoThrow(OSErr{memFullErr}, [&] { return decodeInto(data, size, target); });
        if (err != noErr) return err;
        if (DrawsPremultiplied(ci))
            for (uint32_t y = 0; y < r.height; y++)
                graphics::PremultiplyAlphaFirst(port->pixels + port->rowBytes * y, r.width);
        return noErr;
    }
    if (!r.Allocate(r.width, r.height, false)) return memFullErr;
    const ARGBTarget target{r.pixels, r.BytesPerRow(), r.width, r.height};
    OSErr err = plim::NoThrow(OSErr{memFullErr}, [&] { return decodeInto(data, size, target); });
    if (err != noErr) {
        std::free(r.Take());
        return err;
    }
    ci->image.decodeInto = nullptr;
    DrawInto(ci, port);
    return noErr;
}

}  // namespace

const ImporterEntry *FindImporter(OSType subtype) {
    for (const ImporterEntry &e : kImporters)
        if (e.subtype == subtype) return &e;
    return nullptr;
}

const ImporterEntry *RecogniseImporter(const uint8_t *data, size_t size) {
    if (!data) return nullptr;
    for (const ImporterEntry &e : kImporters)
        if (e.recognise && e.recognise(data, size)) return &e;
    return nullptr;
}

}  // namespace plim::media

using namespace plim::media;

PLIM_EXPORT OSErr OpenADefaultComponent(OSType componentType, OSType componentSubType,
                                        ComponentInstance *ci) {
    if (!ci) return paramErr;
    *ci = nullptr;
    const ImporterEntry *importer = nullptr;
    const ExporterEntry *exporter = nullptr;
    if (componentType == GraphicsImporterComponentType)
        importer = FindImporter(componentSubType);
    else if (componentType == GraphicsExporterComponentType)
        exporter = FindExporter(componentSubType);
    if (!importer && !exporter) return invalidComponentID;
    auto *instance = new (std::nothrow) ComponentInstanceRecord;
    if (!instance) return memFullErr;
    instance->type = componentType;
    instance->subtype = componentSubType;
    instance->importer = importer;
    instance->exporter = exporter;
    *ci = instance;
    return noErr;
}

PLIM_EXPORT OSErr CloseComponent(ComponentInstance ci) {
    if (!ci) return static_cast<OSErr>(paramErr);
    CGImageRelease(ci->input);
    delete ci;
    return noErr;
}

PLIM_EXPORT OSErr GetComponentInfo(ComponentInstance ci, ComponentDescription *cd, Handle, Handle,
                                   Handle) {
    if (!ci) return paramErr;
    if (cd) {
        *cd = ComponentDescription{};
        cd->componentType = ci->type;
        cd->componentSubType = ci->subtype;
    }
    return noErr;
}

PLIM_EXPORT ComponentResult GraphicsImportSetDataHandle(GraphicsImportComponent ci, Handle h) {
    if (!ValidImporter(ci)) return badComponentInstance;
    if (!h) return paramErr;
    ci->dataHandle = h;
    ci->ownsBytes = false;
    ci->ownedBytes.clear();
    ci->decoded = false;
    std::free(ci->image.raster.Take());
    ci->image.raster.icc.clear();
    ci->image.depth = 0;
    ci->image.premultiplied = false;
    ci->image.decodeInto = nullptr;
    return noErr;
}

PLIM_EXPORT ComponentResult GraphicsImportGetImageDescription(GraphicsImportComponent ci,
                                                              ImageDescriptionHandle *desc) {
    if (!desc) return paramErr;
    *desc = nullptr;
    if (!ValidImporter(ci)) return badComponentInstance;
    OSErr err = Decode(ci);
    if (err != noErr) return err;
    Handle h = NewHandleClear(sizeof(ImageDescription));
    if (!h) return memFullErr;
    auto *d = reinterpret_cast<ImageDescription *>(*h);
    d->idSize = static_cast<SInt32>(sizeof(ImageDescription));
    d->cType = ci->subtype;
    d->width = static_cast<SInt16>(ci->image.raster.width);
    d->height = static_cast<SInt16>(ci->image.raster.height);
    d->depth = static_cast<SInt16>(ci->image.depth);
    *desc = reinterpret_cast<ImageDescriptionHandle>(h);
    return noErr;
}

PLIM_EXPORT ComponentResult GraphicsImportGetColorSyncProfile(GraphicsImportComponent ci,
                                                              Handle *profile) {
    if (!profile) return paramErr;
    *profile = nullptr;
    if (!ValidImporter(ci)) return badComponentInstance;
    OSErr err = Decode(ci);
    if (err != noErr) return err;
    const std::vector<uint8_t> &icc = ci->image.raster.icc;
    if (icc.empty()) return noErr;
    *profile = NewHandleWith(icc.data(), icc.size());
    return *profile ? noErr : memFullErr;
}

PLIM_EXPORT ComponentResult GraphicsImportSetGWorld(GraphicsImportComponent ci, GWorldPtr port,
                                                    GDHandle) {
    if (!ValidImporter(ci)) return badComponentInstance;
    ci->destination = port;
    return noErr;
}

PLIM_EXPORT ComponentResult GraphicsImportDraw(GraphicsImportComponent ci) {
    if (!ValidImporter(ci)) return badComponentInstance;
    if (!ci->destination) return paramErr;
    OSErr err = Decode(ci);
    if (err != noErr) return err;
    if (ci->image.decodeInto) return DecodeAndDraw(ci, ci->destination);
    DrawInto(ci, ci->destination);
    return noErr;
}

PLIM_EXPORT OSErr NewGWorldFromPtr(GWorldPtr *offscreenGWorld, UInt32 pixelFormat,
                                   const Rect *boundsRect, CTabHandle, GDHandle, GWorldFlags,
                                   Ptr newBuffer, SInt32 rowBytes) {
    if (!offscreenGWorld) return paramErr;
    *offscreenGWorld = nullptr;
    if (!boundsRect || !newBuffer || rowBytes <= 0) return paramErr;
    int width = boundsRect->right - boundsRect->left;
    int height = boundsRect->bottom - boundsRect->top;
    if (width <= 0 || height <= 0) return paramErr;
    size_t minRow = pixelFormat == k32ARGBPixelFormat         ? static_cast<size_t>(width) * 4
                    : pixelFormat == k8IndexedGrayPixelFormat ? static_cast<size_t>(width)
                    : pixelFormat == k1MonochromePixelFormat  ? (static_cast<size_t>(width) + 7) / 8
                                                              : 0;
    if (minRow == 0) return paramErr;
    if (static_cast<size_t>(rowBytes) < minRow) return paramErr;
    auto *port = new (std::nothrow) OpaqueGWorldPtr{pixelFormat, width, height,
                                                    reinterpret_cast<uint8_t *>(newBuffer),
                                                    static_cast<size_t>(rowBytes)};
    if (!port) return memFullErr;
    *offscreenGWorld = port;
    return noErr;
}

PLIM_EXPORT void DisposeGWorld(GWorldPtr offscreenGWorld) { delete offscreenGWorld; }

namespace {

// File data references hold the NUL-terminated path; handle references hold the handle.
OSErr NewPathReference(CFStringRef path, Handle *outDataRef, OSType *outType) {
    if (!outDataRef) return paramErr;
    *outDataRef = nullptr;
    if (!path) return paramErr;
    return plim::NoThrow(OSErr{memFullErr}, [&] {
        CFIndex max = CFStringGetLength(path) * 4 + 1;
        std::string buffer(static_cast<size_t>(max), '\0');
        if (!CFStringGetCString(path, buffer.data(), max, kCFStringEncodingUTF8)) return OSErr{paramErr};
        Handle h = NewHandleWith(buffer.c_str(), std::strlen(buffer.c_str()) + 1);
        if (!h) return OSErr{memFullErr};
        *outDataRef = h;
        if (outType) *outType = AliasDataHandlerSubType;
        return OSErr{noErr};
    });
}

}  // namespace

PLIM_EXPORT OSErr QTNewDataReferenceFromCFURL(CFURLRef url, UInt32, Handle *outDataRef,
                                              OSType *outDataRefType) {
    if (!outDataRef) return paramErr;
    *outDataRef = nullptr;
    if (!url) return paramErr;
    CFStringRef path = CFURLCopyFileSystemPath(url, kCFURLPOSIXPathStyle);
    if (!path) return badDataRefErr;
    OSErr err = NewPathReference(path, outDataRef, outDataRefType);
    CFRelease(path);
    if (err == noErr && outDataRefType) *outDataRefType = URLDataHandlerSubType;
    return err;
}

PLIM_EXPORT OSErr QTNewDataReferenceFromFullPathCFString(CFStringRef filePath, UInt32 pathStyle,
                                                         UInt32, Handle *outDataRef,
                                                         OSType *outDataRefType) {
    if (pathStyle != kCFURLPOSIXPathStyle) {
        if (outDataRef) *outDataRef = nullptr;
        return paramErr;
    }
    return NewPathReference(filePath, outDataRef, outDataRefType);
}

PLIM_EXPORT OSErr GetGraphicsImporterForDataRefWithFlags(Handle dataRef, OSType dataRefType,
                                                         ComponentInstance *gi, long) {
    if (!gi) return paramErr;
    *gi = nullptr;
    if (!dataRef || !*dataRef) return paramErr;
    std::vector<uint8_t> bytes;
    Handle source = nullptr;
    if (dataRefType == HandleDataHandlerSubType) {
        if (GetHandleSize(dataRef) < static_cast<Size>(sizeof(Handle))) return badDataRefErr;
        std::memcpy(&source, *dataRef, sizeof(Handle));
        if (!source) return badDataRefErr;
    } else if (dataRefType == URLDataHandlerSubType || dataRefType == AliasDataHandlerSubType) {
        Size size = GetHandleSize(dataRef);
        if (size < 1 || (*dataRef)[size - 1] != '\0') return badDataRefErr;
        if (!ReadFile(*dataRef, &bytes)) return couldNotResolveDataRef;
    } else {
        return cantFindHandler;
    }
    const uint8_t *data = source ? reinterpret_cast<const uint8_t *>(*source) : bytes.data();
    size_t size = source ? static_cast<size_t>(GetHandleSize(source)) : bytes.size();
    const ImporterEntry *entry = RecogniseImporter(data, size);
    if (!entry) {
        if (size == 0) plim::errors::Record(kPlimErrorEmpty);
        return cantFindHandler;
    }
    ComponentInstance instance = nullptr;
    OSErr err = OpenADefaultComponent(GraphicsImporterComponentType, entry->subtype, &instance);
    if (err != noErr) return err;
    if (source) {
        instance->dataHandle = source;
    } else {
        instance->ownedBytes = std::move(bytes);
        instance->ownsBytes = true;
    }
    *gi = instance;
    return noErr;
}
