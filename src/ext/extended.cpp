// The extended library's C interface (qzrcfa_ext.h): requests read, checked against
// what the rule they run needs, then run.
//
// A request names a method, a pattern, a row order, a format, a sample depth and a rule.
// Under the member rule that is one member of the catalogue, found by the interface's
// naming rule (catalogue/methods.h gives each method's export prefix); what it needs of
// the frame and the buffers is read off its description (ext/runners.cpp). A sound
// member request with rows back to back on one thread calls the export itself, exactly
// as a direct call would; on several threads, or with padded rows, it runs the member,
// built into this library from the same family files, and when the application has
// interposed that export (or one it calls) the export is called instead, so that the
// interposer sees the call. Under the general rule (src/general/) every method serves
// every pattern, order and depth. Nothing throws across the C interface: a failure comes
// back as -1 and its message.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include "catalogue/catalogue.h"
#include "catalogue/methods.h"
#include "ext/names.h"
#include "ext/pool.h"
#include "ext/runners.h"
#include "general/general.h"
#include "qzrcfa_ext.h"

namespace qzrcfa::ext {
namespace {

using catalogue::Id;

constexpr int kMaxThreads = 1024;

// The first layout of a request that can grow: every field up to `rule`. Requests of
// this size stay valid whatever fields later layouts add.
constexpr std::size_t kFirstRequestSize = offsetof(qzrcfa_request, rule) + sizeof(int);

// A refusal, or nothing.
using Why = std::optional<std::string>;

std::string str(std::size_t v) { return std::to_string(v); }

bool colour(int format) { return format == QZRCFA_FORMAT_BGR24 || format == QZRCFA_FORMAT_BGRA32; }

std::size_t elements_per_pixel(int format) { return format == QZRCFA_FORMAT_BGRA32 ? 4 : format == QZRCFA_FORMAT_BGR24 ? 3 : 1; }

enum class Engine { Member, General, Gbri };

// What a request comes to: its fields (those past the caller's size zero) with the
// defaults settled, and what runs it.
struct Plan {
    qzrcfa_request q{};
    detail::Packing packing = detail::Packing::Bytes;
    int bits = 8;                 // significant bits of the samples
    int output_depth = 8;
    bool balance = false;         // black level and gains
    bool picture = false;         // anything of the second layout: packing, balance, matrix, curve
    const catalogue::Method* method = nullptr;
    Engine engine = Engine::Member;
    std::optional<Id> member;     // Engine::Member
    MemberFacts facts;            // what the member or rule needs of a frame
    general::Method general = general::Method::Bilinear;

