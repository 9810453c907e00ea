// Laplacian-corrected demosaic, on a two-sample margin.
//
// Every member fills the output with 255, calls the two-pixel border fill of its
// pattern and row order, and then makes two passes over rows and columns 2 .. size - 3:
//
// Green pass. A green site copies its sample into G. A red or blue site X compares the
// horizontal and vertical gradients H = |left - right| + |dh| and V = |up - down| + |dv|,
// where dh and dv are the second differences 2X - (two samples away on either side),
// and takes green along the smaller one: the mean of the two neighbours plus a quarter
// of that direction's second difference (both directions, an eighth of their sum and
// the mean of the four neighbours on a tie). Only the second difference is divided,
// as a signed value truncated toward zero; the result is clamped to 0 .. 255. The site
// keeps its own sample in its own colour, and a red site writes it into B as well for
// the time being: the red/blue pass replaces it, but until then it is what a four-byte
// neighbour reads at that place.
//
// Red/blue pass. A green site takes the colour of its row from the left and right
// samples and the other colour from the samples above and below (plain means). A red or
// blue site takes the missing colour along the diagonal with the smaller
// |sample difference| + |green second difference|, as the two samples' mean corrected
// by half that second difference (both diagonals on a tie); the whole sum is divided,
// then clamped. The four greens are read from the output as bytes at fixed offsets -2
// and +4 from the pixels directly above and below in the output, spaced for three-byte
// pixels whatever the stride: with four-byte pixels they are whatever bytes lie there.
//
// Which output row supplies the upper-left and upper-right greens is member data: the
// raw row above for every member but the bottom-up RGGB one, which takes them from
// the raw row below and so pairs each sample diagonal with the green second difference
// of the other diagonal.
//
// Laplacian2 (RGGB, top-down, C++ linkage) runs the same passes with its green pass
// displaced two rows down and two columns right: rows and columns 4 .. size - 1. Its
// last two rows read up to two rows past the end of the frame; those samples read as 0.
//
// When the member's 255 pre-fill is left to the green pass (see driver/demosaic.h), that
// pass writes whole pixels: 255 wherever the pre-fill would have stood.
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "catalogue/members.h"
#include "kernels/bayer.h"
#include "kernels/kernels.h"
#include "qzrcfa.h"

// The per-site bodies are inlined into the row walk, which calls each twice.
#define LAPLACIAN_INLINE __attribute__((always_inline))

