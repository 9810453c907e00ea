// Nearest neighbour, 8-bit colour.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "qzrcfa.h"
#include "support/arena.h"
#include "support/bayer_model.h"
#include "support/colour_checks.h"

namespace qzrcfa::test {
namespace {

using Fn8 = int (*)(unsigned char*, int, int, unsigned char*, unsigned short);

struct NearestCase {
    const char* name;
    Fn8 fn;
    Fn8 border;
    std::string pattern;
    bool flip;
    char form;  // 'A' right and green averaged, 'B' right and green copied, 'C' left and green copied
    bool prefill;
};

const NearestCase kCases[] = {
    {"RGGB", QZRCFA_NearestNeighbor_RGGB, QZRCFA_NearestNeighbor_Edge1_RGGB, "RGGB", false, 'A', true},
    {"BGGR", QZRCFA_NearestNeighbor_BGGR, QZRCFA_NearestNeighbor_Edge1_BGGR, "BGGR", false, 'C', false},
    {"GRBG", QZRCFA_NearestNeighbor_GRBG, QZRCFA_NearestNeighbor_Edge1_GRBG, "GRBG", false, 'A', false},
    {"GBRG", QZRCFA_NearestNeighbor_GBRG, QZRCFA_NearestNeighbor_Edge1_GBRG, "GBRG", false, 'B', false},
    {"RGGB_Flip", QZRCFA_NearestNeighbor_RGGB_Flip, QZRCFA_NearestNeighbor_Edge1_RGGB_Flip, "RGGB", true, 'A', false},
    {"BGGR_Flip", QZRCFA_NearestNeighbor_BGGR_Flip, QZRCFA_NearestNeighbor_Edge1_BGGR_Flip, "BGGR", true, 'A', false},
    {"GRBG_Flip", QZRCFA_NearestNeighbor_GRBG_Flip, QZRCFA_NearestNeighbor_Edge1_GRBG_Flip, "GRBG", true, 'A', false},
    {"GBRG_Flip", QZRCFA_NearestNeighbor_GBRG_Flip, QZRCFA_NearestNeighbor_Edge1_GBRG_Flip, "GBRG", true, 'B', false},
};

// Expected image: optional white fill, the member's border fill, then every interior
// pixel from its two-by-two neighbourhood.
std::vector<std::uint8_t> model(const NearestCase& m, std::vector<std::uint8_t> raw, int W, int H, int P,
                                std::vector<std::uint8_t> out) {
    if (m.prefill) std::fill(out.begin(), out.end(), 255);
    m.border(raw.data(), W, H, out.data(), std::uint16_t(P * 8));
    const Raw<std::uint8_t> S{raw, W};
    const int h = m.form == 'C' ? -1 : +1;  // the horizontal neighbour's side
    for (int r = 1; r <= H - 2; ++r) {
        for (int c = 1; c <= W - 2; ++c) {
            std::uint8_t* px = &out[std::size_t(((m.flip ? H - 1 - r : r) * W + c) * P)];
            const char here = colour_at(m.pattern, r, c);
            if (here == 'G') {
                const char x = row_colour(m.pattern, r);
                px[element_of(x)] = S(r, c + h);
                px[element_of(opposite(x))] = S(r + 1, c);
                px[1] = m.form == 'A' ? std::uint8_t((S(r, c) + S(r + 1, c + 1)) / 2) : S(r, c);
            } else {
                px[element_of(here)] = S(r, c);
                px[element_of(opposite(here))] = S(r + 1, c + h);
                px[1] = m.form == 'A' ? std::uint8_t((S(r, c + 1) + S(r + 1, c)) / 2) : S(r, c + h);
            }
        }
    }
    return out;
}

// Every size up to 10 x 10, and rows wide enough for the vector kernels with every
// remainder they can leave.
TEST(NearestNeighbor8, EveryMemberMatchesItsFormOnRandomFrames) {
    std::vector<int> widths;
    for (int W = 2; W <= 10; ++W) widths.push_back(W);
    for (int W = 33; W <= 70; ++W) widths.push_back(W);
    for (const auto& m : kCases) {
        for (int P : {3, 4}) {
            for (int H = 2; H <= 10; ++H) {
                for (int W : widths) {
                    if (W > 10 && H != 4) continue;
                    std::vector<std::uint8_t> raw = random_frame<std::uint8_t>(W, H, 21);
                    Arena<std::uint8_t> out(std::size_t(W * H * P), 0xAB);
                    const std::vector<std::uint8_t> expected = model(m, raw, W, H, P, out.image());
                    ASSERT_EQ(m.fn(raw.data(), W, H, out.data(), std::uint16_t(P * 8)), 0);
                    ASSERT_EQ(out.image(), expected) << m.name << " " << W << "x" << H << " P=" << P;
                }
            }
        }
    }
}

// The spelled-out RGGB member on a 4 x 4 frame whose samples name their positions.
TEST(NearestNeighbor8, RggbInteriorOfAFourByFourFrame) {
    const int W = 4, H = 4;
    std::vector<std::uint8_t> raw(16);
    for (int i = 0; i < 16; ++i) raw[std::size_t(i)] = std::uint8_t(8 * i);
    auto S = [&](int r, int c) { return int(raw[std::size_t(r * W + c)]); };
    std::vector<std::uint8_t> out(48, 0);
    QZRCFA_NearestNeighbor_RGGB(raw.data(), W, H, out.data(), 24);
    auto px = [&](int r, int c) {
        const std::uint8_t* p = &out[std::size_t((r * W + c) * 3)];
        return std::vector<int>{p[0], p[1], p[2]};
    };
    EXPECT_EQ(px(1, 1), (std::vector<int>{S(1, 1), (S(1, 2) + S(2, 1)) >> 1, S(2, 2)}));  // blue site
    EXPECT_EQ(px(1, 2), (std::vector<int>{S(1, 3), (S(1, 2) + S(2, 3)) >> 1, S(2, 2)}));  // green on blue
    EXPECT_EQ(px(2, 1), (std::vector<int>{S(3, 1), (S(2, 1) + S(3, 2)) >> 1, S(2, 2)}));  // green on red
    EXPECT_EQ(px(2, 2), (std::vector<int>{S(3, 3), (S(2, 3) + S(3, 2)) >> 1, S(2, 2)}));  // red site
}

// BGGR: the plain member copies green from the left at red site (1, 1); the bottom-up
// member averages right and below, and stores the pixel in output row H - 2.
TEST(NearestNeighbor8, BggrPairDisagreesAtARedSite) {
    const int W = 5, H = 5;
    std::vector<std::uint8_t> raw = random_frame<std::uint8_t>(W, H, 2);
    auto S = [&](int r, int c) { return int(raw[std::size_t(r * W + c)]); };
    std::vector<std::uint8_t> plain(std::size_t(W * H * 3)), flip(plain.size());
    QZRCFA_NearestNeighbor_BGGR(raw.data(), W, H, plain.data(), 24);
    QZRCFA_NearestNeighbor_BGGR_Flip(raw.data(), W, H, flip.data(), 24);
    EXPECT_EQ(plain[std::size_t((1 * W + 1) * 3 + 1)], S(1, 0));
    EXPECT_EQ(flip[std::size_t(((H - 2) * W + 1) * 3 + 1)], (S(1, 2) + S(2, 1)) >> 1);
}

// Only the top-down RGGB member pre-fills: with four bytes per pixel its element 3 is
// 255 everywhere, while the others keep the caller's bytes; none writes outside the
// image.
TEST(NearestNeighbor8, OnlyTopDownRggbPrefillsAndNothingIsWrittenOutside) {
    for (const auto& m : kCases) {
        EXPECT_TRUE(element_three_not(m.fn, 6, 5, m.prefill ? 255 : 0xAB).empty()) << m.name;
        EXPECT_EQ(first_write_outside(m.fn, 6), "") << m.name;
    }
}

// Height 2: the border fill alone.
TEST(NearestNeighbor8, TwoRowsAreTheBorderFillAlone) {
    for (const auto& m : kCases) {
        const int W = 7, H = 2;
        std::vector<std::uint8_t> raw = random_frame<std::uint8_t>(W, H, 6);
        std::vector<std::uint8_t> a(std::size_t(W * H * 3), 0), b(a.size(), 0);
        m.fn(raw.data(), W, H, a.data(), 24);
        m.border(raw.data(), W, H, b.data(), 24);
        EXPECT_EQ(a, b) << m.name;
    }
}

// Bottom-up output equals the top-down output upside down, except in the RGGB pair's
// border (last pixel of odd middle rows) and throughout the BGGR pair, whose members
// use different forms.
TEST(NearestNeighbor8, FlipIsThePlainImageUpsideDownWhereTheFormsAgree) {
    for (int i = 0; i < 4; ++i) {
        const auto& plain = kCases[i];
        const auto& flip = kCases[i + 4];
        const bool same_form = plain.form == flip.form;
        const bool border_differs = plain.pattern == "RGGB" || plain.pattern == "BGGR";
        bool interior_differed = false;
        for (const FlipDifference& d : flip_differences(plain.fn, flip.fn, 9)) {
            const bool interior = d.r > 0 && d.r < d.height - 1 && d.c > 0 && d.c < d.width - 1;
            const bool border_ok = border_differs && d.c == d.width - 1 && (d.r & 1) && d.r < d.height - 1;
            ASSERT_TRUE((interior && !same_form) || border_ok)
                << plain.name << " " << d.width << "x" << d.height << " at (" << d.r << "," << d.c << ")";
            interior_differed = interior_differed || interior;
        }
        EXPECT_EQ(interior_differed, !same_form) << plain.name;
    }
}

}  // namespace
}  // namespace qzrcfa::test
