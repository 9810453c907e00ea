// Kernel set of AVX2: thirty-two columns per block.
#include "isa/target.h"

namespace qzrcfa::avx2 {
namespace {
using namespace qzrcfa::detail;
#include "isa/pixels_avx2-inl.h"
#include "isa/simd-inl.h"
#include "isa/kernels-inl.h"
}  // namespace
}  // namespace qzrcfa::avx2

constinit const qzrcfa::detail::KernelSet qzrcfa::detail::kAvx2Kernels = qzrcfa::avx2::kKernelSet;
