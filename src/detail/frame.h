// The frame driver shared by the colour methods.
//
// An exported entry point names one member description and hands it, with its five
// arguments, to demosaic(). The driver does what every colour member does around its
// kernel: the optional pre-fill, the call of the member's border fill through its
// exported entry point, the height guard and the row passes. A row kernel computes one
// output row and knows nothing about frames, so a faster kernel can stand in for a
// scalar one row by row.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "detail/bayer.h"

namespace qzrcfa::detail {

// Signature of every colour export (and of the border fills they call).
template <class T>
using ColourFn = int (*)(T* src, int width, int height, T* dst, unsigned short bitCount);

enum class Prefill : std::uint8_t {
    None,
    White,    // 255 over (width * height * bitCount) / 8 bytes
    ZeroRgb,  // 0 over width * height * 3 bytes, whatever bitCount says
};

// Elements per output pixel: the shift is taken on the unsigned 16-bit argument, so
// 24..31 give 3 and anything below 8 gives 0.
constexpr int pixel_stride(unsigned short bitCount) { return bitCount >> 3; }

// Byte count of the white pre-fill: width * height * bitCount in 32-bit arithmetic
// (wrapping as a 32-bit product does), the signed result divided by 8 toward zero,
// and the quotient widened with its sign. With bitCount 25..31 this reaches past a
// 3-byte-per-pixel image; that is how the interface has always behaved.
inline std::size_t white_fill_bytes(int width, int height, unsigned short bitCount) {
    const std::uint32_t product = std::uint32_t(width) * std::uint32_t(height) * std::uint32_t(bitCount);
    const std::int32_t bytes = std::int32_t(product) / 8;
    return std::size_t(std::ptrdiff_t(bytes));
}

inline std::size_t zero_fill_bytes(int width, int height) {
    const std::int32_t bytes = std::int32_t(std::uint32_t(width) * std::uint32_t(height) * 3u);
    return std::size_t(std::ptrdiff_t(bytes));
}

// Output row that raw row r lands in: r for the plain members, height - 1 - r for _Flip.
constexpr int output_row(int r, int height, bool flip) { return flip ? height - 1 - r : r; }

// Element offset of output row `row`. Offsets are formed in pointer-sized arithmetic;
// every frame the interface supports (width * height * stride < 2^31) gives the same
// value as the 32-bit products the interface describes.
constexpr std::ptrdiff_t row_offset(int row, int width, int stride) {
    return std::ptrdiff_t(row) * width * stride;
}

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
    int height;             // raw rows in the frame (a kernel whose reads reach past the
                            // last row can tell which rows need a guarded path)
};

template <class T, class Params>
using RowFn = void (*)(const Row<T>& row, const Params& params);

// One sweep over the interior. Rows and columns margin .. size - 1 - margin are
// computed, displaced by `shift` rows and columns; a row is skipped whole when
// width <= 2 * margin. Passes run one after the other over the whole frame.
template <class T, class Params>
struct Pass {
    RowFn<T, Params> kernel = nullptr;
    int margin = 1;
    int shift = 0;
};

// Everything the driver needs to know about one colour member.
template <class T, class Params>
struct Member {
    Pattern pattern;
    bool flip;
    Prefill prefill;
    ColourFn<T> border;  // exported border fill of the member's pattern and suffix
    int min_height;      // below this the member returns after the border fill
    Params params;       // the method's own per-member data
    Pass<T, Params> passes[2];
};

template <class T, class Params>
int demosaic(const Member<T, Params>& m, T* src, int width, int height, T* dst, unsigned short bitCount) {
    if (m.prefill == Prefill::White) {
        std::memset(dst, 255, white_fill_bytes(width, height, bitCount));
    } else if (m.prefill == Prefill::ZeroRgb) {
        std::memset(dst, 0, zero_fill_bytes(width, height));
    }
    // Through the exported entry point: an interposed border fill is honoured.
    m.border(src, width, height, dst, bitCount);
    if (height < m.min_height) return 0;

    const int stride = pixel_stride(bitCount);
    const std::ptrdiff_t out_row = row_offset(1, width, stride);
    for (const auto& pass : m.passes) {
        if (pass.kernel == nullptr) break;
        if (width <= 2 * pass.margin) continue;  // every row of the pass is skipped
        const int first = pass.margin + pass.shift;
        const int last = height - 1 - pass.margin + pass.shift;
        for (int r = first; r <= last; ++r) {
            Row<T> row;
            row.s = src + std::ptrdiff_t(r) * width;
            row.width = width;
            row.d = dst + row_offset(output_row(r, height, m.flip), width, stride);
            row.up = m.flip ? out_row : -out_row;
            row.down = -row.up;
            row.stride = stride;
            row.r = r;
            row.c_first = pass.margin + pass.shift;
            row.c_last = width - 1 - pass.margin + pass.shift;
            row.phase = row_phase(m.pattern, r);
            row.height = height;
            pass.kernel(row, m.params);
        }
    }
    return 0;
}

}  // namespace qzrcfa::detail
