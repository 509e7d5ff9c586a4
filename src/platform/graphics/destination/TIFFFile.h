// The TIFF writer behind the image destination, for encoders that want the file's bytes.
#pragma once

#include <PlimBitmapLib/platform/CGImage.h>

#include <cstdint>
#include <vector>

namespace plim::graphics {

// Replaces *file with a TIFF file of the image, as CGImageDestinationFinalize writes it; false
// for layouts it does not take or when writing fails.
bool WriteTIFF(CGImageRef image, std::vector<uint8_t> *file);

}  // namespace plim::graphics
