// One-pixel border fill, 16-bit: the cases the ring model of test_border_fill does not
// reach (one column, one row, pixel strides from bitCount values other than 24 and 32).
#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <vector>

#include "qzrcfa.h"
#include "support/arena.h"
#include "support/colour_checks.h"

namespace qzrcfa::test {
namespace {

using Fn16 = int (*)(unsigned short*, int, int, unsigned short*, unsigned short);

struct Border16 {
    const char* name;
    Fn16 fn;
    bool flip;
};

const Border16 kMembers[] = {
    {"RGGB_16Bits", QZRCFA_NearestNeighbor_Edge1_RGGB_16Bits, false},
    {"BGGR_16Bits", QZRCFA_NearestNeighbor_Edge1_BGGR_16Bits, false},
    {"GRBG_16Bits", QZRCFA_NearestNeighbor_Edge1_GRBG_16Bits, false},
    {"GBRG_16Bits", QZRCFA_NearestNeighbor_Edge1_GBRG_16Bits, false},
    {"RGGB_Flip_16Bits", QZRCFA_NearestNeighbor_Edge1_RGGB_Flip_16Bits, true},
    {"BGGR_Flip_16Bits", QZRCFA_NearestNeighbor_Edge1_BGGR_Flip_16Bits, true},
    {"GRBG_Flip_16Bits", QZRCFA_NearestNeighbor_Edge1_GRBG_Flip_16Bits, true},
    {"GBRG_Flip_16Bits", QZRCFA_NearestNeighbor_Edge1_GBRG_Flip_16Bits, true},
};

// One column, three rows, RGGB: reads past a row's end land in the next row, and in
// the middle row the last-three-elements write lands on the first pixel and replaces it.
TEST(BorderFill16, OneColumnThreeRowsRggb) {
    std::vector<std::uint16_t> raw = {1000, 2000, 3000, 4000, 5000};  // three rows, then two more samples
    for (const auto& m : {kMembers[0], kMembers[4]}) {
        std::vector<std::uint16_t> out(9, 0);
        m.fn(raw.data(), 1, 3, out.data(), 24);
        auto row = [&](int s) {
            const int r = m.flip ? 2 - s : s;
            return std::vector<int>{out[std::size_t(r * 3)], out[std::size_t(r * 3 + 1)], out[std::size_t(r * 3 + 2)]};
        };
        EXPECT_EQ(row(0), (std::vector<int>{3000, 2000, 1000})) << m.name;  // S(1,1) = S(2,0), S(0,1) = S(1,0), S(0,0)
        EXPECT_EQ(row(1), (std::vector<int>{2000, 1000, 3000})) << m.name;  // S(1,0), S(1,-1) = S(0,0), S(2,0)
        EXPECT_EQ(row(2), (std::vector<int>{4000, 3000, 2000})) << m.name;  // S(2,1) = S(3,0), S(2,0), S(1,0)
    }
}

// Only bitCount >> 3 matters: 24 to 31 all mean three elements per pixel.
TEST(BorderFill16, BitCounts24To31AreThreeElementsPerPixel) {
    for (const auto& m : kMembers) EXPECT_TRUE(bitcounts_unlike_24(m.fn, 7, 5, 61).empty()) << m.name;
}

// Elements written with four elements per pixel: elements 0..2 of the ring pixels
// except the last pixel of each middle row, where elements 1..3 are written and 0 is
// not. No fourth element anywhere else, and nothing outside the image.
TEST(BorderFill16, FourElementPixelsWriteTheFourthOnlyAtTheEndOfMiddleRows) {
    const int W = 6, H = 5, P = 4;
    std::vector<std::uint16_t> raw = random_frame<std::uint16_t>(W, H, 62);
    for (const auto& m : kMembers) {
        const auto written = written_elements<std::uint16_t>(std::size_t(W * H * P), [&](std::uint16_t* dst) {
            m.fn(raw.data(), W, H, dst, 32);
        });
        std::set<std::ptrdiff_t> expected;
        for (int r = 0; r < H; ++r) {
            for (int c = 0; c < W; ++c) {
                const std::ptrdiff_t px = std::ptrdiff_t(r * W + c) * P;
                if (r == 0 || r == H - 1 || c == 0) {
                    for (int e = 0; e < 3; ++e) expected.insert(px + e);
                } else if (c == W - 1) {
                    for (int e = 1; e < 4; ++e) expected.insert(px + e);
                }
            }
        }
        EXPECT_EQ(written, expected) << m.name;
    }
}

// One row: the last-row pass still runs from raw row 1 (one row past the frame) and
// writes a whole row outside the image: after it top-down, before dst bottom-up.
TEST(BorderFill16, OneRowWritesARowOutsideTheImage) {
    const int W = 5, P = 3;
    std::vector<std::uint16_t> raw = random_frame<std::uint16_t>(W, 1, 63);  // two rows follow the frame
    for (const auto& m : kMembers) {
        const auto written = written_elements<std::uint16_t>(std::size_t(W * P), [&](std::uint16_t* dst) {
            m.fn(raw.data(), W, 1, dst, 24);
        });
        std::set<std::ptrdiff_t> expected;
        for (std::ptrdiff_t i = 0; i < W * P; ++i) {
            expected.insert(i);
            expected.insert(m.flip ? i - W * P : i + W * P);
        }
        EXPECT_EQ(written, expected) << m.name;
    }
}

}  // namespace
}  // namespace qzrcfa::test
