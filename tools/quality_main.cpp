// qzrcfa-quality: how faithfully each method restores colour. Every photograph is
// turned into the raw frame a Bayer sensor would record (keeping one colour per
// pixel), demosaiced with every method, and compared with the original: colour PSNR
// over the red, green and blue samples, the outer border left out.
//
//   qzrcfa-quality [--pattern RGGB|BGGR|GRBG|GBRG|all] [--border N] [--flip] [--rule member|general] [--markdown] IMAGE...
#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "image_io.h"
#include "mosaic.h"
#include "names.h"
#include "qzrcfa.hpp"
#include "quality.h"

namespace {

using namespace qzrcfa::tools;

const char kUsage[] =
    "usage: qzrcfa-quality [--pattern RGGB|BGGR|GRBG|GBRG|all] [--border N] [--flip | --order top-down|bottom-up]\n"
    "                      [--depth 8|16] [--rule default|member|general] [--markdown] [--max-megapixels N] IMAGE...\n"
    "Mosaics each full-colour IMAGE (PNG, PPM) with the pattern (default RGGB; 'all' averages the four),\n"
    "demosaics it with every method (bitCount 24; --flip: the bottom-up members) and prints the colour\n"
    "PSNR in dB against the original, leaving out BORDER pixels on every side (default 4). --depth 16\n"
    "mosaics the samples times 257 and measures on the 16-bit scale. --rule: the interface's members\n"
    "(a method without one for the request gets a dash), the methods' general rule, or by default the\n"
    "members for 8-bit mosaics and the general rule for 16-bit ones where no member takes them.\n"
    "Names are the library's, in any case.\n"
    "--max-megapixels N: refuse images of more than N million pixels (default 256) before reading their\n"
    "samples. An image too large for a method, or too small for every one, is refused from its header too.\n"
    "--option=value is the same as --option value.\n";

// PSNR on the 16-bit scale of a method given the mosaic with every sample times 257
// (the 16-bit frame a sensor with the photograph's values would give): against the
// photograph times 257, peak 65535. NaN when the method takes no 16-bit frames or none
// of this size.
double measure16(const Image& rgb, const std::vector<std::uint8_t>& raw8, qzrcfa::Options o, int border) {
    if (qzrcfa::output_elements(rgb.width, rgb.height, o, 16) == 0) return std::nan("");
    std::vector<std::uint16_t> raw(raw8.begin(), raw8.end());
    for (std::uint16_t& v : raw) v = std::uint16_t(v * 257);
    std::vector<std::uint16_t> bgr(qzrcfa::output_elements(rgb.width, rgb.height, o, 16));
    const qzrcfa::Result r = qzrcfa::demosaic(qzrcfa::RawFrame(std::span<const std::uint16_t>(raw), rgb.width, rgb.height),
                                              qzrcfa::OutputImage(bgr.data(), bgr.size()), o);
    if (!r) throw std::runtime_error(r.message());
    double sum = 0;
    std::uint64_t n = 0;
    for (int y = border; y < rgb.height - border; ++y) {
        const int oy = o.order == qzrcfa::RowOrder::BottomUp ? rgb.height - 1 - y : y;
        for (int x = border; x < rgb.width - border; ++x)
            for (int ch = 0; ch < 3; ++ch) {  // the photograph is R, G, B; the output B, G, R
                const double want = 257.0 * rgb.pixels[(std::size_t(y) * std::size_t(rgb.width) + std::size_t(x)) * std::size_t(rgb.channels) + std::size_t(ch)];
                const double got = bgr[(std::size_t(oy) * std::size_t(rgb.width) + std::size_t(x)) * 3 + std::size_t(2 - ch)];
                sum += (got - want) * (got - want);
                ++n;
            }
    }
    return n == 0 ? std::nan("") : sum == 0 ? INFINITY : 10.0 * std::log10(65535.0 * 65535.0 * double(n) / sum);
}

// PSNR of one method on one photograph and pattern; NaN when the method has no
// export for the pattern and row order, or none that takes this size.
double measure(const Image& rgb, const std::vector<std::uint8_t>& raw, qzrcfa::Options o, int border) {
    if (qzrcfa::output_elements(rgb.width, rgb.height, o) == 0) return std::nan("");
    std::vector<std::uint8_t> bgr(qzrcfa::output_elements(rgb.width, rgb.height, o));
    const qzrcfa::Result r = qzrcfa::demosaic(qzrcfa::RawFrame(std::span(raw), rgb.width, rgb.height),
                                              qzrcfa::OutputImage(bgr.data(), bgr.size()), o);
    if (!r) throw std::runtime_error(r.message());
    Image out = from_bgr(bgr.data(), rgb.width, rgb.height, 3);
    if (o.order == qzrcfa::RowOrder::BottomUp) {
        std::vector<std::uint8_t> rows(out.pixels.size());
        const std::size_t row = std::size_t(out.width) * 3;
        for (int y = 0; y < out.height; ++y)
            std::copy_n(out.pixels.begin() + std::ptrdiff_t(std::size_t(y) * row), row,
                        rows.begin() + std::ptrdiff_t(std::size_t(out.height - 1 - y) * row));
        out.pixels = std::move(rows);
    }
    return colour_psnr(rgb, out, border);
}

std::string cell(double v) {
    if (std::isnan(v)) return "-";
    if (std::isinf(v)) return "inf";
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.2f", v);
    return buf;
}

// Refuses, from the declared size alone, an image that a method is too large for (the
// library's reason), or one too small for every method: a method too small for it only
// gets a dash in the table.
void check_measurable(int width, int height, const std::vector<qzrcfa::Pattern>& patterns, const qzrcfa::Options& options, int depth,
                      int border) {
    int min_width = INT_MAX, min_height = INT_MAX;
    bool measurable = false;
    const bool inside = width > 2 * border && height > 2 * border;
    for (const qzrcfa::Method method : all<qzrcfa::Method>()) {
        for (const qzrcfa::Pattern pattern : patterns) {
            qzrcfa::Options o = options;
            o.method = method;
            o.pattern = pattern;
            const qzrcfa::Size min = qzrcfa::minimum_size(o, depth);
            if (min.width == 0) continue;  // no export
            min_width = std::min(min_width, min.width);
            min_height = std::min(min_height, min.height);
            if (qzrcfa::output_elements(width, height, o, depth) != 0) {
                measurable |= inside;
            } else if (width >= min.width && height >= min.height && height >= 3) {  // not small: too large
                const qzrcfa::Result r = depth == 16
                    ? qzrcfa::check(qzrcfa::RawFrame(static_cast<const std::uint16_t*>(nullptr), 0, width, height), qzrcfa::OutputImage(static_cast<std::uint16_t*>(nullptr), 0), o)
                    : qzrcfa::check(qzrcfa::RawFrame(static_cast<const std::uint8_t*>(nullptr), 0, width, height), qzrcfa::OutputImage(static_cast<std::uint8_t*>(nullptr), 0), o);
                throw std::runtime_error(r.message());
            }
        }
    }
    if (measurable || min_width == INT_MAX) return;  // (no method at all: the table says so)
    throw std::runtime_error(std::to_string(width) + "x" + std::to_string(height) + " is too small: the smallest image it measures with --border " +
                             std::to_string(border) + " is " + std::to_string(std::max(min_width, 2 * border + 1)) + "x" +
                             std::to_string(std::max(min_height, 2 * border + 1)));
}

}  // namespace

