// Independent images used from several threads, from the process's first call into the library
// on: no registration, colour space or constant string may be made twice or raced for. This
// program holds this one test only, so that nothing touched the library before it; CI runs it
// under ThreadSanitizer too.
#include <PlimBitmapLib/PlimBitmapLib.h>

#include <gtest/gtest.h>

#include <barrier>
#include <cmath>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

namespace {

using Bytes = std::vector<UInt8>;

Bytes BytesOf(CFDataRef data) {
    Bytes b;
    if (data) {
        b.assign(CFDataGetBytePtr(data), CFDataGetBytePtr(data) + CFDataGetLength(data));
        CFRelease(data);
    }
    return b;
}

CFDataRef DataOf(const Bytes &b) { return CFDataCreate(nullptr, b.data(), static_cast<CFIndex>(b.size())); }

// What one worker made, to compare with the same work done again on one thread. Loaders are
// made when the files are read back; the exporter, context and colour match list types are
// registered by their first creations, here.
struct Outcome {
    Bytes png, tiff, pict;
    std::string path;        // the traced outline as SVG path data
    std::string reloaded;    // sizes of the three files read back
    bool madeEverything = false;
};

std::string Text(CFStringRef s) {
    std::string out;
    if (s) {
        const char *p = CFStringGetCStringPtr(s, kCFStringEncodingUTF8);
        out = p ? p : "";
        CFRelease(s);
    }
    return out;
}

std::string SizeOf(PlimCFImage image) {
    if (!image) return "none";
    std::string s = std::to_string(PlimCFImageGetWidth(image)) + "x" + std::to_string(PlimCFImageGetHeight(image));
    CFRelease(image);
    return s;
}

// Everything a worker does with images of its own, seeded by its number.
Outcome Work(int seed) {
    Outcome out;
    const UInt32 w = 48 + static_cast<UInt32>(seed) * 3, h = 32;
    Bytes argb(static_cast<size_t>(w) * h * 4);
    for (UInt32 y = 0; y < h; ++y)
        for (UInt32 x = 0; x < w; ++x) {
            UInt8 *p = &argb[(y * w + x) * 4];
            const int dx = static_cast<int>(x) - static_cast<int>(w) / 2, dy = static_cast<int>(y) - 16;
            p[0] = dx * dx + dy * dy < 100 + seed * 20 ? 255 : 0;  // an opaque disc
            p[1] = static_cast<UInt8>(p[0] ? x * 5 : 0);
            p[2] = static_cast<UInt8>(p[0] ? y * 7 : 0);
            p[3] = static_cast<UInt8>(p[0] ? seed * 60 : 0);
        }
    PlimCFImage source = PlimCFImageCreateWithBuffer(nullptr, argb.data(), w, h, 8, 32, w * 4, nullptr,
                                                     kCGImageAlphaPremultipliedFirst);
    PlimCFImage canvas = PlimCFImageCreateWithSize(nullptr, CGSizeMake(static_cast<float>(w), h), false);
    PlimCFContext context = PlimCFContextCreate(nullptr, 4, 4, nullptr, 8, 0, nullptr, kCGImageAlphaPremultipliedFirst);
    PlimCFColorMatchList list = PlimCFColorMatchListCreate(nullptr, 0, 4);
    PlimCFImageExporter pictExporter = PlimCFImageExporterCreatePICT(nullptr);
    if (!source || !canvas || !context || !list || !pictExporter) return out;

    // The grey canvas takes the colour disc: unification makes it colour with alpha.
    PlimCFImageComposite(source, canvas, nullptr, nullptr, 0, kPlimCompositeSrcOver);
    PlimCFImageScaleToSize(canvas, CGSizeMake(static_cast<float>(w) * 1.5f, 40));
    CGMutablePathRef path = PlimCFImageCopyAlphaPath(source, 0.5f);
    out.path = Text(path ? PlimCGPathCopySVGString(path) : nullptr);
    if (path) CGPathRelease(path);

    out.png = BytesOf(PlimCFImageCopyPNGData(nullptr, canvas));
    out.tiff = BytesOf(PlimCFImageCopyTIFFData(nullptr, canvas));
    out.pict = BytesOf(PlimCFImageExportCreateData(nullptr, pictExporter, PlimCFImageGetCGImage(canvas)));
    for (auto [file, format] : {std::pair{&out.png, kPlimImageFormatPNG}, std::pair{&out.tiff, kPlimImageFormatUnknown},
                                std::pair{&out.pict, kPlimImageFormatPICT}}) {
        CFDataRef data = DataOf(*file);
        out.reloaded += SizeOf(PlimCFImageCreateWithFormattedData(nullptr, data, format)) + " ";
        CFRelease(data);
    }
    out.madeEverything = true;
    CFRelease(pictExporter);
    CFRelease(list);
    CFRelease(context);
    CFRelease(canvas);
    CFRelease(source);
    return out;
}

TEST(Threads, FourThreadsWorkOnTheirOwnImagesFromTheFirstCallOn) {
    ASSERT_EQ(PlimCFImageGetTypeID(), 0u) << "the library was used before this test";
    // The tracer logs every call on standard output.
    std::fflush(stdout);
    const int savedStdout = dup(1), devNull = open("/dev/null", O_WRONLY);
    ASSERT_GE(devNull, 0);
    dup2(devNull, 1);

    constexpr int kThreads = 4;
    std::vector<Outcome> together(kThreads);
    std::barrier start(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&, t] {
            start.arrive_and_wait();
            together[t] = Work(t);
        });
    for (std::thread &thread : threads) thread.join();
    std::vector<Outcome> alone;
    for (int t = 0; t < kThreads; ++t) alone.push_back(Work(t));

