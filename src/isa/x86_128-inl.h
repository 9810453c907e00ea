// 128-bit pieces shared by the x86 pixel layers: moving sixteen byte lanes (eight
// 16-bit lanes) between planes of colour and interleaved pixels. Included inside an
// instruction set's namespace, after <immintrin.h>; uses SSE2 only, except where a
// function says it needs SSSE3.

// Pixels 4i .. 4i + 3 as blue, green, red, fourth in px[i], i = 0 .. 3.
QZRCFA_INLINE void interleave4_128(__m128i b, __m128i g, __m128i r, __m128i a, __m128i (&px)[4]) {
    const __m128i bg_lo = _mm_unpacklo_epi8(b, g), bg_hi = _mm_unpackhi_epi8(b, g);
    const __m128i ra_lo = _mm_unpacklo_epi8(r, a), ra_hi = _mm_unpackhi_epi8(r, a);
    px[0] = _mm_unpacklo_epi16(bg_lo, ra_lo);
    px[1] = _mm_unpackhi_epi16(bg_lo, ra_lo);
    px[2] = _mm_unpacklo_epi16(bg_hi, ra_hi);
    px[3] = _mm_unpackhi_epi16(bg_hi, ra_hi);
}

// Four pixels of four bytes squeezed into the low twelve bytes (the fourth bytes dropped).
QZRCFA_INLINE __m128i squeeze_128(__m128i x) {
    const __m128i low3 = _mm_set1_epi64x(0x0000000000FFFFFF);
    const __m128i next3 = _mm_set1_epi64x(0x0000FFFFFF000000);
    const __m128i pairs = _mm_or_si128(_mm_and_si128(x, low3), _mm_and_si128(_mm_srli_epi64(x, 8), next3));
    const __m128i upper = _mm_andnot_si128(_mm_set_epi32(0, 0, 0xFFFF, -1), _mm_srli_si128(pairs, 2));
    return _mm_or_si128(_mm_move_epi64(pairs), upper);
}

// Sixteen pixels of four bytes as 48 bytes of three-byte pixels.
QZRCFA_INLINE void squeeze3_128(const __m128i (&px)[4], __m128i (&w)[3]) {
    const __m128i w0 = squeeze_128(px[0]), w1 = squeeze_128(px[1]);
    const __m128i w2 = squeeze_128(px[2]), w3 = squeeze_128(px[3]);
    w[0] = _mm_or_si128(w0, _mm_slli_si128(w1, 12));
    w[1] = _mm_or_si128(_mm_srli_si128(w1, 4), _mm_slli_si128(w2, 8));
    w[2] = _mm_or_si128(_mm_srli_si128(w2, 8), _mm_slli_si128(w3, 4));
}

QZRCFA_INLINE __m128i load_128(const void* p) { return _mm_loadu_si128(static_cast<const __m128i*>(p)); }
QZRCFA_INLINE void store_128(void* p, __m128i v) { _mm_storeu_si128(static_cast<__m128i*>(p), v); }

// Bytes p[4k], k = 0 .. 15, reading nothing outside p[0] .. p[60].
QZRCFA_INLINE __m128i gather4_128(const std::uint8_t* p) {
    const __m128i low = _mm_set1_epi32(0xFF);
    const __m128i a = _mm_and_si128(load_128(p), low);
    const __m128i b = _mm_and_si128(load_128(p + 16), low);
    const __m128i c = _mm_and_si128(load_128(p + 32), low);
    const __m128i d = _mm_srli_epi32(load_128(p + 45), 24);  // bytes 48, 52, 56, 60 as the top of each word
    return _mm_packus_epi16(_mm_packs_epi32(a, b), _mm_packs_epi32(c, d));
}

// Bytes 0, 3, 6 and 9 of v as four 32-bit words.
QZRCFA_INLINE __m128i every_third_128(__m128i v) {
    const __m128i first = _mm_set1_epi64x(0xFF);
    const __m128i second = _mm_set1_epi64x(0xFF00000000);
    const __m128i ab = _mm_or_si128(_mm_and_si128(v, first), _mm_and_si128(_mm_slli_epi64(v, 8), second));
    const __m128i w = _mm_srli_si128(v, 6);
    const __m128i cd = _mm_or_si128(_mm_and_si128(w, first), _mm_and_si128(_mm_slli_epi64(w, 8), second));
    return _mm_unpacklo_epi64(ab, cd);
}

