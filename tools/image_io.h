// Reading and writing the image files the tools use: PNG (through libpng) and the
// netpbm formats PGM/PPM. Errors are reported as std::runtime_error with a message
// that names the file and what is wrong with it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace qzrcfa::tools {

// An interleaved 8-bit image: channels 1 (grey), 3 (R, G, B) or 4 (R, G, B, A).
struct Image {
    int width = 0;
    int height = 0;
    int channels = 0;
    std::vector<std::uint8_t> pixels;
};

Image read_png(const std::string& path);
void write_png(const std::string& path, const Image& image);

Image read_pnm(const std::string& path);   // binary PGM (P5) or PPM (P6), maxval <= 255
void write_pnm(const std::string& path, const Image& image);  // P5 for one channel, P6 for three

// By extension: .png, .pgm, .ppm, .pnm.
Image read_image(const std::string& path);
void write_image(const std::string& path, const Image& image);

// B, G, R (and a fourth element) as the library writes them, to an R, G, B image.
Image from_bgr(const std::uint8_t* bgr, int width, int height, int stride);

}  // namespace qzrcfa::tools
