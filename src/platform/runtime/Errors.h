// Why a call failed: the calling thread's last error, recorded where the cause of a failure is
// known. Layers below record precise reasons (a file that does not exist, a picture over the
// limit); a layer above that only learns that something failed records its general reason with
// Mark::Fallback, which keeps a precise one recorded since the mark.
#pragma once

#include <PlimBitmapLib/PlimErrors.h>

#include <cstdint>

namespace plim::errors {

// Makes `reason` the calling thread's last error.
void Record(PlimError reason);

// Records `reason` and returns `result`, for one-line failure returns.
template <typename T>
T Fail(PlimError reason, T result) {
    Record(reason);
    return result;
}

// The reason an errno value gives; `otherwise` for one that names no reason of its own.
PlimError FromErrno(int error, PlimError otherwise);
// The reason a media-layer result gives; `otherwise` for the codes that say only that the data
// (or the encoder) failed, such as codecBadDataErr.
PlimError FromOSErr(int error, PlimError otherwise);

// The thread's last error at one point of a call.
class Mark {
public:
    Mark();
    // Whether a reason has been recorded since the mark.
    bool Recorded() const;
    // Records `reason` unless one has been recorded since the mark.
    void Fallback(PlimError reason) const;
    // Puts back the error of the mark: for a call that recovered from a failure below it and
    // succeeds, so that it leaves the caller's last error alone.
    void Restore() const;

private:
    PlimError error_;
    uint32_t serial_;
};

}  // namespace plim::errors
