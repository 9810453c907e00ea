// The benchmark program: floors, peers and exports in one run (see bench_common.h).
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench_common.h"

namespace qzrcfa::bench {
namespace {

// The bundled 8-bit PGM mosaic.
struct Sample {
    int width = 0, height = 0;
    std::vector<std::uint8_t> pixels;
};

const Sample& sample() {
    static const Sample s = [] {
        std::ifstream in(QZRCFA_SAMPLE_PGM, std::ios::binary);
        std::string magic;
        Sample out;
        int maxval = 0;
        in >> magic >> out.width >> out.height >> maxval;
        in.get();
        if (!in || magic != "P5" || maxval != 255 || out.width % 2 || out.height % 2)
            throw std::runtime_error("cannot read the sample frame " QZRCFA_SAMPLE_PGM);
        out.pixels.resize(std::size_t(out.width) * std::size_t(out.height));
        in.read(reinterpret_cast<char*>(out.pixels.data()), std::streamsize(out.pixels.size()));
        return out;
    }();
    return s;
}

template <class T>
std::vector<T> tiled(int width, int height) {
    const Sample& s = sample();
    std::vector<T> frame(std::size_t(width) * std::size_t(height) + 2 * std::size_t(width));
    for (int y = 0; y < height + 2; ++y)
        for (int x = 0; x < width; ++x) {
            const std::uint8_t v = s.pixels[std::size_t(y % s.height) * std::size_t(s.width) + std::size_t(x % s.width)];
            frame[std::size_t(y) * std::size_t(width) + std::size_t(x)] = sizeof(T) == 1 ? T(v) : T(v * 257);
        }
    return frame;
}

template <class T>
const std::vector<T>& cached(int width, int height) {
    static std::map<std::pair<int, int>, std::vector<T>> frames;
    auto& f = frames[{width, height}];
    if (f.empty()) f = tiled<T>(width, height);
    return f;
}

std::string label(const std::string& family, const Size& s, int bits) {
    std::ostringstream out;
    out << family << '/' << s.width << 'x' << s.height;
    if (bits) out << '/' << bits;
    return out.str();
}

// Benchmarks are queued by static initialisers in link order and registered from main,
// floors and peers first, so that the reporter knows them before any export runs.
struct Queued {
    int order;
    std::string family;
    bool colour;
    Body body;
};
std::vector<Queued>& queue() {
    static std::vector<Queued> q;
    return q;
}

int order_of(const std::string& family) {
    if (family.rfind("floor", 0) == 0) return 0;
    if (family.rfind("opencv", 0) == 0) return 1;
    return 2;
}

// The floor: read width x height samples once and write `elements` output elements per
// pixel once, as fast as plain stores go: every 16 bytes read are stored `elements`
// times with 16-byte stores, as a demosaicing kernel stores its pixels, with no
// arithmetic at all. A 16-byte vector moved by memcpy is one load or store on x86-64
// (and a pair on aarch64).
typedef unsigned char Block __attribute__((vector_size(16)));

template <class T>
void floor_kernel(const Size& s, int bits, benchmark::State& state) {
    const std::vector<T>& raw = cached<T>(s.width, s.height);
    const int elements = bits == 0 ? 1 : bits / 8;
    std::vector<T> out(std::size_t(s.width) * std::size_t(s.height) * std::size_t(elements));
    const auto* in = reinterpret_cast<const unsigned char*>(raw.data());
    auto* o = reinterpret_cast<unsigned char*>(out.data());
    const std::size_t bytes = std::size_t(s.width) * std::size_t(s.height) * sizeof(T);
    for (auto _ : state) {
        for (std::size_t i = 0; i + 16 <= bytes; i += 16) {
            Block v;
            std::memcpy(&v, in + i, sizeof v);
            for (int k = 0; k < elements; ++k) std::memcpy(o + i * std::size_t(elements) + 16 * std::size_t(k), &v, sizeof v);
        }
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
}

const bool floors = [] {
    add("floor8", true, floor_kernel<std::uint8_t>);
    add("floor8", false, floor_kernel<std::uint8_t>);
    add("floor16", true, floor_kernel<std::uint16_t>);
    add("floor16", false, floor_kernel<std::uint16_t>);
    return true;
}();

// The comparisons compare() asked for: family to (counter, baseline family).
std::multimap<std::string, std::pair<std::string, std::string>>& comparisons() {
    static std::multimap<std::string, std::pair<std::string, std::string>> c;
    return c;
}

bool queued(const std::string& family) {
    return std::any_of(queue().begin(), queue().end(), [&](const Queued& q) { return q.family == family; });
}

// Adds x_floor (time over the floor's for the same sample width, size and pixel size),
// x_opencv (over OpenCV's bilinear conversion of the same size and pixel size, or its
// grey conversion for one-element rows), for NAME@all x_1thread (over NAME@1), and the
// comparisons compare() asked for. Runs whose baselines have not been reported yet
// (repetitions interleaved at random finish in any order) are held back until they
// have been, or until the end.
class RatioReporter : public benchmark::ConsoleReporter {
  public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs)
            if (const auto [family, rest] = split(run); !family.empty()) times_[family + rest] = run.GetAdjustedRealTime();
        held_.push_back(runs);
        report(false);
    }

