// Image loaders: PNG and JPEG through the graphics layer's decoders, everything else through a
// graphics importer drawn into memory the loader allocates.
#include <PlimBitmapLib/PlimCFImageLoader.h>
#include <PlimBitmapLib/PlimMainDisplay.h>
#include <PlimBitmapLib/platform/CFRuntime.h>
#include <PlimBitmapLib/platform/CFStream.h>
#include <PlimBitmapLib/platform/MacMemory.h>
#include <PlimBitmapLib/platform/QuickTimeComponents.h>

#include "io/IOInternal.h"
#include "platform/graphics/decoders/Raster.h"
#include "platform/runtime/Errors.h"
#include "platform/runtime/Output.h"

#include <cstdlib>
#include <mutex>

struct __PlimCFImageLoader {
    CFRuntimeBase base;
    CGImageRef image;
    GraphicsImportComponent importer;
    SInt32 width;
    SInt32 height;
    UInt32 bitsPerComponent;
    UInt32 bitsPerPixel;
    UInt32 bytesPerRow;
    UInt32 bufferSize;
    CGImageAlphaInfo alphaInfo;
    CGColorSpaceRef colorSpace;
    void *buffer;
    CMProfileRef profile;
    UInt32 pixelFormat;
};

CFTypeID _kPlimCFImageLoaderID = _kCFRuntimeNotATypeID;
CFRuntimeClass _kPlimCFImageLoaderClass;
bool gPlimCFImageLoaderInited = false;  // set under the once flag, when registration has finished

using plim::io::kSubtypePCT;
using plim::io::kSubtypePICT;
using plim::errors::Fail;
using plim::errors::Mark;

