// The border fills a member calls, and whether the one an exported name leads to is the
// library's own.
//
// A member calls its border fill through the exported name, so an application that
// interposes the export sees the call. Taking the address of the exported name gives
// the interposer's function when there is one; the frame driver compares it with the
// library's own definition to know which bytes the border fill writes.
#pragma once

#include <cstdint>

#include "qzrcfa.h"

// X(suffix, element type) for every border fill.
#define QZRCFA_BORDER_FILLS(X)                                                                                   \
    X(Edge1_RGGB, unsigned char) X(Edge1_BGGR, unsigned char) X(Edge1_GRBG, unsigned char)                     \
    X(Edge1_GBRG, unsigned char) X(Edge1_RGGB_Flip, unsigned char) X(Edge1_BGGR_Flip, unsigned char)           \
    X(Edge1_GRBG_Flip, unsigned char) X(Edge1_GBRG_Flip, unsigned char) X(Edge1_RGGB_16Bits, unsigned short)   \
    X(Edge1_BGGR_16Bits, unsigned short) X(Edge1_GRBG_16Bits, unsigned short) X(Edge1_GBRG_16Bits, unsigned short) \
    X(Edge1_RGGB_Flip_16Bits, unsigned short) X(Edge1_BGGR_Flip_16Bits, unsigned short)                        \
    X(Edge1_GRBG_Flip_16Bits, unsigned short) X(Edge1_GBRG_Flip_16Bits, unsigned short)                        \
    X(Edge2_RGGB, unsigned char) X(Edge2_BGGR, unsigned char) X(Edge2_GRBG, unsigned char)                     \
    X(Edge2_GBRG, unsigned char) X(Edge2_RGGB_Flip, unsigned char) X(Edge2_BGGR_Flip, unsigned char)           \
    X(Edge2_GRBG_Flip, unsigned char) X(Edge2_GBRG_Flip, unsigned char)

namespace qzrcfa::detail {

#define QZRCFA_BORDER_ID(suffix, T) suffix,
enum class Border : std::uint8_t { QZRCFA_BORDER_FILLS(QZRCFA_BORDER_ID) };
#undef QZRCFA_BORDER_ID

// Whether `exported`, what the exported name of border fill `id` resolves to, is the
// library's own definition of it.
bool border_is_own(Border id, const void* exported);

}  // namespace qzrcfa::detail

// A member's border fill: its exported entry point and which it is.
#define QZRCFA_BORDER(suffix) QZRCFA_NearestNeighbor_##suffix, ::qzrcfa::detail::Border::suffix
