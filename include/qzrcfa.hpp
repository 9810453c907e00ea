// qzrcfa.hpp: a checked C++ interface over the qzrcfa exports and the extended library.
//
// The exports of qzrcfa.h validate nothing, by contract. This header describes a
// request with enums and non-owning views; the extended library (qzrcfa_ext.h, link
// qzrcfa::ext or -lqzrcfa-ext) checks it against what the member it names needs, and
// demosaic() then calls that export, or with several threads runs its member over bands
// of rows. A bad request comes back as a Result that carries one clear message, and
// nothing is called. A valid request gives exactly the bytes a direct call of the
// export gives, whatever the thread count.
//
//   std::vector<std::uint8_t> raw = ...;                     // width * height samples
//   std::vector<std::uint8_t> bgr(qzrcfa::output_elements(width, height, options));
//   qzrcfa::Result r = qzrcfa::demosaic(qzrcfa::RawFrame(raw, width, height),
//                                       qzrcfa::OutputImage(bgr), options);
//   if (!r) std::cerr << r.message() << "\n";
//
// What is checked, and why (the rule, Options::rule, says which computation runs: the
// member, or the method's general rule, which serves every pattern, order and depth):
//  - a request for a member must have one: edge sensing 2 exists for RGGB only,
//    Laplacian2 for RGGB top-down only, 16-bit samples for nearest neighbour only;
//    grey output is nearest neighbour's only, whatever the rule; enum values outside
//    their lists are refused;
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

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "qzrcfa.h"
#include "qzrcfa_ext.h"

