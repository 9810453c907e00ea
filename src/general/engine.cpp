// The general rule's sweep: each band of output rows walks down the frame once, loading
// every raw row it needs into a ring of rows of values (mirrored beyond the frame; rows
// whose samples are their own values are read in place instead, the ring holding only
// their ends), computing a ring of green rows for the two-pass methods, and each output
// row's pixels, in chunks of columns, through the kernels that compute the planes and
// store them in one go (the planes themselves only for the columns those leave). A
// band's rows depend on nothing another band computes, so every split into bands gives
// the same elements.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "general/general.h"

namespace qzrcfa::general {
namespace {

using detail::GeneralKernels;
using detail::LoadRow;
using detail::PlaneKernel;
using detail::PixelKernel;
using detail::PlaneRow;
using detail::StoreRow;

// A method's passes: an optional green pass, then the pass that gives the planes, whose
// kernels come alone or fused with the store.
struct Rule {
    PlaneKernel colour_reference;
    PlaneKernel GeneralKernels::*colour_wide;
    PixelKernel GeneralKernels::*pixels_wide;
    PlaneKernel green_reference = nullptr;
    PlaneKernel GeneralKernels::*green_wide = nullptr;
    int variant = 0;
    int green_reach = 0;  // rows of values the green pass reads on either side of its row
};

Rule rule_of(Method m, bool grey) {
    using namespace detail;
    using K = GeneralKernels;
    if (grey) return {general_grey, &K::grey, &K::grey_pixels};
    switch (m) {
    case Method::Nearest: return {general_nearest, &K::nearest, &K::nearest_pixels};
    case Method::Bilinear: return {general_bilinear, &K::bilinear, &K::bilinear_pixels};
    case Method::EdgeSensing1: return {general_edge_sensing, &K::edge_sensing, &K::edge_sensing_pixels, nullptr, nullptr, 1};
    case Method::EdgeSensing2: return {general_edge_sensing, &K::edge_sensing, &K::edge_sensing_pixels, nullptr, nullptr, 2};
    case Method::Laplacian:
        return {general_laplacian_colour, &K::laplacian_colour, &K::laplacian_pixels, general_laplacian_green, &K::laplacian_green, 0, 2};
    case Method::SmoothHue:
        return {general_smooth_hue_colour, &K::smooth_hue_colour, &K::smooth_hue_pixels, general_smooth_hue_green,
                &K::smooth_hue_green, 0, 1};
    }
    return {general_bilinear, &K::bilinear, &K::bilinear_pixels};
}

// Reflection about the edge pixels, period 2 (n - 1); keeps the parity of i (n >= 2).
// Indices inside the frame or one reflection away (all but the tiniest frames') without
// a division.
std::ptrdiff_t reflect(std::ptrdiff_t i, std::ptrdiff_t n) {
    if (i >= 0 && i < n) return i;
    if (i < 0 && -i < n) return -i;
    if (i >= n && i < 2 * (n - 1)) return 2 * (n - 1) - i;
    const std::ptrdiff_t period = 2 * (n - 1);
    i %= period;
    if (i < 0) i += period;
    return i < n ? i : period - i;
}

constexpr int kRingRows = 8;       // rows of values a band holds: every method reads at most 7
constexpr int kGreenRows = 4;      // rows of green: the second passes read 3
constexpr std::ptrdiff_t kSlack = 32;  // values past each end of a row, so that rows start aligned
constexpr int kChunk = 512;        // columns of a row stored at once; the prefetches run a chunk ahead
// Columns at either end of a row whose passes read values beyond the frame (every pass
// reads at most kGeneralMargin columns to either side), and the columns those read.
constexpr int kEdge = detail::kGeneralMargin;
constexpr int kEdgeReads = 2 * detail::kGeneralMargin;
constexpr int kInPlaceWidth = 64;  // narrower frames are read through the ring alone

// Rows of values of the frame's width with their margins.
class Rows {
  public:
    Rows(int count, int width) : stride_(std::size_t(width) + 2 * kSlack), memory_(stride_ * std::size_t(count)) {}
    std::uint16_t* row(std::ptrdiff_t i) { return memory_.data() + std::size_t(i) * stride_ + kSlack; }

  private:
    std::size_t stride_;
    std::vector<std::uint16_t> memory_;
};

// 16-bit samples of 16 significant bits are their own values: the passes read their raw
// rows in place, and the ring holds, of each row, only the columns the passes of the
// first and last kEdge columns read, with the mirrored columns beyond them. Other frames
// load every row into the ring, clamped. (Rows read in place skip the load: a load that
// does more than clamp, whatever it is, rules reading in place out.)
class Sweep {
  public:
    Sweep(const Rule& rule, const Frame& f, const Image& im, const detail::KernelSet& kernels)
        : rule_(rule), f_(f), im_(im), k_(kernels.general), values_(kRingRows, f.width), greens_(kGreenRows, f.width),
          planes_(3, f.width), max_((1 << f.bits) - 1),
          in_place_(f.packing == detail::Packing::Words && f.bits == 16 && !f.balance && f.width >= kInPlaceWidth),
          row_bytes_(std::ptrdiff_t(row_bytes(f.packing, std::size_t(f.width)))) {}

