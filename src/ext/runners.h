// What the extended library's C interface needs of the members: what each needs of a
// request, calling its export, and running it on several threads.
#pragma once

#include <cstddef>

#include "catalogue/catalogue.h"
#include "general/general.h"

namespace qzrcfa::ext {

// What a member needs of a request, read off its description.
struct MemberFacts {
    int min_width = 2, min_height = 2;
    bool odd_width_needs_three_rows = false;  // its border fill reads S(1, width) = S(2, 0)
    bool fill255 = false;                     // 255 over width * height * bitCount / 8 bytes first
    std::size_t dst_tail = 0;                 // elements written past the image
};

MemberFacts facts(catalogue::Id id);

// Calls the export itself, on the calling thread: exactly a direct call.
int call_export(catalogue::Id id, void* src, int width, int height, void* dst, unsigned short bitCount);

// Runs the member on up to `threads` threads, with the bytes of a call of its export;
// false, having done nothing, when the application has interposed its export (or, for
// a member that forwards, the export it forwards to): the caller then calls the export,
// so that the interposer sees the call.
bool run_member(catalogue::Id id, void* src, int width, int height, void* dst, unsigned short bitCount, int threads);

// Runs the member on padded rows, `src_pitch` and `dst_pitch` bytes apart, on up to
// `threads` threads: each pixel gets the value a call of the export gives it with the
// rows back to back. When the application has interposed an export the member calls,
// which cannot take padded rows, it is called on compact copies of the rows.
void run_member_padded(catalogue::Id id, const void* src, std::size_t src_pitch, int width, int height, void* dst,
                       std::size_t dst_pitch, unsigned short bitCount, int threads);

// The extended library's own method on up to `threads` threads (gbri.h); samples and
// elements of `depth` bits, rows `src_pitch` and `dst_pitch` bytes apart, pixels of
// `elements` elements.
void run_gbri(const void* raw, std::size_t src_pitch, int depth, int width, int height, int pattern, void* out,
              std::size_t dst_pitch, int elements, bool bottom_up, int threads);

// gbri from a camera's frame (general.h): its samples as the general rule reads them
// (unpacked, black level and gains applied) into a frame of `depth`-bit values, gbri on
// that frame, its pixels clamped to the values' range and stored as the image asks
// (matrix, curve, element depth). Throws std::bad_alloc.
void run_gbri_picture(const general::Frame& frame, int depth, const general::Image& image, int threads);

// Processors this program may run on, and the instruction set of the kernels it runs.
int processors();
const char* instruction_set();

}  // namespace qzrcfa::ext