    std::fflush(stdout);
    dup2(savedStdout, 1);
    close(savedStdout);
    close(devNull);

    for (int t = 0; t < kThreads; ++t) {
        SCOPED_TRACE("worker " + std::to_string(t));
        ASSERT_TRUE(together[t].madeEverything);
        ASSERT_TRUE(alone[t].madeEverything);
        EXPECT_FALSE(together[t].png.empty());
        EXPECT_FALSE(together[t].tiff.empty());
        EXPECT_FALSE(together[t].pict.empty());
        EXPECT_NE(together[t].path.find('Z'), std::string::npos);
        const std::string size = std::to_string(std::lround((48 + 3 * t) * 1.5)) + "x40 ";
        EXPECT_EQ(together[t].reloaded, size + size + size);
        // Each worker's results are exactly what the same work gives on one thread.
        EXPECT_EQ(together[t].png, alone[t].png);
        EXPECT_EQ(together[t].tiff, alone[t].tiff);
        EXPECT_EQ(together[t].pict, alone[t].pict);
        EXPECT_EQ(together[t].path, alone[t].path);
    }
}

// A loaded JPEG whose decoded pixels went to its image's buffer decodes them again when its
// rendered image is read next: readers on several threads at once all get the same pixels.
TEST(Threads, ReadersOfAHandedOverRenderedImageAllSeeItsPixels) {
    const UInt32 w = 64, h = 40;
    Bytes xrgb(static_cast<size_t>(w) * h * 4);
    for (size_t i = 0; i < xrgb.size(); ++i) xrgb[i] = static_cast<UInt8>(i * 7 + i / 256);
    PlimCFImage picture = PlimCFImageCreateWithBuffer(nullptr, xrgb.data(), w, h, 8, 32, w * 4, nullptr,
                                                      kCGImageAlphaNoneSkipFirst);
    PlimCFImageExporter jpeg = PlimCFImageExporterCreateJPEG(nullptr);
    ASSERT_TRUE(picture && jpeg);
    CFDataRef file = PlimCFImageExportCreateData(nullptr, jpeg, PlimCFImageGetCGImage(picture));
    ASSERT_NE(file, nullptr);
    PlimCFImage loaded = PlimCFImageCreateWithFormattedData(nullptr, file, kPlimImageFormatJPEG);
    ASSERT_NE(loaded, nullptr);
    CGImageRef rendered = PlimCFImageGetCGImage(loaded);
    const Bytes expected = BytesOf(CGDataProviderCopyData(CGImageGetDataProvider(rendered)));
    ASSERT_EQ(expected.size(), static_cast<size_t>(w) * h * 4);
    ASSERT_NE(PlimCFImageGetImageBuffer(loaded), nullptr);

    constexpr int kThreads = 4;
    std::vector<Bytes> seen(kThreads);
    std::barrier start(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&, t] {
            start.arrive_and_wait();
            seen[t] = BytesOf(CGDataProviderCopyData(CGImageGetDataProvider(rendered)));
        });
    for (std::thread &thread : threads) thread.join();
    for (const Bytes &s : seen) EXPECT_EQ(s, expected);
    CFRelease(loaded);
    CFRelease(file);
    CFRelease(jpeg);
    CFRelease(picture);
}

}  // namespace
