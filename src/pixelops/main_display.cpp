// The main display's colour space, made once from the system's display profile.
#include <PlimBitmapLib/PlimMainDisplay.h>
#include <PlimBitmapLib/platform/ColorSync.h>

namespace {
// One reference held for the life of the process.
CGColorSpaceRef sDisplayColorSpace = nullptr;
}  // namespace

extern "C" PLIM_EXPORT CGColorSpaceRef PlimCGColorSpaceCreateMainDisplay(void) {
    if (!sDisplayColorSpace) {
        CMProfileRef profile = nullptr;
        if (CMGetSystemProfile(&profile) == noErr) {
            sDisplayColorSpace = CGColorSpaceCreateWithPlatformColorSpace(profile);
            CMCloseProfile(profile);
        }
    }
    return CGColorSpaceRetain(sDisplayColorSpace);
}
