// Data objects: immutable byte copies, caller bytes taken over, and growable byte buffers.
#include "RuntimeInternal.h"

#include <PlimBitmapLib/platform/CFData.h>
#include <PlimBitmapLib/platform/CFString.h>

#include <cstring>

struct __CFData {
    CFRuntimeBase base;
    UInt8 *bytes;
    CFIndex length;
    CFIndex allocated;                 // bytes allocated from the data's own allocator
    CFIndex capacity;                  // mutable: 0 = unlimited
    CFAllocatorRef bytesDeallocator;   // no-copy data: who frees `bytes` (retained if custom)
    bool isMutable;
    bool noCopy;
};

namespace plim::runtime {
namespace {

UInt8 gNoBytes[1] = {0};

__CFData *NewData(CFAllocatorRef allocator) {
    return static_cast<__CFData *>(const_cast<void *>(_CFRuntimeCreateInstance(
        allocator, kDataTypeID, sizeof(__CFData) - sizeof(CFRuntimeBase), nullptr)));
}

// Grows the storage to hold at least `length` bytes; false (data unchanged) when it cannot.
bool Reserve(__CFData *data, CFIndex length) {
    if (length <= data->allocated) return true;
    if (data->capacity > 0 && length > data->capacity) return false;
    constexpr CFIndex kMaxLength = CFIndex(1) << 46;
    if (length > kMaxLength) return false;
    CFIndex allocated = data->allocated > 0 ? data->allocated : 64;
    while (allocated < length) allocated *= 2;
    if (data->capacity > 0 && allocated > data->capacity) allocated = data->capacity;
    CFAllocatorRef alloc = CFGetAllocator(data);
    auto *bytes = static_cast<UInt8 *>(CFAllocatorAllocate(alloc, allocated, 0));
    if (!bytes) return false;
    if (data->length > 0) std::memcpy(bytes, data->bytes, static_cast<size_t>(data->length));
    if (data->bytes) CFAllocatorDeallocate(alloc, data->bytes);
    data->bytes = bytes;
    data->allocated = allocated;
    return true;
}

void DataFinalize(CFTypeRef cf) {
    auto *data = static_cast<__CFData *>(const_cast<void *>(cf));
    if (data->noCopy) {
        if (data->bytes) CFAllocatorDeallocate(data->bytesDeallocator, data->bytes);
        if (data->bytesDeallocator && !IsStaticAllocator(data->bytesDeallocator))
            CFRelease(data->bytesDeallocator);
    } else if (data->bytes) {
        CFAllocatorDeallocate(CFGetAllocator(cf), data->bytes);
    }
    data->bytes = nullptr;
}

Boolean DataEqual(CFTypeRef a, CFTypeRef b) {
    auto *da = static_cast<const __CFData *>(a);
    auto *db = static_cast<const __CFData *>(b);
    return da->length == db->length &&
           (da->length == 0 || std::memcmp(da->bytes, db->bytes, static_cast<size_t>(da->length)) == 0);
}

CFHashCode DataHash(CFTypeRef cf) {
    auto *data = static_cast<const __CFData *>(cf);
    uint32_t h = 2166136261u;
    CFIndex n = data->length < 80 ? data->length : 80;  // a prefix is enough to spread keys
    for (CFIndex i = 0; i < n; ++i) h = (h ^ data->bytes[i]) * 16777619u;
    return h ^ static_cast<uint32_t>(data->length);
}

CFStringRef DataCopyDescription(CFTypeRef cf) {
    auto *data = static_cast<const __CFData *>(cf);
    return CFStringCreateWithFormat(kCFAllocatorDefault, nullptr, CFSTR("<CFData %p [%p]>{length = %ld}"),
                                    cf, static_cast<const void *>(CFGetAllocator(cf)), data->length);
}

}  // namespace

const CFRuntimeClass kDataClass = {0, "CFData", nullptr, nullptr, DataFinalize, DataEqual, DataHash,
                                   nullptr, DataCopyDescription};

}  // namespace plim::runtime

using namespace plim::runtime;

