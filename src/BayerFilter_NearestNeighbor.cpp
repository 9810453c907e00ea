// Nearest neighbour, 8-bit colour.
//
// Every interior pixel takes its missing colours from a two-by-two neighbourhood: the
// pixel, its horizontal neighbour on one side, and the two samples below them. The
// members do not share one neighbourhood; each names its form:
//   form A: neighbour on the right, green averaged from the block's two greens;
//   form B: neighbour on the right, green copied from the block's upper row;
//   form C: neighbour on the left, green copied from the block's upper row.
#include <cstdint>

#include "detail/bayer.h"
#include "detail/frame.h"
#include "qzrcfa.h"

namespace qzrcfa::detail {
namespace {

struct NearestForm {
    int dc;                // column of the horizontal neighbour: +1 right, -1 left
    bool average_green;    // green is the mean of the block's two greens
};

constexpr NearestForm kFormA{+1, true};
constexpr NearestForm kFormB{+1, false};
constexpr NearestForm kFormC{-1, false};

// Reference row kernel. At a red or blue site: own colour = C, opposite colour = the
// diagonal sample below, green = the horizontal neighbour (or its mean with the sample
// below). At a green site: the row's colour = the horizontal neighbour, the other
// colour = the sample below, green = C (or its mean with the diagonal below).
void nearest_row(const Row<std::uint8_t>& row, const NearestForm& form) {
    const int dc = form.dc;
    const int colour = row.phase.colour;
    const int other = row.phase.other();
    for (int c = row.c_first; c <= row.c_last; ++c) {
        const std::uint8_t* s = row.s + c;
        const std::uint8_t* below = s + row.width;
        std::uint8_t* px = row.d + std::ptrdiff_t(c) * row.stride;
        if (row.phase.green_at(c)) {
            px[colour] = s[dc];
            px[other] = below[0];
            px[kGreen] = form.average_green ? std::uint8_t((s[0] + below[dc]) >> 1) : s[0];
        } else {
            px[colour] = s[0];
            px[other] = below[dc];
            px[kGreen] = form.average_green ? std::uint8_t((s[dc] + below[0]) >> 1) : s[dc];
        }
    }
}

using NearestMember = Member<std::uint8_t, NearestForm>;

constexpr NearestMember nearest8(Pattern p, bool flip, Prefill fill, ColourFn<std::uint8_t> border, NearestForm form) {
    return NearestMember{p, flip, fill, border, 3, form, {{nearest_row, 1, 0}, {}}};
}

// The member table: which form each member uses, and which pre-fills.
constexpr NearestMember kNearest_RGGB = nearest8(Pattern::RGGB, false, Prefill::White, QZRCFA_NearestNeighbor_Edge1_RGGB, kFormA);
constexpr NearestMember kNearest_RGGB_Flip = nearest8(Pattern::RGGB, true, Prefill::None, QZRCFA_NearestNeighbor_Edge1_RGGB_Flip, kFormA);
constexpr NearestMember kNearest_BGGR = nearest8(Pattern::BGGR, false, Prefill::None, QZRCFA_NearestNeighbor_Edge1_BGGR, kFormC);
constexpr NearestMember kNearest_BGGR_Flip = nearest8(Pattern::BGGR, true, Prefill::None, QZRCFA_NearestNeighbor_Edge1_BGGR_Flip, kFormA);
constexpr NearestMember kNearest_GRBG = nearest8(Pattern::GRBG, false, Prefill::None, QZRCFA_NearestNeighbor_Edge1_GRBG, kFormA);
constexpr NearestMember kNearest_GRBG_Flip = nearest8(Pattern::GRBG, true, Prefill::None, QZRCFA_NearestNeighbor_Edge1_GRBG_Flip, kFormA);
constexpr NearestMember kNearest_GBRG = nearest8(Pattern::GBRG, false, Prefill::None, QZRCFA_NearestNeighbor_Edge1_GBRG, kFormB);
constexpr NearestMember kNearest_GBRG_Flip = nearest8(Pattern::GBRG, true, Prefill::None, QZRCFA_NearestNeighbor_Edge1_GBRG_Flip, kFormB);

}  // namespace
}  // namespace qzrcfa::detail

using qzrcfa::detail::demosaic;
namespace d = qzrcfa::detail;

extern "C" {

QZRCFA_API int QZRCFA_NearestNeighbor_RGGB(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return demosaic(d::kNearest_RGGB, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_NearestNeighbor_BGGR(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return demosaic(d::kNearest_BGGR, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_NearestNeighbor_GRBG(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return demosaic(d::kNearest_GRBG, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_NearestNeighbor_GBRG(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return demosaic(d::kNearest_GBRG, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_NearestNeighbor_RGGB_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return demosaic(d::kNearest_RGGB_Flip, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_NearestNeighbor_BGGR_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return demosaic(d::kNearest_BGGR_Flip, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_NearestNeighbor_GRBG_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return demosaic(d::kNearest_GRBG_Flip, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_NearestNeighbor_GBRG_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return demosaic(d::kNearest_GBRG_Flip, src, width, height, dst, bitCount);
}

}  // extern "C"
