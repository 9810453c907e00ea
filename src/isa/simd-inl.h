// The instruction-set-neutral half of the SIMD toolkit: arithmetic on the pixel layer's
// vectors with the compiler's vector extensions (and, in load(), the register class of
// each architecture). Included inside an instruction set's namespace after its pixel
// layer, so every function is compiled for that instruction set alone.
//
// Means are floors, formed in the lanes' own width without widening, from the pixel
// layer's mean rounded up: floor((a + b) / 2) is it less the carry (a ^ b) & 1. Four
// lanes: with ab and cd the floor means of the pairs, a + b + c + d is 2 (ab + cd) plus
// both pairs' carries, so its floor quarter is floor((ab + cd + k) / 2) with k the and
// of the carries: the rounded-up mean of ab and cd, less (ab ^ cd) & 1 where k is 0.
// Without a halving add that rounds down, from the rounded-up means p and q of the pairs:
// a + b + c + d is 2 (p + q) less the pairs' carries, so the floor quarter is the
// rounded-up mean of p and q less 1 where either pair carries or p + q is odd.

// The widest vector one register holds.
#if defined(__AVX512F__)
inline constexpr std::size_t kRegisterBytes = 64;
#elif defined(__AVX__)
inline constexpr std::size_t kRegisterBytes = 32;
#else
inline constexpr std::size_t kRegisterBytes = 16;
#endif

// A loaded vector is held in a register: the empty asm keeps the compiler from folding
// the load into each operation that uses it, which loads it again for every use, and
// the kernels use most vectors of samples two to four times. Loaded once, on an AMD
// EPYC (Zen 5), 4000 x 3000 frames: bilinear 1.7 ms instead of 2.6 to 2.9 with AVX-512
// and 2.6 instead of 3.05 with AVX2, grey 1.1 instead of 1.4 to 1.75, the Laplacian
// 3.5 to 3.7 instead of 3.7 to 4.4; nothing measured slower.
template <class V>
QZRCFA_INLINE V load(const void* p) {
    V v;
    std::memcpy(&v, p, sizeof v);
    if constexpr (sizeof(V) >= 16 && sizeof(V) <= kRegisterBytes && requires { v[0]; }) {
#if defined(__AVX512F__)
        asm("" : "+v"(v));
#elif defined(__x86_64__)
        asm("" : "+x"(v));
#elif defined(__aarch64__)
        asm("" : "+w"(v));
#endif
    }
    return v;
}

template <class V>
QZRCFA_INLINE void store(void* p, const V& v) {
    std::memcpy(p, &v, sizeof v);
}

// A pixel layer whose instruction set has a halving add that rounds down provides it as
// mean_down.
template <class V>
QZRCFA_INLINE V mean2(const V& a, const V& b) {
    if constexpr (requires { mean_down(a, b); }) {
        return mean_down(a, b);
    } else {
        return mean_up(a, b) - ((a ^ b) & 1);
    }
}

template <class V>
QZRCFA_INLINE V mean4(const V& a, const V& b, const V& c, const V& d) {
    if constexpr (requires { mean_down(a, b); }) {
        const V ab = mean_down(a, b);
        const V cd = mean_down(c, d);
        return mean_up(ab, cd) - ((ab ^ cd) & ~((a ^ b) & (c ^ d)) & 1);
    } else {
        const V p = mean_up(a, b);
        const V q = mean_up(c, d);
        return mean_up(p, q) - (((a ^ b) | (c ^ d) | (p ^ q)) & 1);
    }
}

// Lanes of `mask` (all ones or all zeros per lane) take `yes`, the others `no`.
template <class V, class M>
QZRCFA_INLINE V select(const M& mask, const V& yes, const V& no) {
    return (yes & (V)mask) | (no & ~(V)mask);
}

// Float lanes are selected through their bits.
template <class M, class F>
QZRCFA_INLINE F select_bits(const M& mask, const F& yes, const F& no) {
    return (F)(((M)yes & mask) | ((M)no & ~mask));
}

// `yes` in the lanes where a < b, `no` in the others: one comparison into a mask and
// one blend where the pixel layer has them (blend_less), else a comparison and a select.
// With AVX-512's masks, edge sensing 2's 4000 x 3000 frames took 8 to 20 % less time
// than with a select (AMD EPYC, Zen 5), and the Laplacian's about 4 % less.
template <class V>
QZRCFA_INLINE V where_less(const V& a, const V& b, const V& yes, const V& no) {
    if constexpr (requires { blend_less(a, b, yes, no); }) {
        return blend_less(a, b, yes, no);
    } else {
        return select(a < b, yes, no);
    }
}

template <class V>
QZRCFA_INLINE V lesser(const V& a, const V& b) {
    return a < b ? a : b;
}

template <class V>
QZRCFA_INLINE V greater(const V& a, const V& b) {
    return a > b ? a : b;
}

// All ones in the lanes k with (k & 1) == parity.
template <class V>
QZRCFA_INLINE V parity_lanes(int parity) {
    constexpr int n = int(sizeof(V) / sizeof(V{}[0]));
    V v{};
    for (int k = 0; k < n; ++k) v[k] = (k & 1) == parity ? decltype(+v[0])(~0u) : 0;
    return v;
}

// Lanes that hold green sites, for blocks whose first column is c.
template <class V, class T>
QZRCFA_INLINE V green_lanes(const Row<T>& row, int c) {
    return parity_lanes<V>(row.phase.green_at(c) ? 0 : 1);
}

// One block of columns as three colour planes.
template <class V>
struct Planes {
    V blue, green, red;
};

// Planes from the row's own colour, green and the other colour.
template <class V, class T>
QZRCFA_INLINE Planes<V> planes(const Row<T>& row, const V& colour, const V& green, const V& other) {
    if (row.phase.colour == kRed) return {other, green, colour};
    return {colour, green, other};
}

// Runs kernel.template operator()<P>() for pixel strides 3 and 4; any other stride is
// left whole to the reference, by returning c.
template <class Kernel>
QZRCFA_INLINE int for_stride(int stride, int c, Kernel&& kernel) {
    if (stride == 3) return kernel.template operator()<3>();
    if (stride == 4) return kernel.template operator()<4>();
    return c;
}
