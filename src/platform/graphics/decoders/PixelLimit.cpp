// The process-wide limit on the size of a decoded picture.
#include "platform/graphics/decoders/Raster.h"

#include <atomic>

namespace plim::decoders {

namespace {
std::atomic<uint64_t> gPixelLimit{kDefaultPixelLimit};
thread_local bool tLifted = false;
}

uint64_t PixelLimit() { return tLifted ? kMaxPixels : gPixelLimit.load(std::memory_order_relaxed); }

PixelLimitLifted::PixelLimitLifted() : before_(tLifted) { tLifted = true; }
PixelLimitLifted::~PixelLimitLifted() { tLifted = before_; }

void SetPixelLimit(uint64_t pixels) {
    gPixelLimit.store(pixels == 0 || pixels > kMaxPixels ? kMaxPixels : pixels, std::memory_order_relaxed);
}

}  // namespace plim::decoders
