// Laplacian and Laplacian2.
//
// The model states the method pixel by pixel: white fill, the member's two-pixel
// border, the green pass over its rows and columns, then the red/blue pass, which reads
// its diagonal greens from the output as the bytes at -2 and +4 from the pixels one
// output row up and one output row down in memory (the member says which of the two
// rows supplies the upper greens). Division is spelled out as truncation toward zero.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "qzrcfa.h"
#include "support/arena.h"
#include "support/bayer_model.h"

namespace qzrcfa::test {
namespace {

using Fn8 = int (*)(unsigned char*, int, int, unsigned char*, unsigned short);

struct LaplacianCase {
    const char* name;
    Fn8 fn;
    Fn8 border;
    std::string pattern;
    bool flip;
    bool upper_greens_from_memory_below;  // Gul, Gur from the output row below in memory
    int green_first;                      // first row and column of the green pass (its last: size - 1 - (4 - green_first))
};

const LaplacianCase kCases[] = {
    {"RGGB", QZRCFA_Laplacian_RGGB, QZRCFA_NearestNeighbor_Edge2_RGGB, "RGGB", false, false, 2},
    {"BGGR", QZRCFA_Laplacian_BGGR, QZRCFA_NearestNeighbor_Edge2_BGGR, "BGGR", false, false, 2},
    {"GRBG", QZRCFA_Laplacian_GRBG, QZRCFA_NearestNeighbor_Edge2_GRBG, "GRBG", false, false, 2},
    {"GBRG", QZRCFA_Laplacian_GBRG, QZRCFA_NearestNeighbor_Edge2_GBRG, "GBRG", false, false, 2},
    {"RGGB_Flip", QZRCFA_Laplacian_RGGB_Flip, QZRCFA_NearestNeighbor_Edge2_RGGB_Flip, "RGGB", true, false, 2},
    {"BGGR_Flip", QZRCFA_Laplacian_BGGR_Flip, QZRCFA_NearestNeighbor_Edge2_BGGR_Flip, "BGGR", true, true, 2},
    {"GRBG_Flip", QZRCFA_Laplacian_GRBG_Flip, QZRCFA_NearestNeighbor_Edge2_GRBG_Flip, "GRBG", true, true, 2},
    {"GBRG_Flip", QZRCFA_Laplacian_GBRG_Flip, QZRCFA_NearestNeighbor_Edge2_GBRG_Flip, "GBRG", true, true, 2},
    {"Laplacian2_RGGB", QZRCFA_Laplacian2_RGGB, QZRCFA_NearestNeighbor_Edge2_RGGB, "RGGB", false, false, 4},
};
const LaplacianCase& kLaplacian2 = kCases[8];

int div_toward_zero(int x, int n) {
    const int q = std::abs(x) / n;
    return x < 0 ? -q : q;
}

int clamp(int x) { return x < 0 ? 0 : x > 255 ? 255 : x; }

std::vector<std::uint8_t> model(const LaplacianCase& m, const std::vector<std::uint8_t>& raw, int W, int H, int P,
                                std::vector<std::uint8_t> out) {
    std::fill_n(out.begin(), W * H * P, 255);
    std::vector<std::uint8_t> src = raw;
    m.border(src.data(), W, H, out.data(), std::uint16_t(P * 8));
    if (H < 5) return out;
    // Samples at or past the end of the frame read as 0.
    auto S = [&](int r, int c) -> int {
        const long i = long(r) * W + c;
        return i < long(W) * H ? raw[std::size_t(i)] : 0;
    };
    auto at = [&](int r, int c) { return std::ptrdiff_t((m.flip ? H - 1 - r : r) * W + c) * P; };

    const int shift = m.green_first - 2;
    for (int r = 2 + shift; r <= H - 3 + shift; ++r) {
        for (int c = 2 + shift; c <= W - 3 + shift; ++c) {
            std::uint8_t* px = &out[std::size_t(at(r, c))];
            const char here = colour_at(m.pattern, r, c);
            if (here == 'G') {
                px[1] = std::uint8_t(S(r, c));
                continue;
            }
            const int X = S(r, c);
            const int dh = 2 * X - S(r, c - 2) - S(r, c + 2);
            const int dv = 2 * X - S(r - 2, c) - S(r + 2, c);
            const int Hg = std::abs(S(r, c - 1) - S(r, c + 1)) + std::abs(dh);
            const int Vg = std::abs(S(r - 1, c) - S(r + 1, c)) + std::abs(dv);
            int g;
            if (Hg < Vg) g = div_toward_zero(dh, 4) + (S(r, c - 1) + S(r, c + 1)) / 2;
            else if (Vg < Hg) g = div_toward_zero(dv, 4) + (S(r - 1, c) + S(r + 1, c)) / 2;
            else g = div_toward_zero(dh + dv, 8) + (S(r, c - 1) + S(r, c + 1) + S(r - 1, c) + S(r + 1, c)) / 4;
            px[1] = std::uint8_t(clamp(g));
            px[element_of(here)] = std::uint8_t(X);
            if (here == 'R') px[0] = std::uint8_t(X);
        }
    }
    const std::ptrdiff_t row_bytes = std::ptrdiff_t(W) * P;
    for (int r = 2; r <= H - 3; ++r) {
        for (int c = 2; c <= W - 3; ++c) {
            const std::ptrdiff_t o = at(r, c);
            std::uint8_t* px = &out[std::size_t(o)];
            const char here = colour_at(m.pattern, r, c);
            if (here == 'G') {
                const char x = row_colour(m.pattern, r);
                px[element_of(x)] = std::uint8_t((S(r, c - 1) + S(r, c + 1)) / 2);
                px[element_of(opposite(x))] = std::uint8_t((S(r - 1, c) + S(r + 1, c)) / 2);
                continue;
            }
            const std::ptrdiff_t upper = m.upper_greens_from_memory_below ? o + row_bytes : o - row_bytes;
            const std::ptrdiff_t lower = m.upper_greens_from_memory_below ? o - row_bytes : o + row_bytes;
            const int gul = out[std::size_t(upper - 2)], gur = out[std::size_t(upper + 4)];
            const int glr = out[std::size_t(lower + 4)], gll = out[std::size_t(lower - 2)];
            const int g = px[1];
            const int d1 = 2 * g - gul - glr, d2 = 2 * g - gur - gll;
            const int a = S(r - 1, c - 1), b = S(r + 1, c + 1), e = S(r - 1, c + 1), f = S(r + 1, c - 1);
            const int D1 = std::abs(a - b) + std::abs(d1), D2 = std::abs(e - f) + std::abs(d2);
            int v;
            if (D1 < D2) v = div_toward_zero(a + b + d1, 2);
            else if (D2 < D1) v = div_toward_zero(e + f + d2, 2);
            else v = div_toward_zero(a + b + e + f + d1 + d2, 4);
            px[element_of(opposite(here))] = std::uint8_t(clamp(v));
        }
    }
    return out;
}

// Random frames, full range and a narrow range (ties between the directions are then
// common), every size from the smallest the contract allows and one larger, at three
// and four bytes per pixel (where the diagonal greens are whatever bytes lie at the
// three-byte offsets, the interim red in B among them).
TEST(Laplacian, EveryMemberMatchesTheModel) {
    std::vector<std::pair<int, int>> sizes = {{37, 29}};
    for (int H = 4; H <= 11; ++H)
        for (int W = 4; W <= 11; ++W) sizes.emplace_back(W, H);
    for (const auto& m : kCases) {
        for (unsigned range : {255u, 3u}) {
            for (int P : {3, 4}) {
                for (const auto& [W, H] : sizes) {
                    const std::vector<std::uint8_t> raw = random_frame<std::uint8_t>(W, H, 40 + range, range);
                    Arena<std::uint8_t> out(std::size_t(W * H * P), 0x42);
                    const std::vector<std::uint8_t> expected = model(m, raw, W, H, P, out.image());
                    std::vector<std::uint8_t> src = raw;
                    ASSERT_EQ(m.fn(src.data(), W, H, out.data(), std::uint16_t(P * 8)), 0);
                    ASSERT_EQ(out.image(), expected)
                        << m.name << " " << W << "x" << H << " P=" << P << " range " << range;
                }
            }
        }
    }
}

// A flat frame gives its value everywhere: every difference is 0 and every mean is k.
TEST(Laplacian, FlatFrameGivesItsValueEverywhere) {
    for (int i = 0; i < 8; ++i) {
        for (int k : {0, 77, 255}) {
            for (int W : {8, 9}) {
                const int H = W - 2;
                std::vector<std::uint8_t> raw(std::size_t(W * H), std::uint8_t(k));
                std::vector<std::uint8_t> out(std::size_t(W * H * 3), 1);
                kCases[i].fn(raw.data(), W, H, out.data(), 24);
                EXPECT_EQ(out, std::vector<std::uint8_t>(out.size(), std::uint8_t(k))) << kCases[i].name << " k=" << k;
            }
        }
    }
}

// Rows of one brightness above a horizontal edge and another below it: at the red and
// blue sites next to the edge the vertical gradient is the larger, so green is the
// mean of the left and right samples, the row's own brightness.
TEST(Laplacian, HorizontalEdgeTakesGreenAlongTheRow) {
    const int W = 10, H = 10, edge = 5;
    std::vector<std::uint8_t> raw(std::size_t(W * H));
    for (int r = 0; r < H; ++r)
        for (int c = 0; c < W; ++c) raw[std::size_t(r * W + c)] = r < edge ? 30 : 220;
    for (int i = 0; i < 8; ++i) {
        const auto& m = kCases[i];
        std::vector<std::uint8_t> out(std::size_t(W * H * 3));
        m.fn(raw.data(), W, H, out.data(), 24);
        int checked = 0;
        for (int r = edge - 2; r <= edge + 1; ++r) {
            for (int c = 2; c <= W - 3; ++c) {
                if (colour_at(m.pattern, r, c) == 'G') continue;
                const int out_row = m.flip ? H - 1 - r : r;
                EXPECT_EQ(out[std::size_t((out_row * W + c) * 3 + 1)], r < edge ? 30 : 220) << m.name << " " << r << "," << c;
                ++checked;
            }
        }
        EXPECT_EQ(checked, 12);
    }
}

// One red site at (2, 2) of a 5 x 5 RGGB frame, the only pixel computed, with chosen
// neighbours: a second difference of -5 contributes -5 / 4 = -1, and values past either
// end of the byte range are clamped.
TEST(Laplacian, GreenTruncatesTowardZeroAndClamps) {
    struct Neighbours {
        const char* what;
        int x, left, right, left2, right2, up, down, up2, down2;
        int green;
    };
    const Neighbours cases[] = {
        // dh = 200 - 205 = -5, H = 5 < V: 80 + (-1), not 80 - 2.
        {"-5/4 is -1", 100, 80, 80, 100, 105, 0, 50, 0, 0, 79},
        // H = 255 + 255 = V = 0 + 510: (255 + 510) / 8 + 765 / 4 = 95 + 191 = 286.
        {"above 255", 255, 255, 0, 255, 0, 255, 255, 0, 0, 255},
        // H = 255 + 255 = V = 0 + 510: -765 / 8 + 255 / 4 = -95 + 63 = -32.
        {"below 0", 0, 255, 0, 0, 255, 0, 0, 255, 255, 0},
    };
    for (const Neighbours& n : cases) {
        std::vector<std::uint8_t> raw(25, 128);
        auto S = [&](int r, int c) -> std::uint8_t& { return raw[std::size_t(r * 5 + c)]; };
        S(2, 2) = std::uint8_t(n.x);
        S(2, 1) = std::uint8_t(n.left);
        S(2, 3) = std::uint8_t(n.right);
        S(2, 0) = std::uint8_t(n.left2);
        S(2, 4) = std::uint8_t(n.right2);
        S(1, 2) = std::uint8_t(n.up);
        S(3, 2) = std::uint8_t(n.down);
        S(0, 2) = std::uint8_t(n.up2);
        S(4, 2) = std::uint8_t(n.down2);
        for (int i : {0, 4}) {  // RGGB and its bottom-up twin
            std::vector<std::uint8_t> out(75);
            kCases[i].fn(raw.data(), 5, 5, out.data(), 24);
            EXPECT_EQ(out[std::size_t((2 * 5 + 2) * 3 + 1)], n.green) << n.what << " " << kCases[i].name;
            EXPECT_EQ(out[std::size_t((2 * 5 + 2) * 3 + 2)], n.x) << n.what;
        }
    }
}

// Bottom-up members give the top-down image upside down, except the RGGB one, which
// pairs its diagonals the other way and so differs at red and blue sites of the interior
// (and does, on random frames).
TEST(Laplacian, FlipIsUpsideDownExceptTheCrossedRGGBMember) {
    for (int i = 0; i < 4; ++i) {
        const auto& plain = kCases[i];
        const auto& flip = kCases[i + 4];
        const bool crossed = plain.pattern == "RGGB";
        int differences = 0;
        for (int W : {6, 9, 16}) {
            for (int H : {5, 8, 13}) {
                std::vector<std::uint8_t> raw = random_frame<std::uint8_t>(W, H, 8);
                std::vector<std::uint8_t> a(std::size_t(W * H * 3)), b(a.size());
                plain.fn(raw.data(), W, H, a.data(), 24);
                flip.fn(raw.data(), W, H, b.data(), 24);
                const std::vector<std::uint8_t> turned = reversed_rows(b, std::size_t(W * 3));
                for (std::size_t k = 0; k < a.size(); ++k) {
                    if (a[k] == turned[k]) continue;
                    const int r = int(k / std::size_t(W * 3)), c = int(k % std::size_t(W * 3)) / 3;
                    const char here = colour_at(plain.pattern, r, c);
                    const bool allowed = crossed && here != 'G' && r >= 2 && r <= H - 3 && c >= 2 && c <= W - 3 &&
                                         int(k % 3) == element_of(opposite(here));
                    ASSERT_TRUE(allowed) << plain.name << " " << W << "x" << H << " at (" << r << "," << c << ")";
                    ++differences;
                }
            }
        }
        if (crossed) {
            EXPECT_GT(differences, 0);
        }
    }
}

// A 5 x 5 frame: Laplacian computes pixel (2, 2) alone; Laplacian2's green pass visits
// only (4, 4) and its red/blue pass only (2, 2), a red site whose green stays 255.
TEST(Laplacian, FiveByFiveComputesOnePixel) {
    const int W = 5, H = 5;
    const std::vector<std::uint8_t> raw = random_frame<std::uint8_t>(W, H, 23);
    for (const auto& m : kCases) {
        std::vector<std::uint8_t> src = raw;
        std::vector<std::uint8_t> border_only(75, 255), out(75, 0);
        m.border(src.data(), W, H, border_only.data(), 24);
        m.fn(src.data(), W, H, out.data(), 24);
        std::set<int> pixels;
        for (int k = 0; k < 75; ++k)
            if (out[std::size_t(k)] != border_only[std::size_t(k)]) pixels.insert(k / 3);
        const std::set<int> allowed = m.green_first == 4 ? std::set<int>{12, 24} : std::set<int>{12};
        for (int p : pixels) EXPECT_TRUE(allowed.count(p)) << m.name << " pixel " << p;
        if (m.green_first == 4) {
            EXPECT_EQ(out[12 * 3 + 1], 255);  // green of the red site (2, 2)
            EXPECT_EQ(out[12 * 3 + 2], 255);  // its own red is never copied
        }
    }
}

// Laplacian2 leaves green at 255 in raw rows 2 and 3 and columns 2 and 3 of the
// interior, and in its last two rows keeps the interim red in B at red sites.
TEST(Laplacian2, DisplacedGreenPass) {
    const int W = 12, H = 10;
    std::vector<std::uint8_t> raw = random_frame<std::uint8_t>(W, H, 29);
    std::vector<std::uint8_t> out(std::size_t(W * H * 3));
    QZRCFA_Laplacian2_RGGB(raw.data(), W, H, out.data(), 24);
    auto px = [&](int r, int c) { return &out[std::size_t((r * W + c) * 3)]; };
    for (int r = 2; r <= H - 3; ++r)
        for (int c = 2; c <= W - 3; ++c)
            if (r <= 3 || c <= 3) {
                EXPECT_EQ(px(r, c)[1], 255) << r << "," << c;
            }
    for (int r = H - 2; r < H; ++r)
        for (int c = 4; c < W; c += 2)
            if (r % 2 == 0) {
                EXPECT_EQ(px(r, c)[0], raw[std::size_t(r * W + c)]) << r << "," << c;
                EXPECT_EQ(px(r, c)[2], raw[std::size_t(r * W + c)]) << r << "," << c;
            }
}

// The frame ends at a page boundary followed by an inaccessible page: Laplacian2 must
// not read past it, and must give the result of samples past the end reading as 0.
TEST(Laplacian2, NeverReadsPastTheEndOfTheFrame) {
    const std::size_t page = std::size_t(sysconf(_SC_PAGESIZE));
    void* map = mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(map, MAP_FAILED);
    std::uint8_t* base = static_cast<std::uint8_t*>(map);
    ASSERT_EQ(mprotect(base + page, page, PROT_NONE), 0);
    struct Size {
        int W, H;
    };
    for (const Size s : {Size{5, 5}, Size{8, 6}, Size{9, 7}, Size{64, 48}}) {
        const std::vector<std::uint8_t> raw = random_frame<std::uint8_t>(s.W, s.H, 3);
        const std::size_t n = std::size_t(s.W * s.H);
        std::uint8_t* src = base + page - n;
        std::memcpy(src, raw.data(), n);
        for (int P : {3, 4}) {
            std::vector<std::uint8_t> out(n * std::size_t(P));
            QZRCFA_Laplacian2_RGGB(src, s.W, s.H, out.data(), std::uint16_t(P * 8));
            EXPECT_EQ(out, model(kLaplacian2, raw, s.W, s.H, P, std::vector<std::uint8_t>(out.size())))
                << s.W << "x" << s.H << " P=" << P;
        }
    }
    munmap(map, 2 * page);
}

TEST(Laplacian, WritesNothingOutsideTheImage) {
    for (const auto& m : kCases) {
        for (int P : {3, 4}) {
            for (int H = 4; H <= 8; ++H) {
                for (int W = 4; W <= 8; ++W) {
                    std::vector<std::uint8_t> raw = random_frame<std::uint8_t>(W, H, 13);
                    const std::size_t size = std::size_t(W * H * P);
                    const auto written = written_elements<std::uint8_t>(size, [&](std::uint8_t* dst) {
                        m.fn(raw.data(), W, H, dst, std::uint16_t(P * 8));
                    });
                    EXPECT_TRUE(outside(written, size).empty()) << m.name << " " << W << "x" << H << " P=" << P;
                    EXPECT_EQ(written.size(), size) << m.name;  // the white fill covers the image
                }
            }
        }
    }
}

}  // namespace
}  // namespace qzrcfa::test
