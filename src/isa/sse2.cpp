// Kernel set of SSE2, the x86-64 baseline, sixteen columns per block.
#define QZRCFA_TARGET sse2
#define QZRCFA_PIXELS "isa/pixels_sse2-inl.h"
#include "isa/target.h"
