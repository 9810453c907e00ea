// Every export with its input and output placed against inaccessible pages: ending
// exactly at one, and in a second run starting right after one. A read or write
// outside the buffers faults, and the fault is reported with the export and the size.
// Buffers get exactly the slack include/qzrcfa.h documents for a member, and no more.
#include <gtest/gtest.h>

#include <algorithm>
#include <csetjmp>
#include <csignal>
#include <string>

#include "model.h"
#include "support/guarded.h"

namespace {

using qzrcfa::model::Family;
using qzrcfa::model::kMembers;
using qzrcfa::model::Member;
using qzrcfa::test::Guarded;

// The smallest frame the header allows a member: 4 x 4 with the two-pixel margin; grey
// 3 wide where it copies two columns, 4 where it shuffles; 2 x 2 otherwise.
int min_width(const Member& m) {
    if (m.family == Family::Grey) return m.flags & qzrcfa::model::kShuffle ? 4 : 3;
    return m.family == Family::Laplacian || m.family == Family::Edge2 ? 4 : 2;
}
int min_height(const Member& m) { return m.family == Family::Laplacian || m.family == Family::Edge2 ? 4 : 2; }
bool grey(const Member& m) { return m.entry.grey; }

sigjmp_buf g_fault;
extern "C" void on_fault(int) { siglongjmp(g_fault, 1); }

// Calls the export; true if it faulted.
bool faults(const Member& e, void* s, int w, int h, void* d, unsigned short bits) {
    static const bool installed = [] {
        struct sigaction action{};
        action.sa_handler = on_fault;
        action.sa_flags = SA_NODEFER;
        return ::sigaction(SIGSEGV, &action, nullptr) == 0 && ::sigaction(SIGBUS, &action, nullptr) == 0;
    }();
    if (!installed || sigsetjmp(g_fault, 1) != 0) return true;
    if (e.wide()) qzrcfa::model::call(e, static_cast<unsigned short*>(s), w, h, static_cast<unsigned short*>(d), bits);
    else qzrcfa::model::call(e, static_cast<unsigned char*>(s), w, h, static_cast<unsigned char*>(d), bits);
    return false;
}

// Output elements (8- or 16-bit) the caller provides around the image.
struct Slack {
    std::size_t before = 0, after = 0;
};

// Runs `e` on a w x h frame in both placements; returns "" or what faulted.
std::string run(const Member& e, int w, int h, unsigned short bits, Slack slack) {
    const std::size_t elem = e.wide() ? 2 : 1, pixels = std::size_t(w) * std::size_t(h);
    const std::size_t out = pixels * (grey(e) ? 1 : bits / 8u) + slack.before + slack.after;
    for (const bool at_end : {true, false}) {
        const Guarded src(pixels * elem, at_end), dst(out * elem, at_end);
        if (faults(e, src.data(), w, h, dst.data() + slack.before * elem, bits))
            return std::string(e.name) + " " + std::to_string(w) + "x" + std::to_string(h) + " bitCount " +
                   std::to_string(bits) + (at_end ? ": past the end of src or dst" : ": before the start of src or dst");
    }
    return "";
}

// Sizes at and above every member's minimum, with widths that end the wide kernels'
// blocks at every phase.
TEST(PageEnds, NoExportTouchesMemoryOutsideItsBuffersAtDocumentedSizes) {
    const int sizes[][2] = {{2, 2}, {7, 2}, {3, 3}, {4, 4}, {5, 5}, {37, 4}, {70, 5}, {133, 6}};
    int runs = 0;
    for (const Member& e : kMembers) {
        for (const auto& [w, h] : sizes) {
            if (w < min_width(e) || h < min_height(e)) continue;
            // The BGGR border fill reads row 2 on odd widths (qzrcfa.hpp refuses odd
            // widths below 3 rows for the members that call it).
            if (w % 2 != 0 && h < 3 && e.pattern() == "BGGR") continue;
            const Slack slack{0, grey(e) && e.wide() && e.flip() ? 2u : 0u};  // Gray_Flip_16Bits: 2 elements after the image
            for (const unsigned short bits : {24, 32}) {
                EXPECT_EQ(run(e, w, h, bits, slack), "");
                ++runs;
                if (grey(e)) break;
            }
        }
    }
    EXPECT_GT(runs, 99 * 4);
}

// The grey members' documented slack for heights and widths below their minimum.
TEST(PageEnds, GreyMembersBelowTheirMinimumStayWithinTheDocumentedSlack) {
    for (const Member& e : kMembers) {
        if (!grey(e)) continue;
        const std::size_t tail = e.wide() && e.flip() ? 2 : 0;
        // Height 1: the row comes from the width elements before dst, or for _Flip
        // members after the row.
        for (const int w : {4, 9}) {
            const Slack slack = e.flip() ? Slack{0, std::max<std::size_t>(std::size_t(w), tail)} : Slack{std::size_t(w), 0};
            EXPECT_EQ(run(e, w, 1, 24, slack), "");
        }
        // Narrow frames: up to 3 elements before dst; width 1 makes the top-down
        // shuffling members write 1 element after the image.
        for (int w = 1; w < min_width(e); ++w) {
            const bool shuffle = e.flags & qzrcfa::model::kShuffle;
            const std::size_t after = std::max<std::size_t>(tail, w == 1 && !e.flip() && shuffle ? 1 : 0);
            for (const int h : {2, 3}) EXPECT_EQ(run(e, w, h, 24, Slack{3, after}), "");
        }
    }
}

}  // namespace
