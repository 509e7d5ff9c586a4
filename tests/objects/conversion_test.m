/* NSBitmapImageRep / NSImage to PlimImage and back: layouts, pixel values, round trips. */
#import <PlimBitmapLib/objects/PlimBitmapObjects.h>
#import <AppKit/NSBitmapImageRep.h>
#import <AppKit/NSGraphics.h>
#import <AppKit/NSImage.h>

#include <stdlib.h>
#include <unistd.h>
#include <string.h>

#import "ObjCheck.h"

/* A representation of the given layout with its pixel memory filled from `bytes` (plane after
   plane for planar data). */
static NSBitmapImageRep *MakeRep(NSInteger width, NSInteger height, NSInteger bits, NSInteger samples, BOOL alpha,
                                 BOOL planar, NSString *space, NSBitmapFormat format, const void *bytes) {
    NSBitmapImageRep *rep = [[[NSBitmapImageRep alloc] initWithBitmapDataPlanes:NULL
                                                                      pixelsWide:width
                                                                      pixelsHigh:height
                                                                   bitsPerSample:bits
                                                                 samplesPerPixel:samples
                                                                        hasAlpha:alpha
                                                                        isPlanar:planar
                                                                  colorSpaceName:space
                                                                    bitmapFormat:format
                                                                     bytesPerRow:0
                                                                    bitsPerPixel:0] autorelease];
    if (planar) {
        unsigned char *planes[5] = {0};
        [rep getBitmapDataPlanes:planes];
        size_t planeSize = (size_t)[rep bytesPerRow] * (size_t)height;
        for (NSInteger s = 0; s < samples; ++s) memcpy(planes[s], (const char *)bytes + (size_t)s * planeSize, planeSize);
    } else {
        memcpy([rep bitmapData], bytes, (size_t)[rep bytesPerRow] * (size_t)height);
    }
    return rep;
}

/* The rendered pixels of `image`, row after row without padding. Owned by the caller. */
static unsigned char *CopyPixels(PlimImage *image) {
    CGImageRef cg = [image getCGImage];
    if (cg == NULL) return NULL;
    CFDataRef data = CGDataProviderCopyData(CGImageGetDataProvider(cg));
    size_t rowBytes = CGImageGetBitsPerPixel(cg) * CGImageGetWidth(cg) / 8u;
    size_t height = CGImageGetHeight(cg);
    unsigned char *out = malloc(rowBytes * height);
    for (size_t y = 0; y < height; ++y)
        memcpy(out + y * rowBytes, CFDataGetBytePtr(data) + y * CGImageGetBytesPerRow(cg), rowBytes);
    CFRelease(data);
    return out;
}

/* Loads through initWithBitmapImageRep: and checks the layout; the pixels are the caller's. */
static unsigned char *Convert(NSBitmapImageRep *rep, UInt32 bitsPerPixel, int alphaInfo, BOOL color) {
    PlimImage *image = [[PlimImage alloc] initWithBitmapImageRep:rep];
    CHECK([image width] == (UInt32)[rep pixelsWide] && [image height] == (UInt32)[rep pixelsHigh]);
    CHECK([image bitsPerComponent] == 8 && [image bitsPerPixel] == bitsPerPixel);
    CHECK([image alphaInfo] == alphaInfo);
    CHECK([image isColor] == color);
    unsigned char *pixels = CopyPixels(image);
    [image release];
    return pixels;
}

