// Nearest-neighbour colour row kernels.
//
// Each computes the pixels of one output row from column `c` to row.c_last and returns
// the first column it left for the next kernel. The scalar kernel is the reference and
// always finishes the row; a wider kernel takes as many columns as it can and returns
// where the scalar kernel should go on.
#pragma once

#include <cstdint>

#include "detail/frame.h"

namespace qzrcfa::detail {

// The two-by-two neighourhood a member takes its colours from: the pixel, its
// horizontal neighbour on one side, and the two samples below them.
struct NearestForm {
    int dc;              // column of the horizontal neighbour: +1 right, -1 left
    bool average_green;  // green is the mean of the block's two greens
};

int nearest_columns_scalar(const Row<std::uint8_t>& row, const NearestForm& form, int c);
int nearest_columns_scalar(const Row<std::uint16_t>& row, const NearestForm& form, int c);

// 8-bit samples, 16 columns at a time (the x86-64 baseline) and 32 at a time where the
// processor has AVX2 (elsewhere it leaves every column to the next kernel). Both take
// pixel strides 3 and 4 and leave any other stride to the scalar kernel. With stride 4,
// element 3 of the pixels they compute is read and stored back unchanged.
int nearest_columns_sse2(const Row<std::uint8_t>& row, const NearestForm& form, int c);
int nearest_columns_avx2(const Row<std::uint8_t>& row, const NearestForm& form, int c);

// 16-bit samples and elements, 8 columns at a time (the x86-64 baseline); strides 3
// and 4 as above.
int nearest_columns_sse2(const Row<std::uint16_t>& row, const NearestForm& form, int c);

}  // namespace qzrcfa::detail
