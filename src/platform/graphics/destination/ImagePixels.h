// The pixels of a rendered image as an encoder wants them: grey bytes, or colour with
// unpremultiplied samples, row by row or all at once.
#pragma once

#include <PlimBitmapLib/platform/CGImage.h>

#include <cstdint>
#include <vector>

namespace plim::graphics {

// Orders of colour samples an encoder may ask for.
enum class SampleOrder { RGB, RGBA, ARGB };

// Reads a rendered image's rows one at a time, straight from its bytes. Only 8-bit grey, 1-bit
// grey and 32-bit layouts of 8-bit samples are taken. Colour labelled premultiplied is
// unpremultiplied (round(C * 255 / A), at most 255; 0 where A is 0) unless asked not to.
class EncodableRows {
public:
    // False for layouts no encoder takes, or when memory runs out.
    bool Open(CGImageRef image, bool unpremultiply = true);

    uint32_t width = 0;
    uint32_t height = 0;
    bool grey = false;   // one byte per pixel
    bool alpha = false;  // colour with a real alpha channel
    std::vector<uint8_t> icc;  // the image's colour space profile, if any

    // Row y: grey as bytes (1-bit expanded to 0 and 255), colour in `order` (alpha 255 where the
    // image has none).
    void Read(size_t y, SampleOrder order, uint8_t *out) const;

    // Row y's own bytes when a reader may take them as they are, colour with a byte before (or
    // after, with *alphaLast) the three samples that it must skip: grey of 8 bits, or colour
    // that needs no unpremultiplying. Null otherwise.
    const uint8_t *OwnRow(size_t y, bool *alphaLast) const;

private:
    const uint8_t *data_ = nullptr;
    size_t bytesPerRow_ = 0;
    bool oneBit_ = false;
    bool alphaFirst_ = false;
    bool premultiplied_ = false;  // samples to unpremultiply
    mutable std::vector<uint8_t> straight_;  // a row unpremultiplied, before it is reordered
};

struct EncodablePixels {
    uint32_t width = 0;
    uint32_t height = 0;
    bool grey = false;   // 1 byte per pixel
    bool alpha = false;  // A,R,G,B with a real alpha channel
    std::vector<uint8_t> pixels;
    std::vector<uint8_t> icc;  // the image's colour space profile, if any

    size_t BytesPerRow() const { return static_cast<size_t>(width) * (grey ? 1 : 4); }
};

// The whole picture as grey bytes or A,R,G,B rows (EncodableRows). False for layouts no encoder
// takes or when memory runs out. With `unpremultiply` false, samples labelled premultiplied are
// taken as they are.
bool ReadEncodablePixels(CGImageRef image, EncodablePixels *out, bool unpremultiply = true);

}  // namespace plim::graphics
