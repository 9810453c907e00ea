// Nearest-neighbour row kernels (8-bit): every wide kernel, for every form, on rows of
// many lengths, every pattern and row parity, pixel strides 3 and 4 and pointers at
// several alignments. The two raw rows are allocated to their exact size, so a read
// past them shows under AddressSanitizer.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "detail/nearest_rows.h"
#include "support/row_kernels.h"

namespace qzrcfa::test {
namespace {

using detail::NearestForm;
using KernelFn = int (*)(const Row<std::uint8_t>&, const NearestForm&, int);
using Kernel = WideKernel<KernelFn>;

const Kernel kKernels[] = {
    {"SSE2", Isa::SSE2, 16, detail::nearest_columns_sse2},
    {"AVX2", Isa::AVX2, 32, detail::nearest_columns_avx2},
};

const NearestForm kForms[] = {{+1, true}, {+1, false}, {-1, false}};

// Raw rows r and r + 1, exactly, then one output row: `kernel` first (if any), then the
// scalar kernel from the column it returned, which is returned.
auto row_of(int width, int stride, int shift, Pattern pattern, int r, const NearestForm& form) {
    return [=](const Kernel* kernel, std::uint8_t* out) {
        const auto raw = random_bytes(std::size_t(2 * width + shift), std::uint32_t(width * 7 + r));
        const Row<std::uint8_t> row = interior_row(raw.data() + shift, width, out, stride, pattern, r);
        const int c = kernel ? kernel->fn(row, form, row.c_first) : row.c_first;
        detail::nearest_columns_scalar(row, form, c);
        return c;
    };
}

TEST(NearestKernels, EveryIsaMatchesTheScalarKernelByteForByte) {
    for_each_available(kKernels, [](const Kernel& kernel) {
        for (const NearestForm& form : kForms)
            for (int width : kernel_widths())
                for (Pattern pattern : kPatterns)
                    for (int r : {1, 2})
                        for (int stride : {3, 4})
                            for (int shift : {0, 1, 3}) {
                                const int handed_on =
                                    expect_scalar_bytes(kernel, width, stride, shift, row_of(width, stride, shift, pattern, r, form));
                                ASSERT_FALSE(testing::Test::HasFailure())
                                    << "form dc=" << form.dc << " average=" << form.average_green << " pattern "
                                    << int(pattern) << " r " << r;
                                ASSERT_LT(width - 1 - handed_on, kernel.lanes) << kernel.name << " width " << width;
                            }
    });
}

// Pixel strides other than 3 and 4 are left whole to the scalar kernel.
TEST(NearestKernels, OtherStridesAreLeftToTheScalarKernel) {
    for_each_available(kKernels, [](const Kernel& kernel) {
        for (int stride : {1, 2, 5, 6})
            EXPECT_EQ(expect_scalar_bytes(kernel, 100, stride, 0, row_of(100, stride, 0, Pattern::RGGB, 1, kForms[0])), 1);
    });
}

// 16-bit samples: the SSE2 kernel, finished by the scalar kernel, against the scalar
// kernel alone, on exactly sized raw rows (16-bit members all use the left-hand form;
// the others are checked too).
TEST(NearestKernels, SixteenBitSse2MatchesTheScalarKernel) {
    if (!detail::isa_available(Isa::SSE2)) GTEST_SKIP() << "no SSE2 here";
    std::mt19937 rng(5);
    for (const NearestForm& form : kForms)
        for (int width : kernel_widths())
            for (Pattern pattern : kPatterns)
                for (int r : {1, 2})
                    for (int stride : {3, 4}) {
                        std::vector<std::uint16_t> raw(std::size_t(2 * width)), expected(std::size_t(width * stride));
                        for (auto& v : raw) v = std::uint16_t(rng());
                        for (auto& v : expected) v = std::uint16_t(rng());
                        std::vector<std::uint16_t> actual(expected);
                        auto run = [&](bool wide, std::vector<std::uint16_t>& out) {
                            Row<std::uint16_t> row{};
                            row.s = raw.data();
                            row.width = width;
                            row.d = out.data();
                            row.stride = stride;
                            row.r = r;
                            row.c_first = 1;
                            row.c_last = width - 2;
                            row.phase = detail::row_phase(pattern, r);
                            const int c = wide ? detail::nearest_columns_sse2(row, form, 1) : 1;
                            detail::nearest_columns_scalar(row, form, c);
                            return c;
                        };
                        run(false, expected);
                        const int handed_on = run(true, actual);
                        ASSERT_EQ(actual, expected) << "width " << width << " pattern " << int(pattern) << " r " << r
                                                    << " stride " << stride << " form dc=" << form.dc;
                        ASSERT_LT(width - 1 - handed_on, 8) << "width " << width;
                    }
}

}  // namespace
}  // namespace qzrcfa::test
