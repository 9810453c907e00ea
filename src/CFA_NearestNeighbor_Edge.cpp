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
#include <algorithm>
#include <array>
#include <cstdint>

#include "catalogue/members.h"
#include "driver/border.h"
#include "driver/fill.h"
#include "kernels/bayer.h"
#include "qzrcfa.h"

namespace qzrcfa::detail {
namespace {

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

constexpr Edge1Table kEdge1RGGB_Flip8 = with_diagonal_last_pixel(kEdge1RGGB);
constexpr Edge1Table kEdge1BGGR_Flip8 = with_diagonal_last_pixel(kEdge1BGGR);

// The raw frame as the border fills read it: sample (r, c) by its linear offset r *
// width + c, as the interface reads samples (a column beyond a row is in the row after
// it), from rows `pitch` elements apart.
template <class T>
struct Raw {
    const T* base;
    std::ptrdiff_t pitch;
    std::ptrdiff_t width;
    T at(std::ptrdiff_t r, std::ptrdiff_t c) const {
        if (c < 0 || c >= width) {
            const std::ptrdiff_t linear = r * width + c;
            r = linear >= 0 ? linear / width : -((width - 1 - linear) / width);
            c = linear - r * width;
        }
        return base[r * pitch + c];
    }
};

template <class T>
inline void copy_taps(T* out, const Raw<T>& raw, std::ptrdiff_t r, std::ptrdiff_t c, const Taps& taps) {
    for (int i = 0; i < 3; ++i) out[i] = raw.at(r + taps[i].dr, c + taps[i].dc);
}

// Fills one whole row (top or bottom) from raw row s, choosing the case by column parity.
// The columns whose taps all fall inside the row read their samples straight from the
// tap rows, a pair of columns at a time; the others, at the row's ends, through Raw.
template <class T>
void edge1_full_row(const Raw<T>& raw, int s, T* out, int stride, const Taps (&cases)[3]) {
    const int width = int(raw.width);
    int reach_left = 0, reach_right = 0;
    for (int k = 1; k <= 2; ++k)
        for (const Tap& t : cases[k]) reach_left = std::max(reach_left, -int(t.dc)), reach_right = std::max(reach_right, int(t.dc));
    // Odd columns from `first` up to `last`, and the even column after each.
    const int first = std::max(1, reach_left) | 1;
    const int pairs = std::max(0, (width - reach_right - first) / 2);
    const int last = first + 2 * pairs;  // the first column after the pairs (first when none)
    auto ends = [&](int c) { copy_taps(out + std::ptrdiff_t(c) * stride, raw, s, c, c == 0 ? cases[0] : (c & 1) ? cases[1] : cases[2]); };
    for (int c = 0; c < std::min(first, width); ++c) ends(c);
    const T* odd[3];
    const T* even[3];
    for (int i = 0; i < 3; ++i) {
        odd[i] = raw.base + (s + cases[1][i].dr) * raw.pitch + cases[1][i].dc;
        even[i] = raw.base + (s + cases[2][i].dr) * raw.pitch + cases[2][i].dc + 1;
    }
    for (int c = first; c < last; c += 2) {
        T* px = out + std::ptrdiff_t(c) * stride;
        // Pixel by pixel: with fewer than three elements per pixel, pixels overlap.
        for (int i = 0; i < 3; ++i) px[i] = odd[i][c];
        for (int i = 0; i < 3; ++i) px[stride + i] = even[i][c];
    }
    for (int c = last; c < width; ++c) ends(c);
}

template <class T>
int edge1(const Edge1Member& m, const T* src, int width, int height, T* dst, unsigned short bitCount, Pitches pitches) {
    const Edge1Table& t = *m.table;
    const int stride = pixel_stride(bitCount);
    const Raw<T> raw{src, pitches.src, width};
    auto out_row = [&](int s) { return dst + std::ptrdiff_t(output_row(s, height, m.flip)) * pitches.dst; };

    if (width > 0) edge1_full_row(raw, 0, out_row(0), stride, t.top);
    if (height - 2 >= 1) {
        const std::ptrdiff_t row_elements = std::ptrdiff_t(width) * stride;
        for (int s = 1; s <= height - 2; ++s) {
            T* out = out_row(s);
            copy_taps(out, raw, s, 0, t.middle[s & 1][0]);
            copy_taps(out + row_elements - border_side_elements(1), raw, s, width - 1, t.middle[s & 1][1]);
        }
    }
    // With fewer than three rows the bottom row is raw row 1, whatever the height.
    const int bottom = height >= 3 ? height - 1 : 1;
    if (width > 0) edge1_full_row(raw, bottom, out_row(bottom), stride, t.bottom);
    return 0;
}

}  // namespace

int border_fill(const Edge1Member& m, const std::uint8_t* src, int width, int height, std::uint8_t* dst,
                unsigned short bitCount, Pitches pitches) {
    return edge1(m, src, width, height, dst, bitCount, pitches);
}
int border_fill(const Edge1Member& m, const std::uint16_t* src, int width, int height, std::uint16_t* dst,
                unsigned short bitCount, Pitches pitches) {
    return edge1(m, src, width, height, dst, bitCount, pitches);
}

}  // namespace qzrcfa::detail

