// WebP, AVIF, HEIF and JPEG XL files made at test time by Debian's encoders, loaded by content
// and compared with each format's reference decoder, alpha included; embedded profiles,
// animations, damaged files and the pixel limit. A format is skipped when its tools are missing.
#include "io/ForeignFiles.h"

#include <gtest/gtest.h>

#include <lcms2.h>

namespace {

using namespace foreign;
using iotest::ReadFile;
using iotest::WriteFile;

struct Format {
    const char *name;
    const char *extension;
    const char *encoder;  // the tools, for skipping
    const char *decoder;
    const char *encode;   // commands; {in} and {out} are replaced by file names
    const char *decode;   // to an 8-bit PNG
};

const Format kFormats[] = {
    {"WebP lossless", "webp", "cwebp", "dwebp", "cwebp -quiet -lossless -exact -metadata icc {in} -o {out}",
     "dwebp -quiet {in} -o {out}"},
    {"WebP lossy", "webp", "cwebp", "dwebp", "cwebp -quiet -q 60 -metadata icc {in} -o {out}",
     "dwebp -quiet {in} -o {out}"},
    {"AVIF", "avif", "avifenc", "avifdec", "avifenc -s 10 {in} {out}", "avifdec {in} {out}"},
    {"HEIF", "heic", "heif-enc", "heif-convert", "heif-enc -q 60 {in} -o {out}", "heif-convert {in} {out}"},
    {"JPEG XL lossless", "jxl", "cjxl", "djxl", "cjxl -d 0 -e 3 {in} {out}", "djxl {in} {out}"},
    {"JPEG XL lossy", "jxl", "cjxl", "djxl", "cjxl -d 2 -e 3 {in} {out}", "djxl {in} {out}"},
};

bool RunTool(std::string command, const std::string &in, const std::string &out) {
    command.replace(command.find("{in}"), 4, "'" + in + "'");
    command.replace(command.find("{out}"), 5, "'" + out + "'");
    return Shell(command);
}

bool HaveTools(const Format &f) { return HaveTool(f.encoder) && HaveTool(f.decoder); }

// A PNG of smooth colour, with alpha from 0 to 255 across it when `alpha`.
std::string MakeSource(const TempDir &dir, const std::string &name, bool alpha, int w = 37, int h = 23) {
    const int channels = alpha ? 4 : 3;
    Bytes px(static_cast<size_t>(w) * h * channels);
    for (int y = 0; y < h; y++)
        for (int x = 0; x < w; x++) {
            uint8_t *p = &px[(static_cast<size_t>(y) * w + x) * channels];
            p[0] = static_cast<uint8_t>(40 + x * 5);
            p[1] = static_cast<uint8_t>(200 - y * 6);
            p[2] = static_cast<uint8_t>(90 + (x + y) * 2);
            if (alpha) p[3] = static_cast<uint8_t>(x * 255 / (w - 1));
        }
    WriteFile(dir / name, iotest::EncodePNG(px, w, h, alpha ? PNG_FORMAT_RGBA : PNG_FORMAT_RGB));
    return dir / name;
}

// The reference decoder's pixels, premultiplied as the library stores them.
bool ReferencePixels(const Format &f, const std::string &file, const TempDir &dir, Pixels *out) {
    std::string png = dir / "reference.png";
    if (!RunTool(f.decode, file, png)) return false;
    Bytes bytes = ReadFile(png);
    bool grey = false;
    if (bytes.size() < 25 || bytes[24] != 8) return false;  // 8-bit samples only
    out->argb = iotest::BarePNG(bytes, &grey);
    out->width = static_cast<size_t>(bytes[16]) << 24 | bytes[17] << 16 | bytes[18] << 8 | bytes[19];
    out->height = static_cast<size_t>(bytes[20]) << 24 | bytes[21] << 16 | bytes[22] << 8 | bytes[23];
    if (grey || out->argb.size() != out->width * out->height * 4) return false;
    PlimCFPremultiplyARGBBuffer(out->argb.data(), static_cast<UInt32>(out->argb.size()));
    return true;
}

// Exactly equal samples, or where the first difference is.
std::string Difference(const Pixels &got, const Pixels &want) {
    if (got.width != want.width || got.height != want.height) return "size differs";
    for (size_t i = 0; i < got.argb.size(); i++)
        if (got.argb[i] != want.argb[i])
            return "pixel " + std::to_string(i / 4) + " sample " + std::to_string(i % 4) + ": " +
                   std::to_string(got.argb[i]) + ", want " + std::to_string(want.argb[i]);
    return "";
}

PlimCFImage LoadBytes(const Bytes &bytes) {
    CFRef<CFDataRef> data(iotest::MakeData(bytes));
    return PlimCFImageCreateWithData(nullptr, data.get());
}

// The image's colour in the main display's space, as every operation sees it.
Pixels BufferPixels(PlimCFImage image) {
    Pixels out;
    out.width = PlimCFImageGetWidth(image);
    out.height = PlimCFImageGetHeight(image);
    const auto *buffer = static_cast<const UInt8 *>(PlimCFImageGetImageBuffer(image));
    if (buffer && PlimCFImageGetBitsPerPixel(image) == 32)
        out.argb.assign(buffer, buffer + out.width * out.height * 4);
    return out;
}

// sRGB primaries on a straight line: colour that looks much brighter than the same numbers in sRGB.
std::string LinearProfile(const TempDir &dir) {
    cmsCIExyY white;
    cmsWhitePointFromTemp(&white, 6504);
    const cmsCIExyYTRIPLE primaries = {{0.64, 0.33, 1}, {0.30, 0.60, 1}, {0.15, 0.06, 1}};
    cmsToneCurve *linear = cmsBuildGamma(nullptr, 1.0);
    cmsToneCurve *curves[3] = {linear, linear, linear};
    cmsHPROFILE profile = cmsCreateRGBProfile(&white, &primaries, curves);
    cmsUInt32Number size = 0;
    cmsSaveProfileToMem(profile, nullptr, &size);
    Bytes bytes(size);
    cmsSaveProfileToMem(profile, bytes.data(), &size);
    cmsCloseProfile(profile);
    cmsFreeToneCurve(linear);
    WriteFile(dir / "linear.icc", bytes);
    return dir / "linear.icc";
}

}  // namespace

