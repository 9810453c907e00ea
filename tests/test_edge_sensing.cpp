// Edge sensing, methods 1 and 2.
//
// The model follows the rules in words: green at a red or blue site from the pair of
// side neighbours (horizontal or vertical) that differ less, all four on a tie; the
// opposite colour from the quieter diagonal pair (method 2) or all four diagonals
// (method 1); green sites take each colour from the pair of neighbours that carries
// it, except the top-down GBRG member, which gives blue the red-carrying pair and red
// the blue-carrying pair.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
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

struct EdgeCase {
    const char* name;
    Fn8 fn;
    Fn8 border;
    std::string pattern;
    bool flip;
    bool quieter_diagonal;  // method 2
    bool exchanged;         // green sites swap their two colours
};

const EdgeCase kCases[] = {
    {"2_RGGB", QZRCFA_EdgeSensing2_RGGB, QZRCFA_NearestNeighbor_Edge1_RGGB, "RGGB", false, true, false},
    {"2_RGGB_Flip", QZRCFA_EdgeSensing2_RGGB_Flip, QZRCFA_NearestNeighbor_Edge1_RGGB_Flip, "RGGB", true, true, false},
    {"1_RGGB", QZRCFA_EdgeSensing1_RGGB, QZRCFA_NearestNeighbor_Edge1_RGGB, "RGGB", false, true, false},
    {"1_RGGB_Flip", QZRCFA_EdgeSensing1_RGGB_Flip, QZRCFA_NearestNeighbor_Edge1_RGGB_Flip, "RGGB", true, true, false},
    {"1_BGGR", QZRCFA_EdgeSensing1_BGGR, QZRCFA_NearestNeighbor_Edge1_BGGR, "BGGR", false, false, false},
    {"1_GRBG", QZRCFA_EdgeSensing1_GRBG, QZRCFA_NearestNeighbor_Edge1_GRBG, "GRBG", false, false, false},
    {"1_GBRG", QZRCFA_EdgeSensing1_GBRG, QZRCFA_NearestNeighbor_Edge1_GBRG, "GBRG", false, false, true},
    {"1_BGGR_Flip", QZRCFA_EdgeSensing1_BGGR_Flip, QZRCFA_NearestNeighbor_Edge1_BGGR_Flip, "BGGR", true, false, false},
    {"1_GRBG_Flip", QZRCFA_EdgeSensing1_GRBG_Flip, QZRCFA_NearestNeighbor_Edge1_GRBG_Flip, "GRBG", true, false, false},
    {"1_GBRG_Flip", QZRCFA_EdgeSensing1_GBRG_Flip, QZRCFA_NearestNeighbor_Edge1_GBRG_Flip, "GBRG", true, false, false},
};

// Strict choice between two pairs: the mean of the pair whose samples differ less, or
// of all four samples when the differences are equal.
int choose(int a1, int a2, int b1, int b2) {
    const int da = std::abs(a1 - a2), db = std::abs(b1 - b2);
    if (da == db) return (a1 + a2 + b1 + b2) / 4;
    return da < db ? (a1 + a2) / 2 : (b1 + b2) / 2;
}

std::vector<std::uint8_t> model(const EdgeCase& m, std::vector<std::uint8_t> raw, int W, int H, int P,
                                std::vector<std::uint8_t> out) {
    m.border(raw.data(), W, H, out.data(), std::uint16_t(P * 8));
    const Raw<std::uint8_t> S{raw, W};
    for (int r = 1; r <= H - 2; ++r) {
        for (int c = 1; c <= W - 2; ++c) {
            std::uint8_t* px = &out[std::size_t(((m.flip ? H - 1 - r : r) * W + c) * P)];
            const char here = colour_at(m.pattern, r, c);
            const int across = (S(r, c - 1) + S(r, c + 1)) / 2;
            const int along = (S(r - 1, c) + S(r + 1, c)) / 2;
            if (here == 'G') {
                const char beside = colour_at(m.pattern, r, c - 1);  // colour of the left and right neighbours
                px[element_of(m.exchanged ? opposite(beside) : beside)] = std::uint8_t(across);
                px[element_of(m.exchanged ? beside : opposite(beside))] = std::uint8_t(along);
                px[1] = S(r, c);
            } else {
                px[element_of(here)] = S(r, c);
                px[1] = std::uint8_t(choose(S(r, c - 1), S(r, c + 1), S(r - 1, c), S(r + 1, c)));
                const int ul = S(r - 1, c - 1), ur = S(r - 1, c + 1), dl = S(r + 1, c - 1), dr = S(r + 1, c + 1);
                px[element_of(opposite(here))] =
                    std::uint8_t(m.quieter_diagonal ? choose(ul, dr, ur, dl) : (ul + ur + dl + dr) / 4);
            }
        }
    }
    return out;
}

