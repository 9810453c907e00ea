// Laplacian's vector row kernels against the scalar ones, byte for byte.
//
// Each case runs one row of a pass. The raw samples and the output are copied into
// buffers that hold exactly the bytes the scalar kernel may touch for that row (from
// its first to its last read or written byte), so a build with AddressSanitizer
// reports any load or store of a vector kernel beyond them. Widths run over every
// value up to 100 and a few large ones, so the buffers start at every alignment and
// every count of leftover columns occurs.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "detail/bayer.h"
#include "detail/cpu.h"
#include "detail/frame.h"
#include "detail/laplacian.h"

namespace qzrcfa::detail {
namespace {

using Kernel = void (*)(const Row<std::uint8_t>&, const LaplacianParams&);

struct Candidate {
    const char* name;
    Isa needs;
    Kernel green;
    Kernel rb;
};

const Candidate kCandidates[] = {
    {"sse2", Isa::SSE2, laplacian_green_row_sse2, laplacian_rb_row_sse2},
    {"avx2", Isa::AVX2, laplacian_green_row_avx2, laplacian_rb_row_avx2},
    {"dispatched", Isa::Scalar, laplacian_green_row, laplacian_rb_row},
};

const Pattern kPatterns[] = {Pattern::RGGB, Pattern::BGGR, Pattern::GRBG, Pattern::GBRG};

std::vector<int> widths() {
    std::vector<int> out;
    for (int w = 5; w <= 100; ++w) out.push_back(w);
    for (int w : {255, 256, 257, 1000, 1921}) out.push_back(w);
    return out;
}

// Random bytes, full range or 0 .. 3 (equal gradients and ties everywhere).
std::vector<std::uint8_t> random_bytes(std::size_t n, std::mt19937& rng, bool narrow) {
    std::uniform_int_distribution<int> dist(0, narrow ? 3 : 255);
    std::vector<std::uint8_t> v(n);
    for (auto& b : v) b = std::uint8_t(dist(rng));
    return v;
}

// The part [first, last] of a buffer, in a buffer of its own.
struct Slice {
    std::vector<std::uint8_t> bytes;
    std::ptrdiff_t first;
    Slice(const std::vector<std::uint8_t>& whole, std::ptrdiff_t first_, std::ptrdiff_t last)
        : bytes(whole.begin() + first_, whole.begin() + last + 1), first(first_) {}
    // Where offset i of the whole buffer lies (may point outside the slice).
    std::uint8_t* at(std::ptrdiff_t i) { return bytes.data() + (i - first); }
};

struct RowCase {
    int width;
    int stride;
    int r;          // raw row; its parity and the pattern give the row's phase
    int height;     // rows of the frame (r + 2 >= height: a last-two-rows case)
    int c_first, c_last;
    Pattern pattern;
    bool flip;
    LaplacianParams params;
    bool narrow;

