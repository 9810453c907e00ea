// The Laplacian members reach their two-pixel border fill through its exported entry
// point: with a shim preloaded that stands in for it, the library's own calls reach the
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

TEST(InterpositionLaplacian, TheShimIsPreloaded) {
    ASSERT_GE(shim_calls("QZRCFA_NearestNeighbor_Edge2_RGGB"), 0)
        << "run this test through CTest, which preloads the shim library";
}

using Fn8 = int (*)(unsigned char*, int, int, unsigned char*, unsigned short);

struct Reach {
    const char* caller;
    Fn8 fn;
    const char* callee;
};

const Reach kReaches[] = {
    {"QZRCFA_Laplacian_RGGB", QZRCFA_Laplacian_RGGB, "QZRCFA_NearestNeighbor_Edge2_RGGB"},
    {"QZRCFA_Laplacian2_RGGB", QZRCFA_Laplacian2_RGGB, "QZRCFA_NearestNeighbor_Edge2_RGGB"},
};

TEST(InterpositionLaplacian, CallsBetweenExportsReachTheInterposedEntryPoint) {
    const int W = 8, H = 6;
    std::vector<std::uint8_t> raw(W * H, 100), out(W * H * 4, 0);
    for (const Reach& reach : kReaches) {
        const int before = shim_calls(reach.callee);
        ASSERT_GE(before, 0) << reach.callee << " is not interposed by the shim";
        EXPECT_EQ(reach.fn(raw.data(), W, H, out.data(), 24), 0);
        EXPECT_EQ(shim_calls(reach.callee), before + 1) << reach.caller << " did not call " << reach.callee;
    }
}

}  // namespace
