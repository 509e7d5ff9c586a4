// Per-pixel compositing kernels, the float-to-byte stores they share, and their selection by
// layout and operation code. Row functions run one operation over a run of pixels with vector
// instructions; they give exactly the kernels' bytes.
#pragma once

#include <PlimBitmapLib/platform/MacTypes.h>

#include <array>
#include <cstdint>
#include <vector>

// Operators in code order; the index into every table is the operation code.
#define PLIM_COMPOSITE_OPERATORS(X)                                                          \
    X(Clear) X(CopySrc) X(CopyDest) X(SrcOver) X(DestOver) X(SrcIn) X(DestIn) X(SrcOut)       \
    X(DestOut) X(SrcAtop) X(DestAtop) X(XOR) X(Plus) X(Multiply) X(Screen) X(Overlay)         \
    X(Darken) X(Lighten) X(ColorDodge) X(ColorBurn) X(HardLight) X(SoftLight) X(Difference)  \
    X(Exclusion)

#define PLIM_COMPOSITE_LAYOUTS(X) X(S_8) X(RGB_888) X(ARGB_8888)

typedef void (*CompositeKernel)(const UInt8 *src, UInt8 *dest);
typedef void (*CompositeRow)(const UInt8 *src, UInt8 *dest, UInt32 count);

#define PLIM_DECLARE_KERNEL(layout, op) void Composite_##layout##_##op(const UInt8 *src, UInt8 *dest);
#define PLIM_DECLARE_S_8(op) PLIM_DECLARE_KERNEL(S_8, op)
#define PLIM_DECLARE_RGB_888(op) PLIM_DECLARE_KERNEL(RGB_888, op)
#define PLIM_DECLARE_ARGB_8888(op) PLIM_DECLARE_KERNEL(ARGB_8888, op)
PLIM_COMPOSITE_OPERATORS(PLIM_DECLARE_S_8)
PLIM_COMPOSITE_OPERATORS(PLIM_DECLARE_RGB_888)
PLIM_COMPOSITE_OPERATORS(PLIM_DECLARE_ARGB_8888)
#undef PLIM_DECLARE_S_8
#undef PLIM_DECLARE_RGB_888
#undef PLIM_DECLARE_ARGB_8888
#undef PLIM_DECLARE_KERNEL

// values: alpha, red, green, blue. Low 8 bits of lroundf(v * 255), no clamping.
void FloatARGBToIntARGB(const float values[4], UInt8 *pixel);
// Negative values become 0 in the caller's array; a rounded 256 or more is stored as 255.
void FloatRGBToIntXRGB_Clamp(float values[3], UInt8 *pixel);  // bytes 1-3 only
void FloatARGBToIntARGB_Clamp(float values[4], UInt8 *pixel);

namespace plim::composite {

enum Layout { kLayoutS_8 = 0, kLayoutRGB_888 = 1, kLayoutARGB_8888 = 2, kLayoutCount = 3 };
constexpr UInt32 kOperationCount = 24;

extern const CompositeKernel kKernels_S_8[kOperationCount];
extern const CompositeKernel kKernels_RGB_888[kOperationCount];
extern const CompositeKernel kKernels_ARGB_8888[kOperationCount];

using RowTable = std::array<std::array<CompositeRow, kOperationCount>, kLayoutCount>;

// Null for an operation code out of range.
CompositeKernel KernelFor(Layout layout, UInt32 operation);
// The row form of KernelFor(layout, operation): count pixels of the layout's size, on the best
// instruction set the machine has.
CompositeRow RowFor(Layout layout, UInt32 operation);
// The kernel called once per pixel over the run: the reference the vector rows are held to.
CompositeRow ReferenceRowFor(Layout layout, UInt32 operation);

// The vector rows of the instruction set in use.
const RowTable &VectorRows();
// The instruction sets this build has rows for and the machine can run, and a switch between
// them (0 returns to the best one); for tests and benchmarks.
struct RowTarget {
    int64_t target;
    const char *name;
};
std::vector<RowTarget> RowTargets();
void UseRowTarget(int64_t target);

// pow(x, 0.5) of what the soft-light formulas take the square root of, by input bytes: of a
// destination byte's value (256 entries) and of the premultiplied ratio colour / alpha, indexed
// alpha * 256 + colour (65,536 entries). Filled once, thread-safely, from pow itself.
const double *OpaqueSqrtTable();
const double *PremultipliedSqrtTable();

}  // namespace plim::composite
