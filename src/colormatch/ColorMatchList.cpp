/* The colour match list object: registration, creation, entries, copy, equality, destruction. */
#include "colormatch/ColorMatchList.h"
#include "platform/runtime/Errors.h"

#include <cstdint>
#include <cstring>
#include <mutex>

// Equality compares component records as bytes, which needs them free of padding.
static_assert(sizeof(PlimColorMatchComponent) == 12, "component records must have no padding");

CFTypeID _kPlimCFColorMatchListID = _kCFRuntimeNotATypeID;
static bool gPlimCFColorMatchListInited = false;  // set under the once flag

static const CFRuntimeClass _kPlimCFColorMatchListClass = {
    0,
    "PlimCFColorMatchList",
    PlimCFColorMatchListInit,
    PlimCFColorMatchListCopy,
    PlimCFColorMatchListFinalize,
    PlimCFColorMatchListEqual,
    PlimCFColorMatchListHash,
    PlimCFColorMatchListCopyFormattingDesc,
    PlimCFColorMatchListCopyDebugDesc,
};

static PlimCFColorMatchList ColorMatchListCreatePrivate(CFAllocatorRef allocator) {
    // Lists may be created from several threads from the first one on.
    static std::once_flag once;
    std::call_once(once, [] {
        _kPlimCFColorMatchListID = _CFRuntimeRegisterClass(&_kPlimCFColorMatchListClass);
        gPlimCFColorMatchListInited = true;
    });
    if (_kPlimCFColorMatchListID == _kCFRuntimeNotATypeID) return nullptr;
    CFTypeRef instance = _CFRuntimeCreateInstance(
        allocator, _kPlimCFColorMatchListID,
        (CFIndex)(sizeof(struct __PlimCFColorMatchList) - sizeof(CFRuntimeBase)), nullptr);
    return (PlimCFColorMatchList)instance;
}

/* Deep copy of one entry with n replacement floats. All or nothing: on failure whatever was
   allocated is freed again and `dest` holds no blocks. */
static bool CopyEntry(CFAllocatorRef allocator, PlimColorMatchEntry *dest,
                      const PlimColorMatchEntry *src, UInt32 n) {
    dest->options = src->options;
    dest->components = nullptr;
    dest->replacement = nullptr;

    size_t componentBytes =
        (size_t)PlimColorMatchTestedComponentCount(src->options) * sizeof(PlimColorMatchComponent);
    size_t replacementBytes = (size_t)n * sizeof(Float32);
    void *components;
    void *replacement;
    if (!PlimColorMatchAllocate(allocator, componentBytes, &components)) return false;
    if (!PlimColorMatchAllocate(allocator, replacementBytes, &replacement)) {
        PlimColorMatchFree(allocator, components);
        return false;
    }
    if (componentBytes != 0) memcpy(components, src->components, componentBytes);
    if (replacementBytes != 0) memcpy(replacement, src->replacement, replacementBytes);
    dest->components = (PlimColorMatchComponent *)components;
    dest->replacement = (Float32 *)replacement;
    return true;
}

PlimCFColorMatchList PlimCFColorMatchListCreate(CFAllocatorRef allocator, UInt32 options,
                                                   UInt32 replacementComponentCount) {
    // The search keeps one contribution of four floats per entry; more cannot be represented.
    if (replacementComponentCount > 4) return plim::errors::Fail(kPlimErrorInvalidArgument, nullptr);
    PlimCFColorMatchList list = ColorMatchListCreatePrivate(allocator);
    if (list == nullptr) return nullptr;
    list->options = options;
    list->replacementComponentCount = replacementComponentCount;
    list->entryCount = 0;
    list->entries = nullptr; // the empty array
    return list;
}

