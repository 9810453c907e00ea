// Laplacian-corrected demosaic, on a two-sample margin.
//
// Every member fills the output with 255, calls the two-pixel border fill of its
// pattern and row order, and then makes two passes over rows and columns 2 .. size - 3:
//
// Green pass. A green site copies its sample into G. A red or blue site X compares the
// horizontal and vertical gradients H = |left - right| + |dh| and V = |up - down| + |dv|,
// where dh and dv are the second differences 2X - (two samples away on either side),
// and takes green along the smaller one: the mean of the two neighbours plus a quarter
// of that direction's second difference (both directions, an eighth of their sum and
// the mean of the four neighbours on a tie). Only the second difference is divided,
// as a signed value truncated toward zero; the result is clamped to 0 .. 255. The site
// keeps its own sample in its own colour, and a red site writes it into B as well for
// the time being: the red/blue pass replaces it, but until then it is what a four-byte
// neighbour reads at that place.
//
// Red/blue pass. A green site takes the colour of its row from the left and right
// samples and the other colour from the samples above and below (plain means). A red or
// blue site takes the missing colour along the diagonal with the smaller
// |sample difference| + |green second difference|, as the two samples' mean corrected
// by half that second difference (both diagonals on a tie); the whole sum is divided,
// then clamped. The four greens are read from the output as bytes at fixed offsets -2
// and +4 from the pixels directly above and below in the output, spaced for three-byte
// pixels whatever the stride: with four-byte pixels they are whatever bytes lie there.
//
// Which output row supplies the upper-left and upper-right greens is member data: the
// raw row above for every member but the bottom-up RGGB one, which takes them from
// the raw row below and so pairs each sample diagonal with the green second difference
// of the other diagonal.
//
// Laplacian2 (RGGB, top-down, C++ linkage) runs the same passes with its green pass
// displaced two rows down and two columns right: rows and columns 4 .. size - 1. Its
// last two rows read up to two rows past the end of the frame; those samples read as 0.
//
// Each pass has a scalar row kernel, the reference, and SSE2 and AVX2 kernels that
// compute sixteen columns at a time and leave the end of the row to the scalar one;
// the row goes to the best the processor runs. All of them write the same bytes.
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#if defined(__SSE2__)
#include <immintrin.h>
#endif

#include "detail/bayer.h"
#include "detail/cpu.h"
#include "detail/frame.h"
#include "detail/laplacian.h"
#include "qzrcfa.h"

// The per-site bodies are inlined into the row walk, which calls each twice.
#define LAPLACIAN_INLINE __attribute__((always_inline))

