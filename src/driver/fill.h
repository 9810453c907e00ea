// The arithmetic of a member's frame: pixel strides, output rows, the byte counts of the
// pre-fills as the interface forms them, and the part of a 255 pre-fill that no pass
// covers.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace qzrcfa::detail {

enum class Prefill : std::uint8_t {
    None,
    Bytes255,  // 255 over (width * height * bitCount) / 8 bytes
    ZeroRgb,   // 0 over width * height * 3 bytes, whatever bitCount says
};

// Elements per output pixel: the shift is taken on the unsigned 16-bit argument, so
// 24..31 give 3 and anything below 8 gives 0.
constexpr int pixel_stride(unsigned short bitCount) { return bitCount >> 3; }

// Byte count of the 255 pre-fill: width * height * bitCount in 32-bit arithmetic
// (wrapping as a 32-bit product does), the signed result divided by 8 toward zero, and
// the quotient widened with its sign. With bitCount 25..31 this reaches past a
// 3-byte-per-pixel image; that is how the interface has always behaved.
inline std::size_t fill255_bytes(int width, int height, unsigned short bitCount) {
    const std::uint32_t product = std::uint32_t(width) * std::uint32_t(height) * std::uint32_t(bitCount);
    const std::int32_t bytes = std::int32_t(product) / 8;
    return std::size_t(std::ptrdiff_t(bytes));
}

inline std::size_t zero_fill_bytes(int width, int height) {
    const std::int32_t bytes = std::int32_t(std::uint32_t(width) * std::uint32_t(height) * 3u);
    return std::size_t(std::ptrdiff_t(bytes));
}

// Output row that raw row r lands in: r for the top-down members, height - 1 - r for
// the bottom-up ones.
constexpr int output_row(int r, int height, bool flip) { return flip ? height - 1 - r : r; }

// Element offset of output row `row`. Offsets are formed in pointer-sized arithmetic;
// every frame the interface supports (width * height * stride < 2^31) gives the same
// value as the 32-bit products the interface describes.
constexpr std::ptrdiff_t row_offset(int row, int width, int stride) { return std::ptrdiff_t(row) * width * stride; }

// Where a call's rows lie: elements from a raw row to the next, and from an output row
// to the next. The exports' rows lie back to back: the width, and the width times the
// pixel stride.
struct Pitches {
    std::ptrdiff_t src, dst;
};

constexpr Pitches compact(int width, int stride) { return {width, std::ptrdiff_t(width) * stride}; }

// Raw rows and columns, inclusive.
struct Region {
    int r0, r1, c0, c1;
    bool contains_row(int r) const { return r >= r0 && r <= r1; }
};

// Fills with 255 every byte of the first `fill` bytes of the image except the pixels of
// `covered`, which a pass writes whole, and the first and last `sides` bytes of its
// rows, which the border fill writes after it. Output rows lie `pitch` bytes apart; with
// rows back to back the fill may reach past the image (bitCount 25..31).
inline void fill255_outside(std::uint8_t* dst, int width, int height, bool flip, int stride, std::ptrdiff_t pitch,
                            std::size_t fill, const Region& covered, std::size_t sides) {
    const std::size_t row = std::size_t(width) * std::size_t(stride);
    const int first = std::min(output_row(covered.r0, height, flip), output_row(covered.r1, height, flip));
    const int last = std::max(output_row(covered.r0, height, flip), output_row(covered.r1, height, flip));
    const std::size_t left = std::size_t(covered.c0) * std::size_t(stride);
    const std::size_t right = std::size_t(covered.c1 + 1) * std::size_t(stride);
    for (int y = 0; y < height; ++y) {
        std::uint8_t* line = dst + std::ptrdiff_t(y) * pitch;
        if (y < first || y > last) {
            std::memset(line, 255, row);
        } else {
            const std::size_t head = std::min(sides, left), tail = row - std::min(sides, row - right);
            std::memset(line + head, 255, left - head);
            std::memset(line + right, 255, tail - right);
        }
    }
    const std::size_t image = std::size_t(height) * row;
    if (std::size_t(pitch) == row && fill > image) std::memset(dst + image, 255, fill - image);
}

// Sets the first `count` bytes of the image, as they lie with rows back to back, on
// rows `pitch` bytes apart: whole rows, then part of one.
inline void fill_prefix(std::uint8_t* dst, std::size_t row, std::ptrdiff_t pitch, std::size_t count, std::uint8_t value) {
    if (std::size_t(pitch) == row) return void(std::memset(dst, value, count));
    for (; count > 0; dst += pitch) {
        const std::size_t n = std::min(row, count);
        std::memset(dst, value, n);
        count -= n;
    }
}

}  // namespace qzrcfa::detail
