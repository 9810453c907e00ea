// Pixel layer of AVX2: thirty-two byte lanes. See pixels_sse2-inl.h for what a pixel
// layer does. Three-byte pixels move between planes and pixels with byte shuffles
// inside each 128-bit half and one exchange of halves.

#include "isa/x86_128-inl.h"

constexpr int kLanes = 32;
typedef std::uint8_t Bytes __attribute__((vector_size(32)));
using GreyVector = Bytes;  // the vector grey runs on
typedef std::uint16_t Words __attribute__((vector_size(32)));
typedef std::int16_t Wide __attribute__((vector_size(32)));  // kLanes / 2 lanes
typedef float Floats __attribute__((vector_size(32)));  // kLanes / 4 lanes

template <int P>
struct PixelMask {
    __m256i v[P];
};

QZRCFA_INLINE __m256i load_256(const void* p) { return _mm256_loadu_si256(static_cast<const __m256i*>(p)); }
QZRCFA_INLINE void store_256(void* p, __m256i v) { _mm256_storeu_si256(static_cast<__m256i*>(p), v); }

// Byte shuffles that put 16 pixels of planar colour into 48 bytes of three-byte
// pixels: [output vector][colour][lane byte], the same in both 128-bit halves.
struct Interleave3Index {
    std::uint8_t index[3][3][32];
};

constexpr Interleave3Index make_interleave3_index() {
    Interleave3Index t{};
    for (int v = 0; v < 3; ++v)
        for (int colour = 0; colour < 3; ++colour)
            for (int i = 0; i < 32; ++i) {
                const int byte = 16 * v + i % 16;
                t.index[v][colour][i] = std::uint8_t(byte % 3 == colour ? byte / 3 : 0x80);
            }
    return t;
}

alignas(32) inline constexpr Interleave3Index kInterleave3 = make_interleave3_index();

QZRCFA_INLINE __m256i shuffle_256(Bytes plane, const std::uint8_t* index) {
    return _mm256_shuffle_epi8((__m256i)plane, _mm256_load_si256(reinterpret_cast<const __m256i*>(index)));
}

template <int P>
QZRCFA_INLINE void interleave(Bytes b, Bytes g, Bytes r, Bytes a, __m256i (&out)[P]) {
    if constexpr (P == 3) {
        // Output vector v of each 128-bit half holds a third of its 16 pixels' 48 bytes.
        __m256i o[3];
        for (int v = 0; v < 3; ++v) {
            const auto& index = kInterleave3.index[v];
            o[v] = _mm256_or_si256(_mm256_or_si256(shuffle_256(b, index[0]), shuffle_256(g, index[1])),
                                   shuffle_256(r, index[2]));
        }
        out[0] = _mm256_permute2x128_si256(o[0], o[1], 0x20);
        out[1] = _mm256_permute2x128_si256(o[2], o[0], 0x30);
        out[2] = _mm256_permute2x128_si256(o[1], o[2], 0x31);
    } else {
        const __m256i bg_lo = _mm256_unpacklo_epi8((__m256i)b, (__m256i)g), bg_hi = _mm256_unpackhi_epi8((__m256i)b, (__m256i)g);
        const __m256i ra_lo = _mm256_unpacklo_epi8((__m256i)r, (__m256i)a), ra_hi = _mm256_unpackhi_epi8((__m256i)r, (__m256i)a);
        // Pixels 0-3 | 16-19, 4-7 | 20-23, 8-11 | 24-27, 12-15 | 28-31.
        const __m256i q0 = _mm256_unpacklo_epi16(bg_lo, ra_lo), q1 = _mm256_unpackhi_epi16(bg_lo, ra_lo);
        const __m256i q2 = _mm256_unpacklo_epi16(bg_hi, ra_hi), q3 = _mm256_unpackhi_epi16(bg_hi, ra_hi);
        out[0] = _mm256_permute2x128_si256(q0, q1, 0x20);
        out[1] = _mm256_permute2x128_si256(q2, q3, 0x20);
        out[2] = _mm256_permute2x128_si256(q0, q1, 0x31);
        out[3] = _mm256_permute2x128_si256(q2, q3, 0x31);
    }
}

