// Border fills: the outer ring of the output that the interior kernels do not reach.
//
// One-pixel fill (Edge1, 8- and 16-bit). Every ring pixel copies its three colours from
// raw samples next to it. Which sample feeds which element is data: a table per pattern
// with one case for the top row (read with the phase of row 0, partner row below), the
// first and last pixel of a middle row (by the parity of the row) and the bottom row
// (read with the phase of row 1, partner row above). The top and bottom rows choose
// their case by the parity of the column; the last pixel of a middle row is always
// read as if the width were even, and is written as the three elements that end the
// output row, whatever the pixel stride. A member is its pattern's table, its row order
// and, for the 8-bit bottom-up RGGB and BGGR members, one changed entry.
#include <array>
#include <cstdint>

#include "detail/bayer.h"
#include "detail/frame.h"
#include "qzrcfa.h"

namespace qzrcfa::detail {
namespace {

// A source sample relative to the position being filled: S(s + dr, c + dc). Reads are
// by linear offset, so a column outside 0 .. width - 1 reaches into the next or
// previous raw row.
struct Tap {
    std::int8_t dr, dc;
};
using Taps = std::array<Tap, 3>;  // blue, green, red

struct Edge1Table {
    Taps top[3];        // row 0: c == 0, c odd, c even > 0
    Taps middle[2][2];  // [row parity][0 = first pixel (c = 0), 1 = last pixel (c = width - 1)]
    Taps bottom[3];     // last row: c == 0, c odd, c even > 0
};

constexpr Edge1Table kEdge1RGGB = {
    {{{{1, 1}, {0, 1}, {0, 0}}}, {{{1, 0}, {0, 0}, {0, -1}}}, {{{1, -1}, {0, -1}, {0, 0}}}},
    {{{{{1, 1}, {0, 1}, {0, 0}}}, {{{1, 0}, {0, 0}, {0, -1}}}},     // even rows
     {{{{0, 1}, {0, 0}, {1, 0}}}, {{{0, 0}, {0, -1}, {1, 0}}}}},    // odd rows: red straight below
    {{{{0, 1}, {0, 0}, {-1, 0}}}, {{{0, 0}, {0, -1}, {-1, -1}}}, {{{0, -1}, {0, 0}, {-1, 0}}}},
};

constexpr Edge1Table kEdge1BGGR = {
    // top row, even c > 0: red from the diagonal on the right
    {{{{0, 0}, {0, 1}, {1, 1}}}, {{{0, -1}, {0, 0}, {1, 0}}}, {{{0, 0}, {0, -1}, {1, 1}}}},
    {{{{{0, 0}, {0, 1}, {1, 1}}}, {{{0, -1}, {0, 0}, {1, 0}}}},     // even rows
     {{{{1, 0}, {0, 0}, {0, 1}}}, {{{1, 0}, {0, -1}, {0, 0}}}}},    // odd rows: blue straight below
    {{{{-1, 0}, {0, 0}, {0, 1}}}, {{{-1, -1}, {0, -1}, {0, 0}}}, {{{-1, 0}, {0, 0}, {0, -1}}}},
};

constexpr Edge1Table kEdge1GRBG = {
    {{{{1, 0}, {0, 0}, {0, 1}}}, {{{1, -1}, {0, -1}, {0, 0}}}, {{{1, 0}, {0, 0}, {0, -1}}}},
    {{{{{1, 0}, {0, 0}, {0, 1}}}, {{{1, -1}, {0, -1}, {0, 0}}}},
     {{{{0, 0}, {0, 1}, {1, 1}}}, {{{0, -1}, {0, 0}, {1, 0}}}}},
    {{{{0, 0}, {0, 1}, {-1, 1}}}, {{{0, -1}, {0, 0}, {-1, 0}}}, {{{0, 0}, {0, -1}, {-1, -1}}}},
};

constexpr Edge1Table kEdge1GBRG = {
    {{{{0, 1}, {0, 0}, {1, 0}}}, {{{0, 0}, {0, -1}, {1, -1}}}, {{{0, -1}, {0, 0}, {1, 0}}}},
    {{{{{0, 1}, {0, 0}, {1, 0}}}, {{{0, 0}, {0, -1}, {1, -1}}}},
     {{{{1, 1}, {0, 1}, {0, 0}}}, {{{1, 0}, {0, 0}, {0, -1}}}}},
    {{{{-1, 1}, {0, 1}, {0, 0}}}, {{{-1, 0}, {0, 0}, {0, -1}}}, {{{-1, -1}, {0, -1}, {0, 0}}}},
};

// The 8-bit bottom-up RGGB and BGGR members take the last pixel of their odd middle
// rows' straight-below sample from the diagonal instead (S(s + 1, width - 2)).
constexpr Edge1Table with_diagonal_last_pixel(Edge1Table t) {
    for (Tap& tap : t.middle[1][1]) {
        if (tap.dr == 1 && tap.dc == 0) tap.dc = -1;
    }
    return t;
}

struct Edge1Member {
    const Edge1Table* table;
    bool flip;
};

constexpr Edge1Table kEdge1RGGB_Flip8 = with_diagonal_last_pixel(kEdge1RGGB);
constexpr Edge1Table kEdge1BGGR_Flip8 = with_diagonal_last_pixel(kEdge1BGGR);

constexpr Edge1Member kEdge1_RGGB{&kEdge1RGGB, false};
constexpr Edge1Member kEdge1_BGGR{&kEdge1BGGR, false};
constexpr Edge1Member kEdge1_GRBG{&kEdge1GRBG, false};
constexpr Edge1Member kEdge1_GBRG{&kEdge1GBRG, false};
constexpr Edge1Member kEdge1_RGGB_Flip8{&kEdge1RGGB_Flip8, true};
constexpr Edge1Member kEdge1_BGGR_Flip8{&kEdge1BGGR_Flip8, true};
constexpr Edge1Member kEdge1_RGGB_Flip{&kEdge1RGGB, true};  // 16-bit: same entries as the plain member
constexpr Edge1Member kEdge1_BGGR_Flip{&kEdge1BGGR, true};
constexpr Edge1Member kEdge1_GRBG_Flip{&kEdge1GRBG, true};
constexpr Edge1Member kEdge1_GBRG_Flip{&kEdge1GBRG, true};

template <class T>
inline void copy_taps(T* out, const T* at, int width, const Taps& taps) {
    for (int i = 0; i < 3; ++i) out[i] = at[std::ptrdiff_t(taps[i].dr) * width + taps[i].dc];
}

// Fills one whole row (top or bottom) from raw row s, choosing the case by column parity.
template <class T>
void edge1_full_row(const T* src, int width, int s, T* out, int stride, const Taps (&cases)[3]) {
    const T* row = src + std::ptrdiff_t(s) * width;
    for (int c = 0; c < width; ++c) {
        const Taps& taps = c == 0 ? cases[0] : (c & 1) ? cases[1] : cases[2];
        copy_taps(out + std::ptrdiff_t(c) * stride, row + c, width, taps);
    }
}

template <class T>
int edge1(const Edge1Member& m, T* src, int width, int height, T* dst, unsigned short bitCount) {
    const Edge1Table& t = *m.table;
    const int stride = pixel_stride(bitCount);
    auto out_row = [&](int s) { return dst + row_offset(output_row(s, height, m.flip), width, stride); };

    if (width > 0) edge1_full_row(src, width, 0, out_row(0), stride, t.top);
    if (height - 2 >= 1) {
        const std::ptrdiff_t row_elements = std::ptrdiff_t(width) * stride;
        for (int s = 1; s <= height - 2; ++s) {
            const T* row = src + std::ptrdiff_t(s) * width;
            T* out = out_row(s);
            copy_taps(out, row, width, t.middle[s & 1][0]);
            copy_taps(out + row_elements - 3, row + (width - 1), width, t.middle[s & 1][1]);
        }
    }
    // With fewer than three rows the bottom row is raw row 1, whatever the height.
    const int bottom = height >= 3 ? height - 1 : 1;
    if (width > 0) edge1_full_row(src, width, bottom, out_row(bottom), stride, t.bottom);
    return 0;
}

}  // namespace
}  // namespace qzrcfa::detail

