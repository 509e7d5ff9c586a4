#import <PlimBitmapLib/objects/PlimImage.h>
#import <PlimBitmapLib/objects/PlimContext.h>
#import <AppKit/NSImage.h>
#import <AppKit/NSBitmapImageRep.h>
#import <AppKit/NSGraphics.h>

#import "BitmapRepPixels.h"
#import "ObjectSupport.h"

#define MODULE "PlimImage"

@implementation PlimImage

/* Takes over `image` (one reference, may be NULL); the caller checks the result. */
- (id)plim_initOwningImage:(PlimCFImage)image {
    self = [super init];
    if (self != nil) mImage = image;
    else if (image != NULL) CFRelease(image);
    return self;
}

- (id)init {
    self = [super init];
    if (self == nil) return nil;
    mImage = PlimCFImageCreate(kCFAllocatorDefault);
    PLIM_INIT_CHECK(MODULE, mImage != NULL, "mImage != nil");
    return self;
}

- (id)initWithPath:(NSString *)path {
    self = [super init];
    if (self == nil) return nil;
    PLIM_INIT_CHECK(MODULE, path != nil, "path != nil");
    CFStringRef cfPath = PlimCreateCFString(path);
    mImage = cfPath ? PlimCFImageCreateWithPath(kCFAllocatorDefault, cfPath) : NULL;
    if (cfPath) CFRelease(cfPath);
    PLIM_INIT_CHECK(MODULE, mImage != NULL, "mImage != nil");
    return self;
}

- (id)initWithPath:(NSString *)path format:(int)format {
    self = [super init];
    if (self == nil) return nil;
    PLIM_INIT_CHECK(MODULE, path != nil, "path != nil");
    CFStringRef cfPath = PlimCreateCFString(path);
    mImage = cfPath ? PlimCFImageCreateWithPathAndFormat(kCFAllocatorDefault, cfPath, (PlimImageFormat)format) : NULL;
    if (cfPath) CFRelease(cfPath);
    PLIM_INIT_CHECK(MODULE, mImage != NULL, "mImage != nil");
    return self;
}

- (id)initWithURL:(NSURL *)url {
    self = [super init];
    if (self == nil) return nil;
    PLIM_INIT_CHECK(MODULE, url != nil, "url != nil");
    CFURLRef cfURL = PlimCreateCFURL(url);
    mImage = cfURL ? PlimCFImageCreateWithURL(kCFAllocatorDefault, cfURL) : NULL;
    if (cfURL) CFRelease(cfURL);
    PLIM_INIT_CHECK(MODULE, mImage != NULL, "mImage != nil");
    return self;
}

- (id)initWithURL:(NSURL *)url format:(int)format {
    self = [super init];
    if (self == nil) return nil;
    PLIM_INIT_CHECK(MODULE, url != nil, "url != nil");
    CFURLRef cfURL = PlimCreateCFURL(url);
    mImage = cfURL ? PlimCFImageCreateWithURLAndFormat(kCFAllocatorDefault, cfURL, (PlimImageFormat)format) : NULL;
    if (cfURL) CFRelease(cfURL);
    PLIM_INIT_CHECK(MODULE, mImage != NULL, "mImage != nil");
    return self;
}

- (id)initWithData:(NSData *)data {
    self = [super init];
    if (self == nil) return nil;
    PLIM_INIT_CHECK(MODULE, data != nil, "data != nil");
    CFDataRef cfData = PlimCreateCFData(data);
    mImage = cfData ? PlimCFImageCreateWithData(kCFAllocatorDefault, cfData) : NULL;
    if (cfData) CFRelease(cfData);
    PLIM_INIT_CHECK(MODULE, mImage != NULL, "mImage != nil");
    return self;
}

- (id)initWithData:(NSData *)data format:(int)format {
    self = [super init];
    if (self == nil) return nil;
    PLIM_INIT_CHECK(MODULE, data != nil, "data != nil");
    CFDataRef cfData = PlimCreateCFData(data);
    mImage = cfData ? PlimCFImageCreateWithFormattedData(kCFAllocatorDefault, cfData, (PlimImageFormat)format) : NULL;
    if (cfData) CFRelease(cfData);
    PLIM_INIT_CHECK(MODULE, mImage != NULL, "mImage != nil");
    return self;
}

- (id)initWithCGImage:(CGImageRef)image {
    self = [super init];
    if (self == nil) return nil;
    PLIM_INIT_CHECK(MODULE, image != NULL, "image != nil");
    mImage = PlimCFImageCreateWithImage(kCFAllocatorDefault, image);
    PLIM_INIT_CHECK(MODULE, mImage != NULL, "mImage != nil");
    return self;
}

