/* Object runtime: registering a type and creating its instances.

   An instance starts with a CFRuntimeBase header, followed by the type's own fields:

       struct __MyType { CFRuntimeBase base; int field; };
       _CFRuntimeCreateInstance(alloc, myTypeID,
                                sizeof(struct __MyType) - sizeof(CFRuntimeBase), NULL);
*/
#ifndef PLIM_CFRUNTIME_H
#define PLIM_CFRUNTIME_H

#include <PlimBitmapLib/platform/CFBase.h>

PLIM_EXTERN_C_BEGIN

typedef struct __CFRuntimeBase {
    CFTypeID _typeID;
    CFAllocatorRef _allocator; /* null for the default allocator */
    uint32_t _rc;              /* reference count; touched only atomically by the runtime */
    uint32_t _flags;
} CFRuntimeBase;

typedef struct __CFRuntimeClass {
    CFIndex version;
    const char *className;
    void (*init)(CFTypeRef cf);
    CFTypeRef (*copy)(CFAllocatorRef allocator, CFTypeRef cf);
    void (*finalize)(CFTypeRef cf);
    Boolean (*equal)(CFTypeRef cf1, CFTypeRef cf2);
    CFHashCode (*hash)(CFTypeRef cf);
    CFStringRef (*copyFormattingDesc)(CFTypeRef cf, CFDictionaryRef formatOptions);
    CFStringRef (*copyDebugDesc)(CFTypeRef cf);
} CFRuntimeClass;

#define _kCFRuntimeNotATypeID 0

/* Keeps a pointer to `cls`, which must live as long as the process. Returns the new type
   identifier, or _kCFRuntimeNotATypeID when the record is unusable or the registry is full. */
PLIM_EXPORT CFTypeID _CFRuntimeRegisterClass(const CFRuntimeClass *const cls);
PLIM_EXPORT const CFRuntimeClass *_CFRuntimeGetClassWithTypeID(CFTypeID typeID);
/* A zeroed instance with `extraBytes` bytes of fields after the header and one reference; the
   class's init callback has run. Null when the type is unknown or memory runs out. */
PLIM_EXPORT CFTypeRef _CFRuntimeCreateInstance(CFAllocatorRef allocator, CFTypeID typeID,
                                               CFIndex extraBytes, unsigned char *category);

PLIM_EXTERN_C_END

#endif
