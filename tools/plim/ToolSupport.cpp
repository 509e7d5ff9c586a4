// Operation names, output formats, safe file writes and the traced-outline SVG.
#include "ToolSupport.h"

#include <PlimBitmapLib/PlimCFImageExporter.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
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


// Writes bytes to a temporary beside path and renames it into place.
bool WriteBytesAtomically(const std::string &path, const void *bytes, size_t length,
                          std::string *error) {
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

CFDataRef EncodeImage(PlimCFImage image, OutputFormat format) {
    switch (format) {
    case OutputFormat::PNG: return PlimCFImageCopyPNGData(nullptr, image);
    case OutputFormat::TIFF: return PlimCFImageCopyTIFFData(nullptr, image);
    case OutputFormat::JPEG:
    case OutputFormat::PICT:
    case OutputFormat::PCT: {
        PlimCFImageExporter exporter = format == OutputFormat::JPEG ? PlimCFImageExporterCreateJPEG(nullptr)
                                       : format == OutputFormat::PICT ? PlimCFImageExporterCreatePICT(nullptr)
                                                                      : PlimCFImageExporterCreatePCT(nullptr);
        if (!exporter) return nullptr;
        CFDataRef data = nullptr;
        if (CGImageRef rendered = PlimCFImageGetCGImage(image))
            data = PlimCFImageExportCreateData(nullptr, exporter, rendered);
        CFRelease(exporter);
        return data;
    }
    }
    return nullptr;
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
    return std::nullopt;
}

std::optional<OutputFormat> OutputFormatFromPath(std::string_view path) {
    size_t slash = path.rfind('/');
    std::string_view name = slash == std::string_view::npos ? path : path.substr(slash + 1);
    size_t dot = name.rfind('.');
    if (dot == std::string_view::npos || dot == 0) return std::nullopt;
    return OutputFormatFromName(name.substr(dot + 1));
}

PlimCFImage LoadImageFile(const std::string &path, std::string *error) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        *error = "cannot read '" + path + "': " + std::strerror(errno);
        return nullptr;
    }
    std::ostringstream contents;
    contents << file.rdbuf();
    if (file.bad()) {
        *error = "cannot read '" + path + "': " + std::strerror(errno);
        return nullptr;
    }
    std::string bytes = contents.str();
    if (bytes.empty()) {
        *error = "unsupported or corrupt image '" + path + "': the file is empty";
        return nullptr;
    }
    CFRef<CFDataRef> data(CFDataCreate(nullptr, reinterpret_cast<const UInt8 *>(bytes.data()),
                                          static_cast<CFIndex>(bytes.size())));
    if (!data.get()) {
        *error = "cannot read '" + path + "': out of memory";
        return nullptr;
    }
    // The extension picks the loader for picture files, which carry no reliable signature;
    // everything else is recognised by its content.
    PlimImageFormat format = kPlimImageFormatUnknown;
    std::optional<OutputFormat> named = OutputFormatFromPath(path);
    if (named == OutputFormat::PICT) format = kPlimImageFormatPICT;
    if (named == OutputFormat::PCT) format = kPlimImageFormatPCT;
    PlimCFImage image = format != kPlimImageFormatUnknown
                            ? PlimCFImageCreateWithFormattedData(nullptr, data.get(), format)
                            : PlimCFImageCreateWithData(nullptr, data.get());
    if (!image || PlimCFImageGetWidth(image) == 0 || PlimCFImageGetHeight(image) == 0) {
        if (image) CFRelease(image);
        *error = "unsupported or corrupt image '" + path + "'";
        return nullptr;
    }
    return image;
}

bool WriteImageFile(PlimCFImage image, const std::string &path, OutputFormat format,
                    std::string *error) {
    CFRef<CFDataRef> data(EncodeImage(image, format));
    if (!data.get()) {
        *error = "cannot encode the image for '" + path + "'";
        return false;
    }
    return WriteBytesAtomically(path, CFDataGetBytePtr(data.get()),
                                static_cast<size_t>(CFDataGetLength(data.get())), error);
}

bool WriteTextFile(const std::string &path, std::string_view text, std::string *error) {
    return WriteBytesAtomically(path, text.data(), text.size(), error);
}

std::optional<std::string> TraceSVGDocument(PlimCFImage image, float threshold, bool showLog,
                                            std::string *error) {
    CFRef<CFDataRef> png(PlimCFImageCopyPNGData(nullptr, image));
    if (!png.get()) {
        *error = "cannot encode the image as PNG";
        return std::nullopt;
    }
    // The tracer logs every trace on standard output; send it to /dev/null unless asked for.
    std::fflush(stdout);
    std::cout.flush();
    int savedStdout = -1;
    if (!showLog) {
        int devnull = open("/dev/null", O_WRONLY);
        savedStdout = dup(STDOUT_FILENO);
        if (devnull >= 0 && savedStdout >= 0) dup2(devnull, STDOUT_FILENO);
        if (devnull >= 0) close(devnull);
    }
    CGMutablePathRef path = PlimCFImageCopyAlphaPath(image, threshold);
    std::fflush(stdout);
    std::cout.flush();
    if (savedStdout >= 0) {
        dup2(savedStdout, STDOUT_FILENO);
        close(savedStdout);
    }
    if (!path) {
        *error = "cannot trace the alpha outline";
        return std::nullopt;
    }
    CFRef<CFStringRef> svgPath(PlimCGPathCopySVGString(path));
    CGPathRelease(path);
    if (!svgPath.get()) {
        *error = "cannot trace the alpha outline";
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
