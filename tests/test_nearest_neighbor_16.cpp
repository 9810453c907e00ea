// Nearest neighbour, 16-bit colour.
//
// The model takes the rule in words: an interior pixel copies each colour from the one
// sample of that colour in the 2 x 2 block made of its own column, the column to its
// left, its own row and the row below, and green from the block's upper row. The ring
// is the border fill's.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "qzrcfa.h"
#include "support/arena.h"
#include "support/colour_checks.h"
#include "support/bayer_model.h"

namespace qzrcfa::test {
namespace {

using Fn16 = int (*)(unsigned short*, int, int, unsigned short*, unsigned short);

struct Nearest16Case {
    const char* name;
    Fn16 fn;
    Fn16 border;
    std::string pattern;
    bool flip;
};

const Nearest16Case kCases[] = {
    {"RGGB_16Bits", QZRCFA_NearestNeighbor_RGGB_16Bits, QZRCFA_NearestNeighbor_Edge1_RGGB_16Bits, "RGGB", false},
    {"BGGR_16Bits", QZRCFA_NearestNeighbor_BGGR_16Bits, QZRCFA_NearestNeighbor_Edge1_BGGR_16Bits, "BGGR", false},
    {"GRBG_16Bits", QZRCFA_NearestNeighbor_GRBG_16Bits, QZRCFA_NearestNeighbor_Edge1_GRBG_16Bits, "GRBG", false},
    {"GBRG_16Bits", QZRCFA_NearestNeighbor_GBRG_16Bits, QZRCFA_NearestNeighbor_Edge1_GBRG_16Bits, "GBRG", false},
    {"RGGB_Flip_16Bits", QZRCFA_NearestNeighbor_RGGB_Flip_16Bits, QZRCFA_NearestNeighbor_Edge1_RGGB_Flip_16Bits, "RGGB", true},
    {"BGGR_Flip_16Bits", QZRCFA_NearestNeighbor_BGGR_Flip_16Bits, QZRCFA_NearestNeighbor_Edge1_BGGR_Flip_16Bits, "BGGR", true},
    {"GRBG_Flip_16Bits", QZRCFA_NearestNeighbor_GRBG_Flip_16Bits, QZRCFA_NearestNeighbor_Edge1_GRBG_Flip_16Bits, "GRBG", true},
    {"GBRG_Flip_16Bits", QZRCFA_NearestNeighbor_GBRG_Flip_16Bits, QZRCFA_NearestNeighbor_Edge1_GBRG_Flip_16Bits, "GBRG", true},
};

std::vector<std::uint16_t> model(const Nearest16Case& m, std::vector<std::uint16_t> raw, int W, int H, int P,
                                 std::vector<std::uint16_t> out) {
    m.border(raw.data(), W, H, out.data(), std::uint16_t(P * 8));
    const Raw<std::uint16_t> S{raw, W};
    for (int r = 1; r <= H - 2; ++r) {
        for (int c = 1; c <= W - 2; ++c) {
            std::uint16_t* px = &out[std::size_t(((m.flip ? H - 1 - r : r) * W + c) * P)];
            int found = 0;
            for (int dr : {0, 1}) {
                for (int dc : {-1, 0}) {
                    const char colour = colour_at(m.pattern, r + dr, c + dc);
                    if (colour == 'G' && dr == 1) continue;  // the lower green is never used
                    px[element_of(colour)] = S(r + dr, c + dc);
                    ++found;
                }
            }
            EXPECT_EQ(found, 3);
        }
    }
    return out;
}

// Every size up to 10 x 10, and rows wide enough for the vector kernel with every
// remainder it can leave.
TEST(NearestNeighbor16, EveryMemberCopiesFromTheBlockOnTheLeft) {
    std::vector<int> widths;
    for (int W = 2; W <= 26; ++W) widths.push_back(W);
    for (const auto& m : kCases) {
        for (int P : {3, 4}) {
            for (int H = 2; H <= 10; ++H) {
                for (int W : widths) {
                    if (W > 10 && H != 4) continue;
                    std::vector<std::uint16_t> raw = random_frame<std::uint16_t>(W, H, 51);
                    Arena<std::uint16_t> out(std::size_t(W * H * P), 0xABCD);
                    const std::vector<std::uint16_t> expected = model(m, raw, W, H, P, out.image());
                    ASSERT_EQ(m.fn(raw.data(), W, H, out.data(), std::uint16_t(P * 8)), 0);
                    ASSERT_EQ(out.image(), expected) << m.name << " " << W << "x" << H << " P=" << P;
                }
            }
        }
    }
}

// 3 x 3 RGGB: the one interior pixel (1, 1), a blue site, takes blue S(1,1), green
// S(1,0) and red S(2,0). Samples above 255 show that nothing is narrowed.
TEST(NearestNeighbor16, ThreeByThreeRggb) {
    std::vector<std::uint16_t> raw(9);
    for (int i = 0; i < 9; ++i) raw[std::size_t(i)] = std::uint16_t(1000 * (i + 1) + 7);
    for (const auto& m : {kCases[0], kCases[4]}) {
        std::vector<std::uint16_t> out(27, 0);
        m.fn(raw.data(), 3, 3, out.data(), 24);
        const std::uint16_t* px = &out[std::size_t((1 * 3 + 1) * 3)];
        EXPECT_EQ(px[0], raw[4]) << m.name;
        EXPECT_EQ(px[1], raw[3]) << m.name;
        EXPECT_EQ(px[2], raw[6]) << m.name;
    }
}

// Unlike the 8-bit family, every 16-bit member (both row orders) is the same rule, so
// the bottom-up image is the top-down one upside down, border included.
TEST(NearestNeighbor16, FlipIsThePlainImageUpsideDown) {
    for (int i = 0; i < 4; ++i) {
        for (int H = 2; H <= 8; ++H) {
            for (int W = 2; W <= 8; ++W) {
                std::vector<std::uint16_t> raw = random_frame<std::uint16_t>(W, H, 52);
                std::vector<std::uint16_t> a(std::size_t(W * H * 3), 0), b(a.size(), 0);
                kCases[i].fn(raw.data(), W, H, a.data(), 24);
                kCases[i + 4].fn(raw.data(), W, H, b.data(), 24);
                ASSERT_EQ(a, reversed_rows(b, std::size_t(W) * 3)) << kCases[i].name << " " << W << "x" << H;
            }
        }
    }
}

// Four elements per pixel: element 3 is never written, except in the last pixel of a
// middle row, whose last three elements the border fill writes.
TEST(NearestNeighbor16, FourthElementKeepsTheCallersValue) {
    const int W = 7, H = 6;
    for (const auto& m : kCases) {
        std::vector<std::uint16_t> raw = random_frame<std::uint16_t>(W, H, 53);
        std::vector<std::uint16_t> three(std::size_t(W * H * 3), 0), four(std::size_t(W * H * 4), 0xBEEF);
        m.fn(raw.data(), W, H, three.data(), 24);
        m.fn(raw.data(), W, H, four.data(), 32);
        for (int r = 0; r < H; ++r) {
            for (int c = 0; c < W; ++c) {
                const std::uint16_t* p3 = &three[std::size_t((r * W + c) * 3)];
                const std::uint16_t* p4 = &four[std::size_t((r * W + c) * 4)];
                if (c == W - 1 && r > 0 && r < H - 1) {
                    EXPECT_EQ(p4[0], 0xBEEF) << m.name << " (" << r << "," << c << ")";
                    EXPECT_EQ((std::vector<int>{p4[1], p4[2], p4[3]}), (std::vector<int>{p3[0], p3[1], p3[2]})) << m.name;
                } else {
                    EXPECT_EQ((std::vector<int>{p4[0], p4[1], p4[2]}), (std::vector<int>{p3[0], p3[1], p3[2]})) << m.name;
                    EXPECT_EQ(p4[3], 0xBEEF) << m.name << " (" << r << "," << c << ")";
                }
            }
        }
    }
}

// Only bitCount >> 3 matters: 24 to 31 all mean three elements per pixel.
TEST(NearestNeighbor16, BitCounts24To31AreThreeElementsPerPixel) {
    for (const auto& m : kCases) EXPECT_TRUE(bitcounts_unlike_24(m.fn, 6, 5, 54).empty()) << m.name;
}

// Nothing outside the image is written (height or width 2 being the border fill
// alone, which the model above already covers).
TEST(NearestNeighbor16, WritesNothingOutsideTheImage) {
    for (const auto& m : kCases) {
        for (int P : {3, 4}) {
            for (const std::pair<int, int>& wh : {std::pair{7, 2}, std::pair{2, 7}, std::pair{2, 2}, std::pair{3, 3}, std::pair{5, 4}}) {
                const int W = wh.first, H = wh.second;  // not a structured binding: clang 14 cannot capture those
                std::vector<std::uint16_t> raw = random_frame<std::uint16_t>(W, H, 55);
                const std::size_t size = std::size_t(W * H * P);
                auto written = written_elements<std::uint16_t>(size, [&](std::uint16_t* dst) {
                    m.fn(raw.data(), W, H, dst, std::uint16_t(P * 8));
                });
                EXPECT_TRUE(outside(written, size).empty()) << m.name << " " << W << "x" << H << " P=" << P;
            }
        }
    }
}

}  // namespace
}  // namespace qzrcfa::test
