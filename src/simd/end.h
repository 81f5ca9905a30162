// Closes the region that a begin_ header opened.
#ifndef SIMD_ISA_SCALAR
#ifdef __clang__
#pragma clang attribute pop
#else
#pragma GCC pop_options
#endif
#endif
#undef SIMD_ISA
#undef SIMD_ISA_NAME
#undef SIMD_ISA_SCALAR
#undef SIMD_ISA_AVX2
#undef SIMD_ISA_AVX512
