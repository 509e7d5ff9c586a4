// CGContextDrawImage: reads the image into premultiplied words (converting colour where the two
// spaces differ), resamples unless the mapping is whole-pixel 1:1 (with the engine's own filters
// where they apply, Resample.h, and pixman otherwise), and draws the words source-over into the
// bitmap.
#include "platform/color/ColorProfiles.h"
#include "platform/graphics/ColorSpaceInternal.h"
#include "platform/graphics/ContextInternal.h"
#include "platform/graphics/PixelRows.h"
#include "platform/graphics/Resample.h"

#include <pixman.h>

#include <algorithm>
#include <bit>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

namespace {

using namespace plim::graphics;

constexpr cmsUInt32Number kWordFormat =
    std::endian::native == std::endian::little ? TYPE_BGRA_8 : TYPE_ARGB_8;

size_t BytesPerPixel(Layout layout) {
    switch (layout) {
        case Layout::Grey1: return 0;
        case Layout::Grey8:
        case Layout::Alpha8: return 1;
        case Layout::GreyAlpha: return 2;
        case Layout::RGB24: return 3;
        case Layout::RGB32: return 4;
    }
    return 0;
}

bool AlphaFirst(CGImageAlphaInfo a) {
    return a == kCGImageAlphaPremultipliedFirst || a == kCGImageAlphaFirst ||
           a == kCGImageAlphaNoneSkipFirst;
}

bool Premultiplied(CGImageAlphaInfo a) {
    return a == kCGImageAlphaPremultipliedFirst || a == kCGImageAlphaPremultipliedLast;
}

bool RealAlpha(CGImageAlphaInfo a) {
    return a >= kCGImageAlphaPremultipliedLast && a <= kCGImageAlphaFirst;
}

// The colour engine's description of a source layout.
cmsUInt32Number EngineFormat(Layout layout, CGImageAlphaInfo alpha) {
    cmsUInt32Number f = 0;
    switch (layout) {
        case Layout::Grey1:
        case Layout::Grey8: return TYPE_GRAY_8;
        case Layout::RGB24: return TYPE_RGB_8;
        case Layout::GreyAlpha: f = TYPE_GRAYA_8; break;
        case Layout::RGB32: f = TYPE_RGBA_8; break;
        case Layout::Alpha8: return 0;
    }
    // Premultiplied rows are given to the engine unpremultiplied (see SourceReader::Read).
    if (AlphaFirst(alpha)) f |= SWAPFIRST_SH(1);
    return f;
}

// Straight colour from premultiplied pixels of `size` bytes with alpha at byte `alphaAt`.
void Unpremultiply(uint8_t *p, size_t n, size_t size, size_t alphaAt) {
    for (size_t i = 0; i < n; ++i, p += size) {
        unsigned a = p[alphaAt];
        for (size_t c = 0; c < size; ++c) {
            if (c == alphaAt) continue;
            p[c] = a == 0 ? 0 : static_cast<uint8_t>(std::min(255u, (p[c] * 255u + a / 2) / a));
        }
    }
}

// Reads rows of a rendered image as premultiplied words in the destination's colours.
class SourceReader {
public:
    bool Init(CGImageRef image, const CGContext *dest) {
        image_ = image;
        alpha_ = image->alphaInfo;
        if (!ImageLayout(image->bitsPerComponent, image->bitsPerPixel, image->space, alpha_,
                         &layout_)) {
            return false;
        }
        // Without alpha, a pixel wider than its samples ends in padding.
        if (alpha_ == kCGImageAlphaNone &&
            (layout_ == Layout::RGB32 || layout_ == Layout::GreyAlpha)) {
            alpha_ = kCGImageAlphaNoneSkipLast;
        }
        fetch_ = FetchFor(layout_, alpha_);
        if (!fetch_) return false;
        // Colour goes through the engine only between spaces outside the sRGB family; grey
        // and alpha-only destinations take sRGB colour.
        bool colourMatters =
            layout_ != Layout::Alpha8 && dest->layout != Layout::Alpha8 && image->space != nullptr;
        if (colourMatters) {
            bool destRGB = dest->layout == Layout::RGB32;
            bool targetFamily = destRGB ? dest->space->srgbFamily : true;
            if (!(image->space->srgbFamily && targetFamily)) {
                const auto &target =
                    destRGB ? SpaceProfile(dest->space) : plim::color::SRGBProfileBytes();
                copyAlpha_ = RealAlpha(alpha_);
                transform_ = plim::color::CachedTransform(SpaceProfile(image->space), target,
                                                          EngineFormat(layout_, alpha_),
                                                          kWordFormat, copyAlpha_);
                // Without a conversion the colours are drawn as they are.
                if (transform_ && layout_ == Layout::Grey1) scratch_.resize(image->width);
                if (transform_ && Premultiplied(alpha_))
                    scratch_.resize(image->width * BytesPerPixel(layout_));
            }
        }
        return true;
    }

