#include "platform/graphics/Resample.h"

#include "platform/graphics/ResampleRows.h"

#include <algorithm>

namespace plim::graphics {
namespace {

constexpr int64_t kPositionLimit = int64_t{1} << 30;

// Whole source pixel and 7-bit weight of a 16.16 position (floor, also below zero).
int64_t PixelOf(int64_t position) { return position >> 16; }
unsigned WeightOf(int64_t position) { return static_cast<unsigned>((position >> 9) & 127); }

size_t Clamp(int64_t v, size_t size) {
    if (v < 0) return 0;
    return static_cast<uint64_t>(v) >= size ? size - 1 : static_cast<size_t>(v);
}

bool PositionsFit(int64_t start, int64_t step, size_t count) {
    if (step < 0 || step > kPositionLimit || count > static_cast<size_t>(kPositionLimit)) return false;
    const int64_t end = start + step * static_cast<int64_t>(count - 1);
    return start >= -kPositionLimit && start <= kPositionLimit && end <= kPositionLimit;
}

}  // namespace

void ReferenceBoxRow(const Pixels32 &source, const BoxGeometry &g, size_t j, size_t width,
                     uint8_t *out) {
    const size_t divisor = g.kx * g.ky;
    for (size_t i = 0; i < width; ++i)
        for (size_t c = 0; c < 4; ++c) {
            size_t sum = 0;
            for (size_t dy = 0; dy < g.ky; ++dy)
                for (size_t dx = 0; dx < g.kx; ++dx)
                    sum += source.data[(g.y + g.ky * j + dy) * source.bytesPerRow +
                                       4 * (g.x + g.kx * i + dx) + c];
            out[4 * i + c] = static_cast<uint8_t>((sum + divisor / 2) / divisor);
        }
}

void ReferenceBilinearRow(const Pixels32 &source, const BilinearGeometry &g, size_t j,
                          size_t width, uint8_t *out) {
    const int64_t y = g.y + g.dy * static_cast<int64_t>(j);
    const unsigned wy = WeightOf(y);
    const uint8_t *top = source.data + Clamp(PixelOf(y), source.height) * source.bytesPerRow;
    const uint8_t *bottom = source.data + Clamp(PixelOf(y) + 1, source.height) * source.bytesPerRow;
    for (size_t i = 0; i < width; ++i) {
        const int64_t x = g.x + g.dx * static_cast<int64_t>(i);
        const unsigned wx = WeightOf(x);
        const size_t l = 4 * Clamp(PixelOf(x), source.width), r = 4 * Clamp(PixelOf(x) + 1, source.width);
        for (size_t c = 0; c < 4; ++c) {
            const uint32_t sum = top[l + c] * (128 - wx) * (128 - wy) + top[r + c] * wx * (128 - wy) +
                                 bottom[l + c] * (128 - wx) * wy + bottom[r + c] * wx * wy;
            out[4 * i + c] = static_cast<uint8_t>(sum >> 14);
        }
    }
}

bool BoxFits(const Pixels32 &source, const BoxGeometry &g, size_t width, size_t height) {
    // Column sums of up to 257 rows fit 16 bits; block sums of up to 2^16 pixels stay below
    // 2^24, where the division is exact.
    if (width == 0 || height == 0 || g.kx == 0 || g.ky == 0 || g.ky > 257 || g.kx > 65536 ||
        g.kx * g.ky > 65536)
        return false;
    return g.x <= source.width && (source.width - g.x) / g.kx >= width && g.y <= source.height &&
           (source.height - g.y) / g.ky >= height;
}

bool BilinearFits(const Pixels32 &source, const BilinearGeometry &g, size_t width,
                  size_t height) {
    return width > 0 && height > 0 && source.width > 0 && source.height > 0 &&
           source.width <= UINT32_MAX && PositionsFit(g.x, g.dx, width) &&
           PositionsFit(g.y, g.dy, height);
}

BoxReducer::BoxReducer(const Pixels32 &source, const BoxGeometry &g, size_t width,
                       VectorLevel level)
    : source_(source), g_(g), width_(width), level_(level) {
    if (g.kx != 2 || g.ky != 2) columnSums_.resize(4 * g.kx * width);
}

void BoxReducer::Row(size_t j, uint8_t *out) {
    const ResampleRows &rows = ResampleRowsFor(level_);
    const uint8_t *first = source_.data + (g_.y + g_.ky * j) * source_.bytesPerRow + 4 * g_.x;
    if (g_.kx == 2 && g_.ky == 2) {
        rows.box2x2(first, first + source_.bytesPerRow, width_, out);
        return;
    }
    rows.sumColumns(first, source_.bytesPerRow, g_.ky, columnSums_.size(), columnSums_.data());
    rows.averageBlocks(columnSums_.data(), g_.kx, static_cast<uint32_t>(g_.kx * g_.ky), width_, out);
}

BilinearResampler::BilinearResampler(const Pixels32 &source, const BilinearGeometry &g,
                                     size_t width, VectorLevel level)
    : source_(source),
      g_(g),
      width_(width),
      level_(level),
      left_(width),
      byteWeights_(8 * width),
      shortWeights_(8 * width) {
    across_[0].resize(4 * width);
    across_[1].resize(4 * width);
    // Positions only grow, so the columns with both pixels inside the row are one run.
    const auto last = static_cast<int64_t>(source.width) - 1;
    inner0_ = inner1_ = width;
    for (size_t i = 0; i < width; ++i) {
        const int64_t x = g.x + g.dx * static_cast<int64_t>(i);
        const int64_t pixel = PixelOf(x);
        const unsigned w = WeightOf(x);
        left_[i] = static_cast<uint32_t>(Clamp(pixel, source.width));
        if (pixel >= 0 && inner0_ == width) inner0_ = i;
        if (pixel >= last && inner1_ == width) inner1_ = i;
        for (size_t c = 0; c < 4; ++c) {
            byteWeights_[8 * i + 2 * c] = static_cast<uint8_t>(127 - w);
            byteWeights_[8 * i + 2 * c + 1] = static_cast<uint8_t>(w);
            shortWeights_[8 * i + c] = static_cast<uint16_t>(128 - w);
            shortWeights_[8 * i + 4 + c] = static_cast<uint16_t>(w);
        }
    }
    inner1_ = std::max(inner0_, inner1_);
}

const uint16_t *BilinearResampler::Across(size_t sourceRow) {
    for (size_t slot = 0; slot < 2; ++slot)
        if (acrossRow_[slot] == sourceRow) {
            nextSlot_ = 1 - slot;  // keep this row while the other one is made
            return across_[slot].data();
        }
    const size_t slot = nextSlot_;
    nextSlot_ = 1 - slot;
    acrossRow_[slot] = sourceRow;
    uint16_t *across = across_[slot].data();
    const uint8_t *row = source_.data + sourceRow * source_.bytesPerRow;
    // Beyond the edges both pixels are the edge pixel, whatever the weight.
    auto edge = [&](size_t from, size_t to) {
        for (size_t i = from; i < to; ++i)
            for (size_t c = 0; c < 4; ++c) across[4 * i + c] = static_cast<uint16_t>(128 * row[4 * left_[i] + c]);
    };
    edge(0, inner0_);
    edge(inner1_, width_);
    ResampleRowsFor(level_).interpolateAcross(row, left_.data(), byteWeights_.data(), shortWeights_.data(),
                                              inner0_, inner1_, across);
    return across;
}

void BilinearResampler::Row(size_t j, uint8_t *out) {
    const int64_t y = g_.y + g_.dy * static_cast<int64_t>(j);
    const uint16_t *top = Across(Clamp(PixelOf(y), source_.height));
    const uint16_t *bottom = Across(Clamp(PixelOf(y) + 1, source_.height));
    ResampleRowsFor(level_).interpolateDown(top, bottom, WeightOf(y), width_, out);
}

}  // namespace plim::graphics
