// Files made by other programs at test time, ImageMagick's own decode of them, and the pixels of
// what our loaders made of them, in one form that can be compared.
#pragma once

#include "io/IOTestSupport.h"
#include "platform/runtime/CFRef.h"

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace foreign {

using iotest::Bytes;
using plim::CFRef;

inline bool HaveTool(const char *name) {
    return std::system((std::string("command -v ") + name + " >/dev/null 2>&1").c_str()) == 0;
}

inline bool HaveMagick() { return HaveTool("convert"); }

inline bool Shell(const std::string &command) {
    return std::system(("(" + command + ") >/dev/null 2>&1").c_str()) == 0;
}

struct TempDir {
    std::filesystem::path path;
    TempDir() {
        path = std::filesystem::temp_directory_path() /
               ("plim-foreign-" + std::to_string(getpid()) + "-" + std::to_string(std::rand()));
        std::filesystem::create_directories(path);
    }
    ~TempDir() { std::filesystem::remove_all(path); }
    std::string operator/(const std::string &name) const { return (path / name).string(); }
};

// The widespread 3144-byte "sRGB IEC61966-2.1" profile, which ImageMagick carries in one of its
// built-in pictures; its path, or "" when it cannot be had.
inline std::string CommonSRGBProfile(const TempDir &dir) {
    std::string icc = dir / "srgb.icc";
    return Shell("convert magick:wizard icc:'" + icc + "'") ? icc : "";
}

// 8-bit A,R,G,B with colour not premultiplied; `alpha` false when the image has none.
struct Pixels {
    size_t width = 0, height = 0;
    bool alpha = false;
    Bytes argb;
};

// ImageMagick's own decode: its 16-bit samples, each rounded to the nearest 8-bit value.
inline bool MagickDecode(const std::string &file, const TempDir &dir, Pixels *out) {
    std::string raw = dir / "reference.rgba", sizes = dir / "reference.size";
    if (!Shell("convert '" + file + "[0]' -format '%w %h' -write info:'" + sizes +
               "' -depth 16 rgba:'" + raw + "'"))
        return false;
    Bytes text = iotest::ReadFile(sizes);
    unsigned long w = 0, h = 0;
    text.push_back(0);
    if (std::sscanf(reinterpret_cast<const char *>(text.data()), "%lu %lu", &w, &h) != 2) return false;
    Bytes samples = iotest::ReadFile(raw);
    if (samples.size() != w * h * 8) return false;
    out->width = w;
    out->height = h;
    out->alpha = true;
    out->argb.resize(w * h * 4);
    for (size_t i = 0; i < w * h; i++)
        for (int c = 0; c < 4; c++) {
            // rgba: order in, A,R,G,B out; samples are little-endian on this machine's build.
            const UInt8 *p = &samples[(i * 4 + static_cast<size_t>(c)) * 2];
            unsigned v = static_cast<unsigned>(p[0]) | (static_cast<unsigned>(p[1]) << 8);
            out->argb[i * 4 + (c + 1) % 4] = static_cast<UInt8>((v * 255u + 32767u) / 65535u);
        }
    return true;
}

// The samples of a rendered image as the loaders stored them, in A,R,G,B order; colour stays
// premultiplied where the image says so unless `unpremultiply`.
inline Pixels RenderedPixels(CGImageRef image, bool unpremultiply = true) {
    Pixels out;
    out.width = CGImageGetWidth(image);
    out.height = CGImageGetHeight(image);
    size_t bpc = CGImageGetBitsPerComponent(image), bpp = CGImageGetBitsPerPixel(image);
    size_t bpr = CGImageGetBytesPerRow(image);
    CGImageAlphaInfo info = CGImageGetAlphaInfo(image);
    out.alpha = info != kCGImageAlphaNone && info != kCGImageAlphaNoneSkipFirst &&
                info != kCGImageAlphaNoneSkipLast;
    bool last = info == kCGImageAlphaPremultipliedLast || info == kCGImageAlphaLast ||
                info == kCGImageAlphaNoneSkipLast;
    bool premultiplied = info == kCGImageAlphaPremultipliedFirst || info == kCGImageAlphaPremultipliedLast;
    CFDataRef data = CGDataProviderCopyData(CGImageGetDataProvider(image));
    const UInt8 *bytes = CFDataGetBytePtr(data);
    out.argb.resize(out.width * out.height * 4);
    for (size_t y = 0; y < out.height; y++) {
        const UInt8 *row = bytes + y * bpr;
        for (size_t x = 0; x < out.width; x++) {
            UInt8 *p = &out.argb[(y * out.width + x) * 4];
            if (bpp == 32) {
                const UInt8 *s = row + x * 4;
                p[0] = out.alpha ? (last ? s[3] : s[0]) : 255;
                std::memcpy(p + 1, last ? s : s + 1, 3);
                if (premultiplied && unpremultiply) PlimCFUnpremultiplyARGBBuffer(p, 4);
            } else {
                UInt8 v = bpc == 1 ? (((row[x >> 3] >> (7 - (x & 7))) & 1) ? 255 : 0) : row[x];
                p[0] = 255;
                p[1] = p[2] = p[3] = v;
            }
        }
    }
    CFRelease(data);
    return out;
}

// How far a colour sample may move when it is premultiplied by alpha a and unpremultiplied again.
inline int PremultiplyLoss(int a) { return a == 255 ? 0 : (255 + 2 * a - 1) / (2 * a); }

// "" when `got` matches `want`: sizes equal; colour within `tolerance` plus the loss of
// premultiplying (skipped where alpha is 0); alpha equal when both have it. With `colourOnly`,
// alpha is not compared, and colours must agree within `tolerance` wherever `got` is not fully
// transparent.
inline std::string Compare(const Pixels &got, const Pixels &want, int tolerance,
                           bool colourOnly = false) {
    if (got.width != want.width || got.height != want.height)
        return "size " + std::to_string(got.width) + "x" + std::to_string(got.height) + ", want " +
               std::to_string(want.width) + "x" + std::to_string(want.height);
    for (size_t i = 0; i < got.width * got.height; i++) {
        const UInt8 *g = &got.argb[i * 4], *w = &want.argb[i * 4];
        int a = colourOnly ? 255 : w[0];
        if (!colourOnly && got.alpha && g[0] != w[0])
            return "alpha of pixel " + std::to_string(i) + ": " + std::to_string(g[0]) + ", want " +
                   std::to_string(w[0]);
        if (!colourOnly && !got.alpha && w[0] != 255)
            return "pixel " + std::to_string(i) + " lost its alpha " + std::to_string(w[0]);
        if (a == 0 || (colourOnly && got.alpha && g[0] == 0)) continue;
        for (int c = 1; c < 4; c++)
            if (std::abs(g[c] - w[c]) > tolerance + PremultiplyLoss(a))
                return "channel " + std::to_string(c) + " of pixel " + std::to_string(i) + ": " +
                       std::to_string(g[c]) + ", want " + std::to_string(w[c]) + " (alpha " +
                       std::to_string(w[0]) + ")";
    }
    return "";
}

// Peak signal-to-noise ratio of the colour channels, in dB (lossy formats).
inline double ColourPSNR(const Pixels &got, const Pixels &want) {
    double sum = 0;
    size_t n = got.width * got.height;
    for (size_t i = 0; i < n; i++)
        for (int c = 1; c < 4; c++) {
            double d = got.argb[i * 4 + c] - want.argb[i * 4 + c];
            sum += d * d;
        }
    if (sum == 0) return 99.0;
    return 10.0 * std::log10(255.0 * 255.0 * 3.0 * static_cast<double>(n) / sum);
}

inline PlimCFImage LoadPath(const std::string &path) {
    CFStringRef s = iotest::Str(path);
    PlimCFImage image = PlimCFImageCreateWithPath(nullptr, s);
    CFRelease(s);
    return image;
}

inline PlimCFImage LoadURL(const std::string &path) {
    CFStringRef s = iotest::Str(path);
    CFURLRef url = CFURLCreateWithFileSystemPath(nullptr, s, kCFURLPOSIXPathStyle, false);
    PlimCFImage image = PlimCFImageCreateWithURL(nullptr, url);
    CFRelease(url);
    CFRelease(s);
    return image;
}

// The data door, with the format code the file name's extension gives.
inline PlimCFImage LoadData(const std::string &path) {
    std::string extension = std::filesystem::path(path).extension().string();
    CFStringRef ext = iotest::Str(extension.empty() ? "" : extension.substr(1));
    PlimImageFormat format = PlimCFImageFormatForPathExtension(ext);
    CFRelease(ext);
    CFDataRef data = iotest::MakeData(iotest::ReadFile(path));
    PlimCFImage image = PlimCFImageCreateWithFormattedData(nullptr, data, format);
    CFRelease(data);
    return image;
}

}  // namespace foreign