using qzrcfa::detail::edge1;
namespace d = qzrcfa::detail;

extern "C" {

QZRCFA_API int QZRCFA_NearestNeighbor_Edge1_RGGB(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return edge1(d::kEdge1_RGGB, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_NearestNeighbor_Edge1_BGGR(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return edge1(d::kEdge1_BGGR, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_NearestNeighbor_Edge1_GRBG(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return edge1(d::kEdge1_GRBG, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_NearestNeighbor_Edge1_GBRG(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return edge1(d::kEdge1_GBRG, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_NearestNeighbor_Edge1_RGGB_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return edge1(d::kEdge1_RGGB_Flip8, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_NearestNeighbor_Edge1_BGGR_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return edge1(d::kEdge1_BGGR_Flip8, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_NearestNeighbor_Edge1_GRBG_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return edge1(d::kEdge1_GRBG_Flip, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_NearestNeighbor_Edge1_GBRG_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return edge1(d::kEdge1_GBRG_Flip, src, width, height, dst, bitCount);
}

QZRCFA_API int QZRCFA_NearestNeighbor_Edge1_RGGB_16Bits(unsigned short* src, int width, int height, unsigned short* dst, unsigned short bitCount) {
    return edge1(d::kEdge1_RGGB, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_NearestNeighbor_Edge1_BGGR_16Bits(unsigned short* src, int width, int height, unsigned short* dst, unsigned short bitCount) {
    return edge1(d::kEdge1_BGGR, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_NearestNeighbor_Edge1_GRBG_16Bits(unsigned short* src, int width, int height, unsigned short* dst, unsigned short bitCount) {
    return edge1(d::kEdge1_GRBG, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_NearestNeighbor_Edge1_GBRG_16Bits(unsigned short* src, int width, int height, unsigned short* dst, unsigned short bitCount) {
    return edge1(d::kEdge1_GBRG, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_NearestNeighbor_Edge1_RGGB_Flip_16Bits(unsigned short* src, int width, int height, unsigned short* dst, unsigned short bitCount) {
    return edge1(d::kEdge1_RGGB_Flip, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_NearestNeighbor_Edge1_BGGR_Flip_16Bits(unsigned short* src, int width, int height, unsigned short* dst, unsigned short bitCount) {
    return edge1(d::kEdge1_BGGR_Flip, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_NearestNeighbor_Edge1_GRBG_Flip_16Bits(unsigned short* src, int width, int height, unsigned short* dst, unsigned short bitCount) {
    return edge1(d::kEdge1_GRBG_Flip, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_NearestNeighbor_Edge1_GBRG_Flip_16Bits(unsigned short* src, int width, int height, unsigned short* dst, unsigned short bitCount) {
    return edge1(d::kEdge1_GBRG_Flip, src, width, height, dst, bitCount);
}

}  // extern "C"
