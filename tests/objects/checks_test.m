/* Every argument check raises through NSAssertionHandler with its condition; an unsupported
   colour space raises NSGenericException; initWithPasteboard: logs and gives nil. */
#import <PlimBitmapLib/objects/PlimBitmapObjects.h>
#import <AppKit/NSBitmapImageRep.h>
#import <AppKit/NSGraphics.h>
#import <AppKit/NSImage.h>

#include <stdio.h>
#include <string.h>
#include <unistd.h>

#import "ObjCheck.h"

static void TestImageInitialiserChecks(void) {
    CHECK_ASSERTS([[PlimImage alloc] initWithPath:nil], @"PlimImage", @"path != nil");
    CHECK_ASSERTS([[PlimImage alloc] initWithPath:@"/nonexistent/picture.png"], @"PlimImage", @"mImage != nil");
    CHECK_ASSERTS([[PlimImage alloc] initWithPath:nil format:kPlimImageFormatPNG], @"PlimImage", @"path != nil");
    CHECK_ASSERTS([[PlimImage alloc] initWithPath:@"/nonexistent/picture.png" format:kPlimImageFormatPNG],
                  @"PlimImage", @"mImage != nil");
    CHECK_ASSERTS([[PlimImage alloc] initWithURL:nil], @"PlimImage", @"url != nil");
    CHECK_ASSERTS([[PlimImage alloc] initWithURL:nil format:0], @"PlimImage", @"url != nil");
    CHECK_ASSERTS([[PlimImage alloc] initWithURL:[NSURL fileURLWithPath:@"/nonexistent/picture.png"]],
                  @"PlimImage", @"mImage != nil");
    CHECK_ASSERTS([[PlimImage alloc] initWithURL:[NSURL URLWithString:@"http://example.invalid/a.png"]],
                  @"PlimImage", @"mImage != nil");
    CHECK_ASSERTS([[PlimImage alloc] initWithData:nil], @"PlimImage", @"data != nil");
    CHECK_ASSERTS([[PlimImage alloc] initWithData:nil format:kPlimImageFormatJPEG], @"PlimImage", @"data != nil");
    CHECK_ASSERTS([[PlimImage alloc] initWithData:[NSData dataWithBytes:"not a picture" length:13]], @"PlimImage",
                  @"mImage != nil");
    CHECK_ASSERTS([[PlimImage alloc] initWithCGImage:NULL], @"PlimImage", @"image != nil");

    const UInt8 pixels[4] = {1, 2, 3, 4};
    CGColorSpaceRef grey = CGColorSpaceCreateWithName(kCGColorSpaceGenericGray);
    CHECK_ASSERTS([[PlimImage alloc] initWithBuffer:NULL width:2 height:2 bitsPerComponent:8 bitsPerPixel:8
                                        bytesPerRow:2 colorSpace:grey alphaInfo:0],
                  @"PlimImage", @"buffer != nil");
    CHECK_ASSERTS([[PlimImage alloc] initWithBuffer:pixels width:2 height:2 bitsPerComponent:8 bitsPerPixel:8
                                        bytesPerRow:2 colorSpace:NULL alphaInfo:0],
                  @"PlimImage", @"colorSpace != nil");
    /* A zero size cannot be made. */
    CHECK_ASSERTS([[PlimImage alloc] initWithBuffer:pixels width:0 height:0 bitsPerComponent:8 bitsPerPixel:8
                                        bytesPerRow:0 colorSpace:grey alphaInfo:0],
                  @"PlimImage", @"mImage != nil");
    CGColorSpaceRelease(grey);

    PlimImage *image = [[[PlimImage alloc] initWithSize:CGSizeMake(2, 2) makeTransparent:YES] autorelease];
    CHECK_ASSERTS([[PlimImage alloc] initWithImage:nil mask:image isPremultiplied:NO], @"PlimImage", @"image != nil");
    CHECK_ASSERTS([[PlimImage alloc] initWithImage:image mask:nil isPremultiplied:NO], @"PlimImage", @"mask != nil");
    CHECK_ASSERTS([[PlimImage alloc] initWithImage:(NSImage *)nil], @"PlimImage", @"image != nil");
    CHECK_ASSERTS([[PlimImage alloc] initWithBitmapImageRep:nil], @"PlimImage", @"rep != nil");
    /* An NSImage without bitmap representations has nothing to read here (AppKit would need a
       window server to render one). */
    NSImage *empty = [[[NSImage alloc] initWithSize:NSMakeSize(4, 4)] autorelease];
    CHECK_ASSERTS([[PlimImage alloc] initWithImage:empty], @"PlimImage", @"rep != nil");

    NSBitmapImageRep *cmyk = [[[NSBitmapImageRep alloc] initWithBitmapDataPlanes:NULL pixelsWide:2 pixelsHigh:2
                                                                  bitsPerSample:8 samplesPerPixel:4
                                                                       hasAlpha:NO isPlanar:NO
                                                                 colorSpaceName:NSDeviceCMYKColorSpace
                                                                    bytesPerRow:0 bitsPerPixel:0] autorelease];
    CHECK_RAISES([[PlimImage alloc] initWithBitmapImageRep:cmyk], NSGenericException,
                 @"unsupported colorspace \"NSDeviceCMYKColorSpace\"");

    /* `image` needs pixels. */
    PlimImage *pixelless = [[[PlimImage alloc] init] autorelease];
    CHECK([pixelless width] == 0 && [pixelless getCGImage] == NULL);
    CHECK_ASSERTS([pixelless image], @"PlimImage", @"cgImage != nil");
}

