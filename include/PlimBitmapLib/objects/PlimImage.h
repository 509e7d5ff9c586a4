/* PlimImage: one PlimCFImage as an object, with the conversions from and to NSImage and
   NSBitmapImageRep. Manual reference counting. A failed argument check raises through
   NSAssertionHandler ("Invalid parameter not satisfying: <condition>"); no initialiser returns
   nil on failure except initWithPasteboard:, which always does. */
#ifndef PLIM_OBJECTS_PLIMIMAGE_H
#define PLIM_OBJECTS_PLIMIMAGE_H

#import <Foundation/NSObject.h>
#include <PlimBitmapLib/PlimBitmapLib.h>

@class NSString, NSURL, NSData, NSImage, NSBitmapImageRep, NSPasteboard;

@interface PlimImage : NSObject <NSCopying>
{
    /* Exactly one reference, held from a successful initialiser until dealloc. */
    PlimCFImage mImage;
}

/* An image without pixels. */
- (id)init;
- (id)initWithPath:(NSString *)path;
/* `format` is a PlimImageFormat code. */
- (id)initWithPath:(NSString *)path format:(int)format;
- (id)initWithURL:(NSURL *)url;
- (id)initWithURL:(NSURL *)url format:(int)format;
- (id)initWithData:(NSData *)data;
- (id)initWithData:(NSData *)data format:(int)format;
- (id)initWithCGImage:(CGImageRef)image;
- (id)initWithBuffer:(const void *)buffer
               width:(UInt32)width
              height:(UInt32)height
    bitsPerComponent:(UInt32)bitsPerComponent
        bitsPerPixel:(UInt32)bitsPerPixel
         bytesPerRow:(UInt32)bytesPerRow
          colorSpace:(CGColorSpaceRef)colorSpace
           alphaInfo:(int)alphaInfo;
- (id)initWithSize:(CGSize)size makeTransparent:(BOOL)makeTransparent;
- (id)initWithImage:(PlimImage *)image mask:(PlimImage *)mask isPremultiplied:(BOOL)isPremultiplied;
/* Through the image's TIFF representation. */
- (id)initWithImage:(NSImage *)image;
/* White (grey) and RGB representations with 1 to 16 bits per sample, meshed or planar, with or
   without alpha (premultiplied or not); any other colour space raises NSGenericException. Grey
   gives an 8-bit grey image without alpha, RGB a 32-bit image, premultiplied-first with alpha and
   skip-first without. */
- (id)initWithBitmapImageRep:(NSBitmapImageRep *)rep;
/* Not implemented: logs and returns nil. */
- (id)initWithPasteboard:(NSPasteboard *)pasteboard;

/* Always a PlimImage, whatever the receiver's class; owned by the caller. */
- (id)copyWithZone:(NSZone *)zone;

/* Borrowed. */
- (CGImageRef)getCGImage;
- (PlimCFImage)imageRef;
- (CGColorSpaceRef)getColorSpace;

- (void)cropToRect:(CGRect)rect;
- (void)scaleToSize:(CGSize)size;
/* The receiver is the destination; `operation` is a PlimCompositeOperation. */
- (void)compositeSrc:(PlimImage *)src
            srcRects:(const CGRect *)srcRects
           destRects:(const CGRect *)destRects
            numRects:(UInt32)numRects
           operation:(int)operation;
/* `tileOrigin` is a PlimTileOrigin. */
- (void)tileSrc:(PlimImage *)src
        srcRect:(CGRect)srcRect
       destRect:(CGRect)destRect
      operation:(int)operation
     tileOrigin:(int)tileOrigin;

- (BOOL)isColor;
- (BOOL)hasAlpha;
- (BOOL)isOpaque;
- (void)convertToGrayscale;
- (void)convertToColor;
- (void)makeGrayscale;
- (void)addAlphaChannel;
- (void)removeAlphaChannel;
- (void)invert;
- (void)clear;

/* New instances of the receiver's class, autoreleased; nil when the operation fails. */
- (id)opaqueImage;
- (id)premultipliedOpaqueImage;
- (id)imageFromAlphaChannel;

/* Owned by the caller (CGPathRelease). */
- (CGPathRef)copyAlphaPathUsingThreshold:(float)threshold;

- (void *)imageBuffer;
- (UInt32)imageBufferSize;
- (UInt32)width;
- (UInt32)height;
- (UInt32)bitsPerComponent;
- (UInt32)bitsPerPixel;
- (UInt32)bytesPerRow;
- (int)alphaInfo;

/* Autoreleased; nil on failure. */
- (NSData *)PNGData;
- (NSData *)TIFFData;
- (NSString *)description;
/* An NSImage holding one bitmap representation of the pixels (through TIFF); autoreleased. */
- (NSImage *)image;

@end

#endif
