// The JPEG exporter with a quality: libjpeg's quality scale exactly (the same quantisation tables
// and the same decoded pixels as bare libjpeg at that quality), the plain creator at that scale's
// default, and out-of-range qualities refused.
#include <gtest/gtest.h>

#include "io/IOTestSupport.h"

using namespace iotest;

namespace {

Bytes ExportWith(PlimCFImageExporter exporter, PlimCFImage image) {
    CFDataRef data = PlimCFImageExportCreateData(nullptr, exporter, PlimCFImageGetCGImage(image));
    if (!data) return {};
    Bytes out(CFDataGetBytePtr(data), CFDataGetBytePtr(data) + CFDataGetLength(data));
    CFRelease(data);
    return out;
}

// The quantisation table segments (DQT) of a JPEG file, in file order.
Bytes QuantisationTables(const Bytes &jpeg) {
    Bytes tables;
    size_t at = 2;  // after SOI
    while (at + 4 <= jpeg.size() && jpeg[at] == 0xFF && jpeg[at + 1] != 0xDA) {
        size_t length = static_cast<size_t>(jpeg[at + 2]) << 8 | jpeg[at + 3];
        if (jpeg[at + 1] == 0xDB) tables.insert(tables.end(), jpeg.begin() + static_cast<long>(at),
                                                jpeg.begin() + static_cast<long>(at + 2 + length));
        at += 2 + length;
    }
    return tables;
}

// Same tables and same decoded pixels: the files differ at most in their metadata.
void ExpectSameCoding(const Bytes &ours, const Bytes &reference, UInt32 quality) {
    Bytes tables = QuantisationTables(reference);
    ASSERT_FALSE(tables.empty());
    EXPECT_EQ(QuantisationTables(ours), tables) << "quality " << quality;
    int oursComponents = 0, referenceComponents = 0;
    EXPECT_EQ(BareJPEG(ours, &oursComponents), BareJPEG(reference, &referenceComponents))
        << "quality " << quality;
}

}  // namespace

TEST(JPEGQuality, EveryQualityMatchesBareLibjpegAndTheDefaultIs75) {
    const int w = 24, h = 16;
    // Gradient with noise on top, so that the quantisation tables show in every byte.
    Bytes rgb = Gradient(w, h, 3);
    Bytes noise = Random(rgb.size(), 5);
    for (size_t i = 0; i < rgb.size(); i++) rgb[i] = static_cast<uint8_t>(rgb[i] ^ (noise[i] & 15));
    CFDataRef png = MakeData(EncodePNG(rgb, w, h, PNG_FORMAT_RGB));
    PlimCFImage image = PlimCFImageCreateWithData(nullptr, png);
    CFRelease(png);
    ASSERT_NE(image, nullptr);

    for (UInt32 quality = 1; quality <= 100; quality++) {
        PlimCFImageExporter exporter = PlimCFImageExporterCreateJPEGWithQuality(nullptr, quality);
        ASSERT_NE(exporter, nullptr) << quality;
        Bytes ours = ExportWith(exporter, image);
        CFRelease(exporter);
        ExpectSameCoding(ours, EncodeJPEG(rgb, w, h, 3, JCS_RGB, static_cast<int>(quality)), quality);
    }

    PlimCFImageExporter plain = PlimCFImageExporterCreateJPEG(nullptr);
    ExpectSameCoding(ExportWith(plain, image), EncodeJPEG(rgb, w, h, 3, JCS_RGB, 75), 75);
    CFRelease(plain);

    for (UInt32 bad : {0u, 101u, 1000u, 0xFFFFFFFFu})
        EXPECT_EQ(PlimCFImageExporterCreateJPEGWithQuality(nullptr, bad), nullptr) << bad;
    CFRelease(image);
}
