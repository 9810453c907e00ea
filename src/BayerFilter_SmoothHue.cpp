// Smooth hue, 8-bit colour.
//
// Two passes over the interior, the output's green bytes serving as the green plane
// between them. Pass 1 writes green: the sample itself at a green site, the floor of
// the mean of the four side neighbours at a red or blue site. Pass 2 assumes that the
// ratios red/green and blue/green vary slowly: each missing red or blue value is the
// pixel's own green times the mean of the neighbours' colour-to-green ratios, in
// single precision, saturated at 255.
//
// The greens of the horizontal neighbours are read at fixed byte distances from the
// pixel, two bytes before it and four bytes after it, whatever the pixel stride. With
// three bytes per pixel these are the neighbours' green elements; with four they are
// the red element of the left neighbour (already written by pass 2 in this row) and
// the blue element of the right one (not yet written). That is how the interface
// has always read them, and it stays.
//
// Members differ in two ways, both data in the member table below: the top-down BGGR
// member computes its green-on-blue sites with the red-site formulas, and the
// bottom-up BGGR member clears width * height * 3 bytes first and saturates with the
// less-than form, so its NaN estimates come out 255 instead of 0.
#include <cfloat>
#include <cstddef>
#include <cstdint>
#include <utility>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "detail/bayer.h"
#include "detail/byte_vectors.h"
#include "detail/cpu.h"
#include "detail/frame.h"
#include "detail/smooth_hue.h"
#include "qzrcfa.h"

// Pass 2 must round every operation to single precision; a target that evaluates float
// expressions in a wider format would produce other bytes.
static_assert(FLT_EVAL_METHOD == 0, "smooth hue needs float arithmetic evaluated in float");

namespace qzrcfa::detail {
namespace {

// Byte distances, from the first byte of a pixel, of the greens its horizontal ratios
// divide by. Fixed: they do not follow the pixel stride.
constexpr std::ptrdiff_t kLeftByte = -2;
constexpr std::ptrdiff_t kRightByte = 4;

constexpr float kSaturationLimit = 255.0f;

inline float ratio(std::uint8_t sample, std::uint8_t green) { return float(sample) / float(green); }

// Truncation toward zero, written so that it never converts an infinity or a NaN:
// those are decided by comparisons, which behave alike on every IEEE-754 target.
// Estimates are never negative (samples and greens are not), so a value that reaches
// the conversion lies in [0, 255].
inline std::uint8_t to_byte(float x, Saturation form) {
    if (form == Saturation::GreaterThan) {
        if (x > kSaturationLimit) return 255;
        if (x != x) return 0;  // NaN
        return std::uint8_t(std::int32_t(x));
    }
    if (x < kSaturationLimit) return std::uint8_t(std::int32_t(x));
    return 255;  // at or above the limit, and NaN
}

// The estimates of pixel px (raw sample s) whose neighbours' pixels lie `up` and
// `down` elements away; g is the pixel's own green.
struct Around {
    const std::uint8_t* s;
    int width;
    const std::uint8_t* px;
    const std::uint8_t* above;  // pixel computed from raw (r - 1, c)
    const std::uint8_t* below;  // pixel computed from raw (r + 1, c)
    float g;

