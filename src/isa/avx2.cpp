// Kernel set of AVX2, thirty-two columns per block.
#define QZRCFA_TARGET avx2
#define QZRCFA_PIXELS "isa/pixels_avx2-inl.h"
#include "isa/target.h"
