/* Object behaviour of the classes: ownership and copying, forwarding to the C interface, the
   context, the exporter (PICT header rule) and the colour match list. */
#import <PlimBitmapLib/objects/PlimBitmapObjects.h>

#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#import "ObjCheck.h"

/* Counts live instances, so that tests can see every object go, failed initialisers included. */
static int gLiveTracked = 0;

@interface TrackedImage : PlimImage
@end

@implementation TrackedImage
+ (id)allocWithZone:(NSZone *)zone {
    ++gLiveTracked;
    return [super allocWithZone:zone];
}
- (void)dealloc {
    --gLiveTracked;
    [super dealloc];
}
@end

/* An RGBA image (premultiplied-first) of `width` x `height` from straight ARGB words. */
static id MakeARGB(Class cls, UInt32 width, UInt32 height, const UInt8 *argb) {
    CGColorSpaceRef rgb = CGColorSpaceCreateWithName(kCGColorSpaceGenericRGB);
    id image = [[cls alloc] initWithBuffer:argb width:width height:height bitsPerComponent:8 bitsPerPixel:32
                               bytesPerRow:width * 4 colorSpace:rgb alphaInfo:kCGImageAlphaPremultipliedFirst];
    CGColorSpaceRelease(rgb);
    return [image autorelease];
}

static NSData *RenderedPixels(PlimImage *image) {
    CGImageRef cg = [image getCGImage];
    if (cg == NULL) return nil;
    CFDataRef data = CGDataProviderCopyData(CGImageGetDataProvider(cg));
    NSData *result = [NSData dataWithBytes:CFDataGetBytePtr(data) length:(NSUInteger)CFDataGetLength(data)];
    CFRelease(data);
    return result;
}

static void TestOwnershipAndCopies(void) {
    const UInt8 argb[16] = {255, 255, 0, 0, 128, 0, 128, 0, 0, 0, 0, 0, 255, 1, 2, 3};
    NSAutoreleasePool *pool = [NSAutoreleasePool new];
    {
        TrackedImage *image = MakeARGB([TrackedImage class], 2, 2, argb);
        CHECK(gLiveTracked == 1);
        CHECK(CFGetRetainCount([image imageRef]) == 1);

        /* Derived images keep the receiver's class; copies are always plain PlimImage. */
        id opaque = [image opaqueImage], premultiplied = [image premultipliedOpaqueImage];
        id alpha = [image imageFromAlphaChannel];
        CHECK([opaque class] == [TrackedImage class] && [premultiplied class] == [TrackedImage class] &&
              [alpha class] == [TrackedImage class]);
        CHECK([opaque isOpaque] && ![image isOpaque] && ![alpha isColor]);
        CHECK(gLiveTracked == 4);

        PlimImage *copy = [image copy];
        CHECK([copy class] == [PlimImage class]);
        CHECK([copy imageRef] != [image imageRef] && CFGetRetainCount([copy imageRef]) == 1);
        CHECK([RenderedPixels(copy) isEqualToData:RenderedPixels(image)]);
        [copy invert];
        CHECK(![RenderedPixels(copy) isEqualToData:RenderedPixels(image)]);
        CHECK([RenderedPixels(image) isEqualToData:RenderedPixels(MakeARGB([PlimImage class], 2, 2, argb))]);
        [copy release];

        /* Failed initialisers dispose of their receiver. */
        @try {
            [[TrackedImage alloc] initWithPath:nil];
        } @catch (NSException *e) {
        }
        @try {
            [[TrackedImage alloc] initWithData:[NSData data]];
        } @catch (NSException *e) {
        }
        CHECK(nil == [[TrackedImage alloc] initWithPasteboard:nil]);

        /* Nothing to derive from an image without pixels. */
        PlimImage *empty = [[[PlimImage alloc] init] autorelease];
        CHECK([empty imageFromAlphaChannel] == nil);
        CHECK([empty PNGData] == nil);
        CHECK([empty TIFFData] == nil);
    }
    [pool release];
    CHECK(gLiveTracked == 0);
}

