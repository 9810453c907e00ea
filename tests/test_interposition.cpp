// Calls from one export to another go through the exported entry points: with a shim
// preloaded that stands in for some exports (tests/shim/interpose.cpp), the library's
// own calls reach the shim. And with its border fill interposed, a member that
// pre-fills with 255 runs the literal sequence. CTest runs this program with the shim
// in LD_PRELOAD.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

#include "model.h"

namespace {

template <class R>
R shim(const char* function, const char* name, R missing) {
    auto fn = reinterpret_cast<R (*)(const char*)>(dlsym(RTLD_DEFAULT, function));
    return fn ? fn(name) : missing;
}

int shim_calls(const char* name) { return shim("qzrcfa_shim_calls", name, -1); }

TEST(Interposition, TheShimIsPreloaded) {
    ASSERT_GE(shim_calls("QZRCFA_NearestNeighbor_Edge1_RGGB"), 0)
        << "run this test through CTest, which preloads the shim library";
}

// Each caller reaches its callee exactly once per call, at heights that run the
// interior (6) and that stop after the border (2). Below four rows the two-pixel fill
// writes rows 2 and 3 whatever the height, so the buffer has room for them.
template <class T>
void expect_reaches(const qzrcfa::model::Member& caller, const char* callee) {
    for (unsigned short bits : {24, 32}) {
        for (int H : {6, 2}) {
            const int W = 8;
            std::vector<T> raw(W * (H + 2), 100), out(W * (H + 2) * 4 + 2, 0);
            const int before = shim_calls(callee);
            ASSERT_GE(before, 0) << callee << " is not interposed by the shim";
            EXPECT_EQ(qzrcfa::model::call(caller, raw.data(), W, H, out.data(), bits), 0);
            EXPECT_EQ(shim_calls(callee), before + 1) << caller.name << " did not call " << callee;
        }
    }
}

TEST(Interposition, MembersReachTheExportsTheyBuildOn) {
    const std::pair<const char*, const char*> kReaches[] = {
        // border fills
        {"QZRCFA_NearestNeighbor_RGGB", "QZRCFA_NearestNeighbor_Edge1_RGGB"},
        {"QZRCFA_NearestNeighbor_RGGB_Flip", "QZRCFA_NearestNeighbor_Edge1_RGGB_Flip"},
        {"QZRCFA_NearestNeighbor_RGGB_16Bits", "QZRCFA_NearestNeighbor_Edge1_RGGB_16Bits"},
        {"QZRCFA_Bilinear_RGGB", "QZRCFA_NearestNeighbor_Edge1_RGGB"},
        {"QZRCFA_Bilinear_RGGB_Flip", "QZRCFA_NearestNeighbor_Edge1_RGGB_Flip"},
        {"QZRCFA_EdgeSensing2_RGGB", "QZRCFA_NearestNeighbor_Edge1_RGGB"},
        {"QZRCFA_EdgeSensing2_RGGB_Flip", "QZRCFA_NearestNeighbor_Edge1_RGGB_Flip"},
        {"QZRCFA_SmoothHue_RGGB", "QZRCFA_NearestNeighbor_Edge1_RGGB"},
        {"QZRCFA_SmoothHue_RGGB_Flip", "QZRCFA_NearestNeighbor_Edge1_RGGB_Flip"},
        {"QZRCFA_Laplacian_RGGB", "QZRCFA_NearestNeighbor_Edge2_RGGB"},
        {"QZRCFA_Laplacian2_RGGB", "QZRCFA_NearestNeighbor_Edge2_RGGB"},
        // forwarding members
        {"QZRCFA_FastBilinear_RGGB", "QZRCFA_Bilinear_RGGB"},
        {"QZRCFA_FastBilinear_GBRG_Flip", "QZRCFA_Bilinear_GBRG_Flip"},
        {"QZRCFA_EdgeSensing1_RGGB", "QZRCFA_EdgeSensing2_RGGB"},
        {"QZRCFA_EdgeSensing1_RGGB_Flip", "QZRCFA_EdgeSensing2_RGGB_Flip"},
        {"QZRCFA_NearestNeighbor_BGGR_Gray_Flip", "QZRCFA_NearestNeighbor_RGGB_Gray_Flip"},
        {"QZRCFA_NearestNeighbor_GRBG_Gray_Flip", "QZRCFA_NearestNeighbor_RGGB_Gray_Flip"},
        {"QZRCFA_NearestNeighbor_GBRG_Gray_Flip", "QZRCFA_NearestNeighbor_RGGB_Gray_Flip"},
        {"QZRCFA_NearestNeighbor_BGGR_Gray_Flip_16Bits", "QZRCFA_NearestNeighbor_RGGB_Gray_Flip_16Bits"},
        {"QZRCFA_NearestNeighbor_GRBG_Gray_Flip_16Bits", "QZRCFA_NearestNeighbor_RGGB_Gray_Flip_16Bits"},
        {"QZRCFA_NearestNeighbor_GBRG_Gray_Flip_16Bits", "QZRCFA_NearestNeighbor_RGGB_Gray_Flip_16Bits"},
    };
    for (const auto& [caller, callee] : kReaches) {
        const qzrcfa::model::Member& m = *qzrcfa::model::find(caller);
        if (m.wide()) expect_reaches<unsigned short>(m, callee);
        else expect_reaches<unsigned char>(m, callee);
    }
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

// The library leaves its 255 pre-fill to its passes only when the border fill is its
// own. Interposed, the border fill meets the whole pre-fill (and no member that does
// not pre-fill gives it one), and the output is the literal sequence's, as the model
// computes it: bitCount 25..31 included, where the fill reaches past the image.
TEST(Interposition, AnInterposedBorderFillMeetsTheLiteralSequence) {
    const std::pair<const char*, const char*> kCallers[] = {
        {"QZRCFA_Bilinear_RGGB", "QZRCFA_NearestNeighbor_Edge1_RGGB"},
        {"QZRCFA_NearestNeighbor_RGGB", "QZRCFA_NearestNeighbor_Edge1_RGGB"},
        {"QZRCFA_Laplacian_RGGB", "QZRCFA_NearestNeighbor_Edge2_RGGB"},
        {"QZRCFA_Laplacian2_RGGB", "QZRCFA_NearestNeighbor_Edge2_RGGB"},
        {"QZRCFA_EdgeSensing2_RGGB", "QZRCFA_NearestNeighbor_Edge1_RGGB"},
        {"QZRCFA_Bilinear_RGGB_Flip", "QZRCFA_NearestNeighbor_Edge1_RGGB_Flip"},
    };
    std::mt19937 rng(5);
    for (const auto& [caller, border] : kCallers) {
        const qzrcfa::model::Member& m = *qzrcfa::model::find(caller);
        for (const auto& [W, H] : {std::pair{12, 10}, {37, 9}, {70, 6}}) {
            for (unsigned short bits = 24; bits <= 32; ++bits) {
                std::vector<std::uint8_t> raw(std::size_t(W * H)), got(std::size_t(W * H * 8));
                for (auto& v : raw) v = std::uint8_t(rng());
                for (auto& v : got) v = std::uint8_t(rng());
                std::vector<std::uint8_t> want = got;
                const int calls = shim_calls(border);
                qzrcfa::model::call(m, raw.data(), W, H, got.data() + W * H, bits);
                qzrcfa::model::run(m, raw.data(), W, H, want.data() + W * H, bits);
                SCOPED_TRACE(std::string(caller) + " " + std::to_string(W) + "x" + std::to_string(H) + " bitCount " +
                             std::to_string(bits));
                ASSERT_EQ(shim_calls(border), calls + 1);
                EXPECT_EQ(shim("qzrcfa_shim_prefilled", border, false), bool(m.flags & qzrcfa::model::kPrefill));
                EXPECT_EQ(got, want);
            }
        }
    }
}

}  // namespace
