// Arithmetic modulo a prime p < 2^48 over vectors of doubles: residues are integers, lazy within a few p.
//
// Intervals: residue_bounds.h. A factor may be a product itself and its ratio w * (1 / p), so |w| <= 0.52 p
// and the ratio's relative error is below 2^-52.
#include "transforms/common/pass_steps.kernel.h"

namespace orl::SIMD_ISA {
namespace {

using F64 = simd::SIMD_ISA::F64;
using U64 = simd::SIMD_ISA::U64;
constexpr u32 L = F64::lanes;
constexpr double kRound = 6755399441055744.0;  // 1.5 * 2^52

#define RESIDUE_INLINE inline __attribute__((always_inline))

struct Mod {
  F64 p, inverse, round;
  explicit Mod(const ResidueModulus& m)
      : p(F64::all(m.p)), inverse(F64::all(m.inverse)), round(F64::all(kRound)) {}

  RESIDUE_INLINE F64 times(F64 a, F64 w, F64 ratio) const {
    const F64 h = a * w;
    const F64 q = fma(a, ratio, round) - round;
    return fnma(q, p, h) + fms(a, w, h);
  }
  RESIDUE_INLINE F64 times(F64 a, ResidueFactor f) const {
    return times(a, F64::all(f.w), F64::all(f.ratio));
  }
  RESIDUE_INLINE F64 reduce(F64 a) const { return fnma(fma(a, inverse, round) - round, p, a); }
};

// L polynomials of eight terms, from rows of memory into one vector per term, and back.
RESIDUE_INLINE void load_rows(const double* x, F64 (&v)[8]) {
  rows_to_lanes(v, [&](u32 row, u32 part) { return F64::load(x + 8 * row + part * L); });
}
RESIDUE_INLINE void store_rows(const F64 (&v)[8], double* x) {
  lanes_to_rows(v, [&](u32 row, u32 part, F64 terms) { terms.store(x + 8 * row + part * L); });
}

}  // namespace
}  // namespace orl::SIMD_ISA
