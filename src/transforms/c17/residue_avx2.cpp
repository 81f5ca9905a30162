#include "transforms/c17/residue_far_kernels.h"
#include "transforms/c17/residue_kernels.h"

#include <type_traits>
#include <utility>

#include "simd/intrinsics.h"

#include "simd/begin_avx2.h"

#include "transforms/c17/residue_mod.kernel.h"
// Each group uses those above it.
#include "transforms/c17/residue_limbs.kernel.h"

#include "transforms/c17/residue_join.kernel.h"
#include "transforms/c17/residue_odd.kernel.h"
#include "transforms/c17/residue_pass.kernel.h"
// Over all of them.
#include "transforms/c17/residue_far.kernel.h"

#include "simd/end.h"
