// The extended library's runners: a member on several threads, unless the application
// has interposed its export (or, for a member that forwards to another, either of
// them), in which case the caller calls the export so that the interposer sees it.
#include "ext/runners.h"

#include <dlfcn.h>

#include <cstring>

#include "detail/border.h"
#include "detail/kernels.h"
#include "ext/gbri.h"
#include "ext/members.h"
#include "ext/pool.h"

namespace qzrcfa::ext {

const void* library_definition(const char* name) {
    // libqzrcfa is one of this library's dependencies, so it is loaded; a handle to it
    // looks names up in libqzrcfa and its own dependencies, not in front of it.
    static void* const library = dlopen(QZRCFA_CORE_SONAME, RTLD_LAZY | RTLD_NOLOAD);
    return library != nullptr ? dlsym(library, name) : nullptr;
}

namespace {

using Colour8Runner = int (*)(unsigned char*, int, int, unsigned char*, unsigned short, const detail::Tasks*);
using Colour16Runner = int (*)(unsigned short*, int, int, unsigned short*, unsigned short, const detail::Tasks*);
using Grey8Runner = int (*)(unsigned char*, int, int, unsigned char*, const detail::Tasks*);
using Grey16Runner = int (*)(unsigned short*, int, int, unsigned short*, const detail::Tasks*);

// An export, its name in libqzrcfa's symbol table, the runner of its member, and for a
// member that forwards, the export it forwards to.
template <class Runner>
struct Entry {
    const void* exported;
    const char* name;
    Runner runner;
    const char* forwards_to = nullptr;
};

#define QZRCFA_ENTRY(name) {reinterpret_cast<const void*>(QZRCFA_##name), "QZRCFA_" #name, qzrcfa_run_##name},
const Entry<Colour8Runner> kColour8[] = {
    QZRCFA_COLOUR8_MEMBERS(QZRCFA_ENTRY)
    {reinterpret_cast<const void*>(QZRCFA_EdgeSensing1_RGGB), "QZRCFA_EdgeSensing1_RGGB", qzrcfa_run_EdgeSensing2_RGGB,
     "QZRCFA_EdgeSensing2_RGGB"},
    {reinterpret_cast<const void*>(QZRCFA_EdgeSensing1_RGGB_Flip), "QZRCFA_EdgeSensing1_RGGB_Flip",
     qzrcfa_run_EdgeSensing2_RGGB_Flip, "QZRCFA_EdgeSensing2_RGGB_Flip"},
};
const Entry<Colour16Runner> kColour16[] = {QZRCFA_COLOUR16_MEMBERS(QZRCFA_ENTRY)};
const Entry<Grey8Runner> kGrey8[] = {
    QZRCFA_GREY8_MEMBERS(QZRCFA_ENTRY)
    {reinterpret_cast<const void*>(QZRCFA_NearestNeighbor_BGGR_Gray_Flip), "QZRCFA_NearestNeighbor_BGGR_Gray_Flip",
     qzrcfa_run_NearestNeighbor_RGGB_Gray_Flip, "QZRCFA_NearestNeighbor_RGGB_Gray_Flip"},
    {reinterpret_cast<const void*>(QZRCFA_NearestNeighbor_GRBG_Gray_Flip), "QZRCFA_NearestNeighbor_GRBG_Gray_Flip",
     qzrcfa_run_NearestNeighbor_RGGB_Gray_Flip, "QZRCFA_NearestNeighbor_RGGB_Gray_Flip"},
    {reinterpret_cast<const void*>(QZRCFA_NearestNeighbor_GBRG_Gray_Flip), "QZRCFA_NearestNeighbor_GBRG_Gray_Flip",
     qzrcfa_run_NearestNeighbor_RGGB_Gray_Flip, "QZRCFA_NearestNeighbor_RGGB_Gray_Flip"},
};
const Entry<Grey16Runner> kGrey16[] = {
    QZRCFA_GREY16_MEMBERS(QZRCFA_ENTRY)
    {reinterpret_cast<const void*>(QZRCFA_NearestNeighbor_BGGR_Gray_Flip_16Bits), "QZRCFA_NearestNeighbor_BGGR_Gray_Flip_16Bits",
     qzrcfa_run_NearestNeighbor_RGGB_Gray_Flip_16Bits, "QZRCFA_NearestNeighbor_RGGB_Gray_Flip_16Bits"},
    {reinterpret_cast<const void*>(QZRCFA_NearestNeighbor_GRBG_Gray_Flip_16Bits), "QZRCFA_NearestNeighbor_GRBG_Gray_Flip_16Bits",
     qzrcfa_run_NearestNeighbor_RGGB_Gray_Flip_16Bits, "QZRCFA_NearestNeighbor_RGGB_Gray_Flip_16Bits"},
    {reinterpret_cast<const void*>(QZRCFA_NearestNeighbor_GBRG_Gray_Flip_16Bits), "QZRCFA_NearestNeighbor_GBRG_Gray_Flip_16Bits",
     qzrcfa_run_NearestNeighbor_RGGB_Gray_Flip_16Bits, "QZRCFA_NearestNeighbor_RGGB_Gray_Flip_16Bits"},
};
#undef QZRCFA_ENTRY

// Laplacian2 has C++ linkage: its name in the symbol table is the decorated one.
const char* symbol_name(const char* name) {
    return std::strcmp(name, "QZRCFA_Laplacian2_RGGB") == 0 ? "_Z22QZRCFA_Laplacian2_RGGBPhiiS_t" : name;
}

// Whether an exported name reaches libqzrcfa's own definition.
bool own(const char* name, const void* resolved) { return library_definition(symbol_name(name)) == resolved; }

template <class Runner, std::size_t N>
Runner find_runner(const Entry<Runner> (&table)[N], const void* exported) {
    for (const Entry<Runner>& e : table) {
        if (e.exported != exported) continue;
        if (!own(e.name, e.exported)) return nullptr;
        if (e.forwards_to != nullptr && !own(e.forwards_to, dlsym(RTLD_DEFAULT, e.forwards_to))) return nullptr;
        return e.runner;
    }
    return nullptr;
}

}  // namespace

bool run_member(const void* exported, void* src, int width, int height, void* dst, unsigned short bitCount, int threads) {
    const CallTasks tasks(threads);
    using u8 = unsigned char;
    using u16 = unsigned short;
    if (Colour8Runner r = find_runner(kColour8, exported)) return r(static_cast<u8*>(src), width, height, static_cast<u8*>(dst), bitCount, &tasks), true;
    if (Colour16Runner r = find_runner(kColour16, exported)) return r(static_cast<u16*>(src), width, height, static_cast<u16*>(dst), bitCount, &tasks), true;
    if (Grey8Runner r = find_runner(kGrey8, exported)) return r(static_cast<u8*>(src), width, height, static_cast<u8*>(dst), &tasks), true;
    if (Grey16Runner r = find_runner(kGrey16, exported)) return r(static_cast<u16*>(src), width, height, static_cast<u16*>(dst), &tasks), true;
    return false;
}

void run_gbri(const void* raw, int depth, int width, int height, int pattern, void* out, int stride, bool bottom_up,
              int threads) {
    const CallTasks tasks(threads);
    const auto p = detail::Pattern(pattern);
    if (depth == 8) gbri(static_cast<const std::uint8_t*>(raw), width, height, p, static_cast<std::uint8_t*>(out), stride, bottom_up, &tasks);
    else gbri(static_cast<const std::uint16_t*>(raw), width, height, p, static_cast<std::uint16_t*>(out), stride, bottom_up, &tasks);
}

const char* instruction_set() { return detail::isa_name(detail::best_isa()); }

}  // namespace qzrcfa::ext

namespace qzrcfa::detail {

// The border fills are libqzrcfa's: its own unless interposed in front of it.
bool border_is_own(Border id, const void* exported) {
#define QZRCFA_BORDER_NAME(suffix, T) "QZRCFA_NearestNeighbor_" #suffix,
    static constexpr const char* kNames[] = {QZRCFA_BORDER_FILLS(QZRCFA_BORDER_NAME)};
#undef QZRCFA_BORDER_NAME
    return ext::library_definition(kNames[int(id)]) == exported;
}

}  // namespace qzrcfa::detail

