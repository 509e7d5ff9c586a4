// Cross-checks of PICT files against ImageMagick and GraphicsMagick, when they are installed.
#include "io/IOTestSupport.h"

#include <gtest/gtest.h>

#include <cstdlib>

using namespace iotest;

namespace {

struct Tool {
    const char *name;
    std::string prefix;  // command that takes "input output" after it
};

std::vector<Tool> AvailableTools() {
    std::vector<Tool> tools;
    if (access("/usr/bin/convert", X_OK) == 0) tools.push_back({"ImageMagick", "/usr/bin/convert"});
    if (access("/usr/bin/gm", X_OK) == 0) tools.push_back({"GraphicsMagick", "/usr/bin/gm convert"});
    return tools;
}

bool RunTool(const std::string &command) { return std::system((command + " 2>/dev/null").c_str()) == 0; }

}  // namespace

TEST(MagickCrossCheck, PictFilesBothWays) {
    std::vector<Tool> tools = AvailableTools();
    if (tools.empty()) GTEST_SKIP() << "neither ImageMagick nor GraphicsMagick is installed";
    const int w = 29, h = 11;
    Bytes rgb = Random(static_cast<size_t>(w) * h * 3, 41);
    std::string png = TempPath("x.png"), pct = TempPath("x.pct"), back = TempPath("back.png");
    WriteFile(png, EncodePNG(rgb, w, h, PNG_FORMAT_RGB));
    for (const Tool &tool : tools) {
        // Their PICT read by our PCT loader.
        ASSERT_TRUE(RunTool(tool.prefix + " " + png + " PICT:" + pct)) << tool.name;
        CFStringRef in = Str(pct);
        PlimCFImage image = PlimCFImageCreateWithPathAndFormat(nullptr, in, kPlimImageFormatPCT);
        CFRelease(in);
        ASSERT_NE(image, nullptr) << tool.name;
        Bytes got = PixelsOf(PlimCFImageGetCGImage(image));
        ASSERT_EQ(got.size(), rgb.size() / 3 * 4);
        for (size_t i = 0; i < rgb.size() / 3; i++)
            ASSERT_EQ(0, std::memcmp(&got[i * 4 + 1], &rgb[i * 3], 3)) << tool.name << " pixel " << i;

        // Our PICT file read by them: colour channels equal.
        PlimCFImageExporter exporter = PlimCFImageExporterCreatePICT(nullptr);
        CFStringRef out = Str(pct);
        PlimCFImageExportToFile(exporter, PlimCFImageGetCGImage(image), out);
        CFRelease(out);
        CFRelease(exporter);
        CFRelease(image);
        ASSERT_TRUE(RunTool(tool.prefix + " PICT:" + pct + " PNG24:" + back)) << tool.name;
        bool grey = false;
        Bytes decoded = BarePNG(ReadFile(back), &grey);
        ASSERT_FALSE(grey);
        ASSERT_EQ(decoded.size(), rgb.size() / 3 * 4) << tool.name;
        for (size_t i = 0; i < rgb.size() / 3; i++)
            ASSERT_EQ(0, std::memcmp(&decoded[i * 4 + 1], &rgb[i * 3], 3)) << tool.name << " pixel " << i;
    }
    std::remove(png.c_str());
    std::remove(pct.c_str());
    std::remove(back.c_str());
}
