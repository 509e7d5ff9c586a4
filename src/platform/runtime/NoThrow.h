// No C++ exception leaves the library's C functions. Code that can throw (standard containers
// and strings running out of memory) runs inside NoThrow, which turns any exception into the
// caller's failure result.
#pragma once

#include <utility>

namespace plim {

template <typename Result, typename Body>
Result NoThrow(Result failure, Body &&body) noexcept {
    try {
        return std::forward<Body>(body)();
    } catch (...) {
        return failure;
    }
}

// For work whose failure leaves nothing to report.
template <typename Body>
void NoThrow(Body &&body) noexcept {
    try {
        std::forward<Body>(body)();
    } catch (...) {
    }
}

}  // namespace plim