namespace {

constexpr OSType kImporterType = 0x67726970;   // 'grip'
constexpr OSType kHandleDataRef = 0x686E646C;  // 'hndl'
constexpr SInt32 kCorruptPICT = static_cast<SInt32>(0xFFFFF08E);

PlimCFImageLoader PlimCFImageLoaderCreate(CFAllocatorRef allocator) {
    // Loaders may be created from several threads from the first one on.
    static std::once_flag once;
    std::call_once(once, [] {
        _kPlimCFImageLoaderClass = CFRuntimeClass{0,
                                                  "PlimCFImageLoader",
                                                  PlimCFImageLoaderInit,
                                                  nullptr,
                                                  PlimCFImageLoaderFinalize,
                                                  nullptr,
                                                  nullptr,
                                                  nullptr,
                                                  PlimCFImageLoaderCopyDebugDesc};
        _kPlimCFImageLoaderID = _CFRuntimeRegisterClass(&_kPlimCFImageLoaderClass);
        gPlimCFImageLoaderInited = true;
    });
    return static_cast<PlimCFImageLoader>(const_cast<void *>(_CFRuntimeCreateInstance(
        allocator, _kPlimCFImageLoaderID,
        sizeof(__PlimCFImageLoader) - sizeof(CFRuntimeBase), nullptr)));
}

void __ImageBufferRelease(void *, const void *data, size_t) {
    if (data) std::free(const_cast<void *>(data));
}

void __ImageCFDataRelease(void *info, const void *, size_t) {
    if (info) CFRelease(static_cast<CFTypeRef>(info));
}

PlimCFImageLoader Fail(PlimCFImageLoader loader) {
    if (loader) CFRelease(loader);
    return nullptr;
}

// `mark` is taken when the creator starts: a failure that recorded no reason of its own below
// the creator gets `reason`.
PlimCFImageLoader Succeed(PlimCFImageLoader loader, bool ok, const Mark &mark, PlimError reason) {
    if (!ok) mark.Fallback(reason);
    return ok ? loader : Fail(loader);
}

bool PlimCFImageLoaderLoadFromGraphicsImporter(PlimCFImageLoader loader) {
    if (!loader || !loader->importer) return false;
    const Mark mark;
    ComponentDescription description;
    if (OSErr err = GetComponentInfo(loader->importer, &description, nullptr, nullptr, nullptr))
        return Fail(plim::errors::FromOSErr(err, kPlimErrorCorrupt), false);
    OSType subtype = description.componentSubType;

    ImageDescriptionHandle desc = nullptr;
    ComponentResult err = GraphicsImportGetImageDescription(loader->importer, &desc);
    if (err != noErr) {
        if (err == kCorruptPICT)
            plim::output::Write(kPlimOutputStandardError, "Corrupt PICT data found, cannot load image\n");
        if (desc) DisposeHandle(reinterpret_cast<Handle>(desc));
        // The importer records what it found wrong; the code says at least what kind of failure.
        mark.Fallback(plim::errors::FromOSErr(err, kPlimErrorCorrupt));
        return false;
    }
    if (!desc || !*desc) {
        if (desc) DisposeHandle(reinterpret_cast<Handle>(desc));
        return Fail(kPlimErrorCorrupt, false);
    }
    Handle profileHandle = nullptr;
    // Everything from here on disposes the description and any profile handle on the way out.
    auto dispose = [&]() {
        DisposeHandle(reinterpret_cast<Handle>(desc));
        if (profileHandle) DisposeHandle(profileHandle);
        profileHandle = nullptr;
    };
    SInt16 depth = (*desc)->depth;
    if (depth != 40 && depth != 32 && depth != 24 && depth != 8 && depth != 1) {
        plim::output::Printf(kPlimOutputStandardError, "Unexpected image depth encountered: %d\n",
                             static_cast<int>(depth));
        dispose();
        return Fail(kPlimErrorUnsupportedLayout, false);
    }
    loader->width = static_cast<SInt32>((*desc)->width);
    loader->height = static_cast<SInt32>((*desc)->height);
    loader->bitsPerComponent = 8;
    if (subtype == kSubtypePICT && depth == 8) depth = 24;
    UInt32 width = static_cast<UInt32>(loader->width);
    switch (depth) {
    case 40:
    case 24:
    case 32:
        loader->bitsPerPixel = 32;
        loader->bytesPerRow = width * 4;
        loader->pixelFormat = 32;
        if (depth != 32 || subtype == kSubtypePICT)
            loader->alphaInfo = kCGImageAlphaNoneSkipFirst;
        else if (subtype == kSubtypePCT)
            loader->alphaInfo = kCGImageAlphaFirst;
        else
            loader->alphaInfo = kCGImageAlphaPremultipliedFirst;
        break;
    case 8:
        loader->bitsPerPixel = 8;
        loader->bytesPerRow = width;
        loader->alphaInfo = kCGImageAlphaNone;
        loader->pixelFormat = 40;
        break;
    default:
        loader->bitsPerComponent = 1;
        loader->bitsPerPixel = 1;
        loader->bytesPerRow = (width + 7) / 8;
        loader->alphaInfo = kCGImageAlphaNone;
        loader->pixelFormat = 1;
        break;
    }
    if (loader->width <= 0 || loader->height <= 0) {
        dispose();
        return Fail(kPlimErrorCorrupt, false);
    }
    loader->bufferSize = loader->bytesPerRow * static_cast<UInt32>(loader->height);
    loader->buffer = std::calloc(loader->bufferSize, 1);
    if (!loader->buffer) {
        dispose();
        return Fail(kPlimErrorOutOfMemory, false);
    }

    (void)GraphicsImportGetColorSyncProfile(loader->importer, &profileHandle);
    if (profileHandle) {
        CMProfileLocation location{};
        location.locType = cmHandleBasedProfile;
        location.u.handleLoc.h = profileHandle;
        if (CMOpenProfile(&loader->profile, &location) != noErr) {
            loader->profile = nullptr;
            dispose();
            return Fail(kPlimErrorInvalidProfile, false);
        }
        Boolean valid = false, preferredCMMNotFound = false;
        if (CMValidateProfile(loader->profile, &valid, &preferredCMMNotFound) != noErr) {
            plim::output::Printf(kPlimOutputStandardError,
                                 "Cannot validate profile : Valid: %d, Preferred CMM not found : %d\n",
                                 static_cast<int>(valid), static_cast<int>(preferredCMMNotFound));
            dispose();
            return Fail(kPlimErrorInvalidProfile, false);
        }
        loader->colorSpace = CGColorSpaceCreateWithPlatformColorSpace(loader->profile);
        DisposeHandle(profileHandle);
        profileHandle = nullptr;
        // A profile of another colour model than the pixels (an RGB profile on a black-and-white
        // picture, a CMYK one on pixels already converted to RGB) cannot describe them: it is
        // ignored, and the pixels get the colour space they would have without it.
        size_t components = loader->pixelFormat == 32 ? 3 : 1;
        if (loader->colorSpace && CGColorSpaceGetNumberOfComponents(loader->colorSpace) != components) {
            CGColorSpaceRelease(loader->colorSpace);
            loader->colorSpace = nullptr;
        }
    }
    if (!loader->colorSpace) {
        loader->colorSpace = (loader->pixelFormat == 40 || loader->pixelFormat == 1)
                                 ? CGColorSpaceCreateWithName(kCGColorSpaceGenericGray)
                                 : PlimCGColorSpaceCreateMainDisplay();
    }
    dispose();

    GWorldPtr world = nullptr;
    Rect bounds{0, 0, static_cast<SInt16>(loader->height), static_cast<SInt16>(loader->width)};
    ComponentResult drawn = NewGWorldFromPtr(&world, loader->pixelFormat, &bounds, nullptr, nullptr, 0,
                                             static_cast<Ptr>(loader->buffer),
                                             static_cast<SInt32>(loader->bytesPerRow));
    if (drawn == noErr) drawn = GraphicsImportSetGWorld(loader->importer, world, nullptr);
    if (drawn == noErr) drawn = GraphicsImportDraw(loader->importer);
    if (world) DisposeGWorld(world);
    if (drawn != noErr) return Fail(plim::errors::FromOSErr(drawn, kPlimErrorCorrupt), false);

    CloseComponent(loader->importer);
    loader->importer = nullptr;

    CGDataProviderRef provider = CGDataProviderCreateWithData(nullptr, loader->buffer,
                                                              loader->bufferSize, __ImageBufferRelease);
    if (!provider) return Fail(kPlimErrorOutOfMemory, false);
    loader->buffer = nullptr;
    loader->image = CGImageCreate(static_cast<size_t>(loader->width), static_cast<size_t>(loader->height),
                                  loader->bitsPerComponent, loader->bitsPerPixel, loader->bytesPerRow,
                                  loader->colorSpace, static_cast<CGBitmapInfo>(loader->alphaInfo),
                                  provider, nullptr, true, kCGRenderingIntentDefault);
    CGDataProviderRelease(provider);
    if (!loader->image) mark.Fallback(kPlimErrorUnsupportedLayout);
    return loader->image != nullptr;
}

bool PlimCFImageLoaderLoadImageCommon(PlimCFImageLoader loader, Handle dataRef, OSType dataRefType) {
    if (!loader || !dataRef) return Fail(kPlimErrorInvalidArgument, false);
    // Whether an importer was found decides nothing here; its code only says why there is none.
    const Mark mark;
    OSErr found = GetGraphicsImporterForDataRefWithFlags(dataRef, dataRefType, &loader->importer, 0);
    if (!loader->importer) mark.Fallback(plim::errors::FromOSErr(found, kPlimErrorUnsupportedFormat));
    return PlimCFImageLoaderLoadFromGraphicsImporter(loader);
}

using Decoder = CGImageRef (*)(CGDataProviderRef, const float *, bool, CGColorRenderingIntent);

PlimCFImageLoader CreateFromURL(CFAllocatorRef allocator, CFURLRef url, Decoder decode) {
    if (!url) return Fail(kPlimErrorInvalidArgument, nullptr);
    const Mark mark;
    PlimCFImageLoader loader = PlimCFImageLoaderCreate(allocator);
    if (!loader) return nullptr;
    CGDataProviderRef provider = CGDataProviderCreateWithURL(url);
    if (provider) {
        loader->image = decode(provider, nullptr, true, kCGRenderingIntentDefault);
        CGDataProviderRelease(provider);
    }
    return Succeed(loader, loader->image != nullptr, mark, kPlimErrorReadFailed);
}

PlimCFImageLoader CreateFromData(CFAllocatorRef allocator, CFDataRef data, Decoder decode) {
    if (!data) return Fail(kPlimErrorInvalidArgument, nullptr);
    const Mark mark;
    PlimCFImageLoader loader = PlimCFImageLoaderCreate(allocator);
    if (!loader) return nullptr;
    CGDataProviderRef provider = CGDataProviderCreateWithData(
        const_cast<void *>(static_cast<const void *>(data)), CFDataGetBytePtr(data),
        static_cast<size_t>(CFDataGetLength(data)), __ImageCFDataRelease);
    if (provider) {
        CFRetain(data);
        loader->image = decode(provider, nullptr, true, kCGRenderingIntentDefault);
        CGDataProviderRelease(provider);
    }
    return Succeed(loader, loader->image != nullptr, mark, kPlimErrorCorrupt);
}

// The whole file behind a URL; empty when it cannot be read, with the reason in *readError.
CFMutableDataRef ReadURL(CFAllocatorRef allocator, CFURLRef url, PlimError *readError) {
    CFMutableDataRef bytes = CFDataCreateMutable(allocator, 0);
    if (!bytes) return nullptr;
    CFReadStreamRef stream = CFReadStreamCreateWithFile(allocator, url);
    *readError = stream ? kPlimErrorNone : kPlimErrorOutOfMemory;
    if (stream) {
        if (CFReadStreamOpen(stream)) {
            for (;;) {
                CFIndex count = 0;
                const UInt8 *block = CFReadStreamGetBuffer(stream, 0, &count);
                if (!block || count <= 0) break;
                CFDataAppendBytes(bytes, block, count);
            }
        }
        if (CFReadStreamGetStatus(stream) == kCFStreamStatusError)
            *readError = plim::errors::FromErrno(CFReadStreamGetError(stream).error, kPlimErrorReadFailed);
        CFRelease(stream);
    }
    return bytes;
}

template <typename Source>
PlimCFImageLoader FromPath(CFAllocatorRef allocator, CFStringRef path, Source fromURL) {
    return plim::io::WithFileURL<PlimCFImageLoader>(nullptr, path, nullptr,
                                                    [&](CFURLRef url) { return fromURL(allocator, url); });
}

// A new handle holding a copy of the data's bytes, or null on any memory error.
Handle CopyToHandle(CFDataRef data) {
    Handle handle = nullptr;
    OSErr err = PtrToHand(CFDataGetBytePtr(data), &handle, static_cast<long>(CFDataGetLength(data)));
    if (handle && (err != noErr || MemError() != noErr)) {
        DisposeHandle(handle);
        handle = nullptr;
    }
    return handle;
}

// The content-recognising route: `makeRef` fills in a data reference and its type.
template <typename MakeRef>
PlimCFImageLoader FromDataReference(CFAllocatorRef allocator, MakeRef makeRef) {
    const Mark mark;
    PlimCFImageLoader loader = PlimCFImageLoaderCreate(allocator);
    if (!loader) return nullptr;
    Handle dataRef = nullptr;
    OSType dataRefType = 0;
    if (OSErr err = makeRef(&dataRef, &dataRefType)) {
        if (dataRef) DisposeHandle(dataRef);
        return Succeed(loader, false, mark, plim::errors::FromOSErr(err, kPlimErrorInvalidArgument));
    }
    bool ok = PlimCFImageLoaderLoadImageCommon(loader, dataRef, dataRefType);
    DisposeHandle(dataRef);
    return Succeed(loader, ok, mark, kPlimErrorCorrupt);
}

// Reads the file behind `url` and hands its bytes to a data creator.
template <typename FromData>
PlimCFImageLoader FromFileBytes(CFAllocatorRef allocator, CFURLRef url, FromData fromData) {
    if (!url) return Fail(kPlimErrorInvalidArgument, nullptr);
    PlimError readError = kPlimErrorNone;
    CFMutableDataRef bytes = ReadURL(allocator, url, &readError);
    if (!bytes) return nullptr;
    // Bytes that could not be read are decoded all the same (and fail); the file says why.
    PlimCFImageLoader loader = fromData(allocator, bytes);
    CFRelease(bytes);
    if (!loader && readError != kPlimErrorNone) plim::errors::Record(readError);
    return loader;
}

}  // namespace

