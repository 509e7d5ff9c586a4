// The match search: component tests and factors, contributions, averaging, HSB entries.
#include "colormatch/ColorMatchTestSupport.h"

#include <gtest/gtest.h>

#include <cmath>
#include <optional>
#include <random>

using namespace cmtest;

namespace {

constexpr PlimColorMatchComponent kAlways = {AlwaysMatches, 0.0f, 0.0f};
constexpr PlimColorMatchComponent kNever = {AbsolutelyIfWithinRange, 2.0f, 0.0f};

// The factor one component test gives, read through the search: the tested component has
// replacement 1, the others match with replacement 0, and a failing test makes the entry and
// so the search fail.
std::optional<float> Factor(SInt32 mode, float target, float tolerance, float c) {
    List list = MakeList(0, 3,
                         {Entry{IgnoringAlpha | AllComponentsMustMatch,
                                {{mode, target, tolerance}, kAlways, kAlways},
                                {1.0f, 0.0f, 0.0f}}});
    if (!list) return std::nullopt;
    float color[3] = {c, 0.0f, 0.0f};
    float result[3] = {-1.0f, -1.0f, -1.0f};
    if (!PlimCFColorMatchListFindMatch(list.get(), color, result)) {
        EXPECT_EQ(result[0], -1.0f);  // untouched on failure
        return std::nullopt;
    }
    return result[0];
}

std::vector<float> Find(PlimCFColorMatchList list, std::vector<float> color, size_t n,
                        bool *found) {
    std::vector<float> result(n, -1.0f);
    *found = PlimCFColorMatchListFindMatch(list, color.data(), result.data());
    return result;
}

Entry AllFour(std::vector<float> replacement, SInt32 options = 0) {
    return Entry{options, {kAlways, kAlways, kAlways, kAlways}, std::move(replacement)};
}

}  // namespace

