// The column kernels of every family, written once on the pixel layer's vectors and
// compiled once per instruction set: a target file includes this inside its own
// namespace after its pixel layer and the SIMD toolkit, and names the result its
// kernel set.
//
// A column kernel takes blocks of kLanes columns from `c` on and returns the first
// column it left; the family's reference finishes the row. Where a block writes only
// bytes that depend on nothing any block writes, the last block of a row ends at its
// last column, overlapping the block before, and the kernel takes the whole row.
// Every lane computes what each kind of site needs and keeps its own site's value, so
// nothing branches on the phase of a pixel. Pixel strides 3 and 4 only; the reference
// takes any other stride whole. No block reads a sample or an output byte outside the
// frame's buffers, and none writes an element the reference would not write.

using std::uint8_t;
using std::uint16_t;

// The inverse of 3 modulo kLanes.
constexpr int inverse3() {
    for (int i = 1; i < kLanes; ++i)
        if (3 * i % kLanes == 1) return i;
    return 0;
}

// With `stream`, the first column from `first` on whose output pixel of P (3 or 4)
// bytes at d starts on a kLanes-byte boundary, so that blocks from there on may store
// past the cache; -1 without streaming, or when no column is so aligned.
template <int P>
QZRCFA_INLINE int streaming_start(const uint8_t* d, int first, bool stream) {
    if (!stream) return -1;
    const int at = int(reinterpret_cast<std::uintptr_t>(d + std::ptrdiff_t(first) * P) % kLanes);
    const int to_aligned = (kLanes - at) % kLanes;
    if (P == 3) return first + to_aligned * inverse3() % kLanes;
    return at % 4 == 0 ? first + to_aligned / 4 : -1;
}

// Blocks of N columns over [first, last], which holds at least one block. compute(x)
// loads and computes the block at column x, store(value, x, stream) writes it. The
// blocks start at `first`, then every N columns (from `aligned` on instead, streaming,
// when aligned >= 0), and a last block ends at `last`, or at last - 1 to start an even
// number of columns after `first`, overlapping the block before where the columns do
// not divide into blocks. Each block is computed before the block before it is stored:
// a load that follows stores to nearby addresses can wait for them, and the loads of
// the next block then overlap the stores of this one. So compute(x) may read nothing
// that a store of this row writes. Returns the first column after the last block.
// Columns may be negative (rows with padding before column 0): only `aligned` >= 0
// streams.
template <int N, class Compute, class Store>
QZRCFA_INLINE int run_blocks(int first, int last, int aligned, Compute&& compute, Store&& store) {
    const bool streaming = aligned >= 0;
    auto pending = compute(first);
    int pending_x = first;
    bool pending_stream = streaming && aligned == first;
    int x = streaming && aligned > first ? aligned : first + N;
    for (; x + N - 1 <= last; x += N) {
        auto next = compute(x);
        store(pending, pending_x, pending_stream);
        pending = next;
        pending_x = x;
        pending_stream = streaming;
    }
    if (x <= last) {
        x = last - N + 1;
        x -= (x - first) & 1;
        auto next = compute(x);
        store(pending, pending_x, pending_stream);
        pending = next;
        pending_x = x;
        pending_stream = false;
    }
    store(pending, pending_x, pending_stream);
    return pending_x + N;
}

// ---------------------------------------------------------------------------------
// Nearest neighbour, 8- and 16-bit samples.

template <class V, class T>
QZRCFA_INLINE Planes<V> nearest_block(const Row<T>& row, const NearestForm& form, int c, const V& green) {
    const T* s = row.s + c;
    const T* below = s + row.width;
    const V here = load<V>(s), beside = load<V>(s + form.dc);
    const V under = load<V>(below), under_beside = load<V>(below + form.dc);
    const V colour = select(green, beside, here);
    const V other = select(green, under, under_beside);
    const V upper_green = select(green, here, beside);
    const V g = form.average_green ? mean2(upper_green, select(green, under_beside, under)) : upper_green;
    return planes(row, colour, g, other);
}

// Stores a block's planes as whole pixels.
template <int P>
QZRCFA_INLINE auto pixel_store(uint8_t* d, bool white) {
    return [d, white](const Planes<Bytes>& p, int x, bool stream) QZRCFA_LAMBDA_INLINE {
        store_pixels<P>(d + std::ptrdiff_t(x) * P, p.blue, p.green, p.red, white, stream);
    };
}