namespace qzrcfa::detail {
namespace {

constexpr int clamp_byte(int x) { return x > 255 ? 255 : (x < 0 ? 0 : x); }

constexpr int absolute(int x) { return x < 0 ? -x : x; }

// Samples of the frame around a raw row: S(dr, c) is column c of row r + dr.
struct Direct {
    const std::uint8_t* s;
    std::ptrdiff_t pitch;
    int operator()(int dr, int c) const { return s[dr * pitch + c]; }
};

// The same where reads reach past the row's end or the frame's: a column beyond the
// row is read, as the interface reads samples, by its linear offset (it is the next
// row's first samples), and every sample at or past the end of the frame reads as 0.
// Rows may be padded (pitch above the width).
struct Resolved {
    const std::uint8_t* s;
    std::ptrdiff_t pitch;
    int width, rows_left;  // rows from r to the end of the frame
    int operator()(int dr, int c) const {
        const int past = c >= width ? 1 : c < 0 ? -1 : 0;  // columns reach at most one row either way
        dr += past;
        c -= past * width;
        return dr < rows_left ? s[dr * pitch + c] : 0;
    }
};

// Visits the columns c .. c_last of a row two at a time, one green site and one red or
// blue site, without asking for the phase of every pixel.
template <class Green, class Colour>
inline void walk_row(const Row<std::uint8_t>& row, int c, Green green_site, Colour colour_site) {
    const int last = row.c_last;
    if (c > last) return;
    if (row.phase.green_at(c)) {
        for (; c + 1 <= last; c += 2) {
            green_site(c);
            colour_site(c + 1);
        }
        if (c <= last) green_site(c);
    } else {
        for (; c + 1 <= last; c += 2) {
            colour_site(c);
            green_site(c + 1);
        }
        if (c <= last) colour_site(c);
    }
}

// `first` when a < b, `second` when b < a, `tie` otherwise. Written with masks rather
// than branches: which gradient is the smaller changes from pixel to pixel, and the
// compiler turns a conditional expression back into jumps here.
constexpr int pick(int a, int b, int first, int second, int tie) {
    const int take_first = -int(a < b);
    const int take_second = -int(b < a);
    return (first & take_first) | (second & take_second) | (tie & ~(take_first | take_second));
}

template <int N>
using Int = std::integral_constant<int, N>;

// Calls f(colour, stride) with the row's colour, and the pixel stride when it is 3 or
// 4, as compile-time constants, so the byte offsets inside a pixel are immediates.
template <class F>
inline void with_layout(const Row<std::uint8_t>& row, F f) {
    auto by_stride = [&](auto colour) {
        if (row.stride == 3) {
            f(colour, Int<3>{});
        } else if (row.stride == 4) {
            f(colour, Int<4>{});
        } else {
            f(colour, row.stride);
        }
    };
    if (row.phase.colour == kRed) {
        by_stride(Int<kRed>{});
    } else {
        by_stride(Int<kBlue>{});
    }
}

template <class Samples, class Colour, class Stride>
inline void green_row(const Row<std::uint8_t>& row, int c, Samples S, Colour colour_, Stride stride_) {
    constexpr bool red_row = Colour::value == kRed;
    const int colour = colour_;
    const std::ptrdiff_t stride = stride_;
    const bool fill255 = row.fill255;
    std::uint8_t* const d = row.d;

    auto colour_site = [&](int col) LAPLACIAN_INLINE {
        std::uint8_t* px = d + col * stride;
        const int x = S(0, col);
        const int left = S(0, col - 1), right = S(0, col + 1);
        const int up = S(-1, col), down = S(1, col);
        const int dh = 2 * x - S(0, col - 2) - S(0, col + 2);
        const int dv = 2 * x - S(-2, col) - S(2, col);
        const int h = absolute(left - right) + absolute(dh);
        const int v = absolute(up - down) + absolute(dv);
        const int g = pick(h, v, dh / 4 + ((left + right) >> 1), dv / 4 + ((up + down) >> 1),
                           (dh + dv) / 8 + ((left + right + up + down) >> 2));
        px[kGreen] = std::uint8_t(clamp_byte(g));
        px[colour] = std::uint8_t(x);
        if (red_row) px[kBlue] = std::uint8_t(x);  // interim, replaced by the red/blue pass
        if (fill255) {
            if (!red_row) px[kRed] = 255;
            if (stride == 4) px[3] = 255;
        }
    };
    auto green_site = [&](int col) LAPLACIAN_INLINE {
        std::uint8_t* px = d + col * stride;
        px[kGreen] = std::uint8_t(S(0, col));
        if (fill255) {
            px[kBlue] = px[kRed] = 255;
            if (stride == 4) px[3] = 255;
        }
    };
    walk_row(row, c, green_site, colour_site);
}

}  // namespace

int laplacian_green_columns(const Row<std::uint8_t>& row, const LaplacianParams&, int c) {
    // Rows up to height - 3 read no further than the last sample of the frame, and only
    // the displaced pass reads past a row's end; those take the resolved path.
    if (row.r + 2 < row.height && (row.pitch == row.width || row.c_last + 2 < row.width)) {
        with_layout(row, [&](auto colour, auto stride) { green_row(row, c, Direct{row.s, row.pitch}, colour, stride); });
    } else {
        const Resolved samples{row.s, row.pitch, row.width, row.height - row.r};
        with_layout(row, [&](auto colour, auto stride) { green_row(row, c, samples, colour, stride); });
    }
    return row.c_last + 1;
}

namespace {

template <class Colour, class Stride>
inline void rb_row(const Row<std::uint8_t>& row, int c, const LaplacianParams& params, Colour colour_, Stride stride_) {
    const std::ptrdiff_t w = row.pitch;
    const int colour = colour_;
    const int other = 2 - colour;
    const std::ptrdiff_t stride = stride_;
    const std::ptrdiff_t upper = params.crossed_diagonals ? row.down : row.up;
    const std::ptrdiff_t lower = params.crossed_diagonals ? row.up : row.down;
    const std::uint8_t* const s = row.s;
    std::uint8_t* const d = row.d;

    auto green_site = [&](int c) LAPLACIAN_INLINE {
        std::uint8_t* px = d + c * stride;
        px[colour] = std::uint8_t((s[c - 1] + s[c + 1]) >> 1);
        px[other] = std::uint8_t((s[c - w] + s[c + w]) >> 1);
    };
    auto colour_site = [&](int c) LAPLACIAN_INLINE {
        std::uint8_t* px = d + c * stride;
        const std::uint8_t* gu = px + upper;
        const std::uint8_t* gl = px + lower;
        // Greens at fixed three-byte spacing: -2 is the pixel to the left, +4 the one
        // to the right, when pixels are three bytes.
        const int g = px[kGreen];
        const int d1 = 2 * g - gu[-2] - gl[4];
        const int d2 = 2 * g - gu[4] - gl[-2];
        const int ul = s[c - w - 1], lr = s[c + w + 1];
        const int ur = s[c - w + 1], ll = s[c + w - 1];
        const int e1 = absolute(ul - lr) + absolute(d1);
        const int e2 = absolute(ur - ll) + absolute(d2);
        const int v = pick(e1, e2, (ul + lr + d1) / 2, (ur + ll + d2) / 2, (ul + lr + ur + ll + d1 + d2) / 4);
        px[other] = std::uint8_t(clamp_byte(v));
    };
    walk_row(row, c, green_site, colour_site);
}

}  // namespace

int laplacian_colour_columns(const Row<std::uint8_t>& row, const LaplacianParams& params, int c) {
    with_layout(row, [&](auto colour, auto stride) { rb_row(row, c, params, colour, stride); });
    return row.c_last + 1;
}

}  // namespace qzrcfa::detail

