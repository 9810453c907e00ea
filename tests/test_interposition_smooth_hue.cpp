// Smooth hue reaches its border fill through the exported entry point: with a shim
// preloaded that stands in for the RGGB border fills, the members' own calls reach the
// shim. CTest runs this program with the shim in LD_PRELOAD.
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

TEST(InterpositionSmoothHue, TheShimIsPreloaded) {
    ASSERT_GE(shim_calls("QZRCFA_NearestNeighbor_Edge1_RGGB"), 0)
        << "run this test through CTest, which preloads the shim library";
}

using Fn8 = int (*)(unsigned char*, int, int, unsigned char*, unsigned short);

struct Reach {
    const char* caller;
    Fn8 fn;
    const char* callee;
};

const Reach kReaches[] = {
    {"QZRCFA_SmoothHue_RGGB", QZRCFA_SmoothHue_RGGB, "QZRCFA_NearestNeighbor_Edge1_RGGB"},
    {"QZRCFA_SmoothHue_RGGB_Flip", QZRCFA_SmoothHue_RGGB_Flip, "QZRCFA_NearestNeighbor_Edge1_RGGB_Flip"},
};

TEST(InterpositionSmoothHue, BorderFillIsReachedThroughItsEntryPoint) {
    const int W = 8, H = 6;
    std::vector<std::uint8_t> raw(W * H, 100), out(W * H * 4, 0);
    for (const Reach& reach : kReaches) {
        for (int height : {H, 2}) {  // below the interior's height too
            const int before = shim_calls(reach.callee);
            ASSERT_GE(before, 0) << reach.callee << " is not interposed by the shim";
            EXPECT_EQ(reach.fn(raw.data(), W, height, out.data(), 24), 0);
            EXPECT_EQ(shim_calls(reach.callee), before + 1) << reach.caller << " did not call " << reach.callee;
        }
    }
}

}  // namespace
