/* Makes a transparent image, composites opaque black over it, round-trips the result through PNG data and
   checks what comes back, and that the library it runs with is the version its headers name. Exits
   non-zero on any mismatch. */
#include <PlimBitmapLib/PlimBitmapLib.h>

#include <stdio.h>
#include <string.h>

int main(void) {
    CGSize size = {8.0f, 6.0f};
    PlimCFImage dest = PlimCFImageCreateWithSize(NULL, size, TRUE);
    PlimCFImage src = PlimCFImageCreateWithSize(NULL, size, FALSE);
    PlimCFImage loaded;
    CFDataRef png;
    const UInt8 *pixels;
    int ok;

    if (!dest || !src) return 1;
    PlimCFImageConvertToColor(src);
    PlimCFImageInvert(src); /* white becomes opaque black */
    PlimCFImageComposite(src, dest, NULL, NULL, 0, kPlimCompositeSrcOver);
    png = PlimCFImageCopyPNGData(NULL, dest);
    if (!png) return 1;
    loaded = PlimCFImageCreateWithFormattedData(NULL, png, kPlimImageFormatPNG);
    if (!loaded) return 1;
    pixels = (const UInt8 *)PlimCFImageGetImageBuffer(loaded);
    ok = PlimCFImageGetWidth(loaded) == 8 && PlimCFImageGetHeight(loaded) == 6 && pixels &&
         pixels[0] == 255 && pixels[1] == 0 && pixels[2] == 0 && pixels[3] == 0 &&
         PlimGetVersion() == PLIM_VERSION && strcmp(PlimGetVersionString(), PLIM_VERSION_STRING) == 0;
    printf("consumer of PlimBitmapLib %s: %ux%u, first pixel %u,%u,%u,%u\n", PlimGetVersionString(),
           (unsigned)PlimCFImageGetWidth(loaded),
           (unsigned)PlimCFImageGetHeight(loaded), pixels ? pixels[0] : 0, pixels ? pixels[1] : 0,
           pixels ? pixels[2] : 0, pixels ? pixels[3] : 0);
    CFRelease(loaded);
    CFRelease(png);
    CFRelease(src);
    CFRelease(dest);
    return ok ? 0 : 1;
}
