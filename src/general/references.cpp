// The general rule's reference kernels: plain scalar code, one row from column x to
// row.x_last, every formula as its method states it. The kernel sets' column kernels
// give the same values (tests/test_kernels.cpp).
#include <cfloat>
#include <cstdint>
#include <cstdlib>

#include "general/general.h"

static_assert(FLT_EVAL_METHOD == 0, "smooth hue needs float arithmetic evaluated in float");

namespace qzrcfa::detail {
namespace {

using u16 = std::uint16_t;

// Mean of the pair (a, b) or of the pair (c, d), whichever differs less; of all four
// when they differ equally.
inline int quieter_pair(int a, int b, int c, int d) {
    const int d1 = std::abs(a - b), d2 = std::abs(c - d);
    if (d1 < d2) return (a + b) >> 1;
    if (d2 < d1) return (c + d) >> 1;
    return (a + b + c + d) >> 2;
}

// `first` when a < b, `second` when b < a, `tie` otherwise.
constexpr int pick(int a, int b, int first, int second, int tie) { return a < b ? first : b < a ? second : tie; }

constexpr int clamp(int v, int max) { return v < 0 ? 0 : v > max ? max : v; }

// Writes a pixel's colours: the row's own colour, green and the other colour.
inline void put(const PlaneRow& row, int x, int colour, int green, int other) {
    row.out[row.phase.colour][x] = u16(colour);
    row.out[kGreen][x] = u16(green);
    row.out[row.phase.other()][x] = u16(other);
}

}  // namespace

// Sample x of a raw row, as its packing lays it out.
int sample(const void* src, Packing packing, std::ptrdiff_t x) {
    const auto* b = static_cast<const std::uint8_t*>(src);
    switch (packing) {
    case Packing::Bytes: return b[x];
    case Packing::Words: return static_cast<const u16*>(src)[x];
    case Packing::Raw10: {
        const std::uint8_t* group = b + x / 4 * 5;
        const int k = int(x % 4);
        return group[k] << 2 | (group[4] >> (2 * k) & 3);
    }
    case Packing::Raw12: {
        const std::uint8_t* group = b + x / 2 * 3;
        const int k = int(x % 2);
        return group[k] << 4 | (group[2] >> (4 * k) & 15);
    }
    case Packing::P10:
    case Packing::P12: {
        const int bits = packing == Packing::P10 ? 10 : 12;
        const std::ptrdiff_t first = x * bits;
        const int two = b[first / 8] | b[first / 8 + 1] << 8;  // a sample lies in two bytes
        return two >> (first % 8) & ((1 << bits) - 1);
    }
    case Packing::Packed12: {
        const std::uint8_t* group = b + x / 2 * 3;
        return x % 2 == 0 ? group[0] << 4 | (group[1] & 15) : group[2] << 4 | group[1] >> 4;
    }
    }
    return 0;
}

int general_load(const LoadRow& row, int x) {
    for (; x <= row.x_last; ++x) {
        const int s = sample(row.src, row.packing, x);
        if (!row.balance) {
            row.out[x] = u16(s > row.max ? row.max : s);
            continue;
        }
        const float v = (float(s) - row.black[x & 1]) * row.gain[x & 1] + 0.5f;
        row.out[x] = u16(v < 1.0f ? 0 : v >= float(row.max) ? row.max : int(v));
    }
    return x;
}

// Nearest neighbour: the two-by-two block of the pixel, its left neighbour and the two
// samples below them; green from the block's upper row. Pure copies.
int general_nearest(const PlaneRow& row, int x) {
    const u16 *s = row.s[2], *dn = row.s[3];
    for (; x <= row.x_last; ++x) {
        if (row.phase.green_at(x)) put(row, x, s[x - 1], s[x], dn[x]);
        else put(row, x, s[x], s[x - 1], dn[x - 1]);
    }
    return x;
}

// Bilinear: each missing colour the floor mean of the two or four nearest samples.
int general_bilinear(const PlaneRow& row, int x) {
    const u16 *up = row.s[1], *s = row.s[2], *dn = row.s[3];
    for (; x <= row.x_last; ++x) {
        if (row.phase.green_at(x)) put(row, x, (s[x - 1] + s[x + 1]) >> 1, s[x], (up[x] + dn[x]) >> 1);
        else put(row, x, s[x], (s[x - 1] + s[x + 1] + up[x] + dn[x]) >> 2, (up[x - 1] + up[x + 1] + dn[x - 1] + dn[x + 1]) >> 2);
    }
    return x;
}

// Edge sensing: green at a red or blue site along the pair of neighbours that differ
// less (all four on a tie); the opposite colour along the quieter diagonal (variant 2)
// or from all four diagonals (variant 1); green sites bilinear.
int general_edge_sensing(const PlaneRow& row, int x) {
    const u16 *up = row.s[1], *s = row.s[2], *dn = row.s[3];
    for (; x <= row.x_last; ++x) {
        if (row.phase.green_at(x)) {
            put(row, x, (s[x - 1] + s[x + 1]) >> 1, s[x], (up[x] + dn[x]) >> 1);
            continue;
        }
        const int diagonal = row.variant == 2 ? quieter_pair(up[x - 1], dn[x + 1], up[x + 1], dn[x - 1])
                                              : (up[x - 1] + up[x + 1] + dn[x - 1] + dn[x + 1]) >> 2;
        put(row, x, s[x], quieter_pair(s[x - 1], s[x + 1], up[x], dn[x]), diagonal);
    }
    return x;
}

// Laplacian, green: a red or blue site takes green along the smaller of the gradients
// |left - right| + |dh| and |up - down| + |dv|, the neighbours' mean corrected by a
// quarter of that direction's second difference (an eighth of both, and the four
// neighbours' mean, on a tie), divided truncating toward zero and clamped.
int general_laplacian_green(const PlaneRow& row, int x) {
    const u16 *u2 = row.s[0], *up = row.s[1], *s = row.s[2], *dn = row.s[3], *d2 = row.s[4];
    for (; x <= row.x_last; ++x) {
        if (row.phase.green_at(x)) {
            row.out[kGreen][x] = s[x];
            continue;
        }
        const int c = s[x], left = s[x - 1], right = s[x + 1];
        const int dh = 2 * c - s[x - 2] - s[x + 2], dv = 2 * c - u2[x] - d2[x];
        const int h = std::abs(left - right) + std::abs(dh), v = std::abs(up[x] - dn[x]) + std::abs(dv);
        const int g = pick(h, v, dh / 4 + ((left + right) >> 1), dv / 4 + ((up[x] + dn[x]) >> 1),
                           (dh + dv) / 8 + ((left + right + up[x] + dn[x]) >> 2));
        row.out[kGreen][x] = u16(clamp(g, row.max));
    }
    return x;
}

// Laplacian, red and blue: at a green site the row's colour from left and right and the
// other from above and below; at a red or blue site the opposite colour along the
// diagonal with the smaller |sample difference| + |green second difference|, the two
// samples' mean corrected by half the second difference (both diagonals on a tie), the
// whole sum divided truncating toward zero, clamped.
int general_laplacian_colour(const PlaneRow& row, int x) {
    const u16 *up = row.s[1], *s = row.s[2], *dn = row.s[3];
    const u16 *gu = row.g[0], *g = row.g[1], *gd = row.g[2];
    for (; x <= row.x_last; ++x) {
        if (row.phase.green_at(x)) {
            put(row, x, (s[x - 1] + s[x + 1]) >> 1, g[x], (up[x] + dn[x]) >> 1);
            continue;
        }
        const int d1 = 2 * g[x] - gu[x - 1] - gd[x + 1], d2 = 2 * g[x] - gu[x + 1] - gd[x - 1];
        const int ul = up[x - 1], lr = dn[x + 1], ur = up[x + 1], ll = dn[x - 1];
        const int e1 = std::abs(ul - lr) + std::abs(d1), e2 = std::abs(ur - ll) + std::abs(d2);
        const int v = pick(e1, e2, (ul + lr + d1) / 2, (ur + ll + d2) / 2, (ul + lr + ur + ll + d1 + d2) / 4);
        put(row, x, s[x], g[x], clamp(v, row.max));
    }
    return x;
}

// Smooth hue, green: the sample at a green site, the floor mean of the four side
// neighbours elsewhere.
int general_smooth_hue_green(const PlaneRow& row, int x) {
    const u16 *up = row.s[1], *s = row.s[2], *dn = row.s[3];
    for (; x <= row.x_last; ++x)
        row.out[kGreen][x] = row.phase.green_at(x) ? s[x] : u16((s[x + 1] + s[x - 1] + up[x] + dn[x]) >> 2);
    return x;
}

namespace {

// An estimate to a value: above the largest value, the largest; otherwise truncated
// (a NaN, 0/0 or infinity times a zero green, gives 0).
inline u16 saturated(float v, float max) {
    if (v > max) return u16(max);
    if (v != v) return 0;
    return u16(std::int32_t(v));
}

inline float ratio(int sample, int green) { return float(sample) / float(green); }

}  // namespace

// Smooth hue, red and blue: each missing colour is the pixel's green times the mean of
// the neighbours' ratios of that colour to their own green, in single precision, summed
// in the stated order, saturated at the largest value.
int general_smooth_hue_colour(const PlaneRow& row, int x) {
    const u16 *up = row.s[1], *s = row.s[2], *dn = row.s[3];
    const u16 *gu = row.g[0], *g = row.g[1], *gd = row.g[2];
    const float max = float(row.max);
    for (; x <= row.x_last; ++x) {
        const float own = float(g[x]);
        const float vertical = (ratio(up[x], gu[x]) + ratio(dn[x], gd[x])) * (own * 0.5f);
        const float horizontal = (ratio(s[x - 1], g[x - 1]) + ratio(s[x + 1], g[x + 1])) * (own * 0.5f);
        const float diagonal = (((ratio(up[x - 1], gu[x - 1]) + ratio(up[x + 1], gu[x + 1])) + ratio(dn[x - 1], gd[x - 1])) +
                                ratio(dn[x + 1], gd[x + 1])) *
                               (own * 0.25f);
        if (row.phase.green_at(x)) put(row, x, saturated(horizontal, max), g[x], saturated(vertical, max));
        else put(row, x, s[x], g[x], saturated(diagonal, max));
    }
    return x;
}

// Grey: the floor mean of the two-by-two block whose top-left sample the pixel is.
int general_grey(const PlaneRow& row, int x) {
    const u16 *s = row.s[2], *dn = row.s[3];
    for (; x <= row.x_last; ++x) row.out[0][x] = u16((s[x] + s[x + 1] + dn[x] + dn[x + 1]) >> 2);
    return x;
}

// Planes to pixels: through the matrix and the curve where the row has them; 16-bit
// elements as they are, 8-bit ones rounded to nearest (halves up) from 0 .. max to
// 0 .. 255; a fourth element is the largest value.
int general_store(const StoreRow& row, int x) {
    const int max = row.max;
    const float top = float(max);
    for (; x <= row.x_last; ++x) {
        int v[3];
        for (int e = 0; e < 3; ++e) v[e] = row.planes[row.elements == 1 ? 0 : e][x];
        if (row.matrix != nullptr) {
            const float* m = row.matrix;
            const float red = float(v[kRed]), green = float(v[kGreen]), blue = float(v[kBlue]);
            for (int out = 0; out < 3; ++out) {  // red, green, blue
                const float c = (m[3 * out] * red + m[3 * out + 1] * green) + m[3 * out + 2] * blue + 0.5f;
                v[2 - out] = c < 1.0f ? 0 : c >= top ? max : int(c);
            }
        }
        for (int e = 0; e < row.elements; ++e) {
            const std::size_t at = std::size_t(x) * std::size_t(row.elements) + std::size_t(e);
            const int element = e == 3 ? (row.depth == 8 ? 255 : max)
                                       : row.curve != nullptr ? row.curve[v[e]] : row.depth == 8 ? narrowed_to_8(v[e], max) : v[e];
            if (row.depth == 8) static_cast<std::uint8_t*>(row.out)[at] = std::uint8_t(element);
            else static_cast<u16*>(row.out)[at] = u16(element);
        }
    }
    return x;
}

}  // namespace qzrcfa::detail
