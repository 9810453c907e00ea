// Nearest neighbour: 8-bit colour, 16-bit colour and grey output.
//
// Every interior colour pixel takes its missing colours from a two-by-two
// neighbourhood: the pixel, its horizontal neighbour on one side, and the two samples
// below them. The 8-bit members do not share one neighbourhood; each names its own:
//   right, averaged: neighbour on the right, green the mean of the block's two greens;
//   right, copied: neighbour on the right, green copied from the block's upper row;
//   left, copied: neighbour on the left, green copied from the block's upper row.
// The 16-bit members all take the block on the left with green copied: pure copies.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "detail/bayer.h"
#include "detail/border.h"
#include "detail/exports.h"
#include "detail/frame.h"
#include "detail/kernels.h"
#include "qzrcfa.h"

namespace qzrcfa::detail {

constexpr NearestForm kRightAveraged{+1, true};
constexpr NearestForm kRightCopied{+1, false};
constexpr NearestForm kLeftCopied{-1, false};

// Reference row kernel. At a red or blue site: own colour = C, opposite colour = the
// diagonal sample below, green = the horizontal neighbour (or its mean with the sample
// below). At a green site: the row's colour = the horizontal neighbour, the other
// colour = the sample below, green = C (or its mean with the diagonal below).
// Samples are 8- or 16-bit; so are the output elements.
template <class T>
static int nearest(const Row<T>& row, const NearestForm& form, int c) {
    const int dc = form.dc;
    const int colour = row.phase.colour;
    const int other = row.phase.other();
    for (; c <= row.c_last; ++c) {
        const T* s = row.s + c;
        const T* below = s + row.width;
        T* px = row.d + std::ptrdiff_t(c) * row.stride;
        if (row.phase.green_at(c)) {
            px[colour] = s[dc];
            px[other] = below[0];
            px[kGreen] = form.average_green ? T((s[0] + below[dc]) >> 1) : s[0];
        } else {
            px[colour] = s[0];
            px[other] = below[dc];
            px[kGreen] = form.average_green ? T((s[dc] + below[0]) >> 1) : s[dc];
        }
        if (row.white && row.stride == 4) px[3] = T(255);
    }
    return c;
}

int nearest_columns(const Row<std::uint8_t>& row, const NearestForm& form, int c) { return nearest(row, form, c); }
int nearest_columns(const Row<std::uint16_t>& row, const NearestForm& form, int c) { return nearest(row, form, c); }

// Grey reference: out[c] = (upper[c] + upper[c + 1] + lower[c] + lower[c + 1]) >> 2,
// summed without overflow.
template <class T>
static int grey_reference(const Row<T>& row, int c) {
    const T* upper = row.s;
    const T* lower = row.s + row.width;
    for (; c <= row.c_last; ++c) row.d[c] = T((upper[c] + upper[c + 1] + lower[c] + lower[c + 1]) >> 2);
    return c;
}

int grey_columns(const Row<std::uint8_t>& row, const NoParams&, int c) { return grey_reference(row, c); }
int grey_columns(const Row<std::uint16_t>& row, const NoParams&, int c) { return grey_reference(row, c); }

namespace {

using NearestMember = ColourMember<std::uint8_t, NearestForm>;

constexpr NearestMember nearest8(Pattern p, bool flip, Prefill fill, ColourFn<std::uint8_t> border,
                                 Border border_id, NearestForm form) {
    return NearestMember{p, flip, fill, border, border_id, 3, form, {{nearest_columns, &KernelSet::nearest, 1, 0}, {}}};
}

// The member table: which neighbourhood each member uses, and which pre-fills.
constexpr NearestMember kNearest_RGGB = nearest8(Pattern::RGGB, false, Prefill::White, QZRCFA_BORDER(Edge1_RGGB), kRightAveraged);
constexpr NearestMember kNearest_RGGB_Flip = nearest8(Pattern::RGGB, true, Prefill::None, QZRCFA_BORDER(Edge1_RGGB_Flip), kRightAveraged);
constexpr NearestMember kNearest_BGGR = nearest8(Pattern::BGGR, false, Prefill::None, QZRCFA_BORDER(Edge1_BGGR), kLeftCopied);
constexpr NearestMember kNearest_BGGR_Flip = nearest8(Pattern::BGGR, true, Prefill::None, QZRCFA_BORDER(Edge1_BGGR_Flip), kRightAveraged);
constexpr NearestMember kNearest_GRBG = nearest8(Pattern::GRBG, false, Prefill::None, QZRCFA_BORDER(Edge1_GRBG), kRightAveraged);
constexpr NearestMember kNearest_GRBG_Flip = nearest8(Pattern::GRBG, true, Prefill::None, QZRCFA_BORDER(Edge1_GRBG_Flip), kRightAveraged);
constexpr NearestMember kNearest_GBRG = nearest8(Pattern::GBRG, false, Prefill::None, QZRCFA_BORDER(Edge1_GBRG), kRightCopied);
constexpr NearestMember kNearest_GBRG_Flip = nearest8(Pattern::GBRG, true, Prefill::None, QZRCFA_BORDER(Edge1_GBRG_Flip), kRightCopied);

// The 16-bit members: every pattern and row order takes the block on the left with
// green from its upper row, and none pre-fills.
using Nearest16Member = ColourMember<std::uint16_t, NearestForm>;

constexpr Nearest16Member nearest16(Pattern p, bool flip, ColourFn<std::uint16_t> border, Border border_id) {
    return Nearest16Member{p, flip, Prefill::None, border, border_id, 3, kLeftCopied, {{nearest_columns, &KernelSet::nearest16, 1, 0}, {}}};
}

constexpr Nearest16Member kNearest_RGGB_16 = nearest16(Pattern::RGGB, false, QZRCFA_BORDER(Edge1_RGGB_16Bits));
constexpr Nearest16Member kNearest_BGGR_16 = nearest16(Pattern::BGGR, false, QZRCFA_BORDER(Edge1_BGGR_16Bits));
constexpr Nearest16Member kNearest_GRBG_16 = nearest16(Pattern::GRBG, false, QZRCFA_BORDER(Edge1_GRBG_16Bits));
constexpr Nearest16Member kNearest_GBRG_16 = nearest16(Pattern::GBRG, false, QZRCFA_BORDER(Edge1_GBRG_16Bits));
constexpr Nearest16Member kNearest_RGGB_Flip_16 = nearest16(Pattern::RGGB, true, QZRCFA_BORDER(Edge1_RGGB_Flip_16Bits));
constexpr Nearest16Member kNearest_BGGR_Flip_16 = nearest16(Pattern::BGGR, true, QZRCFA_BORDER(Edge1_BGGR_Flip_16Bits));
constexpr Nearest16Member kNearest_GRBG_Flip_16 = nearest16(Pattern::GRBG, true, QZRCFA_BORDER(Edge1_GRBG_Flip_16Bits));
constexpr Nearest16Member kNearest_GBRG_Flip_16 = nearest16(Pattern::GBRG, true, QZRCFA_BORDER(Edge1_GBRG_Flip_16Bits));

// Grey output. Every pixel is the truncated mean of the two-by-two block whose
// top-left sample it is; the pattern does not enter the arithmetic. Raw rows 0 to
// height - 2 are averaged into their output rows, and the one row left (the last, or
// for bottom-up members the first) is a copy of its neighbour. The members differ in
// how they finish the right-hand columns of a row, and in row order:
//   two-column copy: columns width - 2 and width - 1 each repeat the element to their
//     left, so both equal column width - 3;
//   last-column shuffle: columns up to width - 2 are averaged; then the two elements
//     after the row receive columns width - 3 and width - 2, and the last column
//     repeats column width - 4. The two elements after the row are the first two of
//     the next row in memory: top-down members overwrite them with the next row;
//     bottom-up members have already finished that row, and their first row filled
//     writes two elements past the end of the image.
// Both read the output as already written, so on narrow frames they reach the
// elements before the row.
enum class GreyRightEdge : std::uint8_t { TwoColumnCopy, LastColumnShuffle };

struct GreyMember {
    bool flip;
    GreyRightEdge right;
};

// The members with their own implementation. The bottom-up BGGR, GRBG and GBRG
// members (8- and 16-bit) are not here: their entry points hand over to the bottom-up
// RGGB member, so the 8-bit ones copy two columns although their top-down siblings
// shuffle.
constexpr GreyMember kGrey_RGGB{false, GreyRightEdge::TwoColumnCopy};
constexpr GreyMember kGrey_RGGB_Flip{true, GreyRightEdge::TwoColumnCopy};
constexpr GreyMember kGrey_BGGR{false, GreyRightEdge::LastColumnShuffle};
constexpr GreyMember kGrey_GRBG{false, GreyRightEdge::LastColumnShuffle};
constexpr GreyMember kGrey_GBRG{false, GreyRightEdge::LastColumnShuffle};
constexpr GreyMember kGrey_RGGB_16{false, GreyRightEdge::LastColumnShuffle};
constexpr GreyMember kGrey_BGGR_16{false, GreyRightEdge::LastColumnShuffle};
constexpr GreyMember kGrey_GRBG_16{false, GreyRightEdge::LastColumnShuffle};
constexpr GreyMember kGrey_GBRG_16{false, GreyRightEdge::LastColumnShuffle};
constexpr GreyMember kGrey_RGGB_Flip_16{true, GreyRightEdge::LastColumnShuffle};

template <class T>
void grey_finish_row(GreyRightEdge right, T* out, int width, bool spill = true) {
    if (right == GreyRightEdge::TwoColumnCopy) {
        for (int c = width >= 2 ? width - 2 : 0; c < width; ++c) out[c] = out[c - 1];
    } else {
        const int c = width - 1;
        if (spill) {
            out[c + 1] = out[c - 2];
            out[c + 2] = out[c - 1];
        }
        out[c] = out[c - 3];
    }
}

// Grey output, one call: on the calling thread alone or, with `tasks`, in bands of
// rows on several threads with the same elements. A row reads nothing any other row
// writes except through the last-column shuffle's two elements spilled into the next
// row in memory: top-down, the next row overwrites them, so the bands leave them out;
// bottom-up, they stand in the row below, so they are copied in once every row is done
// (with width 5 or more, what a spill copies is no spill's).
template <class T>
int grey(const GreyMember& m, const T* src, int width, int height, T* dst, const Tasks* tasks = nullptr) {
    const std::size_t row_bytes = std::size_t(std::ptrdiff_t(width)) * sizeof(T);
    if (height < 1) return 0;
    if (height == 1) {
        // Nothing to average: the row is copied from the row's width of elements just
        // before the image (top-down) or just after it (bottom-up).
        std::memcpy(dst, m.flip ? dst + width : dst - width, row_bytes);
        return 0;
    }
    const int averaged = m.right == GreyRightEdge::TwoColumnCopy ? width - 2 : width - 1;
    const KernelSet& kernels = kernel_set(best_isa());
    auto out_row = [&](int s) { return dst + row_offset(output_row(s, height, m.flip), width, 1); };
    auto average = [&](int s, bool spill) {
        Row<T> row{};
        row.s = src + std::ptrdiff_t(s) * width;
        row.width = width;
        row.d = out_row(s);
        row.c_first = 0;
        row.c_last = averaged - 1;
        if constexpr (sizeof(T) == 1) {
            grey_columns(row, NoParams{}, kernels.grey(row, NoParams{}, 0));
        } else {
            grey_columns(row, NoParams{}, kernels.grey16(row, NoParams{}, 0));
        }
        grey_finish_row(m.right, row.d, width, spill);
    };
    if (tasks != nullptr && tasks->threads() > 1 && width >= 5) {
        const Bands bands{0, height - 1, std::min(tasks->threads() * 4, std::max(1, height / 8))};
        tasks->for_each(bands.count, [&](int i) {
            for (int s = bands.first(i); s < bands.first(i + 1); ++s) average(s, false);
        });
        if (m.flip && m.right == GreyRightEdge::LastColumnShuffle) {
            for (int s = 0; s <= height - 2; ++s) {
                T* out = out_row(s);
                out[width] = out[width - 3];
                out[width + 1] = out[width - 2];
            }
        }
    } else {
        for (int s = 0; s <= height - 2; ++s)
            if (width >= 1) average(s, true);
    }
    const int last = output_row(height - 1, height, m.flip);
    const int before = output_row(height - 2, height, m.flip);
    std::memcpy(dst + row_offset(last, width, 1), dst + row_offset(before, width, 1), row_bytes);
    return 0;
}

}  // namespace
}  // namespace qzrcfa::detail

