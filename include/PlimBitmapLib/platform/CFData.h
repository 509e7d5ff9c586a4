/* Object runtime: byte containers. */
#ifndef PLIM_CFDATA_H
#define PLIM_CFDATA_H

#include <PlimBitmapLib/platform/CFBase.h>

PLIM_EXTERN_C_BEGIN

typedef const struct __CFData *CFDataRef;
typedef struct __CFData *CFMutableDataRef;

PLIM_EXPORT CFTypeID CFDataGetTypeID(void);
/* A copy of `length` bytes. */
PLIM_EXPORT CFDataRef CFDataCreate(CFAllocatorRef allocator, const UInt8 *bytes, CFIndex length);
/* Takes the caller's bytes; they are returned to `bytesDeallocator` (null: the default
   allocator; kCFAllocatorNull: kept by the caller) when the data object goes. */
PLIM_EXPORT CFDataRef CFDataCreateWithBytesNoCopy(CFAllocatorRef allocator, const UInt8 *bytes,
                                                  CFIndex length, CFAllocatorRef bytesDeallocator);
PLIM_EXPORT CFDataRef CFDataCreateCopy(CFAllocatorRef allocator, CFDataRef theData);
/* capacity 0 means unlimited. */
PLIM_EXPORT CFMutableDataRef CFDataCreateMutable(CFAllocatorRef allocator, CFIndex capacity);
PLIM_EXPORT CFMutableDataRef CFDataCreateMutableCopy(CFAllocatorRef allocator, CFIndex capacity,
                                                     CFDataRef theData);

PLIM_EXPORT CFIndex CFDataGetLength(CFDataRef theData);
PLIM_EXPORT const UInt8 *CFDataGetBytePtr(CFDataRef theData);
PLIM_EXPORT UInt8 *CFDataGetMutableBytePtr(CFMutableDataRef theData);
PLIM_EXPORT void CFDataGetBytes(CFDataRef theData, CFRange range, UInt8 *buffer);

/* Growth that cannot get memory, or that would pass the capacity, leaves the data unchanged:
   check CFDataGetLength afterwards. New bytes are zero. */
PLIM_EXPORT void CFDataSetLength(CFMutableDataRef theData, CFIndex length);
PLIM_EXPORT void CFDataIncreaseLength(CFMutableDataRef theData, CFIndex extraLength);
PLIM_EXPORT void CFDataAppendBytes(CFMutableDataRef theData, const UInt8 *bytes, CFIndex length);

PLIM_EXTERN_C_END

#endif
