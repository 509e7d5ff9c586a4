#include "SampleImages.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace plimtool {

namespace {

// A straight (not premultiplied) colour with components in 0...1.
struct Colour {
    double r, g, b, a;
};

// Straight-alpha source-over, used only while painting the samples.
Colour Over(const Colour &top, const Colour &bottom) {
    double a = top.a + bottom.a * (1.0 - top.a);
    if (a <= 0.0) return {0.0, 0.0, 0.0, 0.0};
    auto mix = [&](double t, double b) { return (t * top.a + b * bottom.a * (1.0 - top.a)) / a; };
    return {mix(top.r, bottom.r), mix(top.g, bottom.g), mix(top.b, bottom.b), a};
}

double Clamp01(double v) { return std::clamp(v, 0.0, 1.0); }

// 1 inside, 0 outside, with a linear ramp `soft` pixels wide centred on the edge.
double SoftStep(double distanceInside, double soft) { return Clamp01(distanceInside / soft + 0.5); }

uint8_t ToByte(double v) { return static_cast<uint8_t>(std::lround(Clamp01(v) * 255.0)); }

// Paints every pixel centre through `shade` into a premultiplied ARGB image.
template <typename Shade>
ImageRef PaintARGB(uint32_t width, uint32_t height, Shade shade) {
    std::vector<uint8_t> pixels(static_cast<size_t>(width) * height * 4);
    for (uint32_t y = 0; y < height; ++y) {
        for (uint32_t x = 0; x < width; ++x) {
            Colour c = shade(static_cast<double>(x) + 0.5, static_cast<double>(y) + 0.5);
            uint8_t *p = &pixels[(static_cast<size_t>(y) * width + x) * 4];
            double a = Clamp01(c.a);
            p[0] = ToByte(a);
            // Premultiply from the rounded alpha so that no component exceeds it.
            double storedAlpha = static_cast<double>(p[0]) / 255.0;
            p[1] = ToByte(c.r * storedAlpha);
            p[2] = ToByte(c.g * storedAlpha);
            p[3] = ToByte(c.b * storedAlpha);
        }
    }
    CGColorSpaceRef space = PlimCGColorSpaceCreateMainDisplay();
    if (space == nullptr) return ImageRef();
    ImageRef image(PlimCFImageCreateWithBuffer(nullptr, pixels.data(), width, height, 8, 32,
                                               width * 4, space, kCGImageAlphaPremultipliedFirst));
    CGColorSpaceRelease(space);
    return image;
}

struct Disc {
    double cx, cy, radius;
    Colour colour;
};

}  // namespace

ImageRef CreateSampleSource() {
    const double n = kSampleSize;
    const Disc discs[] = {
        {0.36 * n, 0.38 * n, 0.25 * n, {0.95, 0.15, 0.35, 0.90}},  // crimson
        {0.62 * n, 0.40 * n, 0.25 * n, {1.00, 0.85, 0.10, 0.75}},  // yellow
        {0.49 * n, 0.63 * n, 0.25 * n, {0.15, 0.45, 1.00, 0.80}},  // blue
    };
    const double ringRadius = 0.44 * n, ringHalfWidth = 0.035 * n;
    const Colour ringColour = {0.10, 0.80, 0.45, 0.60};
    const double soft = 0.06 * n;
    return PaintARGB(kSampleSize, kSampleSize, [&](double x, double y) {
        Colour c = {0.0, 0.0, 0.0, 0.0};
        double dr = std::hypot(x - 0.5 * n, y - 0.5 * n) - ringRadius;
        Colour ring = ringColour;
        ring.a *= SoftStep(ringHalfWidth - std::fabs(dr), 0.5 * soft);
        c = Over(ring, c);
        for (const Disc &d : discs) {
            Colour top = d.colour;
            top.a *= SoftStep(d.radius - std::hypot(x - d.cx, y - d.cy), soft);
            c = Over(top, c);
        }
        return c;
    });
}

ImageRef CreateSampleDestination() {
    const double n = kSampleSize;
    return PaintARGB(kSampleSize, kSampleSize, [&](double x, double y) {
        double t = (x + y) / (2.0 * n);    // down the main diagonal
        double u = (x - y + n) / (2.0 * n);  // across it
        // Deep blue to warm orange along one diagonal, a magenta tint along the other, and
        // diagonal bands so that blend modes show texture as well as tone.
        double band = 0.5 + 0.5 * std::sin((x - y) * 0.20);
        Colour c = {Clamp01(0.10 + 0.85 * t + 0.15 * u * band), Clamp01(0.20 + 0.55 * t - 0.25 * u),
                    Clamp01(0.75 - 0.60 * t + 0.20 * u * band), 1.0};
        // Opaque on the left, gone on the right: x from 0.55n to 0.88n fades out.
        double fade = Clamp01((0.88 * n - x) / (0.33 * n));
        c.a = fade * fade * (3.0 - 2.0 * fade);
        return c;
    });
}

ImageRef CreateCheckerboard(uint32_t width, uint32_t height) {
    const uint32_t cell = 8;
    return PaintARGB(width, height, [&](double x, double y) {
        bool dark = ((static_cast<uint32_t>(x) / cell) + (static_cast<uint32_t>(y) / cell)) % 2 != 0;
        double v = dark ? 0.78 : 0.95;
        return Colour{v, v, v, 1.0};
    });
}

ImageRef CreateSampleMask() {
    const uint32_t n = kSampleSize;
    std::vector<uint8_t> pixels(static_cast<size_t>(n) * n);
    const double centre = 0.5 * n, reach = 0.5 * std::sqrt(2.0) * n;
    for (uint32_t y = 0; y < n; ++y) {
        for (uint32_t x = 0; x < n; ++x) {
            double d = std::hypot(x + 0.5 - centre, y + 0.5 - centre) / reach;
            double v = Clamp01((1.0 - d) / 0.6);
            pixels[static_cast<size_t>(y) * n + x] = ToByte(v * v * (3.0 - 2.0 * v));
        }
    }
    CGColorSpaceRef grey = CGColorSpaceCreateWithName(kCGColorSpaceGenericGray);
    if (grey == nullptr) return ImageRef();
    ImageRef image(PlimCFImageCreateWithBuffer(nullptr, pixels.data(), n, n, 8, 8, n, grey,
                                               kCGImageAlphaNone));
    CGColorSpaceRelease(grey);
    return image;
}

}  // namespace plimtool
