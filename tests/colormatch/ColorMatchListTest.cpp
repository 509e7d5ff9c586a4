// The colour match list object: entries, copies, equality, descriptions, allocation failure.
#include "colormatch/ColorMatchTestSupport.h"

#include "colormatch/ColorMatchList.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

using namespace cmtest;

namespace {

// The type identifier as it was before any test ran, i.e. before any list existed.
CFTypeID gTypeIDAtStart = 12345;

class RecordTypeIDAtStart : public ::testing::Environment {
public:
    void SetUp() override { gTypeIDAtStart = PlimCFColorMatchListGetTypeID(); }
};
const ::testing::Environment *const gEnvironment =
    ::testing::AddGlobalTestEnvironment(new RecordTypeIDAtStart);

Entry FourComponents(SInt32 options, float first) {
    return Entry{options,
                 {{AlwaysMatches, first, 0.0f},
                  {AbsolutelyIfWithinRange, 0.5f, 0.25f},
                  {ProportionallyIfLessThan, 0.75f, 0.125f},
                  {AlwaysMatches, 1.0f, 0.0f}},
                 {1.0f, 0.0f, 0.5f, 1.0f}};
}

Entry Resized(Entry entry, size_t components) {
    entry.components.resize(components);
    return entry;
}

std::string Describe(PlimCFColorMatchList list) {
    CFStringRef text = CFCopyDescription(list);
    std::string result = Text(text);
    if (text) CFRelease(text);
    return result;
}

}  // namespace

TEST(ColorMatchList, TypeIsRegisteredByTheFirstList) {
    EXPECT_EQ(gTypeIDAtStart, 0u);
    List list(PlimCFColorMatchListCreate(kCFAllocatorDefault, 0, 4));
    ASSERT_TRUE(list);
    EXPECT_NE(PlimCFColorMatchListGetTypeID(), 0u);
    EXPECT_EQ(CFGetTypeID(list.get()), PlimCFColorMatchListGetTypeID());
    EXPECT_EQ(CFGetRetainCount(list.get()), 1);
}

TEST(ColorMatchList, ComponentCountFollowsEntryOptions) {
    // Only the tested records are read, copied and compared: entries that differ in a record
    // beyond the count are equal, entries that differ within it are not.
    struct Case {
        SInt32 options;
        size_t count;
    } cases[] = {{9, 3}, {1, 3}, {2, 1}, {3, 1}, {10, 1}, {0, 4}, {4, 4}, {12, 4}};
    for (const Case &c : cases) {
        SCOPED_TRACE(c.options);
        Entry exact = Resized(FourComponents(c.options, 0.25f), c.count);
        Entry beyond = FourComponents(c.options, 0.25f);
        beyond.components[3].target = 0.0f;  // differs from exact's unread record, if any
        Entry within = Resized(FourComponents(c.options, 0.25f), c.count);
        within.components[c.count - 1].tolerance = 0.0625f;

        List a = MakeList(0, 4, {exact});
        List b = MakeList(0, 4, {beyond});
        List d = MakeList(0, 4, {within});
        ASSERT_TRUE(a && b && d);
        EXPECT_EQ(CFEqual(a.get(), b.get()), c.count < 4);
        EXPECT_FALSE(CFEqual(a.get(), d.get()));
        EXPECT_EQ(a->entries[0].options, c.options);
    }
}

TEST(ColorMatchList, AddEntryCopiesDeeply) {
    List expected = MakeList(0, 4, {FourComponents(0, 0.25f)});
    List list(PlimCFColorMatchListCreate(kCFAllocatorDefault, 0, 4));
    ASSERT_TRUE(expected && list);

    Entry entry = FourComponents(0, 0.25f);
    PlimColorMatchEntry record = entry.record();
    ASSERT_TRUE(PlimCFColorMatchListAddEntry(list.get(), &record));
    entry.components[0].target = 0.75f;
    entry.components[0].mode = AbsolutelyIfNotWithinRange;
    entry.replacement[2] = 0.0f;
    record.options = IgnoringAlpha;
    EXPECT_TRUE(CFEqual(list.get(), expected.get()));

    float color[4] = {0.0f, 0.5f, 0.25f, 1.0f};
    float result[4] = {};
    ASSERT_TRUE(PlimCFColorMatchListFindMatch(list.get(), color, result));
    EXPECT_EQ(result[2], 0.5f * (1.0f - 0.25f / 0.625f));
}