PLIM_EXPORT void PlimCFImageLoaderInit(CFTypeRef cf) {
    auto *loader = static_cast<PlimCFImageLoader>(const_cast<void *>(cf));
    loader->image = nullptr;
    loader->importer = nullptr;
    loader->width = 0;
    loader->height = 0;
    loader->bitsPerComponent = 0;
    loader->bitsPerPixel = 0;
    loader->bytesPerRow = 0;
    loader->bufferSize = 0;
    loader->alphaInfo = kCGImageAlphaNone;
    loader->colorSpace = nullptr;
    loader->buffer = nullptr;
    loader->profile = nullptr;
    loader->pixelFormat = 0;
}

PLIM_EXPORT void PlimCFImageLoaderFinalize(CFTypeRef cf) {
    auto *loader = static_cast<PlimCFImageLoader>(const_cast<void *>(cf));
    if (loader->image) CGImageRelease(loader->image);
    if (loader->importer) CloseComponent(loader->importer);
    if (loader->colorSpace) CGColorSpaceRelease(loader->colorSpace);
    if (loader->buffer) std::free(loader->buffer);
    if (loader->profile) CMCloseProfile(loader->profile);
}

PLIM_EXPORT CFStringRef PlimCFImageLoaderCopyDebugDesc(CFTypeRef cf) {
    auto *loader = static_cast<PlimCFImageLoader>(const_cast<void *>(cf));
    CFStringRef description = loader->image ? CFCopyDescription(loader->image) : nullptr;
    CFStringRef result = CFStringCreateWithFormat(CFGetAllocator(cf), nullptr, CFSTR("%@"),
                                                  description ? description : CFSTR("(NULL)"));
    if (description) CFRelease(description);
    return result;
}