// Each format through the data and path doors (format code 0): the reference decoder's pixels,
// premultiplied exactly, with alpha; an opaque picture loads without alpha.
TEST(ModernFormats, DecodeAsTheReferenceDecodersDo) {
    TempDir dir;
    const std::string alpha = MakeSource(dir, "alpha.png", true), opaque = MakeSource(dir, "opaque.png", false);
    for (const Format &f : kFormats) {
        if (!HaveTools(f)) continue;
        SCOPED_TRACE(f.name);
        for (const std::string &source : {alpha, opaque}) {
            const std::string file = dir / (std::string("made.") + f.extension);
            ASSERT_TRUE(RunTool(f.encode, source, file));
            Pixels want;
            ASSERT_TRUE(ReferencePixels(f, file, dir, &want));
            CFRef<PlimCFImage> fromData(LoadBytes(ReadFile(file))), fromPath(LoadPath(file));
            ASSERT_TRUE(fromData && fromPath);
            for (PlimCFImage image : {fromData.get(), fromPath.get()}) {
                CGImageRef decoded = PlimCFImageGetCGImage(image);
                EXPECT_EQ(Difference(RenderedPixels(decoded, false), want), "");
                EXPECT_EQ(CGImageGetAlphaInfo(decoded),
                          source == alpha ? kCGImageAlphaPremultipliedFirst : kCGImageAlphaNoneSkipFirst);
            }
        }
    }
}

// A profile embedded by each encoder is honoured on draw, as the same profile in a PNG is.
TEST(ModernFormats, EmbeddedProfilesAreHonouredOnDraw) {
    if (!HaveMagick()) GTEST_SKIP() << "ImageMagick is not installed";
    TempDir dir;
    const std::string plain = MakeSource(dir, "plain.png", false), tagged = dir / "tagged.png";
    ASSERT_TRUE(Shell("convert '" + plain + "' -profile '" + LinearProfile(dir) + "' '" + tagged + "'"));
    CFRef<PlimCFImage> pngPlain(LoadPath(plain)), pngTagged(LoadPath(tagged));
    const Pixels withoutProfile = BufferPixels(pngPlain.get()), withProfile = BufferPixels(pngTagged.get());
    ASSERT_LT(ColourPSNR(withProfile, withoutProfile), 20.0) << "the profile should change the colours";
    for (const Format &f : kFormats) {
        if (!HaveTools(f)) continue;
        SCOPED_TRACE(f.name);
        const std::string file = dir / (std::string("tagged.") + f.extension);
        ASSERT_TRUE(RunTool(f.encode, tagged, file));
        CFRef<PlimCFImage> image(LoadPath(file));
        ASSERT_TRUE(image);
        const Pixels drawn = BufferPixels(image.get());
        ASSERT_EQ(drawn.argb.size(), withProfile.argb.size());
        EXPECT_GT(ColourPSNR(drawn, withProfile), 30.0);
        EXPECT_LT(ColourPSNR(drawn, withoutProfile), 20.0);
    }
}

