// What the extended library's C interface needs of the members' runners.
#pragma once

namespace qzrcfa::ext {

// Runs the member whose export is `exported` (its address as the exported name
// resolves) on up to `threads` threads, with the bytes of a call of the export;
// false, having done nothing, when this library has no runner for it or the
// application has interposed the export. 16-bit members take 16-bit buffers.
bool run_member(const void* exported, void* src, int width, int height, void* dst, unsigned short bitCount, int threads);

// The extended library's own method on up to `threads` threads (gbri.h); samples and
// elements of `depth` bits.
void run_gbri(const void* raw, int depth, int width, int height, int pattern, void* out, int stride, bool bottom_up,
              int threads);

// Processors this program may run on, and the instruction set of the kernels it runs.
int processors();
const char* instruction_set();

}  // namespace qzrcfa::ext
