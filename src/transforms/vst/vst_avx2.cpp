#include "transforms/vst/vst_far_kernels.h"
#include "transforms/vst/vst_kernels.h"

#include "simd/intrinsics.h"

#include "simd/begin_avx2.h"

#include "transforms/c17/residue_mod.kernel.h"
// Each group uses those above it.
#include "transforms/c17/residue_limbs.kernel.h"

#include "transforms/vst/vst_pass.kernel.h"
// Over all of them.
#include "transforms/vst/vst_far.kernel.h"

#include "simd/end.h"
