// plim: the command line over PlimBitmapLib. Dispatches a subcommand and owns the usage texts.
#include "Commands.h"

#include <cstdio>
#include <cstdlib>
#include <iostream>

namespace plimtool {

namespace {

struct Usage {
    const char *name;
    const char *text;
};

// Every subcommand that writes an image also takes the output options below.
#define PLIM_OUTPUT_OPTIONS                                                                       \
    "  --format png|jpeg|tiff|pict|pct|webp  output format (default: OUT's extension; PNG for -)\n" \
    "  --quality Q                           JPEG or WebP quality, 1 to 100 (JPEG: default 75;\n"     \
    "                                        WebP: lossless without it)\n"

const Usage kUsages[] = {
    {"info", "usage: plim info FILE... [--json]\n"
             "  Prints format, size, bits, bytes per row, colour model, alpha info, opacity and\n"
             "  the image's description for each file; --json prints them as a JSON array.\n"},
    {"convert", "usage: plim convert IN OUT [--format F] [--quality Q]\n"
                "       plim convert IN... --out-dir DIR [--format F] [--quality Q]\n"
                "  Re-encodes images. With --out-dir (created if missing) each input keeps its\n"
                "  name, with the new format's extension.\n" PLIM_OUTPUT_OPTIONS},
    {"crop", "usage: plim crop IN OUT X,Y,W,H\n"
             "  Keeps the rectangle, X and Y counted from the top-left corner; parts outside the\n"
             "  picture are cut off.\n" PLIM_OUTPUT_OPTIONS},
    {"scale", "usage: plim scale IN OUT W,H|W,|,H|P%\n"
              "  Resamples the picture to W x H pixels; W, or ,H keeps the aspect ratio; P% scales\n"
              "  both sides.\n" PLIM_OUTPUT_OPTIONS},
    {"flip", "usage: plim flip IN OUT\n  Mirrors the rows top to bottom.\n" PLIM_OUTPUT_OPTIONS},
    {"gray", "usage: plim gray IN OUT\n  Converts to an 8-bit grey image.\n" PLIM_OUTPUT_OPTIONS},
    {"color", "usage: plim color IN OUT\n  Converts a grey image to colour.\n" PLIM_OUTPUT_OPTIONS},
    {"add-alpha", "usage: plim add-alpha IN OUT\n  Gives an image without alpha an alpha channel.\n"
                  PLIM_OUTPUT_OPTIONS},
    {"remove-alpha", "usage: plim remove-alpha IN OUT\n  Makes every pixel opaque.\n" PLIM_OUTPUT_OPTIONS},
    {"invert", "usage: plim invert IN OUT\n  Inverts the colours.\n" PLIM_OUTPUT_OPTIONS},
    {"clear", "usage: plim clear IN OUT\n  Transparent black with alpha, white without.\n"
              PLIM_OUTPUT_OPTIONS},
    {"opaque", "usage: plim opaque IN OUT\n  Writes an opaque copy (alpha removed).\n" PLIM_OUTPUT_OPTIONS},
    {"alpha", "usage: plim alpha IN OUT\n  Writes the alpha channel as a grey image.\n" PLIM_OUTPUT_OPTIONS},
    {"mask", "usage: plim mask IMAGE MASK OUT [--premultiplied]\n"
             "  Uses MASK's grey values as IMAGE's alpha; with --premultiplied IMAGE's colours are\n"
             "  taken as already multiplied by the mask. Both must have the same size.\n"
             PLIM_OUTPUT_OPTIONS},
    {"composite", "usage: plim composite SRC DEST OUT --op NAME [--src-rect X,Y,W,H --dest-rect X,Y,W,H]...\n"
                  "  Combines SRC into DEST. Rectangles come in pairs, Y counted from the top row, and\n"
                  "  are clipped at both images' edges; a pair of different sizes scales the source\n"
                  "  rectangle to the destination rectangle. Without them the whole images are used.\n"
                  "  NAME is one of: clear copy-src copy-dest srcover destover srcin destin srcout\n"
                  "  destout srcatop destatop xor plus multiply screen overlay darken lighten\n"
                  "  color-dodge color-burn hard-light soft-light difference exclusion.\n"
                  PLIM_OUTPUT_OPTIONS},
    {"tile", "usage: plim tile SRC DEST OUT --src-rect X,Y,W,H --dest-rect X,Y,W,H [--op NAME]\n"
             "                 [--origin min-x-min-y|max-x-min-y|min-x-max-y|max-x-max-y]\n"
             "  Fills the destination rectangle with copies of the source rectangle, from the\n"
             "  corner --origin names (default min-x-min-y, the top left); tiles at the edges are\n"
             "  clipped. Default op srcover.\n" PLIM_OUTPUT_OPTIONS},
    {"trace", "usage: plim trace IN OUT.svg [--threshold T] [--log]\n"
              "  Writes an SVG of the image with its alpha outline (alpha above T, default 0.5)\n"
              "  stroked on top; --log shows the tracer's log.\n"},
    {"recolor", "usage: plim recolor IN OUT LIST.json\n"
                "  Replaces every pixel's colour through a colour match list.\n" PLIM_OUTPUT_OPTIONS},
    {"match", "usage: plim match LIST.json R,G,B,A\n"
              "  Prints the colour match list's result for one colour (components 0 to 1);\n"
              "  prints \"no match\" and exits 1 when nothing matched.\n"},
    {"demo", "usage: plim demo OUTDIR\n"},
};

void PrintMainUsage(std::FILE *stream) {
    std::fputs("usage: plim SUBCOMMAND [ARGS...]\n"
               "       plim SUBCOMMAND --help\n"
               "       plim --version\n\n"
               "A file name of - reads standard input or writes standard output.\n\nsubcommands:\n",
               stream);
    for (const Usage &usage : kUsages) {
        std::string text = usage.text;
        std::fprintf(stream, "  %s\n", text.substr(7, text.find('\n') - 7).c_str());
    }
}

}  // namespace

void PrintError(const std::string &sub, const std::string &message) {
    std::fprintf(stderr, "plim: %s: %s\n", sub.c_str(), message.c_str());
}

std::string UsageText(const std::string &sub) {
    for (const Usage &usage : kUsages)
        if (sub == usage.name) return usage.text;
    return {};
}

}  // namespace plimtool

