// Internals shared by the runtime's own types: fixed identifiers for the built-in classes and the
// header flags.
#pragma once

#include <PlimBitmapLib/platform/CFRuntime.h>

namespace plim::runtime {

// Built-in types have fixed identifiers so that static objects (the allocators, constant
// strings) can carry their type from the start. Registered types follow them.
enum BuiltinTypeID : CFTypeID {
    kAllocatorTypeID = 1,
    kStringTypeID,
    kDataTypeID,
    kURLTypeID,
    kReadStreamTypeID,
    kWriteStreamTypeID,
    kFirstRegisteredTypeID = 16
};

// Header flags.
constexpr uint32_t kImmortal = 1u << 0;  // retain and release do nothing; never freed

extern const CFRuntimeClass kAllocatorClass;
extern const CFRuntimeClass kStringClass;
extern const CFRuntimeClass kDataClass;
extern const CFRuntimeClass kURLClass;
extern const CFRuntimeClass kReadStreamClass;
extern const CFRuntimeClass kWriteStreamClass;

inline const CFRuntimeBase *Base(CFTypeRef cf) { return static_cast<const CFRuntimeBase *>(cf); }

// True when `allocator` is one of the process's own heap allocators, which objects do not retain.
bool IsStaticAllocator(CFAllocatorRef allocator);

// Size of an object's fields after the header, checked: false when it does not fit.
bool InstanceSize(CFIndex extraBytes, CFIndex *total);

}  // namespace plim::runtime
