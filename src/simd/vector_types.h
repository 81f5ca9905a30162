// Vector types of the open region. No include guard: the begin_ headers include this once per region.
// Each type has the same members in every instruction set, so a kernel reads none of the intrinsics.
#include "simd/f64.h"
#include "simd/u64.h"

// Needs both of the above.
#include "simd/bit_fields.h"
