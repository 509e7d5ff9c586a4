/* Text descriptions of a colour match list: its options, then every entry's options, tested
   components and replacement. */
#include "colormatch/ColorMatchList.h"

#include <PlimBitmapLib/platform/CFString.h>

#include <cstdarg>

#include "platform/runtime/CFRef.h"

namespace {

using Text = plim::CFRef<CFMutableStringRef>;

CFStringRef ModeName(SInt32 mode) {
    switch (mode) {
    case ProportionallyIfWithinRange: return CFSTR("ProportionallyIfWithinRange");
    case ProportionallyIfNotWithinRange: return CFSTR("ProportionallyIfNotWithinRange");
    case AbsolutelyIfWithinRange: return CFSTR("AbsolutelyIfWithinRange");
    case AbsolutelyIfNotWithinRange: return CFSTR("AbsolutelyIfNotWithinRange");
    case ProportionallyIfGreaterThan: return CFSTR("ProportionallyIfGreaterThan");
    case ProportionallyIfLessThan: return CFSTR("ProportionallyIfLessThan");
    case AbsolutelyIfGreaterThan: return CFSTR("AbsolutelyIfGreaterThan");
    case AbsolutelyIfLessThan: return CFSTR("AbsolutelyIfLessThan");
    case AlwaysMatches: return CFSTR("AlwaysMatches");
    default: return nullptr; // described as a null object
    }
}

struct OptionName {
    SInt32 bit;
    CFStringRef name;
};

// Builds one text. An append that runs out of memory leaves the string as it was, and every
// piece appended here is non-empty, so a text that did not grow marks the whole as failed.
class Writer {
public:
    explicit Writer(CFAllocatorRef allocator) : mText(CFStringCreateMutable(allocator, 0)) {
        mOK = mText.get() != nullptr;
    }

    void Append(CFStringRef piece) {
        if (!mOK) return;
        CFIndex before = CFStringGetLength(mText.get());
        CFStringAppend(mText.get(), piece);
        Check(before);
    }

    void AppendFormat(CFDictionaryRef formatOptions, CFStringRef format, ...) {
        if (!mOK) return;
        CFIndex before = CFStringGetLength(mText.get());
        va_list arguments;
        va_start(arguments, format);
        CFStringAppendFormatAndArguments(mText.get(), formatOptions, format, arguments);
        va_end(arguments);
        Check(before);
    }

    // The names of the set bits, in table order, joined by " | ".
    void AppendOptionNames(SInt32 options, const OptionName *names, size_t count) {
        bool first = true;
        for (size_t i = 0; i < count; i++) {
            if ((options & names[i].bit) == 0) continue;
            if (!first) Append(CFSTR(" | "));
            Append(names[i].name);
            first = false;
        }
    }

    bool OK() const { return mOK; }
    CFMutableStringRef get() const { return mText.get(); }
    CFStringRef Release() { return mOK ? mText.release() : nullptr; }

private:
    void Check(CFIndex before) {
        if (CFStringGetLength(mText.get()) <= before) mOK = false;
    }

    Text mText;
    bool mOK;
};

} // namespace

CFStringRef PlimCFColorMatchListCopyFormattingDesc(CFTypeRef cf, CFDictionaryRef formatOptions) {
    const struct __PlimCFColorMatchList *list = (const struct __PlimCFColorMatchList *)cf;
    CFAllocatorRef allocator = CFGetAllocator(cf);
    Writer description(allocator);
    Writer listOptions(allocator);

    const OptionName listOptionNames[] = {{AllEntriesMustMatch, CFSTR("AllEntriesMustMatch")}};
    listOptions.AppendOptionNames((SInt32)list->options, listOptionNames, 1);
    if (!listOptions.OK()) return nullptr;
    description.AppendFormat(formatOptions, CFSTR("%@ {\n"), listOptions.get());

    const OptionName entryOptionNames[] = {
        {IgnoringAlpha, CFSTR("IgnoringAlpha")},
        {IgnoringIntensities, CFSTR("IgnoringIntensities")},
        {AllComponentsMustMatch, CFSTR("AllComponentsMustMatch")},
        {ConvertToHSB, CFSTR("ConvertToHSB")},
    };
    for (UInt32 i = 0; i < list->entryCount && description.OK(); i++) {
        const PlimColorMatchEntry &entry = list->entries[i];
        Writer options(allocator);
        Writer components(allocator);
        Writer replacement(allocator);

        options.AppendOptionNames(entry.options, entryOptionNames, 4);
        UInt32 m = PlimColorMatchTestedComponentCount(entry.options);
        for (UInt32 c = 0; c < m; c++) {
            const PlimColorMatchComponent &component = entry.components[c];
            if (c > 0) components.Append(CFSTR("\n   "));
            components.AppendFormat(nullptr, CFSTR("%@ %f %f"), ModeName(component.mode),
                                    (double)component.target, (double)component.tolerance);
        }
        for (UInt32 r = 0; r < list->replacementComponentCount; r++) {
            if (r > 0) replacement.Append(CFSTR(", "));
            replacement.AppendFormat(nullptr, CFSTR("%f"), (double)entry.replacement[r]);
        }
        if (!options.OK() || !components.OK() || !replacement.OK()) return nullptr;
        description.AppendFormat(formatOptions, CFSTR(" %@\n { %@ }\n => {%@}\n"), options.get(),
                                 components.get(), replacement.get());
    }
    description.AppendFormat(formatOptions, CFSTR("}"));
    return description.Release();
}

CFStringRef PlimCFColorMatchListCopyDebugDesc(CFTypeRef cf) {
    return PlimCFColorMatchListCopyFormattingDesc(cf, nullptr);
}
