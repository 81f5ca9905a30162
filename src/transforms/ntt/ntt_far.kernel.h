// Residues of numbers on disks, on the passes of ntt_pass.kernel.h: ntt_far_kernels.h.
#ifndef SIMD_ISA_AVX2
namespace orl::SIMD_ISA {
namespace {

template <bool Inverse>
void far_columns(const NttModulus<u64>& modulus, u64* x, u64 stride, u32 levels, u64 begin, u64 end) {
  with_constant<1, 2, 3, 4>(levels,
                            [&](auto n) { column_pass<n, Inverse>(modulus, x, stride << n, 1, begin, end); });
}

void far_odd(const NttPlan<u64>& plan, const NttModulus<u64>& modulus, u64* x, u64 stride, u64 begin,
             u64 end) {
  const Mod<u64> mod(modulus);
  with_constant<3, 5, 7>(plan.row.k, [&](auto k) {
    for (u64 i = begin; i < end; i += 8, x += 8) {
      alignas(64) u64 z[k][8];
      for (u32 t = 0; t < k; ++t) {
        alignas(64) u64 values[8];
        for (u32 h = 0; h < 8; h += L) {
          const U64 v = U64::load(x + t * stride + h);
          (plan.negacyclic() && t % 2 ? mod.sub(U64::all(0), v) : v).store(values + h);
        }
        turn<k>(values, i + t * plan.length(), z);
      }
      to_sequences<k>(modulus, z, x, stride);
    }
  });
}
void far_odd_back(const NttPlan<u64>& plan, const NttModulus<u64>& modulus, u64* x, u64 stride, u64 begin,
                  u64 end) {
  with_constant<1, 3, 5, 7>(plan.row.k, [&](auto k) {
    for (u64 i = begin; i < end; i += 8, x += 8) finish_points<k>(plan, modulus, x, stride, i);
  });
}

}  // namespace

extern const NttFarKernels ntt_far_kernel_table;
constinit const NttFarKernels ntt_far_kernel_table{
    &far_columns<false>,
    &far_columns<true>,
    &far_odd,
    &far_odd_back,
};

}  // namespace orl::SIMD_ISA
#endif
