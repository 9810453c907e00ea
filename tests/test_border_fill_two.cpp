// Two-pixel border fill.
//
// The model fills the ring from the rule in words: a pixel handed a 2x2 block takes red
// from the block's red site, blue from its blue site and green from the green site in
// its own row, where the colours of the block's sites are those of the rows whose phase
// the pixel is read with; the right pair of a middle row comes from the listed table.
// The library must match it byte for byte on random frames of every size the contract
// allows (odd sizes included, where the bottom pair keeps the phases of rows 0 and 1),
// top-down and bottom-up, at three and four bytes per pixel, and write nothing else.
#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "qzrcfa.h"
#include "support/arena.h"
#include "support/bayer_model.h"

namespace qzrcfa::test {
namespace {

using Fn8 = int (*)(unsigned char*, int, int, unsigned char*, unsigned short);

struct Edge2Case {
    const char* name;
    Fn8 fn;
    std::string pattern;
    bool flip;
    // Pixel width - 2 of a colour row: the columns its green and its lower-row colour
    // come from, counted back from the row end (1 = width - 1).
    int inner_green_back, inner_lower_back;
};

const Edge2Case kCases[] = {
    {"RGGB", QZRCFA_NearestNeighbor_Edge2_RGGB, "RGGB", false, 1, 3},
    {"BGGR", QZRCFA_NearestNeighbor_Edge2_BGGR, "BGGR", false, 3, 3},
    {"GRBG", QZRCFA_NearestNeighbor_Edge2_GRBG, "GRBG", false, 3, 1},
    {"GBRG", QZRCFA_NearestNeighbor_Edge2_GBRG, "GBRG", false, 3, 1},
    {"RGGB_Flip", QZRCFA_NearestNeighbor_Edge2_RGGB_Flip, "RGGB", true, 1, 3},
    {"BGGR_Flip", QZRCFA_NearestNeighbor_Edge2_BGGR_Flip, "BGGR", true, 3, 3},
    {"GRBG_Flip", QZRCFA_NearestNeighbor_Edge2_GRBG_Flip, "GRBG", true, 3, 1},
    {"GBRG_Flip", QZRCFA_NearestNeighbor_Edge2_GBRG_Flip, "GBRG", true, 3, 1},
};

struct Rgb {
    std::uint8_t v[3];  // blue, green, red
};

// The block rule. The pixel lies in raw row `own`, read with the phase of row
// `own_phase`; the block's other row is `partner`, read with the other phase; the
// block's columns are c0 and c0 + 1.
Rgb block(const Edge2Case& m, const Raw<std::uint8_t>& S, int own, int own_phase, int partner, int c0) {
    Rgb px{};
    for (int k = 0; k < 2; ++k) {
        const int c = c0 + k;
        const char in_own = colour_at(m.pattern, own_phase, c);
        const char in_partner = colour_at(m.pattern, own_phase + 1, c);
        if (in_own == 'G') px.v[1] = S(own, c);
        else px.v[element_of(in_own)] = S(own, c);
        if (in_partner != 'G') px.v[element_of(in_partner)] = S(partner, c);
    }
    return px;
}

std::vector<std::uint8_t> model(const Edge2Case& m, const std::vector<std::uint8_t>& raw, int W, int H, int P,
                                std::vector<std::uint8_t> out) {
    const Raw<std::uint8_t> S{raw, W};
    auto row_at = [&](int r) { return std::ptrdiff_t(m.flip ? H - 1 - r : r) * W * P; };
    auto full_row = [&](int r, int phase, int partner) {
        for (int c = 0; c < W; ++c) {
            const Rgb px = block(m, S, r, phase, partner, c == 0 ? 0 : c - 1);
            for (int e = 0; e < 3; ++e) out[std::size_t(row_at(r) + std::ptrdiff_t(c) * P + e)] = px.v[e];
        }
    };
    full_row(0, 0, 1);
    full_row(1, 1, 2);
    for (int r = 2; r <= H - 3; ++r) {
        std::vector<std::uint8_t> six;
        const Rgb left = block(m, S, r, r, r + 1, 0);
        six.insert(six.end(), left.v, left.v + 3);
        six.insert(six.end(), left.v, left.v + 3);
        for (int e = 0; e < 6; ++e) out[std::size_t(row_at(r) + e)] = six[std::size_t(e)];

        // Right pair: X is the row's own colour, Y the lower row's; columns back from the end.
        const char x = row_colour(m.pattern, r);
        const bool green_row = colour_at(m.pattern, r, 0) == 'G';  // column width - 2 taken as even
        struct Pick {
            int x_back, g_back, y_back;
        };
        const Pick inner = green_row ? Pick{3, 2, 2} : Pick{2, m.inner_green_back, m.inner_lower_back};
        const Pick outer = green_row ? Pick{1, 2, 2} : Pick{2, 1, 1};
        six.clear();
        for (const Pick& p : {inner, outer}) {
            Rgb px{};
            px.v[element_of(x)] = S(r, W - p.x_back);
            px.v[1] = S(r, W - p.g_back);
            px.v[element_of(opposite(x))] = S(r + 1, W - p.y_back);
            six.insert(six.end(), px.v, px.v + 3);
        }
        const std::ptrdiff_t end = row_at(r) + std::ptrdiff_t(W) * P;
        for (int e = 0; e < 6; ++e) out[std::size_t(end - 6 + e)] = six[std::size_t(e)];
    }
    // The bottom pair is read with the phases of rows 0 and 1, the second row's partner above.
    const int p = H >= 5 ? H - 2 : 2;
    full_row(p, 0, p + 1);
    full_row(p + 1, 1, p);
    return out;
}

TEST(BorderFillTwo, MatchesTheBlockRuleAndRightPairTable) {
    for (const auto& m : kCases) {
        for (int P : {3, 4}) {
            for (int H = 4; H <= 11; ++H) {
                for (int W = 4; W <= 11; ++W) {
                    const std::vector<std::uint8_t> raw = random_frame<std::uint8_t>(W, H, 31);
                    Arena<std::uint8_t> out(std::size_t(W * H * P), 0x3C);
                    const std::vector<std::uint8_t> expected = model(m, raw, W, H, P, out.image());
                    std::vector<std::uint8_t> src = raw;
                    ASSERT_EQ(m.fn(src.data(), W, H, out.data(), std::uint16_t(P * 8)), 0);
                    ASSERT_EQ(out.image(), expected) << m.name << " " << W << "x" << H << " P=" << P;
                }
            }
        }
    }
}

// Which bytes a call writes: the four full rows (three bytes per pixel), and in the
// middle rows the first and the last six bytes of the row, whatever the stride. So a
// 4 x 4 frame is written in full by the top and bottom pairs, a 6 x 6 frame keeps
// columns 2 and 3 of rows 2 and 3, and with four-byte pixels the left pair reaches
// byte 3 of pixel 0 while the full rows leave every fourth byte alone.
std::set<std::ptrdiff_t> expected_writes(int W, int H, int P) {
    std::set<std::ptrdiff_t> out;
    for (int r = 0; r < H; ++r) {
        const std::ptrdiff_t start = std::ptrdiff_t(r) * W * P;
        if (r < 2 || r >= H - 2) {
            for (int c = 0; c < W; ++c)
                for (int e = 0; e < 3; ++e) out.insert(start + std::ptrdiff_t(c) * P + e);
        } else {
            for (int e = 0; e < 6; ++e) {
                out.insert(start + e);
                out.insert(start + std::ptrdiff_t(W) * P - 1 - e);
            }
        }
    }
    return out;
}

TEST(BorderFillTwo, WritesTheTwoPixelRingAndNothingOutsideTheImage) {
    for (const auto& m : kCases) {
        for (int P : {3, 4}) {
            for (int H = 4; H <= 8; ++H) {
                for (int W = 4; W <= 8; ++W) {
                    std::vector<std::uint8_t> raw = random_frame<std::uint8_t>(W, H, 7);
                    const auto written = written_elements<std::uint8_t>(std::size_t(W * H * P), [&](std::uint8_t* dst) {
                        m.fn(raw.data(), W, H, dst, std::uint16_t(P * 8));
                    });
                    ASSERT_EQ(written, expected_writes(W, H, P)) << m.name << " " << W << "x" << H << " P=" << P;
                }
            }
        }
    }
}

}  // namespace
}  // namespace qzrcfa::test
