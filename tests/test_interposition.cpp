// Calls from one export to another go through the exported entry points: with a shim
// preloaded that stands in for some exports (tests/shim/interpose.cpp), the library's
// own calls reach the shim. CTest runs this program with the shim in LD_PRELOAD.
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

TEST(Interposition, TheShimIsPreloaded) {
    ASSERT_GE(shim_calls("QZRCFA_NearestNeighbor_Edge1_RGGB"), 0)
        << "run this test through CTest, which preloads the shim library";
}

template <class Fn>
struct Reach {
    const char* caller;
    Fn fn;
    const char* callee;
};

using Colour8 = int (*)(unsigned char*, int, int, unsigned char*, unsigned short);
using Colour16 = int (*)(unsigned short*, int, int, unsigned short*, unsigned short);
using Grey8 = int (*)(unsigned char*, int, int, unsigned char*);
using Grey16 = int (*)(unsigned short*, int, int, unsigned short*);

const Reach<Colour8> kColour8[] = {
    // border fills
    {"QZRCFA_NearestNeighbor_RGGB", QZRCFA_NearestNeighbor_RGGB, "QZRCFA_NearestNeighbor_Edge1_RGGB"},
    {"QZRCFA_NearestNeighbor_RGGB_Flip", QZRCFA_NearestNeighbor_RGGB_Flip, "QZRCFA_NearestNeighbor_Edge1_RGGB_Flip"},
    {"QZRCFA_Bilinear_RGGB", QZRCFA_Bilinear_RGGB, "QZRCFA_NearestNeighbor_Edge1_RGGB"},
    {"QZRCFA_Bilinear_RGGB_Flip", QZRCFA_Bilinear_RGGB_Flip, "QZRCFA_NearestNeighbor_Edge1_RGGB_Flip"},
    {"QZRCFA_EdgeSensing2_RGGB", QZRCFA_EdgeSensing2_RGGB, "QZRCFA_NearestNeighbor_Edge1_RGGB"},
    {"QZRCFA_EdgeSensing2_RGGB_Flip", QZRCFA_EdgeSensing2_RGGB_Flip, "QZRCFA_NearestNeighbor_Edge1_RGGB_Flip"},
    {"QZRCFA_SmoothHue_RGGB", QZRCFA_SmoothHue_RGGB, "QZRCFA_NearestNeighbor_Edge1_RGGB"},
    {"QZRCFA_SmoothHue_RGGB_Flip", QZRCFA_SmoothHue_RGGB_Flip, "QZRCFA_NearestNeighbor_Edge1_RGGB_Flip"},
    {"QZRCFA_Laplacian_RGGB", QZRCFA_Laplacian_RGGB, "QZRCFA_NearestNeighbor_Edge2_RGGB"},
    {"QZRCFA_Laplacian2_RGGB", QZRCFA_Laplacian2_RGGB, "QZRCFA_NearestNeighbor_Edge2_RGGB"},
    // forwarding members
    {"QZRCFA_FastBilinear_RGGB", QZRCFA_FastBilinear_RGGB, "QZRCFA_Bilinear_RGGB"},
    {"QZRCFA_FastBilinear_GBRG_Flip", QZRCFA_FastBilinear_GBRG_Flip, "QZRCFA_Bilinear_GBRG_Flip"},
    {"QZRCFA_EdgeSensing1_RGGB", QZRCFA_EdgeSensing1_RGGB, "QZRCFA_EdgeSensing2_RGGB"},
    {"QZRCFA_EdgeSensing1_RGGB_Flip", QZRCFA_EdgeSensing1_RGGB_Flip, "QZRCFA_EdgeSensing2_RGGB_Flip"},
};
const Reach<Colour16> kColour16[] = {
    {"QZRCFA_NearestNeighbor_RGGB_16Bits", QZRCFA_NearestNeighbor_RGGB_16Bits, "QZRCFA_NearestNeighbor_Edge1_RGGB_16Bits"},
};
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

// Each caller reaches its callee exactly once per call, at heights that run the
// interior (6) and that stop after the border (2). Below four rows the two-pixel fill
// writes rows 2 and 3 whatever the height, so the buffer has room for them.
template <class T, class Fn, std::size_t N, class... Extra>
void expect_reaches(const Reach<Fn> (&reaches)[N], Extra... extra) {
    for (int H : {6, 2}) {
        const int W = 8;
        std::vector<T> raw(W * (H + 2), 100), out(W * (H + 2) * 4 + 2, 0);
        for (const auto& reach : reaches) {
            const int before = shim_calls(reach.callee);
            ASSERT_GE(before, 0) << reach.callee << " is not interposed by the shim";
            EXPECT_EQ(reach.fn(raw.data(), W, H, out.data(), extra...), 0);
            EXPECT_EQ(shim_calls(reach.callee), before + 1) << reach.caller << " did not call " << reach.callee;
        }
    }
}

TEST(Interposition, ColourMembersReachTheExportsTheyBuildOn) {
    for (unsigned short bits : {24, 32}) {
        expect_reaches<unsigned char>(kColour8, bits);
        expect_reaches<unsigned short>(kColour16, bits);
    }
}

TEST(Interposition, BottomUpGreyAliasesReachTheBottomUpRggbMember) {
    expect_reaches<unsigned char>(kGrey8);
    expect_reaches<unsigned short>(kGrey16);
}

// A refused bitCount stops at the gate, and the top-down grey members call nothing.
TEST(Interposition, RefusalsAndOwnImplementationsCallNothing) {
    const int W = 8, H = 6;
    std::vector<unsigned char> raw(W * H, 100), out(W * H * 4, 0);
    const int bilinear = shim_calls("QZRCFA_Bilinear_RGGB");
    EXPECT_EQ(QZRCFA_FastBilinear_RGGB(raw.data(), W, H, out.data(), 16), -1);
    EXPECT_EQ(shim_calls("QZRCFA_Bilinear_RGGB"), bilinear);

    const int grey = shim_calls("QZRCFA_NearestNeighbor_RGGB_Gray_Flip");
    QZRCFA_NearestNeighbor_BGGR_Gray(raw.data(), W, H, out.data());
    QZRCFA_NearestNeighbor_RGGB_Gray(raw.data(), W, H, out.data());
    EXPECT_EQ(shim_calls("QZRCFA_NearestNeighbor_RGGB_Gray_Flip"), grey);
}

}  // namespace
