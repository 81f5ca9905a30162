#include "simd/lanes.h"

#include "simd/intrinsics.h"

#include "simd/begin_scalar.h"

#include "simd/lanes.kernel.h"

#include "simd/end.h"
