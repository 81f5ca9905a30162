#include "transforms/fft/fft_kernels.h"

// The compiler's own header declares vectors that it leaves undefined on
// purpose.
#pragma GCC diagnostic ignored "-Wuninitialized"
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#include <immintrin.h>

#include "simd/begin_avx2.h"

#include "transforms/fft/fft.kernel.h"

#include "simd/end.h"
