// qzrcfa.hpp: a checked C++ interface over the qzrcfa exports and the extended library.
//
// The exports of qzrcfa.h validate nothing, by contract. This header describes a
// request with enums and non-owning views and checks it against what the chosen export
// needs; demosaic() hands a sound request to the extended library (qzrcfa_ext.h, link
// qzrcfa::ext or -lqzrcfa-ext), which calls that export, or with several threads runs
// its member over bands of rows. A bad request comes back as a Result that carries one
// clear message, and nothing is called. A valid request gives exactly the bytes a
// direct call of the export gives, whatever the thread count.
//
//   std::vector<std::uint8_t> raw = ...;                     // width * height samples
//   std::vector<std::uint8_t> bgr(qzrcfa::output_elements(width, height, options));
//   qzrcfa::Result r = qzrcfa::demosaic(qzrcfa::RawFrame(raw, width, height),
//                                       qzrcfa::OutputImage(bgr), options);
//   if (!r) std::cerr << r.message() << "\n";
//
// What is checked, and why:
//  - the combination must have an export: edge sensing 2 exists for RGGB only,
//    Laplacian2 for RGGB top-down only, 16-bit samples and grey output for nearest
//    neighbour only; enum values outside their lists are refused;
//  - the size must be at least what the member's border fill and kernel need
//    (see minimum_size()): below it the exports read or write outside the image;
//  - width * height * bytes per pixel must fit the signed 32-bit products the
//    interface forms, and for the members that pre-fill with 255 so must
//    width * height * bitCount;
//  - both buffers must be large enough, slack included: the bottom-up 16-bit grey
//    members write two elements past the image, so their output must hold
//    width * height + 2 elements (output_elements() says how many). Members whose
//    reads before dst or outside src depend on the size (height 1, narrow grey
//    frames, odd widths on two-row frames) are not offered slack: those sizes are
//    refused. Laplacian2's green pass reaches two rows past the frame, but this
//    library reads those samples as 0 without touching the memory, so its raw view
//    needs nothing beyond the frame;
//  - the memory the call reads must not overlap the memory it writes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <string>
#include <string_view>

#include "qzrcfa.h"
#include "qzrcfa_ext.h"

namespace qzrcfa {

enum class Method {
    NearestNeighbor,  // cheapest: copies (and for 8-bit green averages) a 2x2 neighbourhood
    Bilinear,         // means of the two or four nearest samples of each colour
    EdgeSensing1,     // green along the smaller gradient; RGGB answers as EdgeSensing2
    EdgeSensing2,     // as EdgeSensing1, and the quieter diagonal for red/blue; RGGB only
    Laplacian,        // gradient-directed green with second-difference correction
    Laplacian2,       // Laplacian with its green pass displaced; RGGB top-down only
    SmoothHue,        // red and blue from the neighbours' colour-to-green ratios
    Gbri,             // gradient-based green, residual-interpolated red and blue: the best colour;
                      // extended library only, 8- and 16-bit, whole image border included
};

enum class Pattern { RGGB, BGGR, GRBG, GBRG };

// Row order of the output; the raw frame is always read top-down. BottomUp selects
// the _Flip exports.
enum class RowOrder { TopDown, BottomUp };

// Output layout. The colour formats' values are the interface's bitCount: three or
// four elements per pixel (blue, green, red, and a fourth the library leaves or
// pre-fills). With 16-bit samples the elements are 16-bit. Grey is one element per
// pixel.
enum class Format : unsigned short { Grey = 0, Bgr24 = 24, Bgra32 = 32 };

// Largest thread count a request may ask for.
inline constexpr int kMaxThreads = 1024;

struct Options {
    Method method = Method::Bilinear;
    Pattern pattern = Pattern::RGGB;
    RowOrder order = RowOrder::TopDown;
    Format format = Format::Bgr24;
    int threads = 1;  // 1: the calling thread only, exactly a direct call; 0: every processor; N: up to N
};

constexpr std::string_view to_string(Method m) {
    switch (m) {
        case Method::NearestNeighbor: return "nearest";
        case Method::Bilinear: return "bilinear";
        case Method::EdgeSensing1: return "edge1";
        case Method::EdgeSensing2: return "edge2";
        case Method::Laplacian: return "laplacian";
        case Method::Laplacian2: return "laplacian2";
        case Method::SmoothHue: return "smoothhue";
        case Method::Gbri: return "gbri";
    }
    return "?";
}

constexpr std::string_view to_string(Pattern p) {
    switch (p) {
        case Pattern::RGGB: return "RGGB";
        case Pattern::BGGR: return "BGGR";
        case Pattern::GRBG: return "GRBG";
        case Pattern::GBRG: return "GBRG";
    }
    return "?";
}

constexpr std::string_view to_string(RowOrder o) { return o == RowOrder::BottomUp ? "bottom-up" : "top-down"; }

constexpr std::string_view to_string(Format f) {
    switch (f) {
        case Format::Grey: return "grey";
        case Format::Bgr24: return "bgr24";
        case Format::Bgra32: return "bgra32";
    }
    return "?";
}

// A raw frame: width * height samples, row-major, no padding, 8- or 16-bit. The view
// may cover more than the frame; the samples after it are never read.
class RawFrame {
  public:
    RawFrame(const std::uint8_t* samples, std::size_t count, int width, int height)
        : data_(samples), count_(count), width_(width), height_(height), depth_(8) {}
    RawFrame(const std::uint16_t* samples, std::size_t count, int width, int height)
        : data_(samples), count_(count), width_(width), height_(height), depth_(16) {}
    RawFrame(std::span<const std::uint8_t> samples, int width, int height)
        : RawFrame(samples.data(), samples.size(), width, height) {}
    RawFrame(std::span<const std::uint16_t> samples, int width, int height)
        : RawFrame(samples.data(), samples.size(), width, height) {}

