// Why loading, the front doors and exporting failed, through the public API: every failure class
// from every family of loaders, and the reason the exports to files give.
#include "errors/ErrorTestSupport.h"
#include "io/IOTestSupport.h"
#include "platform/runtime/CFRef.h"
#include "support/FailingAllocator.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

namespace {

using errortest::HeldOutput;
using errortest::ReasonOf;
using iotest::Bytes;
using plim::CFRef;

using PathLoader = PlimCFImageLoader (*)(CFAllocatorRef, CFStringRef);
using DataLoader = PlimCFImageLoader (*)(CFAllocatorRef, CFDataRef);

PlimError LoadReason(PathLoader load, const std::string &path) {
    CFRef<CFStringRef> cfPath(iotest::Str(path));
    return ReasonOf([&] {
        CFRef<PlimCFImageLoader> loader(load(nullptr, cfPath.get()));
        EXPECT_EQ(loader.get(), nullptr) << path;
    });
}

PlimError LoadReason(DataLoader load, const Bytes &bytes, CFAllocatorRef allocator = nullptr) {
    CFRef<CFDataRef> data(iotest::MakeData(bytes));
    return ReasonOf([&] {
        CFRef<PlimCFImageLoader> loader(load(allocator, data.get()));
        EXPECT_EQ(loader.get(), nullptr);
    });
}

PlimCFImageLoader FormattedXXXX(CFAllocatorRef allocator, CFDataRef data) {
    return PlimCFCreateFormattedImageLoaderFromData(allocator, data, 0x58585858);
}

// A scratch folder for one test, removed with everything in it.
struct Scratch {
    std::filesystem::path dir = iotest::TempPath("errors");
    Scratch() { std::filesystem::create_directories(dir); }
    ~Scratch() {
        chmod(dir.c_str(), 0755);
        std::filesystem::remove_all(dir);
    }
    std::string operator/(const std::string &name) const { return (dir / name).string(); }
};

Bytes PictData(PlimCFImageExporter (*create)(CFAllocatorRef), int size) {
    CFRef<PlimCFImage> image(PlimCFImageCreateWithSize(nullptr, CGSizeMake(size, size), true));
    CFRef<PlimCFImageExporter> exporter(create(nullptr));
    CFRef<CFDataRef> data(PlimCFImageExportCreateData(nullptr, exporter.get(), PlimCFImageGetCGImage(image.get())));
    const UInt8 *p = CFDataGetBytePtr(data.get());
    return Bytes(p, p + CFDataGetLength(data.get()));
}

// A JPEG that ends right after its scan header.
Bytes JPEGWithoutScanData(const Bytes &jpeg) {
    for (size_t i = 2; i + 3 < jpeg.size(); ++i)
        if (jpeg[i] == 0xFF && jpeg[i + 1] == 0xDA)
            return Bytes(jpeg.begin(), jpeg.begin() + static_cast<long>(i + 2 + (jpeg[i + 2] << 8) + jpeg[i + 3]));
    return {};
}

// A 4 x 4 RGB TIFF whose embedded colour profile is not one.
void WriteTIFFWithBrokenProfile(const std::string &path) {
    TIFF *tif = TIFFOpen(path.c_str(), "w");
    ASSERT_NE(tif, nullptr);
    TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, 4);
    TIFFSetField(tif, TIFFTAG_IMAGELENGTH, 4);
    TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, 3);
    TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, 8);
    TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
    TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, 4);
    Bytes profile = iotest::Random(200, 7);
    TIFFSetField(tif, TIFFTAG_ICCPROFILE, static_cast<uint32_t>(profile.size()), profile.data());
    Bytes row(12, 128);
    for (uint32_t y = 0; y < 4; ++y) TIFFWriteScanline(tif, row.data(), y, 0);
    TIFFClose(tif);
}

