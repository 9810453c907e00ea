// Every method's general rule, through the extended library's C interface.
//
// What holds it to the interface: for an 8-bit mosaic m and the 16-bit mosaic m * 2^k
// (bits 8 + k), each method's result divided by 2^k equals the 8-bit export's (24-bit)
// on every pixel where that member follows the rule: exactly for the methods whose
// rule truncates once (bilinear, edge sensing; nearest neighbour against the 16-bit
// members, whose form the rule is), within 1 where the 8-bit rule truncates two terms
// separately (the Laplacian) or a ratio of truncated greens rounds otherwise (smooth
// hue). The pixels compared lie a margin inside the frame, where no read reaches the
// members' border fill. Then what any rule must give: results within 0 .. 2^bits - 1,
// bottom-up the rows of top-down, 8-bit elements the 16-bit ones rounded, padded rows
// the values of rows back to back (the members' too), and any size that fits in memory.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "model.h"
#include "qzrcfa_ext.h"

namespace {

struct Request {
    qzrcfa_request q = QZRCFA_REQUEST_INIT;
    std::string why;
    int run() {
        char message[256];
        const int status = qzrcfa_demosaic(&q, message, sizeof message);
        why = message;
        return status;
    }
};

template <class T>
Request request(const std::vector<T>& raw, int w, int h, std::vector<std::uint8_t>& out, int method, int format,
                int output_depth = 0) {
    Request r;
    r.q.samples = raw.data();
    r.q.samples_bytes = raw.size() * sizeof(T);
    r.q.width = w;
    r.q.height = h;
    r.q.depth = 8 * sizeof(T);
    r.q.output_depth = output_depth;
    r.q.method = method;
    r.q.format = format;
    r.q.threads = 1;
    r.q.rule = QZRCFA_RULE_GENERAL;
    r.q.output_bytes = qzrcfa_output_bytes(&r.q);
    out.assign(r.q.output_bytes, 0xA5);
    r.q.output = out.data();
    return r;
}

template <class T>
std::vector<T> random_mosaic(int w, int h, unsigned max, std::uint32_t seed) {
    std::mt19937 rng(seed);
    std::vector<T> v(std::size_t(w) * std::size_t(h));
    for (T& x : v) x = T(rng() % (max + 1));
    return v;
}

// The bundled sample: a 512 x 512 RGGB mosaic of a photograph.
std::vector<std::uint8_t> photo(int& w, int& h) {
    std::ifstream in(QZRCFA_SAMPLES "/astronaut-rggb.pgm", std::ios::binary);
    std::string magic;
    int maxval = 0;
    in >> magic >> w >> h >> maxval;
    in.get();
    std::vector<std::uint8_t> m(std::size_t(w) * std::size_t(h));
    in.read(reinterpret_cast<char*>(m.data()), std::streamsize(m.size()));
    return m;
}

// Each row: the method, the RGGB (top-down, 24-bit) export that holds it, how far inside
// the frame the comparison starts, and how far the results may differ: the green
// element everywhere, the other two at green sites, and at red and blue sites in every
// pixel or, where a ratio or a choice between directions turns on values the 8-bit rule
// truncated, in a share of the pixels of the photograph (random samples meet those
// turns too often to bound).
struct Holds {
    int method;
    const char* member;
    int margin;
    int tolerance;
    double share;         // of the photograph's red and blue elements (below) within the tolerance
    bool green_sites;     // the red and blue elements of green sites are among them too
};

const Holds kHolds[] = {
    {QZRCFA_METHOD_BILINEAR, "QZRCFA_Bilinear_RGGB", 1, 0, 1.0, false},
    {QZRCFA_METHOD_EDGE_SENSING_2, "QZRCFA_EdgeSensing2_RGGB", 1, 0, 1.0, false},
    {QZRCFA_METHOD_EDGE_SENSING_1, "QZRCFA_EdgeSensing1_GRBG", 1, 0, 1.0, false},  // its RGGB member runs method 2
    // The red/blue pass reads greens of rows and columns 2 .. size - 3; at red and blue
    // sites the diagonal it takes turns on second differences of greens.
    {QZRCFA_METHOD_LAPLACIAN, "QZRCFA_Laplacian_RGGB", 3, 1, 0.97, false},
    {QZRCFA_METHOD_LAPLACIAN_2, "QZRCFA_Laplacian_RGGB", 3, 1, 0.97, false},  // its one difference is its member's displacement
    // Every red and blue element: ratios of the neighbours' colours to their greens,
    // which the 8-bit rule truncated.
    {QZRCFA_METHOD_SMOOTH_HUE, "QZRCFA_SmoothHue_RGGB", 2, 1, 0.95, true},
};

int pattern_of(const char* member) {
    const std::string n(member);
    return n.find("GRBG") != std::string::npos ? QZRCFA_PATTERN_GRBG : QZRCFA_PATTERN_RGGB;
}

TEST(General, HoldsToTheMembersWhereTheyFollowIt) {
    int pw = 0, ph = 0;
    const std::vector<std::uint8_t> picture = photo(pw, ph);
    ASSERT_EQ(picture.size(), std::size_t(512 * 512));
    for (const Holds& t : kHolds)
        for (const int bits : {16, 12, 9})
            for (const unsigned range : {255u, 3u, 256u}) {  // 256: the photograph
                SCOPED_TRACE(std::string(t.member) + " bits " + std::to_string(bits) + " samples " + std::to_string(range));
                const bool real = range == 256;
                const int w = real ? pw : 70, h = real ? ph : 23;  // every remainder of the vector blocks, and a tail
                const std::vector<std::uint8_t> m = real ? picture : random_mosaic<std::uint8_t>(w, h, range, std::uint32_t(bits * 7 + range));
                std::vector<std::uint8_t> want(std::size_t(w) * h * 3);
                std::vector<std::uint8_t> raw8 = m;
                qzrcfa::model::call(*qzrcfa::model::find(t.member), raw8.data(), w, h, want.data(), 24);
                std::vector<std::uint16_t> m16(m.size());
                for (std::size_t i = 0; i < m.size(); ++i) m16[i] = std::uint16_t(m[i] << (bits - 8));
                std::vector<std::uint8_t> got;
                Request r = request(m16, w, h, got, t.method, QZRCFA_FORMAT_BGR24);
                r.q.bits = bits;
                r.q.pattern = pattern_of(t.member);
                ASSERT_EQ(r.run(), 0) << r.why;
                const auto* g = reinterpret_cast<const std::uint16_t*>(got.data());
                std::size_t colour = 0, colour_within = 0;
                for (int y = 0; y < h; ++y)
                    for (int x = 0; x < w * 3; ++x) {
                        const int v = g[y * w * 3 + x];
                        ASSERT_LT(v, 1 << bits) << "at " << y << "," << x / 3;
                        if (y < t.margin || y >= h - t.margin || x / 3 < t.margin || x / 3 >= w - t.margin) continue;
                        const bool green_site = ((y ^ (x / 3)) & 1) != (r.q.pattern == QZRCFA_PATTERN_GRBG ? 1 : 0);
                        const bool within = std::abs((v >> (bits - 8)) - want[std::size_t(y * w * 3 + x)]) <= t.tolerance;
                        if (x % 3 == 1 || (green_site && !t.green_sites) || t.share == 1.0) {
                            ASSERT_TRUE(within) << "at " << y << "," << x / 3 << " element " << x % 3;
                        } else {
                            ++colour;
                            colour_within += within;
                        }
                    }
                if (real && colour) {
                    EXPECT_GE(double(colour_within) / double(colour), t.share);
                }
            }
}

// Nearest neighbour's rule is the form every 16-bit member takes: the interiors agree.
TEST(General, NearestIsTheSixteenBitMembersForm) {
    const int w = 37, h = 9;
    for (const char* p : {"RGGB", "BGGR", "GRBG", "GBRG"}) {
        std::vector<std::uint16_t> m = random_mosaic<std::uint16_t>(w, h, 65535, 3);
        std::vector<std::uint16_t> want(std::size_t(w) * h * 3);
        qzrcfa::model::call(*qzrcfa::model::find(std::string("QZRCFA_NearestNeighbor_") + p + "_16Bits"), m.data(), w, h,
                            want.data(), 24);
        std::vector<std::uint8_t> got;
        Request r = request(m, w, h, got, QZRCFA_METHOD_NEAREST, QZRCFA_FORMAT_BGR24);
        r.q.pattern = qzrcfa_lookup(QZRCFA_NAMES_PATTERN, p);
        ASSERT_EQ(r.run(), 0) << r.why;
        const auto* g = reinterpret_cast<const std::uint16_t*>(got.data());
        for (int y = 1; y < h - 1; ++y)
            for (int x = 3; x < (w - 1) * 3; ++x) {
                ASSERT_EQ(g[y * w * 3 + x], want[std::size_t(y * w * 3 + x)]) << p << " " << y << "," << x / 3;
            }
        // Fewer significant bits: the default is the general rule, which takes larger
        // values as the largest (the member would copy them).
        r.q.rule = QZRCFA_RULE_DEFAULT;
        r.q.bits = 12;
        ASSERT_EQ(r.run(), 0) << r.why;
        EXPECT_EQ(*std::max_element(g, g + std::size_t(w) * h * 3), 4095) << p;
    }
}

// Every method, pattern and order: bottom-up is top-down upside down; 8-bit elements are
// the 16-bit ones rounded; four elements are three and the largest value; threads change
// nothing; padded rows change nothing.
TEST(General, OrdersElementsThreadsAndPaddingChangeNothingButTheLayout) {
    const int w = 41, h = 133;  // enough rows for several bands
    const std::vector<std::uint16_t> m = random_mosaic<std::uint16_t>(w, h, 4095, 9);
    std::mt19937 rng(2);
    for (int method = QZRCFA_METHOD_NEAREST; method <= QZRCFA_METHOD_SMOOTH_HUE; ++method)
        for (int pattern = 0; pattern < 4; ++pattern) {
            SCOPED_TRACE("method " + std::to_string(method) + " pattern " + std::to_string(pattern));
            auto run = [&](int order, int format, int output_depth, int threads) {
                std::vector<std::uint8_t> out;
                Request r = request(m, w, h, out, method, format, output_depth);
                r.q.bits = 12;
                r.q.pattern = pattern;
                r.q.order = order;
                r.q.threads = threads;
                EXPECT_EQ(r.run(), 0) << r.why;
                return out;
            };
            const std::vector<std::uint8_t> top = run(QZRCFA_ORDER_TOP_DOWN, QZRCFA_FORMAT_BGR24, 16, 1);
            const std::vector<std::uint8_t> bottom = run(QZRCFA_ORDER_BOTTOM_UP, QZRCFA_FORMAT_BGR24, 16, 1);
            const std::vector<std::uint8_t> four = run(QZRCFA_ORDER_TOP_DOWN, QZRCFA_FORMAT_BGRA32, 16, 3);
            const std::vector<std::uint8_t> eight = run(QZRCFA_ORDER_TOP_DOWN, QZRCFA_FORMAT_BGR24, 8, 0);
            const std::size_t row = std::size_t(w) * 6;
            for (int y = 0; y < h; ++y) {
                ASSERT_EQ(0, std::memcmp(&top[y * row], &bottom[(h - 1 - y) * row], row)) << "row " << y;
                for (int x = 0; x < w; ++x)
                    for (int e = 0; e < 4; ++e) {
                        std::uint16_t t = 4095, f;
                        if (e < 3) std::memcpy(&t, &top[y * row + std::size_t(x * 3 + e) * 2], 2);
                        std::memcpy(&f, &four[(std::size_t(y) * w + x) * 8 + std::size_t(e) * 2], 2);
                        ASSERT_EQ(f, t) << y << "," << x << " element " << e;
                        if (e < 3) {
                            ASSERT_EQ(eight[(std::size_t(y) * w + x) * 3 + std::size_t(e)], (t * 510 + 4095) / 8190);
                        }
                    }
            }
            // Padded rows: the same values, and nothing written between the rows.
            const std::ptrdiff_t in_pad = 2 * std::ptrdiff_t(rng() % 40), out_pad = 2 * std::ptrdiff_t(rng() % 40);
            const std::ptrdiff_t in_stride = 2 * w + in_pad, out_stride = std::ptrdiff_t(row) + out_pad;
            std::vector<std::uint8_t> padded_in(std::size_t(in_stride) * h), padded_out(std::size_t(out_stride) * h, 0x5C);
            for (int y = 0; y < h; ++y) std::memcpy(&padded_in[std::size_t(y * in_stride)], &m[std::size_t(y) * w], 2 * std::size_t(w));
            std::vector<std::uint8_t> unused;
            Request r = request(m, w, h, unused, method, QZRCFA_FORMAT_BGR24, 16);
            r.q.samples = padded_in.data(), r.q.samples_bytes = padded_in.size(), r.q.samples_stride = in_stride;
            r.q.output = padded_out.data(), r.q.output_bytes = padded_out.size(), r.q.output_stride = out_stride;
            r.q.bits = 12, r.q.pattern = pattern, r.q.threads = 2;
            ASSERT_EQ(r.run(), 0) << r.why;
            for (int y = 0; y < h; ++y) {
                ASSERT_EQ(0, std::memcmp(&padded_out[std::size_t(y * out_stride)], &top[y * row], row)) << "padded row " << y;
                for (std::ptrdiff_t i = std::ptrdiff_t(row); i < out_stride; ++i) ASSERT_EQ(padded_out[std::size_t(y * out_stride + i)], 0x5C);
            }
        }
}

// A frame above the interface's 2^31-byte limit: 12000 x 9000 to 16-bit BGRA is 864 MB.
TEST(General, TakesAnyFrameThatFitsInMemory) {
    const int w = 12000, h = 9000;
    std::vector<std::uint16_t> m(std::size_t(w) * h);
    for (std::size_t i = 0; i < m.size(); ++i) m[i] = std::uint16_t((i % 7919) * 8);
    std::vector<std::uint8_t> out;
    Request r = request(m, w, h, out, QZRCFA_METHOD_BILINEAR, QZRCFA_FORMAT_BGRA32);
    r.q.threads = 0;
    ASSERT_EQ(r.q.output_bytes, std::size_t(w) * h * 8);
    ASSERT_EQ(r.run(), 0) << r.why;
    // The last pixel: a blue site of RGGB, mirrored beyond the frame's corner.
    const std::size_t last = std::size_t(w) * h - 1;
    const auto* px = reinterpret_cast<const std::uint16_t*>(out.data()) + last * 4;
    EXPECT_EQ(px[0], m[last]);
    EXPECT_EQ(px[2], m[last - w - 1]);  // the four diagonals mirror onto the one inside
    EXPECT_EQ(px[3], 65535);
}

}  // namespace

