// The general rule's column kernels (src/general/), written once on the pixel layer's
// vectors and compiled per instruction set: a target file includes this after
// kernels-inl.h, whose toolkit (run_blocks, the float and integer lane types) it uses,
// and its kernel set takes kGeneralKernels.
//
// Rows of values are 16-bit and hold two columns of margin on either side; a block is
// one vector of kWords columns (kLanes columns where 8-bit elements are stored), and
// reads no value outside columns -2 .. x_last + 2 of a row. Every lane computes what
// its site needs and keeps its own site's value, as the families' kernels do.
//
// Sums of two or four values would overflow 16 bits, so means are the floor means of
// the toolkit, formed without widening. The Laplacian and smooth hue compute in 32-bit
// lanes: a block read as 32-bit lanes holds one red or blue site and one green site in
// each lane (the low half the even column of the pair), so one vector's worth of sites
// of one kind is a mask or a shift away from the values, and the results go back to
// their halves without any widening or narrowing of whole blocks.

constexpr int kWords = kLanes / 2;  // columns of a block of 16-bit values

// Every lane v (taken modulo 2^16).
QZRCFA_INLINE Words splat_words(unsigned v) {
    const uint16_t lane = uint16_t(v);
    return Words{} + lane;
}

// ---------------------------------------------------------------------------------
// Helpers on 32-bit lanes.

// Column (site + k) of `row` for each site of one kind in a block at column x: the site
// of lane i is column x + 2 i + Half.
template <int Half>
QZRCFA_INLINE Ints sites(const uint16_t* row, int x, int k) {
    const UInts pairs = load<UInts>(row + x + k);
    return (Ints)(Half == 0 ? pairs & 0xFFFF : pairs >> 16);
}

// Words of a block whose lanes of the half `Half` hold `v` (each in 0 .. 65535) and whose
// other halves hold those of `rest`.
template <int Half>
QZRCFA_INLINE Words with_sites(const Ints& v, const Words& rest) {
    const UInts r = (UInts)rest;
    return (Words)(Half == 0 ? (r & 0xFFFF0000u) | (UInts)v : (r & 0xFFFFu) | ((UInts)v << 16));
}

template <int Half>
QZRCFA_INLINE Words join_sites(const Ints& low_or_high, const Ints& other_half) {
    return (Words)(Half == 0 ? (UInts)low_or_high | ((UInts)other_half << 16) : ((UInts)low_or_high << 16) | (UInts)other_half);
}

// Written with the vector conditional, which the compiler turns into single
// instructions (absolute value, maximum and minimum, blends) where the instruction set
// has them. Divisions by a power of two truncate toward zero, as C++ integer division
// does: the compiler forms them with shifts.
QZRCFA_INLINE Ints magnitude(const Ints& x) { return x < 0 ? -x : x; }

// `first` where a < b, `second` where b < a, `tie` elsewhere.
QZRCFA_INLINE Ints choose(const Ints& a, const Ints& b, const Ints& first, const Ints& second, const Ints& tie) {
    return a < b ? first : b < a ? second : tie;
}

QZRCFA_INLINE Ints clamp_to(const Ints& x, const Ints& max) {
    const Ints low = x < 0 ? Ints{} : x;
    return low > max ? max : low;
}

// Mean of the pair (a, b) or of the pair (c, d), whichever differs less; of all four
// when they differ equally.
QZRCFA_INLINE Words quieter(const Words& a, const Words& b, const Words& c, const Words& d) {
    const Words d1 = (a > b ? a : b) - (a < b ? a : b), d2 = (c > d ? c : d) - (c < d ? c : d);
    return d1 < d2 ? mean2(a, b) : d2 < d1 ? mean2(c, d) : mean4(a, b, c, d);
}

// ---------------------------------------------------------------------------------
// Plane kernels. Each pass is a block function, block(c, green) of the block at column
// c with `green` all ones in the lanes of green sites, that gives the pass's planes
// (its plane kernel) or the pixels straight from them (its pixel kernel, below).

// A block's values of the row's own colour, green and the other colour.
struct Colours {
    Words colour, green, other;
};

QZRCFA_INLINE Words green_lanes_at(const PlaneRow& row, int x) { return parity_lanes<Words>(row.phase.green_at(x) ? 0 : 1); }

// Blocks of kWords columns from x, into the planes.
template <class Block>
QZRCFA_INLINE int colour_blocks(const PlaneRow& row, int x, const Block& block) {
    if (row.x_last - x + 1 < kWords) return x;
    const Words green = green_lanes_at(row, x);
    uint16_t* const colour = row.out[row.phase.colour];
    uint16_t* const g = row.out[kGreen];
    uint16_t* const other = row.out[row.phase.other()];
    return run_blocks<kWords>(
        x, row.x_last, -1, [&](int c) QZRCFA_LAMBDA_INLINE { return block(c, green); },
        [&](const Colours& v, int c, bool) QZRCFA_LAMBDA_INLINE {
            store(colour + c, v.colour);
            store(g + c, v.green);
            store(other + c, v.other);
        });
}

// Blocks that write one plane, out[plane].
template <class Block>
QZRCFA_INLINE int plane_blocks(const PlaneRow& row, int x, int plane, const Block& block) {
    if (row.x_last - x + 1 < kWords) return x;
    const Words green = green_lanes_at(row, x);
    uint16_t* const out = row.out[plane];
    return run_blocks<kWords>(
        x, row.x_last, -1, [&](int c) QZRCFA_LAMBDA_INLINE { return block(c, green); },
        [&](const Words& v, int c, bool) QZRCFA_LAMBDA_INLINE { store(out + c, v); });
}