PLIM_EXPORT CFTypeID PlimCFImageLoaderGetTypeID(void) { return _kPlimCFImageLoaderID; }

PLIM_EXPORT UInt64 PlimGetDecodingPixelLimit(void) { return plim::decoders::PixelLimit(); }

PLIM_EXPORT void PlimSetDecodingPixelLimit(UInt64 pixels) { plim::decoders::SetPixelLimit(pixels); }

PLIM_EXPORT CGImageRef PlimCFImageLoaderCopyImage(PlimCFImageLoader loader) {
    if (!loader || !loader->image) return nullptr;
    return CGImageRetain(loader->image);
}

// PNG and JPEG.
PLIM_EXPORT PlimCFImageLoader PlimCFCreatePNGImageLoaderFromURL(CFAllocatorRef a, CFURLRef url) {
    return CreateFromURL(a, url, CGImageCreateWithPNGDataProvider);
}
PLIM_EXPORT PlimCFImageLoader PlimCFCreatePNGImageLoaderFromPath(CFAllocatorRef a, CFStringRef path) {
    return FromPath(a, path, PlimCFCreatePNGImageLoaderFromURL);
}
PLIM_EXPORT PlimCFImageLoader PlimCFCreatePNGImageLoaderFromData(CFAllocatorRef a, CFDataRef data) {
    return CreateFromData(a, data, CGImageCreateWithPNGDataProvider);
}
PLIM_EXPORT PlimCFImageLoader PlimCFCreateJPEGImageLoaderFromURL(CFAllocatorRef a, CFURLRef url) {
    return CreateFromURL(a, url, CGImageCreateWithJPEGDataProvider);
}
PLIM_EXPORT PlimCFImageLoader PlimCFCreateJPEGImageLoaderFromPath(CFAllocatorRef a, CFStringRef path) {
    return FromPath(a, path, PlimCFCreateJPEGImageLoaderFromURL);
}
PLIM_EXPORT PlimCFImageLoader PlimCFCreateJPEGImageLoaderFromData(CFAllocatorRef a, CFDataRef data) {
    return CreateFromData(a, data, CGImageCreateWithJPEGDataProvider);
}