static void TestGreyRepresentations(void) {
    /* 1 bit, 10 pixels a row (padded to two bytes), two rows. */
    const unsigned char bits[] = {0xA5, 0xC0, 0x0F, 0x40};
    const unsigned char expected1[] = {255, 0, 255, 0, 0, 255, 0, 255, 255, 255,
                                       0, 0, 0, 0, 255, 255, 255, 255, 0, 255};
    NSString *spaces[] = {NSCalibratedWhiteColorSpace, NSDeviceWhiteColorSpace};
    for (int i = 0; i < 2; ++i) {
        unsigned char *p = Convert(MakeRep(10, 2, 1, 1, NO, NO, spaces[i], 0, bits), 8, kCGImageAlphaNone, NO);
        CHECK(p != NULL && memcmp(p, expected1, sizeof expected1) == 0);
        free(p);
    }

    /* Grey with alpha gives grey without: the pixels are drawn over black. */
    const unsigned char greyAlpha[] = {100, 255, 60, 128, 0, 0, 255, 255};
    unsigned char *p = Convert(MakeRep(4, 1, 8, 2, YES, NO, NSCalibratedWhiteColorSpace, 0, greyAlpha), 8,
                               kCGImageAlphaNone, NO);
    CHECK(p != NULL && p[0] == 100 && p[1] == 60 && p[2] == 0 && p[3] == 255);
    free(p);

    /* 16 bits a sample round to the nearest 8-bit value: 257k+128 is just below k+0.5. */
    const uint16_t wide[] = {0, 65535, 257 * 100, 257 * 100 + 128, 257 * 100 + 129, 257 * 254 + 200};
    p = Convert(MakeRep(6, 1, 16, 1, NO, NO, NSDeviceWhiteColorSpace, 0, wide), 8, kCGImageAlphaNone, NO);
    const unsigned char expected16[] = {0, 255, 100, 100, 101, 255};
    CHECK(p != NULL && memcmp(p, expected16, sizeof expected16) == 0);
    free(p);

    /* 4 bits a sample scale by 17; float samples are clamped to 0...1. */
    const unsigned char nibbles[] = {0x01, 0x9F};
    p = Convert(MakeRep(4, 1, 4, 1, NO, NO, NSCalibratedWhiteColorSpace, 0, nibbles), 8, kCGImageAlphaNone, NO);
    CHECK(p != NULL && p[0] == 0 && p[1] == 17 && p[2] == 153 && p[3] == 255);
    free(p);
    const float floats[] = {-0.5f, 0.5f, 0.25f, 2.0f};
    p = Convert(MakeRep(4, 1, 32, 1, NO, NO, NSCalibratedWhiteColorSpace, NSFloatingPointSamplesBitmapFormat, floats),
                8, kCGImageAlphaNone, NO);
    CHECK(p != NULL && p[0] == 0 && p[1] == 128 && p[2] == 64 && p[3] == 255);
    free(p);
}