    // Output rows y0 .. y1 - 1 (raw rows).
    void run(int y0, int y1) {
        const bool two = rule_.green_reference != nullptr;
        // At row y the passes read values of rows y - reach .. y + reach, reach at least 2
        // (every pass finds its five rows of values loaded, whether it reads them or not).
        const int reach = std::max(2, two ? 1 + rule_.green_reach : 1);
        next_value_ = y0 - reach;
        next_green_ = y0 - 1;
        for (int y = y0; y < y1; ++y) {
            while (next_value_ <= y + reach) load(next_value_++);
            if (two)
                while (next_green_ <= y + 1) green(next_green_++);
            colour_and_store(y, raw(next_value_), y + 1 < y1);
        }
    }

  private:
    std::uint16_t* values(std::ptrdiff_t r) { return values_.row((r % kRingRows + kRingRows) % kRingRows); }
    std::uint16_t* greens(std::ptrdiff_t r) { return greens_.row((r % kGreenRows + kGreenRows) % kGreenRows); }
    const std::uint8_t* raw(std::ptrdiff_t r) const { return f_.data + reflect(r, f_.height) * f_.pitch; }

    // Values of row r beyond the frame's edges, from the columns they mirror.
    void mirror_columns(std::uint16_t* v) const {
        for (int x = 1; x <= detail::kGeneralMargin; ++x) {
            v[-x] = v[reflect(-x, f_.width)];
            v[f_.width - 1 + x] = v[reflect(f_.width - 1 + x, f_.width)];
        }
    }

    void load(std::ptrdiff_t r) {
        std::uint16_t* v = values(r);
        if (in_place_) {
            const auto* samples = reinterpret_cast<const std::uint16_t*>(raw(r));
            std::copy_n(samples, kEdgeReads, v);
            std::copy_n(samples + f_.width - kEdgeReads, kEdgeReads, v + f_.width - kEdgeReads);
        } else {
            load_row(f_, reflect(r, f_.height), v, k_);
        }
        mirror_columns(v);
    }

    // A pass of row r over whole rows of values: the ring's, or the frame's in place.
    PlaneRow plane_row(std::ptrdiff_t r, bool ring) {
        PlaneRow row{};
        for (int i = 0; i < 5; ++i)
            row.s[i] = ring ? values(r - 2 + i) : reinterpret_cast<const std::uint16_t*>(raw(r - 2 + i));
        for (int i = 0; i < 3; ++i) row.g[i] = greens(r - 1 + i);
        row.phase = detail::row_phase(f_.pattern, int(r & 1));
        row.max = max_;
        row.variant = rule_.variant;
        return row;
    }

    // Columns x0 .. x1 of row r, run(row, first, last) on spans of them: where rows are
    // read in place, the columns beyond the edge columns from the frame and the edge
    // columns from the ring.
    template <class Run>
    void span(std::ptrdiff_t r, PlaneRow row, int x0, int x1, Run&& run) {
        if (!in_place_) return run(row, x0, x1);
        run(row, std::max(x0, kEdge), std::min(x1, f_.width - 1 - kEdge));
        for (int i = 0; i < 5; ++i) row.s[i] = values(r - 2 + i);
        run(row, x0, std::min(x1, kEdge - 1));
        run(row, std::max(x0, f_.width - kEdge), x1);
    }

    void green(std::ptrdiff_t r) {
        PlaneRow row = plane_row(r, !in_place_);
        std::uint16_t* g = greens(r);
        row.out[0] = row.out[2] = nullptr;
        row.out[1] = g;
        span(r, row, 0, f_.width - 1, [this](PlaneRow part, int first, int last) {
            if (last < first) return;
            part.x_last = last;
            rule_.green_reference(part, (k_.*rule_.green_wide)(part, first));
        });
        mirror_columns(g);
    }

    // The output row of raw row y.
    std::uint8_t* output_row(std::ptrdiff_t y) const { return im_.data + (im_.bottom_up ? f_.height - 1 - y : y) * im_.pitch; }

