// Argument helpers, and the subcommands that change one image: info, convert, crop, scale and
// the single-call operations.
#include "Commands.h"

#include <PlimBitmapLib/PlimCFImageGeometry.h>
#include <PlimBitmapLib/PlimCFImageOperations.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>

namespace plimtool {

std::vector<std::string> ParsedArgs::All(const std::string &name) const {
    std::vector<std::string> values;
    auto range = options.equal_range(name);
    for (auto it = range.first; it != range.second; ++it) values.push_back(it->second);
    return values;
}

std::string ParsedArgs::Last(const std::string &name, const std::string &fallback) const {
    std::vector<std::string> values = All(name);
    return values.empty() ? fallback : values.back();
}

bool ParseArgs(const std::string &sub, const Args &args, const std::set<std::string> &valued,
               const std::set<std::string> &flags, ParsedArgs *out) {
    bool onlyPositionals = false;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string &word = args[i];
        if (onlyPositionals || word.size() < 2 || word[0] != '-' ||
            (word[1] != '-' && word != "-h")) {
            out->positional.push_back(word);
        } else if (word == "--") {
            onlyPositionals = true;
        } else if (word == "--help" || word == "-h") {
            out->help = true;
        } else if (valued.count(word)) {
            if (i + 1 >= args.size()) {
                PrintError(sub, "option " + word + " needs a value");
                return false;
            }
            out->options.emplace(word, args[++i]);
        } else if (flags.count(word)) {
            out->options.emplace(word, "");
        } else {
            PrintError(sub, "unknown option '" + word + "'");
            return false;
        }
    }
    return true;
}

bool ExpectPositionals(const std::string &sub, const ParsedArgs &parsed, size_t count) {
    if (parsed.positional.size() == count) return true;
    PrintError(sub, std::string(parsed.positional.size() < count ? "missing" : "too many") +
                        " arguments (try 'plim " + sub + " --help')");
    return false;
}

bool ParseFloats(const std::string &text, size_t count, std::vector<float> *values) {
    values->clear();
    const char *p = text.c_str();
    for (size_t i = 0; i < count; ++i) {
        char *end = nullptr;
        errno = 0;
        float v = std::strtof(p, &end);
        if (end == p || errno != 0 || !std::isfinite(v)) return false;
        values->push_back(v);
        p = end;
        if (i + 1 < count) {
            if (*p != ',') return false;
            ++p;
        }
    }
    return *p == '\0';
}

bool ParseRect(const std::string &text, CGRect *rect) {
    std::vector<float> v;
    if (!ParseFloats(text, 4, &v) || v[2] < 0 || v[3] < 0) return false;
    *rect = CGRectMake(v[0], v[1], v[2], v[3]);
    return true;
}

bool Prepare(const std::string &sub, const Args &args, const std::set<std::string> &valued,
             const std::set<std::string> &flags, size_t count, ParsedArgs *parsed, int *exitCode) {
    if (!ParseArgs(sub, args, valued, flags, parsed)) {
        *exitCode = kExitUsage;
        return false;
    }
    if (parsed->help) {
        std::fputs(UsageText(sub).c_str(), stdout);
        *exitCode = kExitOK;
        return false;
    }
    if (count != 0 && !ExpectPositionals(sub, *parsed, count)) {
        *exitCode = kExitUsage;
        return false;
    }
    return true;
}