// Of an animation or image sequence, the first frame.
TEST(ModernFormats, AnimationsLoadAsTheirFirstFrame) {
    if (!HaveMagick()) GTEST_SKIP() << "ImageMagick is not installed";
    TempDir dir;
    const std::string red = dir / "red.png", blue = dir / "blue.png", gif = dir / "anim.gif";
    ASSERT_TRUE(Shell("convert -size 24x16 xc:red -depth 8 PNG24:'" + red + "' && convert -size 24x16 "
                      "xc:blue -depth 8 PNG24:'" + blue + "' && convert -delay 10 '" + red + "' '" + blue +
                      "' '" + gif + "'"));
    const struct {
        const char *tool, *file, *command;
    } animations[] = {
        {"img2webp", "anim.webp", "img2webp -lossless {red} {blue} -o {out}"},
        {"avifenc", "anim.avif", "avifenc -s 10 {red} {blue} {out}"},
        {"heif-enc", "anim.heic", "heif-enc {red} {blue} -o {out}"},
        {"cjxl", "anim.jxl", "cjxl {gif} {out}"},
    };
    for (const auto &a : animations) {
        if (!HaveTool(a.tool)) continue;
        SCOPED_TRACE(a.file);
        std::string command = a.command;
        for (auto [key, value] : {std::pair{"{red}", red}, {"{blue}", blue}, {"{gif}", gif}, {"{out}", dir / a.file}})
            if (size_t at = command.find(key); at != std::string::npos)
                command.replace(at, std::strlen(key), value);
        ASSERT_TRUE(Shell(command));
        CFRef<PlimCFImage> image(LoadPath(dir / a.file));
        ASSERT_TRUE(image);
        Pixels px = RenderedPixels(PlimCFImageGetCGImage(image.get()));
        ASSERT_EQ(px.width * px.height, 24u * 16u);
        for (size_t i = 0; i < px.width * px.height; i++)
            ASSERT_TRUE(px.argb[i * 4] == 255 && px.argb[i * 4 + 1] > 200 && px.argb[i * 4 + 3] < 50)
                << "pixel " << i << " is not red";
    }
}

// Files cut short, files whose body is noise, a grid made from itself, and pictures over the
// pixel limit give null.
TEST(ModernFormats, DamagedFilesAndPicturesOverTheLimitGiveNull) {
    TempDir dir;
    const std::string source = MakeSource(dir, "source.png", true);
    const UInt64 savedLimit = PlimGetDecodingPixelLimit();
    for (const Format &f : kFormats) {
        if (!HaveTools(f)) continue;
        SCOPED_TRACE(f.name);
        const std::string file = dir / (std::string("whole.") + f.extension);
        ASSERT_TRUE(RunTool(f.encode, source, file));
        const Bytes whole = ReadFile(file);
        ASSERT_GT(whole.size(), 64u);
        const size_t n = whole.size();
        for (size_t length : {size_t{12}, n / 4, n / 2, n * 3 / 4, n - 1}) {
            CFRef<PlimCFImage> cut(LoadBytes(Bytes(whole.begin(), whole.begin() + static_cast<long>(length))));
            EXPECT_FALSE(cut) << "cut to " << length << " of " << whole.size() << " bytes";
        }
        // The signature (or file-type box) kept, everything after it noise.
        Bytes noise = iotest::Random(whole.size(), 7);
        std::copy(whole.begin(), whole.begin() + 32, noise.begin());
        EXPECT_FALSE(CFRef<PlimCFImage>(LoadBytes(noise)));

        // heif-enc stores even a small picture as a grid of one tile: one derived from itself
        // instead would send the decoder round in circles.
        if (const char *dimg = "dimg"; std::string(f.extension) == "heic") {
            Bytes looped = whole;
            auto at = std::search(looped.begin(), looped.end(), dimg, dimg + 4);
            ASSERT_NE(at, looped.end());
            std::copy(at + 4, at + 6, at + 8);  // the first source is the grid itself
            EXPECT_FALSE(CFRef<PlimCFImage>(LoadBytes(looped)));
        }

        PlimSetDecodingPixelLimit(37 * 23 - 1);
        EXPECT_FALSE(CFRef<PlimCFImage>(LoadBytes(whole)));
        PlimSetDecodingPixelLimit(37 * 23);
        EXPECT_TRUE(CFRef<PlimCFImage>(LoadBytes(whole)));
        PlimSetDecodingPixelLimit(savedLimit);
    }
}
