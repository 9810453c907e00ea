// Grey row kernels: the vector kernels give the scalar kernel's elements, byte for
// byte, for every row length and alignment, and write nothing past the row.
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

#include "detail/cpu.h"
#include "detail/grey.h"

namespace qzrcfa::detail {
namespace {

template <class T>
using RowKernel = void (*)(const T*, const T*, T*, int);

template <class T>
struct Kernel {
    const char* name;
    Isa isa;
    RowKernel<T> fn;
};

template <class T>
std::vector<Kernel<T>> vector_kernels() {
    return {{"sse2", Isa::SSE2, grey_average_row_sse2}, {"avx2", Isa::AVX2, grey_average_row_avx2}};
}

template <class T>
void expect_same_as_scalar() {
    std::mt19937 rng(91);
    const unsigned top = T(~T(0));
    // Random samples, and rows of extremes where a wrong widening or packing shows.
    auto fill = [&](std::vector<T>& v, int kind) {
        std::uniform_int_distribution<unsigned> any(0, top);
        for (T& x : v) x = kind == 0 ? T(any(rng)) : kind == 1 ? T(top) : T(any(rng) & 1 ? top : top - 1);
    };
    const int kPad = 8;
    for (const Kernel<T>& k : vector_kernels<T>()) {
        if (!isa_available(k.isa)) {
            GTEST_LOG_(INFO) << k.name << " not available on this processor";
            continue;
        }
        for (int kind = 0; kind < 3; ++kind) {
            for (int offset = 0; offset < 3; ++offset) {
                for (int count = -1; count <= 150; ++count) {
                    const std::size_t n = std::size_t(count + 1 + offset + kPad);
                    std::vector<T> upper(n), lower(n);
                    fill(upper, kind);
                    fill(lower, kind);
                    std::vector<T> want(n + kPad, T(0x5A)), got(want);
                    grey_average_row_scalar(upper.data() + offset, lower.data() + offset, want.data() + offset, count);
                    k.fn(upper.data() + offset, lower.data() + offset, got.data() + offset, count);
                    ASSERT_EQ(got, want) << k.name << " count " << count << " offset " << offset << " kind " << kind;
                }
            }
        }
    }
}

TEST(GreyKernels, VectorKernelsMatchScalar8) { expect_same_as_scalar<std::uint8_t>(); }
TEST(GreyKernels, VectorKernelsMatchScalar16) { expect_same_as_scalar<std::uint16_t>(); }

// The scalar reference itself, on values that name their sum.
TEST(GreyKernels, ScalarIsTheTruncatedMeanOfFour) {
    const std::vector<std::uint16_t> upper = {65535, 65535, 1, 1, 3};
    const std::vector<std::uint16_t> lower = {65535, 65535, 1, 0, 3};
    std::vector<std::uint16_t> out(4, 7);
    grey_average_row_scalar(upper.data(), lower.data(), out.data(), 4);
    EXPECT_EQ(out, (std::vector<std::uint16_t>{65535, 32768, 0, 1}));
}

}  // namespace
}  // namespace qzrcfa::detail
