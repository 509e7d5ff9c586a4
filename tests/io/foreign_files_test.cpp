// Files of every common kind made by ImageMagick and netpbm at test time: each is loaded through
// the path, URL and data front doors and compared with ImageMagick's own decode, then exported to
// PNG, TIFF, JPEG, PICT and PCT, loaded again and compared again.
#include "io/ForeignFiles.h"

#include <gtest/gtest.h>

using namespace foreign;

namespace {

struct Made {
    std::string file;
    bool lossy = false;  // JPEG: compared with the decode, not with the picture it was made from
};

struct ExportCase {
    const char *name;
    PlimCFImageExporter (*create)(CFAllocatorRef);
    PlimImageFormat reload;
};

const ExportCase kExports[] = {
    {"PNG", PlimCFImageExporterCreatePNG, kPlimImageFormatPNG},
    {"TIFF", PlimCFImageExporterCreateTIFF, kPlimImageFormatUnknown},
    {"JPEG", PlimCFImageExporterCreateJPEG, kPlimImageFormatJPEG},
    {"PICT", PlimCFImageExporterCreatePICT, kPlimImageFormatPICT},
    {"PCT", PlimCFImageExporterCreatePCT, kPlimImageFormatPCT},
};

// Every file the suite makes, from three 8-bit pictures: colour, colour with graded alpha, grey.
std::vector<Made> MakeFiles(const TempDir &dir) {
    std::string colour = dir / "colour.png", alpha = dir / "alpha.png", grey = dir / "grey.png";
    std::string icc = CommonSRGBProfile(dir), ppm = dir / "colour.ppm";
    const std::string size = "41x23";
    bool ok = Shell("convert -size " + size + " gradient:red-blue \\( -size " + size +
                    " gradient:lime-black -rotate 90 -resize " + size +
                    "! \\) -compose plus -composite -depth 8 '" + colour + "'") &&
              Shell("convert '" + colour + "' -alpha set -channel A -fx 'i/w' +channel '" + alpha + "'") &&
              Shell("convert '" + colour + "' -colorspace gray -depth 8 '" + grey + "'") &&
              !icc.empty();
    if (!ok) return {};
    struct Recipe {
        std::string name, from, options;
    };
    const Recipe recipes[] = {
        // PNG: every colour type and depth.
        {"grey1.png", grey, "-monochrome -depth 1"},
        {"grey2.png", grey, "-colors 4 -depth 2 -define png:color-type=0"},
        {"grey4.png", grey, "-depth 4"},
        {"grey8.png", grey, ""},
        {"grey16.png", grey, "-depth 16 -evaluate add 3%"},
        {"greyalpha.png", grey, "-alpha set -channel A -fx 'j/h' +channel"},
        {"greyalpha16.png", grey, "-alpha set -channel A -fx 'j/h' +channel -depth 16"},
        {"rgb16.png", colour, "-depth 16 -evaluate multiply 0.9"},
        {"rgba.png", alpha, ""},
        {"rgba16.png", alpha, "-depth 16"},
        {"palette1.png", colour, "-colors 2 PNG8:"},
        {"palette4.png", colour, "-colors 16 PNG8:"},
        {"palette8.png", colour, "PNG8:"},
        {"palette-trns.png", alpha, "-channel A -threshold 50% +channel PNG8:"},
        {"interlaced.png", alpha, "-interlace PNG"},
        {"icc.png", colour, "-profile '" + icc + "' -define png:preserve-iCCP=true"},
        // JPEG.
        {"grey.jpg", grey, "-quality 90"},
        {"rgb.jpg", colour, "-quality 90"},
        {"cmyk.jpg", colour, "-colorspace cmyk -quality 90"},
        {"progressive.jpg", colour, "-interlace JPEG -quality 90"},
        {"icc.jpg", colour, "-profile '" + icc + "' -quality 90"},
        // TIFF.
        {"strips.tif", colour, "-define tiff:rows-per-strip=5"},
        {"tiles.tif", alpha, "-define tiff:tile-geometry=16x16"},
        {"rgb16.tif", colour, "-depth 16 -evaluate multiply 0.9"},
        {"palette.tif", colour, "-colors 16 -type palette"},
        {"cmyk.tif", colour, "-colorspace cmyk"},
        {"lzw.tif", grey, "-compress lzw"},
        {"deflate.tif", alpha, "-compress zip"},
        {"bilevel.tif", grey, "-monochrome -depth 1 -compress group4"},
        // GIF and BMP.
        {"colour.gif", colour, ""},
        {"transparent.gif", alpha, "-channel A -threshold 50% +channel"},
        {"rgb.bmp", colour, ""},
        {"palette.bmp", colour, "-colors 16 -type palette BMP3:"},
        // PICT with its header (.pct) and without (.pict): 1-, 4- and 8-bit palettes, 32-bit.
        {"pict1.pct", grey, "-monochrome PICT:"},
        {"pict4.pct", colour, "-colors 16 PICT:"},
        {"pict8.pct", colour, "-colors 200 PICT:"},
        {"pict32.pct", alpha, "PICT:"},
    };
    std::vector<Made> made;
    for (const Recipe &r : recipes) {
        std::string options = r.options, prefix;
        size_t colon = options.rfind(':');
        if (colon != std::string::npos && colon + 1 == options.size()) {
            size_t space = options.rfind(' ', colon);
            prefix = options.substr(space == std::string::npos ? 0 : space + 1);
            options.resize(space == std::string::npos ? 0 : space);
        }
        std::string file = dir / r.name;
        if (!Shell("convert '" + r.from + "' " + options + " " + prefix + "'" + file + "'")) return {};
        made.push_back({file, r.name.find(".jpg") != std::string::npos});
    }
    // netpbm writes 8-bit palette pictures only.
    if (HaveTool("ppmtopict")) {
        std::string file = dir / "netpbm.pct";
        if (!Shell("convert '" + colour + "' -colors 64 ppm:'" + ppm + "' && ppmtopict '" + ppm +
                   "' > '" + file + "'"))
            return {};
        made.push_back({file});
    }
    // The same pictures without their 512-byte header, as the PICT format has them.
    for (size_t i = 0, n = made.size(); i < n; i++) {
        const std::string &pct = made[i].file;
        if (pct.size() < 4 || pct.compare(pct.size() - 4, 4, ".pct") != 0) continue;
        Bytes bytes = iotest::ReadFile(pct);
        std::string pict = pct.substr(0, pct.size() - 4) + ".pict";
        iotest::WriteFile(pict, Bytes(bytes.begin() + 512, bytes.end()));
        made.push_back({pict});
    }
    return made;
}

// The exported picture reloaded, compared with the one it was exported from.
void CheckExport(const ExportCase &e, PlimCFImage image, const Pixels &loaded, const std::string &what) {
    CGImageRef rendered = PlimCFImageGetCGImage(image);
    CFRef<PlimCFImageExporter> exporter(e.create(nullptr));
    CFRef<CFDataRef> data(PlimCFImageExportCreateData(nullptr, exporter.get(), rendered));
    ASSERT_TRUE(data) << what;
    CFRef<PlimCFImage> back(PlimCFImageCreateWithFormattedData(nullptr, data.get(), e.reload));
    ASSERT_TRUE(back) << what;
    CGImageRef again = PlimCFImageGetCGImage(back.get());
    if (e.reload == kPlimImageFormatJPEG) {
        // JPEG keeps no alpha and loses detail, most at the hard edges of palette pictures:
        // colour stays close (a channel swapped or a row shifted falls far below this).
        Pixels opaque = RenderedPixels(rendered);
        EXPECT_GE(ColourPSNR(RenderedPixels(again), opaque), 20.0) << what;
    } else if (e.reload == kPlimImageFormatPICT) {
        // PICT data holds the samples as the picture stores them, without alpha.
        EXPECT_EQ(Compare(RenderedPixels(again), RenderedPixels(rendered, false), 0, true), "") << what;
    } else {
        EXPECT_EQ(Compare(RenderedPixels(again), loaded, 0), "") << what;
    }
}

}  // namespace

