// Image exporters: a graphics exporter component encodes into a handle, which becomes a data
// object or a file.
#include <PlimBitmapLib/PlimCFImageExporter.h>
#include <PlimBitmapLib/PlimPixelBuffer.h>
#include <PlimBitmapLib/platform/CFRuntime.h>
#include <PlimBitmapLib/platform/CFStream.h>
#include <PlimBitmapLib/platform/MacMemory.h>
#include <PlimBitmapLib/platform/QuickTimeComponents.h>

#include "core/ImageInternal.h"
#include "io/IOInternal.h"

#include <cstring>
#include <mutex>
#include <unistd.h>

struct __PlimCFImageExporter {
    CFRuntimeBase base;
    OSType subtype;
    // JPEG or WebP quality, 1 to 100; 0 leaves the encoder's default (lossless for WebP).
    UInt32 quality;
};

CFTypeID _kPlimCFImageExporterID = _kCFRuntimeNotATypeID;
CFRuntimeClass _kPlimCFImageExporterClass;
bool gPlimCFImageExporterInited = false;  // set under the once flag, when registration has finished

using namespace plim::io;

namespace {

constexpr OSType kExporterType = 0x67726578;  // 'grex'
constexpr size_t kPictHeaderSize = 512;

PlimCFImageExporter PlimCFImageExporterCreate(CFAllocatorRef allocator) {
    // Exporters may be created from several threads from the first one on.
    static std::once_flag once;
    std::call_once(once, [] {
        _kPlimCFImageExporterClass = CFRuntimeClass{
            0, "PlimCFImageExporter", PlimCFImageExporterInit, nullptr, nullptr, nullptr,
            nullptr, nullptr, nullptr};
        _kPlimCFImageExporterID = _CFRuntimeRegisterClass(&_kPlimCFImageExporterClass);
        gPlimCFImageExporterInited = true;
    });
    return static_cast<PlimCFImageExporter>(const_cast<void *>(_CFRuntimeCreateInstance(
        allocator, _kPlimCFImageExporterID,
        sizeof(__PlimCFImageExporter) - sizeof(CFRuntimeBase), nullptr)));
}

PlimCFImageExporter CreateWithSubtype(CFAllocatorRef allocator, OSType subtype) {
    PlimCFImageExporter exporter = PlimCFImageExporterCreate(allocator);
    if (exporter) exporter->subtype = subtype;
    return exporter;
}

// One encode into a fresh handle through the exporter component of `subtype`, at `quality`
// (1 to 100, 0 for the component's default).
Handle EncodeWith(OSType subtype, UInt32 quality, CGImageRef image) {
    if (!image) return nullptr;
    Handle handle = NewHandle(0);
    if (!handle || MemError() != noErr) {
        if (handle) DisposeHandle(handle);
        return nullptr;
    }
    GraphicsExportComponent component = nullptr;
    UInt32 written = 0;
    bool ok = OpenADefaultComponent(kExporterType, subtype, &component) == noErr && component &&
              (quality == 0 || GraphicsExportSetCompressionQuality(
                                   component, (quality * codecLosslessQuality + 50) / 100) == noErr) &&
              GraphicsExportSetInputCGImage(component, image) == noErr &&
              GraphicsExportSetOutputHandle(component, handle) == noErr &&
              GraphicsExportDoExport(component, &written) == noErr;
    if (component) CloseComponent(component);
    if (!ok) {
        DisposeHandle(handle);
        return nullptr;
    }
    return handle;
}

Handle PlimCFImageExporterCreateHandle(PlimCFImageExporter exporter, CGImageRef image) {
    if (!image) return nullptr;
    if (exporter->subtype == kSubtypePCT) {
        PlimCFImage wrapper = PlimCFImageCreateWithImage(nullptr, image);
        CGImageRef exportable = wrapper ? _PlimCFImageCreateExportableImage(wrapper, true) : nullptr;
        Handle handle = exportable ? EncodeWith(kSubtypePICT, 0, exportable) : nullptr;
        if (wrapper) CFRelease(wrapper);
        if (exportable) CGImageRelease(exportable);
        if (handle) return handle;
    }
    return EncodeWith(exporter->subtype, exporter->quality, image);
}

}  // namespace

