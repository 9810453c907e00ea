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

}  // namespace
}  // namespace qzrcfa::detail