    // The raw frame's unit: its samples' bytes, or 1 for packed rows.
    std::size_t sample_bytes() const { return packing == detail::Packing::Words ? 2 : 1; }
    std::size_t element_bytes() const { return std::size_t(output_depth / 8); }
    std::size_t in_row() const { return general::row_bytes(packing, std::size_t(q.width)); }
    std::size_t out_row() const { return std::size_t(q.width) * elements_per_pixel(q.format) * element_bytes(); }
    std::size_t in_stride() const { return q.samples_stride ? std::size_t(q.samples_stride) : in_row(); }
    std::size_t out_stride() const { return q.output_stride ? std::size_t(q.output_stride) : out_row(); }
    bool compact() const { return in_stride() == in_row() && out_stride() == out_row(); }
};

// The caller's request as this library's layout.
Why read(const qzrcfa_request* request, Plan& p) {
    if (request == nullptr) return "the request is null";
    const std::size_t size = request->size;
    if (size < kFirstRequestSize)
        return "the request's size is " + str(size) + " bytes, below the " + str(kFirstRequestSize) +
               " of the smallest request this library takes (set size = sizeof(qzrcfa_request))";
    std::memcpy(&p.q, request, std::min(size, sizeof p.q));
    const auto* bytes = reinterpret_cast<const unsigned char*>(request);
    for (std::size_t i = sizeof p.q; i < size; ++i)
        if (bytes[i] != 0)
            return "the request has fields this library does not know (it is " + str(size) + " bytes, this library knows " +
                   str(sizeof p.q) + "): a newer qzrcfa_ext.h than libqzrcfa-ext";
    p.q.size = sizeof p.q;
    return std::nullopt;
}

// The export a member of `method` for the rest of the request would have, by the
// interface's naming rule.
std::string export_name(const catalogue::Method& m, int pattern, int order, int format, int depth) {
    std::string name(m.members);
    name += "_" + name_of(QZRCFA_NAMES_PATTERN, pattern);
    if (format == QZRCFA_FORMAT_GREY) name += "_Gray";
    if (order == QZRCFA_ORDER_BOTTOM_UP) name += "_Flip";
    if (depth == 16) name += "_16Bits";
    return name;
}

std::optional<Id> find_member(const catalogue::Method& m, int pattern, int order, int format, int depth) {
    if (m.members.empty()) return std::nullopt;
    const std::size_t i = catalogue::find(export_name(m, pattern, order, format, depth));
    if (i == catalogue::kCount) return std::nullopt;
    return Id(i);
}

// Whether a method has some member for a format and depth.
bool has_members(const catalogue::Method& m, int format, int depth) {
    for (const qzrcfa_name& p : names_of(QZRCFA_NAMES_PATTERN))
        for (const qzrcfa_name& o : names_of(QZRCFA_NAMES_ORDER))
            if (find_member(m, p.value, o.value, format, depth)) return true;
    return false;
}

// "a and b", "a, b and c".
std::string joined(const std::vector<std::string>& words) {
    std::string out;
    for (std::size_t i = 0; i < words.size(); ++i) out += (i == 0 ? "" : i + 1 == words.size() ? " and " : ", ") + words[i];
    return out;
}

// The members a method has for a format and depth: "RGGB top-down and RGGB bottom-up".
std::string members_of(const catalogue::Method& m, int format, int depth) {
    std::vector<std::string> names;
    for (const qzrcfa_name& p : names_of(QZRCFA_NAMES_PATTERN))
        for (const qzrcfa_name& o : names_of(QZRCFA_NAMES_ORDER))
            if (find_member(m, p.value, o.value, format, depth)) names.push_back(std::string(p.name) + " " + o.name);
    return joined(names);
}

// The general rule of a method of the interface.
general::Method general_of(int method) {
    switch (method) {
    case QZRCFA_METHOD_NEAREST: return general::Method::Nearest;
    case QZRCFA_METHOD_EDGE_SENSING_1: return general::Method::EdgeSensing1;
    case QZRCFA_METHOD_EDGE_SENSING_2: return general::Method::EdgeSensing2;
    case QZRCFA_METHOD_LAPLACIAN:
    case QZRCFA_METHOD_LAPLACIAN_2: return general::Method::Laplacian;  // its one difference is its member's
    case QZRCFA_METHOD_SMOOTH_HUE: return general::Method::SmoothHue;
    default: return general::Method::Bilinear;
    }
}

Why resolve_member(Plan& p) {
    const qzrcfa_request& q = p.q;
    const std::string method(p.method->name.name);
    if (p.output_depth != q.depth)
        return "the members write elements of their samples' depth, not " + std::to_string(p.output_depth) + "-bit from " +
               std::to_string(q.depth) + "-bit samples (the general rule does)";
    if (!has_members(*p.method, q.format, q.depth)) {
        if (q.format == QZRCFA_FORMAT_GREY) return "no member of " + method + " writes grey (nearest writes grey)";
        return "no member of " + method + " takes " + std::to_string(q.depth) + "-bit samples (the general rule does)";
    }
    p.member = find_member(*p.method, q.pattern, q.order, q.format, q.depth);
    if (!p.member)
        return "no member of " + method + " for " + name_of(QZRCFA_NAMES_PATTERN, q.pattern) + " " +
               name_of(QZRCFA_NAMES_ORDER, q.order) + ": " + method + " has " + members_of(*p.method, q.format, q.depth) +
               " (the general rule serves every pattern and order)";
    p.engine = Engine::Member;
    p.facts = facts(*p.member);
    return std::nullopt;
}

bool finite(float v) { return v == v && v - v == 0; }

// Settles the samples: their depth, packing and significant bits.
Why resolve_samples(Plan& p) {
    const qzrcfa_request& q = p.q;
    if (q.packing < QZRCFA_PACKING_NONE || q.packing > QZRCFA_PACKING_PACKED12)
        return "unknown packing (value " + std::to_string(q.packing) + "; " + name_list(QZRCFA_NAMES_PACKING) + ")";
    if (q.packing != QZRCFA_PACKING_NONE) {
        p.packing = detail::Packing(int(detail::Packing::Raw10) + q.packing - QZRCFA_PACKING_RAW10);
        const int bits = general::packed_bits(p.packing);
        if (q.depth != 0 && q.depth != 16)
            return "packed samples become 16-bit values: depth 16 or 0, not " + std::to_string(q.depth);
        if (q.bits != 0 && q.bits != bits)
            return "bits " + std::to_string(q.bits) + " given with " + name_of(QZRCFA_NAMES_PACKING, q.packing) +
                   ", whose samples have " + std::to_string(bits);
        p.q.depth = 16;
        p.bits = bits;
        return std::nullopt;
    }
    if (q.depth != 8 && q.depth != 16) return "samples must be 8 or 16 bits, not " + std::to_string(q.depth);
    if (q.depth == 8 && q.bits != 0) return "bits " + std::to_string(q.bits) + " given with 8-bit samples (bits is for 16-bit samples)";
    if (q.depth == 16 && q.bits != 0 && (q.bits < 9 || q.bits > 16))
        return "bits " + std::to_string(q.bits) + " is outside 9..16 (the significant bits of 16-bit samples)";
    p.packing = q.depth == 8 ? detail::Packing::Bytes : detail::Packing::Words;
    p.bits = q.bits ? q.bits : q.depth;
    return std::nullopt;
}

// Settles black level, white balance, matrix and curve.
Why resolve_picture(Plan& p) {
    const qzrcfa_request& q = p.q;
    const int max = (1 << p.bits) - 1;
    bool black = false, gains = false, matrix = false;
    for (int b : q.black) {
        if (b < 0 || b > max)
            return "black level " + std::to_string(b) + " is outside 0.." + std::to_string(max) + " of " +
                   std::to_string(p.bits) + "-bit samples";
        black = black || b != 0;
    }
    for (float g : q.gains) gains = gains || g != 0;
    if (q.white_balance != QZRCFA_WHITE_BALANCE_GIVEN && q.white_balance != QZRCFA_WHITE_BALANCE_AUTO)
        return "unknown white balance (value " + std::to_string(q.white_balance) + "; given or auto)";
    if (q.white_balance == QZRCFA_WHITE_BALANCE_AUTO && gains)
        return "automatic white balance finds the gains itself: leave the gains 0";
    for (float g : q.gains)
        if (gains && !(finite(g) && g > 0 && g <= 64))
            return "gain " + std::to_string(g) + " is not a number above 0 and at most 64";
    for (float m : q.matrix) matrix = matrix || m != 0;
    for (float m : q.matrix)
        if (matrix && !(finite(m) && m >= -64 && m <= 64))
            return "colour matrix entry " + std::to_string(m) + " is not a number from -64 to 64";
    if (q.curve < QZRCFA_CURVE_LINEAR || q.curve > QZRCFA_CURVE_GAMMA)
        return "unknown curve (value " + std::to_string(q.curve) + "; " + name_list(QZRCFA_NAMES_CURVE) + ")";
    if (q.curve == QZRCFA_CURVE_GAMMA && !(finite(q.gamma) && q.gamma > 0 && q.gamma <= 10))
        return "gamma " + std::to_string(q.gamma) + " is not a number above 0 and at most 10";
    if (q.curve != QZRCFA_CURVE_GAMMA && q.gamma != 0) return "a gamma goes with the gamma curve";
    if (matrix && q.format == QZRCFA_FORMAT_GREY) return "a colour matrix needs colour output, not grey";
    p.balance = black || gains || q.white_balance == QZRCFA_WHITE_BALANCE_AUTO;
    p.picture = p.balance || matrix || q.curve != QZRCFA_CURVE_LINEAR || q.packing != QZRCFA_PACKING_NONE;
    return std::nullopt;
}

// Settles the request's method, rule, depths and formats.
Why resolve(Plan& p) {
    const qzrcfa_request& q = p.q;
    p.method = catalogue::find_method(q.method);
    if (p.method == nullptr)
        return "unknown method (value " + std::to_string(q.method) + "; " + name_list(QZRCFA_NAMES_METHOD) + ")";
    if (q.pattern < 0 || q.pattern > 3) return "unknown Bayer pattern (value " + std::to_string(q.pattern) + ")";
    if (q.order != QZRCFA_ORDER_TOP_DOWN && q.order != QZRCFA_ORDER_BOTTOM_UP)
        return "unknown row order (value " + std::to_string(q.order) + ")";
    if (!colour(q.format) && q.format != QZRCFA_FORMAT_GREY)
        return "format " + std::to_string(q.format) + " is not one of " + name_list(QZRCFA_NAMES_FORMAT) +
               " (bitCount 24, 32, or 0 for grey)";
    if (q.rule < QZRCFA_RULE_DEFAULT || q.rule > QZRCFA_RULE_GENERAL)
        return "unknown rule (value " + std::to_string(q.rule) + "; " + name_list(QZRCFA_NAMES_RULE) + ")";
    if (Why why = resolve_samples(p)) return why;
    p.output_depth = q.output_depth ? q.output_depth : q.depth;
    if (p.output_depth != 8 && p.output_depth != 16)
        return "output elements must be 8 or 16 bits, not " + std::to_string(q.output_depth);
    if (p.output_depth > q.depth) return "16-bit output elements from 8-bit samples: the output takes the samples' depth or 8 bits";
    if (Why why = resolve_picture(p)) return why;
    const std::string method(p.method->name.name);
    if (p.picture && q.rule == QZRCFA_RULE_MEMBER)
        return "the members take samples as they are: packed rows, black level, white balance, a colour matrix and a "
               "curve run the general rule";
    if (p.method->members.empty()) {  // the extended library's own method
        if (q.rule == QZRCFA_RULE_MEMBER) return method + " has no member: it is the extended library's own method";
        if (q.format == QZRCFA_FORMAT_GREY) return "no grey output from " + method + " (nearest writes grey)";
        p.engine = Engine::Gbri;
        return std::nullopt;
    }
    // The members take every sample as it is: by default, 16-bit samples of fewer
    // significant bits, whose larger values the general rule takes as the largest, run
    // the general rule.
    const bool member = q.rule == QZRCFA_RULE_MEMBER ||
                        (q.rule == QZRCFA_RULE_DEFAULT && !p.picture &&
                         (q.depth == 8 || (p.output_depth == q.depth && p.bits == q.depth &&
                                           find_member(*p.method, q.pattern, q.order, q.format, q.depth))));
    if (member) return resolve_member(p);
    if (q.format == QZRCFA_FORMAT_GREY && q.method != QZRCFA_METHOD_NEAREST)
        return "no grey output from " + method + " (nearest writes grey)";
    p.engine = Engine::General;
    p.general = general_of(q.method);
    return std::nullopt;
}

std::string size_of(const qzrcfa_request& q) { return std::to_string(q.width) + "x" + std::to_string(q.height); }

// The checks on the frame size alone: the minimum, and for the members the interface's
// signed 32-bit products.
Why check_size(const Plan& p) {
    const qzrcfa_request& q = p.q;
    const int w = q.width, h = q.height;
    const std::string size = size_of(q);
    if (w < 0 || h < 0) return "frame size " + size + " is negative";
    const MemberFacts& f = p.facts;
    if (w < f.min_width || h < f.min_height)
        return "frame size " + size + " is below the " + std::to_string(f.min_width) + "x" + std::to_string(f.min_height) +
               " minimum of " + std::string(p.method->name.name) + (q.format == QZRCFA_FORMAT_GREY ? " grey " : " ") +
               name_of(QZRCFA_NAMES_PATTERN, q.pattern) + " " + name_of(QZRCFA_NAMES_ORDER, q.order);
    if (f.odd_width_needs_three_rows && (w % 2) != 0 && h < 3)
        return "frame size " + size + ": an odd width needs at least 3 rows";
    constexpr std::uint64_t kInt32Max = std::uint64_t(std::numeric_limits<std::int32_t>::max());
    const std::uint64_t pixels = std::uint64_t(w) * std::uint64_t(h);
    if (p.engine != Engine::Member) {
        // Any frame whose buffers fit in memory; the row sizes in size_t.
        if (pixels > std::uint64_t(std::numeric_limits<std::ptrdiff_t>::max() / 16))
            return "frame size " + size + " is too large for this machine's memory";
        return std::nullopt;
    }
    const std::uint64_t image_bytes = pixels * elements_per_pixel(q.format) * p.element_bytes();
    if (image_bytes + f.dst_tail * p.element_bytes() > kInt32Max || pixels * p.sample_bytes() > kInt32Max)
        return "frame size " + size + " is too large: the interface's members take images below 2^31 bytes (the general rule takes any size)";
    if (f.fill255 && pixels * unsigned(q.format) > kInt32Max)
        return "frame size " + size + " is too large: width x height x bitCount must stay below 2^31 for this member (the general rule takes any size)";
    return std::nullopt;
}

// Bytes from the first row's first element to the end of the last row, slack included.
std::size_t span(std::size_t rows, std::size_t stride, std::size_t row, std::size_t tail) {
    return rows == 0 ? 0 : (rows - 1) * stride + row + tail;
}

std::size_t output_bytes(const Plan& p) {
    return span(std::size_t(p.q.height), p.out_stride(), p.out_row(), p.facts.dst_tail * p.element_bytes());
}

// A stride: 0, or at least a row and a whole number of elements.
Why check_stride(const char* what, std::ptrdiff_t stride, std::size_t row, std::size_t element) {
    if (stride == 0) return std::nullopt;
    if (stride < 0) return std::string(what) + " stride " + std::to_string(stride) + " is negative (the row order says which way the rows go)";
    if (std::size_t(stride) < row)
        return std::string(what) + " stride " + std::to_string(stride) + " is below a row's " + str(row) + " bytes";
    if (std::size_t(stride) % element != 0)
        return std::string(what) + " stride " + std::to_string(stride) + " is not a multiple of the " + str(element) + "-byte elements";
    return std::nullopt;
}

bool overlaps(const void* a, std::size_t a_bytes, const void* b, std::size_t b_bytes) {
    const auto a0 = reinterpret_cast<std::uintptr_t>(a);
    const auto b0 = reinterpret_cast<std::uintptr_t>(b);
    return a0 < b0 + b_bytes && b0 < a0 + a_bytes;
}

// Everything but the buffers.
Why plan(const qzrcfa_request* request, Plan& p) {
    if (Why why = read(request, p)) return why;
    if (Why why = resolve(p)) return why;
    return check_size(p);
}

// Every check qzrcfa_demosaic makes.
Why check(const qzrcfa_request* request, Plan& p) {
    if (Why why = plan(request, p)) return why;
    const qzrcfa_request& q = p.q;
    if (q.threads < 0 || q.threads > kMaxThreads)
        return "thread count " + std::to_string(q.threads) + " is " +
               (q.threads < 0 ? std::string("negative") : "above the limit of " + std::to_string(kMaxThreads)) +
               ": use 1 for the calling thread, 0 for every processor, or up to " + std::to_string(kMaxThreads);
    if (Why why = check_stride("the raw frame's", q.samples_stride, p.in_row(), p.sample_bytes())) return why;
    if (Why why = check_stride("the output's", q.output_stride, p.out_row(), p.element_bytes())) return why;
    if (q.samples == nullptr) return "the raw frame is null";
    if (q.output == nullptr) return "the output buffer is null";
    if (reinterpret_cast<std::uintptr_t>(q.samples) % p.sample_bytes() != 0)
        return "the raw frame's 16-bit samples are not aligned to 2 bytes";
    if (reinterpret_cast<std::uintptr_t>(q.output) % p.element_bytes() != 0)
        return "the output's 16-bit elements are not aligned to 2 bytes";
    const std::string size = size_of(q);
    const std::size_t need_in = span(std::size_t(q.height), p.in_stride(), p.in_row(), 0);
    if (q.samples_bytes < need_in)
        return "raw frame holds " + str(q.samples_bytes) + " bytes, " + size + " of " +
               (q.packing ? name_of(QZRCFA_NAMES_PACKING, q.packing) + " rows" : std::to_string(q.depth) + "-bit samples") +
               (q.samples_stride ? " with rows " + std::to_string(q.samples_stride) + " bytes apart" : "") + " needs " + str(need_in);
    const std::size_t need_out = output_bytes(p);
    if (q.output_bytes < need_out) {
        std::string why = "output holds " + str(q.output_bytes) + " bytes, " + size + " " + name_of(QZRCFA_NAMES_FORMAT, q.format) +
                          " of " + std::to_string(p.output_depth) + "-bit elements" +
                          (q.output_stride ? " with rows " + std::to_string(q.output_stride) + " bytes apart" : "") + " needs " +
                          str(need_out);
        if (p.facts.dst_tail) why += " (the image and the 2 elements after it, which this member writes)";
        return why;
    }
    if (overlaps(q.samples, need_in, q.output, need_out)) return "the raw frame and the output buffer overlap";
    return std::nullopt;
}

// Pixels a thread should have at least for threads to pay (the method table says); the
// one-pass members are bound by memory and gain little per thread on small frames.
int useful_threads(int requested, int width, int height, const catalogue::Method& m) {
    const std::int64_t pixels = std::int64_t(width) * height;
    const int wanted = requested == 0 ? processors() : requested;
    return int(std::max<std::int64_t>(1, std::min<std::int64_t>(wanted, pixels / m.pixels_per_thread)));
}

// The frame as the general rule reads it, black level and gains included (the gains
// in the output's element order).
general::Frame frame_of(const Plan& p) {
    const qzrcfa_request& q = p.q;
    general::Frame f{static_cast<const std::uint8_t*>(q.samples), std::ptrdiff_t(p.in_stride()), p.packing, p.bits,
                     q.width, q.height, detail::Pattern(q.pattern)};
    f.balance = p.balance;
    for (int i = 0; i < 4; ++i) f.black[i / 2][i % 2] = float(q.black[i]);
    const bool given = q.gains[0] != 0 || q.gains[1] != 0 || q.gains[2] != 0;
    f.gains[detail::kRed] = given ? q.gains[0] : 1.0f;
    f.gains[detail::kGreen] = given ? q.gains[1] : 1.0f;
    f.gains[detail::kBlue] = given ? q.gains[2] : 1.0f;
    return f;
}

// Grey world's gains for the request's frame, in the output's element order.
Why auto_gains(general::Frame& f) {
    if (general::grey_world(f, f.gains)) return std::nullopt;
    return "automatic white balance found no unsaturated sample of some colour in the frame (give the gains instead)";
}

// The general rule's view of the request: the frame with its black level and gains
// (grey world's when asked, written to gains_used), and the image with its matrix and
// curve (the curve's table in `curve`).
Why picture_of(const Plan& p, general::Frame& frame, general::Image& image, std::vector<std::uint16_t>& curve) {
    const qzrcfa_request& q = p.q;
    frame = frame_of(p);
    if (q.white_balance == QZRCFA_WHITE_BALANCE_AUTO)
        if (Why why = auto_gains(frame)) return why;
    if (q.gains_used != nullptr) {
        q.gains_used[0] = frame.gains[detail::kRed];
        q.gains_used[1] = frame.gains[detail::kGreen];
        q.gains_used[2] = frame.gains[detail::kBlue];
    }
    image = general::Image{static_cast<std::uint8_t*>(q.output), std::ptrdiff_t(p.out_stride()),
                           int(elements_per_pixel(q.format)), p.output_depth, q.order == QZRCFA_ORDER_BOTTOM_UP};
    if (std::any_of(std::begin(q.matrix), std::end(q.matrix), [](float m) { return m != 0; })) image.matrix = q.matrix;
    if (q.curve != QZRCFA_CURVE_LINEAR) {
        curve = general::curve_table(q.curve == QZRCFA_CURVE_SRGB ? general::Curve::Srgb : general::Curve::Gamma, q.gamma,
                                     (1 << p.bits) - 1, p.output_depth);
        image.curve = curve.data();
    }
    return std::nullopt;
}

Why run(const Plan& p) {
    const qzrcfa_request& q = p.q;
    const int threads = useful_threads(q.threads, q.width, q.height, *p.method);
    const bool bottom_up = q.order == QZRCFA_ORDER_BOTTOM_UP;
    general::Frame frame{};
    general::Image image{};
    std::vector<std::uint16_t> curve;
    switch (p.engine) {
    case Engine::Gbri:
        if (!p.picture && p.bits == q.depth && p.output_depth == q.depth) {
            run_gbri(q.samples, p.in_stride(), q.depth, q.width, q.height, q.pattern, q.output, p.out_stride(),
                     int(elements_per_pixel(q.format)), bottom_up, threads);
            return std::nullopt;
        }
        if (Why why = picture_of(p, frame, image, curve)) return why;
        run_gbri_picture(frame, p.bits == 8 ? 8 : 16, image, threads);
        return std::nullopt;
    case Engine::General: {
        if (Why why = picture_of(p, frame, image, curve)) return why;
        const CallTasks tasks(threads);
        general::demosaic(p.general, frame, image, &tasks);
        return std::nullopt;
    }
    case Engine::Member: break;
    }
    auto* src = const_cast<void*>(q.samples);  // the exports take non-const pointers; they only read
    const auto bits = static_cast<unsigned short>(q.format);
    if (!p.compact()) {
        run_member_padded(*p.member, q.samples, p.in_stride(), q.width, q.height, q.output, p.out_stride(), bits, threads);
        return std::nullopt;
    }
    if (threads > 1 && run_member(*p.member, src, q.width, q.height, q.output, bits, threads)) return std::nullopt;
    call_export(*p.member, src, q.width, q.height, q.output, bits);
    return std::nullopt;
}

void tell(const std::string& text, char* message, std::size_t size) {
    if (message == nullptr || size == 0) return;
    const std::size_t n = std::min(text.size(), size - 1);
    std::memcpy(message, text.data(), n);
    message[n] = '\0';
}

// Runs `body`, which returns a refusal or nothing, across the C interface: -1 with the
// reason, or with what went wrong, for anything thrown.
template <class Body>
int guarded(char* message, std::size_t size, Body&& body) {
    try {
        if (Why why = body()) return tell(*why, message, size), -1;
        tell("", message, size);
        return 0;
    } catch (const std::bad_alloc&) {
        tell("out of memory", message, size);
    } catch (const std::exception& e) {
        tell(e.what(), message, size);
    } catch (...) {
        tell("unknown failure", message, size);
    }
    return -1;
}

}  // namespace
}  // namespace qzrcfa::ext

