#include "bench_common.h"
#include "qzrcfa.h"

namespace {
using namespace qzrcfa::bench;
const bool registered = register_colour8("NearestNeighbor_Edge1_RGGB", QZRCFA_NearestNeighbor_Edge1_RGGB) &&
                        register_colour8("NearestNeighbor_Edge1_BGGR", QZRCFA_NearestNeighbor_Edge1_BGGR) &&
                        register_colour8("NearestNeighbor_Edge1_GRBG", QZRCFA_NearestNeighbor_Edge1_GRBG) &&
                        register_colour8("NearestNeighbor_Edge1_GBRG", QZRCFA_NearestNeighbor_Edge1_GBRG) &&
                        register_colour8("NearestNeighbor_Edge1_RGGB_Flip", QZRCFA_NearestNeighbor_Edge1_RGGB_Flip) &&
                        register_colour8("NearestNeighbor_Edge1_BGGR_Flip", QZRCFA_NearestNeighbor_Edge1_BGGR_Flip) &&
                        register_colour8("NearestNeighbor_Edge1_GRBG_Flip", QZRCFA_NearestNeighbor_Edge1_GRBG_Flip) &&
                        register_colour8("NearestNeighbor_Edge1_GBRG_Flip", QZRCFA_NearestNeighbor_Edge1_GBRG_Flip) &&
                        register_colour8("NearestNeighbor_RGGB", QZRCFA_NearestNeighbor_RGGB) &&
                        register_colour8("NearestNeighbor_BGGR", QZRCFA_NearestNeighbor_BGGR) &&
                        register_colour8("NearestNeighbor_GRBG", QZRCFA_NearestNeighbor_GRBG) &&
                        register_colour8("NearestNeighbor_GBRG", QZRCFA_NearestNeighbor_GBRG) &&
                        register_colour8("NearestNeighbor_RGGB_Flip", QZRCFA_NearestNeighbor_RGGB_Flip) &&
                        register_colour8("NearestNeighbor_BGGR_Flip", QZRCFA_NearestNeighbor_BGGR_Flip) &&
                        register_colour8("NearestNeighbor_GRBG_Flip", QZRCFA_NearestNeighbor_GRBG_Flip) &&
                        register_colour8("NearestNeighbor_GBRG_Flip", QZRCFA_NearestNeighbor_GBRG_Flip);
}  // namespace
