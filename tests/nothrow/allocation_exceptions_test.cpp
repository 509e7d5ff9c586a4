// No C++ exception leaves the C API. This program replaces the global operator new with one that
// throws std::bad_alloc from a chosen call on, and drives the library's families through every
// such failure point: each call must come back with its failure result (null, false, nothing
// done), never with an exception, and nothing it made may leak (LeakSanitizer in the sanitizer
// build).
#include <PlimBitmapLib/PlimBitmapLib.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include "io/IOTestSupport.h"

#include <lcms2.h>
#include "nothrow/FailingNew.h"

namespace {

using iotest::Bytes;

struct Operation {
    std::string name;
    std::function<void()> run;
};

// Runs `op` once to count its allocations, then once for every allocation failing first.
void DriveEveryFailure(const Operation &op) {
    nothrow_test::Arm(-1);
    op.run();
    const long calls = nothrow_test::Calls();
    for (long k = 0; k <= calls; ++k) {
        std::string escaped;
        nothrow_test::Arm(k);
        try {
            op.run();
        } catch (const std::exception &e) {
            escaped = e.what();
        } catch (...) {
            escaped = "an unknown exception";
        }
        nothrow_test::Arm(-1);
        if (!escaped.empty()) {
            ADD_FAILURE() << op.name << ": " << escaped << " escaped when allocation " << k << " of " << calls
                          << " failed";
            return;
        }
    }
}

// Runs `work` with standard output sent to /dev/null (the tracer logs every call there).
void Quietly(const std::function<void()> &work) {
    std::fflush(stdout);
    const int saved = dup(1), devNull = open("/dev/null", O_WRONLY);
    if (saved >= 0 && devNull >= 0) dup2(devNull, 1);
    try {
        work();
    } catch (...) {
        std::fflush(stdout);
        if (saved >= 0) dup2(saved, 1);
        if (saved >= 0) close(saved);
        if (devNull >= 0) close(devNull);
        throw;
    }
    std::fflush(stdout);
    if (saved >= 0) dup2(saved, 1);
    if (saved >= 0) close(saved);
    if (devNull >= 0) close(devNull);
}

CFDataRef Data(const Bytes &b) { return iotest::MakeData(b); }

// A 9 x 7 premultiplied image with a soft round hole, so that tracing finds several paths.
PlimCFImage MakeImage() {
    std::vector<UInt8> argb(9 * 7 * 4);
    for (int y = 0; y < 7; ++y)
        for (int x = 0; x < 9; ++x) {
            UInt8 *p = &argb[(y * 9 + x) * 4];
            const int d = (x - 4) * (x - 4) + (y - 3) * (y - 3);
            p[0] = d < 4 ? 0 : d < 9 ? 128 : 255;
            p[1] = static_cast<UInt8>(p[0] * x / 9);
            p[2] = static_cast<UInt8>(p[0] * y / 7);
            p[3] = p[0] / 2;
        }
    return PlimCFImageCreateWithBuffer(nullptr, argb.data(), 9, 7, 8, 32, 36, nullptr,
                                       kCGImageAlphaPremultipliedFirst);
}

void Release(CFTypeRef object) {
    if (object) CFRelease(object);
}

// An RGB space outside the sRGB family (wide primaries, the given gamma), so that drawing from
// it converts through a colour engine transform. Allocates nothing with operator new itself.
CGColorSpaceRef WideSpace(double gamma) {
    cmsCIExyY white = {0.3127, 0.3290, 1.0};
    cmsCIExyYTRIPLE primaries = {{0.64, 0.33, 1.0}, {0.21, 0.71, 1.0}, {0.15, 0.06, 1.0}};
    cmsToneCurve *curve = cmsBuildGamma(nullptr, gamma);
    cmsToneCurve *curves[3] = {curve, curve, curve};
    cmsHPROFILE profile = cmsCreateRGBProfile(&white, &primaries, curves);
    cmsFreeToneCurve(curve);
    cmsUInt32Number size = 0;
    void *bytes = cmsSaveProfileToMem(profile, nullptr, &size) ? std::malloc(size) : nullptr;
    CGColorSpaceRef space = nullptr;
    if (bytes && cmsSaveProfileToMem(profile, bytes, &size)) {
        CFDataRef data = CFDataCreate(nullptr, static_cast<const UInt8 *>(bytes), static_cast<CFIndex>(size));
        space = data ? CGColorSpaceCreateWithICCProfile(data) : nullptr;
        Release(data);
    }
    std::free(bytes);
    cmsCloseProfile(profile);
    return space;
}

Bytes Encode(PlimCFImageExporter (*create)(CFAllocatorRef), PlimCFImage image) {
    PlimCFImageExporter exporter = create(nullptr);
    CFDataRef data = PlimCFImageExportCreateData(nullptr, exporter, PlimCFImageGetCGImage(image));
    Bytes bytes(CFDataGetBytePtr(data), CFDataGetBytePtr(data) + CFDataGetLength(data));
    CFRelease(data);
    CFRelease(exporter);
    return bytes;
}

TEST(NoExceptions, EveryFamilyFailsQuietlyWhenOperatorNewThrows) {
    PlimCFImage source = MakeImage();
    ASSERT_NE(source, nullptr);
    const Bytes png = Encode(PlimCFImageExporterCreatePNG, source);
    const Bytes jpeg = Encode(PlimCFImageExporterCreateJPEG, source);
    const Bytes tiff = Encode(PlimCFImageExporterCreateTIFF, source);
    const Bytes pict = Encode(PlimCFImageExporterCreatePICT, source);
    Bytes pct = pict;
    pct.insert(pct.begin(), 512, 0);
    const Bytes palette = iotest::Random(256 * 3, 1), indexes = iotest::Random(9 * 7, 2);
    const Bytes gif = iotest::MakeGIF(indexes, 9, 7, palette, 3, true);
    const Bytes bmp = iotest::MakeBMP(iotest::Random(9 * 7 * 3, 3), 9, 7);
    std::vector<UInt8> widePixels(9 * 7 * 4, 0x9C);
    const std::string pngPath = iotest::TempPath("nothrow.png");
    iotest::WriteFile(pngPath, png);

    auto load = [](const Bytes &file, PlimImageFormat format) {
        return [&file, format] {
            CFDataRef data = Data(file);
            Release(PlimCFImageCreateWithFormattedData(nullptr, data, format));
            Release(PlimCFCreateUnknownImageLoaderFromData(nullptr, data));
            Release(data);
        };
    };
    auto onCopy = [&source](std::function<void(PlimCFImage)> work) {
        return [&source, work] {
            PlimCFImage copy = PlimCFImageCreateCopy(nullptr, source);
            if (copy) work(copy);
            Release(copy);
        };
    };
    auto exportAs = [&source](PlimCFImageExporter (*create)(CFAllocatorRef)) {
        return [&source, create] {
            PlimCFImageExporter exporter = create(nullptr);
            if (exporter) Release(PlimCFImageExportCreateData(nullptr, exporter, PlimCFImageGetCGImage(source)));
            Release(exporter);
        };
    };

    const std::vector<Operation> operations = {
        {"PNG", load(png, kPlimImageFormatPNG)},
        {"JPEG", load(jpeg, kPlimImageFormatJPEG)},
        {"JPEG pixels handed to the buffer, then read again",
         [&jpeg] {
             CFDataRef data = Data(jpeg);
             PlimCFImage image = PlimCFImageCreateWithFormattedData(nullptr, data, kPlimImageFormatJPEG);
             if (image && PlimCFImageGetImageBuffer(image)) {
                 Release(PlimCFImageCopyPNGData(nullptr, image));
                 PlimCFImagePromoteImage(image, true, true);
             }
             Release(image);
             Release(data);
         }},
        {"TIFF", load(tiff, kPlimImageFormatUnknown)},
        {"GIF", load(gif, kPlimImageFormatUnknown)},
        {"BMP", load(bmp, kPlimImageFormatUnknown)},
        {"PICT", load(pict, kPlimImageFormatPICT)},
        {"PCT", load(pct, kPlimImageFormatPCT)},
        {"PNG from a path",
         [&pngPath] {
             CFStringRef path = iotest::Str(pngPath);
             if (path) Release(PlimCFImageCreateWithPath(nullptr, path));
             if (path) Release(PlimCFCreateUnknownImageLoaderFromPath(nullptr, path));
             Release(path);
         }},
        {"PNG export", exportAs(PlimCFImageExporterCreatePNG)},
        {"JPEG export", exportAs(PlimCFImageExporterCreateJPEG)},
        {"TIFF export", exportAs(PlimCFImageExporterCreateTIFF)},
        {"PICT export", exportAs(PlimCFImageExporterCreatePICT)},
        {"PCT export", exportAs(PlimCFImageExporterCreatePCT)},
        {"TIFF data", [&source] { Release(PlimCFImageCopyTIFFData(nullptr, source)); }},
        {"crop", onCopy([](PlimCFImage i) { PlimCFImageCropToRect(i, CGRectMake(1.5f, 1, 5, 4)); })},
        {"scale", onCopy([](PlimCFImage i) { PlimCFImageScaleToSize(i, CGSizeMake(23, 5)); })},
        {"flip", onCopy([](PlimCFImage i) { PlimCFImageFlipVertically(i); })},
        {"composite",
         onCopy([&source](PlimCFImage i) {
             // A pair of equal sizes, a scaled pair, and the image onto itself.
             const CGRect s[2] = {CGRectMake(0, 0, 4, 3), CGRectMake(1, 1, 5, 4)};
             const CGRect d[2] = {CGRectMake(2, 2, 4, 3), CGRectMake(0, 0, 9, 7)};
             PlimCFImageComposite(source, i, s, d, 2, kPlimCompositeSoftLight);
             PlimCFImageComposite(i, i, nullptr, nullptr, 0, kPlimCompositeSrcOver);
         })},
        {"tile",
         onCopy([&source](PlimCFImage i) {
             // Abutting tiles, a cut edge and a pile at a negative origin.
             PlimCFImageTile(source, i, CGRectMake(0, 0, 2, 3), CGRectMake(-40, -30, 49, 37),
                             kPlimCompositeXOR, kPlimTileOriginMaxXMaxY);
             PlimCFImageTile(i, i, CGRectMake(0, 0, 4, 4), CGRectMake(0, 0, 9, 7),
                             kPlimCompositePlus, kPlimTileOriginMinXMinY);
         })},
        {"grey", onCopy([](PlimCFImage i) { PlimCFImageConvertToGrayscale(i); })},
        {"colour conversion",
         [&] {
             // A new space every time, so that the conversion is built, not found cached.
             static int runs = 0;
             CGColorSpaceRef space = WideSpace(2.2 + 0.001 * ++runs);
             PlimCFImage wideImage = space ? PlimCFImageCreateWithBuffer(nullptr, widePixels.data(), 9, 7, 8, 32, 36,
                                                                         space, kCGImageAlphaNoneSkipFirst)
                                           : nullptr;
             if (wideImage) PlimCFImagePromoteImage(wideImage, true, false);
             Release(wideImage);
             CGColorSpaceRelease(space);
         }},
        {"alpha channel", onCopy([](PlimCFImage i) { Release(PlimCFImageCopyAlphaChannel(nullptr, i)); })},
        {"trace",
         onCopy([](PlimCFImage i) {
             CGMutablePathRef path = nullptr;
             Quietly([&] { path = PlimCFImageCopyAlphaPath(i, 0.3f); });
             if (path) Release(PlimCGPathCopySVGString(path));
             if (path) CGPathRelease(path);
         })},
        {"description", [&source] { Release(CFCopyDescription(source)); }},
        {"constant string",
         [] {
             // A text never interned before on every run; constant strings live for the process.
             static char texts[64][24];
             static int runs = 0;
             char *text = texts[runs++ % 64];
             std::snprintf(text, sizeof texts[0], "constant %d", runs);
             CFStringRef string = __CFStringMakeConstantString(text);
             if (!string || CFStringGetLength(string) > 23) std::abort();
         }},
        {"colour match",
         [] {
             PlimColorMatchComponent components[3] = {{AbsolutelyIfWithinRange, 0.5f, 0.5f},
                                                      {AlwaysMatches, 0, 0},
                                                      {ProportionallyIfGreaterThan, 0.1f, 0.0f}};
             float replacement[3] = {1, 0, 0}, colour[4] = {0.4f, 0.2f, 0.3f, 1}, result[3];
             PlimColorMatchEntry entry = {IgnoringAlpha | ConvertToHSB, components, replacement};
             PlimCFColorMatchList list = PlimCFColorMatchListCreate(nullptr, 0, 3);
             if (list && PlimCFColorMatchListAddEntry(list, &entry)) {
                 PlimCFColorMatchListFindMatch(list, colour, result);
                 Release(CFCopyDescription(list));
             }
             Release(list);
         }},
        {"ICC colour space",
         [] {
             CGColorSpaceRef grey = CGColorSpaceCreateWithName(kCGColorSpaceGenericGray);
             CFDataRef icc = grey ? CGColorSpaceCopyICCProfile(grey) : nullptr;
             if (icc) CGColorSpaceRelease(CGColorSpaceCreateWithICCProfile(icc));
             Release(icc);
             CGColorSpaceRelease(grey);
         }},
    };
    for (const Operation &op : operations) DriveEveryFailure(op);

    CFRelease(source);
    std::remove(pngPath.c_str());
}

}  // namespace