    float vertical() const {
        const float up = ratio(s[-width], above[kGreen]);
        const float down = ratio(s[width], below[kGreen]);
        return (up + down) * (g * 0.5f);
    }
    float horizontal() const {
        const float left = ratio(s[-1], px[kLeftByte]);
        const float right = ratio(s[1], px[kRightByte]);
        return (left + right) * (g * 0.5f);
    }
    float diagonal() const {
        const float up_left = ratio(s[-width - 1], above[kLeftByte]);
        const float up_right = ratio(s[-width + 1], above[kRightByte]);
        const float down_left = ratio(s[width - 1], below[kLeftByte]);
        const float down_right = ratio(s[width + 1], below[kRightByte]);
        return (((up_left + up_right) + down_left) + down_right) * (g * 0.25f);
    }
};

}  // namespace

namespace {

// Pass 1 from column c to the end of the row, one pixel at a time.
void green_columns_scalar(const Row<std::uint8_t>& row, int c) {
    const int w = row.width;
    for (; c <= row.c_last; ++c) {
        const std::uint8_t* s = row.s + c;
        std::uint8_t* px = row.d + std::ptrdiff_t(c) * row.stride;
        px[kGreen] = row.phase.green_at(c) ? s[0] : std::uint8_t((s[1] + s[-1] + s[-w] + s[w]) >> 2);
    }
}

#if defined(__x86_64__) && defined(__SSE2__)

// Pass 1 on byte vectors: every lane takes both its sample and the floor mean of its
// four side neighbours, and keeps the one its site asks for. The samples read are
// those the scalar kernel reads for the same columns.
template <class V>
QZRCFA_INLINE V green_block(const Row<std::uint8_t>& row, int c, const V& green) {
    const std::uint8_t* s = row.s + c;
    const int w = row.width;
    return select(green, load<V>(s), mean4(load<V>(s + 1), load<V>(s - 1), load<V>(s - w), load<V>(s + w)));
}

template <int P>
int green_columns_sse2(const Row<std::uint8_t>& row, int c) {
    const Bytes16 green = green_lanes<Bytes16>(row, c);
    for (; c + 15 <= row.c_last; c += 16) store_green_sse2<P>(row.d + std::ptrdiff_t(c) * P, green_block(row, c, green));
    return c;
}

template <int P>
QZRCFA_AVX2 int green_columns_avx2(const Row<std::uint8_t>& row, int c) {
    const Bytes32 green = green_lanes<Bytes32>(row, c);
    for (; c + 31 <= row.c_last; c += 32) store_green_avx2<P>(row.d + std::ptrdiff_t(c) * P, green_block(row, c, green));
    return c;
}

int green_columns_sse2(const Row<std::uint8_t>& row, int c) {
    return for_stride(row.stride, c, [&]<int P>() { return green_columns_sse2<P>(row, c); });
}

int green_columns_avx2(const Row<std::uint8_t>& row, int c) {
    if (!isa_available(Isa::AVX2)) return c;
    return for_stride(row.stride, c, [&]<int P>() { return green_columns_avx2<P>(row, c); });
}

#else

int green_columns_sse2(const Row<std::uint8_t>&, int c) { return c; }
int green_columns_avx2(const Row<std::uint8_t>&, int c) { return c; }

#endif

}  // namespace

void smooth_hue_green_row_scalar(const Row<std::uint8_t>& row, const SmoothHueRule&) {
    green_columns_scalar(row, row.c_first);
}

void smooth_hue_green_row_sse2(const Row<std::uint8_t>& row, const SmoothHueRule&) {
    green_columns_scalar(row, green_columns_sse2(row, row.c_first));
}

void smooth_hue_green_row_avx2(const Row<std::uint8_t>& row, const SmoothHueRule&) {
    green_columns_scalar(row, green_columns_sse2(row, green_columns_avx2(row, row.c_first)));
}

void smooth_hue_green_row(const Row<std::uint8_t>& row, const SmoothHueRule& rule) {
    switch (best_isa()) {
    case Isa::AVX2: return smooth_hue_green_row_avx2(row, rule);
    case Isa::SSE2: return smooth_hue_green_row_sse2(row, rule);
    case Isa::Scalar: break;
    }
    smooth_hue_green_row_scalar(row, rule);
}

// Pixels are computed left to right, and each pixel's element 0 is stored before its
// element 2 is computed. Both orders show in the output: with four bytes per pixel the
// left byte is the red element pass 2 has just given the pixel before, and with one
// byte per pixel on a top-down four-pixel row a blue site's diagonal estimate reads
// the sample it has just stored.
void smooth_hue_colour_row_scalar(const Row<std::uint8_t>& row, const SmoothHueRule& rule) {
    for (int c = row.c_first; c <= row.c_last; ++c) {
        std::uint8_t* px = row.d + std::ptrdiff_t(c) * row.stride;
        const Around a{row.s + c, row.width, px, px + row.up, px + row.down, float(px[kGreen])};
        Site site = row.phase.site(c);
        if (site == Site::GreenOnBlue) site = rule.green_on_blue_as;
        switch (site) {
        case Site::Red:
            px[kBlue] = to_byte(a.diagonal(), rule.saturation);
            px[kRed] = a.s[0];
            break;
        case Site::Blue:
            px[kBlue] = a.s[0];
            px[kRed] = to_byte(a.diagonal(), rule.saturation);
            break;
        case Site::GreenOnRed:
            px[kBlue] = to_byte(a.vertical(), rule.saturation);
            px[kRed] = to_byte(a.horizontal(), rule.saturation);
            break;
        case Site::GreenOnBlue:
            px[kBlue] = to_byte(a.horizontal(), rule.saturation);
            px[kRed] = to_byte(a.vertical(), rule.saturation);
            break;
        }
    }
}

#if defined(__SSE2__)
namespace {

// Four lanes hold the pixels at columns c0, c0 + 2, c0 + 4 and c0 + 6 of one row, which
// share one site. Single-precision vector arithmetic rounds each lane exactly as the
// scalar kernel rounds each operation, so the lanes give the scalar bytes.

// Offsets of a pixel's green and right byte from its left byte.
constexpr int kGreenFromLeft = kGreen - kLeftByte;
constexpr int kRightFromLeft = kRightByte - kLeftByte;

// The bytes a lane group reads from one output row, fetched with two 16-byte loads that
// start at the left byte of the group's first pixel. Lane k's left byte, green and right
// byte lie 2Pk, 2Pk + 3 and 2Pk + 6 bytes from there. The loads end inside pixel
// c0 + 7, which exists whenever c0 + 6 <= width - 2.
template <int P>
struct OutputBytes {
    static constexpr int kSecond = P == 4 ? 16 : 10;  // where the second load starts
    __m128i a, b;