TEST(ColorMatchSearch, FactorsOfEveryMode) {
    using F = std::optional<float>;
    EXPECT_EQ(Factor(ProportionallyIfWithinRange, 0.5f, 0.25f, 0.5f), F(1.0f));
    EXPECT_EQ(Factor(ProportionallyIfWithinRange, 0.5f, 0.25f, 0.625f), F(0.5f));
    EXPECT_EQ(Factor(ProportionallyIfWithinRange, 0.5f, 0.25f, 0.375f), F(0.5f));
    EXPECT_EQ(Factor(ProportionallyIfWithinRange, 0.5f, 0.25f, 0.75f), F(0.0f));
    EXPECT_EQ(Factor(ProportionallyIfWithinRange, 0.5f, 0.25f, 0.8f), F());
    EXPECT_EQ(Factor(ProportionallyIfWithinRange, 0.5f, 0.0f, 0.5f), F(1.0f));

    EXPECT_EQ(Factor(ProportionallyIfNotWithinRange, 0.5f, 0.25f, 0.125f), F(0.5f));
    EXPECT_EQ(Factor(ProportionallyIfNotWithinRange, 0.5f, 0.25f, 0.875f), F(0.5f));
    EXPECT_EQ(Factor(ProportionallyIfNotWithinRange, 0.5f, 0.25f, 0.625f), F());
    EXPECT_EQ(Factor(ProportionallyIfNotWithinRange, 0.5f, 0.25f, 0.75f), F());
    EXPECT_EQ(Factor(ProportionallyIfNotWithinRange, 0.5f, 0.0f, 0.25f), F(0.0f));
    EXPECT_EQ(Factor(ProportionallyIfNotWithinRange, 0.5f, 0.0f, 0.875f), F(0.0f));
    EXPECT_EQ(Factor(ProportionallyIfNotWithinRange, 0.5f, 0.0f, 0.5f), F());
    // A negative tolerance lets c = a through, where neither side's factor applies.
    EXPECT_EQ(Factor(ProportionallyIfNotWithinRange, 0.5f, -0.25f, 0.5f), F(0.0f));

    EXPECT_EQ(Factor(AbsolutelyIfWithinRange, 0.5f, 0.25f, 0.75f), F(1.0f));
    EXPECT_EQ(Factor(AbsolutelyIfWithinRange, 0.5f, 0.25f, 0.8f), F());
    EXPECT_EQ(Factor(AbsolutelyIfNotWithinRange, 0.5f, 0.25f, 0.8f), F(1.0f));
    EXPECT_EQ(Factor(AbsolutelyIfNotWithinRange, 0.5f, 0.25f, 0.75f), F());

    EXPECT_EQ(Factor(ProportionallyIfGreaterThan, 0.5f, 0.0f, 0.75f), F(0.5f));
    EXPECT_EQ(Factor(ProportionallyIfGreaterThan, 0.5f, 0.0f, 0.5f), F(0.0f));
    EXPECT_EQ(Factor(ProportionallyIfGreaterThan, 0.5f, 0.125f, 0.625f), F(0.0f));
    EXPECT_EQ(Factor(ProportionallyIfGreaterThan, 0.5f, 0.125f, 0.6f), F());
    EXPECT_EQ(Factor(ProportionallyIfGreaterThan, 0.75f, 0.25f, 1.0f), F());
    EXPECT_EQ(Factor(AbsolutelyIfGreaterThan, 0.5f, 0.125f, 0.625f), F(1.0f));
    EXPECT_EQ(Factor(AbsolutelyIfGreaterThan, 0.5f, 0.125f, 0.6f), F());
    EXPECT_EQ(Factor(AbsolutelyIfGreaterThan, 1.0f, 0.0f, 1.0f), F());
    EXPECT_EQ(Factor(AbsolutelyIfGreaterThan, 1.0f, 0.0f, 2.0f), F());

    // The less-than modes accept c up to a - b, where the proportional factor reaches 0.
    EXPECT_EQ(Factor(ProportionallyIfLessThan, 0.5f, 0.25f, 0.0f), F(1.0f));
    EXPECT_EQ(Factor(ProportionallyIfLessThan, 0.5f, 0.25f, 0.125f), F(0.5f));
    EXPECT_EQ(Factor(ProportionallyIfLessThan, 0.5f, 0.25f, 0.25f), F(0.0f));
    EXPECT_EQ(Factor(ProportionallyIfLessThan, 0.5f, 0.25f, 0.3f), F());
    EXPECT_EQ(Factor(ProportionallyIfLessThan, 0.5f, 0.25f, 0.75f), F());
    EXPECT_EQ(Factor(ProportionallyIfLessThan, 0.25f, 0.25f, 0.0f), F());
    EXPECT_EQ(Factor(AbsolutelyIfLessThan, 0.5f, 0.25f, 0.25f), F(1.0f));
    EXPECT_EQ(Factor(AbsolutelyIfLessThan, 0.5f, 0.25f, 0.3f), F());
    EXPECT_EQ(Factor(AbsolutelyIfLessThan, 0.25f, 0.25f, -1.0f), F());

    EXPECT_EQ(Factor(AlwaysMatches, 0.5f, 0.0f, 7.0f), F(1.0f));
    EXPECT_EQ(Factor(9, 0.5f, 1.0f, 0.5f), F());
    EXPECT_EQ(Factor(-1, 0.5f, 1.0f, 0.5f), F());
}

TEST(ColorMatchSearch, FactorPrecision) {
    // Above the target the not-within-range and greater-than factors divide in double; these
    // values give a different float when the denominator is computed in float.
    const float a = 0.1f, b = 0.1f, c = 0.8f;
    const float d = c - a;
    const float expected = (float)((double)(d - b) / ((1.0 - (double)a) - (double)b));
    ASSERT_NE(expected, (d - b) / (1.0f - a - b));
    ASSERT_NE(expected, (float)((double)(d - b) / (double)(1.0f - a - b)));
    EXPECT_EQ(Factor(ProportionallyIfNotWithinRange, a, b, c), std::optional<float>(expected));
    EXPECT_EQ(Factor(ProportionallyIfGreaterThan, a, b, c), std::optional<float>(expected));
    // Below it, float throughout.
    EXPECT_EQ(Factor(ProportionallyIfNotWithinRange, 0.7f, 0.1f, 0.3f),
              std::optional<float>(1.0f - 0.3f / (0.7f - 0.1f)));
    EXPECT_EQ(Factor(ProportionallyIfWithinRange, 0.3f, 0.7f, 0.1f),
              std::optional<float>(1.0f - fabsf(0.1f - 0.3f) / 0.7f));
}

