// Pixel layer of NEON, part of the aarch64 baseline: sixteen byte lanes. See
// pixels_sse2-inl.h for what a pixel layer does. NEON's structure loads and stores
// (LD3/ST3, LD4/ST4) move three- and four-element pixels between planes and memory in
// one instruction each, so a plane never needs shuffling into pixels: a store that keeps
// some elements loads the block's own pixels as planes, picks per plane and stores them
// back, touching exactly the bytes the store writes. Included inside the instruction
// set's namespace, after <arm_neon.h>.

constexpr int kLanes = 16;  // columns of one block
typedef std::uint8_t Bytes __attribute__((vector_size(16)));
using GreyVector = Bytes;  // the vector grey runs on
typedef std::uint16_t Words __attribute__((vector_size(16)));  // kLanes / 2 lanes
typedef std::int16_t Wide __attribute__((vector_size(16)));    // kLanes / 2 lanes
typedef float Floats __attribute__((vector_size(16)));  // kLanes / 4 lanes

QZRCFA_INLINE uint8x16_t u8(Bytes v) { return (uint8x16_t)v; }
QZRCFA_INLINE uint16x8_t u16(Words v) { return (uint16x8_t)v; }

// NEON's structure loads and stores: P planes of lanes to and from P-element pixels.
QZRCFA_INLINE void structure_load(const std::uint8_t* p, uint8x16x3_t& v) { v = vld3q_u8(p); }
QZRCFA_INLINE void structure_load(const std::uint8_t* p, uint8x16x4_t& v) { v = vld4q_u8(p); }
QZRCFA_INLINE void structure_load(const std::uint16_t* p, uint16x8x4_t& v) { v = vld4q_u16(p); }
QZRCFA_INLINE void structure_store(std::uint8_t* p, const uint8x16x3_t& v) { vst3q_u8(p, v); }
QZRCFA_INLINE void structure_store(std::uint8_t* p, const uint8x16x4_t& v) { vst4q_u8(p, v); }
QZRCFA_INLINE void structure_store(std::uint16_t* p, const uint16x8x3_t& v) { vst3q_u16(p, v); }
QZRCFA_INLINE void structure_store(std::uint16_t* p, const uint16x8x4_t& v) { vst4q_u16(p, v); }

// Every access of the pixel layer to memory goes through these. AddressSanitizer does
// not see NEON's loads and stores, so sanitized builds move the bytes through a copy
// made with memcpy, which it checks: the kernel tests then hold every byte a block
// touches to the frame's buffers, as they do on x86. A plain load is a memcpy anyway.
template <class V, class T>
QZRCFA_INLINE V load_planes(const T* p) {
    V v;
#if defined(__SANITIZE_ADDRESS__)
    T copy[sizeof(V) / sizeof(T)];
    std::memcpy(copy, p, sizeof copy);
    structure_load(copy, v);
#else
    structure_load(p, v);
#endif
    return v;
}

template <class T, class V>
QZRCFA_INLINE void store_planes(T* p, const V& v) {
#if defined(__SANITIZE_ADDRESS__)
    T copy[sizeof(V) / sizeof(T)];
    structure_store(copy, v);
    std::memcpy(p, copy, sizeof copy);
#else
    structure_store(p, v);
#endif
}

