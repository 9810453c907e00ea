// Preloaded in front of the library by the interposition test. Each function below
// stands in for the export of the same name: it counts the call, notes whether the
// first (width * height * bitCount) / 8 bytes of dst were all 255 when it was called,
// and forwards it, unchanged, to the next definition in the search order (the
// library's own).
#include <dlfcn.h>

#include <algorithm>
#include <cstring>

namespace {

struct Counter {
    const char* name;
    int calls;
    bool prefilled;  // at the last call
};

// Every export that some library function is expected to reach through its entry point.
Counter counters[] = {
    {"QZRCFA_NearestNeighbor_Edge1_RGGB", 0, false},
    {"QZRCFA_NearestNeighbor_Edge1_RGGB_Flip", 0, false},
    {"QZRCFA_NearestNeighbor_Edge1_RGGB_16Bits", 0, false},
    {"QZRCFA_NearestNeighbor_Edge2_RGGB", 0, false},
    {"QZRCFA_Bilinear_RGGB", 0, false},
    {"QZRCFA_Bilinear_GBRG_Flip", 0, false},
    {"QZRCFA_EdgeSensing2_RGGB", 0, false},
    {"QZRCFA_EdgeSensing2_RGGB_Flip", 0, false},
    {"QZRCFA_NearestNeighbor_RGGB_Gray_Flip", 0, false},
    {"QZRCFA_NearestNeighbor_RGGB_Gray_Flip_16Bits", 0, false},
};

Counter& counter(const char* name) {
    for (Counter& c : counters)
        if (std::strcmp(c.name, name) == 0) return c;
    static Counter unknown{};
    return unknown;
}

template <class Fn>
Fn next(const char* name) {
    return reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" {

// Calls seen so far by the stand-in for `name` (-1 for a name not interposed).
int qzrcfa_shim_calls(const char* name) {
    for (const Counter& c : counters)
        if (std::strcmp(c.name, name) == 0) return c.calls;
    return -1;
}

// Whether dst held the 255 pre-fill when the stand-in for `name` was last called.
bool qzrcfa_shim_prefilled(const char* name) { return counter(name).prefilled; }

#define QZRCFA_SHIM_COLOUR(T, NAME)                                                  \
    int NAME(T* src, int width, int height, T* dst, unsigned short bitCount) {      \
        Counter& c = counter(#NAME);                                                 \
        const auto* bytes = reinterpret_cast<const unsigned char*>(dst);             \
        const long n = long(width) * height * bitCount / 8;                          \
        c.prefilled = std::all_of(bytes, bytes + n, [](unsigned char b) { return b == 255; }); \
        ++c.calls;                                                                   \
        using Fn = int (*)(T*, int, int, T*, unsigned short);                        \
        return next<Fn>(#NAME)(src, width, height, dst, bitCount);                   \
    }
#define QZRCFA_SHIM_GREY(T, NAME)                                                    \
    int NAME(T* src, int width, int height, T* dst) {                                \
        ++counter(#NAME).calls;                                                      \
        using Fn = int (*)(T*, int, int, T*);                                        \
        return next<Fn>(#NAME)(src, width, height, dst);                             \
    }

QZRCFA_SHIM_COLOUR(unsigned char, QZRCFA_NearestNeighbor_Edge1_RGGB)
QZRCFA_SHIM_COLOUR(unsigned char, QZRCFA_NearestNeighbor_Edge1_RGGB_Flip)
QZRCFA_SHIM_COLOUR(unsigned short, QZRCFA_NearestNeighbor_Edge1_RGGB_16Bits)
QZRCFA_SHIM_COLOUR(unsigned char, QZRCFA_NearestNeighbor_Edge2_RGGB)
QZRCFA_SHIM_COLOUR(unsigned char, QZRCFA_Bilinear_RGGB)
QZRCFA_SHIM_COLOUR(unsigned char, QZRCFA_Bilinear_GBRG_Flip)
QZRCFA_SHIM_COLOUR(unsigned char, QZRCFA_EdgeSensing2_RGGB)
QZRCFA_SHIM_COLOUR(unsigned char, QZRCFA_EdgeSensing2_RGGB_Flip)
QZRCFA_SHIM_GREY(unsigned char, QZRCFA_NearestNeighbor_RGGB_Gray_Flip)
QZRCFA_SHIM_GREY(unsigned short, QZRCFA_NearestNeighbor_RGGB_Gray_Flip_16Bits)

}  // extern "C"
