// Shared four-character codes of the loaders and exporters.
#pragma once

#include <PlimBitmapLib/platform/MacTypes.h>

namespace plim::io {

constexpr OSType kSubtypePICT = 0x50494354;  // 'PICT'
constexpr OSType kSubtypePCT = 0x50435420;   // 'PCT '
constexpr OSType kSubtypePNG = 0x504E4766;   // 'PNGf'
constexpr OSType kSubtypeJPEG = 0x4A504547;  // 'JPEG'
constexpr OSType kSubtypeTIFF = 0x54494646;  // 'TIFF'
constexpr OSType kSubtypeWebP = 0x57454250;  // 'WEBP'

}  // namespace plim::io
