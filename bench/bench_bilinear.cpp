#include "bench_common.h"
#include "qzrcfa.h"

namespace {
using namespace qzrcfa::bench;
const bool registered = register_colour8("Bilinear_RGGB", QZRCFA_Bilinear_RGGB) &&
                        register_colour8("Bilinear_BGGR", QZRCFA_Bilinear_BGGR) &&
                        register_colour8("Bilinear_GRBG", QZRCFA_Bilinear_GRBG) &&
                        register_colour8("Bilinear_GBRG", QZRCFA_Bilinear_GBRG) &&
                        register_colour8("Bilinear_RGGB_Flip", QZRCFA_Bilinear_RGGB_Flip) &&
                        register_colour8("Bilinear_BGGR_Flip", QZRCFA_Bilinear_BGGR_Flip) &&
                        register_colour8("Bilinear_GRBG_Flip", QZRCFA_Bilinear_GRBG_Flip) &&
                        register_colour8("Bilinear_GBRG_Flip", QZRCFA_Bilinear_GBRG_Flip) &&
                        register_colour8("FastBilinear_RGGB", QZRCFA_FastBilinear_RGGB) &&
                        register_colour8("FastBilinear_BGGR", QZRCFA_FastBilinear_BGGR) &&
                        register_colour8("FastBilinear_GRBG", QZRCFA_FastBilinear_GRBG) &&
                        register_colour8("FastBilinear_GBRG", QZRCFA_FastBilinear_GBRG) &&
                        register_colour8("FastBilinear_RGGB_Flip", QZRCFA_FastBilinear_RGGB_Flip) &&
                        register_colour8("FastBilinear_BGGR_Flip", QZRCFA_FastBilinear_BGGR_Flip) &&
                        register_colour8("FastBilinear_GRBG_Flip", QZRCFA_FastBilinear_GRBG_Flip) &&
                        register_colour8("FastBilinear_GBRG_Flip", QZRCFA_FastBilinear_GBRG_Flip) &&
                        register_colour8("EdgeSensing2_RGGB", QZRCFA_EdgeSensing2_RGGB) &&
                        register_colour8("EdgeSensing2_RGGB_Flip", QZRCFA_EdgeSensing2_RGGB_Flip) &&
                        register_colour8("EdgeSensing1_RGGB", QZRCFA_EdgeSensing1_RGGB) &&
                        register_colour8("EdgeSensing1_BGGR", QZRCFA_EdgeSensing1_BGGR) &&
                        register_colour8("EdgeSensing1_GRBG", QZRCFA_EdgeSensing1_GRBG) &&
                        register_colour8("EdgeSensing1_GBRG", QZRCFA_EdgeSensing1_GBRG) &&
                        register_colour8("EdgeSensing1_RGGB_Flip", QZRCFA_EdgeSensing1_RGGB_Flip) &&
                        register_colour8("EdgeSensing1_BGGR_Flip", QZRCFA_EdgeSensing1_BGGR_Flip) &&
                        register_colour8("EdgeSensing1_GRBG_Flip", QZRCFA_EdgeSensing1_GRBG_Flip) &&
                        register_colour8("EdgeSensing1_GBRG_Flip", QZRCFA_EdgeSensing1_GBRG_Flip);
}  // namespace