static void TestRGBRepresentations(void) {
    const unsigned char rgb[] = {200, 100, 50, 10, 20, 30, 0, 0, 0, 255, 255, 255};
    unsigned char *p = Convert(MakeRep(2, 2, 8, 3, NO, NO, NSDeviceRGBColorSpace, 0, rgb), 32,
                               kCGImageAlphaNoneSkipFirst, YES);
    for (int i = 0; p != NULL && i < 4; ++i) CHECK(memcmp(p + i * 4 + 1, rgb + i * 3, 3) == 0);
    free(p);

    /* Premultiplied RGBA, alpha last and alpha first, meshed and planar: all the same ARGB. */
    const unsigned char rgba[] = {100, 50, 25, 128, 10, 20, 30, 255, 0, 0, 0, 0, 255, 0, 255, 255};
    const unsigned char argb[] = {128, 100, 50, 25, 255, 10, 20, 30, 0, 0, 0, 0, 255, 255, 0, 255};
    p = Convert(MakeRep(4, 1, 8, 4, YES, NO, NSCalibratedRGBColorSpace, 0, rgba), 32,
                kCGImageAlphaPremultipliedFirst, YES);
    CHECK(p != NULL && memcmp(p, argb, sizeof argb) == 0);
    free(p);
    p = Convert(MakeRep(4, 1, 8, 4, YES, NO, NSDeviceRGBColorSpace, NSAlphaFirstBitmapFormat, argb), 32,
                kCGImageAlphaPremultipliedFirst, YES);
    CHECK(p != NULL && memcmp(p, argb, sizeof argb) == 0);
    free(p);
    unsigned char planes[16];
    for (int s = 0; s < 4; ++s)
        for (int x = 0; x < 4; ++x) planes[s * 4 + x] = rgba[x * 4 + s];
    p = Convert(MakeRep(4, 1, 8, 4, YES, YES, NSCalibratedRGBColorSpace, 0, planes), 32,
                kCGImageAlphaPremultipliedFirst, YES);
    CHECK(p != NULL && memcmp(p, argb, sizeof argb) == 0);
    free(p);

    /* Straight alpha is premultiplied on the way in. */
    const unsigned char straight[] = {200, 100, 50, 128, 255, 255, 255, 0, 90, 180, 240, 255};
    p = Convert(MakeRep(3, 1, 8, 4, YES, NO, NSCalibratedRGBColorSpace, NSAlphaNonpremultipliedBitmapFormat, straight),
                32, kCGImageAlphaPremultipliedFirst, YES);
    for (int i = 0; p != NULL && i < 3; ++i) {
        unsigned a = straight[i * 4 + 3];
        CHECK(p[i * 4] == a);
        for (int c = 0; c < 3; ++c) CHECK(abs((int)p[i * 4 + 1 + c] - (int)((straight[i * 4 + c] * a + 127u) / 255u)) <= 1);
    }
    free(p);

    /* 16-bit RGB without alpha. */
    const uint16_t wide[] = {65535, 257 * 7 + 128, 257 * 7 + 129, 0, 12850, 65535};
    p = Convert(MakeRep(2, 1, 16, 3, NO, NO, NSCalibratedRGBColorSpace, 0, wide), 32, kCGImageAlphaNoneSkipFirst, YES);
    const unsigned char expected[] = {255, 7, 8, 0, 50, 255};
    CHECK(p != NULL && memcmp(p + 1, expected, 3) == 0 && memcmp(p + 5, expected + 3, 3) == 0);
    free(p);
}

/* Opaque colours and fully transparent black survive every step exactly. */
static void TestNSImageRoundTrip(void) {
    const unsigned char rgba[] = {255, 0, 0, 255, 0, 255, 0, 255, 0, 0, 255, 255,
                                  12, 34, 56, 255, 0, 0, 0, 0, 250, 251, 252, 255};
    NSBitmapImageRep *rep = MakeRep(3, 2, 8, 4, YES, NO, NSDeviceRGBColorSpace, 0, rgba);
    NSImage *original = [[[NSImage alloc] initWithSize:NSMakeSize(3, 2)] autorelease];
    [original addRepresentation:rep];

    PlimImage *image = [[PlimImage alloc] initWithImage:original];
    CHECK([image width] == 3 && [image height] == 2 && [image alphaInfo] == kCGImageAlphaPremultipliedFirst);
    unsigned char *p = CopyPixels(image);
    for (int i = 0; p != NULL && i < 6; ++i) {
        CHECK(p[i * 4] == rgba[i * 4 + 3]);
        CHECK(memcmp(p + i * 4 + 1, rgba + i * 4, 3) == 0);
    }
    free(p);

    NSImage *back = [image image];
    CHECK([back size].width == 3 && [back size].height == 2);
    NSBitmapImageRep *backRep = [NSBitmapImageRep imageRepWithData:[back TIFFRepresentation]];
    CHECK(backRep != nil && [backRep pixelsWide] == 3 && [backRep pixelsHigh] == 2);
    CHECK([backRep samplesPerPixel] == 4 && [backRep bitsPerSample] == 8 && ![backRep isPlanar]);
    for (NSInteger y = 0; backRep != nil && y < 2; ++y)
        CHECK(memcmp([backRep bitmapData] + y * [backRep bytesPerRow], rgba + y * 12, 12) == 0);

    /* And once more through the library from the returned image. */
    PlimImage *again = [[PlimImage alloc] initWithImage:back];
    unsigned char *p1 = CopyPixels(image), *p2 = CopyPixels(again);
    CHECK(p1 != NULL && p2 != NULL && memcmp(p1, p2, 24) == 0);
    free(p1);
    free(p2);
    [again release];
    [image release];

    /* Grey stays grey. */
    const unsigned char grey[] = {0, 17, 128, 255};
    image = [[PlimImage alloc] initWithBitmapImageRep:MakeRep(2, 2, 8, 1, NO, NO, NSCalibratedWhiteColorSpace, 0, grey)];
    backRep = [NSBitmapImageRep imageRepWithData:[[image image] TIFFRepresentation]];
    CHECK(backRep != nil && [backRep samplesPerPixel] == 1 && ![backRep hasAlpha]);
    CHECK(backRep != nil && memcmp([backRep bitmapData], grey, 2) == 0 &&
          memcmp([backRep bitmapData] + [backRep bytesPerRow], grey + 2, 2) == 0);
    [image release];
}

