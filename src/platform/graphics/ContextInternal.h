// The bitmap drawing context's object, shared by its creation and the drawing engine.
#pragma once

#include "platform/graphics/GraphicsTypes.h"

#include <vector>

namespace plim::graphics {

// x' = a x + c y + tx, y' = b x + d y + ty, in double so that whole-number transforms stay
// exact however many are combined.
struct Matrix {
    double a = 1, b = 0, c = 0, d = 1, tx = 0, ty = 0;
};

}  // namespace plim::graphics

struct CGContext {
    CFRuntimeBase base;
    uint8_t *data;
    bool ownsData;
    size_t width, height, bitsPerComponent, bitsPerPixel, bytesPerRow;
    CGColorSpaceRef space;  // retained; may be null for alpha-only contexts
    CGImageAlphaInfo alphaInfo;
    plim::graphics::Layout layout;
    plim::graphics::Matrix ctm;
    std::vector<plim::graphics::Matrix> *saved;  // the save stack, made on first save
};

namespace plim::graphics {

// Sets every byte of the context's memory to zero and then draws as CGContextDrawImage: what a
// fresh zero-filled bitmap shows after the draw. Memory the caller has not initialised may be
// passed; a 1:1 draw over the whole context writes it once.
void ClearAndDrawImage(CGContextRef context, CGRect rect, CGImageRef image);

}  // namespace plim::graphics
