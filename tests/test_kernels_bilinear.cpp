// Bilinear row kernels: every wide kernel on rows of many lengths, every pattern and
// row parity, pixel strides 3 and 4, and pointers at several alignments. The three raw
// rows are allocated to their exact size, so a read past them shows under
// AddressSanitizer.
#include <gtest/gtest.h>

#include "detail/bilinear_rows.h"
#include "support/row_kernels.h"

namespace qzrcfa::test {
namespace {

using KernelFn = int (*)(const Row<std::uint8_t>&, int);
using Kernel = WideKernel<KernelFn>;

const Kernel kKernels[] = {
    {"SSE2", Isa::SSE2, 16, detail::bilinear_columns_sse2},
    {"AVX2", Isa::AVX2, 32, detail::bilinear_columns_avx2},
};

// Raw rows r - 1 .. r + 1, exactly, then one output row: `kernel` first (if any), then
// the scalar kernel from the column it returned, which is returned.
auto row_of(int width, int stride, int shift, Pattern pattern, int r) {
    return [=](const Kernel* kernel, std::uint8_t* out) {
        const auto raw = random_bytes(std::size_t(3 * width + shift), std::uint32_t(width * 7 + r));
        const Row<std::uint8_t> row = interior_row(raw.data() + shift + width, width, out, stride, pattern, r);
        const int c = kernel ? kernel->fn(row, row.c_first) : row.c_first;
        detail::bilinear_columns_scalar(row, c);
        return c;
    };
}

TEST(BilinearKernels, EveryIsaMatchesTheScalarKernelByteForByte) {
    for_each_available(kKernels, [](const Kernel& kernel) {
        for (int width : kernel_widths())
            for (Pattern pattern : kPatterns)
                for (int r : {1, 2})
                    for (int stride : {3, 4})
                        for (int shift : {0, 1, 3}) {
                            const int handed_on =
                                expect_scalar_bytes(kernel, width, stride, shift, row_of(width, stride, shift, pattern, r));
                            ASSERT_FALSE(testing::Test::HasFailure()) << "pattern " << int(pattern) << " r " << r;
                            // The wide kernel leaves the scalar kernel less than one step.
                            ASSERT_GE(handed_on, 1);
                            ASSERT_LT(width - 1 - handed_on, kernel.lanes) << kernel.name << " width " << width;
                        }
    });
}

// Pixel strides other than 3 and 4 are left whole to the scalar kernel.
TEST(BilinearKernels, OtherStridesAreLeftToTheScalarKernel) {
    for_each_available(kKernels, [](const Kernel& kernel) {
        for (int stride : {0, 1, 2, 5, 6})
            EXPECT_EQ(expect_scalar_bytes(kernel, 100, stride, 0, row_of(100, stride, 0, Pattern::RGGB, 1)), 1);
    });
}

}  // namespace
}  // namespace qzrcfa::test
