// Shared scaffolding for the row-kernel tests: every wide kernel the processor offers,
// finished by the scalar kernel from the column it returns, must leave exactly the
// bytes the scalar kernel alone leaves.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <random>
#include <vector>

#include "detail/bayer.h"
#include "detail/cpu.h"
#include "detail/frame.h"

namespace qzrcfa::test {

using detail::Isa;
using detail::Pattern;
using detail::Row;

template <class Fn>
struct WideKernel {
    const char* name;
    Isa isa;
    int lanes;  // columns per step
    Fn fn;
};

inline constexpr Pattern kPatterns[] = {Pattern::RGGB, Pattern::BGGR, Pattern::GRBG, Pattern::GBRG};

inline std::vector<std::uint8_t> random_bytes(std::size_t n, std::uint32_t seed, unsigned max = 255) {
    std::mt19937 rng(seed);
    std::vector<std::uint8_t> v(n);
    for (auto& b : v) b = std::uint8_t(rng() % (max + 1));
    return v;
}

// Every width up to 100 (every remainder a 16- or 32-column step can leave), and a few
// large ones.
inline std::vector<int> kernel_widths() {
    std::vector<int> w;
    for (int i = 3; i <= 100; ++i) w.push_back(i);
    for (int i : {129, 130, 1000, 4001}) w.push_back(i);
    return w;
}

// The interior columns 1 .. width - 2 of output row `out` for raw row `s` (row r).
inline Row<std::uint8_t> interior_row(const std::uint8_t* s, int width, std::uint8_t* out, int stride, Pattern pattern, int r) {
    Row<std::uint8_t> row{};
    row.s = s;
    row.width = width;
    row.d = out;
    row.stride = stride;
    row.r = r;
    row.c_first = 1;
    row.c_last = width - 2;
    row.phase = detail::row_phase(pattern, r);
    return row;
}

// Runs `each` for every kernel the processor has; says which it cannot test here.
template <class Fn, std::size_t N, class Each>
void for_each_available(const WideKernel<Fn> (&kernels)[N], Each each) {
    for (const auto& kernel : kernels) {
        if (!detail::isa_available(kernel.isa)) {
            std::printf("%s not available here: not tested\n", kernel.name);
            continue;
        }
        each(kernel);
    }
}

// One output row of `width` pixels of `stride` bytes after `shift` bytes, over random
// background bytes, computed by `compute(nullptr-or-kernel, out)` once with the scalar
// kernel alone and once with `kernel` first. The two must agree byte for byte; returns
// the column the wide kernel handed on.
template <class Kernel, class Compute>
int expect_scalar_bytes(const Kernel& kernel, int width, int stride, int shift, Compute compute) {
    const auto background = random_bytes(std::size_t(width * (stride > 0 ? stride : 1) + shift + 8), std::uint32_t(width));
    std::vector<std::uint8_t> expected(background), actual(background);
    compute(static_cast<const Kernel*>(nullptr), expected.data() + shift);
    const int handed_on = compute(&kernel, actual.data() + shift);
    EXPECT_EQ(actual, expected) << kernel.name << " width " << width << " stride " << stride << " shift " << shift;
    return handed_on;
}

}  // namespace qzrcfa::test