- (id)initWithBuffer:(const void *)buffer
               width:(UInt32)width
              height:(UInt32)height
    bitsPerComponent:(UInt32)bitsPerComponent
        bitsPerPixel:(UInt32)bitsPerPixel
         bytesPerRow:(UInt32)bytesPerRow
          colorSpace:(CGColorSpaceRef)colorSpace
           alphaInfo:(int)alphaInfo {
    self = [super init];
    if (self == nil) return nil;
    PLIM_INIT_CHECK(MODULE, buffer != NULL, "buffer != nil");
    PLIM_INIT_CHECK(MODULE, colorSpace != NULL, "colorSpace != nil");
    mImage = PlimCFImageCreateWithBuffer(kCFAllocatorDefault, buffer, width, height, bitsPerComponent,
                                         bitsPerPixel, bytesPerRow, colorSpace, (CGImageAlphaInfo)alphaInfo);
    PLIM_INIT_CHECK(MODULE, mImage != NULL, "mImage != nil");
    return self;
}

- (id)initWithSize:(CGSize)size makeTransparent:(BOOL)makeTransparent {
    self = [super init];
    if (self == nil) return nil;
    mImage = PlimCFImageCreateWithSize(kCFAllocatorDefault, size, makeTransparent ? true : false);
    PLIM_INIT_CHECK(MODULE, mImage != NULL, "mImage != nil");
    return self;
}

- (id)initWithImage:(PlimImage *)image mask:(PlimImage *)mask isPremultiplied:(BOOL)isPremultiplied {
    self = [super init];
    if (self == nil) return nil;
    PLIM_INIT_CHECK(MODULE, image != nil, "image != nil");
    PLIM_INIT_CHECK(MODULE, mask != nil, "mask != nil");
    mImage = PlimCFImageCreateWithImageAndMask(kCFAllocatorDefault, [image imageRef], [mask imageRef],
                                               isPremultiplied ? true : false);
    PLIM_INIT_CHECK(MODULE, mImage != NULL, "mImage != nil");
    return self;
}

- (id)initWithImage:(NSImage *)image {
    PLIM_INIT_CHECK(MODULE, image != nil, "image != nil");
    /* Without representations AppKit would have to render one, which needs a window server
       (and raises when there is none): such an image has no representation to read. */
    NSBitmapImageRep *rep = nil;
    if ([[image representations] count] != 0) {
        @try {
            NSData *tiff = [image TIFFRepresentation];
            rep = tiff != nil ? [NSBitmapImageRep imageRepWithData:tiff] : nil;
        } @catch (NSException *e) {
            rep = nil;
        }
    }
    return [self initWithBitmapImageRep:rep];
}