// Bytes p[3k], k = 0 .. 15, reading nothing outside p[0] .. p[45].
QZRCFA_INLINE __m128i gather3_128(const std::uint8_t* p) {
#if defined(__SSSE3__)
    // Lanes 0 .. 5 from bytes 0 .. 15, lanes 6 .. 10 from bytes 16 .. 31, lanes 11 .. 15
    // from bytes 30 .. 45.
    const __m128i first = _mm_setr_epi8(0, 3, 6, 9, 12, 15, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1);
    const __m128i second = _mm_setr_epi8(-1, -1, -1, -1, -1, -1, 2, 5, 8, 11, 14, -1, -1, -1, -1, -1);
    const __m128i third = _mm_setr_epi8(-1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, 3, 6, 9, 12, 15);
    return _mm_or_si128(_mm_or_si128(_mm_shuffle_epi8(load_128(p), first), _mm_shuffle_epi8(load_128(p + 16), second)),
                        _mm_shuffle_epi8(load_128(p + 30), third));
#else
    const __m128i a = every_third_128(load_128(p));
    const __m128i b = every_third_128(load_128(p + 12));
    const __m128i c = every_third_128(load_128(p + 24));
    const __m128i d = every_third_128(_mm_srli_si128(load_128(p + 30), 6));  // bytes 36 .. 45
    return _mm_packus_epi16(_mm_packs_epi32(a, b), _mm_packs_epi32(c, d));
#endif
}

// Eight pixels of P (3 or 4) 16-bit elements from eight lanes of blue, green and red:
// exactly 8 * P elements are stored, element 3 of four-element pixels kept (`keep`,
// with `fourth` zero) or set to the lanes of `fourth`.
template <int P>
QZRCFA_INLINE void store_pixels16_128(std::uint16_t* out, __m128i b, __m128i g, __m128i r, __m128i fourth, bool keep) {
    const __m128i bg_lo = _mm_unpacklo_epi16(b, g), bg_hi = _mm_unpackhi_epi16(b, g);
    const __m128i r_lo = _mm_unpacklo_epi16(r, fourth), r_hi = _mm_unpackhi_epi16(r, fourth);
    // Two pixels of four elements (the fourth 0) in each.
    const __m128i px[4] = {_mm_unpacklo_epi32(bg_lo, r_lo), _mm_unpackhi_epi32(bg_lo, r_lo),
                           _mm_unpacklo_epi32(bg_hi, r_hi), _mm_unpackhi_epi32(bg_hi, r_hi)};
    if constexpr (P == 4) {
        const __m128i kept = _mm_set1_epi64x(keep ? std::int64_t(0xFFFF000000000000ull) : 0);
        for (int i = 0; i < 4; ++i)
            store_128(out + 8 * i, _mm_or_si128(_mm_and_si128(load_128(out + 8 * i), kept), px[i]));
    } else {
        // Each pair squeezed to its 12 bytes, then four pairs packed into 48 bytes.
        const __m128i first = _mm_set_epi32(0, 0, 0x0000FFFF, -1);
        const __m128i second = _mm_set_epi32(0, -1, int(0xFFFF0000u), 0);
        __m128i w[4];
        for (int i = 0; i < 4; ++i)
            w[i] = _mm_or_si128(_mm_and_si128(px[i], first), _mm_and_si128(_mm_srli_si128(px[i], 2), second));
        store_128(out, _mm_or_si128(w[0], _mm_slli_si128(w[1], 12)));
        store_128(out + 8, _mm_or_si128(_mm_srli_si128(w[1], 4), _mm_slli_si128(w[2], 8)));
        store_128(out + 16, _mm_or_si128(_mm_srli_si128(w[2], 8), _mm_slli_si128(w[3], 4)));
    }
}

// The same with element 3 kept, or the largest value when `white`.
template <int P>
QZRCFA_INLINE void store_pixels16_128(std::uint16_t* out, __m128i b, __m128i g, __m128i r, bool white = false) {
    store_pixels16_128<P>(out, b, g, r, white ? _mm_set1_epi32(-1) : _mm_setzero_si128(), !white);
}
