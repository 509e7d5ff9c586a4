/* PlimImageExporter: a PlimCFImageExporter of one format and the image it exports. */
#ifndef PLIM_OBJECTS_PLIMIMAGEEXPORTER_H
#define PLIM_OBJECTS_PLIMIMAGEEXPORTER_H

#import <Foundation/NSObject.h>
#include <PlimBitmapLib/PlimBitmapLib.h>

@class PlimImage, NSString, NSURL, NSData;

@interface PlimImageExporter : NSObject
{
    PlimCFImageExporter mExporter;
    PlimImage *mImage;
}

- (id)initForJPEG;
- (id)initForPICT;
- (id)initForPCT;
- (id)initForPNG;
- (id)initForTIFF;

/* Retains `image` (nil accepted); the previous one is autoreleased. */
- (void)setImage:(PlimImage *)image;
/* Owned by the caller (not autoreleased); nil when the export fails. */
- (NSData *)exportedData;
/* Failures are silent. */
- (void)exportToFile:(NSString *)path;
- (void)exportToURL:(NSURL *)url;

@end

#endif
