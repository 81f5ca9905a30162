#include "transforms/ntt/ntt_kernels.h"

// The compiler's own header declares vectors that it leaves undefined on purpose.
#pragma GCC diagnostic ignored "-Wuninitialized"
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#include <immintrin.h>

#include "simd/begin_avx2.h"

#include "transforms/ntt/ntt_mod.kernel.h"
// Above the rest, which uses it.
#include "transforms/ntt/ntt_pass.kernel.h"

#include "simd/end.h"
