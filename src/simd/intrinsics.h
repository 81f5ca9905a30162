// The compiler's own header of intrinsics, which declares vectors that it leaves undefined on purpose: g++ warns of each
// place that they reach.
#pragma once

#ifdef __clang__
#include <immintrin.h>
#else
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wuninitialized"
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#include <immintrin.h>
#pragma GCC diagnostic pop
#endif
