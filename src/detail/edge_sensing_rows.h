// Edge-sensing row kernels.
//
// Each computes the pixels of one output row from column `c` to row.c_last by the
// member's rule and returns the first column it left for the next kernel. The scalar
// kernel is the reference and always finishes the row; a wider kernel takes as many
// columns as it can and returns where the scalar kernel should go on.
#pragma once

#include <cstdint>

#include "detail/frame.h"

namespace qzrcfa::detail {

// What sets one edge-sensing member apart from the others.
struct EdgeSensingRule {
    bool directional_diagonal;   // opposite colour along the quieter diagonal (method 2)
    bool exchanged_green_sites;  // green sites take the row's colour from above and below
};

int edge_sensing_columns_scalar(const Row<std::uint8_t>& row, const EdgeSensingRule& rule, int c);

// 16 columns at a time (the x86-64 baseline), and 32 at a time where the processor
// has AVX2 (elsewhere it leaves every column to the next kernel). Both take pixel
// strides 3 and 4 and leave any other stride to the scalar kernel. With stride 4,
// element 3 of the pixels they compute is read and stored back unchanged. They read
// no sample the scalar kernel would not read for the same row: where the row's first
// or last column is a green site, whose diagonals the scalar kernel never reads, no
// block reaches past it (a green first column they compute alone, by the scalar
// kernel, a green last column they leave to it).
int edge_sensing_columns_sse2(const Row<std::uint8_t>& row, const EdgeSensingRule& rule, int c);
int edge_sensing_columns_avx2(const Row<std::uint8_t>& row, const EdgeSensingRule& rule, int c);

}  // namespace qzrcfa::detail