static void TestOtherClassesChecks(void) {
    PlimImageExporter *exporter = [[[PlimImageExporter alloc] initForPNG] autorelease];
    CHECK_ASSERTS([exporter exportedData], @"PlimImageExporter", @"mImage != nil");
    CHECK_ASSERTS([exporter exportToFile:@"/tmp/never-written.png"], @"PlimImageExporter", @"mImage != nil");
    CHECK(access("/tmp/never-written.png", F_OK) != 0);
    PlimImage *image = [[[PlimImage alloc] initWithSize:CGSizeMake(3, 3) makeTransparent:NO] autorelease];
    [exporter setImage:image];
    CHECK_ASSERTS([exporter exportToFile:nil], @"PlimImageExporter", @"path != nil");
    CHECK_ASSERTS([exporter exportToURL:nil], @"PlimImageExporter", @"url != nil");
    [exporter setImage:nil];
    CHECK_ASSERTS([exporter exportToURL:[NSURL fileURLWithPath:@"/tmp/never-written.png"]], @"PlimImageExporter",
                  @"mImage != nil");

    CHECK_ASSERTS([[PlimColorMatchList alloc] initWithOptions:0 replacementComponentCount:0], @"PlimColorMatchList",
                  @"count != 0");
    CHECK_ASSERTS([[PlimColorMatchList alloc] initWithOptions:0 replacementComponentCount:5], @"PlimColorMatchList",
                  @"mList != NULL");
    PlimColorMatchList *list = [[[PlimColorMatchList alloc] initWithOptions:0 replacementComponentCount:4] autorelease];
    CHECK_ASSERTS([list addEntry:NULL], @"PlimColorMatchList", @"entry != nil");

    /* RGB without alpha at 24 bits, 16 bits a component, CMYK: the drawing layer refuses them. */
    CGColorSpaceRef rgb = CGColorSpaceCreateWithName(kCGColorSpaceGenericRGB);
    CHECK_ASSERTS([[PlimContext alloc] initWithWidth:4 height:4 buffer:NULL bitsPerComponent:8 bytesPerRow:0
                                          colorSpace:rgb alphaInfo:kCGImageAlphaNone],
                  @"PlimContext", @"mContext != nil");
    CHECK_ASSERTS([[PlimContext alloc] initWithWidth:4 height:4 buffer:NULL bitsPerComponent:16 bytesPerRow:0
                                          colorSpace:rgb alphaInfo:kCGImageAlphaPremultipliedFirst],
                  @"PlimContext", @"mContext != nil");
    CHECK_ASSERTS([[PlimContext alloc] initWithWidth:0 height:4 buffer:NULL bitsPerComponent:8 bytesPerRow:0
                                          colorSpace:rgb alphaInfo:kCGImageAlphaPremultipliedFirst],
                  @"PlimContext", @"mContext != nil");
    CGColorSpaceRelease(rgb);
    CHECK_ASSERTS([[PlimContext alloc] initWithImage:nil buffer:NULL], @"PlimContext", @"image != nil");
}

/* NSLog writes to stderr: capture it around the call. */
static void TestPasteboardIsNotImplemented(void) {
    char logPath[] = "/tmp/plim-objects-log-XXXXXX";
    int fd = mkstemp(logPath);
    CHECK(fd >= 0);
    if (fd < 0) return;
    fflush(stderr);
    int saved = dup(2);
    dup2(fd, 2);
    id result = [[PlimImage alloc] initWithPasteboard:nil];
    fflush(stderr);
    dup2(saved, 2);
    close(saved);
    close(fd);
    CHECK(result == nil);
    NSString *log = [NSString stringWithContentsOfFile:[NSString stringWithUTF8String:logPath]];
    CHECK(log != nil && [log rangeOfString:@"DEBUGGING:  -[PlimImage initWithPasteboard:] not implemented"].location !=
                            NSNotFound);
    unlink(logPath);
}

int main(void) {
    RUN(TestImageInitialiserChecks);
    RUN(TestOtherClassesChecks);
    RUN(TestPasteboardIsNotImplemented);
    return gCheckFailures == 0 ? 0 : 1;
}
