// Sample images drawn in code for `plim demo`, so the demo needs no input files.
#pragma once

#include "ToolSupport.h"

#include <cstdint>

namespace plimtool {

// Side of the square sample images, in pixels.
constexpr uint32_t kSampleSize = 96;

// Three overlapping soft-edged discs and a thin ring on a transparent background, each with
// partial alpha: premultiplied ARGB.
ImageRef CreateSampleSource();
// Diagonal colour gradients, opaque on the left and fading to fully transparent towards the
// right, so that operations which keep the source only where the destination is empty show
// something: premultiplied ARGB.
ImageRef CreateSampleDestination();
// An opaque light checkerboard (8-pixel squares) of the given size, the usual backdrop that
// makes transparency visible.
ImageRef CreateCheckerboard(uint32_t width, uint32_t height);
// An 8-bit grey vignette: white in the middle, black at the corners.
ImageRef CreateSampleMask();

}  // namespace plimtool
