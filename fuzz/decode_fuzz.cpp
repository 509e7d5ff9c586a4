// libFuzzer target for one decoder, chosen when it is built: PLIM_FUZZ_FORMAT (a PlimImageFormat
// code, through PlimCFImageCreateWithFormattedData) or PLIM_FUZZ_SUBTYPE (an importer subtype,
// through the formatted loader's data creator). Whatever loads is then taken through a buffer,
// a crop, a composite and an export, with the invariants of each checked.
#include <PlimBitmapLib/PlimBitmapLib.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace {

PlimCFImage Load(const uint8_t *bytes, size_t size) {
    CFDataRef data = CFDataCreate(nullptr, bytes, static_cast<CFIndex>(size));
    if (!data) return nullptr;
#ifdef PLIM_FUZZ_FORMAT
    PlimCFImage image = PlimCFImageCreateWithFormattedData(nullptr, data, PLIM_FUZZ_FORMAT);
#else
    PlimCFImage image = nullptr;
    if (PlimCFImageLoader loader = PlimCFCreateFormattedImageLoaderFromData(nullptr, data, PLIM_FUZZ_SUBTYPE)) {
        CGImageRef decoded = PlimCFImageLoaderCopyImage(loader);
        image = PlimCFImageCreateWithImage(nullptr, decoded);
        CGImageRelease(decoded);
        CFRelease(loader);
    }
#endif
    CFRelease(data);
    return image;
}

// A byte of the input, for choosing rectangles and operations.
uint8_t Byte(const uint8_t *data, size_t size, size_t i) { return size ? data[i % size] : 0; }

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    // Big enough for every seed, small enough that one input never takes long; a decoder that
    // allocates past it shows up under -malloc_limit_mb.
    PlimSetDecodingPixelLimit(1u << 22);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    PlimCFImage image = Load(data, size);
    if (!image) return 0;
    const UInt32 width = PlimCFImageGetWidth(image), height = PlimCFImageGetHeight(image);
    if (width == 0 || height == 0 || uint64_t{width} * height > PlimGetDecodingPixelLimit()) std::abort();

    // The buffer holds its rows, and every row its pixels. Without the rendered image, the
    // layout accessors describe the buffer.
    const void *buffer = PlimCFImageGetImageBuffer(image);
    const UInt32 bufferSize = PlimCFImageGetImageBufferSize(image);
    PlimCFImageInvalidateImage(image);
    if (buffer) {
        const uint64_t rowBytes = PlimCFImageGetBytesPerRow(image);
        if (rowBytes * PlimCFImageGetHeight(image) != bufferSize ||
            rowBytes * 8 < uint64_t{PlimCFImageGetWidth(image)} * PlimCFImageGetBitsPerPixel(image))
            std::abort();
    }

    PlimCFImage crop = PlimCFImageCreateCopy(nullptr, image);
    if (crop) {
        const float x = Byte(data, size, 7) % 9, y = Byte(data, size, 11) % 9;
        PlimCFImageCropToRect(crop, CGRectMake(x - 2, y - 2, static_cast<float>(width) / 2 + 1,
                                               static_cast<float>(height) / 3 + 1));
        if (PlimCFImageGetWidth(crop) > width || PlimCFImageGetHeight(crop) > height) std::abort();
    }

    PlimCFImage canvas = PlimCFImageCreateWithSize(nullptr, CGSizeMake(19, 13), Byte(data, size, 3) & 1);
    if (canvas) {
        const CGRect src = CGRectMake(0, 0, static_cast<float>(width), static_cast<float>(height));
        const CGRect dest = CGRectMake(Byte(data, size, 5) % 7, 1, 12, 9);
        PlimCFImageComposite(crop ? crop : image, canvas, &src, &dest, 1, Byte(data, size, 13) % 24);
        if (PlimCFImageGetWidth(canvas) != 19 || PlimCFImageGetHeight(canvas) != 13) std::abort();
    }

    if (CFDataRef png = PlimCFImageCopyPNGData(nullptr, crop ? crop : image)) CFRelease(png);
    if (canvas) {
        if (PlimCFImageExporter pict = PlimCFImageExporterCreatePICT(nullptr)) {
            if (CFDataRef exported = PlimCFImageExportCreateData(nullptr, pict, PlimCFImageGetCGImage(canvas)))
                CFRelease(exported);
            CFRelease(pict);
        }
        CFRelease(canvas);
    }
    if (crop) CFRelease(crop);
    CFRelease(image);
    return 0;
}