    const void* data() const { return data_; }
    std::size_t count() const { return count_; }  // samples the view covers
    int width() const { return width_; }
    int height() const { return height_; }
    int depth() const { return depth_; }  // bits per sample
    std::size_t sample_bytes() const { return depth_ == 16 ? 2 : 1; }

  private:
    const void* data_;
    std::size_t count_;
    int width_, height_;
    int depth_;
};

// The caller's output buffer: `count` elements of 8 or 16 bits.
class OutputImage {
  public:
    OutputImage(std::uint8_t* data, std::size_t count) : data_(data), count_(count), depth_(8) {}
    OutputImage(std::uint16_t* data, std::size_t count) : data_(data), count_(count), depth_(16) {}
    OutputImage(std::span<std::uint8_t> elements) : OutputImage(elements.data(), elements.size()) {}
    OutputImage(std::span<std::uint16_t> elements) : OutputImage(elements.data(), elements.size()) {}

    void* data() const { return data_; }
    std::size_t count() const { return count_; }
    int depth() const { return depth_; }  // bits per element
    std::size_t element_bytes() const { return depth_ == 16 ? 2 : 1; }

  private:
    void* data_;
    std::size_t count_;
    int depth_;
};

// Outcome of a checked call: success, or the reason the request was refused.
class Result {
  public:
    static Result success() { return Result(); }
    static Result failure(std::string message) {
        Result r;
        r.message_ = message.empty() ? std::string("refused") : std::move(message);
        return r;
    }
    bool ok() const { return message_.empty(); }
    explicit operator bool() const { return ok(); }
    const std::string& message() const { return message_; }  // empty on success

