// The frame driver of the grey members.
//
// Every pixel is the truncated mean of the two-by-two block whose top-left sample it
// is; the pattern does not enter the arithmetic. Raw rows 0 to height - 2 are averaged
// into their output rows, and the one row left (the last, or for bottom-up members the
// first) is a copy of its neighbour. The members differ in how they finish the
// right-hand columns of a row, and in row order:
//   two-column copy: columns width - 2 and width - 1 each repeat the element to their
//     left, so both equal column width - 3;
//   last-column shuffle: columns up to width - 2 are averaged; then the two elements
//     after the row receive columns width - 3 and width - 2, and the last column
//     repeats column width - 4. The two elements after the row are the first two of
//     the next row in memory: top-down members overwrite them with the next row;
//     bottom-up members have already finished that row, and their first row filled
//     writes two elements past the end of the image.
// Both read the output as already written, so on narrow frames they reach the
// elements before the row.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "driver/fill.h"
#include "driver/frame.h"
#include "driver/tasks.h"
#include "kernels/kernels.h"

namespace qzrcfa::detail {

enum class GreyRightEdge : std::uint8_t { TwoColumnCopy, LastColumnShuffle };

struct GreyMember {
    bool flip;
    GreyRightEdge right;
};

// Finishes a row's right-hand columns; `after` is where the elements after the row lie
// (the next row in memory, or past the image: with rows back to back, out + width).
template <class T>
void grey_finish_row(GreyRightEdge right, T* out, int width, T* after) {
    if (right == GreyRightEdge::TwoColumnCopy) {
        for (int c = width >= 2 ? width - 2 : 0; c < width; ++c) out[c] = out[c - 1];
    } else {
        const int c = width - 1;
        if (after != nullptr) {
            after[0] = out[c - 2];
            after[1] = out[c - 1];
        }
        out[c] = out[c - 3];
    }
}

// One call of a grey member: on the calling thread alone or, with the call's tasks, in
// bands of rows on several threads with the same elements. A row reads nothing any
// other row writes except through the last-column shuffle's two elements spilled into
// the next row in memory: top-down, the next row overwrites them, so the bands leave
// them out; bottom-up, they stand in the row below, so they are copied in once every
// row is done (with width 5 or more, what a spill copies is no spill's). Rows may be
// padded (the extended library's requests, which have at least two rows and the
// member's smallest width): a spill then goes where the next row in memory begins, or,
// from the last row, right after it.
template <class T>
int grey(const GreyMember& m, const T* src, int width, int height, T* dst, const Call& call, Pitches pitches) {
    const std::size_t row_bytes = std::size_t(std::ptrdiff_t(width)) * sizeof(T);
    if (height < 1) return 0;
    if (height == 1) {
        // Nothing to average: the row is copied from the row's width of elements just
        // before the image (top-down) or just after it (bottom-up).
        std::memcpy(dst, m.flip ? dst + width : dst - width, row_bytes);
        return 0;
    }
    const int averaged = m.right == GreyRightEdge::TwoColumnCopy ? width - 2 : width - 1;
    const KernelSet& kernels = kernel_set(best_isa());
    auto out_row = [&](int s) { return dst + std::ptrdiff_t(output_row(s, height, m.flip)) * pitches.dst; };
    // Where the elements after the row of raw row s lie.
    auto after = [&](int s) {
        const int y = output_row(s, height, m.flip);
        return y + 1 < height ? dst + std::ptrdiff_t(y + 1) * pitches.dst : dst + std::ptrdiff_t(y) * pitches.dst + width;
    };
    auto average = [&](int s, bool spill) {
        Row<T> row{};
        row.s = src + std::ptrdiff_t(s) * pitches.src;
        row.width = width;
        row.pitch = pitches.src;
        row.d = out_row(s);
        row.c_first = 0;
        row.c_last = averaged - 1;
        if constexpr (sizeof(T) == 1) {
            grey_columns(row, GreyParams{}, kernels.grey(row, GreyParams{}, 0));
        } else {
            grey_columns(row, GreyParams{}, kernels.grey16(row, GreyParams{}, 0));
        }
        grey_finish_row(m.right, row.d, width, spill ? after(s) : nullptr);
    };
    const Tasks* tasks = call.tasks;
    if (tasks != nullptr && tasks->threads() > 1 && width >= 5) {
        const Bands bands{0, height - 1, std::min(tasks->threads() * 4, std::max(1, height / 8))};
        tasks->for_each(bands.count, [&](int i) {
            for (int s = bands.first(i); s < bands.first(i + 1); ++s) average(s, false);
        });
        if (m.flip && m.right == GreyRightEdge::LastColumnShuffle) {
            for (int s = 0; s <= height - 2; ++s) {
                T* out = out_row(s);
                T* next = after(s);
                next[0] = out[width - 3];
                next[1] = out[width - 2];
            }
        }
    } else {
        for (int s = 0; s <= height - 2; ++s)
            if (width >= 1) average(s, true);
    }
    std::memcpy(out_row(height - 1), out_row(height - 2), row_bytes);
    return 0;
}

}  // namespace qzrcfa::detail
