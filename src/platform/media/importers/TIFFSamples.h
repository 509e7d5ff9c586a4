// TIFF pixels read sample by sample, for the layouts whose conversion to 8-bit RGB must round
// (16-bit and floating-point samples, CMYK, 16-bit colour maps) or be done in full precision
// (CIELab). Everything else goes through libtiff's own RGBA reader.
#pragma once

#include "platform/media/ComponentInternal.h"

#include <tiffio.h>

namespace plim::media {

enum class TIFFSampleRead {
    Done,        // *out holds the pixels and the depth to report
    NotHandled,  // a layout left to libtiff's RGBA reader; nothing was read
    Failed,      // the data is broken or memory ran out
};

TIFFSampleRead ReadTIFFSamples(TIFF *tif, ImportedImage *out);

}  // namespace plim::media
