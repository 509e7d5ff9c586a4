// The calling thread's last error, its texts, and the reasons of system and media-layer codes.
#include "platform/runtime/Errors.h"

#include <PlimBitmapLib/platform/QuickTimeComponents.h>

#include <cerrno>

namespace plim::errors {

namespace {

struct State {
    PlimError error = kPlimErrorNone;
    uint32_t serial = 0;  // counts records, so that a mark sees one that repeats the same reason
};

thread_local State tState;

}  // namespace

void Record(PlimError reason) {
    tState.error = reason;
    ++tState.serial;
}

PlimError FromErrno(int error, PlimError otherwise) {
    switch (error) {
    case ENOENT:
    case ENOTDIR:
    case ELOOP: return kPlimErrorFileNotFound;
    case EISDIR:
    case ENXIO:
    case ENODEV: return kPlimErrorNotRegularFile;
    case EACCES:
    case EPERM:
    case EROFS:
    case ETXTBSY: return kPlimErrorPermissionDenied;
    case ENOMEM: return kPlimErrorOutOfMemory;
    case ENAMETOOLONG:
    case EINVAL: return kPlimErrorInvalidArgument;
    case EFBIG:
    case EOVERFLOW: return kPlimErrorTooLarge;
    default: return otherwise;
    }
}

PlimError FromOSErr(int error, PlimError otherwise) {
    switch (error) {
    case noErr: return kPlimErrorNone;
    case paramErr:
    case nilHandleErr:
    case badDataRefErr:
    case badComponentInstance: return kPlimErrorInvalidArgument;
    case memFullErr:
    case memWZErr: return kPlimErrorOutOfMemory;
    case codecUnimpErr: return kPlimErrorUnsupportedLayout;
    case cantFindHandler:
    case invalidComponentID: return kPlimErrorUnsupportedFormat;
    case couldNotResolveDataRef: return kPlimErrorReadFailed;
    default: return otherwise;
    }
}

Mark::Mark() : error_(tState.error), serial_(tState.serial) {}

bool Mark::Recorded() const { return tState.serial != serial_; }

void Mark::Fallback(PlimError reason) const {
    if (!Recorded()) Record(reason);
}

void Mark::Restore() const {
    tState.error = error_;
    tState.serial = serial_;
}

}  // namespace plim::errors

extern "C" {

PLIM_EXPORT PlimError PlimGetLastError(void) { return plim::errors::tState.error; }

PLIM_EXPORT void PlimClearLastError(void) { plim::errors::tState.error = kPlimErrorNone; }

PLIM_EXPORT const char *PlimGetErrorText(PlimError error) {
    switch (error) {
    case kPlimErrorNone: return "no error";
    case kPlimErrorInvalidArgument: return "invalid argument";
    case kPlimErrorOutOfMemory: return "out of memory";
    case kPlimErrorFileNotFound: return "file not found";
    case kPlimErrorNotRegularFile: return "not a regular file";
    case kPlimErrorPermissionDenied: return "permission denied";
    case kPlimErrorReadFailed: return "the file could not be read";
    case kPlimErrorEmpty: return "the data is empty";
    case kPlimErrorTruncated: return "the data is truncated";
    case kPlimErrorCorrupt: return "the data is corrupt";
    case kPlimErrorUnsupportedFormat: return "unsupported format";
    case kPlimErrorTooLarge: return "the image is too large";
    case kPlimErrorUnsupportedLayout: return "unsupported pixel layout";
    case kPlimErrorNoPixels: return "the image has no pixels";
    case kPlimErrorInvalidProfile: return "invalid colour profile";
    case kPlimErrorEncoderFailed: return "the encoder failed";
    case kPlimErrorWriteFailed: return "the file could not be written";
    case kPlimErrorTimedOut: return "timed out writing the file";
    }
    return "unknown error";
}

}  // extern "C"
