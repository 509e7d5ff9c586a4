#import <PlimBitmapLib/objects/PlimContext.h>
#import <PlimBitmapLib/objects/PlimImage.h>

#import "ObjectSupport.h"

#define MODULE "PlimContext"

@implementation PlimContext

- (id)initWithWidth:(UInt32)width
              height:(UInt32)height
              buffer:(void *)buffer
    bitsPerComponent:(UInt32)bitsPerComponent
         bytesPerRow:(UInt32)bytesPerRow
          colorSpace:(CGColorSpaceRef)colorSpace
           alphaInfo:(int)alphaInfo {
    self = [super init];
    if (self == nil) return nil;
    mContext = PlimCFContextCreate(kCFAllocatorDefault, width, height, buffer, bitsPerComponent, bytesPerRow,
                                   colorSpace, (CGImageAlphaInfo)alphaInfo);
    PLIM_INIT_CHECK(MODULE, mContext != NULL, "mContext != nil");
    return self;
}

- (id)initWithImage:(PlimImage *)image buffer:(void *)buffer {
    self = [super init];
    if (self == nil) return nil;
    PLIM_INIT_CHECK(MODULE, image != nil, "image != nil");
    PlimCFImage cfImage = [image imageRef];
    mContext = cfImage ? PlimCFContextCreateForImage(kCFAllocatorDefault, cfImage, buffer) : NULL;
    PLIM_INIT_CHECK(MODULE, mContext != NULL, "mContext != nil");
    return self;
}

- (void)dealloc {
    if (mContext != NULL) CFRelease(mContext);
    mContext = NULL;
    [super dealloc];
}

- (CGContextRef)getCGContext { return PlimCFContextGetCGContext(mContext); }
- (void *)getBuffer { return PlimCFContextGetBuffer(mContext); }

@end
