// Kernel set of the x86-64 baseline, SSE2: sixteen columns per block.
#include "isa/target.h"

namespace qzrcfa::sse2 {
namespace {
using namespace qzrcfa::detail;
#include "isa/pixels_sse2-inl.h"
#include "isa/simd-inl.h"
#include "isa/kernels-inl.h"
}  // namespace
}  // namespace qzrcfa::sse2

constinit const qzrcfa::detail::KernelSet qzrcfa::detail::kSse2Kernels = qzrcfa::sse2::kKernelSet;
