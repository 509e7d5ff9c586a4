// The subcommands that change one image: crop, scale, the single-call operations and mask.
#include "Commands.h"

#include <PlimBitmapLib/PlimCFImageGeometry.h>
#include <PlimBitmapLib/PlimCFImageOperations.h>

#include <cmath>
#include <cstdio>

namespace plimtool {

namespace {

constexpr long kMaxSide = 65535;

// "8 bits per pixel, grey", to say which image the library could not work on.
std::string LayoutOf(PlimCFImage image) {
    std::string model = "no colour space";
    if (CGColorSpaceRef space = PlimCFImageGetColorSpace(image))
        model = CGColorSpaceGetModel(space) == kCGColorSpaceModelMonochrome ? "grey" : "colour";
    return std::to_string(PlimCFImageGetBitsPerPixel(image)) + " bits per pixel, " + model;
}

bool HasSize(PlimCFImage image, long width, long height) {
    return static_cast<long>(PlimCFImageGetWidth(image)) == width &&
           static_cast<long>(PlimCFImageGetHeight(image)) == height;
}

// How `plim scale` was asked to size the picture: "W,H", "W," or ",H" (the other side keeps the
// aspect ratio) or "P%".
struct ScaleRequest {
    long width = 0, height = 0;  // 0: from the aspect ratio
    double percent = 0;          // non-zero: both sides
};

bool ParseScale(const std::string &text, ScaleRequest *request) {
    if (!text.empty() && text.back() == '%') {
        double percent;
        if (!ParseDecimal(text.substr(0, text.size() - 1), &percent) || !(percent > 0)) return false;
        request->percent = percent;
        return true;
    }
    size_t comma = text.find(',');
    if (comma == std::string::npos) return false;
    std::string w = text.substr(0, comma), h = text.substr(comma + 1);
    if ((w.empty() && h.empty()) || (!w.empty() && (!ParseWhole(w, &request->width) || request->width < 1)) ||
        (!h.empty() && (!ParseWhole(h, &request->height) || request->height < 1)))
        return false;
    return true;
}

// The pixel size a request gives on an image of width x height; at least one pixel a side.
void ResolveScale(const ScaleRequest &r, long width, long height, long *outWidth, long *outHeight) {
    auto scaled = [](double v) { return std::max(1L, std::lround(v)); };
    if (r.percent > 0) {
        *outWidth = scaled(static_cast<double>(width) * r.percent / 100.0);
        *outHeight = scaled(static_cast<double>(height) * r.percent / 100.0);
    } else {
        *outWidth = r.width ? r.width : scaled(static_cast<double>(r.height) * width / height);
        *outHeight = r.height ? r.height : scaled(static_cast<double>(r.width) * height / width);
    }
}

}  // namespace

bool CropImage(PlimCFImage image, const PixelRect &rect, std::string *error) {
    // The library crops in drawing space, y counted up from the bottom row.
    long height = static_cast<long>(PlimCFImageGetHeight(image));
    PlimClearLastError();
    PlimCFImageCropToRect(image, CGRectMake(static_cast<float>(rect.x),
                                            static_cast<float>(height - rect.Bottom()),
                                            static_cast<float>(rect.width),
                                            static_cast<float>(rect.height)));
    if (HasSize(image, rect.width, rect.height)) return true;
    *error = WithLibraryReason("the library cannot crop this image (" + LayoutOf(image) + ")");
    return false;
}

bool ScaleImage(PlimCFImage image, long width, long height, std::string *error) {
    PlimClearLastError();
    PlimCFImageScaleToSize(image, CGSizeMake(static_cast<float>(width), static_cast<float>(height)));
    if (HasSize(image, width, height)) return true;
    *error = WithLibraryReason("the library cannot scale this image (" + LayoutOf(image) + ")");
    return false;
}

int RunLoadChangeWrite(const std::string &sub, const ParsedArgs &parsed, const std::string &in,
                       const std::string &out, const Change &change) {
    std::optional<OutputChoice> output = OutputFor(sub, parsed, out);
    if (!output) return kExitUsage;
    std::string error;
    ImageRef image(LoadImageFile(in, &error));
    if (!image.get() || !change(image.get(), &error) ||
        !WriteImageFile(image.get(), out, *output, &error)) {
        PrintError(sub, error);
        return kExitFailure;
    }
    return kExitOK;
}

int RunCrop(const Args &args) {
    ParsedArgs parsed;
    int code = kExitOK;
    if (!Prepare("crop", args, WithOutputOptions({}), {}, 3, &parsed, &code)) return code;
    PixelRect rect;
    if (!ParseRect(parsed.positional[2], &rect)) {
        PrintError("crop", "bad rectangle '" + parsed.positional[2] +
                               "' (want X,Y,W,H in whole pixels, W and H at least 1)");
        return kExitUsage;
    }
    return RunLoadChangeWrite(
        "crop", parsed, parsed.positional[0], parsed.positional[1],
        [&](PlimCFImage image, std::string *error) {
            // Parts outside the picture are cut off; a rectangle wholly outside it is an error.
            PixelRect whole = WholeImage(image);
            PixelRect kept = Intersect(rect, whole);
            if (kept.Empty()) {
                *error = "the rectangle " + parsed.positional[2] + " lies outside the image (" +
                         std::to_string(whole.width) + "x" + std::to_string(whole.height) + ")";
                return false;
            }
            return CropImage(image, kept, error);
        });
}

int RunScale(const Args &args) {
    ParsedArgs parsed;
    int code = kExitOK;
    if (!Prepare("scale", args, WithOutputOptions({}), {}, 3, &parsed, &code)) return code;
    ScaleRequest request;
    if (!ParseScale(parsed.positional[2], &request)) {
        PrintError("scale", "bad size '" + parsed.positional[2] + "' (want W,H, W, ,H or P%)");
        return kExitUsage;
    }
    if (request.width > kMaxSide || request.height > kMaxSide) {
        PrintError("scale", "bad size '" + parsed.positional[2] + "' (at most 65535 a side)");
        return kExitUsage;
    }
    return RunLoadChangeWrite(
        "scale", parsed, parsed.positional[0], parsed.positional[1],
        [&](PlimCFImage image, std::string *error) {
            long width, height;
            ResolveScale(request, PlimCFImageGetWidth(image), PlimCFImageGetHeight(image), &width,
                         &height);
            if (width > kMaxSide || height > kMaxSide) {
                *error = parsed.positional[2] + " gives " + std::to_string(width) + "x" +
                         std::to_string(height) + ", more than 65535 pixels a side";
                return false;
            }
            return ScaleImage(image, width, height, error);
        });
}

int RunSimpleOperation(const std::string &sub, const Args &args) {
    ParsedArgs parsed;
    int code = kExitOK;
    if (!Prepare(sub, args, WithOutputOptions({}), {}, 2, &parsed, &code)) return code;
    // Each operation with what must hold afterwards: the library leaves an image it cannot work
    // on as it was, and the tool says so instead of writing the unchanged picture.
    struct Entry {
        const char *name;
        void (*inPlace)(PlimCFImage);
        PlimCFImage (*copy)(CFAllocatorRef, PlimCFImage);
        bool (*done)(PlimCFImage);
    };
    static const Entry kEntries[] = {
        {"flip", PlimCFImageFlipVertically, nullptr, nullptr},
        {"gray", PlimCFImageConvertToGrayscale, nullptr,
         [](PlimCFImage i) { return !PlimCFImageIsColor(i) && !PlimCFImageHasAlpha(i); }},
        {"color", PlimCFImageConvertToColor, nullptr,
         [](PlimCFImage i) { return PlimCFImageIsColor(i) != 0; }},
        {"add-alpha", PlimCFImageAddAlphaChannel, nullptr,
         [](PlimCFImage i) { return PlimCFImageHasAlpha(i) != 0; }},
        {"remove-alpha", PlimCFImageRemoveAlphaChannel, nullptr,
         [](PlimCFImage i) { return PlimCFImageIsOpaque(i) != 0; }},
        {"invert", PlimCFImageInvert, nullptr, nullptr},
        {"clear", PlimCFImageClear, nullptr, nullptr},
        {"opaque", nullptr, PlimCFImageCopyOpaqueImage, nullptr},
        {"alpha", nullptr, PlimCFImageCopyAlphaChannel, nullptr},
    };
    const Entry *entry = nullptr;
    for (const Entry &e : kEntries)
        if (sub == e.name) entry = &e;
    if (!entry) {
        PrintError(sub, "unknown subcommand");
        return kExitUsage;
    }
    if (entry->inPlace) {
        return RunLoadChangeWrite(sub, parsed, parsed.positional[0], parsed.positional[1],
                                  [entry](PlimCFImage image, std::string *error) {
                                      PlimClearLastError();
                                      entry->inPlace(image);
                                      // Pixel operations work on the library's buffer: without
                                      // one, nothing was done.
                                      if (PlimCFImageGetImageBuffer(image) &&
                                          (!entry->done || entry->done(image)))
                                          return true;
                                      *error = WithLibraryReason("the library cannot do this to the image (" +
                                                                 LayoutOf(image) + ")");
                                      return false;
                                  });
    }
    std::optional<OutputChoice> output = OutputFor(sub, parsed, parsed.positional[1]);
    if (!output) return kExitUsage;
    std::string error;
    ImageRef image(LoadImageFile(parsed.positional[0], &error));
    if (!image.get()) return PrintError(sub, error), kExitFailure;
    PlimClearLastError();
    ImageRef result(entry->copy(nullptr, image.get()));
    if (!result.get()) return PrintError(sub, WithLibraryReason("the operation failed")), kExitFailure;
    if (!WriteImageFile(result.get(), parsed.positional[1], *output, &error))
        return PrintError(sub, error), kExitFailure;
    return kExitOK;
}

int RunMask(const Args &args) {
    ParsedArgs parsed;
    int code = kExitOK;
    if (!Prepare("mask", args, WithOutputOptions({}), {"--premultiplied"}, 3, &parsed, &code))
        return code;
    std::optional<OutputChoice> output = OutputFor("mask", parsed, parsed.positional[2]);
    if (!output) return kExitUsage;
    std::string error;
    ImageRef image(LoadImageFile(parsed.positional[0], &error));
    if (!image.get()) return PrintError("mask", error), kExitFailure;
    ImageRef mask(LoadImageFile(parsed.positional[1], &error));
    if (!mask.get()) return PrintError("mask", error), kExitFailure;
    if (!(WholeImage(image.get()) == WholeImage(mask.get()))) {
        PrintError("mask", "the image and the mask differ in size");
        return kExitFailure;
    }
    // The mask's grey values are its alpha, so bring a colour mask to grey first.
    if (PlimCFImageIsColor(mask.get())) PlimCFImageConvertToGrayscale(mask.get());
    PlimClearLastError();
    ImageRef result(PlimCFImageCreateWithImageAndMask(nullptr, image.get(), mask.get(),
                                                         parsed.Has("--premultiplied")));
    if (!result.get()) return PrintError("mask", WithLibraryReason("the operation failed")), kExitFailure;
    if (!WriteImageFile(result.get(), parsed.positional[2], *output, &error))
        return PrintError("mask", error), kExitFailure;
    return kExitOK;
}

}  // namespace plimtool
