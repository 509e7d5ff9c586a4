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

namespace {

// Null once armed and past the chosen call, or when memory really runs out.
void *Allocate(std::size_t size) noexcept {
    const long call = gCalls++;
    if (gFailFrom >= 0 && call >= gFailFrom) return nullptr;
    return std::malloc(size ? size : 1);
}

void *AllocateOrThrow(std::size_t size) {
    if (void *p = Allocate(size)) return p;
    throw std::bad_alloc();
}

}  // namespace

// Every replaceable form but the aligned ones, so that each allocation and its release meet in
// malloc and free (the sanitizers check that they match).
void *operator new(std::size_t size) { return AllocateOrThrow(size); }
void *operator new[](std::size_t size) { return AllocateOrThrow(size); }
void *operator new(std::size_t size, const std::nothrow_t &) noexcept { return Allocate(size); }
void *operator new[](std::size_t size, const std::nothrow_t &) noexcept { return Allocate(size); }
void operator delete(void *p) noexcept { std::free(p); }
void operator delete[](void *p) noexcept { std::free(p); }
void operator delete(void *p, std::size_t) noexcept { std::free(p); }
void operator delete[](void *p, std::size_t) noexcept { std::free(p); }
void operator delete(void *p, const std::nothrow_t &) noexcept { std::free(p); }
void operator delete[](void *p, const std::nothrow_t &) noexcept { std::free(p); }
