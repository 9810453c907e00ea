// Kernel set of AVX-512 with VBMI byte permutes, sixty-four columns per block.
#define QZRCFA_TARGET avx512vbmi
#define QZRCFA_PIXELS "isa/pixels_avx512-inl.h"
#include "isa/target.h"