// Runs body.template operator()<Half>() with Half the half of each 32-bit lane that
// holds the red or blue site of a block starting at column x.
template <class Body>
QZRCFA_INLINE int by_site_half(const PlaneRow& row, int x, Body&& body) {
    return row.phase.green_at(x) ? body.template operator()<1>() : body.template operator()<0>();
}

QZRCFA_INLINE auto nearest_block(const PlaneRow& row) {
    const uint16_t *s = row.s[2], *dn = row.s[3];
    return [s, dn](int c, const Words& green) QZRCFA_LAMBDA_INLINE {
        const Words left = load<Words>(s + c - 1), mid = load<Words>(s + c);
        return Colours{select(green, left, mid), select(green, mid, left), select(green, load<Words>(dn + c), load<Words>(dn + c - 1))};
    };
}

QZRCFA_INLINE auto bilinear_block(const PlaneRow& row) {
    const uint16_t *up = row.s[1], *s = row.s[2], *dn = row.s[3];
    return [up, s, dn](int c, const Words& green) QZRCFA_LAMBDA_INLINE {
        const Words left = load<Words>(s + c - 1), mid = load<Words>(s + c), right = load<Words>(s + c + 1);
        const Words u = load<Words>(up + c), d = load<Words>(dn + c);
        const Words diagonal = mean4(load<Words>(up + c - 1), load<Words>(up + c + 1), load<Words>(dn + c - 1), load<Words>(dn + c + 1));
        return Colours{select(green, mean2(left, right), mid), select(green, mid, mean4(left, right, u, d)),
                       select(green, mean2(u, d), diagonal)};
    };
}

QZRCFA_INLINE auto edge_sensing_block(const PlaneRow& row) {
    const uint16_t *up = row.s[1], *s = row.s[2], *dn = row.s[3];
    const bool directional = row.variant == 2;
    return [up, s, dn, directional](int c, const Words& green) QZRCFA_LAMBDA_INLINE {
        const Words left = load<Words>(s + c - 1), mid = load<Words>(s + c), right = load<Words>(s + c + 1);
        const Words u = load<Words>(up + c), d = load<Words>(dn + c);
        const Words ul = load<Words>(up + c - 1), ur = load<Words>(up + c + 1);
        const Words dl = load<Words>(dn + c - 1), dr = load<Words>(dn + c + 1);
        const Words diagonal = directional ? quieter(ul, dr, ur, dl) : mean4(ul, ur, dl, dr);
        return Colours{select(green, mean2(left, right), mid), select(green, mid, quieter(left, right, u, d)),
                       select(green, mean2(u, d), diagonal)};
    };
}

QZRCFA_INLINE auto grey_block(const PlaneRow& row) {
    const uint16_t *s = row.s[2], *dn = row.s[3];
    return [s, dn](int c, const Words&) QZRCFA_LAMBDA_INLINE {
        return mean4(load<Words>(s + c), load<Words>(s + c + 1), load<Words>(dn + c), load<Words>(dn + c + 1));
    };
}

template <int H>
QZRCFA_INLINE auto laplacian_green_block(const PlaneRow& row) {
    const uint16_t *u2 = row.s[0], *up = row.s[1], *s = row.s[2], *dn = row.s[3], *d2 = row.s[4];
    const Ints max = Ints{} + row.max;
    return [=](int c, const Words&) QZRCFA_LAMBDA_INLINE {
        const Ints v0 = sites<H>(s, c, 0), left = sites<H>(s, c, -1), right = sites<H>(s, c, 1);
        const Ints u = sites<H>(up, c, 0), d = sites<H>(dn, c, 0);
        const Ints dh = v0 + v0 - sites<H>(s, c, -2) - sites<H>(s, c, 2);
        const Ints dv = v0 + v0 - sites<H>(u2, c, 0) - sites<H>(d2, c, 0);
        const Ints h = magnitude(left - right) + magnitude(dh), v = magnitude(u - d) + magnitude(dv);
        const Ints g = choose(h, v, dh / 4 + ((left + right) >> 1), dv / 4 + ((u + d) >> 1),
                              (dh + dv) / 8 + ((left + right + u + d) >> 2));
        return with_sites<H>(clamp_to(g, max), load<Words>(s + c));
    };
}

template <int H>
QZRCFA_INLINE auto laplacian_colour_block(const PlaneRow& row) {
    const uint16_t *up = row.s[1], *s = row.s[2], *dn = row.s[3];
    const uint16_t *gu = row.g[0], *g = row.g[1], *gd = row.g[2];
    const Ints max = Ints{} + row.max;
    return [=](int c, const Words& green) QZRCFA_LAMBDA_INLINE {
        const Ints g0 = sites<H>(g, c, 0);
        const Ints d1 = g0 + g0 - sites<H>(gu, c, -1) - sites<H>(gd, c, 1);
        const Ints d2 = g0 + g0 - sites<H>(gu, c, 1) - sites<H>(gd, c, -1);
        const Ints ul = sites<H>(up, c, -1), lr = sites<H>(dn, c, 1), ur = sites<H>(up, c, 1), ll = sites<H>(dn, c, -1);
        const Ints e1 = magnitude(ul - lr) + magnitude(d1), e2 = magnitude(ur - ll) + magnitude(d2);
        const Ints v = choose(e1, e2, (ul + lr + d1) / 2, (ur + ll + d2) / 2,
                              (ul + lr + ur + ll + d1 + d2) / 4);
        const Words mid = load<Words>(s + c);
        const Words across = mean2(load<Words>(s + c - 1), load<Words>(s + c + 1));
        return Colours{select(green, across, mid), load<Words>(g + c),
                       with_sites<H>(clamp_to(v, max), mean2(load<Words>(up + c), load<Words>(dn + c)))};
    };
}

