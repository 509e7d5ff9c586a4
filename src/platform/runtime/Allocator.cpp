// Allocators: the C heap by default, and allocators made from caller callbacks.
#include "RuntimeInternal.h"
#include "platform/runtime/Errors.h"
#include "platform/runtime/LargeBlocks.h"

#include <PlimBitmapLib/platform/CFString.h>

#include <cstdlib>
#include <cstring>

struct __CFAllocator {
    CFRuntimeBase base;
    CFAllocatorContext context;
};

namespace plim::runtime {
namespace {

void *HeapAllocate(CFIndex size, CFOptionFlags, void *) {
    return AllocateBlock(static_cast<size_t>(size));
}
void *HeapReallocate(void *ptr, CFIndex size, CFOptionFlags, void *) {
    return ReallocateBlock(ptr, static_cast<size_t>(size));
}
void HeapDeallocate(void *ptr, void *) { std::free(ptr); }

void *NullAllocate(CFIndex, CFOptionFlags, void *) { return nullptr; }
void *NullReallocate(void *, CFIndex, CFOptionFlags, void *) { return nullptr; }
void NullDeallocate(void *, void *) {}

constexpr CFRuntimeBase StaticHeader() { return CFRuntimeBase{kAllocatorTypeID, nullptr, 1, kImmortal}; }

__CFAllocator gSystemAllocator = {
    StaticHeader(),
    {0, nullptr, nullptr, nullptr, nullptr, HeapAllocate, HeapReallocate, HeapDeallocate, nullptr}};
__CFAllocator gMallocAllocator = {
    StaticHeader(),
    {0, nullptr, nullptr, nullptr, nullptr, HeapAllocate, HeapReallocate, HeapDeallocate, nullptr}};
__CFAllocator gNullAllocator = {
    StaticHeader(),
    {0, nullptr, nullptr, nullptr, nullptr, NullAllocate, NullReallocate, NullDeallocate, nullptr}};

const CFAllocatorContext &ContextOf(CFAllocatorRef allocator) {
    return (allocator ? allocator : &gSystemAllocator)->context;
}

void AllocatorFinalize(CFTypeRef cf) {
    auto *allocator = static_cast<const __CFAllocator *>(cf);
    if (allocator->context.release) allocator->context.release(allocator->context.info);
}

CFStringRef AllocatorCopyDescription(CFTypeRef cf) {
    return CFStringCreateWithFormat(kCFAllocatorDefault, nullptr, CFSTR("<CFAllocator %p>"), cf);
}

}  // namespace

const CFRuntimeClass kAllocatorClass = {
    0, "CFAllocator", nullptr, nullptr, AllocatorFinalize, nullptr, nullptr, nullptr,
    AllocatorCopyDescription};

bool IsStaticAllocator(CFAllocatorRef allocator) {
    return allocator == &gSystemAllocator || allocator == &gMallocAllocator ||
           allocator == &gNullAllocator;
}

}  // namespace plim::runtime

using namespace plim::runtime;

extern "C" {

const CFAllocatorRef kCFAllocatorSystemDefault = &gSystemAllocator;
const CFAllocatorRef kCFAllocatorMalloc = &gMallocAllocator;
const CFAllocatorRef kCFAllocatorNull = &gNullAllocator;

CFTypeID CFAllocatorGetTypeID(void) { return kAllocatorTypeID; }

CFAllocatorRef CFAllocatorGetDefault(void) { return kCFAllocatorSystemDefault; }

CFAllocatorRef CFAllocatorCreate(CFAllocatorRef allocator, CFAllocatorContext *context) {
    if (!context || !context->allocate) return nullptr;
    auto *created = static_cast<__CFAllocator *>(const_cast<void *>(_CFRuntimeCreateInstance(
        allocator, kAllocatorTypeID, sizeof(__CFAllocator) - sizeof(CFRuntimeBase), nullptr)));
    if (!created) return nullptr;
    created->context = *context;
    if (context->retain && context->info)
        created->context.info = const_cast<void *>(context->retain(context->info));
    return created;
}

void *CFAllocatorAllocate(CFAllocatorRef allocator, CFIndex size, CFOptionFlags hint) {
    if (size <= 0) return nullptr;
    const CFAllocatorContext &context = ContextOf(allocator);
    void *memory = context.allocate(size, hint, context.info);
    if (!memory) plim::errors::Record(kPlimErrorOutOfMemory);
    return memory;
}

void *CFAllocatorReallocate(CFAllocatorRef allocator, void *ptr, CFIndex newsize,
                            CFOptionFlags hint) {
    if (!ptr) return CFAllocatorAllocate(allocator, newsize, hint);
    if (newsize <= 0) {
        CFAllocatorDeallocate(allocator, ptr);
        return nullptr;
    }
    const CFAllocatorContext &context = ContextOf(allocator);
    void *memory = context.reallocate ? context.reallocate(ptr, newsize, hint, context.info) : nullptr;
    if (!memory) plim::errors::Record(kPlimErrorOutOfMemory);
    return memory;
}

void CFAllocatorDeallocate(CFAllocatorRef allocator, void *ptr) {
    if (!ptr) return;
    const CFAllocatorContext &context = ContextOf(allocator);
    if (context.deallocate) context.deallocate(ptr, context.info);
}

void CFAllocatorGetContext(CFAllocatorRef allocator, CFAllocatorContext *context) {
    if (context) *context = ContextOf(allocator);
}

}  // extern "C"
