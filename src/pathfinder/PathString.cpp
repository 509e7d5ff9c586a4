// A path as SVG path data, so that a traced outline can be shown as a picture.
#include <PlimBitmapLib/PlimCFImageAlphaPath.h>

#include <cstdio>
#include <new>
#include <string>

namespace {

void AppendPoint(std::string &text, char command, const CGPoint &point) {
    // %.9g gives every float back exactly and whole numbers without a fraction.
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%s%c %.9g %.9g", text.empty() ? "" : " ", command,
                  static_cast<double>(point.x), static_cast<double>(point.y));
    text += buffer;
}

void AppendElement(void *info, const CGPathElement *element) {
    auto &text = *static_cast<std::string *>(info);
    switch (element->type) {
    case kCGPathElementMoveToPoint: AppendPoint(text, 'M', element->points[0]); break;
    case kCGPathElementAddLineToPoint: AppendPoint(text, 'L', element->points[0]); break;
    case kCGPathElementCloseSubpath: text += text.empty() ? "Z" : " Z"; break;
    default: break;  // paths here hold straight lines only
    }
}

}  // namespace

extern "C" CFStringRef PlimCGPathCopySVGString(CGPathRef path) {
    try {
        std::string text;
        CGPathApply(path, &text, AppendElement);
        return CFStringCreateWithCString(nullptr, text.c_str(), kCFStringEncodingASCII);
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
}