QZRCFA_INLINE auto smooth_hue_green_block(const PlaneRow& row) {
    const uint16_t *up = row.s[1], *s = row.s[2], *dn = row.s[3];
    return [up, s, dn](int c, const Words& green) QZRCFA_LAMBDA_INLINE {
        return select(green, load<Words>(s + c), mean4(load<Words>(s + c + 1), load<Words>(s + c - 1), load<Words>(up + c), load<Words>(dn + c)));
    };
}

QZRCFA_INLINE Floats to_float(const Ints& v) { return __builtin_convertvector(v, Floats); }

// A sample over its green, in single precision, as the reference divides them.
QZRCFA_INLINE Floats quotient(const Ints& sample, const Ints& green) { return to_float(sample) / to_float(green); }

// Above the largest value: the largest; NaN: 0; otherwise truncated.
QZRCFA_INLINE Ints saturate(const Floats& v, const Floats& max) {
    const Floats y = v > max ? max : v;
    return __builtin_convertvector(v != v ? Floats{} : y, Ints);
}

// Smooth hue, red and blue. Every quotient an estimate reads is a sample over its green
// at a red or blue site of row y - 1, y or y + 1, and each is read by up to three
// estimates; so a chunk of columns first divides the quotients its blocks read into
// arrays, by pair of columns (pair p: columns x + 2p and x + 2p + 1, x the span's first
// column), and the blocks then read them from there: three divisions per block instead
// of six. With H the half of each pair that holds the row's red or blue site:
//   above[p], below[p]: rows y -/+ 1 at the pair's green column; a green site's vertical
//     estimate reads pair p, its neighbours' diagonals pairs p - 1 + H and p + H;
//   own[p]: row y at the pair's red or blue column; a green site's horizontal estimate
//     reads pairs p - H and p + 1 - H.
// Array entry k holds pair first - 1 + k, first the chunk's first pair. A chunk of pairs
// first .. last divides above and below over pairs first - 1 + H .. last + H and own
// over first - H .. last + 1 - H: columns x - 1 .. x_last + 2, read (with the column
// before the first, below) within the row's margins.
constexpr int kHueChunk = 256;  // columns a chunk divides for; the last chunk takes up to twice that

struct HueQuotients {
    static constexpr int kEntries = kHueChunk + 3 + kQuarter;
    alignas(64) float above[kEntries], below[kEntries], own[kEntries];
};

// out[k] = sample / green at column `first` + 2 k, k < count (at least kQuarter): vectors
// of the pairs' high halves loaded from the column before, the last ending at the last.
QZRCFA_INLINE void divide_pairs(float* out, const uint16_t* sample, const uint16_t* green, int first, int count) {
    for (int k = 0;; k += kQuarter) {
        if (k > count - kQuarter) k = count - kQuarter;
        const int c = first - 1 + 2 * k;
        store(out + k, quotient(sites<1>(sample, c, 0), sites<1>(green, c, 0)));
        if (k == count - kQuarter) return;
    }
}

template <int H>
QZRCFA_INLINE auto smooth_hue_colour_block(const PlaneRow& row, const HueQuotients& q, int chunk_x) {
    const uint16_t *s = row.s[2], *g = row.g[1];
    const Floats max = Floats{} + float(row.max);
    return [=, &q](int c, const Words&) QZRCFA_LAMBDA_INLINE {
        constexpr int G = 1 - H;  // the green sites' half
        const int k = (c - chunk_x) / 2 + 1;
        const Floats above = load<Floats>(q.above + k), below = load<Floats>(q.below + k);
        const Floats above_far = load<Floats>(q.above + k - 1 + 2 * H), below_far = load<Floats>(q.below + k - 1 + 2 * H);
        const Floats left = load<Floats>(q.own + k - H), right = load<Floats>(q.own + k + 1 - H);
        const Floats own_green = to_float(sites<G>(g, c, 0)), own_colour = to_float(sites<H>(g, c, 0));
        const Floats vertical = (above + below) * (own_green * 0.5f);
        const Floats horizontal = (left + right) * (own_green * 0.5f);
        const Floats ul = H == 0 ? above_far : above, ur = H == 0 ? above : above_far;
        const Floats dl = H == 0 ? below_far : below, dr = H == 0 ? below : below_far;
        const Floats diagonal = (((ul + ur) + dl) + dr) * (own_colour * 0.25f);
        return Colours{with_sites<G>(saturate(horizontal, max), load<Words>(s + c)), load<Words>(g + c),
                       join_sites<H>(saturate(diagonal, max), saturate(vertical, max))};
    };
}

