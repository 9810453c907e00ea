// The extended library: every method on one thread and on every processor through its C
// interface (rows ext_NAME@1 and ext_NAME@all, the second with its speed-up over the first),
// and gbri's kernels for each instruction set the processor has, on one thread
// (gbri8_ISA@1); and a camera's packed RAW12 frame to a balanced 8-bit picture in one call
// (raw12_*).
#include <algorithm>
#include <cstdint>
#include <iterator>
#include <string>
#include <vector>

#include "bench_common.h"
#include "kernels/kernels.h"
#include "ext/gbri.h"
#include "qzrcfa_ext.h"

namespace qzrcfa::bench {
namespace {

template <class T>
void demosaic(int method, int threads, const Size& s, int bits, benchmark::State& state) {
    const std::vector<T>& raw = sizeof(T) == 1 ? reinterpret_cast<const std::vector<T>&>(mosaic8(s.width, s.height))
                                               : reinterpret_cast<const std::vector<T>&>(mosaic16(s.width, s.height));
    qzrcfa_request request = QZRCFA_REQUEST_INIT;
    request.samples = raw.data();
    request.samples_bytes = raw.size() * sizeof(T);
    request.width = s.width;
    request.height = s.height;
    request.depth = int(8 * sizeof(T));
    request.method = method;
    request.format = bits;
    request.threads = threads;
    std::vector<T> out(qzrcfa_output_elements(&request));
    request.output = out.data();
    request.output_bytes = out.size() * sizeof(T);
    char message[256];
    if (qzrcfa_check(&request, message, sizeof message) != 0) return state.SkipWithError(message);
    for (auto _ : state) {
        qzrcfa_demosaic(&request, nullptr, 0);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
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
    char message[256];
    if (qzrcfa_check(&request, message, sizeof message) != 0) return state.SkipWithError(message);
    for (auto _ : state) {
        qzrcfa_demosaic(&request, nullptr, 0);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
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
    for (const int threads : {1, 0})
        add(threads == 1 ? "gbri16@1" : "gbri16@all", true, [threads](const Size& s, int bits, benchmark::State& st) {
            demosaic<std::uint16_t>(QZRCFA_METHOD_GBRI, threads, s, bits, st);
        });
    for (const detail::Isa isa : detail::kIsas)
        if (isa != detail::Isa::scalar && detail::isa_available(isa))
            add(std::string("gbri8_") + detail::isa_name(isa) + "@1", true,
                [isa](const Size& s, int bits, benchmark::State& st) { gbri_on(isa, s, bits, st); });
    return true;
}();

}  // namespace
}  // namespace qzrcfa::bench
