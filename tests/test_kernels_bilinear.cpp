// Bilinear row kernels: every wide kernel the processor offers, finished by the scalar
// kernel from the column it returns, must leave exactly the bytes the scalar kernel
// alone leaves, on rows of many lengths, every pattern and row parity, pixel strides 3
// and 4, and pointers at every alignment. Raw rows and output rows are allocated to
// their exact size, so a read or write past them shows under AddressSanitizer.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <random>
#include <vector>

#include "detail/bayer.h"
#include "detail/bilinear_rows.h"
#include "detail/cpu.h"
#include "detail/frame.h"

namespace qzrcfa::detail {
namespace {

struct Kernel {
    const char* name;
    Isa isa;
    int lanes;  // columns per step
    int (*fn)(const Row<std::uint8_t>&, int);
};

const Kernel kKernels[] = {
    {"SSE2", Isa::SSE2, 16, bilinear_columns_sse2},
    {"AVX2", Isa::AVX2, 32, bilinear_columns_avx2},
};

std::vector<std::uint8_t> random_bytes(std::size_t n, std::uint32_t seed) {
    std::mt19937 rng(seed);
    std::vector<std::uint8_t> v(n);
    for (auto& b : v) b = std::uint8_t(rng());
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
};

// Computes one output row: `kernel` first (if any), then the scalar kernel from the
// column it returned. Returns that column.
int compute(const Case& k, const Kernel* kernel, std::vector<std::uint8_t>& out) {
    // Exactly three raw rows after `shift` bytes.
    const std::vector<std::uint8_t> raw = random_bytes(std::size_t(3 * k.width + k.shift), std::uint32_t(k.width * 7 + k.r));
    Row<std::uint8_t> row{};
    row.s = raw.data() + k.shift + k.width;
    row.width = k.width;
    row.d = out.data() + k.shift;
    row.stride = k.stride;
    row.r = k.r;
    row.c_first = 1;
    row.c_last = k.width - 2;
    row.phase = row_phase(k.pattern, k.r);
    const int c = kernel ? kernel->fn(row, row.c_first) : row.c_first;
    bilinear_columns_scalar(row, c);
    return c;
}

TEST(BilinearKernels, EveryIsaMatchesTheScalarKernelByteForByte) {
    for (const Kernel& kernel : kKernels) {
        if (!isa_available(kernel.isa)) {
            std::printf("%s not available here: not tested\n", kernel.name);
            continue;
        }
        for (int width : widths()) {
            for (Pattern pattern : {Pattern::RGGB, Pattern::BGGR, Pattern::GRBG, Pattern::GBRG}) {
                for (int r : {1, 2}) {
                    for (int stride : {3, 4}) {
                        for (int shift : {0, 1, 3}) {
                            const Case k{width, stride, shift, pattern, r};
                            const auto background = random_bytes(std::size_t(width * stride + shift), std::uint32_t(width));
                            std::vector<std::uint8_t> expected(background), actual(background);
                            compute(k, nullptr, expected);
                            const int handed_on = compute(k, &kernel, actual);
                            ASSERT_EQ(actual, expected) << kernel.name << " width " << width << " pattern " << int(pattern)
                                                        << " r " << r << " stride " << stride << " shift " << shift;
                            // The wide kernel leaves the scalar kernel less than one step.
                            ASSERT_GE(handed_on, 1);
                            ASSERT_LT(width - 1 - handed_on, kernel.lanes) << kernel.name << " width " << width;
                        }
                    }
                }
            }
        }
    }
}

// Pixel strides other than 3 and 4 are left whole to the scalar kernel.
TEST(BilinearKernels, OtherStridesAreLeftToTheScalarKernel) {
    for (const Kernel& kernel : kKernels) {
        if (!isa_available(kernel.isa)) continue;
        for (int stride : {0, 1, 2, 5, 6}) {
            const Case k{100, stride, 0, Pattern::RGGB, 1};
            const auto background = random_bytes(std::size_t(100 * std::max(stride, 1) + 8), 3);
            std::vector<std::uint8_t> expected(background), actual(background);
            compute(k, nullptr, expected);
            EXPECT_EQ(compute(k, &kernel, actual), 1) << kernel.name << " stride " << stride;
            EXPECT_EQ(actual, expected) << kernel.name << " stride " << stride;
        }
    }
}

}  // namespace
}  // namespace qzrcfa::detail
