/* The library's version: the macros give the version these headers belong to, the functions
   the version of the library actually loaded. The numbers here are the only place the version
   is written down; the build reads them from this file. */
#ifndef PLIM_VERSION_H
#define PLIM_VERSION_H

#include <PlimBitmapLib/platform/MacTypes.h>
#include <PlimBitmapLib/platform/PlimExport.h>

#define PLIM_VERSION_MAJOR 0
#define PLIM_VERSION_MINOR 1
#define PLIM_VERSION_PATCH 0

/* One number that orders versions: major x 10000 + minor x 100 + patch. */
#define PLIM_VERSION_ENCODE(major, minor, patch) ((major) * 10000 + (minor) * 100 + (patch))
#define PLIM_VERSION \
    PLIM_VERSION_ENCODE(PLIM_VERSION_MAJOR, PLIM_VERSION_MINOR, PLIM_VERSION_PATCH)

#define PLIM_VERSION_STRINGIFY_(x) #x
#define PLIM_VERSION_STRINGIFY(x) PLIM_VERSION_STRINGIFY_(x)
/* "MAJOR.MINOR.PATCH" */
#define PLIM_VERSION_STRING                                                               \
    PLIM_VERSION_STRINGIFY(PLIM_VERSION_MAJOR) "." PLIM_VERSION_STRINGIFY(PLIM_VERSION_MINOR) \
    "." PLIM_VERSION_STRINGIFY(PLIM_VERSION_PATCH)

PLIM_EXTERN_C_BEGIN

/* The loaded library's version, encoded as PLIM_VERSION. A program can compare it with the
   PLIM_VERSION it was compiled against. */
PLIM_EXPORT UInt32 PlimGetVersion(void);
/* The loaded library's version as "MAJOR.MINOR.PATCH"; a static string, never null. */
PLIM_EXPORT const char *PlimGetVersionString(void);

PLIM_EXTERN_C_END

#endif
