// Every export of the library, timed on the tiled photograph mosaic.
#include <cstdint>
#include <type_traits>
#include <vector>

#include "bench_common.h"
#include "qzrcfa.h"

namespace qzrcfa::bench {
namespace {

template <class T, class Fn>
void time_export(Fn fn, const Size& s, int bits, benchmark::State& state) {
    std::vector<T> raw;
    if constexpr (sizeof(T) == 1) raw = mosaic8(s.width, s.height);
    else raw = mosaic16(s.width, s.height);
    const int elements = bits == 0 ? 1 : bits / 8;
    // Two elements of slack: the bottom-up 16-bit grey members write past the image.
    std::vector<T> out(std::size_t(s.width) * std::size_t(s.height) * std::size_t(elements) + 2);
    for (auto _ : state) {
        if constexpr (std::is_invocable_v<Fn, T*, int, int, T*, unsigned short>) {
            fn(raw.data(), s.width, s.height, out.data(), static_cast<unsigned short>(bits));
        } else {
            fn(raw.data(), s.width, s.height, out.data());
        }
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
}

template <class T, class Fn>
void add_export(const char* name, Fn fn, bool colour) {
    add(name, colour, [fn](const Size& s, int bits, benchmark::State& state) { time_export<T>(fn, s, bits, state); });
}

#define X(name) {#name, QZRCFA_##name}
template <class Fn>
struct Entry {
    const char* name;
    Fn fn;
};
using Colour8 = int (*)(unsigned char*, int, int, unsigned char*, unsigned short);
using Colour16 = int (*)(unsigned short*, int, int, unsigned short*, unsigned short);
using Grey8 = int (*)(unsigned char*, int, int, unsigned char*);
using Grey16 = int (*)(unsigned short*, int, int, unsigned short*);

const Entry<Colour8> kColour8[] = {
    X(NearestNeighbor_Edge1_RGGB), X(NearestNeighbor_Edge1_BGGR), X(NearestNeighbor_Edge1_GRBG),
    X(NearestNeighbor_Edge1_GBRG), X(NearestNeighbor_Edge1_RGGB_Flip), X(NearestNeighbor_Edge1_BGGR_Flip),
    X(NearestNeighbor_Edge1_GRBG_Flip), X(NearestNeighbor_Edge1_GBRG_Flip), X(NearestNeighbor_Edge2_RGGB),
    X(NearestNeighbor_Edge2_BGGR), X(NearestNeighbor_Edge2_GRBG), X(NearestNeighbor_Edge2_GBRG),
    X(NearestNeighbor_Edge2_RGGB_Flip), X(NearestNeighbor_Edge2_BGGR_Flip), X(NearestNeighbor_Edge2_GRBG_Flip),
    X(NearestNeighbor_Edge2_GBRG_Flip), X(NearestNeighbor_RGGB), X(NearestNeighbor_BGGR), X(NearestNeighbor_GRBG),
    X(NearestNeighbor_GBRG), X(NearestNeighbor_RGGB_Flip), X(NearestNeighbor_BGGR_Flip),
    X(NearestNeighbor_GRBG_Flip), X(NearestNeighbor_GBRG_Flip), X(Bilinear_RGGB), X(Bilinear_BGGR), X(Bilinear_GRBG),
    X(Bilinear_GBRG), X(Bilinear_RGGB_Flip), X(Bilinear_BGGR_Flip), X(Bilinear_GRBG_Flip), X(Bilinear_GBRG_Flip),
    X(FastBilinear_RGGB), X(FastBilinear_BGGR), X(FastBilinear_GRBG), X(FastBilinear_GBRG),
    X(FastBilinear_RGGB_Flip), X(FastBilinear_BGGR_Flip), X(FastBilinear_GRBG_Flip), X(FastBilinear_GBRG_Flip),
    X(EdgeSensing2_RGGB), X(EdgeSensing2_RGGB_Flip), X(EdgeSensing1_RGGB), X(EdgeSensing1_BGGR),
    X(EdgeSensing1_GRBG), X(EdgeSensing1_GBRG), X(EdgeSensing1_RGGB_Flip), X(EdgeSensing1_BGGR_Flip),
    X(EdgeSensing1_GRBG_Flip), X(EdgeSensing1_GBRG_Flip), X(Laplacian_RGGB), X(Laplacian_BGGR), X(Laplacian_GRBG),
    X(Laplacian_GBRG), X(Laplacian_RGGB_Flip), X(Laplacian_BGGR_Flip), X(Laplacian_GRBG_Flip),
    X(Laplacian_GBRG_Flip), X(SmoothHue_RGGB), X(SmoothHue_BGGR), X(SmoothHue_GRBG), X(SmoothHue_GBRG),
    X(SmoothHue_RGGB_Flip), X(SmoothHue_BGGR_Flip), X(SmoothHue_GRBG_Flip), X(SmoothHue_GBRG_Flip),
    X(Laplacian2_RGGB)
};
const Entry<Colour16> kColour16[] = {
    X(NearestNeighbor_Edge1_RGGB_16Bits), X(NearestNeighbor_Edge1_BGGR_16Bits), X(NearestNeighbor_Edge1_GRBG_16Bits),
    X(NearestNeighbor_Edge1_GBRG_16Bits), X(NearestNeighbor_Edge1_RGGB_Flip_16Bits),
    X(NearestNeighbor_Edge1_BGGR_Flip_16Bits), X(NearestNeighbor_Edge1_GRBG_Flip_16Bits),
    X(NearestNeighbor_Edge1_GBRG_Flip_16Bits), X(NearestNeighbor_RGGB_16Bits), X(NearestNeighbor_BGGR_16Bits),
    X(NearestNeighbor_GRBG_16Bits), X(NearestNeighbor_GBRG_16Bits), X(NearestNeighbor_RGGB_Flip_16Bits),
    X(NearestNeighbor_BGGR_Flip_16Bits), X(NearestNeighbor_GRBG_Flip_16Bits), X(NearestNeighbor_GBRG_Flip_16Bits)
};
const Entry<Grey8> kGrey8[] = {
    X(NearestNeighbor_RGGB_Gray), X(NearestNeighbor_BGGR_Gray), X(NearestNeighbor_GRBG_Gray),
    X(NearestNeighbor_GBRG_Gray), X(NearestNeighbor_RGGB_Gray_Flip), X(NearestNeighbor_BGGR_Gray_Flip),
    X(NearestNeighbor_GRBG_Gray_Flip), X(NearestNeighbor_GBRG_Gray_Flip)
};
const Entry<Grey16> kGrey16[] = {
    X(NearestNeighbor_RGGB_Gray_16Bits), X(NearestNeighbor_BGGR_Gray_16Bits), X(NearestNeighbor_GRBG_Gray_16Bits),
    X(NearestNeighbor_GBRG_Gray_16Bits), X(NearestNeighbor_RGGB_Gray_Flip_16Bits),
    X(NearestNeighbor_BGGR_Gray_Flip_16Bits), X(NearestNeighbor_GRBG_Gray_Flip_16Bits),
    X(NearestNeighbor_GBRG_Gray_Flip_16Bits)
};
#undef X

const bool registered = [] {
    for (const auto& e : kColour8) add_export<std::uint8_t>(e.name, e.fn, true);
    for (const auto& e : kColour16) add_export<std::uint16_t>(e.name, e.fn, true);
    for (const auto& e : kGrey8) add_export<std::uint8_t>(e.name, e.fn, false);
    for (const auto& e : kGrey16) add_export<std::uint16_t>(e.name, e.fn, false);
    return true;
}();

}  // namespace
}  // namespace qzrcfa::bench