    void Finalize() override {
        report(true);
        ConsoleReporter::Finalize();
    }

  private:
    struct Baseline {
        std::string counter, family;
    };

    // A run's family and the rest of its name (size, pixel size and, with
    // --benchmark_repetitions, #aggregate: each aggregate is compared with the same
    // aggregate of its baseline); no family for spreads (stddev, cv), which have no ratio.
    static std::pair<std::string, std::string> split(const Run& run) {
        const std::string name = run.benchmark_name();
        const auto slash = name.find('/');
        std::string rest = slash == std::string::npos ? "" : name.substr(slash);
        if (const auto rt = rest.find("/real_time"); rt != std::string::npos) rest.erase(rt);
        if (run.run_type == Run::RT_Aggregate) {
            if (run.aggregate_unit != benchmark::kTime || run.aggregate_name == "stddev") return {};
            rest += "#" + run.aggregate_name;
        }
        return {name.substr(0, slash), rest};
    }

    static std::vector<Baseline> baselines(const std::string& family, const std::string& rest) {
        std::vector<Baseline> b;
        const bool sixteen = family.find("16") != std::string::npos;
        const bool grey = std::count(rest.begin(), rest.end(), '/') == 1;
        b.push_back({"x_floor", sixteen ? "floor16" : "floor8"});
        // NAME@all against NAME@1: the speed-up of every processor over one.
        if (const auto at = family.find('@'); at != std::string::npos && family.substr(at) != "@1")
            b.push_back({"x_1thread", family.substr(0, at) + "@1"});
        if (family.rfind("floor", 0) != 0)
            b.push_back({"x_opencv", grey ? "opencv_grey" : sixteen ? "opencv_bilinear16" : "opencv_bilinear"});
        const auto range = comparisons().equal_range(family);
        for (auto it = range.first; it != range.second; ++it) b.push_back({it->second.first, it->second.second});
        return b;
    }

    // Reports the held runs whose awaited baselines have all been timed (every held run,
    // at the end), in the order they came.
    void report(bool all) {
        std::vector<std::vector<Run>> waiting;
        for (std::vector<Run>& runs : held_) {
            bool ready = true;
            for (Run& run : runs) {
                const auto [family, rest] = split(run);
                if (family.empty()) continue;
                for (const Baseline& b : baselines(family, rest)) {
                    const auto it = times_.find(b.family + rest);
                    if (it != times_.end() && it->second > 0)
                        run.counters[b.counter] = benchmark::Counter(run.GetAdjustedRealTime() / it->second);
                    else if (queued(b.family)) ready = false;
                }
            }
            if (ready || all) ConsoleReporter::ReportRuns(runs);
            else waiting.push_back(std::move(runs));
        }
        held_ = std::move(waiting);
    }

    std::map<std::string, double> times_;
    std::vector<std::vector<Run>> held_;
};

}  // namespace

const std::vector<std::uint8_t>& mosaic8(int width, int height) { return cached<std::uint8_t>(width, height); }
const std::vector<std::uint16_t>& mosaic16(int width, int height) { return cached<std::uint16_t>(width, height); }

const std::vector<std::uint8_t>& mosaic_raw12(int width, int height) {
    static std::map<std::pair<int, int>, std::vector<std::uint8_t>> frames;
    auto& f = frames[{width, height}];
    if (!f.empty()) return f;
    const std::vector<std::uint8_t>& m = mosaic8(width, height);
    const std::size_t row = std::size_t(width + 1) / 2 * 3;
    f.assign(row * std::size_t(height), 0);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            // The 8-bit sample spread over 12 bits, above the black level.
            const int v = std::min(4095, kRawBlack + m[std::size_t(y) * std::size_t(width) + std::size_t(x)] * 16);
            std::uint8_t* group = &f[std::size_t(y) * row + std::size_t(x / 2) * 3];
            group[x % 2] = std::uint8_t(v >> 4);
            group[2] |= std::uint8_t((v & 15) << (4 * (x % 2)));
        }
    return f;
}

void add(const std::string& family, bool colour, Body body) { queue().push_back({order_of(family), family, colour, std::move(body)}); }

void compare(const std::string& family, const std::string& counter, const std::string& baseline) {
    comparisons().emplace(family, std::make_pair(counter, baseline));
}

void register_all() {
    std::stable_sort(queue().begin(), queue().end(), [](const Queued& a, const Queued& b) { return a.order < b.order; });
    for (const Queued& q : queue())
        for (const Size& s : kSizes)
            for (int bits : q.colour ? std::vector<int>{24, 32} : std::vector<int>{0}) {
                benchmark::RegisterBenchmark(label(q.family, s, bits).c_str(),
                                             [body = q.body, s, bits](benchmark::State& state) {
                                                 body(s, bits, state);
                                                 state.counters["MP/s"] = benchmark::Counter(
                                                     double(s.width) * double(s.height) / 1e6, benchmark::Counter::kIsIterationInvariantRate);
                                             })
                    ->Unit(benchmark::kMillisecond)
                    ->UseRealTime();
            }
}

}  // namespace qzrcfa::bench

int main(int argc, char** argv) {
    qzrcfa::bench::register_all();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    qzrcfa::bench::RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
