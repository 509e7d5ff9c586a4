/* Fixed-size scalar types and result codes shared by every platform interface. */
#ifndef PLIM_MACTYPES_H
#define PLIM_MACTYPES_H

#include <stddef.h>
#include <stdint.h>

typedef uint8_t UInt8;
typedef int8_t SInt8;
typedef uint16_t UInt16;
typedef int16_t SInt16;
typedef uint32_t UInt32;
typedef int32_t SInt32;
typedef uint64_t UInt64;
typedef int64_t SInt64;
typedef float Float32;
typedef double Float64;

typedef unsigned char Boolean;
#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif

typedef int16_t OSErr;
typedef int32_t OSStatus;
typedef uint32_t FourCharCode;
typedef FourCharCode OSType;
typedef long Size;
typedef char *Ptr;
typedef Ptr *Handle;

enum {
    noErr = 0,
    paramErr = -50,
    memFullErr = -108,
    nilHandleErr = -109,
    memWZErr = -111
};

#endif
