// Files as other programs write them, each of a kind that once failed to load, export or be
// worked on. Made at test time with ImageMagick and netpbm; skipped when they are not installed.
#include "io/ForeignFiles.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace foreign;
using iotest::ReadFile;

namespace {

#define SKIP_WITHOUT_MAGICK() \
    if (!HaveMagick()) GTEST_SKIP() << "ImageMagick is not installed"

// A smooth 8-bit colour picture to start from.
std::string MakeSource(const TempDir &dir, const std::string &size = "37x23") {
    std::string png = dir / "source.png";
    EXPECT_TRUE(Shell("convert -size " + size + " gradient:red-blue \\( -size " + size +
                    " gradient:lime-black -rotate 90 -resize " + size + "! \\) -compose plus "
                    "-composite -depth 8 '" + png + "'"));
    return png;
}

bool HasChunk(const Bytes &png, const char *name) {
    return std::search(png.begin(), png.end(), name, name + 4) != png.end();
}

}  // namespace

// The 3144-byte "sRGB IEC61966-2.1" profile, which libpng refuses to write, rides along in
// colour photos of every format; their PNG export names sRGB instead and keeps the pixels.
TEST(RealFiles, ImagesWithTheCommonSRGBProfileExportToPNG) {
    SKIP_WITHOUT_MAGICK();
    TempDir dir;
    std::string source = MakeSource(dir);
    std::string icc = CommonSRGBProfile(dir);
    ASSERT_EQ(ReadFile(icc).size(), 3144u);
    for (std::string name : {"photo.png", "photo.tif", "photo.jpg"}) {
        std::string file = dir / name;
        ASSERT_TRUE(Shell("convert '" + source + "' -profile '" + icc +
                        "' -define png:preserve-iCCP=true '" + file + "'"));
        CFRef<PlimCFImage> image(LoadPath(file));
        ASSERT_TRUE(image) << name;
        CFRef<CFDataRef> png(PlimCFImageCopyPNGData(nullptr, image.get()));
        ASSERT_TRUE(png) << name;
        Bytes bytes(CFDataGetBytePtr(png.get()), CFDataGetBytePtr(png.get()) + CFDataGetLength(png.get()));
        EXPECT_TRUE(HasChunk(bytes, "sRGB")) << name;
        EXPECT_FALSE(HasChunk(bytes, "iCCP")) << name;
        CFRef<PlimCFImage> back(PlimCFImageCreateWithFormattedData(nullptr, png.get(), kPlimImageFormatPNG));
        ASSERT_TRUE(back) << name;
        EXPECT_EQ(Compare(RenderedPixels(PlimCFImageGetCGImage(back.get())),
                          RenderedPixels(PlimCFImageGetCGImage(image.get())), 0),
                  "")
            << name;
    }
}

// Palette pictures from both common writers keep their colours through the PCT loader, while a
// palette of greys still loads as grey.
TEST(RealFiles, PalettePicturesLoadInColourThroughThePCTLoader) {
    SKIP_WITHOUT_MAGICK();
    TempDir dir;
    std::string source = MakeSource(dir);
    std::string palette = dir / "palette.png", grey = dir / "grey.png";
    ASSERT_TRUE(Shell("convert '" + source + "' -colors 16 -depth 8 '" + palette + "'"));
    ASSERT_TRUE(Shell("convert '" + source + "' -colorspace gray -colors 16 -depth 8 '" + grey + "'"));
    std::vector<std::pair<std::string, std::string>> files = {
        {dir / "magick.pct", palette}, {dir / "magick-grey.pct", grey}};
    ASSERT_TRUE(Shell("convert '" + palette + "' PICT:'" + files[0].first + "'"));
    ASSERT_TRUE(Shell("convert '" + grey + "' PICT:'" + files[1].first + "'"));
    if (HaveTool("ppmtopict")) {
        files.push_back({dir / "netpbm.pct", palette});
        ASSERT_TRUE(Shell("convert '" + palette + "' ppm:- | ppmtopict > '" + files.back().first + "'"));
    }
    for (const auto &[file, png] : files) {
        Pixels want;
        ASSERT_TRUE(MagickDecode(png, dir, &want));
        bool isGrey = png == grey;
        for (PlimCFImage loaded : {LoadPath(file), LoadData(file)}) {
            CFRef<PlimCFImage> image(loaded);
            ASSERT_TRUE(image) << file;
            EXPECT_EQ(PlimCFImageIsColor(image.get()), !isGrey) << file;
            EXPECT_EQ(Compare(RenderedPixels(PlimCFImageGetCGImage(image.get())), want, 0, true), "")
                << file;
        }
    }
}

