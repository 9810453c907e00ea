#include <benchmark/benchmark.h>

#include <emmintrin.h>

#include <cstring>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "bench_common.h"

namespace qzrcfa::bench {
namespace {

struct Size {
    int width, height;
};
const Size kSizes[] = {{640, 480}, {1920, 1080}, {4000, 3000}};

template <class T>
std::vector<T> random_frame(int width, int height) {
    std::mt19937 rng(7);
    std::uniform_int_distribution<unsigned> dist(0, sizeof(T) == 1 ? 255 : 65535);
    std::vector<T> frame(std::size_t(width) * std::size_t(height));
    for (T& v : frame) v = T(dist(rng));
    return frame;
}

// The floor: read width x height samples once and write `elements` output elements
// per pixel once, as fast as the machine allows: every 16 bytes read are stored
// `elements` times with plain 16-byte stores, as a demosaicing kernel stores its
// pixels, with no arithmetic at all.
template <class T>
void floor_kernel(benchmark::State& state, int width, int height, int elements) {
    std::vector<T> raw = random_frame<T>(width, height);
    std::vector<T> out(std::size_t(width) * std::size_t(height) * std::size_t(elements));
    const auto* in = reinterpret_cast<const unsigned char*>(raw.data());
    auto* o = reinterpret_cast<unsigned char*>(out.data());
    const std::size_t bytes = raw.size() * sizeof(T);
    for (auto _ : state) {
        for (std::size_t i = 0; i + 16 <= bytes; i += 16) {
            const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + i));
            for (int k = 0; k < elements; ++k)
                _mm_storeu_si128(reinterpret_cast<__m128i*>(o + i * std::size_t(elements) + 16 * std::size_t(k)), v);
        }
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
}

template <class T, class Fn>
void run_export(benchmark::State& state, Fn fn, int width, int height, int bits) {
    std::vector<T> raw = random_frame<T>(width, height);
    const int elements = bits == 0 ? 1 : bits / 8;
    std::vector<T> out(std::size_t(width) * std::size_t(height) * std::size_t(elements) + 2);
    for (auto _ : state) {
        if constexpr (std::is_invocable_v<Fn, T*, int, int, T*, unsigned short>) {
            fn(raw.data(), width, height, out.data(), static_cast<unsigned short>(bits));
        } else {
            fn(raw.data(), width, height, out.data());
        }
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
}

void add_counters(benchmark::State& state, int width, int height) {
    state.counters["MP/s"] = benchmark::Counter(double(width) * double(height) / 1e6,
                                                benchmark::Counter::kIsIterationInvariantRate);
}

std::string label(const std::string& name, const Size& s, int bits) {
    return name + "/" + std::to_string(s.width) + "x" + std::to_string(s.height) + (bits ? "/" + std::to_string(bits) : "");
}

// Exports register from static initialisers in their own files, before main() runs
// and in link order; they are queued and handed to the framework after the floors,
// so that every floor runs (and is known to the reporter) before the exports.
std::vector<std::function<void()>>& queued() {
    static std::vector<std::function<void()>> q;
    return q;
}

template <class T, class Fn>
bool register_export(const std::string& name, Fn fn, bool colour) {
    queued().push_back([name, fn, colour] {
        for (const Size& s : kSizes) {
            for (int bits : colour ? std::vector<int>{24, 32} : std::vector<int>{0}) {
                benchmark::RegisterBenchmark(label(name, s, bits).c_str(),
                                             [fn, s, bits](benchmark::State& state) {
                                                 run_export<T>(state, fn, s.width, s.height, bits);
                                                 add_counters(state, s.width, s.height);
                                             })
                    ->Unit(benchmark::kMillisecond)
                    ->UseRealTime();
            }
        }
    });
    return true;
}

// Floors for 8- and 16-bit samples at 1, 3 and 4 elements per pixel.
void register_floors() {
    for (const Size& s : kSizes) {
        for (int bits : {0, 24, 32}) {
            const int elements = bits == 0 ? 1 : bits / 8;
            benchmark::RegisterBenchmark(label("floor8", s, bits).c_str(),
                                         [s, elements](benchmark::State& state) {
                                             floor_kernel<std::uint8_t>(state, s.width, s.height, elements);
                                             add_counters(state, s.width, s.height);
                                         })
                ->Unit(benchmark::kMillisecond)->UseRealTime();
            benchmark::RegisterBenchmark(label("floor16", s, bits).c_str(),
                                         [s, elements](benchmark::State& state) {
                                             floor_kernel<std::uint16_t>(state, s.width, s.height, elements);
                                             add_counters(state, s.width, s.height);
                                         })
                ->Unit(benchmark::kMillisecond)->UseRealTime();
        }
    }
}

// Adds an "x floor" column: each run's time over the floor's time for the same
// sample width, size and pixel size.
class FloorReporter : public benchmark::ConsoleReporter {
  public:
    void ReportRuns(const std::vector<Run>& runs) override {
        std::vector<Run> out = runs;
        for (Run& run : out) {
            const std::string name = run.benchmark_name();
            const auto slash = name.find('/');
            const std::string family = name.substr(0, slash);
            std::string rest = slash == std::string::npos ? "" : name.substr(slash);
            // Strip the trailing "/real_time" that UseRealTime() appends.
            if (const auto rt = rest.find("/real_time"); rt != std::string::npos) rest.erase(rt);
            const double t = run.GetAdjustedRealTime();
            if (family == "floor8" || family == "floor16") {
                floors_[family + rest] = t;
                continue;
            }
            const bool sixteen = name.find("16Bits") != std::string::npos;
            const auto it = floors_.find((sixteen ? "floor16" : "floor8") + rest);
            if (it != floors_.end() && it->second > 0) run.counters["x_floor"] = benchmark::Counter(t / it->second);
        }
        ConsoleReporter::ReportRuns(out);
    }

  private:
    std::map<std::string, double> floors_;
};

}  // namespace

bool register_colour8(const std::string& name, Colour8 fn) { return register_export<std::uint8_t>(name, fn, true); }
bool register_colour16(const std::string& name, Colour16 fn) { return register_export<std::uint16_t>(name, fn, true); }
bool register_grey8(const std::string& name, Grey8 fn) { return register_export<std::uint8_t>(name, fn, false); }
bool register_grey16(const std::string& name, Grey16 fn) { return register_export<std::uint16_t>(name, fn, false); }

}  // namespace qzrcfa::bench

int main(int argc, char** argv) {
    qzrcfa::bench::register_floors();
    for (const auto& registration : qzrcfa::bench::queued()) registration();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    qzrcfa::bench::FloorReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
