// One-pixel border fill, 8- and 16-bit.
//
// The model below fills the ring from the general rule in words (own sample; green
// from the horizontal partner; the row's colour from the horizontal partner and the
// other colour from the vertical partner at a green site; the opposite colour from the
// diagonal) plus each member's listed departures, and the library must match it
// element for element on random frames of many sizes.
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

template <class T>
using Fn = int (*)(T*, int, int, T*, unsigned short);

template <class T>
struct Edge1Case {
    const char* name;
    Fn<T> fn;
    std::string pattern;
    bool flip;
    bool straight_below_last;  // opposite colour of the last pixel of odd middle rows from S(r + 1, W - 1)
    bool right_diagonal_top;   // top row, even c > 0: the opposite colour from S(1, c + 1)
};

const Edge1Case<std::uint8_t> kEdge1Cases8[] = {
    {"RGGB", QZRCFA_NearestNeighbor_Edge1_RGGB, "RGGB", false, true, false},
    {"BGGR", QZRCFA_NearestNeighbor_Edge1_BGGR, "BGGR", false, true, true},
    {"GRBG", QZRCFA_NearestNeighbor_Edge1_GRBG, "GRBG", false, false, false},
    {"GBRG", QZRCFA_NearestNeighbor_Edge1_GBRG, "GBRG", false, false, false},
    {"RGGB_Flip", QZRCFA_NearestNeighbor_Edge1_RGGB_Flip, "RGGB", true, false, false},
    {"BGGR_Flip", QZRCFA_NearestNeighbor_Edge1_BGGR_Flip, "BGGR", true, false, true},
    {"GRBG_Flip", QZRCFA_NearestNeighbor_Edge1_GRBG_Flip, "GRBG", true, false, false},
    {"GBRG_Flip", QZRCFA_NearestNeighbor_Edge1_GBRG_Flip, "GBRG", true, false, false},
};

// The 16-bit bottom-up RGGB and BGGR members keep the straight-below sample of their
// plain siblings.
const Edge1Case<std::uint16_t> kEdge1Cases16[] = {
    {"RGGB_16Bits", QZRCFA_NearestNeighbor_Edge1_RGGB_16Bits, "RGGB", false, true, false},
    {"BGGR_16Bits", QZRCFA_NearestNeighbor_Edge1_BGGR_16Bits, "BGGR", false, true, true},
    {"GRBG_16Bits", QZRCFA_NearestNeighbor_Edge1_GRBG_16Bits, "GRBG", false, false, false},
    {"GBRG_16Bits", QZRCFA_NearestNeighbor_Edge1_GBRG_16Bits, "GBRG", false, false, false},
    {"RGGB_Flip_16Bits", QZRCFA_NearestNeighbor_Edge1_RGGB_Flip_16Bits, "RGGB", true, true, false},
    {"BGGR_Flip_16Bits", QZRCFA_NearestNeighbor_Edge1_BGGR_Flip_16Bits, "BGGR", true, true, true},
    {"GRBG_Flip_16Bits", QZRCFA_NearestNeighbor_Edge1_GRBG_Flip_16Bits, "GRBG", true, false, false},
    {"GBRG_Flip_16Bits", QZRCFA_NearestNeighbor_Edge1_GBRG_Flip_16Bits, "GBRG", true, false, false},
};

enum class Where { Top, First, Last, Bottom };

