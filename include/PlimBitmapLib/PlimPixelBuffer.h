/* Premultiplication of plain pixel buffers and RGB/HSV conversion of single colours. */
#ifndef PLIM_PIXELBUFFER_H
#define PLIM_PIXELBUFFER_H

#include <PlimBitmapLib/platform/MacTypes.h>
#include <PlimBitmapLib/platform/PlimExport.h>

PLIM_EXTERN_C_BEGIN

/* Each works in place on length / 4 four-byte pixels; 1 to 3 trailing bytes are left alone.
   ARGB has alpha in byte 0, RGBA in byte 3. Premultiplying gives round(C * A / 255). */
PLIM_EXPORT void PlimCFPremultiplyARGBBuffer(UInt8 *pixels, UInt32 length);
PLIM_EXPORT void PlimCFPremultiplyRGBABuffer(UInt8 *pixels, UInt32 length);
/* Unpremultiplying clamps a colour above its alpha to 255 and says so once per call on
   standard error; alpha 0 gives colour 0. */
PLIM_EXPORT void PlimCFUnpremultiplyARGBBuffer(UInt8 *pixels, UInt32 length);
PLIM_EXPORT void PlimCFUnpremultiplyRGBABuffer(UInt8 *pixels, UInt32 length);

/* In place on three floats. HSV is hue in degrees (not wrapped: -60 to 300), then saturation
   as max - min, then value (max). */
PLIM_EXPORT void PlimConvertRGBToHSV(float *triple);
/* Saturation is taken as a fraction of the value; a hue below 0 or from 360 on gives black. */
PLIM_EXPORT void PlimConvertHSVToRGB(float *triple);

PLIM_EXTERN_C_END

#endif
