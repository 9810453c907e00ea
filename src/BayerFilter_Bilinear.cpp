// Bilinear, 8-bit colour.
//
// Every interior pixel keeps its own sample and takes each missing colour as the mean
// of the two or four nearest samples of that colour. All eight members share one
// kernel; they differ in pattern, row order and pre-fill: only the four top-down
// members fill the output with 255 before the border fill runs.
//
// The row kernel runs as wide as the processor allows: AVX2 takes 32 columns at a
// time, SSE2 16, and the scalar kernel, which is the reference, finishes the row.
#include <cstdint>

#include "detail/bayer.h"
#include "detail/bilinear_rows.h"
#include "detail/byte_vectors.h"
#include "detail/cpu.h"
#include "detail/frame.h"
#include "qzrcfa.h"

namespace qzrcfa::detail {

// Reference row kernel, columns c .. c_last. At a red or blue site: own colour = C,
// green = mean of the four side neighbours, opposite colour = mean of the four
// diagonals. At a green site: the row's colour = mean of left and right, the other
// colour = mean of above and below.
int bilinear_columns_scalar(const Row<std::uint8_t>& row, int c) {
    const std::ptrdiff_t w = row.width;
    const int colour = row.phase.colour;
    const int other = row.phase.other();
    for (; c <= row.c_last; ++c) {
        const std::uint8_t* s = row.s + c;
        const std::uint8_t* up = s - w;
        const std::uint8_t* dn = s + w;
        std::uint8_t* px = row.d + std::ptrdiff_t(c) * row.stride;
        if (row.phase.green_at(c)) {
            px[colour] = std::uint8_t((s[1] + s[-1]) >> 1);
            px[kGreen] = s[0];
            px[other] = std::uint8_t((up[0] + dn[0]) >> 1);
        } else {
            px[colour] = s[0];
            px[kGreen] = std::uint8_t((s[1] + s[-1] + up[0] + dn[0]) >> 2);
            px[other] = std::uint8_t((up[1] + up[-1] + dn[1] + dn[-1]) >> 2);
        }
    }
    return c;
}

#if defined(__x86_64__) && defined(__SSE2__)

// Wide kernels: the arithmetic on byte vectors, inlined into each instruction set's
// kernel, with the pixel stores of detail/byte_vectors.h.
namespace {

// Columns c .. c + sizeof(V) - 1 of a row, by the same rule as the scalar kernel:
// every lane computes both sites' means and keeps its own site's.
template <class V>
QZRCFA_INLINE Planes<V> bilinear_block(const Row<std::uint8_t>& row, int c, const V& green) {
    const std::ptrdiff_t w = row.width;
    const std::uint8_t* s = row.s + c;
    const V left = load<V>(s - 1), mid = load<V>(s), right = load<V>(s + 1);
    const V up = load<V>(s - w), dn = load<V>(s + w);
    const V diagonal = mean4(load<V>(s - w - 1), load<V>(s - w + 1), load<V>(s + w - 1), load<V>(s + w + 1));
    const V colour = select(green, mean2(left, right), mid);
    const V other = select(green, mean2(up, dn), diagonal);
    const V g = select(green, mid, mean4(left, right, up, dn));
    return planes(row, colour, g, other);
}

template <int P>
int columns_sse2(const Row<std::uint8_t>& row, int c) {
    const Bytes16 green = green_lanes<Bytes16>(row, c);
    for (; c + 15 <= row.c_last; c += 16) store_pixels_sse2<P>(row.d + std::ptrdiff_t(c) * P, bilinear_block(row, c, green));
    return c;
}

template <int P>
QZRCFA_AVX2 int columns_avx2(const Row<std::uint8_t>& row, int c) {
    const Bytes32 green = green_lanes<Bytes32>(row, c);
    for (; c + 31 <= row.c_last; c += 32) store_pixels_avx2<P>(row.d + std::ptrdiff_t(c) * P, bilinear_block(row, c, green));
    return c;
}

}  // namespace

int bilinear_columns_sse2(const Row<std::uint8_t>& row, int c) {
    return for_stride(row.stride, c, [&]<int P>() { return columns_sse2<P>(row, c); });
}

// Compiled for the baseline, so that it may be called on any processor.
int bilinear_columns_avx2(const Row<std::uint8_t>& row, int c) {
    if (!isa_available(Isa::AVX2)) return c;
    return for_stride(row.stride, c, [&]<int P>() { return columns_avx2<P>(row, c); });
}

#else

int bilinear_columns_sse2(const Row<std::uint8_t>&, int c) { return c; }
int bilinear_columns_avx2(const Row<std::uint8_t>&, int c) { return c; }

#endif

namespace {

struct BilinearParams {};  // one kernel for every member: nothing to choose

void bilinear_row(const Row<std::uint8_t>& row, const BilinearParams&) {
    int c = row.c_first;
    switch (best_isa()) {
    case Isa::AVX2: c = bilinear_columns_avx2(row, c); [[fallthrough]];
    case Isa::SSE2: c = bilinear_columns_sse2(row, c); [[fallthrough]];
    case Isa::Scalar: bilinear_columns_scalar(row, c);
    }
}

using BilinearMember = Member<std::uint8_t, BilinearParams>;

constexpr BilinearMember bilinear(Pattern p, bool flip, Prefill fill, ColourFn<std::uint8_t> border) {
    return BilinearMember{p, flip, fill, border, 3, {}, {{bilinear_row, 1, 0}, {}}};
}

// The member table: the top-down members pre-fill, the bottom-up ones do not.
constexpr BilinearMember kBilinear_RGGB = bilinear(Pattern::RGGB, false, Prefill::White, QZRCFA_NearestNeighbor_Edge1_RGGB);
constexpr BilinearMember kBilinear_BGGR = bilinear(Pattern::BGGR, false, Prefill::White, QZRCFA_NearestNeighbor_Edge1_BGGR);
constexpr BilinearMember kBilinear_GRBG = bilinear(Pattern::GRBG, false, Prefill::White, QZRCFA_NearestNeighbor_Edge1_GRBG);
constexpr BilinearMember kBilinear_GBRG = bilinear(Pattern::GBRG, false, Prefill::White, QZRCFA_NearestNeighbor_Edge1_GBRG);
constexpr BilinearMember kBilinear_RGGB_Flip = bilinear(Pattern::RGGB, true, Prefill::None, QZRCFA_NearestNeighbor_Edge1_RGGB_Flip);
constexpr BilinearMember kBilinear_BGGR_Flip = bilinear(Pattern::BGGR, true, Prefill::None, QZRCFA_NearestNeighbor_Edge1_BGGR_Flip);
constexpr BilinearMember kBilinear_GRBG_Flip = bilinear(Pattern::GRBG, true, Prefill::None, QZRCFA_NearestNeighbor_Edge1_GRBG_Flip);
constexpr BilinearMember kBilinear_GBRG_Flip = bilinear(Pattern::GBRG, true, Prefill::None, QZRCFA_NearestNeighbor_Edge1_GBRG_Flip);

}  // namespace
}  // namespace qzrcfa::detail

using qzrcfa::detail::demosaic;
namespace d = qzrcfa::detail;

extern "C" {

QZRCFA_API int QZRCFA_Bilinear_RGGB(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return demosaic(d::kBilinear_RGGB, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_Bilinear_BGGR(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return demosaic(d::kBilinear_BGGR, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_Bilinear_GRBG(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return demosaic(d::kBilinear_GRBG, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_Bilinear_GBRG(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return demosaic(d::kBilinear_GBRG, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_Bilinear_RGGB_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return demosaic(d::kBilinear_RGGB_Flip, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_Bilinear_BGGR_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return demosaic(d::kBilinear_BGGR_Flip, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_Bilinear_GRBG_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return demosaic(d::kBilinear_GRBG_Flip, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_Bilinear_GBRG_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return demosaic(d::kBilinear_GBRG_Flip, src, width, height, dst, bitCount);
}

}  // extern "C"
