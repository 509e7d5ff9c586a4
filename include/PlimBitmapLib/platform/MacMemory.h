/* Relocatable memory handles of the media layer. */
#ifndef PLIM_MACMEMORY_H
#define PLIM_MACMEMORY_H

#include <PlimBitmapLib/platform/MacTypes.h>
#include <PlimBitmapLib/platform/PlimExport.h>

PLIM_EXTERN_C_BEGIN

/* Each call sets the calling thread's MemError(): noErr, memFullErr or nilHandleErr. */
PLIM_EXPORT Handle NewHandle(Size byteCount);
PLIM_EXPORT Handle NewHandleClear(Size byteCount);
PLIM_EXPORT void DisposeHandle(Handle h);
PLIM_EXPORT Size GetHandleSize(Handle h);
/* Keeps the content up to the smaller size; new bytes are zero. Fails with memFullErr, keeping
   the handle as it was, when memory runs out or the handle is locked and would have to move. */
PLIM_EXPORT void SetHandleSize(Handle h, Size newSize);
PLIM_EXPORT void HLock(Handle h);
PLIM_EXPORT void HUnlock(Handle h);
/* A new handle holding a copy of `size` bytes at `srcPtr`. */
PLIM_EXPORT OSErr PtrToHand(const void *srcPtr, Handle *dstHndl, long size);
PLIM_EXPORT OSErr PtrAndHand(const void *ptr1, Handle hand2, long size);
PLIM_EXPORT OSErr MemError(void);

PLIM_EXTERN_C_END

#endif
