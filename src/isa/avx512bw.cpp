// Kernel set of AVX-512 (BW and VL): sixty-four columns per block.
#include "isa/target.h"

namespace qzrcfa::avx512bw {
namespace {
using namespace qzrcfa::detail;
#include "isa/pixels_avx512-inl.h"
#include "isa/simd-inl.h"
#include "isa/kernels-inl.h"
}  // namespace
}  // namespace qzrcfa::avx512bw

constinit const qzrcfa::detail::KernelSet qzrcfa::detail::kAvx512bwKernels = qzrcfa::avx512bw::kKernelSet;
