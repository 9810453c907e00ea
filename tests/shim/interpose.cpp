// Preloaded in front of the library by the interposition test. Each function below
// stands in for the export of the same name: it counts the call and forwards it,
// unchanged, to the next definition in the search order (the library's own).
#include <dlfcn.h>

#include <cstring>

namespace {

struct Counter {
    const char* name;
    int calls;
};

// Every export that some library function is expected to reach through its entry point.
Counter counters[] = {
    {"QZRCFA_NearestNeighbor_Edge1_RGGB", 0},
    {"QZRCFA_NearestNeighbor_Edge1_RGGB_Flip", 0},
    {"QZRCFA_NearestNeighbor_Edge1_RGGB_16Bits", 0},
    {"QZRCFA_NearestNeighbor_Edge2_RGGB", 0},
    {"QZRCFA_Bilinear_RGGB", 0},
    {"QZRCFA_Bilinear_GBRG_Flip", 0},
    {"QZRCFA_EdgeSensing2_RGGB", 0},
    {"QZRCFA_EdgeSensing2_RGGB_Flip", 0},
    {"QZRCFA_NearestNeighbor_RGGB_Gray_Flip", 0},
    {"QZRCFA_NearestNeighbor_RGGB_Gray_Flip_16Bits", 0},
};

int& counter(const char* name) {
    for (Counter& c : counters)
        if (std::strcmp(c.name, name) == 0) return c.calls;
    static int unknown = 0;
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

#define QZRCFA_SHIM_COLOUR(T, NAME)                                                  \
    int NAME(T* src, int width, int height, T* dst, unsigned short bitCount) {      \
        ++counter(#NAME);                                                            \
        using Fn = int (*)(T*, int, int, T*, unsigned short);                        \
        return next<Fn>(#NAME)(src, width, height, dst, bitCount);                   \
    }
#define QZRCFA_SHIM_GREY(T, NAME)                                                    \
    int NAME(T* src, int width, int height, T* dst) {                                \
        ++counter(#NAME);                                                            \
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
