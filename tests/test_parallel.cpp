// Every member on several threads, and on padded rows, gives the bytes of one call of
// its export.
//
// Frames are large enough that the extended library splits them (it keeps small frames
// on the calling thread), with heights and thread counts chosen so that the edges of
// the bands fall on every row phase. CTest runs this program twice: as it is, and with
// the interposing shim preloaded, where the members' border fills and some exports are
// the shim's and the library must still give the same bytes.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "qzrcfa.hpp"

namespace {

using qzrcfa::Format;
using qzrcfa::Method;
using qzrcfa::Options;
using qzrcfa::Pattern;
using qzrcfa::RowOrder;

// With padding, the rows get `pad` elements after them (the raw frame's and the
// output's), which must keep what they held; the result is returned without them. The
// output's elements start as a pattern of their place in the image, which members with
// four-byte pixels keep or read.
template <class T>
std::vector<T> run(const std::vector<T>& raw, int w, int h, Options o, int threads, int pad = 0) {
    o.threads = threads;
    const std::size_t n = qzrcfa::output_elements(w, h, o, sizeof(T) * 8), row = n / std::size_t(h), tail = n % std::size_t(h);
    const std::size_t in_pitch = std::size_t(w + pad), out_pitch = row + std::size_t(pad);
    std::vector<T> in(in_pitch * std::size_t(h)), out(out_pitch * std::size_t(h) + tail, T(0x5A5A));
    for (int y = 0; y < h; ++y) std::copy_n(&raw[std::size_t(y) * w], w, &in[y * in_pitch]);
    for (std::size_t i = 0; i < n; ++i) out[i / row * out_pitch + i % row] = T(i * 2654435761u >> 11);
    const qzrcfa::Result r =
        qzrcfa::demosaic(qzrcfa::RawFrame(in.data(), in.size(), w, h, std::ptrdiff_t(in_pitch * sizeof(T))),
                         qzrcfa::OutputImage(out.data(), out.size(), std::ptrdiff_t(out_pitch * sizeof(T))), o);
    EXPECT_TRUE(r.ok()) << r.message();
    std::vector<T> compact(n);
    for (int y = 0; y < h; ++y) {
        std::copy_n(&out[y * out_pitch], row, &compact[y * row]);
        for (std::size_t i = row; i < out_pitch && y + 1 < h; ++i) EXPECT_EQ(out[y * out_pitch + i], T(0x5A5A)) << "padding written";
    }
    std::copy_n(&out[(std::size_t(h) - 1) * out_pitch + row], tail, &compact[std::size_t(h) * row]);
    return compact;
}

template <class T>
void expect_same_bytes(const std::vector<Method>& methods, const std::vector<Format>& formats, int width,
                       std::vector<int> heights = {1024, 1027}) {
    std::mt19937 rng(5);
    for (int height : heights)
        for (Method method : methods)
            for (Format format : formats)
                for (Pattern pattern : {Pattern::RGGB, Pattern::BGGR, Pattern::GRBG, Pattern::GBRG})
                    for (RowOrder order : {RowOrder::TopDown, RowOrder::BottomUp}) {
                        const Options o{method, pattern, order, format};
                        if (qzrcfa::minimum_size(o, sizeof(T) * 8).width == 0) continue;
                        std::vector<T> raw(std::size_t(width) * std::size_t(height));
                        for (T& v : raw) v = T(rng());
                        const auto one = run(raw, width, height, o, 1);
                        for (int threads : {2, 3, 0, -1, -3}) {  // negative: |threads| on padded rows
                            const int pad = threads < 0 ? 1 + int(rng() % 32) : 0;
                            ASSERT_EQ(run(raw, width, height, o, std::abs(threads), pad), one)
                                << qzrcfa::to_string(method) << " " << qzrcfa::to_string(pattern) << " "
                                << qzrcfa::to_string(order) << " " << qzrcfa::to_string(format) << " " << width << "x"
                                << height << " on " << threads << " threads, rows padded by " << pad;
                        }
                    }
}

TEST(Parallel, EveryColourMemberGivesTheBytesOfOneCall) {
    expect_same_bytes<std::uint8_t>({Method::NearestNeighbor, Method::Bilinear, Method::EdgeSensing1, Method::EdgeSensing2,
                                     Method::Laplacian, Method::Laplacian2, Method::SmoothHue, Method::Gbri},
                                    {Format::Bgr24, Format::Bgra32}, 601);
    // Four-byte pixels of the two-pass methods on rows wide enough for bands of columns.
    expect_same_bytes<std::uint8_t>({Method::Laplacian, Method::Laplacian2, Method::SmoothHue}, {Format::Bgra32}, 2113, {131, 134});
}

TEST(Parallel, SixteenBitAndGreyMembersGiveTheBytesOfOneCall) {
    expect_same_bytes<std::uint16_t>({Method::NearestNeighbor, Method::Gbri}, {Format::Bgr24, Format::Bgra32, Format::Grey}, 600);
    expect_same_bytes<std::uint8_t>({Method::NearestNeighbor}, {Format::Grey}, 601);
}

}  // namespace