namespace {

// Packs 16-bit samples of `bits` bits into a row of the packing, from the layouts'
// published descriptions; padding after each row.
std::vector<std::uint8_t> pack(const std::vector<std::uint16_t>& m, int w, int h, int packing, std::size_t pad) {
    const std::size_t groups4 = std::size_t(w + 3) / 4, groups2 = std::size_t(w + 1) / 2;
    std::size_t row = 0;
    switch (packing) {
    case QZRCFA_PACKING_RAW10: row = groups4 * 5; break;
    case QZRCFA_PACKING_RAW12:
    case QZRCFA_PACKING_PACKED12: row = groups2 * 3; break;
    case QZRCFA_PACKING_P10: row = (std::size_t(w) * 10 + 7) / 8; break;
    case QZRCFA_PACKING_P12: row = (std::size_t(w) * 12 + 7) / 8; break;
    }
    const std::size_t stride = row + pad;
    std::vector<std::uint8_t> out(stride * std::size_t(h), 0xEE);
    for (int y = 0; y < h; ++y) {
        std::uint8_t* r = &out[std::size_t(y) * stride];
        std::fill_n(r, row, 0);
        auto s = [&](int x) -> unsigned { return x < w ? m[std::size_t(y) * w + x] : 0; };
        for (int x = 0; x < w; ++x) {
            const unsigned v = s(x);
            switch (packing) {
            case QZRCFA_PACKING_RAW10:  // bytes 0-3: bits 9..2; byte 4: bits 1..0, sample 0 lowest
                r[x / 4 * 5 + x % 4] = std::uint8_t(v >> 2);
                r[x / 4 * 5 + 4] |= std::uint8_t((v & 3) << (2 * (x % 4)));
                break;
            case QZRCFA_PACKING_RAW12:  // bytes 0-1: bits 11..4; byte 2: bits 3..0, sample 0 low nibble
                r[x / 2 * 3 + x % 2] = std::uint8_t(v >> 4);
                r[x / 2 * 3 + 2] |= std::uint8_t((v & 15) << (4 * (x % 2)));
                break;
            case QZRCFA_PACKING_P10:  // a little-endian bit stream, least significant bit first
            case QZRCFA_PACKING_P12: {
                const int bits = packing == QZRCFA_PACKING_P10 ? 10 : 12;
                for (int b = 0; b < bits; ++b)
                    if (v >> b & 1) r[(std::size_t(x) * bits + b) / 8] |= std::uint8_t(1 << ((std::size_t(x) * bits + b) % 8));
                break;
            }
            case QZRCFA_PACKING_PACKED12:  // bits 11..4 of 0; low nibbles of 0 and 1; bits 11..4 of 1
                r[x / 2 * 3 + (x % 2 ? 2 : 0)] = std::uint8_t(v >> 4);
                r[x / 2 * 3 + 1] |= std::uint8_t((v & 15) << (x % 2 ? 4 : 0));
                break;
            }
        }
    }
    return out;
}

// A colour picture of 16-bit elements from a request with everything but `with` set.
template <class Setup>
std::vector<std::uint8_t> picture(const std::vector<std::uint16_t>& m, int w, int h, int method, int bits, Setup with) {
    std::vector<std::uint8_t> out;
    Request r = request(m, w, h, out, method, QZRCFA_FORMAT_BGR24);
    r.q.bits = bits;
    r.q.threads = 2;
    with(r.q);
    r.q.output_bytes = qzrcfa_output_bytes(&r.q);
    out.assign(r.q.output_bytes, 0x77);
    r.q.output = out.data();
    EXPECT_EQ(r.run(), 0) << r.why;
    return out;
}

// Every packing gives the bytes of its samples unpacked, rows ending inside a packing
// group and padded rows included.
TEST(General, PackedRowsGiveTheBytesOfTheirSamples) {
    for (const int packing : {QZRCFA_PACKING_RAW10, QZRCFA_PACKING_RAW12, QZRCFA_PACKING_P10, QZRCFA_PACKING_P12,
                              QZRCFA_PACKING_PACKED12})
        for (const int w : {37, 38, 39, 40, 133})
            for (const int method : {QZRCFA_METHOD_BILINEAR, QZRCFA_METHOD_LAPLACIAN, QZRCFA_METHOD_GBRI}) {
                const int bits = packing == QZRCFA_PACKING_RAW10 || packing == QZRCFA_PACKING_P10 ? 10 : 12;
                const int h = 9;
                const std::vector<std::uint16_t> m = random_mosaic<std::uint16_t>(w, h, (1u << bits) - 1, std::uint32_t(w + packing));
                const std::vector<std::uint8_t> packed = pack(m, w, h, packing, std::size_t(w % 3));
                const std::vector<std::uint8_t> want = picture(m, w, h, method, bits, [](qzrcfa_request&) {});
                const std::vector<std::uint8_t> got = picture(m, w, h, method, 0, [&](qzrcfa_request& q) {
                    q.samples = packed.data(), q.samples_bytes = packed.size(), q.packing = packing, q.depth = 0;
                    q.samples_stride = std::ptrdiff_t(packed.size() / std::size_t(h));
                });
                EXPECT_EQ(got, want) << "packing " << packing << " width " << w << " method " << method;
            }
}

// Black level and gains: the bytes of the frame balanced by the formula, clamped at
// both ends; black level 0 and gains 1 change nothing. A colour matrix and a curve:
// what the formula gives from the linear output; the identity and the linear curve
// change nothing.
TEST(General, BlackLevelGainsMatrixAndCurveFollowTheirFormulas) {
    const int w = 70, h = 11, bits = 12, max = 4095;
    const std::vector<std::uint16_t> m = random_mosaic<std::uint16_t>(w, h, max, 4);
    const int black[4] = {200, 180, 190, 600};
    const float gains[3] = {2.5f, 1.0f, 1.75f};  // red, green, blue
    std::vector<std::uint16_t> balanced(m.size());
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {  // RGGB: red at (even, even), blue at (odd, odd)
            const float gain = (y & 1) == 0 && (x & 1) == 0 ? gains[0] : (y & 1) && (x & 1) ? gains[2] : gains[1];
            const float v = (float(m[std::size_t(y * w + x)]) - float(black[(y & 1) * 2 + (x & 1)])) * gain + 0.5f;
            balanced[std::size_t(y * w + x)] = std::uint16_t(v < 0 ? 0 : v > max ? max : int(v));
        }
    for (int method = QZRCFA_METHOD_NEAREST; method <= QZRCFA_METHOD_GBRI; ++method) {
        SCOPED_TRACE("method " + std::to_string(method));
        const std::vector<std::uint8_t> plain = picture(m, w, h, method, bits, [](qzrcfa_request&) {});
        EXPECT_EQ(picture(balanced, w, h, method, bits, [](qzrcfa_request&) {}),
                  picture(m, w, h, method, bits, [&](qzrcfa_request& q) {
                      std::copy_n(black, 4, q.black);
                      std::copy_n(gains, 3, q.gains);
                  }));
        EXPECT_EQ(plain, picture(m, w, h, method, bits, [](qzrcfa_request& q) { q.gains[0] = q.gains[1] = q.gains[2] = 1; }));
        EXPECT_EQ(plain, picture(m, w, h, method, bits, [](qzrcfa_request& q) { q.matrix[0] = q.matrix[4] = q.matrix[8] = 1; }));
        // A matrix and the sRGB curve, to 8-bit elements.
        const float matrix[9] = {1.6f, -0.4f, -0.2f, -0.25f, 1.5f, -0.25f, 0.05f, -0.6f, 1.55f};
        std::vector<std::uint8_t> display = picture(m, w, h, method, bits, [&](qzrcfa_request& q) {
            std::copy_n(matrix, 9, q.matrix);
            q.curve = QZRCFA_CURVE_SRGB, q.output_depth = 8;
        });
        ASSERT_EQ(display.size(), std::size_t(w * h * 3));
        const auto* linear = reinterpret_cast<const std::uint16_t*>(plain.data());
        for (std::size_t i = 0; i < display.size(); i += 3) {
            const float camera[3] = {float(linear[i + 2]), float(linear[i + 1]), float(linear[i])};  // red, green, blue
            for (int out = 0; out < 3; ++out) {
                const float c = (matrix[3 * out] * camera[0] + matrix[3 * out + 1] * camera[1]) + matrix[3 * out + 2] * camera[2] + 0.5f;
                const double x = double(c < 1 ? 0 : c >= max ? max : int(c)) / max;
                const double s = x <= 0.0031308 ? 12.92 * x : 1.055 * std::pow(x, 1 / 2.4) - 0.055;
                ASSERT_EQ(display[i + std::size_t(2 - out)], int(std::floor(s * 255 + 0.5))) << "pixel " << i / 3 << " colour " << out;
            }
        }
    }
}

// gbri, which reads its frame as it is, takes the same frame through the camera's route
// (unpacked, balanced, stored as asked) with the same elements: black level 0 and gains
// 1 change nothing, and 8-bit elements are its 16-bit ones rounded.
TEST(General, GbriTakesCameraFramesWithTheElementsOfItsOwnFrames) {
    const int w = 46, h = 12;
    const std::vector<std::uint16_t> m = random_mosaic<std::uint16_t>(w, h, 65535, 6);
    const std::vector<std::uint8_t> plain = picture(m, w, h, QZRCFA_METHOD_GBRI, 0, [](qzrcfa_request&) {});
    EXPECT_EQ(plain, picture(m, w, h, QZRCFA_METHOD_GBRI, 0, [](qzrcfa_request& q) { q.gains[0] = q.gains[1] = q.gains[2] = 1; }));
    const std::vector<std::uint8_t> eight =
        picture(m, w, h, QZRCFA_METHOD_GBRI, 0, [](qzrcfa_request& q) { q.output_depth = 8; });
    const auto* wide = reinterpret_cast<const std::uint16_t*>(plain.data());
    for (std::size_t i = 0; i < eight.size(); ++i) ASSERT_EQ(eight[i], (wide[i] * 510 + 65535) / (2 * 65535)) << i;
}

TEST(General, AutomaticWhiteBalanceIsGreyWorldAndSaysWhatItUsed) {
    const int w = 64, h = 32;
    std::vector<std::uint16_t> m(std::size_t(w * h));
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)  // RGGB: red 1000, blue 500, green 2000, some green saturated
            m[std::size_t(y * w + x)] = std::uint16_t((y & 1) == 0 && (x & 1) == 0 ? 1000 : (y & 1) && (x & 1) ? 500 : x == 1 ? 4095 : 2000);
    float used[3] = {};
    const std::vector<std::uint8_t> got = picture(m, w, h, QZRCFA_METHOD_BILINEAR, 12, [&](qzrcfa_request& q) {
        q.white_balance = QZRCFA_WHITE_BALANCE_AUTO, q.gains_used = used;
    });
    EXPECT_FLOAT_EQ(used[0], 2.0f);
    EXPECT_FLOAT_EQ(used[1], 1.0f);
    EXPECT_FLOAT_EQ(used[2], 4.0f);
    EXPECT_EQ(got, picture(m, w, h, QZRCFA_METHOD_BILINEAR, 12, [&](qzrcfa_request& q) { std::copy_n(used, 3, q.gains); }));
    std::vector<std::uint8_t> out;
    Request r = request(m, w, h, out, QZRCFA_METHOD_BILINEAR, QZRCFA_FORMAT_BGR24);
    float gains[3];
    char why[200];
    r.q.bits = 12;
    ASSERT_EQ(qzrcfa_auto_white_balance(&r.q, gains, why, sizeof why), 0) << why;
    EXPECT_FLOAT_EQ(gains[2], 4.0f);
    for (int y = 1; y < h; y += 2)  // only every fourth pair of rows is read
        for (int x = 1; x < w; x += 2) m[std::size_t(y * w + x)] = (y / 2) % 4 == 0 ? 500 : 100;
    ASSERT_EQ(qzrcfa_auto_white_balance(&r.q, gains, why, sizeof why), 0) << why;
    EXPECT_FLOAT_EQ(gains[2], 4.0f);
    for (int y = 1; y < h; y += 2)  // blue almost absent: at most the largest gain a request may give
        for (int x = 1; x < w; x += 2) m[std::size_t(y * w + x)] = 10;
    ASSERT_EQ(qzrcfa_auto_white_balance(&r.q, gains, why, sizeof why), 0) << why;
    EXPECT_FLOAT_EQ(gains[2], 64.0f);
    for (std::uint16_t& v : m) v = 4095;  // nothing unsaturated: refused, nothing written
    r.q.white_balance = QZRCFA_WHITE_BALANCE_AUTO;
    EXPECT_EQ(r.run(), -1);
    EXPECT_NE(r.why.find("no unsaturated sample"), std::string::npos) << r.why;
    EXPECT_EQ(std::count(out.begin(), out.end(), 0xA5), std::ptrdiff_t(out.size()));
}

}  // namespace

