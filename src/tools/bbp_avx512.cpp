#include <immintrin.h>

#include "tools/bbp_kernels.h"

#include "simd/begin_avx512.h"

#include "tools/bbp_sum.kernel.h"

#include "simd/end.h"
