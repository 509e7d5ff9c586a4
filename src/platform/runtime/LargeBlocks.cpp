#include "platform/runtime/LargeBlocks.h"

#include <cstdint>
#include <cstdlib>

#if defined(__linux__)
#include <sys/mman.h>
#endif

namespace plim::runtime {

namespace {

void AdviseHugePages([[maybe_unused]] void *block, [[maybe_unused]] size_t size) {
#if defined(__linux__) && defined(MADV_HUGEPAGE)
    if (block && size >= kLargeBlockBytes) {
        // Only whole huge pages inside the block; the advice is a hint, and its failure harmless.
        constexpr uintptr_t kHugePage = uintptr_t{2} << 20;
        const uintptr_t start = (reinterpret_cast<uintptr_t>(block) + kHugePage - 1) & ~(kHugePage - 1);
        const uintptr_t end = (reinterpret_cast<uintptr_t>(block) + size) & ~(kHugePage - 1);
        if (end > start) madvise(reinterpret_cast<void *>(start), end - start, MADV_HUGEPAGE);
    }
#endif
}

}  // namespace

void *AllocateBlock(size_t size) {
    void *block = std::malloc(size);
    AdviseHugePages(block, size);
    return block;
}

void *ReallocateBlock(void *block, size_t size) {
    void *moved = std::realloc(block, size);
    AdviseHugePages(moved, size);
    return moved;
}

}  // namespace plim::runtime