PLIM_EXPORT void PlimCFImageExporterInit(CFTypeRef cf) {
    PlimCFImageExporter exporter = static_cast<PlimCFImageExporter>(const_cast<void *>(cf));
    exporter->subtype = 0;
    exporter->quality = 0;
}

PLIM_EXPORT PlimCFImageExporter PlimCFImageExporterCreateJPEG(CFAllocatorRef a) {
    return CreateWithSubtype(a, kSubtypeJPEG);
}
PLIM_EXPORT PlimCFImageExporter PlimCFImageExporterCreateJPEGWithQuality(CFAllocatorRef a,
                                                                        UInt32 quality) {
    if (quality < 1 || quality > 100) return nullptr;
    PlimCFImageExporter exporter = CreateWithSubtype(a, kSubtypeJPEG);
    if (exporter) exporter->quality = quality;
    return exporter;
}
PLIM_EXPORT PlimCFImageExporter PlimCFImageExporterCreatePICT(CFAllocatorRef a) {
    return CreateWithSubtype(a, kSubtypePICT);
}
PLIM_EXPORT PlimCFImageExporter PlimCFImageExporterCreatePCT(CFAllocatorRef a) {
    return CreateWithSubtype(a, kSubtypePCT);
}
PLIM_EXPORT PlimCFImageExporter PlimCFImageExporterCreatePNG(CFAllocatorRef a) {
    return CreateWithSubtype(a, kSubtypePNG);
}
PLIM_EXPORT PlimCFImageExporter PlimCFImageExporterCreateTIFF(CFAllocatorRef a) {
    return CreateWithSubtype(a, kSubtypeTIFF);
}
// WebP's default coding is lossless; a quality makes it lossy.
PLIM_EXPORT PlimCFImageExporter PlimCFImageExporterCreateWebPLossless(CFAllocatorRef a) {
    return CreateWithSubtype(a, kSubtypeWebP);
}
PLIM_EXPORT PlimCFImageExporter PlimCFImageExporterCreateWebPWithQuality(CFAllocatorRef a,
                                                                        UInt32 quality) {
    if (quality < 1 || quality > 100) return nullptr;
    PlimCFImageExporter exporter = CreateWithSubtype(a, kSubtypeWebP);
    if (exporter) exporter->quality = quality;
    return exporter;
}

PLIM_EXPORT CFDataRef PlimCFImageExportCreateData(CFAllocatorRef allocator,
                                                  PlimCFImageExporter exporter, CGImageRef image) {
    Handle handle = PlimCFImageExporterCreateHandle(exporter, image);
    if (!handle) return nullptr;
    HLock(handle);
    const UInt8 *bytes = reinterpret_cast<const UInt8 *>(*handle);
    CFIndex count = static_cast<CFIndex>(GetHandleSize(handle));
    if (exporter->subtype == kSubtypePICT) {
        if (count < static_cast<CFIndex>(kPictHeaderSize)) {
            HUnlock(handle);
            DisposeHandle(handle);
            return nullptr;
        }
        bytes += kPictHeaderSize;
        count -= static_cast<CFIndex>(kPictHeaderSize);
    }
    CFDataRef data = CFDataCreate(allocator, bytes, count);
    HUnlock(handle);
    DisposeHandle(handle);
    return data;
}

