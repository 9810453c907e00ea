// Kernel set of AVX-512 (BW and VL), sixty-four columns per block.
#define QZRCFA_TARGET avx512bw
#define QZRCFA_PIXELS "isa/pixels_avx512-inl.h"
#include "isa/target.h"
