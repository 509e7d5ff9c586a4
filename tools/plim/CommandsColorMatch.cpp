// recolor and match: colour match lists read from a small JSON format.
#include "Commands.h"

#include <PlimBitmapLib/PlimCFColorMatchList.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
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

struct ListHolder {
    CFRef<PlimCFColorMatchList> list;
    UInt32 count = 0;
};

// Builds the list from LIST.json; on failure returns false with a one-line message.
bool LoadList(const std::string &path, ListHolder *holder, std::string *error) {
    std::ifstream file(path);
    if (!file) {
        *error = "cannot read '" + path + "': " + std::strerror(errno);
        return false;
    }
    try {
        json root = json::parse(file);
        if (!root.is_object()) throw std::runtime_error("the top level must be an object");
        int listOptions = OptionBits(kListOptions, root.value("options", json()), "list option");
        int count = root.value("replacement-components", 4);
        if (count < 1 || count > 4) throw std::runtime_error("replacement-components must be 1 to 4");
        holder->count = static_cast<UInt32>(count);
        holder->list = CFRef<PlimCFColorMatchList>(
            PlimCFColorMatchListCreate(nullptr, static_cast<UInt32>(listOptions), holder->count));
        if (!holder->list) throw std::runtime_error("cannot create the list");
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
            std::vector<PlimColorMatchComponent> records;
            for (const json &c : components) {
                PlimColorMatchComponent record;
                record.mode = Lookup(kModes, c.at("mode").get<std::string>(), "mode");
                record.target = c.value("target", 0.0f);
                record.tolerance = c.value("tolerance", 0.0f);
                records.push_back(record);
            }
            std::vector<float> replacement = node.at("replacement").get<std::vector<float>>();
            if (replacement.size() != holder->count)
                throw std::runtime_error(where + "the replacement needs " +
                                         std::to_string(holder->count) + " values");
            PlimColorMatchEntry entry = {options, records.data(), replacement.data()};
            if (!PlimCFColorMatchListAddEntry(holder->list.get(), &entry))
                throw std::runtime_error(where + "does not fit the list");
        }
    } catch (const std::exception &e) {
        *error = "bad colour match list '" + path + "': " + e.what();
        return false;
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
    ListHolder list;
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
                if (PlimCFColorMatchListFindMatch(list.list.get(), color, result)) {
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
    ListHolder list;
    if (!LoadList(parsed.positional[0], &list, &error)) return PrintError("match", error), kExitFailure;
    float result[4] = {};
    if (!PlimCFColorMatchListFindMatch(list.list.get(), color.data(), result)) {
        std::puts("no match");
        return kExitFailure;
    }
    for (UInt32 i = 0; i < list.count; ++i) std::printf(i ? ",%g" : "%g", static_cast<double>(result[i]));
    std::printf("\n");
    return kExitOK;
}

}  // namespace plimtool