PLIM_EXPORT void PlimCFImageExportToURL(PlimCFImageExporter exporter, CGImageRef image, CFURLRef url) {
    Handle handle = PlimCFImageExporterCreateHandle(exporter, image);
    if (!handle) return;
    if (GetHandleSize(handle) <= 0) {
        DisposeHandle(handle);
        return;
    }
    HLock(handle);
    const UInt8 *bytes = reinterpret_cast<const UInt8 *>(*handle);
    CFIndex count = static_cast<CFIndex>(GetHandleSize(handle));
    CFWriteStreamRef stream = CFWriteStreamCreateWithFile(nullptr, url);
    if (!stream) {
        HUnlock(handle);
        DisposeHandle(handle);
        return;
    }
    if (CFWriteStreamOpen(stream)) {
        CFStreamStatus status = CFWriteStreamGetStatus(stream);
        if (status == kCFStreamStatusOpening || status == kCFStreamStatusOpen) {
            (void)CFWriteStreamWrite(stream, bytes, count);
            status = CFWriteStreamGetStatus(stream);
            int waits = 0;
            bool timedOut = false;
            while (status == kCFStreamStatusWriting) {
                if (++waits == 5001) {
                    timedOut = true;
                    break;
                }
                usleep(1000);
                status = CFWriteStreamGetStatus(stream);
            }
            // A stream in error, or one still writing, is left as it is.
            if (!timedOut && status != kCFStreamStatusError) CFWriteStreamClose(stream);
        }
    }
    CFRelease(stream);
    HUnlock(handle);
    DisposeHandle(handle);
}

PLIM_EXPORT void PlimCFImageExportToFile(PlimCFImageExporter exporter, CGImageRef image,
                                         CFStringRef path) {
    CFURLRef url = CFURLCreateWithFileSystemPath(nullptr, path, kCFURLPOSIXPathStyle, false);
    if (!url) return;
    PlimCFImageExportToURL(exporter, image, url);
    CFRelease(url);
}

PLIM_EXPORT CGImageRef _PlimCFImageCreateExportableImage(PlimCFImage image, Boolean unpremultiply) {
    SInt32 alpha = image->image ? static_cast<SInt32>(CGImageGetAlphaInfo(image->image))
                                : image->alphaInfo;
    if (!unpremultiply || alpha == kCGImageAlphaNone || alpha == kCGImageAlphaNoneSkipLast ||
        alpha == kCGImageAlphaNoneSkipFirst) {
        CGImageRef own = PlimCFImageGetCGImage(image);
        return own ? CGImageRetain(own) : nullptr;
    }
    PlimCFImagePromoteImage(image, false, false);
    if (!image->buffer) return nullptr;
    UInt32 size = image->bufferSize;
    size_t width = image->width, height = image->height, bpc = image->bitsPerComponent,
           bpp = image->bitsPerPixel, bpr = image->bytesPerRow;
    CGColorSpaceRef space = image->colorSpace;
    if (image->image) {
        width = CGImageGetWidth(image->image);
        height = CGImageGetHeight(image->image);
        bpc = CGImageGetBitsPerComponent(image->image);
        bpp = CGImageGetBitsPerPixel(image->image);
        bpr = CGImageGetBytesPerRow(image->image);
        space = CGImageGetColorSpace(image->image);
    }
    CFAllocatorRef allocator = CFGetAllocator(image);
    auto *copy = static_cast<UInt8 *>(CFAllocatorAllocate(allocator, static_cast<CFIndex>(size), 0));
    if (!copy) return nullptr;
    std::memcpy(copy, image->buffer, size);
    PlimCFUnpremultiplyARGBBuffer(copy, size);
    CGDataProviderRef provider = CGDataProviderCreateWithData(
        const_cast<void *>(static_cast<const void *>(allocator)), copy, size, PlimCFReleaseImageBuffer);
    if (!provider) {
        CFAllocatorDeallocate(allocator, copy);
        return nullptr;
    }
    CGImageRef result = CGImageCreate(width, height, bpc, bpp, bpr, space,
                                      static_cast<CGBitmapInfo>(kCGImageAlphaPremultipliedFirst),
                                      provider, nullptr, true, kCGRenderingIntentDefault);
    CGDataProviderRelease(provider);
    return result;
}