    explicit OutputBytes(const std::uint8_t* pixel) {
        const std::uint8_t* base = pixel + kLeftByte;
        a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(base));
        b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(base + kSecond));
    }

    // The byte 2Pk + Off of every lane k, as floats.
    template <int Off>
    __m128 lanes() const {
        if constexpr (P == 4) {
            // Lanes 0 and 1 lie in the 64-bit halves of a, lanes 2 and 3 in those of b.
            const __m128i mask = _mm_set1_epi64x(0xFF);
            const __m128i lo = _mm_and_si128(_mm_srli_epi64(a, 8 * Off), mask);
            const __m128i hi = _mm_and_si128(_mm_srli_epi64(b, 8 * Off), mask);
            const __m128 both = _mm_shuffle_ps(_mm_castsi128_ps(lo), _mm_castsi128_ps(hi), _MM_SHUFFLE(2, 0, 2, 0));
            return _mm_cvtepi32_ps(_mm_castps_si128(both));
        } else {
            // Lanes 0 and 1 are bytes Off and Off + 6 of a, lanes 2 and 3 the same of b
            // shifted by the distance between the loads: 16-bit words 0 and 3.
            const __m128i lo = _mm_shufflelo_epi16(_mm_srli_si128(a, Off), _MM_SHUFFLE(3, 3, 3, 0));
            const __m128i hi = _mm_shufflelo_epi16(_mm_srli_si128(b, Off + 12 - kSecond), _MM_SHUFFLE(3, 3, 3, 0));
            return _mm_cvtepi32_ps(_mm_and_si128(_mm_unpacklo_epi64(lo, hi), _mm_set1_epi32(0xFF)));
        }
    }
};

// Raw samples of one lane group: columns c0 - 1, c0 and c0 + 1 of one raw row, for the
// columns c0 + 2k. The loads cover columns c0 - 1 .. c0 + 7 and nothing else.
struct Samples {
    __m128 left, here, right;

    explicit Samples(const std::uint8_t* s) {  // s: sample at column c0
        const __m128i a = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(s - 1));
        const __m128i b = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(s));
        const __m128i zero = _mm_setzero_si128();
        left = _mm_cvtepi32_ps(_mm_unpacklo_epi16(_mm_and_si128(a, _mm_set1_epi16(0x00FF)), zero));
        here = _mm_cvtepi32_ps(_mm_unpacklo_epi16(_mm_srli_epi16(a, 8), zero));
        right = _mm_cvtepi32_ps(_mm_unpacklo_epi16(_mm_srli_epi16(b, 8), zero));
    }
};

// The saturating conversion, four lanes. minps yields its second operand when the first
// is NaN, so NaN and everything above 255 become 255; the greater-than form then sends
// NaN to 0. What reaches the truncating conversion lies in [0, 255].
inline __m128i to_bytes(__m128 x, Saturation form) {
    __m128 y = _mm_min_ps(x, _mm_set1_ps(kSaturationLimit));
    if (form == Saturation::GreaterThan) y = _mm_andnot_ps(_mm_cmpunord_ps(x, x), y);
    return _mm_cvttps_epi32(y);
}

// Four values in [0, 255] to the bytes `step` apart from px.
inline void store_lanes(std::uint8_t* px, std::ptrdiff_t step, __m128i v) {
    const __m128i words = _mm_packs_epi32(v, v);
    std::uint32_t bytes = std::uint32_t(_mm_cvtsi128_si32(_mm_packus_epi16(words, words)));
    for (int k = 0; k < 4; ++k, bytes >>= 8) px[k * step] = std::uint8_t(bytes);
}
inline void store_samples(std::uint8_t* px, std::ptrdiff_t step, const std::uint8_t* s) {
    for (int k = 0; k < 4; ++k) px[k * step] = s[2 * k];
}