namespace {

std::optional<OutputFormat> FormatForOutput(const std::string &sub, const std::string &out,
                                            const std::string &forced) {
    std::optional<OutputFormat> format =
        forced.empty() ? OutputFormatFromPath(out) : OutputFormatFromName(forced);
    if (!format) {
        if (forced.empty())
            PrintError(sub, "cannot tell the output format from '" + out +
                                "' (use .png, .jpg, .tiff, .pict or .pct, or --format)");
        else
            PrintError(sub, "unknown format '" + forced + "'");
    }
    return format;
}

const char *AlphaInfoName(CGImageAlphaInfo info) {
    static const char *const kNames[] = {
        "kCGImageAlphaNone",         "kCGImageAlphaPremultipliedLast",
        "kCGImageAlphaPremultipliedFirst", "kCGImageAlphaLast",
        "kCGImageAlphaFirst",        "kCGImageAlphaNoneSkipLast",
        "kCGImageAlphaNoneSkipFirst", "kCGImageAlphaOnly"};
    unsigned index = static_cast<unsigned>(info);
    return index < 8 ? kNames[index] : "unknown";
}

const char *ColorModelName(CGColorSpaceRef space) {
    if (!space) return "none";
    switch (CGColorSpaceGetModel(space)) {
    case kCGColorSpaceModelMonochrome: return "grey";
    case kCGColorSpaceModelRGB: return "RGB";
    case kCGColorSpaceModelCMYK: return "CMYK";
    default: return "other";
    }
}

// The container, from the file's first bytes (picture files have no signature of their own).
std::string FileFormatName(const std::string &path) {
    unsigned char head[8] = {};
    std::ifstream file(path, std::ios::binary);
    file.read(reinterpret_cast<char *>(head), sizeof head);
    if (std::memcmp(head, "\x89PNG", 4) == 0) return "PNG";
    if (head[0] == 0xFF && head[1] == 0xD8) return "JPEG";
    if (std::memcmp(head, "II*\0", 4) == 0 || std::memcmp(head, "MM\0*", 4) == 0) return "TIFF";
    if (std::memcmp(head, "GIF8", 4) == 0) return "GIF";
    std::optional<OutputFormat> named = OutputFormatFromPath(path);
    if (named == OutputFormat::PCT) return "PCT";
    if (named == OutputFormat::PICT) return "PICT";
    return "unknown";
}

std::string Describe(PlimCFImage image) {
    CFStringRef description = CFCopyDescription(image);
    std::string out = CFStringToStd(description);
    if (description) CFRelease(description);
    return out;
}

class ProgressBar {
public:
    explicit ProgressBar(size_t total) : total_(total), shown_(isatty(STDERR_FILENO) && total > 1) {}
    void Update(size_t done) {
        if (!shown_) return;
        const int kWidth = 30;
        int filled = static_cast<int>(done * kWidth / total_);
        std::fprintf(stderr, "\r[%s%s] %zu/%zu", std::string(filled, '#').c_str(),
                     std::string(kWidth - filled, ' ').c_str(), done, total_);
        if (done == total_) std::fputc('\n', stderr);
        std::fflush(stderr);
    }

private:
    size_t total_;
    bool shown_;
};

std::string ExtensionOf(OutputFormat format) {
    switch (format) {
    case OutputFormat::PNG: return "png";
    case OutputFormat::JPEG: return "jpg";
    case OutputFormat::TIFF: return "tiff";
    case OutputFormat::PICT: return "pict";
    case OutputFormat::PCT: return "pct";
    }
    return "png";
}

std::string StemOf(const std::string &path) {
    size_t slash = path.rfind('/');
    std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    size_t dot = name.rfind('.');
    return dot == std::string::npos || dot == 0 ? name : name.substr(0, dot);
}

}  // namespace

int RunLoadChangeWrite(const std::string &sub, const std::string &in, const std::string &out,
                       bool (*change)(PlimCFImage, const void *, std::string *),
                       const void *context) {
    std::optional<OutputFormat> format = FormatForOutput(sub, out, "");
    if (!format) return kExitUsage;
    std::string error;
    ImageRef image(LoadImageFile(in, &error));
    if (!image.get()) {
        PrintError(sub, error);
        return kExitFailure;
    }
    if (change && !change(image.get(), context, &error)) {
        PrintError(sub, error);
        return kExitFailure;
    }
    if (!WriteImageFile(image.get(), out, *format, &error)) {
        PrintError(sub, error);
        return kExitFailure;
    }
    return kExitOK;
}

int RunInfo(const Args &args) {
    ParsedArgs parsed;
    int code = kExitOK;
    if (!Prepare("info", args, {}, {}, 0, &parsed, &code)) return code;
    if (parsed.positional.empty()) return ExpectPositionals("info", parsed, 1), kExitUsage;
    for (const std::string &path : parsed.positional) {
        std::string error;
        ImageRef image(LoadImageFile(path, &error));
        if (!image.get()) {
            PrintError("info", error);
            code = kExitFailure;
            continue;
        }
        PlimCFImage i = image.get();
        std::printf("%s:\n", path.c_str());
        std::printf("  format: %s\n", FileFormatName(path).c_str());
        std::printf("  width: %u\n  height: %u\n", PlimCFImageGetWidth(i), PlimCFImageGetHeight(i));
        std::printf("  bits per component: %u\n  bits per pixel: %u\n",
                    PlimCFImageGetBitsPerComponent(i), PlimCFImageGetBitsPerPixel(i));
        std::printf("  bytes per row: %u\n", PlimCFImageGetBytesPerRow(i));
        std::printf("  colour model: %s\n", ColorModelName(PlimCFImageGetColorSpace(i)));
        std::printf("  alpha info: %s\n", AlphaInfoName(PlimCFImageGetAlphaInfo(i)));
        std::printf("  opaque: %s\n", PlimCFImageIsOpaque(i) ? "yes" : "no");
        std::printf("  description: %s\n", Describe(i).c_str());
    }
    return code;
}

