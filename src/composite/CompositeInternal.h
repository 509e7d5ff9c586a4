// Pieces of the composite driver shared with tiling and reachable by tests.
#pragma once

#include <PlimBitmapLib/PlimCFImage.h>

#include "platform/runtime/CFRef.h"

namespace plim::composite {

// The source as the kernels read it, unified with the destination (which unification may
// convert): the source itself when unification cannot change it and it is not the destination,
// otherwise a private copy. Null when the copy cannot be made.
CFRef<PlimCFImage> WorkingSource(PlimCFImage src, PlimCFImage dest);

// The rectangle s of the working copy (y counted from the bottom), scaled to `size`, holding a
// buffer. regionOnly copies just the rectangle's rows where that gives the same picture as
// duplicating the whole copy and cropping it (false always takes the duplicate-and-crop road).
PlimCFImage CreatePairSource(PlimCFImage copy, CGRect s, CGSize size, bool regionOnly);

}  // namespace plim::composite
