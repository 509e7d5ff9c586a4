/* Why a call failed, and where the library's messages go. */
#ifndef PLIM_ERRORS_H
#define PLIM_ERRORS_H

#include <PlimBitmapLib/platform/MacTypes.h>
#include <PlimBitmapLib/platform/PlimExport.h>

PLIM_EXTERN_C_BEGIN

/* The reasons a call can fail. */
typedef enum PLIM_ENUM_BASE {
    kPlimErrorNone = 0,
    kPlimErrorInvalidArgument = 1,   /* null, out of range, or not fitting the other arguments */
    kPlimErrorOutOfMemory = 2,
    kPlimErrorFileNotFound = 3,      /* the file, or a folder on its path, does not exist */
    kPlimErrorNotRegularFile = 4,    /* a folder or another thing that is not a file */
    kPlimErrorPermissionDenied = 5,
    kPlimErrorReadFailed = 6,        /* the system could not read the file */
    kPlimErrorEmpty = 7,             /* no bytes at all */
    kPlimErrorTruncated = 8,         /* the data ends before the picture does */
    kPlimErrorCorrupt = 9,           /* the data contradicts its own format */
    kPlimErrorUnsupportedFormat = 10, /* not a format that can be read here, or not the one named */
    kPlimErrorTooLarge = 11,         /* over the decoding pixel limit, a format's largest side, or
                                        the 32-bit size fields */
    kPlimErrorUnsupportedLayout = 12, /* pixels the operation or the format cannot take: a bit
                                        depth, colour model or alpha layout */
    kPlimErrorNoPixels = 13,         /* the image holds neither a buffer nor a rendered image */
    kPlimErrorInvalidProfile = 14,   /* the embedded colour profile cannot be used */
    kPlimErrorEncoderFailed = 15,    /* the encoder refused the picture or produced nothing */
    kPlimErrorWriteFailed = 16,      /* the file could not be written in full (a full disk, ...) */
    kPlimErrorTimedOut = 17          /* the file was still being written after five seconds */
} PlimError;

/* The reason the calling thread's last failed call gave. Like errno, a call that fails sets it
   and a call that succeeds leaves it as it was: read it right after a call whose result says it
   failed, or clear it before an in-place operation (which returns nothing) and read it after.
   Every thread has its own. kPlimErrorNone until a call fails. */
PLIM_EXPORT PlimError PlimGetLastError(void);
/* Sets the calling thread's last error to kPlimErrorNone. */
PLIM_EXPORT void PlimClearLastError(void);
/* A short English description of the reason ("file not found"), a constant string; "unknown
   error" for a value outside the enumeration. */
PLIM_EXPORT const char *PlimGetErrorText(PlimError error);

/* The library's messages: the alpha path tracer's debug log (standard output, one piece per
   trace), the loaders' decoding messages and the unpremultiplication warnings (standard error,
   one message a call). */
typedef enum PLIM_ENUM_BASE {
    kPlimOutputStandardOutput = 1,
    kPlimOutputStandardError = 2
} PlimOutputStream;

/* Receives `length` bytes of text (not terminated) that would have gone to `stream`. */
typedef void (*PlimOutputHook)(void *context, PlimOutputStream stream, const char *text,
                               size_t length);

/* Sends every message of the process to `hook` instead of standard output and standard error;
   a null hook restores them. To drop the messages, set a hook that ignores them. Any thread may
   set or read the hook at any time. Calls from several threads may run at once; once this
   function returns, the previous hook is no longer running and will not be called again, so its
   context may be freed. A hook must not call PlimSetOutputHook (such a call is ignored). */
PLIM_EXPORT void PlimSetOutputHook(PlimOutputHook hook, void *context);
/* The hook set, or null; its context goes to *context when context is not null. */
PLIM_EXPORT PlimOutputHook PlimGetOutputHook(void **context);

PLIM_EXTERN_C_END

#endif
