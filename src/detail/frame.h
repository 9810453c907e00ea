// The frame driver shared by the colour methods.
//
// An exported entry point names one member description and hands it, with its five
// arguments, to demosaic(). The driver does what every colour member does around its
// kernels: the optional pre-fill, the call of the member's border fill through its
// exported entry point, the height guard and the row passes. It picks the kernel set
// of the processor's instruction set once per call; row kernels compute one output row
// and know nothing about frames.
//
// Pre-fill with 255. Filling the whole output and then computing it writes the frame
// twice. When the border fill the member calls is the library's own (an application
// may interpose it), the driver fills only what no later write covers: the rows and
// columns outside the first pass's interior, and what the fill reaches past the image.
// The first pass then writes every element of its pixels, 255 where the method leaves
// an element alone. The bytes come out as the literal sequence leaves them: the border
// fill writes nothing inside that interior and reads nothing, the passes read only
// what the literal sequence had written or filled when they read it. An interposed
// border fill may write and read anything, so for it the literal sequence runs.
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
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <thread>

#include "detail/bayer.h"
#include "detail/border.h"
#include "detail/kernels.h"

namespace qzrcfa::detail {

// Signature of every colour export (and of the border fills they call).
template <class T>
using ColourFn = int (*)(T* src, int width, int height, T* dst, unsigned short bitCount);

enum class Prefill : std::uint8_t {
    None,
    White,    // 255 over (width * height * bitCount) / 8 bytes
    ZeroRgb,  // 0 over width * height * 3 bytes, whatever bitCount says
};

// Elements per output pixel: the shift is taken on the unsigned 16-bit argument, so
// 24..31 give 3 and anything below 8 gives 0.
constexpr int pixel_stride(unsigned short bitCount) { return bitCount >> 3; }

// Byte count of the white pre-fill: width * height * bitCount in 32-bit arithmetic
// (wrapping as a 32-bit product does), the signed result divided by 8 toward zero,
// and the quotient widened with its sign. With bitCount 25..31 this reaches past a
// 3-byte-per-pixel image; that is how the interface has always behaved.
inline std::size_t white_fill_bytes(int width, int height, unsigned short bitCount) {
    const std::uint32_t product = std::uint32_t(width) * std::uint32_t(height) * std::uint32_t(bitCount);
    const std::int32_t bytes = std::int32_t(product) / 8;
    return std::size_t(std::ptrdiff_t(bytes));
}

inline std::size_t zero_fill_bytes(int width, int height) {
    const std::int32_t bytes = std::int32_t(std::uint32_t(width) * std::uint32_t(height) * 3u);
    return std::size_t(std::ptrdiff_t(bytes));
}

// Output row that raw row r lands in: r for the plain members, height - 1 - r for _Flip.
constexpr int output_row(int r, int height, bool flip) { return flip ? height - 1 - r : r; }

// Element offset of output row `row`. Offsets are formed in pointer-sized arithmetic;
// every frame the interface supports (width * height * stride < 2^31) gives the same
// value as the 32-bit products the interface describes.
constexpr std::ptrdiff_t row_offset(int row, int width, int stride) {
    return std::ptrdiff_t(row) * width * stride;
}

// Orders the stores that bypassed the cache before whatever the caller does next.
inline void store_fence() {
#if defined(__x86_64__)
    __builtin_ia32_sfence();
#endif
}

// The threads of a parallel call (the extended library's; the exports never have any).
// run(count, task, context) calls task(context, i) for every i in [0, count) on up to
// threads() threads, the caller among them, and returns when every call has returned,
// after which all their writes are visible to the caller.
class Tasks {
  public:
    virtual int threads() const = 0;
    virtual void run(int count, void (*task)(const void* context, int index), const void* context) const = 0;

    template <class F>
    void for_each(int count, const F& f) const {
        run(count, [](const void* context, int i) { (*static_cast<const F*>(context))(i); }, &f);
    }

