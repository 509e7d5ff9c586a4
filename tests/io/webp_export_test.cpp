// The WebP exporters: lossless keeps every sample (colour under transparent pixels too), lossy
// codes what cwebp codes at the same quality, qualities outside 1 to 100 are refused, and a
// colour profile travels with the file.
#include "io/ForeignFiles.h"

#include <gtest/gtest.h>

#include <webp/decode.h>
#include <webp/demux.h>

namespace {

using namespace foreign;

// A rendered image over straight A,R,G,B (or grey) bytes, which the exporters take as they are.
CGImageRef MakeImage(const Bytes &pixels, size_t w, size_t h, bool grey, CGColorSpaceRef space = nullptr) {
    CFRef<CFDataRef> data(iotest::MakeData(pixels));
    CFRef<CGDataProviderRef> provider(CGDataProviderCreateWithCFData(data.get()));
    CFRef<CGColorSpaceRef> own(space ? nullptr
                                     : grey ? CGColorSpaceCreateWithName(kCGColorSpaceGenericGray)
                                            : PlimCGColorSpaceCreateMainDisplay());
    return CGImageCreate(w, h, 8, grey ? 8 : 32, grey ? w : w * 4, space ? space : own.get(),
                         grey ? kCGImageAlphaNone : kCGImageAlphaFirst, provider.get(), nullptr, true,
                         kCGRenderingIntentDefault);
}

Bytes Export(PlimCFImageExporter exporter, CGImageRef image) {
    CFRef<CFDataRef> data(PlimCFImageExportCreateData(nullptr, exporter, image));
    if (!data) return {};
    return Bytes(CFDataGetBytePtr(data.get()), CFDataGetBytePtr(data.get()) + CFDataGetLength(data.get()));
}

Bytes ExportLossless(CGImageRef image) {
    CFRef<PlimCFImageExporter> exporter(PlimCFImageExporterCreateWebPLossless(nullptr));
    return Export(exporter.get(), image);
}

// Bare libwebp's A,R,G,B decode.
Bytes Decode(const Bytes &file, int *w, int *h) {
    uint8_t *argb = WebPDecodeARGB(file.data(), file.size(), w, h);
    if (!argb) return {};
    Bytes out(argb, argb + static_cast<size_t>(*w) * *h * 4);
    WebPFree(argb);
    return out;
}

Bytes Chunk(const Bytes &file, const char *fourcc) {
    const WebPData data{file.data(), file.size()};
    WebPDemuxer *demux = WebPDemux(&data);
    Bytes out;
    WebPChunkIterator it;
    if (demux && WebPDemuxGetChunk(demux, fourcc, 1, &it)) {
        out.assign(it.chunk.bytes, it.chunk.bytes + it.chunk.size);
        WebPDemuxReleaseChunkIterator(&it);
    }
    WebPDemuxDelete(demux);
    return out;
}

}  // namespace

TEST(WebPExport, LosslessKeepsEverySample) {
    const size_t w = 29, h = 17;
    Bytes argb = iotest::Random(w * h * 4, 3);
    for (size_t i = 0; i < w * 3; i++) argb[i * 4] = i % 2 ? 0 : 255;  // clear and opaque pixels too
    CFRef<CGImageRef> colour(MakeImage(argb, w, h, false));
    Bytes file = ExportLossless(colour.get());
    int dw = 0, dh = 0;
    EXPECT_EQ(Decode(file, &dw, &dh), argb);
    EXPECT_EQ(dw * dh, static_cast<int>(w * h));
    // The display's own sRGB profile is what WebP assumes anyway: no profile chunk.
    EXPECT_TRUE(Chunk(file, "ICCP").empty());

    // Through the library again: the same samples, premultiplied as loaders store them.
    CFRef<PlimCFImage> back(PlimCFImageCreateWithData(nullptr, CFRef<CFDataRef>(iotest::MakeData(file)).get()));
    ASSERT_TRUE(back);
    Bytes premultiplied = argb;
    PlimCFPremultiplyARGBBuffer(premultiplied.data(), static_cast<UInt32>(premultiplied.size()));
    EXPECT_EQ(RenderedPixels(PlimCFImageGetCGImage(back.get()), false).argb, premultiplied);

    Bytes grey = iotest::Random(w * h, 4), expanded;
    for (uint8_t g : grey) expanded.insert(expanded.end(), {255, g, g, g});
    CFRef<CGImageRef> greyImage(MakeImage(grey, w, h, true));
    EXPECT_EQ(Decode(ExportLossless(greyImage.get()), &dw, &dh), expanded);
}

