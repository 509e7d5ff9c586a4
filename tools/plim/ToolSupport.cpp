// Operation names, output formats, reading inputs, safe file writes and the traced-outline SVG.
#include "ToolSupport.h"

#include <PlimBitmapLib/PlimCFImageExporter.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

namespace plimtool {

namespace {

std::string Lower(std::string_view text) {
    std::string out(text);
    for (char &c : out) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return out;
}

std::string Base64(const UInt8 *bytes, size_t length) {
    static const char kAlphabet[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    out.reserve((length + 2) / 3 * 4);
    for (size_t i = 0; i < length; i += 3) {
        uint32_t n = static_cast<uint32_t>(bytes[i]) << 16;
        if (i + 1 < length) n |= static_cast<uint32_t>(bytes[i + 1]) << 8;
        if (i + 2 < length) n |= static_cast<uint32_t>(bytes[i + 2]);
        out += kAlphabet[(n >> 18) & 63];
        out += kAlphabet[(n >> 12) & 63];
        out += i + 1 < length ? kAlphabet[(n >> 6) & 63] : '=';
        out += i + 2 < length ? kAlphabet[n & 63] : '=';
    }
    return out;
}


bool WriteToStdout(const void *bytes, size_t length, std::string *error) {
    std::fflush(stdout);
    const char *p = static_cast<const char *>(bytes);
    while (length > 0) {
        ssize_t n = write(STDOUT_FILENO, p, length);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            *error = std::string("cannot write to standard output: ") + std::strerror(errno);
            return false;
        }
        p += n;
        length -= static_cast<size_t>(n);
    }
    return true;
}

// Writes bytes to a temporary beside path and renames it into place ("-": standard output).
bool WriteBytesAtomically(const std::string &path, const void *bytes, size_t length,
                          std::string *error) {
    if (IsStdio(path)) return WriteToStdout(bytes, length, error);
    size_t slash = path.rfind('/');
    std::string dir = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    if (name.empty()) {
        *error = "cannot write '" + path + "': not a file name";
        return false;
    }
    std::string temp = (slash == std::string::npos ? std::string() : dir) + "." + name + ".XXXXXX";
    int fd = mkstemp(temp.data());
    if (fd < 0) {
        *error = "cannot write '" + path + "': " + std::strerror(errno);
        return false;
    }
    const char *p = static_cast<const char *>(bytes);
    size_t left = length;
    while (left > 0) {
        ssize_t n = write(fd, p, left);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            int saved = errno;
            close(fd);
            unlink(temp.c_str());
            *error = "cannot write '" + path + "': " + std::strerror(saved);
            return false;
        }
        p += n;
        left -= static_cast<size_t>(n);
    }
    // mkstemp makes the file 0600; give it the usual permissions for a user's output.
    mode_t mask = umask(0);
    umask(mask);
    fchmod(fd, 0666 & ~mask);
    if (close(fd) != 0 || rename(temp.c_str(), path.c_str()) != 0) {
        int saved = errno;
        unlink(temp.c_str());
        *error = "cannot write '" + path + "': " + std::strerror(saved);
        return false;
    }
    return true;
}

PlimCFImageExporter CreateExporter(const OutputChoice &output) {
    switch (output.format) {
    case OutputFormat::JPEG:
        return output.quality ? PlimCFImageExporterCreateJPEGWithQuality(nullptr, output.quality)
                              : PlimCFImageExporterCreateJPEG(nullptr);
    case OutputFormat::PICT: return PlimCFImageExporterCreatePICT(nullptr);
    case OutputFormat::PCT: return PlimCFImageExporterCreatePCT(nullptr);
    case OutputFormat::WebP:
        return output.quality ? PlimCFImageExporterCreateWebPWithQuality(nullptr, output.quality)
                              : PlimCFImageExporterCreateWebPLossless(nullptr);
    case OutputFormat::PNG:
    case OutputFormat::TIFF: break;
    }
    return nullptr;
}

CFDataRef EncodeImage(PlimCFImage image, const OutputChoice &output) {
    if (output.format == OutputFormat::PNG) return PlimCFImageCopyPNGData(nullptr, image);
    if (output.format == OutputFormat::TIFF) return PlimCFImageCopyTIFFData(nullptr, image);
    CFRef<PlimCFImageExporter> exporter(CreateExporter(output));
    CGImageRef rendered = PlimCFImageGetCGImage(image);
    if (!exporter || !rendered) return nullptr;
    return PlimCFImageExportCreateData(nullptr, exporter.get(), rendered);
}

}  // namespace

