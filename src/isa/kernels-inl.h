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

// A block's whole pixels are stored in lines the cache may not hold yet, and stores to
// such lines wait for memory one after another: the lines a block kStoreAhead bytes
// further on will store are fetched for writing now. On an AMD EPYC (Zen 5) this took
// nearest neighbour's 4000 x 3000 frames from 2.1 to 1.6 ms (three-byte pixels) and
// from 4.3 to 3.0 ms (four).
constexpr std::ptrdiff_t kStoreAhead = 4096;

template <int P>
QZRCFA_INLINE void fetch_ahead(const uint8_t* out) {
    for (int k = 0; k < P; ++k) __builtin_prefetch(out + kStoreAhead + 64 * k, 1);
}

// The samples of the raw row the walk reads next (Row::fetch), from column x on: a walk
// from the last row up leaves the processor's prefetchers behind (nearest neighbour's
// bottom-up 4000 x 3000 frames, three-byte pixels, took 2.2 ms without, 1.6 with).
template <class T>
QZRCFA_INLINE void fetch_samples(const Row<T>& row, int x) {
    __builtin_prefetch(row.s + x + row.fetch);
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
    const T* below = s + row.pitch;
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
QZRCFA_INLINE auto pixel_store(uint8_t* d, bool opaque) {
    return [d, opaque](const Planes<Bytes>& p, int x, bool stream) QZRCFA_LAMBDA_INLINE {
        if (!stream) fetch_ahead<P>(d + std::ptrdiff_t(x) * P);
        store_pixels<P>(d + std::ptrdiff_t(x) * P, p.blue, p.green, p.red, opaque, stream);
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
            c, r.c_last, streaming_start<P>(r.d, c, r.stream && (P == 3 || r.fill255)),
            [&](int x) QZRCFA_LAMBDA_INLINE {
                fetch_samples(r, x);
                return nearest_block(r, form, x, green.at(x - c));
            },
            pixel_store<P>(r.d, r.fill255));
    });
}

int nearest16_columns(const Row<uint16_t>& row, const NearestForm& form, int c) {
    constexpr int n = kLanes / 2;
    if (row.c_last - c + 1 < n) return c;
    return for_stride(row.stride, c, [&]<int P>() {
        const Words green = green_lanes<Words>(row, c);
        const Row<uint16_t> r = row;
        return run_blocks<n>(
            c, r.c_last, -1,
            [&](int x) QZRCFA_LAMBDA_INLINE {
                fetch_samples(r, x);
                return nearest_block(r, form, x, green);
            },
            [&](const Planes<Words>& p, int x, bool) QZRCFA_LAMBDA_INLINE {
                store_pixels16<P>(r.d + std::ptrdiff_t(x) * P, p.blue, p.green, p.red);
            });
    });
}

// ---------------------------------------------------------------------------------
// Grey: the floor of the mean of each two-by-two block, one element per pixel.

template <class V, class T>
int grey_wide(const Row<T>& row, const GreyParams&, int c) {
    constexpr int n = int(sizeof(V) / sizeof(T));
    if (row.c_last - c + 1 < n) return c;
    const std::ptrdiff_t w = row.pitch;
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
    const std::ptrdiff_t w = row.pitch;
    const uint8_t* s = row.s + c;
    const V left = load<V>(s - 1), mid = load<V>(s), right = load<V>(s + 1);
    const V up = load<V>(s - w), dn = load<V>(s + w);
    const V diagonal = mean4(load<V>(s - w - 1), load<V>(s - w + 1), load<V>(s + w - 1), load<V>(s + w + 1));
    const V colour = select(green, mean2(left, right), mid);
    const V other = select(green, mean2(up, dn), diagonal);
    const V g = select(green, mid, mean4(left, right, up, dn));
    return planes(row, colour, g, other);
}

int bilinear_wide(const Row<uint8_t>& row, const BilinearParams&, int c) {
    if (row.c_last - c + 1 < kLanes) return c;
    return for_stride(row.stride, c, [&]<int P>() {
        const GreenLanes green(row, c);
        const Row<uint8_t> r = row;
        return run_blocks<kLanes>(
            c, r.c_last, streaming_start<P>(r.d, c, r.stream && (P == 3 || r.fill255)),
            [&](int x) QZRCFA_LAMBDA_INLINE {
                fetch_samples(r, x);
                return bilinear_block(r, x, green.at(x - c));
            },
            pixel_store<P>(r.d, r.fill255));
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
    return where_less(d1, d2, mean2(a, b), where_less(d2, d1, mean2(c, d), mean4(a, b, c, d)));
}

template <class V>
QZRCFA_INLINE Planes<V> edge_sensing_block(const Row<uint8_t>& row, const EdgeSensingRule& rule, int c, const V& green) {
    const std::ptrdiff_t w = row.pitch;
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
            first, last, streaming_start<P>(r.d, first, r.stream && (P == 3 || r.fill255)),
            [&](int x) QZRCFA_LAMBDA_INLINE {
                fetch_samples(r, x);
                return edge_sensing_block(r, rule, x, green.at(x - first));
            },
            pixel_store<P>(r.d, r.fill255));
    });
}

// ---------------------------------------------------------------------------------
// Laplacian. Every sum, difference and absolute value of the formulas fits 16 bits
// (the largest is 2040, the smallest -1020); truncating division is a shift after
// adding divisor - 1 to negative values, and the narrowing to bytes with unsigned
// saturation is the clamp.

QZRCFA_INLINE Wide absolute(const Wide& x) { return x < 0 ? -x : x; }

template <int Shift>
QZRCFA_INLINE Wide divide_pow2(const Wide& x) {
    return (x + ((x >> 15) & (Wide{} + std::int16_t((1 << Shift) - 1)))) >> Shift;
}

// `first` where a < b, `second` where b < a, `tie` elsewhere.
QZRCFA_INLINE Wide pick(const Wide& a, const Wide& b, const Wide& first, const Wide& second, const Wide& tie) {
    return where_less(a, b, first, where_less(b, a, second, tie));
}

// Last red or blue column of the row's range. Blocks end there, so that no load
// reaches further than the reference's last red or blue site reads.
QZRCFA_INLINE int last_colour_column(const Row<uint8_t>& row) {
    return row.phase.green_at(row.c_last) ? row.c_last - 1 : row.c_last;
}

// Only the red and blue sites of a block compute: a block of kLanes columns holds
// kLanes / 2 of them, one to each 16-bit lane of a vector of samples read as pairs, in
// the low byte of the pair where the block's first column is such a site (SiteByte =
// 0) and in the high byte where it is green (SiteByte = 1). The green sites between
// them come from the pairs' other bytes, and the results return to their bytes in
// place, so no lane is widened or narrowed.
template <int SiteByte>
QZRCFA_INLINE Wide colour_sites(const Words& pairs) {
    return (Wide)(SiteByte == 0 ? pairs & 0xFF : pairs >> 8);
}

template <int SiteByte>
QZRCFA_INLINE Wide colour_sites(const uint8_t* p) {
    return colour_sites<SiteByte>(load<Words>(p));
}

template <int SiteByte>
QZRCFA_INLINE Wide green_sites(const uint8_t* p) {
    return colour_sites<1 - SiteByte>(p);
}

// Bytes of the block: the sites' results (0 .. 255) in their bytes, the green sites'
// bytes from `greens`.
template <int SiteByte>
QZRCFA_INLINE Bytes with_greens(const Wide& sites, const Bytes& greens) {
    const Words g = (Words)greens;
    return (Bytes)(SiteByte == 0 ? (Words)sites | (g & 0xFF00) : (g & 0xFF) | ((Words)sites << 8));
}

QZRCFA_INLINE Wide clamp_byte(const Wide& x) { return lesser(greater(x, Wide{}), Wide{} + 255); }

