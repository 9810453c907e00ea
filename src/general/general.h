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

#include "driver/tasks.h"
#include "kernels/bayer.h"
#include "kernels/kernels.h"

namespace qzrcfa::general {

enum class Method : std::uint8_t { Nearest, Bilinear, EdgeSensing1, EdgeSensing2, Laplacian, SmoothHue };

// The raw frame: rows of samples `pitch` bytes apart.
struct Frame {
    const std::uint8_t* data;  // sample 0 of row 0
    std::ptrdiff_t pitch;      // bytes from a row to the next
    int depth;                 // bits per sample: 8 or 16
    int bits;                  // significant bits: 8, or 9 .. 16 for 16-bit samples
    int width, height;         // at least 2 each
    detail::Pattern pattern;
};

// The output: rows of pixels `pitch` bytes apart.
struct Image {
    std::uint8_t* data;        // element 0 of output row 0
    std::ptrdiff_t pitch;
    int elements;              // per pixel: 3 (blue, green, red), 4 (and the largest value) or 1 (grey)
    int depth;                 // bits per element: 8 or 16; 8-bit elements round from `bits`
    bool bottom_up;            // raw row y lands in output row height - 1 - y
};

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