// Chunks of the span x .. row.x_last: the quotients of each, then run(part, first,
// block) on its columns first .. part.x_last, which returns the first column it left.
template <class Run>
QZRCFA_INLINE int smooth_hue_chunks(const PlaneRow& row, int x, Run&& run) {
    if (row.x_last - x + 1 < kWords) return x;
    return by_site_half(row, x, [&]<int H>() {
        HueQuotients q;
        for (int first = x; first <= row.x_last;) {
            const int last = row.x_last - first + 1 < 2 * kHueChunk ? row.x_last : first + kHueChunk - 1;
            const int pairs = (last - first) / 2 + 1;  // pairs of the chunk, the last maybe a single column
            const int x_green = first + 1 - H, x_colour = first + H;
            divide_pairs(q.above + H, row.s[1], row.g[0], x_green - 2 + 2 * H, pairs + 1);
            divide_pairs(q.below + H, row.s[3], row.g[2], x_green - 2 + 2 * H, pairs + 1);
            divide_pairs(q.own + 1 - H, row.s[2], row.g[1], x_colour - 2 * H, pairs + 1);
            PlaneRow part = row;
            part.x_last = last;
            const int left = run(part, first, smooth_hue_colour_block<H>(row, q, first));
            if (left <= last) return left;
            first = last + 1;
        }
        return row.x_last + 1;
    });
}

int general_nearest_wide(const PlaneRow& row, int x) { return colour_blocks(row, x, nearest_block(row)); }
int general_bilinear_wide(const PlaneRow& row, int x) { return colour_blocks(row, x, bilinear_block(row)); }
int general_edge_sensing_wide(const PlaneRow& row, int x) { return colour_blocks(row, x, edge_sensing_block(row)); }
int general_grey_wide(const PlaneRow& row, int x) { return plane_blocks(row, x, 0, grey_block(row)); }
int general_smooth_hue_green_wide(const PlaneRow& row, int x) { return plane_blocks(row, x, kGreen, smooth_hue_green_block(row)); }

int general_laplacian_green_wide(const PlaneRow& row, int x) {
    return by_site_half(row, x, [&]<int H>() { return plane_blocks(row, x, kGreen, laplacian_green_block<H>(row)); });
}

int general_laplacian_colour_wide(const PlaneRow& row, int x) {
    return by_site_half(row, x, [&]<int H>() { return colour_blocks(row, x, laplacian_colour_block<H>(row)); });
}

int general_smooth_hue_colour_wide(const PlaneRow& row, int x) {
    return smooth_hue_chunks(row, x, [](const PlaneRow& part, int first, const auto& block) { return colour_blocks(part, first, block); });
}

// ---------------------------------------------------------------------------------
// Raw rows to values, and planes to pixels. Rows that ask for anything beyond the plain
// containers and elements below are left whole to the reference.

// Packed rows. Each 16-bit lane of a block takes two bytes of the block's bytes, the
// layout's `lo` and `hi` for its sample (one byte shuffle for the block), and its sample
// is ((w >> a) & ma) | ((w >> b) & mb) of the word w = hi * 256 + lo. The lanes repeat
// with the layout's group (samples in bytes), so a block of kWords samples, a whole
// number of groups, starts at a group's first byte and spans at most kLanes bytes.
struct Unpacking {
    int samples, bytes;  // of a group
    int lo[4], hi[4], a[4], ma[4], b[4], mb[4];
};

constexpr Unpacking unpacking(Packing p) {
    switch (p) {
    case Packing::Raw10:  // bytes 0-3 bits 9..2 of samples 0-3, byte 4 their bits 1..0 (sample i at bit 2 i)
        return {4, 5, {4, 4, 4, 4}, {0, 1, 2, 3}, {6, 6, 6, 6}, {0x3FC, 0x3FC, 0x3FC, 0x3FC}, {0, 2, 4, 6}, {3, 3, 3, 3}};
    case Packing::Raw12:  // bytes 0-1 bits 11..4 of samples 0-1, byte 2 their bits 3..0 (sample 0 low)
        return {2, 3, {2, 2}, {0, 1}, {4, 4}, {0xFF0, 0xFF0}, {0, 4}, {0xF, 0xF}};
    case Packing::Packed12:  // bits 11..4 of sample 0; bits 3..0 of sample 0 (low) and of sample 1; bits 11..4 of sample 1
        return {2, 3, {1, 1}, {0, 2}, {4, 4}, {0xFF0, 0xFF0}, {0, 4}, {0xF, 0xF}};
    case Packing::P10:  // a little-endian bit stream: sample i from bit 10 i
        return {4, 5, {0, 1, 2, 3}, {1, 2, 3, 4}, {0, 2, 4, 6}, {0x3FF, 0x3FF, 0x3FF, 0x3FF}, {}, {}};
    case Packing::P12:
        return {2, 3, {0, 1}, {1, 2}, {0, 4}, {0xFFF, 0xFFF}, {}, {}};
    default: return {};
    }
}

template <Packing P>
constexpr int unpack_byte(int j) {  // the block byte that byte j of the words takes
    constexpr Unpacking u = unpacking(P);
    const int lane = j / 2, within = lane % u.samples;
    return lane / u.samples * u.bytes + (j % 2 == 0 ? u.lo[within] : u.hi[within]);
}

template <Packing P, std::size_t... I>
QZRCFA_INLINE Words unpack_words(const Bytes& bytes, std::index_sequence<I...>) {
    return (Words)__builtin_shufflevector(bytes, bytes, unpack_byte<P>(int(I))...);
}

