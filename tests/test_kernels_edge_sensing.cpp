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

#include "detail/edge_sensing_rows.h"
#include "support/row_kernels.h"

namespace qzrcfa::test {
namespace {

using detail::EdgeSensingRule;
using detail::RowPhase;
using KernelFn = int (*)(const Row<std::uint8_t>&, const EdgeSensingRule&, int);
using Kernel = WideKernel<KernelFn>;

const Kernel kKernels[] = {
    {"SSE2", Isa::SSE2, 16, detail::edge_sensing_columns_sse2},
    {"AVX2", Isa::AVX2, 32, detail::edge_sensing_columns_avx2},
};

// Every combination, the two no member uses included.
const EdgeSensingRule kRules[] = {{true, false}, {false, false}, {false, true}, {true, true}};

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

// One output row: `kernel` first (if any), then the scalar kernel from the column it
// returned, which is returned.
auto row_of(const Case& k) {
    return [k](const Kernel* kernel, std::uint8_t* out) {
        const RawRows raw(k);
        const Row<std::uint8_t> row = interior_row(raw.row(), k.width, out, k.stride, k.pattern, k.r);
        const int c = kernel ? kernel->fn(row, k.rule, row.c_first) : row.c_first;
        detail::edge_sensing_columns_scalar(row, k.rule, c);
        return c;
    };
}

TEST(EdgeSensingKernels, EveryIsaMatchesTheScalarKernelByteForByte) {
    for_each_available(kKernels, [](const Kernel& kernel) {
        for (int width : kernel_widths())
            for (Pattern pattern : kPatterns)
                for (int r : {1, 2})
                    for (const EdgeSensingRule& rule : kRules)
                        for (unsigned max : {255u, 3u})
                            for (int stride : {3, 4})
                                for (int shift : {0, 1, 3}) {
                                    const Case k{width, stride, shift, pattern, r, rule, max};
                                    const int handed_on = expect_scalar_bytes(kernel, width, stride, shift, row_of(k));
                                    ASSERT_FALSE(testing::Test::HasFailure())
                                        << "pattern " << int(pattern) << " r " << r << " rule " << rule.directional_diagonal
                                        << rule.exchanged_green_sites << " max " << max;
                                    // The wide kernel leaves the scalar kernel less than one step,
                                    // and besides it a green site at either end of the row.
                                    const RowPhase phase = detail::row_phase(pattern, r);
                                    const int ends = int(phase.green_at(1)) + int(phase.green_at(width - 2));
                                    ASSERT_GE(handed_on, 1);
                                    ASSERT_LT(width - 1 - handed_on, kernel.lanes + ends) << kernel.name << " width " << width;
                                }
    });
}

// Pixel strides other than 3 and 4 are left whole to the scalar kernel.
TEST(EdgeSensingKernels, OtherStridesAreLeftToTheScalarKernel) {
    for_each_available(kKernels, [](const Kernel& kernel) {
        for (int stride : {0, 1, 2, 5, 6})
            EXPECT_EQ(expect_scalar_bytes(kernel, 100, stride, 0, row_of({100, stride, 0, Pattern::RGGB, 1, {true, false}, 255})), 1);
    });
}

}  // namespace
}  // namespace qzrcfa::test