TEST(ColorMatchList, EqualityIsOrderedAndBytewise) {
    Entry first = FourComponents(0, 0.25f);
    Entry second = FourComponents(AllComponentsMustMatch, 0.5f);
    List ab = MakeList(0, 4, {first, second});
    List ab2 = MakeList(0, 4, {first, second});
    List ba = MakeList(0, 4, {second, first});
    ASSERT_TRUE(ab && ab2 && ba);
    EXPECT_TRUE(CFEqual(ab.get(), ab2.get()));
    EXPECT_FALSE(CFEqual(ab.get(), ba.get()));
    // Equal lists at different addresses hash by address.
    EXPECT_EQ(CFHash(ab.get()), static_cast<CFHashCode>(reinterpret_cast<uintptr_t>(ab.get())));
    EXPECT_NE(CFHash(ab.get()), CFHash(ab2.get()));

    // The list's own fields.
    List other = MakeList(AllEntriesMustMatch, 4, {first, second});
    List fewer = MakeList(0, 4, {first});
    EXPECT_FALSE(CFEqual(ab.get(), other.get()));
    EXPECT_FALSE(CFEqual(ab.get(), fewer.get()));
    List empty3(PlimCFColorMatchListCreate(kCFAllocatorDefault, 0, 3));
    List empty4(PlimCFColorMatchListCreate(kCFAllocatorDefault, 0, 4));
    EXPECT_FALSE(CFEqual(empty3.get(), empty4.get()));

    // Zero and negative zero differ, in a replacement and in a target.
    Entry negativeReplacement = first;
    negativeReplacement.replacement[1] = -0.0f;
    Entry negativeTarget = FourComponents(0, -0.0f);
    Entry zeroTarget = FourComponents(0, 0.0f);
    EXPECT_FALSE(CFEqual(MakeList(0, 4, {first}).get(), MakeList(0, 4, {negativeReplacement}).get()));
    EXPECT_FALSE(CFEqual(MakeList(0, 4, {zeroTarget}).get(), MakeList(0, 4, {negativeTarget}).get()));

    // A NaN equals the same NaN.
    Entry nan = first;
    nan.replacement[0] = std::nanf("");
    EXPECT_TRUE(CFEqual(MakeList(0, 4, {nan}).get(), MakeList(0, 4, {nan}).get()));

    // Entry options count even where they do not change the tested records.
    Entry optioned = first;
    optioned.options = AllComponentsMustMatch;
    EXPECT_FALSE(CFEqual(MakeList(0, 4, {first}).get(), MakeList(0, 4, {optioned}).get()));
}

TEST(ColorMatchList, CopyIsEqualAndIndependent) {
    List list = MakeList(AllEntriesMustMatch, 4,
                         {FourComponents(0, 0.25f), FourComponents(IgnoringIntensities, 0.5f)});
    ASSERT_TRUE(list);
    List copy(static_cast<PlimCFColorMatchList>(
        const_cast<void *>(PlimCFColorMatchListCopy(kCFAllocatorDefault, list.get()))));
    ASSERT_TRUE(copy);
    EXPECT_NE(copy.get(), list.get());
    EXPECT_TRUE(CFEqual(copy.get(), list.get()));
    EXPECT_NE(copy->entries[0].components, list->entries[0].components);
    EXPECT_NE(copy->entries[1].replacement, list->entries[1].replacement);
    ASSERT_TRUE(Add(list.get(), FourComponents(0, 0.75f)));
    EXPECT_FALSE(CFEqual(copy.get(), list.get()));

    List empty(PlimCFColorMatchListCreate(kCFAllocatorDefault, 0, 2));
    List emptyCopy(static_cast<PlimCFColorMatchList>(
        const_cast<void *>(PlimCFColorMatchListCopy(kCFAllocatorDefault, empty.get()))));
    ASSERT_TRUE(emptyCopy);
    EXPECT_TRUE(CFEqual(empty.get(), emptyCopy.get()));
    EXPECT_EQ(PlimCFColorMatchListCopy(kCFAllocatorDefault, nullptr), nullptr);
}