namespace qzrcfa::detail {
namespace {

constexpr int clamp_byte(int x) { return x > 255 ? 255 : (x < 0 ? 0 : x); }

constexpr int absolute(int x) { return x < 0 ? -x : x; }

// Samples of the frame, read by linear offset from the start of a raw row.
struct Direct {
    const std::uint8_t* s;
    int operator[](std::ptrdiff_t i) const { return s[i]; }
};

// The same for a row whose reads reach past the end of the frame: every sample at or
// past the end reads as 0.
struct PastEndIsZero {
    const std::uint8_t* s;
    std::ptrdiff_t available;  // samples from s to the end of the frame
    int operator[](std::ptrdiff_t i) const { return i < available ? s[i] : 0; }
};

// Visits the columns c_first .. c_last of a row two at a time, one green site and one
// red or blue site, without asking for the phase of every pixel.
template <class Green, class Colour>
inline void walk_row(const Row<std::uint8_t>& row, Green green_site, Colour colour_site) {
    int c = row.c_first;
    const int last = row.c_last;
    if (c > last) return;
    if (row.phase.green_at(c)) {
        for (; c + 1 <= last; c += 2) {
            green_site(c);
            colour_site(c + 1);
        }
        if (c <= last) green_site(c);
    } else {
        for (; c + 1 <= last; c += 2) {
            colour_site(c);
            green_site(c + 1);
        }
        if (c <= last) colour_site(c);
    }
}

// `first` when a < b, `second` when b < a, `tie` otherwise. Written with masks rather
// than branches: which gradient is the smaller changes from pixel to pixel, and the
// compiler turns a conditional expression back into jumps here.
constexpr int pick(int a, int b, int first, int second, int tie) {
    const int take_first = -int(a < b);
    const int take_second = -int(b < a);
    return (first & take_first) | (second & take_second) | (tie & ~(take_first | take_second));
}

template <int N>
using Int = std::integral_constant<int, N>;

// Calls f(colour, stride) with the row's colour, and the pixel stride when it is 3 or
// 4, as compile-time constants, so the byte offsets inside a pixel are immediates.
template <class F>
inline void with_layout(const Row<std::uint8_t>& row, F f) {
    auto by_stride = [&](auto colour) {
        if (row.stride == 3) {
            f(colour, Int<3>{});
        } else if (row.stride == 4) {
            f(colour, Int<4>{});
        } else {
            f(colour, row.stride);
        }
    };
    if (row.phase.colour == kRed) {
        by_stride(Int<kRed>{});
    } else {
        by_stride(Int<kBlue>{});
    }
}

template <class Samples, class Colour, class Stride>
inline void green_row(const Row<std::uint8_t>& row, Samples S, Colour colour_, Stride stride_) {
    const std::ptrdiff_t w = row.width;
    constexpr bool red_row = Colour::value == kRed;
    const int colour = colour_;
    const std::ptrdiff_t stride = stride_;
    std::uint8_t* const d = row.d;

    auto colour_site = [&](int col) LAPLACIAN_INLINE {
        std::uint8_t* px = d + col * stride;
        const int x = S[col];
        const int left = S[col - 1], right = S[col + 1];
        const int up = S[col - w], down = S[col + w];
        const int dh = 2 * x - S[col - 2] - S[col + 2];
        const int dv = 2 * x - S[col - 2 * w] - S[col + 2 * w];
        const int h = absolute(left - right) + absolute(dh);
        const int v = absolute(up - down) + absolute(dv);
        const int g = pick(h, v, dh / 4 + ((left + right) >> 1), dv / 4 + ((up + down) >> 1),
                           (dh + dv) / 8 + ((left + right + up + down) >> 2));
        px[kGreen] = std::uint8_t(clamp_byte(g));
        px[colour] = std::uint8_t(x);
        if (red_row) px[kBlue] = std::uint8_t(x);  // interim, replaced by the red/blue pass
    };
    auto green_site = [&](int col) LAPLACIAN_INLINE { d[col * stride + kGreen] = std::uint8_t(S[col]); };
    walk_row(row, green_site, colour_site);
}

}  // namespace

void laplacian_green_row_scalar(const Row<std::uint8_t>& row, const LaplacianParams&) {
    // Rows up to height - 3 read no further than the last sample of the frame; the two
    // rows below (reached only by the displaced pass) take the guarded path.
    if (row.r + 2 < row.height) {
        with_layout(row, [&](auto colour, auto stride) { green_row(row, Direct{row.s}, colour, stride); });
    } else {
        const PastEndIsZero samples{row.s, std::ptrdiff_t(row.height - row.r) * row.width};
        with_layout(row, [&](auto colour, auto stride) { green_row(row, samples, colour, stride); });
    }
}

namespace {

template <class Colour, class Stride>
inline void rb_row(const Row<std::uint8_t>& row, const LaplacianParams& params, Colour colour_, Stride stride_) {
    const std::ptrdiff_t w = row.width;
    const int colour = colour_;
    const int other = 2 - colour;
    const std::ptrdiff_t stride = stride_;
    const std::ptrdiff_t upper = params.crossed_diagonals ? row.down : row.up;
    const std::ptrdiff_t lower = params.crossed_diagonals ? row.up : row.down;
    const std::uint8_t* const s = row.s;
    std::uint8_t* const d = row.d;

    auto green_site = [&](int c) LAPLACIAN_INLINE {
        std::uint8_t* px = d + c * stride;
        px[colour] = std::uint8_t((s[c - 1] + s[c + 1]) >> 1);
        px[other] = std::uint8_t((s[c - w] + s[c + w]) >> 1);
    };
    auto colour_site = [&](int c) LAPLACIAN_INLINE {
        std::uint8_t* px = d + c * stride;
        const std::uint8_t* gu = px + upper;
        const std::uint8_t* gl = px + lower;
        // Greens at fixed three-byte spacing: -2 is the pixel to the left, +4 the one
        // to the right, when pixels are three bytes.
        const int g = px[kGreen];
        const int d1 = 2 * g - gu[-2] - gl[4];
        const int d2 = 2 * g - gu[4] - gl[-2];
        const int ul = s[c - w - 1], lr = s[c + w + 1];
        const int ur = s[c - w + 1], ll = s[c + w - 1];
        const int e1 = absolute(ul - lr) + absolute(d1);
        const int e2 = absolute(ur - ll) + absolute(d2);
        const int v = pick(e1, e2, (ul + lr + d1) / 2, (ur + ll + d2) / 2, (ul + lr + ur + ll + d1 + d2) / 4);
        px[other] = std::uint8_t(clamp_byte(v));
    };
    walk_row(row, green_site, colour_site);
}

}  // namespace

void laplacian_rb_row_scalar(const Row<std::uint8_t>& row, const LaplacianParams& params) {
    with_layout(row, [&](auto colour, auto stride) { rb_row(row, params, colour, stride); });
}

// Vector kernels.
//
// Sixteen consecutive columns of a row are computed at once, one column per lane in
// 16-bit integers: every sum, difference and absolute value of the formulas fits in
// 16 bits (the largest is 2040, the smallest -1020), truncating division is a shift
// after adding divisor - 1 to negative values, and the final narrowing to bytes with
// unsigned saturation is the clamp. Both site formulas are computed in every lane and
// the site of each lane chosen by a per-row lane mask, so the phase never branches.
//
// The formulas are written once with the compiler's vector extensions on sixteen
// lanes: in the AVX2 kernels they become 256-bit instructions, in the SSE2 kernels
// pairs of 128-bit ones. Only the moves between bytes and lanes differ per instruction
// set (the Lanes policies below).
//
// Output pixels are three or four bytes; the kernels take the bytes they read (a
// pixel's own green, the neighbours' bytes at -2 and +4) out of the interleaved rows
// with a gather, and write their results by interleaving byte planes and merging them
// into the output under a per-row byte mask, so the bytes a site does not compute keep
// what they held.
//
// Order of writes and reads: within a row neither pass reads a byte that the same
// pass writes in that row. The green pass reads only samples. The red/blue pass reads
// its own pixel's G, which it never writes, and bytes of the output rows of raw rows
// r - 1 and r + 1: row r - 1 is complete before row r starts (with four-byte pixels its
// bytes at -2 and +4 are the red and blue this pass wrote there), and row r + 1 still
// holds what the green pass, the border fill and the white fill left. So chunks of a
// row may be computed in any order; they go left to right, then the scalar kernel does
// the rest.
#if defined(__SSE2__)

// Sixteen-lane vectors pass between functions of this file only (most of them
// inlined), so the note that their calling convention depends on AVX does not apply.
#pragma GCC diagnostic ignored "-Wpsabi"

namespace {

typedef std::int16_t Lanes16 __attribute__((vector_size(32)));

constexpr int kLanes = 16;

LAPLACIAN_INLINE inline Lanes16 absolute(Lanes16 x) {
    const Lanes16 sign = x >> 15;
    return (x ^ sign) - sign;
}

// Truncating signed division by 2^k: negative values are raised by 2^k - 1 first.
template <int K>
LAPLACIAN_INLINE inline Lanes16 divide_pow2(Lanes16 x) {
    return (x + ((x >> 15) & std::int16_t((1 << K) - 1))) >> K;
}

// `first` where a < b, `second` where b < a, `tie` elsewhere.
LAPLACIAN_INLINE inline Lanes16 pick(Lanes16 a, Lanes16 b, Lanes16 first, Lanes16 second, Lanes16 tie) {
    return a < b ? first : (b < a ? second : tie);
}

LAPLACIAN_INLINE inline __m128i load(const std::uint8_t* p) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}

LAPLACIAN_INLINE inline void store(std::uint8_t* p, __m128i v) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v);
}

