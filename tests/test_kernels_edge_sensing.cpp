// Edge-sensing row kernels: every wide kernel the processor offers, finished by the
// scalar kernel from the column it returns, must leave exactly the bytes the scalar
// kernel alone leaves, for every member rule, on rows of many lengths, every pattern
// and row parity, pixel strides 3 and 4, full-range samples and samples 0..3 (where
// the gradient comparisons tie often), and pointers at several alignments.
//
// The three raw rows are allocated to exactly the samples the scalar kernel reads:
// the samples diagonal to a green site at either end of the row are left out. A wide
// kernel that reads past them shows under AddressSanitizer.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <random>
#include <vector>

#include "detail/bayer.h"
#include "detail/cpu.h"
#include "detail/edge_sensing_rows.h"
#include "detail/frame.h"

namespace qzrcfa::detail {
namespace {

struct Kernel {
    const char* name;
    Isa isa;
    int lanes;  // columns per step
    int (*fn)(const Row<std::uint8_t>&, const EdgeSensingRule&, int);
};

const Kernel kKernels[] = {
    {"SSE2", Isa::SSE2, 16, edge_sensing_columns_sse2},
    {"AVX2", Isa::AVX2, 32, edge_sensing_columns_avx2},
};

// Every combination, the two no member uses included.
const EdgeSensingRule kRules[] = {{true, false}, {false, false}, {false, true}, {true, true}};

std::vector<std::uint8_t> random_bytes(std::size_t n, std::uint32_t seed, unsigned max = 255) {
    std::mt19937 rng(seed);
    std::vector<std::uint8_t> v(n);
    for (auto& b : v) b = std::uint8_t(rng() % (max + 1));
    return v;
}

std::vector<int> widths() {
    std::vector<int> w;
    for (int i = 3; i <= 100; ++i) w.push_back(i);
    for (int i : {129, 130, 1000, 4001}) w.push_back(i);
    return w;
}

struct Case {
    int width, stride, shift;
    Pattern pattern;
    int r;
    EdgeSensingRule rule;
    unsigned max;  // largest sample
};

// The three raw rows around row r, trimmed to what the scalar kernel reads for
// columns 1 .. width - 2, after `shift` bytes of slack.
class RawRows {
  public:
    explicit RawRows(const Case& k) {
        const RowPhase phase = row_phase(k.pattern, k.r);
        const int w = k.width;
        const int first = phase.green_at(1) ? 1 : 0;                    // in the row above
        const int last = 2 * w + (phase.green_at(w - 2) ? w - 2 : w - 1);  // in the row below
        bytes_ = random_bytes(std::size_t(k.shift + last - first + 1), std::uint32_t(w * 131 + k.r * 7 + int(k.pattern)), k.max);
        row_start_ = k.shift + w - first;
    }
    const std::uint8_t* row() const { return bytes_.data() + row_start_; }

  private:
    std::vector<std::uint8_t> bytes_;
    std::ptrdiff_t row_start_;
};

// Computes one output row: `kernel` first (if any), then the scalar kernel from the
// column it returned. Returns that column.
int compute(const Case& k, const RawRows& raw, const Kernel* kernel, std::vector<std::uint8_t>& out) {
    Row<std::uint8_t> row{};
    row.s = raw.row();
    row.width = k.width;
    row.d = out.data() + k.shift;
    row.stride = k.stride;
    row.r = k.r;
    row.c_first = 1;
    row.c_last = k.width - 2;
    row.phase = row_phase(k.pattern, k.r);
    const int c = kernel ? kernel->fn(row, k.rule, row.c_first) : row.c_first;
    edge_sensing_columns_scalar(row, k.rule, c);
    return c;
}

TEST(EdgeSensingKernels, EveryIsaMatchesTheScalarKernelByteForByte) {
    for (const Kernel& kernel : kKernels) {
        if (!isa_available(kernel.isa)) {
            std::printf("%s not available here: not tested\n", kernel.name);
            continue;
        }
        for (int width : widths()) {
            for (Pattern pattern : {Pattern::RGGB, Pattern::BGGR, Pattern::GRBG, Pattern::GBRG}) {
                for (int r : {1, 2}) {
                    for (const EdgeSensingRule& rule : kRules) {
                        for (unsigned max : {255u, 3u}) {
                            for (int stride : {3, 4}) {
                                for (int shift : {0, 1, 3}) {
                                    const Case k{width, stride, shift, pattern, r, rule, max};
                                    const RawRows raw(k);
                                    const auto background = random_bytes(std::size_t(width * stride + shift), std::uint32_t(width));
                                    std::vector<std::uint8_t> expected(background), actual(background);
                                    compute(k, raw, nullptr, expected);
                                    const int handed_on = compute(k, raw, &kernel, actual);
                                    ASSERT_EQ(actual, expected)
                                        << kernel.name << " width " << width << " pattern " << int(pattern) << " r " << r
                                        << " rule " << rule.directional_diagonal << rule.exchanged_green_sites << " max "
                                        << max << " stride " << stride << " shift " << shift;
                                    // The wide kernel leaves the scalar kernel less than one step,
                                    // and besides it a green site at either end of the row.
                                    const RowPhase phase = row_phase(pattern, r);
                                    const int ends = int(phase.green_at(1)) + int(phase.green_at(width - 2));
                                    ASSERT_GE(handed_on, 1);
                                    ASSERT_LT(width - 1 - handed_on, kernel.lanes + ends) << kernel.name << " width " << width;
                                }
                            }
                        }
                    }
                }
            }
        }
    }
}

// Pixel strides other than 3 and 4 are left whole to the scalar kernel.
TEST(EdgeSensingKernels, OtherStridesAreLeftToTheScalarKernel) {
    for (const Kernel& kernel : kKernels) {
        if (!isa_available(kernel.isa)) continue;
        for (int stride : {0, 1, 2, 5, 6}) {
            const Case k{100, stride, 0, Pattern::RGGB, 1, {true, false}, 255};
            const RawRows raw(k);
            const auto background = random_bytes(std::size_t(100 * std::max(stride, 1) + 8), 3);
            std::vector<std::uint8_t> expected(background), actual(background);
            compute(k, raw, nullptr, expected);
            EXPECT_EQ(compute(k, raw, &kernel, actual), 1) << kernel.name << " stride " << stride;
            EXPECT_EQ(actual, expected) << kernel.name << " stride " << stride;
        }
    }
}

}  // namespace
}  // namespace qzrcfa::detail
