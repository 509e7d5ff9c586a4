/* Image exporters: encode a rendered image as JPEG, PICT, PCT, PNG, TIFF or WebP. */
#ifndef PLIM_CFIMAGEEXPORTER_H
#define PLIM_CFIMAGEEXPORTER_H

#include <PlimBitmapLib/platform/CoreFoundation.h>
#include <PlimBitmapLib/platform/CoreGraphics.h>
#include <PlimBitmapLib/PlimCFImage.h>

PLIM_EXTERN_C_BEGIN

typedef struct __PlimCFImageExporter *PlimCFImageExporter;

/* New exporters with one reference, or null. Exporters are immutable and reusable. */
PLIM_EXPORT PlimCFImageExporter PlimCFImageExporterCreateJPEG(CFAllocatorRef allocator);
/* A JPEG exporter at `quality`, 1 (smallest file) to 100 (best picture), on libjpeg's scale; the
   exporter above uses that scale's default, 75. Null for a quality outside 1 to 100. */
PLIM_EXPORT PlimCFImageExporter PlimCFImageExporterCreateJPEGWithQuality(CFAllocatorRef allocator,
                                                                        UInt32 quality);
PLIM_EXPORT PlimCFImageExporter PlimCFImageExporterCreatePICT(CFAllocatorRef allocator);
PLIM_EXPORT PlimCFImageExporter PlimCFImageExporterCreatePCT(CFAllocatorRef allocator);
PLIM_EXPORT PlimCFImageExporter PlimCFImageExporterCreatePNG(CFAllocatorRef allocator);
PLIM_EXPORT PlimCFImageExporter PlimCFImageExporterCreateTIFF(CFAllocatorRef allocator);
/* WebP exporters: lossless (every pixel kept exactly, alpha included), or lossy at `quality`, 1
   (smallest file) to 100 (best picture), on libwebp's scale; null for a quality outside 1 to
   100. Both embed the image's colour profile unless it is sRGB, which WebP readers assume. */
PLIM_EXPORT PlimCFImageExporter PlimCFImageExporterCreateWebPLossless(CFAllocatorRef allocator);
PLIM_EXPORT PlimCFImageExporter PlimCFImageExporterCreateWebPWithQuality(CFAllocatorRef allocator,
                                                                        UInt32 quality);

/* The encoded image as a new data object, or null. PICT data lacks the 512-byte file header
   that PICT files written by the two calls below keep. */
PLIM_EXPORT CFDataRef PlimCFImageExportCreateData(CFAllocatorRef allocator,
                                                  PlimCFImageExporter exporter, CGImageRef image);
/* Failures are not reported by the result; PlimGetLastError (PlimErrors.h) says why one failed. */
PLIM_EXPORT void PlimCFImageExportToURL(PlimCFImageExporter exporter, CGImageRef image, CFURLRef url);
PLIM_EXPORT void PlimCFImageExportToFile(PlimCFImageExporter exporter, CGImageRef image,
                                         CFStringRef path);
/* The same exports, saying whether the whole file was written and closed; on failure the last
   error says why (a file that cannot be created, a failed write, a write still under way after
   about five seconds, or an encoder that failed). A failed write may leave a partial file. */
PLIM_EXPORT Boolean PlimCFImageExportWriteToURL(PlimCFImageExporter exporter, CGImageRef image,
                                                CFURLRef url);
PLIM_EXPORT Boolean PlimCFImageExportWriteToFile(PlimCFImageExporter exporter, CGImageRef image,
                                                 CFStringRef path);

/* The image's rendered image with one more reference, or (when `unpremultiply` and the image
   has alpha) a new rendered image of its unpremultiplied pixels labelled premultiplied-first. */
PLIM_EXPORT CGImageRef _PlimCFImageCreateExportableImage(PlimCFImage image, Boolean unpremultiply);

PLIM_EXPORT void PlimCFImageExporterInit(CFTypeRef exporter);

PLIM_EXTERN_C_END

#endif