// The greens of the block at s: the computed green at the red and blue sites, the
// sample at the green sites; x8 is the block's samples.
template <int SiteByte>
QZRCFA_INLINE Bytes laplacian_greens(const uint8_t* s, std::ptrdiff_t w, const Bytes& x8) {
    const Wide v0 = colour_sites<SiteByte>((Words)x8);
    // The horizontal neighbours, in either order: both formulas are symmetric in them.
    const Wide left = green_sites<SiteByte>(s - 2 + 2 * SiteByte), right = green_sites<SiteByte>(s + 2 * SiteByte);
    const Wide left2 = colour_sites<SiteByte>(s - 2), right2 = colour_sites<SiteByte>(s + 2);
    const Wide up = colour_sites<SiteByte>(s - w), down = colour_sites<SiteByte>(s + w);
    const Wide up2 = colour_sites<SiteByte>(s - 2 * w), down2 = colour_sites<SiteByte>(s + 2 * w);
    const Wide across = left + right, along = up + down;
    const Wide dh = v0 + v0 - left2 - right2;
    const Wide dv = v0 + v0 - up2 - down2;
    const Wide h = absolute(left - right) + absolute(dh);
    const Wide v = absolute(up - down) + absolute(dv);
    const Wide g = pick(h, v, divide_pow2<2>(dh) + (across >> 1), divide_pow2<2>(dv) + (along >> 1),
                        divide_pow2<3>(dh + dv) + ((across + along) >> 2));
    return with_greens<SiteByte>(clamp_byte(g), x8);
}

template <int P, int SiteByte>
QZRCFA_INLINE int laplacian_green_blocks(const Row<uint8_t>& row, int c, int end) {
    const Bytes colour8 = parity_lanes<Bytes>(SiteByte);
    const Bytes all = ~Bytes{};
    const bool red = row.phase.colour == kRed, fill255 = row.fill255;
    // G everywhere; the sample into its own colour and, in red rows, into B as well.
    const PixelMask<P> mask = pixel_mask<P>(colour8, all, red ? colour8 : Bytes{});
    const std::ptrdiff_t w = row.pitch;
    const uint8_t* src = row.s;
    uint8_t* d = row.d;
    struct Green {
        Bytes sample, green;
    };
    return run_blocks<kLanes>(
        c, end, -1,
        [&](int x) QZRCFA_LAMBDA_INLINE {
            const Bytes x8 = load<Bytes>(src + x);
            return Green{x8, laplacian_greens<SiteByte>(src + x, w, x8)};
        },
        [&](const Green& v, int x, bool) QZRCFA_LAMBDA_INLINE {
            uint8_t* out = d + std::ptrdiff_t(x) * P;
            if (fill255) {
                const Bytes own = select(colour8, v.sample, all);
                store_pixels<P>(out, own, v.green, red ? own : all, true);
            } else {
                store_masked<P>(out, v.sample, v.green, v.sample, mask);
            }
        });
}

int laplacian_green_wide(const Row<uint8_t>& row, const LaplacianParams&, int c) {
    // The last two rows of the frame (the displaced pass) read past its end, and its last
    // columns the next row's first samples, which padded rows do not hold there: the
    // reference reads those.
    const int end = row.pitch == row.width ? last_colour_column(row) : std::min(last_colour_column(row), row.width - 3);
    if (row.r + 2 >= row.height || end - c + 1 < kLanes) return c;
    return for_stride(row.stride, c, [&]<int P>() {
        return row.phase.green_at(c) ? laplacian_green_blocks<P, 1>(row, c, end) : laplacian_green_blocks<P, 0>(row, c, end);
    });
}

template <int P, int SiteByte>
QZRCFA_INLINE int laplacian_colour_blocks(const Row<uint8_t>& row, const LaplacianParams& params, int c, int end) {
    const Bytes green8 = parity_lanes<Bytes>(1 - SiteByte);
    const Bytes all = ~Bytes{};
    const bool red = row.phase.colour == kRed;
    // The row's own colour at green sites, the other colour everywhere.
    const PixelMask<P> mask = red ? pixel_mask<P>(all, Bytes{}, green8) : pixel_mask<P>(green8, Bytes{}, all);
    const std::ptrdiff_t upper = params.crossed_diagonals ? row.down : row.up;
    const std::ptrdiff_t lower = params.crossed_diagonals ? row.up : row.down;
    const std::ptrdiff_t w = row.pitch;
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
            const Wide ul = colour_sites<SiteByte>(s - w - 1), ur = colour_sites<SiteByte>(s - w + 1);
            const Wide ll = colour_sites<SiteByte>(s + w - 1), lr = colour_sites<SiteByte>(s + w + 1);
            // Greens at fixed three-byte spacing from the pixels above and below.
            const Wide g = colour_sites<SiteByte>((Words)gather<P>(px + kGreen));
            const Wide gul = colour_sites<SiteByte>((Words)gather<P>(px + upper - 2)), glr = colour_sites<SiteByte>((Words)gather<P>(px + lower + 4));
            const Wide gur = colour_sites<SiteByte>((Words)gather<P>(px + upper + 4)), gll = colour_sites<SiteByte>((Words)gather<P>(px + lower - 2));
            const Wide d1 = g + g - gul - glr;
            const Wide d2 = g + g - gur - gll;
            const Wide e1 = absolute(ul - lr) + absolute(d1);
            const Wide e2 = absolute(ur - ll) + absolute(d2);
            const Wide first = ul + lr, second = ur + ll;
            const Wide v = pick(e1, e2, divide_pow2<1>(first + d1), divide_pow2<1>(second + d2), divide_pow2<2>(first + second + d1 + d2));
            const Bytes own = mean2(load<Bytes>(s - 1), load<Bytes>(s + 1));
            return Colours{own, with_greens<SiteByte>(clamp_byte(v), mean2(load<Bytes>(s - w), load<Bytes>(s + w)))};
        },
        [&](const Colours& v, int x, bool) QZRCFA_LAMBDA_INLINE {
            store_masked<P>(d + std::ptrdiff_t(x) * P, red ? v.other : v.own, Bytes{}, red ? v.own : v.other, mask);
        });
}

int laplacian_colour_wide(const Row<uint8_t>& row, const LaplacianParams& params, int c) {
    const int end = last_colour_column(row);
    if (end - c + 1 < kLanes) return c;
    return for_stride(row.stride, c, [&]<int P>() {
        return row.phase.green_at(c) ? laplacian_colour_blocks<P, 1>(row, params, c, end)
                                     : laplacian_colour_blocks<P, 0>(row, params, c, end);
    });
}

// The Laplacian's sweep (driver/frame.h). The first pass: the greens of a row into the
// ring.
int laplacian_greens_wide(const Row<uint8_t>& row, const LaplacianParams&, const RingRow& ring, int c) {
    const int n = row.c_last - c + 1;
    if (n < kLanes || n % 2 != 0) return c;
    const uint8_t* src = row.s;
    const std::ptrdiff_t w = row.pitch;
    uint8_t* const greens = ring.greens;
    const auto blocks = [&]<int SiteByte>() {
        return run_blocks<kLanes>(
            c, row.c_last, -1,
            [&](int x) QZRCFA_LAMBDA_INLINE {
                fetch_samples(row, x);
                return laplacian_greens<SiteByte>(src + x, w, load<Bytes>(src + x));
            },
            [&](const Bytes& v, int x, bool) QZRCFA_LAMBDA_INLINE { store(greens + x, v); });
    };
    return row.phase.green_at(c) ? blocks.template operator()<1>() : blocks.template operator()<0>();
}

