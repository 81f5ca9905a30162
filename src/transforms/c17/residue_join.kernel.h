// The join of residues, on the arithmetic of residue_mod.kernel.h.
//
// A coefficient V = sum of c_r M / p_r - q M: c_r the scaled residues, M the product of the primes, q the sum
// of c_r / p_r, rounded. It comes in 2 K limbs of w bits and its top bits, K w = 24 (P - 1) the bits of a
// point, so the limbs of neighbouring points stand upon each other: a point adds its upper K limbs to the
// lower K of the next one, and its top to the lowest of the one after. Each lane holds a point.
//
// Ranges, in units of 2^48: |x| <= 15 and the scale is a rounded ratio of |w| <= p / 2, so a scaled residue
// is within 1/2 p and 15 2^48 2^-54 p, below 3/4 p. Limbs of M / p_r are below 2^w, those of M within 2^(w -
// 1) and its top below 2^48.
//   high sums, in units of 2^w   3/4 P, below 8 for sums of doubles that round to 2^w
//   |q|                          Q = 3/4 P + 1/2, rounded down, as 3/4 P stays below 8
//   low sums                     P roundings of 2^(w - 1) and Q limbs of M: (P + Q) / 2, not above 8
//   top                          3/4 P + Q, below 16
// A limb is a high and a low sum, below 16, so 2^53 = 32 makes it positive. That is lent by limb after limb:
// the next one starts 2^(53 - w) lower. Sums of three limbs then stay below 2^56 and carry without sign.
//
// The sum of c_r / p_r is wrong by at most P (3/4 2^-53 + 2^-51) < 2^-47 (rounded inverses, and sums below
// 8); |V| / M is below 1/2 by 2^-12 at least, which check_residue_bounds() demands, so q is right.
namespace orl::SIMD_ISA {
namespace {

using simd::SIMD_ISA::store_fields;

template <u32 P>
struct Join {
  static constexpr u32 K = join_limbs(P), w = join_limb_bits(P);
  static constexpr u32 bytes = 3 * (P - 1), words = (bytes + 7) / 8;
  static constexpr double high = kRound * static_cast<double>(u64{1} << w);
  static constexpr u64 lent = u64{1} << 53, returned = lent >> w;

  static constexpr u32 Q = (3 * P + 2) / 4;
  static_assert(K * w == 24 * (P - 1));
  static_assert(3 * P < 4 * 8 && P + Q <= 2 * 8 && 3 * P + 2 * (P + Q) < 4 * 16 && 3 * P + 4 * Q < 4 * 16);
  static_assert(8 * words - bytes <= 8 && (words == 2 || words == 3));

  // Limbs of the coefficients of L points from x on.
  static RESIDUE_INLINE void coefficients(const ResiduePlan& plan, const double* x, u64 stride,
                                          U64 (&v)[2 * K + 1]) {
    const ResidueSet& set = *plan.set;
    const F64 round = F64::all(kRound);
    F64 c[P], sum;
#pragma GCC unroll 9
    for (u32 r = 0; r < P; ++r) {
      const ResidueModulus& modulus = plan.modulus[r];
      const Mod mod(modulus);
      c[r] = mod.times(F64::load(x + r * stride), modulus.scale);
      sum = r ? fma(c[r], mod.inverse, sum) : c[r] * mod.inverse;
    }
    const F64 q = (sum + round) - round;
    U64 above = U64::all(0);
    products<0>(set, c, q, above, v);
    if constexpr (kBlock < 2 * K) products<kBlock>(set, c, q, above, v);
    v[2 * K] = as_bits(fnma(q, F64::all(set.modulus_limb[2 * K]), round)) + above + U64::all(kLimb - lent);
  }

  // Limbs [First, First + kBlock), as many as registers hold; `above` is the high sum below them, and then
  // theirs.
  static constexpr u32 kBlock = L < 8 && K > 2 ? K : 2 * K;
  template <u32 First>
  static RESIDUE_INLINE void products(const ResidueSet& set, const F64 (&c)[P], F64 q, U64& above,
                                      U64 (&v)[2 * K + 1]) {
    F64 hi[kBlock], lo[kBlock];
#pragma GCC unroll 9
    for (u32 r = 0; r < P; ++r) {
#pragma GCC unroll 8
      for (u32 j = 0; j < kBlock; ++j) {
        const F64 b = F64::all(set.cofactor[r][First + j]);
        const F64 before = r ? hi[j] : F64::all(high);
        hi[j] = fma(c[r], b, before);
        const F64 rest = fma(c[r], b, before - hi[j]);
        lo[j] = (r ? lo[j] : F64::all(kRound)) + rest;
      }
    }
#pragma GCC unroll 8
    for (u32 j = 0; j < kBlock; ++j) {
      const U64 low = as_bits(fnma(q, F64::all(set.modulus_limb[First + j]), lo[j]));
      v[First + j] = First + j ? low + above + U64::all(kLimb) : low + U64::all(lent - kLow);
      above = as_bits(hi[j]);
    }
  }
  static constexpr u64 kLow = std::bit_cast<u64>(kRound);
  static constexpr u64 kLimb = lent - returned - kLow - std::bit_cast<u64>(high);