TEST(ColorMatchList, RefusesEntriesThatDoNotFitTheReplacement) {
    List two(PlimCFColorMatchListCreate(kCFAllocatorDefault, 0, 2));
    List three(PlimCFColorMatchListCreate(kCFAllocatorDefault, 0, 3));
    List emptyTwo(PlimCFColorMatchListCreate(kCFAllocatorDefault, 0, 2));
    ASSERT_TRUE(two && three && emptyTwo);
    Entry grey{IgnoringIntensities, {{AlwaysMatches, 0.0f, 0.0f}}, {0.5f, 1.0f}};
    Entry greyHSB = grey;
    greyHSB.options |= ConvertToHSB;

    // Converting back needs three components.
    EXPECT_FALSE(Add(two.get(), greyHSB));
    EXPECT_TRUE(CFEqual(two.get(), emptyTwo.get()));
    EXPECT_TRUE(Add(two.get(), grey));
    // More tested components than replacement values.
    EXPECT_FALSE(Add(two.get(), Resized(FourComponents(IgnoringAlpha, 0.0f), 3)));
    EXPECT_FALSE(Add(three.get(), FourComponents(0, 0.0f)));
    EXPECT_EQ(two->entryCount, 1u);
    EXPECT_EQ(three->entryCount, 0u);

    Entry hsb3 = Resized(FourComponents(IgnoringAlpha | ConvertToHSB, 0.0f), 3);
    hsb3.replacement.resize(3);
    EXPECT_TRUE(Add(three.get(), hsb3));

    EXPECT_EQ(PlimCFColorMatchListCreate(kCFAllocatorDefault, 0, 5), nullptr);
}

TEST(ColorMatchList, Descriptions) {
    List empty(PlimCFColorMatchListCreate(kCFAllocatorDefault, 0, 4));
    List emptyAll(PlimCFColorMatchListCreate(kCFAllocatorDefault, AllEntriesMustMatch, 4));
    ASSERT_TRUE(empty && emptyAll);
    EXPECT_EQ(Describe(empty.get()), " {\n}");
    EXPECT_EQ(Describe(emptyAll.get()), "AllEntriesMustMatch {\n}");

    Entry hsb{IgnoringAlpha | AllComponentsMustMatch | ConvertToHSB,
              {{ProportionallyIfWithinRange, 0.5f, 0.25f},
               {AlwaysMatches, 0.0f, 0.0f},
               {AbsolutelyIfLessThan, 1.0f, 0.125f}},
              {1.0f, 0.0f, 0.5f}};
    Entry grey{IgnoringIntensities, {{42, -1.5f, 2.0f}}, {0.25f, 0.75f, 1.0f}};
    List list = MakeList(AllEntriesMustMatch, 3, {hsb, grey});
    ASSERT_TRUE(list);
    const char *expected =
        "AllEntriesMustMatch {\n"
        " IgnoringAlpha | AllComponentsMustMatch | ConvertToHSB\n"
        " { ProportionallyIfWithinRange 0.500000 0.250000\n"
        "   AlwaysMatches 0.000000 0.000000\n"
        "   AbsolutelyIfLessThan 1.000000 0.125000 }\n"
        " => {1.000000, 0.000000, 0.500000}\n"
        " IgnoringIntensities\n"
        " { (null) -1.500000 2.000000 }\n"
        " => {0.250000, 0.750000, 1.000000}\n"
        "}";
    EXPECT_EQ(Describe(list.get()), expected);

    CFStringRef formatting = PlimCFColorMatchListCopyFormattingDesc(list.get(), nullptr);
    EXPECT_EQ(Text(formatting), expected);
    if (formatting) CFRelease(formatting);

    Entry plain = FourComponents(0, 0.0f);
    EXPECT_EQ(Describe(MakeList(0, 4, {plain}).get()),
              " {\n"
              " \n"
              " { AlwaysMatches 0.000000 0.000000\n"
              "   AbsolutelyIfWithinRange 0.500000 0.250000\n"
              "   ProportionallyIfLessThan 0.750000 0.125000\n"
              "   AlwaysMatches 1.000000 0.000000 }\n"
              " => {1.000000, 0.000000, 0.500000, 1.000000}\n"
              "}");
}