// Sixteen pixels of P bytes, as P vectors.
template <int P>
struct Pixels {
    __m128i v[P];
};

// Lanes from sixteen bytes and back, SSE2: two 128-bit halves. The moves between
// interleaved pixels and byte planes are the shifts and masks below.
struct Sse2Lanes {
    static LAPLACIAN_INLINE inline Lanes16 widen(__m128i bytes) {
        const __m128i zero = _mm_setzero_si128();
        const __m128i halves[2] = {_mm_unpacklo_epi8(bytes, zero), _mm_unpackhi_epi8(bytes, zero)};
        Lanes16 v;
        std::memcpy(&v, halves, sizeof v);
        return v;
    }
    // Clamped to 0 .. 255.
    static LAPLACIAN_INLINE inline __m128i narrow(Lanes16 v) {
        __m128i halves[2];
        std::memcpy(halves, &v, sizeof v);
        return _mm_packus_epi16(halves[0], halves[1]);
    }
    template <int P>
    static LAPLACIAN_INLINE inline __m128i gather(const std::uint8_t* p);
    template <int P>
    static LAPLACIAN_INLINE inline Pixels<P> interleave(__m128i b, __m128i g, __m128i r);
};

// Bytes p[P * k], k = 0 .. 15, reading nothing outside p[0] .. p[15 * P].
template <int P>
LAPLACIAN_INLINE inline __m128i gather(const std::uint8_t* p);

