// pixman scaling a premultiplied picture with its bilinear filter: the peer of the library's
// scaling. pixman's own word format (a8r8g8b8) takes its fastest paths.
#pragma once

#include <pixman.h>

#include <cstdint>

namespace plim::bench {

class PixmanBilinearScale {
public:
    PixmanBilinearScale(const uint8_t *pixels, int width, int height, int newWidth, int newHeight)
        : newWidth_(newWidth), newHeight_(newHeight) {
        source_ = pixman_image_create_bits(PIXMAN_a8r8g8b8, width, height,
                                           reinterpret_cast<uint32_t *>(const_cast<uint8_t *>(pixels)), width * 4);
        pixman_transform_t t;
        pixman_transform_init_scale(&t, pixman_double_to_fixed(static_cast<double>(width) / newWidth),
                                    pixman_double_to_fixed(static_cast<double>(height) / newHeight));
        pixman_image_set_transform(source_, &t);
        pixman_image_set_filter(source_, PIXMAN_FILTER_BILINEAR, nullptr, 0);
        pixman_image_set_repeat(source_, PIXMAN_REPEAT_PAD);
    }
    ~PixmanBilinearScale() { pixman_image_unref(source_); }
    PixmanBilinearScale(const PixmanBilinearScale &) = delete;
    PixmanBilinearScale &operator=(const PixmanBilinearScale &) = delete;

    // Scales into newWidth x newHeight words with rows of newWidth * 4 bytes.
    void Into(uint32_t *out) const {
        pixman_image_t *dest = pixman_image_create_bits(PIXMAN_a8r8g8b8, newWidth_, newHeight_, out, newWidth_ * 4);
        pixman_image_composite32(PIXMAN_OP_SRC, source_, nullptr, dest, 0, 0, 0, 0, 0, 0, newWidth_, newHeight_);
        pixman_image_unref(dest);
    }

private:
    pixman_image_t *source_;
    int newWidth_, newHeight_;
};

}  // namespace plim::bench
