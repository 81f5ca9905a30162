// The odd factor of a length, k = 3, 5 or 7, on the arithmetic of residue_mod.kernel.h.
//
// Position i of sequence j is sum over t of x[t M + i] w^(j (t + i / M)), 1 / M taken modulo k (I. Good, "The
// interaction algorithm and practical Fourier analysis", 1958). So the k points of a position are rotated by
// i / M, a choice for each lane, and then transformed with constant factors.
namespace orl::SIMD_ISA {
namespace {

using simd::SIMD_ISA::Choice;

template <u32 K>
class OddFactor {
 public:
  /// n: the logarithm of M.
  explicit OddFactor(u32 n) {
    u32 step = 1;  // 1 / M modulo k
    for (u32 i = 0; i < n; ++i) step = step * ((K + 1) / 2) % K;
    for (u32 phase = 0; phase < K; ++phase)
      for (u32 b = 0; b < kChoices; ++b) {
        u32 lanes = 0;
        for (u32 l = 0; l < L; ++l) lanes |= ((phase + l) % K * step % K >> b & 1) << l;
        bit_[phase][b] = Choice::of(lanes);
      }
  }

  /// Points of L positions from i on to their sequences.
  RESIDUE_INLINE void forward(const Mod& mod, const ResidueFactor* dft, u64 i, F64 (&v)[K]) const {
    if constexpr (K == 1) return;
    rotate<false>(i, v);
    transform(mod, dft, v);
  }
  /// And back, times k.
  RESIDUE_INLINE void inverse(const Mod& mod, const ResidueFactor* dft, u64 i, F64 (&v)[K]) const {
    if constexpr (K == 1) return;
    transform(mod, dft, v);
    for (u32 j = 1; j <= K / 2; ++j) std::swap(v[j], v[K - j]);
    rotate<true>(i, v);
  }

 private:
  static constexpr u32 kBits = K == 1 ? 0 : K == 3 ? 2 : 3;
  static constexpr u32 kChoices = kBits ? kBits : 1;

  // The points of each lane, up by what belongs to its position, or down again.
  template <bool Back>
  RESIDUE_INLINE void rotate(u64 i, F64 (&v)[K]) const {
    const auto& bits = bit_[i % K];
#pragma GCC unroll 3
    for (u32 b = 0; b < kBits; ++b) {
      const u32 step = Back ? 1u << b : K - (1u << b) % K;
      F64 from[K];
      for (u32 t = 0; t < K; ++t) from[t] = v[t];
#pragma GCC unroll 7
      for (u32 t = 0; t < K; ++t) v[t] = bits[b](from[(t + step) % K], from[t]);
    }
  }

  static RESIDUE_INLINE void transform(const Mod& mod, const ResidueFactor* f, F64 (&v)[3]) {
    const F64 a = v[0], b = v[1], c = v[2], t = mod.times(b - c, f[0]);
    v[0] = a + b + c;
    v[1] = a - c + t;
    v[2] = a - b - t;
  }
  // Five products (S. Winograd, "On computing the discrete Fourier transform", 1978).
  static RESIDUE_INLINE void transform(const Mod& mod, const ResidueFactor* f, F64 (&v)[5]) {
    const F64 p1 = v[1] + v[4], q1 = v[1] - v[4], p2 = v[2] + v[3], q2 = v[2] - v[3];
    const F64 even = v[0] + mod.times(p1 + p2, f[0]), uneven = mod.times(p1 - p2, f[1]);
    const F64 both = mod.times(q1 + q2, f[2]);
    const F64 a1 = even + uneven, b1 = both + mod.times(q2, f[3]);
    const F64 a2 = even - uneven, b2 = mod.times(q1, f[4]) - both;
    v[0] = v[0] + p1 + p2;
    v[1] = a1 + b1;
    v[2] = a2 + b2;
    v[3] = a2 - b2;
    v[4] = a1 - b1;
  }
  static RESIDUE_INLINE void transform(const Mod& mod, const ResidueFactor* f, F64 (&v)[7]) {
    const F64 x = v[0];
    F64 p[3], q[3];
    for (u32 i = 0; i < 3; ++i) {
      p[i] = v[i + 1] + v[6 - i];
      q[i] = v[i + 1] - v[6 - i];
      v[0] = v[0] + p[i];
    }
#pragma GCC unroll 3
    for (u32 j = 1; j < 4; ++j) {
      F64 even = x, uneven = F64::all(0);
#pragma GCC unroll 3
      for (u32 i = 1; i < 4; ++i) {
        const u32 e = i * j % 7;
        const F64 s = mod.times(q[i - 1], f[2 + (e < 4 ? e : 7 - e)]);
        even = even + mod.times(p[i - 1], f[(e < 4 ? e : 7 - e) - 1]);
        uneven = e < 4 ? uneven + s : uneven - s;
      }
      v[j] = even + uneven;
      v[7 - j] = even - uneven;
    }
  }
  static void transform(const Mod&, const ResidueFactor*, F64 (&)[1]) {}

  Choice bit_[K][kChoices];
};

/// Calls body with a factor k as a constant.
template <class Body>
RESIDUE_INLINE void with_odd_factor(u32 k, Body&& body) {
  with_constant<1, 3, 5, 7>(k, body);
}

}  // namespace
}  // namespace orl::SIMD_ISA
