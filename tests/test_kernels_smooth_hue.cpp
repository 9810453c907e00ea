// Smooth hue's vector colour pass against the scalar one, byte for byte.
//
// The buffers are sized exactly (no slack), so that a build with AddressSanitizer
// reports any read or write of the vector kernel beyond the rows it was given.
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

#include "detail/cpu.h"
#include "detail/frame.h"
#include "detail/smooth_hue.h"
#include "qzrcfa.h"

namespace qzrcfa::detail {
namespace {

using Kernel = void (*)(const Row<std::uint8_t>&, const SmoothHueRule&);

const Pattern kPatterns[] = {Pattern::RGGB, Pattern::BGGR, Pattern::GRBG, Pattern::GBRG};

const SmoothHueRule kRules[] = {
    {Site::GreenOnBlue, Saturation::GreaterThan},
    {Site::Red, Saturation::GreaterThan},
    {Site::GreenOnBlue, Saturation::LessThan},
};

// Random bytes; with `small` set most are 0..3, so zero greens, infinities and NaN
// are common.
std::vector<std::uint8_t> random_bytes(std::size_t n, std::mt19937& rng, bool small) {
    std::uniform_int_distribution<int> any(0, 255), few(0, 3), pick(0, 3);
    std::vector<std::uint8_t> v(n);
    for (auto& b : v) b = std::uint8_t(small && pick(rng) != 0 ? few(rng) : any(rng));
    return v;
}

// One colour-pass row over raw row r (1 or 2) of a four-row frame, into a four-row
// output whose rows hold whatever pass 1 and the border would have left (random here).
std::vector<std::uint8_t> colour_row(Kernel kernel, const std::vector<std::uint8_t>& raw, std::vector<std::uint8_t> out,
                                     int W, int P, int r, bool flip, Pattern p, const SmoothHueRule& rule) {
    const int H = 4;
    Row<std::uint8_t> row;
    row.s = raw.data() + std::ptrdiff_t(r) * W;
    row.width = W;
    row.d = out.data() + row_offset(output_row(r, H, flip), W, P);
    row.up = (flip ? 1 : -1) * std::ptrdiff_t(W) * P;
    row.down = -row.up;
    row.stride = P;
    row.r = r;
    row.c_first = 1;
    row.c_last = W - 2;
    row.phase = row_phase(p, r);
    kernel(row, rule);
    return out;
}

TEST(SmoothHueKernels, VectorColourRowMatchesScalar) {
    if (!isa_available(Isa::SSE2)) GTEST_SKIP() << "no SSE2";
    std::mt19937 rng(20240607);
    for (int W = 3; W <= 70; ++W) {
        for (int P : {3, 4}) {
            for (bool small : {false, true}) {
                const std::vector<std::uint8_t> raw = random_bytes(std::size_t(W) * 4, rng, small);
                const std::vector<std::uint8_t> out = random_bytes(std::size_t(W) * 4 * P, rng, small);
                for (Pattern p : kPatterns) {
                    for (const SmoothHueRule& rule : kRules) {
                        for (int r : {1, 2}) {
                            for (bool flip : {false, true}) {
                                const auto expected = colour_row(smooth_hue_colour_row_scalar, raw, out, W, P, r, flip, p, rule);
                                const auto vector = colour_row(smooth_hue_colour_row_sse2, raw, out, W, P, r, flip, p, rule);
                                const auto chosen = colour_row(smooth_hue_colour_row, raw, out, W, P, r, flip, p, rule);
                                ASSERT_EQ(vector, expected) << "W=" << W << " P=" << P << " pattern " << int(p) << " r=" << r
                                                            << " flip=" << flip << " rule " << int(rule.green_on_blue_as)
                                                            << "/" << int(rule.saturation);
                                ASSERT_EQ(chosen, expected) << "W=" << W << " P=" << P;
                            }
                        }
                    }
                }
            }
        }
    }
}

// Whole frames: each export against the same member run with the scalar colour pass,
// on frames wide enough for many vector chunks, into exactly sized output buffers.
using Fn8 = int (*)(unsigned char*, int, int, unsigned char*, unsigned short);

struct Export {
    Fn8 fn;
    Member<std::uint8_t, SmoothHueRule> scalar;
};

constexpr Member<std::uint8_t, SmoothHueRule> scalar_member(Pattern p, bool flip, Prefill fill, ColourFn<std::uint8_t> border,
                                                            SmoothHueRule rule) {
    return {p, flip, fill, border, 3, rule, {{smooth_hue_green_row, 1, 0}, {smooth_hue_colour_row_scalar, 1, 0}}};
}

const Export kExports[] = {
    {QZRCFA_SmoothHue_RGGB, scalar_member(Pattern::RGGB, false, Prefill::None, QZRCFA_NearestNeighbor_Edge1_RGGB, kRules[0])},
    {QZRCFA_SmoothHue_BGGR, scalar_member(Pattern::BGGR, false, Prefill::None, QZRCFA_NearestNeighbor_Edge1_BGGR, kRules[1])},
    {QZRCFA_SmoothHue_GRBG, scalar_member(Pattern::GRBG, false, Prefill::None, QZRCFA_NearestNeighbor_Edge1_GRBG, kRules[0])},
    {QZRCFA_SmoothHue_GBRG, scalar_member(Pattern::GBRG, false, Prefill::None, QZRCFA_NearestNeighbor_Edge1_GBRG, kRules[0])},
    {QZRCFA_SmoothHue_RGGB_Flip, scalar_member(Pattern::RGGB, true, Prefill::None, QZRCFA_NearestNeighbor_Edge1_RGGB_Flip, kRules[0])},
    {QZRCFA_SmoothHue_BGGR_Flip, scalar_member(Pattern::BGGR, true, Prefill::ZeroRgb, QZRCFA_NearestNeighbor_Edge1_BGGR_Flip, kRules[2])},
    {QZRCFA_SmoothHue_GRBG_Flip, scalar_member(Pattern::GRBG, true, Prefill::None, QZRCFA_NearestNeighbor_Edge1_GRBG_Flip, kRules[0])},
    {QZRCFA_SmoothHue_GBRG_Flip, scalar_member(Pattern::GBRG, true, Prefill::None, QZRCFA_NearestNeighbor_Edge1_GBRG_Flip, kRules[0])},
};

TEST(SmoothHueKernels, ExportsMatchTheScalarPassOnWideFrames) {
    std::mt19937 rng(77);
    for (const Export& e : kExports) {
        for (auto [W, H] : {std::pair{17, 3}, std::pair{33, 6}, std::pair{64, 5}, std::pair{41, 9}}) {
            for (int P : {3, 4}) {
                // Two rows more than the frame: the BGGR border fill reads past its end on
                // odd widths.
                std::vector<std::uint8_t> raw = random_bytes(std::size_t(W * (H + 2)), rng, false);
                const std::vector<std::uint8_t> start = random_bytes(std::size_t(W * H * P), rng, false);
                std::vector<std::uint8_t> got = start, expected = start;
                e.fn(raw.data(), W, H, got.data(), std::uint16_t(P * 8));
                demosaic(e.scalar, raw.data(), W, H, expected.data(), std::uint16_t(P * 8));
                ASSERT_EQ(got, expected) << W << "x" << H << " P=" << P;
            }
        }
    }
}

}  // namespace
}  // namespace qzrcfa::detail