std::string CFStringToStd(CFStringRef string) {
    if (!string) return {};
    if (const char *p = CFStringGetCStringPtr(string, kCFStringEncodingUTF8)) return p;
    CFIndex size = CFStringGetMaximumSizeForEncoding(CFStringGetLength(string),
                                                     kCFStringEncodingUTF8) + 1;
    std::string out(static_cast<size_t>(size), '\0');
    if (!CFStringGetCString(string, out.data(), size, kCFStringEncodingUTF8)) return {};
    out.resize(std::strlen(out.c_str()));
    return out;
}

const std::vector<OperationName> &CompositeOperationNames() {
    static const std::vector<OperationName> kNames = {
        {"clear", kPlimCompositeClear},          {"copy-src", kPlimCompositeCopySrc},
        {"copy-dest", kPlimCompositeCopyDest},   {"srcover", kPlimCompositeSrcOver},
        {"destover", kPlimCompositeDestOver},    {"srcin", kPlimCompositeSrcIn},
        {"destin", kPlimCompositeDestIn},        {"srcout", kPlimCompositeSrcOut},
        {"destout", kPlimCompositeDestOut},      {"srcatop", kPlimCompositeSrcAtop},
        {"destatop", kPlimCompositeDestAtop},    {"xor", kPlimCompositeXOR},
        {"plus", kPlimCompositePlus},            {"multiply", kPlimCompositeMultiply},
        {"screen", kPlimCompositeScreen},        {"overlay", kPlimCompositeOverlay},
        {"darken", kPlimCompositeDarken},        {"lighten", kPlimCompositeLighten},
        {"color-dodge", kPlimCompositeColorDodge}, {"color-burn", kPlimCompositeColorBurn},
        {"hard-light", kPlimCompositeHardLight}, {"soft-light", kPlimCompositeSoftLight},
        {"difference", kPlimCompositeDifference}, {"exclusion", kPlimCompositeExclusion},
    };
    return kNames;
}

std::optional<PlimCompositeOperation> CompositeOperationFromName(std::string_view name) {
    std::string lower = Lower(name);
    for (const OperationName &entry : CompositeOperationNames())
        if (lower == entry.name) return entry.operation;
    return std::nullopt;
}

std::optional<OutputFormat> OutputFormatFromName(std::string_view name) {
    std::string lower = Lower(name);
    if (lower == "png") return OutputFormat::PNG;
    if (lower == "jpeg" || lower == "jpg") return OutputFormat::JPEG;
    if (lower == "tiff" || lower == "tif") return OutputFormat::TIFF;
    if (lower == "pict") return OutputFormat::PICT;
    if (lower == "pct") return OutputFormat::PCT;
    if (lower == "webp") return OutputFormat::WebP;
    return std::nullopt;
}

std::optional<OutputFormat> OutputFormatFromPath(std::string_view path) {
    size_t slash = path.rfind('/');
    std::string_view name = slash == std::string_view::npos ? path : path.substr(slash + 1);
    size_t dot = name.rfind('.');
    if (dot == std::string_view::npos || dot == 0) return std::nullopt;
    return OutputFormatFromName(name.substr(dot + 1));
}

std::string ExtensionOf(OutputFormat format) {
    switch (format) {
    case OutputFormat::PNG: return "png";
    case OutputFormat::JPEG: return "jpg";
    case OutputFormat::TIFF: return "tiff";
    case OutputFormat::PICT: return "pict";
    case OutputFormat::PCT: return "pct";
    case OutputFormat::WebP: return "webp";
    }
    return "png";
}

