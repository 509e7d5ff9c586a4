// `plim demo OUTDIR`: runs the library's main jobs on the built-in sample images and writes what
// they produce, so a fresh build can be checked by eye.
#include "SampleImages.h"
#include "ToolSupport.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace plimtool {
namespace {

constexpr const char *kDemoUsage =
    "usage: plim demo OUTDIR\n"
    "\n"
    "Runs the library on sample images drawn in code and writes into OUTDIR (created if\n"
    "missing, one level):\n"
    "  source.png, destination.png, mask.png  the sample images\n"
    "  contact-sheet.png   all 24 composite operations of source onto destination, 6x4 tiles\n"
    "                      in operation-code order on a checkerboard\n"
    "  contact-sheet.txt   which operation each tile shows\n"
    "  pattern.png         the source tiled across a larger image\n"
    "  outline.svg         the source with its traced alpha outline\n"
    "  scene.png           source over destination over the checkerboard\n"
    "  grey.png, inverted.png, masked.png  variants of the scene\n"
    "  index.html          one page showing every picture with what it shows, the contact\n"
    "                      sheet's tiles labelled\n"
    "Prints one line per file written.\n";

constexpr uint32_t kColumns = 6;
constexpr uint32_t kRows = 4;
constexpr uint32_t kGap = 8;

CGRect Rect(uint32_t x, uint32_t y, uint32_t width, uint32_t height) {
    return CGRectMake(static_cast<float>(x), static_cast<float>(y), static_cast<float>(width),
                      static_cast<float>(height));
}

// Writes files into the output directory, remembering them so that a failed run can take back
// everything it made.
class DemoWriter {
public:
    explicit DemoWriter(std::string dir) : dir_(std::move(dir)) {}

    // Creates the directory when missing (its parent must exist).
    bool Open(std::string *error) {
        struct stat st;
        if (stat(dir_.c_str(), &st) == 0) {
            if (S_ISDIR(st.st_mode)) return true;
            *error = "cannot create directory " + dir_ + ": not a directory";
            return false;
        }
        if (mkdir(dir_.c_str(), 0777) != 0) {
            *error = "cannot create directory " + dir_ + ": " + std::strerror(errno);
            return false;
        }
        createdDir_ = true;
        return true;
    }

    bool Image(const std::string &name, PlimCFImage image, const std::string &note,
               std::string *error) {
        if (image == nullptr) {
            *error = "could not make the image for " + Path(name);
            return false;
        }
        if (!WriteImageFile(image, Path(name), OutputChoice{}, error)) return false;
        pictures_.push_back({name, note, PlimCFImageGetWidth(image), PlimCFImageGetHeight(image)});
        return Wrote(name, std::to_string(PlimCFImageGetWidth(image)) + "x" +
                               std::to_string(PlimCFImageGetHeight(image)) +
                               (note.empty() ? "" : ", " + note));
    }

    // A drawing (SVG) to show on the index page as well.
    bool Drawing(const std::string &name, const std::string &svg, const std::string &note,
                 uint32_t width, uint32_t height, std::string *error) {
        if (!WriteTextFile(Path(name), svg, error)) return false;
        pictures_.push_back({name, note, width, height});
        return Wrote(name, note);
    }

    struct Picture {
        std::string name, note;
        uint32_t width, height;
    };
    const std::vector<Picture> &Pictures() const { return pictures_; }

    bool Text(const std::string &name, const std::string &text, const std::string &note,
              std::string *error) {
        if (!WriteTextFile(Path(name), text, error)) return false;
        return Wrote(name, note);
    }

    // Prints the lines of everything written, once the whole run has succeeded.
    void Report() const {
        for (const std::string &line : lines_) std::printf("%s\n", line.c_str());
    }

    // Removes what this run wrote, and the directory if this run created it.
    void Discard() {
        for (const std::string &name : written_) unlink(Path(name).c_str());
        if (createdDir_) rmdir(dir_.c_str());
    }

private:
    std::string Path(const std::string &name) const {
        return (!dir_.empty() && dir_.back() == '/') ? dir_ + name : dir_ + "/" + name;
    }

    bool Wrote(const std::string &name, const std::string &note) {
        written_.push_back(name);
        lines_.push_back("wrote " + Path(name) + (note.empty() ? "" : " (" + note + ")"));
        return true;
    }