template <int P>
struct LaneGroup {
    static constexpr std::ptrdiff_t kStep = 2 * P;  // bytes between the lanes' pixels
    const Row<std::uint8_t>& row;
    const std::uint8_t* s;  // sample at column c0
    std::uint8_t* px;       // pixel at column c0

    LaneGroup(const Row<std::uint8_t>& r, int c0) : row(r), s(r.s + c0), px(r.d + std::ptrdiff_t(c0) * P) {}

    void diagonal(Site site, Saturation form) const {
        const OutputBytes<P> above(px + row.up), below(px + row.down), here(px);
        const Samples u(s - row.width), d(s + row.width);
        const __m128 up_left = _mm_div_ps(u.left, above.template lanes<0>());
        const __m128 up_right = _mm_div_ps(u.right, above.template lanes<kRightFromLeft>());
        const __m128 down_left = _mm_div_ps(d.left, below.template lanes<0>());
        const __m128 down_right = _mm_div_ps(d.right, below.template lanes<kRightFromLeft>());
        const __m128 sum = _mm_add_ps(_mm_add_ps(_mm_add_ps(up_left, up_right), down_left), down_right);
        const __m128 quarter_g = _mm_mul_ps(here.template lanes<kGreenFromLeft>(), _mm_set1_ps(0.25f));
        const __m128i estimate = to_bytes(_mm_mul_ps(sum, quarter_g), form);
        if (site == Site::Red) {
            store_lanes(px + kBlue, kStep, estimate);
            store_samples(px + kRed, kStep, s);
        } else {
            store_samples(px + kBlue, kStep, s);
            store_lanes(px + kRed, kStep, estimate);
        }
    }

    // `before`: the own row's bytes as they were before the chunk wrote anything. The
    // right bytes come from there; with four bytes per pixel the left bytes are the
    // red elements of the pixels just written, so they are fetched again.
    void green(Site site, Saturation form, const OutputBytes<P>& before) const {
        const OutputBytes<P> above(px + row.up), below(px + row.down);
        const Samples u(s - row.width), m(s), d(s + row.width);
        const __m128 left_bytes = P == 4 ? OutputBytes<P>(px).template lanes<0>() : before.template lanes<0>();
        const __m128 half_g = _mm_mul_ps(before.template lanes<kGreenFromLeft>(), _mm_set1_ps(0.5f));
        const __m128 q_up = _mm_div_ps(u.here, above.template lanes<kGreenFromLeft>());
        const __m128 q_down = _mm_div_ps(d.here, below.template lanes<kGreenFromLeft>());
        const __m128 q_left = _mm_div_ps(m.left, left_bytes);
        const __m128 q_right = _mm_div_ps(m.right, before.template lanes<kRightFromLeft>());
        const __m128i vertical = to_bytes(_mm_mul_ps(_mm_add_ps(q_up, q_down), half_g), form);
        const __m128i horizontal = to_bytes(_mm_mul_ps(_mm_add_ps(q_left, q_right), half_g), form);
        store_lanes(px + kBlue, kStep, site == Site::GreenOnRed ? vertical : horizontal);
        store_lanes(px + kRed, kStep, site == Site::GreenOnRed ? horizontal : vertical);
    }
};

// Eight pixels at a time, four of each column parity. With three or four bytes per
// pixel the only bytes of its own row that a pixel reads are its left and right bytes,
// and only green sites read them: the left byte belongs to the pixel before, which the
// scalar order has already written, the right byte to the pixel after, which it has
// not. So within a chunk the green sites' own-row bytes are fetched first, the red and
// blue sites are computed and written next, and the green sites last.
template <int P>
void colour_row_sse2(const Row<std::uint8_t>& row, const SmoothHueRule& rule) {
    // At most one parity is green (the top-down BGGR member's even rows have none).
    Site site[2];
    for (int k = 0; k < 2; ++k) {
        site[k] = row.phase.site(row.c_first + k);
        if (site[k] == Site::GreenOnBlue) site[k] = rule.green_on_blue_as;
    }
    const int green = is_green(site[0]) ? 0 : is_green(site[1]) ? 1 : -1;
    int c = row.c_first;
    for (; c + 7 <= row.c_last; c += 8) {
        const LaneGroup<P> lanes[2] = {LaneGroup<P>(row, c), LaneGroup<P>(row, c + 1)};
        if (green < 0) {
            lanes[0].diagonal(site[0], rule.saturation);
            lanes[1].diagonal(site[1], rule.saturation);
        } else {
            const OutputBytes<P> before(lanes[green].px);
            lanes[1 - green].diagonal(site[1 - green], rule.saturation);
            lanes[green].green(site[green], rule.saturation, before);
        }
    }
    if (c <= row.c_last) {
        Row<std::uint8_t> rest = row;
        rest.c_first = c;
        smooth_hue_colour_row_scalar(rest, rule);
    }
}

}  // namespace