template <>
LAPLACIAN_INLINE inline __m128i gather<4>(const std::uint8_t* p) {
    const __m128i low = _mm_set1_epi32(0xFF);
    const __m128i a = _mm_and_si128(load(p), low);
    const __m128i b = _mm_and_si128(load(p + 16), low);
    const __m128i c = _mm_and_si128(load(p + 32), low);
    const __m128i d = _mm_srli_epi32(load(p + 45), 24);  // bytes 48, 52, 56, 60 as the top of each word
    return _mm_packus_epi16(_mm_packs_epi32(a, b), _mm_packs_epi32(c, d));
}

// Bytes 0, 3, 6 and 9 of v as four 32-bit words.
LAPLACIAN_INLINE inline __m128i every_third(__m128i v) {
    const __m128i first = _mm_set1_epi64x(0xFF);
    const __m128i second = _mm_set1_epi64x(0xFF00000000);
    const __m128i ab = _mm_or_si128(_mm_and_si128(v, first), _mm_and_si128(_mm_slli_epi64(v, 8), second));
    const __m128i w = _mm_srli_si128(v, 6);
    const __m128i cd = _mm_or_si128(_mm_and_si128(w, first), _mm_and_si128(_mm_slli_epi64(w, 8), second));
    return _mm_unpacklo_epi64(ab, cd);
}

template <>
LAPLACIAN_INLINE inline __m128i gather<3>(const std::uint8_t* p) {
    const __m128i a = every_third(load(p));
    const __m128i b = every_third(load(p + 12));
    const __m128i c = every_third(load(p + 24));
    const __m128i d = every_third(_mm_srli_si128(load(p + 30), 6));  // bytes 36 .. 45
    return _mm_packus_epi16(_mm_packs_epi32(a, b), _mm_packs_epi32(c, d));
}

// Planes of blue, green and red bytes to sixteen interleaved pixels; element 3 of
// four-byte pixels is 0.
template <int P>
LAPLACIAN_INLINE inline Pixels<P> interleave(__m128i b, __m128i g, __m128i r);

template <>
LAPLACIAN_INLINE inline Pixels<4> interleave<4>(__m128i b, __m128i g, __m128i r) {
    const __m128i zero = _mm_setzero_si128();
    const __m128i bg_lo = _mm_unpacklo_epi8(b, g), bg_hi = _mm_unpackhi_epi8(b, g);
    const __m128i r_lo = _mm_unpacklo_epi8(r, zero), r_hi = _mm_unpackhi_epi8(r, zero);
    return {{_mm_unpacklo_epi16(bg_lo, r_lo), _mm_unpackhi_epi16(bg_lo, r_lo), _mm_unpacklo_epi16(bg_hi, r_hi),
             _mm_unpackhi_epi16(bg_hi, r_hi)}};
}

// Four four-byte pixels to twelve bytes of three-byte pixels (bytes 12 .. 15 zero).
LAPLACIAN_INLINE inline __m128i drop_fourth(__m128i v) {
    const __m128i packed = _mm_or_si128(_mm_and_si128(v, _mm_set1_epi64x(0xFFFFFF)),
                                        _mm_and_si128(_mm_srli_epi64(v, 8), _mm_set1_epi64x(0xFFFFFF000000)));
    const __m128i first_six = _mm_set_epi64x(0, 0xFFFFFFFFFFFF);
    return _mm_or_si128(_mm_and_si128(packed, first_six), _mm_andnot_si128(first_six, _mm_srli_si128(packed, 2)));
}

template <>
LAPLACIAN_INLINE inline Pixels<3> interleave<3>(__m128i b, __m128i g, __m128i r) {
    const Pixels<4> wide = interleave<4>(b, g, r);
    const __m128i q0 = drop_fourth(wide.v[0]), q1 = drop_fourth(wide.v[1]);
    const __m128i q2 = drop_fourth(wide.v[2]), q3 = drop_fourth(wide.v[3]);
    return {{_mm_or_si128(q0, _mm_slli_si128(q1, 12)), _mm_or_si128(_mm_srli_si128(q1, 4), _mm_slli_si128(q2, 8)),
             _mm_or_si128(_mm_srli_si128(q2, 8), _mm_slli_si128(q3, 4))}};
}

