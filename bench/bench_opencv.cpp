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

const bool registered = [] {
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
