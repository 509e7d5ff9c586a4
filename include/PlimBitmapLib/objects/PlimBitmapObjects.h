/* The Objective-C classes of PlimBitmapLib (libPlimBitmapObjects), in one include. */
#ifndef PLIM_OBJECTS_PLIMBITMAPOBJECTS_H
#define PLIM_OBJECTS_PLIMBITMAPOBJECTS_H

#import <Foundation/Foundation.h>
#import <PlimBitmapLib/objects/PlimImage.h>
#import <PlimBitmapLib/objects/PlimContext.h>
#import <PlimBitmapLib/objects/PlimImageExporter.h>
#import <PlimBitmapLib/objects/PlimColorMatchList.h>

#endif
