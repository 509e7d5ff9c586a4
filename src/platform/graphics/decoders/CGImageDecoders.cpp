// Rendered images from PNG and JPEG data providers.
#include <PlimBitmapLib/platform/CGImageDecoders.h>
#include <PlimBitmapLib/PlimMainDisplay.h>

#include "platform/graphics/GraphicsTypes.h"
#include "platform/graphics/decoders/Raster.h"

#include <climits>
#include <cstdlib>

namespace {

using plim::decoders::Raster;

void FreePixels(void *, const void *data, size_t) { std::free(const_cast<void *>(data)); }

CGColorSpaceRef ColorSpaceFor(const Raster &raster) {
    if (!raster.icc.empty()) {
        CFDataRef icc = CFDataCreate(nullptr, raster.icc.data(),
                                     static_cast<CFIndex>(raster.icc.size()));
        CGColorSpaceRef space = icc ? CGColorSpaceCreateWithICCProfile(icc) : nullptr;
        if (icc) CFRelease(icc);
        // A profile that does not fit the pixels' model is ignored.
        if (space && CGColorSpaceGetNumberOfComponents(space) == (raster.grey ? 1u : 3u))
            return space;
        CGColorSpaceRelease(space);
    }
    return raster.grey ? CGColorSpaceCreateWithName(kCGColorSpaceGenericGray)
                       : PlimCGColorSpaceCreateMainDisplay();
}

}  // namespace

namespace plim::decoders {

// Wraps decoded pixels into a rendered image; takes the pixels on success.
CGImageRef CreateImageFromRaster(Raster *raster, bool shouldInterpolate,
                                 CGColorRenderingIntent intent) {
    CGColorSpaceRef space = ColorSpaceFor(*raster);
    if (!space) return nullptr;
    size_t rowBytes = raster->BytesPerRow();
    size_t size = rowBytes * raster->height;
    CGDataProviderRef provider = CGDataProviderCreateWithData(nullptr, raster->pixels, size, FreePixels);
    if (!provider) {
        CGColorSpaceRelease(space);
        return nullptr;
    }
    raster->Take();
    CGImageAlphaInfo alpha = raster->grey    ? kCGImageAlphaNone
                             : raster->alpha ? kCGImageAlphaFirst
                                             : kCGImageAlphaNoneSkipFirst;
    CGImageRef image = CGImageCreate(raster->width, raster->height, 8, raster->grey ? 8 : 32,
                                     rowBytes, space, static_cast<CGBitmapInfo>(alpha), provider,
                                     nullptr, shouldInterpolate, intent);
    CGDataProviderRelease(provider);
    CGColorSpaceRelease(space);
    return image;
}

}  // namespace plim::decoders

namespace {

// Decodes a rendered image's pixels again from its own copy of the file.
template <bool (*Decode)(const uint8_t *, size_t, Raster *)>
bool Remake(CGDataProviderRef source, void **block, size_t size) {
    const plim::decoders::PixelLimitLifted lifted;
    Raster raster;
    if (!plim::graphics::EnsureProviderData(source) ||
        !Decode(plim::graphics::ProviderData(source), source->size, &raster))
        return false;
    if (raster.BytesPerRow() * raster.height != size) return false;
    *block = raster.Take();
    return true;
}

// `Remakable`: the image keeps a copy of the file (a JPEG file is a small fraction of its
// pixels), so that its pixel block can be handed over to an image's buffer and decoded again
// only if the rendered image is read after that.
template <bool (*Decode)(const uint8_t *, size_t, Raster *), bool Remakable>
CGImageRef CreateWith(CGDataProviderRef source, bool shouldInterpolate,
                      CGColorRenderingIntent intent) {
    if (!source || !plim::graphics::KnownIntent(intent) || !plim::graphics::EnsureProviderData(source))
        return plim::errors::Fail(kPlimErrorInvalidArgument, nullptr);
    const uint8_t *bytes = plim::graphics::ProviderData(source);
    Raster raster;
    if (!Decode(bytes, source->size, &raster)) return nullptr;
    const plim::errors::Mark mark;
    CGImageRef image = plim::decoders::CreateImageFromRaster(&raster, shouldInterpolate, intent);
    if (!image) {
        mark.Fallback(kPlimErrorOutOfMemory);
        return nullptr;
    }
    if constexpr (Remakable) {
        // Without memory for the copy the image simply keeps its pixels for good.
        CFDataRef copy = source->size <= static_cast<size_t>(LONG_MAX)
                             ? CFDataCreate(nullptr, bytes, static_cast<CFIndex>(source->size))
                             : nullptr;
        CGDataProviderRef own = copy ? CGDataProviderCreateWithCFData(copy) : nullptr;
        if (copy) CFRelease(copy);
        if (own) {
            image->provider->remakeSource = own;
            image->provider->remake = Remake<Decode>;
        }
        mark.Restore();
    }
    return image;
}

}  // namespace

PLIM_EXPORT CGImageRef CGImageCreateWithPNGDataProvider(CGDataProviderRef source, const float *,
                                                        bool shouldInterpolate,
                                                        CGColorRenderingIntent intent) {
    return CreateWith<plim::decoders::DecodePNG, false>(source, shouldInterpolate, intent);
}

PLIM_EXPORT CGImageRef CGImageCreateWithJPEGDataProvider(CGDataProviderRef source, const float *,
                                                         bool shouldInterpolate,
                                                         CGColorRenderingIntent intent) {
    return CreateWith<plim::decoders::DecodeJPEG, true>(source, shouldInterpolate, intent);
}
