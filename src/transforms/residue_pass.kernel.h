// Residue transforms over vectors of doubles, on the arithmetic of residue_mod.kernel.h; residue_bounds.cpp
// states what the passes make of its intervals.
namespace orl::SIMD_ISA {
namespace {

RESIDUE_INLINE ResidueFactor inverse_root(const ResidueFactor* roots, u64 node) {
  if (node == 0) return {1.0, roots[0].ratio};
  const u64 top = u64{1} << (63 - __builtin_clzll(node));
  const ResidueFactor f = roots[node ^ (top - 1)];
  return {-f.w, -f.ratio};
}

// Four levels (or fewer) over 2^Levels columns, all in registers.
template <u32 Levels, bool Reduce>
RESIDUE_INLINE void forward_pass(const ResidueModulus& modulus, double* x, u64 m, u64 node, u64 begin,
                                 u64 end) {
  constexpr u32 R = 1u << Levels;
  const Mod mod(modulus);
  const u64 q = m / R;
  ResidueFactor f[R];
  for (u32 l = 0; l < Levels; ++l)
    for (u32 b = 0; b < (1u << l); ++b) f[(1u << l) + b] = modulus.roots[(node << l) + b];
  for (u64 i = begin; i < end; i += L) {
    F64 v[R];
#pragma GCC unroll 16
    for (u32 j = 0; j < R; ++j) {
      v[j] = F64::load(x + i + j * q);
      if (Reduce && j < R / 2) v[j] = mod.reduce(v[j]);
    }
#pragma GCC unroll 4
    for (u32 l = 0; l < Levels; ++l) {
      const u32 nodes = 1u << l, half = R >> (l + 1);
#pragma GCC unroll 8
      for (u32 b = 0; b < nodes; ++b) {
#pragma GCC unroll 8
        for (u32 j = 0; j < half; ++j) {
          F64& lo = v[2 * b * half + j];
          F64& hi = v[(2 * b + 1) * half + j];
          const F64 t = mod.times(hi, f[(1u << l) + b]);
          hi = lo - t;
          lo = lo + t;
        }
      }
    }
#pragma GCC unroll 16
    for (u32 j = 0; j < R; ++j) v[j].store(x + i + j * q);
  }
}

template <u32 Levels>
RESIDUE_INLINE void inverse_pass(const ResidueModulus& modulus, double* x, u64 m, u64 node, u64 begin,
                                 u64 end) {
  constexpr u32 R = 1u << Levels;
  const Mod mod(modulus);
  const u64 q = m / R;
  ResidueFactor f[R];
  for (u32 l = 0; l < Levels; ++l)
    for (u32 b = 0; b < (1u << l); ++b) f[(1u << l) + b] = inverse_root(modulus.roots, (node << l) + b);
  for (u64 i = begin; i < end; i += L) {
    F64 v[R];
#pragma GCC unroll 16
    for (u32 j = 0; j < R; ++j) v[j] = F64::load(x + i + j * q);
#pragma GCC unroll 4
    for (u32 s = 0; s < Levels; ++s) {
      const u32 l = Levels - 1 - s;
      const u32 nodes = 1u << l, half = R >> (l + 1);
#pragma GCC unroll 8
      for (u32 b = 0; b < nodes; ++b) {
#pragma GCC unroll 8
        for (u32 j = 0; j < half; ++j) {
          F64& lo = v[2 * b * half + j];
          F64& hi = v[(2 * b + 1) * half + j];
          const F64 t = lo - hi;
          lo = lo + hi;
          hi = mod.times(t, f[(1u << l) + b]);
        }
      }
      // The sums that met no product yet would pass 2^51 in the last two levels.
      if (Levels == 4 && s == 1) {
#pragma GCC unroll 4
        for (u32 j = 0; j < R; j += 4) v[j] = mod.reduce(v[j]);
      }
    }
    v[0] = mod.reduce(v[0]);
#pragma GCC unroll 16
    for (u32 j = 0; j < R; ++j) {
      if (Levels > 2 && j > 0 && j < R / 4) v[j] = mod.reduce(v[j]);
      v[j].store(x + i + j * q);
    }
  }
}

// The levels of a block that is in cache, down to eight points.
void forward(const ResidueModulus& modulus, double* x, u64 m, u64 node) {
  if (m > 4096) {
    forward_pass<4, true>(modulus, x, m, node, 0, m / 16);
    for (u64 j = 0; j < 16; ++j) forward(modulus, x + j * (m / 16), m / 16, 16 * node + j);
    return;
  }
  const u64 end = m;
  u64 count = 1;
  if ((63 - __builtin_clzll(m)) % 2 == 0) {
    forward_pass<1, true>(modulus, x, m, node, 0, m / 2);
    m /= 2;
    count = 2;
  }
  for (; m > 8; m /= 4, count *= 4)
    for (u64 j = 0; j < end / m; ++j)
      forward_pass<2, false>(modulus, x + j * m, m, count * node + j, 0, m / 4);
}

void inverse(const ResidueModulus& modulus, double* x, u64 m, u64 node) {
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

// L polynomials of eight terms, from rows of memory into one vector a term.
RESIDUE_INLINE void load_terms(const Mod& mod, const double* x, F64 (&v)[8]) {
  for (u32 b = 0; b < 8 / L; ++b) {
    F64 t[L];
    for (u32 i = 0; i < L; ++i) t[i] = F64::load(x + 8 * i + b * L);
    transpose(t);
    for (u32 i = 0; i < L; ++i) v[b * L + i] = mod.reduce(t[i]);
  }
}

// Products modulo x^8 - t, t = s[m] and -s[m] of nodes 2 m and 2 m + 1.
void product(const ResidueModulus& modulus, double* x, const double* g, u64 m, u64 node) {
  const Mod mod(modulus);
  const u64 first = (m / 8) * node;
  for (u64 j = 0; j < m / 8; j += L) {
    alignas(64) double w[L], ratio[L];
    for (u32 i = 0; i < L; ++i) {
      const u64 n = first + j + i;
      const ResidueFactor f = modulus.roots[n / 2];
      w[i] = n % 2 ? -f.w : f.w;
      ratio[i] = n % 2 ? -f.ratio : f.ratio;
    }
    F64 a[8], b[8], c[8];
    load_terms(mod, x + 8 * j, a);
    load_terms(mod, g + 8 * j, b);
    const F64 tw = F64::load(w), tr = F64::load(ratio);
#pragma GCC unroll 8
    for (u32 i = 0; i < 8; ++i) {
      // b times x^i modulo x^8 - t: b rotates, its top term times t.
      for (u32 r = 0; r < 8; ++r) {
        const F64 h = a[i] * b[r];
        const F64 q = fma(h, mod.inverse, mod.round) - mod.round;
        const F64 t = fnma(q, mod.p, h) + fms(a[i], b[r], h);
        c[r] = i ? c[r] + t : t;
      }
      if (i == 7) break;
      const F64 top = mod.times(b[7], tw, tr);
      for (u32 r = 7; r > 0; --r) b[r] = b[r - 1];
      b[0] = top;
    }
    for (u32 h = 0; h < 8 / L; ++h) {
      F64 t[L];
      for (u32 i = 0; i < L; ++i) t[i] = mod.reduce(c[h * L + i]);
      transpose(t);
      for (u32 i = 0; i < L; ++i) t[i].store(x + 8 * (j + i) + h * L);
    }
  }
}

void first_pass(const ResidueModulus& modulus, double* x, u64 m, u64 begin, u64 end) {
  forward_pass<4, false>(modulus, x, m, 0, begin, end);
}
void last_pass(const ResidueModulus& modulus, double* x, u64 m, u64 begin, u64 end) {
  inverse_pass<4>(modulus, x, m, 0, begin, end);
}

// The 48-bit limbs of eight points from point i on, limb by limb; the last of an odd number has 24 bits.
RESIDUE_INLINE void read_limbs(ResidueOperand a, u32 P, u64 i, double (*limbs)[8]) {
  const u64 bytes = 3 * (P - 1), at = i * bytes;
  alignas(8) u8 local[8 * 3 * 8 + 16];
  const u8* from = a.data + at;
  if (at + 8 * bytes + 8 > a.bytes) {
    const u64 have = at < a.bytes ? (a.bytes - at < 8 * bytes ? a.bytes - at : 8 * bytes) : 0;
    __builtin_memset(local, 0, sizeof(local));
    if (have) __builtin_memcpy(local, from, have);
    from = local;
  }
  const u32 count = P / 2;
  for (u32 n = 0; n < 8; ++n)
    for (u32 j = 0; j < count; ++j) {
      u64 word;
      __builtin_memcpy(&word, from + n * bytes + 6 * j, 8);
      const u64 mask = 6 * j + 6 <= bytes ? (u64{1} << 48) - 1 : (u64{1} << 24) - 1;
      limbs[j][n] = static_cast<double>(static_cast<s64>(word & mask));
    }
}

// Position i of sequence j is sum over t of x[i + t M] w^(j (t + i / M)), by i = i mod M and i mod k; 1 / M
// is taken modulo k. The exponent of lane l is that of lane 0 plus j l / M.
struct OddMap {
  u32 k, step;  // step: 1 / M modulo k
  OddMap(u32 odd, u32 n) : k(odd), step(1) {
    for (u32 i = 0; i < n; ++i) step = step * ((k + 1) / 2) % k;
    if (k == 1) step = 0;
  }
  u32 phase(u32 t, u64 i) const { return static_cast<u32>((t + i % k * step) % k); }
  u32 exponent(u32 j, u32 t, u64 i) const { return static_cast<u32>(j * (t + i % k * step) % k); }
};

// The factors of a vector by j and by t + i / M modulo k, i its first position.
struct OddFactors {
  alignas(64) double w[7][7][L], ratio[7][7][L];
  void fill(const ResidueModulus& m, const OddMap& map, bool back) {
    for (u32 j = 1; j < map.k; ++j)
      for (u32 c = 0; c < map.k; ++c)
        for (u32 l = 0; l < L; ++l) {
          u32 e = map.exponent(j, c, l);
          if (back && e) e = map.k - e;
          w[j][c][l] = m.odd[e].w;
          ratio[j][c][l] = m.odd[e].ratio;
        }
  }
  RESIDUE_INLINE F64 times(const Mod& mod, F64 v, u32 j, u32 c) const {
    return mod.times(v, F64::load(w[j][c]), F64::load(ratio[j][c]));
  }
};

void split(const ResiduePlan& plan, double* F, ResidueOperand a, u64 begin, u64 end) {
  const u32 P = plan.row.P, k = plan.row.k;
  const u64 M = plan.length(), points = plan.row.points(), bytes = 3 * (P - 1);
  const OddMap map(k, plan.row.n);
  OddFactors factors[kMaxResiduePrimes];
  for (u32 r = 0; r < P; ++r) factors[r].fill(plan.modulus[r], map, false);
  alignas(64) double limbs[7][4][8];
  for (u64 i = begin; i < end; i += 8) {
    u32 filled = 0;
    u32 phase[8 / L][7];
    for (u32 h = 0; h < 8; h += L)
      for (u32 t = 0; t < k; ++t) phase[h / L][t] = map.phase(t, i + h);
    for (u32 t = 0; t < k; ++t) {
      if ((i + t * M) * bytes >= a.bytes) break;
      read_limbs(a, P, i + t * M, limbs[t]);
      ++filled;
    }
    for (u32 r = 0; r < P; ++r) {
      const ResidueModulus& modulus = plan.modulus[r];
      const Mod mod(modulus);
      double* out = F + r * points + i;
      for (u32 h = 0; h < 8; h += L) {
        F64 v[7];
        for (u32 t = 0; t < filled; ++t) {
          v[t] = mod.reduce(F64::load(limbs[t][0] + h));
          for (u32 j = 1; j < P / 2; ++j)
            v[t] = v[t] + mod.times(F64::load(limbs[t][j] + h), plan.set->limb[r][j]);
        }
        for (u32 j = 0; j < k; ++j) {
          F64 sum = F64::all(0);
          for (u32 t = 0; t < filled; ++t) {
            if (j == 0) {
              sum = sum + v[t];
              continue;
            }
            sum = sum + factors[r].times(mod, v[t], j, phase[h / L][t]);
          }
          mod.reduce(sum).store(out + j * M + h);
        }
      }
    }
  }
}

void finish(const ResiduePlan& plan, double* F, u64 begin, u64 end) {
  const u32 P = plan.row.P, k = plan.row.k;
  const u64 M = plan.length(), points = plan.row.points();
  const OddMap map(k, plan.row.n);
  OddFactors factors;
  for (u32 r = 0; r < P; ++r) {
    const ResidueModulus& modulus = plan.modulus[r];
    factors.fill(modulus, map, true);
    const Mod mod(modulus);
    const F64 half = F64::all(0.5 * (modulus.p - 1));
    for (u64 i = begin; i < end; i += L) {
      double* x = F + r * points + i;
      F64 v[7];
      for (u32 j = 0; j < k; ++j) v[j] = mod.times(F64::load(x + j * M), modulus.scale);
      for (u32 t = 0; t < k; ++t) {
        F64 sum = v[0];
        const u32 c = map.phase(t, i);
        for (u32 j = 1; j < k; ++j) {
          sum = sum + factors.times(mod, v[j], j, c);
        }
        // Of [-1/2, p - 1/2], which holds the integers 0 to p - 1: no tie, for p is odd.
        sum = mod.reduce(sum);
        const F64 q = fma(sum - half, mod.inverse, mod.round) - mod.round;
        fnma(q, mod.p, sum).store(x + t * M);
      }
    }
  }
}

}  // namespace

extern const ResidueKernels residue_kernel_table;
constinit const ResidueKernels residue_kernel_table{
    SIMD_ISA_NAME, &split, &first_pass, &last_pass, &forward, &product, &inverse, &finish,
};

}  // namespace orl::SIMD_ISA
