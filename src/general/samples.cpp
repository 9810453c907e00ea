// What the general rule needs of samples besides the methods: the bytes of packed rows,
// output curves, and grey-world white balance.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "general/general.h"

namespace qzrcfa::general {

using detail::Packing;

std::size_t row_bytes(Packing packing, std::size_t width) {
    switch (packing) {
    case Packing::Bytes: return width;
    case Packing::Words: return 2 * width;
    case Packing::Raw10: return (width + 3) / 4 * 5;
    case Packing::Raw12:
    case Packing::Packed12: return (width + 1) / 2 * 3;
    case Packing::P10: return (width * 10 + 7) / 8;
    case Packing::P12: return (width * 12 + 7) / 8;
    }
    return 0;
}

int packed_bits(Packing packing) {
    switch (packing) {
    case Packing::Raw10:
    case Packing::P10: return 10;
    case Packing::Raw12:
    case Packing::P12:
    case Packing::Packed12: return 12;
    default: return 0;
    }
}

std::vector<std::uint16_t> curve_table(Curve curve, double gamma, int max, int depth) {
    std::vector<std::uint16_t> table(std::size_t(max) + 1);
    const double top = depth == 8 ? 255.0 : double(max);
    for (int v = 0; v <= max; ++v) {
        const double x = double(v) / double(max);
        double c = x;
        if (curve == Curve::Srgb) c = x <= 0.0031308 ? 12.92 * x : 1.055 * std::pow(x, 1.0 / 2.4) - 0.055;
        if (curve == Curve::Gamma) c = std::pow(x, 1.0 / gamma);
        const double e = std::floor(c * top + 0.5);
        table[std::size_t(v)] = std::uint16_t(e < 0 ? 0 : e > top ? top : e);
    }
    return table;
}

bool grey_world(const Frame& f, float gains[3]) {
    const int max = (1 << f.bits) - 1;
    std::vector<std::uint16_t> values(std::size_t(f.width));
    double sum[3] = {}, count[3] = {};
    const detail::GeneralKernels& kernels = detail::kernel_set(detail::best_isa()).general;
    Frame unbalanced = f;  // the samples as they are; the black level is subtracted below
    unbalanced.balance = false;
    for (int y = 0; y < f.height; ++y) {
        if ((y / 2) % 4 != 0) continue;  // every fourth pair of rows
        load_row(unbalanced, y, values.data(), kernels);
        for (int x = 0; x < f.width; ++x) {
            const int v = values[std::size_t(x)];
            if (v >= max) continue;  // saturated
            const detail::Site site = detail::site_at(f.pattern, y, x);
            const int e = site == detail::Site::Red ? detail::kRed : site == detail::Site::Blue ? detail::kBlue : detail::kGreen;
            sum[e] += std::max(0.0, double(v) - double(f.black[y & 1][x & 1]));
            count[e] += 1;
        }
    }
    for (int e = 0; e < 3; ++e)
        if (count[e] == 0 || sum[e] == 0) return false;
    // At most the largest gain a request may give (a colour almost absent from the frame).
    const double green = sum[1] / count[1];
    gains[detail::kBlue] = float(std::min(64.0, green / (sum[detail::kBlue] / count[detail::kBlue])));
    gains[detail::kGreen] = 1.0f;
    gains[detail::kRed] = float(std::min(64.0, green / (sum[detail::kRed] / count[detail::kRed])));
    return true;
}

}  // namespace qzrcfa::general
