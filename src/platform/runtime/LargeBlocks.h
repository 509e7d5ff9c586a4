// Heap blocks for whole pictures.
#pragma once

#include <cstddef>

namespace plim::runtime {

// std::malloc(size), released with std::free. Blocks of kLargeBlockBytes and more are asked to
// live in huge pages where the system offers them on request: a fresh 64 MB picture then costs
// a few dozen page faults instead of sixteen thousand, which is most of what writing it costs.
constexpr size_t kLargeBlockBytes = size_t{8} << 20;
void *AllocateBlock(size_t size);
// std::realloc(block, size), with the same advice for the block it returns.
void *ReallocateBlock(void *block, size_t size);

}  // namespace plim::runtime
