// The kernel table of the open region.
#include "transforms/fft_pass.kernel.h"

#include "transforms/fft_tree.kernel.h"

#include "transforms/fft_points.kernel.h"

namespace orl::SIMD_ISA {
namespace {

void forward(const FftPlan& plan, double* F, const u8* fields) {
  unpack_points(plan, F, fields);
  transform<true, Pointwise::kNone>(plan, F, nullptr);
}
void inverse_square(const FftPlan& plan, double* F) {
  transform<false, Pointwise::kSquare>(plan, F, nullptr);
}
void inverse_multiply(const FftPlan& plan, double* F, const double* G) {
  transform<false, Pointwise::kMultiply>(plan, F, G);
}

}  // namespace

extern const FftKernels fft_kernel_table;
constinit const FftKernels fft_kernel_table{
    SIMD_ISA_NAME, L, &forward, &inverse_square, &inverse_multiply, &pack_points, &rounding_error,
};

}  // namespace orl::SIMD_ISA
