#include "transforms/ntt/ntt_far_kernels.h"
#include "transforms/ntt/ntt_kernels.h"

#include "simd/intrinsics.h"

#include "simd/begin_avx512.h"

#include "transforms/ntt/ntt_mod.kernel.h"
// Above the rest, which uses it.
#include "transforms/ntt/ntt_pass.kernel.h"
// Over both.
#include "transforms/ntt/ntt_far.kernel.h"

#include "simd/end.h"
