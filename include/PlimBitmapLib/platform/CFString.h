/* Object runtime: strings. Text is held as UTF-8; lengths count UTF-16 code units, as callers
   of this interface expect. */
#ifndef PLIM_CFSTRING_H
#define PLIM_CFSTRING_H

#include <stdarg.h>
#include <PlimBitmapLib/platform/CFBase.h>

PLIM_EXTERN_C_BEGIN

typedef UInt32 CFStringEncoding;
enum {
    kCFStringEncodingMacRoman = 0,
    kCFStringEncodingASCII = 0x0600,
    kCFStringEncodingUTF8 = 0x08000100
};

enum {
    kCFCompareCaseInsensitive = 1,
    kCFCompareBackwards = 4,
    kCFCompareAnchored = 8,
    kCFCompareNonliteral = 16,
    kCFCompareLocalized = 32,
    kCFCompareNumerically = 64
};
typedef CFOptionFlags CFStringCompareFlags;

PLIM_EXPORT CFTypeID CFStringGetTypeID(void);

/* A process-wide constant string for a C literal; never freed. */
PLIM_EXPORT CFStringRef __CFStringMakeConstantString(const char *cStr);
#define CFSTR(cStr) __CFStringMakeConstantString("" cStr "")

/* Null when the bytes are not valid in the encoding (ASCII, UTF-8; MacRoman is taken as
   Latin-1 for its lower half) or memory runs out. */
PLIM_EXPORT CFStringRef CFStringCreateWithCString(CFAllocatorRef alloc, const char *cStr,
                                                  CFStringEncoding encoding);
PLIM_EXPORT CFStringRef CFStringCreateWithBytes(CFAllocatorRef alloc, const UInt8 *bytes,
                                                CFIndex numBytes, CFStringEncoding encoding,
                                                Boolean isExternalRepresentation);
PLIM_EXPORT CFStringRef CFStringCreateCopy(CFAllocatorRef alloc, CFStringRef str);

/* printf conversions, plus %@ for an object (its description; "(null)" for null). */
PLIM_EXPORT CFStringRef CFStringCreateWithFormat(CFAllocatorRef alloc, CFDictionaryRef formatOptions,
                                                 CFStringRef format, ...);
PLIM_EXPORT CFStringRef CFStringCreateWithFormatAndArguments(CFAllocatorRef alloc,
                                                             CFDictionaryRef formatOptions,
                                                             CFStringRef format, va_list arguments);

PLIM_EXPORT CFIndex CFStringGetLength(CFStringRef str);
/* Copies the text with its terminating zero; false when the buffer is too small or the text
   does not fit the encoding. */
PLIM_EXPORT Boolean CFStringGetCString(CFStringRef str, char *buffer, CFIndex bufferSize,
                                       CFStringEncoding encoding);
/* The string's own zero-terminated UTF-8 bytes (for UTF-8 and for ASCII-only text), or null. */
PLIM_EXPORT const char *CFStringGetCStringPtr(CFStringRef str, CFStringEncoding encoding);
PLIM_EXPORT CFIndex CFStringGetMaximumSizeForEncoding(CFIndex length, CFStringEncoding encoding);
/* Compares code point by code point; kCFCompareCaseInsensitive folds ASCII letters. */
PLIM_EXPORT CFComparisonResult CFStringCompare(CFStringRef a, CFStringRef b,
                                               CFStringCompareFlags options);

/* Mutable strings. maxLength is a hint only; strings grow as needed. A change that cannot get
   memory leaves the string as it was. */
PLIM_EXPORT CFMutableStringRef CFStringCreateMutable(CFAllocatorRef alloc, CFIndex maxLength);
PLIM_EXPORT CFMutableStringRef CFStringCreateMutableCopy(CFAllocatorRef alloc, CFIndex maxLength,
                                                         CFStringRef str);
PLIM_EXPORT void CFStringAppend(CFMutableStringRef str, CFStringRef appended);
PLIM_EXPORT void CFStringAppendCString(CFMutableStringRef str, const char *cStr,
                                       CFStringEncoding encoding);
PLIM_EXPORT void CFStringAppendFormat(CFMutableStringRef str, CFDictionaryRef formatOptions,
                                      CFStringRef format, ...);
PLIM_EXPORT void CFStringAppendFormatAndArguments(CFMutableStringRef str,
                                                  CFDictionaryRef formatOptions,
                                                  CFStringRef format, va_list arguments);

PLIM_EXTERN_C_END

#endif
