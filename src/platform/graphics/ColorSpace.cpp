// Colour spaces: a colour model and the ICC profile that gives its colours meaning.
#include "platform/color/ColorProfiles.h"
#include "platform/graphics/ColorSpaceInternal.h"
#include "platform/graphics/GraphicsTypes.h"

#include <cstring>
#include <new>

namespace {

void SpaceFinalize(CFTypeRef cf) {
    auto *space = static_cast<CGColorSpace *>(const_cast<void *>(cf));
    delete space->icc;
    space->icc = nullptr;
}

Boolean SpaceEqual(CFTypeRef a, CFTypeRef b) {
    auto *x = static_cast<const CGColorSpace *>(a);
    auto *y = static_cast<const CGColorSpace *>(b);
    return x->components == y->components && *x->icc == *y->icc;
}

CFHashCode SpaceHash(CFTypeRef cf) { return static_cast<const CGColorSpace *>(cf)->hash; }

const char *SpaceKind(const CGColorSpace *space) {
    switch (space->type) {
        case kCGColorSpaceTypeDeviceGray: return "kCGColorSpaceDeviceGray";
        case kCGColorSpaceTypeDeviceRGB: return "kCGColorSpaceDeviceRGB";
        case kCGColorSpaceTypeDeviceCMYK: return "kCGColorSpaceDeviceCMYK";
        case kCGColorSpaceTypeCalibratedGray: return "kCGColorSpaceCalibratedGray";
        default: return "kCGColorSpaceCalibratedRGB";
    }
}

CFStringRef SpaceCopyDescription(CFTypeRef cf, CFDictionaryRef options) {
    auto *space = static_cast<const CGColorSpace *>(cf);
    return CFStringCreateWithFormat(CFGetAllocator(cf), options,
                                    CFSTR("<CGColorSpace %p> (%s; %d components)"), cf,
                                    SpaceKind(space), space->components);
}

CFStringRef SpaceCopyDebugDescription(CFTypeRef cf) { return SpaceCopyDescription(cf, nullptr); }

const CFRuntimeClass kSpaceClass = {0,         "CGColorSpace",       nullptr,
                                    nullptr,   SpaceFinalize,        SpaceEqual,
                                    SpaceHash, SpaceCopyDescription, SpaceCopyDebugDescription};

CFHashCode HashBytes(const std::vector<uint8_t> &bytes) {
    uint32_t h = 2166136261u;  // FNV-1a
    for (uint8_t b : bytes) h = (h ^ b) * 16777619u;
    return h;
}

CGColorSpaceRef MakeSpace(const std::vector<uint8_t> &icc, int components, int type,
                          bool srgbFamily) {
    if (icc.empty()) return nullptr;
    auto *copy = new (std::nothrow) std::vector<uint8_t>;
    if (!copy) return nullptr;
    try {
        *copy = icc;
    } catch (...) {
        delete copy;
        return nullptr;
    }
    auto *space = static_cast<CGColorSpace *>(const_cast<void *>(_CFRuntimeCreateInstance(
        nullptr, CGColorSpaceGetTypeID(), sizeof(CGColorSpace) - sizeof(CFRuntimeBase), nullptr)));
    if (!space) {
        delete copy;
        return nullptr;
    }
    space->components = components;
    space->type = type;
    space->srgbFamily = srgbFamily;
    space->icc = copy;
    space->hash = HashBytes(icc);
    return space;
}

// The named spaces are made once and shared; each caller gets a reference of its own.

CGColorSpaceRef GenericRGB() {
    static CGColorSpaceRef space =
        MakeSpace(plim::color::SRGBProfileBytes(), 3, kCGColorSpaceTypeCalibratedRGB, true);
    return space;
}

CGColorSpaceRef GenericGrey() {
    static CGColorSpaceRef space =
        MakeSpace(plim::color::GreyProfileBytes(), 1, kCGColorSpaceTypeCalibratedGray, true);
    return space;
}

CGColorSpaceRef DeviceRGB() {
    static CGColorSpaceRef space =
        MakeSpace(plim::color::SRGBProfileBytes(), 3, kCGColorSpaceTypeDeviceRGB, true);
    return space;
}

CGColorSpaceRef DeviceGrey() {
    static CGColorSpaceRef space =
        MakeSpace(plim::color::GreyProfileBytes(), 1, kCGColorSpaceTypeDeviceGray, true);
    return space;
}

CGColorSpaceRef FromProfileBytes(const std::vector<uint8_t> &bytes, cmsHPROFILE handle) {
    if (bytes == plim::color::SRGBProfileBytes()) {
        CGColorSpaceRef space = GenericRGB();
        return CGColorSpaceRetain(space);
    }
    if (bytes == plim::color::GreyProfileBytes()) {
        CGColorSpaceRef space = GenericGrey();
        return CGColorSpaceRetain(space);
    }
    int n = plim::color::ProfileComponents(handle);
    int type = n == 1   ? kCGColorSpaceTypeCalibratedGray
               : n == 3 ? kCGColorSpaceTypeCalibratedRGB
                        : kCGColorSpaceTypeDeviceCMYK;
    return n ? MakeSpace(bytes, n, type, false) : nullptr;
}

}  // namespace

