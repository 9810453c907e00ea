// The extended library's C interface (qzrcfa_ext.h): requests checked against what the
// member they name needs, then run.
//
// A request names a method, a pattern, a row order, a format and a sample depth. For the
// interface's methods that is one member of the catalogue, found by the interface's
// naming rule (catalogue/methods.h gives each method's export prefix); what it needs of
// the frame and the buffers is read off its description (ext/runners.cpp). A sound
// request on one thread calls the export itself, exactly as a direct call would. On
// several threads it runs the member, built into this library from the same family
// files, over bands of rows; when the application has interposed that export (or, for
// a member that forwards to another, either of them), the export is called instead, on
// the calling thread, so that the interposer sees the call. Nothing throws across the C
// interface: a failure comes back as -1 and its message.
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
#include "ext/runners.h"
#include "qzrcfa_ext.h"

namespace qzrcfa::ext {
namespace {

using catalogue::Id;

constexpr int kMaxThreads = 1024;

// A refusal, or nothing.
using Why = std::optional<std::string>;

bool colour(int format) { return format == QZRCFA_FORMAT_BGR24 || format == QZRCFA_FORMAT_BGRA32; }

std::size_t elements_per_pixel(int format) { return format == QZRCFA_FORMAT_BGRA32 ? 4 : format == QZRCFA_FORMAT_BGR24 ? 3 : 1; }

// What a request's method, pattern, order, format and depth come to.
struct Resolved {
    const catalogue::Method* method = nullptr;
    std::optional<Id> member;  // none for the extended library's own methods
    MemberFacts facts;
};

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

// Whether a method takes the depth, and writes the format's kind, with some member.
bool serves(const catalogue::Method& m, int format, int depth) {
    if (m.members.empty()) return colour(format) || m.grey;
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

// The methods that serve a format and depth.
std::string methods_serving(int format, int depth) {
    std::vector<std::string> names;
    for (const catalogue::Method& m : catalogue::kMethods)
        if (serves(m, format, depth)) names.emplace_back(m.name.name);
    return joined(names);
}

// The members a method has for a format and depth: "RGGB top-down and RGGB bottom-up".
std::string members_of(const catalogue::Method& m, int format, int depth) {
    std::vector<std::string> names;
    for (const qzrcfa_name& p : names_of(QZRCFA_NAMES_PATTERN))
        for (const qzrcfa_name& o : names_of(QZRCFA_NAMES_ORDER))
            if (find_member(m, p.value, o.value, format, depth)) names.push_back(std::string(p.name) + " " + o.name);
    return joined(names);
}

Why resolve(const qzrcfa_request& q, Resolved& r) {
    r.method = catalogue::find_method(q.method);
    if (r.method == nullptr)
        return "unknown method (value " + std::to_string(q.method) + "; " + name_list(QZRCFA_NAMES_METHOD) + ")";
    if (q.pattern < 0 || q.pattern > 3) return "unknown Bayer pattern (value " + std::to_string(q.pattern) + ")";
    if (q.order != QZRCFA_ORDER_TOP_DOWN && q.order != QZRCFA_ORDER_BOTTOM_UP)
        return "unknown row order (value " + std::to_string(q.order) + ")";
    if (!colour(q.format) && q.format != QZRCFA_FORMAT_GREY)
        return "bitCount " + std::to_string(q.format) + " is not supported: colour output takes 24 (bgr24) or 32 (bgra32)";
    if (q.depth != 8 && q.depth != 16) return "samples must be 8 or 16 bits, not " + std::to_string(q.depth);
    const std::string method(r.method->name.name);
    if (!serves(*r.method, q.format, q.depth)) {
        if (q.format == QZRCFA_FORMAT_GREY && !serves(*r.method, q.format, 8))
            return "no grey output from " + method + " (grey output: " + methods_serving(q.format, 8) + ")";
        return "no member of " + method + " takes " + std::to_string(q.depth) + "-bit samples (" +
               std::to_string(q.depth) + "-bit samples: " + methods_serving(QZRCFA_FORMAT_BGR24, q.depth) + ")";
    }
    if (r.method->members.empty()) return std::nullopt;
    r.member = find_member(*r.method, q.pattern, q.order, q.format, q.depth);
    if (!r.member)
        return "no member of " + method + " for " + name_of(QZRCFA_NAMES_PATTERN, q.pattern) + " " +
               name_of(QZRCFA_NAMES_ORDER, q.order) + ": " + method + " has " + members_of(*r.method, q.format, q.depth);
    r.facts = facts(*r.member);
    return std::nullopt;
}

// The checks on the frame size alone: the member's minimum and the interface's signed
// 32-bit products.
Why check_size(const qzrcfa_request& q, const Resolved& r) {
    const int w = q.width, h = q.height;
    const std::string size = std::to_string(w) + "x" + std::to_string(h);
    if (w < 0 || h < 0) return "frame size " + size + " is negative";
    const MemberFacts& f = r.facts;
    if (w < f.min_width || h < f.min_height)
        return "frame size " + size + " is below the " + std::to_string(f.min_width) + "x" + std::to_string(f.min_height) +
               " minimum of " + std::string(r.method->name.name) + (q.format == QZRCFA_FORMAT_GREY ? " grey " : " ") +
               name_of(QZRCFA_NAMES_PATTERN, q.pattern) + " " + name_of(QZRCFA_NAMES_ORDER, q.order);
    if (f.odd_width_needs_three_rows && (w % 2) != 0 && h < 3)
        return "frame size " + size + ": an odd width needs at least 3 rows";
    constexpr std::uint64_t kInt32Max = std::uint64_t(std::numeric_limits<std::int32_t>::max());
    const std::uint64_t pixels = std::uint64_t(w) * std::uint64_t(h);
    const std::uint64_t sample_bytes = q.depth == 16 ? 2 : 1;
    const std::uint64_t image_bytes = pixels * elements_per_pixel(q.format) * sample_bytes;
    if (image_bytes + f.dst_tail * sample_bytes > kInt32Max || pixels * sample_bytes > kInt32Max)
        return "frame size " + size + " is too large: the image must stay below 2^31 bytes";
    if (f.fill255 && pixels * unsigned(q.format) > kInt32Max)
        return "frame size " + size + " is too large: width x height x bitCount must stay below 2^31";
    return std::nullopt;
}

bool overlaps(const void* a, std::size_t a_bytes, const void* b, std::size_t b_bytes) {
    const auto a0 = reinterpret_cast<std::uintptr_t>(a);
    const auto b0 = reinterpret_cast<std::uintptr_t>(b);
    return a0 < b0 + b_bytes && b0 < a0 + a_bytes;
}

std::size_t output_elements(const qzrcfa_request& q, const Resolved& r) {
    return std::size_t(q.width) * std::size_t(q.height) * elements_per_pixel(q.format) + r.facts.dst_tail;
}

// Every check qzrcfa_demosaic makes.
Why check(const qzrcfa_request* q, Resolved& r) {
    if (q == nullptr) return "the request is null";
    if (Why why = resolve(*q, r)) return why;
    if (q->threads < 0 || q->threads > kMaxThreads)
        return "thread count " + std::to_string(q->threads) + " is " +
               (q->threads < 0 ? std::string("negative") : "above the limit of " + std::to_string(kMaxThreads)) +
               ": use 1 for the calling thread, 0 for every processor, or up to " + std::to_string(kMaxThreads);
    if (Why why = check_size(*q, r)) return why;
    if (q->output_depth != 8 && q->output_depth != 16)
        return "output elements must be 8 or 16 bits, not " + std::to_string(q->output_depth);
    if (q->samples == nullptr) return "the raw frame is null";
    if (q->output == nullptr) return "the output buffer is null";
    if (q->output_depth != q->depth)
        return "output elements are " + std::to_string(q->output_depth) + "-bit but the samples are " +
               std::to_string(q->depth) + "-bit";
    const std::string size = std::to_string(q->width) + "x" + std::to_string(q->height);
    const std::size_t need_raw = std::size_t(q->width) * std::size_t(q->height);
    if (q->sample_count < need_raw)
        return "raw frame holds " + std::to_string(q->sample_count) + " samples, " + size + " needs " + std::to_string(need_raw);
    const std::size_t need_out = output_elements(*q, r);
    if (q->output_count < need_out) {
        std::string why = "output holds " + std::to_string(q->output_count) + " elements, " + size + " " +
                          name_of(QZRCFA_NAMES_FORMAT, q->format) + " needs " + std::to_string(need_out);
        if (r.facts.dst_tail) why += " (the image and the 2 elements after it, which this member writes)";
        return why;
    }
    const std::size_t bytes = q->depth / 8;
    if (overlaps(q->samples, need_raw * bytes, q->output, need_out * bytes)) return "the raw frame and the output buffer overlap";
    return std::nullopt;
}

// Pixels a thread should have at least for threads to pay (the method table says); the
// one-pass members are bound by memory and gain little per thread on small frames.
int useful_threads(int requested, int width, int height, const catalogue::Method& m) {
    const std::int64_t pixels = std::int64_t(width) * height;
    const int wanted = requested == 0 ? processors() : requested;
    return int(std::max<std::int64_t>(1, std::min<std::int64_t>(wanted, pixels / m.pixels_per_thread)));
}

void run(const qzrcfa_request& q, const Resolved& r) {
    const int threads = useful_threads(q.threads, q.width, q.height, *r.method);
    if (!r.member) {
        run_gbri(q.samples, q.depth, q.width, q.height, q.pattern, q.output, int(elements_per_pixel(q.format)),
                 q.order == QZRCFA_ORDER_BOTTOM_UP, threads);
        return;
    }
    auto* src = const_cast<void*>(q.samples);  // the exports take non-const pointers; they only read
    const auto bits = static_cast<unsigned short>(q.format);
    if (threads > 1 && run_member(*r.member, src, q.width, q.height, q.output, bits, threads)) return;
    call_export(*r.member, src, q.width, q.height, q.output, bits);
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
        ext::Resolved r;
        return ext::check(request, r);
    });
}

QZRCFA_EXT_API int qzrcfa_demosaic(const qzrcfa_request* request, char* message, std::size_t message_size) {
    return ext::guarded(message, message_size, [&]() -> ext::Why {
        ext::Resolved r;
        if (ext::Why why = ext::check(request, r)) return why;
        ext::run(*request, r);
        return std::nullopt;
    });
}

QZRCFA_EXT_API std::size_t qzrcfa_output_elements(const qzrcfa_request* request) {
    try {
        ext::Resolved r;
        if (request == nullptr || ext::resolve(*request, r) || ext::check_size(*request, r)) return 0;
        return ext::output_elements(*request, r);
    } catch (...) {
        return 0;
    }
}

QZRCFA_EXT_API void qzrcfa_minimum_size(const qzrcfa_request* request, int* width, int* height) {
    int w = 0, h = 0;
    try {
        ext::Resolved r;
        if (request != nullptr && !ext::resolve(*request, r)) w = r.facts.min_width, h = r.facts.min_height;
    } catch (...) {
    }
    if (width) *width = w;
    if (height) *height = h;
}

QZRCFA_EXT_API int qzrcfa_output_defined(const qzrcfa_request* request) {
    try {
        ext::Resolved r;
        if (request == nullptr || ext::resolve(*request, r)) return -1;
        return request->format != QZRCFA_FORMAT_BGRA32 || !r.member || r.facts.fill255 ? 1 : 0;
    } catch (...) {
        return -1;
    }
}

QZRCFA_EXT_API int qzrcfa_processors(void) { return ext::processors(); }

QZRCFA_EXT_API const char* qzrcfa_instruction_set(void) { return ext::instruction_set(); }

}  // extern "C"
