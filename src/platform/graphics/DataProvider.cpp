// Data providers: bytes handed to rendered images, released exactly once.
#include "platform/graphics/GraphicsTypes.h"
#include "platform/runtime/Errors.h"
#include "platform/runtime/NoThrow.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <mutex>

#include <sys/stat.h>

namespace {

// Room for a whole regular file and one byte more, so that reading it moves nothing; a block of
// 64 KB to start from for anything else.
size_t FirstCapacity(std::FILE *file) {
    struct stat info;
    if (fstat(fileno(file), &info) == 0 && S_ISREG(info.st_mode) && info.st_size >= 0 &&
        static_cast<uint64_t>(info.st_size) < std::numeric_limits<uint32_t>::max())
        return static_cast<size_t>(info.st_size) + 1;
    return size_t{1} << 16;
}

void ProviderFinalize(CFTypeRef cf) {
    auto *provider = static_cast<CGDataProvider *>(const_cast<void *>(cf));
    if (provider->releaseData) {
        CGDataProviderReleaseDataCallback release = provider->releaseData;
        provider->releaseData = nullptr;
        release(provider->info, provider->data, provider->size);
    }
    CGDataProviderRelease(provider->remakeSource);
}

// Remaking is rare (a picture read again after its bytes were handed over): one lock for all.
std::mutex gRemakeLock;

CFStringRef ProviderCopyDescription(CFTypeRef cf, CFDictionaryRef options) {
    auto *provider = static_cast<const CGDataProvider *>(cf);
    return CFStringCreateWithFormat(CFGetAllocator(cf), options,
                                    CFSTR("<CGDataProvider %p> (%zu bytes)"), cf, provider->size);
}

CFStringRef ProviderCopyDebugDescription(CFTypeRef cf) {
    return ProviderCopyDescription(cf, nullptr);
}

const CFRuntimeClass kProviderClass = {
    0,       "CGDataProvider",        nullptr,
    nullptr, ProviderFinalize,        nullptr,
    nullptr, ProviderCopyDescription, ProviderCopyDebugDescription};

void FreeBytes(void *, const void *data, size_t) { std::free(const_cast<void *>(data)); }

void ReleaseCFData(void *info, const void *, size_t) { CFRelease(static_cast<CFDataRef>(info)); }

// The whole file, or null with the reason recorded. Files past the 32-bit size limit are refused.
void *ReadFile(const char *path, size_t *size) {
    using plim::errors::FromErrno;
    std::FILE *file = std::fopen(path, "rb");
    if (!file) return plim::errors::Fail(FromErrno(errno, kPlimErrorReadFailed), nullptr);
    size_t capacity = FirstCapacity(file), used = 0;
    auto *bytes = static_cast<unsigned char *>(std::malloc(capacity));
    if (!bytes) plim::errors::Record(kPlimErrorOutOfMemory);
    while (bytes) {
        if (used == capacity) {
            if (capacity > std::numeric_limits<uint32_t>::max() / 2) {
                std::free(bytes);
                bytes = plim::errors::Fail(kPlimErrorTooLarge, nullptr);
                break;
            }
            void *grown = std::realloc(bytes, capacity * 2);
            if (!grown) {
                std::free(bytes);
                bytes = plim::errors::Fail(kPlimErrorOutOfMemory, nullptr);
                break;
            }
            bytes = static_cast<unsigned char *>(grown);
            capacity *= 2;
        }
        size_t got = std::fread(bytes + used, 1, capacity - used, file);
        used += got;
        if (got == 0) {
            if (std::ferror(file)) {
                plim::errors::Record(FromErrno(errno, kPlimErrorReadFailed));
                std::free(bytes);
                bytes = nullptr;
            }
            break;
        }
    }
    std::fclose(file);
    *size = used;
    return bytes;
}

}  // namespace

namespace plim::graphics {

bool EnsureProviderData(CGDataProvider *provider) {
    if (ProviderData(provider) || !provider->remake) return true;
    return plim::NoThrow(false, [provider] {
        std::lock_guard<std::mutex> lock(gRemakeLock);
        if (ProviderData(provider)) return true;
        void *block = nullptr;
        if (!provider->remake(provider->remakeSource, &block, provider->size)) return false;
        __atomic_store_n(&provider->data, static_cast<const void *>(block), __ATOMIC_RELEASE);
        return true;
    });
}

void *TakeImagePixels(CGImageRef image, size_t size) {
    CGDataProvider *provider = image ? image->provider : nullptr;
    if (!provider || !provider->remake || provider->size != size || CFGetRetainCount(image) != 1 ||
        CFGetRetainCount(provider) != 1)
        return nullptr;
    return const_cast<void *>(__atomic_exchange_n(&provider->data, static_cast<const void *>(nullptr),
                                                  __ATOMIC_ACQ_REL));
}

}  // namespace plim::graphics

extern "C" {

PLIM_EXPORT CFTypeID CGDataProviderGetTypeID(void) {
    static const CFTypeID id = _CFRuntimeRegisterClass(&kProviderClass);
    return id;
}

PLIM_EXPORT CGDataProviderRef CGDataProviderCreateWithData(
    void *info, const void *data, size_t size, CGDataProviderReleaseDataCallback releaseData) {
    auto *provider = static_cast<CGDataProvider *>(const_cast<void *>(
        _CFRuntimeCreateInstance(nullptr, CGDataProviderGetTypeID(),
                                 sizeof(CGDataProvider) - sizeof(CFRuntimeBase), nullptr)));
    if (!provider) return nullptr;
    provider->data = data;
    provider->size = data ? size : 0;
    provider->info = info;
    provider->releaseData = releaseData;
    return provider;
}

PLIM_EXPORT CGDataProviderRef CGDataProviderCreateWithCFData(CFDataRef data) {
    if (!data) return nullptr;
    CFIndex length = CFDataGetLength(data);
    CGDataProviderRef provider = CGDataProviderCreateWithData(
        const_cast<void *>(static_cast<const void *>(data)), CFDataGetBytePtr(data),
        static_cast<size_t>(length), ReleaseCFData);
    if (provider) CFRetain(data);
    return provider;
}

PLIM_EXPORT CGDataProviderRef CGDataProviderCreateWithURL(CFURLRef url) {
    if (!url) return nullptr;
    char path[4096];
    if (!CFURLGetFileSystemRepresentation(url, true, reinterpret_cast<UInt8 *>(path),
                                          sizeof path)) {
        return nullptr;
    }
    size_t size = 0;
    void *bytes = ReadFile(path, &size);
    if (!bytes) return nullptr;
    CGDataProviderRef provider = CGDataProviderCreateWithData(nullptr, bytes, size, FreeBytes);
    if (!provider) std::free(bytes);
    return provider;
}

PLIM_EXPORT CGDataProviderRef CGDataProviderRetain(CGDataProviderRef provider) {
    if (provider) CFRetain(provider);
    return provider;
}

PLIM_EXPORT void CGDataProviderRelease(CGDataProviderRef provider) {
    if (provider) CFRelease(provider);
}

PLIM_EXPORT CFDataRef CGDataProviderCopyData(CGDataProviderRef provider) {
    if (!provider || !plim::graphics::EnsureProviderData(provider)) return nullptr;
    if (provider->size > static_cast<size_t>(std::numeric_limits<CFIndex>::max())) return nullptr;
    return CFDataCreate(nullptr, plim::graphics::ProviderData(provider),
                        static_cast<CFIndex>(provider->size));
}

}  // extern "C"
