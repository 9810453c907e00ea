// Which kernel set a call runs: the widest whose instruction set the processor reports.
// The processor's description belongs to the compiler runtime, which reads it when the
// library is loaded; the library keeps nothing of its own and asks on every call.
// Compiled for the baseline, like everything outside the target files.
#include "detail/kernels.h"

#if defined(__x86_64__) && defined(__GLIBC__)
#include <unistd.h>
#endif

namespace qzrcfa::detail {
namespace {

template <class T, class Params>
int leave_all(const Row<T>&, const Params&, int c) {
    return c;
}

int gbri_leave_all(const GbriRow&, int x) { return x; }

int quotients_leave_all(const float*, const float*, float*, int) { return 0; }

// Every column to the references.
constexpr KernelSet kScalarKernels = {
    leave_all<std::uint8_t, NearestForm>,      leave_all<std::uint16_t, NearestForm>,
    leave_all<std::uint8_t, NoParams>,         leave_all<std::uint16_t, NoParams>,
    leave_all<std::uint8_t, NoParams>,         leave_all<std::uint8_t, EdgeSensingRule>,
    leave_all<std::uint8_t, LaplacianParams>,  leave_all<std::uint8_t, LaplacianParams>,
    leave_all<std::uint8_t, SmoothHueRule>,    leave_all<std::uint8_t, SmoothHueRule>,
    {gbri_leave_all, gbri_leave_all, gbri_leave_all, gbri_leave_all, gbri_leave_all, gbri_leave_all, gbri_leave_all,
     gbri_leave_all, gbri_leave_all, gbri_leave_all, gbri_leave_all, gbri_leave_all, gbri_leave_all, gbri_leave_all},
    quotients_leave_all,
};

struct Target {
    Isa isa;
    const KernelSet* kernels;
};

// Narrowest first, as the Isa enumeration lists them.
constexpr Target kTargets[] = {
    {Isa::Scalar, &kScalarKernels},
#if defined(__x86_64__)
    {Isa::SSE2, &kSse2Kernels},
    {Isa::AVX2, &kAvx2Kernels},
    {Isa::AVX512BW, &kAvx512bwKernels},
    {Isa::AVX512VBMI, &kAvx512vbmiKernels},
#elif defined(__aarch64__)
    {Isa::NEON, &kNeonKernels},
#endif
};

const Target* find(Isa isa) {
    for (const Target& t : kTargets)
        if (t.isa == isa) return &t;
    return nullptr;
}

bool processor_runs(Isa isa) {
    switch (isa) {
    case Isa::Scalar: return true;
#if defined(__x86_64__)
    case Isa::SSE2: return true;  // the x86-64 baseline
    case Isa::AVX2: return __builtin_cpu_supports("avx2");
    case Isa::AVX512BW:
        return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vl");
    case Isa::AVX512VBMI: return processor_runs(Isa::AVX512BW) && __builtin_cpu_supports("avx512vbmi");
#elif defined(__aarch64__)
    case Isa::NEON: return true;  // part of the aarch64 baseline
#endif
    default: return false;
    }
}

}  // namespace

const char* isa_name(Isa isa) {
    static constexpr const char* kNames[] = {"scalar", "sse2", "avx2", "avx512bw", "avx512vbmi", "neon"};
    return kNames[int(isa)];
}

bool isa_available(Isa isa) { return find(isa) != nullptr && processor_runs(isa); }

Isa best_isa() {
    Isa best = Isa::Scalar;
    for (const Target& t : kTargets)
        if (processor_runs(t.isa)) best = t.isa;
    return best;
}

// Where the C library's memcpy starts to store past the cache: three quarters of the
// last-level cache, as glibc reckons it. The C library reads the cache sizes with the
// processor's description when it starts; on x86-64 glibc sysconf answers from there
// without touching a file.
std::size_t streaming_threshold() {
#if defined(__x86_64__) && defined(__GLIBC__) && defined(_SC_LEVEL3_CACHE_SIZE)
    const long bytes = sysconf(_SC_LEVEL3_CACHE_SIZE);
    return bytes > 0 ? std::size_t(bytes) / 4 * 3 : 0;
#else
    return 0;
#endif
}

const KernelSet& kernel_set(Isa isa) { return isa_available(isa) ? *find(isa)->kernels : kScalarKernels; }

}  // namespace qzrcfa::detail