// Other strides go to the scalar kernel; so do the last pixels of a row that do not
// fill a chunk of eight.
void smooth_hue_colour_row_sse2(const Row<std::uint8_t>& row, const SmoothHueRule& rule) {
    switch (row.stride) {
    case 3: return colour_row_sse2<3>(row, rule);
    case 4: return colour_row_sse2<4>(row, rule);
    default: return smooth_hue_colour_row_scalar(row, rule);
    }
}
#else
void smooth_hue_colour_row_sse2(const Row<std::uint8_t>& row, const SmoothHueRule& rule) {
    smooth_hue_colour_row_scalar(row, rule);
}
#endif

#if defined(__x86_64__) && defined(__SSE2__)
namespace {

// The AVX2 colour pass takes blocks of 16 pixels, c0 .. c0 + 15, and works on planes:
// 16 bytes that hold one byte per pixel of the block. Eight single-precision lanes
// hold the pixels of one column parity (the even or the odd bytes of a plane).
//
// The bytes of one output row that a block reads lie between the first byte of pixel
// c0 - 1 and the last byte of pixel c0 + 16 (both exist: c0 >= 1 and c0 + 15 <= width
// - 2). They are fetched as 16-byte pieces that cover exactly those 18P bytes, and
// a plane is picked out of the pieces with byte shuffles.
template <int P>
struct Span {
    static constexpr int kBytes = 18 * P;
    static constexpr int kPieces = (kBytes + 15) / 16;
    static constexpr int offset(int i) { return i + 1 < kPieces ? 16 * i : kBytes - 16; }
    // Where, from the span's first byte, pixel c0 + j's left byte, green and right
    // byte lie: first + P * j.
    static constexpr int kLeft = P + kLeftByte;
    static constexpr int kGreenAt = P + kGreen;
    static constexpr int kRight = P + kRightByte;
};

struct PlaneShuffle {
    std::uint8_t index[5][16];  // per piece; 0x80 where another piece supplies the byte
    bool used[5];
};

template <int P>
constexpr PlaneShuffle make_plane_shuffle(int first) {
    using S = Span<P>;
    PlaneShuffle t{};
    for (int i = 0; i < 5; ++i) {
        t.used[i] = false;
        for (int j = 0; j < 16; ++j) t.index[i][j] = 0x80;
    }
    for (int j = 0; j < 16; ++j) {
        const int at = first + P * j;
        for (int i = 0; i < S::kPieces; ++i) {
            if (at >= S::offset(i) && at < S::offset(i) + 16) {
                t.index[i][j] = std::uint8_t(at - S::offset(i));
                t.used[i] = true;
                break;
            }
        }
    }
    return t;
}

template <int P, int First>
inline constexpr PlaneShuffle kPlane = make_plane_shuffle<P>(First);

template <int P>
struct SpanBytes {
    __m128i piece[Span<P>::kPieces];

    QZRCFA_AVX2 QZRCFA_INLINE explicit SpanBytes(const std::uint8_t* pixel) {  // pixel c0 of some output row
        const std::uint8_t* first = pixel - P;
#pragma GCC unroll 8
        for (int i = 0; i < Span<P>::kPieces; ++i)
            piece[i] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(first + Span<P>::offset(i)));
    }

    template <int First, int I>
    QZRCFA_AVX2 QZRCFA_INLINE __m128i from_piece() const {
        constexpr const PlaneShuffle& t = kPlane<P, First>;
        if constexpr (t.used[I])
            return _mm_shuffle_epi8(piece[I], _mm_loadu_si128(reinterpret_cast<const __m128i*>(t.index[I])));
        else
            return _mm_setzero_si128();
    }

    template <int First, std::size_t... I>
    QZRCFA_AVX2 QZRCFA_INLINE __m128i gather(std::index_sequence<I...>) const {
        __m128i out = _mm_setzero_si128();
        ((out = _mm_or_si128(out, from_piece<First, int(I)>())), ...);
        return out;
    }

    template <int First>
    QZRCFA_AVX2 QZRCFA_INLINE __m128i plane() const {
        return gather<First>(std::make_index_sequence<Span<P>::kPieces>());
    }
    QZRCFA_AVX2 QZRCFA_INLINE __m128i left() const { return plane<Span<P>::kLeft>(); }
    QZRCFA_AVX2 QZRCFA_INLINE __m128i green() const { return plane<Span<P>::kGreenAt>(); }
    QZRCFA_AVX2 QZRCFA_INLINE __m128i right() const { return plane<Span<P>::kRight>(); }
};