// Expected output of a border fill over `out` (the buffer as it was before the call).
template <class T>
void edge1_model(const Edge1Case<T>& m, const std::vector<T>& raw, int W, int H, int P, std::vector<T>& out) {
    const Raw<T> S{raw, W};
    auto row_start = [&](int r) { return std::ptrdiff_t(m.flip ? H - 1 - r : r) * W * P; };
    // Pixel computed at raw (r, c), read as if it sat at phase (pr, pc), with its
    // vertical partner row vr, written to the three elements starting at `at`.
    auto ring = [&](std::ptrdiff_t at, int r, int c, int pr, int pc, int vr, Where where) {
        const int hc = c == 0 ? 1 : c - 1;
        const char here = colour_at(m.pattern, pr, pc);
        T v[3];
        if (here == 'G') {
            const char x = row_colour(m.pattern, pr);
            v[element_of(x)] = S(r, hc);
            v[element_of(opposite(x))] = S(vr, c);
            v[1] = S(r, c);
        } else {
            v[element_of(here)] = S(r, c);
            v[1] = S(r, hc);
            int opposite_r = vr, opposite_c = hc;
            if (where == Where::Last && (r & 1) && m.straight_below_last) opposite_c = c;
            if (where == Where::Top && c > 0 && !(c & 1) && m.right_diagonal_top) opposite_c = c + 1;
            v[element_of(opposite(here))] = S(opposite_r, opposite_c);
        }
        for (int i = 0; i < 3; ++i) out[std::size_t(at + i)] = v[i];
    };
    for (int c = 0; c < W; ++c) ring(row_start(0) + std::ptrdiff_t(c) * P, 0, c, 0, c, 1, Where::Top);
    for (int r = 1; r <= H - 2; ++r) {
        ring(row_start(r), r, 0, r, 0, r + 1, Where::First);
        // The last pixel is read as if the width were even and written as the three
        // elements that end the output row.
        ring(row_start(r) + std::ptrdiff_t(W) * P - 3, r, W - 1, r, 1, r + 1, Where::Last);
    }
    const int s = H >= 3 ? H - 1 : 1;
    for (int c = 0; c < W; ++c) ring(row_start(s) + std::ptrdiff_t(c) * P, s, c, 1, c, s - 1, Where::Bottom);
}

template <class T>
void expect_matches_model(const Edge1Case<T>& m) {
    for (int P : {3, 4}) {
        for (int H = 2; H <= 9; ++H) {
            for (int W = 2; W <= 9; ++W) {
                std::vector<T> raw = random_frame<T>(W, H, 11);
                const std::size_t size = std::size_t(W) * H * P;
                Arena<T> out(size, T(0x77));
                std::vector<T> expected = out.image();
                edge1_model(m, raw, W, H, P, expected);
                ASSERT_EQ(m.fn(raw.data(), W, H, out.data(), std::uint16_t(P * 8)), 0);
                ASSERT_EQ(out.image(), expected) << m.name << " " << W << "x" << H << " P=" << P;
            }
        }
    }
}

TEST(BorderFill8, MatchesTheRingRuleForEverySizeAndStride) {
    for (const auto& m : kEdge1Cases8) expect_matches_model(m);
}

TEST(BorderFill16, MatchesTheRingRuleForEverySizeAndStride) {
    for (const auto& m : kEdge1Cases16) expect_matches_model(m);
}

// 4 x 4 RGGB with P = 3: samples numbered 10 + index, so each value names its source.
TEST(BorderFill8, FourByFourRedOfPixelOneThree) {
    std::vector<std::uint8_t> raw(16);
    for (int i = 0; i < 16; ++i) raw[std::size_t(i)] = std::uint8_t(10 + i);
    const int W = 4, H = 4;
    auto S = [&](int r, int c) { return raw[std::size_t(r * W + c)]; };

    std::vector<std::uint8_t> plain(48, 0), flip(48, 0);
    QZRCFA_NearestNeighbor_Edge1_RGGB(raw.data(), W, H, plain.data(), 24);
    QZRCFA_NearestNeighbor_Edge1_RGGB_Flip(raw.data(), W, H, flip.data(), 24);
    auto px = [&](std::vector<std::uint8_t>& img, int r, int c) { return &img[std::size_t((r * W + c) * 3)]; };
    // Pixel (1, 3) is a blue site: blue S(1,3), green S(1,2); red straight below in the
    // plain member, from the diagonal in the bottom-up one (stored in output row 2).
    EXPECT_EQ(px(plain, 1, 3)[0], S(1, 3));
    EXPECT_EQ(px(plain, 1, 3)[1], S(1, 2));
    EXPECT_EQ(px(plain, 1, 3)[2], S(2, 3));
    EXPECT_EQ(px(flip, 2, 3)[0], S(1, 3));
    EXPECT_EQ(px(flip, 2, 3)[1], S(1, 2));
    EXPECT_EQ(px(flip, 2, 3)[2], S(2, 2));
    // Top-left red site and bottom-right blue site of the plain member.
    EXPECT_EQ((std::vector<int>{px(plain, 0, 0)[0], px(plain, 0, 0)[1], px(plain, 0, 0)[2]}),
              (std::vector<int>{S(1, 1), S(0, 1), S(0, 0)}));
    EXPECT_EQ((std::vector<int>{px(plain, 3, 3)[0], px(plain, 3, 3)[1], px(plain, 3, 3)[2]}),
              (std::vector<int>{S(3, 3), S(3, 2), S(2, 2)}));
}

