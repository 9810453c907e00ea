// The checked C++ interface (qzrcfa.hpp): every combination with an export gives the
// bytes of a direct call of that export, its minimum size and output size; every kind
// of bad request is refused with one clear line and nothing written.
#include <gtest/gtest.h>

#include <random>
#include <limits>
#include <string>
#include <vector>

#include "model.h"
#include "qzrcfa.hpp"

namespace qzrcfa {
namespace {

using model::Family;
using model::Member;

// The request a member serves, read from its name; false for the border fills and the gate.
bool options_of(const Member& m, Options& o) {
    const std::pair<const char*, Method> kMethods[] = {
        {"QZRCFA_NearestNeighbor_", Method::NearestNeighbor}, {"QZRCFA_Bilinear_", Method::Bilinear},
        {"QZRCFA_EdgeSensing1_", Method::EdgeSensing1},       {"QZRCFA_EdgeSensing2_", Method::EdgeSensing2},
        {"QZRCFA_Laplacian_", Method::Laplacian},             {"QZRCFA_Laplacian2_", Method::Laplacian2},
        {"QZRCFA_SmoothHue_", Method::SmoothHue}};
    if (m.family == Family::Edge1 || m.family == Family::Edge2 || m.family == Family::Gate) return false;
    for (const auto& [prefix, method] : kMethods)
        if (std::string(m.name).starts_with(prefix)) o.method = method;
    const std::string p = m.pattern();
    o.pattern = p == "RGGB" ? Pattern::RGGB : p == "BGGR" ? Pattern::BGGR : p == "GRBG" ? Pattern::GRBG : Pattern::GBRG;
    o.order = m.flip() ? RowOrder::BottomUp : RowOrder::TopDown;
    o.format = m.family == Family::Grey ? Format::Grey : Format::Bgr24;
    return true;
}

// Runs the request through demosaic() and the export directly, on the same frame and
// the same prior output, and compares every element, slack included.
template <class T>
void expect_direct(const Member& m, const Options& o, int w, int h, std::size_t tail, std::size_t extra) {
    SCOPED_TRACE(std::string(m.name) + " bitCount " + std::to_string(int(o.format)) + " " + std::to_string(w) + "x" +
                 std::to_string(h));
    std::mt19937 rng(std::uint32_t(w * 131 + h));
    std::vector<T> raw(std::size_t(w * h) + extra);
    for (T& v : raw) v = T(rng());
    const std::size_t epp = o.format == Format::Grey ? 1 : std::size_t(o.format) / 8, need = std::size_t(w * h) * epp + tail;
    EXPECT_EQ(output_elements(w, h, o, sizeof(T) * 8), need);
    std::vector<T> api(need + extra + 32);
    for (T& v : api) v = T(rng());
    std::vector<T> direct = api;
    const Result r = demosaic(RawFrame(raw.data(), raw.size(), w, h), OutputImage(api.data() + 16, need + extra), o);
    ASSERT_TRUE(r.ok()) << r.message();
    EXPECT_EQ(model::call(m, raw.data(), w, h, direct.data() + 16, static_cast<unsigned short>(o.format)), 0);
    EXPECT_EQ(api, direct);
}

TEST(CheckedApi, EveryCombinationWithAnExportIsADirectCall) {
    int combinations = 0;
    for (const Member& m : model::kMembers) {
        Options o;
        if (!options_of(m, o)) continue;
        const int depth = m.wide() ? 16 : 8;
        const bool grey = o.format == Format::Grey;
        // Minimum sizes: 4 x 4 for the Laplacian family; grey 3 x 2 for the two-column
        // copy and 4 x 2 for the shuffle; 2 x 2 otherwise. Bottom-up 16-bit grey writes
        // two elements past the image.
        const Size min = grey ? Size{m.flags & model::kShuffle ? 4 : 3, 2} : m.family == Family::Laplacian ? Size{4, 4} : Size{2, 2};
        const std::size_t tail = grey && m.wide() && m.flip() ? 2 : 0;
        for (Format f : grey ? std::vector{Format::Grey} : std::vector{Format::Bgr24, Format::Bgra32}) {
            o.format = f;
            ++combinations;
            EXPECT_EQ(minimum_size(o, depth).width, min.width) << m.name;
            EXPECT_EQ(minimum_size(o, depth).height, min.height) << m.name;
            // Two rows of an odd width, except where the BGGR border fill would read a third.
            const int odd_rows = min.height > 2 || (o.pattern == Pattern::BGGR && !grey) ? 7 : 2;
            const int sizes[][2] = {{min.width, min.height}, {12, 10}, {11, 9}, {13, 6}, {13, odd_rows}};
            for (std::size_t i = 0; i < 5; ++i) {
                const std::size_t extra = i % 2 ? 3 : 0;  // views longer than needed are fine
                if (depth == 8) expect_direct<std::uint8_t>(m, o, sizes[i][0], sizes[i][1], tail, extra);
                else expect_direct<std::uint16_t>(m, o, sizes[i][0], sizes[i][1], tail, extra);
            }
            for (const Size below : {Size{min.width - 1, min.height}, Size{min.width, min.height - 1}}) {
                std::vector<std::uint16_t> raw(4096, 1), out(4096, 0xABCD);
                auto* raw8 = reinterpret_cast<std::uint8_t*>(raw.data());
                auto* out8 = reinterpret_cast<std::uint8_t*>(out.data());
                const Result r =
                    depth == 8 ? demosaic(RawFrame(raw8, 4096, below.width, below.height), OutputImage(out8, 4096), o)
                               : demosaic(RawFrame(raw.data(), 4096, below.width, below.height), OutputImage(out.data(), 4096), o);
                EXPECT_NE(r.message().find("minimum"), std::string::npos) << m.name << ": " << r.message();
                EXPECT_EQ(output_elements(below.width, below.height, o, depth), 0u) << m.name;
                EXPECT_EQ(out, std::vector<std::uint16_t>(4096, 0xABCD)) << m.name;
            }
        }
    }
    EXPECT_EQ(combinations, 43 * 2 + 8 * 2 + 16);  // 8-bit colour members, 16-bit ones, grey
    for (int side : {-1, 30000, std::numeric_limits<int>::max()}) EXPECT_EQ(output_elements(side, side, {}), 0u) << side;
}

// A bad request, and a word its message must hold. Buffers are sized for the request
// (then changed by the deltas), so that only the named fault remains.
struct Refusal {
    Options options;
    int depth, width, height;
    std::ptrdiff_t raw_delta, out_delta;
    const char* expect;
    bool no_member = false;  // nothing serves these options at any size
    int out_depth = 0;       // of the output view, when it differs
    int bits = 0;            // of the samples
    std::ptrdiff_t raw_pad = 0, out_pad = 0;  // bytes of padding after each row
    std::size_t misalign = 0;                 // bytes the views start past an element's alignment
};

constexpr auto NN = Method::NearestNeighbor;
constexpr auto TD = RowOrder::TopDown;
constexpr auto BU = RowOrder::BottomUp;
constexpr auto P = Pattern::RGGB;
constexpr auto B24 = Format::Bgr24;
constexpr auto MEMBER = Rule::Member;
constexpr auto GENERAL = Rule::General;

const Refusal kRefusals[] = {
    {{Method::EdgeSensing2, Pattern::BGGR}, 8, 8, 8, 0, 0, "no member of edge2 for BGGR top-down: edge2 has RGGB top-down and RGGB bottom-up", true},
    {{Method::Laplacian2, P, BU}, 8, 8, 8, 0, 0, "no member of laplacian2 for RGGB bottom-up: laplacian2 has RGGB top-down", true},
    {{Method::Laplacian2, Pattern::GRBG}, 8, 8, 8, 0, 0, "no member of laplacian2 for GRBG top-down", true},
    {{Method::SmoothHue, Pattern::GBRG, BU, B24, 1, MEMBER}, 16, 8, 8, 0, 0, "no member of smoothhue takes 16-bit samples", true},
    {{Method::EdgeSensing1, Pattern::BGGR, TD, Format::Grey}, 8, 8, 8, 0, 0, "no member of edge1 writes grey", true},
    {{Method::Bilinear, P, TD, Format::Grey, 1, GENERAL}, 16, 8, 8, 0, 0, "no grey output from bilinear", true},
    {{Method::Gbri, P, TD, B24, 1, MEMBER}, 8, 8, 8, 0, 0, "gbri has no member", true},
    {{NN, P, TD, B24, 1, Rule{7}}, 8, 8, 8, 0, 0, "unknown rule", true},
    {{NN, P, TD, Format{16}}, 8, 8, 8, 0, 0, "format 16 is not one of", true},
    {{NN, P, TD, Format{48}}, 16, 8, 8, 0, 0, "format 48", true},
    {{Method{42}}, 8, 8, 8, 0, 0, "unknown method", true},
    {{NN, Pattern{9}}, 8, 8, 8, 0, 0, "unknown Bayer pattern", true},
    {{NN, P, RowOrder{5}}, 8, 8, 8, 0, 0, "unknown row order", true},
    {{NN, Pattern::GBRG, BU}, 8, 8, -2, 0, 0, "negative"},
    {{NN, Pattern::BGGR}, 8, 7, 2, 0, 0, "odd width"},
    {{NN, Pattern::BGGR, BU}, 16, 5, 2, 0, 0, "odd width"},
    {{NN, Pattern::BGGR}, 8, 65536, 32768, 0, 0, "too large"},
    {{NN, Pattern::BGGR, TD, Format::Bgra32}, 16, 16384, 16384, 0, 0, "too large"},
    {{Method::Bilinear, Pattern::GRBG, TD, Format::Bgra32}, 8, 8192, 8192, 0, 0, "bitCount"},  // the 255 fill's count
    {{NN, P, TD, Format::Bgra32}, 8, 8192, 8192, 0, 0, "bitCount"},
    {{NN, Pattern::BGGR, TD, Format::Bgra32}, 8, 8192, 8192, 0, 0, "raw frame holds"},  // no fill: the buffer is the fault
    {{NN, Pattern::GRBG}, 8, 10, 6, -1, 0, "raw frame holds"},
    {{Method::Laplacian2}, 8, 10, 6, -1, 0, "raw frame holds"},
    {{NN, Pattern::GBRG, BU}, 8, 10, 6, 0, -1, "output holds"},
    {{NN, P, TD, Format::Bgra32}, 8, 10, 6, 0, -60, "bgra32 of 8-bit elements needs 240"},
    {{NN, P, BU}, 16, 10, 6, 0, -1, "output holds"},
    {{NN, Pattern::GRBG, BU, Format::Grey}, 16, 10, 6, 0, -1, "2 elements after"},
    {{NN}, 8, 10, 6, 0, 0, "16-bit output elements from 8-bit samples", false, 16},
    {{NN, Pattern::BGGR, TD, B24, 1, MEMBER}, 16, 10, 6, 0, 0, "the members write elements of their samples' depth", false, 8},
    // Significant bits, padded rows and alignment.
    {{Method::Laplacian}, 16, 10, 6, 0, 0, "bits 8 is outside 9..16", false, 0, 8},
    {{Method::Laplacian}, 16, 10, 6, 0, 0, "bits 17 is outside 9..16", false, 0, 17},
    {{Method::SmoothHue}, 16, 10, 6, 0, 0, "stride 19 is below a row's 20 bytes", false, 0, 0, -1},
    {{Method::SmoothHue}, 16, 10, 6, 0, 0, "stride 21 is not a multiple of the 2-byte elements", false, 0, 0, 1},
    {{NN, P, TD, Format::Bgra32}, 8, 10, 6, 0, 0, "the output's stride 39 is below a row's 40 bytes", false, 0, 0, 0, -1},
    {{Method::Bilinear}, 16, 10, 6, -1, 0, "with rows 28 bytes apart needs 160", false, 0, 0, 8},
    {{Method::Bilinear}, 16, 10, 6, 0, 0, "not aligned to 2 bytes", false, 0, 0, 0, 0, 1},
};

TEST(CheckedApi, BadRequestsAreRefusedWithOneLineAndNothingWritten) {
    for (const Refusal& t : kRefusals) {
        SCOPED_TRACE(t.expect);
        const bool small = std::int64_t(t.width) * t.height > 0 && std::int64_t(t.width) * t.height < 1000000;
        const std::size_t pixels = small ? std::size_t(t.width * t.height) : 64;
        const std::size_t epp = t.options.format == Format::Grey ? 1 : t.options.format == Format::Bgra32 ? 4 : 3;
        const std::size_t out_need = pixels * epp + (t.options.format == Format::Grey && t.depth == 16 && t.options.order == BU ? 2 : 0);
        std::vector<std::uint16_t> raw(pixels + 8, 7), out(out_need + 8, 0xA5A5);
        const std::size_t raw_count = std::size_t(std::ptrdiff_t(pixels) + t.raw_delta);
        const std::size_t out_count = std::size_t(std::ptrdiff_t(out_need) + t.out_delta);
        const int out_depth = t.out_depth ? t.out_depth : t.depth;
        const std::ptrdiff_t raw_stride = t.raw_pad ? t.width * t.depth / 8 + t.raw_pad : 0;
        const std::ptrdiff_t out_stride = t.out_pad ? std::ptrdiff_t(epp) * t.width * out_depth / 8 + t.out_pad : 0;
        const auto* raw8 = reinterpret_cast<const std::uint8_t*>(raw.data()) + t.misalign;
        auto* out8 = reinterpret_cast<std::uint8_t*>(out.data()) + t.misalign;
        auto raw_view = t.depth == 8 ? RawFrame(raw8, raw_count, t.width, t.height, raw_stride)
                                     : RawFrame(reinterpret_cast<const std::uint16_t*>(raw8), raw_count, t.width, t.height,
                                                raw_stride, t.bits);
        auto out_view = out_depth == 8 ? OutputImage(out8, out_count, out_stride)
                                       : OutputImage(reinterpret_cast<std::uint16_t*>(out8), out_count, out_stride);
        const Result r = demosaic(raw_view, out_view, t.options);
        EXPECT_FALSE(bool(r));
        EXPECT_NE(r.message().find(t.expect), std::string::npos) << r.message();
        EXPECT_EQ(r.message().find('\n'), std::string::npos) << r.message();
        EXPECT_EQ(out, std::vector<std::uint16_t>(out_need + 8, 0xA5A5));
        EXPECT_EQ(check(raw_view, out_view, t.options).message(), r.message());
        EXPECT_EQ(minimum_size(t.options, t.depth).width == 0, t.no_member);
        EXPECT_EQ(output_elements(10, 6, t.options, t.depth) == 0, t.no_member);
    }
}

// The request as its first layout had it, written out here: a program built against
// that header keeps working whatever later layouts add.
struct FirstRequest {
    std::size_t size;
    const void* samples;
    std::size_t samples_bytes;
    std::ptrdiff_t samples_stride;
    int width, height, depth, bits;
    void* output;
    std::size_t output_bytes;
    std::ptrdiff_t output_stride;
    int output_depth, method, pattern, order, format, threads, rule;
};

TEST(CheckedApi, RequestsCanGrowAndTheirFieldsAreReadInFull) {
    std::vector<std::uint8_t> raw(80, 9), out(240 + 64, 0);
    struct Larger {
        FirstRequest first;
        std::uint64_t later[64];  // fields of later layouts, the last ones unknown to this library
    } q{};
    q.first = {sizeof(FirstRequest), raw.data(), raw.size(), 0, 10, 8, 8, 0, out.data(), 240, 0, 0,
               QZRCFA_METHOD_BILINEAR, QZRCFA_PATTERN_RGGB, QZRCFA_ORDER_TOP_DOWN, QZRCFA_FORMAT_BGR24, 1, 0};
    auto run = [&](std::size_t size) {
        q.first.size = size;
        char why[256] = "";
        const int status = qzrcfa_demosaic(reinterpret_cast<const qzrcfa_request*>(&q), why, sizeof why);
        return status == 0 ? std::string("ok") : std::string(why);
    };
    EXPECT_EQ(run(sizeof(FirstRequest)), "ok");
    EXPECT_EQ(run(sizeof(Larger)), "ok");  // unknown fields, all zero
    q.later[63] = 1;
    EXPECT_NE(run(sizeof(Larger)).find("fields this library does not know"), std::string::npos);
    EXPECT_NE(run(offsetof(FirstRequest, rule)).find("below the"), std::string::npos);
    q.first.format = 65536 + 24;  // not 24 through a narrower type
    EXPECT_NE(run(sizeof(FirstRequest)).find("format 65560"), std::string::npos);
    q.first.format = QZRCFA_FORMAT_BGR24, q.first.bits = 12;
    EXPECT_NE(run(sizeof(FirstRequest)).find("bits 12 given with 8-bit samples"), std::string::npos);
    q.first.bits = 0, q.first.threads = 1024;  // the most threads a request may ask for
    EXPECT_EQ(run(sizeof(FirstRequest)), "ok");
    q.first.threads = 1025;
    EXPECT_NE(run(sizeof(FirstRequest)).find("thread count 1025 is above the limit of 1024"), std::string::npos);
    char why[64];
    EXPECT_EQ(qzrcfa_demosaic(nullptr, why, sizeof why), -1);
    EXPECT_STREQ(why, "the request is null");
}

TEST(CheckedApi, NullAndOverlappingBuffersAreRefused) {
    std::vector<std::uint8_t> arena(1000, 3);
    std::uint8_t* raw = arena.data() + 400;
    const Options o{NN, Pattern::BGGR, BU};
    std::uint8_t* const none = nullptr;
    EXPECT_NE(check(RawFrame(none, 60, 10, 6), OutputImage(raw, 180), o).message().find("null"), std::string::npos);
    EXPECT_NE(check(RawFrame(raw, 60, 10, 6), OutputImage(none, 180), o).message().find("null"), std::string::npos);
    // Output start relative to the frame's (60 samples; the output takes 180 bytes).
    for (const auto& [offset, overlap] : {std::pair{0, true}, {59, true}, {-179, true}, {60, false}, {-180, false}}) {
        const Result r = check(RawFrame(raw, 60, 10, 6), OutputImage(raw + offset, 180), o);
        EXPECT_EQ(r.message().find("overlap") != std::string::npos, overlap) << offset << ": " << r.message();
        EXPECT_EQ(r.ok(), !overlap) << offset;
    }
}

}  // namespace
}  // namespace qzrcfa