extern "C" {

CFTypeID CFDataGetTypeID(void) { return kDataTypeID; }

CFDataRef CFDataCreate(CFAllocatorRef allocator, const UInt8 *bytes, CFIndex length) {
    if (length < 0 || (!bytes && length > 0)) return nullptr;
    __CFData *data = NewData(allocator);
    if (!data) return nullptr;
    if (length > 0) {
        data->bytes = static_cast<UInt8 *>(CFAllocatorAllocate(CFGetAllocator(data), length, 0));
        if (!data->bytes) {
            CFRelease(data);
            return nullptr;
        }
        std::memcpy(data->bytes, bytes, static_cast<size_t>(length));
        data->length = data->allocated = length;
    }
    return data;
}

CFDataRef CFDataCreateWithBytesNoCopy(CFAllocatorRef allocator, const UInt8 *bytes, CFIndex length,
                                      CFAllocatorRef bytesDeallocator) {
    if (length < 0 || (!bytes && length > 0)) return nullptr;
    __CFData *data = NewData(allocator);
    if (!data) return nullptr;
    data->noCopy = true;
    data->bytes = const_cast<UInt8 *>(bytes);
    data->length = length;
    if (bytesDeallocator && !IsStaticAllocator(bytesDeallocator)) CFRetain(bytesDeallocator);
    data->bytesDeallocator = bytesDeallocator;
    return data;
}

CFDataRef CFDataCreateCopy(CFAllocatorRef allocator, CFDataRef theData) {
    return CFDataCreate(allocator, CFDataGetBytePtr(theData), CFDataGetLength(theData));
}

CFMutableDataRef CFDataCreateMutable(CFAllocatorRef allocator, CFIndex capacity) {
    if (capacity < 0) return nullptr;
    __CFData *data = NewData(allocator);
    if (!data) return nullptr;
    data->isMutable = true;
    data->capacity = capacity;
    return data;
}

CFMutableDataRef CFDataCreateMutableCopy(CFAllocatorRef allocator, CFIndex capacity, CFDataRef theData) {
    CFIndex length = CFDataGetLength(theData);
    if (capacity > 0 && length > capacity) return nullptr;
    CFMutableDataRef data = CFDataCreateMutable(allocator, capacity);
    if (!data) return nullptr;
    if (length > 0) {
        if (!Reserve(data, length)) {
            CFRelease(data);
            return nullptr;
        }
        std::memcpy(data->bytes, CFDataGetBytePtr(theData), static_cast<size_t>(length));
        data->length = length;
    }
    return data;
}

CFIndex CFDataGetLength(CFDataRef theData) { return theData->length; }

const UInt8 *CFDataGetBytePtr(CFDataRef theData) {
    return theData->bytes ? theData->bytes : gNoBytes;
}

UInt8 *CFDataGetMutableBytePtr(CFMutableDataRef theData) {
    if (!theData->isMutable) return nullptr;
    return theData->bytes ? theData->bytes : gNoBytes;
}

void CFDataGetBytes(CFDataRef theData, CFRange range, UInt8 *buffer) {
    if (range.location < 0 || range.length <= 0 || range.location > theData->length ||
        range.length > theData->length - range.location || !buffer)
        return;
    std::memcpy(buffer, theData->bytes + range.location, static_cast<size_t>(range.length));
}

void CFDataSetLength(CFMutableDataRef theData, CFIndex length) {
    if (!theData->isMutable || length < 0) return;
    if (length > theData->length) {
        if (!Reserve(theData, length)) return;
        std::memset(theData->bytes + theData->length, 0, static_cast<size_t>(length - theData->length));
    }
    theData->length = length;
}

void CFDataIncreaseLength(CFMutableDataRef theData, CFIndex extraLength) {
    if (extraLength <= 0 || extraLength > (CFIndex(1) << 46)) return;
    CFDataSetLength(theData, theData->length + extraLength);
}

void CFDataAppendBytes(CFMutableDataRef theData, const UInt8 *bytes, CFIndex length) {
    if (!theData->isMutable || length <= 0 || !bytes || length > (CFIndex(1) << 46)) return;
    CFIndex old = theData->length;
    // `bytes` may point into this data object: keep its offset across a move.
    bool inside = theData->bytes && bytes >= theData->bytes && bytes < theData->bytes + old;
    CFIndex offset = inside ? bytes - theData->bytes : 0;
    if (!Reserve(theData, old + length)) return;
    const UInt8 *source = inside ? theData->bytes + offset : bytes;
    std::memmove(theData->bytes + old, source, static_cast<size_t>(length));
    theData->length = old + length;
}

}  // extern "C"
