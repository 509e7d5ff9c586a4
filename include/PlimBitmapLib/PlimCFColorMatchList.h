/* Colour match lists: ordered rules that test a colour component by component and say which
   colour replaces it, and the search that applies a list to one colour. */
#ifndef PLIM_CFCOLORMATCHLIST_H
#define PLIM_CFCOLORMATCHLIST_H

#include <PlimBitmapLib/platform/CFBase.h>

PLIM_EXTERN_C_BEGIN

typedef struct __PlimCFColorMatchList *PlimCFColorMatchList;

/* List options. */
enum {
    AllEntriesMustMatch = 1 /* the search fails as soon as one entry does not count */
};

/* Entry options, combined by bitwise or. */
enum {
    IgnoringAlpha = 1,          /* test components 0 to 2; with 4 replacement components the
                                   replacement alpha is used unscaled */
    IgnoringIntensities = 2,    /* test component 0 only; the replacement is used unscaled */
    AllComponentsMustMatch = 4, /* the entry counts only if every tested component matches */
    ConvertToHSB = 8            /* test hue (degrees), saturation, brightness; the replacement
                                   is given in that model and converted back to RGB */
};

/* Match modes. With c the colour component, a the target and b the tolerance: the range modes
   test |c - a| against b; the greater-than modes accept c - a >= b and the less-than modes
   c <= a - b. Proportional modes scale the replacement component by how far the test passed. */
enum {
    ProportionallyIfWithinRange = 0,
    ProportionallyIfNotWithinRange = 1,
    AbsolutelyIfWithinRange = 2,
    AbsolutelyIfNotWithinRange = 3,
    ProportionallyIfGreaterThan = 4,
    ProportionallyIfLessThan = 5,
    AbsolutelyIfGreaterThan = 6,
    AbsolutelyIfLessThan = 7,
    AlwaysMatches = 8
};

typedef struct PlimColorMatchComponent {
    SInt32 mode;
    Float32 target;
    Float32 tolerance;
} PlimColorMatchComponent;

/* `components` holds one record per tested component: 1 with IgnoringIntensities, else 3 with
   IgnoringAlpha, else 4. `replacement` holds the list's replacement component count of floats. */
typedef struct PlimColorMatchEntry {
    SInt32 options;
    PlimColorMatchComponent *components;
    Float32 *replacement;
} PlimColorMatchEntry;

/* A new, empty list with one reference, or NULL. replacementComponentCount (1 to 4) is the
   number of floats in every replacement and in a search result; a larger count gives NULL. */
PLIM_EXPORT PlimCFColorMatchList PlimCFColorMatchListCreate(CFAllocatorRef allocator,
                                                               UInt32 options,
                                                               UInt32 replacementComponentCount);

/* Appends a deep copy of `entry`; the caller keeps its record. False, with the list's entries
   unchanged, when memory runs out or the entry does not fit the list: it tests more components
   than the replacement count, or it converts to HSB while the count is below 3. */
PLIM_EXPORT Boolean PlimCFColorMatchListAddEntry(PlimCFColorMatchList list,
                                                 const PlimColorMatchEntry *entry);

/* 0 until the first list has been created. */
PLIM_EXPORT CFTypeID PlimCFColorMatchListGetTypeID(void);

/* Tests `color` (red, green, blue, alpha; only the tested components are read) against every
   entry and writes the average of the matching entries' contributions to `result` (the list's
   replacement count of floats). False, with `result` untouched, when no entry matched, when an
   entry failed under AllEntriesMustMatch, or when memory ran out. */
PLIM_EXPORT Boolean PlimCFColorMatchListFindMatch(PlimCFColorMatchList list, const float *color,
                                                  float *result);

PLIM_EXTERN_C_END

#endif
