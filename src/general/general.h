// The general rule of each method: the formulas each method states for every pixel,
// without the members' asymmetries (pre-fills, exchanged or crossed sites, fixed
// three-byte offsets, reads past the frame), on 8-bit samples or 16-bit samples of 9 to
// 16 significant bits, in every pattern and row order, the border included. Every value
// is the method's formula applied to the frame mirrored about its edge pixels (x = -1
// reads x = 1, x = width reads width - 2: mirroring keeps the Bayer phase), so the
// border is computed like the interior. Results lie in 0 .. 2^bits - 1 (the Laplacian
// and smooth hue clamp there). Sizes are computed in size_t: any frame that fits in
// memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "driver/tasks.h"
#include "kernels/bayer.h"
#include "kernels/kernels.h"

namespace qzrcfa::general {

enum class Method : std::uint8_t { Nearest, Bilinear, EdgeSensing1, EdgeSensing2, Laplacian, SmoothHue };

// The raw frame: rows of samples `pitch` bytes apart, as `packing` lays them out.
// With a black level and gains, each sample becomes clamp(floor((s - black) * gain +
// 1/2), 0, 2^bits - 1), the product in single precision, before any method reads it:
// black level by the sample's place in the 2 x 2 tile, gain by its colour.
struct Frame {
    const std::uint8_t* data;  // row 0
    std::ptrdiff_t pitch;      // bytes from a row to the next
    detail::Packing packing;
    int bits;                  // significant bits: 8 for 8-bit samples, 9 .. 16 otherwise
    int width, height;         // at least 2 each
    detail::Pattern pattern;
    bool balance = false;      // the black level and gains apply
    float black[2][2] = {};    // by row and column parity
    float gains[3] = {};       // blue, green, red (the output's element order)
};

// The output: rows of pixels `pitch` bytes apart, optionally through a colour matrix
// and a curve (kernels.h, StoreRow).
struct Image {
    std::uint8_t* data;        // element 0 of output row 0
    std::ptrdiff_t pitch;
    int elements;              // per pixel: 3 (blue, green, red), 4 (and the largest value) or 1 (grey)
    int depth;                 // bits per element: 8 or 16; 8-bit elements round from `bits`
    bool bottom_up;            // raw row y lands in output row height - 1 - y
    const float* matrix = nullptr;       // 3 x 3, output red, green, blue from camera red, green, blue
    const std::uint16_t* curve = nullptr;  // 2^bits output elements
};

// Bytes of a raw row of `width` samples as `packing` lays them out: a packing group the
// row ends inside is whole (its unused samples' bits ignored); the GenICam bit streams
// end at the byte holding their last bit.
std::size_t row_bytes(detail::Packing packing, std::size_t width);

// The significant bits of a packing's samples; 0 for the 8- and 16-bit containers.
int packed_bits(detail::Packing packing);

// The curves an output may go through.
enum class Curve : std::uint8_t { Linear, Srgb, Gamma };

// The table of a curve from values 0 .. max to output elements of `depth` bits (0 ..
// 255, or 0 .. max): round(c(v / max) * top), halves up, in double precision, with
// c(x) = 12.92 x below 0.0031308 and 1.055 x^(1/2.4) - 0.055 above (sRGB), or x^(1 /
// gamma). Linear gives the store's own rounding.
std::vector<std::uint16_t> curve_table(Curve curve, double gamma, int max, int depth);

// Grey world over the frame: the red and blue gains that bring the means of the
// unsaturated red and blue samples (black level subtracted) to the green one's, every
// fourth pair of rows read, at most 64; green 1. False when some colour has no
// unsaturated sample.
bool grey_world(const Frame& frame, float gains[3]);

// Row r of the frame (0 .. height - 1) as the methods read it: width values in `out`,
// black level and gains applied when the frame has them.
void load_row(const Frame& frame, std::ptrdiff_t r, std::uint16_t* out, const detail::GeneralKernels& kernels);

// Output row `row` of the image from planes of width values 0 .. max (blue, green, red;
// grey: planes[0]), through the image's matrix and curve.
void store_row(const Image& image, std::ptrdiff_t row, const std::uint16_t* const planes[3], int width, int max,
               const detail::GeneralKernels& kernels);

// Demosaics the frame into the image, on the calling thread or in bands of rows on the
// threads of `tasks`, with the same elements. Grey output (elements 1) is the nearest
// method's. `isa` (one the processor has) chooses the kernels; every choice gives the
// same elements. May throw std::bad_alloc (its rows of values are allocated per band).
void demosaic(Method method, const Frame& frame, const Image& image, const detail::Tasks* tasks,
              detail::Isa isa = detail::best_isa());

}  // namespace qzrcfa::general

namespace qzrcfa::detail {

// The references, one per slot of GeneralKernels.
int general_load(const LoadRow& row, int x);
int general_nearest(const PlaneRow& row, int x);
int general_bilinear(const PlaneRow& row, int x);
int general_edge_sensing(const PlaneRow& row, int x);
int general_laplacian_green(const PlaneRow& row, int x);
int general_laplacian_colour(const PlaneRow& row, int x);
int general_smooth_hue_green(const PlaneRow& row, int x);
int general_smooth_hue_colour(const PlaneRow& row, int x);
int general_grey(const PlaneRow& row, int x);
int general_store(const StoreRow& row, int x);

}  // namespace qzrcfa::detail