// Importer-based formats.
PLIM_EXPORT PlimCFImageLoader PlimCFCreateFormattedImageLoaderFromData(CFAllocatorRef a, CFDataRef data,
                                                                       OSType subtype) {
    if (!data) return Fail(kPlimErrorInvalidArgument, nullptr);
    const Mark mark;
    PlimCFImageLoader loader = PlimCFImageLoaderCreate(a);
    if (!loader) return nullptr;
    Handle handle = CopyToHandle(data);
    if (!handle) return Succeed(loader, false, mark, kPlimErrorOutOfMemory);
    OSErr err = OpenADefaultComponent(kImporterType, subtype, &loader->importer);
    if (err == noErr && !loader->importer) err = invalidComponentID;
    if (err == noErr) err = static_cast<OSErr>(GraphicsImportSetDataHandle(loader->importer, handle));
    bool ok = err == noErr && PlimCFImageLoaderLoadFromGraphicsImporter(loader);
    DisposeHandle(handle);
    if (!ok && err != noErr) mark.Fallback(plim::errors::FromOSErr(err, kPlimErrorUnsupportedFormat));
    if (!ok && CFDataGetLength(data) == 0) plim::errors::Record(kPlimErrorEmpty);
    return Succeed(loader, ok, mark, kPlimErrorCorrupt);
}

PLIM_EXPORT PlimCFImageLoader PlimCFCreateFormattedImageLoaderFromURL(CFAllocatorRef a, CFURLRef url,
                                                                      OSType subtype) {
    return FromFileBytes(a, url, [subtype](CFAllocatorRef alloc, CFDataRef bytes) {
        return PlimCFCreateFormattedImageLoaderFromData(alloc, bytes, subtype);
    });
}

