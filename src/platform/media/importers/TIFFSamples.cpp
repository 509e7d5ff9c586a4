// TIFF sample reader: every strip or tile of every plane is decoded by libtiff, its samples are
// gathered per pixel at 16 bits, and each pixel is converted once to 8-bit A,R,G,B with rounding.
#include "platform/media/importers/TIFFSamples.h"

#include <lcms2.h>

#include <cmath>
#include <cstring>
#include <new>
#include <vector>

namespace plim::media {

namespace {

struct Layout {
    uint32_t width = 0, height = 0;
    uint16_t bits = 0, samples = 0, photometric = 0, planar = PLANARCONFIG_CONTIG;
    uint16_t format = SAMPLEFORMAT_UINT;
    uint16_t colours = 0;  // colour samples per pixel before the extra ones
    bool alpha = false;
    bool associated = false;  // colour already multiplied by alpha
};

bool Grey(const Layout &l) {
    return l.photometric == PHOTOMETRIC_MINISBLACK || l.photometric == PHOTOMETRIC_MINISWHITE;
}
bool Lab(const Layout &l) {
    return l.photometric == PHOTOMETRIC_CIELAB || l.photometric == PHOTOMETRIC_ICCLAB;
}

// Whether this reader takes the layout; fills in what it needs.
bool Describe(TIFF *tif, Layout *l) {
    uint16_t inkset = INKSET_CMYK, extraCount = 0;
    uint16_t *extra = nullptr;
    if (!TIFFGetField(tif, TIFFTAG_IMAGEWIDTH, &l->width) ||
        !TIFFGetField(tif, TIFFTAG_IMAGELENGTH, &l->height) ||
        !TIFFGetField(tif, TIFFTAG_PHOTOMETRIC, &l->photometric))
        return false;
    TIFFGetFieldDefaulted(tif, TIFFTAG_BITSPERSAMPLE, &l->bits);
    TIFFGetFieldDefaulted(tif, TIFFTAG_SAMPLESPERPIXEL, &l->samples);
    TIFFGetFieldDefaulted(tif, TIFFTAG_PLANARCONFIG, &l->planar);
    TIFFGetFieldDefaulted(tif, TIFFTAG_SAMPLEFORMAT, &l->format);
    TIFFGetFieldDefaulted(tif, TIFFTAG_INKSET, &inkset);
    TIFFGetFieldDefaulted(tif, TIFFTAG_EXTRASAMPLES, &extraCount, &extra);
    switch (l->photometric) {
        case PHOTOMETRIC_MINISBLACK:
        case PHOTOMETRIC_MINISWHITE:
        case PHOTOMETRIC_PALETTE: l->colours = 1; break;
        case PHOTOMETRIC_RGB:
        case PHOTOMETRIC_CIELAB:
        case PHOTOMETRIC_ICCLAB: l->colours = 3; break;
        case PHOTOMETRIC_SEPARATED: l->colours = inkset == INKSET_CMYK ? 4 : 0; break;
        default: return false;
    }
    if (l->colours == 0 || l->samples < l->colours || l->samples > 8) return false;
    bool lowBits = l->bits == 1 || l->bits == 2 || l->bits == 4;
    if (l->format == SAMPLEFORMAT_IEEEFP) {
        if (l->bits != 32 || l->photometric == PHOTOMETRIC_PALETTE || Lab(*l)) return false;
    } else if (l->format != SAMPLEFORMAT_UINT && !(l->format == SAMPLEFORMAT_INT && Lab(*l))) {
        return false;
    } else if (l->bits != 8 && l->bits != 16 && !(lowBits && l->colours == 1)) {
        return false;
    }
    if (l->photometric == PHOTOMETRIC_PALETTE && l->bits > 8) return false;
    if (lowBits && l->samples != 1) return false;
    if (l->samples > l->colours && extraCount > 0 && extra) {
        l->alpha = extra[0] == EXTRASAMPLE_ASSOCALPHA || extra[0] == EXTRASAMPLE_UNASSALPHA;
        l->associated = extra[0] == EXTRASAMPLE_ASSOCALPHA;
    }
    return l->width > 0 && l->height > 0 && l->width <= 32767 && l->height <= 32767;
}

// Sample i of a row of packed samples, as stored (floats already scaled to 0..65535).
uint32_t SampleAt(const uint8_t *row, size_t i, const Layout &l) {
    switch (l.bits) {
        case 8: return row[i];
        case 16: {
            uint16_t v;
            std::memcpy(&v, row + i * 2, 2);
            return v;
        }
        case 32: {
            float f;
            std::memcpy(&f, row + i * 4, 4);
            if (!(f > 0.0f)) return 0;
            if (f >= 1.0f) return 65535;
            return static_cast<uint32_t>(f * 65535.0f + 0.5f);
        }
        default: {
            size_t bit = i * l.bits;
            return (row[bit >> 3] >> (8 - l.bits - (bit & 7))) & ((1u << l.bits) - 1u);
        }
    }
}

// Every sample of the picture, pixel by pixel, from its strips or tiles.
bool GatherSamples(TIFF *tif, const Layout &l, std::vector<uint16_t> *samples) {
    bool tiled = TIFFIsTiled(tif) != 0;
    uint32_t chunkWidth = l.width, chunkHeight = l.height;
    if (tiled) {
        if (!TIFFGetField(tif, TIFFTAG_TILEWIDTH, &chunkWidth) ||
            !TIFFGetField(tif, TIFFTAG_TILELENGTH, &chunkHeight))
            return false;
    } else {
        TIFFGetFieldDefaulted(tif, TIFFTAG_ROWSPERSTRIP, &chunkHeight);
        if (chunkHeight > l.height) chunkHeight = l.height;
    }
    if (chunkWidth == 0 || chunkHeight == 0) return false;
    tmsize_t chunkSize = tiled ? TIFFTileSize(tif) : TIFFStripSize(tif);
    if (chunkSize <= 0) return false;
    bool separate = l.planar == PLANARCONFIG_SEPARATE && l.samples > 1;
    uint16_t planes = separate ? l.samples : 1;
    size_t perPixel = separate ? 1 : l.samples;
    size_t rowBytes = (static_cast<size_t>(chunkWidth) * perPixel * l.bits + 7) / 8;
    if (rowBytes * chunkHeight > static_cast<size_t>(chunkSize)) return false;
    std::vector<uint8_t> chunk(static_cast<size_t>(chunkSize));
    samples->assign(static_cast<size_t>(l.width) * l.height * l.samples, 0);
    for (uint16_t plane = 0; plane < planes; plane++) {
        for (uint32_t y0 = 0; y0 < l.height; y0 += chunkHeight) {
            for (uint32_t x0 = 0; x0 < l.width; x0 += chunkWidth) {
                tmsize_t got =
                    tiled ? TIFFReadEncodedTile(tif, TIFFComputeTile(tif, x0, y0, 0, plane),
                                                chunk.data(), chunkSize)
                          : TIFFReadEncodedStrip(tif, TIFFComputeStrip(tif, y0, plane),
                                                 chunk.data(), chunkSize);
                if (got < 0) return false;
                uint32_t rows = std::min(chunkHeight, l.height - y0);
                uint32_t columns = std::min(chunkWidth, l.width - x0);
                // A short strip or tile is refused rather than read past what was decoded.
                size_t used = (static_cast<size_t>(columns) * perPixel * l.bits + 7) / 8;
                if (rowBytes * (rows - 1) + used > static_cast<size_t>(got)) return false;
                for (uint32_t r = 0; r < rows; r++) {
                    const uint8_t *row = chunk.data() + rowBytes * r;
                    uint16_t *dst = samples->data() +
                                    (static_cast<size_t>(y0 + r) * l.width + x0) * l.samples;
                    for (uint32_t c = 0; c < columns; c++, dst += l.samples) {
                        if (separate)
                            dst[plane] = static_cast<uint16_t>(SampleAt(row, c, l));
                        else
                            for (size_t s = 0; s < perPixel; s++)
                                dst[s] = static_cast<uint16_t>(SampleAt(row, c * perPixel + s, l));
                    }
                }
            }
        }
    }
    return true;
}

// A stored sample widened to 16 bits: 255 becomes 65535, 1-bit 1 becomes 65535.
uint32_t Widen(uint32_t v, const Layout &l) {
    switch (l.bits) {
        case 16:
        case 32: return v;
        default: return v * (65535u / ((1u << l.bits) - 1u));
    }
}

// 16 bits to 8, rounded to the nearest (no value is ever halfway).
uint8_t To8(uint32_t v) { return static_cast<uint8_t>((v * 255u + 32767u) / 65535u); }

// The colour map as 16-bit values; some writers store 8-bit values in it, which are widened.
bool ReadColourMap(TIFF *tif, const Layout &l, std::vector<uint32_t> *map) {
    uint16_t *r = nullptr, *g = nullptr, *b = nullptr;
    if (!TIFFGetField(tif, TIFFTAG_COLORMAP, &r, &g, &b) || !r || !g || !b) return false;
    size_t entries = size_t{1} << l.bits;
    bool eightBit = true;
    for (size_t i = 0; i < entries; i++) eightBit = eightBit && r[i] < 256 && g[i] < 256 && b[i] < 256;
    map->resize(entries * 3);
    for (size_t i = 0; i < entries; i++) {
        uint16_t c[3] = {r[i], g[i], b[i]};
        for (int k = 0; k < 3; k++) (*map)[i * 3 + k] = eightBit ? c[k] * 257u : c[k];
    }
    return true;
}

// One sRGB sample from linear light, rounded.
uint8_t EncodeSRGB(double linear) {
    if (!(linear > 0.0)) return 0;
    if (linear >= 1.0) return 255;
    double v = linear <= 0.0031308 ? 12.92 * linear : 1.055 * std::pow(linear, 1.0 / 2.4) - 0.055;
    return static_cast<uint8_t>(v * 255.0 + 0.5);
}

// CIELab pixels to sRGB. The values are relative to the white point the file names (D65 when it
// names none), which is adapted to sRGB's own D65 white.
void ConvertLab(TIFF *tif, const Layout &l, const std::vector<uint16_t> &samples,
                decoders::Raster *r) {
    cmsCIExyY white{0.3127, 0.3290, 1.0};
    float *chromaticity = nullptr;
    if (TIFFGetField(tif, TIFFTAG_WHITEPOINT, &chromaticity) && chromaticity &&
        chromaticity[0] > 0.0f && chromaticity[1] > 0.0f && chromaticity[0] + chromaticity[1] < 1.0f)
        white = cmsCIExyY{chromaticity[0], chromaticity[1], 1.0};
    const cmsCIExyY d65xyY{0.3127, 0.3290, 1.0};
    cmsCIEXYZ whiteXYZ, d65;
    cmsxyY2XYZ(&whiteXYZ, &white);
    cmsxyY2XYZ(&d65, &d65xyY);
    // XYZ (D65) to linear sRGB, IEC 61966-2-1.
    static const double kToRGB[3][3] = {{3.2406, -1.5372, -0.4986},
                                        {-0.9689, 1.8758, 0.0415},
                                        {0.0557, -0.2040, 1.0570}};
    double full = l.bits == 16 ? 65535.0 : 255.0;
    double unit = l.bits == 16 ? 256.0 : 1.0;
    size_t count = static_cast<size_t>(l.width) * l.height;
    for (size_t i = 0; i < count; i++) {
        const uint16_t *s = samples.data() + i * l.samples;
        double a, b;
        if (l.photometric == PHOTOMETRIC_CIELAB) {
            // Signed a* and b*.
            a = l.bits == 16 ? static_cast<int16_t>(s[1]) : static_cast<int8_t>(s[1]);
            b = l.bits == 16 ? static_cast<int16_t>(s[2]) : static_cast<int8_t>(s[2]);
        } else {
            a = static_cast<double>(s[1]) - 128.0 * unit;
            b = static_cast<double>(s[2]) - 128.0 * unit;
        }
        cmsCIELab lab{s[0] * 100.0 / full, a / unit, b / unit};
        cmsCIEXYZ xyz, adapted;
        cmsLab2XYZ(&whiteXYZ, &xyz, &lab);
        cmsAdaptToIlluminant(&adapted, &whiteXYZ, &d65, &xyz);
        const double v[3] = {adapted.X, adapted.Y, adapted.Z};
        uint8_t *p = r->pixels + i * 4;
        for (int k = 0; k < 3; k++)
            p[1 + k] = EncodeSRGB(kToRGB[k][0] * v[0] + kToRGB[k][1] * v[1] + kToRGB[k][2] * v[2]);
    }
}

}  // namespace

TIFFSampleRead ReadTIFFSamples(TIFF *tif, ImportedImage *out) {
    Layout l;
    if (!Describe(tif, &l)) return TIFFSampleRead::NotHandled;
    try {
        std::vector<uint32_t> map;
        if (l.photometric == PHOTOMETRIC_PALETTE && !ReadColourMap(tif, l, &map))
            return TIFFSampleRead::Failed;
        decoders::Raster &r = out->raster;
        if (!r.Allocate(l.width, l.height, false)) return TIFFSampleRead::Failed;
        std::vector<uint16_t> samples;
        if (!GatherSamples(tif, l, &samples)) return TIFFSampleRead::Failed;
        if (Lab(l)) ConvertLab(tif, l, samples, &r);
        size_t count = static_cast<size_t>(l.width) * l.height;
        for (size_t i = 0; i < count; i++) {
            const uint16_t *s = samples.data() + i * l.samples;
            uint8_t *p = r.pixels + i * 4;
            p[0] = l.alpha ? To8(Widen(s[l.colours], l)) : 255;
            if (Lab(l)) continue;
            uint32_t rgb[3];
            if (l.photometric == PHOTOMETRIC_PALETTE) {
                for (int k = 0; k < 3; k++) rgb[k] = map[s[0] * 3 + k];
            } else if (Grey(l)) {
                uint32_t v = Widen(s[0], l);
                rgb[0] = rgb[1] = rgb[2] = l.photometric == PHOTOMETRIC_MINISWHITE ? 65535 - v : v;
            } else if (l.colours == 4) {
                // Inks to light without a profile: each colour is what its ink and black leave.
                uint64_t white = 65535 - uint64_t{Widen(s[3], l)};
                for (int k = 0; k < 3; k++)
                    rgb[k] = static_cast<uint32_t>(((65535 - Widen(s[k], l)) * white + 32767) / 65535);
            } else {
                for (int k = 0; k < 3; k++) rgb[k] = Widen(s[k], l);
            }
            for (int k = 0; k < 3; k++) p[1 + k] = To8(rgb[k]);
        }
        bool grey = Grey(l);
        r.alpha = l.alpha;
        out->premultiplied = l.alpha && l.associated;
        out->depth = l.alpha ? 32 : grey ? (l.bits == 1 ? 1 : 8) : 24;
        return TIFFSampleRead::Done;
    } catch (const std::bad_alloc &) {
        return TIFFSampleRead::Failed;
    }
}

}  // namespace plim::media
