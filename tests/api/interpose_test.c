/* A program that defines functions named like the platform layer's (NewHandle, DisposeHandle, in
   interpose_app_handles.c, linked with -rdynamic so that they are visible to shared libraries)
   must not change what the library does: its PNG export, which goes through handles, still works,
   and the program's functions are never called by the library. */
#include <PlimBitmapLib/PlimBitmapLib.h>

#include <stdio.h>

extern int gAppHandleCalls;

int main(void) {
    CGSize size = {16.0f, 8.0f};
    PlimCFImage image = PlimCFImageCreateWithSize(NULL, size, TRUE);
    CFDataRef png = image ? PlimCFImageCopyPNGData(NULL, image) : NULL;
    PlimCFImage back = png ? PlimCFImageCreateWithData(NULL, png) : NULL;
    int ok = back && PlimCFImageGetWidth(back) == 16 && PlimCFImageGetHeight(back) == 8 &&
             gAppHandleCalls == 0;
    printf("PNG export %s, the program's handle functions called %d times\n",
           png ? "worked" : "failed", gAppHandleCalls);
    if (back) CFRelease(back);
    if (png) CFRelease(png);
    if (image) CFRelease(image);
    return ok ? 0 : 1;
}
