// Reading and writing the image files the tools use: PNG (through libpng), the netpbm
// formats PGM/PPM (8- and 16-bit), BMP (writing only) and headerless raw frames.
//
// Files are hostile until read: a reader compares the frame a header declares with the
// pixel limit and with what the file can hold (its size, or for a pipe the bytes as they
// arrive) before allocating for it. Errors are std::runtime_error with a one-line
// message that names the file, the field and the limit. Every writer goes through
// AtomicFile: the data lands in a temporary file in the destination's directory and is
// renamed over the destination only once it is complete, so a failed write never leaves
// a partial file behind. The path "-" is standard input for the readers and standard
// output for write_image (PGM or PPM). An existing destination keeps its permission bits
// (a read-only file stays read-only); callers decide beforehand whether to replace it.
#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

namespace qzrcfa::tools {

// An interleaved image: channels 1 (grey), 3 (R, G, B) or 4 (R, G, B, A), with 8-bit
// samples in `pixels` or 16-bit samples (native byte order) in `wide`. `maxval` is the
// largest value a sample may take when it is below the depth's full range (a 10-bit
// frame in 16-bit samples: 1023); 0 means the full range.
struct Image {
    int width = 0;
    int height = 0;
    int channels = 0;
    int depth = 8;                       // bits per sample: 8 or 16
    std::vector<std::uint8_t> pixels;    // depth 8
    std::vector<std::uint16_t> wide;     // depth 16
    int maxval = 0;
    std::size_t stride = 0;              // raw frames: bytes from a row to the next (0: back to back)
};

// What a reader accepts before it allocates for a frame.
struct ReadLimits {
    static constexpr std::uint64_t kDefaultMaxPixels = 256'000'000;
    std::uint64_t max_pixels = kDefaultMaxPixels;  // width x height
    // Called with the declared width, height, depth and maxval (as they will be
    // returned) and channels once the header is read, before the samples are; it may
    // throw to refuse the frame.
    std::function<void(int width, int height, int depth, int maxval, int channels)> accept;
};

// A file written under a temporary name in the destination's directory and renamed
// over the destination by commit(); destroyed without commit(), it removes itself.
// While it exists, SIGINT, SIGTERM and SIGHUP remove it before the program dies.
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
    int slot_ = -1;
};

// By content (PNG signature, P5/P6 magic), peeking at the first byte without consuming
// it, so a pipe works as well as a file. 16-bit samples are kept with keep_16, else
// reduced to 8 bits. PGM/PPM: maxval 255 or 65535 is the full range; a maxval below 255
// is scaled to 255 on reading; a maxval from 256 to 65534 keeps the samples and sets
// Image::maxval. A sample above maxval is refused.
Image read_image(const std::string& path, bool keep_16 = false, const ReadLimits& limits = {});
Image read_image(std::FILE* file, const std::string& name, bool keep_16, const ReadLimits& limits);

// How a headerless raw frame lies in its file: height rows, each of width samples of
// `depth` bits (8, or 16 little-endian), or of `row_bytes` bytes of a sensor's packed
// layout (named `packing` in messages); `stride` bytes from a row to the next (0: rows
// back to back). The file holds the rows, the last one at least its samples' bytes: from
// (height - 1) x stride + a row's bytes to height x stride.
struct RawLayout {
    int width = 0, height = 0;
    int depth = 8;              // 8 or 16: the samples' depth, or for packed rows what they unpack to
    std::size_t row_bytes = 0;  // packed rows: a row's bytes; 0 for 8- or 16-bit samples
    std::string packing;        // the packed layout's name
    std::size_t stride = 0;
};

// A headerless raw frame. Its samples, or its packed rows' bytes (in `pixels`, depth 8),
// keep the file's row stride (Image::stride).
Image read_raw(const std::string& path, const RawLayout& layout, const ReadLimits& limits = {});
Image read_raw(std::FILE* file, const std::string& name, const RawLayout& layout, const ReadLimits& limits);

// PNG: 8- or 16-bit, grey or colour. An image with a maxval is scaled to the full range
// and its significant bits recorded in an sBIT chunk.
void write_png(const std::string& path, const Image& image);

// Binary PGM (P5) or PPM (P6), with the image's maxval (255 or 65535 without one).
void write_pnm(const std::string& path, const Image& image);

// BMP of an interface output buffer, written as it lies: `rows` holds height rows of
// width pixels, bottom_up says which way round they are (BMP's own order is bottom-up;
// a top-down buffer is stored as a top-down BMP). bytes_per_pixel 3 (B, G, R), 4 (B, G,
// R, fourth byte) or 1 (grey, through a grey palette). 8-bit samples only.
void write_bmp(const std::string& path, const std::uint8_t* rows, int width, int height, int bytes_per_pixel,
               bool bottom_up);

// By extension: .png, .pgm, .ppm, .pnm; "-" writes PGM or PPM to standard output.
void write_image(const std::string& path, const Image& image);

// An interface output buffer as the library leaves it: height rows of width pixels of
// `elements` elements each (1: grey; 3: B, G, R; 4: B, G, R and a fourth), 8-bit in
// `bytes` or 16-bit in `wide`, the top row first or, with bottom_up, last. maxval as in
// Image. The writers below turn it into the file's upright R, G, B(, A) or grey rows one
// row at a time, so no second copy of the image is made.
struct BufferView {
    const std::uint8_t* bytes = nullptr;
    const std::uint16_t* wide = nullptr;
    int width = 0;
    int height = 0;
    int elements = 3;
    bool bottom_up = false;
    bool keep_fourth = false;  // the fourth element as alpha; else it is left out
    int maxval = 0;
};

void write_png(const std::string& path, const BufferView& buffer);
void write_pnm(const std::string& path, const BufferView& buffer);
void write_image(const std::string& path, const BufferView& buffer);

// File name extension in lower case, without the dot ("" if none).
std::string extension(const std::string& path);

// B, G, R (and a fourth element) as the library writes them, to an R, G, B image;
// with keep_fourth the fourth element becomes alpha.
Image from_bgr(const std::uint8_t* bgr, int width, int height, int stride, bool keep_fourth = false);

}  // namespace qzrcfa::tools