template <int P>
QZRCFA_INLINE void store_pixels(std::uint8_t* out, Bytes b, Bytes g, Bytes r, bool white, bool stream = false) {
    __m256i px[P];
    interleave<P>(b, g, r, white ? ~Bytes{} : Bytes{}, px);
    if (stream) {
        for (int i = 0; i < P; ++i) _mm256_stream_si256(reinterpret_cast<__m256i*>(out + 32 * i), px[i]);
    } else if (P == 4 && !white) {
        const __m256i keep = _mm256_set1_epi32(int(0xFF000000u));
        for (int i = 0; i < P; ++i)
            store_256(out + 32 * i, _mm256_or_si256(_mm256_and_si256(load_256(out + 32 * i), keep), px[i]));
    } else {
        for (int i = 0; i < P; ++i) store_256(out + 32 * i, px[i]);
    }
}

template <int P>
QZRCFA_INLINE PixelMask<P> pixel_mask(Bytes mb, Bytes mg, Bytes mr) {
    PixelMask<P> m;
    interleave<P>(mb, mg, mr, Bytes{}, m.v);
    return m;
}

template <int P>
QZRCFA_INLINE void store_masked(std::uint8_t* out, Bytes b, Bytes g, Bytes r, const PixelMask<P>& m) {
    __m256i px[P];
    interleave<P>(b, g, r, Bytes{}, px);
    for (int i = 0; i < P; ++i) store_256(out + 32 * i, _mm256_blendv_epi8(load_256(out + 32 * i), px[i], m.v[i]));
}

template <int P>
QZRCFA_INLINE Bytes gather(const std::uint8_t* p) {
    if constexpr (P == 4) {
        return (Bytes)_mm256_set_m128i(gather4_128(p + 64), gather4_128(p));
    } else {
        return (Bytes)_mm256_set_m128i(gather3_128(p + 48), gather3_128(p));
    }
}

template <int P>
QZRCFA_INLINE void store_pixels16(std::uint16_t* out, Words b, Words g, Words r, bool white = false) {
    const __m256i vb = (__m256i)b, vg = (__m256i)g, vr = (__m256i)r;
    store_pixels16_128<P>(out, _mm256_castsi256_si128(vb), _mm256_castsi256_si128(vg), _mm256_castsi256_si128(vr), white);
    store_pixels16_128<P>(out + 8 * P, _mm256_extracti128_si256(vb, 1), _mm256_extracti128_si256(vg, 1),
                          _mm256_extracti128_si256(vr, 1), white);
}

template <int P>
QZRCFA_INLINE void store_pixels16(std::uint16_t* out, Words b, Words g, Words r, Words fourth) {
    const __m256i vb = (__m256i)b, vg = (__m256i)g, vr = (__m256i)r, va = (__m256i)fourth;
    store_pixels16_128<P>(out, _mm256_castsi256_si128(vb), _mm256_castsi256_si128(vg), _mm256_castsi256_si128(vr),
                          _mm256_castsi256_si128(va), false);
    store_pixels16_128<P>(out + 8 * P, _mm256_extracti128_si256(vb, 1), _mm256_extracti128_si256(vg, 1),
                          _mm256_extracti128_si256(vr, 1), _mm256_extracti128_si256(va, 1), false);
}

// The high 16 bits of the lanes' unsigned 32-bit products.
QZRCFA_INLINE Words mul_high(Words a, Words b) { return (Words)_mm256_mulhi_epu16((__m256i)a, (__m256i)b); }

// The mean of two lanes rounded up, (a + b + 1) >> 1, without overflow.
QZRCFA_INLINE Bytes mean_up(Bytes a, Bytes b) { return (Bytes)_mm256_avg_epu8((__m256i)a, (__m256i)b); }
QZRCFA_INLINE Words mean_up(Words a, Words b) { return (Words)_mm256_avg_epu16((__m256i)a, (__m256i)b); }

// a / b for lanes that hold integers 0 .. 255, as IEEE division gives it (see
// pixels_sse2-inl.h). AVX2 divides: the exact sequence with fused multiply-add (rcpps,
// a Newton step and one correction, eight operations) left the three-byte colour pass
// a quarter slower than vdivps on an AMD EPYC (Zen 5).
QZRCFA_INLINE Floats quotient(Floats a, Floats b) { return a / b; }