namespace qzrcfa::members {

using detail::kEdge1BGGR;
using detail::kEdge1BGGR_Flip8;
using detail::kEdge1GBRG;
using detail::kEdge1GRBG;
using detail::kEdge1RGGB;
using detail::kEdge1RGGB_Flip8;

// The member table of the one-pixel fill: each pattern's table and row order; the 8-bit
// bottom-up RGGB and BGGR members have their changed entry, the 16-bit ones do not.
constexpr Edge1 NearestNeighbor_Edge1_RGGB{&kEdge1RGGB, false};
constexpr Edge1 NearestNeighbor_Edge1_BGGR{&kEdge1BGGR, false};
constexpr Edge1 NearestNeighbor_Edge1_GRBG{&kEdge1GRBG, false};
constexpr Edge1 NearestNeighbor_Edge1_GBRG{&kEdge1GBRG, false};
constexpr Edge1 NearestNeighbor_Edge1_RGGB_Flip{&kEdge1RGGB_Flip8, true};
constexpr Edge1 NearestNeighbor_Edge1_BGGR_Flip{&kEdge1BGGR_Flip8, true};
constexpr Edge1 NearestNeighbor_Edge1_GRBG_Flip{&kEdge1GRBG, true};
constexpr Edge1 NearestNeighbor_Edge1_GBRG_Flip{&kEdge1GBRG, true};
constexpr Edge1 NearestNeighbor_Edge1_RGGB_16Bits{&kEdge1RGGB, false};
constexpr Edge1 NearestNeighbor_Edge1_BGGR_16Bits{&kEdge1BGGR, false};
constexpr Edge1 NearestNeighbor_Edge1_GRBG_16Bits{&kEdge1GRBG, false};
constexpr Edge1 NearestNeighbor_Edge1_GBRG_16Bits{&kEdge1GBRG, false};
constexpr Edge1 NearestNeighbor_Edge1_RGGB_Flip_16Bits{&kEdge1RGGB, true};
constexpr Edge1 NearestNeighbor_Edge1_BGGR_Flip_16Bits{&kEdge1BGGR, true};
constexpr Edge1 NearestNeighbor_Edge1_GRBG_Flip_16Bits{&kEdge1GRBG, true};
constexpr Edge1 NearestNeighbor_Edge1_GBRG_Flip_16Bits{&kEdge1GBRG, true};

}  // namespace qzrcfa::members

