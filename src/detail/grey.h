// Row kernels of the grey output: one output row of truncated two-by-two means.
#pragma once

#include <cstdint>

#include "detail/cpu.h"

namespace qzrcfa::detail {

// out[c] = (upper[c] + upper[c + 1] + lower[c] + lower[c + 1]) >> 2 for c = 0 .. count - 1,
// summed without overflow; nothing for count <= 0. Reads upper and lower up to index
// count, writes out[0 .. count - 1] in increasing order, nothing else.
void grey_average_row_scalar(const std::uint8_t* upper, const std::uint8_t* lower, std::uint8_t* out, int count);
void grey_average_row_scalar(const std::uint16_t* upper, const std::uint16_t* lower, std::uint16_t* out, int count);
void grey_average_row_sse2(const std::uint8_t* upper, const std::uint8_t* lower, std::uint8_t* out, int count);
void grey_average_row_sse2(const std::uint16_t* upper, const std::uint16_t* lower, std::uint16_t* out, int count);
void grey_average_row_avx2(const std::uint8_t* upper, const std::uint8_t* lower, std::uint8_t* out, int count);
void grey_average_row_avx2(const std::uint16_t* upper, const std::uint16_t* lower, std::uint16_t* out, int count);

// The fastest of the above that the processor runs.
template <class T>
void grey_average_row(const T* upper, const T* lower, T* out, int count, Isa isa) {
    switch (isa) {
    case Isa::AVX2: grey_average_row_avx2(upper, lower, out, count); return;
    case Isa::SSE2: grey_average_row_sse2(upper, lower, out, count); return;
    case Isa::Scalar: break;
    }
    grey_average_row_scalar(upper, lower, out, count);
}

}  // namespace qzrcfa::detail
