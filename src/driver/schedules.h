// The schedules that run a frame's passes on several threads with the bytes of one
// thread's run_rows(0, height), one function each, and the choice between them.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "driver/frame.h"
#include "driver/tasks.h"

namespace qzrcfa::detail {

// Orders the stores that bypassed the cache before whatever the caller does next.
inline void store_fence() {
#if defined(__x86_64__)
    __builtin_ia32_sfence();
#endif
}

// The narrowest band of columns a sweep on several threads runs.
inline constexpr int kBandColumns = 256;

// Two bands of rows per thread, handed out as threads come free: with one, a thread
// the machine holds back keeps the call waiting; with four, each band's ends and its
// own ring cost more than the balance gains. On a shared 2-core AMD EPYC (Zen 5), the
// three-byte Laplacian on two threads took 0.54 to 0.64 of one thread's time with two
// per thread, 0.64 to 0.73 with four and 0.59 to 0.71 with one.
template <class T, class Params>
Bands row_bands(const Frame<T, Params>& f, const Tasks& tasks) {
    return Bands{0, f.height, std::min(tasks.threads() * 2, std::max(1, f.height / 8))};
}

// One pass: it reads no output and its rows write disjoint pixels (three- or four-byte
// pixels), so bands are independent.
template <class T, class Params>
void one_pass_in_bands(const Frame<T, Params>& f, const Tasks& tasks) {
    const Bands bands = row_bands(f, tasks);
    tasks.for_each(bands.count, [&](int i) {
        f.run_rows(bands.first(i), bands.first(i + 1));
        if (f.stream) store_fence();
    });
}

// Two passes, three-byte pixels: the second pass reads, around row r, the greens of
// rows r - 1 .. r + 1, which only the first pass writes, and no byte that it writes
// itself. Each band first computes the first-pass rows at its two ends, then, once
// every band has, runs its rows as run_rows does, taking those rows as done: whatever a
// band reads across its ends is final by then, and no band writes a row another reads.
template <class T, class Params>
void two_passes_in_bands(const Frame<T, Params>& f, const Tasks& tasks) {
    const Bands bands = row_bands(f, tasks);
    const Region a = f.pass_region(f.m.passes[0]);
    // The first-pass rows at band i's ends.
    auto ends = [&](int i) {
        return Region{std::max(bands.first(i), a.r0), std::min(bands.first(i + 1) - 1, a.r1), 0, 0};
    };
    tasks.for_each(bands.count, [&](int i) {
        const Region e = ends(i);
        if (e.r0 > e.r1) return;
        f.run_row(0, e.r0);
        if (e.r1 != e.r0) f.run_row(0, e.r1);
    });
    tasks.for_each(bands.count, [&](int i) {
        const Region e = ends(i);
        f.run_rows(bands.first(i), bands.first(i + 1), e.r0, e.r1);
    });
}

// Two passes, four-byte pixels, in a sweep whose ring carries the red and blue each row's
// second pass leaves (RingRow::red and blue): the second pass of a row reads no output
// row but its own, and of what it computed in the row above only the colours of its
// own pair of columns (plan_sweep), in members whose pairs run apart (SweepSlots). So
// the core's rows run as the sweep runs them, in bands of columns of whole pairs, each
// band on its own ring: first, on the calling thread, everything the sweep does before
// the second pass of the core's first row; then the bands, each from that row to the
// core's last, the first band with the columns left of the core and the last with
// those right of it; then the rest, again on the calling thread. A band's first passes
// read only samples and write only its own columns; its second passes write only its
// own columns, and read the output only in its own columns. What the first pass leaves
// in the output next to a band, and a band reads (smooth hue's bytes around a pixel,
// RingRow::left and right), is kept before the bands run. One band per thread: with two
// per thread, each walking shorter rows, two threads took 0.9 to 1.3 times one thread's
// time on the four-byte Laplacian (a shared 2-core AMD EPYC, Zen 5); with one, 0.6 to 0.8.
template <class T, class Params>
bool sweep_in_columns(const Frame<T, Params>& f, const Tasks& tasks) {
    using Span = typename Frame<T, Params>::Span;
    using Ring = typename Frame<T, Params>::Ring;
    const Region core = f.core;
    const int columns = core.c1 - core.c0 + 1;
    const int count = std::min(tasks.threads(), columns / std::max(kBandColumns, 2 * f.kernels.lanes));
    if (count < 2) return false;
    const int k0 = std::max(core.r0, 1), k1 = std::min(core.r1, f.height - 2);
    // Band i: core columns first(i) .. first(i + 1) - 1, each band whole pairs and a
    // multiple of four columns.
    auto first = [&](int i) { return i == count ? core.c1 + 1 : core.c0 + 4 * int(std::int64_t(columns / 4) * i / count); };
    // The bytes next to the bands (Span), rows k0 - 1 .. k1 + 1: what the first pass
    // leaves there is what the output holds before the bands run.
    const int rows = k1 - k0 + 3;
    std::unique_ptr<std::uint8_t[]> kept;
    if (f.m.sweep.bytes) {
        kept.reset(new std::uint8_t[std::size_t(2 * count) * std::size_t(rows)]);
        for (int i = 1; i < count; ++i)
            for (int q = k0 - 1; q <= k1 + 1; ++q) {
                kept[std::size_t(2 * i) * std::size_t(rows) + std::size_t(q - k0 + 1)] = std::uint8_t(f.pixel(q, first(i) - 1)[kRed]);
                kept[std::size_t(2 * i + 1) * std::size_t(rows) + std::size_t(q - k0 + 1)] = std::uint8_t(f.pixel(q, first(i))[kBlue]);
            }
    }
    auto kept_of = [&](int i, int which) -> const std::uint8_t* {
        return kept ? kept.get() + std::size_t(2 * i + which) * std::size_t(rows) : nullptr;
    };
    const Region a = f.pass_region(f.m.passes[0]), b = f.pass_region(f.m.passes[1]);
    const Span all{0, f.width - 1, core.c0, core.c1};
    // Before the core's first row: the sweep's steps up to the second pass of row k0 - 1.
    int next = a.r0;
    for (int r = b.r0; r < k0; ++r) {
        for (; next < std::min(a.r1 + 1, r + 2); ++next) f.sweep_first(next, k0, k1, all, nullptr, false);
        f.sweep_second(r, k0, k1, all, nullptr);
    }
    tasks.for_each(count, [&](int i) {
        Span span{i == 0 ? 0 : first(i), i == count - 1 ? f.width - 1 : first(i + 1) - 1, first(i), first(i + 1) - 1};
        if (i > 0) span.left_of = kept_of(i, 0);
        if (i < count - 1) span.right_of = kept_of(i + 1, 1);
        span.row0 = k0 - 1;
        const Ring ring(f, span, nullptr);
        // The ring rows the core's first row reads, and its first passes from there on.
        for (int q = std::max(k0 - 1, a.r0); q < next; ++q) f.sweep_first(q, k0, k1, span, &ring, true);
        f.keep_colours(ring, k0 - 1, span.kc0 - 1, span.kc1 + 1);
        for (int r = k0, q = next; r <= k1; ++r) {
            for (; q < std::min(a.r1 + 1, r + 2); ++q) f.sweep_first(q, k0, k1, span, &ring, false);
            f.sweep_second(r, k0, k1, span, &ring);
        }
    });
    // After the core's last row.
    next = std::max(next, std::min(a.r1 + 1, k1 + 2));
    for (int r = k1 + 1; r <= b.r1; ++r) {
        for (; next < std::min(a.r1 + 1, r + 2); ++next) f.sweep_first(next, k0, k1, all, nullptr, false);
        f.sweep_second(r, k0, k1, all, nullptr);
    }
    for (; next <= a.r1; ++next) f.sweep_first(next, k0, k1, all, nullptr, false);
    return true;
}

// The frame's passes on the threads of `tasks`, with the bytes of run_rows(0, height).
template <class T, class Params>
void run_parallel(const Frame<T, Params>& f, const Tasks& tasks) {
    if (f.width <= 2 * f.m.passes[0].margin) return;
    if (!f.runs_second()) return one_pass_in_bands(f, tasks);
    if (f.stride == 3) return two_passes_in_bands(f, tasks);
    // Four-byte pixels: the second pass of a row reads what it wrote in the row above.
    // Rows that waited for the row above, chunk by chunk, on two threads took four to
    // six times one thread's time on a shared 2-core AMD EPYC (Zen 5), so without a
    // sweep whose pairs of columns run apart the frame runs on the calling thread.
    if (!f.sweep || !f.m.sweep.columns_apart || !sweep_in_columns(f, tasks)) f.run_rows(0, f.height);
}

}  // namespace qzrcfa::detail
