// Kernel set of NEON, part of the aarch64 baseline: sixteen columns per block.
#include "isa/target.h"

namespace qzrcfa::neon {
namespace {
using namespace qzrcfa::detail;
#include "isa/pixels_neon-inl.h"
#include "isa/simd-inl.h"
#include "isa/kernels-inl.h"
}  // namespace
}  // namespace qzrcfa::neon

constinit const qzrcfa::detail::KernelSet qzrcfa::detail::kNeonKernels = qzrcfa::neon::kKernelSet;