// Full-range samples rarely tie; samples 0..3 tie often.
TEST(EdgeSensing, EveryMemberMatchesTheModelOnRandomFrames) {
    for (const auto& m : kCases) {
        for (unsigned max : {255u, 3u}) {
            for (int P : {3, 4}) {
                for (const auto& [W, H] : model_sizes()) {
                    std::vector<std::uint8_t> raw = random_frame<std::uint8_t>(W, H, 41, max);
                    Arena<std::uint8_t> out(std::size_t(W * H * P), 0xAB);
                    const std::vector<std::uint8_t> expected = model(m, raw, W, H, P, out.image());
                    ASSERT_EQ(m.fn(raw.data(), W, H, out.data(), std::uint16_t(P * 8)), 0);
                    ASSERT_EQ(out.image(), expected) << m.name << " " << W << "x" << H << " P=" << P << " max=" << max;
                }
            }
        }
    }
}

struct Sample {
    int r, c, v;
};

struct WorkedExample {
    const char* what;
    Fn8 fn;
    bool flip;
    std::vector<Sample> samples;  // on a 5 x 5 frame of zeros
    int r, c, element, expected;
};

const WorkedExample kExamples[] = {
    {"tie at a blue site takes all four", QZRCFA_EdgeSensing2_RGGB, false,
     {{1, 0, 10}, {1, 2, 20}, {0, 1, 40}, {2, 1, 50}}, 1, 1, 1, 30},
    {"tie, bottom-up", QZRCFA_EdgeSensing2_RGGB_Flip, true,
     {{1, 0, 10}, {1, 2, 20}, {0, 1, 40}, {2, 1, 50}}, 1, 1, 1, 30},
    {"quieter diagonal at a red site", QZRCFA_EdgeSensing2_RGGB, false,
     {{1, 1, 200}, {3, 3, 100}, {1, 3, 90}, {3, 1, 0}}, 2, 2, 0, 45},
    {"quieter horizontal pair", QZRCFA_EdgeSensing2_RGGB, false,
     {{2, 1, 100}, {2, 3, 102}, {1, 2, 0}, {3, 2, 200}}, 2, 2, 1, 101},
    {"BGGR red site averages its diagonals", QZRCFA_EdgeSensing1_BGGR, false,
     {{0, 0, 0}, {0, 2, 0}, {2, 0, 0}, {2, 2, 255}}, 1, 1, 0, 63},
    {"BGGR red site, bottom-up", QZRCFA_EdgeSensing1_BGGR_Flip, true,
     {{0, 0, 0}, {0, 2, 0}, {2, 0, 0}, {2, 2, 255}}, 1, 1, 0, 63},
    {"a pair 1, 2 rounds down", QZRCFA_EdgeSensing1_GRBG, false, {{1, 0, 1}, {1, 2, 2}}, 1, 1, 0, 1},
    {"four diagonals 1, 1, 1, 0 round down", QZRCFA_EdgeSensing1_GRBG, false,
     {{0, 1, 1}, {0, 3, 1}, {2, 1, 1}, {2, 3, 0}}, 1, 2, 2, 0},
};

TEST(EdgeSensing, WorkedExamples) {
    for (const auto& x : kExamples) {
        for (int P : {3, 4}) {
            const int W = 5, H = 5;
            std::vector<std::uint8_t> raw(W * H, 0);
            for (const Sample& s : x.samples) raw[std::size_t(s.r * W + s.c)] = std::uint8_t(s.v);
            std::vector<std::uint8_t> out(std::size_t(W * H * P), 0xAB);
            EXPECT_EQ(x.fn(raw.data(), W, H, out.data(), std::uint16_t(P * 8)), 0);
            EXPECT_EQ(out[pixel_at(W, H, x.flip, x.r, x.c, P) + std::size_t(x.element)], x.expected) << x.what << " P=" << P;
        }
    }
}