// Green lanes of a block by the parity of its first column's offset from c.
struct GreenLanes {
    Bytes lanes[2];
    template <class T>
    QZRCFA_INLINE GreenLanes(const Row<T>& row, int c) : lanes{green_lanes<Bytes>(row, c), ~green_lanes<Bytes>(row, c)} {}
    QZRCFA_INLINE const Bytes& at(int offset) const { return lanes[offset & 1]; }
};

int nearest8_columns(const Row<uint8_t>& row, const NearestForm& form, int c) {
    if (row.c_last - c + 1 < kLanes) return c;
    return for_stride(row.stride, c, [&]<int P>() {
        const GreenLanes green(row, c);
        const Row<uint8_t> r = row;
        return run_blocks<kLanes>(
            c, r.c_last, streaming_start<P>(r.d, c, r.stream && (P == 3 || r.white)),
            [&](int x) QZRCFA_LAMBDA_INLINE { return nearest_block(r, form, x, green.at(x - c)); }, pixel_store<P>(r.d, r.white));
    });
}

int nearest16_columns(const Row<uint16_t>& row, const NearestForm& form, int c) {
    constexpr int n = kLanes / 2;
    if (row.c_last - c + 1 < n) return c;
    return for_stride(row.stride, c, [&]<int P>() {
        const Words green = green_lanes<Words>(row, c);
        const Row<uint16_t> r = row;
        return run_blocks<n>(
            c, r.c_last, -1, [&](int x) QZRCFA_LAMBDA_INLINE { return nearest_block(r, form, x, green); },
            [&](const Planes<Words>& p, int x, bool) QZRCFA_LAMBDA_INLINE {
                store_pixels16<P>(r.d + std::ptrdiff_t(x) * P, p.blue, p.green, p.red);
            });
    });
}

// ---------------------------------------------------------------------------------
// Grey: the floor of the mean of each two-by-two block, one element per pixel.

template <class V, class T>
int grey_wide(const Row<T>& row, const NoParams&, int c) {
    constexpr int n = int(sizeof(V) / sizeof(T));
    if (row.c_last - c + 1 < n) return c;
    const std::ptrdiff_t w = row.width;
    const T* s = row.s;
    T* d = row.d;
    return run_blocks<n>(
        c, row.c_last, -1,
        [&](int x) QZRCFA_LAMBDA_INLINE { return mean4(load<V>(s + x), load<V>(s + x + 1), load<V>(s + x + w), load<V>(s + x + w + 1)); },
        [&](const V& v, int x, bool) QZRCFA_LAMBDA_INLINE { store(d + x, v); });
}

// ---------------------------------------------------------------------------------
// Bilinear.

template <class V>
QZRCFA_INLINE Planes<V> bilinear_block(const Row<uint8_t>& row, int c, const V& green) {
    const std::ptrdiff_t w = row.width;
    const uint8_t* s = row.s + c;
    const V left = load<V>(s - 1), mid = load<V>(s), right = load<V>(s + 1);
    const V up = load<V>(s - w), dn = load<V>(s + w);
    const V diagonal = mean4(load<V>(s - w - 1), load<V>(s - w + 1), load<V>(s + w - 1), load<V>(s + w + 1));
    const V colour = select(green, mean2(left, right), mid);
    const V other = select(green, mean2(up, dn), diagonal);
    const V g = select(green, mid, mean4(left, right, up, dn));
    return planes(row, colour, g, other);
}

int bilinear_wide(const Row<uint8_t>& row, const NoParams&, int c) {
    if (row.c_last - c + 1 < kLanes) return c;
    return for_stride(row.stride, c, [&]<int P>() {
        const GreenLanes green(row, c);
        const Row<uint8_t> r = row;
        return run_blocks<kLanes>(
            c, r.c_last, streaming_start<P>(r.d, c, r.stream && (P == 3 || r.white)),
            [&](int x) QZRCFA_LAMBDA_INLINE { return bilinear_block(r, x, green.at(x - c)); }, pixel_store<P>(r.d, r.white));
    });
}

// ---------------------------------------------------------------------------------
// Edge sensing.

