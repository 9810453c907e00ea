// Calls from one export to another go through the exported entry points: the grey
// bottom-up aliases reach an interposed bottom-up RGGB member, and the 16-bit colour
// members reach an interposed 16-bit border fill. CTest runs this program with the
// shim in LD_PRELOAD.
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

TEST(InterpositionGrey, TheShimIsPreloaded) {
    ASSERT_GE(shim_calls("QZRCFA_NearestNeighbor_RGGB_Gray_Flip"), 0)
        << "run this test through CTest, which preloads the shim library";
}

template <class Fn>
struct Reach {
    const char* caller;
    Fn fn;
    const char* callee;
};

using Grey8 = int (*)(unsigned char*, int, int, unsigned char*);
using Grey16 = int (*)(unsigned short*, int, int, unsigned short*);
using Colour16 = int (*)(unsigned short*, int, int, unsigned short*, unsigned short);

const Reach<Grey8> kGrey8[] = {
    {"QZRCFA_NearestNeighbor_BGGR_Gray_Flip", QZRCFA_NearestNeighbor_BGGR_Gray_Flip, "QZRCFA_NearestNeighbor_RGGB_Gray_Flip"},
    {"QZRCFA_NearestNeighbor_GRBG_Gray_Flip", QZRCFA_NearestNeighbor_GRBG_Gray_Flip, "QZRCFA_NearestNeighbor_RGGB_Gray_Flip"},
    {"QZRCFA_NearestNeighbor_GBRG_Gray_Flip", QZRCFA_NearestNeighbor_GBRG_Gray_Flip, "QZRCFA_NearestNeighbor_RGGB_Gray_Flip"},
};
const Reach<Grey16> kGrey16[] = {
    {"QZRCFA_NearestNeighbor_BGGR_Gray_Flip_16Bits", QZRCFA_NearestNeighbor_BGGR_Gray_Flip_16Bits,
     "QZRCFA_NearestNeighbor_RGGB_Gray_Flip_16Bits"},
    {"QZRCFA_NearestNeighbor_GRBG_Gray_Flip_16Bits", QZRCFA_NearestNeighbor_GRBG_Gray_Flip_16Bits,
     "QZRCFA_NearestNeighbor_RGGB_Gray_Flip_16Bits"},
    {"QZRCFA_NearestNeighbor_GBRG_Gray_Flip_16Bits", QZRCFA_NearestNeighbor_GBRG_Gray_Flip_16Bits,
     "QZRCFA_NearestNeighbor_RGGB_Gray_Flip_16Bits"},
};
const Reach<Colour16> kColour16[] = {
    {"QZRCFA_NearestNeighbor_RGGB_16Bits", QZRCFA_NearestNeighbor_RGGB_16Bits, "QZRCFA_NearestNeighbor_Edge1_RGGB_16Bits"},
};

// Each caller reaches its callee exactly once per call.
template <class T, class Fn, std::size_t N, class... Extra>
void expect_reaches(const Reach<Fn> (&reaches)[N], Extra... extra) {
    const int W = 8, H = 6;
    std::vector<T> raw(W * H, 100), out(W * H * 4 + 2, 0);
    for (const auto& reach : reaches) {
        const int before = shim_calls(reach.callee);
        ASSERT_GE(before, 0) << reach.callee << " is not interposed by the shim";
        EXPECT_EQ(reach.fn(raw.data(), W, H, out.data(), extra...), 0);
        EXPECT_EQ(shim_calls(reach.callee), before + 1) << reach.caller << " did not call " << reach.callee;
    }
}

TEST(InterpositionGrey, BottomUpAliasesReachTheBottomUpRggbEntryPoint) {
    expect_reaches<unsigned char>(kGrey8);
    expect_reaches<unsigned short>(kGrey16);
}

TEST(InterpositionGrey, SixteenBitColourReachesItsBorderFillEntryPoint) {
    expect_reaches<unsigned short>(kColour16, static_cast<unsigned short>(24));
}

// The top-down grey members have their own implementation and call nothing.
TEST(InterpositionGrey, TopDownGreyMembersCallNoOtherExport) {
    const int W = 8, H = 6;
    std::vector<unsigned char> raw(W * H, 100), out(W * H, 0);
    const int before = shim_calls("QZRCFA_NearestNeighbor_RGGB_Gray_Flip");
    QZRCFA_NearestNeighbor_BGGR_Gray(raw.data(), W, H, out.data());
    QZRCFA_NearestNeighbor_RGGB_Gray(raw.data(), W, H, out.data());
    EXPECT_EQ(shim_calls("QZRCFA_NearestNeighbor_RGGB_Gray_Flip"), before);
}

}  // namespace
