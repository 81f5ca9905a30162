#include "simd/lanes.h"

#include "simd/intrinsics.h"

#include "simd/begin_avx512.h"

#include "simd/lanes.kernel.h"

#include "simd/end.h"
