// Every export against its model (model.h), element for element over the whole
// output buffer and the slack before and after it: random samples (full range, and
// 0..3 where ties and zero greens are common) into a buffer of random contents, every
// pattern and row order, sizes from the smallest each member accepts (where the
// interior is empty and the output is the pre-fill and the border fill alone) to
// frames wide enough for every remainder of the vector kernels' blocks, and bitCounts
// from 8 to 32 (every one from 24 to 32 for the members that pre-fill with 255, whose
// fill reaches past a three-byte image for 25..31). The library leaves that pre-fill
// to its passes when the border fill is its own; the model runs the literal sequence,
// so this comparison is what holds the two to the same bytes. No export allocates.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <new>
#include <random>
#include <set>
#include <sstream>
#include <utility>
#include <vector>

#include "model.h"

// Allocations through operator new on this thread: the exports make none.
thread_local std::size_t g_allocations = 0;
void* operator new(std::size_t n) {
    ++g_allocations;
    if (void* p = std::malloc(n == 0 ? 1 : n)) return p;
    throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }

namespace qzrcfa::model {
namespace {

// Frames end where an inaccessible page begins: a read past the frame faults.
class GuardedSource {
  public:
    GuardedSource() {
        void* map = mmap(nullptr, kBytes + page_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        base_ = static_cast<std::uint8_t*>(map);
        if (map == MAP_FAILED || mprotect(base_ + kBytes, page_, PROT_NONE) != 0) std::abort();
    }
    ~GuardedSource() { munmap(base_, kBytes + page_); }
    template <class T>
    T* place(std::size_t count) { return reinterpret_cast<T*>(base_ + kBytes - count * sizeof(T)); }

  private:
    static constexpr std::size_t kBytes = 1 << 20;
    std::size_t page_ = std::size_t(sysconf(_SC_PAGESIZE));
    std::uint8_t* base_;
};

struct Case {
    int W, H;
    unsigned short bits;
    unsigned range;
};

std::vector<std::pair<int, int>> sizes(const Member& m) {
    std::vector<std::pair<int, int>> out;
    // Every size from one pixel up, past the smallest each family accepts, where the
    // border fills' guards and the members' reads and writes outside the image decide.
    for (int H = 1; H <= 12; ++H)
        for (int W = 1; W <= 12; ++W) out.emplace_back(W, H);
    if (m.family == Family::Grey) out.insert(out.end(), {{4, 0}, {4, -1}});  // no rows: nothing written
    // Interiors of every width modulo 64 (16- and 32-column blocks included), on frames
    // tall enough for the two-pass members' sweeps to have a core, ending on either row
    // parity.
    for (int W = 68; W < 132; ++W) out.emplace_back(W, 9 + W % 2);
    // And one so wide that four-byte smooth hue's sweep would need more stack than the
    // exports take: its passes then run one after the other.
    out.insert(out.end(), {{300, 7}, {300, 2}, {37, 29}, {7200, 9}});
    return out;
}

std::vector<unsigned short> bitcounts(const Member& m, int W) {
    if (m.family == Family::Grey) return {0};
    const bool wide = W > 40;
    std::vector<unsigned short> out = wide ? std::vector<unsigned short>{24, 32} : std::vector<unsigned short>{16, 24, 32};
    // One-byte pixels: smooth hue's second pass then reads the row after next (+4 from
    // the last pixel below), which its first pass must have written.
    if (!wide) out.push_back(8);
    if (m.flags & kPrefill) {
        for (unsigned short b = 25; b <= 31; ++b)
            if (!wide || b == 27) out.push_back(b);
    } else if (!wide) {
        out.push_back(31);  // only bitCount >> 3 counts
    }
    if (m.family == Family::Gate) out.insert(out.end(), {0, 33, 65535});
    return out;
}

// Runs the export and its model on the same frame and buffer contents; empty when
// they agree, else what differs first.
template <class T>
std::string compare(const Member& m, GuardedSource& source, const Case& k, std::mt19937& rng) {
    const int P = m.family == Family::Grey ? 1 : std::min(k.bits >> 3, 4);  // refused bitCounts: room enough
    // Slack past the image: the bottom-up BGGR smooth hue member clears three bytes a
    // pixel whatever the pixel size.
    const std::ptrdiff_t pixels = std::max(k.W * k.H, 0), image = pixels * P, slack = 3 * pixels + 4 * k.W + 64;
    std::vector<T> got(std::size_t(image + 2 * slack));
    for (T& v : got) v = T(rng());
    std::vector<T> want = got;
    // Below three rows or two columns the one-pixel fill reads past the frame, and below
    // five rows the two-pixel fill reads rows 2 and 3 whatever the height.
    const std::size_t samples = std::size_t(pixels + (k.H < 5 || k.W < 5 ? 4 * k.W + 8 : 0));
    T* src = source.place<T>(samples);
    std::uniform_int_distribution<unsigned> dist(0, k.range);
    for (std::size_t i = 0; i < samples; ++i) src[i] = T(dist(rng));
    const std::size_t allocations = g_allocations;
    const int returned = call(m, src, k.W, k.H, got.data() + slack, k.bits);
    const bool allocated = g_allocations != allocations;
    const int expected = run(m, src, k.W, k.H, want.data() + slack, k.bits);
    if (returned == expected && got == want && !allocated) return {};
    std::ostringstream out;
    out << m.name << " " << k.W << "x" << k.H << " bitCount " << k.bits << " samples 0.." << k.range << ": returned "
        << returned << " (model " << expected << ")" << (allocated ? ", allocated memory" : "");
    for (std::size_t i = 0; i < got.size(); ++i) {
        if (got[i] == want[i]) continue;
        out << "; element " << std::ptrdiff_t(i) - slack << " (image: 0.." << image - 1 << ") is " << +got[i]
            << ", model " << +want[i];
        break;
    }
    return out.str();
}

class Members : public testing::TestWithParam<Member> {};

TEST_P(Members, MatchTheModel) {
    const Member& m = GetParam();
    GuardedSource source;
    std::mt19937 rng(std::hash<std::string>{}(m.name) & 0xffffffffu);
    const unsigned full = m.wide() ? 65535 : 255;
    int compared = 0;
    for (const auto& [W, H] : sizes(m)) {
        for (unsigned short bits : bitcounts(m, W)) {
            for (unsigned range : {full, 3u}) {
                const Case k{W, H, bits, range};
                ASSERT_EQ(m.wide() ? compare<std::uint16_t>(m, source, k, rng) : compare<std::uint8_t>(m, source, k, rng), "");
                ++compared;
            }
        }
    }
    EXPECT_GT(compared, 200);
}

INSTANTIATE_TEST_SUITE_P(Every, Members, testing::ValuesIn(kMembers),
                         [](const testing::TestParamInfo<Member>& info) { return std::string(info.param.name + 7); });

TEST(Catalogue, HoldsEveryExportOnce) {
    std::set<std::string> names;
    for (const Member& m : kMembers) names.insert(m.name);
    EXPECT_EQ(names.size(), 99u);
}

// Single precision, one rounding per operation, summed in the stated order. These
// inputs came from a search for bytes that single precision gives and double, long
// double or a pairwise sum do not; random frames seldom meet such a case, and a model
// built with other arithmetic would agree with a library built the same way.
//  - red site (2, 2), every green 111, blue diagonals 39, 124, 67, 162: 97.99999 -> 97;
//  - green-on-red site (2, 1), green 110, other greens 67, blue 40 above and 184
//    below (green 77 there): 159.99998 -> 159.
TEST(SmoothHue, ArithmeticIsSinglePrecisionInTheStatedOrder) {
    struct Example {
        int green;
        std::vector<std::array<int, 3>> samples;  // r, c, value on a 5 x 5 RGGB frame, red and blue 90
        int r, c, expected_blue;
    };
    const Example examples[] = {
        {111, {{1, 1, 39}, {1, 3, 124}, {3, 1, 67}, {3, 3, 162}}, 2, 2, 97},
        {67, {{2, 1, 110}, {1, 1, 40}, {3, 1, 184}}, 2, 1, 159},
    };
    for (const Example& x : examples) {
        std::vector<std::uint8_t> raw(25);
        for (int i = 0; i < 25; ++i) raw[std::size_t(i)] = std::uint8_t((i / 5 + i % 5) % 2 ? x.green : 90);
        for (const auto& [r, c, v] : x.samples) raw[std::size_t(r * 5 + c)] = std::uint8_t(v);
        for (auto fn : {QZRCFA_SmoothHue_RGGB, QZRCFA_SmoothHue_RGGB_Flip}) {  // row 2 is its own mirror
            std::vector<std::uint8_t> out(75);
            fn(raw.data(), 5, 5, out.data(), 24);
            EXPECT_EQ(out[std::size_t((x.r * 5 + x.c) * 3)], x.expected_blue) << x.r << "," << x.c;
        }
    }
}

}  // namespace
}  // namespace qzrcfa::model
