#include "bench_common.h"
#include "qzrcfa.h"

namespace {
using namespace qzrcfa::bench;
const bool registered = register_colour8("NearestNeighbor_Edge2_RGGB", QZRCFA_NearestNeighbor_Edge2_RGGB) &&
                        register_colour8("NearestNeighbor_Edge2_BGGR", QZRCFA_NearestNeighbor_Edge2_BGGR) &&
                        register_colour8("NearestNeighbor_Edge2_GRBG", QZRCFA_NearestNeighbor_Edge2_GRBG) &&
                        register_colour8("NearestNeighbor_Edge2_GBRG", QZRCFA_NearestNeighbor_Edge2_GBRG) &&
                        register_colour8("NearestNeighbor_Edge2_RGGB_Flip", QZRCFA_NearestNeighbor_Edge2_RGGB_Flip) &&
                        register_colour8("NearestNeighbor_Edge2_BGGR_Flip", QZRCFA_NearestNeighbor_Edge2_BGGR_Flip) &&
                        register_colour8("NearestNeighbor_Edge2_GRBG_Flip", QZRCFA_NearestNeighbor_Edge2_GRBG_Flip) &&
                        register_colour8("NearestNeighbor_Edge2_GBRG_Flip", QZRCFA_NearestNeighbor_Edge2_GBRG_Flip) &&
                        register_colour8("Laplacian_RGGB", QZRCFA_Laplacian_RGGB) &&
                        register_colour8("Laplacian_BGGR", QZRCFA_Laplacian_BGGR) &&
                        register_colour8("Laplacian_GRBG", QZRCFA_Laplacian_GRBG) &&
                        register_colour8("Laplacian_GBRG", QZRCFA_Laplacian_GBRG) &&
                        register_colour8("Laplacian_RGGB_Flip", QZRCFA_Laplacian_RGGB_Flip) &&
                        register_colour8("Laplacian_BGGR_Flip", QZRCFA_Laplacian_BGGR_Flip) &&
                        register_colour8("Laplacian_GRBG_Flip", QZRCFA_Laplacian_GRBG_Flip) &&
                        register_colour8("Laplacian_GBRG_Flip", QZRCFA_Laplacian_GBRG_Flip) &&
                        register_colour8("Laplacian2_RGGB", QZRCFA_Laplacian2_RGGB);
}  // namespace
