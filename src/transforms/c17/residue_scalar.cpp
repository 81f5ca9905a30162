#include "transforms/c17/residue_far_kernels.h"
#include "transforms/c17/residue_kernels.h"

#include <type_traits>
#include <utility>

#include "simd/begin_scalar.h"

#include "transforms/c17/residue_mod.kernel.h"
// Each group uses those above it.
#include "transforms/c17/residue_limbs.kernel.h"

#include "transforms/c17/residue_join.kernel.h"
#include "transforms/c17/residue_odd.kernel.h"
#include "transforms/c17/residue_pass.kernel.h"
// Over all of them.
#include "transforms/c17/residue_far.kernel.h"

#include "simd/end.h"

namespace orl {
namespace avx2 {
extern const ResidueKernels residue_kernel_table;
extern const ResidueFarKernels residue_far_kernel_table;
}  // namespace avx2
namespace avx512 {
extern const ResidueKernels residue_kernel_table;
extern const ResidueFarKernels residue_far_kernel_table;
}  // namespace avx512

const ResidueKernels& residue_kernels(simd::Target target) {
  return simd::kernels_for(target, scalar::residue_kernel_table, avx2::residue_kernel_table,
                           avx512::residue_kernel_table);
}
const ResidueFarKernels& residue_far_kernels(simd::Target target) {
  return simd::kernels_for(target, scalar::residue_far_kernel_table, avx2::residue_far_kernel_table,
                           avx512::residue_far_kernel_table);
}

}  // namespace orl
