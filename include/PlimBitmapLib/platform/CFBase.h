/* Object runtime: base types, allocators and the calls every object answers. */
#ifndef PLIM_CFBASE_H
#define PLIM_CFBASE_H

#include <PlimBitmapLib/platform/MacTypes.h>
#include <PlimBitmapLib/platform/PlimExport.h>

PLIM_EXTERN_C_BEGIN

typedef const void *CFTypeRef;
typedef unsigned long CFTypeID;
typedef unsigned long CFOptionFlags;
typedef uint32_t CFHashCode;
typedef long CFIndex;

typedef struct {
    CFIndex location;
    CFIndex length;
} CFRange;

static inline CFRange CFRangeMake(CFIndex location, CFIndex length) {
    CFRange r;
    r.location = location;
    r.length = length;
    return r;
}

typedef enum PLIM_ENUM_BASE {
    kCFCompareLessThan = -1,
    kCFCompareEqualTo = 0,
    kCFCompareGreaterThan = 1
} CFComparisonResult;

enum { kCFNotFound = -1 };

typedef const struct __CFAllocator *CFAllocatorRef;
typedef const struct __CFString *CFStringRef;
typedef struct __CFString *CFMutableStringRef;
typedef const struct __CFDictionary *CFDictionaryRef;

/* Allocators. A null allocator stands for the default one (the C heap). */
typedef const void *(*CFAllocatorRetainCallBack)(const void *info);
typedef void (*CFAllocatorReleaseCallBack)(const void *info);
typedef CFStringRef (*CFAllocatorCopyDescriptionCallBack)(const void *info);
typedef void *(*CFAllocatorAllocateCallBack)(CFIndex allocSize, CFOptionFlags hint, void *info);
typedef void *(*CFAllocatorReallocateCallBack)(void *ptr, CFIndex newsize, CFOptionFlags hint,
                                               void *info);
typedef void (*CFAllocatorDeallocateCallBack)(void *ptr, void *info);
typedef CFIndex (*CFAllocatorPreferredSizeCallBack)(CFIndex size, CFOptionFlags hint, void *info);

typedef struct {
    CFIndex version;
    void *info;
    CFAllocatorRetainCallBack retain;
    CFAllocatorReleaseCallBack release;
    CFAllocatorCopyDescriptionCallBack copyDescription;
    CFAllocatorAllocateCallBack allocate;
    CFAllocatorReallocateCallBack reallocate;
    CFAllocatorDeallocateCallBack deallocate;
    CFAllocatorPreferredSizeCallBack preferredSize;
} CFAllocatorContext;

#define kCFAllocatorDefault ((CFAllocatorRef)NULL)
PLIM_EXPORT extern const CFAllocatorRef kCFAllocatorSystemDefault;
PLIM_EXPORT extern const CFAllocatorRef kCFAllocatorMalloc;
/* Allocates nothing and frees nothing: for bytes the caller keeps. */
PLIM_EXPORT extern const CFAllocatorRef kCFAllocatorNull;

PLIM_EXPORT CFTypeID CFAllocatorGetTypeID(void);
PLIM_EXPORT CFAllocatorRef CFAllocatorGetDefault(void);
/* The new allocator object itself is allocated from `allocator` (null: the default). The
   context's retain callback, if any, is applied to its info, and release at destruction. */
PLIM_EXPORT CFAllocatorRef CFAllocatorCreate(CFAllocatorRef allocator, CFAllocatorContext *context);
PLIM_EXPORT void *CFAllocatorAllocate(CFAllocatorRef allocator, CFIndex size, CFOptionFlags hint);
PLIM_EXPORT void *CFAllocatorReallocate(CFAllocatorRef allocator, void *ptr, CFIndex newsize,
                                        CFOptionFlags hint);
PLIM_EXPORT void CFAllocatorDeallocate(CFAllocatorRef allocator, void *ptr);
PLIM_EXPORT void CFAllocatorGetContext(CFAllocatorRef allocator, CFAllocatorContext *context);

/* Every object. */
PLIM_EXPORT CFTypeID CFGetTypeID(CFTypeRef cf);
PLIM_EXPORT CFTypeRef CFRetain(CFTypeRef cf);
PLIM_EXPORT void CFRelease(CFTypeRef cf);
PLIM_EXPORT CFIndex CFGetRetainCount(CFTypeRef cf);
PLIM_EXPORT Boolean CFEqual(CFTypeRef cf1, CFTypeRef cf2);
PLIM_EXPORT CFHashCode CFHash(CFTypeRef cf);
PLIM_EXPORT CFStringRef CFCopyDescription(CFTypeRef cf);
PLIM_EXPORT CFStringRef CFCopyTypeIDDescription(CFTypeID typeID);
PLIM_EXPORT CFAllocatorRef CFGetAllocator(CFTypeRef cf);
/* Writes the object's description and a newline to standard error. */
PLIM_EXPORT void CFShow(CFTypeRef cf);

PLIM_EXTERN_C_END

#endif