// The even (parity 0) or odd bytes of a plane, as 16-bit words.
QZRCFA_AVX2 QZRCFA_INLINE __m128i parity_words(__m128i plane, int parity) {
    return parity != 0 ? _mm_srli_epi16(plane, 8) : _mm_and_si128(plane, _mm_set1_epi16(0x00FF));
}
QZRCFA_AVX2 QZRCFA_INLINE __m256 lanes8(__m128i plane, int parity) {
    return _mm256_cvtepi32_ps(_mm256_cvtepu16_epi32(parity_words(plane, parity)));
}
// The saturating conversion, eight lanes, to integers in [0, 255]; see to_bytes.
QZRCFA_AVX2 QZRCFA_INLINE __m256i to_ints8(__m256 x, Saturation form) {
    __m256 y = _mm256_min_ps(x, _mm256_set1_ps(kSaturationLimit));
    if (form == Saturation::GreaterThan) y = _mm256_andnot_ps(_mm256_cmp_ps(x, x, _CMP_UNORD_Q), y);
    return _mm256_cvttps_epi32(y);
}

// A plane from the values of its even and odd bytes (integers in [0, 255], eight
// lanes each): lane i of both becomes the 16-bit word i, even byte first.
QZRCFA_AVX2 QZRCFA_INLINE __m128i interleave_plane(__m256i even, __m256i odd) {
    const __m256i words = _mm256_or_si256(even, _mm256_slli_epi32(odd, 8));
    return _mm_packus_epi32(_mm256_castsi256_si128(words), _mm256_extracti128_si256(words, 1));
}

// Bytes of `yes` where the mask is set, of `no` elsewhere.
QZRCFA_AVX2 QZRCFA_INLINE __m128i select_bytes(__m128i mask, __m128i yes, __m128i no) {
    return _mm_or_si128(_mm_and_si128(mask, yes), _mm_andnot_si128(mask, no));
}

QZRCFA_AVX2 QZRCFA_INLINE __m128i shuffle(__m128i plane, const std::uint8_t* index) {
    return _mm_shuffle_epi8(plane, _mm_load_si128(reinterpret_cast<const __m128i*>(index)));
}

// Stores 16 pixels of P (3 or 4) bytes from three planes: exactly 16 * P bytes, element
// 3 of four-byte pixels unchanged.
template <int P>
QZRCFA_AVX2 QZRCFA_INLINE void store_block(std::uint8_t* px, __m128i blue, __m128i green, __m128i red) {
    if constexpr (P == 3) {
        const auto& index = kInterleave3.index;
        for (int v = 0; v < 3; ++v) {
            const __m128i out = _mm_or_si128(_mm_or_si128(shuffle(blue, index[v][0]), shuffle(green, index[v][1])),
                                             shuffle(red, index[v][2]));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(px) + v, out);
        }
    } else {
        store_pixels_sse2<P>(px, Planes<Bytes16>{(Bytes16)blue, (Bytes16)green, (Bytes16)red});
    }
}

// Samples of one raw row for a block: columns c - 1, c and c + 1 of every pixel c.
struct SamplePlanes {
    __m128i left, here, right;
    QZRCFA_AVX2 QZRCFA_INLINE explicit SamplePlanes(const std::uint8_t* s)  // sample at column c0
        : left(_mm_loadu_si128(reinterpret_cast<const __m128i*>(s - 1))),
          here(_mm_loadu_si128(reinterpret_cast<const __m128i*>(s))),
          right(_mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 1))) {}
};

