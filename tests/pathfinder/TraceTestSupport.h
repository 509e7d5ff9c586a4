// Building alpha masks as images, tracing them with the log captured, and reading paths back.
#pragma once

#include <PlimBitmapLib/PlimBitmapLib.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "platform/runtime/CFRef.h"

namespace plim::test {

using ImageRef = plim::CFRef<PlimCFImage>;

// A premultiplied ARGB image whose alpha bytes are `alpha` (rows top first), colour 0.
inline ImageRef MakeAlphaImage(UInt32 width, UInt32 height, const std::vector<UInt8> &alpha,
                               CFAllocatorRef allocator = nullptr) {
    std::vector<UInt8> bytes(static_cast<size_t>(width) * height * 4, 0);
    for (size_t i = 0; i < alpha.size(); ++i) bytes[i * 4] = alpha[i];
    return ImageRef(PlimCFImageCreateWithBuffer(allocator, bytes.data(), width, height, 8, 32, width * 4, nullptr,
                                                kCGImageAlphaPremultipliedFirst));
}

// A mask from text rows: '#' fully solid, anything else transparent.
inline ImageRef MakeMask(const std::vector<std::string> &rows) {
    std::vector<UInt8> alpha;
    for (const std::string &row : rows)
        for (char c : row) alpha.push_back(c == '#' ? 255 : 0);
    return MakeAlphaImage(static_cast<UInt32>(rows[0].size()), static_cast<UInt32>(rows.size()), alpha);
}

inline std::string SVG(CGPathRef path) {
    CFStringRef text = PlimCGPathCopySVGString(path);
    if (!text) return "(null)";
    char buffer[1 << 16];
    std::string result = CFStringGetCString(text, buffer, sizeof buffer, kCFStringEncodingASCII) ? buffer : "(long)";
    CFRelease(text);
    return result;
}

struct TraceResult {
    bool isNull = true;
    std::string svg;  // the path as SVG path data
    std::string log;  // everything written to standard output
};

inline TraceResult Trace(PlimCFImage image, float threshold) {
    TraceResult result;
    ::testing::internal::CaptureStdout();
    CGMutablePathRef path = PlimCFImageCopyAlphaPath(image, threshold);
    std::fflush(stdout);
    result.log = ::testing::internal::GetCapturedStdout();
    result.isNull = path == nullptr;
    if (path) {
        result.svg = SVG(path);
        CGPathRelease(path);
    }
    return result;
}

}  // namespace plim::test