    // Row y's pixels in chunks of columns: each chunk through the pixel kernel, and what it
    // leaves through the planes (the pass's and the store's kernels, then their references),
    // stored while its planes are in L1. Meanwhile, a chunk at a time, the raw row the
    // sweep reads next is fetched (the first pass to read a row is the green pass of the
    // two-pass methods, with too little arithmetic to hide a wait for memory), and the
    // output a chunk ahead, to be written (continuing into the band's next output row):
    // stores then find their lines instead of waiting for each.
    void colour_and_store(std::ptrdiff_t y, const std::uint8_t* next, bool another_row) {
        PlaneRow row = plane_row(y, !in_place_);
        for (int i = 0; i < 3; ++i) row.out[i] = planes_.row(i);
        StoreRow out{};
        for (int i = 0; i < 3; ++i) out.planes[i] = planes_.row(i);
        out.out = output_row(y);
        out.elements = im_.elements;
        out.depth = im_.depth;
        out.max = max_;
        out.matrix = im_.matrix;
        out.curve = im_.curve;
        const auto pixels = [this, &out](PlaneRow part, int first, int last) {
            if (last < first) return;
            StoreRow to = out;
            part.x_last = to.x_last = last;
            const int x = (k_.*rule_.pixels_wide)(part, to, first);
            if (x > last) return;
            rule_.colour_reference(part, (k_.*rule_.colour_wide)(part, x));
            detail::general_store(to, k_.store(to, x));
        };
        for (int x0 = 0; x0 < f_.width;) {
            const int x1 = f_.width - x0 < 2 * kChunk ? f_.width - 1 : x0 + kChunk - 1;
            for (std::ptrdiff_t b = row_bytes_ * x0 / f_.width; b <= row_bytes_ * x1 / f_.width; b += 64)
                __builtin_prefetch(next + b);
            const std::ptrdiff_t pixel = std::ptrdiff_t(im_.elements) * im_.depth / 8, row_bytes = f_.width * pixel;
            const std::ptrdiff_t ahead0 = std::ptrdiff_t(x0 + kChunk) * pixel, ahead1 = std::ptrdiff_t(x1 + kChunk + 1) * pixel;
            for (std::ptrdiff_t b = ahead0; b < std::min(ahead1, row_bytes); b += 64) __builtin_prefetch(static_cast<std::uint8_t*>(out.out) + b, 1);
            if (another_row)
                for (std::ptrdiff_t b = std::max(ahead0, row_bytes) - row_bytes; b < ahead1 - row_bytes; b += 64)
                    __builtin_prefetch(output_row(y + 1) + b, 1);
            span(y, row, x0, x1, pixels);
            x0 = x1 + 1;
        }
    }

    const Rule& rule_;
    const Frame& f_;
    const Image& im_;
    const GeneralKernels& k_;
    Rows values_, greens_, planes_;
    int max_;
    bool in_place_;
    std::ptrdiff_t row_bytes_;  // of a raw row
    std::ptrdiff_t next_value_ = 0, next_green_ = 0;
};

}  // namespace

void load_row(const Frame& f, std::ptrdiff_t r, std::uint16_t* out, const GeneralKernels& kernels) {
    LoadRow row{};
    row.src = f.data + r * f.pitch;
    row.packing = f.packing;
    row.out = out;
    row.max = (1 << f.bits) - 1;
    row.balance = f.balance;
    for (int parity = 0; parity < 2 && f.balance; ++parity) {
        const detail::Site site = detail::site_at(f.pattern, int(r & 1), parity);
        row.black[parity] = f.black[r & 1][parity];
        row.gain[parity] = f.gains[site == detail::Site::Red ? detail::kRed : site == detail::Site::Blue ? detail::kBlue : detail::kGreen];
    }
    row.x_last = f.width - 1;
    detail::general_load(row, kernels.load(row, 0));
}

void store_row(const Image& im, std::ptrdiff_t y, const std::uint16_t* const planes[3], int width, int max,
               const GeneralKernels& kernels) {
    StoreRow row{};
    for (int i = 0; i < 3; ++i) row.planes[i] = planes[i];
    row.out = im.data + y * im.pitch;
    row.elements = im.elements;
    row.depth = im.depth;
    row.max = max;
    row.matrix = im.matrix;
    row.curve = im.curve;
    row.x_last = width - 1;
    detail::general_store(row, kernels.store(row, 0));
}

void demosaic(Method method, const Frame& frame, const Image& image, const detail::Tasks* tasks, detail::Isa isa) {
    const Rule rule = rule_of(method, image.elements == 1);
    const detail::KernelSet& kernels = detail::kernel_set(isa);
    // Bands of at least 16 rows, two per thread: each loads a few rows above and below its
    // own. Without tasks, one band on the calling thread.
    const int count = tasks != nullptr ? std::max(1, std::min(tasks->threads() * 2, frame.height / 16)) : 1;
    const detail::Bands bands{0, frame.height, count};
    auto band = [&](int i) { Sweep(rule, frame, image, kernels).run(bands.first(i), bands.first(i + 1)); };
    if (bands.count > 1) tasks->for_each(bands.count, band);
    else band(0);
}

}  // namespace qzrcfa::general
