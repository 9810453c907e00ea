// Side-by-side comparison of demosaicing results: a detailed crop of the frame is cut
// from every result, enlarged without smoothing so single pixels stay visible, labelled
// and laid out on a grid.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "font.h"
#include "image_io.h"

namespace qzrcfa::tools {

struct Crop {
    int x = 0, y = 0;  // top-left corner, even, so the crop starts on the pattern's first site
    int size = 0;      // width and height
};

// The square window of `size` samples (clipped to the frame) that holds the most
// detail: the largest sum of differences between neighbouring samples of the same
// colour (two apart), which is where demosaicing methods differ most.
inline Crop detailed_crop(const std::uint8_t* raw, int width, int height, int size) {
    size = std::min({size, width, height}) & ~1;
    if (size <= 0) return {0, 0, std::min(width, height)};
    // Integral image of the detail measure.
    const std::size_t W = std::size_t(width) + 1;
    std::vector<std::uint64_t> sum(W * (std::size_t(height) + 1), 0);
    for (int r = 0; r < height; ++r) {
        std::uint64_t row = 0;
        for (int c = 0; c < width; ++c) {
            const std::uint8_t* s = raw + std::size_t(r) * std::size_t(width) + std::size_t(c);
            int d = 0;
            if (c + 2 < width) d += std::abs(int(s[0]) - int(s[2]));
            if (r + 2 < height) d += std::abs(int(s[0]) - int(s[2 * std::size_t(width)]));
            row += std::uint64_t(d);
            sum[std::size_t(r + 1) * W + std::size_t(c + 1)] = sum[std::size_t(r) * W + std::size_t(c + 1)] + row;
        }
    }
    auto window = [&](int x, int y) {
        const std::size_t x0 = std::size_t(x), y0 = std::size_t(y);
        const std::size_t x1 = x0 + std::size_t(size), y1 = y0 + std::size_t(size);
        return sum[y1 * W + x1] - sum[y0 * W + x1] - sum[y1 * W + x0] + sum[y0 * W + x0];
    };
    Crop best{0, 0, size};
    std::uint64_t best_detail = 0;
    const int step = std::max(2, size / 8) & ~1;
    for (int y = 0; y + size <= height; y += step) {
        for (int x = 0; x + size <= width; x += step) {
            const std::uint64_t d = window(x, y);
            if (d > best_detail) {
                best_detail = d;
                best = {x, y, size};
            }
        }
    }
    return best;
}

// The crop of an 8-bit RGB image, each pixel repeated scale x scale times.
inline Image enlarge(const Image& rgb, const Crop& crop, int scale) {
    Image out{crop.size * scale, crop.size * scale, 3, 8, {}, {}};
    out.pixels.resize(std::size_t(out.width) * std::size_t(out.height) * 3);
    for (int y = 0; y < out.height; ++y) {
        for (int x = 0; x < out.width; ++x) {
            const int sx = std::min(crop.x + x / scale, rgb.width - 1), sy = std::min(crop.y + y / scale, rgb.height - 1);
            const std::uint8_t* in = &rgb.pixels[(std::size_t(sy) * std::size_t(rgb.width) + std::size_t(sx)) * std::size_t(rgb.channels)];
            std::copy_n(in, 3, &out.pixels[(std::size_t(y) * std::size_t(out.width) + std::size_t(x)) * 3]);
        }
    }
    return out;
}

// The raw frame as a sensor sees it: every sample shown in the colour of its filter.
inline Image mosaic_view(const std::uint8_t* raw, int width, int height, const std::string& pattern) {
    Image out{width, height, 3, 8, std::vector<std::uint8_t>(std::size_t(width) * std::size_t(height) * 3, 0), {}};
    for (int r = 0; r < height; ++r) {
        for (int c = 0; c < width; ++c) {
            const char colour = pattern[std::size_t((r & 1) * 2 + (c & 1))];
            const int channel = colour == 'R' ? 0 : colour == 'G' ? 1 : 2;
            const std::size_t p = std::size_t(r) * std::size_t(width) + std::size_t(c);
            out.pixels[p * 3 + std::size_t(channel)] = raw[p];
        }
    }
    return out;
}

struct Tile {
    std::string label;
    Image image;  // 8-bit RGB, all tiles the same size
};

// Tiles on a grid of `columns`, each with its label above it, on a dark background.
inline Image montage(const std::vector<Tile>& tiles, int columns) {
    if (tiles.empty()) return {};
    constexpr int kScale = 2, kMargin = 10, kLabelGap = 6;
    const int label_height = kGlyphHeight * kScale + kLabelGap;
    const int tw = tiles.front().image.width, th = tiles.front().image.height;
    columns = std::max(1, std::min(columns, int(tiles.size())));
    const int rows = (int(tiles.size()) + columns - 1) / columns;
    Image out;
    out.width = kMargin + columns * (tw + kMargin);
    out.height = kMargin + rows * (label_height + th + kMargin);
    out.channels = 3;
    out.pixels.assign(std::size_t(out.width) * std::size_t(out.height) * 3, 40);
    const std::uint8_t white[3] = {235, 235, 235};
    for (std::size_t i = 0; i < tiles.size(); ++i) {
        const int x0 = kMargin + int(i % std::size_t(columns)) * (tw + kMargin);
        const int y0 = kMargin + int(i / std::size_t(columns)) * (label_height + th + kMargin);
        draw_text(out, x0, y0, tiles[i].label, kScale, white);
        const Image& t = tiles[i].image;
        for (int y = 0; y < std::min(th, t.height); ++y) {
            std::copy_n(&t.pixels[std::size_t(y) * std::size_t(t.width) * 3], std::size_t(std::min(tw, t.width)) * 3,
                        &out.pixels[(std::size_t(y0 + label_height + y) * std::size_t(out.width) + std::size_t(x0)) * 3]);
        }
    }
    return out;
}

}  // namespace qzrcfa::tools
