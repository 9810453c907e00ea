// Turning a full-colour image into the raw frame a Bayer sensor would have recorded.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "image_io.h"

namespace qzrcfa::tools {

// Keeps, at every pixel, the one colour the pattern (e.g. "RGGB") measures there.
inline std::vector<std::uint8_t> mosaic(const Image& rgb, const std::string& pattern) {
    if (rgb.channels < 3) throw std::runtime_error("mosaic: the image must have colour channels");
    if (pattern != "RGGB" && pattern != "BGGR" && pattern != "GRBG" && pattern != "GBRG")
        throw std::runtime_error("mosaic: unknown pattern '" + pattern + "'");
    std::vector<std::uint8_t> raw(std::size_t(rgb.width) * std::size_t(rgb.height));
    for (int r = 0; r < rgb.height; ++r) {
        for (int c = 0; c < rgb.width; ++c) {
            const char colour = pattern[std::size_t((r & 1) * 2 + (c & 1))];
            const int channel = colour == 'R' ? 0 : colour == 'G' ? 1 : 2;
            const std::size_t p = std::size_t(r) * std::size_t(rgb.width) + std::size_t(c);
            raw[p] = rgb.pixels[p * std::size_t(rgb.channels) + std::size_t(channel)];
        }
    }
    return raw;
}

}  // namespace qzrcfa::tools