static void TestForwardedOperations(void) {
    PlimImage *image = [[[PlimImage alloc] initWithSize:CGSizeMake(4, 3) makeTransparent:NO] autorelease];
    CHECK([image width] == 4 && [image height] == 3 && ![image isColor] && ![image hasAlpha] && [image isOpaque]);
    CHECK([image getColorSpace] != NULL && [image alphaInfo] == kCGImageAlphaNone);
    CHECK([[image description] hasPrefix:@"<PlimCFImage"] && [[image description] rangeOfString:@"4x3"].location != NSNotFound);
    [image invert]; /* white to black */
    CHECK([image imageBuffer] != NULL && [image imageBufferSize] >= 12 && ((UInt8 *)[image imageBuffer])[5] == 0);
    [image convertToColor];
    CHECK([image isColor] && [image bitsPerPixel] == 32);
    [image addAlphaChannel];
    CHECK([image hasAlpha]);
    [image clear];
    CHECK(![image isOpaque]);
    [image removeAlphaChannel]; /* keeps the layout, makes every pixel opaque */
    CHECK([image isOpaque]);
    [image convertToGrayscale];
    CHECK(![image isColor]);
    [image makeGrayscale];
    CHECK(![image isColor]);
    [image cropToRect:CGRectMake(1, 1, 2, 2)];
    CHECK([image width] == 2 && [image height] == 2);
    [image scaleToSize:CGSizeMake(8, 6)];
    CHECK([image width] == 8 && [image height] == 6 && [image bytesPerRow] >= 8);
    [image clear];
    CHECK([image width] == 8);

    /* Copying a red square onto a transparent picture, then tiling one pixel everywhere. */
    const UInt8 red[16] = {255, 255, 0, 0, 255, 255, 0, 0, 255, 255, 0, 0, 255, 255, 0, 0};
    PlimImage *src = MakeARGB([PlimImage class], 2, 2, red);
    PlimImage *dest = [[[PlimImage alloc] initWithSize:CGSizeMake(4, 4) makeTransparent:YES] autorelease];
    CGRect srcRect = CGRectMake(0, 0, 2, 2), destRect = CGRectMake(2, 2, 2, 2);
    [dest compositeSrc:src srcRects:&srcRect destRects:&destRect numRects:1 operation:kPlimCompositeCopySrc];
    NSData *pixels = RenderedPixels(dest);
    size_t row = CGImageGetBytesPerRow([dest getCGImage]);
    int redCount = 0;
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 4; ++x) redCount += memcmp((const UInt8 *)[pixels bytes] + y * row + x * 4, red, 4) == 0;
    CHECK(redCount == 4);
    [dest tileSrc:src srcRect:CGRectMake(0, 0, 1, 1) destRect:CGRectMake(0, 0, 4, 4) operation:kPlimCompositeCopySrc
       tileOrigin:kPlimTileOriginMinXMinY];
    pixels = RenderedPixels(dest);
    row = CGImageGetBytesPerRow([dest getCGImage]);
    redCount = 0;
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 4; ++x) redCount += memcmp((const UInt8 *)[pixels bytes] + y * row + x * 4, red, 4) == 0;
    CHECK(redCount == 16);

    /* A mask gives alpha; the traced alpha path is the caller's to release. */
    PlimImage *mask = [[[PlimImage alloc] initWithSize:CGSizeMake(2, 2) makeTransparent:NO] autorelease];
    PlimImage *masked = [[[PlimImage alloc] initWithImage:src mask:mask isPremultiplied:NO] autorelease];
    CHECK([masked hasAlpha] && [masked width] == 2 && [masked isOpaque]);
    CGPathRef path = [dest copyAlphaPathUsingThreshold:0.5f];
    CHECK(path != NULL && !CGPathIsEmpty(path));
    CGPathRelease(path);
}

static void TestContexts(void) {
    CGColorSpaceRef rgb = CGColorSpaceCreateWithName(kCGColorSpaceGenericRGB);
    UInt8 memory[4 * 4 * 4];
    memset(memory, 0xAB, sizeof memory);
    PlimContext *own = [[[PlimContext alloc] initWithWidth:4 height:4 buffer:memory bitsPerComponent:8 bytesPerRow:16
                                                colorSpace:rgb alphaInfo:kCGImageAlphaPremultipliedFirst] autorelease];
    CGColorSpaceRelease(rgb);
    CHECK([own getBuffer] == memory && [own getCGContext] != NULL);
    CHECK(CGBitmapContextGetWidth([own getCGContext]) == 4 && CGBitmapContextGetBytesPerRow([own getCGContext]) == 16);

    /* A context for an image has the image's layout and its own memory, not the image's. */
    PlimImage *image = [[[PlimImage alloc] initWithSize:CGSizeMake(3, 2) makeTransparent:YES] autorelease];
    PlimContext *forImage = [[[PlimContext alloc] initWithImage:image buffer:NULL] autorelease];
    CHECK([forImage getCGContext] != NULL && [forImage getBuffer] != NULL);
    CHECK([forImage getBuffer] != [image imageBuffer]);
    CHECK(CGBitmapContextGetWidth([forImage getCGContext]) == 3 && CGBitmapContextGetHeight([forImage getCGContext]) == 2);
    CHECK(CGBitmapContextGetAlphaInfo([forImage getCGContext]) == kCGImageAlphaPremultipliedFirst);
}

