// Kernel set of AVX-512 with VBMI byte permutes: sixty-four columns per block.
#include "isa/target.h"

namespace qzrcfa::avx512vbmi {
namespace {
using namespace qzrcfa::detail;
#include "isa/pixels_avx512-inl.h"
#include "isa/simd-inl.h"
#include "isa/kernels-inl.h"
}  // namespace
}  // namespace qzrcfa::avx512vbmi

constinit const qzrcfa::detail::KernelSet qzrcfa::detail::kAvx512vbmiKernels = qzrcfa::avx512vbmi::kKernelSet;
