// Bilinear row kernels.
//
// Each computes the pixels of one output row from column `c` to row.c_last and
// returns the first column it left for the next kernel. The scalar kernel is the
// reference and always finishes the row; a wider kernel takes as many columns as it
// can and returns where the scalar kernel should go on.
#pragma once

#include <cstdint>

#include "detail/frame.h"

namespace qzrcfa::detail {

int bilinear_columns_scalar(const Row<std::uint8_t>& row, int c);

}  // namespace qzrcfa::detail