// With four bytes per pixel the last pixel of a middle row gets blue, green, red in
// elements 1..3 and keeps element 0; every other ring pixel keeps element 3.
TEST(BorderFill8, FourBytePixelsPlaceTheLastPixelInItsLastThreeBytes) {
    const int W = 4, H = 4;
    std::vector<std::uint8_t> raw = random_frame<std::uint8_t>(W, H, 3);
    std::vector<std::uint8_t> p3(std::size_t(W * H * 3), 0);
    std::vector<std::uint8_t> p4(std::size_t(W * H * 4), 255);
    QZRCFA_NearestNeighbor_Edge1_RGGB(raw.data(), W, H, p3.data(), 24);
    QZRCFA_NearestNeighbor_Edge1_RGGB(raw.data(), W, H, p4.data(), 32);
    for (int r = 0; r < H; ++r) {
        for (int c = 0; c < W; ++c) {
            const bool ring = r == 0 || r == H - 1 || c == 0 || c == W - 1;
            if (!ring) continue;
            const std::uint8_t* three = &p3[std::size_t((r * W + c) * 3)];
            const std::uint8_t* four = &p4[std::size_t((r * W + c) * 4)];
            if (c == W - 1 && r > 0 && r < H - 1) {
                EXPECT_EQ(four[0], 255);
                EXPECT_EQ(four[1], three[0]);
                EXPECT_EQ(four[2], three[1]);
                EXPECT_EQ(four[3], three[2]);
            } else {
                EXPECT_EQ(four[0], three[0]);
                EXPECT_EQ(four[1], three[1]);
                EXPECT_EQ(four[2], three[2]);
                EXPECT_EQ(four[3], 255);
            }
        }
    }
}

// Which elements a call writes, for frames of two rows or two columns and in general.
TEST(BorderFill8, WritesExactlyTheRingAndNothingOutsideTheImage) {
    for (const auto& m : kEdge1Cases8) {
        for (int P : {3, 4}) {
            for (int H = 2; H <= 7; ++H) {
                for (int W = 2; W <= 7; ++W) {
                    std::vector<std::uint8_t> raw = random_frame<std::uint8_t>(W, H, 5);
                    const std::size_t size = std::size_t(W) * H * P;
                    auto written = written_elements<std::uint8_t>(size, [&](std::uint8_t* dst) {
                        m.fn(raw.data(), W, H, dst, std::uint16_t(P * 8));
                    });
                    std::set<std::ptrdiff_t> expected;
                    for (int row = 0; row < H; ++row) {
                        const std::ptrdiff_t start = std::ptrdiff_t(row) * W * P;
                        const bool full = row == 0 || row == H - 1;
                        for (int c = 0; c < W; ++c) {
                            if (!full && c != 0) continue;
                            for (int e = 0; e < 3; ++e) expected.insert(start + std::ptrdiff_t(c) * P + e);
                        }
                        if (!full) {
                            for (int e = 1; e <= 3; ++e) expected.insert(start + std::ptrdiff_t(W) * P - e);
                        }
                    }
                    ASSERT_EQ(written, expected) << m.name << " " << W << "x" << H << " P=" << P;
                }
            }
        }
    }
}

// Bottom-up output is the top-down output turned upside down, except in the last
// pixel of the odd middle rows of the RGGB and BGGR pairs.
TEST(BorderFill8, FlipIsThePlainImageUpsideDownExceptWhereTheMembersDiffer) {
    for (int i = 0; i < 4; ++i) {
        const auto& plain = kEdge1Cases8[i];
        const auto& flip = kEdge1Cases8[i + 4];
        const auto differences = flip_differences(plain.fn, flip.fn, 9);
        for (const FlipDifference& d : differences) {
            const bool allowed = plain.straight_below_last && d.c == d.width - 1 && (d.r & 1) && d.r < d.height - 1;
            ASSERT_TRUE(allowed) << plain.name << " " << d.width << "x" << d.height << " at (" << d.r << "," << d.c << ")";
        }
        EXPECT_EQ(!differences.empty(), plain.straight_below_last) << plain.name;
    }
}

}  // namespace
}  // namespace qzrcfa::test
