// The extended library's gradient-based, residual-interpolated method (gbri.cpp).
#pragma once

#include <cstdint>

#include "kernels/bayer.h"
#include "driver/fill.h"
#include "kernels/kernels.h"

namespace qzrcfa::detail {
class Tasks;
}

namespace qzrcfa::ext {

// Demosaics a width x height frame (both at least 2) of 8- or 16-bit samples into
// pixels of `stride` (3 or 4) elements of the same width: blue, green, red and, for four,
// the largest value. bottom_up stores raw row y at output row height - 1 - y. Rows lie
// `pitches` elements apart. With tasks, in bands of rows on their threads, with the same
// elements. `isa` (one the processor has) chooses the kernels; every choice gives the
// same elements.
template <class T>
void gbri(const T* raw, int width, int height, detail::Pattern pattern, T* out, int stride, bool bottom_up,
          const detail::Tasks* tasks, detail::Pitches pitches, detail::Isa isa = detail::best_isa());

}  // namespace qzrcfa::ext
