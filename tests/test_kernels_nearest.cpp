// Nearest-neighbour row kernels (8-bit): every wide kernel the processor offers,
// finished by the scalar kernel from the column it returns, must leave exactly the
// bytes the scalar kernel alone leaves, for every form, on rows of many lengths, every
// pattern and row parity, pixel strides 3 and 4 and pointers at several alignments.
// The two raw rows and the output row are allocated to their exact size, so a read or
// write past them shows under AddressSanitizer.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <random>
#include <vector>

#include "detail/bayer.h"
#include "detail/cpu.h"
#include "detail/frame.h"
#include "detail/nearest_rows.h"

namespace qzrcfa::detail {
namespace {

struct Kernel {
    const char* name;
    Isa isa;
    int lanes;  // columns per step
    int (*fn)(const Row<std::uint8_t>&, const NearestForm&, int);
};

const Kernel kKernels[] = {
    {"SSE2", Isa::SSE2, 16, nearest_columns_sse2},
    {"AVX2", Isa::AVX2, 32, nearest_columns_avx2},
};

const NearestForm kForms[] = {{+1, true}, {+1, false}, {-1, false}};

std::vector<std::uint8_t> random_bytes(std::size_t n, std::uint32_t seed) {
    std::mt19937 rng(seed);
    std::vector<std::uint8_t> v(n);
    for (auto& b : v) b = std::uint8_t(rng());
    return v;
}

// One output row from raw rows r and r + 1: `kernel` first (if any), then the scalar
// kernel from the column it returned, which is returned.
int compute(int width, int stride, int shift, Pattern pattern, int r, const NearestForm& form, const Kernel* kernel,
            std::vector<std::uint8_t>& out) {
    const std::vector<std::uint8_t> raw = random_bytes(std::size_t(2 * width + shift), std::uint32_t(width * 7 + r));
    Row<std::uint8_t> row{};
    row.s = raw.data() + shift;
    row.width = width;
    row.d = out.data() + shift;
    row.stride = stride;
    row.r = r;
    row.c_first = 1;
    row.c_last = width - 2;
    row.phase = row_phase(pattern, r);
    const int c = kernel ? kernel->fn(row, form, row.c_first) : row.c_first;
    nearest_columns_scalar(row, form, c);
    return c;
}

TEST(NearestKernels, EveryIsaMatchesTheScalarKernelByteForByte) {
    std::vector<int> widths;
    for (int w = 3; w <= 100; ++w) widths.push_back(w);
    for (int w : {129, 1000, 4001}) widths.push_back(w);
    for (const Kernel& kernel : kKernels) {
        if (!isa_available(kernel.isa)) {
            std::printf("%s not available here: not tested\n", kernel.name);
            continue;
        }
        for (const NearestForm& form : kForms) {
            for (int width : widths) {
                for (Pattern pattern : {Pattern::RGGB, Pattern::BGGR, Pattern::GRBG, Pattern::GBRG}) {
                    for (int r : {1, 2}) {
                        for (int stride : {3, 4}) {
                            for (int shift : {0, 1, 3}) {
                                const auto background = random_bytes(std::size_t(width * stride + shift), std::uint32_t(width));
                                std::vector<std::uint8_t> expected(background), actual(background);
                                compute(width, stride, shift, pattern, r, form, nullptr, expected);
                                const int handed_on = compute(width, stride, shift, pattern, r, form, &kernel, actual);
                                ASSERT_EQ(actual, expected)
                                    << kernel.name << " form dc=" << form.dc << " average=" << form.average_green << " width "
                                    << width << " pattern " << int(pattern) << " r " << r << " stride " << stride;
                                ASSERT_LT(width - 1 - handed_on, kernel.lanes) << kernel.name << " width " << width;
                            }
                        }
                    }
                }
            }
        }
    }
}

// Pixel strides other than 3 and 4 are left whole to the scalar kernel.
TEST(NearestKernels, OtherStridesAreLeftToTheScalarKernel) {
    for (const Kernel& kernel : kKernels) {
        if (!isa_available(kernel.isa)) continue;
        for (int stride : {1, 2, 5, 6}) {
            const auto background = random_bytes(std::size_t(100 * stride + 8), 3);
            std::vector<std::uint8_t> expected(background), actual(background);
            compute(100, stride, 0, Pattern::RGGB, 1, kForms[0], nullptr, expected);
            EXPECT_EQ(compute(100, stride, 0, Pattern::RGGB, 1, kForms[0], &kernel, actual), 1) << kernel.name;
            EXPECT_EQ(actual, expected) << kernel.name << " stride " << stride;
        }
    }
}

}  // namespace
}  // namespace qzrcfa::detail
