// The version of the library that is loaded, as opposed to the headers a caller compiled with.
#include <PlimBitmapLib/PlimVersion.h>

extern "C" PLIM_EXPORT UInt32 PlimGetVersion(void) { return PLIM_VERSION; }

extern "C" PLIM_EXPORT const char *PlimGetVersionString(void) { return PLIM_VERSION_STRING; }
