// F64: a vector of doubles; `lanes` of them. Filled in by the transforms that use it.
namespace orl::simd::SIMD_ISA {
#if defined(SIMD_ISA_AVX512)
struct F64 {
  static constexpr int lanes = 8;
  __m512d v;
};
#elif defined(SIMD_ISA_AVX2)
struct F64 {
  static constexpr int lanes = 4;
  __m256d v;
};
#else
struct F64 {
  static constexpr int lanes = 1;
  double v;
};
#endif
}  // namespace orl::simd::SIMD_ISA
