#include <immintrin.h>

#include "numbers/hash.h"
#include "numbers/word_kernels.h"
#include "numbers/word_loops.h"

#include "simd/begin_avx2.h"

#include "numbers/words.kernel.h"

#include "simd/end.h"
