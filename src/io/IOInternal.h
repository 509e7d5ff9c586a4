// Shared four-character codes of the loaders and exporters, and the step from a path to a file URL.
#pragma once

#include <PlimBitmapLib/platform/CFURL.h>
#include <PlimBitmapLib/platform/MacTypes.h>

#include "platform/runtime/Errors.h"

namespace plim::io {

constexpr OSType kSubtypePICT = 0x50494354;  // 'PICT'
constexpr OSType kSubtypePCT = 0x50435420;   // 'PCT '
constexpr OSType kSubtypePNG = 0x504E4766;   // 'PNGf'
constexpr OSType kSubtypeJPEG = 0x4A504547;  // 'JPEG'
constexpr OSType kSubtypeTIFF = 0x54494646;  // 'TIFF'
constexpr OSType kSubtypeWebP = 0x57454250;  // 'WEBP'

// Runs `withURL` on the file URL of a POSIX path (made with `allocator`) and returns what it
// returns; `failed` when there is no path or no URL can be made of it, with the reason recorded.
template <typename Result, typename WithURL>
Result WithFileURL(CFAllocatorRef allocator, CFStringRef path, Result failed, WithURL withURL) {
    if (!path) return errors::Fail(kPlimErrorInvalidArgument, failed);
    const errors::Mark mark;
    CFURLRef url = CFURLCreateWithFileSystemPath(allocator, path, kCFURLPOSIXPathStyle, false);
    if (!url) {
        mark.Fallback(kPlimErrorInvalidArgument);
        return failed;
    }
    Result result = withURL(url);
    CFRelease(url);
    return result;
}

}  // namespace plim::io