// Mean of the pair (a, b) or of the pair (c, d), whichever differs less; of all four
// when they differ equally: the strict comparisons both ways leave a tie to the four.
template <class V>
QZRCFA_INLINE V quieter_pair(const V& a, const V& b, const V& c, const V& d) {
    const V d1 = greater(a, b) - lesser(a, b);
    const V d2 = greater(c, d) - lesser(c, d);
    const V least = lesser(d1, d2);
    const V first = (V)(d1 == least);   // d1 <= d2
    const V second = (V)(d2 == least);  // d2 <= d1
    return select(first & second, mean4(a, b, c, d), select(first, mean2(a, b), mean2(c, d)));
}

template <class V>
QZRCFA_INLINE Planes<V> edge_sensing_block(const Row<uint8_t>& row, const EdgeSensingRule& rule, int c, const V& green) {
    const std::ptrdiff_t w = row.width;
    const uint8_t* s = row.s + c;
    const V left = load<V>(s - 1), mid = load<V>(s), right = load<V>(s + 1);
    const V up = load<V>(s - w), dn = load<V>(s + w);
    const V ul = load<V>(s - w - 1), ur = load<V>(s - w + 1);
    const V dl = load<V>(s + w - 1), dr = load<V>(s + w + 1);
    const V across = mean2(left, right), along = mean2(up, dn);
    const V diagonal = rule.directional_diagonal ? quieter_pair(ul, dr, ur, dl) : mean4(ul, ur, dl, dr);
    const bool exchanged = rule.exchanged_green_sites;
    const V colour = select(green, exchanged ? along : across, mid);
    const V other = select(green, exchanged ? across : along, diagonal);
    const V g = select(green, mid, quieter_pair(left, right, up, dn));
    return planes(row, colour, g, other);
}

// A green site reads no diagonal, so where the row begins or ends with one, the
// samples diagonal to it are not the reference's to read; no block reaches them. A
// green first column is computed alone by the reference, a green last column left to it.
int edge_sensing_wide(const Row<uint8_t>& row, const EdgeSensingRule& rule, int c) {
    int first = c, last = row.c_last;
    if (c == row.c_first && row.phase.green_at(c)) ++first;
    if (row.phase.green_at(last)) --last;
    if (last - first + 1 < kLanes) return c;
    if (first != c) {
        Row<uint8_t> one = row;
        one.c_last = c;
        detail::edge_sensing_columns(one, rule, c);
    }
    return for_stride(row.stride, c, [&]<int P>() {
        const GreenLanes green(row, first);
        const Row<uint8_t> r = row;
        return run_blocks<kLanes>(
            first, last, streaming_start<P>(r.d, first, r.stream && (P == 3 || r.white)),
            [&](int x) QZRCFA_LAMBDA_INLINE { return edge_sensing_block(r, rule, x, green.at(x - first)); },
            pixel_store<P>(r.d, r.white));
    });
}

// ---------------------------------------------------------------------------------
// Laplacian. Every sum, difference and absolute value of the formulas fits 16 bits
// (the largest is 2040, the smallest -1020); truncating division is a shift after
// adding divisor - 1 to negative values, and the narrowing to bytes with unsigned
// saturation is the clamp.

QZRCFA_INLINE Wide absolute(const Wide& x) {
    const Wide sign = x >> 15;
    return (x ^ sign) - sign;
}

template <int K>
QZRCFA_INLINE Wide divide_pow2(const Wide& x) {
    return (x + ((x >> 15) & (Wide{} + std::int16_t((1 << K) - 1)))) >> K;
}

// `first` where a < b, `second` where b < a, `tie` elsewhere.
QZRCFA_INLINE Wide pick(const Wide& a, const Wide& b, const Wide& first, const Wide& second, const Wide& tie) {
    return select(a < b, first, select(b < a, second, tie));
}

QZRCFA_INLINE Widened wide_at(const uint8_t* p) { return widen(load<Bytes>(p)); }

// The bytes of f(0) and f(1), each computed on one half of the block's lanes.
template <class F>
QZRCFA_INLINE Bytes by_halves(F f) {
    return narrow(Widened{{f(0), f(1)}});
}

// Last red or blue column of the row's range. Blocks end there, so that no load
// reaches further than the reference's last red or blue site reads.
QZRCFA_INLINE int last_colour_column(const Row<uint8_t>& row) {
    return row.phase.green_at(row.c_last) ? row.c_last - 1 : row.c_last;
}

