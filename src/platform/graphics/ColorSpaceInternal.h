// What the drawing engine needs to know of a colour space.
#pragma once

#include <PlimBitmapLib/platform/CGColorSpace.h>

#include <cstdint>
#include <vector>

namespace plim::graphics {

// The ICC bytes of the space's profile.
const std::vector<uint8_t> &SpaceProfile(CGColorSpaceRef space);

}  // namespace plim::graphics