TEST(ForeignFiles, EveryKindLoadsThroughEachFrontDoorAndSurvivesEachExport) {
    if (!HaveMagick()) GTEST_SKIP() << "ImageMagick is not installed";
    TempDir dir;
    std::vector<Made> files = MakeFiles(dir);
    ASSERT_FALSE(files.empty()) << "ImageMagick could not make the files";
    for (const Made &made : files) {
        const std::string &file = made.file;
        std::string name = std::filesystem::path(file).filename().string();
        Pixels want;
        // ImageMagick reads a header-less picture only when told its format.
        std::string reference = file.size() > 5 && file.compare(file.size() - 5, 5, ".pict") == 0
                                    ? file.substr(0, file.size() - 5) + ".pct"
                                    : file;
        ASSERT_TRUE(MagickDecode(reference, dir, &want)) << name;
        const std::pair<const char *, PlimCFImage (*)(const std::string &)> doors[] = {
            {"path", LoadPath}, {"URL", LoadURL}, {"data", LoadData}};
        for (const auto &[door, load] : doors) {
            CFRef<PlimCFImage> image(load(file));
            std::string what = name + " through the " + door;
            ASSERT_TRUE(image) << what;
            Pixels loaded = RenderedPixels(PlimCFImageGetCGImage(image.get()));
            // A JPEG's decoders may differ in their last bit of rounding. ImageMagick reads its
            // own 32-bit pictures as opaque, so their alpha is not compared.
            bool picture = name.find(".pct") != std::string::npos || name.find(".pict") != std::string::npos;
            EXPECT_EQ(Compare(loaded, want, made.lossy ? 1 : 0, !loaded.alpha || picture), "") << what;
            if (door != std::string("path")) continue;
            for (const ExportCase &e : kExports) CheckExport(e, image.get(), loaded, what + ", as " + e.name);
        }
    }
}
