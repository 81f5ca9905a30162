#include "simd/intrinsics.h"
#include "words/hash.h"
#include "words/word_kernels.h"
#include "words/word_loops.h"

#include "simd/begin_avx512.h"

#include "words/words.kernel.h"

#include "simd/end.h"
