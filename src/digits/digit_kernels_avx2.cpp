#include "digits/digit_kernels.h"

#include <immintrin.h>

#include "digits/digit_text.h"
#include "simd/begin_avx2.h"
#include "words/hash.h"

#include "digits/digit_kernels.kernel.h"
#include "simd/end.h"