template <Packing P, std::size_t... I>
QZRCFA_INLINE Words unpack_field(const Words& w, int const (&shift)[4], int const (&mask)[4], std::index_sequence<I...>) {
    constexpr int n = unpacking(P).samples;
    return ((w >> Words{uint16_t(shift[I % n])...}) & Words{uint16_t(mask[I % n])...});
}

template <Packing P>
QZRCFA_INLINE Words unpack(const uint8_t* group) {
    constexpr Unpacking u = unpacking(P);
    const Words w = unpack_words<P>(load<Bytes>(group), std::make_index_sequence<kLanes>());
    const auto lanes = std::make_index_sequence<kWords>();
    if constexpr (u.mb[0] == 0) return unpack_field<P>(w, u.a, u.ma, lanes);
    else return unpack_field<P>(w, u.a, u.ma, lanes) | unpack_field<P>(w, u.b, u.mb, lanes);
}

// Black level and gain in single precision, as the reference forms them: (s - black) *
// gain + 1/2, 0 below 1, max at max and above, else truncated. Lanes alternate between
// the row's even and odd columns (blocks start at even columns).
struct Balance {
    Floats black, gain, top;
    QZRCFA_INLINE explicit Balance(const LoadRow& row) {
        for (int i = 0; i < kLanes / 4; ++i) black[i] = row.black[i & 1], gain[i] = row.gain[i & 1];
        top = Floats{} + float(row.max);
    }
    QZRCFA_INLINE Ints half(const QuarterWords& s) const {
        const Floats v = (__builtin_convertvector(__builtin_convertvector(s, Ints), Floats) - black) * gain + 0.5f;
        const Floats kept = v >= top ? top : v;
        return __builtin_convertvector(kept < 1.0f ? Floats{} : kept, Ints);
    }
    QZRCFA_INLINE Words operator()(const Words& s) const {
        const QuarterWords low = low_half(s, std::make_index_sequence<kWords / 2>());
        const QuarterWords high = high_half(s, std::make_index_sequence<kWords / 2>());
        return join_words(__builtin_convertvector(half(low), QuarterWords), __builtin_convertvector(half(high), QuarterWords),
                          std::make_index_sequence<kWords>());
    }
    template <std::size_t... I>
    QZRCFA_INLINE static QuarterWords low_half(const Words& s, std::index_sequence<I...>) {
        return __builtin_shufflevector(s, s, int(I)...);
    }
    template <std::size_t... I>
    QZRCFA_INLINE static QuarterWords high_half(const Words& s, std::index_sequence<I...>) {
        return __builtin_shufflevector(s, s, int(I + kWords / 2)...);
    }
};

// Blocks of samples from column x (a group's first) while a block's bytes lie in the
// row's whole groups; the reference takes the rest.
template <Packing P, bool Balanced>
int load_packed(const LoadRow& row, int x) {
    constexpr Unpacking u = unpacking(P);
    const uint8_t* src = static_cast<const uint8_t*>(row.src);
    const std::ptrdiff_t whole = std::ptrdiff_t((row.x_last + 1) / u.samples) * u.bytes;
    const Balance balance(row);
    for (; x + kWords - 1 <= row.x_last && std::ptrdiff_t(x / u.samples) * u.bytes + kLanes <= whole; x += kWords) {
        const Words v = unpack<P>(src + std::ptrdiff_t(x / u.samples) * u.bytes);
        store(row.out + x, Balanced ? balance(v) : v);
    }
    return x;
}

template <bool Balanced>
int load_container(const LoadRow& row, int x) {
    const Words max = splat_words(row.max);
    const Balance balance(row);
    uint16_t* const out = row.out;
    const auto put = [out](const Words& v, int c, bool) QZRCFA_LAMBDA_INLINE { store(out + c, v); };
    // Balanced samples take the sample as it is; plain ones are clamped to max.
    const auto value = [&](const Words& s) QZRCFA_LAMBDA_INLINE { return Balanced ? balance(s) : lesser(s, max); };
    if (row.packing == Packing::Bytes) {
        const uint8_t* src = static_cast<const uint8_t*>(row.src);
        return run_blocks<kWords>(
            x, row.x_last, -1, [&](int c) QZRCFA_LAMBDA_INLINE { return value(__builtin_convertvector(load<Half>(src + c), Words)); }, put);
    }
    const uint16_t* src = static_cast<const uint16_t*>(row.src);
    return run_blocks<kWords>(x, row.x_last, -1, [&](int c) QZRCFA_LAMBDA_INLINE { return value(load<Words>(src + c)); }, put);
}

template <bool Balanced>
int load_row(const LoadRow& row, int x) {
    switch (row.packing) {
    case Packing::Bytes:
    case Packing::Words: return load_container<Balanced>(row, x);
    case Packing::Raw10: return load_packed<Packing::Raw10, Balanced>(row, x);
    case Packing::Raw12: return load_packed<Packing::Raw12, Balanced>(row, x);
    case Packing::Packed12: return load_packed<Packing::Packed12, Balanced>(row, x);
    case Packing::P10: return load_packed<Packing::P10, Balanced>(row, x);
    case Packing::P12: return load_packed<Packing::P12, Balanced>(row, x);
    }
    return x;
}

