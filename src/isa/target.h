// The body of every instruction-set target file (src/isa/<set>.cpp), which defines
// QZRCFA_TARGET (its row's name in isa/targets.def) and QZRCFA_PIXELS (its pixel
// layer) and includes this. The build compiles a target file with its row's flags; it
// includes, inside a namespace of its own, its pixel layer, the SIMD toolkit, the
// families' kernels and the general rule's, which become its kernel set,
// isa_kernels_<set>. Everything else it compiles
// has internal linkage, so nothing built for a wider instruction set can stand in for
// code of the baseline.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

#if defined(__x86_64__)
#include <immintrin.h>
#elif defined(__aarch64__)
#include <arm_neon.h>
#endif

#include "kernels/bayer.h"
#include "kernels/kernels.h"

// Lambdas that a kernel runs per block are inlined into it like every helper.
#define QZRCFA_LAMBDA_INLINE __attribute__((always_inline))

// Vectors wider than the baseline's registers pass only between inlined functions of
// one target file, so the note that their calling convention differs does not apply.
#pragma GCC diagnostic ignored "-Wpsabi"

// GCC 12's AVX-512 intrinsics headers start several intrinsics from a deliberately
// undefined vector, which its own uninitialised-use warnings then report. The same
// kernels compiled for the other instruction sets are checked for that warning.
#if defined(__AVX512F__) && defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#pragma GCC diagnostic ignored "-Wuninitialized"
#endif

#define QZRCFA_PASTE_(a, b) a##b
#define QZRCFA_PASTE(a, b) QZRCFA_PASTE_(a, b)

namespace qzrcfa::QZRCFA_TARGET {
namespace {
using namespace qzrcfa::detail;
#include QZRCFA_PIXELS
#include "isa/simd-inl.h"
#include "isa/kernels-inl.h"
#include "isa/general-inl.h"

constexpr KernelSet with_general(KernelSet set, const GeneralKernels& general) {
    set.general = general;
    return set;
}
}  // namespace
}  // namespace qzrcfa::QZRCFA_TARGET

constinit const qzrcfa::detail::KernelSet qzrcfa::detail::QZRCFA_PASTE(isa_kernels_, QZRCFA_TARGET) =
    qzrcfa::QZRCFA_TARGET::with_general(qzrcfa::QZRCFA_TARGET::kKernelSet, qzrcfa::QZRCFA_TARGET::kGeneralKernels);
