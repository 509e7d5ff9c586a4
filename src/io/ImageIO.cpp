// Front doors: images from URLs, paths and data by format code, and PNG/TIFF data of an image.
#include <PlimBitmapLib/PlimCFImageIO.h>
#include <PlimBitmapLib/PlimCFImageExporter.h>
#include <PlimBitmapLib/PlimCFImageLoader.h>

#include "core/ImageInternal.h"

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
    if (format > kLastFormat) return nullptr;
    PlimCFImage image = PlimCFImageCreate(allocator);
    if (!image) return nullptr;
    if (format != kPlimImageFormatUnknown) TakeImage(image, (kLoaders[format].*member)(allocator, source));
    if (!image->image) TakeImage(image, unknown(allocator, source));
    if (image->image) return image;
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
    if (!url) return nullptr;
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
    if (!path) return nullptr;
    CFURLRef url = CFURLCreateWithFileSystemPath(allocator, path, kCFURLPOSIXPathStyle, false);
    if (!url) return nullptr;
    PlimCFImage image = PlimCFImageCreateWithURLAndFormat(allocator, url, format);
    CFRelease(url);
    return image;
}

PLIM_EXPORT PlimCFImage PlimCFImageCreateWithPath(CFAllocatorRef allocator, CFStringRef path) {
    return PlimCFImageCreateWithPathAndFormat(allocator, path, kPlimImageFormatUnknown);
}

PLIM_EXPORT PlimCFImage PlimCFImageCreateWithFormattedData(CFAllocatorRef allocator, CFDataRef data,
                                                           PlimImageFormat format) {
    if (!data) return nullptr;
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