QZRCFA_INLINE uint8x16_t load_bytes(const std::uint8_t* p) {
    uint8x16_t v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

// The planes of the elements a store may change: blue, green, red. A fourth element is
// never changed by a masked store.
template <int P>
struct PixelMask {
    uint8x16_t plane[3];
};

// The block's pixels, whole: element 3 of four-byte pixels becomes 255 when `white`,
// else keeps what it held. There is no structure store past the cache, so `stream`
// changes nothing here (and streaming_threshold() never asks for it on aarch64).
template <int P>
QZRCFA_INLINE void store_pixels(std::uint8_t* out, Bytes b, Bytes g, Bytes r, bool white, bool stream = false) {
    (void)stream;
    if constexpr (P == 3) {
        store_planes(out, uint8x16x3_t{{u8(b), u8(g), u8(r)}});
    } else {
        const uint8x16_t a = white ? vdupq_n_u8(255) : load_planes<uint8x16x4_t>(out).val[3];
        store_planes(out, uint8x16x4_t{{u8(b), u8(g), u8(r), a}});
    }
}

template <int P>
QZRCFA_INLINE PixelMask<P> pixel_mask(Bytes mb, Bytes mg, Bytes mr) {
    return {{u8(mb), u8(mg), u8(mr)}};
}

// Only the elements the mask selects; the others keep what they held.
template <int P>
QZRCFA_INLINE void store_masked(std::uint8_t* out, Bytes b, Bytes g, Bytes r, const PixelMask<P>& m) {
    using Pixels = std::conditional_t<P == 3, uint8x16x3_t, uint8x16x4_t>;
    Pixels px = load_planes<Pixels>(out);
    px.val[0] = vbslq_u8(m.plane[0], u8(b), px.val[0]);
    px.val[1] = vbslq_u8(m.plane[1], u8(g), px.val[1]);
    px.val[2] = vbslq_u8(m.plane[2], u8(r), px.val[2]);
    store_planes(out, px);
}

// Bytes p[P * k] of the block's lanes k, reading nothing outside p[0] .. p[P * (kLanes - 1)].
// A structure load would read P - 1 bytes past the last of them, so the bytes are
// picked from plain loads that end at the last one.
template <int P>
QZRCFA_INLINE Bytes gather(const std::uint8_t* p) {
    if constexpr (P == 4) {
        // Bytes 0 .. 47 from three loads, 48 .. 60 from a load of bytes 45 .. 60 turned
        // to start at byte 48; two rounds of taking the even lanes leave every fourth byte.
        const uint8x16_t last = load_bytes(p + 45);
        const uint8x16_t low = vuzp1q_u8(load_bytes(p), load_bytes(p + 16));
        const uint8x16_t high = vuzp1q_u8(load_bytes(p + 32), vextq_u8(last, last, 3));
        return (Bytes)vuzp1q_u8(low, high);
    } else {
        // Lanes 0 .. 10 from bytes 0 .. 31, lanes 11 .. 15 from bytes 30 .. 45 (table
        // bytes 32 .. 47).
        const Bytes index = {0, 3, 6, 9, 12, 15, 18, 21, 24, 27, 30, 35, 38, 41, 44, 47};
        const uint8x16x3_t table = {{load_bytes(p), load_bytes(p + 16), load_bytes(p + 30)}};
        return (Bytes)vqtbl3q_u8(table, u8(index));
    }
}

// kLanes / 2 pixels of P 16-bit elements; element 3 of four-element pixels kept, or the
// largest value when `white`.
template <int P>
QZRCFA_INLINE void store_pixels16(std::uint16_t* out, Words b, Words g, Words r, bool white = false) {
    if constexpr (P == 3) {
        store_planes(out, uint16x8x3_t{{u16(b), u16(g), u16(r)}});
    } else {
        const uint16x8_t a = white ? vdupq_n_u16(0xFFFF) : load_planes<uint16x8x4_t>(out).val[3];
        store_planes(out, uint16x8x4_t{{u16(b), u16(g), u16(r), a}});
    }
}

// Element 3 of four-element pixels from `fourth`.
template <int P>
QZRCFA_INLINE void store_pixels16(std::uint16_t* out, Words b, Words g, Words r, Words fourth) {
    if constexpr (P == 3) {
        store_planes(out, uint16x8x3_t{{u16(b), u16(g), u16(r)}});
    } else {
        store_planes(out, uint16x8x4_t{{u16(b), u16(g), u16(r), u16(fourth)}});
    }
}

// The high 16 bits of the lanes' unsigned 32-bit products.
QZRCFA_INLINE Words mul_high(Words a, Words b) {
    const uint32x4_t low = vmull_u16(vget_low_u16(u16(a)), vget_low_u16(u16(b)));
    const uint32x4_t high = vmull_high_u16(u16(a), u16(b));
    return (Words)vuzp2q_u16(vreinterpretq_u16_u32(low), vreinterpretq_u16_u32(high));
}

// The mean of two lanes rounded up, (a + b + 1) >> 1, and down, (a + b) >> 1, without
// overflow: NEON's halving adds.
QZRCFA_INLINE Bytes mean_up(Bytes a, Bytes b) { return (Bytes)vrhaddq_u8(u8(a), u8(b)); }
QZRCFA_INLINE Words mean_up(Words a, Words b) { return (Words)vrhaddq_u16(u16(a), u16(b)); }
QZRCFA_INLINE Bytes mean_down(Bytes a, Bytes b) { return (Bytes)vhaddq_u8(u8(a), u8(b)); }
QZRCFA_INLINE Words mean_down(Words a, Words b) { return (Words)vhaddq_u16(u16(a), u16(b)); }

// a / b for lanes that hold integers 0 .. 255, as IEEE division gives it (see
// pixels_sse2-inl.h). NEON divides (FDIV): an exact sequence from FRECPE's 8-bit
// estimate needs two Newton steps before its correction, and no ARM processor has
// timed it against the divider yet.
QZRCFA_INLINE Floats quotient(Floats a, Floats b) { return a / b; }
