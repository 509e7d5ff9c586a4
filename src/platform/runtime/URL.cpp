// File URLs: a POSIX path, and the "file://" text made from it once.
#include "RuntimeInternal.h"
#include "StringInternal.h"

#include <PlimBitmapLib/platform/CFURL.h>

#include <unistd.h>

#include <cctype>
#include <cstring>
#include <new>
#include <string>

struct __CFURL {
    CFRuntimeBase base;
    CFStringRef path;    // as given, without trailing slashes (except "/")
    CFStringRef string;  // "file://" + absolute path, escaped
    bool isDirectory;
};

namespace plim::runtime {
namespace {

std::string Escape(const std::string &path) {
    static const char kHex[] = "0123456789ABCDEF";
    std::string out;
    for (unsigned char c : path) {
        if (std::isalnum(c) || std::strchr("/-._~!$&'()*+,;=:@", c)) {
            out.push_back(static_cast<char>(c));
        } else {
            out.push_back('%');
            out.push_back(kHex[c >> 4]);
            out.push_back(kHex[c & 15]);
        }
    }
    return out;
}

void URLFinalize(CFTypeRef cf) {
    auto *url = static_cast<__CFURL *>(const_cast<void *>(cf));
    if (url->path) CFRelease(url->path);
    if (url->string) CFRelease(url->string);
}

Boolean URLEqual(CFTypeRef a, CFTypeRef b) {
    auto *ua = static_cast<const __CFURL *>(a);
    auto *ub = static_cast<const __CFURL *>(b);
    return ua->isDirectory == ub->isDirectory && CFEqual(ua->string, ub->string);
}

CFHashCode URLHash(CFTypeRef cf) { return CFHash(static_cast<const __CFURL *>(cf)->string); }

CFStringRef URLCopyDescription(CFTypeRef cf) {
    return CFStringCreateCopy(kCFAllocatorDefault, static_cast<const __CFURL *>(cf)->string);
}

CFStringRef URLCopyFormattingDesc(CFTypeRef cf, CFDictionaryRef) { return URLCopyDescription(cf); }

}  // namespace

const CFRuntimeClass kURLClass = {0, "CFURL", nullptr, nullptr, URLFinalize, URLEqual, URLHash,
                                  URLCopyFormattingDesc, URLCopyDescription};

}  // namespace plim::runtime

using namespace plim::runtime;

extern "C" {

CFTypeID CFURLGetTypeID(void) { return kURLTypeID; }

CFURLRef CFURLCreateFromFileSystemRepresentation(CFAllocatorRef allocator, const UInt8 *buffer,
                                                 CFIndex bufLen, Boolean isDirectory) {
    if (!buffer || bufLen <= 0) return nullptr;
    try {
        std::string path(reinterpret_cast<const char *>(buffer), static_cast<size_t>(bufLen));
        if (path.find('\0') != std::string::npos) return nullptr;
        while (path.size() > 1 && path.back() == '/') path.pop_back();
        std::string absolute = path;
        if (absolute[0] != '/') {
            char cwd[4096];
            if (!getcwd(cwd, sizeof cwd)) return nullptr;
            absolute = std::string(cwd) + (std::strcmp(cwd, "/") == 0 ? "" : "/") + path;
        }
        std::string text = "file://" + Escape(absolute);
        if (isDirectory && absolute != "/") text.push_back('/');

        auto *url = static_cast<__CFURL *>(const_cast<void *>(_CFRuntimeCreateInstance(
            allocator, kURLTypeID, sizeof(__CFURL) - sizeof(CFRuntimeBase), nullptr)));
        if (!url) return nullptr;
        url->isDirectory = isDirectory;
        CFAllocatorRef alloc = CFGetAllocator(url);
        url->path = CFStringCreateWithBytes(alloc, reinterpret_cast<const UInt8 *>(path.data()),
                                            static_cast<CFIndex>(path.size()), kCFStringEncodingUTF8, false);
        url->string = url->path ? CFStringCreateWithBytes(alloc, reinterpret_cast<const UInt8 *>(text.data()),
                                                          static_cast<CFIndex>(text.size()),
                                                          kCFStringEncodingUTF8, false)
                                : nullptr;
        if (!url->string) {
            CFRelease(url);
            return nullptr;
        }
        return url;
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
}

CFURLRef CFURLCreateWithFileSystemPath(CFAllocatorRef allocator, CFStringRef filePath,
                                       CFURLPathStyle pathStyle, Boolean isDirectory) {
    if (!filePath || pathStyle != kCFURLPOSIXPathStyle) return nullptr;
    CFIndex n;
    const char *bytes = StringBytes(filePath, &n);
    return CFURLCreateFromFileSystemRepresentation(allocator, reinterpret_cast<const UInt8 *>(bytes), n,
                                                   isDirectory);
}

CFStringRef CFURLCopyFileSystemPath(CFURLRef url, CFURLPathStyle pathStyle) {
    if (pathStyle != kCFURLPOSIXPathStyle) return nullptr;
    return CFStringCreateCopy(CFGetAllocator(url), url->path);
}

Boolean CFURLGetFileSystemRepresentation(CFURLRef url, Boolean, UInt8 *buffer, CFIndex maxBufLen) {
    CFIndex n;
    const char *bytes = StringBytes(url->path, &n);
    if (!buffer || n + 1 > maxBufLen) return false;
    std::memcpy(buffer, bytes, static_cast<size_t>(n) + 1);
    return true;
}

CFStringRef CFURLCopyLastPathComponent(CFURLRef url) {
    CFIndex n;
    const char *bytes = StringBytes(url->path, &n);
    CFIndex start = n;
    while (start > 0 && bytes[start - 1] != '/') --start;
    if (start == n) return CFStringCreateCopy(CFGetAllocator(url), url->path);  // "/"
    return CFStringCreateWithBytes(CFGetAllocator(url), reinterpret_cast<const UInt8 *>(bytes + start),
                                   n - start, kCFStringEncodingUTF8, false);
}

CFStringRef CFURLCopyPathExtension(CFURLRef url) {
    CFIndex n;
    const char *bytes = StringBytes(url->path, &n);
    CFIndex start = n;
    while (start > 0 && bytes[start - 1] != '/') --start;
    // A leading dot names a hidden file, not an extension; an empty extension is none.
    for (CFIndex i = n - 1; i > start; --i) {
        if (bytes[i] == '.') {
            if (i + 1 == n) return nullptr;
            return CFStringCreateWithBytes(CFGetAllocator(url), reinterpret_cast<const UInt8 *>(bytes + i + 1),
                                           n - i - 1, kCFStringEncodingUTF8, false);
        }
    }
    return nullptr;
}

CFStringRef CFURLGetString(CFURLRef url) { return url->string; }

Boolean CFURLHasDirectoryPath(CFURLRef url) { return url->isDirectory; }

}  // extern "C"