TEST(ColorMatchSearch, ProportionalFactorsStayWithinZeroAndOne) {
    std::mt19937 random(8);
    std::uniform_real_distribution<float> unit(0.0f, 1.0f);
    const SInt32 modes[] = {ProportionallyIfWithinRange, ProportionallyIfNotWithinRange,
                            ProportionallyIfGreaterThan, ProportionallyIfLessThan};
    int matches = 0;
    for (int i = 0; i < 2000; i++) {
        float a = unit(random), b = unit(random) * 0.5f, c = unit(random);
        for (SInt32 mode : modes) {
            std::optional<float> f = Factor(mode, a, b, c);
            if (!f) continue;
            matches++;
            EXPECT_GE(*f, 0.0f) << mode << " a=" << a << " b=" << b << " c=" << c;
            EXPECT_LE(*f, 1.0f) << mode << " a=" << a << " b=" << b << " c=" << c;
        }
    }
    EXPECT_GT(matches, 2000);
}

TEST(ColorMatchSearch, NaNMatchesOnlyAlways) {
    const float nan = std::nanf("");
    for (SInt32 mode = 0; mode < AlwaysMatches; mode++) {
        EXPECT_FALSE(Factor(mode, 0.5f, 0.25f, nan)) << mode;
        EXPECT_FALSE(Factor(mode, nan, 0.25f, 0.5f)) << mode;
        EXPECT_FALSE(Factor(mode, 0.5f, nan, 0.5f)) << mode;
    }
    EXPECT_EQ(Factor(AlwaysMatches, 0.5f, 0.25f, nan), std::optional<float>(1.0f));
}

TEST(ColorMatchSearch, AveragesMatchingEntries) {
    bool found = true;
    List empty(PlimCFColorMatchListCreate(kCFAllocatorDefault, 0, 4));
    EXPECT_EQ(Find(empty.get(), {0, 0, 0, 0}, 4, &found), std::vector<float>(4, -1.0f));
    EXPECT_FALSE(found);

    List one = MakeList(0, 4, {AllFour({1, 0, 0, 1})});
    EXPECT_EQ(Find(one.get(), {0.3f, 0.2f, 0.1f, 0.5f}, 4, &found), (std::vector<float>{1, 0, 0, 1}));
    EXPECT_TRUE(found);

    List two = MakeList(0, 4, {AllFour({1, 0, 0, 1}), AllFour({0, 0, 1, 1})});
    EXPECT_EQ(Find(two.get(), {0, 0, 0, 0}, 4, &found), (std::vector<float>{0.5f, 0, 0.5f, 1}));
    EXPECT_TRUE(found);

    // Float additions in entry order, then one division.
    const float x = 0.1f, y = 0.7f, z = 0.3f;
    List three = MakeList(0, 4, {AllFour({x, 0, 0, 0}), AllFour({y, 0, 0, 0}), AllFour({z, 0, 0, 0})});
    std::vector<float> result = Find(three.get(), {0, 0, 0, 0}, 4, &found);
    EXPECT_TRUE(found);
    EXPECT_EQ(result[0], (((0.0f + x) + y) + z) / 3.0f);

    // Entries that do not count are left out of the average.
    Entry miss{0, {kNever, kNever, kNever, kNever}, {9, 9, 9, 9}};
    List mixed = MakeList(0, 4, {miss, AllFour({1, 0, 0, 1}), miss});
    EXPECT_EQ(Find(mixed.get(), {0, 0, 0, 0}, 4, &found), (std::vector<float>{1, 0, 0, 1}));
    EXPECT_TRUE(found);
    List none = MakeList(0, 4, {miss});
    EXPECT_EQ(Find(none.get(), {0, 0, 0, 0}, 4, &found), std::vector<float>(4, -1.0f));
    EXPECT_FALSE(found);
}

