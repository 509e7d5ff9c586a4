// The subcommands that combine two images (composite, tile) and the outline tracer's drawing.
//
// The tool hands the library only rectangle pairs of equal size that lie inside both images, so
// that every rectangle the user gives counts rows from the top and is clipped, never squeezed, at
// both images' edges. A pair whose sizes differ is scaled by the tool first: the source rectangle
// is cropped out of a copy of the source and scaled to the whole destination rectangle, and the
// visible part of that is drawn.
#include "Commands.h"

#include <PlimBitmapLib/PlimCFImageComposite.h>

#include <algorithm>

namespace plimtool {

namespace {

// A pair the library can draw as it is: equal sizes, inside both images.
struct ClippedPair {
    PixelRect src, dest;
};

// Clips a pair of equal-size rectangles to both images, moving both by the same amount.
// Empty when nothing of it is visible.
std::optional<ClippedPair> ClipPair(const PixelRect &src, const PixelRect &dest,
                                    const PixelRect &srcImage, const PixelRect &destImage) {
    const long dx = dest.x - src.x, dy = dest.y - src.y;
    PixelRect shifted = Intersect(src, srcImage);
    shifted.x += dx;
    shifted.y += dy;
    PixelRect visible = Intersect(Intersect(shifted, dest), destImage);
    if (visible.Empty()) return std::nullopt;
    return ClippedPair{PixelRect{visible.x - dx, visible.y - dy, visible.width, visible.height},
                       visible};
}

CGRect ToCGRect(const PixelRect &r) {
    return CGRectMake(static_cast<float>(r.x), static_cast<float>(r.y),
                      static_cast<float>(r.width), static_cast<float>(r.height));
}

// Draws the pairs, in order, with one library call (which copies the source once). False with
// *error when the library could not draw them.
bool DrawPairs(PlimCFImage src, PlimCFImage dest, const std::vector<ClippedPair> &pairs,
               PlimCompositeOperation operation, std::string *error) {
    if (pairs.empty()) return true;
    std::vector<CGRect> srcRects, destRects;
    for (const ClippedPair &pair : pairs) {
        srcRects.push_back(ToCGRect(pair.src));
        destRects.push_back(ToCGRect(pair.dest));
    }
    PlimClearLastError();
    PlimCFImageComposite(src, dest, srcRects.data(), destRects.data(),
                         static_cast<UInt32>(srcRects.size()), operation);
    if (PlimGetLastError() == kPlimErrorNone) return true;
    *error = WithLibraryReason("the library cannot draw into this image");
    return false;
}

// (a * numerator) / denominator rounded to nearest, for non-negative a and positive others.
long MulDivRound(long a, long numerator, long denominator) {
    return (2 * a * numerator + denominator) / (2 * denominator);
}

// One pair of the composite command. Returns false with *error when it cannot be drawn.
bool CompositePair(PlimCFImage src, PlimCFImage dest, PixelRect s, PixelRect d,
                   PlimCompositeOperation operation, std::string *error) {
    const PixelRect srcImage = WholeImage(src), destImage = WholeImage(dest);
    if (s.width == d.width && s.height == d.height) {
        std::optional<ClippedPair> pair = ClipPair(s, d, srcImage, destImage);
        if (!pair) {
            *error = "it lies outside the images";
            return false;
        }
        return DrawPairs(src, dest, {*pair}, operation, error);
    }
    // Scaled: the part of the source rectangle outside the source image has nothing to draw, so
    // the destination rectangle shrinks with it, in proportion.
    PixelRect inside = Intersect(s, srcImage);
    if (inside.Empty()) {
        *error = "the source rectangle lies outside the source image";
        return false;
    }
    if (!(inside == s)) {
        long left = MulDivRound(inside.x - s.x, d.width, s.width);
        long right = MulDivRound(inside.Right() - s.x, d.width, s.width);
        long top = MulDivRound(inside.y - s.y, d.height, s.height);
        long bottom = MulDivRound(inside.Bottom() - s.y, d.height, s.height);
        d = PixelRect{d.x + left, d.y + top, right - left, bottom - top};
        s = inside;
        if (d.Empty()) {
            *error = "its visible part is less than a pixel";
            return false;
        }
    }
    if (Intersect(d, destImage).Empty()) {
        *error = "it lies outside the destination image";
        return false;
    }
    // A copy in a layout the library works in, as its own compositing would have it.
    ImageRef scaled(PlimCFImageCreateCopy(nullptr, src));
    if (!scaled) {
        *error = "cannot copy the source image";
        return false;
    }
    PlimCFImagePromoteImage(scaled.get(), false, false);
    if (!CropImage(scaled.get(), s, error) || !ScaleImage(scaled.get(), d.width, d.height, error))
        return false;
    std::optional<ClippedPair> pair =
        ClipPair(PixelRect{0, 0, d.width, d.height}, d, WholeImage(scaled.get()), destImage);
    return !pair || DrawPairs(scaled.get(), dest, {*pair}, operation, error);
}

bool ParseRects(const std::string &sub, const std::vector<std::string> &texts,
                std::vector<PixelRect> *rects) {
    for (const std::string &text : texts) {
        PixelRect rect;
        if (!ParseRect(text, &rect)) {
            PrintError(sub, "bad rectangle '" + text +
                                "' (want X,Y,W,H in whole pixels, W and H at least 1)");
            return false;
        }
        rects->push_back(rect);
    }
    return true;
}

std::optional<PlimCompositeOperation> OperationOption(const std::string &sub,
                                                      const ParsedArgs &parsed,
                                                      const char *fallback) {
    std::string name = parsed.Last("--op", fallback ? fallback : "");
    if (name.empty()) {
        PrintError(sub, "missing --op NAME");
        return std::nullopt;
    }
    std::optional<PlimCompositeOperation> operation = CompositeOperationFromName(name);
    if (!operation) PrintError(sub, "unknown operation '" + name + "'");
    return operation;
}

// Loads SRC and DEST, lets `combine` draw SRC into DEST, writes DEST to OUT.
template <typename Combine>
int CombineAndWrite(const std::string &sub, const ParsedArgs &parsed, Combine combine) {
    std::optional<OutputChoice> output = OutputFor(sub, parsed, parsed.positional[2]);
    if (!output) return kExitUsage;
    std::string error;
    ImageRef src(LoadImageFile(parsed.positional[0], &error));
    if (!src.get()) return PrintError(sub, error), kExitFailure;
    ImageRef dest(LoadImageFile(parsed.positional[1], &error));
    if (!dest.get()) return PrintError(sub, error), kExitFailure;
    if (!combine(src.get(), dest.get(), &error) ||
        !WriteImageFile(dest.get(), parsed.positional[2], *output, &error))
        return PrintError(sub, error), kExitFailure;
    return kExitOK;
}

// Where the tiles of one axis start, in drawing order, for tiles of `size` laid from the near
// (or far) end of [start, start + length), keeping only those that reach into [lo, hi).
std::vector<long> TileStarts(long start, long length, long size, bool fromFar, long lo, long hi) {
    std::vector<long> starts;
    const long count = (length + size - 1) / size;
    // Tile k covers [first + step * k, first + step * k + size).
    const long first = fromFar ? start + length - size : start;
    const long step = fromFar ? -size : size;
    auto floorDiv = [](long a, long b) { return a / b - ((a % b != 0) && ((a < 0) != (b < 0))); };
    long kLo, kHi;  // the tiles that overlap [lo, hi)
    if (!fromFar) {
        kLo = floorDiv(lo - first, size);
        kHi = floorDiv(hi - 1 - first, size);
    } else {
        kLo = floorDiv(first - hi, size) + 1;
        kHi = floorDiv(first + size - 1 - lo, size);
    }
    for (long k = std::max(0L, kLo); k <= std::min(count - 1, kHi); ++k)
        starts.push_back(first + step * k);
    return starts;
}

}  // namespace

int RunComposite(const Args &args) {
    ParsedArgs parsed;
    int code = kExitOK;
    if (!Prepare("composite", args, WithOutputOptions({"--op", "--src-rect", "--dest-rect"}), {}, 3,
                 &parsed, &code))
        return code;
    std::optional<PlimCompositeOperation> operation = OperationOption("composite", parsed, nullptr);
    if (!operation) return kExitUsage;
    std::vector<PixelRect> srcRects, destRects;
    if (!ParseRects("composite", parsed.All("--src-rect"), &srcRects) ||
        !ParseRects("composite", parsed.All("--dest-rect"), &destRects))
        return kExitUsage;
    if (srcRects.size() != destRects.size()) {
        PrintError("composite", "--src-rect and --dest-rect must come in pairs");
        return kExitUsage;
    }
    return CombineAndWrite("composite", parsed,
                           [&](PlimCFImage src, PlimCFImage dest, std::string *error) {
        if (srcRects.empty()) {
            srcRects.push_back(WholeImage(src));
            destRects.push_back(WholeImage(dest));
        }
        for (size_t i = 0; i < srcRects.size(); ++i) {
            if (!CompositePair(src, dest, srcRects[i], destRects[i], *operation, error)) {
                if (srcRects.size() > 1) *error = "pair " + std::to_string(i + 1) + ": " + *error;
                else *error = "cannot composite: " + *error;
                return false;
            }
        }
        return true;
    });
}

int RunTile(const Args &args) {
    ParsedArgs parsed;
    int code = kExitOK;
    if (!Prepare("tile", args, WithOutputOptions({"--op", "--src-rect", "--dest-rect", "--origin"}),
                 {}, 3, &parsed, &code))
        return code;
    std::optional<PlimCompositeOperation> operation = OperationOption("tile", parsed, "srcover");
    if (!operation) return kExitUsage;
    std::vector<PixelRect> srcRect, destRect;
    if (!parsed.Has("--src-rect") || !parsed.Has("--dest-rect")) {
        PrintError("tile", "missing --src-rect or --dest-rect");
        return kExitUsage;
    }
    if (!ParseRects("tile", {parsed.Last("--src-rect")}, &srcRect) ||
        !ParseRects("tile", {parsed.Last("--dest-rect")}, &destRect))
        return kExitUsage;
    // The corner of the destination rectangle the pattern is anchored at, y counted from the top.
    struct Origin {
        const char *name;
        bool fromRight, fromBottom;
    };
    static const Origin kOrigins[] = {{"min-x-min-y", false, false},
                                      {"max-x-min-y", true, false},
                                      {"min-x-max-y", false, true},
                                      {"max-x-max-y", true, true}};
    std::string originName = parsed.Last("--origin", "min-x-min-y");
    const Origin *origin = nullptr;
    for (const Origin &o : kOrigins)
        if (originName == o.name) origin = &o;
    if (!origin) {
        PrintError("tile", "unknown origin '" + originName + "'");
        return kExitUsage;
    }
    const PixelRect tile = srcRect[0], area = destRect[0];
    return CombineAndWrite("tile", parsed, [&](PlimCFImage src, PlimCFImage dest, std::string *error) {
        const PixelRect srcImage = WholeImage(src);
        if (!(Intersect(tile, srcImage) == tile)) {
            *error = "the source rectangle must lie inside the source image (" +
                     std::to_string(srcImage.width) + "x" + std::to_string(srcImage.height) + ")";
            return false;
        }
        // A pattern fill: whole tiles from the anchor corner, the ones at the edges of the
        // destination rectangle and of the image clipped.
        const PixelRect visible = Intersect(area, WholeImage(dest));
        if (visible.Empty()) {
            *error = "the destination rectangle lies outside the destination image";
            return false;
        }
        // Tiles never overlap, so they go to the library in batches of any order; a batch
        // bounds the memory a pattern of tiny tiles over a large image needs.
        constexpr size_t kBatch = 65536;
        std::vector<ClippedPair> pairs;
        const std::vector<long> columns = TileStarts(area.x, area.width, tile.width,
                                                     origin->fromRight, visible.x, visible.Right());
        for (long y : TileStarts(area.y, area.height, tile.height, origin->fromBottom, visible.y,
                                 visible.Bottom())) {
            for (long x : columns) {
                PixelRect shown = Intersect(PixelRect{x, y, tile.width, tile.height}, visible);
                if (shown.Empty()) continue;
                pairs.push_back({PixelRect{tile.x + shown.x - x, tile.y + shown.y - y,
                                           shown.width, shown.height},
                                 shown});
                if (pairs.size() == kBatch) {
                    if (!DrawPairs(src, dest, pairs, *operation, error)) return false;
                    pairs.clear();
                }
            }
        }
        return DrawPairs(src, dest, pairs, *operation, error);
    });
}

int RunTrace(const Args &args) {
    ParsedArgs parsed;
    int code = kExitOK;
    if (!Prepare("trace", args, {"--threshold"}, {"--log"}, 2, &parsed, &code)) return code;
    double threshold = 0.5;
    if (parsed.Has("--threshold") &&
        (!ParseDecimal(parsed.Last("--threshold"), &threshold) || threshold < 0 || threshold > 1)) {
        PrintError("trace", "bad threshold '" + parsed.Last("--threshold") + "' (want 0 to 1)");
        return kExitUsage;
    }
    const std::string &out = parsed.positional[1];
    std::string lower = out;
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (!IsStdio(out) && (lower.size() < 5 || lower.substr(lower.size() - 4) != ".svg")) {
        PrintError("trace", "the output '" + out + "' must be an .svg file (or - for stdout)");
        return kExitUsage;
    }
    std::string error;
    ImageRef image(LoadImageFile(parsed.positional[0], &error));
    if (!image.get()) return PrintError("trace", error), kExitFailure;
    // With the drawing on stdout, a log asked for goes to stderr.
    std::FILE *log = parsed.Has("--log") ? (IsStdio(out) ? stderr : stdout) : nullptr;
    std::optional<std::string> svg =
        TraceSVGDocument(image.get(), static_cast<float>(threshold), log, &error);
    if (!svg || !WriteTextFile(out, *svg, &error)) return PrintError("trace", error), kExitFailure;
    return kExitOK;
}

}  // namespace plimtool
