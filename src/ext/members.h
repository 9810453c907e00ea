// The members the extended library runs itself: for each, the export a one-thread
// request calls and the runner, built from the same family files, that takes threads.
#pragma once

#include "detail/frame.h"
#include "qzrcfa.h"

// Members with a runner, by signature: X(name).
#define QZRCFA_COLOUR8_MEMBERS(X)                                                                                \
    X(NearestNeighbor_RGGB) X(NearestNeighbor_BGGR) X(NearestNeighbor_GRBG) X(NearestNeighbor_GBRG)             \
    X(NearestNeighbor_RGGB_Flip) X(NearestNeighbor_BGGR_Flip) X(NearestNeighbor_GRBG_Flip)                      \
    X(NearestNeighbor_GBRG_Flip) X(Bilinear_RGGB) X(Bilinear_BGGR) X(Bilinear_GRBG) X(Bilinear_GBRG)           \
    X(Bilinear_RGGB_Flip) X(Bilinear_BGGR_Flip) X(Bilinear_GRBG_Flip) X(Bilinear_GBRG_Flip)                    \
    X(EdgeSensing2_RGGB) X(EdgeSensing2_RGGB_Flip) X(EdgeSensing1_BGGR) X(EdgeSensing1_GRBG)                   \
    X(EdgeSensing1_GBRG) X(EdgeSensing1_BGGR_Flip) X(EdgeSensing1_GRBG_Flip) X(EdgeSensing1_GBRG_Flip)         \
    X(Laplacian_RGGB) X(Laplacian_BGGR) X(Laplacian_GRBG) X(Laplacian_GBRG) X(Laplacian_RGGB_Flip)             \
    X(Laplacian_BGGR_Flip) X(Laplacian_GRBG_Flip) X(Laplacian_GBRG_Flip) X(Laplacian2_RGGB) X(SmoothHue_RGGB)  \
    X(SmoothHue_BGGR) X(SmoothHue_GRBG) X(SmoothHue_GBRG) X(SmoothHue_RGGB_Flip) X(SmoothHue_BGGR_Flip)        \
    X(SmoothHue_GRBG_Flip) X(SmoothHue_GBRG_Flip)
#define QZRCFA_COLOUR16_MEMBERS(X)                                                                               \
    X(NearestNeighbor_RGGB_16Bits) X(NearestNeighbor_BGGR_16Bits) X(NearestNeighbor_GRBG_16Bits)                \
    X(NearestNeighbor_GBRG_16Bits) X(NearestNeighbor_RGGB_Flip_16Bits) X(NearestNeighbor_BGGR_Flip_16Bits)      \
    X(NearestNeighbor_GRBG_Flip_16Bits) X(NearestNeighbor_GBRG_Flip_16Bits)
#define QZRCFA_GREY8_MEMBERS(X)                                                                                  \
    X(NearestNeighbor_RGGB_Gray) X(NearestNeighbor_BGGR_Gray) X(NearestNeighbor_GRBG_Gray)                      \
    X(NearestNeighbor_GBRG_Gray) X(NearestNeighbor_RGGB_Gray_Flip)
#define QZRCFA_GREY16_MEMBERS(X)                                                                                 \
    X(NearestNeighbor_RGGB_Gray_16Bits) X(NearestNeighbor_BGGR_Gray_16Bits) X(NearestNeighbor_GRBG_Gray_16Bits) \
    X(NearestNeighbor_GBRG_Gray_16Bits) X(NearestNeighbor_RGGB_Gray_Flip_16Bits)

#define QZRCFA_DECLARE_RUNNER(name)                                                                             \
    extern "C++" int qzrcfa_run_##name(unsigned char*, int, int, unsigned char*, unsigned short,               \
                                       const ::qzrcfa::detail::Tasks*);
#define QZRCFA_DECLARE_RUNNER16(name)                                                                           \
    extern "C++" int qzrcfa_run_##name(unsigned short*, int, int, unsigned short*, unsigned short,             \
                                       const ::qzrcfa::detail::Tasks*);
#define QZRCFA_DECLARE_GREY_RUNNER(name)                                                                        \
    extern "C++" int qzrcfa_run_##name(unsigned char*, int, int, unsigned char*, const ::qzrcfa::detail::Tasks*);
#define QZRCFA_DECLARE_GREY_RUNNER16(name)                                                                      \
    extern "C++" int qzrcfa_run_##name(unsigned short*, int, int, unsigned short*, const ::qzrcfa::detail::Tasks*);

QZRCFA_COLOUR8_MEMBERS(QZRCFA_DECLARE_RUNNER)
QZRCFA_COLOUR16_MEMBERS(QZRCFA_DECLARE_RUNNER16)
QZRCFA_GREY8_MEMBERS(QZRCFA_DECLARE_GREY_RUNNER)
QZRCFA_GREY16_MEMBERS(QZRCFA_DECLARE_GREY_RUNNER16)

namespace qzrcfa::ext {

// What the exported name `name` of libqzrcfa resolves to in libqzrcfa itself, whatever
// an application interposes in front of it; null when libqzrcfa has no such name.
const void* library_definition(const char* name);

}  // namespace qzrcfa::ext
