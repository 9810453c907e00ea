// OpenCV's Bayer conversions on the same frames, one thread, built when the build finds
// OpenCV: the bilinear conversion to BGR and BGRA (8- and 16-bit), the edge-aware and
// VNG conversions, and the grey conversion. The library's BGGR-named OpenCV codes take
// a frame whose top-left tile is RGGB.
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <vector>

#include "bench_common.h"

namespace qzrcfa::bench {
namespace {

template <class T>
void convert(int code, int channels, const Size& s, benchmark::State& state) {
    cv::setNumThreads(1);
    std::vector<T> raw;
    if constexpr (sizeof(T) == 1) raw = mosaic8(s.width, s.height);
    else raw = mosaic16(s.width, s.height);
    const int depth = sizeof(T) == 1 ? CV_8U : CV_16U;
    const cv::Mat in(s.height, s.width, CV_MAKETYPE(depth, 1), raw.data());
    cv::Mat out(s.height, s.width, CV_MAKETYPE(depth, channels));
    for (auto _ : state) {
        cv::cvtColor(in, out, code);
        benchmark::DoNotOptimize(out.data);
        benchmark::ClobberMemory();
    }
}

// The route a camera program takes with OpenCV from a CSI-2 RAW12 frame to an 8-bit
// white-balanced picture: unpack with a plain loop, subtract the black level,
// cv::cvtColor's 16-bit bilinear conversion, then scale by the gains and convert to 8
// bits in one cv::multiply.
void raw12_route(const Size& s, int bits, benchmark::State& state) {
    cv::setNumThreads(1);
    const std::vector<std::uint8_t>& packed = mosaic_raw12(s.width, s.height);
    const std::size_t row = std::size_t(s.width + 1) / 2 * 3;
    cv::Mat raw(s.height, s.width, CV_16UC1), colour(s.height, s.width, CV_16UC(bits / 8)),
        out(s.height, s.width, CV_8UC(bits / 8));
    const double to8 = 255.0 / double(4095 - kRawBlack);
    const cv::Scalar gains(kRawGains[2] * to8, kRawGains[1] * to8, kRawGains[0] * to8, 255.0 / 4095);
    for (auto _ : state) {
        for (int y = 0; y < s.height; ++y) {
            const std::uint8_t* in = packed.data() + std::size_t(y) * row;
            auto* o = raw.ptr<std::uint16_t>(y);
            for (int x = 0; x + 1 < s.width; x += 2, in += 3) {
                o[x] = std::uint16_t(in[0] << 4 | (in[2] & 15));
                o[x + 1] = std::uint16_t(in[1] << 4 | in[2] >> 4);
            }
        }
        cv::subtract(raw, cv::Scalar(kRawBlack), raw);
        cv::cvtColor(raw, colour, bits == 24 ? cv::COLOR_BayerBG2BGR : cv::COLOR_BayerBG2BGRA);
        cv::multiply(colour, gains, out, 1.0, out.type());
        benchmark::DoNotOptimize(out.data);
        benchmark::ClobberMemory();
    }
}

const bool registered = [] {
    add("opencv_raw12_route", true, raw12_route);
    add("opencv_bilinear", true, [](const Size& s, int bits, benchmark::State& st) {
        convert<std::uint8_t>(bits == 24 ? cv::COLOR_BayerBG2BGR : cv::COLOR_BayerBG2BGRA, bits / 8, s, st);
    });
    add("opencv_bilinear16", true, [](const Size& s, int bits, benchmark::State& st) {
        convert<std::uint16_t>(bits == 24 ? cv::COLOR_BayerBG2BGR : cv::COLOR_BayerBG2BGRA, bits / 8, s, st);
    });
    add("opencv_edge_aware", true, [](const Size& s, int bits, benchmark::State& st) {
        if (bits != 24) return st.SkipWithError("BGR only");
        convert<std::uint8_t>(cv::COLOR_BayerBG2BGR_EA, 3, s, st);
    });
    add("opencv_vng", true, [](const Size& s, int bits, benchmark::State& st) {
        if (bits != 24) return st.SkipWithError("BGR only");
        convert<std::uint8_t>(cv::COLOR_BayerBG2BGR_VNG, 3, s, st);
    });
    add("opencv_grey", false, [](const Size& s, int, benchmark::State& st) { convert<std::uint8_t>(cv::COLOR_BayerBG2GRAY, 1, s, st); });
    return true;
}();

}  // namespace
}  // namespace qzrcfa::bench
