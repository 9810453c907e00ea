// Laplacian: the member data and row kernels, visible to the kernel tests.
#pragma once

#include <cstdint>

#include "detail/frame.h"

namespace qzrcfa::detail {

struct LaplacianParams {
    // The upper diagonal greens (Gul, Gur) come from the output row of raw row r + 1
    // and the lower ones from raw row r - 1, instead of the other way round.
    bool crossed_diagonals;
};

// Green pass, one row: G of every pixel in the row's column range, and the own sample
// (and, at red sites, the interim B) at red and blue sites. The row is handed to the
// fastest kernel the processor runs; every kernel writes the same bytes.
void laplacian_green_row(const Row<std::uint8_t>& row, const LaplacianParams& params);

// Red/blue pass, one row: the missing colours, reading the greens the green pass (and
// the border fill) left in the output. Dispatched like the green pass.
void laplacian_rb_row(const Row<std::uint8_t>& row, const LaplacianParams& params);

// The references, one pixel at a time. The green pass reads samples past the end of
// the frame as 0 in the frame's last two rows (reached only by the displaced pass).
void laplacian_green_row_scalar(const Row<std::uint8_t>& row, const LaplacianParams& params);
void laplacian_rb_row_scalar(const Row<std::uint8_t>& row, const LaplacianParams& params);

// Sixteen pixels at a time for three- and four-byte pixels, in SSE2 or AVX2; the
// columns left over at the end of the row, other strides and the frame's last two rows
// go to the scalar kernel. Byte for byte the scalar result. Every load stays inside the
// rows and columns the scalar kernel reads for the same row. Stores cover whole pixels
// of the column range, writing back unchanged the bytes the scalar kernel leaves alone
// (element 3, and the colours a site does not compute). The AVX2 kernels may be called
// only where isa_available(Isa::AVX2); without SSE2 in the build both are the scalar
// kernel.
void laplacian_green_row_sse2(const Row<std::uint8_t>& row, const LaplacianParams& params);
void laplacian_green_row_avx2(const Row<std::uint8_t>& row, const LaplacianParams& params);
void laplacian_rb_row_sse2(const Row<std::uint8_t>& row, const LaplacianParams& params);
void laplacian_rb_row_avx2(const Row<std::uint8_t>& row, const LaplacianParams& params);

}  // namespace qzrcfa::detail
