/* Graphics importer ('grip') and exporter ('grex') components of the media layer, data
   references and drawing surfaces over caller memory. */
#ifndef PLIM_QUICKTIMECOMPONENTS_H
#define PLIM_QUICKTIMECOMPONENTS_H

#include <PlimBitmapLib/platform/MacTypes.h>
#include <PlimBitmapLib/platform/PlimExport.h>
#include <PlimBitmapLib/platform/CFBase.h>
#include <PlimBitmapLib/platform/CFURL.h>
#include <PlimBitmapLib/platform/CGImage.h>

PLIM_EXTERN_C_BEGIN

typedef struct ComponentInstanceRecord *ComponentInstance;
typedef ComponentInstance GraphicsImportComponent;
typedef ComponentInstance GraphicsExportComponent;
typedef Handle ComponentResultHandle;
typedef SInt32 ComponentResult;

enum {
    GraphicsImporterComponentType = 0x67726970, /* 'grip' */
    GraphicsExporterComponentType = 0x67726578, /* 'grex' */
    HandleDataHandlerSubType = 0x686E646C,      /* 'hndl' */
    URLDataHandlerSubType = 0x75726C20,         /* 'url ' */
    AliasDataHandlerSubType = 0x616C6973        /* 'alis': a full path */
};

enum {
    badComponentInstance = (SInt32)0x80008001,
    badComponentSelector = (SInt32)0x80008002,
    invalidComponentID = -3000,
    couldNotResolveDataRef = -2000,
    badDataRefErr = -2002,
    codecUnimpErr = -8962,
    invalidImageIndexErr = -2031,
    cantFindHandler = -2003,
    /* The importer recognised the format but the content is damaged. */
    codecBadDataErr = -8969,
    /* A PICT picture is damaged or ends early. */
    corruptPICTDataErr = -3954
};

/* Spatial quality of lossy compression, from least to lossless. */
typedef UInt32 CodecQ;
enum {
    codecMinQuality = 0x000,
    codecLowQuality = 0x100,
    codecNormalQuality = 0x200,
    codecHighQuality = 0x300,
    codecMaxQuality = 0x3FF,
    codecLosslessQuality = 0x400
};

typedef struct ComponentDescription {
    OSType componentType;
    OSType componentSubType;
    OSType componentManufacturer;
    UInt32 componentFlags;
    UInt32 componentFlagsMask;
} ComponentDescription;

/* The parts of an image description the loaders read. */
typedef struct ImageDescription {
    SInt32 idSize;
    OSType cType;
    SInt16 width;
    SInt16 height;
    SInt16 depth;
} ImageDescription;
typedef ImageDescription *ImageDescriptionPtr;
typedef ImageDescriptionPtr *ImageDescriptionHandle;

typedef struct Rect {
    SInt16 top;
    SInt16 left;
    SInt16 bottom;
    SInt16 right;
} Rect;

typedef struct OpaqueGWorldPtr *GWorldPtr;
typedef void *GDHandle;
typedef void *CTabHandle;
typedef UInt32 GWorldFlags;

/* Pixel formats of drawing surfaces. */
enum {
    k1MonochromePixelFormat = 1,     /* 1 bit, bit 1 white, leftmost pixel in the high bit */
    k32ARGBPixelFormat = 32,         /* A,R,G,B bytes */
    k8IndexedGrayPixelFormat = 40    /* one grey byte, 0 black */
};

PLIM_EXPORT OSErr OpenADefaultComponent(OSType componentType, OSType componentSubType,
                                        ComponentInstance *ci);
PLIM_EXPORT OSErr CloseComponent(ComponentInstance ci);
PLIM_EXPORT OSErr GetComponentInfo(ComponentInstance ci, ComponentDescription *cd, Handle name,
                                   Handle info, Handle icon);

/* The importer keeps no reference to the handle: it must outlive every later call. */
PLIM_EXPORT ComponentResult GraphicsImportSetDataHandle(GraphicsImportComponent ci, Handle h);
/* A new handle the caller disposes. */
PLIM_EXPORT ComponentResult GraphicsImportGetImageDescription(GraphicsImportComponent ci,
                                                              ImageDescriptionHandle *desc);
/* A new handle with the embedded ICC profile, or null when the image carries none. */
PLIM_EXPORT ComponentResult GraphicsImportGetColorSyncProfile(GraphicsImportComponent ci,
                                                              Handle *profile);
PLIM_EXPORT ComponentResult GraphicsImportSetGWorld(GraphicsImportComponent ci, GWorldPtr port,
                                                    GDHandle gdh);
PLIM_EXPORT ComponentResult GraphicsImportDraw(GraphicsImportComponent ci);

/* Picks the importer from the content behind a data reference ('hndl': a handle holding the
   handle of the bytes; 'url ' and 'alis': a handle holding a NUL-terminated file path). */
PLIM_EXPORT OSErr GetGraphicsImporterForDataRefWithFlags(Handle dataRef, OSType dataRefType,
                                                         ComponentInstance *gi, long flags);
PLIM_EXPORT OSErr QTNewDataReferenceFromCFURL(CFURLRef url, UInt32 flags, Handle *outDataRef,
                                              OSType *outDataRefType);
PLIM_EXPORT OSErr QTNewDataReferenceFromFullPathCFString(CFStringRef filePath, UInt32 pathStyle,
                                                         UInt32 flags, Handle *outDataRef,
                                                         OSType *outDataRefType);

/* A drawing surface over caller memory; no colour table, device or flags are supported. */
PLIM_EXPORT OSErr NewGWorldFromPtr(GWorldPtr *offscreenGWorld, UInt32 pixelFormat,
                                   const Rect *boundsRect, CTabHandle cTable, GDHandle aGDevice,
                                   GWorldFlags flags, Ptr newBuffer, SInt32 rowBytes);
PLIM_EXPORT void DisposeGWorld(GWorldPtr offscreenGWorld);

PLIM_EXPORT ComponentResult GraphicsExportSetInputCGImage(GraphicsExportComponent ci,
                                                          CGImageRef image);
/* The encoded file replaces the handle's content; the handle grows as needed. */
PLIM_EXPORT ComponentResult GraphicsExportSetOutputHandle(GraphicsExportComponent ci, Handle h);
/* The quality of a lossy format (JPEG); formats without one ignore it. Until it is set the
   encoder's own default applies. Above codecLosslessQuality: paramErr. */
PLIM_EXPORT ComponentResult GraphicsExportSetCompressionQuality(GraphicsExportComponent ci,
                                                                CodecQ spatialQuality);
PLIM_EXPORT ComponentResult GraphicsExportDoExport(GraphicsExportComponent ci,
                                                   UInt32 *actualSizeWritten);

PLIM_EXTERN_C_END

#endif
