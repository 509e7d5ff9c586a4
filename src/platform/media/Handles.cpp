// Memory handles: a handle points at its block's master pointer, so the bytes may move while
// the handle itself stays put.
#include <PlimBitmapLib/platform/MacMemory.h>

#include "platform/runtime/LargeBlocks.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

struct HandleBlock {
    Ptr master;  // must stay first: a Handle is the address of this field
    Size size;
    Size capacity;
    bool locked;
};

thread_local OSErr gMemError = noErr;

constexpr Size kMaxHandleSize = Size(1) << 40;

HandleBlock *BlockOf(Handle h) { return reinterpret_cast<HandleBlock *>(h); }

Handle Allocate(Size byteCount, bool clear) {
    if (byteCount < 0) {
        gMemError = paramErr;
        return nullptr;
    }
    if (byteCount > kMaxHandleSize) {
        gMemError = memFullErr;
        return nullptr;
    }
    auto *block = static_cast<HandleBlock *>(std::malloc(sizeof(HandleBlock)));
    // One byte at least, so that an empty handle still has a master pointer to lock.
    auto capacity = static_cast<size_t>(byteCount > 0 ? byteCount : 1);
    Ptr bytes = block ? static_cast<Ptr>(clear ? std::calloc(capacity, 1) : std::malloc(capacity)) : nullptr;
    if (!bytes) {
        std::free(block);
        gMemError = memFullErr;
        return nullptr;
    }
    *block = HandleBlock{bytes, byteCount, static_cast<Size>(capacity), false};
    gMemError = noErr;
    return &block->master;
}

}  // namespace

extern "C" {

Handle NewHandle(Size byteCount) { return Allocate(byteCount, false); }

Handle NewHandleClear(Size byteCount) { return Allocate(byteCount, true); }

void DisposeHandle(Handle h) {
    if (!h) {
        gMemError = nilHandleErr;
        return;
    }
    HandleBlock *block = BlockOf(h);
    std::free(block->master);
    std::free(block);
    gMemError = noErr;
}

Size GetHandleSize(Handle h) {
    if (!h) {
        gMemError = nilHandleErr;
        return 0;
    }
    gMemError = noErr;
    return BlockOf(h)->size;
}

void SetHandleSize(Handle h, Size newSize) {
    if (!h) {
        gMemError = nilHandleErr;
        return;
    }
    if (newSize < 0 || newSize > kMaxHandleSize) {
        gMemError = newSize < 0 ? paramErr : memFullErr;
        return;
    }
    HandleBlock *block = BlockOf(h);
    if (newSize > block->capacity) {
        if (block->locked) {  // the bytes would have to move
            gMemError = memFullErr;
            return;
        }
        Size capacity = block->capacity;
        while (capacity < newSize) capacity = capacity > kMaxHandleSize / 2 ? newSize : capacity * 2;
        auto *bytes = static_cast<Ptr>(plim::runtime::ReallocateBlock(block->master, static_cast<size_t>(capacity)));
        if (!bytes) {
            gMemError = memFullErr;
            return;
        }
        block->master = bytes;
        block->capacity = capacity;
    }
    if (newSize > block->size)
        std::memset(block->master + block->size, 0, static_cast<size_t>(newSize - block->size));
    block->size = newSize;
    gMemError = noErr;
}

void HLock(Handle h) {
    if (!h) {
        gMemError = nilHandleErr;
        return;
    }
    BlockOf(h)->locked = true;
    gMemError = noErr;
}

void HUnlock(Handle h) {
    if (!h) {
        gMemError = nilHandleErr;
        return;
    }
    BlockOf(h)->locked = false;
    gMemError = noErr;
}

OSErr PtrToHand(const void *srcPtr, Handle *dstHndl, long size) {
    if (!dstHndl || size < 0 || (!srcPtr && size > 0)) return gMemError = paramErr;
    *dstHndl = nullptr;
    Handle h = NewHandle(size);
    if (!h) return gMemError;
    if (size > 0) std::memcpy(*h, srcPtr, static_cast<size_t>(size));
    *dstHndl = h;
    return gMemError = noErr;
}

OSErr PtrAndHand(const void *ptr1, Handle hand2, long size) {
    if (!hand2) return gMemError = nilHandleErr;
    if (size < 0 || (!ptr1 && size > 0)) return gMemError = paramErr;
    Size old = BlockOf(hand2)->size;
    // The source may lie inside the handle itself.
    Ptr base = *hand2;
    auto src = reinterpret_cast<uintptr_t>(ptr1);
    bool inside = src >= reinterpret_cast<uintptr_t>(base) && src < reinterpret_cast<uintptr_t>(base + old);
    Size offset = inside ? static_cast<Size>(src - reinterpret_cast<uintptr_t>(base)) : 0;
    SetHandleSize(hand2, old + size);
    if (gMemError != noErr) return gMemError;
    if (size > 0) std::memmove(*hand2 + old, inside ? *hand2 + offset : static_cast<const char *>(ptr1),
                               static_cast<size_t>(size));
    return gMemError = noErr;
}

OSErr MemError(void) { return gMemError; }

}  // extern "C"
