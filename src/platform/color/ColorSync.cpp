// Colour profiles opened from memory, and the display's profile.
#include <PlimBitmapLib/platform/ColorSync.h>

#include <PlimBitmapLib/platform/MacMemory.h>

#include "platform/color/ColorProfiles.h"

#include <new>

namespace {

CMError OpenFromBytes(CMProfileRef *prof, const void *bytes, size_t size) {
    cmsHPROFILE handle = plim::color::OpenProfileBytes(bytes, size);
    if (!handle) return cmProfileError;
    auto *profile = new (std::nothrow) OpaqueCMProfileRef;
    if (!profile) {
        cmsCloseProfile(handle);
        return memFullErr;
    }
    try {
        const auto *p = static_cast<const uint8_t *>(bytes);
        profile->bytes.assign(p, p + size);
    } catch (...) {
        cmsCloseProfile(handle);
        delete profile;
        return memFullErr;
    }
    profile->handle = handle;
    *prof = profile;
    return noErr;
}

}  // namespace

extern "C" {

PLIM_EXPORT CMError CMGetSystemProfile(CMProfileRef *prof) {
    if (!prof) return paramErr;
    *prof = nullptr;
    const std::vector<uint8_t> &srgb = plim::color::SRGBProfileBytes();
    if (srgb.empty()) return cmProfileError;
    return OpenFromBytes(prof, srgb.data(), srgb.size());
}

PLIM_EXPORT CMError CMOpenProfile(CMProfileRef *prof, const CMProfileLocation *theProfile) {
    if (!prof || !theProfile) return paramErr;
    *prof = nullptr;
    switch (theProfile->locType) {
        case cmHandleBasedProfile: {
            Handle h = theProfile->u.handleLoc.h;
            if (!h || !*h) return cmInvalidProfileLocation;
            Size size = GetHandleSize(h);
            if (size <= 0) return cmInvalidProfileLocation;
            return OpenFromBytes(prof, *h, static_cast<size_t>(size));
        }
        case cmBufferBasedProfile:
            if (!theProfile->u.bufferLoc.buffer) return cmInvalidProfileLocation;
            return OpenFromBytes(prof, theProfile->u.bufferLoc.buffer,
                                 theProfile->u.bufferLoc.size);
        default: return cmInvalidProfileLocation;
    }
}

PLIM_EXPORT CMError CMValidateProfile(CMProfileRef prof, Boolean *valid,
                                      Boolean *preferredCMMnotfound) {
    if (!prof) return paramErr;
    // A profile is valid when it can convert colours to or from the connection space in the
    // default intent.
    cmsHPROFILE h = prof->handle;
    bool ok = cmsIsIntentSupported(h, INTENT_PERCEPTUAL, LCMS_USED_AS_INPUT) ||
              cmsIsIntentSupported(h, INTENT_PERCEPTUAL, LCMS_USED_AS_OUTPUT);
    if (valid) *valid = ok ? TRUE : FALSE;
    if (preferredCMMnotfound) *preferredCMMnotfound = FALSE;
    return noErr;
}

PLIM_EXPORT CMError CMCloseProfile(CMProfileRef prof) {
    if (prof) {
        if (prof->handle) cmsCloseProfile(prof->handle);
        delete prof;
    }
    return noErr;
}

}  // extern "C"