// The same quality gives the same coded picture as cwebp from a PNG of the same samples.
TEST(WebPExport, LossyCodesAsCwebpAtEachQuality) {
    const int w = 41, h = 27;
    Bytes rgba = iotest::Gradient(w, h, 4), argb(rgba.size());
    for (size_t i = 0; i < rgba.size(); i += 4) {
        rgba[i + 3] = static_cast<uint8_t>(i / 4 % w * 255 / (w - 1));
        argb[i] = rgba[i + 3];
        std::copy(&rgba[i], &rgba[i + 3], &argb[i + 1]);
    }
    CFRef<CGImageRef> image(MakeImage(argb, w, h, false));
    TempDir dir;
    iotest::WriteFile(dir / "source.png", iotest::EncodePNG(rgba, w, h, PNG_FORMAT_RGBA));
    size_t previousSize = 0;
    for (UInt32 quality : {1u, 30u, 75u, 100u}) {
        SCOPED_TRACE(quality);
        CFRef<PlimCFImageExporter> exporter(PlimCFImageExporterCreateWebPWithQuality(nullptr, quality));
        ASSERT_TRUE(exporter);
        Bytes ours = Export(exporter.get(), image.get());
        int ow = 0, oh = 0;
        Bytes decoded = Decode(ours, &ow, &oh);
        ASSERT_EQ(decoded.size(), argb.size());
        EXPECT_NE(decoded, argb) << "lossy coding at every quality";
        EXPECT_GT(ours.size(), previousSize) << "a higher quality makes a larger file";
        previousSize = ours.size();
        if (!HaveTool("cwebp")) continue;
        const std::string theirs = dir / "cwebp.webp";
        ASSERT_TRUE(Shell("cwebp -quiet -q " + std::to_string(quality) + " '" + (dir / "source.png") + "' -o '" +
                          theirs + "'"));
        int tw = 0, th = 0;
        EXPECT_EQ(decoded, Decode(iotest::ReadFile(theirs), &tw, &th));
    }
    for (UInt32 bad : {0u, 101u, 0xFFFFFFFFu})
        EXPECT_FALSE(CFRef<PlimCFImageExporter>(PlimCFImageExporterCreateWebPWithQuality(nullptr, bad))) << bad;
}

// A profile other than sRGB is written into the file and is the loaded image's colour space.
TEST(WebPExport, ProfilesTravelWithTheFile) {
    CFRef<CGColorSpaceRef> display(PlimCGColorSpaceCreateMainDisplay());
    CFRef<CFDataRef> displayICC(CGColorSpaceCopyICCProfile(display.get()));
    ASSERT_TRUE(displayICC);
    // The display profile with another description is still sRGB; make a real other one by
    // giving the red colorant a different value.
    const UInt8 *displayBytes = CFDataGetBytePtr(displayICC.get());
    Bytes icc(displayBytes, displayBytes + CFDataGetLength(displayICC.get()));
    const char *tag = "rXYZ";
    auto at = std::search(icc.begin() + 132, icc.end(), tag, tag + 4);
    ASSERT_NE(at, icc.end());
    size_t offset = static_cast<size_t>(at[4]) << 24 | at[5] << 16 | at[6] << 8 | at[7];
    icc[offset + 10] ^= 0x40;  // the high byte of the X value's fraction
    CFRef<CGColorSpaceRef> other(CGColorSpaceCreateWithICCProfile(CFRef<CFDataRef>(iotest::MakeData(icc)).get()));
    ASSERT_TRUE(other);
    CFRef<CGImageRef> image(MakeImage(iotest::Random(16 * 9 * 4, 5), 16, 9, false, other.get()));
    const Bytes file = ExportLossless(image.get());
    EXPECT_EQ(Chunk(file, "ICCP"), icc);
    CFRef<PlimCFImage> back(PlimCFImageCreateWithData(nullptr, CFRef<CFDataRef>(iotest::MakeData(file)).get()));
    ASSERT_TRUE(back);
    CGColorSpaceRef space = CGImageGetColorSpace(PlimCFImageGetCGImage(back.get()));
    CFRef<CFDataRef> loaded(CGColorSpaceCopyICCProfile(space));
    ASSERT_TRUE(loaded);
    const UInt8 *loadedBytes = CFDataGetBytePtr(loaded.get());
    EXPECT_EQ(Bytes(loadedBytes, loadedBytes + CFDataGetLength(loaded.get())), icc);
}