// The second pass, whole pixels. The bytes it reads at fixed three-byte offsets around
// a red or blue site are, with three-byte pixels, the greens of the diagonal
// neighbours, and come from the ring. With four-byte pixels they are the red element
// of the pixel before and the blue element of the pixel after: in the row above, where
// the second pass is done, as it left them, from the ring (RingRow::red and blue),
// where each row's second pass leaves its colours for the row below; in the row below,
// as its first pass leaves them inside the region it covers whole: the sample (its own
// colour, and the interim blue of a red row) and 255 (the red of a blue row). So no
// byte of the output is read. Crossed: the member crosses its diagonals; Red: row r is
// a red row.
template <int P, int SiteByte, bool Crossed, bool Red>
QZRCFA_INLINE Planes<Bytes> laplacian_sweep_block(const uint8_t* s, std::ptrdiff_t w, const uint8_t* g0, const uint8_t* g1,
                                                  const uint8_t* g2, const uint8_t* red_above, const uint8_t* blue_above) {
    const Wide ul = colour_sites<SiteByte>(s - w - 1), ur = colour_sites<SiteByte>(s - w + 1);
    const Wide ll = colour_sites<SiteByte>(s + w - 1), lr = colour_sites<SiteByte>(s + w + 1);
    const Bytes green = load<Bytes>(g1);
    const Wide g = colour_sites<SiteByte>((Words)green);
    Wide above_left, above_right, below_left, below_right;
    if constexpr (P == 3) {
        above_left = colour_sites<SiteByte>(g0 - 1), above_right = colour_sites<SiteByte>(g0 + 1);
        below_left = colour_sites<SiteByte>(g2 - 1), below_right = colour_sites<SiteByte>(g2 + 1);
    } else {
        above_left = colour_sites<SiteByte>(red_above - 1);
        above_right = colour_sites<SiteByte>(blue_above + 1);
        below_left = Red ? Wide{} + 255 : ll;
        below_right = lr;
    }
    const Wide d1 = g + g - (Crossed ? below_left : above_left) - (Crossed ? above_right : below_right);
    const Wide d2 = g + g - (Crossed ? below_right : above_right) - (Crossed ? above_left : below_left);
    const Wide e1 = absolute(ul - lr) + absolute(d1);
    const Wide e2 = absolute(ur - ll) + absolute(d2);
    const Wide first = ul + lr, second = ur + ll;
    const Wide v = pick(e1, e2, divide_pow2<1>(first + d1), divide_pow2<1>(second + d2), divide_pow2<2>(first + second + d1 + d2));
    const Bytes own = select(parity_lanes<Bytes>(1 - SiteByte), mean2(load<Bytes>(s - 1), load<Bytes>(s + 1)), load<Bytes>(s));
    const Bytes other = with_greens<SiteByte>(clamp_byte(v), mean2(load<Bytes>(s - w), load<Bytes>(s + w)));
    return Red ? Planes<Bytes>{other, green, own} : Planes<Bytes>{own, green, other};
}

template <int P, int SiteByte, bool Crossed, bool Red>
int laplacian_sweep_blocks(const Row<uint8_t>& row, const RingRow* ring, int c) {
    const uint8_t* const s = row.s;
    const std::ptrdiff_t w = row.pitch;
    const uint8_t *const g0 = ring[0].greens, *const g1 = ring[1].greens, *const g2 = ring[2].greens;
    const uint8_t *const red_above = ring[0].red, *const blue_above = ring[0].blue;
    uint8_t *const red = ring[1].red, *const blue = ring[1].blue;
    uint8_t* const d = row.d;
    const std::ptrdiff_t ahead = row.ahead;
    return run_blocks<kLanes>(
        c, row.c_last, -1,
        [=](int x) QZRCFA_LAMBDA_INLINE {
            return laplacian_sweep_block<P, SiteByte, Crossed, Red>(s + x, w, g0 + x, g1 + x, g2 + x, red_above + x, blue_above + x);
        },
        [=](const Planes<Bytes>& p, int x, bool) QZRCFA_LAMBDA_INLINE {
            if constexpr (P == 4) {
                // The same columns of the next row: the sweep may run in bands of columns.
                store(red + x, p.red);
                store(blue + x, p.blue);
                fetch_ahead<P>(d + ahead + std::ptrdiff_t(x) * P - kStoreAhead);
            } else {
                fetch_ahead<P>(d + std::ptrdiff_t(x) * P);
            }
            store_pixels<P>(d + std::ptrdiff_t(x) * P, p.blue, p.green, p.red, true);
        });
}

int laplacian_sweep_wide(const Row<uint8_t>& row, const LaplacianParams& params, const RingRow* ring, int c) {
    const int n = row.c_last - c + 1;
    if (n < kLanes || n % 2 != 0) return c;
    const bool crossed = params.crossed_diagonals, red = row.phase.colour == kRed, green_first = row.phase.green_at(c);
    return for_stride(row.stride, c, [&]<int P>() {
        const auto by_site = [&]<bool Crossed, bool Red>() {
            return green_first ? laplacian_sweep_blocks<P, 1, Crossed, Red>(row, ring, c) : laplacian_sweep_blocks<P, 0, Crossed, Red>(row, ring, c);
        };
        if (crossed) return red ? by_site.template operator()<true, true>() : by_site.template operator()<true, false>();
        return red ? by_site.template operator()<false, true>() : by_site.template operator()<false, false>();
    });
}

// ---------------------------------------------------------------------------------
// Smooth hue.

