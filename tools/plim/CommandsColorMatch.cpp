// recolor and match: colour match lists read from a small JSON format.
#include "Commands.h"

#include <PlimBitmapLib/PlimCFColorMatchList.h>
#include <PlimBitmapLib/PlimPixelBuffer.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <unordered_map>

namespace plimtool {

namespace {

using nlohmann::json;

struct NamedValue {
    const char *name;
    int value;
};

const NamedValue kModes[] = {
    {"proportionally-if-within-range", ProportionallyIfWithinRange},
    {"proportionally-if-not-within-range", ProportionallyIfNotWithinRange},
    {"absolutely-if-within-range", AbsolutelyIfWithinRange},
    {"absolutely-if-not-within-range", AbsolutelyIfNotWithinRange},
    {"proportionally-if-greater-than", ProportionallyIfGreaterThan},
    {"proportionally-if-less-than", ProportionallyIfLessThan},
    {"absolutely-if-greater-than", AbsolutelyIfGreaterThan},
    {"absolutely-if-less-than", AbsolutelyIfLessThan},
    {"always-matches", AlwaysMatches},
};

const NamedValue kEntryOptions[] = {
    {"ignoring-alpha", IgnoringAlpha},
    {"ignoring-intensities", IgnoringIntensities},
    {"all-components-must-match", AllComponentsMustMatch},
    {"convert-to-hsb", ConvertToHSB},
};

const NamedValue kListOptions[] = {{"all-entries-must-match", AllEntriesMustMatch}};

template <size_t N>
int Lookup(const NamedValue (&table)[N], const std::string &name, const char *what) {
    for (const NamedValue &entry : table)
        if (name == entry.name) return entry.value;
    throw std::runtime_error(std::string("unknown ") + what + " '" + name + "'");
}

template <size_t N>
int OptionBits(const NamedValue (&table)[N], const json &node, const char *what) {
    int bits = 0;
    if (node.is_null()) return 0;
    if (!node.is_array()) throw std::runtime_error(std::string(what) + "s must be a list of names");
    for (const json &name : node) bits |= Lookup(table, name.get<std::string>(), what);
    return bits;
}

// One entry of the list, alone in a library list of its own. The tool does the conversion to
// hue, saturation and brightness itself, so that hues run from 0 to 360 as the list format says
// (the library's own run from -60 to 300) and a range test can measure hue around the circle.
struct MatchEntry {
    CFRef<PlimCFColorMatchList> list;
    bool hsb = false;
    bool hueOnCircle = false;  // the hue is tested by a within- or not-within-range mode
    float hueTarget = 0;
};

struct MatchList {
    UInt32 count = 0;  // replacement components
    bool allEntriesMustMatch = false;
    std::vector<MatchEntry> entries;
};

bool IsRangeMode(int mode) {
    return mode == ProportionallyIfWithinRange || mode == ProportionallyIfNotWithinRange ||
           mode == AbsolutelyIfWithinRange || mode == AbsolutelyIfNotWithinRange;
}

// Builds the list from LIST.json ("-": standard input); on failure returns false with a one-line
// message.
bool LoadList(const std::string &path, MatchList *list, std::string *error) {
    std::string text;
    if (!ReadInput(path, &text, error)) return false;
    try {
        json root = json::parse(text);
        if (!root.is_object()) throw std::runtime_error("the top level must be an object");
        int listOptions = OptionBits(kListOptions, root.value("options", json()), "list option");
        int count = root.value("replacement-components", 4);
        if (count < 1 || count > 4) throw std::runtime_error("replacement-components must be 1 to 4");
        list->count = static_cast<UInt32>(count);
        list->allEntriesMustMatch = (listOptions & AllEntriesMustMatch) != 0;
        const json &entries = root.at("entries");
        if (!entries.is_array()) throw std::runtime_error("entries must be a list");
        size_t index = 0;
        for (const json &node : entries) {
            ++index;
            std::string where = "entry " + std::to_string(index) + ": ";
            int options = OptionBits(kEntryOptions, node.value("options", json()), "entry option");
            size_t tested = (options & IgnoringIntensities) ? 1 : (options & IgnoringAlpha) ? 3 : 4;
            const json &components = node.at("components");
            if (!components.is_array() || components.size() != tested)
                throw std::runtime_error(where + "needs " + std::to_string(tested) + " components");
            if ((options & ConvertToHSB) && list->count < 3)
                throw std::runtime_error(where + "convert-to-hsb needs 3 or 4 replacement components");
            std::vector<PlimColorMatchComponent> records;
            for (const json &c : components) {
                PlimColorMatchComponent record;
                record.mode = Lookup(kModes, c.at("mode").get<std::string>(), "mode");
                record.target = c.value("target", 0.0f);
                record.tolerance = c.value("tolerance", 0.0f);
                records.push_back(record);
            }
            std::vector<float> replacement = node.at("replacement").get<std::vector<float>>();
            if (replacement.size() != list->count)
                throw std::runtime_error(where + "the replacement needs " +
                                         std::to_string(list->count) + " values");
            MatchEntry entry;
            entry.hsb = (options & ConvertToHSB) != 0;
            entry.hueOnCircle = entry.hsb && IsRangeMode(records[0].mode);
            entry.hueTarget = records[0].target;
            entry.list = CFRef<PlimCFColorMatchList>(PlimCFColorMatchListCreate(nullptr, 0, list->count));
            PlimColorMatchEntry record = {options & ~ConvertToHSB, records.data(), replacement.data()};
            if (!entry.list || !PlimCFColorMatchListAddEntry(entry.list.get(), &record))
                throw std::runtime_error(where + "cannot be stored");
            list->entries.push_back(std::move(entry));
        }
    } catch (const std::exception &e) {
        *error = "bad colour match list '" + path + "': " + e.what();
        return false;
    }
    return true;
}

// The list's result for a straight colour (red, green, blue, alpha): every matching entry's
// contribution, converted back from hue, saturation and brightness where the entry works in
// them, and averaged. False when nothing matched, or when an entry did not and the list says
// all must.
bool FindMatch(const MatchList &list, const float color[4], float *result) {
    float hsb[4] = {color[0], color[1], color[2], color[3]};
    PlimConvertRGBToHSV(hsb);
    if (hsb[0] < 0.0f) hsb[0] += 360.0f;
    std::vector<std::array<float, 4>> contributions;
    for (const MatchEntry &entry : list.entries) {
        float tested[4];
        std::copy(entry.hsb ? hsb : color, (entry.hsb ? hsb : color) + 4, tested);
        if (entry.hueOnCircle) {
            // The hue closest to the target, one turn up or down: 350 against 5 is 15 away.
            if (tested[0] - entry.hueTarget > 180.0f) tested[0] -= 360.0f;
            else if (entry.hueTarget - tested[0] > 180.0f) tested[0] += 360.0f;
        }
        std::array<float, 4> contribution = {};
        if (!PlimCFColorMatchListFindMatch(entry.list.get(), tested, contribution.data())) {
            if (list.allEntriesMustMatch) return false;
            continue;
        }
        if (entry.hsb) {
            float hue = std::fmod(contribution[0], 360.0f);
            contribution[0] = hue < 0.0f ? hue + 360.0f : hue;
            PlimConvertHSVToRGB(contribution.data());
        }
        contributions.push_back(contribution);
    }
    if (contributions.empty()) return false;
    for (UInt32 i = 0; i < list.count; ++i) {
        float sum = 0.0f;
        for (const auto &c : contributions) sum += c[i];
        result[i] = sum / static_cast<float>(contributions.size());
    }
    return true;
}

UInt8 ToByte(float value) {
    if (!(value > 0.0f)) return 0;
    if (value >= 1.0f) return 255;
    return static_cast<UInt8>(std::lroundf(value * 255.0f));
}

}  // namespace

int RunRecolor(const Args &args) {
    ParsedArgs parsed;
    int code = kExitOK;
    if (!Prepare("recolor", args, WithOutputOptions({}), {}, 3, &parsed, &code)) return code;
    std::optional<OutputChoice> output = OutputFor("recolor", parsed, parsed.positional[1]);
    if (!output) return kExitUsage;
    std::string error;
    MatchList list;
    if (!LoadList(parsed.positional[2], &list, &error)) return PrintError("recolor", error), kExitFailure;
    ImageRef image(LoadImageFile(parsed.positional[0], &error));
    if (!image.get()) return PrintError("recolor", error), kExitFailure;

    // Work on 8-bit premultiplied ARGB (or XRGB) in memory order A, R, G, B.
    PlimCFImagePromoteImage(image.get(), true, false);
    auto *pixels = static_cast<UInt8 *>(PlimCFImageGetImageBuffer(image.get()));
    PlimCFImageInvalidateImage(image.get());  // from here on the layout getters read the buffer
    if (!pixels || PlimCFImageGetBitsPerPixel(image.get()) != 32)
        return PrintError("recolor", "cannot get the image's pixels"), kExitFailure;
    bool hasAlpha = PlimCFImageHasAlpha(image.get());
    UInt32 width = PlimCFImageGetWidth(image.get());
    UInt32 height = PlimCFImageGetHeight(image.get());
    UInt32 rowBytes = PlimCFImageGetBytesPerRow(image.get());
    std::unordered_map<uint32_t, uint32_t> cache;
    for (UInt32 y = 0; y < height; ++y) {
        UInt8 *p = pixels + static_cast<size_t>(y) * rowBytes;
        for (UInt32 x = 0; x < width; ++x, p += 4) {
            uint32_t key = (uint32_t(p[0]) << 24) | (uint32_t(p[1]) << 16) |
                           (uint32_t(p[2]) << 8) | p[3];
            auto found = cache.find(key);
            if (found == cache.end()) {
                UInt8 a = hasAlpha ? p[0] : 255;
                // The list sees straight (unpremultiplied) colour.
                float color[4];
                for (int c = 0; c < 3; ++c)
                    color[c] = a == 0 ? 0.0f
                                      : static_cast<float>(std::min(255, (p[c + 1] * 255 + a / 2) / a)) / 255.0f;
                color[3] = static_cast<float>(a) / 255.0f;
                float result[4] = {color[0], color[1], color[2], color[3]};
                uint32_t replaced = key;
                if (FindMatch(list, color, result)) {
                    UInt8 na = hasAlpha ? ToByte(result[3]) : p[0];
                    UInt8 alpha = hasAlpha ? na : 255;
                    replaced = uint32_t(na) << 24;
                    for (int c = 0; c < 3; ++c) {
                        unsigned v = ToByte(result[c]);
                        unsigned premultiplied = (v * alpha + 127) / 255;
                        replaced |= premultiplied << (16 - 8 * c);
                    }
                }
                found = cache.emplace(key, replaced).first;
            }
            uint32_t v = found->second;
            p[0] = static_cast<UInt8>(v >> 24);
            p[1] = static_cast<UInt8>(v >> 16);
            p[2] = static_cast<UInt8>(v >> 8);
            p[3] = static_cast<UInt8>(v);
        }
    }
    PlimCFImageInvalidateImage(image.get());
    if (!WriteImageFile(image.get(), parsed.positional[1], *output, &error))
        return PrintError("recolor", error), kExitFailure;
    return kExitOK;
}

int RunMatch(const Args &args) {
    ParsedArgs parsed;
    int code = kExitOK;
    if (!Prepare("match", args, {}, {}, 2, &parsed, &code)) return code;
    std::vector<float> color;
    if (!ParseDecimals(parsed.positional[1], 4, &color)) {
        PrintError("match", "bad colour '" + parsed.positional[1] + "' (want R,G,B,A)");
        return kExitUsage;
    }
    std::string error;
    MatchList list;
    if (!LoadList(parsed.positional[0], &list, &error)) return PrintError("match", error), kExitFailure;
    float result[4] = {};
    if (!FindMatch(list, color.data(), result)) {
        std::puts("no match");
        return kExitFailure;
    }
    for (UInt32 i = 0; i < list.count; ++i) std::printf(i ? ",%g" : "%g", static_cast<double>(result[i]));
    std::printf("\n");
    return kExitOK;
}

}  // namespace plimtool