    std::string dir_;
    bool createdDir_ = false;
    std::vector<std::string> written_;
    std::vector<std::string> lines_;
    std::vector<Picture> pictures_;
};

std::string EscapeHTML(const std::string &text) {
    std::string out;
    for (char c : text) {
        switch (c) {
        case '&': out += "&amp;"; break;
        case '<': out += "&lt;"; break;
        case '>': out += "&gt;"; break;
        case '"': out += "&quot;"; break;
        default: out += c;
        }
    }
    return out;
}

// One page to open after the run: every picture with its name and what it shows, and the
// contact sheet once more as a grid of its tiles, each labelled with its operation.
std::string IndexPage(const std::vector<DemoWriter::Picture> &pictures,
                      const std::vector<std::string> &tileNames) {
    std::string html =
        "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
        "<title>plim demo</title>\n<style>\n"
        "body { font-family: sans-serif; margin: 2em; background: #f4f4f4; }\n"
        "figure { display: inline-block; margin: 0 1.5em 1.5em 0; vertical-align: top; }\n"
        "figure img { image-rendering: pixelated; background: #fff; border: 1px solid #ccc; }\n"
        ".tiles { display: grid; grid-template-columns: repeat(" + std::to_string(kColumns) +
        ", auto); gap: 12px; justify-content: start; }\n"
        ".tile { width: " + std::to_string(kSampleSize) + "px; height: " +
        std::to_string(kSampleSize) + "px; background-image: url(contact-sheet.png); }\n"
        ".tiles figure { margin: 0; }\n"
        "</style>\n</head>\n<body>\n<h1>plim demo</h1>\n"
        "<p>What <code>plim demo</code> made from sample images it draws itself.</p>\n";
    for (const DemoWriter::Picture &p : pictures) {
        html += "<figure><img src=\"" + EscapeHTML(p.name) + "\" width=\"" +
                std::to_string(p.width) + "\" height=\"" + std::to_string(p.height) + "\" alt=\"" +
                EscapeHTML(p.note) + "\"><figcaption><b>" + EscapeHTML(p.name) + "</b>: " +
                EscapeHTML(p.note) + "</figcaption></figure>\n";
    }
    html += "<h2>The contact sheet, tile by tile</h2>\n"
            "<p>Each tile is destination.png with source.png composited onto it by one "
            "operation, shown over a checkerboard.</p>\n<div class=\"tiles\">\n";
    for (size_t i = 0; i < tileNames.size(); ++i) {
        const uint32_t x = kGap + static_cast<uint32_t>(i % kColumns) * (kSampleSize + kGap);
        const uint32_t y = kGap + static_cast<uint32_t>(i / kColumns) * (kSampleSize + kGap);
        html += "<figure><div class=\"tile\" style=\"background-position: -" + std::to_string(x) +
                "px -" + std::to_string(y) + "px\"></div><figcaption>" +
                EscapeHTML(tileNames[i]) + "</figcaption></figure>\n";
    }
    html += "</div>\n</body>\n</html>\n";
    return html;
}

// One tile per operation: a copy of the destination with the source composited onto it, shown
// over a checkerboard. Tiles go into the sheet row by row in operation-code order.
ImageRef MakeContactSheet(PlimCFImage source, PlimCFImage destination, std::string *index) {
    const auto &operations = CompositeOperationNames();
    const uint32_t tile = kSampleSize;
    const uint32_t width = kColumns * (tile + kGap) + kGap;
    const uint32_t height = kRows * (tile + kGap) + kGap;
    ImageRef sheet(PlimCFImageCreateWithSize(
        nullptr, CGSizeMake(static_cast<float>(width), static_cast<float>(height)), true));
    ImageRef backdrop = CreateCheckerboard(tile, tile);
    if (!sheet || !backdrop || operations.size() != kColumns * kRows) return ImageRef();

    // A dark frame around the tiles: the light backdrop inverted.
    ImageRef frame = CreateCheckerboard(1, 1);
    if (!frame) return ImageRef();
    PlimCFImageInvert(frame.get());
    const CGRect whole = Rect(0, 0, width, height);
    const CGRect one = Rect(0, 0, 1, 1);
    PlimCFImageComposite(frame.get(), sheet.get(), &one, &whole, 1, kPlimCompositeCopySrc);

    for (uint32_t i = 0; i < operations.size(); ++i) {
        const uint32_t row = i / kColumns, column = i % kColumns;
        ImageRef result(PlimCFImageCreateCopy(nullptr, destination));
        ImageRef shown(PlimCFImageCreateCopy(nullptr, backdrop.get()));
        if (!result || !shown) return ImageRef();
        PlimCFImageComposite(source, result.get(), nullptr, nullptr, 1, operations[i].operation);
        PlimCFImageComposite(result.get(), shown.get(), nullptr, nullptr, 1, kPlimCompositeSrcOver);
        const CGRect from = Rect(0, 0, tile, tile);
        const CGRect to = Rect(kGap + column * (tile + kGap), kGap + row * (tile + kGap), tile, tile);
        PlimCFImageComposite(shown.get(), sheet.get(), &from, &to, 1, kPlimCompositeCopySrc);
        index->append("row " + std::to_string(row + 1) + ", column " + std::to_string(column + 1) +
                      ": " + operations[i].name + "\n");
    }
    return sheet;
}

// The source repeated across a larger checkerboard from the top-left corner, in whole tiles
// (a tile cut by the image edge would be squeezed into what is left).
ImageRef MakePattern(PlimCFImage source) {
    const uint32_t width = kSampleSize * 4, height = kSampleSize * 3;
    ImageRef pattern = CreateCheckerboard(width, height);
    if (!pattern) return ImageRef();
    PlimCFImageTile(source, pattern.get(), Rect(0, 0, kSampleSize, kSampleSize),
                    Rect(0, 0, width, height), kPlimCompositeSrcOver, kPlimTileOriginMinXMinY);
    return pattern;
}

// An opaque picture to make variants of: source over destination over the checkerboard.
ImageRef MakeScene(PlimCFImage source, PlimCFImage destination) {
    ImageRef scene = CreateCheckerboard(kSampleSize, kSampleSize);
    if (!scene) return ImageRef();
    PlimCFImageComposite(destination, scene.get(), nullptr, nullptr, 1, kPlimCompositeSrcOver);
    PlimCFImageComposite(source, scene.get(), nullptr, nullptr, 1, kPlimCompositeSrcOver);
    return scene;
}

// Applies `change` to a copy of the image.
template <typename Change>
ImageRef Variant(PlimCFImage image, Change change) {
    ImageRef copy(PlimCFImageCreateCopy(nullptr, image));
    if (copy) change(copy.get());
    return copy;
}

bool WriteDemo(DemoWriter &out, std::string *index, std::string *error) {
    ImageRef source = CreateSampleSource();
    ImageRef destination = CreateSampleDestination();
    ImageRef mask = CreateSampleMask();
    if (!source || !destination || !mask) {
        *error = "could not create the sample images";
        return false;
    }
    if (!out.Image("source.png", source.get(), "the source: discs and a ring with soft, partly transparent edges", error) ||
        !out.Image("destination.png", destination.get(), "the destination: colour gradients fading out to the right", error) ||
        !out.Image("mask.png", mask.get(), "a grey mask, white in the middle", error)) {
        return false;
    }

    ImageRef sheet = MakeContactSheet(source.get(), destination.get(), index);
    if (!out.Image("contact-sheet.png", sheet.get(),
                   "the source composited onto the destination by all " +
                       std::to_string(kColumns * kRows) + " operations, " +
                       std::to_string(kColumns) + "x" + std::to_string(kRows) + " tiles",
                   error) ||
        !out.Text("contact-sheet.txt", *index, "tile order", error)) {
        return false;
    }

    ImageRef pattern = MakePattern(source.get());
    if (!out.Image("pattern.png", pattern.get(), "the source tiled across a checkerboard", error)) return false;

    std::optional<std::string> svg = TraceSVGDocument(source.get(), 0.5f, nullptr, error);
    if (!svg || !out.Drawing("outline.svg", *svg, "the source with its traced alpha outline",
                             kSampleSize, kSampleSize, error))
        return false;

    ImageRef scene = MakeScene(source.get(), destination.get());
    if (!out.Image("scene.png", scene.get(), "source over destination over a checkerboard", error)) {
        return false;
    }
    ImageRef grey = Variant(scene.get(), PlimCFImageConvertToGrayscale);
    ImageRef inverted = Variant(scene.get(), PlimCFImageInvert);
    ImageRef masked(PlimCFImageCreateWithImageAndMask(nullptr, scene.get(), mask.get(), false));
    if (!out.Image("grey.png", grey.get(), "the scene in grey", error) ||
        !out.Image("inverted.png", inverted.get(), "the scene with its colours inverted", error) ||
        !out.Image("masked.png", masked.get(), "the scene with the mask as its alpha", error))
        return false;
    std::vector<std::string> tileNames;
    for (const OperationName &operation : CompositeOperationNames())
        tileNames.push_back(operation.name);
    return out.Text("index.html", IndexPage(out.Pictures(), tileNames),
                    "every picture on one page", error);
}

}  // namespace

