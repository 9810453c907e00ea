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

#include <array>
#include <cstddef>
#include <cstdint>

#include "kernels/bayer.h"

namespace qzrcfa::detail {

// One raw row handed to a row kernel.
template <class T>
struct Row {
    const T* s;             // raw sample (r, 0); s[-pitch] and s[+pitch] are the rows around it
    int width;              // samples per raw row
    std::ptrdiff_t pitch;   // elements from a raw row to the next: the width, or more for padded rows
    T* d;                   // first element of the output row that raw row r lands in
    std::ptrdiff_t up;      // elements from d to the output row of raw row r - 1
    std::ptrdiff_t down;    // elements from d to the output row of raw row r + 1
    int stride;             // elements per output pixel
    int r;                  // raw row index
    int c_first, c_last;    // inclusive column range to compute
    RowPhase phase;         // colours of raw row r
    int height;             // raw rows in the frame
    bool fill255;           // write 255 into every element of a computed pixel that the
                            // method leaves alone (the 255 pre-fill, fused into the row)
    bool stream;            // whole pixels may be stored past the cache: nothing reads this
                            // row back during the call, and the output outgrows the cache
    std::ptrdiff_t fetch;   // elements from s to the raw row the walk reads next, whose
                            // samples a kernel may fetch into the cache ahead (0: none)
    std::ptrdiff_t ahead;   // elements from d to the output row the walk writes next
};

// Computes columns c .. (returned column) - 1 of the row.
template <class T, class Params>
using ColumnKernel = int (*)(const Row<T>& row, const Params& params, int c);

// A two-pass member's sweep (driver/frame.h) keeps what its first pass computes for a
// raw row, and its second pass reads in that row and the rows around it, in a ring of a
// few rows, one element per column, instead of reading it back out of the output's
// pixels; its second pass writes each pixel once, whole. Columns c .. c_last of a row:
struct RingRow {
    std::uint8_t* greens;  // greens[c]: the first pass's green
    // Smooth hue: the quotients sample / green the second pass divides by, by class of
    // column: quotients[j][1 + i] is that of column first + 4 i + j, quotients[3][0]
    // that of column first - 1 and quotients[0][1 + (c_last - first + 1) / 4] that of
    // column c_last + 1. Null for the other families.
    float* quotients[4];
    int first;
    // Smooth hue, four-byte pixels: the bytes two before and four after each pixel (the
    // red of the pixel before, the blue of the pixel after) as the first pass leaves
    // them, left[c] and right[c], for the columns of the second pass; the driver puts in
    // those the core's edges read outside it (left[first], right[c_last - 1]). Null
    // otherwise.
    std::uint8_t* left;
    std::uint8_t* right;
    // Four-byte pixels: the red and the blue of each pixel as the second pass leaves them,
    // red[c] and blue[c], which the second pass of the row below reads there instead of
    // in the output. Null otherwise.
    std::uint8_t* red;
    std::uint8_t* blue;
};

// The first pass of raw row row.r, columns c .. row.c_last, into the ring row; no output
// is written. A kernel takes the whole range or leaves all of it (returns c).
template <class Params>
using GreensKernel = int (*)(const Row<std::uint8_t>& row, const Params& params, const RingRow& ring, int c);

// The second pass of raw row row.r over columns c .. row.c_last, from the ring rows of
// raw rows r - 1, r and r + 1 (ring[0 .. 2]), as whole pixels. Every byte it reads in the
// output, and every element of the ring, was computed by the first pass or lies inside
// the region the first pass covers whole (the 255 pre-fill fused, where the member has
// one). Whole range or nothing.
template <class Params>
using SweepKernel = int (*)(const Row<std::uint8_t>& row, const Params& params, const RingRow* ring, int c);

// Grey and bilinear have nothing per member; each its own type, so that no kernel of one
// can stand in another's slot.
struct GreyParams {};
struct BilinearParams {};

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

// The extended library's general rule of every method (src/general/): the rule each
// method states for every pixel, without the members' asymmetries, on samples of any
// depth. A sweep over the rows loads each raw row once into a row of 16-bit values (the
// samples, clamped to their largest value), mirrored beyond the frame's edges, computes
// the method's planes of blue, green and red from the rows around it (two-pass methods
// a plane of green first), and stores the planes as the output's pixels. Rows of
// values hold columns -kGeneralMargin .. width + kGeneralMargin - 1.
inline constexpr int kGeneralMargin = 2;

// How the samples of a raw row lie.
enum class Packing : std::uint8_t {
    Bytes,      // 8-bit samples
    Words,      // 16-bit samples in the machine's byte order
    Raw10,      // MIPI CSI-2 RAW10: 4 samples in 5 bytes, bits 9..2 of each, then their bits 1..0 (sample 0 lowest)
    Raw12,      // MIPI CSI-2 RAW12: 2 samples in 3 bytes, bits 11..4 of each, then their bits 3..0 (sample 0 lowest)
    P10,        // GenICam 10p: one little-endian bit stream, each sample least significant bit first
    P12,        // GenICam 12p: the same with 12-bit samples
    Packed12,   // GigE Vision 12Packed: bits 11..4 of sample 0, bits 3..0 of 0 and 1 (0 lowest), bits 11..4 of 1
};

// A raw row to values: each sample s becomes min(s, max) or, with a black level and
// gains, clamp(floor((s - black) * gain + 1/2), 0, max), the product in single
// precision; black level and gain by the parity of the column.
struct LoadRow {
    const void* src;     // the raw row's first byte
    Packing packing;
    std::uint16_t* out;  // value 0 of the row
    int max;             // the largest value: 2^bits - 1
    bool balance;        // black level and gains apply
    float black[2], gain[2];
    int x_last;
};

// A row of a method's pass.
struct PlaneRow {
    const std::uint16_t* s[5];  // values of rows r - 2 .. r + 2
    const std::uint16_t* g[3];  // greens of rows r - 1 .. r + 1 (second passes)
    std::uint16_t* out[3];      // planes: blue, green, red (a green pass writes out[1])
    RowPhase phase;             // colours of row r
    int max;                    // the largest value
    int variant;                // the method's own choice (edge sensing: 2 or 1)
    int x_last;
};

// Planes to the output row's pixels. A colour matrix takes each pixel's camera red,
// green and blue to the output's, ((m0 * r + m1 * g) + m2 * b) for red and so on in
// single precision, clamped to 0 .. max and rounded half up; a curve is a table from
// such a value to the output element. Without a curve 16-bit elements are the values
// and 8-bit ones round from 0 .. max to 0 .. 255 (halves up).
struct StoreRow {
    const std::uint16_t* planes[3];  // blue, green, red; grey: planes[0]
    void* out;                       // element 0 of the output row
    int elements;                    // per pixel: 1, 3 or 4 (the fourth the largest value)
    int depth;                       // bits per element: 8 or 16
    int max;                         // the planes' largest value
    const float* matrix;             // 3 x 3, output red, green, blue from camera red, green, blue; null: none
    const std::uint16_t* curve;      // max + 1 output elements; null: none
    int x_last;
};

// A value 0 .. max as an 8-bit element, rounded to nearest (halves up).
inline int narrowed_to_8(int v, int max) { return max == 255 ? v : (v * 510 + max) / (2 * max); }

using LoadKernel = int (*)(const LoadRow& row, int x);
using PlaneKernel = int (*)(const PlaneRow& row, int x);
using StoreKernel = int (*)(const StoreRow& row, int x);

// A pass that gives the planes, fused with the store: columns x .. row.x_last of the
// planes, straight to the pixels of `pixels` (whose x_last is the same; its planes are
// not read). Its reference is the pass's reference followed by the store's.
using PixelKernel = int (*)(const PlaneRow& row, const StoreRow& pixels, int x);

template <class Row>
int leave_row(const Row&, int x) {
    return x;
}
inline int leave_pixels(const PlaneRow&, const StoreRow&, int x) { return x; }

// Smooth hue's quotients q[i] = a[i] / b[i] of operands that are integers 0 .. 255,
// computed from i = 0 on as the colour pass computes them; returns the first index left.
using QuotientKernel = int (*)(const float* a, const float* b, float* q, int n);
inline int quotients_leave_all(const float*, const float*, float*, int) { return 0; }

// The general rule's kernels of one instruction set (every slot left to the reference
// unless a set fills it).
struct GeneralKernels {
    LoadKernel load = leave_row;
    PlaneKernel nearest = leave_row, bilinear = leave_row, edge_sensing = leave_row;
    PlaneKernel laplacian_green = leave_row, laplacian_colour = leave_row;
    PlaneKernel smooth_hue_green = leave_row, smooth_hue_colour = leave_row;
    PlaneKernel grey = leave_row;
    StoreKernel store = leave_row;
    PixelKernel nearest_pixels = leave_pixels, bilinear_pixels = leave_pixels, edge_sensing_pixels = leave_pixels;
    PixelKernel laplacian_pixels = leave_pixels, smooth_hue_pixels = leave_pixels, grey_pixels = leave_pixels;
};

// A column kernel that computes nothing: every column is left to the reference. Every
// slot of a kernel set starts as this, so a set names only the kernels it has.
template <class T, class Params>
int leave_all(const Row<T>&, const Params&, int c) {
    return c;
}
inline int gbri_leave_all(const GbriRow&, int x) { return x; }

constexpr std::array<GbriKernel, kGbriPasses> gbri_leave_all_passes() {
    std::array<GbriKernel, kGbriPasses> all{};
    for (GbriKernel& k : all) k = gbri_leave_all;
    return all;
}

// The kernels of one instruction set, by family. Grey rows: row.s is the upper of the
// two raw rows averaged, row.d the output row, one element per pixel.
struct KernelSet {
    ColumnKernel<std::uint8_t, NearestForm> nearest = leave_all;
    ColumnKernel<std::uint16_t, NearestForm> nearest16 = leave_all;
    ColumnKernel<std::uint8_t, GreyParams> grey = leave_all;
    ColumnKernel<std::uint16_t, GreyParams> grey16 = leave_all;
    ColumnKernel<std::uint8_t, BilinearParams> bilinear = leave_all;
    ColumnKernel<std::uint8_t, EdgeSensingRule> edge_sensing = leave_all;
    ColumnKernel<std::uint8_t, LaplacianParams> laplacian_green = leave_all;
    ColumnKernel<std::uint8_t, LaplacianParams> laplacian_colour = leave_all;
    ColumnKernel<std::uint8_t, SmoothHueRule> smooth_hue_green = leave_all;
    ColumnKernel<std::uint8_t, SmoothHueRule> smooth_hue_colour = leave_all;
    // The sweeps' kernels (null: the set has none, and the passes run one after the
    // other), and the columns of one block, below which a sweep is not worth its ring.
    GreensKernel<LaplacianParams> laplacian_greens = nullptr;
    SweepKernel<LaplacianParams> laplacian_sweep = nullptr;
    GreensKernel<SmoothHueRule> smooth_hue_ring = nullptr;
    SweepKernel<SmoothHueRule> smooth_hue_sweep = nullptr;
    int lanes = 1;
    std::array<GbriKernel, kGbriPasses> gbri = gbri_leave_all_passes();
    GeneralKernels general;
    QuotientKernel smooth_hue_quotients = quotients_leave_all;
};

// Instruction sets with kernel sets (isa/targets.def), narrowest first, after the
// scalar references.
#define QZRCFA_ISA(name, architecture, flags, features) name,
enum class Isa : std::uint8_t {
    scalar,
#include "isa/targets.def"
};
#undef QZRCFA_ISA

#define QZRCFA_ISA(name, architecture, flags, features) Isa::name,
inline constexpr Isa kIsas[] = {
    Isa::scalar,
#include "isa/targets.def"
};
#undef QZRCFA_ISA

// The kernel sets of the instruction sets (isa/target.h defines those of the build's
// architecture).
#define QZRCFA_ISA(name, architecture, flags, features) extern const KernelSet isa_kernels_##name;
#include "isa/targets.def"
#undef QZRCFA_ISA

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

// The references, one per family slot of a kernel set.
int nearest_columns(const Row<std::uint8_t>& row, const NearestForm& form, int c);
int nearest_columns(const Row<std::uint16_t>& row, const NearestForm& form, int c);
int grey_columns(const Row<std::uint8_t>& row, const GreyParams&, int c);
int grey_columns(const Row<std::uint16_t>& row, const GreyParams&, int c);
int bilinear_columns(const Row<std::uint8_t>& row, const BilinearParams&, int c);
int edge_sensing_columns(const Row<std::uint8_t>& row, const EdgeSensingRule& rule, int c);
int laplacian_green_columns(const Row<std::uint8_t>& row, const LaplacianParams& params, int c);
int laplacian_colour_columns(const Row<std::uint8_t>& row, const LaplacianParams& params, int c);
int smooth_hue_green_columns(const Row<std::uint8_t>& row, const SmoothHueRule& rule, int c);
int smooth_hue_colour_columns(const Row<std::uint8_t>& row, const SmoothHueRule& rule, int c);
int smooth_hue_quotients(const float* a, const float* b, float* q, int n);
extern const GbriKernel kGbriReferences[kGbriPasses];  // extended library only

}  // namespace qzrcfa::detail
