// A replacement of the global operator new for this test program: it counts the calls made on
// each thread and, once armed, fails from a chosen call on (std::bad_alloc, or null for the
// nothrow forms).
#pragma once

namespace nothrow_test {

// Calls of operator new on this thread since the last Arm.
long Calls();
// Throws from call number `from` on (counting from 0); -1 never throws.
void Arm(long from);

}  // namespace nothrow_test