TEST(ColorMatchSearch, PartialMatches) {
    bool found = false;
    // Component 1 fails; the others match with factors 1, 0.5 and 1.
    Entry partial{0,
                  {kAlways, kNever, {ProportionallyIfWithinRange, 0.5f, 0.25f}, kAlways},
                  {0.25f, 0.5f, 0.75f, 1.0f}};
    const std::vector<float> color = {0.0f, 0.0f, 0.625f, 1.0f};

    List lenient = MakeList(0, 4, {partial});
    EXPECT_EQ(Find(lenient.get(), color, 4, &found), (std::vector<float>{0.25f, 0.0f, 0.375f, 1.0f}));
    EXPECT_TRUE(found);

    Entry strict = partial;
    strict.options = AllComponentsMustMatch;
    List strictList = MakeList(0, 4, {strict});
    Find(strictList.get(), color, 4, &found);
    EXPECT_FALSE(found);
    // A strict entry that fails adds nothing to the average.
    List strictAndOne = MakeList(0, 4, {strict, AllFour({1, 1, 1, 1})});
    EXPECT_EQ(Find(strictAndOne.get(), color, 4, &found), (std::vector<float>{1, 1, 1, 1}));

    // A failed component contributes 0, not what an earlier entry left at its index.
    List carried = MakeList(0, 4, {AllFour({1, 1, 1, 1}), partial});
    EXPECT_EQ(Find(carried.get(), color, 4, &found),
              (std::vector<float>{(1.0f + 0.25f) / 2, 0.5f, (1.0f + 0.375f) / 2, 1.0f}));
    EXPECT_TRUE(found);
}

TEST(ColorMatchSearch, AllEntriesMustMatch) {
    bool found = true;
    Entry miss{0, {kNever, kNever, kNever, kNever}, {9, 9, 9, 9}};
    List failsLate = MakeList(AllEntriesMustMatch, 4, {AllFour({1, 0, 0, 1}), miss});
    EXPECT_EQ(Find(failsLate.get(), {0, 0, 0, 0}, 4, &found), std::vector<float>(4, -1.0f));
    EXPECT_FALSE(found);
    List allMatch = MakeList(AllEntriesMustMatch, 4, {AllFour({1, 0, 0, 1}), AllFour({0, 1, 0, 1})});
    EXPECT_EQ(Find(allMatch.get(), {0, 0, 0, 0}, 4, &found), (std::vector<float>{0.5f, 0.5f, 0, 1}));
    EXPECT_TRUE(found);
}

TEST(ColorMatchSearch, UnscaledReplacements) {
    bool found = false;
    // Scaled components with factor 0.5, but alpha is taken unscaled when it is not tested.
    const PlimColorMatchComponent half = {ProportionallyIfWithinRange, 0.5f, 0.25f};
    Entry noAlpha{IgnoringAlpha, {half, half, half}, {1.0f, 0.5f, 0.25f, 0.75f}};
    List list = MakeList(0, 4, {noAlpha});
    EXPECT_EQ(Find(list.get(), {0.625f, 0.625f, 0.625f}, 4, &found),
              (std::vector<float>{0.5f, 0.25f, 0.125f, 0.75f}));
    EXPECT_TRUE(found);

    // Only component 0 is tested and the whole replacement is used as it is.
    Entry intensity{IgnoringIntensities, {half}, {1.0f, 0.5f, 0.25f, 0.75f}};
    list = MakeList(0, 4, {intensity});
    EXPECT_EQ(Find(list.get(), {0.625f}, 4, &found), (std::vector<float>{1.0f, 0.5f, 0.25f, 0.75f}));
    EXPECT_TRUE(found);
    Find(list.get(), {0.9f}, 4, &found);
    EXPECT_FALSE(found);

    // Grey lists: one replacement value.
    Entry grey{IgnoringIntensities, {{ProportionallyIfWithinRange, 0.5f, 0.5f}}, {0.8f}};
    list = MakeList(0, 1, {grey});
    EXPECT_EQ(Find(list.get(), {0.5f}, 1, &found), std::vector<float>{0.8f});
    EXPECT_TRUE(found);
}

