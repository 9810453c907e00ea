// The schedules that run a frame's passes on several threads with the bytes of one
// thread's run_rows(0, height), one function each, and the choice between them.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
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

template <class T, class Params>
Bands row_bands(const Frame<T, Params>& f, const Tasks& tasks) {
    return Bands{0, f.height, std::min(tasks.threads() * 4, std::max(1, f.height / 8))};
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

// Columns of a wavefront chunk: a row waits for the row above chunk by chunk.
inline constexpr int kWavefrontChunk = 512;

// Two passes, four-byte pixels: the second pass reads bytes that the second pass
// writes in the row above (the red and blue of pixels c - 1 and c + 1) and bytes the
// first pass left in the row below, which the second pass of that row must not have
// overwritten yet. The rows of the second pass are taken in order by whichever thread
// is free. The task of row r first runs the first pass of row r + 1 (which no other
// task reads before this one, and whose second pass waits for this row), then row r
// from left to right in chunks, a chunk ending at column x only once the row above is
// done up to x + 1. So every byte a chunk reads in the row above is final, and the row
// below holds what its first pass left, short of the columns its own second pass has
// passed, which stop before x - 1: that row waits, in turn, for this one.
template <class T, class Params>
void two_passes_in_a_wavefront(const Frame<T, Params>& f, const Tasks& tasks) {
    const Region a = f.pass_region(f.m.passes[0]);
    const Region b = f.pass_region(f.m.passes[1]);
    const int rows = b.r1 - b.r0 + 1, columns = b.c1 - b.c0 + 1;
    std::unique_ptr<std::atomic<int>[]> done(new std::atomic<int>[std::size_t(rows)]);
    for (int i = 0; i < rows; ++i) done[i].store(0, std::memory_order_relaxed);
    RowProgress progress{done.get(), b.r0};
    std::atomic<int> next_row{b.r0};
    tasks.for_each(tasks.threads(), [&](int) {
        for (int r = next_row.fetch_add(1); r <= b.r1; r = next_row.fetch_add(1)) {
            // First the first-pass rows up to r + 1, which the task of row r - 1 has not
            // computed (the first task: all from the pass's first row).
            for (int g = r == b.r0 ? a.r0 : r + 1; g <= std::min(r + 1, a.r1); ++g) f.run_row(0, g);
            for (int x0 = 0; x0 < columns; x0 += kWavefrontChunk) {
                const int x1 = std::min(x0 + kWavefrontChunk, columns) - 1;
                if (r > b.r0) progress.await(r - 1, std::min(columns, x1 + 2));
                f.run(f.m.passes[1], r, b.c0 + x0, b.c0 + x1, false);
                progress.publish(r, x1 + 1);
            }
            // The last task: the first-pass rows that no second-pass row reads.
            if (r == b.r1)
                for (int g = std::max(r + 2, a.r0); g <= a.r1; ++g) f.run_row(0, g);
        }
    });
}

// The frame's passes on the threads of `tasks`, with the bytes of run_rows(0, height).
template <class T, class Params>
void run_parallel(const Frame<T, Params>& f, const Tasks& tasks) {
    if (f.width <= 2 * f.m.passes[0].margin) return;
    if (!f.runs_second()) return one_pass_in_bands(f, tasks);
    if (f.stride == 3) return two_passes_in_bands(f, tasks);
    // Below a few chunks a row, waiting would cost more than the threads give.
    const Region b = f.pass_region(f.m.passes[1]);
    if (b.r1 < b.r0 || b.c1 - b.c0 + 1 < 4 * kWavefrontChunk) return f.run_rows(0, f.height);
    two_passes_in_a_wavefront(f, tasks);
}

}  // namespace qzrcfa::detail
