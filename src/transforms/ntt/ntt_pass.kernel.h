// Integer residue transforms over vectors of words, on the arithmetic of ntt_mod.kernel.h.
namespace orl::SIMD_ISA {
namespace {

template <class R>
NTT_INLINE NttFactor<R> negated(const NttModulus<R>& m, NttFactor<R> f) {
  return {static_cast<R>(m.p - f.w), static_cast<R>(~f.quotient)};
}

template <class R>
NTT_INLINE NttFactor<R> inverse_root(const NttModulus<R>& m, u64 node) {
  if (node == 0) return m.roots[0];
  const u64 top = u64{1} << (63 - __builtin_clzll(node));
  return negated(m, m.roots[node ^ (top - 1)]);
}

// Butterflies of 2^Levels values; factor (1 << l) + b belongs to node b of level l.
template <u32 Levels, class R>
NTT_INLINE void forward_butterflies(const Mod<R>& mod, U64 (&v)[1u << Levels], const NttFactor<R>* f) {
  for_levels_down<Levels>(v, [&](U64& low, U64& high, u32 i) {
    const U64 t = mod.times(high, f[i]);
    high = mod.sub(low, t);
    low = mod.add(low, t);
  });
}
template <u32 Levels, class R>
NTT_INLINE void inverse_butterflies(const Mod<R>& mod, U64 (&v)[1u << Levels], const NttFactor<R>* f) {
  const auto butterfly = [&](U64& low, U64& high, u32 i) {
    // The difference may stay in (0, 2p): a factor takes any word.
    const U64 t = low + mod.p - high;
    low = mod.add(low, high);
    high = mod.times(t, f[i]);
  };
  for_levels_up<Levels>(v, butterfly, [](u32) {});
}

// Up to four levels over 2^Levels columns, all in registers.
template <u32 Levels, bool Inverse, class R>
NTT_INLINE void column_pass(const NttModulus<R>& modulus, R* x, u64 m, u64 node, u64 begin, u64 end) {
  using V = Lanes<R>;
  constexpr u32 kRows = 1u << Levels;
  const Mod<R> mod(modulus);
  const u64 q = m / kRows;
  NttFactor<R> f[kRows];
  for (u32 l = 0; l < Levels; ++l)
    for (u32 b = 0; b < (1u << l); ++b) {
      const u64 n = (node << l) + b;
      f[(1u << l) + b] = Inverse ? inverse_root(modulus, n) : modulus.roots[n];
    }
  for (u64 i = begin; i < end; i += L) {
    U64 v[kRows];
#pragma GCC unroll 16
    for (u32 j = 0; j < kRows; ++j) v[j] = V::load(x + i + j * q);
    if constexpr (Inverse)
      inverse_butterflies<Levels>(mod, v, f);
    else
      forward_butterflies<Levels>(mod, v, f);
#pragma GCC unroll 16
    for (u32 j = 0; j < kRows; ++j) V::store(x + i + j * q, v[j]);
  }
}
template <u32 Levels, class R>
NTT_INLINE void forward_pass(const NttModulus<R>& modulus, R* x, u64 m, u64 node, u64 begin, u64 end) {
  column_pass<Levels, false>(modulus, x, m, node, begin, end);
}
template <u32 Levels, class R>
NTT_INLINE void inverse_pass(const NttModulus<R>& modulus, R* x, u64 m, u64 node, u64 begin, u64 end) {
  column_pass<Levels, true>(modulus, x, m, node, begin, end);
}

// The levels of a block that is in cache, down to eight points.
template <class R>
void forward(const NttModulus<R>& modulus, R* x, u64 m, u64 node) {
  if (m > 4096) {
    forward_pass<4>(modulus, x, m, node, 0, m / 16);
    for (u64 j = 0; j < 16; ++j) forward(modulus, x + j * (m / 16), m / 16, 16 * node + j);
    return;
  }
  const u64 end = m;
  u64 count = 1;
  if ((63 - __builtin_clzll(m)) % 2 == 0) {
    forward_pass<1>(modulus, x, m, node, 0, m / 2);
    m /= 2;
    count = 2;
  }
  for (; m > 8; m /= 4, count *= 4)
    for (u64 j = 0; j < end / m; ++j) forward_pass<2>(modulus, x + j * m, m, count * node + j, 0, m / 4);
}

template <class R>
void inverse(const NttModulus<R>& modulus, R* x, u64 m, u64 node) {
  if (m > 4096) {
    for (u64 j = 0; j < 16; ++j) inverse(modulus, x + j * (m / 16), m / 16, 16 * node + j);
    inverse_pass<4>(modulus, x, m, node, 0, m / 16);
    return;
  }
  const bool odd = (63 - __builtin_clzll(m)) % 2 == 0;
  const u64 top = odd ? m / 2 : m;
  for (u64 s = 32; s <= top; s *= 4)
    for (u64 j = 0; j < m / s; ++j) inverse_pass<2>(modulus, x + j * s, s, (m / s) * node + j, 0, s / 4);
  if (odd) inverse_pass<1>(modulus, x, m, node, 0, m / 2);
}

// L polynomials of eight terms, from rows of memory into one vector per term.
template <class R>
NTT_INLINE void load_terms(const R* x, U64 (&v)[8]) {
  rows_to_lanes(v, [&](u32 row, u32 part) { return Lanes<R>::load(x + 8 * row + part * L); });
}

// Products modulo v^8 - t, t = s[m] and -s[m] of nodes 2 m and 2 m + 1.
template <class R>
void product(const NttModulus<R>& modulus, R* x, const R* g, u64 m, u64 node) {
  using V = Lanes<R>;
  const Mod<R> mod(modulus);
  const U64 inverse = U64::all(modulus.inverse);
  const u64 first = (m / 8) * node;
  for (u64 j = 0; j < m / 8; j += L) {
    alignas(64) u64 w[L], quotient[L];
    for (u32 i = 0; i < L; ++i) {
      const u64 n = first + j + i;
      const NttFactor<R> f = n % 2 ? negated(modulus, modulus.roots[n / 2]) : modulus.roots[n / 2];
      w[i] = f.w;
      quotient[i] = f.quotient;
    }
    U64 a[8], b[8], tb[8], c[8];
    load_terms(x + 8 * j, a);
    load_terms(g + 8 * j, b);
    const U64 tw = U64::load(w), tq = U64::load(quotient);
#pragma GCC unroll 8
    for (u32 r = 1; r < 8; ++r) tb[r] = mod.times(b[r], tw, tq);
#pragma GCC unroll 8
    for (u32 r = 0; r < 8; ++r) {
      typename V::Sum low, high;
#pragma GCC unroll 4
      for (u32 i = 0; i < 4; ++i) {
        low.add(a[i], i <= r ? b[r - i] : tb[r + 8 - i]);
        high.add(a[i + 4], i + 4 <= r ? b[r - i - 4] : tb[r + 4 - i]);
      }
      c[r] = mod.add(mod.collapse(low, inverse), mod.collapse(high, inverse));
    }
    lanes_to_rows(c, [&](u32 row, u32 part, U64 terms) { V::store(x + 8 * (j + row) + part * L, terms); });
  }
}

template <class R>
void first_pass(const NttModulus<R>& modulus, R* x, u64 m, u64 node, u64 begin, u64 end) {
  forward_pass<4>(modulus, x, m, node, begin, end);
}
template <class R>
void last_pass(const NttModulus<R>& modulus, R* x, u64 m, u64 node, u64 begin, u64 end) {
  inverse_pass<4>(modulus, x, m, node, begin, end);
}

// Fourier transform of K values: cosines of sums and sines of differences.
template <u32 K, class R>
NTT_INLINE void odd_transform(const NttModulus<R>& m, const Mod<R>& mod, U64 (&z)[K]) {
  constexpr u32 kHalf = K / 2;
  U64 sum[kHalf + 1], difference[kHalf + 1];
  U64 all = z[0];
  for (u32 c = 1; c <= kHalf; ++c) {
    sum[c] = mod.add(z[c], z[K - c]);
    difference[c] = mod.sub(z[c], z[K - c]);
    all = mod.add(all, sum[c]);
  }
  const U64 first = z[0];
  z[0] = all;
  for (u32 j = 1; j <= kHalf; ++j) {
    U64 even = first, odd = U64::all(0);
    for (u32 c = 1; c <= kHalf; ++c) {
      even = mod.add(even, mod.times(sum[c], m.cosine[j * c % K]));
      odd = mod.add(odd, mod.times(difference[c], m.sine[j * c % K]));
    }
    z[j] = mod.add(even, odd);
    z[K - j] = mod.sub(even, odd);
  }
}

// The words of eight points from point i on, the first of which is there, word by word; the last of an odd
// number of halves is a half.
template <class R>
NTT_INLINE void read_limbs(OperandBytes a, u32 P, u64 i, u64 (*limbs)[8]) {
  constexpr u32 kBytes = sizeof(R);
  const u64 bytes = kBytes / 2 * (P - 1), at = i * bytes;
  alignas(8) u8 local[8 * 28 + 16];
  const u8* from = a.data + at;
  if (at + 8 * bytes + 8 > a.bytes) {
    __builtin_memset(local, 0, sizeof(local));
    __builtin_memcpy(local, from, a.bytes - at < 8 * bytes ? a.bytes - at : 8 * bytes);
    from = local;
  }
  constexpr u64 kFull = ~u64{0} >> (64 - 8 * kBytes), kHalf = kFull >> (4 * kBytes);
  for (u32 n = 0; n < 8; ++n)
    for (u32 j = 0; j < P / 2; ++j) {
      u64 word;
      __builtin_memcpy(&word, from + n * bytes + kBytes * j, 8);
      limbs[j][n] = word & (kBytes * (j + 1) <= bytes ? kFull : kHalf);
    }
}

// The eight values from point `first` on, each to the place of its index modulo K in its position.
template <u32 K, class R>
NTT_INLINE void turn(const R* values, u64 first, R (&z)[K][8]) {
  u64 c = first % K;
  for (u32 l = 0; l < 8; ++l, c = c + 1 == K ? 0 : c + 1) z[c][l] = values[l];
}

// Eight positions to their sequences, `stride` apart.
template <u32 K, class R>
NTT_INLINE void to_sequences(const NttModulus<R>& modulus, const R (&z)[K][8], R* out, u64 stride) {
  const Mod<R> mod(modulus);
  for (u32 h = 0; h < 8; h += L) {
    U64 v[K];
    for (u32 c = 0; c < K; ++c) v[c] = Lanes<R>::load(z[c] + h);
    odd_transform<K>(modulus, mod, v);
    for (u32 j = 0; j < K; ++j) Lanes<R>::store(out + j * stride + h, v[j]);
  }
}

template <u32 K, class R>
void split_odd(const NttPlan<R>& plan, R* F, OperandBytes a, u64 begin, u64 end) {
  const u32 P = plan.row.P;
  const u64 M = plan.length(), points = plan.row.points();
  const u64 filled = (a.bytes + sizeof(R) / 2 * (P - 1) - 1) / (sizeof(R) / 2 * (P - 1));
  for (u64 i = begin; i < end; i += 8) {
    alignas(64) u64 limbs[K][4][8];
    u32 parts = 0;  // the rest of the points are zero
    while (parts < K && i + parts * M < filled) {
      read_limbs<R>(a, P, i + parts * M, limbs[parts]);
      ++parts;
    }
    for (u32 r = plan.first; r < plan.last; ++r) {
      const NttModulus<R>& modulus = plan.modulus[r];
      const Mod<R> mod(modulus);
      alignas(64) R z[K][8] = {};
      for (u32 t = 0; t < parts; ++t) {
        alignas(64) R values[8];
        for (u32 h = 0; h < 8; h += L) {
          U64 v = mod.times(U64::load(limbs[t][0] + h), plan.set->limb[r][0]);
          for (u32 j = 1; j < P / 2; ++j)
            v = mod.add(v, mod.times(U64::load(limbs[t][j] + h), plan.set->limb[r][j]));
          if (plan.negacyclic() && t % 2) v = mod.sub(U64::all(0), v);
          Lanes<R>::store((K == 1 ? z[0] : values) + h, v);
        }
        if (K > 1) turn<K>(values, i + t * M, z);
      }
      to_sequences<K>(modulus, z, F + (r - plan.first) * points + i, M);
    }
  }
}

// Eight positions from position i on: from their sequences, `stride` apart, to points and scaled.
template <u32 K, class R>
NTT_INLINE void finish_points(const NttPlan<R>& plan, const NttModulus<R>& modulus, R* x, u64 stride, u64 i) {
  const Mod<R> mod(modulus);
  alignas(64) R z[K][8];
  for (u32 h = 0; h < 8; h += L) {
    U64 v[K];
    for (u32 j = 0; j < K; ++j) v[j] = Lanes<R>::load(x + j * stride + h);
    odd_transform<K>(modulus, mod, v);
    // By w^-1 in place of w: the values come in the other order.
    for (u32 c = 0; c < K; ++c) Lanes<R>::store(z[c ? K - c : 0] + h, v[c]);
  }
  for (u32 t = 0; t < K; ++t) {
    alignas(64) R values[8];
    u64 c = (i + t * plan.length()) % K;
    if (K > 1)
      for (u32 l = 0; l < 8; ++l, c = c + 1 == K ? 0 : c + 1) values[l] = z[c][l];
    const bool negative = plan.negacyclic() && t % 2;
    const NttFactor<R> scale = negative ? modulus.minus_scale : modulus.scale;
    for (u32 h = 0; h < 8; h += L)
      Lanes<R>::store(x + t * stride + h, mod.times(Lanes<R>::load((K == 1 ? z[0] : values) + h), scale));
  }
}

template <u32 K, class R>
void finish_odd(const NttPlan<R>& plan, R* F, u64 begin, u64 end) {
  const u64 M = plan.length(), points = plan.row.points();
  for (u32 r = 0; r < plan.row.P; ++r)
    for (u64 i = begin; i < end; i += 8) finish_points<K>(plan, plan.modulus[r], F + r * points + i, M, i);
}

template <class R>
void split(const NttPlan<R>& plan, R* F, OperandBytes a, u64 begin, u64 end) {
  with_constant<1, 3, 5, 7>(plan.row.k, [&](auto k) { split_odd<k>(plan, F, a, begin, end); });
}

template <class R>
void finish(const NttPlan<R>& plan, R* F, u64 begin, u64 end) {
  with_constant<1, 3, 5, 7>(plan.row.k, [&](auto k) { finish_odd<k>(plan, F, begin, end); });
}

template <class R>
constexpr NttKernels<R> kernel_table() {
  return {SIMD_ISA_NAME, &split<R>,   &first_pass<R>, &last_pass<R>,
          &forward<R>,   &product<R>, &inverse<R>,    &finish<R>};
}

}  // namespace

#ifndef SIMD_ISA_AVX2
extern const NttKernels<u64> ntt64_kernel_table;
constinit const NttKernels<u64> ntt64_kernel_table = kernel_table<u64>();
#endif
extern const NttKernels<u32> ntt32_kernel_table;
constinit const NttKernels<u32> ntt32_kernel_table = kernel_table<u32>();

}  // namespace orl::SIMD_ISA
