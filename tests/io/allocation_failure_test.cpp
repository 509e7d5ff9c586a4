// Loaders, front doors and exporters under an allocator that fails after N successes: every
// failure is a clean null with nothing of the caller's allocator left alive, and the first budget
// that suffices gives the same pixels as an unconstrained load.
#include "io/IOTestSupport.h"
#include "support/FailingAllocator.h"

#include <gtest/gtest.h>

using namespace iotest;
using plim::test::ExhaustFailures;

namespace {

Bytes Encode(PlimCFImageExporter (*create)(CFAllocatorRef), PlimCFImage image) {
    PlimCFImageExporter exporter = create(nullptr);
    CFDataRef data = PlimCFImageExportCreateData(nullptr, exporter, PlimCFImageGetCGImage(image));
    CFRelease(exporter);
    Bytes out;
    if (data) {
        out.assign(CFDataGetBytePtr(data), CFDataGetBytePtr(data) + CFDataGetLength(data));
        CFRelease(data);
    }
    return out;
}

}  // namespace

TEST(AllocationFailure, LoadersAndFrontDoorsFailCleanlyAtEveryStep) {
    const int w = 19, h = 11;
    Bytes pixels = Random(static_cast<size_t>(w) * h * 4, 5);
    for (size_t i = 0; i < pixels.size(); i += 4) pixels[i] = 255;  // opaque: exact through JPEG too
    CGColorSpaceRef space = PlimCGColorSpaceCreateMainDisplay();
    PlimCFImage source = PlimCFImageCreateWithBuffer(nullptr, pixels.data(), w, h, 8, 32, w * 4, space,
                                                     kCGImageAlphaPremultipliedFirst);
    CGColorSpaceRelease(space);
    ASSERT_NE(source, nullptr);

    struct Case {
        const char *name;
        PlimCFImageLoader (*loader)(CFAllocatorRef, CFDataRef);
        PlimImageFormat format;
        Bytes file;
    };
    Case cases[] = {
        {"PNG", PlimCFCreatePNGImageLoaderFromData, kPlimImageFormatPNG,
         Encode(PlimCFImageExporterCreatePNG, source)},
        {"JPEG", PlimCFCreateJPEGImageLoaderFromData, kPlimImageFormatJPEG,
         Encode(PlimCFImageExporterCreateJPEG, source)},
        {"PICT", PlimCFCreatePICTImageLoaderFromData, kPlimImageFormatPICT,
         Encode(PlimCFImageExporterCreatePICT, source)},
        {"PCT", PlimCFCreatePCTImageLoaderFromData, kPlimImageFormatPCT,
         Encode(PlimCFImageExporterCreatePCT, source)},
        {"TIFF", PlimCFCreateUnknownImageLoaderFromData, kPlimImageFormatUnknown,
         Encode(PlimCFImageExporterCreateTIFF, source)},
    };
    for (Case &c : cases) {
        ASSERT_FALSE(c.file.empty()) << c.name;
        CFDataRef data = MakeData(c.file);

        long loaderFailures = ExhaustFailures([&](CFAllocatorRef allocator) {
            PlimCFImageLoader loader = c.loader(allocator, data);
            if (!loader) return false;
            CGImageRef image = PlimCFImageLoaderCopyImage(loader);
            CFRelease(loader);
            if (!image) return false;
            CGImageRelease(image);
            return true;
        });
        EXPECT_GE(loaderFailures, 1) << c.name << ": a loader needs at least its own record";

        PlimCFImage reference = PlimCFImageCreateWithFormattedData(nullptr, data, c.format);
        ASSERT_NE(reference, nullptr) << c.name;
        const size_t size = PlimCFImageGetImageBufferSize(reference);
        Bytes expected(static_cast<const uint8_t *>(PlimCFImageGetImageBuffer(reference)),
                       static_cast<const uint8_t *>(PlimCFImageGetImageBuffer(reference)) + size);
        CFRelease(reference);

        long imageFailures = ExhaustFailures([&](CFAllocatorRef allocator) {
            PlimCFImage image = PlimCFImageCreateWithFormattedData(allocator, data, c.format);
            if (!image) return false;
            // Promotion allocates the buffer from the image's allocator; a failure there leaves
            // the image without one, and the caller still releases it.
            const uint8_t *buffer = static_cast<const uint8_t *>(PlimCFImageGetImageBuffer(image));
            bool same = buffer && PlimCFImageGetImageBufferSize(image) == size &&
                        Bytes(buffer, buffer + size) == expected;
            CFRelease(image);
            return same;
        });
        EXPECT_GE(imageFailures, 1) << c.name << ": failures leaked or never succeeded";
        CFRelease(data);
    }
    CFRelease(source);
}