TEST(LastError, LoadersNameEachFailureClass) {
    HeldOutput held;  // the PICT loaders report damaged pictures as they fail
    Scratch scratch;
    const Bytes png = iotest::EncodePNG(iotest::Gradient(8, 8, 4), 8, 8, PNG_FORMAT_RGBA);
    const Bytes jpeg = iotest::EncodeJPEG(iotest::Gradient(8, 8, 3), 8, 8, 3, JCS_RGB);
    const Bytes pict = PictData(PlimCFImageExporterCreatePICT, 8);
    const Bytes text = {'n', 'o', 't', ' ', 'a', 'n', ' ', 'i', 'm', 'a', 'g', 'e', '!', '!', '!', '!'};
    ASSERT_FALSE(png.empty());
    ASSERT_FALSE(jpeg.empty());
    ASSERT_GT(pict.size(), 40u);

    // Files: each family reads them its own way (a data provider, a read stream, a data reference).
    std::ofstream(scratch / "empty.png").close();
    std::filesystem::create_directory(scratch / "folder.png");
    for (PathLoader load : {PlimCFCreatePNGImageLoaderFromPath, PlimCFCreateJPEGImageLoaderFromPath,
                            PlimCFCreatePICTImageLoaderFromPath, PlimCFCreatePCTImageLoaderFromPath,
                            PlimCFCreateUnknownImageLoaderFromPath}) {
        EXPECT_EQ(LoadReason(load, scratch / "missing.png"), kPlimErrorFileNotFound);
        EXPECT_EQ(LoadReason(load, scratch / "no/folder/x.png"), kPlimErrorFileNotFound);
        EXPECT_EQ(LoadReason(load, scratch / "folder.png"), kPlimErrorNotRegularFile);
        EXPECT_EQ(LoadReason(load, scratch / "empty.png"), kPlimErrorEmpty);
        EXPECT_EQ(ReasonOf([&] { EXPECT_EQ(load(nullptr, nullptr), nullptr); }), kPlimErrorInvalidArgument);
    }
    if (geteuid() != 0) {
        iotest::WriteFile(scratch / "locked.png", png);
        chmod((scratch / "locked.png").c_str(), 0);
        EXPECT_EQ(LoadReason(PlimCFCreatePNGImageLoaderFromPath, scratch / "locked.png"), kPlimErrorPermissionDenied);
        EXPECT_EQ(LoadReason(PlimCFCreatePCTImageLoaderFromPath, scratch / "locked.png"), kPlimErrorPermissionDenied);
        EXPECT_EQ(LoadReason(PlimCFCreateUnknownImageLoaderFromPath, scratch / "locked.png"),
                  kPlimErrorPermissionDenied);
    }
    WriteTIFFWithBrokenProfile(scratch / "profile.tiff");
    EXPECT_EQ(LoadReason(PlimCFCreateUnknownImageLoaderFromPath, scratch / "profile.tiff"), kPlimErrorInvalidProfile);

    // Bytes.
    Bytes damaged = png;
    for (size_t i = 60; i < damaged.size() - 20; ++i) damaged[i] ^= 0x5A;
    Bytes bmp16 = iotest::MakeBMP(iotest::Gradient(4, 4, 3), 4, 4);
    bmp16[28] = 16;
    const Bytes pngCut(png.begin(), png.begin() + 60);
    const Bytes pictCut(pict.begin(), pict.begin() + static_cast<long>(pict.size() / 2));
    const struct {
        DataLoader load;
        Bytes bytes;
        PlimError reason;
    } kCases[] = {
        {PlimCFCreatePNGImageLoaderFromData, {}, kPlimErrorEmpty},
        {PlimCFCreatePNGImageLoaderFromData, text, kPlimErrorUnsupportedFormat},
        {PlimCFCreatePNGImageLoaderFromData, jpeg, kPlimErrorUnsupportedFormat},
        {PlimCFCreatePNGImageLoaderFromData, pngCut, kPlimErrorTruncated},
        {PlimCFCreatePNGImageLoaderFromData, damaged, kPlimErrorCorrupt},
        {PlimCFCreateJPEGImageLoaderFromData, {}, kPlimErrorEmpty},
        {PlimCFCreateJPEGImageLoaderFromData, png, kPlimErrorUnsupportedFormat},
        {PlimCFCreateJPEGImageLoaderFromData, JPEGWithoutScanData(jpeg), kPlimErrorTruncated},
        {PlimCFCreatePICTImageLoaderFromData, {}, kPlimErrorEmpty},
        {PlimCFCreatePICTImageLoaderFromData, pictCut, kPlimErrorTruncated},
        {PlimCFCreatePICTImageLoaderFromData, text, kPlimErrorCorrupt},
        {PlimCFCreatePCTImageLoaderFromData, {}, kPlimErrorEmpty},
        {PlimCFCreatePCTImageLoaderFromData, Bytes(100, 0), kPlimErrorTruncated},
        {PlimCFCreateUnknownImageLoaderFromData, {}, kPlimErrorEmpty},
        {PlimCFCreateUnknownImageLoaderFromData, text, kPlimErrorUnsupportedFormat},
        {PlimCFCreateUnknownImageLoaderFromData, pngCut, kPlimErrorTruncated},
        {PlimCFCreateUnknownImageLoaderFromData, bmp16, kPlimErrorUnsupportedLayout},
        {FormattedXXXX, png, kPlimErrorUnsupportedFormat},
    };
    for (const auto &c : kCases)
        EXPECT_EQ(LoadReason(c.load, c.bytes), c.reason) << "case " << &c - kCases;
    for (DataLoader load : {PlimCFCreatePNGImageLoaderFromData, PlimCFCreatePICTImageLoaderFromData,
                            PlimCFCreateUnknownImageLoaderFromData})
        EXPECT_EQ(ReasonOf([&] { EXPECT_EQ(load(nullptr, nullptr), nullptr); }), kPlimErrorInvalidArgument);

    // Pictures over the decoding limit, from every kind of decoder.
    const UInt64 limit = PlimGetDecodingPixelLimit();
    PlimSetDecodingPixelLimit(16);
    EXPECT_EQ(LoadReason(PlimCFCreatePNGImageLoaderFromData, png), kPlimErrorTooLarge);
    EXPECT_EQ(LoadReason(PlimCFCreateJPEGImageLoaderFromData, jpeg), kPlimErrorTooLarge);
    EXPECT_EQ(LoadReason(PlimCFCreatePICTImageLoaderFromData, pict), kPlimErrorTooLarge);
    EXPECT_EQ(LoadReason(PlimCFCreateUnknownImageLoaderFromData, iotest::MakeBMP(iotest::Gradient(8, 8, 3), 8, 8)),
              kPlimErrorTooLarge);
    PlimSetDecodingPixelLimit(limit);

    // Memory that runs out at any step the caller's allocator serves.
    for (DataLoader load : {PlimCFCreatePNGImageLoaderFromData, PlimCFCreatePICTImageLoaderFromData,
                            PlimCFCreateUnknownImageLoaderFromData}) {
        const Bytes &bytes = load == PlimCFCreatePICTImageLoaderFromData ? pict : png;
        for (long budget = 0;; ++budget) {
            ASSERT_LT(budget, 64);
            plim::test::FailingAllocator allocator(budget);
            CFRef<CFDataRef> data(iotest::MakeData(bytes));
            PlimClearLastError();
            CFRef<PlimCFImageLoader> loader(load(allocator.get(), data.get()));
            if (loader) break;
            EXPECT_EQ(PlimGetLastError(), kPlimErrorOutOfMemory) << "budget " << budget;
        }
    }
}

