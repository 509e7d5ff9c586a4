// The process-wide limit on the size of a decoded picture.
#include "platform/graphics/decoders/Raster.h"

#include <atomic>

namespace plim::decoders {

namespace {
std::atomic<uint64_t> gPixelLimit{kDefaultPixelLimit};
}

uint64_t PixelLimit() { return gPixelLimit.load(std::memory_order_relaxed); }

void SetPixelLimit(uint64_t pixels) {
    gPixelLimit.store(pixels == 0 || pixels > kMaxPixels ? kMaxPixels : pixels, std::memory_order_relaxed);
}

}  // namespace plim::decoders
