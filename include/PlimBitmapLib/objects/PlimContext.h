/* PlimContext: a PlimCFContext as an object. */
#ifndef PLIM_OBJECTS_PLIMCONTEXT_H
#define PLIM_OBJECTS_PLIMCONTEXT_H

#import <Foundation/NSObject.h>
#include <PlimBitmapLib/PlimBitmapLib.h>

@class PlimImage;

@interface PlimContext : NSObject
{
    PlimCFContext mContext;
}

/* A null buffer, a zero row length and a null colour space take the C defaults; a combination
   the drawing layer refuses raises. */
- (id)initWithWidth:(UInt32)width
              height:(UInt32)height
              buffer:(void *)buffer
    bitsPerComponent:(UInt32)bitsPerComponent
         bytesPerRow:(UInt32)bytesPerRow
          colorSpace:(CGColorSpaceRef)colorSpace
           alphaInfo:(int)alphaInfo;
/* A context in the image's layout, drawing into `buffer` or memory of its own (never into the
   image), not keeping the image. */
- (id)initWithImage:(PlimImage *)image buffer:(void *)buffer;

/* Borrowed. */
- (CGContextRef)getCGContext;
- (void *)getBuffer;

@end

#endif
