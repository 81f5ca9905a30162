#include "digits/digit_kernels.h"

#include "digits/digit_text.h"
#include "simd/intrinsics.h"
#include "words/hash.h"

#include "simd/begin_avx2.h"

#include "digits/digit_kernels.kernel.h"

#include "simd/end.h"