- (id)initWithBitmapImageRep:(NSBitmapImageRep *)rep {
    PLIM_INIT_CHECK(MODULE, rep != nil, "rep != nil");
    NSInteger width = [rep pixelsWide];
    NSInteger height = [rep pixelsHigh];
    NSString *colorSpaceName = [rep colorSpaceName];
    PLIM_INIT_CHECK(MODULE, colorSpaceName != nil, "colorSpaceName != nil");
    BOOL hasAlpha = [rep hasAlpha];

    CFStringRef spaceName;
    CGImageAlphaInfo alphaInfo;
    unsigned colorSamples;
    if ([colorSpaceName isEqualToString:NSCalibratedWhiteColorSpace] ||
        [colorSpaceName isEqualToString:NSDeviceWhiteColorSpace]) {
        spaceName = kCGColorSpaceGenericGray;
        alphaInfo = kCGImageAlphaNone;
        colorSamples = 1;
    } else if ([colorSpaceName isEqualToString:NSCalibratedRGBColorSpace] ||
               [colorSpaceName isEqualToString:NSDeviceRGBColorSpace]) {
        spaceName = kCGColorSpaceGenericRGB;
        alphaInfo = hasAlpha ? kCGImageAlphaPremultipliedFirst : kCGImageAlphaNoneSkipFirst;
        colorSamples = 3;
    } else {
        [self autorelease];
        [NSException raise:NSGenericException format:@"unsupported colorspace \"%@\"", colorSpaceName];
        return nil;
    }

    CGColorSpaceRef cgColorSpace = CGColorSpaceCreateWithName(spaceName);
    PLIM_INIT_CHECK(MODULE, cgColorSpace != NULL, "cgColorSpace != nil");
    /* The drawing layer draws 8-bit samples: representations of every sample size it can read
       (1 to 16 bits, 32-bit floats) are scaled to 8 bits and drawn into an 8-bit context. */
    UInt32 bitsPerComponent = 8u;
    UInt32 contextWidth = width > 0 && width <= (NSInteger)UINT32_MAX ? (UInt32)width : 0u;
    UInt32 contextHeight = height > 0 && height <= (NSInteger)UINT32_MAX ? (UInt32)height : 0u;
    PlimContext *context = nil;
    @try {
        context = [[[PlimContext alloc] initWithWidth:contextWidth
                                               height:contextHeight
                                               buffer:NULL
                                     bitsPerComponent:bitsPerComponent
                                          bytesPerRow:0
                                           colorSpace:cgColorSpace
                                            alphaInfo:alphaInfo] autorelease];
    } @catch (id e) {
        /* The context refused the layout: nothing of ours may outlive the exception. */
        CGColorSpaceRelease(cgColorSpace);
        [self autorelease];
        @throw e;
    }
    CGColorSpaceRelease(cgColorSpace);
    CGContextRef cgContext = [context getCGContext];
    PLIM_INIT_CHECK(MODULE, cgContext != NULL, "cgContext != NULL");

    /* The representation's pixels, drawn through a rendered image of our own: AppKit's drawing
       needs a window server and cannot target the library's context. */
    CGImageRef cgImage = PlimCreateImageFromBitmapRep(rep, colorSamples, CGBitmapContextGetColorSpace(cgContext));
    PLIM_INIT_CHECK(MODULE, cgImage != NULL, "cgImage != NULL");
    CGContextDrawImage(cgContext, CGRectMake(0.0f, 0.0f, (float)width, (float)height), cgImage);
    CGImageRelease(cgImage);

    cgImage = CGBitmapContextCreateImage(cgContext);
    PLIM_INIT_CHECK(MODULE, cgImage != NULL, "cgImage != NULL");
    @try {
        self = [self initWithCGImage:cgImage];
    } @finally {
        CGImageRelease(cgImage);
    }
    return self;
}

- (id)initWithPasteboard:(NSPasteboard *)pasteboard {
    (void)pasteboard;
    NSLog(@"DEBUGGING:  -[PlimImage initWithPasteboard:] not implemented");
    [self release];
    return nil;
}

- (void)dealloc {
    if (mImage != NULL) CFRelease(mImage);
    mImage = NULL;
    [super dealloc];
}

- (id)copyWithZone:(NSZone *)zone {
    PlimImage *newImage = [[PlimImage allocWithZone:zone]
        plim_initOwningImage:PlimCFImageCreateCopy(kCFAllocatorDefault, mImage)];
    if (newImage->mImage == NULL) {
        [newImage autorelease];
        PLIM_CHECK(MODULE, newImage->mImage != NULL, "newImage->mImage != nil");
    }
    return newImage;
}

- (CGImageRef)getCGImage { return PlimCFImageGetCGImage(mImage); }
- (PlimCFImage)imageRef { return mImage; }
- (CGColorSpaceRef)getColorSpace { return PlimCFImageGetColorSpace(mImage); }

- (void)cropToRect:(CGRect)rect {
    PlimCFImageCropToRect(mImage, rect);
}
- (void)scaleToSize:(CGSize)size {
    PlimCFImageScaleToSize(mImage, size);
}

- (void)compositeSrc:(PlimImage *)src
            srcRects:(const CGRect *)srcRects
           destRects:(const CGRect *)destRects
            numRects:(UInt32)numRects
           operation:(int)operation {
    PlimCFImage source = [src imageRef];
    if (source) /* a nil source does nothing */
        PlimCFImageComposite(source, mImage, srcRects, destRects, numRects, (PlimCompositeOperation)operation);
}

- (void)tileSrc:(PlimImage *)src
        srcRect:(CGRect)srcRect
       destRect:(CGRect)destRect
      operation:(int)operation
     tileOrigin:(int)tileOrigin {
    PlimCFImage source = [src imageRef];
    if (source)
        PlimCFImageTile(source, mImage, srcRect, destRect, (PlimCompositeOperation)operation,
                        (PlimTileOrigin)tileOrigin);
}

- (BOOL)isColor { return PlimCFImageIsColor(mImage) ? YES : NO; }
- (BOOL)hasAlpha { return PlimCFImageHasAlpha(mImage) ? YES : NO; }
- (BOOL)isOpaque { return PlimCFImageIsOpaque(mImage) ? YES : NO; }