    void Read(size_t row, size_t x, size_t n, uint32_t *out) {
        const uint8_t *src = ImageData(image_) + row * image_->bytesPerRow;
        if (!transform_) {
            fetch_(src, x, n, out);
            return;
        }
        const size_t size = BytesPerPixel(layout_);
        if (layout_ == Layout::Grey1) {
            ExpandGrey1(src, x, n, scratch_.data());
            src = scratch_.data();
        } else if (Premultiplied(alpha_)) {
            std::copy(src + x * size, src + (x + n) * size, scratch_.data());
            Unpremultiply(scratch_.data(), n, size, AlphaFirst(alpha_) ? 0 : size - 1);
            src = scratch_.data();
        } else {
            src += x * size;
        }
        std::fill(out, out + n, 0xFF000000u);
        cmsDoTransform(transform_.get(), src, out, static_cast<cmsUInt32Number>(n));
        if (copyAlpha_) PremultiplyWords(out, n);
    }

    bool Converts() const { return transform_ != nullptr; }
    Layout layout() const { return layout_; }
    CGImageAlphaInfo alpha() const { return alpha_; }

private:
    CGImageRef image_ = nullptr;
    Layout layout_ = Layout::Grey8;
    CGImageAlphaInfo alpha_ = kCGImageAlphaNone;
    FetchRow fetch_ = nullptr;
    plim::color::Transform transform_;
    bool copyAlpha_ = false;
    std::vector<uint8_t> scratch_;  // a row expanded or unpremultiplied for the engine
};

// The part of the destination to paint: pixels [c0, c1) x rows [r0, r1) (rows top first), and
// how a pixel centre maps to a source position.
struct Mapping {
    long c0, c1, r0, r1;
    double X0, X1, Y0, Y1;  // device rectangle, y upward
    bool flipX, flipY;
    double kx, ky;  // source pixels per destination pixel
};

long ClampToRange(double v, long lo, long hi) {
    if (!(v > static_cast<double>(lo))) return lo;  // also NaN
    if (v > static_cast<double>(hi)) return hi;
    return static_cast<long>(v);
}

bool MapRect(const CGContext *ctx, CGRect rect, CGImageRef image, Mapping *m) {
    const Matrix &t = ctx->ctm;
    if (t.b != 0 || t.c != 0) return false;  // only axis-aligned transforms are drawn
    CGRect r = CGRectStandardize(rect);
    if (CGRectIsNull(r) || r.size.width == 0 || r.size.height == 0) return false;
    double x0 = t.a * r.origin.x + t.tx;
    double x1 = t.a * (static_cast<double>(r.origin.x) + r.size.width) + t.tx;
    double y0 = t.d * r.origin.y + t.ty;
    double y1 = t.d * (static_cast<double>(r.origin.y) + r.size.height) + t.ty;
    m->flipX = x1 < x0;
    m->flipY = y1 < y0;
    m->X0 = std::min(x0, x1);
    m->X1 = std::max(x0, x1);
    m->Y0 = std::min(y0, y1);
    m->Y1 = std::max(y0, y1);
    if (!(m->X1 > m->X0) || !(m->Y1 > m->Y0) || !std::isfinite(m->X1 - m->X0) ||
        !std::isfinite(m->Y1 - m->Y0)) {
        return false;
    }
    const long W = static_cast<long>(ctx->width), H = static_cast<long>(ctx->height);
    // Pixel (c, r) has its centre at device (c + 0.5, H - r - 0.5); it is painted when the
    // centre lies in [X0, X1) x [Y0, Y1).
    m->c0 = ClampToRange(std::ceil(m->X0 - 0.5), 0, W);
    m->c1 = ClampToRange(std::ceil(m->X1 - 0.5), 0, W);
    m->r0 = ClampToRange(std::floor(static_cast<double>(H) - 0.5 - m->Y1) + 1, 0, H);
    m->r1 = ClampToRange(std::floor(static_cast<double>(H) - 0.5 - m->Y0) + 1, 0, H);
    m->kx = static_cast<double>(image->width) / (m->X1 - m->X0);
    m->ky = static_cast<double>(image->height) / (m->Y1 - m->Y0);
    return m->c0 < m->c1 && m->r0 < m->r1;
}

// With `clearRows`, each destination row is set to zero just before it is drawn (the mapping
// then covers whole rows).
void DrawExact(CGContext *ctx, CGImageRef image, const Mapping &m, SourceReader &reader,
               BlendRow blend, std::vector<uint32_t> &words, bool clearRows) {
    const long H = static_cast<long>(ctx->height);
    const long X0 = static_cast<long>(m.X0), Y0 = static_cast<long>(m.Y0);
    const long Y1 = static_cast<long>(m.Y1);
    const size_t n = static_cast<size_t>(m.c1 - m.c0);
    const size_t dstPixel = ctx->layout == Layout::RGB32 ? 4 : 1;
    ConvertRow convert = reader.Converts() ? nullptr
                                           : ConvertFor(reader.layout(), reader.alpha(),
                                                        ctx->layout, ctx->alphaInfo, clearRows);
    // A row that writes every pixel as onto zero leaves only the row's padding to clear.
    const size_t pixelBytes = convert && clearRows ? n * dstPixel : 0;
    for (long r = m.r0; r < m.r1; ++r) {
        long srcRow = m.flipY ? H - 1 - r - Y0 : r + Y1 - H;
        uint8_t *dst = ctx->data + static_cast<size_t>(r) * ctx->bytesPerRow +
                       static_cast<size_t>(m.c0) * dstPixel;
        if (clearRows) {
            uint8_t *row = ctx->data + static_cast<size_t>(r) * ctx->bytesPerRow;
            std::memset(row + pixelBytes, 0, ctx->bytesPerRow - pixelBytes);
        }
        if (convert) {
            convert(ImageData(image) + static_cast<size_t>(srcRow) * image->bytesPerRow,
                    static_cast<size_t>(m.c0 - X0), n, dst);
            continue;
        }
        reader.Read(static_cast<size_t>(srcRow), static_cast<size_t>(m.c0 - X0), n, words.data());
        blend(words.data(), n, dst);
    }
}

struct PixmanImageDeleter {
    void operator()(pixman_image_t *image) const { pixman_image_unref(image); }
};
using PixmanImage = std::unique_ptr<pixman_image_t, PixmanImageDeleter>;

struct FreeDeleter {
    void operator()(void *p) const { std::free(p); }
};

// The whole source as premultiplied 32-bit pixels: the image's own bytes where they already are
// (in the destination's colours), else the pixels converted into `storage` as a8r8g8b8 words.
struct SourceWords {
    Pixels32 pixels;
    pixman_format_code_t format;
    bool own;  // the image's bytes, in the reader's layout
};

bool ReadSourceWords(CGImageRef image, SourceReader &reader,
                     std::unique_ptr<uint32_t, FreeDeleter> &storage, SourceWords *words) {
    if (image->width > INT_MAX / 4 || image->height > INT_MAX) return false;
    const uint8_t *data = ImageData(image);
    if (std::endian::native == std::endian::little && !reader.Converts() &&
        reader.layout() == Layout::RGB32 && image->bytesPerRow % 4 == 0 &&
        image->bytesPerRow <= INT_MAX && reinterpret_cast<uintptr_t>(data) % 4 == 0) {
        pixman_format_code_t format = PIXMAN_a8r8g8b8;
        switch (reader.alpha()) {
            case kCGImageAlphaPremultipliedFirst: format = PIXMAN_b8g8r8a8; break;
            case kCGImageAlphaPremultipliedLast: format = PIXMAN_a8b8g8r8; break;
            case kCGImageAlphaNoneSkipFirst: format = PIXMAN_b8g8r8x8; break;
            case kCGImageAlphaNoneSkipLast: format = PIXMAN_x8b8g8r8; break;
            default: format = PIXMAN_a8r8g8b8; break;
        }
        if (format != PIXMAN_a8r8g8b8) {
            *words = {{data, image->bytesPerRow, image->width, image->height}, format, true};
            return true;
        }
    }
    size_t count = image->width * image->height;  // below 2^32 by the image's limits
    storage.reset(static_cast<uint32_t *>(std::malloc(count * sizeof(uint32_t))));
    if (!storage) return false;
    for (size_t row = 0; row < image->height; ++row)
        reader.Read(row, 0, image->width, storage.get() + row * image->width);
    *words = {{reinterpret_cast<const uint8_t *>(storage.get()), image->width * 4, image->width,
               image->height},
              PIXMAN_a8r8g8b8,
              false};
    return true;
}

PixmanImage SourceImage(const SourceWords &words) {
    // pixman only reads the source.
    return PixmanImage(pixman_image_create_bits(
        words.format, static_cast<int>(words.pixels.width), static_cast<int>(words.pixels.height),
        reinterpret_cast<uint32_t *>(const_cast<uint8_t *>(words.pixels.data)),
        static_cast<int>(words.pixels.bytesPerRow)));
}

// Reducing by a whole factor, the destination pixel's box covers whole source pixels, which
// are averaged with equal weights (point samples, so no stray weight reaches the neighbours
// and edge padding). Other reductions weigh each source pixel by its overlap with the box.
pixman_kernel_t Reconstruct(double k) {
    if (k > 1) return k == std::floor(k) ? PIXMAN_KERNEL_IMPULSE : PIXMAN_KERNEL_BOX;
    return k < 1 ? PIXMAN_KERNEL_LINEAR : PIXMAN_KERNEL_BOX;
}

pixman_kernel_t Sample(double k) { return k > 1 ? PIXMAN_KERNEL_BOX : PIXMAN_KERNEL_IMPULSE; }

bool WholePixels(const Mapping &m, double ox, double oy) {
    return m.kx == 1 && m.ky == 1 && ox == std::floor(ox) && oy == std::floor(oy);
}

bool SetFilter(pixman_image_t *src, const Mapping &m, bool interpolate, double ox, double oy) {
    if (WholePixels(m, ox, oy) || !interpolate) {
        return pixman_image_set_filter(src, PIXMAN_FILTER_NEAREST, nullptr, 0);
    }
    if (m.kx <= 1 && m.ky <= 1) {
        return pixman_image_set_filter(src, PIXMAN_FILTER_BILINEAR, nullptr, 0);
    }
    // Reduction along at least one axis: area averaging there (a box pixel convolved with the
    // box footprint of a destination pixel), linear along an enlarged axis.
    int n = 0;
    pixman_fixed_t *params = pixman_filter_create_separable_convolution(
        &n, pixman_double_to_fixed(m.kx), pixman_double_to_fixed(m.ky), Reconstruct(m.kx),
        Reconstruct(m.ky), Sample(m.kx), Sample(m.ky), 4, 4);
    if (!params) return false;
    bool ok = pixman_image_set_filter(src, PIXMAN_FILTER_SEPARABLE_CONVOLUTION, params, n);
    std::free(params);
    return ok;
}

// Destination pixel (i, j) of the painted area, centre (i + 0.5, j + 0.5), samples the source
// at u = sx (i + 0.5) + ox, v = sy (j + 0.5) + oy.
struct SourceMap {
    double sx, ox, sy, oy;
};

SourceMap MapToSource(const CGContext *ctx, const Mapping &m) {
    const double H = static_cast<double>(ctx->height);
    SourceMap s;
    s.sx = m.flipX ? -m.kx : m.kx;
    s.ox = m.flipX ? m.kx * (m.X1 - static_cast<double>(m.c0))
                   : m.kx * (static_cast<double>(m.c0) - m.X0);
    s.sy = m.flipY ? -m.ky : m.ky;
    s.oy = m.flipY ? m.ky * (H - static_cast<double>(m.r0) - m.Y0)
                   : m.ky * (static_cast<double>(m.r0) + m.Y1 - H);
    return s;
}

size_t SourceIndex(double position, size_t size) {
    double f = std::floor(position);
    if (!(f > 0)) return 0;
    return f >= static_cast<double>(size) ? size - 1 : static_cast<size_t>(f);
}

// Nearest-neighbour drawing without pixman, for pictures past pixman's 16-bit coordinates.
void DrawNearest(CGContext *ctx, const Mapping &m, CGImageRef image, SourceReader &reader,
                 BlendRow blend) {
    const SourceMap s = MapToSource(ctx, m);
    const size_t cw = static_cast<size_t>(m.c1 - m.c0);
    const size_t dstPixel = ctx->layout == Layout::RGB32 ? 4 : 1;
    std::vector<uint32_t> source(image->width), out(cw);
    size_t loaded = SIZE_MAX;
    for (long r = m.r0; r < m.r1; ++r) {
        size_t row =
            SourceIndex(s.sy * (static_cast<double>(r - m.r0) + 0.5) + s.oy, image->height);
        if (row != loaded) {
            reader.Read(row, 0, image->width, source.data());
            loaded = row;
        }
        for (size_t i = 0; i < cw; ++i)
            out[i] =
                source[SourceIndex(s.sx * (static_cast<double>(i) + 0.5) + s.ox, image->width)];
        blend(out.data(), cw,
              ctx->data + static_cast<size_t>(r) * ctx->bytesPerRow +
                  static_cast<size_t>(m.c0) * dstPixel);
    }
}

// Draws rows [r0, r1) of the painted area from `filter` (any type with Row(j, out)), each row
// read in the layout of the source words and drawn like a 1:1 row of them.
template <typename Filter>
void DrawFilteredRows(CGContext *ctx, const Mapping &m, Filter &filter, const SourceWords &words,
                      const SourceReader &reader, BlendRow blend) {
    const size_t cw = static_cast<size_t>(m.c1 - m.c0);
    const size_t dstPixel = ctx->layout == Layout::RGB32 ? 4 : 1;
    std::vector<uint32_t> row(cw), fetched;
    ConvertRow convert =
        words.own ? ConvertFor(reader.layout(), reader.alpha(), ctx->layout, ctx->alphaInfo) : nullptr;
    FetchRow fetch = words.own && !convert ? FetchFor(reader.layout(), reader.alpha()) : nullptr;
    if (fetch) fetched.resize(cw);
    auto *bytes = reinterpret_cast<uint8_t *>(row.data());
    for (long r = m.r0; r < m.r1; ++r) {
        filter.Row(static_cast<size_t>(r - m.r0), bytes);
        uint8_t *dst = ctx->data + static_cast<size_t>(r) * ctx->bytesPerRow +
                       static_cast<size_t>(m.c0) * dstPixel;
        if (convert) {
            convert(bytes, 0, cw, dst);
        } else if (fetch) {
            fetch(bytes, 0, cw, fetched.data());
            blend(fetched.data(), cw, dst);
        } else {
            blend(row.data(), cw, dst);
        }
    }
}

// pixman's 16.16 value of a transform entry, or false when it has none.
bool Fixed(double v, int64_t *fixed) {
    const double scaled = v * 65536.0;
    if (!(scaled > -2147483648.0 && scaled < 2147483648.0)) return false;
    *fixed = static_cast<int32_t>(scaled);
    return true;
}

// The position pixman's bilinear filter samples for destination pixel 0 of a row or column,
// measured from the centre of source pixel 0: the transformed centre, rounded as pixman rounds
// it, less half a pixel.
int64_t FirstBilinearPosition(int64_t scale, int64_t offset) {
    return offset + ((scale * 0x8000 + 0x8000) >> 16) - 0x8000;
}

// The engine's own filters where they apply: area averaging when reducing by whole factors
// from whole-pixel positions, and bilinear interpolation where pixman would interpolate. False
// when pixman is to draw.
bool DrawWithOwnFilters(CGContext *ctx, const Mapping &m, const SourceMap &s, const SourceWords &words,
                        const SourceReader &reader, BlendRow blend, bool interpolate) {
    if (!interpolate || m.flipX || m.flipY || WholePixels(m, s.ox, s.oy)) return false;
    const auto cw = static_cast<size_t>(m.c1 - m.c0), rows = static_cast<size_t>(m.r1 - m.r0);
    if (m.kx <= 1 && m.ky <= 1) {
        int64_t sx, ox, sy, oy;
        if (!Fixed(s.sx, &sx) || !Fixed(s.ox, &ox) || !Fixed(s.sy, &sy) || !Fixed(s.oy, &oy)) return false;
        const BilinearGeometry g{FirstBilinearPosition(sx, ox), sx, FirstBilinearPosition(sy, oy), sy};
        if (!BilinearFits(words.pixels, g, cw, rows)) return false;
        BilinearResampler filter(words.pixels, g, cw);
        DrawFilteredRows(ctx, m, filter, words, reader, blend);
        return true;
    }
    auto whole = [](double v) { return v >= 0 && v < 1e9 && v == std::floor(v); };
    if (!whole(m.kx) || !whole(m.ky) || !whole(s.ox) || !whole(s.oy)) return false;
    const BoxGeometry g{static_cast<size_t>(m.kx), static_cast<size_t>(m.ky), static_cast<size_t>(s.ox),
                        static_cast<size_t>(s.oy)};
    if (!BoxFits(words.pixels, g, cw, rows)) return false;
    BoxReducer filter(words.pixels, g, cw);
    DrawFilteredRows(ctx, m, filter, words, reader, blend);
    return true;
}

void DrawResampled(CGContext *ctx, const Mapping &m, CGImageRef image, SourceReader &reader,
                   BlendRow blend) {
    constexpr size_t kPixmanLimit = 32767;
    if (image->width > kPixmanLimit || image->height > kPixmanLimit || ctx->width > kPixmanLimit ||
        ctx->height > kPixmanLimit) {
        DrawNearest(ctx, m, image, reader, blend);
        return;
    }
    std::unique_ptr<uint32_t, FreeDeleter> storage;
    SourceWords words;
    if (!ReadSourceWords(image, reader, storage, &words)) return;
    const SourceMap map = MapToSource(ctx, m);
    if (DrawWithOwnFilters(ctx, m, map, words, reader, blend, image->shouldInterpolate)) return;
    PixmanImage src = SourceImage(words);
    if (!src) return;
    const auto [sx, ox, sy, oy] = map;
    pixman_transform_t transform;
    pixman_transform_init_identity(&transform);
    transform.matrix[0][0] = pixman_double_to_fixed(sx);
    transform.matrix[0][2] = pixman_double_to_fixed(ox);
    transform.matrix[1][1] = pixman_double_to_fixed(sy);
    transform.matrix[1][2] = pixman_double_to_fixed(oy);
    if (!pixman_image_set_transform(src.get(), &transform)) return;
    if (!SetFilter(src.get(), m, image->shouldInterpolate, ox, oy)) return;
    pixman_image_set_repeat(src.get(), PIXMAN_REPEAT_PAD);

    // Painted in bands of rows through a scratch image, then blended into the bitmap.
    const int cw = static_cast<int>(m.c1 - m.c0);
    constexpr int kBand = 32;
    std::unique_ptr<uint32_t, FreeDeleter> band(
        static_cast<uint32_t *>(std::malloc(static_cast<size_t>(cw) * kBand * sizeof(uint32_t))));
    if (!band) return;
    PixmanImage scratch(pixman_image_create_bits(PIXMAN_a8r8g8b8, cw, kBand, band.get(), cw * 4));
    if (!scratch) return;
    const size_t dstPixel = ctx->layout == Layout::RGB32 ? 4 : 1;
    for (long r = m.r0; r < m.r1; r += kBand) {
        int rows = static_cast<int>(std::min<long>(kBand, m.r1 - r));
        pixman_image_composite32(PIXMAN_OP_SRC, src.get(), nullptr, scratch.get(), 0,
                                 static_cast<int>(r - m.r0), 0, 0, 0, 0, cw, rows);
        for (int j = 0; j < rows; ++j) {
            blend(band.get() + static_cast<size_t>(j) * static_cast<size_t>(cw),
                  static_cast<size_t>(cw),
                  ctx->data + static_cast<size_t>(r + j) * ctx->bytesPerRow +
                      static_cast<size_t>(m.c0) * dstPixel);
        }
    }
}

// CGContextDrawImage, and with `clearFirst` the same onto a context first set to zero. A 1:1
// draw over the whole context then clears each row just before drawing it, so that the memory
// is written once, while it is in cache.
void Draw(CGContextRef context, CGRect rect, CGImageRef image, bool clearFirst) {
    bool cleared = !clearFirst;
    auto clearAll = [&] {
        if (!cleared) std::memset(context->data, 0, context->bytesPerRow * context->height);
        cleared = true;
    };
    Mapping m;
    BlendRow blend = BlendFor(context->layout, context->alphaInfo);
    if (!image || !blend || !MapRect(context, rect, image, &m) || !ImagePixelsReady(image)) {
        clearAll();
        return;
    }
    try {
        // The reader may build (and cache) a colour conversion: memory for it can run out too.
        SourceReader reader;
        if (!reader.Init(image, context)) {
            clearAll();
            return;
        }
        bool exact = m.kx == 1 && m.ky == 1 && !m.flipX && m.X0 == std::floor(m.X0) &&
                     m.Y0 == std::floor(m.Y0);
        if (exact) {
            std::vector<uint32_t> words(static_cast<size_t>(m.c1 - m.c0));
            const bool wholeRows = m.c0 == 0 && static_cast<size_t>(m.c1) == context->width &&
                                   m.r0 == 0 && static_cast<size_t>(m.r1) == context->height;
            if (wholeRows) cleared = true;
            clearAll();
            DrawExact(context, image, m, reader, blend, words, clearFirst && wholeRows);
        } else {
            clearAll();
            DrawResampled(context, m, image, reader, blend);
        }
    } catch (...) {
        // Out of memory: nothing more is drawn.
        clearAll();
    }
}

}  // namespace

namespace plim::graphics {

void ClearAndDrawImage(CGContextRef context, CGRect rect, CGImageRef image) {
    if (context) Draw(context, rect, image, true);
}

}  // namespace plim::graphics

extern "C" {

PLIM_EXPORT void CGContextDrawImage(CGContextRef context, CGRect rect, CGImageRef image) {
    if (context && image) Draw(context, rect, image, false);
}

}  // extern "C"
