// Bayer geometry shared by every method: patterns, sites and where each colour lives
// in an output pixel.
#pragma once

#include <cstdint>

// Helpers in the internal headers are always inlined. The instruction-set kernel files
// include these headers too, each compiled for its own instruction set; an out-of-line
// copy built there must never be the one that code for the baseline links to.
#define QZRCFA_INLINE [[gnu::always_inline]] inline

namespace qzrcfa::detail {

enum class Pattern : std::uint8_t { RGGB, BGGR, GRBG, GBRG };

enum class Site : std::uint8_t { Red, Blue, GreenOnRed, GreenOnBlue };

// Element offsets inside an output pixel.
inline constexpr int kBlue = 0;
inline constexpr int kGreen = 1;
inline constexpr int kRed = 2;

// Colour measured at raw position (r, c), by the phase (r mod 2, c mod 2) counted
// from the first sample in memory.
QZRCFA_INLINE constexpr Site site_at(Pattern p, int r, int c) {
    const bool odd_r = (r & 1) != 0;
    const bool odd_c = (c & 1) != 0;
    switch (p) {
    case Pattern::RGGB:
        return odd_r ? (odd_c ? Site::Blue : Site::GreenOnBlue) : (odd_c ? Site::GreenOnRed : Site::Red);
    case Pattern::BGGR:
        return odd_r ? (odd_c ? Site::Red : Site::GreenOnRed) : (odd_c ? Site::GreenOnBlue : Site::Blue);
    case Pattern::GRBG:
        return odd_r ? (odd_c ? Site::GreenOnBlue : Site::Blue) : (odd_c ? Site::Red : Site::GreenOnRed);
    case Pattern::GBRG:
        return odd_r ? (odd_c ? Site::GreenOnRed : Site::Red) : (odd_c ? Site::Blue : Site::GreenOnBlue);
    }
    return Site::Red;
}

QZRCFA_INLINE constexpr bool is_green(Site s) { return s == Site::GreenOnRed || s == Site::GreenOnBlue; }

// What a kernel needs to know about one raw row: the non-green colour that occurs in
// it (as the element it lands in) and whether its even columns are green. Row kernels
// take this once per row instead of asking for the phase of every pixel.
struct RowPhase {
    int colour;        // kRed or kBlue: the non-green colour measured in this row
    bool green_even;   // even columns of this row are green sites

    QZRCFA_INLINE constexpr int other() const { return 2 - colour; }  // the colour measured only in the rows next to it
    QZRCFA_INLINE constexpr bool green_at(int c) const { return ((c & 1) == 0) == green_even; }
    QZRCFA_INLINE constexpr Site site(int c) const {
        if (green_at(c)) return colour == kRed ? Site::GreenOnRed : Site::GreenOnBlue;
        return colour == kRed ? Site::Red : Site::Blue;
    }
};

QZRCFA_INLINE constexpr RowPhase row_phase(Pattern p, int r) {
    const Site s0 = site_at(p, r, 0);
    const Site s1 = site_at(p, r, 1);
    const Site colour_site = is_green(s0) ? s1 : s0;
    return RowPhase{colour_site == Site::Red ? kRed : kBlue, is_green(s0)};
}

}  // namespace qzrcfa::detail
