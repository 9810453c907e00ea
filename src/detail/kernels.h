// Row kernels: the one contract every family's kernels follow, what each family's
// members tell their kernels, and the kernel sets, one per instruction set.
//
// A row kernel computes pixels of one output row. The reference kernel of a family is
// plain scalar code, lives in the family's source file and computes every column from
// the one it is given to row.c_last. A kernel set holds, for every family, a column
// kernel built for one instruction set: it computes as many columns from `c` on as its
// vectors take and returns the first column it left, and the reference finishes the
// row from there. Both write the same bytes; the kernel tests hold them to that.
//
// The instruction set is chosen once per call, from what the processor reports, and
// its kernel set handed to the frame driver. A kernel set is constant data: the library
// keeps no state of its own.
#pragma once

#include <cstddef>
#include <cstdint>

#include "detail/bayer.h"

namespace qzrcfa::detail {

// One raw row handed to a row kernel.
template <class T>
struct Row {
    const T* s;             // raw sample (r, 0); s[-width] and s[+width] are the rows around it
    int width;              // samples per raw row
    T* d;                   // first element of the output row that raw row r lands in
    std::ptrdiff_t up;      // elements from d to the output row of raw row r - 1
    std::ptrdiff_t down;    // elements from d to the output row of raw row r + 1
    int stride;             // elements per output pixel
    int r;                  // raw row index
    int c_first, c_last;    // inclusive column range to compute
    RowPhase phase;         // colours of raw row r
    int height;             // raw rows in the frame
    bool white;             // write 255 into every element of a computed pixel that the
                            // method leaves alone (the pre-fill, fused into the row)
    bool stream;            // whole pixels may be stored past the cache: nothing reads this
                            // row back during the call, and the output outgrows the cache
};

// Computes columns c .. (returned column) - 1 of the row.
template <class T, class Params>
using ColumnKernel = int (*)(const Row<T>& row, const Params& params, int c);

struct NoParams {};

// Nearest neighbour: the two-by-two neighbourhood a member takes its colours from, the
// pixel, its horizontal neighbour on one side, and the two samples below them.
struct NearestForm {
    int dc;              // column of the horizontal neighbour: +1 right, -1 left
    bool average_green;  // green is the mean of the block's two greens
};

// Edge sensing: what sets one member apart from the others.
struct EdgeSensingRule {
    bool directional_diagonal;   // opposite colour along the quieter diagonal (method 2)
    bool exchanged_green_sites;  // green sites take the row's colour from above and below
};

// Laplacian: the upper diagonal greens (Gul, Gur) come from the output row of raw row
// r + 1 and the lower ones from raw row r - 1, instead of the other way round.
struct LaplacianParams {
    bool crossed_diagonals;
};

// Smooth hue. How an estimate that is not below 255.0 is told apart from the rest: the
// two forms agree on every number and differ only for NaN (0/0, or infinity times a
// zero green), which the greater-than form stores as 0 and the less-than form as 255.
enum class Saturation : std::uint8_t {
    GreaterThan,  // x > 255 gives 255, everything else is truncated (NaN gives 0)
    LessThan,     // x < 255 is truncated, everything else gives 255 (NaN included)
};

struct SmoothHueRule {
    Site green_on_blue_as;  // the site whose formulas a green-on-blue site uses
    Saturation saturation;
};

// The extended library's gradient-based, residual-interpolated method works on rows of
// floats, one pass at a time (src/ext/gbri.cpp): a kernel computes columns x ..
// x_last of one row of one pass from rows of earlier passes.
enum GbriPass : int {
    kGbriSamples8,    // samples to the internal scale: out[0] from the 8-bit raw row
    kGbriSamples16,   // the same from 16-bit samples
    kGbriVertical,    // vertical colour difference: in m(r-2) .. m(r+2)
    kGbriHorizontal,  // horizontal colour difference: in m(r)
    kGbriAcross,      // |in[0] - in[1]|, column by column
    kGbriAlong,       // |in[0](x - 1) - in[0](x + 1)|
    kGbriColumns5,    // sum of five rows in[0] .. in[4], top to bottom
    kGbriRow5,        // sum of in[0](x - 2) .. in[0](x + 2), left to right
    kGbriGreen,       // fused green: in m, dh, dv(r), dv(r-1..r-3), dv(r+1..r+3), sh, sv(r-2), sv(r+2)
    kGbriLaplacians,  // out[0] = LG * LC, out[1] = LG * LG: in m(r), m(r-2), m(r+2), g(r), g(r-2), g(r+2)
    kGbriModel,       // out[0] = a, out[1] = b: in p, q, m, g, each at rows r-2, r, r+2
    kGbriMeans,       // out[0..2] = mean a, mean b, residual: in a, b at rows r-2, r, r+2, then m(r), g(r)
    kGbriPixels8,     // output pixels: in g, a b e of row y, of row y-1, of row y+1
    kGbriPixels16,
    kGbriPasses
};

struct GbriRow {
    const float* in[12];
    float* out[3];
    const void* samples;  // the raw row (samples and pixels passes)
    void* pixels;         // the output row (pixels passes)
    int stride;           // elements per output pixel (pixels passes: 3 or 4)
    int colour;           // kRed or kBlue: the non-green colour measured in the row
    int parity;           // column parity of the row's red or blue sites
    int x_last;           // last column to compute
};

using GbriKernel = int (*)(const GbriRow& row, int x);

// Smooth hue's quotients q[i] = a[i] / b[i] of operands that are integers 0 .. 255,
// computed from i = 0 on as the colour pass computes them; returns the first index left.
using QuotientKernel = int (*)(const float* a, const float* b, float* q, int n);

// The kernels of one instruction set. Grey rows: row.s is the upper of the two raw rows
// averaged, row.d the output row, one element per pixel.
struct KernelSet {
    ColumnKernel<std::uint8_t, NearestForm> nearest;
    ColumnKernel<std::uint16_t, NearestForm> nearest16;
    ColumnKernel<std::uint8_t, NoParams> grey;
    ColumnKernel<std::uint16_t, NoParams> grey16;
    ColumnKernel<std::uint8_t, NoParams> bilinear;
    ColumnKernel<std::uint8_t, EdgeSensingRule> edge_sensing;
    ColumnKernel<std::uint8_t, LaplacianParams> laplacian_green;
    ColumnKernel<std::uint8_t, LaplacianParams> laplacian_colour;
    ColumnKernel<std::uint8_t, SmoothHueRule> smooth_hue_green;
    ColumnKernel<std::uint8_t, SmoothHueRule> smooth_hue_colour;
    GbriKernel gbri[kGbriPasses];  // extended library only (null in libqzrcfa)
    QuotientKernel smooth_hue_quotients;
};

// Instruction sets with kernel sets, narrowest first.
enum class Isa : std::uint8_t { Scalar, SSE2, AVX2, AVX512BW, AVX512VBMI, NEON };

inline constexpr Isa kIsas[] = {Isa::Scalar, Isa::SSE2, Isa::AVX2, Isa::AVX512BW, Isa::AVX512VBMI, Isa::NEON};

const char* isa_name(Isa isa);

// Whether this build has the kernel set and this processor runs it.
bool isa_available(Isa isa);

// The widest instruction set available.
Isa best_isa();

// Output size in bytes from which a call that writes every byte of its output once, and
// reads none of it back, stores past the cache: what does not fit the last-level cache
// would leave it before anyone read it. 0: never.
std::size_t streaming_threshold();

// The kernel set of an available instruction set; the scalar set (every slot leaves
// every column to the reference) for any other.
const KernelSet& kernel_set(Isa isa);

// The kernel sets of the instruction sets this build targets (src/isa/<set>.cpp).
extern const KernelSet kSse2Kernels, kAvx2Kernels, kAvx512bwKernels, kAvx512vbmiKernels, kNeonKernels;

// The references, one per family slot of a kernel set.
int nearest_columns(const Row<std::uint8_t>& row, const NearestForm& form, int c);
int nearest_columns(const Row<std::uint16_t>& row, const NearestForm& form, int c);
int grey_columns(const Row<std::uint8_t>& row, const NoParams&, int c);
int grey_columns(const Row<std::uint16_t>& row, const NoParams&, int c);
int bilinear_columns(const Row<std::uint8_t>& row, const NoParams&, int c);
int edge_sensing_columns(const Row<std::uint8_t>& row, const EdgeSensingRule& rule, int c);
int laplacian_green_columns(const Row<std::uint8_t>& row, const LaplacianParams& params, int c);
int laplacian_colour_columns(const Row<std::uint8_t>& row, const LaplacianParams& params, int c);
int smooth_hue_green_columns(const Row<std::uint8_t>& row, const SmoothHueRule& rule, int c);
int smooth_hue_colour_columns(const Row<std::uint8_t>& row, const SmoothHueRule& rule, int c);
int smooth_hue_quotients(const float* a, const float* b, float* q, int n);
extern const GbriKernel kGbriReferences[kGbriPasses];  // extended library only

}  // namespace qzrcfa::detail
