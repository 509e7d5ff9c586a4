// Crop and flip with a choice of path, so that tests can hold the row-copying fast paths
// against the graphics layer's drawing.
#pragma once

#include <PlimBitmapLib/PlimCFImage.h>

namespace plim::pixel {

// copyRows false always draws through the graphics layer.
void CropToRect(PlimCFImage image, CGRect rect, bool copyRows);
void FlipVertically(PlimCFImage image, bool copyRows);

}  // namespace plim::pixel
