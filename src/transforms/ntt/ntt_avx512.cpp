#include "transforms/ntt/ntt_kernels.h"

#include "simd/intrinsics.h"

#include "simd/begin_avx512.h"

#include "transforms/ntt/ntt_mod.kernel.h"
// Above the rest, which uses it.
#include "transforms/ntt/ntt_pass.kernel.h"

#include "simd/end.h"
