// The subcommands about whole files: info (as text or JSON) and convert (one file, or many into a
// folder).
#include "Commands.h"

#include <PlimBitmapLib/PlimCFImageOperations.h>

#include <nlohmann/json.hpp>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <sys/stat.h>
#include <unistd.h>

namespace plimtool {

namespace {

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

std::string Describe(PlimCFImage image) {
    CFRef<CFStringRef> description(CFCopyDescription(image));
    return CFStringToStd(description.get());
}

// What `plim info` reports about one image, in the order it prints it.
nlohmann::ordered_json Facts(const std::string &path, const std::string &format, PlimCFImage i) {
    nlohmann::ordered_json facts;
    facts["file"] = path;
    facts["format"] = format;
    facts["width"] = PlimCFImageGetWidth(i);
    facts["height"] = PlimCFImageGetHeight(i);
    facts["bits_per_component"] = PlimCFImageGetBitsPerComponent(i);
    facts["bits_per_pixel"] = PlimCFImageGetBitsPerPixel(i);
    facts["bytes_per_row"] = PlimCFImageGetBytesPerRow(i);
    facts["colour_model"] = ColorModelName(PlimCFImageGetColorSpace(i));
    facts["alpha_info"] = AlphaInfoName(PlimCFImageGetAlphaInfo(i));
    facts["opaque"] = PlimCFImageIsOpaque(i) != 0;
    facts["description"] = Describe(i);
    return facts;
}

void PrintFacts(const nlohmann::ordered_json &facts) {
    std::printf("%s:\n", facts["file"].get<std::string>().c_str());
    std::printf("  format: %s\n", facts["format"].get<std::string>().c_str());
    std::printf("  width: %u\n  height: %u\n", facts["width"].get<unsigned>(),
                facts["height"].get<unsigned>());
    std::printf("  bits per component: %u\n  bits per pixel: %u\n",
                facts["bits_per_component"].get<unsigned>(), facts["bits_per_pixel"].get<unsigned>());
    std::printf("  bytes per row: %u\n", facts["bytes_per_row"].get<unsigned>());
    std::printf("  colour model: %s\n", facts["colour_model"].get<std::string>().c_str());
    std::printf("  alpha info: %s\n", facts["alpha_info"].get<std::string>().c_str());
    std::printf("  opaque: %s\n", facts["opaque"].get<bool>() ? "yes" : "no");
    std::printf("  description: %s\n", facts["description"].get<std::string>().c_str());
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

std::string StemOf(const std::string &path) {
    size_t slash = path.rfind('/');
    std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    size_t dot = name.rfind('.');
    return dot == std::string::npos || dot == 0 ? name : name.substr(0, dot);
}

// Makes the folder and any missing parents, like mkdir -p.
bool MakeFolders(const std::string &dir, std::string *error) {
    std::string path;
    size_t start = 0;
    while (start <= dir.size()) {
        size_t slash = dir.find('/', start);
        if (slash == std::string::npos) slash = dir.size();
        path = dir.substr(0, slash);
        start = slash + 1;
        if (path.empty()) continue;
        struct stat st;
        if (stat(path.c_str(), &st) == 0) {
            if (S_ISDIR(st.st_mode)) continue;
            *error = "cannot write to '" + dir + "': '" + path + "' is not a directory";
            return false;
        }
        if (mkdir(path.c_str(), 0777) != 0 && errno != EEXIST) {
            *error = "cannot create '" + path + "': " + std::strerror(errno);
            return false;
        }
    }
    return true;
}

}  // namespace

int RunInfo(const Args &args) {
    ParsedArgs parsed;
    int code = kExitOK;
    if (!Prepare("info", args, {}, {"--json"}, 0, &parsed, &code)) return code;
    if (parsed.positional.empty()) return ExpectPositionals("info", parsed, 1), kExitUsage;
    const bool json = parsed.Has("--json");
    nlohmann::ordered_json all = nlohmann::ordered_json::array();
    for (const std::string &path : parsed.positional) {
        std::string error, format;
        ImageRef image(LoadImageFile(path, &error, &format));
        if (!image.get()) {
            PrintError("info", error);
            all.push_back({{"file", path}, {"error", error}});
            code = kExitFailure;
            continue;
        }
        nlohmann::ordered_json facts = Facts(path, format, image.get());
        if (json)
            all.push_back(std::move(facts));
        else
            PrintFacts(facts);
    }
    if (json) std::printf("%s\n", all.dump(2).c_str());
    return code;
}

int RunConvert(const Args &args) {
    ParsedArgs parsed;
    int code = kExitOK;
    if (!Prepare("convert", args, WithOutputOptions({"--out-dir"}), {}, 0, &parsed, &code))
        return code;
    if (!parsed.Has("--out-dir")) {
        if (!ExpectPositionals("convert", parsed, 2)) return kExitUsage;
        std::optional<OutputChoice> output = OutputFor("convert", parsed, parsed.positional[1]);
        if (!output) return kExitUsage;
        std::string error;
        ImageRef image(LoadImageFile(parsed.positional[0], &error));
        if (!image.get() || !WriteImageFile(image.get(), parsed.positional[1], *output, &error)) {
            PrintError("convert", error);
            return kExitFailure;
        }
        return kExitOK;
    }
    if (parsed.positional.empty()) return ExpectPositionals("convert", parsed, 1), kExitUsage;

    // Every input's output name, checked before anything is written: each input keeps its own
    // format unless --format names one (PNG for an extension that is not an output format).
    std::string dir = parsed.Last("--out-dir");
    if (dir.empty()) return PrintError("convert", "--out-dir needs a folder name"), kExitUsage;
    struct Job {
        std::string in, out;
        OutputChoice output;
    };
    std::vector<Job> jobs;
    std::map<std::string, std::string> claimed;  // output path -> the input that writes it
    for (const std::string &in : parsed.positional) {
        if (IsStdio(in))
            return PrintError("convert", "standard input has no name to use in --out-dir"), kExitUsage;
        std::string ext = ExtensionOf(OutputFormatFromPath(in).value_or(OutputFormat::PNG));
        std::optional<OutputChoice> output =
            OutputFor("convert", parsed, parsed.Has("--format") ? std::string() : "x." + ext);
        if (!output) return kExitUsage;
        std::string out = dir + (dir.back() == '/' ? "" : "/") + StemOf(in) + "." +
                          ExtensionOf(output->format);
        auto [it, fresh] = claimed.emplace(out, in);
        if (!fresh) {
            PrintError("convert", "'" + it->second + "' and '" + in + "' would both be written to '" +
                                      out + "'");
            return kExitUsage;
        }
        jobs.push_back({in, out, *output});
    }
    std::string error;
    if (!MakeFolders(dir, &error)) return PrintError("convert", error), kExitFailure;

    ProgressBar progress(jobs.size());
    size_t done = 0;
    for (const Job &job : jobs) {
        ImageRef image(LoadImageFile(job.in, &error));
        if (!image.get() || !WriteImageFile(image.get(), job.out, job.output, &error)) {
            if (isatty(STDERR_FILENO)) std::fputc('\n', stderr);
            PrintError("convert", error);
            code = kExitFailure;
        }
        progress.Update(++done);
    }
    return code;
}

}  // namespace plimtool
