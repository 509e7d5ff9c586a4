/* Colour profiles: the display's profile and ICC profiles held in memory. */
#ifndef PLIM_COLORSYNC_H
#define PLIM_COLORSYNC_H

#include <PlimBitmapLib/platform/MacTypes.h>
#include <PlimBitmapLib/platform/PlimExport.h>

PLIM_EXTERN_C_BEGIN

typedef struct OpaqueCMProfileRef *CMProfileRef;
typedef OSStatus CMError;

enum {
    cmProfileError = -170,
    cmFatalProfileErr = -4203,
    cmInvalidProfileLocation = -4205
};

/* Where CMOpenProfile finds a profile. */
enum {
    cmNoProfileBase = 0,
    cmHandleBasedProfile = 2,
    /* ICC bytes at `buffer`, `size` bytes long. */
    cmBufferBasedProfile = 6
};

typedef struct {
    Handle h;
} CMHandleLocation;

typedef struct {
    void *buffer;
    UInt32 size;
} CMBufferLocation;

typedef union {
    CMHandleLocation handleLoc;
    CMBufferLocation bufferLoc;
} CMProfLoc;

typedef struct {
    short locType;
    CMProfLoc u;
} CMProfileLocation;

/* Opens the main display's profile (sRGB). */
PLIM_EXPORT CMError CMGetSystemProfile(CMProfileRef *prof);
/* Opens a profile from the ICC bytes at `theProfile`; the bytes are copied, so the location
   may go away afterwards. */
PLIM_EXPORT CMError CMOpenProfile(CMProfileRef *prof, const CMProfileLocation *theProfile);
/* `valid` tells whether the profile can take part in colour conversion. */
PLIM_EXPORT CMError CMValidateProfile(CMProfileRef prof, Boolean *valid,
                                      Boolean *preferredCMMnotfound);
/* Accepts null. */
PLIM_EXPORT CMError CMCloseProfile(CMProfileRef prof);

PLIM_EXTERN_C_END

#endif