namespace qzrcfa::members {
namespace {

using detail::Pattern;

constexpr Laplacian laplacian(Pattern p, bool flip, detail::ColourFn<std::uint8_t> border, catalogue::Id border_id,
                              bool crossed, int green_shift = 0) {
    return Laplacian{p, flip, detail::Prefill::Bytes255, border, border_id, 5, detail::LaplacianParams{crossed},
                     {{detail::laplacian_green_columns, &detail::KernelSet::laplacian_green, 2, green_shift},
                      {detail::laplacian_colour_columns, &detail::KernelSet::laplacian_colour, 2, 0}},
                     {&detail::KernelSet::laplacian_greens, &detail::KernelSet::laplacian_sweep, false, false, true, true, true}};
}

}  // namespace

// The member table. Every member pre-fills; only the bottom-up RGGB member crosses its
// diagonals, and only Laplacian2 (C++ linkage, the catalogue says) displaces its green
// pass.
constexpr Laplacian Laplacian_RGGB = laplacian(Pattern::RGGB, false, QZRCFA_BORDER(Edge2_RGGB), false);
constexpr Laplacian Laplacian_BGGR = laplacian(Pattern::BGGR, false, QZRCFA_BORDER(Edge2_BGGR), false);
constexpr Laplacian Laplacian_GRBG = laplacian(Pattern::GRBG, false, QZRCFA_BORDER(Edge2_GRBG), false);
constexpr Laplacian Laplacian_GBRG = laplacian(Pattern::GBRG, false, QZRCFA_BORDER(Edge2_GBRG), false);
constexpr Laplacian Laplacian_RGGB_Flip = laplacian(Pattern::RGGB, true, QZRCFA_BORDER(Edge2_RGGB_Flip), true);
constexpr Laplacian Laplacian_BGGR_Flip = laplacian(Pattern::BGGR, true, QZRCFA_BORDER(Edge2_BGGR_Flip), false);
constexpr Laplacian Laplacian_GRBG_Flip = laplacian(Pattern::GRBG, true, QZRCFA_BORDER(Edge2_GRBG_Flip), false);
constexpr Laplacian Laplacian_GBRG_Flip = laplacian(Pattern::GBRG, true, QZRCFA_BORDER(Edge2_GBRG_Flip), false);
constexpr Laplacian Laplacian2_RGGB = laplacian(Pattern::RGGB, false, QZRCFA_BORDER(Edge2_RGGB), false, 2);

}  // namespace qzrcfa::members