int RunConvert(const Args &args) {
    ParsedArgs parsed;
    int code = kExitOK;
    if (!Prepare("convert", args, {"--format", "--out-dir"}, {}, 0, &parsed, &code)) return code;
    std::string forced = parsed.Last("--format");
    if (!parsed.Has("--out-dir")) {
        if (!ExpectPositionals("convert", parsed, 2)) return kExitUsage;
        std::optional<OutputFormat> format = FormatForOutput("convert", parsed.positional[1], forced);
        if (!format) return kExitUsage;
        std::string error;
        ImageRef image(LoadImageFile(parsed.positional[0], &error));
        if (!image.get() || !WriteImageFile(image.get(), parsed.positional[1], *format, &error)) {
            PrintError("convert", error);
            return kExitFailure;
        }
        return kExitOK;
    }
    if (parsed.positional.empty()) return ExpectPositionals("convert", parsed, 1), kExitUsage;
    std::optional<OutputFormat> format = OutputFormat::PNG;
    if (!forced.empty() && !(format = FormatForOutput("convert", "", forced))) return kExitUsage;
    std::string dir = parsed.Last("--out-dir");
    struct stat st;
    if (stat(dir.c_str(), &st) != 0) {
        PrintError("convert", "cannot write to '" + dir + "': " + std::strerror(errno));
        return kExitFailure;
    }
    if (!S_ISDIR(st.st_mode)) {
        PrintError("convert", "cannot write to '" + dir + "': Not a directory");
        return kExitFailure;
    }
    ProgressBar progress(parsed.positional.size());
    size_t done = 0;
    for (const std::string &in : parsed.positional) {
        std::string error;
        std::optional<OutputFormat> target = format;
        if (forced.empty()) target = OutputFormatFromPath(in).value_or(OutputFormat::PNG);
        std::string out = dir + "/" + StemOf(in) + "." + ExtensionOf(*target);
        ImageRef image(LoadImageFile(in, &error));
        if (!image.get() || !WriteImageFile(image.get(), out, *target, &error)) {
            if (isatty(STDERR_FILENO)) std::fputc('\n', stderr);
            PrintError("convert", error);
            code = kExitFailure;
        }
        progress.Update(++done);
    }
    return code;
}

int RunCrop(const Args &args) {
    ParsedArgs parsed;
    int code = kExitOK;
    if (!Prepare("crop", args, {}, {}, 3, &parsed, &code)) return code;
    CGRect rect;
    if (!ParseRect(parsed.positional[2], &rect)) {
        PrintError("crop", "bad rectangle '" + parsed.positional[2] + "' (want X,Y,W,H)");
        return kExitUsage;
    }
    return RunLoadChangeWrite(
        "crop", parsed.positional[0], parsed.positional[1],
        [](PlimCFImage image, const void *context, std::string *error) {
            CGRect r = *static_cast<const CGRect *>(context);
            float height = static_cast<float>(PlimCFImageGetHeight(image));
            float width = static_cast<float>(PlimCFImageGetWidth(image));
            if (r.size.width <= 0 || r.size.height <= 0 || r.origin.x >= width ||
                r.origin.y >= height || r.origin.x < 0 || r.origin.y < 0) {
                *error = "the rectangle lies outside the image";
                return false;
            }
            // The library crops in drawing space, y counted up from the bottom row.
            float y = height - r.origin.y - r.size.height;
            if (y < 0) {
                r.size.height += y;
                y = 0;
            }
            PlimCFImageCropToRect(image, CGRectMake(r.origin.x, y, r.size.width, r.size.height));
            return true;
        },
        &rect);
}

