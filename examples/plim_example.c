/* A small tour of what the library offers so far: objects, strings, data, URLs, handles and the
   pixel arithmetic. Prints what it does. */
#include <PlimBitmapLib/PlimBitmapLib.h>

#include <stdio.h>

static void show(const char *label, CFStringRef text) {
    printf("%-28s %s\n", label, text ? CFStringGetCStringPtr(text, kCFStringEncodingUTF8) : "(null)");
}

static void show_image(const char *label, PlimCFImage image) {
    CFStringRef description = CFCopyDescription(image);
    show(label, description);
    CFRelease(description);
}

/* A grey image is kept as it is until a caller forces it into colour with alpha. */
static void show_promotion(void) {
    CGSize size = {4.0f, 3.0f};
    PlimCFImage image = PlimCFImageCreateWithSize(NULL, size, FALSE);
    const UInt8 *pixels;

    show_image("new grey image:", image);
    PlimCFImagePromoteImage(image, FALSE, TRUE);
    show_image("promoted with alpha:", image);
    pixels = (const UInt8 *)PlimCFImageGetImageBuffer(image);
    printf("%-28s (%u, %u, %u, %u), %u bytes\n", "first pixel, ARGB:", pixels[0], pixels[1], pixels[2],
           pixels[3], (unsigned)PlimCFImageGetImageBufferSize(image));
    CFRelease(image);
}

int main(void) {
    UInt8 pixels[8] = {128, 128, 255, 0, 255, 10, 20, 30};
    float colour[3] = {1.0f, 0.0f, 0.5f};
    CFStringRef text;
    CFURLRef url;
    CFStringRef extension;
    CFMutableDataRef data;
    Handle handle = NULL;

    printf("ARGB pixel (128, 128, 255, 0) and (255, 10, 20, 30)\n");
    PlimCFPremultiplyARGBBuffer(pixels, sizeof pixels);
    printf("  premultiplied:   (%u, %u, %u, %u)\n", pixels[0], pixels[1], pixels[2], pixels[3]);
    PlimCFUnpremultiplyARGBBuffer(pixels, sizeof pixels);
    printf("  unpremultiplied: (%u, %u, %u, %u)\n", pixels[0], pixels[1], pixels[2], pixels[3]);

    PlimConvertRGBToHSV(colour);
    printf("RGB (1, 0, 0.5) as HSV:      (%g, %g, %g)\n", colour[0], colour[1], colour[2]);
    PlimConvertHSVToRGB(colour);
    printf("  and back:                  (%g, %g, %g)\n", colour[0], colour[1], colour[2]);

    text = CFStringCreateWithFormat(NULL, NULL, CFSTR("%d x %d, %s, %@"), 640, 480, "RGBA", CFSTR("sRGB"));
    show("formatted string:", text);
    CFRelease(text);

    url = CFURLCreateWithFileSystemPath(NULL, CFSTR("/tmp/picture.png"), kCFURLPOSIXPathStyle, FALSE);
    extension = CFURLCopyPathExtension(url);
    show("URL:", CFURLGetString(url));
    show("its extension:", extension);
    CFRelease(extension);
    CFRelease(url);

    data = CFDataCreateMutable(NULL, 0);
    CFDataAppendBytes(data, (const UInt8 *)"PNG", 3);
    CFDataIncreaseLength(data, 5);
    printf("%-28s %ld bytes\n", "mutable data:", (long)CFDataGetLength(data));
    PtrToHand(CFDataGetBytePtr(data), &handle, CFDataGetLength(data));
    printf("%-28s %ld bytes, MemError %d\n", "handle copy:", (long)GetHandleSize(handle), MemError());
    DisposeHandle(handle);
    CFRelease(data);

    show_promotion();
    return 0;
}