int general_load_wide(const LoadRow& row, int x) {
    // Blocks start at column 0 (a packing group's first sample, an even column).
    if (x != 0 || row.x_last - x + 1 < kWords) return x;
    return row.balance ? load_row<true>(row, x) : load_row<false>(row, x);
}

// Values of 0 .. max to 8-bit elements, rounded to nearest with halves up, for max =
// 2^b - 1 (b of 9 .. 16): (v * 510 + max) / (2 max) is (hi(v << (16 - b), M) + C) >> s
// with hi the high half of the 16-bit product, M = 2^b - 2^(b-8) + 1, C = 2^(b-9)
// and s = b - 8. M / 2^(b+8) is 255 / max within what the high product truncates, and
// C the half; the equality was checked for every value of every b, which the kernel
// tests do again (their longest row of a store holds every value 0 .. max).
struct Narrowing {
    int shift_in, shift_out;
    Words scale, half;

    QZRCFA_INLINE explicit Narrowing(int b)
        : shift_in(16 - b), shift_out(b - 8), scale(splat_words((1u << b) - (1u << (b - 8)) + 1)),
          half(splat_words(1u << (b - 9))) {}

    QZRCFA_INLINE Words operator()(const Words& v) const { return (mul_high(v << shift_in, scale) + half) >> shift_out; }
};

// Significant bits b of a largest value 2^b - 1 that 8-bit elements round from (9 .. 16),
// 8 for 255 (kept as they are), 0 for any other.
QZRCFA_INLINE int rounding_bits(int max) {
    for (int b = 8; b <= 16; ++b)
        if (max == (1 << b) - 1) return b;
    return 0;
}

template <int P>
QZRCFA_INLINE int store16(const StoreRow& row, int x) {
    uint16_t* const out = static_cast<uint16_t*>(row.out);
    const uint16_t *b = row.planes[0], *g = row.planes[1], *r = row.planes[2];
    if constexpr (P == 1) {
        return run_blocks<kWords>(
            x, row.x_last, -1, [&](int c) QZRCFA_LAMBDA_INLINE { return load<Words>(b + c); },
            [&](const Words& v, int c, bool) QZRCFA_LAMBDA_INLINE { store(out + c, v); });
    } else {
        const Words fourth = splat_words(row.max);
        return run_blocks<kWords>(
            x, row.x_last, -1,
            [&](int c) QZRCFA_LAMBDA_INLINE { return Planes<Words>{load<Words>(b + c), load<Words>(g + c), load<Words>(r + c)}; },
            [&](const Planes<Words>& p, int c, bool) QZRCFA_LAMBDA_INLINE {
                store_pixels16<P>(out + std::ptrdiff_t(c) * P, p.blue, p.green, p.red, fourth);
            });
    }
}

// Two blocks of values (each at most 255) as one of bytes.
QZRCFA_INLINE Bytes pack_bytes(const Words& low, const Words& high) {
    return join_halves(__builtin_convertvector(low, Half), __builtin_convertvector(high, Half), std::make_index_sequence<kLanes>());
}

template <int P, bool Identity>
QZRCFA_INLINE int store8(const StoreRow& row, int x, const Narrowing& narrow) {
    if (row.x_last - x + 1 < kLanes) return x;
    uint8_t* const out = static_cast<uint8_t*>(row.out);
    const auto bytes = [&](const uint16_t* plane, int c) QZRCFA_LAMBDA_INLINE {
        const Words low = load<Words>(plane + c), high = load<Words>(plane + c + kWords);
        if constexpr (Identity) return pack_bytes(low, high);
        else return pack_bytes(narrow(low), narrow(high));
    };
    if constexpr (P == 1) {
        return run_blocks<kLanes>(
            x, row.x_last, -1, [&](int c) QZRCFA_LAMBDA_INLINE { return bytes(row.planes[0], c); },
            [&](const Bytes& v, int c, bool) QZRCFA_LAMBDA_INLINE { store(out + c, v); });
    } else {
        return run_blocks<kLanes>(
            x, row.x_last, -1,
            [&](int c) QZRCFA_LAMBDA_INLINE {
                return Planes<Bytes>{bytes(row.planes[0], c), bytes(row.planes[1], c), bytes(row.planes[2], c)};
            },
            [&](const Planes<Bytes>& p, int c, bool) QZRCFA_LAMBDA_INLINE {
                store_pixels<P>(out + std::ptrdiff_t(c) * P, p.blue, p.green, p.red, true);
            });
    }
}

template <int P>
QZRCFA_INLINE int store_elements(const StoreRow& row, int x) {
    if (row.depth == 16) return row.x_last - x + 1 < kWords ? x : store16<P>(row, x);
    const int b = rounding_bits(row.max);
    if (b == 0) return x;
    const Narrowing narrow(b == 8 ? 9 : b);
    return b == 8 ? store8<P, true>(row, x, narrow) : store8<P, false>(row, x, narrow);
}

QZRCFA_INLINE bool plain(const StoreRow& row) {
    return (row.depth == 8 || row.depth == 16) && row.matrix == nullptr && row.curve == nullptr;
}

