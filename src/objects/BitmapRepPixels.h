/* Reading an NSBitmapImageRep's pixels without AppKit drawing (which needs a window server). */
#ifndef PLIM_OBJECTS_BITMAPREPPIXELS_H
#define PLIM_OBJECTS_BITMAPREPPIXELS_H

#import <Foundation/Foundation.h>
#import <AppKit/NSBitmapImageRep.h>
#include <PlimBitmapLib/PlimBitmapLib.h>

#import "ObjectSupport.h"

/* A new rendered image of the representation's pixels with 8 bits per sample: grey or RGB
   (`colorSamples` 1 or 3) in `space`, plus alpha when the representation has it, straight or
   premultiplied as the representation holds it. Samples of 1 to 16 bits and 32-bit floats are
   scaled with rounding; meshed and planar data, alpha first or last. NULL when the layout cannot
   be read (too few samples, unknown sample size, rows too short) or memory runs out. */
PLIM_OBJECTS_INTERNAL CGImageRef PlimCreateImageFromBitmapRep(NSBitmapImageRep *rep, unsigned colorSamples, CGColorSpaceRef space);

/* One sample of `bits` bits (1 to 16) scaled to 0...255, rounded to nearest. */
static inline UInt8 PlimScaleSampleTo8(unsigned value, unsigned bits) {
    unsigned max = (1u << bits) - 1u;
    return (UInt8)((value * 255u + max / 2u) / max);
}

#endif
