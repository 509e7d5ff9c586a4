/* PlimBitmapLib: everything a caller needs, in one include. Usable from C99 and C++.
   Threads: the library makes its process-wide state (type registrations, colour spaces, constant
   strings) thread-safely, so independent objects may be used from several threads from the first
   call on; one object is used by one thread at a time. No C++ exception leaves a C function.
   Why a call failed, and where the library's messages go: PlimErrors.h. */
#ifndef PLIM_BITMAPLIB_H
#define PLIM_BITMAPLIB_H

#include <PlimBitmapLib/PlimVersion.h>
#include <PlimBitmapLib/PlimErrors.h>
#include <PlimBitmapLib/platform/CoreFoundation.h>
#include <PlimBitmapLib/platform/MacMemory.h>
#include <PlimBitmapLib/PlimPixelBuffer.h>
#include <PlimBitmapLib/PlimCFImage.h>
#include <PlimBitmapLib/platform/CoreGraphics.h>
#include <PlimBitmapLib/PlimMainDisplay.h>
#include <PlimBitmapLib/PlimCFContext.h>
#include <PlimBitmapLib/PlimCFColorMatchList.h>
#include <PlimBitmapLib/PlimCFImageOperations.h>
#include <PlimBitmapLib/PlimCFImageGeometry.h>
#include <PlimBitmapLib/PlimCFImageAlphaPath.h>
#include <PlimBitmapLib/PlimCFImageComposite.h>
#include <PlimBitmapLib/PlimCFImageLoader.h>
#include <PlimBitmapLib/PlimCFImageExporter.h>
#include <PlimBitmapLib/PlimCFImageIO.h>

#endif