// Pictures under 8 bytes a row, which ImageMagick packs against the format's rule (ppmtopict
// refuses pictures so narrow); among them the 1 x 16 grey gradient. ImageMagick misreads several
// of its own, so the pixels are checked against the picture they were made from.
TEST(RealFiles, NarrowPicturesFromOtherWritersLoad) {
    SKIP_WITHOUT_MAGICK();
    TempDir dir;
    struct Case {
        std::string size, options;
    };
    std::vector<Case> cases = {{"1x16", "gradient: -colorspace gray"}};
    for (std::string w : {"1", "2", "3", "4"}) {
        cases.push_back({w + "x5", "gradient:red-blue"});
        cases.push_back({w + "x5", "gradient:red-blue -colors 4"});
    }
    for (const Case &c : cases) {
        std::string png = dir / "narrow.png";
        ASSERT_TRUE(Shell("convert -size " + c.size + " " + c.options + " -depth 8 '" + png + "'"));
        Pixels want;
        ASSERT_TRUE(MagickDecode(png, dir, &want));
        std::string file = dir / "narrow.pct";
        ASSERT_TRUE(Shell("convert '" + png + "' PICT:'" + file + "'"));
        CFRef<PlimCFImage> image(LoadPath(file));
        ASSERT_TRUE(image) << c.size << " " << c.options;
        EXPECT_EQ(Compare(RenderedPixels(PlimCFImageGetCGImage(image.get())), want, 0, true), "")
            << c.size << " " << c.options;
    }
}

// TIFFs in other colour models load as RGB: 8-bit CMYK exactly as ImageMagick converts it, the
// others within the rounding of their conversions. ImageMagick's own CIELab decode strays further
// from the picture the file was made from than ours, so CIELab is checked against that picture.
TEST(RealFiles, CMYKYCbCrAndLabTIFFsLoadAsRGB) {
    SKIP_WITHOUT_MAGICK();
    TempDir dir;
    std::string source = MakeSource(dir);
    Pixels original;
    ASSERT_TRUE(MagickDecode(source, dir, &original));
    struct Case {
        const char *name, *options;
        int tolerance;  // in steps, or in dB when against the source
        bool againstSource = false;
    };
    const Case cases[] = {
        {"cmyk", "-colorspace cmyk", 0},
        {"cmyk16", "-depth 16 -colorspace cmyk", 1},
        {"cmyk-planar-lzw", "-colorspace cmyk -interlace plane -compress lzw", 0},
        {"cmyk-alpha", "-alpha set -channel A -evaluate set 60% +channel -colorspace cmyk", 0},
        {"ycbcr-jpeg", "-compress jpeg -quality 95", 0},
        {"ycbcr", "-colorspace YCbCr", 1},
        // 8-bit CIELab keeps a* and b* to whole units, and ImageMagick writes 16-bit ones in
        // 257ths of a unit where the format has 256ths; near black, where the sRGB curve is
        // steep, such a difference moves a channel by several steps. These are held to a
        // signal-to-noise ratio instead (in dB).
        {"lab", "-colorspace Lab", 33, true},
        {"lab16", "-depth 16 -colorspace Lab", 40, true},
    };
    for (const Case &c : cases) {
        std::string file = dir / (std::string(c.name) + ".tif");
        ASSERT_TRUE(Shell("convert '" + source + "' " + c.options + " '" + file + "'")) << c.name;
        Pixels want = original;
        if (!c.againstSource) {
            ASSERT_TRUE(MagickDecode(file, dir, &want)) << c.name;
        }
        CFRef<PlimCFImage> image(LoadData(file));
        ASSERT_TRUE(image) << c.name;
        EXPECT_TRUE(PlimCFImageIsColor(image.get())) << c.name;
        Pixels got = RenderedPixels(PlimCFImageGetCGImage(image.get()));
        if (c.againstSource) {
            EXPECT_GE(ColourPSNR(got, want), c.tolerance) << c.name;
        } else {
            EXPECT_EQ(Compare(got, want, c.tolerance), "") << c.name;
        }
    }
}

// A profile of the wrong colour model is ignored: the 1-bit TIFF loads, in black and white.
TEST(RealFiles, GreyTIFFWithAnRGBProfileLoads) {
    SKIP_WITHOUT_MAGICK();
    TempDir dir;
    std::string file = dir / "bw.tif", icc = CommonSRGBProfile(dir);
    ASSERT_TRUE(Shell("convert -size 40x24 pattern:checkerboard -monochrome -depth 1 '" + file + "'"));
    ASSERT_FALSE(icc.empty());
    Pixels want;
    ASSERT_TRUE(MagickDecode(file, dir, &want));
    Bytes profile = ReadFile(icc);
    TIFF *tif = TIFFOpen(file.c_str(), "r+");
    ASSERT_NE(tif, nullptr);
    ASSERT_TRUE(TIFFSetField(tif, TIFFTAG_ICCPROFILE, static_cast<uint32_t>(profile.size()), profile.data()));
    ASSERT_TRUE(TIFFRewriteDirectory(tif));
    TIFFClose(tif);
    for (PlimCFImage loaded : {LoadPath(file), LoadURL(file), LoadData(file)}) {
        CFRef<PlimCFImage> image(loaded);
        ASSERT_TRUE(image);
        EXPECT_EQ(PlimCFImageGetBitsPerPixel(image.get()), 1u);
        EXPECT_EQ(Compare(RenderedPixels(PlimCFImageGetCGImage(image.get())), want, 0), "");
    }
}