template <int P>
LAPLACIAN_INLINE inline __m128i Sse2Lanes::gather(const std::uint8_t* p) {
    return ::qzrcfa::detail::gather<P>(p);
}
template <int P>
LAPLACIAN_INLINE inline Pixels<P> Sse2Lanes::interleave(__m128i b, __m128i g, __m128i r) {
    return ::qzrcfa::detail::interleave<P>(b, g, r);
}

// Byte shuffle controls: byte j of the result is byte pick(j) of the source, or 0
// where pick(j) is negative.
template <class F>
constexpr std::array<std::int8_t, 16> shuffle_control(F pick) {
    std::array<std::int8_t, 16> out{};
    for (int j = 0; j < 16; ++j) out[std::size_t(j)] = std::int8_t(pick(j));
    return out;
}

inline __m128i control(const std::array<std::int8_t, 16>& bytes) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes.data()));
}

// The three loads of a three-byte gather hold lanes 0 .. 5 (bytes 0, 3 .. 15), lanes
// 6 .. 10 (bytes 2, 5 .. 14 of bytes 16 .. 31) and lanes 11 .. 15 (bytes 3 .. 15 of
// bytes 30 .. 45).
constexpr auto kGather3First = shuffle_control([](int j) { return j <= 5 ? 3 * j : -1; });
constexpr auto kGather3Second = shuffle_control([](int j) { return j >= 6 && j <= 10 ? 3 * j - 16 : -1; });
constexpr auto kGather3Third = shuffle_control([](int j) { return j >= 11 ? 3 * j - 30 : -1; });

// Byte j of the three-byte pixels' vector v comes from plane j' % 3 (blue, green,
// red) at lane j' / 3, where j' = 16 v + j.
template <int V, int Plane>
constexpr auto kInterleave3 = shuffle_control([](int j) { return (16 * V + j) % 3 == Plane ? (16 * V + j) / 3 : -1; });

// Not forced inline: the generic templates that call these are compiled for the
// baseline too. The AVX2 row kernels are flattened, which inlines them there. Three-
// byte pixels move between planes and pixels with byte shuffles.
#define LAPLACIAN_AVX2 __attribute__((target("avx2")))

struct Avx2Lanes {
    static LAPLACIAN_AVX2 inline Lanes16 widen(__m128i bytes) {
        return reinterpret_cast<Lanes16>(_mm256_cvtepu8_epi16(bytes));
    }
    static LAPLACIAN_AVX2 inline __m128i narrow(Lanes16 v) {
        const __m256i w = reinterpret_cast<__m256i>(v);
        return _mm_packus_epi16(_mm256_castsi256_si128(w), _mm256_extracti128_si256(w, 1));
    }
    template <int P>
    static LAPLACIAN_AVX2 inline __m128i gather(const std::uint8_t* p) {
        if constexpr (P == 3) {
            return _mm_or_si128(_mm_or_si128(_mm_shuffle_epi8(load(p), control(kGather3First)),
                                             _mm_shuffle_epi8(load(p + 16), control(kGather3Second))),
                                _mm_shuffle_epi8(load(p + 30), control(kGather3Third)));
        } else {
            return ::qzrcfa::detail::gather<P>(p);
        }
    }
    template <int P>
    static LAPLACIAN_AVX2 inline Pixels<P> interleave(__m128i b, __m128i g, __m128i r) {
        if constexpr (P == 3) {
            return {{vector3<0>(b, g, r), vector3<1>(b, g, r), vector3<2>(b, g, r)}};
        } else {
            return ::qzrcfa::detail::interleave<P>(b, g, r);
        }
    }
    template <int V>
    static LAPLACIAN_AVX2 inline __m128i vector3(__m128i b, __m128i g, __m128i r) {
        return _mm_or_si128(_mm_or_si128(_mm_shuffle_epi8(b, control(kInterleave3<V, 0>)),
                                         _mm_shuffle_epi8(g, control(kInterleave3<V, 1>))),
                            _mm_shuffle_epi8(r, control(kInterleave3<V, 2>)));
    }
};

// Writes the bytes of `values` that `mask` selects; the others keep their contents.
template <int P>
LAPLACIAN_INLINE inline void merge(std::uint8_t* d, const Pixels<P>& values, const Pixels<P>& mask) {
    for (int i = 0; i < P; ++i) {
        const __m128i old = load(d + 16 * i);
        store(d + 16 * i, _mm_or_si128(_mm_and_si128(values.v[i], mask.v[i]), _mm_andnot_si128(mask.v[i], old)));
    }
}

// Per-row lane masks: lane k is a red or blue site when column c_first + k is.
struct SiteLanes {
    Lanes16 colour;   // all ones in red and blue lanes
    __m128i colour8;  // the same as bytes
    __m128i green8;   // its complement
};

