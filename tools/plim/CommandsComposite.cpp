// The subcommands that combine two images (composite, tile) and the outline tracer's drawing.
#include "Commands.h"

#include <PlimBitmapLib/PlimCFImageComposite.h>

namespace plimtool {

namespace {

bool ParseRects(const std::string &sub, const std::vector<std::string> &texts,
                std::vector<CGRect> *rects) {
    for (const std::string &text : texts) {
        CGRect rect;
        if (!ParseRect(text, &rect)) {
            PrintError(sub, "bad rectangle '" + text + "' (want X,Y,W,H)");
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
    std::optional<OutputFormat> format = OutputFormatFromPath(parsed.positional[2]);
    if (!format) {
        PrintError(sub, "cannot tell the output format from '" + parsed.positional[2] + "'");
        return kExitUsage;
    }
    std::string error;
    ImageRef src(LoadImageFile(parsed.positional[0], &error));
    if (!src.get()) return PrintError(sub, error), kExitFailure;
    ImageRef dest(LoadImageFile(parsed.positional[1], &error));
    if (!dest.get()) return PrintError(sub, error), kExitFailure;
    combine(src.get(), dest.get());
    if (!WriteImageFile(dest.get(), parsed.positional[2], *format, &error))
        return PrintError(sub, error), kExitFailure;
    return kExitOK;
}

}  // namespace

int RunComposite(const Args &args) {
    ParsedArgs parsed;
    int code = kExitOK;
    if (!Prepare("composite", args, {"--op", "--src-rect", "--dest-rect"}, {}, 3, &parsed, &code))
        return code;
    std::optional<PlimCompositeOperation> operation = OperationOption("composite", parsed, nullptr);
    if (!operation) return kExitUsage;
    std::vector<CGRect> srcRects, destRects;
    if (!ParseRects("composite", parsed.All("--src-rect"), &srcRects) ||
        !ParseRects("composite", parsed.All("--dest-rect"), &destRects))
        return kExitUsage;
    if (srcRects.size() != destRects.size()) {
        PrintError("composite", "--src-rect and --dest-rect must come in pairs");
        return kExitUsage;
    }
    return CombineAndWrite("composite", parsed, [&](PlimCFImage src, PlimCFImage dest) {
        if (srcRects.empty())
            PlimCFImageComposite(src, dest, nullptr, nullptr, 0, *operation);
        else
            PlimCFImageComposite(src, dest, srcRects.data(), destRects.data(),
                                 static_cast<UInt32>(srcRects.size()), *operation);
    });
}

int RunTile(const Args &args) {
    ParsedArgs parsed;
    int code = kExitOK;
    if (!Prepare("tile", args, {"--op", "--src-rect", "--dest-rect", "--origin"}, {}, 3, &parsed,
                 &code))
        return code;
    std::optional<PlimCompositeOperation> operation = OperationOption("tile", parsed, "srcover");
    if (!operation) return kExitUsage;
    std::vector<CGRect> srcRect, destRect;
    if (!parsed.Has("--src-rect") || !parsed.Has("--dest-rect")) {
        PrintError("tile", "missing --src-rect or --dest-rect");
        return kExitUsage;
    }
    if (!ParseRects("tile", {parsed.Last("--src-rect")}, &srcRect) ||
        !ParseRects("tile", {parsed.Last("--dest-rect")}, &destRect))
        return kExitUsage;
    if (srcRect[0].size.width < 1 || srcRect[0].size.height < 1) {
        PrintError("tile", "the source rectangle must be at least one pixel wide and high");
        return kExitUsage;
    }
    static const char *const kOrigins[] = {"min-x-max-y", "max-x-max-y", "min-x-min-y",
                                           "max-x-min-y"};
    std::string originName = parsed.Last("--origin", "min-x-max-y");
    int origin = -1;
    for (int i = 0; i < 4; ++i)
        if (originName == kOrigins[i]) origin = i;
    if (origin < 0) {
        PrintError("tile", "unknown origin '" + originName + "'");
        return kExitUsage;
    }
    return CombineAndWrite("tile", parsed, [&](PlimCFImage src, PlimCFImage dest) {
        PlimCFImageTile(src, dest, srcRect[0], destRect[0], *operation, origin);
    });
}

int RunTrace(const Args &args) {
    ParsedArgs parsed;
    int code = kExitOK;
    if (!Prepare("trace", args, {"--threshold"}, {"--log"}, 2, &parsed, &code)) return code;
    std::vector<float> threshold = {0.5f};
    if (parsed.Has("--threshold") &&
        (!ParseFloats(parsed.Last("--threshold"), 1, &threshold) || threshold[0] < 0 ||
         threshold[0] > 1)) {
        PrintError("trace", "bad threshold '" + parsed.Last("--threshold") + "' (want 0 to 1)");
        return kExitUsage;
    }
    std::string error;
    ImageRef image(LoadImageFile(parsed.positional[0], &error));
    if (!image.get()) return PrintError("trace", error), kExitFailure;
    std::optional<std::string> svg =
        TraceSVGDocument(image.get(), threshold[0], parsed.Has("--log"), &error);
    if (!svg || !WriteTextFile(parsed.positional[1], *svg, &error))
        return PrintError("trace", error), kExitFailure;
    return kExitOK;
}

}  // namespace plimtool