bool ReadInput(const std::string &path, std::string *bytes, std::string *error) {
    if (IsStdio(path)) {
        static bool stdinTaken = false;
        if (stdinTaken) {
            *error = "standard input can be read only once";
            return false;
        }
        stdinTaken = true;
        std::ostringstream contents;
        contents << std::cin.rdbuf();
        if (std::cin.bad()) {
            *error = std::string("cannot read standard input: ") + std::strerror(errno);
            return false;
        }
        *bytes = contents.str();
        return true;
    }
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        *error = "cannot read '" + path + "': " + std::strerror(errno);
        return false;
    }
    std::ostringstream contents;
    contents << file.rdbuf();
    if (file.bad()) {
        *error = "cannot read '" + path + "': " + std::strerror(errno);
        return false;
    }
    *bytes = contents.str();
    return true;
}

std::string FormatNameOf(std::string_view bytes, const std::string &path) {
    auto starts = [&](std::string_view magic, size_t at = 0) {
        return bytes.size() >= at + magic.size() && bytes.substr(at, magic.size()) == magic;
    };
    if (starts("\x89PNG\r\n\x1a\n")) return "PNG";
    if (starts("\xFF\xD8\xFF")) return "JPEG";
    if (starts(std::string_view("II*\0", 4)) || starts(std::string_view("MM\0*", 4))) return "TIFF";
    if (starts("GIF87a") || starts("GIF89a")) return "GIF";
    if (starts("BM") && bytes.size() >= 26) return "BMP";
    if (starts("RIFF") && starts("WEBP", 8)) return "WebP";
    if (starts("\xFF\x0A") || starts(std::string_view("\0\0\0\x0CJXL \r\n\x87\n", 12))) return "JPEG XL";
    // ISO base media files: the major and compatible brands of the leading file-type box.
    if (starts("ftyp", 4)) {
        size_t boxSize = 0;
        for (size_t i = 0; i < 4; i++) boxSize = boxSize << 8 | static_cast<unsigned char>(bytes[i]);
        auto brand = [&](std::string_view b) {
            for (size_t at = 8; at + 4 <= boxSize && at + 4 <= bytes.size(); at += 4)
                if (at != 12 && bytes.substr(at, 4) == b) return true;
            return false;
        };
        if (brand("avif") || brand("avis")) return "AVIF";
        for (std::string_view b : {"heic", "heix", "heim", "heis", "hevc", "hevx", "mif1", "msf1"})
            if (brand(b)) return "HEIF";
    }
    std::optional<OutputFormat> named = OutputFormatFromPath(path);
    if (named == OutputFormat::PCT) return "PCT";
    if (named == OutputFormat::PICT) return "PICT";
    return "unknown";
}

PlimCFImage LoadImageFile(const std::string &path, std::string *error, std::string *formatName) {
    const std::string shown = IsStdio(path) ? "standard input" : "'" + path + "'";
    // The extension picks the loader for picture files, which carry no reliable signature;
    // everything else is recognised by its content.
    PlimImageFormat format = kPlimImageFormatUnknown;
    std::optional<OutputFormat> named = OutputFormatFromPath(path);
    if (named == OutputFormat::PICT) format = kPlimImageFormatPICT;
    if (named == OutputFormat::PCT) format = kPlimImageFormatPCT;

    CollectLibraryMessages messages;
    PlimClearLastError();
    PlimCFImage image = nullptr;
    std::string bytes;  // standard input's, or the start of the file (for its format's name)
    CFRef<CFStringRef> cfPath(IsStdio(path) ? nullptr
                                            : CFStringCreateWithCString(nullptr, path.c_str(), kCFStringEncodingUTF8));
    if (cfPath.get()) {
        // The library reads the file itself, so that it can say why it could not.
        if (format != kPlimImageFormatUnknown) {
            image = PlimCFImageCreateWithPathAndFormat(nullptr, cfPath.get(), format);
        } else {
            CFRef<PlimCFImageLoader> loader(PlimCFCreateUnknownImageLoaderFromPath(nullptr, cfPath.get()));
            if (CGImageRef decoded = loader.get() ? PlimCFImageLoaderCopyImage(loader.get()) : nullptr) {
                image = PlimCFImageCreateWithImage(nullptr, decoded);
                CGImageRelease(decoded);
            }
        }
        if (image && formatName) {
            std::ifstream file(path, std::ios::binary);
            char head[64];
            file.read(head, sizeof head);
            bytes.assign(head, static_cast<size_t>(file.gcount()));
        }
    } else {
        // Standard input, or a file name that is not UTF-8: the tool reads the bytes.
        if (!ReadInput(path, &bytes, error)) return nullptr;
        CFRef<CFDataRef> data(CFDataCreate(nullptr, reinterpret_cast<const UInt8 *>(bytes.data()),
                                              static_cast<CFIndex>(bytes.size())));
        if (data.get())
            image = format != kPlimImageFormatUnknown
                        ? PlimCFImageCreateWithFormattedData(nullptr, data.get(), format)
                        : PlimCFImageCreateWithData(nullptr, data.get());
    }
    if (!image || PlimCFImageGetWidth(image) == 0 || PlimCFImageGetHeight(image) == 0) {
        if (image) CFRelease(image);
        PlimError reason = PlimGetLastError();
        bool unreadable = reason == kPlimErrorFileNotFound || reason == kPlimErrorNotRegularFile ||
                          reason == kPlimErrorPermissionDenied || reason == kPlimErrorReadFailed;
        *error = reason == kPlimErrorNone
                     ? "unsupported or corrupt image " + shown
                     : (unreadable ? "cannot read " : "cannot load ") + shown + ": " + PlimGetErrorText(reason);
        // What a loader said about the data, such as the damage it found in a picture.
        if (!unreadable && !messages.OneLine().empty()) *error += " (" + messages.OneLine() + ")";
        return nullptr;
    }
    if (formatName) *formatName = FormatNameOf(bytes, path);
    return image;
}

