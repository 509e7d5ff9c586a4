// A runtime allocator for tests: counts live blocks and fails every allocation after a chosen
// number of successes. Loop the budget from 0 upwards to drive every failure path of a creator.
#pragma once

#include <PlimBitmapLib/platform/CFBase.h>

#include <cstdlib>

namespace plim::test {

class FailingAllocator {
public:
    // -1: never fail.
    explicit FailingAllocator(long budget = -1) : budget_(budget) {
        CFAllocatorContext context = {0, this, nullptr, nullptr, nullptr, Allocate, Reallocate, Deallocate,
                                      nullptr};
        allocator_ = CFAllocatorCreate(kCFAllocatorDefault, &context);
    }
    ~FailingAllocator() {
        if (allocator_) CFRelease(allocator_);
    }
    FailingAllocator(const FailingAllocator &) = delete;
    FailingAllocator &operator=(const FailingAllocator &) = delete;

    CFAllocatorRef get() const { return allocator_; }
    long live() const { return live_; }
    long allocations() const { return allocations_; }
    void setBudget(long budget) { budget_ = budget; }

private:
    static void *Allocate(CFIndex size, CFOptionFlags, void *info) {
        auto *self = static_cast<FailingAllocator *>(info);
        if (self->budget_ == 0) return nullptr;
        if (self->budget_ > 0) --self->budget_;
        void *p = std::malloc(static_cast<size_t>(size));
        if (p) ++self->live_, ++self->allocations_;
        return p;
    }
    static void *Reallocate(void *ptr, CFIndex size, CFOptionFlags, void *info) {
        auto *self = static_cast<FailingAllocator *>(info);
        if (self->budget_ == 0) return nullptr;
        if (self->budget_ > 0) --self->budget_;
        return std::realloc(ptr, static_cast<size_t>(size));
    }
    static void Deallocate(void *ptr, void *info) {
        --static_cast<FailingAllocator *>(info)->live_;
        std::free(ptr);
    }

    CFAllocatorRef allocator_ = nullptr;
    long budget_;
    long live_ = 0;
    long allocations_ = 0;
};

// Runs `attempt(allocator)` with budgets 0, 1, 2, ... until it succeeds. Each failed attempt
// must return null/false and leave no block alive; `attempt` releases what it made on success.
// Returns the number of failed attempts, or -1 when a failure leaked.
template <typename Attempt>
long ExhaustFailures(Attempt attempt, long maxBudget = 64) {
    for (long budget = 0; budget <= maxBudget; ++budget) {
        FailingAllocator alloc(budget);
        bool ok = attempt(alloc.get());
        if (alloc.live() != 0) return -1;
        if (ok) return budget;
    }
    return -1;
}

}  // namespace plim::test
