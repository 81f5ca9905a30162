#include "numbers/word_kernels.h"

#include "numbers/word_loops.h"

namespace orl {
namespace scalar {
constinit const WordKernels word_kernel_table{
    "scalar", &word_loops::add<u64>, &word_loops::sub<u64>, &word_loops::mul<u64>, &word_loops::hash<u64>,
};
}  // namespace scalar

const WordKernels& word_kernels(simd::Target target) {
  switch (target) {
    case simd::Target::kScalar:
      return scalar::word_kernel_table;
    case simd::Target::kAvx2:
      return avx2::word_kernel_table;
    case simd::Target::kAvx512:
    case simd::Target::kAvx512Ifma:
      return avx512::word_kernel_table;
  }
  return scalar::word_kernel_table;
}

}  // namespace orl