PLIM_EXPORT PlimCFImageLoader PlimCFCreateFormattedImageLoaderFromPath(CFAllocatorRef a, CFStringRef path,
                                                                       OSType subtype) {
    return FromPath(a, path, [subtype](CFAllocatorRef alloc, CFURLRef url) {
        return PlimCFCreateFormattedImageLoaderFromURL(alloc, url, subtype);
    });
}

PLIM_EXPORT PlimCFImageLoader PlimCFCreatePICTImageLoaderFromData(CFAllocatorRef a, CFDataRef data) {
    if (!data) return Fail(kPlimErrorInvalidArgument, nullptr);
    CFMutableDataRef file = CFDataCreateMutable(a, 0);
    if (!file) return nullptr;
    CFDataIncreaseLength(file, 512);
    CFDataAppendBytes(file, CFDataGetBytePtr(data), CFDataGetLength(data));
    PlimCFImageLoader loader = PlimCFCreateFormattedImageLoaderFromData(a, file, kSubtypePICT);
    CFRelease(file);
    // The header in front hides that the caller's data was empty.
    if (!loader && CFDataGetLength(data) == 0) plim::errors::Record(kPlimErrorEmpty);
    return loader;
}

PLIM_EXPORT PlimCFImageLoader PlimCFCreatePICTImageLoaderFromURL(CFAllocatorRef a, CFURLRef url) {
    return FromFileBytes(a, url, PlimCFCreatePICTImageLoaderFromData);
}

PLIM_EXPORT PlimCFImageLoader PlimCFCreatePICTImageLoaderFromPath(CFAllocatorRef a, CFStringRef path) {
    return FromPath(a, path, PlimCFCreatePICTImageLoaderFromURL);
}

PLIM_EXPORT PlimCFImageLoader PlimCFCreatePCTImageLoaderFromData(CFAllocatorRef a, CFDataRef data) {
    return PlimCFCreateFormattedImageLoaderFromData(a, data, kSubtypePCT);
}

PLIM_EXPORT PlimCFImageLoader PlimCFCreatePCTImageLoaderFromURL(CFAllocatorRef a, CFURLRef url) {
    return PlimCFCreateFormattedImageLoaderFromURL(a, url, kSubtypePCT);
}

PLIM_EXPORT PlimCFImageLoader PlimCFCreatePCTImageLoaderFromPath(CFAllocatorRef a, CFStringRef path) {
    return FromPath(a, path, PlimCFCreatePCTImageLoaderFromURL);
}

// Content-recognised formats.
PLIM_EXPORT PlimCFImageLoader PlimCFCreateUnknownImageLoaderFromURL(CFAllocatorRef a, CFURLRef url) {
    if (!url) return Fail(kPlimErrorInvalidArgument, nullptr);
    return FromDataReference(a, [url](Handle *dataRef, OSType *type) {
        return QTNewDataReferenceFromCFURL(url, 0, dataRef, type);
    });
}

PLIM_EXPORT PlimCFImageLoader PlimCFCreateUnknownImageLoaderFromPath(CFAllocatorRef a, CFStringRef path) {
    if (!path) return Fail(kPlimErrorInvalidArgument, nullptr);
    return FromDataReference(a, [path](Handle *dataRef, OSType *type) {
        return QTNewDataReferenceFromFullPathCFString(path, 0, 0, dataRef, type);
    });
}

PLIM_EXPORT PlimCFImageLoader PlimCFCreateUnknownImageLoaderFromData(CFAllocatorRef a, CFDataRef data) {
    if (!data) return Fail(kPlimErrorInvalidArgument, nullptr);
    const Mark mark;
    PlimCFImageLoader loader = PlimCFImageLoaderCreate(a);
    if (!loader) return nullptr;
    Handle bytes = CopyToHandle(data);
    if (!bytes) return Succeed(loader, false, mark, kPlimErrorOutOfMemory);
    Handle dataRef = nullptr;
    OSErr err = PtrToHand(&bytes, &dataRef, sizeof(Handle));
    if (!dataRef || err != noErr || MemError() != noErr) {
        if (dataRef) DisposeHandle(dataRef);
        DisposeHandle(bytes);
        return Succeed(loader, false, mark, kPlimErrorOutOfMemory);
    }
    bool ok = PlimCFImageLoaderLoadImageCommon(loader, dataRef, kHandleDataRef);
    DisposeHandle(dataRef);
    DisposeHandle(bytes);
    if (!ok && CFDataGetLength(data) == 0) plim::errors::Record(kPlimErrorEmpty);
    return Succeed(loader, ok, mark, kPlimErrorCorrupt);
}