namespace qzrcfa {

// The methods (qzrcfa_names(QZRCFA_NAMES_METHOD, ...) describes each).
enum class Method {
    NearestNeighbor = QZRCFA_METHOD_NEAREST,
    Bilinear = QZRCFA_METHOD_BILINEAR,
    EdgeSensing1 = QZRCFA_METHOD_EDGE_SENSING_1,
    EdgeSensing2 = QZRCFA_METHOD_EDGE_SENSING_2,
    Laplacian = QZRCFA_METHOD_LAPLACIAN,
    Laplacian2 = QZRCFA_METHOD_LAPLACIAN_2,
    SmoothHue = QZRCFA_METHOD_SMOOTH_HUE,
    Gbri = QZRCFA_METHOD_GBRI,
};

enum class Pattern { RGGB = QZRCFA_PATTERN_RGGB, BGGR = QZRCFA_PATTERN_BGGR, GRBG = QZRCFA_PATTERN_GRBG, GBRG = QZRCFA_PATTERN_GBRG };

// Row order of the output; the raw frame is always read top-down. BottomUp selects
// the _Flip exports.
enum class RowOrder { TopDown = QZRCFA_ORDER_TOP_DOWN, BottomUp = QZRCFA_ORDER_BOTTOM_UP };

// Output layout. The colour formats' values are the interface's bitCount: three or
// four elements per pixel (blue, green, red, and a fourth the library leaves or
// pre-fills). With 16-bit samples the elements are 16-bit. Grey is one element per
// pixel.
enum class Format : unsigned short { Grey = QZRCFA_FORMAT_GREY, Bgr24 = QZRCFA_FORMAT_BGR24, Bgra32 = QZRCFA_FORMAT_BGRA32 };

// Largest thread count a request may ask for.
inline constexpr int kMaxThreads = 1024;

// Which rule runs (QZRCFA_RULE_*): the interface's member, byte for byte with its
// export, or the method's general rule; by default the member for 8-bit samples.
enum class Rule { Default = QZRCFA_RULE_DEFAULT, Member = QZRCFA_RULE_MEMBER, General = QZRCFA_RULE_GENERAL };

// How a raw frame's samples lie in its rows (QZRCFA_PACKING_*): 8- or 16-bit samples, or
// a sensor's packed layout of 10- or 12-bit samples.
enum class Packing {
    None = QZRCFA_PACKING_NONE,
    Raw10 = QZRCFA_PACKING_RAW10,
    Raw12 = QZRCFA_PACKING_RAW12,
    P10 = QZRCFA_PACKING_P10,
    P12 = QZRCFA_PACKING_P12,
    Packed12 = QZRCFA_PACKING_PACKED12,
};

// The output's transfer curve (QZRCFA_CURVE_*).
enum class Curve { Linear = QZRCFA_CURVE_LINEAR, Srgb = QZRCFA_CURVE_SRGB, Gamma = QZRCFA_CURVE_GAMMA };

// From a camera's raw frame to a picture, in the same pass (the general rule): a black
// level for each place of the 2x2 tile (all four alike for one level), white-balance
// gains for red, green and blue (or grey world), a colour matrix from camera red, green,
// blue to the output's (row-major) and an output curve. Zero means none.
struct Picture {
    std::array<int, 4> black{};
    std::array<float, 3> gains{};
    bool auto_white_balance = false;
    std::array<float, 9> matrix{};
    Curve curve = Curve::Linear;
    float gamma = 0;  // for Curve::Gamma
};

struct Options {
    Method method = Method::Bilinear;
    Pattern pattern = Pattern::RGGB;
    RowOrder order = RowOrder::TopDown;
    Format format = Format::Bgr24;
    int threads = 1;  // 1: the calling thread only, exactly a direct call; 0: every processor; N: up to N
    Rule rule = Rule::Default;
    Picture picture = {};
};

// Names, as the library spells them ("smoothhue", "RGGB", "top-down", "bgr24"), and
// the values that texts name: the name, one of its aliases ("smooth-hue"), in any case,
// with or without '-', '_' and spaces. The library's table of names (qzrcfa_names) says
// them all, with a label and a summary each.
namespace detail {
template <class E> inline constexpr int kNames = -1;
template <> inline constexpr int kNames<Method> = QZRCFA_NAMES_METHOD;
template <> inline constexpr int kNames<Pattern> = QZRCFA_NAMES_PATTERN;
template <> inline constexpr int kNames<RowOrder> = QZRCFA_NAMES_ORDER;
template <> inline constexpr int kNames<Format> = QZRCFA_NAMES_FORMAT;
template <> inline constexpr int kNames<Rule> = QZRCFA_NAMES_RULE;
template <> inline constexpr int kNames<Packing> = QZRCFA_NAMES_PACKING;
template <> inline constexpr int kNames<Curve> = QZRCFA_NAMES_CURVE;

template <class E>
const qzrcfa_name* name_entry(E value) {
    for (int i = 0; const qzrcfa_name* n = qzrcfa_names(kNames<E>, i); ++i)
        if (n->value == int(value)) return n;
    return nullptr;
}
}  // namespace detail

template <class E>
    requires(detail::kNames<E> >= 0)
std::string_view to_string(E value) {
    const qzrcfa_name* n = detail::name_entry(value);
    return n ? n->name : "?";
}

template <class E>
    requires(detail::kNames<E> >= 0)
std::optional<E> from_string(std::string_view text) {
    const int v = qzrcfa_lookup(detail::kNames<E>, std::string(text).c_str());
    if (v < 0) return std::nullopt;
    return E(v);
}

// A raw frame: height rows of width samples, 8- or 16-bit, `stride` bytes from a row to
// the next (0: rows back to back). 16-bit samples may have fewer significant bits
// (`bits`, 9 to 16; 0: all 16). `count` is how many samples (8- or 16-bit elements)
// the view covers; the samples after the frame are never read.
class RawFrame {
  public:
    RawFrame(const std::uint8_t* samples, std::size_t count, int width, int height, std::ptrdiff_t stride = 0)
        : data_(samples), count_(count), width_(width), height_(height), depth_(8), stride_(stride) {}
    RawFrame(const std::uint16_t* samples, std::size_t count, int width, int height, std::ptrdiff_t stride = 0, int bits = 0)
        : data_(samples), count_(count), width_(width), height_(height), depth_(16), stride_(stride), bits_(bits) {}
    // Rows of a sensor's packed layout: `count` bytes, `stride` bytes from a row to the
    // next (0: the layout's row bytes). `bits`: 0, or the layout's own (others are refused).
    RawFrame(const std::uint8_t* bytes, std::size_t count, int width, int height, Packing packing, std::ptrdiff_t stride = 0,
             int bits = 0)
        : data_(bytes), count_(count), width_(width), height_(height), depth_(0), stride_(stride), bits_(bits), packing_(packing) {}
    RawFrame(std::span<const std::uint8_t> samples, int width, int height)
        : RawFrame(samples.data(), samples.size(), width, height) {}
    RawFrame(std::span<const std::uint16_t> samples, int width, int height)
        : RawFrame(samples.data(), samples.size(), width, height) {}

