// Kernel set of NEON, part of the aarch64 baseline, sixteen columns per block.
#define QZRCFA_TARGET neon
#define QZRCFA_PIXELS "isa/pixels_neon-inl.h"
#include "isa/target.h"
