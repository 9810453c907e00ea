// The checked C++ interface (qzrcfa.hpp): every refusal, and byte equality with a
// direct call of the export for every combination that has one.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "qzrcfa.hpp"
#include "support/arena.h"

namespace qzrcfa::test {
namespace {

using Colour8 = int (*)(unsigned char*, int, int, unsigned char*, unsigned short);
using Colour16 = int (*)(unsigned short*, int, int, unsigned short*, unsigned short);
using Grey8 = int (*)(unsigned char*, int, int, unsigned char*);
using Grey16 = int (*)(unsigned short*, int, int, unsigned short*);

// One combination that has an export, as the catalogue names it.
struct Combo {
    Options options;
    int depth;
    std::string symbol;
    int min_width, min_height;  // smallest frame the request accepts
    std::size_t dst_tail;       // output elements required past the image
};

std::string method_word(Method m) {
    switch (m) {
        case Method::NearestNeighbor: return "NearestNeighbor";
        case Method::Bilinear: return "Bilinear";
        case Method::EdgeSensing1: return "EdgeSensing1";
        case Method::EdgeSensing2: return "EdgeSensing2";
        case Method::Laplacian: return "Laplacian";
        case Method::Laplacian2: return "Laplacian2";
        case Method::SmoothHue: return "SmoothHue";
    }
    return "";
}

// The catalogue, written out from the naming rule: method, pattern, then _Gray, _Flip,
// _16Bits where they apply.
std::vector<Combo> catalogue() {
    const Pattern patterns[] = {Pattern::RGGB, Pattern::BGGR, Pattern::GRBG, Pattern::GBRG};
    const Method colour_methods[] = {Method::NearestNeighbor, Method::Bilinear,  Method::EdgeSensing1,
                                     Method::EdgeSensing2,    Method::Laplacian, Method::Laplacian2,
                                     Method::SmoothHue};
    std::vector<Combo> out;
    for (Pattern p : patterns) {
        const std::string pat(to_string(p));
        for (RowOrder o : {RowOrder::TopDown, RowOrder::BottomUp}) {
            const std::string flip = o == RowOrder::BottomUp ? "_Flip" : "";
            for (Method m : colour_methods) {
                if (m == Method::EdgeSensing2 && p != Pattern::RGGB) continue;
                if (m == Method::Laplacian2 && (p != Pattern::RGGB || o != RowOrder::TopDown)) continue;
                const bool laplacian = m == Method::Laplacian || m == Method::Laplacian2;
                const std::string symbol = m == Method::Laplacian2 ? "_Z22QZRCFA_Laplacian2_RGGBPhiiS_t"
                                                                   : "QZRCFA_" + method_word(m) + "_" + pat + flip;
                for (Format f : {Format::Bgr24, Format::Bgra32})
                    out.push_back({{m, p, o, f}, 8, symbol, laplacian ? 4 : 2, laplacian ? 4 : 2, 0});
            }
            for (Format f : {Format::Bgr24, Format::Bgra32})
                out.push_back({{Method::NearestNeighbor, p, o, f}, 16, "QZRCFA_NearestNeighbor_" + pat + flip + "_16Bits",
                               2, 2, 0});
            // Grey: the 8-bit RGGB member and the 8-bit bottom-up members (aliases of the
            // RGGB one) copy two columns from the left and need 3 columns; the others
            // reach three columns back and need 4. The bottom-up 16-bit members write two
            // elements past the image.
            const bool two_column = p == Pattern::RGGB || o == RowOrder::BottomUp;
            out.push_back({{Method::NearestNeighbor, p, o, Format::Grey}, 8, "QZRCFA_NearestNeighbor_" + pat + "_Gray" + flip,
                           two_column ? 3 : 4, 2, 0});
            out.push_back({{Method::NearestNeighbor, p, o, Format::Grey}, 16,
                           "QZRCFA_NearestNeighbor_" + pat + "_Gray" + flip + "_16Bits", 4, 2,
                           o == RowOrder::BottomUp ? 2u : 0u});
        }
    }
    return out;
}

std::string describe(const Combo& c) {
    return c.symbol + (c.options.format == Format::Bgra32 ? " bitCount 32" : c.options.format == Format::Bgr24 ? " bitCount 24" : "");
}

std::size_t elements_per_pixel(Format f) { return f == Format::Bgra32 ? 4 : f == Format::Bgr24 ? 3 : 1; }

// Runs the request once through the checked API and once straight through the export
// found by name, on the same frame and the same prior output contents, and compares
// every element of both arenas, slack included. The frame buffer is exactly the frame,
// so under AddressSanitizer a read past it (Laplacian2's last rows) would be caught.
template <class T>
void expect_same_as_direct_call(const Combo& c, int w, int h, std::uint32_t seed) {
    SCOPED_TRACE(describe(c) + " " + std::to_string(w) + "x" + std::to_string(h));
    void* fn = dlsym(RTLD_DEFAULT, c.symbol.c_str());
    ASSERT_NE(fn, nullptr) << "the library does not define " << c.symbol;

    const std::size_t raw_count = std::size_t(w) * std::size_t(h);
    std::vector<T> raw = random_frame<T>(w, h, seed);
    raw.resize(raw_count);
    const std::size_t out_count = std::size_t(w) * std::size_t(h) * elements_per_pixel(c.options.format) + c.dst_tail;
    std::vector<T> prior = random_frame<T>(int(out_count), 1, seed + 7);
    Arena<T> via_api(out_count, T(0x33), 16, 16);
    Arena<T> direct(out_count, T(0x33), 16, 16);
    std::copy_n(prior.begin(), out_count, via_api.data());
    std::copy_n(prior.begin(), out_count, direct.data());

    const Result r = demosaic(RawFrame(raw.data(), raw_count, w, h), OutputImage(via_api.data(), out_count), c.options);
    ASSERT_TRUE(r.ok()) << r.message();

    const auto bits = static_cast<unsigned short>(c.options.format);
    if constexpr (sizeof(T) == 1) {
        if (c.options.format == Format::Grey) reinterpret_cast<Grey8>(fn)(raw.data(), w, h, direct.data());
        else reinterpret_cast<Colour8>(fn)(raw.data(), w, h, direct.data(), bits);
    } else {
        if (c.options.format == Format::Grey) reinterpret_cast<Grey16>(fn)(raw.data(), w, h, direct.data());
        else reinterpret_cast<Colour16>(fn)(raw.data(), w, h, direct.data(), bits);
    }
    EXPECT_TRUE(via_api.differences(direct).empty());
    EXPECT_FALSE(direct.differences(Arena<T>(out_count, T(0x33), 16, 16)).empty()) << "the call wrote nothing";
}

TEST(CheckedApi, EveryCombinationWithAnExportMatchesADirectCall) {
    int compared = 0;
    for (const Combo& c : catalogue()) {
        const int sizes[][2] = {{c.min_width, c.min_height}, {12, 10}, {11, 9}, {13, 6}};
        for (const auto& s : sizes) {
            if (c.depth == 8) expect_same_as_direct_call<std::uint8_t>(c, s[0], s[1], std::uint32_t(compared));
            else expect_same_as_direct_call<std::uint16_t>(c, s[0], s[1], std::uint32_t(compared));
        }
        ++compared;
    }
    // 43 8-bit colour members and 8 16-bit ones, each in two formats, and 16 grey members.
    EXPECT_EQ(compared, 43 * 2 + 8 * 2 + 16);
}

TEST(CheckedApi, SizesJustBelowEachMinimumAreRefusedWithoutACall) {
    for (const Combo& c : catalogue()) {
        const Size min = minimum_size(c.options, c.depth);
        EXPECT_EQ(min.width, c.min_width) << describe(c);
        EXPECT_EQ(min.height, c.min_height) << describe(c);
        for (const auto& s : {std::pair{c.min_width - 1, c.min_height}, std::pair{c.min_width, c.min_height - 1}}) {
            // Buffers generously sized, so only the frame size can be at fault.
            std::vector<std::uint16_t> raw(4096, 1);
            std::vector<std::uint16_t> out(4096, 0xABCD);
            const std::vector<std::uint16_t> before = out;
            const Result r = c.depth == 8
                ? demosaic(RawFrame(reinterpret_cast<const std::uint8_t*>(raw.data()), 4096, s.first, s.second),
                           OutputImage(reinterpret_cast<std::uint8_t*>(out.data()), 4096), c.options)
                : demosaic(RawFrame(raw.data(), 4096, s.first, s.second), OutputImage(out.data(), 4096), c.options);
            EXPECT_FALSE(r.ok()) << describe(c) << " " << s.first << "x" << s.second;
            EXPECT_NE(r.message().find("minimum"), std::string::npos) << r.message();
            EXPECT_EQ(output_elements(s.first, s.second, c.options, c.depth), 0u) << describe(c);
            EXPECT_EQ(out, before) << describe(c) << ": refused, yet the output changed";
        }
    }
}

TEST(CheckedApi, OutputSizesIncludeTheSlackEachMemberWrites) {
    for (const Combo& c : catalogue()) {
        const std::size_t pixels = 12 * 10;
        EXPECT_EQ(output_elements(12, 10, c.options, c.depth), pixels * elements_per_pixel(c.options.format) + c.dst_tail)
            << describe(c);
    }
    EXPECT_EQ(output_elements(12, 10, {Method::Laplacian2, Pattern::BGGR}), 0u);
    for (int side : {-1, 30000, std::numeric_limits<int>::max()}) EXPECT_EQ(output_elements(side, side, {}), 0u) << side;
}

// A refused request: what it is, what is wrong, and a word the message must contain.
struct Refusal {
    const char* name;
    Options options;
    int depth;  // of both the raw view and the output view unless out_depth says otherwise
    int width, height;
    std::ptrdiff_t raw_delta;  // raw view count relative to what the request needs
    std::ptrdiff_t out_delta;  // output view count relative to what the request needs
    const char* expect;
    int out_depth = 0;
};

constexpr Options opt(Method m, Pattern p = Pattern::RGGB, RowOrder o = RowOrder::TopDown, Format f = Format::Bgr24) {
    return {m, p, o, f};
}
constexpr auto NN = Method::NearestNeighbor;
constexpr auto TD = RowOrder::TopDown;
constexpr auto BU = RowOrder::BottomUp;

const Refusal kRefusals[] = {
    // combinations without an export
    {"edge sensing 2 on BGGR", opt(Method::EdgeSensing2, Pattern::BGGR), 8, 8, 8, 0, 0, "RGGB only"},
    {"edge sensing 2 on GBRG bottom-up", opt(Method::EdgeSensing2, Pattern::GBRG, BU), 8, 8, 8, 0, 0, "RGGB only"},
    {"Laplacian2 bottom-up", opt(Method::Laplacian2, Pattern::RGGB, BU), 8, 8, 8, 0, 0, "RGGB top-down only"},
    {"Laplacian2 on GRBG", opt(Method::Laplacian2, Pattern::GRBG), 8, 8, 8, 0, 0, "RGGB top-down only"},
    {"16-bit bilinear", opt(Method::Bilinear), 16, 8, 8, 0, 0, "16-bit"},
    {"16-bit smooth hue bottom-up", opt(Method::SmoothHue, Pattern::GBRG, BU), 16, 8, 8, 0, 0, "16-bit"},
    {"grey Laplacian", opt(Method::Laplacian, Pattern::RGGB, TD, Format::Grey), 8, 8, 8, 0, 0, "grey"},
    {"grey edge sensing 1", opt(Method::EdgeSensing1, Pattern::BGGR, TD, Format::Grey), 8, 8, 8, 0, 0, "grey"},
    // values outside the enums
    {"bitCount 16", opt(NN, Pattern::RGGB, TD, Format{16}), 8, 8, 8, 0, 0, "bitCount 16"},
    {"bitCount 33", opt(NN, Pattern::RGGB, TD, Format{33}), 8, 8, 8, 0, 0, "bitCount 33"},
    {"bitCount 48 on 16-bit samples", opt(NN, Pattern::RGGB, TD, Format{48}), 16, 8, 8, 0, 0, "bitCount 48"},
    {"unknown method", opt(Method{42}), 8, 8, 8, 0, 0, "unknown method"},
    {"unknown pattern", opt(NN, Pattern{9}), 8, 8, 8, 0, 0, "unknown Bayer pattern"},
    {"unknown row order", opt(NN, Pattern::RGGB, RowOrder{5}), 8, 8, 8, 0, 0, "unknown row order"},
    // sizes
    {"negative width", opt(NN), 8, -4, 8, 0, 0, "negative"},
    {"negative height", opt(NN, Pattern::GBRG, BU), 8, 8, -2, 0, 0, "negative"},
    {"height 1", opt(NN, Pattern::BGGR), 8, 8, 1, 0, 0, "minimum"},
    {"width 1", opt(NN, Pattern::GRBG, BU, Format::Bgra32), 8, 1, 8, 0, 0, "minimum"},
    {"odd width on two rows", opt(NN, Pattern::BGGR), 8, 7, 2, 0, 0, "odd width"},
    {"odd width on two rows, 16-bit", opt(NN, Pattern::BGGR, BU), 16, 5, 2, 0, 0, "odd width"},
    {"grey, width 2", opt(NN, Pattern::RGGB, TD, Format::Grey), 8, 2, 8, 0, 0, "minimum"},
    {"grey shuffle, width 3", opt(NN, Pattern::GBRG, TD, Format::Grey), 8, 3, 8, 0, 0, "minimum"},
    {"grey, height 1", opt(NN, Pattern::RGGB, BU, Format::Grey), 8, 8, 1, 0, 0, "minimum"},
    {"Laplacian, width 3", opt(Method::Laplacian, Pattern::BGGR), 8, 3, 8, 0, 0, "minimum"},
    {"Laplacian, height 3", opt(Method::Laplacian, Pattern::GBRG, BU), 8, 8, 3, 0, 0, "minimum"},
    {"beyond 2^31 bytes", opt(NN, Pattern::BGGR), 8, 65536, 32768, 0, 0, "too large"},
    {"beyond 2^31 bytes, 16-bit", opt(NN, Pattern::BGGR, TD, Format::Bgra32), 16, 16384, 16384, 0, 0, "too large"},
    {"pre-fill count beyond 2^31", opt(Method::Bilinear, Pattern::GRBG, TD, Format::Bgra32), 8, 8192, 8192, 0, 0,
     "bitCount"},
    {"pre-fill count beyond 2^31, RGGB nearest", opt(NN, Pattern::RGGB, TD, Format::Bgra32), 8, 8192, 8192, 0, 0,
     "bitCount"},
    // The same size is fine for a member without the pre-fill; there the small buffer is the fault.
    {"no pre-fill: the buffer is the fault", opt(NN, Pattern::BGGR, TD, Format::Bgra32), 8, 8192, 8192, 0, 0,
     "raw frame holds"},
    // buffers
    {"raw one sample short", opt(NN, Pattern::GRBG), 8, 10, 6, -1, 0, "raw frame holds"},
    {"output one element short", opt(NN, Pattern::GBRG, BU), 8, 10, 6, 0, -1, "output holds"},
    {"bgra output sized for bgr", opt(NN, Pattern::RGGB, TD, Format::Bgra32), 8, 10, 6, 0, -60, "output holds"},
    {"16-bit output one element short", opt(NN, Pattern::RGGB, BU), 16, 10, 6, 0, -1, "output holds"},
    {"grey bottom-up 16-bit without its two spare elements", opt(NN, Pattern::GRBG, BU, Format::Grey), 16, 10, 6, 0, -2,
     "2 elements after"},
    {"grey bottom-up 16-bit with one spare element", opt(NN, Pattern::RGGB, BU, Format::Grey), 16, 10, 6, 0, -1,
     "2 elements after"},
    {"Laplacian2 raw one sample short", opt(Method::Laplacian2), 8, 10, 6, -1, 0, "raw frame holds"},
    {"16-bit output for 8-bit samples", opt(NN), 8, 10, 6, 0, 0, "16-bit", 16},
    {"8-bit output for 16-bit samples", opt(NN, Pattern::BGGR), 16, 10, 6, 0, 0, "8-bit", 8},
};

TEST(CheckedApi, BadRequestsAreRefusedWithAClearMessageAndNothingIsWritten) {
    for (const Refusal& t : kRefusals) {
        SCOPED_TRACE(t.name);
        const int out_depth = t.out_depth ? t.out_depth : t.depth;
        // What the request would need, computed here so that only the named fault remains.
        const bool small = std::int64_t(t.width) * t.height > 0 && std::int64_t(t.width) * t.height < 1000000;
        const std::size_t pixels = small ? std::size_t(t.width) * std::size_t(t.height) : 64;
        const std::size_t raw_need = pixels;
        const std::size_t epp = elements_per_pixel(t.options.format);
        const std::size_t out_need = pixels * epp + (t.options.format == Format::Grey && t.depth == 16 &&
                                                             t.options.order == RowOrder::BottomUp ? 2 : 0);
        const std::size_t raw_count = std::size_t(std::ptrdiff_t(raw_need) + t.raw_delta);
        const std::size_t out_count = std::size_t(std::ptrdiff_t(out_need) + t.out_delta);
        std::vector<std::uint16_t> raw(raw_need + 8, 7);
        std::vector<std::uint16_t> out(out_need + 8, 0xA5A5);
        const std::vector<std::uint16_t> before = out;
        auto raw_view = t.depth == 8 ? RawFrame(reinterpret_cast<const std::uint8_t*>(raw.data()), raw_count, t.width, t.height)
                                     : RawFrame(raw.data(), raw_count, t.width, t.height);
        auto out_view = out_depth == 8 ? OutputImage(reinterpret_cast<std::uint8_t*>(out.data()), out_count)
                                       : OutputImage(out.data(), out_count);
        const Result r = demosaic(raw_view, out_view, t.options);
        EXPECT_FALSE(r.ok());
        EXPECT_FALSE(bool(r));
        EXPECT_NE(r.message().find(t.expect), std::string::npos) << "message: " << r.message();
        EXPECT_EQ(r.message().find('\n'), std::string::npos) << "one line: " << r.message();
        EXPECT_EQ(out, before) << "refused, yet the output changed";
        EXPECT_EQ(check(raw_view, out_view, t.options).message(), r.message());
    }
}

TEST(CheckedApi, NullBuffersAreRefused) {
    std::vector<std::uint8_t> buf(300);
    const Options o = opt(NN, Pattern::GRBG);
    EXPECT_NE(demosaic(RawFrame(static_cast<const std::uint8_t*>(nullptr), 100, 10, 10), OutputImage(buf), o).message().find("null"),
              std::string::npos);
    EXPECT_NE(demosaic(RawFrame(buf.data(), 100, 10, 10), OutputImage(static_cast<std::uint8_t*>(nullptr), 300), o).message().find("null"),
              std::string::npos);
}

TEST(CheckedApi, OverlappingBuffersAreRefused) {
    const int w = 10, h = 6;
    const Options o = opt(NN, Pattern::BGGR, BU);
    struct Layout {
        const char* name;
        std::ptrdiff_t out_offset;  // output start relative to the raw frame's start
        bool overlap;
    };
    const Layout layouts[] = {
        {"same start", 0, true},
        {"output starts inside the frame", 59, true},
        {"frame starts inside the output", -179, true},
        {"output right after the frame", 60, false},
        {"frame right after the output", -180, false},
    };
    std::vector<std::uint8_t> arena(1000, 3);
    std::uint8_t* raw = arena.data() + 400;
    for (const Layout& l : layouts) {
        const Result r = check(RawFrame(raw, w * h, w, h), OutputImage(raw + l.out_offset, w * h * 3), o);
        EXPECT_EQ(!r.ok(), l.overlap) << l.name << ": " << r.message();
        if (l.overlap) {
            EXPECT_NE(r.message().find("overlap"), std::string::npos) << r.message();
        }
    }
}

TEST(CheckedApi, AViewLongerThanTheFrameIsAcceptedAndChangesNothing) {
    const int w = 9, h = 7;
    const std::vector<std::uint8_t> raw = random_frame<std::uint8_t>(w, h, 5);  // w * (h + 2) samples
    std::vector<std::uint8_t> exact(std::size_t(w * h * 3)), longer(std::size_t(w * h * 3) + 5, 0x11);
    const Options o = opt(Method::Laplacian2);
    ASSERT_TRUE(demosaic(RawFrame(std::span(raw).first(std::size_t(w * h)), w, h), OutputImage(std::span(exact)), o).ok());
    ASSERT_TRUE(demosaic(RawFrame(std::span(raw), w, h), OutputImage(std::span(longer)), o).ok());
    EXPECT_TRUE(std::equal(exact.begin(), exact.end(), longer.begin()));
    EXPECT_EQ(longer.back(), 0x11);
}

TEST(CheckedApi, NamesOfTheEnumsAreStable) {
    EXPECT_EQ(to_string(Method::EdgeSensing2), "edge2");
    EXPECT_EQ(to_string(Pattern::GBRG), "GBRG");
    EXPECT_EQ(to_string(RowOrder::BottomUp), "bottom-up");
    EXPECT_EQ(to_string(Format::Bgra32), "bgra32");
    EXPECT_EQ(static_cast<unsigned short>(Format::Bgr24), 24);
}

}  // namespace
}  // namespace qzrcfa::test
