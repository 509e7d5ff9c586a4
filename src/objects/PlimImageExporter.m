#import <PlimBitmapLib/objects/PlimImageExporter.h>
#import <PlimBitmapLib/objects/PlimImage.h>

#import "ObjectSupport.h"

#define MODULE "PlimImageExporter"

@implementation PlimImageExporter

/* Takes over `exporter` (may be NULL, which raises). */
- (id)plim_initWithExporter:(PlimCFImageExporter)exporter {
    self = [super init];
    if (self == nil) {
        if (exporter) CFRelease(exporter);
        return nil;
    }
    mExporter = exporter;
    mImage = nil;
    PLIM_INIT_CHECK(MODULE, mExporter != NULL, "mExporter != nil");
    return self;
}

- (id)initForJPEG { return [self plim_initWithExporter:PlimCFImageExporterCreateJPEG(kCFAllocatorDefault)]; }
- (id)initForPICT { return [self plim_initWithExporter:PlimCFImageExporterCreatePICT(kCFAllocatorDefault)]; }
- (id)initForPCT { return [self plim_initWithExporter:PlimCFImageExporterCreatePCT(kCFAllocatorDefault)]; }
- (id)initForPNG { return [self plim_initWithExporter:PlimCFImageExporterCreatePNG(kCFAllocatorDefault)]; }
- (id)initForTIFF { return [self plim_initWithExporter:PlimCFImageExporterCreateTIFF(kCFAllocatorDefault)]; }

- (void)dealloc {
    if (mExporter != NULL) CFRelease(mExporter);
    mExporter = NULL;
    [mImage release];
    mImage = nil;
    [super dealloc];
}

- (void)setImage:(PlimImage *)image {
    /* Autoreleased rather than released: the caller may still be using the old image. */
    [mImage autorelease];
    mImage = [image retain];
}

- (NSData *)exportedData {
    PLIM_CHECK(MODULE, mImage != nil, "mImage != nil");
    CFDataRef data = PlimCFImageExportCreateData(kCFAllocatorDefault, mExporter, [mImage getCGImage]);
    NSData *result = PlimNewNSData(data);
    if (data) CFRelease(data);
    return result;
}

- (void)exportToFile:(NSString *)path {
    PLIM_CHECK(MODULE, mImage != nil, "mImage != nil");
    PLIM_CHECK(MODULE, path != nil, "path != nil");
    CFStringRef cfPath = PlimCreateCFString(path);
    if (cfPath == NULL) return;
    PlimCFImageExportToFile(mExporter, [mImage getCGImage], cfPath);
    CFRelease(cfPath);
}

- (void)exportToURL:(NSURL *)url {
    PLIM_CHECK(MODULE, mImage != nil, "mImage != nil");
    PLIM_CHECK(MODULE, url != nil, "url != nil");
    CFURLRef cfURL = PlimCreateCFURL(url);
    if (cfURL == NULL) return;
    PlimCFImageExportToURL(mExporter, [mImage getCGImage], cfURL);
    CFRelease(cfURL);
}

@end
