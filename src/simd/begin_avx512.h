// Opens a region compiled for the target AVX512: F, CD, VL, BW, DQ on top of AVX2, FMA3, BMI1/2, ADX, ABM.
#ifdef __clang__
#define SIMD_TARGET \
  __attribute__((target("avx2,fma,bmi,bmi2,adx,lzcnt,popcnt,avx512f,avx512cd,avx512vl,avx512bw,avx512dq")))
#pragma clang attribute push(SIMD_TARGET, apply_to = function)
#undef SIMD_TARGET
#else
#pragma GCC push_options
#pragma GCC target("avx2,fma,bmi,bmi2,adx,lzcnt,popcnt,avx512f,avx512cd,avx512vl,avx512bw,avx512dq")
#endif
#define SIMD_ISA avx512
#define SIMD_ISA_NAME "AVX512"
#define SIMD_ISA_AVX512 1
#include "simd/vector_types.h"