int laplacian_green_wide(const Row<uint8_t>& row, const LaplacianParams&, int c) {
    // The last two rows of the frame (the displaced pass) read past its end.
    const int end = last_colour_column(row);
    if (row.r + 2 >= row.height || end - c + 1 < kLanes) return c;
    return for_stride(row.stride, c, [&]<int P>() {
        const int parity = row.phase.green_at(c) ? 1 : 0;  // lanes of red and blue sites
        const Wide colour = parity_lanes<Wide>(parity);    // the same in both halves
        const Bytes colour8 = parity_lanes<Bytes>(parity);
        const Bytes all = ~Bytes{};
        const bool red = row.phase.colour == kRed, white = row.white;
        // G everywhere; the sample into its own colour and, in red rows, into B as well.
        const PixelMask<P> mask = pixel_mask<P>(colour8, all, red ? colour8 : Bytes{});
        const std::ptrdiff_t w = row.width;
        const uint8_t* src = row.s;
        uint8_t* d = row.d;
        struct Green {
            Bytes sample, green;
        };
        return run_blocks<kLanes>(
            c, end, -1,
            [&](int x) QZRCFA_LAMBDA_INLINE {
                const uint8_t* s = src + x;
                const Bytes x8 = load<Bytes>(s);
                const Widened v0 = widen(x8), left = wide_at(s - 1), right = wide_at(s + 1), up = wide_at(s - w), down = wide_at(s + w);
                const Widened left2 = wide_at(s - 2), right2 = wide_at(s + 2), up2 = wide_at(s - 2 * w), down2 = wide_at(s + 2 * w);
                const Bytes g8 = by_halves([&](int i) QZRCFA_LAMBDA_INLINE {
                    const Wide dh = v0[i] + v0[i] - left2[i] - right2[i];
                    const Wide dv = v0[i] + v0[i] - up2[i] - down2[i];
                    const Wide h = absolute(left[i] - right[i]) + absolute(dh);
                    const Wide v = absolute(up[i] - down[i]) + absolute(dv);
                    const Wide g = pick(h, v, divide_pow2<2>(dh) + ((left[i] + right[i]) >> 1),
                                        divide_pow2<2>(dv) + ((up[i] + down[i]) >> 1),
                                        divide_pow2<3>(dh + dv) + ((left[i] + right[i] + up[i] + down[i]) >> 2));
                    return select(colour, g, v0[i]);
                });
                return Green{x8, g8};
            },
            [&](const Green& v, int x, bool) QZRCFA_LAMBDA_INLINE {
                uint8_t* out = d + std::ptrdiff_t(x) * P;
                if (white) {
                    const Bytes own = select(colour8, v.sample, all);
                    store_pixels<P>(out, own, v.green, red ? own : all, true);
                } else {
                    store_masked<P>(out, v.sample, v.green, v.sample, mask);
                }
            });
    });
}

