// The extended library's C interface (qzrcfa_ext.h).
//
// A request is checked by the checked C++ interface's own checks (qzrcfa.hpp), so every
// check lives once. A sound request on one thread calls the export it names, exactly
// as a direct call would. On several threads it runs the export's member, built into
// this library from the same family files, over bands of rows; when the application
// has interposed that export (or, for a member that forwards to another, either of
// them), the export is called instead, on the calling thread, so that the interposer
// sees the call.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>

#include "ext/runners.h"
#include "qzrcfa.hpp"
#include "qzrcfa_ext.h"

namespace qzrcfa::ext {
namespace {

// Pixels a thread should have at least for threads to pay: the one-pass members are
// bound by memory and gain little per thread on small frames; the others compute more.
int useful_threads(int requested, int width, int height, bool heavy) {
    const std::int64_t pixels = std::int64_t(width) * height;
    const std::int64_t per_thread = heavy ? (64 << 10) : (256 << 10);
    const int wanted = requested == 0 ? processors() : requested;
    return int(std::max<std::int64_t>(1, std::min<std::int64_t>(wanted, pixels / per_thread)));
}

void tell(const std::string& text, char* message, std::size_t size) {
    if (message == nullptr || size == 0) return;
    const std::size_t n = std::min(text.size(), size - 1);
    std::memcpy(message, text.data(), n);
    message[n] = '\0';
}

// The request as the checked interface's views; false with the reason when its depth
// or pointers leave no view to make.
bool views(const qzrcfa_request* q, RawFrame* raw, OutputImage* out, Options* options, std::string* why) {
    if (q == nullptr) {
        *why = "the request is null";
        return false;
    }
    if (q->depth != 8 && q->depth != 16) {
        *why = "samples must be 8 or 16 bits, not " + std::to_string(q->depth);
        return false;
    }
    if (q->output_depth != 8 && q->output_depth != 16) {
        *why = "output elements must be 8 or 16 bits, not " + std::to_string(q->output_depth);
        return false;
    }
    if (q->depth == 8) *raw = RawFrame(static_cast<const std::uint8_t*>(q->samples), q->sample_count, q->width, q->height);
    else *raw = RawFrame(static_cast<const std::uint16_t*>(q->samples), q->sample_count, q->width, q->height);
    if (q->output_depth == 8) *out = OutputImage(static_cast<std::uint8_t*>(q->output), q->output_count);
    else *out = OutputImage(static_cast<std::uint16_t*>(q->output), q->output_count);
    *options = Options{Method(q->method), Pattern(q->pattern), RowOrder(q->order), Format(q->format), q->threads};
    return true;
}

Result run(const RawFrame& raw, const OutputImage& out, const Options& options) {
    detail::Member m;
    detail::find_member(options, raw.depth(), m);
    if (m.extended) {
        run_gbri(raw.data(), raw.depth(), raw.width(), raw.height(), int(options.pattern), out.data(),
                 int(detail::elements_per_pixel(options.format)), options.order == RowOrder::BottomUp,
                 useful_threads(options.threads, raw.width(), raw.height(), true));
        return Result::success();
    }
    const bool heavy = options.method == Method::Laplacian || options.method == Method::Laplacian2 ||
                       options.method == Method::SmoothHue;
    const int threads = useful_threads(options.threads, raw.width(), raw.height(), heavy);
    const void* exported = m.colour8    ? reinterpret_cast<const void*>(m.colour8)
                           : m.colour16 ? reinterpret_cast<const void*>(m.colour16)
                           : m.grey8    ? reinterpret_cast<const void*>(m.grey8)
                                        : reinterpret_cast<const void*>(m.grey16);
    if (threads > 1 && run_member(exported, const_cast<void*>(raw.data()), raw.width(), raw.height(), out.data(),
                                  static_cast<unsigned short>(options.format), threads))
        return Result::success();
    return detail::call_export(m, raw, out, options);
}

}  // namespace
}  // namespace qzrcfa::ext

using namespace qzrcfa;

extern "C" {

QZRCFA_EXT_API int qzrcfa_check(const qzrcfa_request* request, char* message, std::size_t message_size) {
    RawFrame raw(static_cast<const std::uint8_t*>(nullptr), 0, 0, 0);
    OutputImage out(static_cast<std::uint8_t*>(nullptr), 0);
    Options options;
    std::string why;
    if (!ext::views(request, &raw, &out, &options, &why)) return ext::tell(why, message, message_size), -1;
    const Result r = check(raw, out, options);
    if (!r) return ext::tell(r.message(), message, message_size), -1;
    ext::tell("", message, message_size);
    return 0;
}

QZRCFA_EXT_API int qzrcfa_demosaic(const qzrcfa_request* request, char* message, std::size_t message_size) {
    if (qzrcfa_check(request, message, message_size) != 0) return -1;
    RawFrame raw(static_cast<const std::uint8_t*>(nullptr), 0, 0, 0);
    OutputImage out(static_cast<std::uint8_t*>(nullptr), 0);
    Options options;
    std::string why;
    ext::views(request, &raw, &out, &options, &why);
    const Result r = ext::run(raw, out, options);
    if (!r) return ext::tell(r.message(), message, message_size), -1;
    return 0;
}

QZRCFA_EXT_API std::size_t qzrcfa_output_elements(const qzrcfa_request* request) {
    if (request == nullptr) return 0;
    const Options o{Method(request->method), Pattern(request->pattern), RowOrder(request->order), Format(request->format),
                    request->threads};
    return output_elements(request->width, request->height, o, request->depth);
}

QZRCFA_EXT_API void qzrcfa_minimum_size(const qzrcfa_request* request, int* width, int* height) {
    Size s;
    if (request != nullptr) {
        const Options o{Method(request->method), Pattern(request->pattern), RowOrder(request->order), Format(request->format),
                        request->threads};
        s = minimum_size(o, request->depth);
    }
    if (width) *width = s.width;
    if (height) *height = s.height;
}

QZRCFA_EXT_API int qzrcfa_processors(void) { return ext::processors(); }

QZRCFA_EXT_API const char* qzrcfa_instruction_set(void) { return ext::instruction_set(); }

}  // extern "C"
