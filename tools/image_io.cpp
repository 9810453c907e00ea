#include "image_io.h"

#include <png.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>

namespace qzrcfa::tools {
namespace {

std::string extension(const std::string& path) {
    const auto dot = path.find_last_of('.');
    if (dot == std::string::npos) return "";
    std::string ext = path.substr(dot + 1);
    for (char& ch : ext) ch = char(std::tolower(static_cast<unsigned char>(ch)));
    return ext;
}

struct FileCloser {
    void operator()(std::FILE* f) const {
        if (f) std::fclose(f);
    }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

File open_file(const std::string& path, const char* mode) {
    File f(std::fopen(path.c_str(), mode));
    if (!f) throw std::runtime_error(path + ": cannot open");
    return f;
}

[[noreturn]] void png_fail(png_structp png, png_const_charp message) {
    throw std::runtime_error(std::string(static_cast<const char*>(png_get_error_ptr(png))) + ": " + message);
}
void png_warn(png_structp, png_const_charp) {}

}  // namespace

Image read_png(const std::string& path) {
    File f = open_file(path, "rb");
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, const_cast<char*>(path.c_str()), png_fail, png_warn);
    png_infop info = png_create_info_struct(png);
    Image image;
    try {
        png_init_io(png, f.get());
        png_read_info(png, info);
        png_set_strip_16(png);
        png_set_packing(png);
        png_set_palette_to_rgb(png);
        png_set_expand_gray_1_2_4_to_8(png);
        png_read_update_info(png, info);
        image.width = int(png_get_image_width(png, info));
        image.height = int(png_get_image_height(png, info));
        image.channels = int(png_get_channels(png, info));
        if (image.channels == 2) throw std::runtime_error(path + ": grey with alpha is not supported");
        const std::size_t row_bytes = png_get_rowbytes(png, info);
        image.pixels.resize(row_bytes * std::size_t(image.height));
        std::vector<png_bytep> rows(std::size_t(image.height));
        for (int y = 0; y < image.height; ++y) rows[std::size_t(y)] = image.pixels.data() + row_bytes * std::size_t(y);
        png_read_image(png, rows.data());
    } catch (...) {
        png_destroy_read_struct(&png, &info, nullptr);
        throw;
    }
    png_destroy_read_struct(&png, &info, nullptr);
    return image;
}

void write_png(const std::string& path, const Image& image) {
    File f = open_file(path, "wb");
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, const_cast<char*>(path.c_str()), png_fail, png_warn);
    png_infop info = png_create_info_struct(png);
    try {
        png_init_io(png, f.get());
        const int type = image.channels == 1 ? PNG_COLOR_TYPE_GRAY
                         : image.channels == 3 ? PNG_COLOR_TYPE_RGB
                                               : PNG_COLOR_TYPE_RGB_ALPHA;
        png_set_IHDR(png, info, png_uint_32(image.width), png_uint_32(image.height), 8, type, PNG_INTERLACE_NONE,
                     PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
        png_write_info(png, info);
        const std::size_t row_bytes = std::size_t(image.width) * std::size_t(image.channels);
        for (int y = 0; y < image.height; ++y)
            png_write_row(png, const_cast<png_bytep>(image.pixels.data() + row_bytes * std::size_t(y)));
        png_write_end(png, nullptr);
    } catch (...) {
        png_destroy_write_struct(&png, &info);
        throw;
    }
    png_destroy_write_struct(&png, &info);
}

Image read_pnm(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw std::runtime_error(path + ": cannot open");
    std::string magic;
    in >> magic;
    auto next_number = [&]() {
        in >> std::ws;
        while (in.peek() == '#') {
            std::string comment;
            std::getline(in, comment);
            in >> std::ws;
        }
        long value = -1;
        in >> value;
        if (!in || value < 0) throw std::runtime_error(path + ": malformed header");
        return value;
    };
    Image image;
    if (magic == "P5") image.channels = 1;
    else if (magic == "P6") image.channels = 3;
    else throw std::runtime_error(path + ": not a binary PGM or PPM file");
    const long width = next_number(), height = next_number(), maxval = next_number();
    if (width <= 0 || height <= 0 || width > 65535 || height > 65535)
        throw std::runtime_error(path + ": unsupported size");
    if (maxval == 0 || maxval > 255) throw std::runtime_error(path + ": only 8-bit samples are supported here");
    in.get();  // the single whitespace after the header
    image.width = int(width);
    image.height = int(height);
    image.pixels.resize(std::size_t(width) * std::size_t(height) * std::size_t(image.channels));
    in.read(reinterpret_cast<char*>(image.pixels.data()), std::streamsize(image.pixels.size()));
    if (in.gcount() != std::streamsize(image.pixels.size())) throw std::runtime_error(path + ": truncated");
    return image;
}

void write_pnm(const std::string& path, const Image& image) {
    if (image.channels != 1 && image.channels != 3) throw std::runtime_error(path + ": PGM/PPM take 1 or 3 channels");
    std::ofstream out(path, std::ios::binary);
    if (!out) throw std::runtime_error(path + ": cannot open for writing");
    out << (image.channels == 1 ? "P5" : "P6") << "\n" << image.width << " " << image.height << "\n255\n";
    out.write(reinterpret_cast<const char*>(image.pixels.data()), std::streamsize(image.pixels.size()));
    if (!out) throw std::runtime_error(path + ": write failed");
}

Image read_image(const std::string& path) {
    const std::string ext = extension(path);
    if (ext == "png") return read_png(path);
    if (ext == "pgm" || ext == "ppm" || ext == "pnm") return read_pnm(path);
    throw std::runtime_error(path + ": unknown image type (use .png, .pgm or .ppm)");
}

void write_image(const std::string& path, const Image& image) {
    const std::string ext = extension(path);
    if (ext == "png") return write_png(path, image);
    if (ext == "pgm" || ext == "ppm" || ext == "pnm") return write_pnm(path, image);
    throw std::runtime_error(path + ": unknown image type (use .png, .pgm or .ppm)");
}

Image from_bgr(const std::uint8_t* bgr, int width, int height, int stride) {
    Image image{width, height, 3, std::vector<std::uint8_t>(std::size_t(width) * std::size_t(height) * 3)};
    for (std::size_t p = 0; p < std::size_t(width) * std::size_t(height); ++p) {
        image.pixels[p * 3 + 0] = bgr[p * std::size_t(stride) + 2];
        image.pixels[p * 3 + 1] = bgr[p * std::size_t(stride) + 1];
        image.pixels[p * 3 + 2] = bgr[p * std::size_t(stride) + 0];
    }
    return image;
}

}  // namespace qzrcfa::tools