  protected:
    ~Tasks() = default;
};

// Rows begin .. end - 1 split into `count` bands as even as rows allow: band i.
struct Bands {
    int begin, end, count;
    int first(int i) const { return begin + int(std::int64_t(end - begin) * i / count); }
};

// Progress of the rows of a pass computed by several threads at once, each row by one
// thread from left to right: how many of its columns are done.
struct RowProgress {
    std::atomic<int>* done;  // per row of the pass, from its first row
    int first_row;
    void publish(int r, int columns) { done[r - first_row].store(columns, std::memory_order_release); }
    void await(int r, int columns) const {
        for (int spins = 0; done[r - first_row].load(std::memory_order_acquire) < columns; ++spins)
            if (spins > 64) std::this_thread::yield();
    }
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
    ColourFn<T> border;      // exported border fill of the member's pattern and suffix
    Border border_id;        // which border fill that is
    int min_height;          // below this the member returns after the border fill
    Params params;           // the method's own per-member data
    Pass<T, Params> passes[2];
};

// Raw rows and columns, inclusive.
struct Region {
    int r0, r1, c0, c1;
    bool contains_row(int r) const { return r >= r0 && r <= r1; }
};

// One call's frame: what the passes need besides the member.
template <class T, class Params>
struct Frame {
    const ColourMember<T, Params>& m;
    const KernelSet& kernels;
    const T* src;
    int width, height;
    T* dst;
    int stride;
    bool fused;    // the pre-fill is left to the first pass inside `white`
    Region white;  // where the first pass writes whole pixels
    bool stream;   // whole-pixel stores may bypass the cache

    Region pass_region(const Pass<T, Params>& pass) const {
        return {pass.margin + pass.shift, height - 1 - pass.margin + pass.shift, pass.margin + pass.shift,
                width - 1 - pass.margin + pass.shift};
    }

    void run(const Pass<T, Params>& pass, int r, int c_first, int c_last, bool white_pixels) const {
        if (c_first > c_last) return;
        const std::ptrdiff_t out_row = row_offset(1, width, stride);
        Row<T> row;
        row.s = src + std::ptrdiff_t(r) * width;
        row.width = width;
        row.d = dst + row_offset(output_row(r, height, m.flip), width, stride);
        row.up = m.flip ? out_row : -out_row;
        row.down = -row.up;
        row.stride = stride;
        row.r = r;
        row.c_first = c_first;
        row.c_last = c_last;
        row.phase = row_phase(m.pattern, r);
        row.height = height;
        row.white = white_pixels;
        row.stream = stream;
        pass.reference(row, m.params, (kernels.*pass.wide)(row, m.params, c_first));
    }

    // Row r of a pass: whole pixels inside the white region of the first pass, the
    // method's own elements elsewhere, left to right.
    void run_row(int pass_index, int r) const {
        const Pass<T, Params>& pass = m.passes[pass_index];
        const Region all = pass_region(pass);
        if (!fused || pass_index != 0 || !white.contains_row(r)) return run(pass, r, all.c0, all.c1, false);
        run(pass, r, all.c0, white.c0 - 1, false);
        run(pass, r, white.c0, white.c1, true);
        run(pass, r, white.c1 + 1, all.c1, false);
    }