// Two-pixel fill (Edge2, 8-bit), for the Laplacian family's two-sample margin.
//
// Block rule: a border pixel handed a 2x2 block of the mosaic takes the colour measured
// in its own row and green from its own row of the block, and the colour measured only
// in the other row from that row. The two top rows, the two bottom rows and the left
// pair of every middle row follow it; the full rows choose the block columns c - 1 and
// c (columns 0 and 1 for c == 0), the left pair always columns 0 and 1.
//
// The bottom pair sits at rows p = height - 2 and p + 1 (p = 2 when height <= 4) but is
// read with the phases of rows 0 and 1 whatever the parity of p, the second of its rows
// taking its partner from the row above.
//
// The right pair of a middle row comes from a fixed table of columns width - 3 ..
// width - 1 (placed as if the width were even), rows r and r + 1 only. On a row whose
// column width - 2 is green both pixels share green and the lower row's colour; on a
// colour row the members disagree about pixel width - 2, and that entry is member data.
// The side pairs are written as six bytes, three per pixel, at the start and at the
// end of the output row, whatever the pixel stride: with four-byte pixels they cover
// byte 3 of the first pixel and leave parts of the second untouched.
namespace qzrcfa::detail {
namespace {

constexpr int colour_element(Site s) { return s == Site::Red ? kRed : kBlue; }

// Taps of the block rule for a pixel read with the phase of `phase_row`, its partner
// row at `partner` (+1 below, -1 above), block columns starting `first_dc` from the
// pixel with parity `first_parity`.
constexpr Taps block_taps(Pattern p, int phase_row, int partner, int first_dc, int first_parity) {
    Taps t{};
    for (int k = 0; k < 2; ++k) {
        const std::int8_t dc = std::int8_t(first_dc + k);
        const int parity = (first_parity + k) & 1;
        const Site own = site_at(p, phase_row, parity);
        if (is_green(own)) {
            t[kGreen] = Tap{0, dc};
        } else {
            t[std::size_t(colour_element(own))] = Tap{0, dc};
        }
        const Site other = site_at(p, phase_row + 1, parity);  // partner rows have the other phase
        if (!is_green(other)) t[std::size_t(colour_element(other))] = Tap{std::int8_t(partner), dc};
    }
    return t;
}

struct BlockRow {
    Taps cases[3];  // c == 0, c odd, c even > 0 (the case order of edge1_full_row)
};

constexpr BlockRow block_row(Pattern p, int phase_row, int partner) {
    return {{block_taps(p, phase_row, partner, 0, 0), block_taps(p, phase_row, partner, -1, 0),
             block_taps(p, phase_row, partner, -1, 1)}};
}

constexpr RightPick kGreenRowInner{-3, -2, -2};  // green row, pixel width - 2
constexpr RightPick kGreenRowOuter{-1, -2, -2};  // green row, pixel width - 1
constexpr RightPick kColourRowOuter{-2, -1, -1}; // colour row, pixel width - 1

inline void put_pick(std::uint8_t* out, const Raw<std::uint8_t>& raw, int r, RowPhase ph, RightPick k) {
    const std::ptrdiff_t end = raw.width;
    out[ph.colour] = raw.at(r, end + k.x);
    out[kGreen] = raw.at(r, end + k.g);
    out[ph.other()] = raw.at(r + 1, end + k.y);
}

int edge2(const Edge2Member& m, const std::uint8_t* src, int width, int height, std::uint8_t* dst, unsigned short bitCount,
          Pitches pitches) {
    const int stride = pixel_stride(bitCount);
    const Raw<std::uint8_t> raw{src, pitches.src, width};
    auto out_row = [&](int s) { return dst + std::ptrdiff_t(output_row(s, height, m.flip)) * pitches.dst; };
    const Pattern p = m.pattern;

    if (width >= 1) {
        constexpr int kBelow = 1;
        edge1_full_row(raw, 0, out_row(0), stride, block_row(p, 0, kBelow).cases);
        edge1_full_row(raw, 1, out_row(1), stride, block_row(p, 1, kBelow).cases);
    }
    if (height >= 5) {
        const Taps left[2] = {block_taps(p, 0, 1, 0, 0), block_taps(p, 1, 1, 0, 0)};
        const std::ptrdiff_t row_bytes = std::ptrdiff_t(width) * stride;
        for (int r = 2; r <= height - 3; ++r) {
            std::uint8_t* out = out_row(r);
            // Left pair: one value written twice, three bytes apart.
            std::uint8_t v[3];
            copy_taps(v, raw, r, 0, left[r & 1]);
            for (int i = 0; i < border_side_elements(2); ++i) out[i] = v[i % 3];
            // Right pair: the six bytes that end the output row.
            const RowPhase ph = row_phase(p, r);
            const bool green_row = ph.green_even;
            std::uint8_t* tail = out + row_bytes - border_side_elements(2);
            put_pick(tail, raw, r, ph, green_row ? kGreenRowInner : m.colour_row_inner);
            put_pick(tail + 3, raw, r, ph, green_row ? kGreenRowOuter : kColourRowOuter);
        }
    }
    if (width <= 0) return 0;
    const int bottom = height >= 5 ? height - 2 : 2;
    edge1_full_row(raw, bottom, out_row(bottom), stride, block_row(p, 0, +1).cases);
    edge1_full_row(raw, bottom + 1, out_row(bottom + 1), stride, block_row(p, 1, -1).cases);
    return 0;
}

}  // namespace

int border_fill(const Edge2Member& m, const std::uint8_t* src, int width, int height, std::uint8_t* dst,
                unsigned short bitCount, Pitches pitches) {
    return edge2(m, src, width, height, dst, bitCount, pitches);
}

}  // namespace qzrcfa::detail

namespace qzrcfa::members {

using detail::Pattern;
using detail::RightPick;

constexpr RightPick kInnerRGGB{-2, -1, -3};
constexpr RightPick kInnerBGGR{-2, -3, -3};
constexpr RightPick kInnerGRBG_GBRG{-2, -3, -1};

// The member table of the two-pixel fill. Bottom-up members read exactly as their
// top-down twins.
constexpr Edge2 NearestNeighbor_Edge2_RGGB{Pattern::RGGB, false, kInnerRGGB};
constexpr Edge2 NearestNeighbor_Edge2_BGGR{Pattern::BGGR, false, kInnerBGGR};
constexpr Edge2 NearestNeighbor_Edge2_GRBG{Pattern::GRBG, false, kInnerGRBG_GBRG};
constexpr Edge2 NearestNeighbor_Edge2_GBRG{Pattern::GBRG, false, kInnerGRBG_GBRG};
constexpr Edge2 NearestNeighbor_Edge2_RGGB_Flip{Pattern::RGGB, true, kInnerRGGB};
constexpr Edge2 NearestNeighbor_Edge2_BGGR_Flip{Pattern::BGGR, true, kInnerBGGR};
constexpr Edge2 NearestNeighbor_Edge2_GRBG_Flip{Pattern::GRBG, true, kInnerGRBG_GBRG};
constexpr Edge2 NearestNeighbor_Edge2_GBRG_Flip{Pattern::GBRG, true, kInnerGRBG_GBRG};

}  // namespace qzrcfa::members
