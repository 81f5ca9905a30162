#include "transforms/vst/vst_far_kernels.h"
#include "transforms/vst/vst_kernels.h"

#include "simd/begin_scalar.h"

#include "transforms/c17/residue_mod.kernel.h"
// Each group uses those above it.
#include "transforms/c17/residue_limbs.kernel.h"

#include "transforms/vst/vst_pass.kernel.h"
// Over all of them.
#include "transforms/vst/vst_far.kernel.h"

#include "simd/end.h"

namespace orl {
namespace avx2 {
extern const VstKernels vst_kernel_table;
extern const VstFarKernels vst_far_kernel_table;
}  // namespace avx2
namespace avx512 {
extern const VstKernels vst_kernel_table;
extern const VstFarKernels vst_far_kernel_table;
}  // namespace avx512

const VstKernels& vst_kernels(simd::Target target) {
  return simd::kernels_for(target, scalar::vst_kernel_table, avx2::vst_kernel_table,
                           avx512::vst_kernel_table);
}
const VstFarKernels& vst_far_kernels(simd::Target target) {
  return simd::kernels_for(target, scalar::vst_far_kernel_table, avx2::vst_far_kernel_table,
                           avx512::vst_far_kernel_table);
}

}  // namespace orl
