// Arithmetic modulo a prime below half of a word's range, over vectors of 64-bit lanes; residues are in
// [0, p). The lanes of a 32-bit residue hold zero above it.
#include "transforms/common/pass_steps.kernel.h"

namespace orl::SIMD_ISA {
namespace {

using U64 = simd::SIMD_ISA::U64;
using F64 = simd::SIMD_ISA::F64;
#ifndef SIMD_ISA_AVX2
using simd::SIMD_ISA::mul_high;
#endif
constexpr u32 L = U64::lanes;

#define NTT_INLINE inline __attribute__((always_inline))

template <class R>
struct Lanes;

template <>
struct Lanes<u32> {
  static NTT_INLINE U64 load(const u32* p) { return U64::load_low(p); }
  static NTT_INLINE void store(u32* p, U64 a) { a.store_low(p); }
  static NTT_INLINE U64 min(U64 a, U64 b) { return U64::min_halves(a, b); }
  // a w less the multiple of p that the quotient finds: below 2 p.
  static NTT_INLINE U64 shoup(U64 a, U64 w, U64 quotient, U64 p) {
    const U64 q = U64::mul_low(a, quotient).shr(32);
    return U64::mul_low(a, w) - U64::mul_low(q, p);
  }
  struct Sum {
    U64 s;
    NTT_INLINE Sum() : s(U64::all(0)) {}
    NTT_INLINE void add(U64 a, U64 b) { s = s + U64::mul_low(a, b); }
    NTT_INLINE U64 high() const { return s.shr(32); }
    NTT_INLINE U64 multiple(U64 p, U64 inverse) const {
      return U64::mul_low(U64::mul_low(s, inverse), p).shr(32);
    }
  };
};

#ifndef SIMD_ISA_AVX2
template <>
struct Lanes<u64> {
  static NTT_INLINE U64 load(const u64* p) { return U64::load(p); }
  static NTT_INLINE void store(u64* p, U64 a) { a.store(p); }
  static NTT_INLINE U64 min(U64 a, U64 b) { return U64::min(a, b); }
  static NTT_INLINE U64 shoup(U64 a, U64 w, U64 quotient, U64 p) {
    return U64::mul(a, w) - U64::mul(mul_high(a, quotient), p);
  }
  struct Sum {
    U64 low, top;
    NTT_INLINE Sum() : low(U64::all(0)), top(U64::all(0)) {}
    NTT_INLINE void add(U64 a, U64 b) {
      const U64 l = U64::mul(a, b);
      low = low + l;
      top = U64::sub_where(U64::less(low, l), top + mul_high(a, b), U64::all(~u64{0}));
    }
    NTT_INLINE U64 high() const { return top; }
    NTT_INLINE U64 multiple(U64 p, U64 inverse) const { return mul_high(U64::mul(low, inverse), p); }
  };
};
#endif

template <class R>
struct Mod {
  using V = Lanes<R>;
  U64 p;
  explicit NTT_INLINE Mod(const NttModulus<R>& m) : p(U64::all(m.p)) {}

  // [0, 2p) to [0, p).
  NTT_INLINE U64 reduce(U64 a) const { return V::min(a, a - p); }
  NTT_INLINE U64 add(U64 a, U64 b) const { return reduce(a + b); }
  NTT_INLINE U64 sub(U64 a, U64 b) const {
    const U64 d = a - b;
    return V::min(d, d + p);
  }
  // Any a that fits a word.
  NTT_INLINE U64 times(U64 a, U64 w, U64 quotient) const { return reduce(V::shoup(a, w, quotient, p)); }
  NTT_INLINE U64 times(U64 a, NttFactor<R> f) const { return times(a, U64::all(f.w), U64::all(f.quotient)); }
  // A sum of up to four products, times 2^-bits (P. Montgomery, "Modular multiplication without trial
  // division", Math. Comp. 44, 1985). Its upper word is below 2 p, for 4 p^2 < 2 p 2^bits.
  NTT_INLINE U64 collapse(const typename V::Sum& sum, U64 inverse) const {
    return sub(reduce(sum.high()), sum.multiple(p, inverse));
  }
};

}  // namespace
}  // namespace orl::SIMD_ISA
