// Nearest neighbour, grey output (8- and 16-bit).
//
// The model states each member's finished image directly: every computed row holds the
// truncated two-by-two means of its raw row, its right-hand columns as the member's
// variant leaves them, the remaining row repeats its neighbour, and the bottom-up
// shuffling members carry the spill of each row into the first two columns of the row
// below it (and, from the first row they fill, past the end of the image).
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "qzrcfa.h"
#include "support/arena.h"

namespace qzrcfa::test {
namespace {

template <class T>
using GreyFn = int (*)(T*, int, int, T*);

enum class Right { TwoColumnCopy, Shuffle };

template <class T>
struct GreyCase {
    const char* name;
    GreyFn<T> fn;
    bool flip;
    Right right;
};

// The bottom-up BGGR, GRBG and GBRG members behave as the bottom-up RGGB member of
// the same sample width.
const GreyCase<std::uint8_t> kGrey8[] = {
    {"RGGB_Gray", QZRCFA_NearestNeighbor_RGGB_Gray, false, Right::TwoColumnCopy},
    {"BGGR_Gray", QZRCFA_NearestNeighbor_BGGR_Gray, false, Right::Shuffle},
    {"GRBG_Gray", QZRCFA_NearestNeighbor_GRBG_Gray, false, Right::Shuffle},
    {"GBRG_Gray", QZRCFA_NearestNeighbor_GBRG_Gray, false, Right::Shuffle},
    {"RGGB_Gray_Flip", QZRCFA_NearestNeighbor_RGGB_Gray_Flip, true, Right::TwoColumnCopy},
    {"BGGR_Gray_Flip", QZRCFA_NearestNeighbor_BGGR_Gray_Flip, true, Right::TwoColumnCopy},
    {"GRBG_Gray_Flip", QZRCFA_NearestNeighbor_GRBG_Gray_Flip, true, Right::TwoColumnCopy},
    {"GBRG_Gray_Flip", QZRCFA_NearestNeighbor_GBRG_Gray_Flip, true, Right::TwoColumnCopy},
};

const GreyCase<std::uint16_t> kGrey16[] = {
    {"RGGB_Gray_16Bits", QZRCFA_NearestNeighbor_RGGB_Gray_16Bits, false, Right::Shuffle},
    {"BGGR_Gray_16Bits", QZRCFA_NearestNeighbor_BGGR_Gray_16Bits, false, Right::Shuffle},
    {"GRBG_Gray_16Bits", QZRCFA_NearestNeighbor_GRBG_Gray_16Bits, false, Right::Shuffle},
    {"GBRG_Gray_16Bits", QZRCFA_NearestNeighbor_GBRG_Gray_16Bits, false, Right::Shuffle},
    {"RGGB_Gray_Flip_16Bits", QZRCFA_NearestNeighbor_RGGB_Gray_Flip_16Bits, true, Right::Shuffle},
    {"BGGR_Gray_Flip_16Bits", QZRCFA_NearestNeighbor_BGGR_Gray_Flip_16Bits, true, Right::Shuffle},
    {"GRBG_Gray_Flip_16Bits", QZRCFA_NearestNeighbor_GRBG_Gray_Flip_16Bits, true, Right::Shuffle},
    {"GBRG_Gray_Flip_16Bits", QZRCFA_NearestNeighbor_GBRG_Gray_Flip_16Bits, true, Right::Shuffle},
};

// Only the bottom-up shuffling members spill past the image.
template <class T>
bool spills(const GreyCase<T>& m) {
    return m.flip && m.right == Right::Shuffle;
}

// Expected elements: the image, then (for spilling members) the two elements after it.
// Needs width >= 3 for the two-column copy and width >= 4 for the shuffle, so that no
// value comes from before a row.
template <class T>
std::vector<T> model(const GreyCase<T>& m, const std::vector<T>& raw, int W, int H) {
    auto mean = [&](int s, int c) {
        const std::size_t i = std::size_t(s) * std::size_t(W) + std::size_t(c);
        return T((long(raw[i]) + raw[i + 1] + raw[i + std::size_t(W)] + raw[i + std::size_t(W) + 1]) / 4);
    };
    std::vector<T> g(std::size_t(W) * std::size_t(H) + 2, T(0));
    auto at = [&](int r, int c) -> T& { return g[std::size_t(r) * std::size_t(W) + std::size_t(c)]; };
    auto out_row = [&](int s) { return m.flip ? H - 1 - s : s; };
    for (int s = 0; s <= H - 2; ++s) {
        const int r = out_row(s);
        for (int c = 0; c < W; ++c) at(r, c) = mean(s, c);
        if (m.right == Right::TwoColumnCopy) {
            at(r, W - 2) = at(r, W - 1) = mean(s, W - 3);
        } else {
            at(r, W - 1) = mean(s, W - 4);
        }
    }
    if (spills(m)) {
        // Each row's columns W - 3 and W - 2 (as averaged) land at the start of the row
        // below it; the last row filled sends them past the image.
        for (int r = 2; r <= H - 1; ++r) {
            at(r, 0) = mean(H - r, W - 3);
            at(r, 1) = mean(H - r, W - 2);
        }
        g[std::size_t(W) * std::size_t(H)] = mean(0, W - 3);
        g[std::size_t(W) * std::size_t(H) + 1] = mean(0, W - 2);
    }
    const int copied = out_row(H - 1), source = out_row(H - 2);
    for (int c = 0; c < W; ++c) at(copied, c) = at(source, c);
    return g;
}

// Runs a member on a random frame in an arena and checks every element of the arena:
// the image and the spill as the model says, everything else untouched.
template <class T>
void expect_model(const GreyCase<T>& m, int W, int H, std::uint32_t seed, unsigned max) {
    const std::vector<T> raw = random_frame<T>(W, H, seed, max);
    const std::size_t size = std::size_t(W) * std::size_t(H);
    const T canary = T(0xC3);
    Arena<T> out(size, canary);
    ASSERT_EQ(m.fn(const_cast<T*>(raw.data()), W, H, out.data()), 0);
    const std::vector<T> expected = model(m, raw, W, H);
    for (std::ptrdiff_t i = out.first(); i <= out.last(); ++i) {
        const bool image = i >= 0 && i < std::ptrdiff_t(size);
        const bool spill = spills(m) && (i == std::ptrdiff_t(size) || i == std::ptrdiff_t(size) + 1);
        const T want = image || spill ? expected[std::size_t(i)] : canary;
        ASSERT_EQ(out[i], want) << m.name << " " << W << "x" << H << " element " << i;
    }
}

TEST(Grey, EveryMemberMatchesTheModelOnRandomFrames) {
    for (const auto& m : kGrey8) {
        for (int H = 2; H <= 9; ++H)
            for (int W = m.right == Right::Shuffle ? 4 : 3; W <= 40; ++W) expect_model(m, W, H, 31, 255);
    }
    for (const auto& m : kGrey16) {
        for (int H = 2; H <= 9; ++H) {
            for (int W = 4; W <= 40; ++W) {
                expect_model(m, W, H, 32, 65535);
                expect_model(m, W, H, 33, 1023);  // a 10-bit sensor's range
            }
        }
    }
}

TEST(Grey, WideFramesMatchTheModel) {
    for (const auto& m : kGrey8) expect_model(m, 1283, 5, 41, 255);
    for (const auto& m : kGrey16) expect_model(m, 1283, 5, 42, 65535);
}

// The documented 7 x 4 frame, checked as relations between output elements.
template <class T>
void expect_seven_by_four(const GreyCase<T>& m) {
    const int W = 7, H = 4;
    const std::vector<T> raw = random_frame<T>(W, H, 7);
    Arena<T> out(std::size_t(W * H), T(0xC3));
    m.fn(const_cast<T*>(raw.data()), W, H, out.data());
    auto G = [&](int r, int c) { return out[r * W + c]; };
    auto mean = [&](int s, int c) {
        return T((raw[std::size_t(s * W + c)] + raw[std::size_t(s * W + c + 1)] + raw[std::size_t((s + 1) * W + c)] +
                  raw[std::size_t((s + 1) * W + c + 1)]) >> 2);
    };
    const int first_averaged_row = m.flip ? 1 : 0;
    for (int r = first_averaged_row; r < first_averaged_row + 3; ++r) {
        const int s = m.flip ? H - 1 - r : r;
        const int averaged = m.right == Right::TwoColumnCopy ? 5 : 6;
        const int from = spills(m) && r >= 2 ? 2 : 0;  // columns 0 and 1 carry the spill there
        for (int c = from; c < averaged; ++c) EXPECT_EQ(G(r, c), mean(s, c)) << m.name << " (" << r << "," << c << ")";
        if (m.right == Right::TwoColumnCopy) {
            EXPECT_EQ(G(r, 5), G(r, 4)) << m.name << " row " << r;
            EXPECT_EQ(G(r, 6), G(r, 4)) << m.name << " row " << r;
        } else {
            EXPECT_EQ(G(r, 6), mean(s, 3)) << m.name << " row " << r;
        }
        if (spills(m) && r >= 2) {
            EXPECT_EQ(G(r, 0), mean(s + 1, 4)) << m.name << " row " << r;
            EXPECT_EQ(G(r, 1), mean(s + 1, 5)) << m.name << " row " << r;
        }
    }
    const int copy = m.flip ? 0 : 3, source = m.flip ? 1 : 2;
    for (int c = 0; c < W; ++c) EXPECT_EQ(G(copy, c), G(source, c)) << m.name << " column " << c;
    if (spills(m)) {
        EXPECT_EQ(out[W * H], mean(0, 4)) << m.name;
        EXPECT_EQ(out[W * H + 1], mean(0, 5)) << m.name;
    } else {
        EXPECT_EQ(out[W * H], T(0xC3)) << m.name;
        EXPECT_EQ(out[W * H + 1], T(0xC3)) << m.name;
    }
}

TEST(Grey, SevenByFourFrame) {
    for (const auto& m : kGrey8) expect_seven_by_four(m);
    for (const auto& m : kGrey16) expect_seven_by_four(m);
}

// The top-down BGGR member shuffles and the bottom-up one copies two columns, so the
// bottom-up image is not the top-down one upside down: they agree up to column 4 only.
TEST(Grey, BggrPairDiffersInTheRightHandColumns) {
    const int W = 7, H = 4;
    const std::vector<std::uint8_t> raw = random_frame<std::uint8_t>(W, H, 3);
    std::vector<std::uint8_t> plain(std::size_t(W * H)), flip(plain.size());
    QZRCFA_NearestNeighbor_BGGR_Gray(const_cast<std::uint8_t*>(raw.data()), W, H, plain.data());
    QZRCFA_NearestNeighbor_BGGR_Gray_Flip(const_cast<std::uint8_t*>(raw.data()), W, H, flip.data());
    const std::vector<std::uint8_t> turned = reversed_rows(flip, std::size_t(W));
    EXPECT_NE(plain, turned);
    for (int r = 0; r < H; ++r)
        for (int c = 0; c < 5; ++c) EXPECT_EQ(plain[std::size_t(r * W + c)], turned[std::size_t(r * W + c)]) << "(" << r << "," << c << ")";
    // Columns 5 and 6 come from different columns of the means in the two members.
    bool column5_differs = false, column6_differs = false;
    for (int r = 0; r < H; ++r) {
        column5_differs |= plain[std::size_t(r * W + 5)] != turned[std::size_t(r * W + 5)];
        column6_differs |= plain[std::size_t(r * W + 6)] != turned[std::size_t(r * W + 6)];
    }
    EXPECT_TRUE(column5_differs);
    EXPECT_TRUE(column6_differs);
}

// Full-scale samples average to full scale; the mean is truncated, never rounded.
template <class T>
void expect_uniform_means(const GreyCase<T>& m) {
    const int W = 9, H = 5;
    struct Block {
        T a, b, c, d;  // the samples at (even, even), (even, odd), (odd, even), (odd, odd)
        T mean;
    };
    const T top = T(~T(0));
    const Block blocks[] = {
        {top, top, top, top, top}, {1, 1, 1, 0, 0}, {3, 3, 3, 2, 2}, {1, 1, 1, 1, 1}, {T(top - 1), top, top, top, T(top - 1)},
    };
    for (const Block& b : blocks) {
        // Every 2 x 2 block of this frame holds one sample of each phase.
        std::vector<T> raw(std::size_t(W * H));
        for (int s = 0; s < H; ++s)
            for (int c = 0; c < W; ++c) raw[std::size_t(s * W + c)] = (s & 1) ? ((c & 1) ? b.d : b.c) : ((c & 1) ? b.b : b.a);
        Arena<T> out(std::size_t(W * H), T(0x11));
        m.fn(raw.data(), W, H, out.data());
        for (int i = 0; i < W * H; ++i) ASSERT_EQ(out[i], b.mean) << m.name << " element " << i;
    }
}

TEST(Grey, MeansAreTruncatedAndReachFullScale) {
    for (const auto& m : kGrey8) expect_uniform_means(m);
    for (const auto& m : kGrey16) expect_uniform_means(m);
}

// One row: nothing to average. The row is copied from the row's width of elements
// before dst (top-down) or after the row (bottom-up); src is not read.
template <class T>
void expect_single_row(const GreyCase<T>& m) {
    const int W = 6;
    Arena<T> out(std::size_t(W), T(0x22));
    for (int i = -W; i < 2 * W; ++i) out[i] = T(100 + i);
    Arena<T> before = out;
    ASSERT_EQ(m.fn(nullptr, W, 1, out.data()), 0);
    for (int c = 0; c < W; ++c) EXPECT_EQ(out[c], T(100 + (m.flip ? W + c : c - W))) << m.name << " column " << c;
    for (std::ptrdiff_t i : out.differences(before)) EXPECT_TRUE(i >= 0 && i < W) << m.name << " wrote " << i;
}

TEST(Grey, OneRowIsCopiedFromBesideTheImage) {
    for (const auto& m : kGrey8) expect_single_row(m);
    for (const auto& m : kGrey16) expect_single_row(m);
}

template <class T>
void expect_no_rows(const GreyCase<T>& m) {
    for (int H : {0, -1}) {
        Arena<T> out(16, T(0x33));
        const Arena<T> before = out;
        ASSERT_EQ(m.fn(nullptr, 4, H, out.data()), 0);
        EXPECT_TRUE(out.differences(before).empty()) << m.name << " height " << H;
    }
}

TEST(Grey, NoRowsWriteNothing) {
    for (const auto& m : kGrey8) expect_no_rows(m);
    for (const auto& m : kGrey16) expect_no_rows(m);
}

// Narrow frames: the right-hand columns copy from the output as already written, which
// reaches before the row. One or two columns with the two-column copy: each element
// repeats the one before it, so the top-down member fills its whole image with the
// element before dst; the bottom-up member reads only image elements it has not
// written yet. Only the image is written.
TEST(Grey, TwoColumnCopyOnNarrowFramesRepeatsTheElementBeforeTheRow) {
    const int H = 4;
    for (int W : {1, 2}) {
        const std::vector<std::uint8_t> raw = random_frame<std::uint8_t>(W, H, 5);
        for (const auto& m : kGrey8) {
            if (m.right != Right::TwoColumnCopy) continue;
            // 0x99 around the image, 0x44 in it.
            Arena<std::uint8_t> out(std::size_t(W * H), 0x99);
            for (int i = 0; i < W * H; ++i) out[i] = 0x44;
            const Arena<std::uint8_t> before = out;
            m.fn(const_cast<std::uint8_t*>(raw.data()), W, H, out.data());
            for (int i = 0; i < W * H; ++i) ASSERT_EQ(out[i], m.flip ? 0x44 : 0x99) << m.name << " element " << i;
            for (std::ptrdiff_t i : out.differences(before)) EXPECT_TRUE(i >= 0 && i < W * H) << m.name << " wrote " << i;
        }
    }
}

// Three columns with the shuffle: the last column repeats the element before the row,
// which for the first row is the element before dst and for every later row the last
// column of the row above.
TEST(Grey, ShuffleOnThreeColumnsRepeatsTheElementBeforeDst) {
    const int W = 3, H = 5;
    const std::vector<std::uint8_t> raw = random_frame<std::uint8_t>(W, H, 6);
    for (const auto& m : kGrey8) {
        if (m.right != Right::Shuffle) continue;
        Arena<std::uint8_t> out(std::size_t(W * H), 0x99);
        for (int i = 0; i < W * H; ++i) out[i] = 0x44;
        m.fn(const_cast<std::uint8_t*>(raw.data()), W, H, out.data());
        for (int r = 0; r < H; ++r) {
            const int s = r < H - 1 ? r : H - 2;
            for (int c = 0; c < 2; ++c) {
                const int mean = (raw[std::size_t(s * W + c)] + raw[std::size_t(s * W + c + 1)] +
                                  raw[std::size_t((s + 1) * W + c)] + raw[std::size_t((s + 1) * W + c + 1)]) >> 2;
                EXPECT_EQ(out[r * W + c], mean) << m.name << " (" << r << "," << c << ")";
            }
            EXPECT_EQ(out[r * W + 2], 0x99) << m.name << " row " << r;
        }
    }
}

}  // namespace
}  // namespace qzrcfa::test