static NSData *ReadFile(NSString *path) { return [NSData dataWithContentsOfFile:path]; }

static void TestExporters(void) {
    const UInt8 argb[16] = {255, 255, 0, 0, 255, 0, 128, 0, 255, 10, 20, 30, 255, 1, 2, 3};
    PlimImage *image = MakeARGB([PlimImage class], 2, 2, argb);
    NSString *base = [NSString stringWithFormat:@"%@/plim-objects-%d", NSTemporaryDirectory(), (int)getpid()];

    /* Picture data lacks the 512-byte header that picture files start with. */
    PlimImageExporter *pict = [[[PlimImageExporter alloc] initForPICT] autorelease];
    [pict setImage:image];
    NSData *data = [pict exportedData];
    NSString *path = [base stringByAppendingString:@".pict"];
    [pict exportToFile:path];
    NSData *file = ReadFile(path);
    CHECK(data != nil && file != nil && [file length] == [data length] + 512);
    if (data != nil && file != nil && [file length] == [data length] + 512) {
        static const UInt8 zeros[512];
        CHECK(memcmp([file bytes], zeros, 512) == 0);
        CHECK(memcmp((const UInt8 *)[file bytes] + 512, [data bytes], [data length]) == 0);
    }
    [data release]; /* owned by the caller */
    unlink([path fileSystemRepresentation]);

    /* PNG to a URL is the same file as the data; a replaced image is the one exported. */
    PlimImageExporter *png = [[[PlimImageExporter alloc] initForPNG] autorelease];
    [png setImage:image];
    data = [png exportedData];
    path = [base stringByAppendingString:@".png"];
    [png exportToURL:[NSURL fileURLWithPath:path]];
    file = ReadFile(path);
    CHECK(data != nil && [file isEqualToData:data] && memcmp([data bytes], "\x89PNG", 4) == 0);
    [png setImage:MakeARGB([PlimImage class], 1, 1, argb)];
    NSData *other = [png exportedData];
    CHECK(other != nil && ![other isEqualToData:data]);
    PlimImage *reloaded = [[[PlimImage alloc] initWithData:other] autorelease];
    CHECK([reloaded width] == 1 && [reloaded height] == 1);
    [other release];
    [data release];
    unlink([path fileSystemRepresentation]);

    /* The other formats export something that loads back at the right size. */
    PlimImageExporter *others[] = {[[PlimImageExporter alloc] initForJPEG], [[PlimImageExporter alloc] initForPCT],
                                   [[PlimImageExporter alloc] initForTIFF]};
    for (int i = 0; i < 3; ++i) {
        [others[i] setImage:image];
        data = [others[i] exportedData];
        PlimImage *back = data ? [[[PlimImage alloc] initWithData:data] autorelease] : nil;
        CHECK(back != nil && [back width] == 2 && [back height] == 2);
        [data release];
        [others[i] release];
    }
}

/* The list is not handed out: what can be seen is that valid entries go in without complaint
   for every replacement count, and (under the leak checker) that the list and its copies go. */
static void TestColorMatchList(void) {
    PlimColorMatchComponent components[4] = {
        {AbsolutelyIfWithinRange, 1.0f, 0.1f}, {AlwaysMatches, 0, 0}, {AlwaysMatches, 0, 0}, {AlwaysMatches, 0, 0}};
    Float32 replacement[4] = {0, 0, 1, 1};
    PlimColorMatchEntry entry = {AllComponentsMustMatch, components, replacement};
    for (UInt32 count = 1; count <= 4; ++count) {
        PlimColorMatchList *list = nil;
        BOOL raised = NO;
        @try {
            list = [[PlimColorMatchList alloc] initWithOptions:AllEntriesMustMatch replacementComponentCount:count];
            [list addEntry:&entry];
            [list addEntry:&entry];
        } @catch (NSException *e) {
            raised = YES;
        }
        CHECK(list != nil && !raised);
        [list release];
    }
}

int main(void) {
    RUN(TestOwnershipAndCopies);
    RUN(TestForwardedOperations);
    RUN(TestContexts);
    RUN(TestExporters);
    RUN(TestColorMatchList);
    return gCheckFailures == 0 ? 0 : 1;
}
