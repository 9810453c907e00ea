// Bilinear, 8-bit colour, and the FastBilinear gate in front of it.
//
// The model takes each missing colour as the mean of the nearest samples of that
// colour (the side neighbours if any carry it, otherwise the diagonals), found from the
// pattern alone, and the library must match it element for element.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "qzrcfa.h"
#include "support/arena.h"
#include "support/bayer_model.h"
#include "support/colour_checks.h"

namespace qzrcfa::test {
namespace {

using Fn8 = int (*)(unsigned char*, int, int, unsigned char*, unsigned short);

struct BilinearCase {
    const char* name;
    Fn8 fn;
    Fn8 border;
    std::string pattern;
    bool flip;
    bool prefill;
};

const BilinearCase kCases[] = {
    {"RGGB", QZRCFA_Bilinear_RGGB, QZRCFA_NearestNeighbor_Edge1_RGGB, "RGGB", false, true},
    {"BGGR", QZRCFA_Bilinear_BGGR, QZRCFA_NearestNeighbor_Edge1_BGGR, "BGGR", false, true},
    {"GRBG", QZRCFA_Bilinear_GRBG, QZRCFA_NearestNeighbor_Edge1_GRBG, "GRBG", false, true},
    {"GBRG", QZRCFA_Bilinear_GBRG, QZRCFA_NearestNeighbor_Edge1_GBRG, "GBRG", false, true},
    {"RGGB_Flip", QZRCFA_Bilinear_RGGB_Flip, QZRCFA_NearestNeighbor_Edge1_RGGB_Flip, "RGGB", true, false},
    {"BGGR_Flip", QZRCFA_Bilinear_BGGR_Flip, QZRCFA_NearestNeighbor_Edge1_BGGR_Flip, "BGGR", true, false},
    {"GRBG_Flip", QZRCFA_Bilinear_GRBG_Flip, QZRCFA_NearestNeighbor_Edge1_GRBG_Flip, "GRBG", true, false},
    {"GBRG_Flip", QZRCFA_Bilinear_GBRG_Flip, QZRCFA_NearestNeighbor_Edge1_GBRG_Flip, "GBRG", true, false},
};

struct GateCase {
    const char* name;
    Fn8 gate;
    Fn8 target;
};

const GateCase kGates[] = {
    {"RGGB", QZRCFA_FastBilinear_RGGB, QZRCFA_Bilinear_RGGB},
    {"BGGR", QZRCFA_FastBilinear_BGGR, QZRCFA_Bilinear_BGGR},
    {"GRBG", QZRCFA_FastBilinear_GRBG, QZRCFA_Bilinear_GRBG},
    {"GBRG", QZRCFA_FastBilinear_GBRG, QZRCFA_Bilinear_GBRG},
    {"RGGB_Flip", QZRCFA_FastBilinear_RGGB_Flip, QZRCFA_Bilinear_RGGB_Flip},
    {"BGGR_Flip", QZRCFA_FastBilinear_BGGR_Flip, QZRCFA_Bilinear_BGGR_Flip},
    {"GRBG_Flip", QZRCFA_FastBilinear_GRBG_Flip, QZRCFA_Bilinear_GRBG_Flip},
    {"GBRG_Flip", QZRCFA_FastBilinear_GBRG_Flip, QZRCFA_Bilinear_GBRG_Flip},
};

// Mean (rounded down) of the nearest samples of `colour` around raw (r, c).
int nearest_mean(const std::string& pattern, const Raw<std::uint8_t>& S, int r, int c, char colour) {
    static const int kSides[4][2] = {{0, -1}, {0, 1}, {-1, 0}, {1, 0}};
    static const int kDiagonals[4][2] = {{-1, -1}, {-1, 1}, {1, -1}, {1, 1}};
    for (const auto* ring : {kSides, kDiagonals}) {
        int sum = 0, n = 0;
        for (int i = 0; i < 4; ++i) {
            if (colour_at(pattern, r + ring[i][0], c + ring[i][1]) != colour) continue;
            sum += S(r + ring[i][0], c + ring[i][1]);
            ++n;
        }
        if (n > 0) return sum / n;
    }
    ADD_FAILURE() << "no " << colour << " around (" << r << "," << c << ")";
    return -1;
}

// Expected image: optional white fill, the member's border fill, then the interior.
std::vector<std::uint8_t> model(const BilinearCase& m, std::vector<std::uint8_t> raw, int W, int H, int P,
                                std::vector<std::uint8_t> out) {
    if (m.prefill) std::fill(out.begin(), out.end(), 255);
    m.border(raw.data(), W, H, out.data(), std::uint16_t(P * 8));
    const Raw<std::uint8_t> S{raw, W};
    for (int r = 1; r <= H - 2; ++r) {
        for (int c = 1; c <= W - 2; ++c) {
            std::uint8_t* px = &out[std::size_t(((m.flip ? H - 1 - r : r) * W + c) * P)];
            for (char colour : {'B', 'G', 'R'}) {
                const bool own = colour_at(m.pattern, r, c) == colour;
                px[element_of(colour)] = std::uint8_t(own ? S(r, c) : nearest_mean(m.pattern, S, r, c, colour));
            }
        }
    }
    return out;
}

TEST(Bilinear, EveryMemberMatchesTheModelOnRandomFrames) {
    for (const auto& m : kCases) {
        for (int P : {3, 4}) {
            for (const auto& [W, H] : model_sizes()) {
                std::vector<std::uint8_t> raw = random_frame<std::uint8_t>(W, H, 31);
                Arena<std::uint8_t> out(std::size_t(W * H * P), 0xAB);
                const std::vector<std::uint8_t> expected = model(m, raw, W, H, P, out.image());
                ASSERT_EQ(m.fn(raw.data(), W, H, out.data(), std::uint16_t(P * 8)), 0);
                ASSERT_EQ(out.image(), expected) << m.name << " " << W << "x" << H << " P=" << P;
            }
        }
    }
}

// The one interior pixel of a 3 x 3 RGGB frame is a blue site.
TEST(Bilinear, ThreeByThreeRggbCentre) {
    std::vector<std::uint8_t> raw = {11, 40, 97, 13, 200, 250, 7, 66, 180};
    auto S = [&](int r, int c) { return int(raw[std::size_t(r * 3 + c)]); };
    for (const Fn8 fn : {QZRCFA_Bilinear_RGGB, QZRCFA_Bilinear_RGGB_Flip}) {
        std::vector<std::uint8_t> out(27, 0);
        fn(raw.data(), 3, 3, out.data(), 24);
        EXPECT_EQ(out[12], S(1, 1));
        EXPECT_EQ(out[13], (S(1, 2) + S(1, 0) + S(0, 1) + S(2, 1)) >> 2);
        EXPECT_EQ(out[14], (S(0, 2) + S(0, 0) + S(2, 2) + S(2, 0)) >> 2);
    }
}

// Four side neighbours 255, 255, 255, 254 around a red site: green is 1019 >> 2 = 254.
TEST(Bilinear, GreenAtARedSiteRoundsDown) {
    for (const auto& m : kCases) {
        const int W = 4, H = 4;
        int rr = 1, rc = 1;
        for (int r : {1, 2})
            for (int c : {1, 2})
                if (colour_at(m.pattern, r, c) == 'R') rr = r, rc = c;
        std::vector<std::uint8_t> raw(W * H, 0);
        raw[std::size_t(rr * W + rc - 1)] = 255;
        raw[std::size_t(rr * W + rc + 1)] = 255;
        raw[std::size_t((rr - 1) * W + rc)] = 255;
        raw[std::size_t((rr + 1) * W + rc)] = 254;
        std::vector<std::uint8_t> out(W * H * 3, 0);
        m.fn(raw.data(), W, H, out.data(), 24);
        EXPECT_EQ(out[pixel_at(W, H, m.flip, rr, rc, 3) + 1], 254) << m.name;
    }
}

// With four bytes per pixel element 3 is 255 after the top-down members' pre-fill and
// the caller's byte for the bottom-up ones.
TEST(Bilinear, ElementThreeShowsThePrefill) {
    for (const auto& m : kCases) {
        for (int W : {4, 5}) {
            EXPECT_EQ(element_three_not(m.fn, W, 5, m.prefill ? 255 : 0xAB), std::vector<int>{}) << m.name << " width " << W;
        }
    }
}

TEST(Bilinear, WritesNothingOutsideTheImage) {
    for (const auto& m : kCases) EXPECT_EQ(first_write_outside(m.fn, 7), "") << m.name;
}

// Bottom-up output is the top-down output upside down, except where the RGGB and BGGR
// border fills take a different sample for the last pixel of odd middle rows.
TEST(Bilinear, FlipIsThePlainImageUpsideDown) {
    for (int i = 0; i < 4; ++i) {
        const auto& plain = kCases[i];
        const bool border_differs = plain.pattern == "RGGB" || plain.pattern == "BGGR";
        const auto differences = flip_differences(plain.fn, kCases[i + 4].fn, 9);
        for (const FlipDifference& d : differences) {
            ASSERT_TRUE(border_differs && d.c == d.width - 1 && (d.r & 1) && d.r < d.height - 1)
                << plain.name << " " << d.width << "x" << d.height << " at (" << d.r << "," << d.c << ")";
        }
        EXPECT_EQ(!differences.empty(), border_differs) << plain.name;
    }
}

// 24 and 32 bits pass the gate: output, result and untouched bytes as a direct call.
TEST(FastBilinear, AdmitsTwentyFourAndThirtyTwoBits) {
    for (const auto& g : kGates) {
        for (unsigned short bits : {24, 32}) {
            for (int H : {2, 3, 6, 9}) {
                for (int W : {2, 3, 8, 11}) {
                    std::vector<std::uint8_t> raw = random_frame<std::uint8_t>(W, H, 5);
                    const std::size_t size = std::size_t(W * H * (bits / 8));
                    Arena<std::uint8_t> via_gate(size, 0xAB), direct(size, 0xAB);
                    EXPECT_EQ(g.gate(raw.data(), W, H, via_gate.data(), bits), 0);
                    EXPECT_EQ(g.target(raw.data(), W, H, direct.data(), bits), 0);
                    ASSERT_TRUE(via_gate.differences(direct).empty()) << g.name << " " << W << "x" << H << " " << bits;
                }
            }
        }
    }
}

TEST(FastBilinear, RefusesEveryOtherBitCountWithoutWriting) {
    for (const auto& g : kGates) {
        for (unsigned short bits : {0, 8, 16, 23, 25, 31, 33, 48, 65535}) {
            const int W = 6, H = 5;
            std::vector<std::uint8_t> raw = random_frame<std::uint8_t>(W, H, 9);
            Arena<std::uint8_t> out(std::size_t(W * H * 4), 0xAB), pristine(std::size_t(W * H * 4), 0xAB);
            EXPECT_EQ(g.gate(raw.data(), W, H, out.data(), bits), -1) << g.name << " " << bits;
            EXPECT_TRUE(out.differences(pristine).empty()) << g.name << " " << bits;
        }
    }
}

}  // namespace
}  // namespace qzrcfa::test