int laplacian_colour_wide(const Row<uint8_t>& row, const LaplacianParams& params, int c) {
    const int end = last_colour_column(row);
    if (end - c + 1 < kLanes) return c;
    return for_stride(row.stride, c, [&]<int P>() {
        const int parity = row.phase.green_at(c) ? 1 : 0;
        const Wide colour = parity_lanes<Wide>(parity);
        const Bytes green8 = parity_lanes<Bytes>(1 - parity);
        const Bytes all = ~Bytes{};
        const bool red = row.phase.colour == kRed;
        // The row's own colour at green sites, the other colour everywhere.
        const PixelMask<P> mask = red ? pixel_mask<P>(all, Bytes{}, green8) : pixel_mask<P>(green8, Bytes{}, all);
        const std::ptrdiff_t upper = params.crossed_diagonals ? row.down : row.up;
        const std::ptrdiff_t lower = params.crossed_diagonals ? row.up : row.down;
        const std::ptrdiff_t w = row.width;
        const uint8_t* src = row.s;
        uint8_t* d = row.d;
        struct Colours {
            Bytes own, other;
        };
        // A block reads its own pixels' greens only, which no block writes.
        return run_blocks<kLanes>(
            c, end, -1,
            [&](int x) QZRCFA_LAMBDA_INLINE {
                const uint8_t* s = src + x;
                const uint8_t* px = d + std::ptrdiff_t(x) * P;
                const Widened left = wide_at(s - 1), right = wide_at(s + 1), up = wide_at(s - w), down = wide_at(s + w);
                const Widened ul = wide_at(s - w - 1), ur = wide_at(s - w + 1), ll = wide_at(s + w - 1), lr = wide_at(s + w + 1);
                // Greens at fixed three-byte spacing from the pixels above and below.
                const Widened g = widen(gather<P>(px + kGreen));
                const Widened gul = widen(gather<P>(px + upper - 2)), glr = widen(gather<P>(px + lower + 4));
                const Widened gur = widen(gather<P>(px + upper + 4)), gll = widen(gather<P>(px + lower - 2));
                const Bytes own = by_halves([&](int i) QZRCFA_LAMBDA_INLINE { return Wide((left[i] + right[i]) >> 1); });
                const Bytes other = by_halves([&](int i) QZRCFA_LAMBDA_INLINE {
                    const Wide d1 = g[i] + g[i] - gul[i] - glr[i];
                    const Wide d2 = g[i] + g[i] - gur[i] - gll[i];
                    const Wide e1 = absolute(ul[i] - lr[i]) + absolute(d1);
                    const Wide e2 = absolute(ur[i] - ll[i]) + absolute(d2);
                    const Wide v = pick(e1, e2, divide_pow2<1>(ul[i] + lr[i] + d1), divide_pow2<1>(ur[i] + ll[i] + d2),
                                        divide_pow2<2>(ul[i] + lr[i] + ur[i] + ll[i] + d1 + d2));
                    return select(colour, v, Wide((up[i] + down[i]) >> 1));
                });
                return Colours{own, other};
            },
            [&](const Colours& v, int x, bool) QZRCFA_LAMBDA_INLINE {
                store_masked<P>(d + std::ptrdiff_t(x) * P, red ? v.other : v.own, Bytes{}, red ? v.own : v.other, mask);
            });
    });
}

// ---------------------------------------------------------------------------------
// Smooth hue.

int smooth_hue_green_wide(const Row<uint8_t>& row, const SmoothHueRule&, int c) {
    if (row.c_last - c + 1 < kLanes) return c;
    return for_stride(row.stride, c, [&]<int P>() {
        const Bytes green = green_lanes<Bytes>(row, c);
        const PixelMask<P> mask = pixel_mask<P>(Bytes{}, ~Bytes{}, Bytes{});
        const std::ptrdiff_t w = row.width;
        const uint8_t* src = row.s;
        uint8_t* d = row.d;
        return run_blocks<kLanes>(
            c, row.c_last, -1,
            [&](int x) QZRCFA_LAMBDA_INLINE {
                const uint8_t* s = src + x;
                return select(green, load<Bytes>(s), mean4(load<Bytes>(s + 1), load<Bytes>(s - 1), load<Bytes>(s - w), load<Bytes>(s + w)));
            },
            [&](const Bytes& g, int x, bool) QZRCFA_LAMBDA_INLINE { store_masked<P>(d + std::ptrdiff_t(x) * P, Bytes{}, g, Bytes{}, mask); });
    });
}

// The colour pass works on the two column parities of a block apart, each as two
// quarters of the block's lanes in single-precision vectors: one parity's pixels share
// their site, so each lane computes exactly its site's four quotients. IEEE single
// division and each addition and multiplication round as the reference's scalar
// operations do, in the same order.
constexpr int kQuarter = kLanes / 4;
typedef float Floats __attribute__((vector_size(kLanes)));  // kQuarter lanes
typedef std::int32_t Ints __attribute__((vector_size(kLanes)));
typedef std::uint8_t Quarter __attribute__((vector_size(kQuarter)));
typedef std::uint16_t QuarterWords __attribute__((vector_size(kQuarter * 2)));
typedef std::uint8_t Half __attribute__((vector_size(kLanes / 2)));

// Bytes to floats and back through 16-bit lanes: the compiler widens and narrows one
// step at a time in vector registers.
QZRCFA_INLINE Floats to_floats(const Quarter& q) {
    return __builtin_convertvector(__builtin_convertvector(__builtin_convertvector(q, QuarterWords), Ints), Floats);
}

// Lanes 2 (Q kQuarter + i) + K of a plane, i = 0 .. kQuarter - 1: quarter Q of parity K.
template <int K, int Q, std::size_t... I>
QZRCFA_INLINE Quarter quarter_lanes(const Bytes& v, std::index_sequence<I...>) {
    return __builtin_shufflevector(v, v, (2 * (Q * kQuarter + int(I)) + K)...);
}