// A GBRG frame with blue 200 and red 40: the top-down member gives its green sites
// blue 40 and red 200, the bottom-up member 200 and 40; red and blue sites agree.
TEST(EdgeSensing, TopDownGbrgExchangesItsGreenSites) {
    const int W = 8, H = 8;
    std::vector<std::uint8_t> raw = random_frame<std::uint8_t>(W, H, 3);
    for (int r = 0; r < H; ++r)
        for (int c = 0; c < W; ++c) {
            const char colour = colour_at("GBRG", r, c);
            if (colour != 'G') raw[std::size_t(r * W + c)] = colour == 'B' ? 200 : 40;
        }
    std::vector<std::uint8_t> plain(W * H * 3, 0), flip(plain.size(), 0);
    QZRCFA_EdgeSensing1_GBRG(raw.data(), W, H, plain.data(), 24);
    QZRCFA_EdgeSensing1_GBRG_Flip(raw.data(), W, H, flip.data(), 24);
    for (int r = 1; r < H - 1; ++r) {
        for (int c = 1; c < W - 1; ++c) {
            const std::uint8_t* a = &plain[pixel_at(W, H, false, r, c, 3)];
            const std::uint8_t* b = &flip[pixel_at(W, H, true, r, c, 3)];
            if (colour_at("GBRG", r, c) == 'G') {
                EXPECT_EQ(std::vector<int>({a[0], a[2]}), std::vector<int>({40, 200})) << r << "," << c;
                EXPECT_EQ(std::vector<int>({b[0], b[2]}), std::vector<int>({200, 40})) << r << "," << c;
            } else {
                EXPECT_EQ(std::vector<int>({a[0], a[1], a[2]}), std::vector<int>({b[0], b[1], b[2]})) << r << "," << c;
            }
        }
    }
}

// Method 1 on RGGB is method 2, byte for byte, in both row orders.
TEST(EdgeSensing, RggbMethodOneIsMethodTwo) {
    const std::pair<Fn8, Fn8> kAliases[] = {{QZRCFA_EdgeSensing1_RGGB, QZRCFA_EdgeSensing2_RGGB},
                                            {QZRCFA_EdgeSensing1_RGGB_Flip, QZRCFA_EdgeSensing2_RGGB_Flip}};
    for (const auto& [alias, target] : kAliases) {
        for (int P : {3, 4}) {
            for (int H = 2; H <= 9; ++H) {
                for (int W = 2; W <= 9; ++W) {
                    std::vector<std::uint8_t> raw = random_frame<std::uint8_t>(W, H, 17, 7);
                    Arena<std::uint8_t> a(std::size_t(W * H * P), 0xAB), b(std::size_t(W * H * P), 0xAB);
                    EXPECT_EQ(alias(raw.data(), W, H, a.data(), std::uint16_t(P * 8)), 0);
                    target(raw.data(), W, H, b.data(), std::uint16_t(P * 8));
                    ASSERT_TRUE(a.differences(b).empty()) << W << "x" << H << " P=" << P;
                }
            }
        }
    }
}

// No member pre-fills: element 3 keeps the caller's byte.
TEST(EdgeSensing, ElementThreeKeepsTheCallersByte) {
    for (const auto& m : kCases) EXPECT_EQ(element_three_not(m.fn, 6, 5, 0xAB), std::vector<int>{}) << m.name;
}

TEST(EdgeSensing, WritesNothingOutsideTheImage) {
    for (const auto& m : kCases) EXPECT_EQ(first_write_outside(m.fn, 7), "") << m.name;
}

// Bottom-up output is the top-down output upside down, except in the RGGB and BGGR
// border (last pixel of odd middle rows) and at the interior green sites of the GBRG
// pair, whose top-down member exchanges their colours.
TEST(EdgeSensing, FlipIsThePlainImageUpsideDownWhereTheMembersAgree) {
    const std::pair<const EdgeCase&, const EdgeCase&> kPairs[] = {
        {kCases[0], kCases[1]}, {kCases[4], kCases[7]}, {kCases[5], kCases[8]}, {kCases[6], kCases[9]}};
    for (const auto& [plain, flip] : kPairs) {
        const bool border_differs = plain.pattern == "RGGB" || plain.pattern == "BGGR";
        const bool green_sites_differ = plain.exchanged != flip.exchanged;
        bool border_differed = false, interior_differed = false;
        for (const FlipDifference& d : flip_differences(plain.fn, flip.fn, 9)) {
            const bool interior = d.r > 0 && d.r < d.height - 1 && d.c > 0 && d.c < d.width - 1;
            const bool border_ok = border_differs && d.c == d.width - 1 && (d.r & 1) && d.r < d.height - 1;
            const bool green_ok = green_sites_differ && interior && colour_at(plain.pattern, d.r, d.c) == 'G' && d.element != 1;
            ASSERT_TRUE(border_ok || green_ok) << plain.name << " " << d.width << "x" << d.height << " at (" << d.r << "," << d.c << ")";
            border_differed = border_differed || !interior;
            interior_differed = interior_differed || interior;
        }
        EXPECT_EQ(border_differed, border_differs) << plain.name;
        EXPECT_EQ(interior_differed, green_sites_differ) << plain.name;
    }
}

}  // namespace
}  // namespace qzrcfa::test
