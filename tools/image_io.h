// Reading and writing the image files the tools use: PNG (through libpng), the netpbm
// formats PGM/PPM (8- and 16-bit), BMP (writing only) and headerless raw frames.
// Errors are reported as std::runtime_error with a one-line message that names the file
// and what is wrong with it. Every writer goes through AtomicFile: the data lands in a
// temporary file in the destination's directory and is renamed over the destination
// only once it is complete, so a failed write never leaves a partial file behind.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace qzrcfa::tools {

// An interleaved image: channels 1 (grey), 3 (R, G, B) or 4 (R, G, B, A), with 8-bit
// samples in `pixels` or 16-bit samples (native byte order) in `wide`.
struct Image {
    int width = 0;
    int height = 0;
    int channels = 0;
    int depth = 8;                       // bits per sample: 8 or 16
    std::vector<std::uint8_t> pixels;    // depth 8
    std::vector<std::uint16_t> wide;     // depth 16
};

// A file written under a temporary name in the destination's directory and renamed
// over the destination by commit(); destroyed without commit(), it removes itself.
class AtomicFile {
  public:
    explicit AtomicFile(const std::string& path);
    ~AtomicFile();
    AtomicFile(const AtomicFile&) = delete;
    AtomicFile& operator=(const AtomicFile&) = delete;

    std::FILE* get() const { return file_; }
    void write(const void* data, std::size_t bytes);
    void commit();

  private:
    std::string path_;
    std::string temp_;
    std::FILE* file_ = nullptr;
};

// PNG: 8- or 16-bit, grey or colour. With keep_16 false, 16-bit samples are reduced to
// their high byte and the image comes back with depth 8.
Image read_png(const std::string& path, bool keep_16 = false);
void write_png(const std::string& path, const Image& image);

// Binary PGM (P5) or PPM (P6). maxval above 255 means two bytes per sample, most
// significant first (depth 16); with keep_16 false those are reduced to 8 bits.
Image read_pnm(const std::string& path, bool keep_16 = false);
void write_pnm(const std::string& path, const Image& image);  // P5 for one channel, P6 for three

// BMP of an interface output buffer, written as it lies: `rows` holds height rows of
// width pixels, bottom_up says which way round they are (BMP's own order is bottom-up;
// a top-down buffer is stored as a top-down BMP). bytes_per_pixel 3 (B, G, R), 4 (B, G,
// R, fourth byte) or 1 (grey, through a grey palette). 8-bit samples only.
void write_bmp(const std::string& path, const std::uint8_t* rows, int width, int height, int bytes_per_pixel,
               bool bottom_up);

// A headerless raw frame of width x height samples, 8-bit or 16-bit little-endian. The
// file must hold exactly that many bytes.
Image read_raw(const std::string& path, int width, int height, int depth);

// By content (PNG signature, P5/P6 magic); the file name does not matter.
Image read_image(const std::string& path, bool keep_16 = false);
// By extension: .png, .pgm, .ppm, .pnm.
void write_image(const std::string& path, const Image& image);

// File name extension in lower case, without the dot ("" if none).
std::string extension(const std::string& path);

// B, G, R (and a fourth element) as the library writes them, to an R, G, B image;
// with keep_fourth the fourth element becomes alpha.
Image from_bgr(const std::uint8_t* bgr, int width, int height, int stride, bool keep_fourth = false);
Image from_bgr16(const std::uint16_t* bgr, int width, int height, int stride, bool keep_fourth = false);

}  // namespace qzrcfa::tools
