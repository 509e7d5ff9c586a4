/* The 2-D graphics and colour profile layer as one include. */
#ifndef PLIM_COREGRAPHICS_H
#define PLIM_COREGRAPHICS_H

#include <PlimBitmapLib/platform/CGGeometry.h>
#include <PlimBitmapLib/platform/CGAffineTransform.h>
#include <PlimBitmapLib/platform/CGColorSpace.h>
#include <PlimBitmapLib/platform/CGDataProvider.h>
#include <PlimBitmapLib/platform/CGImage.h>
#include <PlimBitmapLib/platform/CGContext.h>
#include <PlimBitmapLib/platform/CGBitmapContext.h>
#include <PlimBitmapLib/platform/CGPath.h>
#include <PlimBitmapLib/platform/ColorSync.h>
#include <PlimBitmapLib/platform/CGImageDecoders.h>
#include <PlimBitmapLib/platform/CGImageDestination.h>

#endif