int main(int argc, char** argv) {
    // --option=value is --option value, for the options that take one.
    const std::vector<std::string> valued = {"--pattern", "--border", "--depth", "--max-megapixels", "--order", "--rule"};
    std::vector<std::string> words;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        const std::string name = arg.substr(0, arg.find('='));
        if (name.size() < arg.size() && std::find(valued.begin(), valued.end(), name) != valued.end()) {
            words.push_back(name);
            words.push_back(arg.substr(name.size() + 1));
        } else {
            words.push_back(arg);
        }
    }
    std::vector<char*> args{argv[0]};
    for (std::string& w : words) args.push_back(w.data());
    argc = int(args.size());
    argv = args.data();

    auto usage_error = [](const std::string& message) {
        std::fprintf(stderr, "qzrcfa-quality: %s\n", message.c_str());
        return 2;
    };
    ReadLimits limits;
    std::vector<std::string> paths;
    std::vector<qzrcfa::Pattern> patterns = {qzrcfa::Pattern::RGGB};
    qzrcfa::Options options;
    std::optional<qzrcfa::RowOrder> order;
    int border = 4;
    bool markdown = false, sixteen = false;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        const bool has_value = i + 1 < argc;
        if (arg == "-h" || arg == "--help") {
            std::fputs(kUsage, stdout);
            return 0;
        } else if (arg == "--pattern" && has_value) {
            const std::string v = argv[++i];
            std::string folded = v;
            for (char& c : folded) c = char(std::tolower(static_cast<unsigned char>(c)));
            if (folded == "all") patterns = all<qzrcfa::Pattern>();
            else if (const auto p = qzrcfa::from_string<qzrcfa::Pattern>(v)) patterns = {*p};
            else return usage_error("unknown --pattern value '" + v + "' (" + name_list<qzrcfa::Pattern>() + ", or all for the four)");
        } else if (arg == "--border" && has_value) {
            char* end = nullptr;
            const long v = std::strtol(argv[++i], &end, 10);
            if (*end != '\0' || v < 0 || v > 1000) return usage_error("--border takes a whole number from 0 to 1000");
            border = int(v);
        } else if (arg == "--flip" || (arg == "--order" && has_value)) {
            const std::string v = arg == "--flip" ? "bottom-up" : argv[++i];
            const auto o = qzrcfa::from_string<qzrcfa::RowOrder>(v);
            if (!o) return usage_error(unknown_name<qzrcfa::RowOrder>(arg, v));
            if (order && *order != *o) return usage_error("--flip and --order top-down ask for two row orders");
            order = *o;
        } else if (arg == "--rule" && has_value) {
            const std::string v = argv[++i];
            const auto r = qzrcfa::from_string<qzrcfa::Rule>(v);
            if (!r) return usage_error(unknown_name<qzrcfa::Rule>(arg, v));
            options.rule = *r;
        } else if (arg == "--depth" && has_value) {
            const std::string v = argv[++i];
            if (v != "8" && v != "16") return usage_error("--depth takes 8 or 16");
            sixteen = v == "16";
        } else if (arg == "--markdown") {
            markdown = true;
        } else if (arg == "--max-megapixels" && has_value) {
            const std::string v = argv[++i];
            char* end = nullptr;
            errno = 0;
            const long n = std::strtol(v.c_str(), &end, 10);
            if (v.empty() || *end != '\0' || errno != 0 || n < 1 || n > 100000)
                return usage_error("--max-megapixels takes a whole number from 1 to 100000, not '" + v + "'");
            limits.max_pixels = std::uint64_t(n) * 1'000'000;
        } else if (!arg.empty() && arg[0] == '-') {
            std::fprintf(stderr, "qzrcfa-quality: unknown option '%s'\n%s", arg.c_str(), kUsage);
            return 2;
        } else {
            paths.push_back(arg);
        }
    }
    if (paths.empty()) {
        std::fputs(kUsage, stderr);
        return 2;
    }
    options.order = order.value_or(qzrcfa::RowOrder::TopDown);
    const std::vector<qzrcfa::Method> methods = all<qzrcfa::Method>();

    // psnr[method][image]
    std::vector<std::vector<double>> psnr(methods.size(), std::vector<double>(paths.size()));
    std::vector<std::string> names;
    // Nothing is decoded for an image that cannot be measured.
    limits.accept = [&](int width, int height, int, int, int channels) {
        if (channels < 3) throw std::runtime_error("not a colour image");
        check_measurable(width, height, patterns, options, sixteen ? 16 : 8, border);
    };
    for (std::size_t i = 0; i < paths.size(); ++i) {
        try {
            const Image rgb = read_image(paths[i], false, limits);
            names.push_back(std::filesystem::path(paths[i]).stem().string());
            for (std::size_t m = 0; m < methods.size(); ++m) {
                double sum = 0;
                int n = 0;
                for (const qzrcfa::Pattern pattern : patterns) {
                    qzrcfa::Options o = options;
                    o.method = methods[m];
                    o.pattern = pattern;
                    const std::vector<std::uint8_t> raw = mosaic(rgb, std::string(qzrcfa::to_string(pattern)));
                    const double v = sixteen ? measure16(rgb, raw, o, border) : measure(rgb, raw, o, border);
                    if (!std::isnan(v)) {
                        sum += v;
                        ++n;
                    }
                }
                psnr[m][i] = n ? sum / n : std::nan("");
            }
        } catch (const std::exception& e) {
            // Every message names the file; the library's refusals do not.
            std::string message = e.what();
            if (message.rfind(paths[i], 0) != 0) message = paths[i] + ": " + message;
            std::fprintf(stderr, "qzrcfa-quality: %s\n", message.c_str());
            return 1;
        }
    }

    // One row per method: PSNR per photograph and the mean over them.
    std::printf(markdown ? "| method |" : "%-18s", markdown ? "" : "method");
    for (const std::string& n : names) std::printf(markdown ? " %s |" : " %10s", n.c_str());
    std::printf(markdown ? " mean |\n|---|" : " %10s\n", "mean");
    if (markdown) {
        for (std::size_t i = 0; i <= names.size(); ++i) std::printf("---:|");
        std::printf("\n");
    }
    for (std::size_t m = 0; m < methods.size(); ++m) {
        double sum = 0;
        bool complete = true;
        for (double v : psnr[m]) {
            if (std::isnan(v)) complete = false;
            sum += v;
        }
        const double mean = complete ? sum / double(psnr[m].size()) : std::nan("");
        std::printf(markdown ? "| %s |" : "%-18s", std::string(label(methods[m])).c_str());
        for (double v : psnr[m]) std::printf(markdown ? " %s |" : " %10s", cell(v).c_str());
        std::printf(markdown ? " %s |\n" : " %10s\n", cell(mean).c_str());
    }
    return 0;
}