int RunScale(const Args &args) {
    ParsedArgs parsed;
    int code = kExitOK;
    if (!Prepare("scale", args, {}, {}, 3, &parsed, &code)) return code;
    std::vector<float> size;
    if (!ParseFloats(parsed.positional[2], 2, &size) || size[0] < 1 || size[1] < 1 ||
        size[0] > 65535 || size[1] > 65535) {
        PrintError("scale", "bad size '" + parsed.positional[2] + "' (want W,H, 1 to 65535)");
        return kExitUsage;
    }
    CGSize target = CGSizeMake(size[0], size[1]);
    return RunLoadChangeWrite(
        "scale", parsed.positional[0], parsed.positional[1],
        [](PlimCFImage image, const void *context, std::string *) {
            PlimCFImageScaleToSize(image, *static_cast<const CGSize *>(context));
            return true;
        },
        &target);
}

int RunSimpleOperation(const std::string &sub, const Args &args) {
    ParsedArgs parsed;
    int code = kExitOK;
    if (!Prepare(sub, args, {}, {}, 2, &parsed, &code)) return code;
    using Change = bool (*)(PlimCFImage, const void *, std::string *);
    struct Entry {
        const char *name;
        void (*inPlace)(PlimCFImage);
        PlimCFImage (*copy)(CFAllocatorRef, PlimCFImage);
    };
    static const Entry kEntries[] = {
        {"flip", PlimCFImageFlipVertically, nullptr},
        {"gray", PlimCFImageConvertToGrayscale, nullptr},
        {"color", PlimCFImageConvertToColor, nullptr},
        {"add-alpha", PlimCFImageAddAlphaChannel, nullptr},
        {"remove-alpha", PlimCFImageRemoveAlphaChannel, nullptr},
        {"invert", PlimCFImageInvert, nullptr},
        {"clear", PlimCFImageClear, nullptr},
        {"opaque", nullptr, PlimCFImageCopyOpaqueImage},
        {"alpha", nullptr, PlimCFImageCopyAlphaChannel},
    };
    const Entry *entry = nullptr;
    for (const Entry &e : kEntries)
        if (sub == e.name) entry = &e;
    if (!entry) {
        PrintError(sub, "unknown subcommand");
        return kExitUsage;
    }
    if (entry->inPlace) {
        Change change = [](PlimCFImage image, const void *context, std::string *) {
            static_cast<const Entry *>(context)->inPlace(image);
            return true;
        };
        return RunLoadChangeWrite(sub, parsed.positional[0], parsed.positional[1], change, entry);
    }
    std::optional<OutputFormat> format = FormatForOutput(sub, parsed.positional[1], "");
    if (!format) return kExitUsage;
    std::string error;
    ImageRef image(LoadImageFile(parsed.positional[0], &error));
    if (!image.get()) {
        PrintError(sub, error);
        return kExitFailure;
    }
    ImageRef result(entry->copy(nullptr, image.get()));
    if (!result.get()) {
        PrintError(sub, "the operation failed");
        return kExitFailure;
    }
    if (!WriteImageFile(result.get(), parsed.positional[1], *format, &error)) {
        PrintError(sub, error);
        return kExitFailure;
    }
    return kExitOK;
}

int RunMask(const Args &args) {
    ParsedArgs parsed;
    int code = kExitOK;
    if (!Prepare("mask", args, {}, {"--premultiplied"}, 3, &parsed, &code)) return code;
    std::optional<OutputFormat> format = FormatForOutput("mask", parsed.positional[2], "");
    if (!format) return kExitUsage;
    std::string error;
    ImageRef image(LoadImageFile(parsed.positional[0], &error));
    if (!image.get()) return PrintError("mask", error), kExitFailure;
    ImageRef mask(LoadImageFile(parsed.positional[1], &error));
    if (!mask.get()) return PrintError("mask", error), kExitFailure;
    if (PlimCFImageGetWidth(image.get()) != PlimCFImageGetWidth(mask.get()) ||
        PlimCFImageGetHeight(image.get()) != PlimCFImageGetHeight(mask.get())) {
        PrintError("mask", "the image and the mask differ in size");
        return kExitFailure;
    }
    // The mask's grey values are its alpha, so bring a colour mask to grey first.
    if (PlimCFImageIsColor(mask.get())) PlimCFImageConvertToGrayscale(mask.get());
    ImageRef result(PlimCFImageCreateWithImageAndMask(nullptr, image.get(), mask.get(),
                                                         parsed.Has("--premultiplied")));
    if (!result.get()) return PrintError("mask", "the operation failed"), kExitFailure;
    if (!WriteImageFile(result.get(), parsed.positional[2], *format, &error))
        return PrintError("mask", error), kExitFailure;
    return kExitOK;
}

}  // namespace plimtool
