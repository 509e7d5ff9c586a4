/* Data providers: the bytes behind a rendered image. */
#ifndef PLIM_CGDATAPROVIDER_H
#define PLIM_CGDATAPROVIDER_H

#include <PlimBitmapLib/platform/CFBase.h>
#include <PlimBitmapLib/platform/CFData.h>
#include <PlimBitmapLib/platform/CFURL.h>

PLIM_EXTERN_C_BEGIN

typedef struct CGDataProvider *CGDataProviderRef;

/* Called exactly once, when the provider goes away. */
typedef void (*CGDataProviderReleaseDataCallback)(void *info, const void *data, size_t size);

PLIM_EXPORT CFTypeID CGDataProviderGetTypeID(void);
/* Hands out `size` bytes at `data` without copying them; `releaseData` (may be null) is
   called with `info`, `data` and `size` when the provider is destroyed. Null on failure, in
   which case `releaseData` is not called and the caller keeps the bytes. */
PLIM_EXPORT CGDataProviderRef
CGDataProviderCreateWithData(void *info, const void *data, size_t size,
                             CGDataProviderReleaseDataCallback releaseData);
/* Holds a reference to the data object. */
PLIM_EXPORT CGDataProviderRef CGDataProviderCreateWithCFData(CFDataRef data);
/* Reads the whole file named by a file URL; null when it cannot be read. */
PLIM_EXPORT CGDataProviderRef CGDataProviderCreateWithURL(CFURLRef url);
/* Both accept null. */
PLIM_EXPORT CGDataProviderRef CGDataProviderRetain(CGDataProviderRef provider);
PLIM_EXPORT void CGDataProviderRelease(CGDataProviderRef provider);
/* A copy of all the provider's bytes. */
PLIM_EXPORT CFDataRef CGDataProviderCopyData(CGDataProviderRef provider);

PLIM_EXTERN_C_END

#endif
