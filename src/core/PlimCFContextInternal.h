// The drawing context's record and its runtime callbacks, for the image core and for tests.
#pragma once

#include <PlimBitmapLib/PlimCFContext.h>

struct __PlimCFContext {
    CFRuntimeBase base;
    CGContextRef cgContext;  // one reference, released at finalisation
    void *buffer;            // the memory cgContext draws into
    bool ownsBuffer;         // buffer was allocated here and is freed with the object
    // Where an owned buffer came from: the object's own allocator (copies) or the default one.
    bool bufferFromObjectAllocator;
};

extern CFRuntimeClass _kPlimCFContextClass;
extern CFTypeID _kPlimCFContextID;
extern bool gPlimCFContextInited;

PlimCFContext PlimCFContextCreatePrivate(CFAllocatorRef allocator);
void PlimCFContextInit(CFTypeRef cf);
CFTypeRef PlimCFContextCopy(CFAllocatorRef allocator, CFTypeRef cf);
void PlimCFContextFinalize(CFTypeRef cf);
Boolean PlimCFContextEqual(CFTypeRef a, CFTypeRef b);
CFHashCode PlimCFContextHash(CFTypeRef cf);
CFStringRef PlimCFContextCopyFormattingDesc(CFTypeRef cf, CFDictionaryRef formatOptions);
CFStringRef PlimCFContextCopyDebugDesc(CFTypeRef cf);

// Row length used when the caller passes 0: colour components (3 counted as 4) times width
// times bits per component, rounded up to bytes; 0 when that does not fit 32 bits.
UInt32 PlimCFContextDefaultBytesPerRow(CGColorSpaceRef colorSpace, UInt32 width,
                                       UInt32 bitsPerComponent);
