/* Colour spaces of the 2-D graphics layer, backed by ICC profiles. */
#ifndef PLIM_CGCOLORSPACE_H
#define PLIM_CGCOLORSPACE_H

#include <PlimBitmapLib/platform/CFBase.h>
#include <PlimBitmapLib/platform/CFData.h>
#include <PlimBitmapLib/platform/CFString.h>

PLIM_EXTERN_C_BEGIN

typedef struct CGColorSpace *CGColorSpaceRef;

/* Names for CGColorSpaceCreateWithName. Generic RGB is sRGB; generic grey has the sRGB tone
   curve, so a grey value g shows as the RGB colour (g, g, g). */
#define kCGColorSpaceGenericGray CFSTR("kCGColorSpaceGenericGray")
#define kCGColorSpaceGenericRGB CFSTR("kCGColorSpaceGenericRGB")
#define kCGColorSpaceSRGB CFSTR("kCGColorSpaceSRGB")

typedef enum PLIM_ENUM_BASE {
    kCGColorSpaceModelUnknown = -1,
    kCGColorSpaceModelMonochrome = 0,
    kCGColorSpaceModelRGB = 1,
    kCGColorSpaceModelCMYK = 2
} CGColorSpaceModel;

/* Type codes answered by CGColorSpaceGetType. Device and calibrated grey (0 and 3) are the
   grey ones; a space made from a profile reports the calibrated type of its model. */
enum {
    kCGColorSpaceTypeDeviceGray = 0,
    kCGColorSpaceTypeDeviceRGB = 1,
    kCGColorSpaceTypeDeviceCMYK = 2,
    kCGColorSpaceTypeCalibratedGray = 3,
    kCGColorSpaceTypeCalibratedRGB = 4
};

typedef enum PLIM_ENUM_BASE {
    kCGRenderingIntentDefault = 0,
    kCGRenderingIntentAbsoluteColorimetric = 1,
    kCGRenderingIntentRelativeColorimetric = 2,
    kCGRenderingIntentPerceptual = 3,
    kCGRenderingIntentSaturation = 4
} CGColorRenderingIntent;

PLIM_EXPORT CFTypeID CGColorSpaceGetTypeID(void);

/* Null for an unknown name. */
PLIM_EXPORT CGColorSpaceRef CGColorSpaceCreateWithName(CFStringRef name);
PLIM_EXPORT CGColorSpaceRef CGColorSpaceCreateDeviceRGB(void);
PLIM_EXPORT CGColorSpaceRef CGColorSpaceCreateDeviceGray(void);
/* From an open colour profile (a CMProfileRef); null when the profile is not a usable grey,
   RGB or CMYK device profile. The space does not keep the profile open. */
PLIM_EXPORT CGColorSpaceRef
CGColorSpaceCreateWithPlatformColorSpace(const void *platformColorSpace);
/* From ICC profile bytes; null when they are not a usable profile. */
PLIM_EXPORT CGColorSpaceRef CGColorSpaceCreateWithICCProfile(CFDataRef data);

/* Both accept null. */
PLIM_EXPORT CGColorSpaceRef CGColorSpaceRetain(CGColorSpaceRef space);
PLIM_EXPORT void CGColorSpaceRelease(CGColorSpaceRef space);

/* 1 grey, 3 RGB, 4 CMYK; 0 for null. */
PLIM_EXPORT size_t CGColorSpaceGetNumberOfComponents(CGColorSpaceRef space);
PLIM_EXPORT CGColorSpaceModel CGColorSpaceGetModel(CGColorSpaceRef space);
/* One of the kCGColorSpaceType... codes; -1 for null. */
PLIM_EXPORT int CGColorSpaceGetType(CGColorSpaceRef space);
/* The profile's ICC bytes, a new data object. */
PLIM_EXPORT CFDataRef CGColorSpaceCopyICCProfile(CGColorSpaceRef space);

PLIM_EXTERN_C_END

#endif