/* Encoded data in and out: PNG and TIFF data, files by path and URL, format codes. */
static void TestEncodedData(void) {
    const unsigned char rgba[] = {255, 0, 0, 255, 0, 128, 0, 255, 1, 2, 3, 255, 40, 50, 60, 255};
    PlimImage *image = [[PlimImage alloc] initWithBitmapImageRep:MakeRep(2, 2, 8, 4, YES, NO, NSDeviceRGBColorSpace, 0, rgba)];
    unsigned char *reference = CopyPixels(image);

    NSData *png = [image PNGData];
    NSData *tiff = [image TIFFData];
    CHECK(png != nil && [png length] > 8 && memcmp([png bytes], "\x89PNG", 4) == 0);
    CHECK(tiff != nil && [tiff length] > 8);

    NSString *dir = NSTemporaryDirectory();
    NSString *path = [dir stringByAppendingPathComponent:
                              [NSString stringWithFormat:@"plim-objects-%d.png", (int)getpid()]];
    CHECK([png writeToFile:path atomically:NO]);
    NSURL *url = [NSURL fileURLWithPath:path];

    PlimImage *loaded[] = {
        [[PlimImage alloc] initWithData:png],
        [[PlimImage alloc] initWithData:png format:kPlimImageFormatPNG],
        [[PlimImage alloc] initWithData:tiff],
        [[PlimImage alloc] initWithPath:path],
        [[PlimImage alloc] initWithPath:path format:kPlimImageFormatPNG],
        [[PlimImage alloc] initWithURL:url],
        [[PlimImage alloc] initWithURL:url format:kPlimImageFormatUnknown],
    };
    for (size_t i = 0; i < sizeof loaded / sizeof loaded[0]; ++i) {
        CHECK([loaded[i] width] == 2 && [loaded[i] height] == 2);
        /* PNG and TIFF carry opaque pixels without alpha or with it; compare the colours. */
        unsigned char *p = CopyPixels(loaded[i]);
        UInt32 bpp = [loaded[i] bitsPerPixel] / 8u;
        int first = [loaded[i] alphaInfo] == kCGImageAlphaPremultipliedFirst ||
                    [loaded[i] alphaInfo] == kCGImageAlphaNoneSkipFirst || [loaded[i] alphaInfo] == kCGImageAlphaFirst;
        for (int px = 0; p != NULL && px < 4; ++px)
            CHECK(bpp >= 3 && memcmp(p + px * bpp + (first ? 1 : 0), reference + px * 4 + 1, 3) == 0);
        free(p);
        [loaded[i] release];
    }
    [[NSFileManager defaultManager] removeFileAtPath:path handler:nil];
    free(reference);
    [image release];
}

int main(void) {
    RUN(TestGreyRepresentations);
    RUN(TestRGBRepresentations);
    RUN(TestNSImageRoundTrip);
    RUN(TestEncodedData);
    return gCheckFailures == 0 ? 0 : 1;
}
