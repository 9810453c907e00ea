// Run-time choice of instruction set for the row kernels.
//
// The library is built for the x86-64 baseline (SSE2). Kernels for wider instruction
// sets are compiled with GCC target attributes in the same translation unit and chosen
// per call from what the processor reports; the library keeps no state of its own for
// this (the processor description is the compiler runtime's).
#pragma once

namespace qzrcfa::detail {

enum class Isa { Scalar, SSE2, AVX2 };

inline Isa best_isa() {
#if defined(__x86_64__) || defined(__i386__)
    if (__builtin_cpu_supports("avx2")) return Isa::AVX2;
#if defined(__SSE2__)
    return Isa::SSE2;
#endif
#endif
    return Isa::Scalar;
}

inline bool isa_available(Isa isa) {
    switch (isa) {
    case Isa::Scalar: return true;
#if defined(__x86_64__) || defined(__i386__)
    case Isa::SSE2:
#if defined(__SSE2__)
        return true;
#else
        return __builtin_cpu_supports("sse2");
#endif
    case Isa::AVX2: return __builtin_cpu_supports("avx2");
#else
    default: return false;
#endif
    }
    return false;
}

}  // namespace qzrcfa::detail
