// Shared benchmark machinery. Each family registers its exports with
// register_colour8() (or the 16-bit/grey variants) from a static initialiser in its
// own bench_*.cpp; every export then runs at 640x480, 1920x1080 and 4000x3000 with
// 24- and 32-bit output, next to the floor kernel for the same size, and the report
// shows megapixels per second and the ratio to the floor.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>

namespace qzrcfa::bench {

using Colour8 = int (*)(unsigned char*, int, int, unsigned char*, unsigned short);
using Colour16 = int (*)(unsigned short*, int, int, unsigned short*, unsigned short);
using Grey8 = int (*)(unsigned char*, int, int, unsigned char*);
using Grey16 = int (*)(unsigned short*, int, int, unsigned short*);

// Returns a value so it can initialise a namespace-scope variable.
bool register_colour8(const std::string& name, Colour8 fn);
bool register_colour16(const std::string& name, Colour16 fn);
bool register_grey8(const std::string& name, Grey8 fn);
bool register_grey16(const std::string& name, Grey16 fn);

}  // namespace qzrcfa::bench
