// Every export with its input and output placed against inaccessible pages: ending
// exactly at one, and in a second run starting right after one. A read or write
// outside the buffers faults, and the fault is reported with the export and the size.
// Buffers get exactly the slack include/qzrcfa.h documents for a member, and no more.
#include <gtest/gtest.h>

#include <algorithm>
#include <csetjmp>
#include <csignal>
#include <string>

#include "support/exports.h"
#include "support/guarded.h"

namespace {

using qzrcfa::test::Export;
using qzrcfa::test::Guarded;
using qzrcfa::test::kExports;

sigjmp_buf g_fault;
extern "C" void on_fault(int) { siglongjmp(g_fault, 1); }

// Calls the export; true if it faulted.
bool faults(const Export& e, void* s, int w, int h, void* d, unsigned short bits) {
    static const bool installed = [] {
        struct sigaction action{};
        action.sa_handler = on_fault;
        action.sa_flags = SA_NODEFER;
        return ::sigaction(SIGSEGV, &action, nullptr) == 0 && ::sigaction(SIGBUS, &action, nullptr) == 0;
    }();
    if (!installed || sigsetjmp(g_fault, 1) != 0) return true;
    if (e.colour8) e.colour8(static_cast<unsigned char*>(s), w, h, static_cast<unsigned char*>(d), bits);
    if (e.colour16) e.colour16(static_cast<unsigned short*>(s), w, h, static_cast<unsigned short*>(d), bits);
    if (e.grey8) e.grey8(static_cast<unsigned char*>(s), w, h, static_cast<unsigned char*>(d));
    if (e.grey16) e.grey16(static_cast<unsigned short*>(s), w, h, static_cast<unsigned short*>(d));
    return false;
}

// Output elements (8- or 16-bit) the caller provides around the image.
struct Slack {
    std::size_t before = 0, after = 0;
};

// Runs `e` on a w x h frame in both placements; returns "" or what faulted.
std::string run(const Export& e, int w, int h, unsigned short bits, Slack slack) {
    const std::size_t elem = e.wide() ? 2 : 1, pixels = std::size_t(w) * std::size_t(h);
    const std::size_t out = pixels * (e.grey() ? 1 : bits / 8u) + slack.before + slack.after;
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
    for (const Export& e : kExports) {
        for (const auto& [w, h] : sizes) {
            if (w < e.min_width() || h < e.min_height()) continue;
            // The BGGR border fill reads row 2 on odd widths (qzrcfa.hpp refuses odd
            // widths below 3 rows for the members that call it).
            if (w % 2 != 0 && h < 3 && e.name.find("BGGR") != std::string_view::npos) continue;
            const Slack slack{0, e.grey16 && e.flip() ? 2u : 0u};  // Gray_Flip_16Bits: 2 elements after the image
            for (const unsigned short bits : {24, 32}) {
                EXPECT_EQ(run(e, w, h, bits, slack), "");
                ++runs;
                if (e.grey()) break;
            }
        }
    }
    EXPECT_GT(runs, 99 * 4);
}

// The grey members' documented slack for heights and widths below their minimum.
TEST(PageEnds, GreyMembersBelowTheirMinimumStayWithinTheDocumentedSlack) {
    for (const Export& e : kExports) {
        if (!e.grey()) continue;
        const std::size_t tail = e.grey16 && e.flip() ? 2 : 0;
        // Height 1: the row comes from the width elements before dst, or for _Flip
        // members after the row.
        for (const int w : {4, 9}) {
            const Slack slack = e.flip() ? Slack{0, std::max<std::size_t>(std::size_t(w), tail)} : Slack{std::size_t(w), 0};
            EXPECT_EQ(run(e, w, 1, 24, slack), "");
        }
        // Narrow frames: up to 3 elements before dst; width 1 makes the top-down
        // shuffling members write 1 element after the image.
        for (int w = 1; w < e.min_width(); ++w) {
            const std::size_t after = std::max<std::size_t>(tail, w == 1 && !e.flip() && !e.two_column() ? 1 : 0);
            for (const int h : {2, 3}) EXPECT_EQ(run(e, w, h, 24, Slack{3, after}), "");
        }
    }
}

}  // namespace
