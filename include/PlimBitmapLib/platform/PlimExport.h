/* Linkage and visibility for everything the library exports. */
#ifndef PLIM_EXPORT_H
#define PLIM_EXPORT_H

#if defined(__GNUC__)
#define PLIM_EXPORT __attribute__((visibility("default")))
#else
#define PLIM_EXPORT
#endif

#ifdef __cplusplus
#define PLIM_EXTERN_C_BEGIN extern "C" {
#define PLIM_EXTERN_C_END }
#else
#define PLIM_EXTERN_C_BEGIN
#define PLIM_EXTERN_C_END
#endif

#endif
