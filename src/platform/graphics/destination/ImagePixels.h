// The pixels of a rendered image as an encoder wants them: grey bytes, or A,R,G,B bytes with
// unpremultiplied colour.
#pragma once

#include <PlimBitmapLib/platform/CGImage.h>

#include <cstdint>
#include <vector>

namespace plim::graphics {

struct EncodablePixels {
    uint32_t width = 0;
    uint32_t height = 0;
    bool grey = false;   // 1 byte per pixel
    bool alpha = false;  // A,R,G,B with a real alpha channel
    std::vector<uint8_t> pixels;
    std::vector<uint8_t> icc;  // the image's colour space profile, if any

    size_t BytesPerRow() const { return static_cast<size_t>(width) * (grey ? 1 : 4); }
};

// False for layouts no encoder takes (only 8-bit grey, 1-bit grey and 32-bit 8-bit-sample
// layouts are read) or when memory runs out.
// With `unpremultiply` false, samples labelled premultiplied are taken as they are.
bool ReadEncodablePixels(CGImageRef image, EncodablePixels *out, bool unpremultiply = true);

}  // namespace plim::graphics