TEST(LastError, FrontDoorsGiveTheMostTellingReasonAndKeepItOnSuccess) {
    HeldOutput held;
    Scratch scratch;
    const Bytes png = iotest::EncodePNG(iotest::Gradient(8, 8, 4), 8, 8, PNG_FORMAT_RGBA);
    const Bytes pict = PictData(PlimCFImageExporterCreatePICT, 8);
    iotest::WriteFile(scratch / "misnamed.jpg", png);
    iotest::WriteFile(scratch / "cut.pict", Bytes(pict.begin(), pict.begin() + static_cast<long>(pict.size() / 2)));
    std::filesystem::create_directory(scratch / "folder.jpg");
    auto fromPath = [](const std::string &path, PlimImageFormat format) {
        CFRef<CFStringRef> cfPath(iotest::Str(path));
        return CFRef<PlimCFImage>(PlimCFImageCreateWithPathAndFormat(nullptr, cfPath.get(), format));
    };

    // A named format's loader knows a damaged picture that nothing recognises by its content.
    EXPECT_EQ(ReasonOf([&] { EXPECT_FALSE(fromPath(scratch / "cut.pict", 0)); }), kPlimErrorTruncated);
    EXPECT_EQ(ReasonOf([&] { EXPECT_FALSE(fromPath(scratch / "missing.png", 0)); }), kPlimErrorFileNotFound);
    EXPECT_EQ(ReasonOf([&] { EXPECT_FALSE(fromPath(scratch / "folder.jpg", 0)); }), kPlimErrorNotRegularFile);
    EXPECT_EQ(ReasonOf([&] { EXPECT_FALSE(fromPath(scratch / "misnamed.jpg", 5)); }), kPlimErrorInvalidArgument);
    EXPECT_EQ(ReasonOf([] { EXPECT_EQ(PlimCFImageCreateWithData(nullptr, nullptr), nullptr); }),
              kPlimErrorInvalidArgument);
    CFRef<CFDataRef> empty(iotest::MakeData({}));
    EXPECT_EQ(ReasonOf([&] { EXPECT_EQ(PlimCFImageCreateWithFormattedData(nullptr, empty.get(), 3), nullptr); }),
              kPlimErrorEmpty);

    // The JPEG loader's failure on a misnamed PNG is no failure of the call, which succeeds: the
    // caller's last error stays as it was, like errno.
    EXPECT_EQ(PlimCFImageCreateWithPath(nullptr, nullptr), nullptr);
    ASSERT_EQ(PlimGetLastError(), kPlimErrorInvalidArgument);
    EXPECT_TRUE(fromPath(scratch / "misnamed.jpg", 0));
    EXPECT_EQ(PlimGetLastError(), kPlimErrorInvalidArgument);

    CFRef<PlimCFImage> nothing(PlimCFImageCreate(nullptr));
    EXPECT_EQ(ReasonOf([&] { EXPECT_EQ(PlimCFImageCopyPNGData(nullptr, nothing.get()), nullptr); }),
              kPlimErrorNoPixels);
}

