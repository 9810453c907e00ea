#include "bench_common.h"
#include "qzrcfa.h"

namespace {
using namespace qzrcfa::bench;
const bool registered = register_colour8("SmoothHue_RGGB", QZRCFA_SmoothHue_RGGB) &&
                        register_colour8("SmoothHue_BGGR", QZRCFA_SmoothHue_BGGR) &&
                        register_colour8("SmoothHue_GRBG", QZRCFA_SmoothHue_GRBG) &&
                        register_colour8("SmoothHue_GBRG", QZRCFA_SmoothHue_GBRG) &&
                        register_colour8("SmoothHue_RGGB_Flip", QZRCFA_SmoothHue_RGGB_Flip) &&
                        register_colour8("SmoothHue_BGGR_Flip", QZRCFA_SmoothHue_BGGR_Flip) &&
                        register_colour8("SmoothHue_GRBG_Flip", QZRCFA_SmoothHue_GRBG_Flip) &&
                        register_colour8("SmoothHue_GBRG_Flip", QZRCFA_SmoothHue_GBRG_Flip);
}  // namespace
