// Vector row functions where they pay; each gives exactly its kernel's bytes.
#pragma once

#include "composite/Kernels.h"

namespace plim::composite {

// Null where only the generic row exists.
CompositeRow SimdRowFor(Layout layout, UInt32 operation);

}  // namespace plim::composite
