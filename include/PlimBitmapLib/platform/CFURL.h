/* Object runtime: file URLs. */
#ifndef PLIM_CFURL_H
#define PLIM_CFURL_H

#include <PlimBitmapLib/platform/CFBase.h>

PLIM_EXTERN_C_BEGIN

typedef const struct __CFURL *CFURLRef;

typedef enum PLIM_ENUM_BASE {
    kCFURLPOSIXPathStyle = 0,
    kCFURLHFSPathStyle = 1,
    kCFURLWindowsPathStyle = 2
} CFURLPathStyle;

PLIM_EXPORT CFTypeID CFURLGetTypeID(void);
/* POSIX style only; null for an empty path or another style. A relative path is kept as
   given and resolved against the working directory when the file is opened. */
PLIM_EXPORT CFURLRef CFURLCreateWithFileSystemPath(CFAllocatorRef allocator, CFStringRef filePath,
                                                   CFURLPathStyle pathStyle, Boolean isDirectory);
PLIM_EXPORT CFURLRef CFURLCreateFromFileSystemRepresentation(CFAllocatorRef allocator,
                                                             const UInt8 *buffer, CFIndex bufLen,
                                                             Boolean isDirectory);
/* The path as given, without a trailing slash (except for "/"). */
PLIM_EXPORT CFStringRef CFURLCopyFileSystemPath(CFURLRef url, CFURLPathStyle pathStyle);
PLIM_EXPORT Boolean CFURLGetFileSystemRepresentation(CFURLRef url, Boolean resolveAgainstBase,
                                                     UInt8 *buffer, CFIndex maxBufLen);
/* The text after the last dot of the last path component, or null when there is none. */
PLIM_EXPORT CFStringRef CFURLCopyPathExtension(CFURLRef url);
PLIM_EXPORT CFStringRef CFURLCopyLastPathComponent(CFURLRef url);
/* "file://" followed by the absolute path, percent-escaped. */
PLIM_EXPORT CFStringRef CFURLGetString(CFURLRef url);
PLIM_EXPORT Boolean CFURLHasDirectoryPath(CFURLRef url);

PLIM_EXTERN_C_END

#endif
