#include "digits/digit_count.h"

#include <immintrin.h>

#include "simd/begin_avx512.h"

#include "digits/digit_count.kernel.h"
#include "simd/end.h"
