// The image data of plain PNG files, decoded without libpng's row machinery.
#pragma once

#include "platform/graphics/decoders/Raster.h"

#include <png.h>

namespace plim::decoders {

// For an 8-bit, non-interlaced file whose header libpng has read (png_read_info, which stops
// after the first IDAT chunk's length and type, at `offset` in the file's bytes): checks every
// IDAT chunk and the IEND after them, inflates the image data in one go, and unfilters and
// converts each row into *out while it is in cache, as the libpng path would lay it out
// (width, height, grey, alpha, pixels). Returns false, leaving no pixels in *out, for anything
// it does not take or that is not entirely well formed; libpng then decodes the file and gives
// its own verdict.
bool DecodePlainImageData(png_structp png, png_infop info, const uint8_t *data, size_t size, size_t offset,
                          Raster *out);

}  // namespace plim::decoders
