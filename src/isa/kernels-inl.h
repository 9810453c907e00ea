// The column kernels of every family, written once on the pixel layer's vectors and
// compiled once per instruction set: a target file includes this inside its own
// namespace after its pixel layer and the SIMD toolkit, and names the result its
// kernel set.
//
// A column kernel takes blocks of kLanes columns from `c` on while whole blocks fit the
// row and returns the first column it left; the family's reference finishes the row.
// Every lane computes what each kind of site needs and keeps its own site's value, so
// nothing branches on the phase of a pixel. Pixel strides 3 and 4 only; the reference
// takes any other stride whole. No block reads a sample or an output byte outside the
// frame's buffers, and none writes an element the reference would not write.

using std::uint8_t;
using std::uint16_t;

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

int nearest8_columns(const Row<uint8_t>& row, const NearestForm& form, int c) {
    return for_stride(row.stride, c, [&]<int P>() {
        const Bytes green = green_lanes<Bytes>(row, c);
        for (; c + kLanes - 1 <= row.c_last; c += kLanes) {
            const Planes<Bytes> p = nearest_block(row, form, c, green);
            store_pixels<P>(row.d + std::ptrdiff_t(c) * P, p.blue, p.green, p.red, row.white);
        }
        return c;
    });
}

int nearest16_columns(const Row<uint16_t>& row, const NearestForm& form, int c) {
    constexpr int n = kLanes / 2;
    return for_stride(row.stride, c, [&]<int P>() {
        const Words green = green_lanes<Words>(row, c);
        for (; c + n - 1 <= row.c_last; c += n) {
            const Planes<Words> p = nearest_block(row, form, c, green);
            store_pixels16<P>(row.d + std::ptrdiff_t(c) * P, p.blue, p.green, p.red);
        }
        return c;
    });
}

// ---------------------------------------------------------------------------------
// Grey: the floor of the mean of each two-by-two block, one element per pixel.

