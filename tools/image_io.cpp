#include "image_io.h"

#include <png.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <stdexcept>

namespace qzrcfa::tools {
namespace {

struct FileCloser {
    void operator()(std::FILE* f) const {
        if (f) std::fclose(f);
    }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

File open_for_reading(const std::string& path) {
    std::error_code ec;
    if (std::filesystem::is_directory(path, ec)) throw std::runtime_error(path + ": is a directory");
    File f(std::fopen(path.c_str(), "rb"));
    if (!f) throw std::runtime_error(path + ": cannot open: " + std::strerror(errno));
    return f;
}

[[noreturn]] void fail(const std::string& path, const std::string& what) { throw std::runtime_error(path + ": " + what); }

[[noreturn]] void png_fail(png_structp png, png_const_charp message) {
    throw std::runtime_error(std::string(static_cast<const char*>(png_get_error_ptr(png))) + ": " + message);
}
void png_warn(png_structp, png_const_charp) {}

std::size_t sample_count(const Image& image) {
    return std::size_t(image.width) * std::size_t(image.height) * std::size_t(image.channels);
}

void check_image(const std::string& path, const Image& image) {
    if (image.width <= 0 || image.height <= 0) fail(path, "cannot write an empty image");
    if (image.depth != 8 && image.depth != 16) fail(path, "cannot write " + std::to_string(image.depth) + "-bit samples");
    const std::size_t have = image.depth == 8 ? image.pixels.size() : image.wide.size();
    if (have < sample_count(image)) fail(path, "image data is shorter than its size");
}

// Reads the rest of a netpbm header number, skipping whitespace and comments.
long pnm_number(std::FILE* f, const std::string& path) {
    int ch = std::fgetc(f);
    for (;;) {
        while (ch == ' ' || ch == '\t' || ch == '\n' || ch == '\r') ch = std::fgetc(f);
        if (ch != '#') break;
        while (ch != '\n' && ch != EOF) ch = std::fgetc(f);
    }
    if (ch < '0' || ch > '9') fail(path, "malformed header");
    long value = 0;
    while (ch >= '0' && ch <= '9') {
        value = value * 10 + (ch - '0');
        if (value > 1000000000L) fail(path, "malformed header");
        ch = std::fgetc(f);
    }
    // Exactly one whitespace character ends the header's last number.
    if (ch != ' ' && ch != '\t' && ch != '\n' && ch != '\r') fail(path, "malformed header");
    return value;
}

}  // namespace

std::string extension(const std::string& path) {
    const std::string name = std::filesystem::path(path).filename().string();
    const auto dot = name.find_last_of('.');
    if (dot == std::string::npos || dot == 0) return "";
    std::string ext = name.substr(dot + 1);
    for (char& ch : ext) ch = char(std::tolower(static_cast<unsigned char>(ch)));
    return ext;
}

AtomicFile::AtomicFile(const std::string& path) : path_(path) {
    const std::filesystem::path p(path);
    std::error_code ec;
    if (std::filesystem::is_directory(p, ec)) fail(path, "is a directory");
    const std::filesystem::path dir = p.has_parent_path() ? p.parent_path() : std::filesystem::path(".");
    std::string name = ".";
    name.append(p.filename().string()).append(".tmp-XXXXXX");
    std::string temp = (dir / name).string();
    const int fd = ::mkstemp(temp.data());
    if (fd < 0) fail(path, std::string("cannot create: ") + std::strerror(errno));
    temp_ = temp;
    // mkstemp makes the file private; give it the permissions a new file gets.
    const mode_t mask = ::umask(0);
    ::umask(mask);
    ::fchmod(fd, 0666 & ~mask);
    file_ = ::fdopen(fd, "wb");
    if (!file_) {
        ::close(fd);
        std::remove(temp_.c_str());
        fail(path, "cannot open for writing");
    }
}

AtomicFile::~AtomicFile() {
    if (file_) {
        std::fclose(file_);
        std::remove(temp_.c_str());
    }
}

void AtomicFile::write(const void* data, std::size_t bytes) {
    if (bytes && std::fwrite(data, 1, bytes, file_) != bytes) fail(path_, std::string("write failed: ") + std::strerror(errno));
}

void AtomicFile::commit() {
    const bool flushed = std::fflush(file_) == 0 && !std::ferror(file_);
    const int saved = errno;
    const bool closed = std::fclose(file_) == 0;
    file_ = nullptr;
    if (!flushed || !closed) {
        std::remove(temp_.c_str());
        fail(path_, std::string("write failed: ") + std::strerror(flushed ? errno : saved));
    }
    if (std::rename(temp_.c_str(), path_.c_str()) != 0) {
        const int err = errno;
        std::remove(temp_.c_str());
        fail(path_, std::string("cannot write: ") + std::strerror(err));
    }
}

Image read_png(const std::string& path, bool keep_16) {
    File f = open_for_reading(path);
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, const_cast<char*>(path.c_str()), png_fail, png_warn);
    png_infop info = png_create_info_struct(png);
    Image image;
    try {
        png_init_io(png, f.get());
        png_read_info(png, info);
        const int bit_depth = png_get_bit_depth(png, info);
        const bool wide = keep_16 && bit_depth == 16;
        if (bit_depth == 16 && !wide) png_set_strip_16(png);
        png_set_packing(png);
        png_set_palette_to_rgb(png);
        png_set_expand_gray_1_2_4_to_8(png);
        png_read_update_info(png, info);
        image.width = int(png_get_image_width(png, info));
        image.height = int(png_get_image_height(png, info));
        image.channels = int(png_get_channels(png, info));
        image.depth = wide ? 16 : 8;
        if (image.channels == 2) fail(path, "grey with alpha is not supported");
        const std::size_t row_bytes = png_get_rowbytes(png, info);
        std::vector<std::uint8_t> bytes(row_bytes * std::size_t(image.height));
        std::vector<png_bytep> rows(std::size_t(image.height));
        for (int y = 0; y < image.height; ++y) rows[std::size_t(y)] = bytes.data() + row_bytes * std::size_t(y);
        png_read_image(png, rows.data());
        if (wide) {
            // PNG stores 16-bit samples most significant byte first.
            image.wide.resize(bytes.size() / 2);
            for (std::size_t i = 0; i < image.wide.size(); ++i)
                image.wide[i] = std::uint16_t(bytes[2 * i] << 8 | bytes[2 * i + 1]);
        } else {
            image.pixels = std::move(bytes);
        }
    } catch (...) {
        png_destroy_read_struct(&png, &info, nullptr);
        throw;
    }
    png_destroy_read_struct(&png, &info, nullptr);
    return image;
}

void write_png(const std::string& path, const Image& image) {
    check_image(path, image);
    AtomicFile out(path);
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, const_cast<char*>(path.c_str()), png_fail, png_warn);
    png_infop info = png_create_info_struct(png);
    try {
        png_init_io(png, out.get());
        const int type = image.channels == 1 ? PNG_COLOR_TYPE_GRAY
                         : image.channels == 3 ? PNG_COLOR_TYPE_RGB
                                               : PNG_COLOR_TYPE_RGB_ALPHA;
        png_set_IHDR(png, info, png_uint_32(image.width), png_uint_32(image.height), image.depth, type,
                     PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
        png_write_info(png, info);
        const std::size_t row_samples = std::size_t(image.width) * std::size_t(image.channels);
        std::vector<std::uint8_t> row(row_samples * 2);
        for (int y = 0; y < image.height; ++y) {
            if (image.depth == 8) {
                png_write_row(png, const_cast<png_bytep>(image.pixels.data() + row_samples * std::size_t(y)));
            } else {
                const std::uint16_t* src = image.wide.data() + row_samples * std::size_t(y);
                for (std::size_t i = 0; i < row_samples; ++i) {
                    row[2 * i] = std::uint8_t(src[i] >> 8);
                    row[2 * i + 1] = std::uint8_t(src[i]);
                }
                png_write_row(png, row.data());
            }
        }
        png_write_end(png, nullptr);
    } catch (...) {
        png_destroy_write_struct(&png, &info);
        throw;
    }
    png_destroy_write_struct(&png, &info);
    out.commit();
}

Image read_pnm(const std::string& path, bool keep_16) {
    File f = open_for_reading(path);
    char magic[2] = {};
    if (std::fread(magic, 1, 2, f.get()) != 2 || magic[0] != 'P' || (magic[1] != '5' && magic[1] != '6'))
        fail(path, "not a binary PGM or PPM file");
    Image image;
    image.channels = magic[1] == '5' ? 1 : 3;
    const long width = pnm_number(f.get(), path);
    const long height = pnm_number(f.get(), path);
    const long maxval = pnm_number(f.get(), path);
    if (width <= 0 || height <= 0 || width > 65535 || height > 65535)
        fail(path, "unsupported size " + std::to_string(width) + "x" + std::to_string(height));
    if (maxval <= 0 || maxval > 65535) fail(path, "unsupported maxval " + std::to_string(maxval) + " (1 to 65535)");
    image.width = int(width);
    image.height = int(height);
    const bool two_bytes = maxval > 255;
    const std::size_t samples = sample_count(image);
    std::vector<std::uint8_t> bytes(samples * (two_bytes ? 2 : 1));
    const std::size_t got = std::fread(bytes.data(), 1, bytes.size(), f.get());
    if (got != bytes.size())
        fail(path, "truncated: " + std::to_string(width) + "x" + std::to_string(height) + " needs " +
                       std::to_string(bytes.size()) + " bytes of samples, the file has " + std::to_string(got));
    if (!two_bytes) {
        image.pixels = std::move(bytes);
    } else if (keep_16) {
        image.depth = 16;
        image.wide.resize(samples);
        for (std::size_t i = 0; i < samples; ++i) image.wide[i] = std::uint16_t(bytes[2 * i] << 8 | bytes[2 * i + 1]);
    } else {
        image.pixels.resize(samples);
        for (std::size_t i = 0; i < samples; ++i)
            image.pixels[i] = std::uint8_t(((bytes[2 * i] << 8 | bytes[2 * i + 1]) * 255L + maxval / 2) / maxval);
    }
    return image;
}

void write_pnm(const std::string& path, const Image& image) {
    check_image(path, image);
    if (image.channels != 1 && image.channels != 3)
        fail(path, image.channels == 4 ? "PPM has no fourth channel: use --format bgr or a .png or .bmp file"
                                       : "PGM/PPM take 1 or 3 channels");
    const std::string ext = extension(path);
    if (ext == "pgm" && image.channels != 1) fail(path, "a PGM file holds grey images: use .ppm for colour");
    if (ext == "ppm" && image.channels != 3) fail(path, "a PPM file holds colour images: use .pgm for grey");
    AtomicFile out(path);
    const std::string header = std::string(image.channels == 1 ? "P5" : "P6") + "\n" + std::to_string(image.width) +
                               " " + std::to_string(image.height) + "\n" + (image.depth == 16 ? "65535" : "255") + "\n";
    out.write(header.data(), header.size());
    if (image.depth == 8) {
        out.write(image.pixels.data(), sample_count(image));
    } else {
        std::vector<std::uint8_t> bytes(sample_count(image) * 2);
        for (std::size_t i = 0; i < sample_count(image); ++i) {
            bytes[2 * i] = std::uint8_t(image.wide[i] >> 8);
            bytes[2 * i + 1] = std::uint8_t(image.wide[i]);
        }
        out.write(bytes.data(), bytes.size());
    }
    out.commit();
}

void write_bmp(const std::string& path, const std::uint8_t* rows, int width, int height, int bytes_per_pixel,
               bool bottom_up) {
    if (width <= 0 || height <= 0) fail(path, "cannot write an empty image");
    if (bytes_per_pixel != 1 && bytes_per_pixel != 3 && bytes_per_pixel != 4)
        fail(path, "BMP takes 1, 3 or 4 bytes per pixel");
    const std::uint32_t row_bytes = std::uint32_t(width) * std::uint32_t(bytes_per_pixel);
    const std::uint32_t padded = (row_bytes + 3) & ~3u;
    const std::uint32_t palette = bytes_per_pixel == 1 ? 256 * 4 : 0;
    const std::uint32_t offset = 14 + 40 + palette;
    const std::uint64_t file_size = std::uint64_t(offset) + std::uint64_t(padded) * std::uint64_t(height);
    if (file_size > 0xFFFFFFFFu) fail(path, "too large for a BMP file");

    std::vector<std::uint8_t> header(offset, 0);
    auto put16 = [&](std::size_t at, std::uint32_t v) {
        header[at] = std::uint8_t(v);
        header[at + 1] = std::uint8_t(v >> 8);
    };
    auto put32 = [&](std::size_t at, std::uint32_t v) {
        put16(at, v & 0xFFFF);
        put16(at + 2, v >> 16);
    };
    header[0] = 'B';
    header[1] = 'M';
    put32(2, std::uint32_t(file_size));
    put32(10, offset);
    put32(14, 40);                   // BITMAPINFOHEADER
    put32(18, std::uint32_t(width));
    // A positive height is BMP's bottom-up order; a negative one marks top-down rows.
    put32(22, bottom_up ? std::uint32_t(height) : std::uint32_t(-std::int64_t(height)));
    put16(26, 1);                    // planes
    put16(28, std::uint32_t(bytes_per_pixel * 8));
    put32(30, 0);                    // BI_RGB
    put32(34, padded * std::uint32_t(height));
    put32(38, 2835);                 // 72 dpi
    put32(42, 2835);
    if (bytes_per_pixel == 1) {
        put32(46, 256);
        for (std::uint32_t i = 0; i < 256; ++i) put32(54 + 4 * i, i | i << 8 | i << 16);
    }
    AtomicFile out(path);
    out.write(header.data(), header.size());
    const std::uint8_t zeros[4] = {};
    for (int y = 0; y < height; ++y) {
        out.write(rows + std::size_t(y) * row_bytes, row_bytes);
        out.write(zeros, padded - row_bytes);
    }
    out.commit();
}

Image read_raw(const std::string& path, int width, int height, int depth) {
    if (width <= 0 || height <= 0) fail(path, "a raw frame needs a positive --width and --height");
    if (depth != 8 && depth != 16) fail(path, "unsupported depth " + std::to_string(depth) + " (8 or 16)");
    File f = open_for_reading(path);
    Image image;
    image.width = width;
    image.height = height;
    image.channels = 1;
    image.depth = depth;
    const std::size_t samples = std::size_t(width) * std::size_t(height);
    std::vector<std::uint8_t> bytes(samples * std::size_t(depth / 8));
    const std::size_t got = std::fread(bytes.data(), 1, bytes.size(), f.get());
    const bool more = got == bytes.size() && std::fgetc(f.get()) != EOF;
    if (got != bytes.size() || more)
        fail(path, std::string(got != bytes.size() ? "truncated" : "wrong size") + ": a " + std::to_string(width) + "x" +
                       std::to_string(height) + " " + std::to_string(depth) + "-bit frame is " +
                       std::to_string(bytes.size()) + " bytes, the file has " +
                       (more ? "more" : std::to_string(got)));
    if (depth == 8) {
        image.pixels = std::move(bytes);
    } else {
        image.wide.resize(samples);
        for (std::size_t i = 0; i < samples; ++i) image.wide[i] = std::uint16_t(bytes[2 * i] | bytes[2 * i + 1] << 8);
    }
    return image;
}

Image read_image(const std::string& path, bool keep_16) {
    File f = open_for_reading(path);
    unsigned char magic[8] = {};
    const std::size_t got = std::fread(magic, 1, sizeof magic, f.get());
    f.reset();
    if (got >= 8 && png_sig_cmp(magic, 0, 8) == 0) return read_png(path, keep_16);
    if (got >= 2 && magic[0] == 'P' && (magic[1] == '5' || magic[1] == '6')) return read_pnm(path, keep_16);
    if (got == 0) fail(path, "empty file");
    fail(path, "unknown file type (PNG, binary PGM or PPM expected)");
}

void write_image(const std::string& path, const Image& image) {
    const std::string ext = extension(path);
    if (ext == "png") return write_png(path, image);
    if (ext == "pgm" || ext == "ppm" || ext == "pnm") return write_pnm(path, image);
    fail(path, "unknown image type (use .png, .pgm or .ppm)");
}

Image from_bgr(const std::uint8_t* bgr, int width, int height, int stride, bool keep_fourth) {
    const int channels = keep_fourth && stride >= 4 ? 4 : 3;
    Image image{width, height, channels, 8, std::vector<std::uint8_t>(std::size_t(width) * std::size_t(height) * std::size_t(channels)), {}};
    for (std::size_t p = 0; p < std::size_t(width) * std::size_t(height); ++p) {
        const std::uint8_t* px = bgr + p * std::size_t(stride);
        std::uint8_t* out = &image.pixels[p * std::size_t(channels)];
        out[0] = px[2];
        out[1] = px[1];
        out[2] = px[0];
        if (channels == 4) out[3] = px[3];
    }
    return image;
}

Image from_bgr16(const std::uint16_t* bgr, int width, int height, int stride, bool keep_fourth) {
    const int channels = keep_fourth && stride >= 4 ? 4 : 3;
    Image image{width, height, channels, 16, {}, std::vector<std::uint16_t>(std::size_t(width) * std::size_t(height) * std::size_t(channels))};
    for (std::size_t p = 0; p < std::size_t(width) * std::size_t(height); ++p) {
        const std::uint16_t* px = bgr + p * std::size_t(stride);
        std::uint16_t* out = &image.wide[p * std::size_t(channels)];
        out[0] = px[2];
        out[1] = px[1];
        out[2] = px[0];
        if (channels == 4) out[3] = px[3];
    }
    return image;
}

}  // namespace qzrcfa::tools
