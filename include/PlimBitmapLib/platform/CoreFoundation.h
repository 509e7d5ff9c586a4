/* The object runtime as one include. */
#ifndef PLIM_COREFOUNDATION_H
#define PLIM_COREFOUNDATION_H

#include <PlimBitmapLib/platform/CFBase.h>
#include <PlimBitmapLib/platform/CFRuntime.h>
#include <PlimBitmapLib/platform/CFString.h>
#include <PlimBitmapLib/platform/CFData.h>
#include <PlimBitmapLib/platform/CFURL.h>
#include <PlimBitmapLib/platform/CFStream.h>

#endif
