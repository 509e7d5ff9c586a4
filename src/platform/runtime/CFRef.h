// Owning holder for one reference to a runtime object, so that no failure path leaks.
#pragma once

#include <PlimBitmapLib/platform/CFBase.h>

#include <utility>

namespace plim {

template <typename T>
class CFRef {
public:
    CFRef() = default;
    // Takes over a reference the caller owns (a Create or Copy result).
    explicit CFRef(T ref) : ref_(ref) {}
    CFRef(const CFRef &other) : ref_(other.ref_) {
        if (ref_) CFRetain(ref_);
    }
    CFRef(CFRef &&other) noexcept : ref_(std::exchange(other.ref_, nullptr)) {}
    CFRef &operator=(CFRef other) noexcept {
        std::swap(ref_, other.ref_);
        return *this;
    }
    ~CFRef() {
        if (ref_) CFRelease(ref_);
    }

    // Adds a reference to a borrowed object.
    static CFRef Retain(T ref) {
        if (ref) CFRetain(ref);
        return CFRef(ref);
    }

    T get() const { return ref_; }
    explicit operator bool() const { return ref_ != nullptr; }
    // Hands the reference to the caller.
    T release() { return std::exchange(ref_, nullptr); }
    void reset(T ref = nullptr) { CFRef(ref).swap(*this); }
    void swap(CFRef &other) noexcept { std::swap(ref_, other.ref_); }

private:
    T ref_ = nullptr;
};

}  // namespace plim