- (void)convertToGrayscale {
    PlimCFImageConvertToGrayscale(mImage);
}
- (void)convertToColor {
    PlimCFImageConvertToColor(mImage);
}
- (void)makeGrayscale {
    PlimCFImageMakeGrayscale(mImage);
}
- (void)addAlphaChannel {
    PlimCFImageAddAlphaChannel(mImage);
}
- (void)removeAlphaChannel {
    PlimCFImageRemoveAlphaChannel(mImage);
}
- (void)invert {
    PlimCFImageInvert(mImage);
}
- (void)clear {
    PlimCFImageClear(mImage);
}

/* A new autoreleased instance of the receiver's class around `image`, or nil for NULL. */
- (id)plim_wrapped:(PlimCFImage)image {
    if (image == NULL) return nil;
    return [[[[self class] alloc] plim_initOwningImage:image] autorelease];
}

- (id)opaqueImage {
    return [self plim_wrapped:PlimCFImageCopyOpaqueImage(kCFAllocatorDefault, mImage)];
}
- (id)premultipliedOpaqueImage {
    return [self plim_wrapped:PlimCFImageCopyPremultipliedOpaqueImage(kCFAllocatorDefault, mImage)];
}
- (id)imageFromAlphaChannel {
    return [self plim_wrapped:PlimCFImageCopyAlphaChannel(kCFAllocatorDefault, mImage)];
}

- (CGPathRef)copyAlphaPathUsingThreshold:(float)threshold {
    return PlimCFImageCopyAlphaPath(mImage, threshold);
}

- (void *)imageBuffer { return PlimCFImageGetImageBuffer(mImage); }
- (UInt32)imageBufferSize { return PlimCFImageGetImageBufferSize(mImage); }
- (UInt32)width { return PlimCFImageGetWidth(mImage); }
- (UInt32)height { return PlimCFImageGetHeight(mImage); }
- (UInt32)bitsPerComponent { return PlimCFImageGetBitsPerComponent(mImage); }
- (UInt32)bitsPerPixel { return PlimCFImageGetBitsPerPixel(mImage); }
- (UInt32)bytesPerRow { return PlimCFImageGetBytesPerRow(mImage); }
- (int)alphaInfo { return (int)PlimCFImageGetAlphaInfo(mImage); }

- (NSData *)PNGData {
    CFDataRef data = PlimCFImageCopyPNGData(kCFAllocatorDefault, mImage);
    NSData *result = PlimNewNSData(data);
    if (data) CFRelease(data);
    return [result autorelease];
}

- (NSData *)TIFFData {
    CFDataRef data = PlimCFImageCopyTIFFData(kCFAllocatorDefault, mImage);
    NSData *result = PlimNewNSData(data);
    if (data) CFRelease(data);
    return [result autorelease];
}

- (NSString *)description {
    /* Every initialiser leaves an image, but a receiver whose initialiser raised waits in the
       autorelease pool without one, and logging may still describe it. */
    if (mImage == NULL) return [super description];
    CFStringRef desc = CFCopyDescription(mImage);
    NSString *result = PlimNewNSString(desc);
    if (desc) CFRelease(desc);
    return result != nil ? [result autorelease] : [super description];
}

- (NSImage *)image {
    CGImageRef cgImage = [self getCGImage];
    PLIM_CHECK(MODULE, cgImage != NULL, "cgImage != nil");
    CFMutableDataRef tiff = CFDataCreateMutable(kCFAllocatorDefault, 0);
    bool success = false;
    if (tiff != NULL) {
        CGImageDestinationRef destination = CGImageDestinationCreateWithData(tiff, kUTTypeTIFF, 1, NULL);
        if (destination != NULL) {
            CGImageDestinationAddImage(destination, cgImage, NULL);
            success = CGImageDestinationFinalize(destination);
            CFRelease(destination);
        }
    }
    NSData *data = success ? PlimNewNSData(tiff) : nil;
    if (tiff != NULL) CFRelease(tiff);
    PLIM_CHECK(MODULE, success == true, "success == true");

    NSBitmapImageRep *rep = [NSBitmapImageRep imageRepWithData:data];
    [data release];
    NSImage *result = [[NSImage alloc] initWithSize:NSMakeSize((CGFloat)[rep pixelsWide], (CGFloat)[rep pixelsHigh])];
    if (rep != nil) [result addRepresentation:rep];
    return [result autorelease];
}

@end