template <class V, class T>
int grey_wide(const Row<T>& row, const NoParams&, int c) {
    constexpr int n = int(sizeof(V) / sizeof(T));
    const std::ptrdiff_t w = row.width;
    for (; c + n - 1 <= row.c_last; c += n) {
        const T* s = row.s + c;
        store(row.d + c, mean4(load<V>(s), load<V>(s + 1), load<V>(s + w), load<V>(s + w + 1)));
    }
    return c;
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
    return for_stride(row.stride, c, [&]<int P>() {
        const Bytes green = green_lanes<Bytes>(row, c);
        for (; c + kLanes - 1 <= row.c_last; c += kLanes) {
            const Planes<Bytes> p = bilinear_block(row, c, green);
            store_pixels<P>(row.d + std::ptrdiff_t(c) * P, p.blue, p.green, p.red, row.white);
        }
        return c;
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
        const Bytes green = green_lanes<Bytes>(row, first);
        int x = first;
        for (; x + kLanes - 1 <= last; x += kLanes) {
            const Planes<Bytes> p = edge_sensing_block(row, rule, x, green);
            store_pixels<P>(row.d + std::ptrdiff_t(x) * P, p.blue, p.green, p.red, row.white);
        }
        return x;
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

QZRCFA_INLINE Wide wide_at(const uint8_t* p) { return widen(load<Bytes>(p)); }

// Last red or blue column of the row's range. Blocks end there, so that no load
// reaches further than the reference's last red or blue site reads.
QZRCFA_INLINE int last_colour_column(const Row<uint8_t>& row) {
    return row.phase.green_at(row.c_last) ? row.c_last - 1 : row.c_last;
}

int laplacian_green_wide(const Row<uint8_t>& row, const LaplacianParams&, int c) {
    // The last two rows of the frame (the displaced pass) read past its end.
    if (row.r + 2 >= row.height) return c;
    return for_stride(row.stride, c, [&]<int P>() {
        const int parity = row.phase.green_at(c) ? 1 : 0;  // lanes of red and blue sites
        const Wide colour = parity_lanes<Wide>(parity);
        const Bytes colour8 = parity_lanes<Bytes>(parity);
        const Bytes all = ~Bytes{};
        const bool red = row.phase.colour == kRed;
        // G everywhere; the sample into its own colour and, in red rows, into B as well.
        const PixelMask<P> mask = pixel_mask<P>(colour8, all, red ? colour8 : Bytes{});
        const std::ptrdiff_t w = row.width;
        const int end = last_colour_column(row);
        for (; c + kLanes - 1 <= end; c += kLanes) {
            const uint8_t* s = row.s + c;
            const Bytes x8 = load<Bytes>(s);
            const Wide x = widen(x8);
            const Wide left = wide_at(s - 1), right = wide_at(s + 1);
            const Wide up = wide_at(s - w), down = wide_at(s + w);
            const Wide dh = x + x - wide_at(s - 2) - wide_at(s + 2);
            const Wide dv = x + x - wide_at(s - 2 * w) - wide_at(s + 2 * w);
            const Wide h = absolute(left - right) + absolute(dh);
            const Wide v = absolute(up - down) + absolute(dv);
            const Wide g = pick(h, v, divide_pow2<2>(dh) + ((left + right) >> 1), divide_pow2<2>(dv) + ((up + down) >> 1),
                                divide_pow2<3>(dh + dv) + ((left + right + up + down) >> 2));
            const Bytes g8 = narrow(select(colour, g, x));
            uint8_t* out = row.d + std::ptrdiff_t(c) * P;
            if (row.white) {
                const Bytes own = select(colour8, x8, all);
                store_pixels<P>(out, own, g8, red ? own : all, true);
            } else {
                store_masked<P>(out, x8, g8, x8, mask);
            }
        }
        return c;
    });
}

int laplacian_colour_wide(const Row<uint8_t>& row, const LaplacianParams& params, int c) {
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
        const int end = last_colour_column(row);
        for (; c + kLanes - 1 <= end; c += kLanes) {
            const uint8_t* s = row.s + c;
            uint8_t* px = row.d + std::ptrdiff_t(c) * P;
            const Wide left = wide_at(s - 1), right = wide_at(s + 1);
            const Wide up = wide_at(s - w), down = wide_at(s + w);
            const Wide ul = wide_at(s - w - 1), ur = wide_at(s - w + 1);
            const Wide ll = wide_at(s + w - 1), lr = wide_at(s + w + 1);
            // Greens at fixed three-byte spacing from the pixels above and below.
            const Wide g = widen(gather<P>(px + kGreen));
            const Wide d1 = g + g - widen(gather<P>(px + upper - 2)) - widen(gather<P>(px + lower + 4));
            const Wide d2 = g + g - widen(gather<P>(px + upper + 4)) - widen(gather<P>(px + lower - 2));
            const Wide e1 = absolute(ul - lr) + absolute(d1);
            const Wide e2 = absolute(ur - ll) + absolute(d2);
            const Wide v = pick(e1, e2, divide_pow2<1>(ul + lr + d1), divide_pow2<1>(ur + ll + d2),
                                divide_pow2<2>(ul + lr + ur + ll + d1 + d2));
            const Bytes own = narrow((left + right) >> 1);
            const Bytes other = narrow(select(colour, v, (up + down) >> 1));
            store_masked<P>(px, red ? other : own, Bytes{}, red ? own : other, mask);
        }
        return c;
    });
}

// ---------------------------------------------------------------------------------
// Smooth hue.

int smooth_hue_green_wide(const Row<uint8_t>& row, const SmoothHueRule&, int c) {
    return for_stride(row.stride, c, [&]<int P>() {
        const Bytes green = green_lanes<Bytes>(row, c);
        const PixelMask<P> mask = pixel_mask<P>(Bytes{}, ~Bytes{}, Bytes{});
        const std::ptrdiff_t w = row.width;
        for (; c + kLanes - 1 <= row.c_last; c += kLanes) {
            const uint8_t* s = row.s + c;
            const Bytes g = select(green, load<Bytes>(s), mean4(load<Bytes>(s + 1), load<Bytes>(s - 1), load<Bytes>(s - w), load<Bytes>(s + w)));
            store_masked<P>(row.d + std::ptrdiff_t(c) * P, Bytes{}, g, Bytes{}, mask);
        }
        return c;
    });
}

// The colour pass works on the two column parities of a block apart, each in
// single-precision lanes: one parity's pixels share their site, so each lane computes
// exactly its site's four quotients. IEEE single division and each addition and
// multiplication round as the reference's scalar operations do, in the same order.
typedef float Floats __attribute__((vector_size(kLanes * 2)));  // kLanes / 2 lanes
typedef std::int32_t Ints __attribute__((vector_size(kLanes * 2)));
typedef std::uint8_t Half __attribute__((vector_size(kLanes / 2)));

template <std::size_t... I>
QZRCFA_INLINE Half parity_bytes(const Bytes& v, int parity, std::index_sequence<I...>) {
    return parity == 0 ? __builtin_shufflevector(v, v, (2 * I)...) : __builtin_shufflevector(v, v, (2 * I + 1)...);
}

QZRCFA_INLINE Floats floats(const Bytes& v, int parity) {
    return __builtin_convertvector(parity_bytes(v, parity, std::make_index_sequence<kLanes / 2>()), Floats);
}

// A plane of bytes from the values of its even and odd lanes.
template <std::size_t... I>
QZRCFA_INLINE Bytes join_parities(const Half& even, const Half& odd, std::index_sequence<I...>) {
    return __builtin_shufflevector(even, odd, ((I & 1) ? kLanes / 2 + I / 2 : I / 2)...);
}

// Lanes j >= 1 take lane j - 1 of v, lane 0 lane 0 of `first`.
template <std::size_t... I>
QZRCFA_INLINE Bytes shift_in(const Bytes& first, const Bytes& v, std::index_sequence<I...>) {
    return __builtin_shufflevector(first, v, (I == 0 ? 0 : kLanes + I - 1)...);
}

// The saturating conversion to integers in 0 .. 255, never converting an infinity or a
// NaN: `x <= 255` is false for both, so they take 255 first, and the greater-than form
// then sends NaN to 0.
QZRCFA_INLINE Half to_bytes(const Floats& x, Saturation form) {
    Floats y = select_bits(x <= 255.0f, x, Floats{} + 255.0f);
    if (form == Saturation::GreaterThan) y = select_bits(x != x, Floats{}, y);
    return __builtin_convertvector(__builtin_convertvector(y, Ints), Half);
}

// The bytes a block reads from one output row: for pixel c, the byte two before it (its
// left byte), its green and the byte four after it (its right byte).
template <int P>
struct RowBytes {
    Bytes left, green, right;
    QZRCFA_INLINE explicit RowBytes(const uint8_t* px)
        : left(gather<P>(px - 2)), green(gather<P>(px + kGreen)), right(gather<P>(px + 4)) {}
};

int smooth_hue_colour_wide(const Row<uint8_t>& row, const SmoothHueRule& rule, int c) {
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
        const auto halves = std::make_index_sequence<kLanes / 2>();
        const auto lanes = std::make_index_sequence<kLanes>();
        const std::ptrdiff_t w = row.width;
        for (; c + kLanes - 1 <= row.c_last; c += kLanes) {
            uint8_t* px = row.d + std::ptrdiff_t(c) * P;
            const uint8_t* s = row.s + c;
            const RowBytes<P> above(px + row.up), here(px), below(px + row.down);
            const Bytes up_left = load<Bytes>(s - w - 1), up = load<Bytes>(s - w), up_right = load<Bytes>(s - w + 1);
            const Bytes left = load<Bytes>(s - 1), mid = load<Bytes>(s), right = load<Bytes>(s + 1);
            const Bytes down_left = load<Bytes>(s + w - 1), down = load<Bytes>(s + w), down_right = load<Bytes>(s + w + 1);
            Half blue[2] = {}, red[2] = {};
            for (int k = 0; k < 2; ++k) {
                if (k == green) continue;
                const Floats sum = ((floats(up_left, k) / floats(above.left, k) + floats(up_right, k) / floats(above.right, k)) +
                                    floats(down_left, k) / floats(below.left, k)) +
                                   floats(down_right, k) / floats(below.right, k);
                const Half estimate = to_bytes(sum * (floats(here.green, k) * 0.25f), form);
                const Half own = parity_bytes(mid, k, halves);
                blue[k] = site[k] == Site::Red ? estimate : own;
                red[k] = site[k] == Site::Red ? own : estimate;
            }
            if (green >= 0) {
                const int k = green;
                // The left byte of a four-byte pixel is the red element of the pixel
                // before, which the colour sites of this block have just computed.
                Bytes left_bytes = here.left;
                if (P == 4) left_bytes = shift_in(here.left, join_parities(red[0], red[1], lanes), lanes);
                const Floats half_g = floats(here.green, k) * 0.5f;
                const Half vertical = to_bytes((floats(up, k) / floats(above.green, k) + floats(down, k) / floats(below.green, k)) * half_g, form);
                const Half horizontal = to_bytes((floats(left, k) / floats(left_bytes, k) + floats(right, k) / floats(here.right, k)) * half_g, form);
                blue[k] = site[k] == Site::GreenOnRed ? vertical : horizontal;
                red[k] = site[k] == Site::GreenOnRed ? horizontal : vertical;
            }
            store_masked<P>(px, join_parities(blue[0], blue[1], lanes), Bytes{}, join_parities(red[0], red[1], lanes), mask);
        }
        return c;
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