int main(int argc, char **argv) {
    using namespace plimtool;
    InstallLibraryOutput();
    if (argc < 2) {
        std::fputs("plim: missing subcommand (try 'plim --help')\n", stderr);
        return kExitUsage;
    }
    std::string sub = argv[1];
    Args args(argv + 2, argv + argc);
    if (sub == "--version") {
        // The version this tool was built with, and the library it runs with.
        std::printf("plim %s (PlimBitmapLib %s)\n", PLIM_VERSION_STRING, PlimGetVersionString());
        return kExitOK;
    }
    if (sub == "--help" || sub == "-h" || sub == "help") {
        if (sub == "help" && !args.empty()) {
            if (UsageText(args[0]).empty()) {
                std::fprintf(stderr, "plim: help: unknown subcommand '%s' (try 'plim --help')\n",
                             args[0].c_str());
                return kExitUsage;
            }
            std::fputs(UsageText(args[0]).c_str(), stdout);
            return kExitOK;
        }
        PrintMainUsage(stdout);
        return kExitOK;
    }
    if (sub == "info") return RunInfo(args);
    if (sub == "convert") return RunConvert(args);
    if (sub == "crop") return RunCrop(args);
    if (sub == "scale") return RunScale(args);
    if (sub == "mask") return RunMask(args);
    if (sub == "composite") return RunComposite(args);
    if (sub == "tile") return RunTile(args);
    if (sub == "trace") return RunTrace(args);
    if (sub == "recolor") return RunRecolor(args);
    if (sub == "match") return RunMatch(args);
    if (sub == "demo") return RunDemo(args);
    if (!UsageText(sub).empty()) return RunSimpleOperation(sub, args);
    std::fprintf(stderr, "plim: unknown subcommand '%s' (try 'plim --help')\n", sub.c_str());
    return kExitUsage;
}
