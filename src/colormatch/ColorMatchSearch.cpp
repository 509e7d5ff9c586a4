/* Applying a colour match list to one colour: per-component tests, scaled contributions of the
   matching entries, and their average. */
#include "colormatch/ColorMatchList.h"

#include <PlimBitmapLib/PlimPixelBuffer.h>

#include <cmath>
#include <cstring>

/* One component test: false when c fails the mode's test with target a and tolerance b,
   otherwise true with the factor that scales the replacement component. */
static bool TestComponent(SInt32 mode, float c, float a, float b, float *factor) {
    // Every comparison is written so that a NaN operand makes it false.
    float d = c - a;
    float absD = fabsf(d);
    switch (mode) {
    case ProportionallyIfWithinRange:
        if (!(b >= absD)) return false;
        *factor = b == 0.0f ? 1.0f : 1.0f - absD / b;
        return true;
    case ProportionallyIfNotWithinRange:
        if (!(absD > b)) return false;
        if (b == 0.0f)
            *factor = 0.0f;
        else if (a > c)
            *factor = 1.0f - c / (a - b);
        else if (c > a)
            *factor = (float)((double)(d - b) / ((1.0 - (double)a) - (double)b));
        else
            *factor = 0.0f;
        return true;
    case AbsolutelyIfWithinRange:
        if (!(b >= absD)) return false;
        *factor = 1.0f;
        return true;
    case AbsolutelyIfNotWithinRange:
        if (!(absD > b)) return false;
        *factor = 1.0f;
        return true;
    case ProportionallyIfGreaterThan:
        if (!(d >= b) || a + b == 1.0f) return false;
        *factor = (float)((double)(d - b) / ((1.0 - (double)a) - (double)b));
        return true;
    case ProportionallyIfLessThan: {
        // The bound is a - b, the same one the factor is built on, so the factor runs from 1 at
        // c = 0 down to 0 at the bound and never goes negative.
        float bound = a - b;
        if (!(c <= bound) || bound == 0.0f) return false;
        *factor = 1.0f - c / bound;
        return true;
    }
    case AbsolutelyIfGreaterThan:
        if (!(d >= b) || a + b == 1.0f) return false;
        *factor = 1.0f;
        return true;
    case AbsolutelyIfLessThan: {
        float bound = a - b;
        if (!(c <= bound) || bound == 0.0f) return false;
        *factor = 1.0f;
        return true;
    }
    case AlwaysMatches:
        *factor = 1.0f;
        return true;
    default:
        return false;
    }
}

namespace {

// Working memory of one search, all from the list's allocator and all freed on every way out.
class SearchState {
public:
    explicit SearchState(CFAllocatorRef allocator) : mAllocator(allocator) {}
    ~SearchState() {
        PlimColorMatchFree(mAllocator, mHSB);
        PlimColorMatchFree(mAllocator, mSlots);
    }
    SearchState(const SearchState &) = delete;
    SearchState &operator=(const SearchState &) = delete;

    // The colour's hue, saturation and brightness, converted once per search.
    const float *HSB(const float *color) {
        if (mHSB == nullptr) {
            void *block;
            if (!PlimColorMatchAllocate(mAllocator, 3 * sizeof(float), &block)) return nullptr;
            mHSB = (float *)block;
            memcpy(mHSB, color, 3 * sizeof(float));
            PlimConvertRGBToHSV(mHSB);
        }
        return mHSB;
    }

    float *AddSlot() {
        void *slots = mSlots;
        if (!PlimColorMatchGrow(mAllocator, &slots, ((size_t)mSlotCount + 1) * 4 * sizeof(float)))
            return nullptr;
        mSlots = (float *)slots;
        float *slot = mSlots + (size_t)mSlotCount * 4;
        mSlotCount += 1;
        return slot;
    }

    UInt32 SlotCount() const { return mSlotCount; }
    const float *Slot(UInt32 i) const { return mSlots + (size_t)i * 4; }

private:
    CFAllocatorRef mAllocator;
    float *mHSB = nullptr;
    float *mSlots = nullptr; // the accumulation; empty is a null pointer
    UInt32 mSlotCount = 0;
};

} // namespace

Boolean PlimCFColorMatchListFindMatch(PlimCFColorMatchList list, const float *color,
                                      float *result) {
    const UInt32 n = list->replacementComponentCount;
    SearchState state(CFGetAllocator(list));

    for (UInt32 e = 0; e < list->entryCount; e++) {
        const PlimColorMatchEntry &entry = list->entries[e];
        const UInt32 m = PlimColorMatchTestedComponentCount(entry.options);
        const bool hsb = (entry.options & ConvertToHSB) != 0;

        const float *hsbColor = nullptr;
        if (hsb) {
            hsbColor = state.HSB(color);
            if (hsbColor == nullptr) return false;
        }

        // A tested component that does not match contributes 0.
        float contribution[4] = {0.0f, 0.0f, 0.0f, 0.0f};
        bool matched = false;
        bool failed = false;
        for (UInt32 i = 0; i < m; i++) {
            // Alpha is never converted, so an HSB entry reads it from the colour itself.
            float c = (hsbColor != nullptr && i < 3) ? hsbColor[i] : color[i];
            const PlimColorMatchComponent &component = entry.components[i];
            float factor;
            if (TestComponent(component.mode, c, component.target, component.tolerance, &factor)) {
                contribution[i] = entry.replacement[i] * factor;
                matched = true;
            } else if (entry.options & AllComponentsMustMatch) {
                failed = true;
                break;
            }
        }

        if (failed || !matched) {
            if (list->options & AllEntriesMustMatch) return false;
            continue;
        }

        if ((entry.options & IgnoringAlpha) && n == 4) contribution[3] = entry.replacement[3];
        if (entry.options & IgnoringIntensities)
            for (UInt32 i = 0; i < n; i++) contribution[i] = entry.replacement[i];

        float *slot = state.AddSlot();
        if (slot == nullptr) return false;
        for (UInt32 i = 0; i < 4; i++) slot[i] = i < n ? contribution[i] : 0.0f;
        if (hsb) PlimConvertHSVToRGB(slot);
    }

    if (state.SlotCount() == 0) return false;
    for (UInt32 i = 0; i < n; i++) result[i] = 0.0f;
    for (UInt32 s = 0; s < state.SlotCount(); s++)
        for (UInt32 i = 0; i < n; i++) result[i] += state.Slot(s)[i];
    const float slotCount = (float)state.SlotCount();
    for (UInt32 i = 0; i < n; i++) result[i] /= slotCount;
    return true;
}