using namespace qzrcfa;

extern "C" {

QZRCFA_EXT_API int qzrcfa_check(const qzrcfa_request* request, char* message, std::size_t message_size) {
    return ext::guarded(message, message_size, [&] {
        ext::Plan p;
        return ext::check(request, p);
    });
}

QZRCFA_EXT_API int qzrcfa_demosaic(const qzrcfa_request* request, char* message, std::size_t message_size) {
    return ext::guarded(message, message_size, [&]() -> ext::Why {
        ext::Plan p;
        if (ext::Why why = ext::check(request, p)) return why;
        return ext::run(p);
    });
}

QZRCFA_EXT_API std::size_t qzrcfa_output_bytes(const qzrcfa_request* request) {
    try {
        ext::Plan p;
        if (ext::plan(request, p)) return 0;
        if (ext::check_stride("", p.q.output_stride, p.out_row(), p.element_bytes())) return 0;
        return ext::output_bytes(p);
    } catch (...) {
        return 0;
    }
}

QZRCFA_EXT_API int qzrcfa_raw_layout(const qzrcfa_request* request, std::size_t* row_bytes, std::size_t* frame_bytes,
                                     int* bits) {
    try {
        ext::Plan p;
        if (ext::plan(request, p)) return -1;
        if (ext::check_stride("", p.q.samples_stride, p.in_row(), p.sample_bytes())) return -1;
        if (row_bytes != nullptr) *row_bytes = p.in_row();
        if (frame_bytes != nullptr) *frame_bytes = ext::span(std::size_t(p.q.height), p.in_stride(), p.in_row(), 0);
        if (bits != nullptr) *bits = p.bits;
        return 0;
    } catch (...) {
        return -1;
    }
}

QZRCFA_EXT_API std::size_t qzrcfa_output_elements(const qzrcfa_request* request) {
    try {
        ext::Plan p;
        if (ext::plan(request, p)) return 0;
        p.q.output_stride = 0;
        return ext::output_bytes(p) / p.element_bytes();
    } catch (...) {
        return 0;
    }
}

QZRCFA_EXT_API void qzrcfa_minimum_size(const qzrcfa_request* request, int* width, int* height) {
    int w = 0, h = 0;
    try {
        ext::Plan p;
        if (!ext::read(request, p) && !ext::resolve(p)) w = p.facts.min_width, h = p.facts.min_height;
    } catch (...) {
    }
    if (width) *width = w;
    if (height) *height = h;
}

QZRCFA_EXT_API int qzrcfa_auto_white_balance(const qzrcfa_request* request, float gains[3], char* message,
                                             std::size_t message_size) {
    return ext::guarded(message, message_size, [&]() -> ext::Why {
        ext::Plan p;
        if (ext::Why why = ext::read(request, p)) return why;
        if (ext::Why why = ext::resolve_samples(p)) return why;
        if (ext::Why why = ext::resolve_picture(p)) return why;
        const qzrcfa_request& q = p.q;
        if (q.width < 2 || q.height < 2) return "frame size " + ext::size_of(q) + " is below 2x2";
        if (q.pattern < 0 || q.pattern > 3) return "unknown Bayer pattern (value " + std::to_string(q.pattern) + ")";
        if (q.samples == nullptr) return "the raw frame is null";
        if (ext::Why why = ext::check_stride("the raw frame's", q.samples_stride, p.in_row(), p.sample_bytes())) return why;
        const std::size_t need = ext::span(std::size_t(q.height), p.in_stride(), p.in_row(), 0);
        if (q.samples_bytes < need)
            return "raw frame holds " + ext::str(q.samples_bytes) + " bytes, " + ext::size_of(q) + " needs " + ext::str(need);
        general::Frame f = ext::frame_of(p);
        if (ext::Why why = ext::auto_gains(f)) return why;
        gains[0] = f.gains[detail::kRed], gains[1] = f.gains[detail::kGreen], gains[2] = f.gains[detail::kBlue];
        return std::nullopt;
    });
}

QZRCFA_EXT_API int qzrcfa_output_defined(const qzrcfa_request* request) {
    try {
        ext::Plan p;
        if (ext::read(request, p) || ext::resolve(p)) return -1;
        return p.q.format != QZRCFA_FORMAT_BGRA32 || p.engine != ext::Engine::Member || p.facts.fill255 ? 1 : 0;
    } catch (...) {
        return -1;
    }
}

QZRCFA_EXT_API int qzrcfa_processors(void) { return ext::processors(); }

QZRCFA_EXT_API int qzrcfa_threads_used(const qzrcfa_request* request) {
    try {
        ext::Plan p;
        if (ext::plan(request, p) || p.q.threads < 0 || p.q.threads > ext::kMaxThreads) return -1;
        return ext::useful_threads(p.q.threads, p.q.width, p.q.height, *p.method);
    } catch (...) {
        return -1;
    }
}

QZRCFA_EXT_API const char* qzrcfa_instruction_set(void) { return ext::instruction_set(); }

}  // extern "C"