// Pixels through the matrix and the curve, a chunk of columns at a time: the matrix in
// float lanes with the reference's order of operations (no fused multiply-add), clamped
// and truncated as it does, into the chunk's own planes; then each element through the
// curve (or as it is, or rounded to 8 bits) by lookup, a pixel at a time.
constexpr int kGradeChunk = 256;
QZRCFA_INLINE void matrix_chunk(const StoreRow& row, const uint16_t* const in[3], int count, uint16_t (*v)[kGradeChunk]) {
    Floats m[9];
    for (int i = 0; i < 9; ++i) m[i] = Floats{} + row.matrix[i];
    const Floats top = Floats{} + float(row.max), half = Floats{} + 0.5f, one = Floats{} + 1.0f;
    const auto widen = [](const uint16_t* p) QZRCFA_LAMBDA_INLINE {
        return __builtin_convertvector(__builtin_convertvector(load<QuarterWords>(p), Ints), Floats);
    };
    for (int c = 0; c < count; c += kQuarter) {
        const Floats blue = widen(in[0] + c), green = widen(in[1] + c), red = widen(in[2] + c);
        for (int out = 0; out < 3; ++out) {  // red, green, blue
            const Floats k = (m[3 * out] * red + m[3 * out + 1] * green) + m[3 * out + 2] * blue + half;
            const Floats clamped = k < one ? Floats{} : k >= top ? top : k;
            store(v[2 - out] + c, __builtin_convertvector(__builtin_convertvector(clamped, Ints), QuarterWords));
        }
    }
}

template <int Depth, int N, bool Curve>
QZRCFA_INLINE int store_graded(const StoreRow& row, int x) {
    using Element = std::conditional_t<Depth == 8, uint8_t, uint16_t>;
    const int max = row.max;
    const Element fourth = Element(Depth == 8 ? 255 : max);
    const uint16_t* const curve = row.curve;
    const auto element = [&](int v) QZRCFA_LAMBDA_INLINE {
        if constexpr (Curve) return Element(curve[v]);
        else return Element(Depth == 16 ? v : detail::narrowed_to_8(v, max));
    };
    uint16_t v[3][kGradeChunk];
    while (row.x_last - x + 1 >= kQuarter) {
        const int count = std::min(kGradeChunk, (row.x_last - x + 1) / kQuarter * kQuarter);
        const uint16_t* in[3];
        for (int e = 0; e < 3; ++e) in[e] = row.planes[N == 1 ? 0 : e] + x;
        if (row.matrix != nullptr) {
            matrix_chunk(row, in, count, v);
            for (int e = 0; e < 3; ++e) in[e] = v[e];
        }
        Element* out = static_cast<Element*>(row.out) + std::ptrdiff_t(x) * N;
        for (int c = 0; c < count; ++c, out += N) {
            out[0] = element(in[0][c]);
            if constexpr (N >= 3) out[1] = element(in[1][c]), out[2] = element(in[2][c]);
            if constexpr (N == 4) out[3] = fourth;
        }
        x += count;
    }
    return x;
}

template <int Depth, bool Curve>
QZRCFA_INLINE int store_graded(const StoreRow& row, int x) {
    switch (row.elements) {
    case 1: return store_graded<Depth, 1, Curve>(row, x);
    case 3: return store_graded<Depth, 3, Curve>(row, x);
    case 4: return store_graded<Depth, 4, Curve>(row, x);
    default: return x;
    }
}

template <int Depth>
QZRCFA_INLINE int store_graded(const StoreRow& row, int x) {
    return row.curve != nullptr ? store_graded<Depth, true>(row, x) : store_graded<Depth, false>(row, x);
}

int general_store_wide(const StoreRow& row, int x) {
    if (row.matrix != nullptr || row.curve != nullptr) {
        return row.depth == 8 ? store_graded<8>(row, x) : row.depth == 16 ? store_graded<16>(row, x) : x;
    }
    if (!plain(row)) return x;
    switch (row.elements) {
    case 1: return store_elements<1>(row, x);
    case 3: return store_elements<3>(row, x);
    case 4: return store_elements<4>(row, x);
    default: return x;
    }
}

// ---------------------------------------------------------------------------------
// Pixel kernels: a pass's blocks stored as pixels without going through the planes.

// The blue, green and red of a block from its colours.
QZRCFA_INLINE Planes<Words> in_order(const Colours& v, bool red) {
    return red ? Planes<Words>{v.other, v.green, v.colour} : Planes<Words>{v.colour, v.green, v.other};
}

// The first column from x, within N columns, whose pixel of `bytes` bytes at `out` starts
// on a kLanes-byte boundary and which has x's parity (so that its block's lanes hold the
// same sites); -1 if none. Blocks from there on store whole vectors that split no cache
// line.
template <int N>
QZRCFA_INLINE int aligned_column(const void* out, int x, int bytes) {
    const std::uintptr_t at = reinterpret_cast<std::uintptr_t>(out);
    for (int c = x; c <= x + N; c += 2)
        if ((at + std::uintptr_t(c) * std::uintptr_t(bytes)) % kLanes == 0) return c;
    return -1;
}