int smooth_hue_green_wide(const Row<uint8_t>& row, const SmoothHueRule&, int c) {
    if (row.c_last - c + 1 < kLanes) return c;
    return for_stride(row.stride, c, [&]<int P>() {
        const Bytes green = green_lanes<Bytes>(row, c);
        const PixelMask<P> mask = pixel_mask<P>(Bytes{}, ~Bytes{}, Bytes{});
        const std::ptrdiff_t w = row.pitch;
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

constexpr int kQuarter = kLanes / 4;
typedef std::int32_t Ints __attribute__((vector_size(kLanes)));
typedef std::uint32_t UInts __attribute__((vector_size(kLanes)));
typedef std::uint8_t Quarter __attribute__((vector_size(kQuarter)));
typedef std::uint16_t QuarterWords __attribute__((vector_size(kQuarter * 2)));
typedef std::uint8_t Half __attribute__((vector_size(kLanes / 2)));

// Bytes to floats and back through 16-bit lanes: the compiler widens and narrows one
// step at a time in vector registers.
QZRCFA_INLINE Floats to_floats(const Quarter& q) {
    return __builtin_convertvector(__builtin_convertvector(__builtin_convertvector(q, QuarterWords), Ints), Floats);
}

template <std::size_t... I>
QZRCFA_INLINE Half join_quarters(const Quarter& a, const Quarter& b, std::index_sequence<I...>) {
    return __builtin_shufflevector(a, b, int(I)...);
}

template <std::size_t... I>
QZRCFA_INLINE Words join_words(const QuarterWords& a, const QuarterWords& b, std::index_sequence<I...>) {
    return __builtin_shufflevector(a, b, int(I)...);
}

// The colour pass works on four classes of a block's pixels apart: class J holds the
// pixels 4 i + J, one to each 32-bit lane of the block's bytes, so a class is a shift
// and a mask away from them and the classes of one parity share their site. Each lane
// computes exactly its site's quotients in single precision: each quotient is the one
// IEEE division gives (the pixel layer's quotient(), or the division itself), and each
// addition and multiplication rounds as the reference's scalar operations do, in the
// same order.
template <int J>
QZRCFA_INLINE UInts class_lanes(const Bytes& v) {
    const UInts u = (UInts)v;
    return J == 3 ? u >> 24 : (u >> (8 * J)) & 0xFF;
}

template <int J>
QZRCFA_INLINE Floats class_floats(const Bytes& v) {
    return __builtin_convertvector((Ints)class_lanes<J>(v), Floats);
}

// The pixel layer's quotient over arrays, whole vectors only: what the kernel tests
// hold to IEEE division over every pair of operands.
int smooth_hue_quotients_wide(const float* a, const float* b, float* q, int n) {
    int i = 0;
    for (; i + kQuarter <= n; i += kQuarter) store(q + i, quotient(load<Floats>(a + i), load<Floats>(b + i)));
    return i;
}

// A plane from its classes' bytes, each in 0 .. 255.
QZRCFA_INLINE Bytes join_classes(const UInts (&q)[4]) { return (Bytes)(q[0] | q[1] << 8 | q[2] << 16 | q[3] << 24); }

// Lanes j >= 1 take lane j - 1 of v, lane 0 the last lane of `before`.
template <std::size_t... I>
QZRCFA_INLINE Bytes shift_in(const Bytes& before, const Bytes& v, std::index_sequence<I...>) {
    return __builtin_shufflevector(before, v, int(I == 0 ? kLanes - 1 : kLanes + I - 1)...);
}

// The saturating conversion to integers in 0 .. 255, never converting an infinity or a
// NaN: `x <= 255` is false for both, so they take 255 first, and the greater-than form
// then sends NaN to 0.
QZRCFA_INLINE UInts to_bytes(const Floats& x, Saturation form) {
    Floats y = select_bits(x <= 255.0f, x, Floats{} + 255.0f);
    if (form == Saturation::GreaterThan) y = select_bits(x != x, Floats{}, y);
    return (UInts)__builtin_convertvector(y, Ints);
}

// The bytes a block of four-byte pixels reads from a row above or below: for pixel c,
// the byte two before it (its left byte: the red element of the pixel before), its
// green and the byte four after it (its right byte: the blue element of the pixel after).
struct RowBytes {
    Bytes left, green, right;
    QZRCFA_INLINE explicit RowBytes(const uint8_t* px)
        : left(gather<4>(px - 2)), green(gather<4>(px + kGreen)), right(gather<4>(px + 4)) {}
    QZRCFA_INLINE RowBytes(const Bytes& left_, const Bytes& right_) : left(left_), green{}, right(right_) {}
};

// Everything one block of the four-byte colour pass reads from memory, fetched before
// it writes anything. Of its own row it reads the greens and the right bytes, which the
// blocks before have not written; its left bytes are the red elements the blocks before
// and its own red and blue sites compute, and come from those. Its sixteen quotients
// per block are IEEE divisions on every instruction set: among the rest of the block's
// arithmetic the divider keeps up, and the pixel layers' exact sequence made the pass
// nearly a quarter slower with AVX-512 on an AMD EPYC (Zen 5).
struct HueBlock {
    RowBytes above, below;
    Bytes green, right_bytes;
    Bytes up_left, up, up_right, left, mid, right, down_left, down, down_right;
    UInts blue[4] = {}, red[4] = {};  // by class

    QZRCFA_INLINE HueBlock(const Row<uint8_t>& row, int c, const uint8_t* px)
        : HueBlock(row.s + c, row.pitch, RowBytes(px + row.up), RowBytes(px + row.down), gather<4>(px + kGreen), gather<4>(px + 4)) {}

    QZRCFA_INLINE HueBlock(const uint8_t* s, std::ptrdiff_t w, const RowBytes& above_, const RowBytes& below_, const Bytes& green_,
                           const Bytes& right_bytes_)
        : above(above_), below(below_), green(green_), right_bytes(right_bytes_) {
        up_left = load<Bytes>(s - w - 1), up = load<Bytes>(s - w), up_right = load<Bytes>(s - w + 1);
        left = load<Bytes>(s - 1), mid = load<Bytes>(s), right = load<Bytes>(s + 1);
        down_left = load<Bytes>(s + w - 1), down = load<Bytes>(s + w), down_right = load<Bytes>(s + w + 1);
    }

    // A red or blue site: the diagonal estimate, and its own sample.
    template <int J>
    QZRCFA_INLINE void diagonal(Site site, Saturation form) {
        const Floats sum = ((class_floats<J>(up_left) / class_floats<J>(above.left) + class_floats<J>(up_right) / class_floats<J>(above.right)) +
                            class_floats<J>(down_left) / class_floats<J>(below.left)) +
                           class_floats<J>(down_right) / class_floats<J>(below.right);
        const UInts estimate = to_bytes(sum * (class_floats<J>(green) * 0.25f), form);
        const UInts own = class_lanes<J>(mid);
        blue[J] = site == Site::Red ? estimate : own;
        red[J] = site == Site::Red ? own : estimate;
    }

    // A green site: the vertical and horizontal estimates. `left_bytes` are the left
    // bytes of the block's pixels as the reference order reads them.
    template <int J>
    QZRCFA_INLINE void green_site(Site site, Saturation form, const Bytes& left_bytes) {
        green_site<J>(site, form, left_bytes, class_floats<J>(up) / class_floats<J>(above.green),
                      class_floats<J>(down) / class_floats<J>(below.green));
    }

    // The same with the quotients of the vertical estimate given.
    template <int J>
    QZRCFA_INLINE void green_site(Site site, Saturation form, const Bytes& left_bytes, const Floats& over_up, const Floats& over_down) {
        const Floats half_g = class_floats<J>(green) * 0.5f;
        const UInts vertical = to_bytes((over_up + over_down) * half_g, form);
        const UInts horizontal =
            to_bytes((class_floats<J>(left) / class_floats<J>(left_bytes) + class_floats<J>(right) / class_floats<J>(right_bytes)) * half_g, form);
        blue[J] = site == Site::GreenOnRed ? vertical : horizontal;
        red[J] = site == Site::GreenOnRed ? horizontal : vertical;
    }

    // The classes of parity K: K and K + 2.
    template <int K>
    QZRCFA_INLINE void diagonals(Site site, Saturation form) {
        diagonal<K>(site, form);
        diagonal<K + 2>(site, form);
    }

    template <int K>
    QZRCFA_INLINE void greens(Site site, Saturation form, const Bytes& left_bytes) {
        green_site<K>(site, form, left_bytes);
        green_site<K + 2>(site, form, left_bytes);
    }
};

// With three-byte pixels every quotient an estimate divides is a neighbour's sample
// over that neighbour's green element, which the colour pass never writes, so a row's
// quotients are computed once per site instead of once per use: a chunk of up to
// kChunkBlocks blocks first computes the quotients its estimates read, above, below
// and in the row itself, into arrays by class with a site to spare at each end (those
// two one at a time), and then each block's estimates from them. That is one and a
// half divisions per pixel instead of four, two on the rows of the top-down BGGR
// member whose sites all take the diagonal formulas. The loop that computes them does
// little else, and takes them from the pixel layer's quotient(): IEEE division's
// result, without the divider where the layer has a faster sequence.
constexpr int kChunkBlocks = 8;

// Quotients of a row by class, q[J][1 + i] that of column 4 i + J from the row's first,
// q[3][0] that of the column before, q[0][1 + n / 4] that of the column after its n.
// Lanes from offset i: the quotients of columns 4 i + J - 1, 4 i + J and 4 i + J + 1.
struct QuotientView {
    const float* q[4];
    template <int J>
    QZRCFA_INLINE Floats before(int i) const {
        return J == 0 ? load<Floats>(q[3] + i) : load<Floats>(q[J - 1] + 1 + i);
    }
    template <int J>
    QZRCFA_INLINE Floats at(int i) const {
        return load<Floats>(q[J] + 1 + i);
    }
    template <int J>
    QZRCFA_INLINE Floats after(int i) const {
        return J == 3 ? load<Floats>(q[0] + 2 + i) : load<Floats>(q[J + 1] + 1 + i);
    }
};

struct Quotients {
    // q[J][1 + i] is the quotient of pixel 4 i + J of the chunk; q[3][0] is that of the
    // pixel before the chunk, q[0][1 + n / 4] that of the pixel after its n pixels.
    float q[4][kChunkBlocks * kQuarter + 2];

    // The quotients of the classes in `classes` (a bit per class) of raw row s, output
    // row d, for the chunk of `blocks` blocks at x.
    QZRCFA_INLINE void compute(const uint8_t* s, const uint8_t* d, int x, int blocks, unsigned classes) {
        for (int b = 0; b < blocks; ++b) {
            const int at = x + b * kLanes;
            const Bytes m = load<Bytes>(s + at), g = gather<3>(d + std::ptrdiff_t(at) * 3 + kGreen);
            const int i = 1 + b * kQuarter;
            if (classes & 1) store(&q[0][i], quotient(class_floats<0>(m), class_floats<0>(g)));
            if (classes & 2) store(&q[1][i], quotient(class_floats<1>(m), class_floats<1>(g)));
            if (classes & 4) store(&q[2][i], quotient(class_floats<2>(m), class_floats<2>(g)));
            if (classes & 8) store(&q[3][i], quotient(class_floats<3>(m), class_floats<3>(g)));
        }
        const auto one = [&](int c) { return float(s[c]) / float(d[std::ptrdiff_t(c) * 3 + kGreen]); };
        if (classes & 8) q[3][0] = one(x - 1);
        if (classes & 1) q[0][1 + blocks * kQuarter] = one(x + blocks * kLanes);
    }

    QZRCFA_INLINE QuotientView view() const { return {{q[0], q[1], q[2], q[3]}}; }
};

// The sites of the four classes of a row's blocks that start at column x, as the rule
// takes them.
QZRCFA_INLINE void class_sites(const Row<uint8_t>& row, const SmoothHueRule& rule, int x, Site (&site)[4]) {
    for (int j = 0; j < 4; ++j) {
        site[j] = row.phase.site(x + j);
        if (site[j] == Site::GreenOnBlue) site[j] = rule.green_on_blue_as;
    }
}

// A block's estimates, by class, from the quotients of the rows above and below and of
// its own row, at offset i of their arrays; D is the parity (from the block's first
// column) of the red and blue sites, or 2 where every site takes the diagonal formulas.
template <int D>
QZRCFA_INLINE void smooth_hue_estimates3(const Site (&site)[4], Saturation form, const QuotientView& up, const QuotientView& down,
                                         const QuotientView& here, int i, const Bytes& green, const Bytes& mid, UInts (&blue)[4],
                                         UInts (&red)[4]) {
    const auto estimate = [&]<int J>() QZRCFA_LAMBDA_INLINE {
        if constexpr (D == 2 || (J & 1) == D) {
            const Floats sum = ((up.before<J>(i) + up.after<J>(i)) + down.before<J>(i)) + down.after<J>(i);
            const UInts value = to_bytes(sum * (class_floats<J>(green) * 0.25f), form);
            const UInts own = class_lanes<J>(mid);
            blue[J] = site[J] == Site::Red ? value : own;
            red[J] = site[J] == Site::Red ? own : value;
        } else {
            const Floats half_g = class_floats<J>(green) * 0.5f;
            const UInts vertical = to_bytes((up.at<J>(i) + down.at<J>(i)) * half_g, form);
            const UInts horizontal = to_bytes((here.before<J>(i) + here.after<J>(i)) * half_g, form);
            blue[J] = site[J] == Site::GreenOnRed ? vertical : horizontal;
            red[J] = site[J] == Site::GreenOnRed ? horizontal : vertical;
        }
    };
    estimate.template operator()<0>();
    estimate.template operator()<1>();
    estimate.template operator()<2>();
    estimate.template operator()<3>();
}

// The classes whose quotients the estimates of a row read in the rows around it
// (`around`) and in the row itself (`beside`), a bit per class.
constexpr unsigned around_classes(int D) { return D == 2 ? 0b1111 : D == 0 ? 0b1010 : 0b0101; }
constexpr unsigned beside_classes(int D) { return D == 2 ? 0 : D == 0 ? 0b0101 : 0b1010; }

// One chunk; D as for smooth_hue_estimates3.
template <int D>
QZRCFA_INLINE void smooth_hue_chunk3(const Row<uint8_t>& row, const SmoothHueRule& rule, const PixelMask<3>& mask, int x, int blocks) {
    const std::ptrdiff_t w = row.pitch;
    const uint8_t* d = row.d;
    Quotients up, down, here;
    up.compute(row.s - w, d + row.up, x, blocks, around_classes(D));
    down.compute(row.s + w, d + row.down, x, blocks, around_classes(D));
    if constexpr (beside_classes(D) != 0) here.compute(row.s, d, x, blocks, beside_classes(D));
    Site site[4];
    class_sites(row, rule, x, site);
    for (int b = 0; b < blocks; ++b) {
        const int at = x + b * kLanes;
        uint8_t* px = row.d + std::ptrdiff_t(at) * 3;
        UInts blue[4], red[4];
        smooth_hue_estimates3<D>(site, rule.saturation, up.view(), down.view(), here.view(), b * kQuarter, gather<3>(px + kGreen),
                                 load<Bytes>(row.s + at), blue, red);
        store_masked<3>(px, join_classes(blue), Bytes{}, join_classes(red), mask);
    }
}

// The parity D (smooth_hue_estimates3) of the blocks of a row that start at column x.
QZRCFA_INLINE int site_parity(const Row<uint8_t>& row, const SmoothHueRule& rule, int x) {
    if (!is_green(rule.green_on_blue_as) && row.phase.colour == kBlue) return 2;
    return is_green(row.phase.site(x + 1)) ? 0 : 1;
}

int smooth_hue_colour3(const Row<uint8_t>& row, const SmoothHueRule& rule, int c) {
    const PixelMask<3> mask = pixel_mask<3>(~Bytes{}, Bytes{}, ~Bytes{});
    const auto chunk = [&](int x, int blocks) {
        const int D = site_parity(row, rule, x);
        if (D == 2) smooth_hue_chunk3<2>(row, rule, mask, x, blocks);
        else if (D == 0) smooth_hue_chunk3<0>(row, rule, mask, x, blocks);
        else smooth_hue_chunk3<1>(row, rule, mask, x, blocks);
    };
    int x = c;
    while (row.c_last + 1 - x >= kLanes) {
        const int blocks = (row.c_last + 1 - x) / kLanes < kChunkBlocks ? (row.c_last + 1 - x) / kLanes : kChunkBlocks;
        chunk(x, blocks);
        x += blocks * kLanes;
    }
    // The last columns again with the block that ends the row: nothing a block writes
    // is read by another.
    if (x <= row.c_last) chunk(row.c_last + 1 - kLanes, 1);
    return row.c_last + 1;
}

int smooth_hue_colour_wide(const Row<uint8_t>& row, const SmoothHueRule& rule, int c) {
    if (row.c_last - c + 1 < kLanes) return c;
    if (row.stride == 3) return smooth_hue_colour3(row, rule, c);
    if (row.stride != 4) return c;
    Site site[2];
    for (int k = 0; k < 2; ++k) {
        site[k] = row.phase.site(c + k);
        if (site[k] == Site::GreenOnBlue) site[k] = rule.green_on_blue_as;
    }
    // At most one parity is green (the top-down BGGR member's even rows have none).
    const int green = is_green(site[0]) ? 0 : is_green(site[1]) ? 1 : -1;
    const Saturation form = rule.saturation;
    const PixelMask<4> mask = pixel_mask<4>(~Bytes{}, Bytes{}, ~Bytes{});
    // The red elements of the block before, the last of them the first pixel's left byte.
    Bytes before{};
    before[kLanes - 1] = row.d[std::ptrdiff_t(c) * 4 - 2];
    // Blocks do not overlap: a block's right bytes are the blue elements the block
    // before it would already have written.
    int x = c;
    for (; x + kLanes - 1 <= row.c_last; x += kLanes) {
        uint8_t* px = row.d + std::ptrdiff_t(x) * 4;
        HueBlock b(row, x, px);
        if (green != 0) b.diagonals<0>(site[0], form);
        if (green != 1) b.diagonals<1>(site[1], form);
        if (green >= 0) {
            const Bytes left_bytes = shift_in(before, join_classes(b.red), std::make_index_sequence<kLanes>());
            if (green == 0) b.greens<0>(site[0], form, left_bytes);
            else b.greens<1>(site[1], form, left_bytes);
        }
        before = join_classes(b.red);
        store_masked<4>(px, join_classes(b.blue), Bytes{}, before, mask);
    }
    return x;
}

// Smooth hue's sweep (driver/frame.h). The first pass: a row's greens, its quotients
// (those the second pass divides by in the rows around: of its red and blue sites, and
// of every site in the rows next to a row whose sites all take the diagonal formulas),
// and with four-byte pixels its left and right bytes as the output holds them, which
// its first pass does not write. Quotients are taken from the pixel layer's quotient(),
// one per site, instead of three.
int smooth_hue_ring_wide(const Row<uint8_t>& row, const SmoothHueRule& rule, const RingRow& ring, int c) {
    const int first = c + 1, n = row.c_last - c - 1;  // the core's columns, a multiple of four
    if (n < kLanes + 4 || n % 4 != 0 || first != ring.first) return c;
    const uint8_t* src = row.s;
    const std::ptrdiff_t w = row.pitch;
    uint8_t* const greens = ring.greens;
    const GreenLanes lanes(row, c);
    run_blocks<kLanes>(
        c, row.c_last, -1,
        [&](int x) QZRCFA_LAMBDA_INLINE {
            const uint8_t* s = src + x;
            fetch_samples(row, x);
            return select(lanes.at(x - c), load<Bytes>(s), mean4(load<Bytes>(s + 1), load<Bytes>(s - 1), load<Bytes>(s - w), load<Bytes>(s + w)));
        },
        [&](const Bytes& g, int x, bool) QZRCFA_LAMBDA_INLINE { store(greens + x, g); });
    const int D = is_green(row.phase.site(first + 1)) ? 0 : 1;
    const bool all = !is_green(rule.green_on_blue_as) && row.phase.colour == kRed;
    const unsigned classes = all ? 0b1111 : beside_classes(D);
    float* const* q = ring.quotients;
    const auto quotients = [&](int x) {
        const Bytes m = load<Bytes>(src + x), g = load<Bytes>(greens + x);
        const int i = 1 + (x - first) / 4;
        if (classes & 1) store(q[0] + i, quotient(class_floats<0>(m), class_floats<0>(g)));
        if (classes & 2) store(q[1] + i, quotient(class_floats<1>(m), class_floats<1>(g)));
        if (classes & 4) store(q[2] + i, quotient(class_floats<2>(m), class_floats<2>(g)));
        if (classes & 8) store(q[3] + i, quotient(class_floats<3>(m), class_floats<3>(g)));
    };
    int x = first;
    for (; x + kLanes <= first + n; x += kLanes) quotients(x);
    if (x < first + n) quotients(first + n - kLanes);
    q[3][0] = float(src[c]) / float(greens[c]);
    q[0][1 + n / 4] = float(src[row.c_last]) / float(greens[row.c_last]);
    if (ring.left != nullptr) {
        // Of the core's own pixels only: the driver puts in the byte before the core's
        // first column and the one after its last.
        const uint8_t* const d = row.d;
        uint8_t *const left = ring.left, *const right = ring.right;
        const int last = first + n - 1;
        const std::ptrdiff_t ahead = row.ahead;
        const auto gathered = [&](int x0, int x1, uint8_t* plane, std::ptrdiff_t offset) {
            int x = x0;
            for (; x + kLanes - 1 <= x1; x += kLanes) {
                // The same pixels of the next row, which the next row's first pass reads.
                if (offset > 0) fetch_ahead<4>(d + ahead + std::ptrdiff_t(x) * 4 - kStoreAhead);
                store(plane + x, gather<4>(d + std::ptrdiff_t(x) * 4 + offset));
            }
            if (x <= x1) store(plane + x1 - kLanes + 1, gather<4>(d + std::ptrdiff_t(x1 - kLanes + 1) * 4 + offset));
        };
        gathered(first + 1, last, left, -2);
        gathered(first, last - 1, right, 4);
    }
    return row.c_last + 1;
}

// The second pass, whole pixels: with three-byte pixels every quotient from the ring;
// with four, the left and right bytes of the row above (where the second pass is done)
// gathered from the output, those of the row below and the right bytes of the row
// itself from the ring, and its left bytes from the red elements the row computes, as
// the unswept pass reads them (smooth_hue_colour_wide). The fourth element keeps what
// it holds.
template <int D>
QZRCFA_INLINE int smooth_hue_sweep3(const Row<uint8_t>& row, const SmoothHueRule& rule, const RingRow* ring, int c) {
    Site site[4];
    class_sites(row, rule, c, site);
    const Saturation form = rule.saturation;
    const QuotientView up{{ring[0].quotients[0], ring[0].quotients[1], ring[0].quotients[2], ring[0].quotients[3]}};
    const QuotientView here{{ring[1].quotients[0], ring[1].quotients[1], ring[1].quotients[2], ring[1].quotients[3]}};
    const QuotientView down{{ring[2].quotients[0], ring[2].quotients[1], ring[2].quotients[2], ring[2].quotients[3]}};
    const uint8_t* src = row.s;
    const uint8_t* greens = ring[1].greens;
    uint8_t* const d = row.d;
    return run_blocks<kLanes>(
        c, row.c_last, -1,
        [&](int x) QZRCFA_LAMBDA_INLINE {
            const Bytes green = load<Bytes>(greens + x), mid = load<Bytes>(src + x);
            UInts blue[4], red[4];
            smooth_hue_estimates3<D>(site, form, up, down, here, (x - c) / 4, green, mid, blue, red);
            return Planes<Bytes>{join_classes(blue), green, join_classes(red)};
        },
        [&](const Planes<Bytes>& p, int x, bool) QZRCFA_LAMBDA_INLINE {
            fetch_ahead<3>(d + std::ptrdiff_t(x) * 3);
            store_pixels<3>(d + std::ptrdiff_t(x) * 3, p.blue, p.green, p.red, false);
        });
}

int smooth_hue_sweep4(const Row<uint8_t>& row, const SmoothHueRule& rule, const RingRow* ring, int c) {
    Site site[2] = {row.phase.site(c), row.phase.site(c + 1)};
    for (Site& k : site)
        if (k == Site::GreenOnBlue) k = rule.green_on_blue_as;
    const int green = is_green(site[0]) ? 0 : is_green(site[1]) ? 1 : -1;
    const Saturation form = rule.saturation;
    const QuotientView up{{ring[0].quotients[0], ring[0].quotients[1], ring[0].quotients[2], ring[0].quotients[3]}};
    const QuotientView down{{ring[2].quotients[0], ring[2].quotients[1], ring[2].quotients[2], ring[2].quotients[3]}};
    const uint8_t* src = row.s;
    const std::ptrdiff_t w = row.pitch;
    const uint8_t *greens = ring[1].greens, *right_bytes = ring[1].right, *below_left = ring[2].left, *below_right = ring[2].right;
    const uint8_t *red_above = ring[0].red, *blue_above = ring[0].blue;
    uint8_t *const red = ring[1].red, *const blue = ring[1].blue;
    uint8_t* const d = row.d;
    const int last = row.c_last;
    // Blocks are stored before the next is computed: the first pixel's left byte is the
    // red element of the pixel before, which the block before left in the ring, or, left
    // of the core, the driver.
    const auto block = [&](int x) QZRCFA_LAMBDA_INLINE {
        uint8_t* px = d + std::ptrdiff_t(x) * 4;
        HueBlock b(src + x, w, RowBytes(load<Bytes>(red_above + x - 1), load<Bytes>(blue_above + x + 1)),
                   RowBytes(load<Bytes>(below_left + x), load<Bytes>(below_right + x)), load<Bytes>(greens + x),
                   load<Bytes>(right_bytes + x));
        if (green != 0) b.diagonals<0>(site[0], form);
        if (green != 1) b.diagonals<1>(site[1], form);
        if (green >= 0) {
            Bytes before{};
            before[kLanes - 1] = red[x - 1];
            const Bytes left_bytes = shift_in(before, join_classes(b.red), std::make_index_sequence<kLanes>());
            const int i = (x - c) / 4;
            const auto greens_of = [&]<int J>() QZRCFA_LAMBDA_INLINE {
                b.green_site<J>(site[J & 1], form, left_bytes, up.at<J>(i), down.at<J>(i));
            };
            if (green == 0) greens_of.template operator()<0>(), greens_of.template operator()<2>();
            else greens_of.template operator()<1>(), greens_of.template operator()<3>();
        }
        store(red + x, join_classes(b.red));
        store(blue + x, join_classes(b.blue));
        store_pixels<4>(px, join_classes(b.blue), b.green, join_classes(b.red), false);
    };
    int x = c;
    for (; x + kLanes - 1 <= last; x += kLanes) block(x);
    if (x <= last) block(last - kLanes + 1);
    return last + 1;
}

int smooth_hue_sweep_wide(const Row<uint8_t>& row, const SmoothHueRule& rule, const RingRow* ring, int c) {
    const int n = row.c_last - c + 1;
    if (n < kLanes || n % 4 != 0 || c != ring[1].first) return c;
    if (row.stride == 4) return smooth_hue_sweep4(row, rule, ring, c);
    if (row.stride != 3) return c;
    const int D = site_parity(row, rule, c);
    return D == 2 ? smooth_hue_sweep3<2>(row, rule, ring, c) : D == 0 ? smooth_hue_sweep3<0>(row, rule, ring, c) : smooth_hue_sweep3<1>(row, rule, ring, c);
}

// ---------------------------------------------------------------------------------
// gbri, the extended library's method: every pass element-wise on rows of floats.

// All ones in the lanes of a block at column x whose column has the given parity.
QZRCFA_INLINE Ints column_lanes(int x, int parity) { return parity_lanes<Ints>((parity ^ x) & 1); }

QZRCFA_INLINE Floats splat(float f) { return Floats{} + f; }

QZRCFA_INLINE Floats absolute(const Floats& v) { return (Floats)((Ints)v & 0x7FFFFFFF); }

template <class Compute>
QZRCFA_INLINE int float_row(const GbriRow& row, int x, float* out, Compute&& compute) {
    if (row.x_last - x + 1 < kQuarter) return x;
    return run_blocks<kQuarter>(x, row.x_last, -1, compute,
                                [out](const Floats& v, int c, bool) QZRCFA_LAMBDA_INLINE { store(out + c, v); });
}

QZRCFA_INLINE Floats ha_difference(const Floats& c0, const Floats& c1a, const Floats& c1b, const Floats& c2a,
                                   const Floats& c2b, const Ints& green) {
    const Floats v = (splat(0.5f) * c0 - splat(0.5f) * (c1a + c1b)) + splat(0.25f) * (c2a + c2b);
    return select_bits(green, v, -v);
}

QZRCFA_INLINE Floats lattice_sum(const float* u, const float* c, const float* d, int x) {
    const Floats su = (load<Floats>(u + x - 2) + load<Floats>(u + x)) + load<Floats>(u + x + 2);
    const Floats sc = (load<Floats>(c + x - 2) + load<Floats>(c + x)) + load<Floats>(c + x + 2);
    const Floats sd = (load<Floats>(d + x - 2) + load<Floats>(d + x)) + load<Floats>(d + x + 2);
    return (su + sc) + sd;
}

template <class T>
int gbri_samples(const GbriRow& row, int x) {
    const T* s = static_cast<const T*>(row.samples);
    return float_row(row, x, row.out[0], [&](int c) QZRCFA_LAMBDA_INLINE {
        if constexpr (sizeof(T) == 1) {
            return to_floats(load<Quarter>(s + c));
        } else {
            return __builtin_convertvector(__builtin_convertvector(load<QuarterWords>(s + c), Ints), Floats) / splat(257.0f);
        }
    });
}

int gbri_vertical(const GbriRow& row, int x) {
    const float* const* m = row.in;
    return float_row(row, x, row.out[0], [&](int c) QZRCFA_LAMBDA_INLINE {
        return ha_difference(load<Floats>(m[2] + c), load<Floats>(m[1] + c), load<Floats>(m[3] + c), load<Floats>(m[0] + c),
                             load<Floats>(m[4] + c), ~column_lanes(c, row.parity));
    });
}

int gbri_horizontal(const GbriRow& row, int x) {
    const float* m = row.in[0];
    return float_row(row, x, row.out[0], [&](int c) QZRCFA_LAMBDA_INLINE {
        return ha_difference(load<Floats>(m + c), load<Floats>(m + c - 1), load<Floats>(m + c + 1), load<Floats>(m + c - 2),
                             load<Floats>(m + c + 2), ~column_lanes(c, row.parity));
    });
}

int gbri_across(const GbriRow& row, int x) {
    return float_row(row, x, row.out[0], [&](int c) QZRCFA_LAMBDA_INLINE {
        return absolute(load<Floats>(row.in[0] + c) - load<Floats>(row.in[1] + c));
    });
}

int gbri_along(const GbriRow& row, int x) {
    const float* v = row.in[0];
    return float_row(row, x, row.out[0],
                     [&](int c) QZRCFA_LAMBDA_INLINE { return absolute(load<Floats>(v + c - 1) - load<Floats>(v + c + 1)); });
}

int gbri_columns5(const GbriRow& row, int x) {
    const float* const* r = row.in;
    return float_row(row, x, row.out[0], [&](int c) QZRCFA_LAMBDA_INLINE {
        return (((load<Floats>(r[0] + c) + load<Floats>(r[1] + c)) + load<Floats>(r[2] + c)) + load<Floats>(r[3] + c)) +
               load<Floats>(r[4] + c);
    });
}

int gbri_row5(const GbriRow& row, int x) {
    const float* v = row.in[0];
    return float_row(row, x, row.out[0], [&](int c) QZRCFA_LAMBDA_INLINE {
        return (((load<Floats>(v + c - 2) + load<Floats>(v + c - 1)) + load<Floats>(v + c)) + load<Floats>(v + c + 1)) +
               load<Floats>(v + c + 2);
    });
}

int gbri_green(const GbriRow& row, int x) {
    const float *m = row.in[0], *dh = row.in[1], *dv0 = row.in[2], *dvu1 = row.in[3], *dvu2 = row.in[4],
                *dvu3 = row.in[5], *dvd1 = row.in[6], *dvd2 = row.in[7], *dvd3 = row.in[8], *sh = row.in[9],
                *svn = row.in[10], *svs = row.in[11];
    const Floats eps = splat(1.0f), one = splat(1.0f);
    const Floats f0 = splat(0.4f), f1 = splat(0.3f), f2 = splat(0.2f), f3 = splat(0.1f);
    return float_row(row, x, row.out[0], [&](int c) QZRCFA_LAMBDA_INLINE {
        const Floats sn = load<Floats>(svn + c) + eps, ss = load<Floats>(svs + c) + eps;
        const Floats sw = load<Floats>(sh + c - 2) + eps, se = load<Floats>(sh + c + 2) + eps;
        const Floats wn = one / ((sn * sn) * sn), ws = one / ((ss * ss) * ss);
        const Floats ww = one / ((sw * sw) * sw), we = one / ((se * se) * se);
        const Floats d0 = load<Floats>(dv0 + c), h0 = load<Floats>(dh + c);
        const Floats en = ((f0 * d0 + f1 * load<Floats>(dvu1 + c)) + f2 * load<Floats>(dvu2 + c)) + f3 * load<Floats>(dvu3 + c);
        const Floats es = ((f0 * d0 + f1 * load<Floats>(dvd1 + c)) + f2 * load<Floats>(dvd2 + c)) + f3 * load<Floats>(dvd3 + c);
        const Floats ew = ((f0 * h0 + f1 * load<Floats>(dh + c - 1)) + f2 * load<Floats>(dh + c - 2)) + f3 * load<Floats>(dh + c - 3);
        const Floats ee = ((f0 * h0 + f1 * load<Floats>(dh + c + 1)) + f2 * load<Floats>(dh + c + 2)) + f3 * load<Floats>(dh + c + 3);
        const Floats num = ((wn * en + ws * es) + ww * ew) + we * ee;
        const Floats den = ((wn + ws) + ww) + we;
        const Floats mv = load<Floats>(m + c);
        return select_bits(column_lanes(c, row.parity), mv + num / den, mv);
    });
}

int gbri_laplacians(const GbriRow& row, int x) {
    if (row.x_last - x + 1 < kQuarter) return x;
    const float *m0 = row.in[0], *mu = row.in[1], *md = row.in[2], *g0 = row.in[3], *gu = row.in[4], *gd = row.in[5];
    struct Products {
        Floats p, q;
    };
    return run_blocks<kQuarter>(
        x, row.x_last, -1,
        [&](int c) QZRCFA_LAMBDA_INLINE {
            const Floats lc = splat(4.0f) * load<Floats>(m0 + c) -
                              ((load<Floats>(m0 + c - 2) + load<Floats>(m0 + c + 2)) + (load<Floats>(mu + c) + load<Floats>(md + c)));
            const Floats lg = splat(4.0f) * load<Floats>(g0 + c) -
                              ((load<Floats>(g0 + c - 2) + load<Floats>(g0 + c + 2)) + (load<Floats>(gu + c) + load<Floats>(gd + c)));
            return Products{lg * lc, lg * lg};
        },
        [&](const Products& v, int c, bool) QZRCFA_LAMBDA_INLINE {
            store(row.out[0] + c, v.p);
            store(row.out[1] + c, v.q);
        });
}

int gbri_model(const GbriRow& row, int x) {
    if (row.x_last - x + 1 < kQuarter) return x;
    const float* const* i = row.in;
    struct Model {
        Floats a, b;
    };
    return run_blocks<kQuarter>(
        x, row.x_last, -1,
        [&](int c) QZRCFA_LAMBDA_INLINE {
            const Floats a = lattice_sum(i[0], i[1], i[2], c) / (lattice_sum(i[3], i[4], i[5], c) + splat(100.0f));
            return Model{a, (lattice_sum(i[6], i[7], i[8], c) - a * lattice_sum(i[9], i[10], i[11], c)) * splat(1.0f / 9.0f)};
        },
        [&](const Model& v, int c, bool) QZRCFA_LAMBDA_INLINE {
            store(row.out[0] + c, v.a);
            store(row.out[1] + c, v.b);
        });
}

int gbri_means(const GbriRow& row, int x) {
    if (row.x_last - x + 1 < kQuarter) return x;
    const float* const* i = row.in;
    struct Means {
        Floats a, b, e;
    };
    return run_blocks<kQuarter>(
        x, row.x_last, -1,
        [&](int c) QZRCFA_LAMBDA_INLINE {
            const Floats am = lattice_sum(i[0], i[1], i[2], c) * splat(1.0f / 9.0f);
            const Floats bm = lattice_sum(i[3], i[4], i[5], c) * splat(1.0f / 9.0f);
            return Means{am, bm, load<Floats>(i[6] + c) - (am * load<Floats>(i[7] + c) + bm)};
        },
        [&](const Means& v, int c, bool) QZRCFA_LAMBDA_INLINE {
            store(row.out[0] + c, v.a);
            store(row.out[1] + c, v.b);
            store(row.out[2] + c, v.e);
        });
}

// Round half up of the value clamped to the range of T (the value is never NaN).
template <class T>
QZRCFA_INLINE Ints to_ints(Floats v) {
    if constexpr (sizeof(T) == 2) v = v * splat(257.0f);
    const float top = sizeof(T) == 1 ? 255.0f : 65535.0f;
    v = select_bits(v < 0.0f, Floats{}, v);
    v = select_bits(v > top, splat(top), v);
    return __builtin_convertvector(v + splat(0.5f), Ints);
}

// The colours of quarter Q of a pixels block at column x: the row's own colour c1, the
// other c2 and green, as integers; samples are placed by the caller.
template <class T>
struct QuarterColours {
    Ints c1, c2, green;
};

template <class T>
QZRCFA_INLINE QuarterColours<T> quarter_colours(const GbriRow& row, int c) {
    const float *g = row.in[0], *a1 = row.in[1], *b1 = row.in[2], *e1 = row.in[3];
    const float *a2u = row.in[4], *b2u = row.in[5], *e2u = row.in[6], *a2d = row.in[7], *b2d = row.in[8], *e2d = row.in[9];
    auto at = [&](const float* p, int d) QZRCFA_LAMBDA_INLINE { return load<Floats>(p + c + d); };
    const Floats gv = at(g, 0), half = splat(0.5f), quarter = splat(0.25f);
    const Floats aD = ((at(a2u, -1) + at(a2u, 1)) + (at(a2d, -1) + at(a2d, 1))) * quarter;
    const Floats bD = ((at(b2u, -1) + at(b2u, 1)) + (at(b2d, -1) + at(b2d, 1))) * quarter;
    const Floats eD = ((at(e2u, -1) + at(e2u, 1)) + (at(e2d, -1) + at(e2d, 1))) * quarter;
    const Floats aH = (at(a1, -1) + at(a1, 1)) * half, bH = (at(b1, -1) + at(b1, 1)) * half, eH = (at(e1, -1) + at(e1, 1)) * half;
    const Floats aV = (at(a2u, 0) + at(a2d, 0)) * half, bV = (at(b2u, 0) + at(b2d, 0)) * half, eV = (at(e2u, 0) + at(e2d, 0)) * half;
    const Ints lattice = column_lanes(c, row.parity);
    // At the row's red or blue sites: c1 is the sample, green and c2 (diagonal) computed;
    // at green sites: green is the sample, c1 (horizontal) and c2 (vertical) computed.
    return {to_ints<T>((aH * gv + bH) + eH),
            select_bits(lattice, to_ints<T>((aD * gv + bD) + eD), to_ints<T>((aV * gv + bV) + eV)), to_ints<T>(gv)};
}

template <std::size_t... I>
QZRCFA_INLINE Bytes join_halves(const Half& a, const Half& b, std::index_sequence<I...>) {
    return __builtin_shufflevector(a, b, int(I)...);
}

template <class T>
int gbri_pixels(const GbriRow& row, int x) {
    constexpr int n = sizeof(T) == 1 ? kLanes : kLanes / 2;  // columns per block
    using V = std::conditional_t<sizeof(T) == 1, Bytes, Words>;
    if (row.x_last - x + 1 < n) return x;
    const T* src = static_cast<const T*>(row.samples);
    T* out = static_cast<T*>(row.pixels);
    const bool red = row.colour == kRed;
    auto narrow_ints = [](const Ints& v) QZRCFA_LAMBDA_INLINE { return __builtin_convertvector(v, QuarterWords); };
    return for_stride(row.stride, x, [&]<int P>() {
        return run_blocks<n>(
            x, row.x_last, -1,
            [&](int c) QZRCFA_LAMBDA_INLINE {
                V colour[3];  // c1, c2, green
                if constexpr (sizeof(T) == 1) {
                    Quarter q[3][4];
                    for (int k = 0; k < 4; ++k) {
                        const QuarterColours<T> v = quarter_colours<T>(row, c + k * kQuarter);
                        q[0][k] = __builtin_convertvector(narrow_ints(v.c1), Quarter);
                        q[1][k] = __builtin_convertvector(narrow_ints(v.c2), Quarter);
                        q[2][k] = __builtin_convertvector(narrow_ints(v.green), Quarter);
                    }
                    const auto halves = std::make_index_sequence<kLanes / 2>();
                    const auto lanes = std::make_index_sequence<kLanes>();
                    for (int i = 0; i < 3; ++i)
                        colour[i] = join_halves(join_quarters(q[i][0], q[i][1], halves), join_quarters(q[i][2], q[i][3], halves), lanes);
                } else {
                    QuarterWords q[3][2];
                    for (int k = 0; k < 2; ++k) {
                        const QuarterColours<T> v = quarter_colours<T>(row, c + k * kQuarter);
                        q[0][k] = narrow_ints(v.c1), q[1][k] = narrow_ints(v.c2), q[2][k] = narrow_ints(v.green);
                    }
                    for (int i = 0; i < 3; ++i) colour[i] = join_words(q[i][0], q[i][1], std::make_index_sequence<kLanes / 2>());
                }
                // Measured samples: the row's colour at its red or blue sites, green elsewhere.
                const V samples = load<V>(src + c);
                const V lattice = parity_lanes<V>((row.parity ^ c) & 1);
                colour[0] = select(lattice, samples, colour[0]);
                colour[2] = select(lattice, colour[2], samples);
                return red ? Planes<V>{colour[1], colour[2], colour[0]} : Planes<V>{colour[0], colour[2], colour[1]};
            },
            [&](const Planes<V>& p, int c, bool) QZRCFA_LAMBDA_INLINE {
                if constexpr (sizeof(T) == 1) store_pixels<P>(out + std::ptrdiff_t(c) * P, p.blue, p.green, p.red, true);
                else store_pixels16<P>(out + std::ptrdiff_t(c) * P, p.blue, p.green, p.red, true);
            });
    });
}

// ---------------------------------------------------------------------------------

constexpr KernelSet kKernelSet = {
    .nearest = nearest8_columns,
    .nearest16 = nearest16_columns,
    .grey = grey_wide<GreyVector, uint8_t>,
    .grey16 = grey_wide<Words, uint16_t>,
    .bilinear = bilinear_wide,
    .edge_sensing = edge_sensing_wide,
    .laplacian_green = laplacian_green_wide,
    .laplacian_colour = laplacian_colour_wide,
    .smooth_hue_green = smooth_hue_green_wide,
    .smooth_hue_colour = smooth_hue_colour_wide,
    .laplacian_greens = laplacian_greens_wide,
    .laplacian_sweep = laplacian_sweep_wide,
    .smooth_hue_ring = smooth_hue_ring_wide,
    .smooth_hue_sweep = smooth_hue_sweep_wide,
    .lanes = kLanes,
    .gbri = {gbri_samples<uint8_t>, gbri_samples<uint16_t>, gbri_vertical, gbri_horizontal, gbri_across, gbri_along,
             gbri_columns5, gbri_row5, gbri_green, gbri_laplacians, gbri_model, gbri_means, gbri_pixels<uint8_t>,
             gbri_pixels<uint16_t>},
    .general = {},  // the general rule's, from isa/general-inl.h: isa/target.h joins them in
    .smooth_hue_quotients = smooth_hue_quotients_wide,
};