    // Rows r_begin .. r_end - 1 of the frame's passes, in an order that gives the bytes
    // of running each pass over them in turn (see the file's opening comment). The
    // first-pass rows done_a and done_b have been computed already.
    void run_rows(int r_begin, int r_end, int done_a = -1, int done_b = -1) const {
        const Pass<T, Params>& first = m.passes[0];
        if (width <= 2 * first.margin) return;
        const Region a = pass_region(first);
        const int a_begin = std::max(r_begin, a.r0), a_end = std::min(r_end, a.r1 + 1);
        const bool two = m.passes[1].reference != nullptr && width > 2 * m.passes[1].margin;
        auto first_pass = [&](int r) {
            if (r != done_a && r != done_b) run_row(0, r);
        };
        if (!two) {
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

    // The passes on the threads of `tasks`, over bands of rows, with the bytes of
    // run_rows(0, height). Why each schedule gives them:
    //  - one pass: it reads no output and its rows write disjoint pixels (three- or
    //    four-byte pixels), so bands are independent;
    //  - two passes, three-byte pixels: the second pass reads, around row r, the greens
    //    of rows r - 1 .. r + 1, which only the first pass writes, and no byte that it
    //    writes itself. Each band first computes the first-pass rows at its two ends,
    //    then, once every band has, runs its rows as run_rows does, taking those rows
    //    as done: whatever a band reads across its ends is final by then, and no band
    //    writes a row another reads;
    //  - two passes, four-byte pixels: the second pass reads bytes that the second
    //    pass writes in the row above (the red and blue of pixels c - 1 and c + 1) and
    //    bytes the first pass left in the row below, which the second pass of that row
    //    must not have overwritten yet. The rows of the second pass are taken in order
    //    by whichever thread is free. The task of row r first runs the first pass of
    //    row r + 1 (which no other task reads before this one, and whose second pass
    //    waits for this row), then row r from left to right in chunks, a chunk ending
    //    at column x only once the row above is done up to x + 1. So every byte a
    //    chunk reads in the row above is final, and the row below holds what its first
    //    pass left, short of the columns its own second pass has passed, which stop
    //    before x - 1: that row waits, in turn, for this one.
    void run_parallel(const Tasks& tasks) const {
        const Pass<T, Params>& first = m.passes[0];
        if (width <= 2 * first.margin) return;
        const Region a = pass_region(first);
        const bool two = m.passes[1].reference != nullptr && width > 2 * m.passes[1].margin;
        const Bands bands{0, height, std::min(tasks.threads() * 4, std::max(1, height / 8))};
        auto band = [&](int i) { return Region{bands.first(i), bands.first(i + 1) - 1, 0, 0}; };
        if (!two) {
            tasks.for_each(bands.count, [&](int i) {
                run_rows(band(i).r0, band(i).r1 + 1);
                if (stream) store_fence();
            });
            return;
        }
        if (stride == 3) {
            // The first-pass rows at each band's ends.
            auto ends = [&](int i) {
                const int lo = std::max(band(i).r0, a.r0), hi = std::min(band(i).r1, a.r1);
                return Region{lo, hi, 0, 0};
            };
            tasks.for_each(bands.count, [&](int i) {
                const Region e = ends(i);
                if (e.r0 > e.r1) return;
                run_row(0, e.r0);
                if (e.r1 != e.r0) run_row(0, e.r1);
            });
            tasks.for_each(bands.count, [&](int i) {
                const Region e = ends(i);
                run_rows(band(i).r0, band(i).r1 + 1, e.r0, e.r1);
            });
            return;
        }
        const Pass<T, Params>& second = m.passes[1];
        const Region b = pass_region(second);
        const int rows = b.r1 - b.r0 + 1, columns = b.c1 - b.c0 + 1;
        // The second pass's rows follow each other in a wavefront; below a few chunks a
        // row, waiting would cost more than the threads give.
        constexpr int kChunk = 512;
        if (rows <= 0 || columns < 4 * kChunk) return run_rows(0, height);
        std::unique_ptr<std::atomic<int>[]> done(new std::atomic<int>[std::size_t(rows)]);
        for (int i = 0; i < rows; ++i) done[i].store(0, std::memory_order_relaxed);
        RowProgress progress{done.get(), b.r0};
        std::atomic<int> next_row{b.r0};
        tasks.for_each(tasks.threads(), [&](int) {
            for (int r = next_row.fetch_add(1); r <= b.r1; r = next_row.fetch_add(1)) {
                // First the first-pass rows up to r + 1, which the task of row r - 1 has
                // not computed (the first task: all from the pass's first row).
                for (int f = r == b.r0 ? a.r0 : r + 1; f <= std::min(r + 1, a.r1); ++f) run_row(0, f);
                for (int x0 = 0; x0 < columns; x0 += kChunk) {
                    const int x1 = std::min(x0 + kChunk, columns) - 1;
                    if (r > b.r0) progress.await(r - 1, std::min(columns, x1 + 2));
                    run(second, r, b.c0 + x0, b.c0 + x1, false);
                    progress.publish(r, x1 + 1);
                }
                // The last task: the first-pass rows that no second-pass row reads.
                if (r == b.r1)
                    for (int f = std::max(r + 2, a.r0); f <= a.r1; ++f) run_row(0, f);
            }
        });
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
        return m.passes[1].reference == nullptr || stride == 3;
    }
};

// Fills with 255 every byte of the first `fill` bytes of dst except the pixels of the
// white region.
inline void fill_outside(std::uint8_t* dst, int width, int height, bool flip, int stride, std::size_t fill,
                         const Region& white) {
    const std::size_t row = std::size_t(width) * std::size_t(stride);
    const int first = std::min(output_row(white.r0, height, flip), output_row(white.r1, height, flip));
    const int last = std::max(output_row(white.r0, height, flip), output_row(white.r1, height, flip));
    const std::size_t left = std::size_t(white.c0) * std::size_t(stride);
    const std::size_t right = std::size_t(white.c1 + 1) * std::size_t(stride);
    std::memset(dst, 255, std::size_t(first) * row);
    for (int y = first; y <= last; ++y) {
        std::uint8_t* line = dst + std::size_t(y) * row;
        std::memset(line, 255, left);
        std::memset(line + right, 255, row - right);
    }
    const std::size_t done = std::size_t(last + 1) * row;
    std::memset(dst + done, 255, fill - done);
}

// Whether the 255 pre-fill of a call may be left to its passes: the member's border
// fill is the library's own, the pixels are three or four bytes (the wide stores'
// layouts), the fill covers the whole image without a wrapped product, and the first
// pass has an interior inside the border fill's ring (its own margin).
template <class T, class Params>
bool plan_fused_fill(const ColourMember<T, Params>& m, int width, int height, int stride, Region& white) {
    if (m.prefill != Prefill::White || (stride != 3 && stride != 4)) return false;
    if (!border_is_own(m.border_id, reinterpret_cast<const void*>(m.border))) return false;
    if (height < m.min_height || width < 1) return false;
    if (std::int64_t(width) * height * 8 * stride >= (std::int64_t(1) << 31)) return false;
    const Pass<T, Params>& p = m.passes[0];
    if (width <= 2 * p.margin) return false;
    const int ring = p.margin;
    white = {std::max(ring, p.margin + p.shift), std::min(height - 1 - ring, height - 1 - p.margin + p.shift),
             std::max(ring, p.margin + p.shift), std::min(width - 1 - ring, width - 1 - p.margin + p.shift)};
    return white.r0 <= white.r1 && white.c0 <= white.c1;
}

// One call of a member: on the calling thread alone, or with `tasks` on several threads,
// with the same bytes (the pre-fill and the border fill stay on the calling thread;
// run_parallel says why the passes may run in bands).
template <class T, class Params>
int demosaic(const ColourMember<T, Params>& m, T* src, int width, int height, T* dst, unsigned short bitCount,
             const Tasks* tasks = nullptr) {
    const KernelSet& kernels = kernel_set(best_isa());
    const int stride = pixel_stride(bitCount);
    Frame<T, Params> frame{m, kernels, src, width, height, dst, stride, false, {}, false};
    // A single pass is the last writer of its pixels and reads none of them.
    if (m.passes[1].reference == nullptr && (stride == 3 || stride == 4)) {
        const std::size_t threshold = streaming_threshold();
        frame.stream = threshold > 0 && std::size_t(width) * std::size_t(height) * std::size_t(stride) * sizeof(T) > threshold;
    }
    if (m.prefill == Prefill::White) {
        const std::size_t fill = white_fill_bytes(width, height, bitCount);
        if constexpr (sizeof(T) == 1) frame.fused = plan_fused_fill(m, width, height, stride, frame.white);
        if (frame.fused) {
            fill_outside(reinterpret_cast<std::uint8_t*>(dst), width, height, m.flip, stride, fill, frame.white);
        } else {
            std::memset(dst, 255, fill);
        }
    } else if (m.prefill == Prefill::ZeroRgb) {
        std::memset(dst, 0, zero_fill_bytes(width, height));
    }
    // Through the exported entry point: an interposed border fill is honoured.
    m.border(src, width, height, dst, bitCount);
    if (height < m.min_height) return 0;
    if (tasks != nullptr && tasks->threads() > 1 && (stride == 3 || stride == 4)) {
        frame.run_parallel(*tasks);
        return 0;
    }
    frame.run_rows(0, height);
    if (frame.stream) store_fence();
    return 0;
}

}  // namespace qzrcfa::detail