namespace plim::graphics {

const std::vector<uint8_t> &SpaceProfile(CGColorSpaceRef space) { return *space->icc; }

}  // namespace plim::graphics

extern "C" {

PLIM_EXPORT CFTypeID CGColorSpaceGetTypeID(void) {
    static const CFTypeID id = _CFRuntimeRegisterClass(&kSpaceClass);
    return id;
}

PLIM_EXPORT CGColorSpaceRef CGColorSpaceCreateWithName(CFStringRef name) {
    if (!name) return nullptr;
    CGColorSpaceRef space = nullptr;
    if (CFEqual(name, kCGColorSpaceGenericGray)) {
        space = GenericGrey();
    } else if (CFEqual(name, kCGColorSpaceGenericRGB) || CFEqual(name, kCGColorSpaceSRGB)) {
        space = GenericRGB();
    }
    return CGColorSpaceRetain(space);
}

PLIM_EXPORT CGColorSpaceRef CGColorSpaceCreateDeviceRGB(void) {
    CGColorSpaceRef space = DeviceRGB();
    return CGColorSpaceRetain(space);
}

PLIM_EXPORT CGColorSpaceRef CGColorSpaceCreateDeviceGray(void) {
    CGColorSpaceRef space = DeviceGrey();
    return CGColorSpaceRetain(space);
}

PLIM_EXPORT CGColorSpaceRef
CGColorSpaceCreateWithPlatformColorSpace(const void *platformColorSpace) {
    auto *profile = static_cast<const OpaqueCMProfileRef *>(platformColorSpace);
    if (!profile || !profile->handle) return nullptr;
    return FromProfileBytes(profile->bytes, profile->handle);
}

PLIM_EXPORT CGColorSpaceRef CGColorSpaceCreateWithICCProfile(CFDataRef data) {
    if (!data) return nullptr;
    const UInt8 *bytes = CFDataGetBytePtr(data);
    CFIndex length = CFDataGetLength(data);
    if (!bytes || length <= 0) return nullptr;
    cmsHPROFILE handle = plim::color::OpenProfileBytes(bytes, static_cast<size_t>(length));
    if (!handle) return nullptr;
    CGColorSpaceRef space = nullptr;
    try {
        space = FromProfileBytes(std::vector<uint8_t>(bytes, bytes + length), handle);
    } catch (...) {
        space = nullptr;
    }
    cmsCloseProfile(handle);
    return space;
}

PLIM_EXPORT CGColorSpaceRef CGColorSpaceRetain(CGColorSpaceRef space) {
    if (space) CFRetain(space);
    return space;
}

PLIM_EXPORT void CGColorSpaceRelease(CGColorSpaceRef space) {
    if (space) CFRelease(space);
}

PLIM_EXPORT size_t CGColorSpaceGetNumberOfComponents(CGColorSpaceRef space) {
    return space ? static_cast<size_t>(space->components) : 0;
}

PLIM_EXPORT CGColorSpaceModel CGColorSpaceGetModel(CGColorSpaceRef space) {
    if (!space) return kCGColorSpaceModelUnknown;
    switch (space->components) {
        case 1: return kCGColorSpaceModelMonochrome;
        case 3: return kCGColorSpaceModelRGB;
        case 4: return kCGColorSpaceModelCMYK;
        default: return kCGColorSpaceModelUnknown;
    }
}

PLIM_EXPORT int CGColorSpaceGetType(CGColorSpaceRef space) { return space ? space->type : -1; }

PLIM_EXPORT CFDataRef CGColorSpaceCopyICCProfile(CGColorSpaceRef space) {
    if (!space) return nullptr;
    return CFDataCreate(nullptr, space->icc->data(), static_cast<CFIndex>(space->icc->size()));
}

}  // extern "C"
