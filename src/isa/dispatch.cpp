// Which kernel set a call runs: the widest whose instruction set the processor reports,
// from the rows of isa/targets.def. The processor's description belongs to the compiler
// runtime (x86-64) or the kernel (aarch64), which give it when the library is loaded;
// the library keeps nothing of its own and asks on every call. Compiled for the
// baseline, like everything outside the target files.
#include "kernels/kernels.h"

#if defined(__x86_64__) && defined(__GLIBC__)
#include <unistd.h>
#endif
#if defined(__aarch64__)
#include <asm/hwcap.h>
#include <sys/auxv.h>
#endif

// Whether the processor reports every feature of a row, for the architecture this
// library is built for; false for a row of another architecture.
#define QZRCFA_EACH_1(f, ...) &&QZRCFA_HAS(f) __VA_OPT__(QZRCFA_EACH_2(__VA_ARGS__))
#define QZRCFA_EACH_2(f, ...) &&QZRCFA_HAS(f) __VA_OPT__(QZRCFA_EACH_3(__VA_ARGS__))
#define QZRCFA_EACH_3(f, ...) &&QZRCFA_HAS(f) __VA_OPT__(QZRCFA_EACH_4(__VA_ARGS__))
#define QZRCFA_EACH_4(f, ...) &&QZRCFA_HAS(f) __VA_OPT__(QZRCFA_EACH_5(__VA_ARGS__))
#define QZRCFA_EACH_5(f, ...) &&QZRCFA_HAS(f) __VA_OPT__(QZRCFA_EACH_6(__VA_ARGS__))
#define QZRCFA_EACH_6(f, ...) &&QZRCFA_HAS(f) __VA_OPT__(QZRCFA_TOO_MANY_FEATURES)
#define QZRCFA_ALL(...) (true __VA_OPT__(QZRCFA_EACH_1(__VA_ARGS__)))
#define QZRCFA_NONE(...) false
#if defined(__x86_64__)
#define QZRCFA_HAS(f) __builtin_cpu_supports(#f)
#define QZRCFA_PROBE_x86_64 QZRCFA_ALL
#define QZRCFA_PROBE_aarch64 QZRCFA_NONE
#elif defined(__aarch64__)
#define QZRCFA_HAS(f) ((getauxval(AT_HWCAP) & HWCAP_##f) != 0)
#define QZRCFA_PROBE_x86_64 QZRCFA_NONE
#define QZRCFA_PROBE_aarch64 QZRCFA_ALL
#else
#define QZRCFA_PROBE_x86_64 QZRCFA_NONE
#define QZRCFA_PROBE_aarch64 QZRCFA_NONE
#endif

namespace qzrcfa::detail {

namespace {

constexpr KernelSet kScalarKernels{};

struct Target {
    Isa isa;
    const char* name;
    const KernelSet* kernels;  // null: another architecture's
    bool (*runs)();            // whether the processor runs it
};

#if defined(__x86_64__)
#define QZRCFA_KERNELS_x86_64(name) &isa_kernels_##name
#define QZRCFA_KERNELS_aarch64(name) nullptr
#elif defined(__aarch64__)
#define QZRCFA_KERNELS_x86_64(name) nullptr
#define QZRCFA_KERNELS_aarch64(name) &isa_kernels_##name
#else
#define QZRCFA_KERNELS_x86_64(name) nullptr
#define QZRCFA_KERNELS_aarch64(name) nullptr
#endif

#define QZRCFA_ISA(name, architecture, flags, features) \
    {Isa::name, #name, QZRCFA_KERNELS_##architecture(name), [] { return QZRCFA_PROBE_##architecture features; }},
const Target kTargets[] = {
    {Isa::scalar, "scalar", &kScalarKernels, [] { return true; }},
#include "isa/targets.def"
};
#undef QZRCFA_ISA

static_assert(std::size(kTargets) == std::size(kIsas), "one target per instruction set");

const Target& target(Isa isa) { return kTargets[int(isa)]; }

}  // namespace

const char* isa_name(Isa isa) { return target(isa).name; }

bool isa_available(Isa isa) { return target(isa).kernels != nullptr && target(isa).runs(); }

Isa best_isa() {
    Isa best = Isa::scalar;
    for (const Target& t : kTargets)
        if (t.kernels != nullptr && t.runs()) best = t.isa;
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

const KernelSet& kernel_set(Isa isa) { return isa_available(isa) ? *target(isa).kernels : kScalarKernels; }

}  // namespace qzrcfa::detail
