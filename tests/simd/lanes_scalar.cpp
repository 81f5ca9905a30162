#include "simd/lanes.h"

#include <immintrin.h>

#include "simd/begin_scalar.h"

#include "simd/lanes.kernel.h"

#include "simd/end.h"
