// gbri, the extended library's method: what any sound demosaic must do on plain scenes.
// (Its kernels against its reference and its bands against one call are the kernel and
// parallel tests'; its quality floor the quality tool's test.)
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "qzrcfa.hpp"

namespace {

using qzrcfa::Format;
using qzrcfa::Options;
using qzrcfa::Pattern;
using qzrcfa::RowOrder;

constexpr Pattern kPatterns[] = {Pattern::RGGB, Pattern::BGGR, Pattern::GRBG, Pattern::GBRG};

template <class T>
std::vector<T> gbri(const std::vector<T>& raw, int w, int h, Pattern p, RowOrder order, Format format) {
    const Options o{qzrcfa::Method::Gbri, p, order, format};
    std::vector<T> out(qzrcfa::output_elements(w, h, o, 8 * sizeof(T)), T(1));
    EXPECT_TRUE(qzrcfa::demosaic(qzrcfa::RawFrame(raw.data(), raw.size(), w, h), qzrcfa::OutputImage(out.data(), out.size()), o));
    return out;
}

// A flat frame comes out flat, border included, and element 3 is the largest value.
template <class T>
void expect_flat(T value) {
    for (Pattern p : kPatterns)
        for (RowOrder order : {RowOrder::TopDown, RowOrder::BottomUp})
            for (Format format : {Format::Bgr24, Format::Bgra32})
                for (auto [w, h] : {std::pair{2, 2}, std::pair{7, 5}, std::pair{97, 66}}) {
                    const std::vector<T> out = gbri(std::vector<T>(std::size_t(w * h), value), w, h, p, order, format);
                    const std::size_t n = format == Format::Bgra32 ? 4 : 3;
                    for (std::size_t i = 0; i < out.size(); ++i)
                        ASSERT_EQ(out[i], i % n == 3 ? T(~T(0)) : value) << w << "x" << h << " element " << i;
                }
}

TEST(Gbri, FlatFieldsStayFlat) {
    expect_flat<std::uint8_t>(0);
    expect_flat<std::uint8_t>(137);
    expect_flat<std::uint8_t>(255);
    expect_flat<std::uint16_t>(40000);
    expect_flat<std::uint16_t>(65535);
}

// A grey scene with a sharp step from 40 to 200 (of 255) along a vertical, a horizontal
// or a 45-degree line: away from the 4-pixel border, colour channels stay within
// kAxial of each other along the first two, and along the 45-degree staircase, which
// every demosaic aliases, within kOblique at worst and kObliqueMean on average. The
// library's bilinear, edge-sensing and Laplacian methods put 80 there in all three.
TEST(Gbri, SharpEdgesShowNoColourFringes) {
    constexpr int kAxial = 2, kOblique = 40;
    constexpr double kObliqueMean = 3.0;
    const int w = 64, h = 48;
    for (int edge = 0; edge < 3; ++edge)
        for (Pattern p : kPatterns) {
            std::vector<std::uint8_t> raw(std::size_t(w * h));
            for (int y = 0; y < h; ++y)
                for (int x = 0; x < w; ++x) {
                    const int side = edge == 0 ? x - 31 : edge == 1 ? y - 23 : x - y - 8;
                    raw[std::size_t(y * w + x)] = side > 0 ? 200 : 40;
                }
            const std::vector<std::uint8_t> out = gbri(raw, w, h, p, RowOrder::TopDown, Format::Bgr24);
            int worst = 0;
            double sum = 0;
            for (int y = 4; y < h - 4; ++y)
                for (int x = 4; x < w - 4; ++x) {
                    const std::size_t i = std::size_t(y * w + x) * 3;
                    const int fringe = std::max(std::abs(out[i] - out[i + 1]), std::abs(out[i + 2] - out[i + 1]));
                    worst = std::max(worst, fringe);
                    sum += fringe;
                }
            EXPECT_LE(worst, edge < 2 ? kAxial : kOblique) << "edge " << edge << " pattern " << int(p);
            EXPECT_LE(sum / ((w - 8) * (h - 8)), edge < 2 ? kAxial : kObliqueMean) << "edge " << edge << " pattern " << int(p);
        }
}

}  // namespace
