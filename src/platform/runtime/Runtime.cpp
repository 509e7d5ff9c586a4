// Type registry, instance creation and the calls every object answers.
#include "RuntimeInternal.h"
#include "platform/runtime/Errors.h"

#include <PlimBitmapLib/platform/CFString.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <mutex>

namespace plim::runtime {
namespace {

constexpr CFTypeID kMaxTypes = 1024;

// Registered classes; written once per identifier under the mutex, read without it (a type's
// objects exist only after its registration returned).
std::atomic<const CFRuntimeClass *> gClasses[kMaxTypes];
std::atomic<CFTypeID> gNextTypeID{kFirstRegisteredTypeID};
std::mutex gRegisterMutex;

std::atomic_ref<uint32_t> RefCount(CFTypeRef cf) {
    return std::atomic_ref<uint32_t>(const_cast<CFRuntimeBase *>(Base(cf))->_rc);
}

void Destroy(CFTypeRef cf) {
    const CFRuntimeClass *cls = _CFRuntimeGetClassWithTypeID(Base(cf)->_typeID);
    if (cls && cls->finalize) cls->finalize(cf);
    CFAllocatorRef allocator = Base(cf)->_allocator;
    CFAllocatorDeallocate(allocator, const_cast<void *>(cf));
    if (allocator) CFRelease(allocator);
}

}  // namespace

bool InstanceSize(CFIndex extraBytes, CFIndex *total) {
    constexpr CFIndex kMaxExtra = CFIndex(1) << 40;
    if (extraBytes < 0 || extraBytes > kMaxExtra) return false;
    *total = static_cast<CFIndex>(sizeof(CFRuntimeBase)) + extraBytes;
    return true;
}

}  // namespace plim::runtime

using namespace plim::runtime;

extern "C" {

const CFRuntimeClass *_CFRuntimeGetClassWithTypeID(CFTypeID typeID) {
    switch (typeID) {
        case kAllocatorTypeID: return &kAllocatorClass;
        case kStringTypeID: return &kStringClass;
        case kDataTypeID: return &kDataClass;
        case kURLTypeID: return &kURLClass;
        case kReadStreamTypeID: return &kReadStreamClass;
        case kWriteStreamTypeID: return &kWriteStreamClass;
        default: break;
    }
    if (typeID < kFirstRegisteredTypeID || typeID >= kMaxTypes) return nullptr;
    return gClasses[typeID].load(std::memory_order_acquire);
}

CFTypeID _CFRuntimeRegisterClass(const CFRuntimeClass *const cls) {
    if (!cls || !cls->className) return _kCFRuntimeNotATypeID;
    std::lock_guard<std::mutex> lock(gRegisterMutex);
    CFTypeID id = gNextTypeID.load(std::memory_order_relaxed);
    if (id >= kMaxTypes) return _kCFRuntimeNotATypeID;
    gClasses[id].store(cls, std::memory_order_release);
    gNextTypeID.store(id + 1, std::memory_order_relaxed);
    return id;
}

CFTypeRef _CFRuntimeCreateInstance(CFAllocatorRef allocator, CFTypeID typeID, CFIndex extraBytes,
                                   unsigned char *) {
    const CFRuntimeClass *cls = _CFRuntimeGetClassWithTypeID(typeID);
    CFIndex size = 0;
    if (!cls || !InstanceSize(extraBytes, &size)) return plim::errors::Fail(kPlimErrorInvalidArgument, nullptr);
    // The null allocator hands out nothing, as if memory had run out.
    if (allocator == kCFAllocatorNull) return plim::errors::Fail(kPlimErrorOutOfMemory, nullptr);
    void *memory = CFAllocatorAllocate(allocator, size, 0);
    if (!memory) return nullptr;
    std::memset(memory, 0, static_cast<size_t>(size));
    auto *base = static_cast<CFRuntimeBase *>(memory);
    base->_typeID = typeID;
    base->_rc = 1;
    if (allocator && !IsStaticAllocator(allocator)) {
        CFRetain(allocator);
        base->_allocator = allocator;
    }
    if (cls->init) cls->init(memory);
    return memory;
}

CFTypeID CFGetTypeID(CFTypeRef cf) { return Base(cf)->_typeID; }

CFTypeRef CFRetain(CFTypeRef cf) {
    if (!(Base(cf)->_flags & kImmortal)) RefCount(cf).fetch_add(1, std::memory_order_relaxed);
    return cf;
}

void CFRelease(CFTypeRef cf) {
    if (Base(cf)->_flags & kImmortal) return;
    uint32_t before = RefCount(cf).fetch_sub(1, std::memory_order_acq_rel);
    if (before == 1) Destroy(cf);
}

CFIndex CFGetRetainCount(CFTypeRef cf) {
    if (Base(cf)->_flags & kImmortal) return static_cast<CFIndex>(INT32_MAX);
    return static_cast<CFIndex>(RefCount(cf).load(std::memory_order_relaxed));
}

Boolean CFEqual(CFTypeRef cf1, CFTypeRef cf2) {
    if (cf1 == cf2) return true;
    if (!cf1 || !cf2 || Base(cf1)->_typeID != Base(cf2)->_typeID) return false;
    const CFRuntimeClass *cls = _CFRuntimeGetClassWithTypeID(Base(cf1)->_typeID);
    return cls && cls->equal ? cls->equal(cf1, cf2) : false;
}

CFHashCode CFHash(CFTypeRef cf) {
    const CFRuntimeClass *cls = _CFRuntimeGetClassWithTypeID(Base(cf)->_typeID);
    if (cls && cls->hash) return cls->hash(cf);
    return static_cast<CFHashCode>(reinterpret_cast<uintptr_t>(cf));
}

CFStringRef CFCopyDescription(CFTypeRef cf) {
    if (!cf) return nullptr;
    const CFRuntimeClass *cls = _CFRuntimeGetClassWithTypeID(Base(cf)->_typeID);
    CFStringRef text = nullptr;
    if (cls && cls->copyDebugDesc) text = cls->copyDebugDesc(cf);
    if (!text && cls && cls->copyFormattingDesc) text = cls->copyFormattingDesc(cf, nullptr);
    if (text) return text;
    return CFStringCreateWithFormat(kCFAllocatorDefault, nullptr, CFSTR("<%s %p [%p]>"),
                                    cls ? cls->className : "CFType", cf,
                                    static_cast<const void *>(CFGetAllocator(cf)));
}

CFStringRef CFCopyTypeIDDescription(CFTypeID typeID) {
    const CFRuntimeClass *cls = _CFRuntimeGetClassWithTypeID(typeID);
    return cls ? CFStringCreateWithCString(kCFAllocatorDefault, cls->className,
                                           kCFStringEncodingUTF8)
               : nullptr;
}

CFAllocatorRef CFGetAllocator(CFTypeRef cf) {
    CFAllocatorRef allocator = Base(cf)->_allocator;
    return allocator ? allocator : kCFAllocatorSystemDefault;
}

void CFShow(CFTypeRef cf) {
    if (!cf) {
        std::fputs("(null)\n", stderr);
        return;
    }
    CFStringRef text = CFCopyDescription(cf);
    const char *bytes = text ? CFStringGetCStringPtr(text, kCFStringEncodingUTF8) : nullptr;
    std::fprintf(stderr, "%s\n", bytes ? bytes : "(no description)");
    if (text) CFRelease(text);
}

}  // extern "C"
