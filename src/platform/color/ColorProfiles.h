// The colour management engine behind colour spaces and profiles: the built-in profiles, opened
// profiles, and cached conversions between two profiles.
#pragma once

#include <PlimBitmapLib/platform/ColorSync.h>

#include <lcms2.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

// A profile opened by CMOpenProfile or CMGetSystemProfile.
struct OpaqueCMProfileRef {
    std::vector<uint8_t> bytes;
    cmsHPROFILE handle = nullptr;
};

namespace plim::color {

// The engine's context; it reports no errors of its own (failures are seen as null results).
cmsContext Context();

// ICC bytes of the display profile (sRGB) and of generic grey (D65 white, sRGB tone curve).
const std::vector<uint8_t> &SRGBProfileBytes();
const std::vector<uint8_t> &GreyProfileBytes();

// Colour model of a profile's data: 1 grey, 3 RGB, 4 CMYK; 0 for anything else.
int ProfileComponents(cmsHPROFILE profile);

// Opens ICC bytes; null when they are not a usable grey, RGB or CMYK profile.
cmsHPROFILE OpenProfileBytes(const void *bytes, size_t size);

// Whether ICC bytes describe sRGB: an RGB profile whose colours all come out within one step of
// the same values in the display profile, however its bytes are laid out.
bool ProfileDescribesSRGB(const std::vector<uint8_t> &icc);

// A conversion from one profile to another for the given engine pixel formats, created on
// first use and kept for the life of the process. Null when the engine cannot build it.
// Alpha (extra channels) is copied when copyAlpha is set. Safe to run from several threads.
using Transform = std::shared_ptr<void>;
Transform CachedTransform(const std::vector<uint8_t> &from, const std::vector<uint8_t> &to,
                          cmsUInt32Number inFormat, cmsUInt32Number outFormat, bool copyAlpha);

}  // namespace plim::color