TEST(LastError, ExportsToFilesSayWhetherAndWhyTheyFailed) {
    Scratch scratch;
    CFRef<PlimCFImage> image(PlimCFImageCreateWithSize(nullptr, CGSizeMake(6, 4), true));
    CGImageRef rendered = PlimCFImageGetCGImage(image.get());
    CFRef<PlimCFImageExporter> png(PlimCFImageExporterCreatePNG(nullptr));
    CFRef<PlimCFImageExporter> pict(PlimCFImageExporterCreatePICT(nullptr));
    auto write = [&](PlimCFImageExporter exporter, CGImageRef picture, const std::string &path) {
        CFRef<CFStringRef> cfPath(iotest::Str(path));
        return PlimCFImageExportWriteToFile(exporter, picture, cfPath.get()) != 0;
    };
    auto writeURL = [&](PlimCFImageExporter exporter, CGImageRef picture, const std::string &path) {
        CFRef<CFStringRef> cfPath(iotest::Str(path));
        CFRef<CFURLRef> url(CFURLCreateWithFileSystemPath(nullptr, cfPath.get(), kCFURLPOSIXPathStyle, false));
        return PlimCFImageExportWriteToURL(exporter, picture, url.get()) != 0;
    };

    // Success: the whole file (a PICT file with its header), and the last error left alone.
    PlimClearLastError();
    EXPECT_EQ(PlimCFImageExporterCreateJPEGWithQuality(nullptr, 0), nullptr);
    EXPECT_TRUE(write(pict.get(), rendered, scratch / "out.pict"));
    EXPECT_TRUE(writeURL(png.get(), rendered, scratch / "out.png"));
    EXPECT_EQ(PlimGetLastError(), kPlimErrorInvalidArgument);
    CFRef<CFDataRef> pictData(PlimCFImageExportCreateData(nullptr, pict.get(), rendered));
    Bytes file = iotest::ReadFile(scratch / "out.pict");
    ASSERT_EQ(file.size(), static_cast<size_t>(CFDataGetLength(pictData.get())) + 512);
    EXPECT_TRUE(std::equal(file.begin() + 512, file.end(), CFDataGetBytePtr(pictData.get())));

    // Failures, from both new calls and, by the last error alone, from the described ones.
    std::filesystem::create_directory(scratch / "folder.png");
    const struct {
        std::string path;
        PlimError reason;
    } kCases[] = {
        {scratch / "no/such/folder/out.png", kPlimErrorFileNotFound},
        {scratch / "folder.png", kPlimErrorNotRegularFile},
        {"/dev/full", kPlimErrorWriteFailed},
    };
    for (const auto &c : kCases) {
        if (c.path == "/dev/full" && access("/dev/full", W_OK) != 0) continue;
        EXPECT_EQ(ReasonOf([&] { EXPECT_FALSE(write(png.get(), rendered, c.path)); }), c.reason) << c.path;
        EXPECT_EQ(ReasonOf([&] { EXPECT_FALSE(writeURL(png.get(), rendered, c.path)); }), c.reason) << c.path;
        CFRef<CFStringRef> cfPath(iotest::Str(c.path));
        EXPECT_EQ(ReasonOf([&] { PlimCFImageExportToFile(png.get(), rendered, cfPath.get()); }), c.reason);
    }
    if (geteuid() != 0) {
        std::filesystem::create_directory(scratch / "locked");
        chmod((scratch / "locked").c_str(), 0500);
        EXPECT_EQ(ReasonOf([&] { EXPECT_FALSE(write(png.get(), rendered, scratch / "locked/out.png")); }),
                  kPlimErrorPermissionDenied);
    }

    // Nothing to encode, or a picture the encoder cannot take: no file at all.
    EXPECT_EQ(ReasonOf([&] { EXPECT_FALSE(write(png.get(), nullptr, scratch / "none.png")); }),
              kPlimErrorInvalidArgument);
    EXPECT_EQ(ReasonOf([&] { EXPECT_EQ(PlimCFImageExportCreateData(nullptr, png.get(), nullptr), nullptr); }),
              kPlimErrorInvalidArgument);
    CFRef<PlimCFImage> wide(PlimCFImageCreateWithSize(nullptr, CGSizeMake(70000, 1), false));
    CFRef<PlimCFImageExporter> jpeg(PlimCFImageExporterCreateJPEG(nullptr));
    EXPECT_EQ(ReasonOf([&] { EXPECT_FALSE(write(jpeg.get(), PlimCFImageGetCGImage(wide.get()), scratch / "wide.jpg")); }),
              kPlimErrorUnsupportedLayout);
    EXPECT_FALSE(std::filesystem::exists(scratch / "none.png"));
    EXPECT_FALSE(std::filesystem::exists(scratch / "wide.jpg"));
    EXPECT_EQ(ReasonOf([] { EXPECT_EQ(PlimCFImageExporterCreateJPEGWithQuality(nullptr, 101), nullptr); }),
              kPlimErrorInvalidArgument);
    EXPECT_EQ(ReasonOf([] { EXPECT_EQ(PlimCFImageExporterCreateWebPWithQuality(nullptr, 0), nullptr); }),
              kPlimErrorInvalidArgument);
}

}  // namespace
