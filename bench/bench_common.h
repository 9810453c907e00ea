// Shared benchmark machinery. Every export runs at 640x480, 1920x1080 and 4000x3000,
// colour members with 24- and 32-bit output, on a mosaic of the bundled photograph
// tiled to the frame's size, next to a floor kernel for the same size and, when the
// build found OpenCV, OpenCV's Bayer conversions; the report shows megapixels per
// second and each row's ratio to the floor and to OpenCV's bilinear conversion.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace qzrcfa::bench {

struct Size {
    int width, height;
};
inline constexpr Size kSizes[] = {{640, 480}, {1920, 1080}, {4000, 3000}};

// The bundled photograph's mosaic tiled to width x height; 16-bit frames scale it to
// the full 16-bit range.
const std::vector<std::uint8_t>& mosaic8(int width, int height);
const std::vector<std::uint16_t>& mosaic16(int width, int height);

// The camera route: the photograph's mosaic as 12-bit samples packed as MIPI CSI-2 RAW12
// (2 samples in 3 bytes), with the black level and white-balance gains the route and
// the library both apply.
const std::vector<std::uint8_t>& mosaic_raw12(int width, int height);
inline constexpr int kRawBlack = 64;
inline constexpr float kRawGains[3] = {1.75f, 1.0f, 1.5f};  // red, green, blue

// A benchmark run once per size (and pixel size: 0 for grey or one element per pixel,
// else 24 or 32), named family/WxH[/bits]. `body` runs one call.
using Body = std::function<void(const Size&, int bits, benchmark::State&)>;
void add(const std::string& family, bool colour, Body body);

// Rows of `family` also show `counter`: their time over that of `baseline`'s row of the
// same size and pixel size.
void compare(const std::string& family, const std::string& counter, const std::string& baseline);

}  // namespace qzrcfa::bench
