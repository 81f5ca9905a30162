// The kernel table of the open region.
#include "transforms/fft/fft_pass.kernel.h"

#include "transforms/fft/fft_tree.kernel.h"

#include "transforms/fft/fft_unpack.kernel.h"

#include "transforms/fft/fft_pack.kernel.h"

namespace orl::SIMD_ISA {

extern const FftKernels fft_kernel_table;
constinit const FftKernels fft_kernel_table{
    SIMD_ISA_NAME, L, &first_stage, &branches, &finish, &last_stage,
};

}  // namespace orl::SIMD_ISA
