// The members' descriptions, declared from the catalogue: qzrcfa::members::<name> is the
// description the export QZRCFA_<name> runs, defined in its family's source file as an
// entry of the family's member table. run() runs any of them.
#pragma once

#include <cstdint>

#include "catalogue/catalogue.h"
#include "driver/border.h"
#include "driver/demosaic.h"
#include "driver/grey.h"
#include "kernels/kernels.h"

namespace qzrcfa::members {

// The description type of each family of the catalogue.
using Edge1 = detail::Edge1Member;
using Edge2 = detail::Edge2Member;
using Nearest = detail::ColourMember<std::uint8_t, detail::NearestForm>;
using Nearest16 = detail::ColourMember<std::uint16_t, detail::NearestForm>;
using Grey = detail::GreyMember;
using Bilinear = detail::ColourMember<std::uint8_t, detail::BilinearParams>;
using EdgeSensing = detail::ColourMember<std::uint8_t, detail::EdgeSensingRule>;
using Laplacian = detail::ColourMember<std::uint8_t, detail::LaplacianParams>;
using SmoothHue = detail::ColourMember<std::uint8_t, detail::SmoothHueRule>;
#define QZRCFA_MEMBERS_DECLARE(name, linkage, signature, how, what) QZRCFA_MEMBERS_DECLARE_##how(name, what)
#define QZRCFA_MEMBERS_DECLARE_Runs(name, family) extern const family name;
#define QZRCFA_MEMBERS_DECLARE_Forward(name, target)
#define QZRCFA_MEMBERS_DECLARE_Gate(name, target)
QZRCFA_CATALOGUE(QZRCFA_MEMBERS_DECLARE)

}  // namespace qzrcfa::members

namespace qzrcfa::detail {

// The FastBilinear gate: the call handed to the bilinear export `bilinear` for bitCount
// 24 and 32, -1 for any other.
int fast_bilinear_gate(ColourFn<std::uint8_t> bilinear, unsigned char* src, int width, int height, unsigned char* dst,
                       unsigned short bitCount);

// One call of a member, by its description, with the arguments of its export; rows
// back to back unless `pitches` says otherwise (the extended library's padded rows).
template <class T, class Params>
int run(const ColourMember<T, Params>& m, T* src, int width, int height, T* dst, unsigned short bitCount,
        const Call& call, Pitches pitches) {
    return demosaic(m, src, width, height, dst, bitCount, call, pitches);
}

template <class T, class Params>
int run(const ColourMember<T, Params>& m, T* src, int width, int height, T* dst, unsigned short bitCount,
        const Call& call) {
    return demosaic(m, src, width, height, dst, bitCount, call, compact(width, pixel_stride(bitCount)));
}

template <class T>
int run(const GreyMember& m, T* src, int width, int height, T* dst, const Call& call, Pitches pitches) {
    return grey(m, src, width, height, dst, call, pitches);
}

template <class T>
int run(const GreyMember& m, T* src, int width, int height, T* dst, const Call& call) {
    return grey(m, src, width, height, dst, call, compact(width, 1));
}

template <class T>
int run(const Edge1Member& m, T* src, int width, int height, T* dst, unsigned short bitCount, const Call&,
        Pitches pitches) {
    return border_fill(m, src, width, height, dst, bitCount, pitches);
}

template <class T>
int run(const Edge1Member& m, T* src, int width, int height, T* dst, unsigned short bitCount, const Call& call) {
    return run(m, src, width, height, dst, bitCount, call, compact(width, pixel_stride(bitCount)));
}

inline int run(const Edge2Member& m, std::uint8_t* src, int width, int height, std::uint8_t* dst,
               unsigned short bitCount, const Call&, Pitches pitches) {
    return border_fill(m, src, width, height, dst, bitCount, pitches);
}

inline int run(const Edge2Member& m, std::uint8_t* src, int width, int height, std::uint8_t* dst,
               unsigned short bitCount, const Call& call) {
    return run(m, src, width, height, dst, bitCount, call, compact(width, pixel_stride(bitCount)));
}

}  // namespace qzrcfa::detail