    const void* data() const { return data_; }
    std::size_t count() const { return count_; }  // samples the view covers
    int width() const { return width_; }
    int height() const { return height_; }
    int depth() const { return depth_; }  // bits per sample; 0 for packed rows
    std::ptrdiff_t stride() const { return stride_; }
    int bits() const { return bits_; }
    Packing packing() const { return packing_; }
    std::size_t sample_bytes() const { return depth_ == 16 ? 2 : 1; }  // of what `count` counts

  private:
    const void* data_;
    std::size_t count_;
    int width_, height_;
    int depth_;
    std::ptrdiff_t stride_ = 0;
    int bits_ = 0;
    Packing packing_ = Packing::None;
};

// The caller's output buffer: `count` elements of 8 or 16 bits, rows `stride` bytes
// apart (0: back to back).
class OutputImage {
  public:
    OutputImage(std::uint8_t* data, std::size_t count, std::ptrdiff_t stride = 0)
        : data_(data), count_(count), depth_(8), stride_(stride) {}
    OutputImage(std::uint16_t* data, std::size_t count, std::ptrdiff_t stride = 0)
        : data_(data), count_(count), depth_(16), stride_(stride) {}
    OutputImage(std::span<std::uint8_t> elements, std::ptrdiff_t stride = 0)
        : OutputImage(elements.data(), elements.size(), stride) {}
    OutputImage(std::span<std::uint16_t> elements, std::ptrdiff_t stride = 0)
        : OutputImage(elements.data(), elements.size(), stride) {}

    void* data() const { return data_; }
    std::size_t count() const { return count_; }
    int depth() const { return depth_; }  // bits per element
    std::ptrdiff_t stride() const { return stride_; }
    std::size_t element_bytes() const { return depth_ == 16 ? 2 : 1; }

  private:
    void* data_;
    std::size_t count_;
    int depth_;
    std::ptrdiff_t stride_;
};

// Outcome of a checked call: success, or the reason the request was refused; and the
// white-balance gains (red, green, blue) a call applied, which automatic white balance
// found.
class Result {
  public:
    static Result success(std::array<float, 3> gains = {1, 1, 1}) {
        Result r;
        r.gains_ = gains;
        return r;
    }
    static Result failure(std::string message) {
        Result r;
        r.message_ = message.empty() ? std::string("refused") : std::move(message);
        return r;
    }
    bool ok() const { return message_.empty(); }
    explicit operator bool() const { return ok(); }
    const std::string& message() const { return message_; }  // empty on success
    const std::array<float, 3>& gains_used() const { return gains_; }