// Runs `attempt` with allocation budgets 0, 1, 2, ... until it succeeds; every failure must
// report itself and give back every block it took.
template <typename Attempt>
void ExpectCleanFailures(FailingAllocator &allocator, Attempt attempt) {
    long start = allocator.Live();
    for (long budget = 0;; budget++) {
        SCOPED_TRACE(budget);
        ASSERT_LT(budget, 100) << "never succeeded";
        allocator.SetBudget(budget);
        bool succeeded = attempt();
        allocator.Unlimited();
        if (succeeded) return;
        EXPECT_EQ(allocator.Live(), start);
    }
}

TEST(ColorMatchList, AllocationFailures) {
    FailingAllocator allocator;
    ASSERT_NE(allocator.get(), nullptr);
    long start = allocator.Live();
    Entry first = FourComponents(0, 0.25f);
    Entry second = Resized(FourComponents(IgnoringAlpha | ConvertToHSB, 0.5f), 3);
    List reference = MakeList(0, 4, {first, second});
    ASSERT_TRUE(reference);

    ExpectCleanFailures(allocator, [&] {
        List list(PlimCFColorMatchListCreate(allocator.get(), 0, 4));
        return list != nullptr;
    });

    // A failed add leaves the entries as they were; a later add still works.
    List list(PlimCFColorMatchListCreate(allocator.get(), 0, 4));
    ASSERT_TRUE(list);
    ASSERT_TRUE(Add(list.get(), first));
    long beforeAdd = allocator.Live();
    int failures = 0;
    for (long budget = 0;; budget++) {
        ASSERT_LT(budget, 100);
        allocator.SetBudget(budget);
        bool added = Add(list.get(), second);
        allocator.Unlimited();
        if (added) break;
        failures++;
        EXPECT_EQ(list->entryCount, 1u);
        EXPECT_LE(allocator.Live(), beforeAdd + 1);  // at most a grown array from before
        EXPECT_TRUE(CFEqual(list.get(), MakeList(0, 4, {first}).get()));
    }
    EXPECT_GE(failures, 3);  // the array, the components and the replacement
    EXPECT_TRUE(CFEqual(list.get(), reference.get()));

    ExpectCleanFailures(allocator, [&] {
        List copy(static_cast<PlimCFColorMatchList>(
            const_cast<void *>(PlimCFColorMatchListCopy(allocator.get(), reference.get()))));
        if (copy) {
            EXPECT_TRUE(CFEqual(copy.get(), reference.get()));
        }
        return copy != nullptr;
    });

    ExpectCleanFailures(allocator, [&] {
        CFStringRef text = PlimCFColorMatchListCopyDebugDesc(list.get());
        if (text == nullptr) return false;
        EXPECT_EQ(Text(text), Describe(reference.get()));
        CFRelease(text);
        return true;
    });

    list.reset();
    EXPECT_EQ(allocator.Live(), start);
}