  // Carries within each lane. Returns what leaves the lanes.
  static RESIDUE_INLINE U64 settle(U64 (&l)[K]) {
    const U64 mask = U64::all((u64{1} << w) - 1);
    U64 carry = U64::all(0);
#pragma GCC unroll 4
    for (u32 k = 0; k < K; ++k) {
      const U64 sum = k ? l[k] + carry : l[k];
      carry = sum.shr(w);
      l[k] = sum & mask;
    }
    return carry;
  }

  static void run(const ResiduePlan& plan, const double* x, u64 stride, u64 count, ResidueJoinRun& run) {
    constexpr U64::Mask kAllLanes = (1u << L) - 1;
    constexpr u64 kWords = bytes;  // of eight points
    const U64 zero = U64::all(0);
    U64 before[K], top_before = U64::all(run.pending[7 + K]), carry_before = U64::all(run.pending[8 + K]);
    for (u32 k = 0; k < K; ++k) before[k] = U64::all(run.pending[7 + k]);
    U64 seen = U64::load(run.seen);
    const U64 offset = U64::all(run.offset);
    for (u64 i = 0; i < count; i += 8) {
      // Lanes are stored over each other, up to 16 bytes past the last.
      alignas(64) u64 local[kWords + 2];
      const bool inside = run.word != run.begin && 2 * run.word >= run.window.begin &&
                          2 * (run.word + kWords + 2) <= run.window.end && run.word + kWords + 2 <= run.end;
      u8* out = inside ? reinterpret_cast<u8*>(run.window.target + (2 * run.word - run.window.begin))
                       : reinterpret_cast<u8*>(local);
#pragma GCC unroll 1
      for (u32 h = 0; h < 8; h += L) {
        U64 v[2 * K + 1];
        coefficients(plan, x + i + h, stride, v);
        U64 carry = v[0].shr(w);
#pragma GCC unroll 8
        for (u32 j = 1; j < 2 * K; ++j) carry = (v[j] + carry).shr(w);
        seen = seen | (v[2 * K] + carry + offset);

        U64 l[K], upper[K];
#pragma GCC unroll 4
        for (u32 k = 0; k < K; ++k) {
          upper[k] = k ? v[K + k] : v[K] + U64::next(top_before, v[2 * K]);
          l[k] = v[k] + U64::next(before[k], upper[k]);
          before[k] = upper[k];
        }
        top_before = v[2 * K];
        carry = settle(l);
        l[0] = l[0] + U64::next(carry_before, carry);
        carry_before = carry;
        // Seldom does a carry go further.
        while (U64::equal(l[0].shr(w), zero) != kAllLanes) {
          carry = settle(l);
          l[0] = l[0] + U64::next(zero, carry);
          carry_before = carry_before + carry;
        }

        U64 word[3] = {zero, zero, zero};
#pragma GCC unroll 4
        for (u32 k = 0; k < K; ++k) {
          const u32 at = k * w / 64, shift = k * w % 64;
          word[at] = word[at] | l[k].shl(shift);
          if (shift + w > 64) word[at + 1] = word[at + 1] | l[k].shr(64 - shift);
        }
        u8* lanes[L];
        for (u32 n = 0; n < L; ++n) lanes[n] = out + bytes * n;
        store_fields<words>(lanes, bytes * h, word);
      }
      if (!inside) place_residue_words(run, local, kWords);
      run.word += kWords;
    }
    // From the last to the first, each over the lower lanes of the one before.
    carry_before.store(run.pending + 9 + K - L);
    top_before.store(run.pending + 8 + K - L);
    for (u32 k = K; k-- > 0;) before[k].store(run.pending + 8 + k - L);
    seen.store(run.seen);
  }
};

void join(const ResiduePlan& plan, const double* x, u64 stride, u64 count, ResidueJoinRun& run) {
  switch (plan.row.P) {
    case 4:
      return Join<4>::run(plan, x, stride, count, run);
    case 5:
      return Join<5>::run(plan, x, stride, count, run);
    case 6:
      return Join<6>::run(plan, x, stride, count, run);
    case 7:
      return Join<7>::run(plan, x, stride, count, run);
    case 8:
      return Join<8>::run(plan, x, stride, count, run);
    default:
      return Join<9>::run(plan, x, stride, count, run);
  }
}

}  // namespace
}  // namespace orl::SIMD_ISA
