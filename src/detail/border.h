// The library's own definitions of the border fills, under hidden names.
//
// A member calls its border fill through the exported name, so an application that
// interposes the export sees the call. Taking the address of the exported name gives
// the interposer's function when there is one; the hidden alias always gives the
// library's own. The frame driver compares the two to know whether the border fill
// is its own (and so which bytes it writes).
#pragma once

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

#define QZRCFA_DECLARE_OWN_BORDER(suffix, T)                                                                     \
    __attribute__((visibility("hidden"))) int qzrcfa_own_##suffix(T* src, int width, int height, T* dst,      \
                                                                   unsigned short bitCount);

extern "C" {
QZRCFA_BORDER_FILLS(QZRCFA_DECLARE_OWN_BORDER)
}

// A member's border fill: the exported entry point and the library's own definition.
#define QZRCFA_BORDER(suffix) QZRCFA_NearestNeighbor_##suffix, qzrcfa_own_##suffix