inline SiteLanes site_lanes(const Row<std::uint8_t>& row) {
    SiteLanes m;
    const bool colour_even = !row.phase.green_at(row.c_first);
    for (int k = 0; k < kLanes; ++k) m.colour[k] = std::int16_t(((k & 1) == 0) == colour_even ? -1 : 0);
    m.colour8 = _mm_set1_epi16(colour_even ? 0x00FF : std::int16_t(0xFF00));
    m.green8 = _mm_xor_si128(m.colour8, _mm_set1_epi32(-1));
    return m;
}

// Last red or blue column of the row's range. Chunks end there, so that no load
// reaches further than the scalar kernel's last red or blue site reads.
inline int last_colour_column(const Row<std::uint8_t>& row) {
    return row.phase.green_at(row.c_last) ? row.c_last - 1 : row.c_last;
}

// Green pass on sixteen columns from s (sample at the chunk's first column): the G of
// every lane, the sample itself in green lanes.
template <class L>
LAPLACIAN_INLINE inline __m128i green_chunk(const std::uint8_t* s, std::ptrdiff_t w, const Lanes16& colour) {
    const Lanes16 x = L::widen(load(s));
    const Lanes16 left = L::widen(load(s - 1)), right = L::widen(load(s + 1));
    const Lanes16 up = L::widen(load(s - w)), down = L::widen(load(s + w));
    const Lanes16 dh = x + x - L::widen(load(s - 2)) - L::widen(load(s + 2));
    const Lanes16 dv = x + x - L::widen(load(s - 2 * w)) - L::widen(load(s + 2 * w));
    const Lanes16 h = absolute(left - right) + absolute(dh);
    const Lanes16 v = absolute(up - down) + absolute(dv);
    const Lanes16 g = pick(h, v, divide_pow2<2>(dh) + ((left + right) >> 1), divide_pow2<2>(dv) + ((up + down) >> 1),
                           divide_pow2<3>(dh + dv) + ((left + right + up + down) >> 2));
    return L::narrow((g & colour) | (x & ~colour));
}

// Columns c_first .. of one green-pass row, sixteen at a time; returns the first
// column left for the scalar kernel.
template <class L, int P>
LAPLACIAN_INLINE inline int green_row_chunks(const Row<std::uint8_t>& row) {
    const SiteLanes sites = site_lanes(row);
    const __m128i none = _mm_setzero_si128(), all = _mm_set1_epi32(-1);
    // G everywhere; the sample into its own colour and, in red rows, into B as well.
    const Pixels<P> mask = L::template interleave<P>(sites.colour8, all, row.phase.colour == kRed ? sites.colour8 : none);
    const std::ptrdiff_t w = row.width;
    const int end = last_colour_column(row);
    int c = row.c_first;
    for (; c + kLanes - 1 <= end; c += kLanes) {
        const std::uint8_t* s = row.s + c;
        const __m128i x = load(s);
        merge<P>(row.d + std::ptrdiff_t(c) * P, L::template interleave<P>(x, green_chunk<L>(s, w, sites.colour), x), mask);
    }
    return c;
}

// Red/blue pass on sixteen columns: the colour of the row (meaningful in green lanes)
// and the other colour (in every lane).
struct RbChunk {
    __m128i own, other;
};

template <class L, int P>
LAPLACIAN_INLINE inline RbChunk rb_chunk(const std::uint8_t* s, std::ptrdiff_t w, const std::uint8_t* px,
                                        std::ptrdiff_t upper, std::ptrdiff_t lower, const Lanes16& colour) {
    const Lanes16 left = L::widen(load(s - 1)), right = L::widen(load(s + 1));
    const Lanes16 up = L::widen(load(s - w)), down = L::widen(load(s + w));
    const Lanes16 ul = L::widen(load(s - w - 1)), ur = L::widen(load(s - w + 1));
    const Lanes16 ll = L::widen(load(s + w - 1)), lr = L::widen(load(s + w + 1));
    // Greens at fixed three-byte spacing from the pixels above and below.
    const Lanes16 g = L::widen(L::template gather<P>(px + kGreen));
    const Lanes16 d1 = g + g - L::widen(L::template gather<P>(px + upper - 2)) - L::widen(L::template gather<P>(px + lower + 4));
    const Lanes16 d2 = g + g - L::widen(L::template gather<P>(px + upper + 4)) - L::widen(L::template gather<P>(px + lower - 2));
    const Lanes16 e1 = absolute(ul - lr) + absolute(d1);
    const Lanes16 e2 = absolute(ur - ll) + absolute(d2);
    const Lanes16 v = pick(e1, e2, divide_pow2<1>(ul + lr + d1), divide_pow2<1>(ur + ll + d2),
                           divide_pow2<2>(ul + lr + ur + ll + d1 + d2));
    const Lanes16 vertical = (up + down) >> 1;
    return {L::narrow((left + right) >> 1), L::narrow((v & colour) | (vertical & ~colour))};
}