// Within a block every value is computed from bytes fetched before the block stores
// anything, which is what the scalar order reads with one exception: with four bytes
// per pixel a green site's left byte is the red element of the pixel before, which
// the scalar kernel has already written. Those are taken from the values just
// computed (and, for the block's first pixel, from memory: the previous block has
// stored them).
template <int P>
QZRCFA_AVX2 void colour_row_avx2(const Row<std::uint8_t>& row, const SmoothHueRule& rule) {
    Site site[2];
    for (int k = 0; k < 2; ++k) {
        site[k] = row.phase.site(row.c_first + k);
        if (site[k] == Site::GreenOnBlue) site[k] = rule.green_on_blue_as;
    }
    const int green = is_green(site[0]) ? 0 : is_green(site[1]) ? 1 : -1;
    const Saturation form = rule.saturation;
    const int w = row.width;
    const __m256 half = _mm256_set1_ps(0.5f), quarter = _mm256_set1_ps(0.25f);
    // Bytes of the planes where a red or a blue site stores its own sample.
    const __m128i even = _mm_load_si128(reinterpret_cast<const __m128i*>(kEvenLanes));
    const __m128i parity_mask[2] = {even, _mm_xor_si128(even, _mm_set1_epi8(-1))};
    __m128i red_samples = _mm_setzero_si128(), blue_samples = _mm_setzero_si128();
    for (int k = 0; k < 2; ++k) {
        if (site[k] == Site::Red) red_samples = _mm_or_si128(red_samples, parity_mask[k]);
        if (site[k] == Site::Blue) blue_samples = _mm_or_si128(blue_samples, parity_mask[k]);
    }
    int c = row.c_first;
    for (; c + 15 <= row.c_last; c += 16) {
        std::uint8_t* px = row.d + std::ptrdiff_t(c) * P;
        const std::uint8_t* s = row.s + c;
        const SpanBytes<P> above(px + row.up), here(px), below(px + row.down);
        const SamplePlanes su(s - w), sm(s), sd(s + w);
        const __m128i own_green = here.green();
        __m256i blue[2] = {_mm256_setzero_si256(), _mm256_setzero_si256()};
        __m256i red[2] = {_mm256_setzero_si256(), _mm256_setzero_si256()};
        for (int k = 0; k < 2; ++k) {
            if (k == green) continue;
            const __m256 up_left = _mm256_div_ps(lanes8(su.left, k), lanes8(above.left(), k));
            const __m256 up_right = _mm256_div_ps(lanes8(su.right, k), lanes8(above.right(), k));
            const __m256 down_left = _mm256_div_ps(lanes8(sd.left, k), lanes8(below.left(), k));
            const __m256 down_right = _mm256_div_ps(lanes8(sd.right, k), lanes8(below.right(), k));
            const __m256 sum = _mm256_add_ps(_mm256_add_ps(_mm256_add_ps(up_left, up_right), down_left), down_right);
            const __m256i estimate = to_ints8(_mm256_mul_ps(sum, _mm256_mul_ps(lanes8(own_green, k), quarter)), form);
            (site[k] == Site::Red ? blue : red)[k] = estimate;
        }
        // The red plane of the red and blue sites: their samples or estimates.
        __m128i red_plane = select_bytes(red_samples, sm.here, interleave_plane(red[0], red[1]));
        if (green >= 0) {
            const int k = green;
            __m128i left = here.left();
            if constexpr (P == 4) {
                // Byte j of the red plane so far is the red element of pixel c0 + j.
                left = _mm_or_si128(_mm_and_si128(left, _mm_cvtsi32_si128(0xFF)), _mm_slli_si128(red_plane, 1));
            }
            const __m256 g_half = _mm256_mul_ps(lanes8(own_green, k), half);
            const __m256 q_up = _mm256_div_ps(lanes8(su.here, k), lanes8(above.green(), k));
            const __m256 q_down = _mm256_div_ps(lanes8(sd.here, k), lanes8(below.green(), k));
            const __m256 q_left = _mm256_div_ps(lanes8(sm.left, k), lanes8(left, k));
            const __m256 q_right = _mm256_div_ps(lanes8(sm.right, k), lanes8(here.right(), k));
            const __m256i vertical = to_ints8(_mm256_mul_ps(_mm256_add_ps(q_up, q_down), g_half), form);
            const __m256i horizontal = to_ints8(_mm256_mul_ps(_mm256_add_ps(q_left, q_right), g_half), form);
            blue[k] = site[k] == Site::GreenOnRed ? vertical : horizontal;
            red[k] = site[k] == Site::GreenOnRed ? horizontal : vertical;
            red_plane = select_bytes(red_samples, sm.here, interleave_plane(red[0], red[1]));
        }
        const __m128i blue_plane = select_bytes(blue_samples, sm.here, interleave_plane(blue[0], blue[1]));
        store_block<P>(px, blue_plane, own_green, red_plane);
    }
    if (c <= row.c_last) {
        Row<std::uint8_t> rest = row;
        rest.c_first = c;
        smooth_hue_colour_row_sse2(rest, rule);
    }
}

}  // namespace

void smooth_hue_colour_row_avx2(const Row<std::uint8_t>& row, const SmoothHueRule& rule) {
    if (!isa_available(Isa::AVX2)) return smooth_hue_colour_row_sse2(row, rule);
    switch (row.stride) {
    case 3: return colour_row_avx2<3>(row, rule);
    case 4: return colour_row_avx2<4>(row, rule);
    default: return smooth_hue_colour_row_scalar(row, rule);
    }
}
#else
void smooth_hue_colour_row_avx2(const Row<std::uint8_t>& row, const SmoothHueRule& rule) {
    smooth_hue_colour_row_sse2(row, rule);
}
#endif

