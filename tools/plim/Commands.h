// Subcommands of plim and the argument handling they share.
#pragma once

#include "ToolSupport.h"

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace plimtool {

using Args = std::vector<std::string>;

// Writes "plim: <sub>: <message>" on stderr.
void PrintError(const std::string &sub, const std::string &message);
// Usage text of one subcommand (several lines, ending in a newline); empty when unknown.
std::string UsageText(const std::string &sub);

struct ParsedArgs {
    std::vector<std::string> positional;
    std::multimap<std::string, std::string> options;  // flags map to ""
    bool help = false;

    bool Has(const std::string &name) const { return options.count(name) != 0; }
    std::vector<std::string> All(const std::string &name) const;
    std::string Last(const std::string &name, const std::string &fallback = "") const;
};
// Splits args into positionals and options. `valued` options take the next word, `flags` none.
// A lone "-" is a positional (standard input or output). Prints a usage error and returns false
// on an unknown option or a missing value.
bool ParseArgs(const std::string &sub, const Args &args, const std::set<std::string> &valued,
               const std::set<std::string> &flags, ParsedArgs *out);
// Checks the positional count; prints a usage error and returns false otherwise.
bool ExpectPositionals(const std::string &sub, const ParsedArgs &parsed, size_t count);
// The start of every subcommand: parses args, prints the usage for --help, and checks that there
// are exactly `count` positionals (any number when 0). False when the subcommand should stop
// at once, with *exitCode set.
bool Prepare(const std::string &sub, const Args &args, const std::set<std::string> &valued,
             const std::set<std::string> &flags, size_t count, ParsedArgs *parsed, int *exitCode);

// --format and --quality, which every subcommand that writes an image takes, added to `valued`.
std::set<std::string> WithOutputOptions(std::set<std::string> valued);
// The format and quality for writing OUT: --format, else OUT's extension, else PNG for "-";
// --quality (1 to 100) only with JPEG and WebP. Prints a usage error and returns nullopt otherwise.
std::optional<OutputChoice> OutputFor(const std::string &sub, const ParsedArgs &parsed,
                                      const std::string &out);

// Strict numbers. Whole numbers are an optional '-' and digits; decimals add an optional
// fraction. No '+', exponents, hexadecimal, infinities or blanks. Each returns false on anything
// else, or on a value beyond +-kMaxCoordinate (whole numbers).
constexpr long kMaxCoordinate = 1L << 24;  // every value up to here is exact as a float
bool ParseWhole(const std::string &text, long *value);
bool ParseDecimal(const std::string &text, double *value);
// "A,B,..." with exactly `count` decimals.
bool ParseDecimals(const std::string &text, size_t count, std::vector<float> *values);

// A rectangle of whole pixels, y counted in rows from the top.
struct PixelRect {
    long x = 0, y = 0, width = 0, height = 0;
    long Right() const { return x + width; }
    long Bottom() const { return y + height; }
    bool Empty() const { return width <= 0 || height <= 0; }
    bool operator==(const PixelRect &) const = default;
};
// "X,Y,W,H": whole numbers, W and H at least 1.
bool ParseRect(const std::string &text, PixelRect *rect);
PixelRect Intersect(const PixelRect &a, const PixelRect &b);
PixelRect WholeImage(PlimCFImage image);

// An in-place change of an image; false, with a one-line reason, when it could not be made.
using Change = std::function<bool(PlimCFImage image, std::string *error)>;
// Loads IN, runs `change` on it, writes OUT in the format of OUT's extension (or --format).
int RunLoadChangeWrite(const std::string &sub, const ParsedArgs &parsed, const std::string &in,
                       const std::string &out, const Change &change);

// Crop and scale that say when the library could not do them (it leaves such an image as it
// was, so the size tells). The crop rectangle counts rows from the top and must lie inside the
// image; sizes are at least 1.
bool CropImage(PlimCFImage image, const PixelRect &rect, std::string *error);
bool ScaleImage(PlimCFImage image, long width, long height, std::string *error);

int RunInfo(const Args &args);
int RunConvert(const Args &args);
int RunCrop(const Args &args);
int RunScale(const Args &args);
int RunSimpleOperation(const std::string &sub, const Args &args);  // flip, gray, color, ...
int RunMask(const Args &args);
int RunComposite(const Args &args);
int RunTile(const Args &args);
int RunTrace(const Args &args);
int RunRecolor(const Args &args);
int RunMatch(const Args &args);

}  // namespace plimtool