int RunDemo(const std::vector<std::string> &args) {
    std::string outDir;
    bool haveDir = false;
    for (const std::string &arg : args) {
        if (arg == "--help" || arg == "-h") {
            std::fputs(kDemoUsage, stdout);
            return kExitOK;
        }
    }
    for (const std::string &arg : args) {
        if (arg.size() > 1 && arg[0] == '-') {
            std::fprintf(stderr, "plim: demo: unknown option %s\n", arg.c_str());
            return kExitUsage;
        }
        if (haveDir) {
            std::fprintf(stderr, "plim: demo: expected one OUTDIR, got more\n");
            return kExitUsage;
        }
        outDir = arg;
        haveDir = true;
    }
    if (!haveDir || outDir.empty()) {
        std::fprintf(stderr, "plim: demo: missing OUTDIR (see plim demo --help)\n");
        return kExitUsage;
    }

    DemoWriter out(outDir);
    std::string index, error;
    if (!out.Open(&error) || !WriteDemo(out, &index, &error)) {
        out.Discard();
        std::fprintf(stderr, "plim: demo: %s\n", error.c_str());
        return kExitFailure;
    }
    out.Report();
    std::printf("contact sheet tiles:\n%s", index.c_str());
    return kExitOK;
}

}  // namespace plimtool