void smooth_hue_colour_row(const Row<std::uint8_t>& row, const SmoothHueRule& rule) {
    switch (best_isa()) {
    case Isa::AVX2: return smooth_hue_colour_row_avx2(row, rule);
    case Isa::SSE2: return smooth_hue_colour_row_sse2(row, rule);
    case Isa::Scalar: break;
    }
    smooth_hue_colour_row_scalar(row, rule);
}

namespace {

using SmoothHueMember = Member<std::uint8_t, SmoothHueRule>;

constexpr SmoothHueRule kRegular{Site::GreenOnBlue, Saturation::GreaterThan};
constexpr SmoothHueRule kGreenOnBlueAsRed{Site::Red, Saturation::GreaterThan};
constexpr SmoothHueRule kNaNSaturates{Site::GreenOnBlue, Saturation::LessThan};

constexpr SmoothHueMember smooth_hue(Pattern p, bool flip, Prefill fill, ColourFn<std::uint8_t> border,
                                     SmoothHueRule rule) {
    return SmoothHueMember{p, flip, fill, border, 3, rule,
                           {{smooth_hue_green_row, 1, 0}, {smooth_hue_colour_row, 1, 0}}};
}

// The member table. Only the BGGR pair departs from the regular members: the top-down
// one gives its green-on-blue sites the red-site formulas, the bottom-up one zero-fills
// three bytes per pixel first and saturates NaN to 255.
constexpr SmoothHueMember kSmoothHue_RGGB = smooth_hue(Pattern::RGGB, false, Prefill::None, QZRCFA_NearestNeighbor_Edge1_RGGB, kRegular);
constexpr SmoothHueMember kSmoothHue_BGGR = smooth_hue(Pattern::BGGR, false, Prefill::None, QZRCFA_NearestNeighbor_Edge1_BGGR, kGreenOnBlueAsRed);
constexpr SmoothHueMember kSmoothHue_GRBG = smooth_hue(Pattern::GRBG, false, Prefill::None, QZRCFA_NearestNeighbor_Edge1_GRBG, kRegular);
constexpr SmoothHueMember kSmoothHue_GBRG = smooth_hue(Pattern::GBRG, false, Prefill::None, QZRCFA_NearestNeighbor_Edge1_GBRG, kRegular);
constexpr SmoothHueMember kSmoothHue_RGGB_Flip = smooth_hue(Pattern::RGGB, true, Prefill::None, QZRCFA_NearestNeighbor_Edge1_RGGB_Flip, kRegular);
constexpr SmoothHueMember kSmoothHue_BGGR_Flip = smooth_hue(Pattern::BGGR, true, Prefill::ZeroRgb, QZRCFA_NearestNeighbor_Edge1_BGGR_Flip, kNaNSaturates);
constexpr SmoothHueMember kSmoothHue_GRBG_Flip = smooth_hue(Pattern::GRBG, true, Prefill::None, QZRCFA_NearestNeighbor_Edge1_GRBG_Flip, kRegular);
constexpr SmoothHueMember kSmoothHue_GBRG_Flip = smooth_hue(Pattern::GBRG, true, Prefill::None, QZRCFA_NearestNeighbor_Edge1_GBRG_Flip, kRegular);

}  // namespace
}  // namespace qzrcfa::detail

using qzrcfa::detail::demosaic;
namespace d = qzrcfa::detail;

extern "C" {

QZRCFA_API int QZRCFA_SmoothHue_RGGB(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return demosaic(d::kSmoothHue_RGGB, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_SmoothHue_BGGR(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return demosaic(d::kSmoothHue_BGGR, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_SmoothHue_GRBG(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return demosaic(d::kSmoothHue_GRBG, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_SmoothHue_GBRG(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return demosaic(d::kSmoothHue_GBRG, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_SmoothHue_RGGB_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return demosaic(d::kSmoothHue_RGGB_Flip, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_SmoothHue_BGGR_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return demosaic(d::kSmoothHue_BGGR_Flip, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_SmoothHue_GRBG_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return demosaic(d::kSmoothHue_GRBG_Flip, src, width, height, dst, bitCount);
}
QZRCFA_API int QZRCFA_SmoothHue_GBRG_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount) {
    return demosaic(d::kSmoothHue_GBRG_Flip, src, width, height, dst, bitCount);
}

}  // extern "C"
