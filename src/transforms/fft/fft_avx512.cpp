#include "transforms/fft/fft_kernels.h"

#include "simd/intrinsics.h"

#include "simd/begin_avx512.h"

#include "transforms/fft/fft.kernel.h"

#include "simd/end.h"
