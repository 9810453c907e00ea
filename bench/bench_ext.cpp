// The extended library: every method on one thread and on every processor through its C
// interface (rows ext_NAME@1 and ext_NAME@all, the second with its speed-up over the
// first), gbri's kernels for each instruction set the processor has, on one thread
// (gbri8_ISA@1), every method's general rule on 16-bit samples, one thread:
// general16_METHOD@1 to 16-bit elements, general16to8_METHOD@1 to 8-bit elements (with
// x_export8, its time over the method's 8-bit export on an 8-bit frame), and
// general16_METHOD_padded@1 with 64 bytes after every row of samples and of pixels
// (with x_compact, its time over the rows back to back); and a camera's packed RAW12
// frame to a balanced 8-bit picture in one call (raw12_*, with x_export8 over the 8-bit
// bilinear export and x_route over the same route through OpenCV).
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string>
#include <vector>

#include "bench_common.h"
#include "kernels/kernels.h"
#include "ext/gbri.h"
#include "qzrcfa_ext.h"

namespace qzrcfa::bench {
namespace {

// Times one request, checked first (a refusal skips the row with its message).
void time_request(const qzrcfa_request& request, benchmark::State& state) {
    char message[256];
    if (qzrcfa_check(&request, message, sizeof message) != 0) return state.SkipWithError(message);
    for (auto _ : state) {
        qzrcfa_demosaic(&request, nullptr, 0);
        benchmark::DoNotOptimize(request.output);
        benchmark::ClobberMemory();
    }
}

// What a request asks beyond its method and threads.
struct Options {
    int rule = QZRCFA_RULE_DEFAULT;
    int output_depth = 0;  // 0: the samples'
    int padding = 0;       // bytes after every row of samples and of pixels
};

template <class T>
void demosaic(int method, int threads, const Size& s, int bits, benchmark::State& state, const Options& o = {}) {
    const std::vector<T>& frame = sizeof(T) == 1 ? reinterpret_cast<const std::vector<T>&>(mosaic8(s.width, s.height))
                                                 : reinterpret_cast<const std::vector<T>&>(mosaic16(s.width, s.height));
    const std::size_t row = std::size_t(s.width) * sizeof(T), in_stride = row + std::size_t(o.padding);
    std::vector<std::uint8_t> raw(in_stride * std::size_t(s.height));
    for (int y = 0; y < s.height; ++y) std::memcpy(&raw[std::size_t(y) * in_stride], &frame[std::size_t(y) * std::size_t(s.width)], row);
    qzrcfa_request request = QZRCFA_REQUEST_INIT;
    request.samples = raw.data();
    request.samples_bytes = raw.size();
    request.samples_stride = o.padding ? std::ptrdiff_t(in_stride) : 0;
    request.width = s.width;
    request.height = s.height;
    request.depth = int(8 * sizeof(T));
    request.output_depth = o.output_depth;
    request.method = method;
    request.format = bits;
    request.threads = threads;
    request.rule = o.rule;
    if (o.padding) {
        const std::size_t elements = bits == 0 ? 1 : std::size_t(bits) / 8;
        const std::size_t element_bytes = (o.output_depth ? std::size_t(o.output_depth) : 8 * sizeof(T)) / 8;
        request.output_stride = std::ptrdiff_t(std::size_t(s.width) * elements * element_bytes + std::size_t(o.padding));
    }
    std::vector<std::uint64_t> out((qzrcfa_output_bytes(&request) + 7) / 8);  // aligned as the caller's buffers are
    request.output = out.data();
    request.output_bytes = qzrcfa_output_bytes(&request);
    time_request(request, state);
}

// A CSI-2 RAW12 frame with black level and gains to 8-bit output with bilinear, in one
// call; `display` adds a colour matrix and the sRGB curve.
void raw12(bool display, const Size& s, int bits, benchmark::State& state) {
    const std::vector<std::uint8_t>& packed = mosaic_raw12(s.width, s.height);
    qzrcfa_request request = QZRCFA_REQUEST_INIT;
    request.samples = packed.data();
    request.samples_bytes = packed.size();
    request.width = s.width;
    request.height = s.height;
    request.depth = 16;
    request.bits = 12;
    request.packing = QZRCFA_PACKING_RAW12;
    request.output_depth = 8;
    request.method = QZRCFA_METHOD_BILINEAR;
    request.format = bits;
    request.threads = 1;
    for (int& b : request.black) b = kRawBlack;
    for (int c = 0; c < 3; ++c) request.gains[c] = kRawGains[c];
    if (display) {
        const float matrix[9] = {1.6f, -0.45f, -0.15f, -0.25f, 1.45f, -0.2f, -0.05f, -0.5f, 1.55f};
        std::copy(std::begin(matrix), std::end(matrix), request.matrix);
        request.curve = QZRCFA_CURVE_SRGB;
    }
    std::vector<std::uint8_t> out(qzrcfa_output_bytes(&request));
    request.output = out.data();
    request.output_bytes = out.size();
    time_request(request, state);
}

void gbri_on(detail::Isa isa, const Size& s, int bits, benchmark::State& state) {
    if (!detail::isa_available(isa)) return state.SkipWithError("not on this processor");
    const std::vector<std::uint8_t>& raw = mosaic8(s.width, s.height);
    const int stride = bits / 8;
    std::vector<std::uint8_t> out(std::size_t(s.width) * std::size_t(s.height) * std::size_t(stride));
    for (auto _ : state) {
        ext::gbri(raw.data(), s.width, s.height, detail::Pattern::RGGB, out.data(), stride, false, nullptr,
                  detail::compact(s.width, stride), isa);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
}

const bool registered = [] {
    // Every method the library names, rows named by its name: ext_laplacian2@1.
    for (int i = 0; const qzrcfa_name* m = qzrcfa_names(QZRCFA_NAMES_METHOD, i); ++i)
        for (const int threads : {1, 0})
            add(std::string("ext_") + m->name + (threads == 1 ? "@1" : "@all"), true,
                [method = m->value, threads](const Size& s, int bits, benchmark::State& st) {
                    demosaic<std::uint8_t>(method, threads, s, bits, st);
                });
    add("raw12_bilinear", true, [](const Size& s, int bits, benchmark::State& st) { raw12(false, s, bits, st); });
    add("raw12_bilinear_srgb", true, [](const Size& s, int bits, benchmark::State& st) { raw12(true, s, bits, st); });
    for (const char* family : {"raw12_bilinear", "raw12_bilinear_srgb"}) {
        compare(family, "x_export8", "Bilinear_RGGB");
        compare(family, "x_route", "opencv_raw12_route");
    }
    for (const int threads : {1, 0})
        add(threads == 1 ? "gbri16@1" : "gbri16@all", true, [threads](const Size& s, int bits, benchmark::State& st) {
            demosaic<std::uint16_t>(QZRCFA_METHOD_GBRI, threads, s, bits, st);
        });
    // The general rule at 16 bits; grey is nearest's, to one element.
    struct General {
        const char* name;
        int method;
        bool colour;
        const char* export8;  // the 8-bit export of the method
    };
    for (const General g : {General{"Nearest", QZRCFA_METHOD_NEAREST, true, "NearestNeighbor_RGGB"},
                            {"Bilinear", QZRCFA_METHOD_BILINEAR, true, "Bilinear_RGGB"},
                            {"EdgeSensing1", QZRCFA_METHOD_EDGE_SENSING_1, true, "EdgeSensing1_RGGB"},
                            {"EdgeSensing2", QZRCFA_METHOD_EDGE_SENSING_2, true, "EdgeSensing2_RGGB"},
                            {"Laplacian", QZRCFA_METHOD_LAPLACIAN, true, "Laplacian_RGGB"},
                            {"SmoothHue", QZRCFA_METHOD_SMOOTH_HUE, true, "SmoothHue_RGGB"},
                            {"Grey", QZRCFA_METHOD_NEAREST, false, "NearestNeighbor_RGGB_Gray"}}) {
        const std::string name = std::string("general16_") + g.name;
        const std::string to8 = std::string("general16to8_") + g.name;
        const std::string padded = name + "_padded@1";
        for (const auto& [family, options] : {std::pair{name + "@1", Options{QZRCFA_RULE_GENERAL, 16, 0}},
                                              std::pair{to8 + "@1", Options{QZRCFA_RULE_GENERAL, 8, 0}},
                                              std::pair{padded, Options{QZRCFA_RULE_GENERAL, 16, 64}}})
            add(family, g.colour, [method = g.method, options](const Size& s, int bits, benchmark::State& st) {
                demosaic<std::uint16_t>(method, 1, s, bits, st, options);
            });
        compare(to8 + "@1", "x_export8", g.export8);
        compare(padded, "x_compact", name + "@1");
    }
    for (const detail::Isa isa : detail::kIsas)
        if (isa != detail::Isa::scalar && detail::isa_available(isa))
            add(std::string("gbri8_") + detail::isa_name(isa) + "@1", true,
                [isa](const Size& s, int bits, benchmark::State& st) { gbri_on(isa, s, bits, st); });
    return true;
}();

}  // namespace
}  // namespace qzrcfa::bench