// Black-and-white PNGs, as the content-recognising loader gives them (1 bit per pixel) and as
// the PNG loader does: every operation does its work on them.
TEST(RealFiles, EveryOperationWorksOnLowBitDepthImages) {
    SKIP_WITHOUT_MAGICK();
    TempDir dir;
    std::string bw = dir / "bw.png", flat = dir / "flat.png";
    ASSERT_TRUE(Shell("convert -size 64x64 pattern:checkerboard -monochrome '" + bw + "'"));
    ASSERT_TRUE(Shell("convert -size 1000x1000 xc:white '" + flat + "'"));
    for (const std::string &file : {bw, flat}) {
        Pixels want;
        ASSERT_TRUE(MagickDecode(file, dir, &want));
        for (bool fromData : {true, false}) {
            auto load = [&] {
                if (!fromData) return LoadPath(file);
                CFRef<CFDataRef> data(iotest::MakeData(ReadFile(file)));
                return PlimCFImageCreateWithData(nullptr, data.get());
            };
            std::string what = file + (fromData ? " from data" : " from its path");
            {
                // Crop: the top-left 10 x 6 pixels, y counted up from the bottom row.
                CFRef<PlimCFImage> image(load());
                ASSERT_TRUE(image) << what;
                float h = static_cast<float>(want.height);
                PlimCFImageCropToRect(image.get(), CGRectMake(0, h - 6, 10, 6));
                Pixels got = RenderedPixels(PlimCFImageGetCGImage(image.get()));
                Pixels corner{10, 6, false, {}};
                for (size_t y = 0; y < 6; y++)
                    corner.argb.insert(corner.argb.end(), want.argb.begin() + y * want.width * 4,
                                       want.argb.begin() + (y * want.width + 10) * 4);
                EXPECT_EQ(Compare(got, corner, 0), "") << what;
            }
            {
                CFRef<PlimCFImage> image(load());
                PlimCFImageScaleToSize(image.get(), CGSizeMake(97, 31));
                EXPECT_EQ(PlimCFImageGetWidth(image.get()), 97u) << what;
                EXPECT_EQ(PlimCFImageGetHeight(image.get()), 31u) << what;
            }
            // The pixel operations each change what they should, and the result still exports.
            struct Operation {
                const char *name;
                void (*run)(PlimCFImage);
                bool (*check)(const Pixels &before, const Pixels &after);
            };
            const Operation operations[] = {
                {"flip", PlimCFImageFlipVertically,
                 [](const Pixels &b, const Pixels &a) {
                     size_t row = b.width * 4;
                     return std::equal(a.argb.begin(), a.argb.begin() + row, b.argb.end() - row);
                 }},
                {"invert", PlimCFImageInvert,
                 [](const Pixels &b, const Pixels &a) { return a.argb[1] == 255 - b.argb[1]; }},
                {"add alpha", PlimCFImageAddAlphaChannel,
                 [](const Pixels &b, const Pixels &a) { return a.alpha && a.argb[1] == b.argb[1]; }},
                {"to colour", PlimCFImageConvertToColor,
                 [](const Pixels &b, const Pixels &a) { return a.argb[1] == b.argb[1]; }},
                {"clear", PlimCFImageClear,  // an opaque picture clears to white
                 [](const Pixels &, const Pixels &a) {
                     return std::all_of(a.argb.begin(), a.argb.end(), [](UInt8 v) { return v == 255; });
                 }},
            };
            if (file != bw) continue;  // the checkerboard shows what each operation did
            for (const Operation &op : operations) {
                CFRef<PlimCFImage> image(load());
                PlimCFImageGetImageBuffer(image.get());
                op.run(image.get());
                EXPECT_EQ(PlimCFImageGetWidth(image.get()), want.width) << what << " " << op.name;
                CGImageRef after = PlimCFImageGetCGImage(image.get());
                ASSERT_NE(after, nullptr) << what << " " << op.name;
                EXPECT_TRUE(op.check(want, RenderedPixels(after))) << what << " " << op.name;
                CFRef<CFDataRef> png(PlimCFImageCopyPNGData(nullptr, image.get()));
                EXPECT_TRUE(png) << what << " " << op.name;
            }
        }
    }
}
