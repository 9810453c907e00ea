// Colour fidelity of a demosaiced image against the photograph it was mosaiced from.
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>

#include "image_io.h"

namespace qzrcfa::tools {

// Mean squared error over the red, green and blue samples of two 8-bit images of the
// same size, leaving out `border` pixels on every side (the outer ring, which the
// methods fill by copying rather than interpolating). A fourth channel is ignored.
// Returns NaN when nothing is left to compare.
inline double colour_mse(const Image& a, const Image& b, int border) {
    if (a.width != b.width || a.height != b.height || a.channels < 3 || b.channels < 3) return std::nan("");
    double sum = 0;
    std::uint64_t n = 0;
    for (int y = border; y < a.height - border; ++y) {
        for (int x = border; x < a.width - border; ++x) {
            const std::size_t p = std::size_t(y) * std::size_t(a.width) + std::size_t(x);
            for (std::size_t ch = 0; ch < 3; ++ch) {
                const double d = double(a.pixels[p * std::size_t(a.channels) + ch]) - double(b.pixels[p * std::size_t(b.channels) + ch]);
                sum += d * d;
                ++n;
            }
        }
    }
    return n ? sum / double(n) : std::nan("");
}

// Colour PSNR in decibels for 8-bit samples: 10 log10(255^2 / MSE); infinite for
// identical images.
inline double colour_psnr(const Image& a, const Image& b, int border) {
    const double mse = colour_mse(a, b, border);
    if (std::isnan(mse)) return mse;
    if (mse == 0) return std::numeric_limits<double>::infinity();
    return 10.0 * std::log10(255.0 * 255.0 / mse);
}

}  // namespace qzrcfa::tools
