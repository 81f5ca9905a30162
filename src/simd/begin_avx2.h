// Opens a region compiled for the target AVX2: AVX2, FMA3, BMI1/2, ADX, ABM.
#pragma GCC push_options
#pragma GCC target("avx2,fma,bmi,bmi2,adx,lzcnt,popcnt")
#define SIMD_ISA avx2
#define SIMD_ISA_NAME "AVX2"
#define SIMD_ISA_AVX2 1
#include "simd/vector_types.h"
