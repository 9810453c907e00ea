// Smooth hue's vector kernels against the scalar ones, byte for byte, for both passes.
//
// The buffers are sized exactly (no slack), so that a build with AddressSanitizer
// reports any read or write of a vector kernel beyond the rows it was given.
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

struct KernelCase {
    const char* name;
    Isa needs;
    Kernel kernel;
};

// Every wide kernel, and the run-time choice, each against its pass's reference.
const KernelCase kGreenKernels[] = {
    {"green sse2", Isa::SSE2, smooth_hue_green_row_sse2},
    {"green avx2", Isa::AVX2, smooth_hue_green_row_avx2},
    {"green chosen", Isa::Scalar, smooth_hue_green_row},
};
const KernelCase kColourKernels[] = {
    {"colour sse2", Isa::SSE2, smooth_hue_colour_row_sse2},
    {"colour avx2", Isa::AVX2, smooth_hue_colour_row_avx2},
    {"colour chosen", Isa::Scalar, smooth_hue_colour_row},
};

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

struct Frame {
    int W, P, r;
    bool flip;
    Pattern pattern;
};

// One row of either pass over raw row r (1 or 2) of a four-row frame, into a four-row
// output whose rows hold whatever pass 1 and the border would have left (random here).
std::vector<std::uint8_t> run_row(Kernel kernel, const std::vector<std::uint8_t>& raw, std::vector<std::uint8_t> out,
                                  const Frame& f, const SmoothHueRule& rule) {
    const int H = 4;
    Row<std::uint8_t> row;
    row.s = raw.data() + std::ptrdiff_t(f.r) * f.W;
    row.width = f.W;
    row.d = out.data() + row_offset(output_row(f.r, H, f.flip), f.W, f.P);
    row.up = (f.flip ? 1 : -1) * std::ptrdiff_t(f.W) * f.P;
    row.down = -row.up;
    row.stride = f.P;
    row.r = f.r;
    row.c_first = 1;
    row.c_last = f.W - 2;
    row.phase = row_phase(f.pattern, f.r);
    row.height = H;
    kernel(row, rule);
    return out;
}

// Widths 3..100 cover every remainder after the blocks of 8, 16 and 32 pixels; the
// larger ones run many blocks per row.
std::vector<int> widths() {
    std::vector<int> w;
    for (int W = 3; W <= 100; ++W) w.push_back(W);
    for (int W : {255, 256, 257, 1001}) w.push_back(W);
    return w;
}

void expect_rows_match(Kernel reference, const KernelCase (&kernels)[3], std::uint32_t seed) {
    std::mt19937 rng(seed);
    for (int W : widths()) {
        for (int P : {3, 4}) {
            for (bool small : {false, true}) {
                const std::vector<std::uint8_t> raw = random_bytes(std::size_t(W) * 4, rng, small);
                const std::vector<std::uint8_t> out = random_bytes(std::size_t(W) * 4 * P, rng, small);
                for (Pattern p : kPatterns) {
                    for (const SmoothHueRule& rule : kRules) {
                        for (int r : {1, 2}) {
                            for (bool flip : {false, true}) {
                                const Frame f{W, P, r, flip, p};
                                const auto expected = run_row(reference, raw, out, f, rule);
                                for (const KernelCase& k : kernels) {
                                    if (!isa_available(k.needs)) continue;
                                    ASSERT_EQ(run_row(k.kernel, raw, out, f, rule), expected)
                                        << k.name << " W=" << W << " P=" << P << " pattern " << int(p) << " r=" << r
                                        << " flip=" << flip << " rule " << int(rule.green_on_blue_as) << "/"
                                        << int(rule.saturation) << " small=" << small;
                                }
                            }
                        }
                    }
                }
            }
        }
    }
}

TEST(SmoothHueKernels, GreenRowsMatchScalar) {
    expect_rows_match(smooth_hue_green_row_scalar, kGreenKernels, 20240606);
}

TEST(SmoothHueKernels, ColourRowsMatchScalar) {
    expect_rows_match(smooth_hue_colour_row_scalar, kColourKernels, 20240607);
}

// A border fill that leaves the buffer as it is.
int no_border(std::uint8_t*, int, int, std::uint8_t*, unsigned short) { return 0; }

std::vector<std::uint8_t> run_frame(Kernel green, Kernel colour, const std::vector<std::uint8_t>& raw,
                                    std::vector<std::uint8_t> out, int W, int H, int P, Pattern p, bool flip,
                                    const SmoothHueRule& rule) {
    const Member<std::uint8_t, SmoothHueRule> m{p, flip, Prefill::None, no_border, 3, rule, {{green, 1, 0}, {colour, 1, 0}}};
    demosaic(m, const_cast<std::uint8_t*>(raw.data()), W, H, out.data(), std::uint16_t(8 * P));
    return out;
}

// Both passes over whole frames, row after row as the frame driver runs them, so each
// colour row reads greens that the wide green kernel wrote and red elements that the
// colour kernel wrote in the row before.
TEST(SmoothHueKernels, WholeFramesMatchScalar) {
    std::mt19937 rng(20240608);
    for (Isa isa : {Isa::SSE2, Isa::AVX2}) {
        if (!isa_available(isa)) continue;
        const Kernel green = isa == Isa::AVX2 ? smooth_hue_green_row_avx2 : smooth_hue_green_row_sse2;
        const Kernel colour = isa == Isa::AVX2 ? smooth_hue_colour_row_avx2 : smooth_hue_colour_row_sse2;
        for (int W : {35, 66, 131}) {
            for (int H : {3, 7}) {
                for (int P : {3, 4}) {
                    const std::vector<std::uint8_t> raw = random_bytes(std::size_t(W) * H, rng, true);
                    const std::vector<std::uint8_t> start = random_bytes(std::size_t(W) * H * P, rng, true);
                    for (Pattern p : kPatterns) {
                        for (const SmoothHueRule& rule : kRules) {
                            for (bool flip : {false, true}) {
                                const auto expected = run_frame(smooth_hue_green_row_scalar, smooth_hue_colour_row_scalar,
                                                                raw, start, W, H, P, p, flip, rule);
                                ASSERT_EQ(run_frame(green, colour, raw, start, W, H, P, p, flip, rule), expected)
                                    << "isa " << int(isa) << " " << W << "x" << H << " P=" << P << " pattern " << int(p)
                                    << " flip=" << flip;
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
