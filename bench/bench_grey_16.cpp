#include "bench_common.h"
#include "qzrcfa.h"

namespace {
using namespace qzrcfa::bench;
const bool registered =
    register_colour16("NearestNeighbor_RGGB_16Bits", QZRCFA_NearestNeighbor_RGGB_16Bits) &&
    register_colour16("NearestNeighbor_BGGR_16Bits", QZRCFA_NearestNeighbor_BGGR_16Bits) &&
    register_colour16("NearestNeighbor_GRBG_16Bits", QZRCFA_NearestNeighbor_GRBG_16Bits) &&
    register_colour16("NearestNeighbor_GBRG_16Bits", QZRCFA_NearestNeighbor_GBRG_16Bits) &&
    register_colour16("NearestNeighbor_RGGB_Flip_16Bits", QZRCFA_NearestNeighbor_RGGB_Flip_16Bits) &&
    register_colour16("NearestNeighbor_BGGR_Flip_16Bits", QZRCFA_NearestNeighbor_BGGR_Flip_16Bits) &&
    register_colour16("NearestNeighbor_GRBG_Flip_16Bits", QZRCFA_NearestNeighbor_GRBG_Flip_16Bits) &&
    register_colour16("NearestNeighbor_GBRG_Flip_16Bits", QZRCFA_NearestNeighbor_GBRG_Flip_16Bits) &&
    register_grey8("NearestNeighbor_RGGB_Gray", QZRCFA_NearestNeighbor_RGGB_Gray) &&
    register_grey8("NearestNeighbor_BGGR_Gray", QZRCFA_NearestNeighbor_BGGR_Gray) &&
    register_grey8("NearestNeighbor_GRBG_Gray", QZRCFA_NearestNeighbor_GRBG_Gray) &&
    register_grey8("NearestNeighbor_GBRG_Gray", QZRCFA_NearestNeighbor_GBRG_Gray) &&
    register_grey8("NearestNeighbor_RGGB_Gray_Flip", QZRCFA_NearestNeighbor_RGGB_Gray_Flip) &&
    register_grey8("NearestNeighbor_BGGR_Gray_Flip", QZRCFA_NearestNeighbor_BGGR_Gray_Flip) &&
    register_grey8("NearestNeighbor_GRBG_Gray_Flip", QZRCFA_NearestNeighbor_GRBG_Gray_Flip) &&
    register_grey8("NearestNeighbor_GBRG_Gray_Flip", QZRCFA_NearestNeighbor_GBRG_Gray_Flip) &&
    register_grey16("NearestNeighbor_RGGB_Gray_16Bits", QZRCFA_NearestNeighbor_RGGB_Gray_16Bits) &&
    register_grey16("NearestNeighbor_BGGR_Gray_16Bits", QZRCFA_NearestNeighbor_BGGR_Gray_16Bits) &&
    register_grey16("NearestNeighbor_GRBG_Gray_16Bits", QZRCFA_NearestNeighbor_GRBG_Gray_16Bits) &&
    register_grey16("NearestNeighbor_GBRG_Gray_16Bits", QZRCFA_NearestNeighbor_GBRG_Gray_16Bits) &&
    register_grey16("NearestNeighbor_RGGB_Gray_Flip_16Bits", QZRCFA_NearestNeighbor_RGGB_Gray_Flip_16Bits) &&
    register_grey16("NearestNeighbor_BGGR_Gray_Flip_16Bits", QZRCFA_NearestNeighbor_BGGR_Gray_Flip_16Bits) &&
    register_grey16("NearestNeighbor_GRBG_Gray_Flip_16Bits", QZRCFA_NearestNeighbor_GRBG_Gray_Flip_16Bits) &&
    register_grey16("NearestNeighbor_GBRG_Gray_Flip_16Bits", QZRCFA_NearestNeighbor_GBRG_Gray_Flip_16Bits);
}  // namespace