  private:
    std::string message_;
};

namespace detail {

using Colour8 = int (*)(unsigned char*, int, int, unsigned char*, unsigned short);
using Colour16 = int (*)(unsigned short*, int, int, unsigned short*, unsigned short);
using Grey8 = int (*)(unsigned char*, int, int, unsigned char*);
using Grey16 = int (*)(unsigned short*, int, int, unsigned short*);

// Exports by pattern (RGGB, BGGR, GRBG, GBRG), top-down then bottom-up.
struct Family8 {
    Colour8 fn[4][2];
};

// Everything the checks need to know about one export.
struct Member {
    Colour8 colour8 = nullptr;
    Colour16 colour16 = nullptr;
    Grey8 grey8 = nullptr;
    Grey16 grey16 = nullptr;
    int min_width = 2;
    int min_height = 2;
    bool odd_width_needs_three_rows = false;  // the BGGR border fill reads S(1, width) = S(2, 0)
    bool white_prefill = false;               // 255 over width * height * bitCount / 8 bytes
    std::size_t dst_tail = 0;                 // elements written past the image
    bool extended = false;                    // the extended library's own method: no export
};

inline constexpr Family8 kNearest8{{
    {QZRCFA_NearestNeighbor_RGGB, QZRCFA_NearestNeighbor_RGGB_Flip},
    {QZRCFA_NearestNeighbor_BGGR, QZRCFA_NearestNeighbor_BGGR_Flip},
    {QZRCFA_NearestNeighbor_GRBG, QZRCFA_NearestNeighbor_GRBG_Flip},
    {QZRCFA_NearestNeighbor_GBRG, QZRCFA_NearestNeighbor_GBRG_Flip},
}};

inline constexpr Colour16 kNearest16[4][2] = {
    {QZRCFA_NearestNeighbor_RGGB_16Bits, QZRCFA_NearestNeighbor_RGGB_Flip_16Bits},
    {QZRCFA_NearestNeighbor_BGGR_16Bits, QZRCFA_NearestNeighbor_BGGR_Flip_16Bits},
    {QZRCFA_NearestNeighbor_GRBG_16Bits, QZRCFA_NearestNeighbor_GRBG_Flip_16Bits},
    {QZRCFA_NearestNeighbor_GBRG_16Bits, QZRCFA_NearestNeighbor_GBRG_Flip_16Bits},
};

inline constexpr Grey8 kGrey8[4][2] = {
    {QZRCFA_NearestNeighbor_RGGB_Gray, QZRCFA_NearestNeighbor_RGGB_Gray_Flip},
    {QZRCFA_NearestNeighbor_BGGR_Gray, QZRCFA_NearestNeighbor_BGGR_Gray_Flip},
    {QZRCFA_NearestNeighbor_GRBG_Gray, QZRCFA_NearestNeighbor_GRBG_Gray_Flip},
    {QZRCFA_NearestNeighbor_GBRG_Gray, QZRCFA_NearestNeighbor_GBRG_Gray_Flip},
};

inline constexpr Grey16 kGrey16[4][2] = {
    {QZRCFA_NearestNeighbor_RGGB_Gray_16Bits, QZRCFA_NearestNeighbor_RGGB_Gray_Flip_16Bits},
    {QZRCFA_NearestNeighbor_BGGR_Gray_16Bits, QZRCFA_NearestNeighbor_BGGR_Gray_Flip_16Bits},
    {QZRCFA_NearestNeighbor_GRBG_Gray_16Bits, QZRCFA_NearestNeighbor_GRBG_Gray_Flip_16Bits},
    {QZRCFA_NearestNeighbor_GBRG_Gray_16Bits, QZRCFA_NearestNeighbor_GBRG_Gray_Flip_16Bits},
};

inline constexpr Family8 kBilinear{{
    {QZRCFA_Bilinear_RGGB, QZRCFA_Bilinear_RGGB_Flip},
    {QZRCFA_Bilinear_BGGR, QZRCFA_Bilinear_BGGR_Flip},
    {QZRCFA_Bilinear_GRBG, QZRCFA_Bilinear_GRBG_Flip},
    {QZRCFA_Bilinear_GBRG, QZRCFA_Bilinear_GBRG_Flip},
}};

inline constexpr Family8 kEdgeSensing1{{
    {QZRCFA_EdgeSensing1_RGGB, QZRCFA_EdgeSensing1_RGGB_Flip},
    {QZRCFA_EdgeSensing1_BGGR, QZRCFA_EdgeSensing1_BGGR_Flip},
    {QZRCFA_EdgeSensing1_GRBG, QZRCFA_EdgeSensing1_GRBG_Flip},
    {QZRCFA_EdgeSensing1_GBRG, QZRCFA_EdgeSensing1_GBRG_Flip},
}};

inline constexpr Family8 kEdgeSensing2{{
    {QZRCFA_EdgeSensing2_RGGB, QZRCFA_EdgeSensing2_RGGB_Flip},
    {nullptr, nullptr},
    {nullptr, nullptr},
    {nullptr, nullptr},
}};

inline constexpr Family8 kLaplacian{{
    {QZRCFA_Laplacian_RGGB, QZRCFA_Laplacian_RGGB_Flip},
    {QZRCFA_Laplacian_BGGR, QZRCFA_Laplacian_BGGR_Flip},
    {QZRCFA_Laplacian_GRBG, QZRCFA_Laplacian_GRBG_Flip},
    {QZRCFA_Laplacian_GBRG, QZRCFA_Laplacian_GBRG_Flip},
}};

inline constexpr Family8 kLaplacian2{{
    {QZRCFA_Laplacian2_RGGB, nullptr},
    {nullptr, nullptr},
    {nullptr, nullptr},
    {nullptr, nullptr},
}};

inline constexpr Family8 kSmoothHue{{
    {QZRCFA_SmoothHue_RGGB, QZRCFA_SmoothHue_RGGB_Flip},
    {QZRCFA_SmoothHue_BGGR, QZRCFA_SmoothHue_BGGR_Flip},
    {QZRCFA_SmoothHue_GRBG, QZRCFA_SmoothHue_GRBG_Flip},
    {QZRCFA_SmoothHue_GBRG, QZRCFA_SmoothHue_GBRG_Flip},
}};

constexpr bool valid(Method m) { return int(m) >= 0 && int(m) <= int(Method::Gbri); }
constexpr bool valid(Pattern p) { return int(p) >= 0 && int(p) <= int(Pattern::GBRG); }
constexpr bool valid(RowOrder o) { return o == RowOrder::TopDown || o == RowOrder::BottomUp; }
constexpr bool colour(Format f) { return f == Format::Bgr24 || f == Format::Bgra32; }

inline const Family8* family8(Method m) {
    switch (m) {
        case Method::NearestNeighbor: return &kNearest8;
        case Method::Bilinear: return &kBilinear;
        case Method::EdgeSensing1: return &kEdgeSensing1;
        case Method::EdgeSensing2: return &kEdgeSensing2;
        case Method::Laplacian: return &kLaplacian;
        case Method::Laplacian2: return &kLaplacian2;
        case Method::SmoothHue: return &kSmoothHue;
        case Method::Gbri: return nullptr;
    }
    return nullptr;
}

// Finds the export for a request, or says why there is none. Enum values are checked
// first, so every later step can index tables with them.
inline Result find_member(const Options& o, int depth, Member& out) {
    if (!valid(o.method)) return Result::failure("unknown method (value " + std::to_string(int(o.method)) + ")");
    if (!valid(o.pattern)) return Result::failure("unknown Bayer pattern (value " + std::to_string(int(o.pattern)) + ")");
    if (!valid(o.order)) return Result::failure("unknown row order (value " + std::to_string(int(o.order)) + ")");
    if (!colour(o.format) && o.format != Format::Grey)
        return Result::failure("bitCount " + std::to_string(unsigned(o.format)) +
                               " is not supported: colour output takes 24 (bgr24) or 32 (bgra32)");
    if (depth != 8 && depth != 16) return Result::failure("samples must be 8 or 16 bits");

    const std::string what = std::string(to_string(o.method)) + " " + std::string(to_string(o.pattern)) + " " +
                             std::string(to_string(o.order));
    const int p = int(o.pattern);
    const int f = o.order == RowOrder::BottomUp ? 1 : 0;
    if (o.method == Method::Gbri) {
        if (o.format == Format::Grey)
            return Result::failure("no grey output for " + what + ": gbri writes bgr24 or bgra32");
        Member m;
        m.extended = true;
        out = m;
        return Result::success();
    }
    if (o.method != Method::NearestNeighbor && depth == 16)
        return Result::failure("no export for " + what + " with 16-bit samples: only nearest neighbour takes 16-bit frames");
    if (o.method != Method::NearestNeighbor && o.format == Format::Grey)
        return Result::failure("no export for " + what + " with grey output: only nearest neighbour writes grey");
    if (o.method == Method::EdgeSensing2 && o.pattern != Pattern::RGGB)
        return Result::failure("no export for " + what + ": edge sensing 2 exists for RGGB only");
    if (o.method == Method::Laplacian2 && (o.pattern != Pattern::RGGB || o.order != RowOrder::TopDown))
        return Result::failure("no export for " + what + ": Laplacian2 exists for RGGB top-down only");

    Member m;
    // The BGGR border fill takes the top row's red at even columns from the diagonal on
    // the right: at an odd width the last one is S(1, width), the first sample of row 2.
    const bool reads_row_2 = o.pattern == Pattern::BGGR;
    if (o.format == Format::Grey) {
        // The 8-bit RGGB members (and the 8-bit bottom-up members, which forward to the
        // RGGB one) finish a row by copying the value left of its last two columns;
        // the others copy from three columns back. Narrower rows read before dst.
        const bool two_column_copy = depth == 8 && (o.pattern == Pattern::RGGB || f == 1);
        m.min_width = two_column_copy ? 3 : 4;
        m.min_height = 2;  // height 1 copies a row from outside the image
        m.dst_tail = depth == 16 && f == 1 ? 2 : 0;
        if (depth == 8) m.grey8 = kGrey8[p][f];
        else m.grey16 = kGrey16[p][f];
        out = m;
        return Result::success();
    }
    if (depth == 16) {
        m.colour16 = kNearest16[p][f];
        m.odd_width_needs_three_rows = reads_row_2;
        out = m;
        return Result::success();
    }
    m.colour8 = family8(o.method)->fn[p][f];
    switch (o.method) {
        case Method::NearestNeighbor:
            m.white_prefill = o.pattern == Pattern::RGGB && f == 0;
            m.odd_width_needs_three_rows = reads_row_2;
            break;
        case Method::Bilinear:
            m.white_prefill = f == 0;
            m.odd_width_needs_three_rows = reads_row_2;
            break;
        case Method::EdgeSensing1:
        case Method::EdgeSensing2:
        case Method::SmoothHue:
            m.odd_width_needs_three_rows = reads_row_2;
            break;
        case Method::Laplacian:
        case Method::Laplacian2:
            // The two-pixel border fill reads and writes rows 2 and 3 whatever the height.
            m.min_width = 4;
            m.min_height = 4;
            m.white_prefill = true;
            break;
        case Method::Gbri:
            break;
    }
    out = m;
    return Result::success();
}

constexpr std::size_t elements_per_pixel(Format f) {
    return f == Format::Bgra32 ? 4 : f == Format::Bgr24 ? 3 : 1;
}

inline bool overlaps(const void* a, std::size_t a_bytes, const void* b, std::size_t b_bytes) {
    const auto a0 = reinterpret_cast<std::uintptr_t>(a);
    const auto b0 = reinterpret_cast<std::uintptr_t>(b);
    return a0 < b0 + b_bytes && b0 < a0 + a_bytes;
}

}  // namespace detail

// Smallest width and height a request accepts (0, 0 when the combination has no
// export). A frame with an odd width needs a third row for the one-pixel border fill.
struct Size {
    int width = 0;
    int height = 0;
};

inline Size minimum_size(const Options& options, int depth = 8) {
    detail::Member m;
    if (!detail::find_member(options, depth, m)) return {};
    return {m.min_width, m.min_height};
}

namespace detail {

// The checks on the frame size alone: the member's minimum and the interface's signed
// 32-bit products.
inline Result check_size(const Member& m, int w, int h, int depth, const Options& options) {
    const std::string size = std::to_string(w) + "x" + std::to_string(h);
    if (w < 0 || h < 0) return Result::failure("frame size " + size + " is negative");
    if (w < m.min_width || h < m.min_height)
        return Result::failure("frame size " + size + " is below the " + std::to_string(m.min_width) + "x" +
                               std::to_string(m.min_height) + " minimum of " + std::string(to_string(options.method)) +
                               (options.format == Format::Grey ? " grey" : "") + " " +
                               std::string(to_string(options.pattern)) + " " + std::string(to_string(options.order)));
    if (m.odd_width_needs_three_rows && (w % 2) != 0 && h < 3)
        return Result::failure("frame size " + size + ": an odd width needs at least 3 rows");

    constexpr std::uint64_t kInt32Max = std::uint64_t(std::numeric_limits<std::int32_t>::max());
    const std::uint64_t pixels = std::uint64_t(w) * std::uint64_t(h);
    const std::uint64_t sample_bytes = depth == 16 ? 2 : 1;
    const std::uint64_t image_bytes = pixels * elements_per_pixel(options.format) * sample_bytes;
    if (image_bytes + m.dst_tail * sample_bytes > kInt32Max || pixels * sample_bytes > kInt32Max)
        return Result::failure("frame size " + size + " is too large: the image must stay below 2^31 bytes");
    if (m.white_prefill && pixels * unsigned(options.format) > kInt32Max)
        return Result::failure("frame size " + size + " is too large: width x height x bitCount must stay below 2^31");
    return Result::success();
}

}  // namespace detail

// Elements the output buffer must hold for a width x height frame, slack included;
// 0 when demosaic() would refuse the request whatever the buffers (see check()).
inline std::size_t output_elements(int width, int height, const Options& options, int depth = 8) {
    detail::Member m;
    if (!detail::find_member(options, depth, m) || !detail::check_size(m, width, height, depth, options)) return 0;
    return std::size_t(width) * std::size_t(height) * detail::elements_per_pixel(options.format) + m.dst_tail;
}

// Every check demosaic() makes, without calling anything.
inline Result check(const RawFrame& raw, const OutputImage& out, const Options& options) {
    detail::Member m;
    if (Result r = detail::find_member(options, raw.depth(), m); !r) return r;
    if (options.threads < 0 || options.threads > kMaxThreads)
        return Result::failure("thread count " + std::to_string(options.threads) + " is " +
                               (options.threads < 0 ? "negative" : "above the limit of " + std::to_string(kMaxThreads)) +
                               ": use 1 for the calling thread, 0 for every processor, or up to " + std::to_string(kMaxThreads));
    if (Result r = detail::check_size(m, raw.width(), raw.height(), raw.depth(), options); !r) return r;
    const int w = raw.width(), h = raw.height();
    const std::string size = std::to_string(w) + "x" + std::to_string(h);
    const std::uint64_t pixels = std::uint64_t(w) * std::uint64_t(h);
    const std::size_t epp = detail::elements_per_pixel(options.format);

    if (raw.data() == nullptr) return Result::failure("the raw frame is null");
    if (out.data() == nullptr) return Result::failure("the output buffer is null");
    if (out.depth() != raw.depth())
        return Result::failure("output elements are " + std::to_string(out.depth()) + "-bit but the samples are " +
                               std::to_string(raw.depth()) + "-bit");
    const std::size_t need_raw = std::size_t(pixels);
    if (raw.count() < need_raw)
        return Result::failure("raw frame holds " + std::to_string(raw.count()) + " samples, " + size + " needs " +
                               std::to_string(need_raw));
    const std::size_t need_out = std::size_t(pixels) * epp + m.dst_tail;
    if (out.count() < need_out) {
        std::string why = "output holds " + std::to_string(out.count()) + " elements, " + size + " " +
                          std::string(to_string(options.format)) + " needs " + std::to_string(need_out);
        if (m.dst_tail) why += " (the image and the 2 elements after it, which this member writes)";
        return Result::failure(why);
    }
    if (detail::overlaps(raw.data(), need_raw * raw.sample_bytes(), out.data(), need_out * out.element_bytes()))
        return Result::failure("the raw frame and the output buffer overlap");
    return Result::success();
}

namespace detail {

// Calls the export a sound request names, with the views unchanged.
inline Result call_export(const Member& m, const RawFrame& raw, const OutputImage& out, const Options& options) {
    // The exports take non-const pointers for their input; they only read it.
    auto* s8 = static_cast<unsigned char*>(const_cast<void*>(raw.data()));
    auto* s16 = static_cast<unsigned short*>(const_cast<void*>(raw.data()));
    auto* d8 = static_cast<unsigned char*>(out.data());
    auto* d16 = static_cast<unsigned short*>(out.data());
    const auto bits = static_cast<unsigned short>(options.format);
    int status = 0;
    if (m.colour8) status = m.colour8(s8, raw.width(), raw.height(), d8, bits);
    else if (m.colour16) status = m.colour16(s16, raw.width(), raw.height(), d16, bits);
    else if (m.grey8) status = m.grey8(s8, raw.width(), raw.height(), d8);
    else if (m.grey16) status = m.grey16(s16, raw.width(), raw.height(), d16);
    if (status != 0) return Result::failure("the export returned " + std::to_string(status));
    return Result::success();
}

inline qzrcfa_request to_request(const RawFrame& raw, const OutputImage& out, const Options& o) {
    return qzrcfa_request{raw.data(),  raw.count(),    raw.width(),       raw.height(),     raw.depth(),    out.data(), out.count(),
                          out.depth(), int(o.method), int(o.pattern), int(o.order), int(o.format), o.threads};
}

}  // namespace detail

// Checks the request and, if it is sound, runs it (extended library).
inline Result demosaic(const RawFrame& raw, const OutputImage& out, const Options& options) {
    char message[512];
    const qzrcfa_request request = detail::to_request(raw, out, options);
    if (qzrcfa_demosaic(&request, message, sizeof message) != 0) return Result::failure(message);
    return Result::success();
}

}  // namespace qzrcfa
