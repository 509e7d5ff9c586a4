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
#include "platform/runtime/Errors.h"

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
using plim::errors::Fail;
using plim::errors::Mark;

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
    if (!image) return Fail(kPlimErrorInvalidArgument, nullptr);
    Handle handle = NewHandle(0);
    if (!handle || MemError() != noErr) {
        if (handle) DisposeHandle(handle);
        return Fail(kPlimErrorOutOfMemory, nullptr);
    }
    GraphicsExportComponent component = nullptr;
    UInt32 written = 0;
    ComponentResult err = OpenADefaultComponent(kExporterType, subtype, &component);
    if (err == noErr && !component) err = invalidComponentID;
    if (err == noErr && quality != 0)
        err = GraphicsExportSetCompressionQuality(component, (quality * codecLosslessQuality + 50) / 100);
    if (err == noErr) err = GraphicsExportSetInputCGImage(component, image);
    if (err == noErr) err = GraphicsExportSetOutputHandle(component, handle);
    if (err == noErr) err = GraphicsExportDoExport(component, &written);
    if (component) CloseComponent(component);
    if (err != noErr) {
        DisposeHandle(handle);
        return Fail(plim::errors::FromOSErr(err, kPlimErrorEncoderFailed), nullptr);
    }
    return handle;
}

Handle PlimCFImageExporterCreateHandle(PlimCFImageExporter exporter, CGImageRef image) {
    if (!image) return Fail(kPlimErrorInvalidArgument, nullptr);
    const Mark mark;
    if (exporter->subtype == kSubtypePCT) {
        PlimCFImage wrapper = PlimCFImageCreateWithImage(nullptr, image);
        CGImageRef exportable = wrapper ? _PlimCFImageCreateExportableImage(wrapper, true) : nullptr;
        Handle handle = exportable ? EncodeWith(kSubtypePICT, 0, exportable) : nullptr;
        if (wrapper) CFRelease(wrapper);
        if (exportable) CGImageRelease(exportable);
        if (handle) return handle;
    }
    Handle handle = EncodeWith(exporter->subtype, exporter->quality, image);
    // The direct route made up for a failed unpremultiplied one.
    if (handle) mark.Restore();
    return handle;
}

// Writes the encoded bytes to the file at `url` with one write call: true when all were written
// and the file closed. A stream in error, or still writing after about five seconds, is left
// unclosed.
bool WriteToURL(const UInt8 *bytes, CFIndex count, CFURLRef url) {
    CFWriteStreamRef stream = CFWriteStreamCreateWithFile(nullptr, url);
    if (!stream) return Fail(url ? kPlimErrorOutOfMemory : kPlimErrorInvalidArgument, false);
    PlimError failure = kPlimErrorWriteFailed;
    if (CFWriteStreamOpen(stream)) {
        CFStreamStatus status = CFWriteStreamGetStatus(stream);
        if (status == kCFStreamStatusOpening || status == kCFStreamStatusOpen) {
            const bool whole = CFWriteStreamWrite(stream, bytes, count) == count;
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
            failure = timedOut ? kPlimErrorTimedOut
                      : whole && status != kCFStreamStatusError ? kPlimErrorNone
                                                                : kPlimErrorWriteFailed;
        }
    }
    if (CFWriteStreamGetStatus(stream) == kCFStreamStatusError)
        failure = plim::errors::FromErrno(CFWriteStreamGetError(stream).error, kPlimErrorWriteFailed);
    CFRelease(stream);
    if (failure != kPlimErrorNone) plim::errors::Record(failure);
    return failure == kPlimErrorNone;
}

// Encodes and writes the whole file, PICT header included (a PICT file is complete, while PICT
// data is not).
bool ExportToURL(PlimCFImageExporter exporter, CGImageRef image, CFURLRef url) {
    Handle handle = PlimCFImageExporterCreateHandle(exporter, image);
    if (!handle) return false;
    if (GetHandleSize(handle) <= 0) {
        DisposeHandle(handle);
        return Fail(kPlimErrorEncoderFailed, false);
    }
    HLock(handle);
    bool written = WriteToURL(reinterpret_cast<const UInt8 *>(*handle),
                              static_cast<CFIndex>(GetHandleSize(handle)), url);
    HUnlock(handle);
    DisposeHandle(handle);
    return written;
}

bool ExportToFile(PlimCFImageExporter exporter, CGImageRef image, CFStringRef path) {
    return WithFileURL(nullptr, path, false, [&](CFURLRef url) { return ExportToURL(exporter, image, url); });
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
// An exporter of a lossy format at a quality from 1 to 100.
static PlimCFImageExporter CreateWithQuality(CFAllocatorRef a, OSType subtype, UInt32 quality) {
    if (quality < 1 || quality > 100) return Fail(kPlimErrorInvalidArgument, nullptr);
    PlimCFImageExporter exporter = CreateWithSubtype(a, subtype);
    if (exporter) exporter->quality = quality;
    return exporter;
}
PLIM_EXPORT PlimCFImageExporter PlimCFImageExporterCreateJPEGWithQuality(CFAllocatorRef a,
                                                                        UInt32 quality) {
    return CreateWithQuality(a, kSubtypeJPEG, quality);
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
    return CreateWithQuality(a, kSubtypeWebP, quality);
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
            return Fail(kPlimErrorEncoderFailed, nullptr);
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
    (void)ExportToURL(exporter, image, url);
}

PLIM_EXPORT void PlimCFImageExportToFile(PlimCFImageExporter exporter, CGImageRef image,
                                         CFStringRef path) {
    (void)ExportToFile(exporter, image, path);
}

PLIM_EXPORT Boolean PlimCFImageExportWriteToURL(PlimCFImageExporter exporter, CGImageRef image,
                                                CFURLRef url) {
    return ExportToURL(exporter, image, url);
}

PLIM_EXPORT Boolean PlimCFImageExportWriteToFile(PlimCFImageExporter exporter, CGImageRef image,
                                                 CFStringRef path) {
    return ExportToFile(exporter, image, path);
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
    const Mark mark;
    CGImageRef result = CGImageCreate(width, height, bpc, bpp, bpr, space,
                                      static_cast<CGBitmapInfo>(kCGImageAlphaPremultipliedFirst),
                                      provider, nullptr, true, kCGRenderingIntentDefault);
    CGDataProviderRelease(provider);
    if (!result) mark.Fallback(kPlimErrorUnsupportedLayout);
    return result;
}