template <class L, int P>
LAPLACIAN_INLINE inline int rb_row_chunks(const Row<std::uint8_t>& row, const LaplacianParams& params) {
    const SiteLanes sites = site_lanes(row);
    const __m128i all = _mm_set1_epi32(-1);
    const bool red = row.phase.colour == kRed;
    // The row's own colour at green sites, the other colour everywhere.
    const Pixels<P> mask = red ? L::template interleave<P>(all, _mm_setzero_si128(), sites.green8)
                               : L::template interleave<P>(sites.green8, _mm_setzero_si128(), all);
    const std::ptrdiff_t upper = params.crossed_diagonals ? row.down : row.up;
    const std::ptrdiff_t lower = params.crossed_diagonals ? row.up : row.down;
    const std::ptrdiff_t w = row.width;
    const int end = last_colour_column(row);
    int c = row.c_first;
    for (; c + kLanes - 1 <= end; c += kLanes) {
        std::uint8_t* px = row.d + std::ptrdiff_t(c) * P;
        const RbChunk v = rb_chunk<L, P>(row.s + c, w, px, upper, lower, sites.colour);
        const __m128i zero = _mm_setzero_si128();
        merge<P>(px, red ? L::template interleave<P>(v.other, zero, v.own) : L::template interleave<P>(v.own, zero, v.other), mask);
    }
    return c;
}

// The scalar kernel from column c to the end of the row.
inline void finish_row(const Row<std::uint8_t>& row, const LaplacianParams& params, int c,
                       void (*scalar)(const Row<std::uint8_t>&, const LaplacianParams&)) {
    if (c > row.c_last) return;
    Row<std::uint8_t> rest = row;
    rest.c_first = c;
    scalar(rest, params);
}

template <class L>
LAPLACIAN_INLINE inline void green_row_vector(const Row<std::uint8_t>& row, const LaplacianParams& params) {
    int c = row.c_first;
    // The last two rows of the frame (the displaced pass) read past its end: scalar.
    if (row.r + 2 < row.height) {
        if (row.stride == 3) c = green_row_chunks<L, 3>(row);
        if (row.stride == 4) c = green_row_chunks<L, 4>(row);
    }
    finish_row(row, params, c, laplacian_green_row_scalar);
}

template <class L>
LAPLACIAN_INLINE inline void rb_row_vector(const Row<std::uint8_t>& row, const LaplacianParams& params) {
    int c = row.c_first;
    if (row.stride == 3) c = rb_row_chunks<L, 3>(row, params);
    if (row.stride == 4) c = rb_row_chunks<L, 4>(row, params);
    finish_row(row, params, c, laplacian_rb_row_scalar);
}

__attribute__((target("avx2"), flatten)) void green_row_avx2(const Row<std::uint8_t>& row, const LaplacianParams& params) {
    green_row_vector<Avx2Lanes>(row, params);
}

__attribute__((target("avx2"), flatten)) void rb_row_avx2(const Row<std::uint8_t>& row, const LaplacianParams& params) {
    rb_row_vector<Avx2Lanes>(row, params);
}

}  // namespace

void laplacian_green_row_sse2(const Row<std::uint8_t>& row, const LaplacianParams& params) {
    green_row_vector<Sse2Lanes>(row, params);
}
void laplacian_rb_row_sse2(const Row<std::uint8_t>& row, const LaplacianParams& params) {
    rb_row_vector<Sse2Lanes>(row, params);
}
void laplacian_green_row_avx2(const Row<std::uint8_t>& row, const LaplacianParams& params) {
    green_row_avx2(row, params);
}
void laplacian_rb_row_avx2(const Row<std::uint8_t>& row, const LaplacianParams& params) {
    rb_row_avx2(row, params);
}

#else  // no SSE2 in this build: the scalar kernels stand in