Boolean PlimCFColorMatchListAddEntry(PlimCFColorMatchList list, const PlimColorMatchEntry *entry) {
    UInt32 n = list->replacementComponentCount;
    // A component without a replacement value, or an HSB slot too short to convert back,
    // would make the search read past the arrays.
    if (PlimColorMatchTestedComponentCount(entry->options) > n ||
        ((entry->options & ConvertToHSB) && n < 3))
        return plim::errors::Fail(kPlimErrorInvalidArgument, false);
    if (list->entryCount == UINT32_MAX) return plim::errors::Fail(kPlimErrorTooLarge, false);

    CFAllocatorRef allocator = CFGetAllocator(list);
    void *entries = list->entries;
    if (!PlimColorMatchGrow(allocator, &entries,
                            ((size_t)list->entryCount + 1) * sizeof(PlimColorMatchEntry)))
        return false;
    list->entries = (PlimColorMatchEntry *)entries;
    if (!CopyEntry(allocator, &list->entries[list->entryCount], entry, n)) return false;
    list->entryCount += 1;
    return true;
}

CFTypeID PlimCFColorMatchListGetTypeID(void) { return _kPlimCFColorMatchListID; }

void PlimCFColorMatchListInit(CFTypeRef) {
    // The runtime hands out zeroed fields, which is an empty list.
}

CFTypeRef PlimCFColorMatchListCopy(CFAllocatorRef allocator, CFTypeRef cf) {
    if (cf == nullptr) return nullptr;
    const struct __PlimCFColorMatchList *src = (const struct __PlimCFColorMatchList *)cf;
    PlimCFColorMatchList copy = ColorMatchListCreatePrivate(allocator);
    if (copy == nullptr) return nullptr;
    copy->options = src->options;
    copy->replacementComponentCount = src->replacementComponentCount;

    CFAllocatorRef copyAllocator = CFGetAllocator(copy);
    void *entries;
    if (!PlimColorMatchAllocate(copyAllocator, (size_t)src->entryCount * sizeof(PlimColorMatchEntry),
                                &entries)) {
        CFRelease(copy);
        return nullptr;
    }
    copy->entries = (PlimColorMatchEntry *)entries;
    // entryCount follows the copied entries, so releasing a half-made copy frees exactly those.
    for (UInt32 i = 0; i < src->entryCount; i++) {
        if (!CopyEntry(copyAllocator, &copy->entries[i], &src->entries[i],
                       src->replacementComponentCount)) {
            CFRelease(copy);
            return nullptr;
        }
        copy->entryCount = i + 1;
    }
    return copy;
}

void PlimCFColorMatchListFinalize(CFTypeRef cf) {
    PlimCFColorMatchList list = (PlimCFColorMatchList)cf;
    if (list->entries == nullptr) return;
    CFAllocatorRef allocator = CFGetAllocator(list);
    for (UInt32 i = 0; i < list->entryCount; i++) {
        PlimColorMatchFree(allocator, list->entries[i].components);
        PlimColorMatchFree(allocator, list->entries[i].replacement);
    }
    CFAllocatorDeallocate(allocator, list->entries);
    list->entries = nullptr;
    list->entryCount = 0;
}

Boolean PlimCFColorMatchListEqual(CFTypeRef cf1, CFTypeRef cf2) {
    if (cf1 == cf2) return true;
    const struct __PlimCFColorMatchList *a = (const struct __PlimCFColorMatchList *)cf1;
    const struct __PlimCFColorMatchList *b = (const struct __PlimCFColorMatchList *)cf2;
    if (a->options != b->options) return false;
    if (a->replacementComponentCount != b->replacementComponentCount) return false;
    if (a->entryCount != b->entryCount) return false;
    size_t replacementBytes = (size_t)a->replacementComponentCount * sizeof(Float32);
    for (UInt32 i = 0; i < a->entryCount; i++) {
        const PlimColorMatchEntry &x = a->entries[i];
        const PlimColorMatchEntry &y = b->entries[i];
        if (x.options != y.options) return false;
        // Bytewise on purpose: 0.0 and -0.0 differ, a NaN equals the same NaN.
        if (replacementBytes != 0 && memcmp(x.replacement, y.replacement, replacementBytes) != 0)
            return false;
        size_t componentBytes =
            (size_t)PlimColorMatchTestedComponentCount(x.options) * sizeof(PlimColorMatchComponent);
        if (memcmp(x.components, y.components, componentBytes) != 0) return false;
    }
    return true;
}

CFHashCode PlimCFColorMatchListHash(CFTypeRef cf) { return (CFHashCode)(uintptr_t)cf; }
