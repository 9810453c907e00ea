// How a family file defines its members' entry points.
//
// In the library they are the exported functions of the interface. The extended
// library is built from the same family files with QZRCFA_EXTENDED defined: there each
// member's definition becomes a runner that takes the threads of a parallel call (the
// exports themselves stay the library's, reached through their exported names, and the
// members that only forward to another export have no runner of their own).
#pragma once

#include "detail/frame.h"

#if defined(QZRCFA_EXTENDED)

#define QZRCFA_DEFINE_MEMBER(name, T, member)                                                                   \
    extern "C++" int qzrcfa_run_##name(T* src, int width, int height, T* dst, unsigned short bitCount,        \
                                       const ::qzrcfa::detail::Tasks* tasks) {                                  \
        return ::qzrcfa::detail::demosaic(member, src, width, height, dst, bitCount, tasks);                   \
    }
#define QZRCFA_DEFINE_GREY(name, T, member)                                                                     \
    extern "C++" int qzrcfa_run_##name(T* src, int width, int height, T* dst,                                  \
                                       const ::qzrcfa::detail::Tasks* tasks) {                                  \
        return ::qzrcfa::detail::grey(member, src, width, height, dst, tasks);                                  \
    }

#else

#define QZRCFA_DEFINE_MEMBER(name, T, member)                                                                   \
    QZRCFA_API int QZRCFA_##name(T* src, int width, int height, T* dst, unsigned short bitCount) {             \
        return ::qzrcfa::detail::demosaic(member, src, width, height, dst, bitCount);                           \
    }
#define QZRCFA_DEFINE_GREY(name, T, member)                                                                     \
    QZRCFA_API int QZRCFA_##name(T* src, int width, int height, T* dst) {                                      \
        return ::qzrcfa::detail::grey(member, src, width, height, dst);                                         \
    }

#endif
