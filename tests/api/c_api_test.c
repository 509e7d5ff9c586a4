/* The umbrella header compiles as C99 and the shared library links and works from C. */
#include <PlimBitmapLib/PlimBitmapLib.h>

#include <stdio.h>
#include <string.h>

static int failures = 0;

#define CHECK(cond)                                                  \
    do {                                                             \
        if (!(cond)) {                                               \
            fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #cond); \
            ++failures;                                              \
        }                                                            \
    } while (0)

int main(void) {
    UInt8 pixel[4] = {128, 128, 255, 0};
    float hsv[3] = {0.0f, 1.0f, 0.0f};
    CFStringRef text;
    CFMutableDataRef data;

    PlimCFPremultiplyARGBBuffer(pixel, 4);
    CHECK(pixel[0] == 128 && pixel[1] == 64 && pixel[2] == 128 && pixel[3] == 0);

    PlimConvertRGBToHSV(hsv);
    CHECK(hsv[0] == 120.0f && hsv[1] == 1.0f && hsv[2] == 1.0f);

    text = CFStringCreateWithFormat(kCFAllocatorDefault, NULL, CFSTR("<%dx%d %@>"), 3, 4, CFSTR("ok"));
    CHECK(text != NULL);
    CHECK(text && strcmp(CFStringGetCStringPtr(text, kCFStringEncodingUTF8), "<3x4 ok>") == 0);
    CHECK(text && CFGetRetainCount(text) == 1);
    if (text) CFRelease(text);

    /* The loaded library is the one these headers describe. */
    CHECK(PlimGetVersion() == PLIM_VERSION);
    CHECK(strcmp(PlimGetVersionString(), PLIM_VERSION_STRING) == 0);
    CHECK(PLIM_VERSION == PLIM_VERSION_MAJOR * 10000 + PLIM_VERSION_MINOR * 100 + PLIM_VERSION_PATCH);

    /* Why a call failed, from C. */
    PlimClearLastError();
    CHECK(PlimCFColorMatchListCreate(NULL, 0, 5) == NULL);
    CHECK(PlimGetLastError() == kPlimErrorInvalidArgument);
    CHECK(strcmp(PlimGetErrorText(kPlimErrorFileNotFound), "file not found") == 0);
    CHECK(PlimGetOutputHook(NULL) == NULL);

    data = CFDataCreateMutable(NULL, 0);
    CFDataAppendBytes(data, (const UInt8 *)"abc", 3);
    CHECK(CFDataGetLength(data) == 3);
    CFRelease(data);

    /* Values a C caller can pass where an enumeration is declared, outside the listed ones: the
       library refuses them (and, built with the undefined-behaviour sanitizer, never loads them
       as something they are not). */
    {
        UInt8 argb[4] = {255, 1, 2, 3};
        int bad[3] = {8, 255, -1};
        int i;
        for (i = 0; i < 3; ++i) {
            CHECK(PlimCFImageCreateWithBuffer(NULL, argb, 1, 1, 8, 32, 4, NULL, (CGImageAlphaInfo)bad[i]) == NULL);
            CHECK(PlimCFContextCreate(NULL, 1, 1, NULL, 8, 0, NULL, (CGImageAlphaInfo)bad[i]) == NULL);
            CHECK(CFURLCreateWithFileSystemPath(NULL, CFSTR("/tmp/a.png"), (CFURLPathStyle)bad[i], 0) == NULL);
        }
    }

    if (failures == 0) printf("1 passed, 0 failed\n");
    return failures == 0 ? 0 : 1;
}
