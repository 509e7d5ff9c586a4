// Command-line words: options and positionals, strict numbers, rectangles and the output options
// every image-writing subcommand shares.
#include "Commands.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

namespace plimtool {

namespace {

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// Splits at every comma, keeping empty parts ("300," gives "300" and "").
std::vector<std::string> SplitCommas(const std::string &text) {
    std::vector<std::string> parts(1);
    for (char c : text) {
        if (c == ',')
            parts.emplace_back();
        else
            parts.back() += c;
    }
    return parts;
}

}  // namespace

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

std::set<std::string> WithOutputOptions(std::set<std::string> valued) {
    valued.insert("--format");
    valued.insert("--quality");
    return valued;
}

std::optional<OutputChoice> OutputFor(const std::string &sub, const ParsedArgs &parsed,
                                      const std::string &out) {
    OutputChoice choice;
    std::string forced = parsed.Last("--format");
    std::optional<OutputFormat> format;
    if (!forced.empty()) {
        format = OutputFormatFromName(forced);
        if (!format) {
            PrintError(sub, "unknown format '" + forced + "' (use png, jpeg, tiff, pict, pct or webp)");
            return std::nullopt;
        }
    } else {
        format = IsStdio(out) ? OutputFormat::PNG : OutputFormatFromPath(out);
        if (!format) {
            PrintError(sub, "cannot tell the output format from '" + out +
                                "' (use .png, .jpg, .tiff, .pict, .pct or .webp, or --format)");
            return std::nullopt;
        }
    }
    choice.format = *format;
    if (parsed.Has("--quality")) {
        long quality = 0;
        if (!ParseWhole(parsed.Last("--quality"), &quality) || quality < 1 || quality > 100) {
            PrintError(sub, "bad quality '" + parsed.Last("--quality") + "' (want 1 to 100)");
            return std::nullopt;
        }
        if (choice.format != OutputFormat::JPEG && choice.format != OutputFormat::WebP) {
            PrintError(sub, "--quality applies to JPEG and WebP output only");
            return std::nullopt;
        }
        choice.quality = static_cast<UInt32>(quality);
    }
    return choice;
}

bool ParseWhole(const std::string &text, long *value) {
    size_t digits = text.size() > 0 && text[0] == '-' ? 1 : 0;
    if (text.size() == digits || text.size() - digits > 9) return false;
    if (!std::all_of(text.begin() + static_cast<long>(digits), text.end(), IsDigit)) return false;
    long v = std::strtol(text.c_str(), nullptr, 10);
    if (v > kMaxCoordinate || v < -kMaxCoordinate) return false;
    *value = v;
    return true;
}

bool ParseDecimal(const std::string &text, double *value) {
    size_t i = text.size() > 0 && text[0] == '-' ? 1 : 0;
    size_t whole = 0, fraction = 0;
    while (i < text.size() && IsDigit(text[i])) ++i, ++whole;
    if (i < text.size() && text[i] == '.') {
        ++i;
        while (i < text.size() && IsDigit(text[i])) ++i, ++fraction;
    }
    if (i != text.size() || whole + fraction == 0) return false;
    errno = 0;
    double v = std::strtod(text.c_str(), nullptr);
    if (errno != 0) return false;
    *value = v;
    return true;
}

bool ParseDecimals(const std::string &text, size_t count, std::vector<float> *values) {
    std::vector<std::string> parts = SplitCommas(text);
    if (parts.size() != count) return false;
    values->clear();
    for (const std::string &part : parts) {
        double v;
        if (!ParseDecimal(part, &v)) return false;
        values->push_back(static_cast<float>(v));
    }
    return true;
}

bool ParseRect(const std::string &text, PixelRect *rect) {
    std::vector<std::string> parts = SplitCommas(text);
    long v[4];
    if (parts.size() != 4) return false;
    for (size_t i = 0; i < 4; ++i)
        if (!ParseWhole(parts[i], &v[i])) return false;
    if (v[2] < 1 || v[3] < 1) return false;
    *rect = PixelRect{v[0], v[1], v[2], v[3]};
    return true;
}

PixelRect Intersect(const PixelRect &a, const PixelRect &b) {
    long x = std::max(a.x, b.x), y = std::max(a.y, b.y);
    long right = std::min(a.Right(), b.Right()), bottom = std::min(a.Bottom(), b.Bottom());
    if (right <= x || bottom <= y) return PixelRect{x, y, 0, 0};
    return PixelRect{x, y, right - x, bottom - y};
}

PixelRect WholeImage(PlimCFImage image) {
    return PixelRect{0, 0, static_cast<long>(PlimCFImageGetWidth(image)),
                     static_cast<long>(PlimCFImageGetHeight(image))};
}

}  // namespace plimtool
