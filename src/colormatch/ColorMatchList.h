/* Colour match list internals shared by the list object, its descriptions and the search. */
#ifndef PLIM_COLORMATCH_COLORMATCHLIST_H
#define PLIM_COLORMATCH_COLORMATCHLIST_H

#include <PlimBitmapLib/PlimCFColorMatchList.h>
#include <PlimBitmapLib/platform/CFRuntime.h>

struct __PlimCFColorMatchList {
    CFRuntimeBase base;
    UInt32 options;
    UInt32 replacementComponentCount;
    UInt32 entryCount;
    PlimColorMatchEntry *entries;
};

/* Number of component records an entry with these options tests. */
inline UInt32 PlimColorMatchTestedComponentCount(SInt32 entryOptions) {
    if (entryOptions & IgnoringIntensities) return 1;
    if (entryOptions & IgnoringAlpha) return 3;
    return 4;
}

/* Array storage from the list's allocator. An empty array is a null pointer and never reaches
   the allocator, so a zero-length request cannot fail. */
inline bool PlimColorMatchAllocate(CFAllocatorRef allocator, size_t size, void **block) {
    *block = nullptr;
    if (size == 0) return true;
    *block = CFAllocatorAllocate(allocator, (CFIndex)size, 0);
    return *block != nullptr;
}

/* Grows `*block` to `size` bytes; on failure `*block` is left as it was. */
inline bool PlimColorMatchGrow(CFAllocatorRef allocator, void **block, size_t size) {
    void *grown = *block == nullptr ? CFAllocatorAllocate(allocator, (CFIndex)size, 0)
                                    : CFAllocatorReallocate(allocator, *block, (CFIndex)size, 0);
    if (grown == nullptr) return false;
    *block = grown;
    return true;
}

inline void PlimColorMatchFree(CFAllocatorRef allocator, void *block) {
    if (block != nullptr) CFAllocatorDeallocate(allocator, block);
}

extern CFTypeID _kPlimCFColorMatchListID;

/* Runtime callbacks. */
extern "C" {
void PlimCFColorMatchListInit(CFTypeRef cf);
CFTypeRef PlimCFColorMatchListCopy(CFAllocatorRef allocator, CFTypeRef cf);
void PlimCFColorMatchListFinalize(CFTypeRef cf);
Boolean PlimCFColorMatchListEqual(CFTypeRef cf1, CFTypeRef cf2);
CFHashCode PlimCFColorMatchListHash(CFTypeRef cf);
CFStringRef PlimCFColorMatchListCopyFormattingDesc(CFTypeRef cf, CFDictionaryRef formatOptions);
CFStringRef PlimCFColorMatchListCopyDebugDesc(CFTypeRef cf);
}

#endif