bool WriteImageFile(PlimCFImage image, const std::string &path, const OutputChoice &output,
                    std::string *error) {
    PlimClearLastError();
    CFRef<CFDataRef> data(EncodeImage(image, output));
    if (!data.get()) {
        *error = WithLibraryReason("cannot encode the image for " +
                                   (IsStdio(path) ? std::string("standard output") : "'" + path + "'"));
        return false;
    }
    return WriteBytesAtomically(path, CFDataGetBytePtr(data.get()),
                                static_cast<size_t>(CFDataGetLength(data.get())), error);
}

bool WriteTextFile(const std::string &path, std::string_view text, std::string *error) {
    return WriteBytesAtomically(path, text.data(), text.size(), error);
}

std::optional<std::string> TraceSVGDocument(PlimCFImage image, float threshold,
                                            std::FILE *showLogOn, std::string *error) {
    PlimClearLastError();
    CFRef<CFDataRef> png(PlimCFImageCopyPNGData(nullptr, image));
    if (!png.get()) {
        *error = WithLibraryReason("cannot encode the image as PNG");
        return std::nullopt;
    }
    CGMutablePathRef path = nullptr;
    {
        // The tracer logs every trace; the log is shown only where it was asked for.
        std::fflush(stdout);
        ShowTraceLog log(showLogOn);
        path = PlimCFImageCopyAlphaPath(image, threshold);
    }
    if (!path) {
        *error = WithLibraryReason("cannot trace the alpha outline");
        return std::nullopt;
    }
    CFRef<CFStringRef> svgPath(PlimCGPathCopySVGString(path));
    CGPathRelease(path);
    if (!svgPath.get()) {
        *error = WithLibraryReason("cannot trace the alpha outline");
        return std::nullopt;
    }
    UInt32 width = PlimCFImageGetWidth(image);
    UInt32 height = PlimCFImageGetHeight(image);
    // Path vertices are pixel positions with y counted up from the bottom row; the transform
    // puts each on its pixel's centre in the top-down picture.
    std::ostringstream svg;
    svg << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << width << "\" height=\"" << height
        << "\" viewBox=\"0 0 " << width << ' ' << height << "\">\n"
        << "  <image x=\"0\" y=\"0\" width=\"" << width << "\" height=\"" << height
        << "\" href=\"data:image/png;base64,"
        << Base64(CFDataGetBytePtr(png.get()), static_cast<size_t>(CFDataGetLength(png.get())))
        << "\"/>\n"
        << "  <path transform=\"translate(0.5 " << height - 0.5 << ") scale(1 -1)\" fill=\"none\""
           " stroke=\"#ff2020\" stroke-width=\"1\" vector-effect=\"non-scaling-stroke\" d=\""
        << CFStringToStd(svgPath.get()) << "\"/>\n"
        << "</svg>\n";
    return svg.str();
}

}  // namespace plimtool