template <int K, int Q>
QZRCFA_INLINE Floats floats(const Bytes& v) {
    return to_floats(quarter_lanes<K, Q>(v, std::make_index_sequence<kQuarter>()));
}

template <std::size_t... I>
QZRCFA_INLINE Half join_quarters(const Quarter& a, const Quarter& b, std::index_sequence<I...>) {
    return __builtin_shufflevector(a, b, int(I)...);
}

// A plane from its parities' quarters: q[K][Q].
template <std::size_t... I>
QZRCFA_INLINE Bytes join_parities(const Quarter (&q)[2][2], std::index_sequence<I...>) {
    const auto halves = std::make_index_sequence<kLanes / 2>();
    const Half even = join_quarters(q[0][0], q[0][1], halves), odd = join_quarters(q[1][0], q[1][1], halves);
    return __builtin_shufflevector(even, odd, int((I & 1) ? kLanes / 2 + I / 2 : I / 2)...);
}

QZRCFA_INLINE Bytes join_parities(const Quarter (&q)[2][2]) { return join_parities(q, std::make_index_sequence<kLanes>()); }

// Lanes j >= 1 take lane j - 1 of v, lane 0 lane 0 of `first`.
template <std::size_t... I>
QZRCFA_INLINE Bytes shift_in(const Bytes& first, const Bytes& v, std::index_sequence<I...>) {
    return __builtin_shufflevector(first, v, int(I == 0 ? 0 : kLanes + I - 1)...);
}

// The saturating conversion to integers in 0 .. 255, never converting an infinity or a
// NaN: `x <= 255` is false for both, so they take 255 first, and the greater-than form
// then sends NaN to 0.
QZRCFA_INLINE Quarter to_bytes(const Floats& x, Saturation form) {
    Floats y = select_bits(x <= 255.0f, x, Floats{} + 255.0f);
    if (form == Saturation::GreaterThan) y = select_bits(x != x, Floats{}, y);
    return __builtin_convertvector(__builtin_convertvector(__builtin_convertvector(y, Ints), QuarterWords), Quarter);
}

// The bytes a block reads from one output row: for pixel c, the byte two before it (its
// left byte), its green and the byte four after it (its right byte).
template <int P>
struct RowBytes {
    Bytes left, green, right;
    QZRCFA_INLINE explicit RowBytes(const uint8_t* px)
        : left(gather<P>(px - 2)), green(gather<P>(px + kGreen)), right(gather<P>(px + 4)) {}
};

// Everything one block of the colour pass reads, fetched before it writes anything.
template <int P>
struct HueBlock {
    RowBytes<P> above, here, below;
    Bytes up_left, up, up_right, left, mid, right, down_left, down, down_right;
    Quarter blue[2][2] = {}, red[2][2] = {};  // [parity][quarter]

    QZRCFA_INLINE HueBlock(const Row<uint8_t>& row, int c, const uint8_t* px)
        : above(px + row.up), here(px), below(px + row.down) {
        const uint8_t* s = row.s + c;
        const std::ptrdiff_t w = row.width;
        up_left = load<Bytes>(s - w - 1), up = load<Bytes>(s - w), up_right = load<Bytes>(s - w + 1);
        left = load<Bytes>(s - 1), mid = load<Bytes>(s), right = load<Bytes>(s + 1);
        down_left = load<Bytes>(s + w - 1), down = load<Bytes>(s + w), down_right = load<Bytes>(s + w + 1);
    }

    // A red or blue site: the diagonal estimate, and its own sample.
    template <int K, int Q>
    QZRCFA_INLINE void diagonal(Site site, Saturation form) {
        const Floats sum = ((floats<K, Q>(up_left) / floats<K, Q>(above.left) + floats<K, Q>(up_right) / floats<K, Q>(above.right)) +
                            floats<K, Q>(down_left) / floats<K, Q>(below.left)) +
                           floats<K, Q>(down_right) / floats<K, Q>(below.right);
        const Quarter estimate = to_bytes(sum * (floats<K, Q>(here.green) * 0.25f), form);
        const Quarter own = quarter_lanes<K, Q>(mid, std::make_index_sequence<kQuarter>());
        blue[K][Q] = site == Site::Red ? estimate : own;
        red[K][Q] = site == Site::Red ? own : estimate;
    }

