// The driver's source for a pair of different sizes, reachable by tests.
#pragma once

#include <PlimBitmapLib/PlimCFImage.h>

namespace plim::composite {

// The rectangle s of the working copy (y counted from the bottom), scaled to `size`, holding a
// buffer. regionOnly copies just the rectangle's rows where that gives the same picture as
// duplicating the whole copy and cropping it (false always takes the duplicate-and-crop road).
PlimCFImage CreatePairSource(PlimCFImage copy, CGRect s, CGSize size, bool regionOnly);

}  // namespace plim::composite