  private:
    std::string message_;
    std::array<float, 3> gains_{1, 1, 1};
};

// Smallest width and height a request accepts (0, 0 when the combination has no
// export). A frame with an odd width needs a third row for the one-pixel border fill.
struct Size {
    int width = 0;
    int height = 0;
};

namespace detail {

inline qzrcfa_request to_request(int width, int height, const Options& o, int depth, int output_depth = 0) {
    qzrcfa_request q = QZRCFA_REQUEST_INIT;
    q.width = width;
    q.height = height;
    q.depth = depth;
    q.output_depth = output_depth;
    q.method = int(o.method);
    q.pattern = int(o.pattern);
    q.order = int(o.order);
    q.format = int(o.format);
    q.threads = o.threads;
    q.rule = int(o.rule);
    std::copy(o.picture.black.begin(), o.picture.black.end(), q.black);
    std::copy(o.picture.gains.begin(), o.picture.gains.end(), q.gains);
    q.white_balance = o.picture.auto_white_balance ? QZRCFA_WHITE_BALANCE_AUTO : QZRCFA_WHITE_BALANCE_GIVEN;
    std::copy(o.picture.matrix.begin(), o.picture.matrix.end(), q.matrix);
    q.curve = int(o.picture.curve);
    q.gamma = o.picture.gamma;
    return q;
}

inline qzrcfa_request to_request(const RawFrame& raw, const OutputImage& out, const Options& o) {
    qzrcfa_request q = to_request(raw.width(), raw.height(), o, raw.depth(), out.depth());
    q.samples = raw.data();
    q.samples_bytes = raw.count() * raw.sample_bytes();
    q.samples_stride = raw.stride();
    q.bits = raw.bits();
    q.packing = int(raw.packing());
    q.output = out.data();
    q.output_bytes = out.count() * out.element_bytes();
    q.output_stride = out.stride();
    return q;
}

}  // namespace detail

// Smallest frame the request accepts; output_depth 0: the samples' depth (which rule
// the default picks, and so the minimum, can depend on it).
inline Size minimum_size(const Options& options, int depth = 8, int output_depth = 0) {
    const qzrcfa_request q = detail::to_request(0, 0, options, depth, output_depth);
    Size s;
    qzrcfa_minimum_size(&q, &s.width, &s.height);
    return s;
}

// Elements the output buffer must hold for a width x height frame with rows back to
// back, slack included; 0 when demosaic() would refuse the request whatever the buffers
// (see check()). output_depth 0: the samples' depth.
inline std::size_t output_elements(int width, int height, const Options& options, int depth = 8, int output_depth = 0) {
    const qzrcfa_request q = detail::to_request(width, height, options, depth, output_depth);
    return qzrcfa_output_elements(&q);
}

namespace detail {
// A request for a frame as it will arrive (its size, depth, bits, packing and stride),
// without buffers.
inline qzrcfa_request to_query(const RawFrame& raw, const Options& o, int output_depth) {
    qzrcfa_request q = to_request(raw.width(), raw.height(), o, raw.depth(), output_depth);
    q.samples_stride = raw.stride();
    q.bits = raw.bits();
    q.packing = int(raw.packing());
    return q;
}
}  // namespace detail

// The same for a frame as it will arrive: its bits, packing and stride count too, and
// `raw` may view no samples yet (a program asks before it reads or allocates).
inline Size minimum_size(const RawFrame& raw, const Options& options, int output_depth = 0) {
    const qzrcfa_request q = detail::to_query(raw, options, output_depth);
    Size s;
    qzrcfa_minimum_size(&q, &s.width, &s.height);
    return s;
}
inline std::size_t output_elements(const RawFrame& raw, const Options& options, int output_depth = 0) {
    const qzrcfa_request q = detail::to_query(raw, options, output_depth);
    return qzrcfa_output_elements(&q);
}

// Threads demosaic() splits such a frame among (1: the calling thread alone); -1 when it
// would refuse the request's fields.
inline int threads_used(const RawFrame& raw, const Options& options, int output_depth = 0) {
    const qzrcfa_request q = detail::to_query(raw, options, output_depth);
    return qzrcfa_threads_used(&q);
}

// Every check demosaic() makes, without calling anything.
inline Result check(const RawFrame& raw, const OutputImage& out, const Options& options) {
    char message[512];
    const qzrcfa_request request = detail::to_request(raw, out, options);
    if (qzrcfa_check(&request, message, sizeof message) != 0) return Result::failure(message);
    return Result::success();
}

// Checks the request and, if it is sound, runs it (extended library).
inline Result demosaic(const RawFrame& raw, const OutputImage& out, const Options& options) {
    char message[512];
    std::array<float, 3> gains{1, 1, 1};
    qzrcfa_request request = detail::to_request(raw, out, options);
    request.gains_used = gains.data();
    if (qzrcfa_demosaic(&request, message, sizeof message) != 0) return Result::failure(message);
    return Result::success(gains);
}

// The white-balance gains (red, green, blue) grey world finds in a raw frame (its
// pattern, bits, packing and black level from `options`), as automatic white balance
// applies them; a video program can find them once and keep them.
inline Result auto_white_balance(const RawFrame& raw, const Options& options) {
    char message[512];
    std::array<float, 3> gains{};
    const qzrcfa_request request = detail::to_request(raw, OutputImage(static_cast<std::uint8_t*>(nullptr), 0), options);
    if (qzrcfa_auto_white_balance(&request, gains.data(), message, sizeof message) != 0) return Result::failure(message);
    return Result::success(gains);
}

}  // namespace qzrcfa