// Blocks of kLanes columns to 8-bit elements: compute(narrow, c) gives the block at c
// from two blocks of values, each pair narrowed by narrow(low, high); put(bytes, at)
// stores it at the block's first element.
template <class Compute, class Put>
QZRCFA_INLINE int byte_blocks(const PlaneRow& row, const StoreRow& out, int x, Compute&& compute, Put&& put, int elements) {
    const int b = rounding_bits(out.max);
    if (b == 0 || row.x_last - x + 1 < kLanes) return x;
    uint8_t* const px = static_cast<uint8_t*>(out.out);
    const int aligned = aligned_column<kLanes>(px, x, elements);
    const auto blocks = [&](const auto& narrow) QZRCFA_LAMBDA_INLINE {
        return run_blocks<kLanes>(
            x, row.x_last, aligned, [&](int c) QZRCFA_LAMBDA_INLINE { return compute(narrow, c); },
            [&](const auto& v, int c, bool) QZRCFA_LAMBDA_INLINE { put(v, px + std::ptrdiff_t(c) * elements); });
    };
    if (b == 8) return blocks([](const Words& low, const Words& high) QZRCFA_LAMBDA_INLINE { return pack_bytes(low, high); });
    const Narrowing narrowing(b);
    return blocks([&](const Words& low, const Words& high) QZRCFA_LAMBDA_INLINE { return pack_bytes(narrowing(low), narrowing(high)); });
}

// Blocks of three or four elements; the block function gives Colours.
template <class Block>
QZRCFA_INLINE int colour_pixels(const PlaneRow& row, const StoreRow& out, int x, const Block& block) {
    if (!plain(out) || (out.elements != 3 && out.elements != 4)) return x;
    const Words green = green_lanes_at(row, x);
    const bool red = row.phase.colour == kRed;
    return for_stride(out.elements, x, [&]<int P>() {
        if (out.depth == 16) {
            if (row.x_last - x + 1 < kWords) return x;
            uint16_t* const px = static_cast<uint16_t*>(out.out);
            const Words fourth = splat_words(out.max);
            return run_blocks<kWords>(
                x, row.x_last, aligned_column<kWords>(px, x, 2 * P), [&](int c) QZRCFA_LAMBDA_INLINE { return in_order(block(c, green), red); },
                [&](const Planes<Words>& p, int c, bool) QZRCFA_LAMBDA_INLINE {
                    store_pixels16<P>(px + std::ptrdiff_t(c) * P, p.blue, p.green, p.red, fourth);
                });
        }
        return byte_blocks(row, out, x, [&](const auto& narrow, int c) QZRCFA_LAMBDA_INLINE {
            const Planes<Words> low = in_order(block(c, green), red), high = in_order(block(c + kWords, green), red);
            return Planes<Bytes>{narrow(low.blue, high.blue), narrow(low.green, high.green), narrow(low.red, high.red)};
        }, [&](const Planes<Bytes>& p, uint8_t* at) QZRCFA_LAMBDA_INLINE { store_pixels<P>(at, p.blue, p.green, p.red, true); }, P);
    });
}

int general_nearest_pixels(const PlaneRow& row, const StoreRow& out, int x) { return colour_pixels(row, out, x, nearest_block(row)); }
int general_bilinear_pixels(const PlaneRow& row, const StoreRow& out, int x) { return colour_pixels(row, out, x, bilinear_block(row)); }
int general_edge_sensing_pixels(const PlaneRow& row, const StoreRow& out, int x) {
    return colour_pixels(row, out, x, edge_sensing_block(row));
}
int general_laplacian_pixels(const PlaneRow& row, const StoreRow& out, int x) {
    return by_site_half(row, x, [&]<int H>() { return colour_pixels(row, out, x, laplacian_colour_block<H>(row)); });
}
int general_smooth_hue_pixels(const PlaneRow& row, const StoreRow& out, int x) {
    return smooth_hue_chunks(row, x, [&out](const PlaneRow& part, int first, const auto& block) {
        StoreRow to = out;
        to.x_last = part.x_last;
        return colour_pixels(part, to, first, block);
    });
}

int general_grey_pixels(const PlaneRow& row, const StoreRow& out, int x) {
    if (!plain(out) || out.elements != 1) return x;
    const auto block = grey_block(row);
    const Words none{};
    if (out.depth == 16) {
        if (row.x_last - x + 1 < kWords) return x;
        uint16_t* const px = static_cast<uint16_t*>(out.out);
        return run_blocks<kWords>(
            x, row.x_last, -1, [&](int c) QZRCFA_LAMBDA_INLINE { return block(c, none); },
            [&](const Words& v, int c, bool) QZRCFA_LAMBDA_INLINE { store(px + c, v); });
    }
    return byte_blocks(row, out, x, [&](const auto& narrow, int c) QZRCFA_LAMBDA_INLINE { return narrow(block(c, none), block(c + kWords, none)); },
                    [](const Bytes& v, uint8_t* at) QZRCFA_LAMBDA_INLINE { store(at, v); }, 1);
}

constexpr GeneralKernels kGeneralKernels = {
    .load = general_load_wide,
    .nearest = general_nearest_wide,
    .bilinear = general_bilinear_wide,
    .edge_sensing = general_edge_sensing_wide,
    .laplacian_green = general_laplacian_green_wide,
    .laplacian_colour = general_laplacian_colour_wide,
    .smooth_hue_green = general_smooth_hue_green_wide,
    .smooth_hue_colour = general_smooth_hue_colour_wide,
    .grey = general_grey_wide,
    .store = general_store_wide,
    .nearest_pixels = general_nearest_pixels,
    .bilinear_pixels = general_bilinear_pixels,
    .edge_sensing_pixels = general_edge_sensing_pixels,
    .laplacian_pixels = general_laplacian_pixels,
    .smooth_hue_pixels = general_smooth_hue_pixels,
    .grey_pixels = general_grey_pixels,
};
