// Every family's column kernels, for every instruction set this machine runs, against
// the family's reference, byte for byte.
//
// A pass runs over every row of a small frame, once with the reference alone and once
// with the instruction set's column kernel first and the reference finishing each row.
// Frames are as wide as every remainder of a 16-, 32- or 64-column block needs, in all
// four patterns (so every row phase), both row orders, three- and four-byte pixels, the
// fused 255 fill where a pass has one, and full-range or tiny samples (ties). Source
// and output are exactly the frame's size, so AddressSanitizer reports any read or
// write past them. The output starts as random bytes: kernels that read it (the second
// passes) meet every value, zero greens included.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <algorithm>
#include <bit>
#include <random>
#include <string>
#include <vector>

#include "catalogue/members.h"
#include "general/general.h"
#include "kernels/bayer.h"
#include "kernels/kernels.h"

namespace qzrcfa::detail {

void PrintTo(Isa isa, std::ostream* os) { *os << isa_name(isa); }

namespace {

template <class T, class Params>
struct Slot {
    ColumnKernel<T, Params> reference;
    ColumnKernel<T, Params> KernelSet::*wide;
    std::vector<Params> params;
    int margin, shift;
    bool fill255;  // the pass can write the fused 255 fill
    bool grey;   // one element per pixel, no bitCount
    bool stream = false;  // the pass may store past the cache
};

struct Case {
    int width, height, stride;
    Pattern pattern;
    bool flip, fill255, stream;
    unsigned max_sample;
};

template <class T>
std::vector<T> random_values(std::size_t n, std::uint32_t seed, unsigned max) {
    std::mt19937 rng(seed);
    std::vector<T> v(n);
    for (T& x : v) x = T(rng() % (max + 1));
    return v;
}

// The frame's output after one pass, computed by the reference alone (set == nullptr)
// or by the set's column kernel and the reference.
template <class T, class Params>
std::vector<T> run(const Slot<T, Params>& slot, const Params& params, const KernelSet* set, const Case& k,
                   const std::vector<T>& src, std::vector<T> dst) {
    const int first = slot.margin + slot.shift;
    const std::ptrdiff_t out_row = std::ptrdiff_t(k.width) * k.stride;
    const int last_row = slot.grey ? k.height - 2 : k.height - 1 - slot.margin + slot.shift;
    for (int r = slot.grey ? 0 : first; r <= last_row; ++r) {
        Row<T> row{};
        row.s = src.data() + std::ptrdiff_t(r) * k.width;
        row.width = k.width;
        row.d = dst.data() + std::ptrdiff_t(k.flip ? k.height - 1 - r : r) * out_row;
        row.up = k.flip ? out_row : -out_row;
        row.down = -row.up;
        row.stride = k.stride;
        row.r = r;
        row.c_first = slot.grey ? 0 : first;
        row.c_last = slot.grey ? k.width - 2 : k.width - 1 - slot.margin + slot.shift;
        row.phase = row_phase(k.pattern, r);
        row.height = k.height;
        row.fill255 = k.fill255;
        row.stream = k.stream;
        const int c = set ? (set->*slot.wide)(row, params, row.c_first) : row.c_first;
        EXPECT_GE(c, row.c_first);
        slot.reference(row, params, c);
    }
    return dst;
}

template <class T, class Params>
void expect_reference_bytes(Isa isa, const char* name, const Slot<T, Params>& slot) {
    const KernelSet& set = kernel_set(isa);
    std::vector<int> widths;
    for (int w = 2 * slot.margin + 1; w <= 2 * slot.margin + 140; ++w) widths.push_back(w);
    widths.push_back(1001);
    int cases = 0;
    for (const Params& params : slot.params)
        for (int width : widths)
            for (int stride : slot.grey ? std::vector<int>{1} : std::vector<int>{3, 4})
                for (Pattern pattern : {Pattern::RGGB, Pattern::BGGR, Pattern::GRBG, Pattern::GBRG})
                    for (int flip = 0; flip < 2; ++flip)
                        for (int fill255 = 0; fill255 <= int(slot.fill255); ++fill255)
                            for (unsigned max : {sizeof(T) == 1 ? 255u : 65535u, 3u}) {
                                const Case k{width, 8, stride, pattern, flip != 0, fill255 != 0, slot.stream && max == 3, max};
                                const std::uint32_t seed = std::uint32_t(width * 131 + stride * 7 + int(pattern) * 3 + flip + max);
                                const auto src = random_values<T>(std::size_t(k.width) * std::size_t(k.height), seed, max);
                                const auto dst = random_values<T>(std::size_t(k.width) * std::size_t(k.height) * std::size_t(stride),
                                                                  seed + 1, sizeof(T) == 1 ? 255u : 65535u);
                                const std::vector<T> expected = run(slot, params, nullptr, k, src, dst);
                                if (run(slot, params, &set, k, src, dst) != expected) {
                                    ADD_FAILURE() << name << " on " << isa_name(isa) << " differs: width " << width << " stride "
                                                  << stride << " pattern " << int(pattern) << (flip ? " bottom-up" : "")
                                                  << (fill255 ? " fill255" : "") << (k.stream ? " streamed" : "") << " samples 0.." << max;
                                    return;
                                }
                                ++cases;
                            }
    EXPECT_GT(cases, 0);
}

class Kernels : public testing::TestWithParam<Isa> {
  protected:
    void SetUp() override {
        if (!isa_available(GetParam())) GTEST_SKIP() << isa_name(GetParam()) << " is not available on this machine";
    }
};

TEST_P(Kernels, EqualTheReferences) {
    const Isa isa = GetParam();
    using u8 = std::uint8_t;
    using u16 = std::uint16_t;
    const std::vector<NearestForm> forms = {{+1, true}, {+1, false}, {-1, false}};
    expect_reference_bytes<u8, NearestForm>(isa, "nearest", {nearest_columns, &KernelSet::nearest, forms, 1, 0, true, false, true});
    expect_reference_bytes<u16, NearestForm>(isa, "nearest16", {nearest_columns, &KernelSet::nearest16, forms, 1, 0, false, false});
    expect_reference_bytes<u8, GreyParams>(isa, "grey", {grey_columns, &KernelSet::grey, {{}}, 0, 0, false, true});
    expect_reference_bytes<u16, GreyParams>(isa, "grey16", {grey_columns, &KernelSet::grey16, {{}}, 0, 0, false, true});
    expect_reference_bytes<u8, BilinearParams>(isa, "bilinear", {bilinear_columns, &KernelSet::bilinear, {{}}, 1, 0, true, false, true});
    expect_reference_bytes<u8, EdgeSensingRule>(
        isa, "edge sensing",
        {edge_sensing_columns, &KernelSet::edge_sensing, {{true, false}, {false, false}, {false, true}}, 1, 0, false, false, true});
    const std::vector<LaplacianParams> diagonals = {{false}, {true}};
    for (int shift : {0, 2}) {
        expect_reference_bytes<u8, LaplacianParams>(
            isa, "laplacian green", {laplacian_green_columns, &KernelSet::laplacian_green, diagonals, 2, shift, true, false});
    }
    expect_reference_bytes<u8, LaplacianParams>(
        isa, "laplacian colour", {laplacian_colour_columns, &KernelSet::laplacian_colour, diagonals, 2, 0, false, false});
    const std::vector<SmoothHueRule> rules = {{Site::GreenOnBlue, Saturation::GreaterThan},
                                              {Site::Red, Saturation::GreaterThan},
                                              {Site::GreenOnBlue, Saturation::LessThan}};
    expect_reference_bytes<u8, SmoothHueRule>(isa, "smooth hue green",
                                              {smooth_hue_green_columns, &KernelSet::smooth_hue_green, rules, 1, 0, false, false});
    expect_reference_bytes<u8, SmoothHueRule>(isa, "smooth hue colour",
                                              {smooth_hue_colour_columns, &KernelSet::smooth_hue_colour, rules, 1, 0, false, false});
}

// The library's own border fills: a member's call then fuses its 255 pre-fill and runs
// its sweep.
const void* own_definition(catalogue::Id id) { return dlsym(RTLD_DEFAULT, catalogue::SymbolName(catalogue::entry(id)).c_str()); }

// The sweeps of the two-pass members (frame.h), through the frame driver with the set's
// kernels, against the scalar set, which has none, so that its passes run one after the
// other on the output: every member of the families with a sweep, on frames whose
// core's first and last rows fall on every row phase and whose core is a block wide or
// more for every set, with either parity, and narrower than one for the wider sets;
// three- and four-byte pixels, the 255 pre-fill fused or not; output buffers of random
// contents, which the four-byte passes read where the members leave them.
template <class Params>
void expect_sweeps(Isa isa, const char* family, std::initializer_list<const ColourMember<std::uint8_t, Params>*> members) {
    std::mt19937 rng(7);
    int index = 0;
    for (const auto* m : members) {
        ++index;
        for (int width : {22, 23, 70, 71, 72, 135})
            for (int height = 7; height <= 12; ++height)
                for (unsigned short bits : {24, 32, 27})
                    for (unsigned max : {255u, 3u}) {
                        std::vector<std::uint8_t> src(std::size_t(width) * std::size_t(height));
                        for (auto& v : src) v = std::uint8_t(rng() % (max + 1));
                        std::vector<std::uint8_t> swept(src.size() * 4 + 8);
                        for (auto& v : swept) v = std::uint8_t(rng());
                        std::vector<std::uint8_t> passes = swept;
                        run(*m, src.data(), width, height, swept.data(), bits, Call{nullptr, own_definition, &kernel_set(isa)});
                        run(*m, src.data(), width, height, passes.data(), bits, Call{nullptr, own_definition, &kernel_set(Isa::scalar)});
                        ASSERT_EQ(swept, passes) << family << " member " << index << " on " << isa_name(isa) << ": " << width
                                                 << "x" << height << " bitCount " << bits << " samples 0.." << max;
                    }
    }
}

TEST_P(Kernels, SweepsGiveTheBytesOfThePasses) {
    using namespace members;
    expect_sweeps<LaplacianParams>(GetParam(), "laplacian",
                                   {&Laplacian_RGGB, &Laplacian_BGGR, &Laplacian_GRBG, &Laplacian_GBRG, &Laplacian_RGGB_Flip,
                                    &Laplacian_BGGR_Flip, &Laplacian_GRBG_Flip, &Laplacian_GBRG_Flip, &Laplacian2_RGGB});
    expect_sweeps<SmoothHueRule>(GetParam(), "smooth hue",
                                 {&SmoothHue_RGGB, &SmoothHue_BGGR, &SmoothHue_GRBG, &SmoothHue_GBRG, &SmoothHue_RGGB_Flip,
                                  &SmoothHue_BGGR_Flip, &SmoothHue_GRBG_Flip, &SmoothHue_GBRG_Flip});
}

// The quotient smooth hue's colour pass divides with, over every pair of operands it
// meets (integers 0 .. 255, zeros included): bit for bit the reference's IEEE division,
// signed zeros and infinities alike, any NaN for 0 / 0.
TEST_P(Kernels, QuotientsEqualDivision) {
    constexpr int n = 256 * 256;
    std::vector<float> a(n), b(n), q(n), expected(n);
    for (int i = 0; i < n; ++i) a[std::size_t(i)] = float(i / 256), b[std::size_t(i)] = float(i % 256);
    smooth_hue_quotients(a.data(), b.data(), expected.data(), n);
    ASSERT_EQ(kernel_set(GetParam()).smooth_hue_quotients(a.data(), b.data(), q.data(), n), n);
    int wrong = 0;
    for (std::size_t i = 0; i < std::size_t(n); ++i) {
        const bool nan = expected[i] != expected[i];
        if (nan ? q[i] != q[i] : std::bit_cast<std::uint32_t>(q[i]) == std::bit_cast<std::uint32_t>(expected[i])) continue;
        if (++wrong <= 5)
            ADD_FAILURE() << a[i] << " / " << b[i] << " on " << isa_name(GetParam()) << ": " << std::hexfloat << q[i]
                          << " instead of " << expected[i] << std::defaultfloat;
    }
    EXPECT_EQ(wrong, 0);
}

// The extended library's method: every pass on rows of random floats (non-negative,
// as its quantities are where a pass divides by them), every width to 140 and one
// large, both site parities, both row colours, three- and four-element pixels of 8 and
// 16 bits. Rows carry 16 columns of padding, as the method's rows do.
TEST_P(Kernels, EqualTheReferencesForGbri) {
    const KernelSet& set = kernel_set(GetParam());
    constexpr int kPad = 16;
    std::mt19937 rng(11);
    std::uniform_real_distribution<float> value(0.0f, 255.0f);
    std::vector<int> widths;
    for (int w = 1; w <= 140; ++w) widths.push_back(w);
    widths.push_back(1001);
    for (int pass = 0; pass < kGbriPasses; ++pass)
        for (int width : widths)
            for (int variant = 0; variant < 8; ++variant) {
                const int parity = variant & 1, colour = variant & 2 ? kRed : kBlue, stride = variant & 4 ? 4 : 3;
                const bool pixels = pass == kGbriPixels8 || pass == kGbriPixels16;
                if (!pixels && variant >= 2) continue;
                const std::size_t row = std::size_t(width + 2 * kPad);
                std::vector<std::vector<float>> in(12, std::vector<float>(row)), out(6, std::vector<float>(row, 0.5f));
                for (auto& r : in)
                    for (float& v : r) v = pass == kGbriPixels8 || pass == kGbriPixels16 ? value(rng) / 255.0f : value(rng);
                if (pixels) in[0].assign(row, value(rng));  // green, on the sample scale
                const auto samples = random_values<std::uint16_t>(std::size_t(width), std::uint32_t(width * 7 + pass),
                                                                  pass == kGbriSamples8 || pass == kGbriPixels8 ? 255u : 65535u);
                const std::vector<std::uint8_t> samples8(samples.begin(), samples.end());
                const bool eight = pass == kGbriSamples8 || pass == kGbriPixels8;
                std::vector<std::uint8_t> pixels8(std::size_t(width) * stride, 7), pixels8_ref = pixels8;
                std::vector<std::uint16_t> pixels16(std::size_t(width) * stride, 7), pixels16_ref = pixels16;
                auto make = [&](int half) {
                    GbriRow r{};
                    for (int i = 0; i < 12; ++i) r.in[i] = in[std::size_t(i)].data() + kPad;
                    for (int i = 0; i < 3; ++i) r.out[i] = out[std::size_t(3 * half + i)].data() + kPad;
                    r.samples = eight ? static_cast<const void*>(samples8.data()) : samples.data();
                    r.pixels = eight ? static_cast<void*>(half ? pixels8.data() : pixels8_ref.data())
                                     : static_cast<void*>(half ? pixels16.data() : pixels16_ref.data());
                    r.stride = stride, r.colour = colour, r.parity = parity, r.x_last = width - 1;
                    return r;
                };
                const GbriRow reference = make(0), wide = make(1);
                const int first = pixels || pass == kGbriSamples8 || pass == kGbriSamples16 ? 0 : -7;  // in the padding, as the method starts
                kGbriReferences[pass](reference, first);
                kGbriReferences[pass](wide, set.gbri[pass](wide, first));
                ASSERT_TRUE(std::equal(out[0].begin(), out[0].end(), out[3].begin()) &&
                            std::equal(out[1].begin(), out[1].end(), out[4].begin()) &&
                            std::equal(out[2].begin(), out[2].end(), out[5].begin()) && pixels8 == pixels8_ref &&
                            pixels16 == pixels16_ref)
                    << "gbri pass " << pass << " on " << isa_name(GetParam()) << " differs: width " << width << " variant "
                    << variant;
            }
}

// The general rule's kernels. Rows of values hold exactly their two columns of margin
// on either side, so AddressSanitizer reports a read beyond them, and every row a
// kernel writes is compared whole, margins included. Every width 1 .. 140 and one large,
// every phase of a row (green at even columns or odd, in a red or a blue row), values
// over the full range of three largest values or tiny (0 .. 3: ties everywhere), and
// greens with zeros among them (smooth hue's 0/0 and x/0).
using u16 = std::uint16_t;

struct ValueRow {
    std::vector<u16> v;
    ValueRow(int width, std::uint32_t seed, unsigned max) : v(random_values<u16>(std::size_t(width) + 4, seed, max)) {}
    u16* at0() { return v.data() + 2; }
};

std::vector<int> general_widths(int large) {
    std::vector<int> widths;
    for (int w = 1; w <= 140; ++w) widths.push_back(w);
    widths.push_back(large);
    return widths;
}

struct PlaneSlot {
    const char* name;
    PlaneKernel reference;
    PlaneKernel GeneralKernels::*wide;
    PixelKernel GeneralKernels::*pixels;  // the pass fused with the store, if it has one
    int variant;
    int planes;  // 3, or the one plane out[plane] that a green pass (1) or grey (0) writes
};

using K = GeneralKernels;
const PlaneSlot kPlaneSlots[] = {
    {"nearest", general_nearest, &K::nearest, &K::nearest_pixels, 0, 3},
    {"bilinear", general_bilinear, &K::bilinear, &K::bilinear_pixels, 0, 3},
    {"edge sensing 1", general_edge_sensing, &K::edge_sensing, &K::edge_sensing_pixels, 1, 3},
    {"edge sensing 2", general_edge_sensing, &K::edge_sensing, &K::edge_sensing_pixels, 2, 3},
    {"laplacian green", general_laplacian_green, &K::laplacian_green, nullptr, 0, kGreen},
    {"laplacian colour", general_laplacian_colour, &K::laplacian_colour, &K::laplacian_pixels, 0, 3},
    {"smooth hue green", general_smooth_hue_green, &K::smooth_hue_green, nullptr, 0, kGreen},
    {"smooth hue colour", general_smooth_hue_colour, &K::smooth_hue_colour, &K::smooth_hue_pixels, 0, 3},
    {"grey", general_grey, &K::grey, &K::grey_pixels, 0, 0},
};

TEST_P(Kernels, EqualTheGeneralRulesReferences) {
    const GeneralKernels& set = kernel_set(GetParam()).general;
    const char* isa = isa_name(GetParam());
    for (const int width : general_widths(1001))
        for (const unsigned max : {255u, 4095u, 65535u})
            for (const unsigned range : {max, 3u}) {
                const std::uint32_t seed = std::uint32_t(width * 17 + max + range);
                std::vector<ValueRow> values, greens, planes;
                for (std::uint32_t i = 0; i < 5; ++i) values.emplace_back(width, seed + i, range);
                for (std::uint32_t i = 0; i < 3; ++i) greens.emplace_back(width, seed + 5 + i, range);
                for (std::uint32_t i = 0; i < 3; ++i) planes.emplace_back(width, seed + 8 + i, 65535);
                std::mt19937 rng(seed);
                for (ValueRow& g : greens)
                    for (u16& v : g.v)
                        if (rng() % 8 == 0) v = 0;
                for (const PlaneSlot& slot : kPlaneSlots)
                    for (const RowPhase phase : {RowPhase{kRed, true}, RowPhase{kRed, false}, RowPhase{kBlue, true}, RowPhase{kBlue, false}}) {
                        std::vector<ValueRow> want = planes, got = planes;
                        auto row_into = [&](std::vector<ValueRow>& out) {
                            PlaneRow row{};
                            for (int i = 0; i < 5; ++i) row.s[i] = values[std::size_t(i)].at0();
                            for (int i = 0; i < 3; ++i) row.g[i] = greens[std::size_t(i)].at0();
                            for (int i = 0; i < 3; ++i) row.out[i] = slot.planes == 3 || slot.planes == i ? out[std::size_t(i)].at0() : nullptr;
                            row.phase = phase, row.max = int(max), row.variant = slot.variant, row.x_last = width - 1;
                            return row;
                        };
                        const PlaneRow reference = row_into(want), wide = row_into(got);
                        slot.reference(reference, 0);
                        const int x = (set.*slot.wide)(wide, 0);
                        ASSERT_TRUE(x >= 0 && x <= width) << slot.name << " on " << isa << " returned " << x;
                        slot.reference(wide, x);
                        const std::string where = std::string(" on ") + isa + ": width " + std::to_string(width) + " max " +
                                                  std::to_string(max) + " values 0.." + std::to_string(range) +
                                                  (phase.colour == kRed ? " red" : " blue") + " row, green at " +
                                                  (phase.green_even ? "even" : "odd") + " columns";
                        for (int i = 0; i < 3; ++i) ASSERT_EQ(want[std::size_t(i)].v, got[std::size_t(i)].v) << slot.name << where << ", plane " << i;
                        if (slot.pixels == nullptr) continue;
                        // Fused with the store: the pixels the reference's planes give.
                        for (const int elements : slot.planes == 3 ? std::vector<int>{3, 4} : std::vector<int>{1})
                            for (const int depth : {8, 16}) {
                                const std::size_t bytes = std::size_t(width) * std::size_t(elements) * std::size_t(depth / 8);
                                const auto before = random_values<std::uint8_t>(bytes, seed + 3, 255);
                                std::vector<std::uint8_t> pixels_want = before, pixels_got = before;
                                std::vector<ValueRow> scratch = planes;
                                StoreRow out{};
                                for (int i = 0; i < 3; ++i) out.planes[i] = want[std::size_t(i)].at0();
                                out.elements = elements, out.depth = depth, out.max = int(max), out.x_last = width - 1;
                                out.out = pixels_want.data();
                                general_store(out, 0);
                                const PlaneRow fused = row_into(scratch);
                                for (int i = 0; i < 3; ++i) out.planes[i] = scratch[std::size_t(i)].at0();
                                out.out = pixels_got.data();
                                const int left = (set.*slot.pixels)(fused, out, 0);
                                ASSERT_TRUE(left >= 0 && left <= width) << slot.name << " pixels" << where;
                                slot.reference(fused, left);
                                general_store(out, left);
                                ASSERT_EQ(pixels_want, pixels_got) << slot.name << " pixels" << where << ", " << elements << " elements of "
                                                                   << depth << " bits";
                            }
                    }
            }
}

// Raw rows to values: 8- and 16-bit samples (16-bit samples above the largest value
// clamped) and every packed layout (rows of exactly their bytes, so that a read past
// them shows under the address sanitizer), each as it is and with a black level and
// gains; and planes to pixels of 1, 3 and 4 elements of 8 and 16 bits under every
// largest value 2^b - 1 (8-bit elements round from each), each as it is, through a
// matrix, a curve or both; the large row of every store holds each value 0 .. max once.
// A camera's matrix: negative terms and rows above 1, which clamp at both ends.
constexpr float kCameraMatrix[9] = {1.7f, -0.55f, -0.15f, -0.21f, 1.49f, -0.28f, 0.03f, -0.6f, 1.57f};

TEST_P(Kernels, LoadAndStoreAsTheGeneralRulesReferences) {
    const GeneralKernels& set = kernel_set(GetParam()).general;
    const char* isa = isa_name(GetParam());
    const std::pair<Packing, unsigned> kLayouts[] = {{Packing::Bytes, 255}, {Packing::Words, 4095}, {Packing::Words, 65535},
                                                     {Packing::Raw10, 1023}, {Packing::P10, 1023}, {Packing::Raw12, 4095},
                                                     {Packing::P12, 4095},   {Packing::Packed12, 4095}};
    for (const auto& [packing, max] : kLayouts)
        for (const bool balance : {false, true})
            for (const int width : general_widths(1001)) {
                const std::uint32_t seed = std::uint32_t(width * 3 + int(packing) + max + balance);
                const auto bytes = random_values<std::uint8_t>(general::row_bytes(packing, std::size_t(width)), seed, 255);
                const ValueRow before(width, seed + 1, 65535);
                ValueRow want = before, got = before;
                LoadRow row{};
                row.src = bytes.data();
                row.packing = packing, row.max = int(max), row.x_last = width - 1, row.balance = balance;
                row.black[0] = float(seed % (max / 8)), row.black[1] = float(seed % 61);
                row.gain[0] = 1.0f + float(seed % 7) / 3.0f, row.gain[1] = 0.75f;
                LoadRow reference = row, wide = row;
                reference.out = want.at0(), wide.out = got.at0();
                general_load(reference, 0);
                general_load(wide, set.load(wide, 0));
                ASSERT_EQ(want.v, got.v) << "load on " << isa << " differs: packing " << int(packing) << (balance ? ", balanced" : "")
                                         << ", width " << width << " max " << max;
            }
    for (int bits = 8; bits <= 16; ++bits) {
        const unsigned max = (1u << bits) - 1;
        const auto curve8 = random_values<std::uint16_t>(max + 1, max, 255), curve16 = random_values<std::uint16_t>(max + 1, max, max);
        for (const int width : general_widths(int(max) + 1))
            for (const unsigned range : {max, 3u}) {
                const std::uint32_t seed = std::uint32_t(width * 5 + bits + range);
                std::vector<ValueRow> planes;
                for (std::uint32_t i = 0; i < 3; ++i) planes.emplace_back(width, seed + i, range);
                if (width == int(max) + 1)
                    for (std::uint32_t i = 0; i < 3; ++i)
                        for (int x = 0; x < width; ++x) planes[i].at0()[x] = u16((unsigned(x) + 7 * i) % (max + 1));
                for (const int elements : {1, 3, 4})
                    for (const int depth : {8, 16})
                        for (int grade = 0; grade < (range == max ? 4 : 1); ++grade) {  // the matrix (1), the curve (2)
                            const std::size_t bytes = std::size_t(width) * std::size_t(elements) * std::size_t(depth / 8);
                            const auto before = random_values<std::uint8_t>(bytes, seed + 3, 255);
                            const auto& curve = depth == 8 ? curve8 : curve16;
                            std::vector<std::uint8_t> want = before, got = before;
                            StoreRow row{};
                            for (int i = 0; i < 3; ++i) row.planes[i] = planes[std::size_t(i)].at0();
                            row.elements = elements, row.depth = depth, row.max = int(max), row.x_last = width - 1;
                            row.matrix = grade & 1 ? kCameraMatrix : nullptr;
                            row.curve = grade & 2 ? curve.data() : nullptr;
                            StoreRow reference = row, wide = row;
                            reference.out = want.data(), wide.out = got.data();
                            general_store(reference, 0);
                            general_store(wide, set.store(wide, 0));
                            ASSERT_EQ(want, got) << "store on " << isa << " differs: " << elements << " elements of " << depth
                                                 << " bits, width " << width << " max " << max << " values 0.." << range
                                                 << (grade & 1 ? ", matrix" : "") << (grade & 2 ? ", curve" : "");
                        }
            }
    }
}

// The sweep (src/general/engine.cpp) against the references applied to the frame mirrored
// about its edge pixels, every value and green of it computed: whichever rows the sweep
// reads in place or through its ring, however it splits rows into chunks and frames into
// bands, its elements must be these. Frames from narrower than a block to wider than two
// chunks, 16-bit samples of 16 bits (read in place) and of 12 bits (clamped), 8-bit
// samples; 3, 4 and 1 elements of 8 and 16 bits, compact top-down rows or padded
// bottom-up ones, one band or several.
struct Serial final : Tasks {
    int threads() const override { return 3; }
    void run(int count, void (*task)(const void*, int), const void* context) const override {
        for (int i = 0; i < count; ++i) task(context, i);
    }
};

std::ptrdiff_t mirror(std::ptrdiff_t i, std::ptrdiff_t n) {
    while (i < 0 || i >= n) i = i < 0 ? -i : 2 * (n - 1) - i;
    return i;
}

std::vector<std::uint8_t> mirrored_model(general::Method method, const general::Frame& f, const general::Image& im) {
    constexpr int m = 4;  // columns and rows of the mirrored frame beyond each edge
    const int w = f.width, h = f.height, max = (1 << f.bits) - 1, pitch = w + 2 * m;
    auto frame = [&](int rows) { return std::vector<u16>(std::size_t(pitch) * std::size_t(h + 2 * m), u16(rows)); };
    std::vector<u16> values = frame(0), greens = frame(0), planes = frame(0);
    auto at = [&](std::vector<u16>& v, int r) { return v.data() + std::ptrdiff_t(r + m) * pitch + m; };
    for (int r = -m; r < h + m; ++r)
        for (int x = -m; x < w + m; ++x) {
            const std::uint8_t* row = f.data + mirror(r, h) * f.pitch;
            const int v = f.packing == Packing::Bytes ? row[mirror(x, w)] : reinterpret_cast<const u16*>(row)[mirror(x, w)];
            at(values, r)[x] = u16(std::min(v, max));
        }
    const bool grey = im.elements == 1, laplacian = method == general::Method::Laplacian;
    const bool two = !grey && (laplacian || method == general::Method::SmoothHue);
    const PlaneKernel colour = grey ? general_grey
                               : method == general::Method::Nearest  ? general_nearest
                               : method == general::Method::Bilinear ? general_bilinear
                               : laplacian                           ? general_laplacian_colour
                               : two                                 ? general_smooth_hue_colour
                                                                     : general_edge_sensing;
    auto row_of = [&](int r) {
        PlaneRow row{};
        for (int i = 0; i < 5; ++i) row.s[i] = at(values, r - 2 + i);
        for (int i = 0; i < 3; ++i) row.g[i] = at(greens, r - 1 + i);
        row.phase = row_phase(f.pattern, r & 1), row.max = max, row.x_last = w - 1;
        row.variant = method == general::Method::EdgeSensing2 ? 2 : 1;
        return row;
    };
    if (two)
        for (int r = -1; r <= h; ++r) {
            PlaneRow row = row_of(r);
            row.out[1] = at(greens, r), row.x_last = w + 1;
            (laplacian ? general_laplacian_green : general_smooth_hue_green)(row, -2);
        }
    std::vector<std::uint8_t> out(std::size_t(im.pitch) * std::size_t(h), 0x5C);
    for (int y = 0; y < h; ++y) {
        PlaneRow row = row_of(y);
        for (int i = 0; i < 3; ++i) row.out[i] = at(planes, i);
        colour(row, 0);
        StoreRow store{};
        for (int i = 0; i < 3; ++i) store.planes[i] = at(planes, i);
        store.out = out.data() + (im.bottom_up ? h - 1 - y : y) * im.pitch;
        store.elements = im.elements, store.depth = im.depth, store.max = max, store.x_last = w - 1;
        general_store(store, 0);
    }
    return out;
}

TEST_P(Kernels, SweepEqualsTheReferencesOnTheMirroredFrame) {
    const Serial bands;
    for (int method = 0; method <= int(general::Method::SmoothHue); ++method)
        for (const auto& [w, h] : {std::pair{5, 2}, {63, 3}, {64, 7}, {65, 9}, {1100, 5}, {70, 40}})
            for (const int bits : {16, 12, 8})
                for (const int elements : {3, 4, 1})
                    for (const int depth : {8, 16})
                        for (const bool padded : {false, true}) {
                            const int sample_bytes = bits == 8 ? 1 : 2, pad = padded ? 6 : 0;
                            const auto samples = random_values<std::uint8_t>(std::size_t(w * sample_bytes + pad) * std::size_t(h),
                                                                             std::uint32_t(w * h + method + bits), 255);
                            const general::Frame f{samples.data(), w * sample_bytes + pad, sample_bytes == 1 ? Packing::Bytes : Packing::Words, bits, w, h,
                                                   Pattern(method % 4)};
                            const general::Image im{nullptr, std::ptrdiff_t(w) * elements * depth / 8 + 2 * pad, elements, depth, padded};
                            const std::vector<std::uint8_t> want = mirrored_model(general::Method(method), f, im);
                            std::vector<std::uint8_t> got(want.size(), 0x5C);
                            general::Image into = im;
                            into.data = got.data();
                            general::demosaic(general::Method(method), f, into, padded ? &bands : nullptr, GetParam());
                            ASSERT_EQ(want, got) << "method " << method << " on " << isa_name(GetParam()) << ": " << w << "x" << h
                                                 << " of " << bits << " bits to " << elements << " elements of " << depth << " bits"
                                                 << (padded ? ", padded bottom-up rows in bands" : "");
                        }
}

// Every instruction set of the dispatch table, whether or not this build or processor
// has it (those are skipped, and say so).
INSTANTIATE_TEST_SUITE_P(EveryInstructionSet, Kernels, testing::ValuesIn(std::begin(kIsas) + 1, std::end(kIsas)),
                         [](const testing::TestParamInfo<Isa>& info) { return std::string(isa_name(info.param)); });

}  // namespace
}  // namespace qzrcfa::detail