    std::string describe() const {
        return "W=" + std::to_string(width) + " P=" + std::to_string(stride) + " r=" + std::to_string(r) +
               " H=" + std::to_string(height) + " cols " + std::to_string(c_first) + ".." + std::to_string(c_last) +
               " pattern " + std::to_string(int(pattern)) + (flip ? " flip" : "") +
               (params.crossed_diagonals ? " crossed" : "") + (narrow ? " narrow" : "");
    }
};

Row<std::uint8_t> make_row(const RowCase& k, const std::uint8_t* s, std::uint8_t* d) {
    Row<std::uint8_t> row;
    row.s = s;
    row.width = k.width;
    row.d = d;
    row.up = std::ptrdiff_t(k.flip ? 1 : -1) * k.width * k.stride;
    row.down = -row.up;
    row.stride = k.stride;
    row.r = k.r;
    row.c_first = k.c_first;
    row.c_last = k.c_last;
    row.phase = row_phase(k.pattern, k.r);
    row.height = k.height;
    return row;
}

// One green-pass row. The kernel reads rows r - 2 .. r + 2 at the row's columns and
// row r two columns further on either side (a frame that ends early ends the
// samples), and writes the pixels of row r in its column range.
std::vector<std::uint8_t> green_row(Kernel kernel, const RowCase& k, const std::vector<std::uint8_t>& frame,
                                    const std::vector<std::uint8_t>& pixels) {
    const std::ptrdiff_t W = k.width;
    const std::ptrdiff_t last = std::min<std::ptrdiff_t>((k.r + 2) * W + k.c_last, std::ptrdiff_t(frame.size()) - 1);
    Slice src(frame, (k.r - 2) * W + k.c_first, last);
    std::vector<std::uint8_t> out = pixels;  // pixels c_first .. c_last of row r
    kernel(make_row(k, src.at(k.r * W), out.data() - std::ptrdiff_t(k.c_first) * k.stride), k.params);
    return out;
}

// One red/blue row. The kernel reads raw rows r - 1 .. r + 1 one column beyond the
// range on either side, and output bytes from -2 before the first pixel of the range
// in the output row above to +4 after the last one in the row below.
std::vector<std::uint8_t> rb_row(Kernel kernel, const RowCase& k, const std::vector<std::uint8_t>& frame,
                                 const std::vector<std::uint8_t>& output) {
    const std::ptrdiff_t W = k.width, P = k.stride, row_bytes = W * P;
    Slice src(frame, (k.r - 1) * W + k.c_first - 1, (k.r + 1) * W + k.c_last + 1);
    Slice dst(output, k.c_first * P - 2, 2 * row_bytes + k.c_last * P + 4);  // three output rows
    kernel(make_row(k, src.at(k.r * W), dst.at(row_bytes)), k.params);
    return dst.bytes;
}

bool runs(const Candidate& c) { return isa_available(c.needs); }

TEST(LaplacianKernels, GreenRowsMatchScalar) {
    std::mt19937 rng(611);
    for (int W : widths()) {
        // The regular pass (columns 2 .. W - 3) and the displaced one (4 .. W - 1).
        for (const auto& [c_first, c_last] : {std::pair{2, W - 3}, std::pair{4, W - 1}}) {
            if (c_first > c_last) continue;
            for (int P : {3, 4}) {
                for (bool narrow : {false, true}) {
                    for (int r : {4, 5}) {
                        const std::vector<std::uint8_t> frame = random_bytes(std::size_t(W) * (r + 3), rng, narrow);
                        const std::vector<std::uint8_t> pixels =
                            random_bytes(std::size_t(c_last - c_first + 1) * P, rng, narrow);
                        for (Pattern p : kPatterns) {
                            const RowCase k{W, P, r, r + 3, c_first, c_last, p, false, {false}, narrow};
                            const auto expected = green_row(laplacian_green_row_scalar, k, frame, pixels);
                            for (const Candidate& c : kCandidates) {
                                if (!runs(c)) continue;
                                ASSERT_EQ(green_row(c.green, k, frame, pixels), expected) << c.name << " " << k.describe();
                            }
                        }
                    }
                }
            }
        }
    }
}

// The displaced pass's last two rows read past the end of the frame; those samples
// read as 0 in every kernel, and nothing past the frame is touched.
TEST(LaplacianKernels, LastTwoRowsOfTheDisplacedPassMatchScalar) {
    std::mt19937 rng(612);
    for (int W : {5, 21, 40, 64, 99}) {
        for (int P : {3, 4}) {
            for (int rows_below : {0, 1}) {
                const int r = 6, H = r + 1 + rows_below;
                const std::vector<std::uint8_t> frame = random_bytes(std::size_t(W) * H, rng, false);
                const std::vector<std::uint8_t> pixels = random_bytes(std::size_t(W - 4) * P, rng, false);
                for (Pattern p : kPatterns) {
                    const RowCase k{W, P, r, H, 4, W - 1, p, false, {false}, false};
                    const auto expected = green_row(laplacian_green_row_scalar, k, frame, pixels);
                    for (const Candidate& c : kCandidates) {
                        if (!runs(c)) continue;
                        ASSERT_EQ(green_row(c.green, k, frame, pixels), expected) << c.name << " " << k.describe();
                    }
                }
            }
        }
    }
}

// With four-byte pixels the diagonal greens are the red and blue bytes around the
// pixels above and below, so the output rows around the row hold random bytes: all of
// them can reach the result.
TEST(LaplacianKernels, RedBlueRowsMatchScalar) {
    std::mt19937 rng(613);
    for (int W : widths()) {
        const int c_first = 2, c_last = W - 3;
        for (int P : {3, 4}) {
            for (bool narrow : {false, true}) {
                for (int r : {2, 3}) {
                    const std::vector<std::uint8_t> frame = random_bytes(std::size_t(W) * (r + 2), rng, narrow);
                    const std::vector<std::uint8_t> output = random_bytes(std::size_t(W) * 3 * P, rng, narrow);
                    for (Pattern p : kPatterns) {
                        for (bool flip : {false, true}) {
                            for (bool crossed : {false, true}) {
                                const RowCase k{W, P, r, r + 3, c_first, c_last, p, flip, {crossed}, narrow};
                                const auto expected = rb_row(laplacian_rb_row_scalar, k, frame, output);
                                for (const Candidate& c : kCandidates) {
                                    if (!runs(c)) continue;
                                    ASSERT_EQ(rb_row(c.rb, k, frame, output), expected) << c.name << " " << k.describe();
                                }
                            }
                        }
                    }
                }
            }
        }
    }
}

// Pixels of other sizes take the scalar kernel whole.
TEST(LaplacianKernels, OtherStridesMatchScalar) {
    std::mt19937 rng(614);
    for (int W : {24, 50}) {
        for (int P : {5, 6}) {
            const std::vector<std::uint8_t> frame = random_bytes(std::size_t(W) * 7, rng, false);
            const std::vector<std::uint8_t> output = random_bytes(std::size_t(W) * 3 * P, rng, false);
            const std::vector<std::uint8_t> pixels = random_bytes(std::size_t(W - 4) * P, rng, false);
            const RowCase k{W, P, 4, 7, 2, W - 3, Pattern::GRBG, false, {false}, false};
            for (const Candidate& c : kCandidates) {
                if (!runs(c)) continue;
                EXPECT_EQ(green_row(c.green, k, frame, pixels), green_row(laplacian_green_row_scalar, k, frame, pixels))
                    << c.name << " " << k.describe();
                EXPECT_EQ(rb_row(c.rb, k, frame, output), rb_row(laplacian_rb_row_scalar, k, frame, output))
                    << c.name << " " << k.describe();
            }
        }
    }
}

}  // namespace
}  // namespace qzrcfa::detail
