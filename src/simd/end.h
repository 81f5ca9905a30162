// Closes the region that a begin_ header opened.
#ifndef SIMD_ISA_SCALAR
#pragma GCC pop_options
#endif
#undef SIMD_ISA
#undef SIMD_ISA_NAME
#undef SIMD_ISA_SCALAR
#undef SIMD_ISA_AVX2
#undef SIMD_ISA_AVX512