    // A green site: the vertical and horizontal estimates. `left_bytes` are the left
    // bytes of the block's pixels as the reference order reads them.
    template <int K, int Q>
    QZRCFA_INLINE void green(Site site, Saturation form, const Bytes& left_bytes) {
        const Floats half_g = floats<K, Q>(here.green) * 0.5f;
        const Quarter vertical = to_bytes((floats<K, Q>(up) / floats<K, Q>(above.green) + floats<K, Q>(down) / floats<K, Q>(below.green)) * half_g, form);
        const Quarter horizontal =
            to_bytes((floats<K, Q>(left) / floats<K, Q>(left_bytes) + floats<K, Q>(right) / floats<K, Q>(here.right)) * half_g, form);
        blue[K][Q] = site == Site::GreenOnRed ? vertical : horizontal;
        red[K][Q] = site == Site::GreenOnRed ? horizontal : vertical;
    }

    template <int K>
    QZRCFA_INLINE void diagonals(Site site, Saturation form) {
        diagonal<K, 0>(site, form);
        diagonal<K, 1>(site, form);
    }

    template <int K>
    QZRCFA_INLINE void greens(Site site, Saturation form, const Bytes& left_bytes) {
        green<K, 0>(site, form, left_bytes);
        green<K, 1>(site, form, left_bytes);
    }
};

int smooth_hue_colour_wide(const Row<uint8_t>& row, const SmoothHueRule& rule, int c) {
    if (row.c_last - c + 1 < kLanes) return c;
    return for_stride(row.stride, c, [&]<int P>() {
        Site site[2];
        for (int k = 0; k < 2; ++k) {
            site[k] = row.phase.site(c + k);
            if (site[k] == Site::GreenOnBlue) site[k] = rule.green_on_blue_as;
        }
        // At most one parity is green (the top-down BGGR member's even rows have none).
        const int green = is_green(site[0]) ? 0 : is_green(site[1]) ? 1 : -1;
        const Saturation form = rule.saturation;
        const PixelMask<P> mask = pixel_mask<P>(~Bytes{}, Bytes{}, ~Bytes{});
        const Row<uint8_t> r = row;
        auto compute = [&](int x) QZRCFA_LAMBDA_INLINE {
            HueBlock<P> b(r, x, r.d + std::ptrdiff_t(x) * P);
            if (green != 0) b.template diagonals<0>(site[0], form);
            if (green != 1) b.template diagonals<1>(site[1], form);
            if (green >= 0) {
                // The left byte of a four-byte pixel is the red element of the pixel
                // before, which the red and blue sites of this block have just computed.
                const Bytes left_bytes = P == 4 ? shift_in(b.here.left, join_parities(b.red), std::make_index_sequence<kLanes>())
                                                : b.here.left;
                if (green == 0) b.template greens<0>(site[0], form, left_bytes);
                else b.template greens<1>(site[1], form, left_bytes);
            }
            return Planes<Bytes>{join_parities(b.blue), Bytes{}, join_parities(b.red)};
        };
        auto store = [&](const Planes<Bytes>& p, int x, bool) QZRCFA_LAMBDA_INLINE {
            store_masked<P>(r.d + std::ptrdiff_t(x) * P, p.blue, Bytes{}, p.red, mask);
        };
        // With three-byte pixels a block reads only greens of its own row, which no
        // block writes; with four it reads the red and blue bytes next to its pixels as
        // the blocks before have left them, so each block is stored before the next
        // is computed, and no two overlap.
        if constexpr (P == 3) return run_blocks<kLanes>(c, r.c_last, -1, compute, store);
        int x = c;
        for (; x + kLanes - 1 <= r.c_last; x += kLanes) store(compute(x), x, false);
        return x;
    });
}

// ---------------------------------------------------------------------------------

constexpr KernelSet kKernelSet = {
    nearest8_columns,
    nearest16_columns,
    grey_wide<Bytes, uint8_t>,
    grey_wide<Words, uint16_t>,
    bilinear_wide,
    edge_sensing_wide,
    laplacian_green_wide,
    laplacian_colour_wide,
    smooth_hue_green_wide,
    smooth_hue_colour_wide,
};
