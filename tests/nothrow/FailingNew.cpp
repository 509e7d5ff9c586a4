// Kept out of the tests' own file so that no allocation of theirs is inlined against it.
#include "nothrow/FailingNew.h"

#include <cstdlib>
#include <new>

namespace {
thread_local long gCalls = 0;
thread_local long gFailFrom = -1;
}  // namespace

namespace nothrow_test {

long Calls() { return gCalls; }

void Arm(long from) {
    gCalls = 0;
    gFailFrom = from;
}

}  // namespace nothrow_test

void *operator new(std::size_t size) {
    const long call = gCalls++;
    if (gFailFrom >= 0 && call >= gFailFrom) throw std::bad_alloc();
    if (void *p = std::malloc(size ? size : 1)) return p;
    throw std::bad_alloc();
}
void operator delete(void *p) noexcept { std::free(p); }
void operator delete(void *p, std::size_t) noexcept { std::free(p); }