namespace {

// Bad requests of the second layout: one message each, nothing written.
TEST(General, BadPictureRequestsAreRefusedWithOneLine) {
    const int w = 10, h = 6;
    const std::vector<std::uint16_t> m = random_mosaic<std::uint16_t>(w, h, 4095, 1);
    const std::vector<std::uint8_t> packed = pack(m, w, h, QZRCFA_PACKING_RAW12, 0);
    struct Bad {
        const char* expect;
        void (*set)(qzrcfa_request& q, const std::vector<std::uint8_t>& packed);
    };
    const Bad kBad[] = {
        {"unknown packing (value 9", [](qzrcfa_request& q, auto&) { q.packing = 9; }},
        {"raw frame holds 89 bytes, 10x6 of raw12 rows needs 90", [](qzrcfa_request& q, auto& p) { q.packing = QZRCFA_PACKING_RAW12, q.samples = p.data(), q.samples_bytes = p.size() - 1; }},
        {"stride 14 is below a row's 15 bytes",
         [](qzrcfa_request& q, auto& p) { q.packing = QZRCFA_PACKING_RAW12, q.samples = p.data(), q.samples_stride = 14; }},
        {"bits 10 given with raw12", [](qzrcfa_request& q, auto&) { q.packing = QZRCFA_PACKING_RAW12, q.bits = 10; }},
        {"black level 4096 is outside 0..4095", [](qzrcfa_request& q, auto&) { q.black[3] = 4096; }},
        {"gain nan", [](qzrcfa_request& q, auto&) { q.gains[0] = 1, q.gains[1] = NAN, q.gains[2] = 1; }},
        {"gain 0.000000 is not a number above 0", [](qzrcfa_request& q, auto&) { q.gains[0] = 2; }},
        {"gain 65.000000", [](qzrcfa_request& q, auto&) { q.gains[0] = q.gains[1] = 1, q.gains[2] = 65; }},
        {"leave the gains 0", [](qzrcfa_request& q, auto&) { q.white_balance = QZRCFA_WHITE_BALANCE_AUTO, q.gains[1] = 1; }},
        {"colour matrix entry inf", [](qzrcfa_request& q, auto&) { q.matrix[4] = INFINITY; }},
        {"needs colour output", [](qzrcfa_request& q, auto&) { q.matrix[0] = 1, q.format = QZRCFA_FORMAT_GREY, q.method = QZRCFA_METHOD_NEAREST; }},
        {"gamma 0.000000 is not a number above 0", [](qzrcfa_request& q, auto&) { q.curve = QZRCFA_CURVE_GAMMA; }},
        {"a gamma goes with the gamma curve", [](qzrcfa_request& q, auto&) { q.gamma = 2.2f; }},
        {"run the general rule", [](qzrcfa_request& q, auto&) { q.curve = QZRCFA_CURVE_SRGB, q.rule = QZRCFA_RULE_MEMBER, q.method = QZRCFA_METHOD_NEAREST; }},
    };
    for (const Bad& b : kBad) {
        std::vector<std::uint8_t> out;
        Request r = request(m, w, h, out, QZRCFA_METHOD_BILINEAR, QZRCFA_FORMAT_BGR24);
        r.q.bits = 12;
        b.set(r.q, packed);
        if (r.q.packing) r.q.depth = 0, r.q.bits = r.q.bits == 10 ? 10 : 0;
        EXPECT_EQ(r.run(), -1) << b.expect;
        EXPECT_NE(r.why.find(b.expect), std::string::npos) << r.why;
        EXPECT_EQ(std::count(out.begin(), out.end(), 0xA5), std::ptrdiff_t(out.size())) << b.expect;
    }
}

}  // namespace
