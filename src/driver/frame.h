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
#include <memory>
#include <type_traits>

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
    // The kernel set to run; null: the one of the widest instruction set the processor has.
    const KernelSet* kernels = nullptr;
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

// The kernel-set slots of a two-pass member's sweep (see Frame::sweep_rows); none for
// the other members.
template <class Params>
struct SweepSlots {
    GreensKernel<Params> KernelSet::*greens = nullptr;
    SweepKernel<Params> KernelSet::*colour = nullptr;
    bool quotients = false;  // the ring holds quotients (RingRow)
    bool bytes = false;      // with four-byte pixels, the bytes around each pixel
    bool colours = false;    // with four-byte pixels, the red and blue the second pass leaves
    // With four-byte pixels the second pass reads, of what it computed in the row above,
    // only the colours of its own pair of columns (plan_sweep()), so that bands of
    // columns may run on threads apart (schedules.h).
    bool columns_apart = false;
    // With three-byte pixels the second pass reads, of the output, only the greens of
    // its diagonal neighbours, so its core may reach the edges of the region the first
    // pass covers whole (Frame::edge_greens).
    bool greens_only = false;
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
    SweepSlots<Params> sweep = {};

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
    // With a sweep (see sweep_rows()): where its kernel computes whole pixels.
    bool sweep = false;
    Region core = {};
    // The core's columns reach the edges of `covered`, and the ring holds, just outside
    // them, the greens the output has there (SweepSlots::greens_only).
    bool edge_greens = false;
    // Where a sweep's ring lives: `ring_capacity` bytes at `ring_memory` (the calling
    // thread's stack, for the exports, which allocate nothing), else on the heap when
    // `heap_rings` (the extended library); a ring that fits neither leaves the passes to
    // run one after the other.
    std::uint8_t* ring_memory = nullptr;
    std::size_t ring_capacity = 0;
    bool heap_rings = false;

    Region pass_region(const Pass<T, Params>& pass) const {
        return {pass.margin + pass.shift, height - 1 - pass.margin + pass.shift, pass.margin + pass.shift,
                width - 1 - pass.margin + pass.shift};
    }

    // Whether the second pass runs, on rows of three- or four-byte pixels.
    bool runs_second() const { return m.two_passes() && width > 2 * m.passes[1].margin; }

    Row<T> row_of(int r, int c_first, int c_last, bool fill255) const {
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
        const int next = descending() ? -1 : 1;  // the walk's next raw row
        row.fetch = next * (m.passes[0].margin + 1) * pitches.src;
        row.ahead = next > 0 ? row.down : row.up;
        return row;
    }

    void run(const Pass<T, Params>& pass, int r, int c_first, int c_last, bool fill255) const {
        if (c_first > c_last) return;
        const Row<T> row = row_of(r, c_first, c_last, fill255);
        pass.reference(row, m.params, (kernels.*pass.wide)(row, m.params, c_first));
    }

    // Columns c0 .. c1 of row r of a pass: whole pixels inside the region the first pass
    // covers, the method's own elements elsewhere, left to right.
    void run_part(int pass_index, int r, int c0, int c1) const {
        const Pass<T, Params>& pass = m.passes[pass_index];
        const Region all = pass_region(pass);
        c0 = std::max(c0, all.c0), c1 = std::min(c1, all.c1);
        if (!fused || pass_index != 0 || !covered.contains_row(r)) return run(pass, r, c0, c1, false);
        run(pass, r, c0, std::min(c1, covered.c0 - 1), false);
        run(pass, r, std::max(c0, covered.c0), std::min(c1, covered.c1), true);
        run(pass, r, std::max(c0, covered.c1 + 1), c1, false);
    }

    void run_row(int pass_index, int r) const { run_part(pass_index, r, 0, width - 1); }

