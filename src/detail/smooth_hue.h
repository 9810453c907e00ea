// Smooth hue: the member data and row kernels, visible to the kernel tests.
#pragma once

#include <cstdint>

#include "detail/bayer.h"
#include "detail/frame.h"

namespace qzrcfa::detail {

// How an estimate that is not below 255.0 is told apart from the rest. The two forms
// agree on every number; they differ only for NaN (0/0, or infinity times a zero
// green), which the greater-than form stores as 0 and the less-than form as 255.
enum class Saturation : std::uint8_t {
    GreaterThan,  // x > 255 gives 255, everything else is truncated (NaN gives 0)
    LessThan,     // x < 255 is truncated, everything else gives 255 (NaN included)
};

// What one member does in the colour pass.
struct SmoothHueRule {
    Site green_on_blue_as;  // the site whose formulas a green-on-blue site uses
    Saturation saturation;
};

// Pass 1: element 1 of every pixel in the row's column range, copied at a green site
// and the floor of the mean of the four side neighbours at a red or blue site.
// The row is handed to the widest kernel the processor runs; all write the same bytes.
void smooth_hue_green_row(const Row<std::uint8_t>& row, const SmoothHueRule& rule);

// The reference for pass 1, one pixel at a time, and the wide kernels: 16 pixels at a
// time on the x86-64 baseline, 32 with AVX2 (each leaving what does not fill a block
// to the narrower kernels). Pixel strides 3 and 4 only; others go to the reference.
// A wide kernel rewrites the other elements of the pixels it covers with the values
// they held, and touches nothing outside them.
void smooth_hue_green_row_scalar(const Row<std::uint8_t>& row, const SmoothHueRule& rule);
void smooth_hue_green_row_sse2(const Row<std::uint8_t>& row, const SmoothHueRule& rule);
void smooth_hue_green_row_avx2(const Row<std::uint8_t>& row, const SmoothHueRule& rule);

// Pass 2: elements 0 and 2 of every pixel in the row's column range, from the ratios of
// colour to green around it. The row is handed to the fastest kernel the processor
// runs; every kernel writes the same bytes.
void smooth_hue_colour_row(const Row<std::uint8_t>& row, const SmoothHueRule& rule);

// The reference for pass 2, one pixel at a time.
void smooth_hue_colour_row_scalar(const Row<std::uint8_t>& row, const SmoothHueRule& rule);

// Pass 2 in SSE2 single precision, four pixels of one column parity at a time; the
// scalar kernel where the build has no SSE2. Byte for byte the scalar result.
void smooth_hue_colour_row_sse2(const Row<std::uint8_t>& row, const SmoothHueRule& rule);

// Pass 2 in AVX2 single precision, 16 pixels at a time (eight of each column parity),
// leaving the last pixels of a row to the SSE2 kernel; the SSE2 kernel where the
// processor has no AVX2. Byte for byte the scalar result.
void smooth_hue_colour_row_avx2(const Row<std::uint8_t>& row, const SmoothHueRule& rule);

}  // namespace qzrcfa::detail
