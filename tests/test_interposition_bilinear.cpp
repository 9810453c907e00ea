// Bilinear, its gate and edge sensing reach the exports they build on through the
// exported entry points: with a shim preloaded that stands in for some exports, the
// library's own calls reach the shim. CTest runs this program with the shim in
// LD_PRELOAD.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "qzrcfa.h"

namespace {

int shim_calls(const char* name) {
    using Fn = int (*)(const char*);
    auto fn = reinterpret_cast<Fn>(dlsym(RTLD_DEFAULT, "qzrcfa_shim_calls"));
    return fn ? fn(name) : -1;
}

TEST(InterpositionBilinear, TheShimIsPreloaded) {
    ASSERT_GE(shim_calls("QZRCFA_Bilinear_RGGB"), 0) << "run this test through CTest, which preloads the shim library";
}

using Fn8 = int (*)(unsigned char*, int, int, unsigned char*, unsigned short);

struct Reach {
    const char* caller;
    Fn8 fn;
    const char* callee;
};

// Each caller must reach its callee through the callee's exported entry point.
const Reach kReaches[] = {
    {"QZRCFA_FastBilinear_RGGB", QZRCFA_FastBilinear_RGGB, "QZRCFA_Bilinear_RGGB"},
    {"QZRCFA_FastBilinear_GBRG_Flip", QZRCFA_FastBilinear_GBRG_Flip, "QZRCFA_Bilinear_GBRG_Flip"},
    {"QZRCFA_Bilinear_RGGB", QZRCFA_Bilinear_RGGB, "QZRCFA_NearestNeighbor_Edge1_RGGB"},
    {"QZRCFA_Bilinear_RGGB_Flip", QZRCFA_Bilinear_RGGB_Flip, "QZRCFA_NearestNeighbor_Edge1_RGGB_Flip"},
    {"QZRCFA_EdgeSensing1_RGGB", QZRCFA_EdgeSensing1_RGGB, "QZRCFA_EdgeSensing2_RGGB"},
    {"QZRCFA_EdgeSensing1_RGGB_Flip", QZRCFA_EdgeSensing1_RGGB_Flip, "QZRCFA_EdgeSensing2_RGGB_Flip"},
    {"QZRCFA_EdgeSensing2_RGGB", QZRCFA_EdgeSensing2_RGGB, "QZRCFA_NearestNeighbor_Edge1_RGGB"},
    {"QZRCFA_EdgeSensing2_RGGB_Flip", QZRCFA_EdgeSensing2_RGGB_Flip, "QZRCFA_NearestNeighbor_Edge1_RGGB_Flip"},
};

TEST(InterpositionBilinear, CallsBetweenExportsReachTheInterposedEntryPoint) {
    const int W = 8, H = 6;
    std::vector<std::uint8_t> raw(W * H, 100), out(W * H * 4, 0);
    for (const Reach& reach : kReaches) {
        for (unsigned short bits : {24, 32}) {
            const int before = shim_calls(reach.callee);
            ASSERT_GE(before, 0) << reach.callee << " is not interposed by the shim";
            EXPECT_EQ(reach.fn(raw.data(), W, H, out.data(), bits), 0);
            EXPECT_EQ(shim_calls(reach.callee), before + 1) << reach.caller << " did not call " << reach.callee;
        }
    }
}

// A refused bitCount stops at the gate.
TEST(InterpositionBilinear, ARefusalCallsNothing) {
    const int W = 8, H = 6;
    std::vector<std::uint8_t> raw(W * H, 100), out(W * H * 4, 0);
    const int before = shim_calls("QZRCFA_Bilinear_RGGB");
    EXPECT_EQ(QZRCFA_FastBilinear_RGGB(raw.data(), W, H, out.data(), 16), -1);
    EXPECT_EQ(shim_calls("QZRCFA_Bilinear_RGGB"), before);
}

}  // namespace
