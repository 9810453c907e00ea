// FastBilinear: bilinear behind a gate on the pixel size.
//
// A member admits 24- and 32-bit output and hands the call, unchanged, to the bilinear
// export of its pattern and row order, through that export's entry point (a tail
// jump). Any other bitCount is refused with -1 before anything is written.
#include <cstdint>

#include "detail/frame.h"
#include "qzrcfa.h"

namespace qzrcfa::detail {
namespace {

inline int gate(ColourFn<std::uint8_t> bilinear, unsigned char* src, int width, int height, unsigned char* dst,
                unsigned short bitCount) {
    if (bitCount != 24 && bitCount != 32) return -1;
    return bilinear(src, width, height, dst, bitCount);
}

// The member table: the bilinear export each gate forwards to.
constexpr ColourFn<std::uint8_t> kFast_RGGB = QZRCFA_Bilinear_RGGB;
constexpr ColourFn<std::uint8_t> kFast_BGGR = QZRCFA_Bilinear_BGGR;
constexpr ColourFn<std::uint8_t> kFast_GRBG = QZRCFA_Bilinear_GRBG;
constexpr ColourFn<std::uint8_t> kFast_GBRG = QZRCFA_Bilinear_GBRG;
constexpr ColourFn<std::uint8_t> kFast_RGGB_Flip = QZRCFA_Bilinear_RGGB_Flip;
constexpr ColourFn<std::uint8_t> kFast_BGGR_Flip = QZRCFA_Bilinear_BGGR_Flip;
constexpr ColourFn<std::uint8_t> kFast_GRBG_Flip = QZRCFA_Bilinear_GRBG_Flip;
constexpr ColourFn<std::uint8_t> kFast_GBRG_Flip = QZRCFA_Bilinear_GBRG_Flip;

}  // namespace
}  // namespace qzrcfa::detail

using qzrcfa::detail::gate;
namespace d = qzrcfa::detail;

extern "C" {

QZRCFA_API int QZRCFA_FastBilinear_RGGB(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return gate(d::kFast_RGGB, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_FastBilinear_BGGR(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return gate(d::kFast_BGGR, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_FastBilinear_GRBG(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return gate(d::kFast_GRBG, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_FastBilinear_GBRG(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return gate(d::kFast_GBRG, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_FastBilinear_RGGB_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return gate(d::kFast_RGGB_Flip, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_FastBilinear_BGGR_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return gate(d::kFast_BGGR_Flip, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_FastBilinear_GRBG_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return gate(d::kFast_GRBG_Flip, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_FastBilinear_GBRG_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return gate(d::kFast_GBRG_Flip, src, width, height, dst, bitCount);
}

}  // extern "C"