TEST(ColorMatchSearch, HSBEntries) {
    bool found = false;
    const std::vector<float> color = {0.2f, 0.4f, 0.8f, 1.0f};
    float hsb[3] = {color[0], color[1], color[2]};
    PlimConvertRGBToHSV(hsb);
    ASSERT_GT(hsb[0], 100.0f);  // a hue in degrees, far from any RGB component

    // Matches only if tested against the converted colour.
    Entry blueish{IgnoringAlpha | ConvertToHSB | AllComponentsMustMatch,
                  {{AbsolutelyIfWithinRange, hsb[0], 0.5f},
                   {AbsolutelyIfWithinRange, hsb[1], 0.001f},
                   {AbsolutelyIfWithinRange, hsb[2], 0.001f}},
                  {120.0f, 0.5f, 1.0f, 0.25f}};
    float back[3] = {120.0f, 0.5f, 1.0f};
    PlimConvertHSVToRGB(back);

    List list = MakeList(0, 4, {blueish});
    EXPECT_EQ(Find(list.get(), color, 4, &found), (std::vector<float>{back[0], back[1], back[2], 0.25f}));
    EXPECT_TRUE(found);

    // A later RGB entry sees the colour as passed in, not the converted copy; under
    // AllEntriesMustMatch either mistake fails the search.
    Entry rgb{IgnoringAlpha | AllComponentsMustMatch,
              {{AbsolutelyIfWithinRange, 0.2f, 0.001f},
               {AbsolutelyIfWithinRange, 0.4f, 0.001f},
               {AbsolutelyIfWithinRange, 0.8f, 0.001f}},
              {0.0f, 0.0f, 1.0f, 1.0f}};
    list = MakeList(AllEntriesMustMatch, 4, {blueish, rgb, blueish});
    std::vector<float> result = Find(list.get(), color, 4, &found);
    EXPECT_TRUE(found);
    EXPECT_EQ(result, (std::vector<float>{((0.0f + back[0]) + 0.0f + back[0]) / 3.0f,
                                          ((0.0f + back[1]) + 0.0f + back[1]) / 3.0f,
                                          ((0.0f + back[2]) + 1.0f + back[2]) / 3.0f,
                                          ((0.0f + 0.25f) + 1.0f + 0.25f) / 3.0f}));

    // Alpha is tested unconverted.
    Entry alpha{ConvertToHSB | AllComponentsMustMatch,
                {kAlways, kAlways, kAlways, {AbsolutelyIfWithinRange, 1.0f, 0.0f}},
                {0.0f, 0.0f, 0.5f, 0.5f}};
    list = MakeList(0, 4, {alpha});
    EXPECT_EQ(Find(list.get(), color, 4, &found), (std::vector<float>{0.5f, 0.5f, 0.5f, 0.5f}));
    EXPECT_TRUE(found);
    Find(list.get(), {0.2f, 0.4f, 0.8f, 0.9f}, 4, &found);
    EXPECT_FALSE(found);
}

TEST(ColorMatchSearch, AllocationFailures) {
    FailingAllocator allocator;
    ASSERT_NE(allocator.get(), nullptr);
    Entry hsb{IgnoringAlpha | ConvertToHSB, {kAlways, kAlways, kAlways}, {0.0f, 0.0f, 1.0f, 1.0f}};
    List list = MakeList(0, 4, {AllFour({1, 0, 0, 1}), hsb, hsb}, allocator.get());
    ASSERT_TRUE(list);
    List reference = MakeList(0, 4, {AllFour({1, 0, 0, 1}), hsb, hsb});
    bool found = false;
    const std::vector<float> color = {0.2f, 0.4f, 0.8f, 1.0f};
    const std::vector<float> expected = Find(reference.get(), color, 4, &found);
    ASSERT_TRUE(found);

    long start = allocator.Live();
    int failures = 0;
    for (long budget = 0;; budget++) {
        ASSERT_LT(budget, 100);
        allocator.SetBudget(budget);
        std::vector<float> result = Find(list.get(), color, 4, &found);
        allocator.Unlimited();
        EXPECT_EQ(allocator.Live(), start);
        if (found) {
            EXPECT_EQ(result, expected);
            break;
        }
        failures++;
        EXPECT_EQ(result, std::vector<float>(4, -1.0f));
    }
    EXPECT_GE(failures, 4);  // three slots and the converted colour
}
