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

/* The enumeration types of the public headers are ordinary enumerations in C. In C++ they get a
   fixed underlying type, so that a value outside the listed ones that a C caller passes is still
   a value of the type, which the library checks before use. */
#ifdef __cplusplus
#define PLIM_ENUM_BASE : int
#else
#define PLIM_ENUM_BASE
#endif

#endif
