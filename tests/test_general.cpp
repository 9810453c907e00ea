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
