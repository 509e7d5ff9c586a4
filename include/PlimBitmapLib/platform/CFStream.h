/* Object runtime: read and write streams on files. */
#ifndef PLIM_CFSTREAM_H
#define PLIM_CFSTREAM_H

#include <PlimBitmapLib/platform/CFBase.h>
#include <PlimBitmapLib/platform/CFURL.h>

PLIM_EXTERN_C_BEGIN

typedef struct __CFReadStream *CFReadStreamRef;
typedef struct __CFWriteStream *CFWriteStreamRef;

typedef enum PLIM_ENUM_BASE {
    kCFStreamStatusNotOpen = 0,
    kCFStreamStatusOpening = 1,
    kCFStreamStatusOpen = 2,
    kCFStreamStatusReading = 3,
    kCFStreamStatusWriting = 4,
    kCFStreamStatusAtEnd = 5,
    kCFStreamStatusClosed = 6,
    kCFStreamStatusError = 7
} CFStreamStatus;

/* Why a stream went into its error status: a POSIX errno value in the POSIX domain. Domain 0 and
   error 0 while there has been no error. */
typedef struct CFStreamError {
    CFIndex domain;
    SInt32 error;
} CFStreamError;
enum { kCFStreamErrorDomainCustom = -1, kCFStreamErrorDomainPOSIX = 1, kCFStreamErrorDomainMacOSStatus = 2 };

PLIM_EXPORT CFTypeID CFReadStreamGetTypeID(void);
PLIM_EXPORT CFReadStreamRef CFReadStreamCreateWithFile(CFAllocatorRef alloc, CFURLRef fileURL);
PLIM_EXPORT Boolean CFReadStreamOpen(CFReadStreamRef stream);
PLIM_EXPORT CFStreamStatus CFReadStreamGetStatus(CFReadStreamRef stream);
PLIM_EXPORT CFStreamError CFReadStreamGetError(CFReadStreamRef stream);
/* Hands out the next block of the file from the stream's own buffer, valid until the next call
   on the stream. maxBytesToRead <= 0 means no maximum. At the end of the file: null with
   *numBytesRead 0; on an error or an unopened stream: null with *numBytesRead -1. */
PLIM_EXPORT const UInt8 *CFReadStreamGetBuffer(CFReadStreamRef stream, CFIndex maxBytesToRead,
                                               CFIndex *numBytesRead);
/* Bytes read (0 at the end of the file), or -1 on an error. */
PLIM_EXPORT CFIndex CFReadStreamRead(CFReadStreamRef stream, UInt8 *buffer, CFIndex bufferLength);
PLIM_EXPORT void CFReadStreamClose(CFReadStreamRef stream);

PLIM_EXPORT CFTypeID CFWriteStreamGetTypeID(void);
/* Opening creates or truncates the file. */
PLIM_EXPORT CFWriteStreamRef CFWriteStreamCreateWithFile(CFAllocatorRef alloc, CFURLRef fileURL);
PLIM_EXPORT Boolean CFWriteStreamOpen(CFWriteStreamRef stream);
PLIM_EXPORT CFStreamStatus CFWriteStreamGetStatus(CFWriteStreamRef stream);
PLIM_EXPORT CFStreamError CFWriteStreamGetError(CFWriteStreamRef stream);
/* Writes synchronously; bytes written, or -1 on an error (the status becomes error). */
PLIM_EXPORT CFIndex CFWriteStreamWrite(CFWriteStreamRef stream, const UInt8 *buffer,
                                       CFIndex bufferLength);
PLIM_EXPORT void CFWriteStreamClose(CFWriteStreamRef stream);

PLIM_EXTERN_C_END

#endif
