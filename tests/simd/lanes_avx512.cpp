#include "simd/lanes.h"

#include <immintrin.h>

#include "simd/begin_avx512.h"

#include "simd/lanes.kernel.h"

#include "simd/end.h"
