// Front doors: images from URLs, paths and data by format code, and PNG/TIFF data of an image.
#include <PlimBitmapLib/PlimCFImageIO.h>
#include <PlimBitmapLib/PlimCFImageExporter.h>
#include <PlimBitmapLib/PlimCFImageLoader.h>

#include "core/ImageInternal.h"
#include "io/IOInternal.h"

using plim::errors::Fail;

namespace {

struct LoaderFamily {
    PlimCFImageLoader (*fromURL)(CFAllocatorRef, CFURLRef);
    PlimCFImageLoader (*fromData)(CFAllocatorRef, CFDataRef);
};

// Indexed by format code; code 0 has no format-specific loader.
const LoaderFamily kLoaders[] = {
    {nullptr, nullptr},
    {PlimCFCreatePICTImageLoaderFromURL, PlimCFCreatePICTImageLoaderFromData},
    {PlimCFCreatePCTImageLoaderFromURL, PlimCFCreatePCTImageLoaderFromData},
    {PlimCFCreatePNGImageLoaderFromURL, PlimCFCreatePNGImageLoaderFromData},
    {PlimCFCreateJPEGImageLoaderFromURL, PlimCFCreateJPEGImageLoaderFromData},
};
constexpr PlimImageFormat kLastFormat = kPlimImageFormatJPEG;

void TakeImage(PlimCFImage image, PlimCFImageLoader loader) {
    if (!loader) return;
    if (!image->image) image->image = PlimCFImageLoaderCopyImage(loader);
    CFRelease(loader);
}

template <typename Source>
PlimCFImage CreateWith(CFAllocatorRef allocator, Source source, PlimImageFormat format,
                       PlimCFImageLoader (*LoaderFamily::*member)(CFAllocatorRef, Source),
                       PlimCFImageLoader (*unknown)(CFAllocatorRef, Source)) {
    if (format > kLastFormat) return Fail(kPlimErrorInvalidArgument, nullptr);
    const plim::errors::Mark mark;
    PlimCFImage image = PlimCFImageCreate(allocator);
    if (!image) return nullptr;
    PlimError named = kPlimErrorNone;
    if (format != kPlimImageFormatUnknown) {
        TakeImage(image, (kLoaders[format].*member)(allocator, source));
        if (!image->image) named = PlimGetLastError();
    }
    if (!image->image) TakeImage(image, unknown(allocator, source));
    if (image->image) {
        // A format loader that failed before the content-recognising one succeeded is no failure.
        mark.Restore();
        return image;
    }
    // Content that nothing recognises is best described by the loader of the format it was said
    // to be in (a damaged PICT picture has no signature to recognise).
    if (named != kPlimErrorNone && PlimGetLastError() == kPlimErrorUnsupportedFormat)
        plim::errors::Record(named);
    CFRelease(image);
    return nullptr;
}

CFDataRef CopyData(CFAllocatorRef allocator, PlimCFImage image,
                   PlimCFImageExporter (*create)(CFAllocatorRef)) {
    CGImageRef cgImage = PlimCFImageGetCGImage(image);
    if (!cgImage) return nullptr;
    PlimCFImageExporter exporter = create(allocator);
    if (!exporter) return nullptr;
    CFDataRef data = PlimCFImageExportCreateData(allocator, exporter, cgImage);
    CFRelease(exporter);
    return data;
}

}  // namespace

PLIM_EXPORT PlimImageFormat PlimCFImageFormatForPathExtension(CFStringRef extension) {
    if (!extension) return kPlimImageFormatUnknown;
    static const struct {
        const char *name;
        PlimImageFormat format;
    } kExtensions[] = {{"pict", kPlimImageFormatPICT},
                       {"pct", kPlimImageFormatPCT},
                       {"png", kPlimImageFormatPNG},
                       {"jpeg", kPlimImageFormatJPEG},
                       {"jpg", kPlimImageFormatJPEG}};
    for (const auto &entry : kExtensions) {
        CFStringRef name = CFStringCreateWithCString(nullptr, entry.name, kCFStringEncodingUTF8);
        if (!name) continue;
        bool equal = CFStringCompare(extension, name, kCFCompareCaseInsensitive) == kCFCompareEqualTo;
        CFRelease(name);
        if (equal) return entry.format;
    }
    return kPlimImageFormatUnknown;
}

PLIM_EXPORT PlimCFImage PlimCFImageCreateWithURLAndFormat(CFAllocatorRef allocator, CFURLRef url,
                                                          PlimImageFormat format) {
    if (!url) return Fail(kPlimErrorInvalidArgument, nullptr);
    if (format == kPlimImageFormatUnknown) {
        CFStringRef extension = CFURLCopyPathExtension(url);
        format = PlimCFImageFormatForPathExtension(extension);
        if (extension) CFRelease(extension);
    }
    return CreateWith<CFURLRef>(allocator, url, format, &LoaderFamily::fromURL,
                                PlimCFCreateUnknownImageLoaderFromURL);
}

PLIM_EXPORT PlimCFImage PlimCFImageCreateWithURL(CFAllocatorRef allocator, CFURLRef url) {
    return PlimCFImageCreateWithURLAndFormat(allocator, url, kPlimImageFormatUnknown);
}

PLIM_EXPORT PlimCFImage PlimCFImageCreateWithPathAndFormat(CFAllocatorRef allocator, CFStringRef path,
                                                           PlimImageFormat format) {
    return plim::io::WithFileURL<PlimCFImage>(allocator, path, nullptr, [&](CFURLRef url) {
        return PlimCFImageCreateWithURLAndFormat(allocator, url, format);
    });
}

PLIM_EXPORT PlimCFImage PlimCFImageCreateWithPath(CFAllocatorRef allocator, CFStringRef path) {
    return PlimCFImageCreateWithPathAndFormat(allocator, path, kPlimImageFormatUnknown);
}

PLIM_EXPORT PlimCFImage PlimCFImageCreateWithFormattedData(CFAllocatorRef allocator, CFDataRef data,
                                                           PlimImageFormat format) {
    if (!data) return Fail(kPlimErrorInvalidArgument, nullptr);
    return CreateWith<CFDataRef>(allocator, data, format, &LoaderFamily::fromData,
                                 PlimCFCreateUnknownImageLoaderFromData);
}

PLIM_EXPORT PlimCFImage PlimCFImageCreateWithData(CFAllocatorRef allocator, CFDataRef data) {
    return PlimCFImageCreateWithFormattedData(allocator, data, kPlimImageFormatUnknown);
}

PLIM_EXPORT CFDataRef PlimCFImageCopyPNGData(CFAllocatorRef allocator, PlimCFImage image) {
    return CopyData(allocator, image, PlimCFImageExporterCreatePNG);
}

PLIM_EXPORT CFDataRef PlimCFImageCopyTIFFData(CFAllocatorRef allocator, PlimCFImage image) {
    return CopyData(allocator, image, PlimCFImageExporterCreateTIFF);
}
