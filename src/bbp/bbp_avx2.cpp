#include "bbp/bbp_kernels.h"
#include "simd/intrinsics.h"

#include "simd/begin_avx2.h"

#include "bbp/bbp_sum.kernel.h"

#include "simd/end.h"