using qzrcfa::detail::demosaic;
using qzrcfa::detail::grey;
namespace d = qzrcfa::detail;

extern "C" {

QZRCFA_DEFINE_MEMBER(NearestNeighbor_RGGB, unsigned char, d::kNearest_RGGB)
QZRCFA_DEFINE_MEMBER(NearestNeighbor_BGGR, unsigned char, d::kNearest_BGGR)
QZRCFA_DEFINE_MEMBER(NearestNeighbor_GRBG, unsigned char, d::kNearest_GRBG)
QZRCFA_DEFINE_MEMBER(NearestNeighbor_GBRG, unsigned char, d::kNearest_GBRG)
QZRCFA_DEFINE_MEMBER(NearestNeighbor_RGGB_Flip, unsigned char, d::kNearest_RGGB_Flip)
QZRCFA_DEFINE_MEMBER(NearestNeighbor_BGGR_Flip, unsigned char, d::kNearest_BGGR_Flip)
QZRCFA_DEFINE_MEMBER(NearestNeighbor_GRBG_Flip, unsigned char, d::kNearest_GRBG_Flip)
QZRCFA_DEFINE_MEMBER(NearestNeighbor_GBRG_Flip, unsigned char, d::kNearest_GBRG_Flip)

QZRCFA_DEFINE_MEMBER(NearestNeighbor_RGGB_16Bits, unsigned short, d::kNearest_RGGB_16)
QZRCFA_DEFINE_MEMBER(NearestNeighbor_BGGR_16Bits, unsigned short, d::kNearest_BGGR_16)
QZRCFA_DEFINE_MEMBER(NearestNeighbor_GRBG_16Bits, unsigned short, d::kNearest_GRBG_16)
QZRCFA_DEFINE_MEMBER(NearestNeighbor_GBRG_16Bits, unsigned short, d::kNearest_GBRG_16)
QZRCFA_DEFINE_MEMBER(NearestNeighbor_RGGB_Flip_16Bits, unsigned short, d::kNearest_RGGB_Flip_16)
QZRCFA_DEFINE_MEMBER(NearestNeighbor_BGGR_Flip_16Bits, unsigned short, d::kNearest_BGGR_Flip_16)
QZRCFA_DEFINE_MEMBER(NearestNeighbor_GRBG_Flip_16Bits, unsigned short, d::kNearest_GRBG_Flip_16)
QZRCFA_DEFINE_MEMBER(NearestNeighbor_GBRG_Flip_16Bits, unsigned short, d::kNearest_GBRG_Flip_16)


QZRCFA_DEFINE_GREY(NearestNeighbor_RGGB_Gray, unsigned char, d::kGrey_RGGB)
QZRCFA_DEFINE_GREY(NearestNeighbor_BGGR_Gray, unsigned char, d::kGrey_BGGR)
QZRCFA_DEFINE_GREY(NearestNeighbor_GRBG_Gray, unsigned char, d::kGrey_GRBG)
QZRCFA_DEFINE_GREY(NearestNeighbor_GBRG_Gray, unsigned char, d::kGrey_GBRG)
QZRCFA_DEFINE_GREY(NearestNeighbor_RGGB_Gray_Flip, unsigned char, d::kGrey_RGGB_Flip)
#if !defined(QZRCFA_EXTENDED)
// Through the exported entry point of the bottom-up RGGB member.
QZRCFA_API int QZRCFA_NearestNeighbor_BGGR_Gray_Flip(unsigned char* src, int width, int height, unsigned char* dst) {
    return QZRCFA_NearestNeighbor_RGGB_Gray_Flip(src, width, height, dst);
}
QZRCFA_API int QZRCFA_NearestNeighbor_GRBG_Gray_Flip(unsigned char* src, int width, int height, unsigned char* dst) {
    return QZRCFA_NearestNeighbor_RGGB_Gray_Flip(src, width, height, dst);
}
QZRCFA_API int QZRCFA_NearestNeighbor_GBRG_Gray_Flip(unsigned char* src, int width, int height, unsigned char* dst) {
    return QZRCFA_NearestNeighbor_RGGB_Gray_Flip(src, width, height, dst);
}
#endif
QZRCFA_DEFINE_GREY(NearestNeighbor_RGGB_Gray_16Bits, unsigned short, d::kGrey_RGGB_16)
QZRCFA_DEFINE_GREY(NearestNeighbor_BGGR_Gray_16Bits, unsigned short, d::kGrey_BGGR_16)
QZRCFA_DEFINE_GREY(NearestNeighbor_GRBG_Gray_16Bits, unsigned short, d::kGrey_GRBG_16)
QZRCFA_DEFINE_GREY(NearestNeighbor_GBRG_Gray_16Bits, unsigned short, d::kGrey_GBRG_16)
QZRCFA_DEFINE_GREY(NearestNeighbor_RGGB_Gray_Flip_16Bits, unsigned short, d::kGrey_RGGB_Flip_16)
#if !defined(QZRCFA_EXTENDED)
// Through the exported entry point of the bottom-up RGGB member.
QZRCFA_API int QZRCFA_NearestNeighbor_BGGR_Gray_Flip_16Bits(unsigned short* src, int width, int height, unsigned short* dst) {
    return QZRCFA_NearestNeighbor_RGGB_Gray_Flip_16Bits(src, width, height, dst);
}
QZRCFA_API int QZRCFA_NearestNeighbor_GRBG_Gray_Flip_16Bits(unsigned short* src, int width, int height, unsigned short* dst) {
    return QZRCFA_NearestNeighbor_RGGB_Gray_Flip_16Bits(src, width, height, dst);
}
QZRCFA_API int QZRCFA_NearestNeighbor_GBRG_Gray_Flip_16Bits(unsigned short* src, int width, int height, unsigned short* dst) {
    return QZRCFA_NearestNeighbor_RGGB_Gray_Flip_16Bits(src, width, height, dst);
}
#endif

}  // extern "C"
