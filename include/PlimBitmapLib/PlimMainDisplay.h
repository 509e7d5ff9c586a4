/* The main display's colour space. */
#ifndef PLIM_MAINDISPLAY_H
#define PLIM_MAINDISPLAY_H

#include <PlimBitmapLib/platform/CGColorSpace.h>

PLIM_EXTERN_C_BEGIN

/* A new reference to the main display's colour space (sRGB), which the caller releases; every
   call shares one space. Null when it cannot be made; a later call tries again. */
PLIM_EXPORT CGColorSpaceRef PlimCGColorSpaceCreateMainDisplay(void);

PLIM_EXTERN_C_END

#endif