void laplacian_green_row_sse2(const Row<std::uint8_t>& row, const LaplacianParams& params) {
    laplacian_green_row_scalar(row, params);
}
void laplacian_rb_row_sse2(const Row<std::uint8_t>& row, const LaplacianParams& params) {
    laplacian_rb_row_scalar(row, params);
}
void laplacian_green_row_avx2(const Row<std::uint8_t>& row, const LaplacianParams& params) {
    laplacian_green_row_scalar(row, params);
}
void laplacian_rb_row_avx2(const Row<std::uint8_t>& row, const LaplacianParams& params) {
    laplacian_rb_row_scalar(row, params);
}

#endif

void laplacian_green_row(const Row<std::uint8_t>& row, const LaplacianParams& params) {
    switch (best_isa()) {
    case Isa::AVX2: return laplacian_green_row_avx2(row, params);
    case Isa::SSE2: return laplacian_green_row_sse2(row, params);
    case Isa::Scalar: break;
    }
    laplacian_green_row_scalar(row, params);
}

void laplacian_rb_row(const Row<std::uint8_t>& row, const LaplacianParams& params) {
    switch (best_isa()) {
    case Isa::AVX2: return laplacian_rb_row_avx2(row, params);
    case Isa::SSE2: return laplacian_rb_row_sse2(row, params);
    case Isa::Scalar: break;
    }
    laplacian_rb_row_scalar(row, params);
}

namespace {

using LaplacianMember = Member<std::uint8_t, LaplacianParams>;

constexpr LaplacianMember laplacian(Pattern p, bool flip, ColourFn<std::uint8_t> border, bool crossed,
                                    int green_shift = 0) {
    return LaplacianMember{p, flip, Prefill::White, border, 5, LaplacianParams{crossed},
                           {{laplacian_green_row, 2, green_shift}, {laplacian_rb_row, 2, 0}}};
}

// The member table. Every member pre-fills; only the bottom-up RGGB member crosses its
// diagonals, and only Laplacian2 displaces its green pass.
constexpr LaplacianMember kLaplacian_RGGB = laplacian(Pattern::RGGB, false, QZRCFA_NearestNeighbor_Edge2_RGGB, false);
constexpr LaplacianMember kLaplacian_BGGR = laplacian(Pattern::BGGR, false, QZRCFA_NearestNeighbor_Edge2_BGGR, false);
constexpr LaplacianMember kLaplacian_GRBG = laplacian(Pattern::GRBG, false, QZRCFA_NearestNeighbor_Edge2_GRBG, false);
constexpr LaplacianMember kLaplacian_GBRG = laplacian(Pattern::GBRG, false, QZRCFA_NearestNeighbor_Edge2_GBRG, false);
constexpr LaplacianMember kLaplacian_RGGB_Flip = laplacian(Pattern::RGGB, true, QZRCFA_NearestNeighbor_Edge2_RGGB_Flip, true);
constexpr LaplacianMember kLaplacian_BGGR_Flip = laplacian(Pattern::BGGR, true, QZRCFA_NearestNeighbor_Edge2_BGGR_Flip, false);
constexpr LaplacianMember kLaplacian_GRBG_Flip = laplacian(Pattern::GRBG, true, QZRCFA_NearestNeighbor_Edge2_GRBG_Flip, false);
constexpr LaplacianMember kLaplacian_GBRG_Flip = laplacian(Pattern::GBRG, true, QZRCFA_NearestNeighbor_Edge2_GBRG_Flip, false);
constexpr LaplacianMember kLaplacian2_RGGB = laplacian(Pattern::RGGB, false, QZRCFA_NearestNeighbor_Edge2_RGGB, false, 2);

}  // namespace
}  // namespace qzrcfa::detail

using qzrcfa::detail::demosaic;
namespace d = qzrcfa::detail;

extern "C" {

QZRCFA_API int QZRCFA_Laplacian_RGGB(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return demosaic(d::kLaplacian_RGGB, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_Laplacian_BGGR(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return demosaic(d::kLaplacian_BGGR, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_Laplacian_GRBG(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return demosaic(d::kLaplacian_GRBG, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_Laplacian_GBRG(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return demosaic(d::kLaplacian_GBRG, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_Laplacian_RGGB_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return demosaic(d::kLaplacian_RGGB_Flip, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_Laplacian_BGGR_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return demosaic(d::kLaplacian_BGGR_Flip, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_Laplacian_GRBG_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return demosaic(d::kLaplacian_GRBG_Flip, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_Laplacian_GBRG_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return demosaic(d::kLaplacian_GBRG_Flip, src, width, height, dst, bitCount);
}

}  // extern "C"

// C++ linkage: exported under its type-decorated name only.
QZRCFA_API int QZRCFA_Laplacian2_RGGB(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return demosaic(d::kLaplacian2_RGGB, src, width, height, dst, bitCount);
}
