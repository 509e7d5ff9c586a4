#import "BitmapRepPixels.h"

#include <string.h>

/* NSBitmapImageRep keeps at most five planes. */
enum { kMaxPlanes = 5 };

static void ReleasePixels(void *info, const void *data, size_t size) {
    (void)info;
    (void)size;
    free((void *)data);
}

/* The sample that starts `bitOffset` bits into `row`; sub-byte samples are packed from the most
   significant bit, 16-bit and float samples are in host order (as NSBitmapImageRep keeps them). */
static UInt8 ReadSample(const unsigned char *row, size_t bitOffset, unsigned bits, BOOL isFloat) {
    const unsigned char *p = row + bitOffset / 8u;
    if (isFloat) {
        float f;
        memcpy(&f, p, sizeof f);
        if (!(f > 0.0f)) return 0; /* also NaN */
        if (f >= 1.0f) return 255;
        return (UInt8)(f * 255.0f + 0.5f);
    }
    if (bits == 8) return *p;
    if (bits == 16) {
        uint16_t v;
        memcpy(&v, p, sizeof v);
        return PlimScaleSampleTo8(v, 16);
    }
    unsigned shift = 8u - bits - (unsigned)(bitOffset % 8u);
    unsigned v = ((unsigned)*p >> shift) & ((1u << bits) - 1u);
    return PlimScaleSampleTo8(v, bits);
}

CGImageRef PlimCreateImageFromBitmapRep(NSBitmapImageRep *rep, unsigned colorSamples, CGColorSpaceRef space) {
    NSInteger width = [rep pixelsWide], height = [rep pixelsHigh];
    NSInteger bits = [rep bitsPerSample], samples = [rep samplesPerPixel];
    NSInteger bitsPerPixel = [rep bitsPerPixel], bytesPerRow = [rep bytesPerRow];
    NSBitmapFormat format = [rep bitmapFormat];
    BOOL planar = [rep isPlanar], hasAlpha = [rep hasAlpha];
    BOOL isFloat = (format & NSFloatingPointSamplesBitmapFormat) != 0;

    if (width <= 0 || height <= 0) return NULL;
    if (isFloat ? bits != 32 : (bits < 1 || bits > 16 || (bits < 8 && 8 % bits != 0) || (bits > 8 && bits != 16)))
        return NULL;
    NSInteger outSamples = (NSInteger)colorSamples + (hasAlpha ? 1 : 0);
    if (samples < outSamples || (planar && samples > kMaxPlanes)) return NULL;
    NSInteger pixelStride = planar ? bits : bitsPerPixel;
    if (!planar && bitsPerPixel < samples * bits) return NULL;
    if (bytesPerRow <= 0 || (double)bytesPerRow * 8.0 < (double)width * (double)pixelStride) return NULL;

    unsigned char *planes[kMaxPlanes] = {NULL, NULL, NULL, NULL, NULL};
    if (planar) {
        [rep getBitmapDataPlanes:planes];
        for (NSInteger s = 0; s < samples; ++s)
            if (planes[s] == NULL) return NULL;
    } else {
        planes[0] = [rep bitmapData];
        if (planes[0] == NULL) return NULL;
    }

    /* Where colour and alpha sit among the representation's samples. */
    NSInteger firstColor = (hasAlpha && (format & NSAlphaFirstBitmapFormat)) ? 1 : 0;
    NSInteger alphaIndex = (format & NSAlphaFirstBitmapFormat) ? 0 : (NSInteger)colorSamples;

    size_t outRow = (size_t)width * (size_t)outSamples;
    if ((size_t)height > SIZE_MAX / outRow) return NULL;
    UInt8 *pixels = (UInt8 *)malloc(outRow * (size_t)height);
    if (pixels == NULL) return NULL;

    for (NSInteger y = 0; y < height; ++y) {
        UInt8 *out = pixels + (size_t)y * outRow;
        size_t rowStart = (size_t)y * (size_t)bytesPerRow;
        for (NSInteger x = 0; x < width; ++x) {
            for (NSInteger c = 0; c < outSamples; ++c) {
                NSInteger sample = c < (NSInteger)colorSamples ? firstColor + c : alphaIndex;
                const unsigned char *row;
                size_t bitOffset;
                if (planar) {
                    row = planes[sample] + rowStart;
                    bitOffset = (size_t)x * (size_t)bits;
                } else {
                    row = planes[0] + rowStart;
                    bitOffset = (size_t)x * (size_t)bitsPerPixel + (size_t)sample * (size_t)bits;
                }
                *out++ = ReadSample(row, bitOffset, (unsigned)bits, isFloat);
            }
        }
    }

    CGImageAlphaInfo alpha = kCGImageAlphaNone;
    if (hasAlpha)
        alpha = (format & NSAlphaNonpremultipliedBitmapFormat) ? kCGImageAlphaLast : kCGImageAlphaPremultipliedLast;
    size_t length = outRow * (size_t)height;
    CGDataProviderRef provider = CGDataProviderCreateWithData(NULL, pixels, length, ReleasePixels);
    if (provider == NULL) {
        free(pixels);
        return NULL;
    }
    CGImageRef image = CGImageCreate((size_t)width, (size_t)height, 8, (size_t)outSamples * 8u, outRow, space,
                                     (CGBitmapInfo)alpha, provider, NULL, false, kCGRenderingIntentDefault);
    CGDataProviderRelease(provider);
    return image;
}
