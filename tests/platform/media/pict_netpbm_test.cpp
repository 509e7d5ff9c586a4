// Cross-checks against the netpbm converters, when they are installed.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>

#include "platform/media/PictTestSupport.h"
#include "platform/media/pict/PictCodec.h"

using namespace plim::pict;
using namespace pict_test;

namespace {

bool HaveTool(const char* name) {
    const std::string cmd = std::string("command -v ") + name + " >/dev/null 2>&1";
    return std::system(cmd.c_str()) == 0;
}

struct TempDir {
    std::filesystem::path path;
    TempDir() {
        path = std::filesystem::temp_directory_path() /
               ("plim-pict-" + std::to_string(::getpid()) + "-" + std::to_string(std::rand()));
        std::filesystem::create_directories(path);
    }
    ~TempDir() { std::filesystem::remove_all(path); }
};

std::vector<uint8_t> ReadFile(const std::filesystem::path& p) {
    std::ifstream in(p, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), {});
}

void WriteFile(const std::filesystem::path& p, const std::vector<uint8_t>& bytes) {
    std::ofstream out(p, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
}

// A binary PPM (P6, maxval 255) of the RGB bytes.
std::vector<uint8_t> MakePpm(int width, int height, const std::vector<uint8_t>& rgb) {
    const std::string head =
        "P6\n" + std::to_string(width) + " " + std::to_string(height) + "\n255\n";
    std::vector<uint8_t> out(head.begin(), head.end());
    out.insert(out.end(), rgb.begin(), rgb.end());
    return out;
}

// Parses a P6 PPM with maxval 255; false when it is anything else.
bool ParsePpm(const std::vector<uint8_t>& ppm, int* width, int* height, std::vector<uint8_t>* rgb) {
    std::string text(ppm.begin(), ppm.end());
    std::istringstream in(text);
    std::string magic;
    int maxval = 0;
    in >> magic >> *width >> *height >> maxval;
    if (magic != "P6" || maxval != 255 || *width <= 0 || *height <= 0) return false;
    const size_t offset = static_cast<size_t>(in.tellg()) + 1;
    const size_t n = static_cast<size_t>(*width) * static_cast<size_t>(*height) * 3;
    if (ppm.size() < offset + n) return false;
    rgb->assign(ppm.begin() + static_cast<long>(offset),
                ppm.begin() + static_cast<long>(offset + n));
    return true;
}

// An image of at most 40 distinct colours with runs, so that ppmtopict keeps it exact.
std::vector<uint8_t> PaletteImage(std::mt19937& rng, int width, int height) {
    std::vector<Rgb> palette;
    for (int i = 0; i < 40; ++i) {
        palette.push_back(Rgb{static_cast<uint8_t>(rng()), static_cast<uint8_t>(rng()),
                              static_cast<uint8_t>(rng())});
    }
    palette[0] = Rgb{0, 0, 0};
    palette[1] = Rgb{255, 255, 255};
    std::vector<uint8_t> rgb;
    Rgb c = palette[0];
    for (int i = 0; i < width * height; ++i) {
        if (rng() % 5 == 0) c = palette[rng() % palette.size()];
        rgb.insert(rgb.end(), {c.r, c.g, c.b});
    }
    return rgb;
}

}  // namespace

TEST(PictNetpbm, PicturesFromPpmtopictDecodeToThePpmPixels) {
    if (!HaveTool("ppmtopict")) GTEST_SKIP() << "ppmtopict not installed";
    TempDir dir;
    std::mt19937 rng(5);
    struct Size {
        int w, h;
    };
    for (Size size : {Size{8, 1}, Size{9, 3}, Size{31, 7}, Size{251, 2}, Size{300, 5}}) {
        const std::vector<uint8_t> rgb = PaletteImage(rng, size.w, size.h);
        WriteFile(dir.path / "in.ppm", MakePpm(size.w, size.h, rgb));
        const std::string cmd = "ppmtopict " + (dir.path / "in.ppm").string() + " > " +
                                (dir.path / "out.pict").string() + " 2>/dev/null";
        ASSERT_EQ(std::system(cmd.c_str()), 0);
        const std::vector<uint8_t> file = ReadFile(dir.path / "out.pict");
        ASSERT_GT(file.size(), 512u);
        std::vector<uint8_t> argb;
        PictInfo info{};
        ASSERT_EQ(DecodePict(file.data() + 512, file.size() - 512, &argb, &info), PictStatus::Ok)
            << size.w << "x" << size.h;
        ASSERT_EQ(info.width, size.w);
        ASSERT_EQ(info.height, size.h);
        EXPECT_EQ(info.depth, 24);  // a colour table with colours in it
        for (int i = 0; i < size.w * size.h; ++i) {
            const size_t p = static_cast<size_t>(i);
            ASSERT_EQ(PixelAt(argb, size.w, i % size.w, i / size.w),
                      Argb(255, rgb[3 * p], rgb[3 * p + 1], rgb[3 * p + 2]))
                << "pixel " << i << " of " << size.w << "x" << size.h;
        }
    }
}

TEST(PictNetpbm, OurFilesConvertBackWithPicttoppm) {
    if (!HaveTool("picttoppm")) GTEST_SKIP() << "picttoppm not installed";
    TempDir dir;
    std::mt19937 rng(6);
    for (int width : {2, 9, 260}) {
        const int height = 3;
        const std::vector<uint8_t> rgb = PaletteImage(rng, width, height);
        std::vector<uint8_t> argb;
        for (size_t i = 0; i < rgb.size(); i += 3)
            argb.insert(argb.end(), {255, rgb[i], rgb[i + 1], rgb[i + 2]});
        std::vector<uint8_t> file;
        ASSERT_TRUE(EncodePictFile(argb.data(), width, height, static_cast<size_t>(width) * 4,
                                   false, &file));
        WriteFile(dir.path / "ours.pict", file);
        const std::string cmd = "picttoppm " + (dir.path / "ours.pict").string() + " > " +
                                (dir.path / "back.ppm").string() + " 2>/dev/null";
        ASSERT_EQ(std::system(cmd.c_str()), 0);
        int w = 0, h = 0;
        std::vector<uint8_t> back;
        ASSERT_TRUE(ParsePpm(ReadFile(dir.path / "back.ppm"), &w, &h, &back));
        EXPECT_EQ(w, width);
        EXPECT_EQ(h, height);
        EXPECT_EQ(back, rgb);
    }
}
