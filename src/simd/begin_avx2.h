// Opens a region compiled for the target AVX2: AVX2, FMA3, BMI1/2, ADX, ABM.
#ifdef __clang__
#define SIMD_TARGET __attribute__((target("avx2,fma,bmi,bmi2,adx,lzcnt,popcnt")))
#pragma clang attribute push(SIMD_TARGET, apply_to = function)
#undef SIMD_TARGET
#else
#pragma GCC push_options
#pragma GCC target("avx2,fma,bmi,bmi2,adx,lzcnt,popcnt")
#endif
#define SIMD_ISA avx2
#define SIMD_ISA_NAME "AVX2"
#define SIMD_ISA_AVX2 1
#include "simd/vector_types.h"
