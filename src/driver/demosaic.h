// The frame driver shared by the colour members.
//
// An exported entry point names one member description and hands it, with its five
// arguments, to demosaic(). The driver does what every colour member does around its
// kernels: the optional pre-fill, the call of the member's border fill through its
// exported entry point, the height guard and the row passes (frame.h, on one thread;
// schedules.h, on several). It picks the kernel set of the processor's instruction set
// once per call; row kernels compute one output row and know nothing about frames.
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
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "driver/border.h"
#include "driver/fill.h"
#include "driver/frame.h"
#include "driver/schedules.h"
#include "kernels/kernels.h"

namespace qzrcfa::detail {

// The library's own border fill of export `id`, on rows `pitches` apart (the call of a
// member whose rows are padded, which the exported border fill cannot take).
int own_border_fill(catalogue::Id id, const void* src, int width, int height, void* dst, unsigned short bitCount,
                    Pitches pitches);

// Where the first pass may write the 255 pre-fill itself, when it may: the border fill
// the call runs is the library's own, the pixels are three or four bytes (the wide
// stores' layouts), the fill covers the whole image without a wrapped product, and the
// first pass has an interior inside the border fill's ring (its own margin).
template <class T, class Params>
bool plan_fused_fill(const ColourMember<T, Params>& m, bool own_border, int width, int height, int stride,
                     Region& covered) {
    if (m.prefill != Prefill::Bytes255 || (stride != 3 && stride != 4) || !own_border) return false;
    if (height < m.min_height || width < 1) return false;
    if (std::int64_t(width) * height * 8 * stride >= (std::int64_t(1) << 31)) return false;
    const Pass<T, Params>& p = m.passes[0];
    if (width <= 2 * p.margin) return false;
    const int ring = p.margin;
    covered = {std::max(ring, p.margin + p.shift), std::min(height - 1 - ring, height - 1 - p.margin + p.shift),
               std::max(ring, p.margin + p.shift), std::min(width - 1 - ring, width - 1 - p.margin + p.shift)};
    return covered.r0 <= covered.r1 && covered.c0 <= covered.c1;
}

// Whether the passes run in a sweep (Frame::sweep_rows), and its core: the member has
// one and the kernel set its kernels, pixels are three or four bytes, the border fill
// the call runs is the library's own and a 255 pre-fill is fused, and the core holds at
// least a block of columns. The core's columns are a multiple of four, so that its
// blocks all start on sites of the same parity and on the same class of column (smooth
// hue's quotients, RingRow).
template <class T, class Params>
void plan_sweep(Frame<T, Params>& f, bool own_border) {
    const ColourMember<T, Params>& m = f.m;
    if constexpr (std::is_same_v<T, std::uint8_t>) {
        if (m.sweep.greens == nullptr || f.kernels.*m.sweep.greens == nullptr || f.kernels.*m.sweep.colour == nullptr) return;
    }
    if ((f.stride != 3 && f.stride != 4) || !own_border || !f.runs_second() || f.height < m.min_height) return;
    if (m.prefill == Prefill::Bytes255 && !f.fused) return;
    const Region a = f.pass_region(m.passes[0]), b = f.pass_region(m.passes[1]);
    const Region whole = f.fused ? f.covered
                                 : Region{std::max(a.r0, b.r0), std::min(a.r1, b.r1), std::max(a.c0, b.c0), std::min(a.c1, b.c1)};
    const bool edge_greens = f.stride == 3 && m.sweep.greens_only;
    Region core{whole.r0 + 1, whole.r1 - 1, whole.c0 + !edge_greens, whole.c1 - !edge_greens};
    // With four-byte pixels the second pass of a red or blue site reads, of all the other
    // colours the row above computed, only that of one diagonal neighbour: in blue rows
    // the site to the right (red rows' site c + 1 feeds blue rows' site c), in red rows the
    // site to the left. So the columns fall into pairs, a blue rows' site and the red rows'
    // site to its right, whose other colours depend on no other columns; the core begins
    // with a pair, so that columns of pairs may run apart (schedules.h).
    if (f.stride == 4 && m.sweep.colours) {
        const int blue_row = row_phase(m.pattern, 0).colour == kBlue ? 0 : 1;
        const int blue_sites = row_phase(m.pattern, blue_row).green_even ? 1 : 0;  // their column parity
        core.c0 += (core.c0 - blue_sites) & 1;
    }
    core.c1 -= (core.c1 - core.c0 + 1) & 3;
    if (core.r0 > core.r1 || core.c1 - core.c0 + 1 < f.kernels.lanes + 4) return;
    f.sweep = true;
    f.core = core;
    f.edge_greens = edge_greens;
}

// The exports allocate nothing: the ring of their sweep lives on the calling thread's
// stack, in just the bytes it needs (four rows of one to five planes of a frame's width
// and, for smooth hue, its quotients: from 4 to about 38 bytes a column), at most this
// many; a frame whose ring would not fit runs its passes one after the other.
constexpr std::size_t kStackRing = 256 * 1024;

template <class T, class Params>
[[gnu::noinline]] void run_rows_with_stack_ring(Frame<T, Params>& frame) {
    const std::size_t bytes = Frame<T, Params>::Ring::bytes(frame, {0, frame.width - 1, frame.core.c0, frame.core.c1});
    if (bytes <= kStackRing) {
        auto* memory = static_cast<std::uint8_t*>(__builtin_alloca(bytes + 64));
        frame.ring_memory = memory + (64 - reinterpret_cast<std::uintptr_t>(memory) % 64) % 64;
        frame.ring_capacity = bytes;
    }
    frame.run_rows(0, frame.height);
    frame.ring_memory = nullptr;
    frame.ring_capacity = 0;
}

// One call of a colour member: on the calling thread alone, or with the call's tasks on
// several threads, with the same bytes (the pre-fill and the border fill stay on the
// calling thread; schedules.h says why the passes may run in bands). Rows may be padded
// (the extended library's requests): each pixel then has the value it has with the
// rows back to back, and the border fill is the library's own, called directly.
template <class T, class Params>
int demosaic(const ColourMember<T, Params>& m, T* src, int width, int height, T* dst, unsigned short bitCount,
             const Call& call, Pitches pitches) {
    const KernelSet& kernels = call.kernels != nullptr ? *call.kernels : kernel_set(best_isa());
    const int stride = pixel_stride(bitCount);
    const bool padded = pitches.src != width || pitches.dst != std::ptrdiff_t(width) * stride;
    Frame<T, Params> frame{m, kernels, src, width, height, dst, stride, pitches, false, {}, false};
    // A single pass is the last writer of its pixels and reads none of them.
    if (!m.two_passes() && (stride == 3 || stride == 4)) {
        const std::size_t threshold = streaming_threshold();
        frame.stream = threshold > 0 && std::size_t(width) * std::size_t(height) * std::size_t(stride) * sizeof(T) > threshold;
    }
    const bool own_border = padded || (call.own_definition != nullptr &&
                                       call.own_definition(m.border_id) == reinterpret_cast<const void*>(m.border));
    auto* bytes = reinterpret_cast<std::uint8_t*>(dst);
    const std::size_t row_bytes = std::size_t(width) * std::size_t(stride) * sizeof(T);
    const std::ptrdiff_t pitch_bytes = pitches.dst * std::ptrdiff_t(sizeof(T));
    if (m.prefill == Prefill::Bytes255) {
        const std::size_t fill = fill255_bytes(width, height, bitCount);
        if constexpr (sizeof(T) == 1) frame.fused = plan_fused_fill(m, own_border, width, height, stride, frame.covered);
        if (frame.fused) {
            // The rows of `covered` lie inside the border fill's ring (plan_fused_fill),
            // which writes their ends after the fill.
            fill255_outside(bytes, width, height, m.flip, stride, pitch_bytes, fill, frame.covered,
                            std::size_t(border_side_elements(m.passes[0].margin)));
        } else {
            fill_prefix(bytes, row_bytes, pitch_bytes, fill, 255);
        }
    } else if (m.prefill == Prefill::ZeroRgb) {
        fill_prefix(bytes, row_bytes, pitch_bytes, zero_fill_bytes(width, height), 0);
    }
    plan_sweep(frame, own_border);
    // Through the exported entry point, so that an interposed border fill is honoured;
    // padded rows, which it cannot take, the library's own.
    if (padded) own_border_fill(m.border_id, src, width, height, dst, bitCount, pitches);
    else m.border(src, width, height, dst, bitCount);
    if (height < m.min_height) return 0;
    if (call.tasks != nullptr && call.tasks->threads() > 1 && (stride == 3 || stride == 4)) {
        frame.heap_rings = true;
        run_parallel(frame, *call.tasks);
        return 0;
    }
    // The extended library's calls (with tasks) may allocate their rings.
    frame.heap_rings = call.tasks != nullptr;
    if (frame.sweep && !frame.heap_rings) run_rows_with_stack_ring(frame);
    else frame.run_rows(0, height);
    if (frame.stream) store_fence();
    return 0;
}

}  // namespace qzrcfa::detail