    // Rows r_begin .. r_end - 1 of the frame's passes, in an order that gives the bytes
    // of running each pass over them in turn (see the file's opening comment). The
    // first-pass rows done_a and done_b have been computed already.
    void run_rows(int r_begin, int r_end, int done_a = -1, int done_b = -1) const {
        if (width <= 2 * m.passes[0].margin) return;
        if (sweep && sweep_rows(r_begin, r_end, done_a, done_b)) return;
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

    // The sweep of a two-pass member (see plan_sweep() in demosaic.h): the passes advance
    // together as in run_rows, and in the core (the rows and columns one inside the
    // region the first pass covers whole, so that every green and every output byte the
    // second pass reads there lies inside that region) the first pass puts its greens
    // into a ring of four rows, one byte per column, instead of the output, and the
    // second pass reads them there and writes the core's pixels whole, once. Around the
    // core the passes run as in run_rows, on the output, when they run there: the first
    // pass of a core row writes its columns outside the core and the core's first and
    // last columns where the second pass runs beside the core and reads them; that of the
    // core's first and last rows all of their columns, which the rows next to them read;
    // and the second pass of a core row computes its columns outside the core itself,
    // left of the core first. So every output byte a pass reads holds what it holds
    // when the passes run one after the other, and the core's kernel reads those bytes
    // and greens. With edge_greens the core's columns are those of the region itself:
    // its second pass reads of the output only greens, and those just outside the
    // region, which no pass writes after the first pass of their row, the ring takes
    // from the output. The first and last rows of the range stay outside the core: with
    // several threads, other bands read them (schedules.h). Returns false, having done
    // nothing, when the rows r_begin .. r_end - 1 hold no core row.
    bool sweep_rows(int r_begin, int r_end, int done_a, int done_b) const {
        const int k0 = std::max(core.r0, r_begin + 1), k1 = std::min(core.r1, r_end - 2);
        if (k0 > k1) return false;
        const Span all{0, width - 1, core.c0, core.c1};
        const bool fits = Ring::bytes(*this, all) <= ring_capacity;
        if (!fits && !heap_rings) return false;
        const Ring ring(*this, all, fits ? ring_memory : nullptr);
        const Region a = pass_region(m.passes[0]), b = pass_region(m.passes[1]);
        const int a_begin = std::max(r_begin, a.r0), a_end = std::min(r_end, a.r1 + 1);
        const int b_begin = std::max(r_begin, b.r0), b_end = std::min(r_end, b.r1 + 1);
        auto first_pass = [&](int q) { sweep_first(q, k0, k1, all, &ring, q == done_a || q == done_b); };
        if (descending()) {
            int next = a_end - 1;
            for (int r = b_end - 1; r >= b_begin; --r) {
                for (; next >= std::max(a_begin, r - 1); --next) first_pass(next);
                sweep_second(r, k0, k1, all, &ring);
            }
            for (; next >= a_begin; --next) first_pass(next);
        } else {
            int next = a_begin;
            for (int r = b_begin; r < b_end; ++r) {
                for (; next < std::min(a_end, r + 2); ++next) first_pass(next);
                sweep_second(r, k0, k1, all, &ring);
            }
            for (; next < a_end; ++next) first_pass(next);
        }
        return true;
    }

    // Columns x0 .. x1 of the frame, and kc0 .. kc1 of the core, that a sweep covers: all
    // of them, or a band of them (schedules.h). A band between two others has the bytes
    // the first pass leaves next to it (RingRow::left and right, at kc0 - 1 and kc1 + 1)
    // from before the bands ran, by raw row from row0; null: from the output.
    struct Span {
        int x0, x1, kc0, kc1;
        const std::uint8_t* left_of = nullptr;
        const std::uint8_t* right_of = nullptr;
        int row0 = 0;
    };

    // The ring of a sweep over a span (RingRow): four rows, by raw row, holding columns
    // kc0 - 1 .. kc1 + 1, with room on both sides for the loads of a block that reach
    // past its columns; each plane starts on a 64-byte line. In `memory` (at least
    // bytes(f, span) bytes, 64-byte aligned), or, when null, in memory of its own.
    class Ring {
      public:
        Ring(const Frame& f, const Span& span, std::uint8_t* memory)
            : core_(span.kc0),
              bytes_row_(bytes_row(f)),
              class_row_(class_row(span)),
              bytes_(f.stride == 4 && f.m.sweep.bytes),
              colours_(f.stride == 4 && f.m.sweep.colours),
              planes_(planes(f)),
              quotients_(f.m.sweep.quotients),
              row_(row_bytes(f, span)),
              owned_(memory != nullptr ? nullptr : new std::uint8_t[std::size_t(4 * row_) + 64]),
              memory_(memory != nullptr ? memory : owned_.get() + (64 - reinterpret_cast<std::uintptr_t>(owned_.get()) % 64) % 64) {}

        static std::size_t bytes(const Frame& f, const Span& span) { return std::size_t(4 * row_bytes(f, span)); }

        RingRow row(int q) const {
            std::uint8_t* base = memory_ + (q & 3) * row_;
            RingRow r{base + kPad, {}, core_, nullptr, nullptr, nullptr, nullptr};
            std::uint8_t* plane = base + bytes_row_ + kPad;
            if (bytes_) r.left = plane, r.right = plane + bytes_row_, plane += 2 * bytes_row_;
            if (colours_) r.red = plane, r.blue = plane + bytes_row_;
            if (quotients_)
                for (int j = 0; j < 4; ++j) r.quotients[j] = reinterpret_cast<float*>(base + planes_ * bytes_row_) + j * class_row_;
            return r;
        }

      private:
        static constexpr int kPad = 128;
        static std::ptrdiff_t bytes_row(const Frame& f) { return (std::ptrdiff_t(f.width) + 2 * kPad + 63) / 64 * 64; }
        static std::ptrdiff_t class_row(const Span& span) { return ((span.kc1 - span.kc0 + 1) / 4 + 2 + kPad / 4 + 15) / 16 * 16; }
        static int planes(const Frame& f) {
            return 1 + 2 * int(f.stride == 4 && f.m.sweep.bytes) + 2 * int(f.stride == 4 && f.m.sweep.colours);
        }
        static std::ptrdiff_t row_bytes(const Frame& f, const Span& span) {
            return planes(f) * bytes_row(f) + (f.m.sweep.quotients ? 4 * class_row(span) * std::ptrdiff_t(sizeof(float)) : 0);
        }
        int core_;
        std::ptrdiff_t bytes_row_, class_row_;
        bool bytes_, colours_;
        int planes_;
        bool quotients_;
        std::ptrdiff_t row_;
        std::unique_ptr<std::uint8_t[]> owned_;
        std::uint8_t* memory_;
    };

    // How many rows ahead a sweep with edge_greens fetches the output lines whose greens
    // its ring takes from the output: the border fill wrote them long before, and a read
    // that misses the cache holds up the row.
    static constexpr int kEdgeAhead = 8;

    // The first pass of raw row q in a sweep whose core rows are k0 .. k1, over the
    // span: on the output unless `done`, and into the ring (when not null). In a core
    // row it writes the output outside the core, and the core's first and last columns
    // where the second pass runs beside the core and reads them.
    void sweep_first(int q, int k0, int k1, const Span& span, const Ring* ring, bool done) const {
        const Region b = pass_region(m.passes[1]);
        if (!done) {
            if (q > k0 && q < k1) {
                if (span.x0 == 0) run_part(0, q, 0, edge_greens && b.c0 >= core.c0 ? core.c0 - 1 : core.c0);
                if (span.x1 == width - 1) run_part(0, q, edge_greens && b.c1 <= core.c1 ? core.c1 + 1 : core.c1, width - 1);
            } else {
                run_part(0, q, span.x0, span.x1);
            }
        }
        if constexpr (std::is_same_v<T, std::uint8_t>) {
            if (ring == nullptr || q < k0 - 1 || q > k1 + 1) return;
            const RingRow row = ring->row(q);
            if (edge_greens) {
                (kernels.*m.sweep.greens)(row_of(q, span.kc0, span.kc1, false), m.params, row, span.kc0);
                // Outside the core, what the border fill, the pre-fill or this row's
                // first pass (above) left in the output, which no pass writes after.
                row.greens[span.kc0 - 1] = pixel(q, span.kc0 - 1)[kGreen];
                row.greens[span.kc1 + 1] = pixel(q, span.kc1 + 1)[kGreen];
                const int ahead = descending() ? q - kEdgeAhead : q + kEdgeAhead;
                if (ahead >= 0 && ahead < height) {
                    __builtin_prefetch(pixel(ahead, span.kc0 - 1), 1);
                    __builtin_prefetch(pixel(ahead, span.kc1 + 1), 1);
                }
            } else {
                (kernels.*m.sweep.greens)(row_of(q, span.kc0 - 1, span.kc1 + 1, false), m.params, row, span.kc0 - 1);
            }
            if (row.left != nullptr) {
                const T* out = pixel(q, 0);
                row.left[span.kc0] = span.left_of ? span.left_of[q - span.row0] : out[std::ptrdiff_t(span.kc0 - 1) * stride + kRed];
                row.right[span.kc1] = span.right_of ? span.right_of[q - span.row0] : out[std::ptrdiff_t(span.kc1 + 1) * stride + kBlue];
            }
        }
    }

    // Element 0 of pixel (r, c) of the output.
    T* pixel(int r, int c) const {
        return dst + std::ptrdiff_t(output_row(r, height, m.flip)) * pitches.dst + std::ptrdiff_t(c) * stride;
    }

    // The red and blue of row r's columns c0 .. c1 into its ring row (RingRow::red and
    // blue), as the passes around the core leave them in the output.
    void keep_colours(const Ring& ring, int r, int c0, int c1) const {
        const RingRow row = ring.row(r);
        if (row.red == nullptr) return;
        for (int c = c0; c <= c1; ++c) row.red[c] = std::uint8_t(pixel(r, c)[kRed]), row.blue[c] = std::uint8_t(pixel(r, c)[kBlue]);
    }

    // The second pass of raw row r in a sweep, over the span.
    void sweep_second(int r, int k0, int k1, const Span& span, const Ring* ring) const {
        const Region b = pass_region(m.passes[1]);
        if (r < k0 || r > k1) {
            run_part(1, r, span.x0, span.x1);
            if (r == k0 - 1 && ring != nullptr) keep_colours(*ring, r, span.kc0 - 1, span.kc1 + 1);
            return;
        }
        if constexpr (std::is_same_v<T, std::uint8_t>) {
            const RingRow around[3] = {ring->row(r - 1), ring->row(r), ring->row(r + 1)};
            if (span.x0 == 0) {
                run(m.passes[1], r, b.c0, core.c0 - 1, false);
                keep_colours(*ring, r, core.c0 - 1, core.c0 - 1);
            } else if (around[1].red != nullptr) {
                // Of the colours left of a band between others the second pass reads only
                // samples: the red of a red row's site before the band (by its own row, and
                // by a blue row's first site below it).
                around[1].red[span.kc0 - 1] = std::uint8_t(src[std::ptrdiff_t(r) * pitches.src + span.kc0 - 1]);
            }
            (kernels.*m.sweep.colour)(row_of(r, span.kc0, span.kc1, fused), m.params, around, span.kc0);
            if (span.x1 == width - 1) {
                run(m.passes[1], r, core.c1 + 1, b.c1, false);
                keep_colours(*ring, r, core.c1 + 1, core.c1 + 1);
            } else if (around[1].blue != nullptr) {
                // And right of it, the blue of a blue row's site after the band (by a red
                // row's last site below it).
                around[1].blue[span.kc1 + 1] = std::uint8_t(src[std::ptrdiff_t(r) * pitches.src + span.kc1 + 1]);
            }
        }
    }
};

}  // namespace qzrcfa::detail
