// Opens a region without wide instructions: the reference form of a kernel.
#define SIMD_ISA scalar
#define SIMD_ISA_NAME "scalar"
#define SIMD_ISA_SCALAR 1
#include "simd/vector_types.h"
