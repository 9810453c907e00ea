// Checks that every 8-bit colour member answers the same way, whatever its method:
// where it writes, how its bottom-up twin relates to it, and what element 3 of a
// 4-byte pixel holds afterwards. A family test runs them over its member table and
// judges the answers by its own rules.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "support/arena.h"

namespace qzrcfa::test {

using Colour8 = int (*)(unsigned char*, int, int, unsigned char*, unsigned short);

// The first frame (width and height 2 .. max_size, 3- and 4-byte pixels) for which
// `fn` writes outside its image, described; empty when there is none.
inline std::string first_write_outside(Colour8 fn, int max_size, std::uint32_t seed = 8) {
    for (int P : {3, 4}) {
        for (int H = 2; H <= max_size; ++H) {
            for (int W = 2; W <= max_size; ++W) {
                std::vector<std::uint8_t> raw = random_frame<std::uint8_t>(W, H, seed);
                const std::size_t size = std::size_t(W * H * P);
                const auto written = written_elements<std::uint8_t>(
                    size, [&](std::uint8_t* dst) { fn(raw.data(), W, H, dst, std::uint16_t(P * 8)); });
                const auto out = outside(written, size);
                if (!out.empty())
                    return std::to_string(W) + "x" + std::to_string(H) + " P=" + std::to_string(P) + " writes offset " +
                           std::to_string(out.front());
            }
        }
    }
    return {};
}

// An element where the bottom-up member's image, turned upside down, differs from the
// top-down member's.
struct FlipDifference {
    int width, height;
    int r, c, element;  // in the top-down image
};

// Every such element over random frames of width and height 3 .. max_size, 24-bit.
inline std::vector<FlipDifference> flip_differences(Colour8 plain, Colour8 flip, int max_size, std::uint32_t seed = 12) {
    std::vector<FlipDifference> out;
    for (int H = 3; H <= max_size; ++H) {
        for (int W = 3; W <= max_size; ++W) {
            std::vector<std::uint8_t> raw = random_frame<std::uint8_t>(W, H, seed);
            std::vector<std::uint8_t> a(std::size_t(W * H * 3), 0), b(a.size(), 0);
            plain(raw.data(), W, H, a.data(), 24);
            flip(raw.data(), W, H, b.data(), 24);
            const std::vector<std::uint8_t> turned = reversed_rows(b, std::size_t(W) * 3);
            for (std::size_t k = 0; k < a.size(); ++k) {
                if (a[k] == turned[k]) continue;
                const int pixel = int(k / 3);
                out.push_back({W, H, pixel / W, pixel % W, int(k % 3)});
            }
        }
    }
    return out;
}

// Pixels of a width x height 32-bit image whose element 3 is not `expected` after `fn`
// ran on a buffer of 0xAB bytes. The last pixel of each middle row is left out: the
// one-pixel border fill puts its red there.
inline std::vector<int> element_three_not(Colour8 fn, int width, int height, std::uint8_t expected, std::uint32_t seed = 4) {
    std::vector<std::uint8_t> raw = random_frame<std::uint8_t>(width, height, seed);
    std::vector<std::uint8_t> out(std::size_t(width * height * 4), 0xAB);
    fn(raw.data(), width, height, out.data(), 32);
    std::vector<int> wrong;
    for (int p = 0; p < width * height; ++p) {
        const bool last_of_middle_row = p % width == width - 1 && p / width > 0 && p / width < height - 1;
        if (!last_of_middle_row && out[std::size_t(p * 4 + 3)] != expected) wrong.push_back(p);
    }
    return wrong;
}

// Element offset of pixel (r, c) of raw row r in a width x height image of P-element
// pixels, top-down or bottom-up.
inline std::size_t pixel_at(int W, int H, bool flip, int r, int c, int P) {
    return std::size_t(((flip ? H - 1 - r : r) * W + c) * P);
}

// Frame sizes for model tests: every width and height from 2 to 10, and rows wide
// enough for the vector kernels with every remainder a 32- and a 16-column step can
// leave.
inline std::vector<std::pair<int, int>> model_sizes() {
    std::vector<std::pair<int, int>> sizes;
    for (int H = 2; H <= 10; ++H)
        for (int W = 2; W <= 10; ++W) sizes.emplace_back(W, H);
    for (int W = 33; W <= 70; ++W) sizes.emplace_back(W, 4);
    return sizes;
}

// The bitCounts from 25 to 31 whose output differs from bitCount 24's (only
// bitCount >> 3 is meant to matter, so none should), for a width x height frame.
template <class T>
std::vector<unsigned short> bitcounts_unlike_24(int (*fn)(T*, int, int, T*, unsigned short), int width, int height,
                                                std::uint32_t seed) {
    std::vector<T> raw = random_frame<T>(width, height, seed);
    Arena<T> reference(std::size_t(width * height * 3), T(0x1234));
    fn(raw.data(), width, height, reference.data(), 24);
    std::vector<unsigned short> unlike;
    for (unsigned short bits = 25; bits <= 31; ++bits) {
        Arena<T> out(std::size_t(width * height * 3), T(0x1234));
        fn(raw.data(), width, height, out.data(), bits);
        if (!out.differences(reference).empty()) unlike.push_back(bits);
    }
    return unlike;
}

}  // namespace qzrcfa::test
