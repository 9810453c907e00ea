// A colour member as the frame driver sees it, and one call's frame: the member, the
// kernel set, the buffers, and the order in which the rows of its passes run on one
// thread.
//
// Two passes. With three- and four-byte pixels the second pass of a member reads, around
// row r, only the output rows of raw rows r - 1 .. r + 1, and the first pass reads no
// output and writes only its own row (narrower pixels reach further, and run each pass
// over the whole frame). So the second pass runs one row behind the first instead of
// after it: when it reads a row, the first pass has written it and the second has not
// (or, for the rows above, has), exactly as after a full first pass, while the rows it
// works on are still in the cache.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "catalogue/catalogue.h"
#include "driver/fill.h"
#include "driver/tasks.h"
#include "kernels/bayer.h"
#include "kernels/kernels.h"

namespace qzrcfa::detail {

// Signature of every colour export (and of the border fills they call).
template <class T>
using ColourFn = int (*)(T* src, int width, int height, T* dst, unsigned short bitCount);

// What a call runs with besides its arguments.
struct Call {
    // The threads of a parallel call; none for the exports.
    const Tasks* tasks = nullptr;
    // The library's own definition of an export (the function its exported name
    // reaches when nothing is interposed in front of it), to tell whether the border
    // fill a member calls is the library's; null when it cannot tell.
    const void* (*own_definition)(catalogue::Id export_id) = nullptr;
};

// One sweep over the interior: rows and columns margin .. size - 1 - margin, displaced
// by `shift` rows and columns; skipped whole when width <= 2 * margin. The reference
// kernel finishes what the kernel set's column kernel (`wide`) leaves of a row.
template <class T, class Params>
struct Pass {
    ColumnKernel<T, Params> reference = nullptr;
    ColumnKernel<T, Params> KernelSet::*wide = nullptr;
    int margin = 1;
    int shift = 0;
};

// Everything the driver needs to know about one colour member.
template <class T, class Params>
struct ColourMember {
    Pattern pattern;
    bool flip;
    Prefill prefill;
    ColourFn<T> border;          // exported border fill of the member's pattern and suffix
    catalogue::Id border_id;     // which export that is
    int min_height;              // below this the member returns after the border fill
    Params params;               // the method's own per-member data
    Pass<T, Params> passes[2];

    bool two_passes() const { return passes[1].reference != nullptr; }
};

// A member's border fill: its exported entry point and which export it is.
#define QZRCFA_BORDER(suffix) QZRCFA_NearestNeighbor_##suffix, ::qzrcfa::catalogue::Id::NearestNeighbor_##suffix

// One call's frame: what the passes need besides the member.
template <class T, class Params>
struct Frame {
    const ColourMember<T, Params>& m;
    const KernelSet& kernels;
    const T* src;
    int width, height;
    T* dst;
    int stride;
    Pitches pitches;
    bool fused;      // the 255 pre-fill is left to the first pass inside `covered`
    Region covered;  // where the first pass writes whole pixels
    bool stream;     // whole-pixel stores may bypass the cache

    Region pass_region(const Pass<T, Params>& pass) const {
        return {pass.margin + pass.shift, height - 1 - pass.margin + pass.shift, pass.margin + pass.shift,
                width - 1 - pass.margin + pass.shift};
    }

    // Whether the second pass runs, on rows of three- or four-byte pixels.
    bool runs_second() const { return m.two_passes() && width > 2 * m.passes[1].margin; }

    void run(const Pass<T, Params>& pass, int r, int c_first, int c_last, bool fill255) const {
        if (c_first > c_last) return;
        Row<T> row;
        row.s = src + std::ptrdiff_t(r) * pitches.src;
        row.width = width;
        row.pitch = pitches.src;
        row.d = dst + std::ptrdiff_t(output_row(r, height, m.flip)) * pitches.dst;
        row.up = m.flip ? pitches.dst : -pitches.dst;
        row.down = -row.up;
        row.stride = stride;
        row.r = r;
        row.c_first = c_first;
        row.c_last = c_last;
        row.phase = row_phase(m.pattern, r);
        row.height = height;
        row.fill255 = fill255;
        row.stream = stream;
        pass.reference(row, m.params, (kernels.*pass.wide)(row, m.params, c_first));
    }

    // Row r of a pass: whole pixels inside the region the first pass covers, the
    // method's own elements elsewhere, left to right.
    void run_row(int pass_index, int r) const {
        const Pass<T, Params>& pass = m.passes[pass_index];
        const Region all = pass_region(pass);
        if (!fused || pass_index != 0 || !covered.contains_row(r)) return run(pass, r, all.c0, all.c1, false);
        run(pass, r, all.c0, covered.c0 - 1, false);
        run(pass, r, covered.c0, covered.c1, true);
        run(pass, r, covered.c1 + 1, all.c1, false);
    }

    // Rows r_begin .. r_end - 1 of the frame's passes, in an order that gives the bytes
    // of running each pass over them in turn (see the file's opening comment). The
    // first-pass rows done_a and done_b have been computed already.
    void run_rows(int r_begin, int r_end, int done_a = -1, int done_b = -1) const {
        if (width <= 2 * m.passes[0].margin) return;
        const Region a = pass_region(m.passes[0]);
        const int a_begin = std::max(r_begin, a.r0), a_end = std::min(r_end, a.r1 + 1);
        auto first_pass = [&](int r) {
            if (r != done_a && r != done_b) run_row(0, r);
        };
        if (!runs_second()) {
            if (descending()) {
                for (int r = a_end - 1; r >= a_begin; --r) first_pass(r);
            } else {
                for (int r = a_begin; r < a_end; ++r) first_pass(r);
            }
            return;
        }
        const Region b = pass_region(m.passes[1]);
        const int b_begin = std::max(r_begin, b.r0), b_end = std::min(r_end, b.r1 + 1);
        if (stride != 3 && stride != 4) {
            // Pixels of one or two bytes: a row's second pass reaches, at its ends, into
            // the rows beyond its neighbours, so each pass runs over the whole range.
            for (int r = a_begin; r < a_end; ++r) first_pass(r);
            for (int r = b_begin; r < b_end; ++r) run_row(1, r);
            return;
        }
        if (descending()) {
            int next = a_end - 1;
            for (int r = b_end - 1; r >= b_begin; --r) {
                for (; next >= std::max(a_begin, r - 1); --next) first_pass(next);
                run_row(1, r);
            }
            for (; next >= a_begin; --next) first_pass(next);
            return;
        }
        int next = a_begin;
        for (int r = b_begin; r < b_end; ++r) {
            for (; next < std::min(a_end, r + 2); ++next) first_pass(next);
            run_row(1, r);
        }
        for (; next < a_end; ++next) first_pass(next);
    }

    // Bottom-up members write their output rows from the end of the buffer backwards
    // when the raw rows are walked top-down, and memory takes a stream of stores
    // backwards much more slowly. Where the order of the rows cannot show, the raw rows
    // are walked bottom-up instead, so that the stores run forwards: with three- and
    // four-byte pixels no two rows write the same byte, a single pass reads no output,
    // and the second passes of three-byte pixels read only greens, which they never
    // write (their reads of the rows around meet the same bytes in either order).
    bool descending() const {
        if (!m.flip || (stride != 3 && stride != 4)) return false;
        return !m.two_passes() || stride == 3;
    }
};

}  // namespace qzrcfa::detail
