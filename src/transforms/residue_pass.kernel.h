// Residue transforms over vectors of doubles, on the arithmetic of residue_mod.kernel.h; residue_bounds.cpp
// states what the passes make of its intervals.
namespace orl::SIMD_ISA {
namespace {

constexpr u64 kBlockPoints = u64{1} << kResidueBlockLevels;

// Factors of the blocks -------------------------------------------------------------------------------------

ResidueFactor factor_times(const ResidueModulus& modulus, ResidueFactor a, ResidueFactor b) {
  const double h = a.w * b.w;
  const double q = __builtin_fma(a.w, b.ratio, kRound) - kRound;
  const double w = __builtin_fma(-q, modulus.p, h) + __builtin_fma(a.w, b.w, -h);
  return {w, w * modulus.inverse};
}

ResidueFactor root(const ResidueModulus& modulus, u64 node) {
  const u64 low = node % kResidueLowRoots, high = node / kResidueLowRoots;
  const ResidueRoots& roots = modulus.roots;
  const ResidueFactor f{roots.low_w[low], roots.low_ratio[low]};
  return high ? factor_times(modulus, f, roots.high[high]) : f;
}

// s[2^l + r] s[2^l + (2^l - 1 - r)] = -1.
ResidueFactor inverse_root(const ResidueModulus& modulus, u64 node) {
  if (node == 0) return root(modulus, 0);
  const u64 top = u64{1} << (63 - __builtin_clzll(node));
  const ResidueFactor f = root(modulus, node ^ (top - 1));
  return {-f.w, -f.ratio};
}

// The roots that a subtree of up to kBlockPoints needs, or their inverses: that of descendant b, l levels
// below its node, at 2^l + b.
struct BlockRoots {
  alignas(64) double w[kResidueLowRoots + L], ratio[kResidueLowRoots + L];

  void fill(const ResidueModulus& modulus, u64 m, u64 node, bool inverse) {
    const Mod mod(modulus);
    const ResidueRoots& roots = modulus.roots;
    const double* below = inverse ? roots.low_inverse_w : roots.low_w;
    for (u64 l = 0; m >> l > 8; ++l) {
      const ResidueFactor head = inverse ? inverse_root(modulus, node << l) : root(modulus, node << l);
      // A vector may end beyond its level: the next level comes later.
      for (u64 b = 0; b < u64{1} << l; b += L) {
        const F64 v = mod.times(F64::load(below + b), head);
        v.store(w + (u64{1} << l) + b);
        (v * mod.inverse).store(ratio + (u64{1} << l) + b);
      }
    }
  }
  // Factors of a pass of `levels` levels from descendant j, `depth` levels below.
  template <u32 Levels>
  RESIDUE_INLINE void pass(ResidueFactor (&f)[1u << Levels], u64 depth, u64 j) const {
    for (u32 l = 0; l < Levels; ++l)
      for (u32 b = 0; b < (1u << l); ++b) {
        const u64 at = (u64{1} << (depth + l)) + (j << l) + b;
        f[(1u << l) + b] = {w[at], ratio[at]};
      }
  }
};

template <u32 Levels>
void pass_roots(const ResidueModulus& modulus, u64 node, bool inverse, ResidueFactor (&f)[1u << Levels]) {
  for (u32 l = 0; l < Levels; ++l)
    for (u32 b = 0; b < (1u << l); ++b) {
      const u64 at = (node << l) + b;
      f[(1u << l) + b] = inverse ? inverse_root(modulus, at) : root(modulus, at);
    }
}

// Passes ----------------------------------------------------------------------------------------------------

// Rows of a pass: row j at data + j * stride.
template <class T>
struct Rows {
  T* data;
  u64 stride;
};

// Levels of 2^Levels rows, all in registers, `count` columns. kReduce: the lower rows are reduced first;
// kHalf: the upper rows are zeros and not read.
enum class Start { kPlain, kReduce, kHalf };

template <u32 Levels, Start start>
RESIDUE_INLINE void forward_pass(const Mod& mod, Rows<const double> from, Rows<double> to, u64 count,
                                 const ResidueFactor (&f)[1u << Levels]) {
  constexpr u32 R = 1u << Levels;
  for (u64 i = 0; i < count; i += L) {
    F64 v[R];
#pragma GCC unroll 16
    for (u32 j = 0; j < (start == Start::kHalf ? R / 2 : R); ++j) {
      v[j] = F64::load(from.data + i + j * from.stride);
      if (start == Start::kReduce && j < R / 2) v[j] = mod.reduce(v[j]);
      if (start == Start::kHalf) v[j + R / 2] = v[j];
    }
#pragma GCC unroll 4
    for (u32 l = start == Start::kHalf ? 1 : 0; l < Levels; ++l) {
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
    for (u32 j = 0; j < R; ++j) v[j].store(to.data + i + j * to.stride);
  }
}

template <u32 Levels>
RESIDUE_INLINE void inverse_pass(const Mod& mod, Rows<const double> from, Rows<double> to, u64 count,
                                 const ResidueFactor (&f)[1u << Levels]) {
  constexpr u32 R = 1u << Levels;
  for (u64 i = 0; i < count; i += L) {
    F64 v[R];
#pragma GCC unroll 16
    for (u32 j = 0; j < R; ++j) v[j] = F64::load(from.data + i + j * from.stride);
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
#pragma GCC unroll 16
      for (u32 j = 0; j < R; ++j)
        if (residue_inverse_reduces(Levels, s, j)) v[j] = mod.reduce(v[j]);
    }
#pragma GCC unroll 16
    for (u32 j = 0; j < R; ++j) v[j].store(to.data + i + j * to.stride);
  }
}

// Passes over a range of memory that is its own rows.
template <u32 Levels, Start start>
void forward_in_place(const ResidueModulus& modulus, double* x, u64 m, u64 node) {
  ResidueFactor f[1u << Levels];
  pass_roots<Levels>(modulus, node, false, f);
  const u64 q = m >> Levels;
  forward_pass<Levels, start>(Mod(modulus), {x, q}, {x, q}, q, f);
}
template <u32 Levels>
void inverse_in_place(const ResidueModulus& modulus, double* x, u64 m, u64 node) {
  ResidueFactor f[1u << Levels];
  pass_roots<Levels>(modulus, node, true, f);
  const u64 q = m >> Levels;
  inverse_pass<Levels>(Mod(modulus), {x, q}, {x, q}, q, f);
}

/// Calls body with a number of levels, 1 to 4, as a constant.
template <class Body>
RESIDUE_INLINE void with_levels(u32 levels, Body&& body) {
  switch (levels) {
    case 1:
      return body(std::integral_constant<u32, 1>());
    case 2:
      return body(std::integral_constant<u32, 2>());
    case 3:
      return body(std::integral_constant<u32, 3>());
    default:
      return body(std::integral_constant<u32, 4>());
  }
}

// Blocks ----------------------------------------------------------------------------------------------------

// A block's levels, down to eight points.
void forward_block(const Mod& mod, const BlockRoots& roots, double* x, u64 points) {
  u64 depth = 0, m = points;
  if ((63 - __builtin_clzll(m)) % 2 == 0) {
    ResidueFactor f[2];
    roots.pass<1>(f, 0, 0);
    forward_pass<1, Start::kPlain>(mod, {x, m / 2}, {x, m / 2}, m / 2, f);
    m /= 2;
    depth = 1;
  }
  for (; m > 8; m /= 4, depth += 2)
    for (u64 j = 0; j < points / m; ++j) {
      ResidueFactor f[4];
      roots.pass<2>(f, depth, j);
      forward_pass<2, Start::kPlain>(mod, {x + j * m, m / 4}, {x + j * m, m / 4}, m / 4, f);
    }
}

void inverse_block(const Mod& mod, const BlockRoots& roots, double* x, u64 points) {
  const u32 levels = static_cast<u32>(63 - __builtin_clzll(points)) - 3;
  u64 m = 8, depth = levels;
  for (; depth >= 2; depth -= 2) {
    m *= 4;
    for (u64 j = 0; j < points / m; ++j) {
      ResidueFactor f[4];
      roots.pass<2>(f, depth - 2, j);
      inverse_pass<2>(mod, {x + j * m, m / 4}, {x + j * m, m / 4}, m / 4, f);
    }
  }
  if (depth == 1) {
    ResidueFactor f[2];
    roots.pass<1>(f, 0, 0);
    inverse_pass<1>(mod, {x, points / 2}, {x, points / 2}, points / 2, f);
  }
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

// Sums of eight products of reduced residues stay below 2^98 and so in its binade: all high parts are
// multiples of 2^47, the rests sum to less than 2^50.
constexpr double kHighParts = 0x1.8p99;

// A sum of products, in high parts and rests.
struct ProductSum {
  F64 high, low;

  ProductSum() : high(F64::all(kHighParts)), low(F64::all(0)) {}
  RESIDUE_INLINE void add(F64 a, F64 b) {
    const F64 before = high;
    high = fma(a, b, before);
    low = low + fms(a, b, high - before);
  }
  RESIDUE_INLINE F64 reduced(const Mod& mod) const {
    const F64 h = high - F64::all(kHighParts);
    return mod.reduce(fnma(fma(h, mod.inverse, mod.round) - mod.round, mod.p, h) + low);
  }
};

// c = a b modulo x^8 - t, t one a lane.
RESIDUE_INLINE void multiply_terms(const Mod& mod, F64 t, F64 ratio, const F64 (&a)[8], F64 (&b)[8],
                                   F64 (&c)[8]) {
  ProductSum sum[8];
#pragma GCC unroll 8
  for (u32 i = 0; i < 8; ++i) {
    // b times x^i: b rotates, its top term times t.
    for (u32 r = 0; r < 8; ++r) sum[r].add(a[i], b[r]);
    if (i == 7) break;
    const F64 top = mod.times(b[7], t, ratio);
    for (u32 r = 7; r > 0; --r) b[r] = b[r - 1];
    b[0] = top;
  }
  for (u32 r = 0; r < 8; ++r) c[r] = sum[r].reduced(mod);
}

// c = a^2: each pair once, twice its value.
RESIDUE_INLINE void square_terms(const Mod& mod, F64 t, F64 ratio, const F64 (&a)[8], F64 (&c)[8]) {
  F64 turned[8];
  for (u32 j = 4; j < 8; ++j) turned[j] = mod.times(a[j], t, ratio);
#pragma GCC unroll 8
  for (u32 r = 0; r < 8; ++r) {
    ProductSum sum;
#pragma GCC unroll 8
    for (u32 i = 0; i < 8; ++i) {
      const u32 j = (r + 8 - i) % 8;
      if (i > j) continue;
      sum.add(i == j ? a[i] : a[i] + a[i], i + j < 8 ? a[j] : turned[j]);
    }
    c[r] = sum.reduced(mod);
  }
}

// Products modulo x^8 - t, t = s[j] and -s[j] of nodes 2 j and 2 j + 1; squares when g is x.
template <bool Square>
void product(const Mod& mod, const BlockRoots& roots, double* x, const double* g, u64 m) {
  const u64 parents = m / 16;  // whose square roots are the t
  for (u64 j = 0; j < m / 8; j += L) {
    alignas(64) double w[L], ratio[L];
    for (u32 i = 0; i < L; ++i) {
      const u64 at = parents + (j + i) / 2;
      w[i] = (j + i) % 2 ? -roots.w[at] : roots.w[at];
      ratio[i] = (j + i) % 2 ? -roots.ratio[at] : roots.ratio[at];
    }
    F64 a[8], c[8];
    load_terms(mod, x + 8 * j, a);
    if constexpr (Square) {
      square_terms(mod, F64::load(w), F64::load(ratio), a, c);
    } else {
      F64 b[8];
      load_terms(mod, g + 8 * j, b);
      multiply_terms(mod, F64::load(w), F64::load(ratio), a, b, c);
    }
    for (u32 h = 0; h < 8 / L; ++h) {
      F64 t[L];
      for (u32 i = 0; i < L; ++i) t[i] = c[h * L + i];
      transpose(t);
      for (u32 i = 0; i < L; ++i) t[i].store(x + 8 * (j + i) + h * L);
    }
  }
}

// Subtrees --------------------------------------------------------------------------------------------------

void forward(const ResidueModulus& modulus, double* x, u64 m, u64 node) {
  if (m > kBlockPoints) {
    const u32 levels = residue_memory_levels(m);
    with_levels(levels, [&](auto n) { forward_in_place<n, Start::kReduce>(modulus, x, m, node); });
    for (u64 j = 0; j < u64{1} << levels; ++j)
      forward(modulus, x + j * (m >> levels), m >> levels, (node << levels) + j);
    return;
  }
  BlockRoots roots;
  roots.fill(modulus, m, node, false);
  forward_block(Mod(modulus), roots, x, m);
}

// Both go down together, to blocks that are transformed, multiplied and brought back while they are in cache.
void multiply(const ResidueModulus& modulus, double* x, double* g, u64 m, u64 node, bool raw) {
  if (m > kBlockPoints) {
    const u32 levels = residue_memory_levels(m);
    with_levels(levels, [&](auto n) {
      if (raw) forward_in_place<n, Start::kReduce>(modulus, x, m, node);
      if (raw && g != x) forward_in_place<n, Start::kReduce>(modulus, g, m, node);
    });
    for (u64 j = 0; j < u64{1} << levels; ++j) {
      const u64 at = j * (m >> levels);
      multiply(modulus, x + at, g + at, m >> levels, (node << levels) + j, raw);
    }
    with_levels(levels, [&](auto n) { inverse_in_place<n>(modulus, x, m, node); });
    return;
  }
  const Mod mod(modulus);
  BlockRoots roots;
  roots.fill(modulus, m, node, false);
  if (raw) forward_block(mod, roots, x, m);
  if (raw && g != x) forward_block(mod, roots, g, m);
  if (g == x)
    product<true>(mod, roots, x, x, m);
  else
    product<false>(mod, roots, x, g, m);
  roots.fill(modulus, m, node, true);
  inverse_block(mod, roots, x, m);
}

// Split -----------------------------------------------------------------------------------------------------

// Residues of `width` points of each sequence from position i on, sequence by sequence `stride` apart: limbs,
// then the odd factor. Modulo x^N + 1, N = k M, point t M + i stands with sign (-1)^t.
template <u32 K>
void split_points(const ResiduePlan& plan, const OddFactor<K>& odd, ResidueOperand a, u64 i, u64 width,
                  double* out, u64 stride) {
  const u32 P = plan.row.P;
  const u64 M = plan.length(), bytes = 3 * (u64{P} - 1);
  const bool turned = plan.negacyclic();
  alignas(64) double limbs[K][4][8];
  for (const u64 end = i + width; i < end; i += 8, out += 8) {
    u32 filled = 0;
    for (; filled < K && (i + filled * M) * bytes < a.bytes; ++filled)
      read_limbs(a, P, i + filled * M, limbs[filled]);
    for (u32 r = 0; r < P; ++r) {
      const Mod mod(plan.modulus[r]);
      for (u32 h = 0; h < 8; h += L) {
        F64 v[K];
#pragma GCC unroll 7
        for (u32 t = 0; t < K; ++t) {
          v[t] = F64::all(0);
          if (t >= filled) continue;
          v[t] = F64::load(limbs[t][0] + h);
          for (u32 j = 1; j < P / 2; ++j)
            v[t] = v[t] + mod.times(F64::load(limbs[t][j] + h), plan.set->limb[r][j]);
          if (turned && t % 2) v[t] = F64::all(0) - v[t];
        }
        odd.forward(mod, plan.set->dft[r], i + h, v);
#pragma GCC unroll 7
        for (u32 j = 0; j < K; ++j) mod.reduce(v[j]).store(out + (r * K + j) * stride + h);
      }
    }
  }
}

// Rows of a tile that hold points of a short operand at column c or beyond.
u64 filled_rows(const ResiduePlan& plan, ResidueOperand a, u64 c) {
  const u64 bytes = 3 * (u64{plan.row.P} - 1), q = plan.columns(), rows = plan.rows();
  if (plan.row.k > 1) return rows;
  const u64 points = (a.bytes + bytes - 1) / bytes;
  if (points <= c) return 0;
  const u64 filled = (points - c + q - 1) / q;
  return filled < rows ? filled : rows;
}

// Split and the first levels: tiles of columns, every sequence of every prime, go from words to F.
template <u32 K>
void first_stage_of(const ResiduePlan& plan, double* F, ResidueOperand a, u64 begin, u64 end, double* tile) {
  const u32 sequences = plan.row.P * K;
  const u64 M = plan.length(), q = plan.columns(), rows = plan.rows(), C = plan.tile_columns();
  const OddFactor<K> odd(plan.row.n);
  if (rows == 1) return split_points(plan, odd, a, begin, end - begin, F + begin, M);
  const u32 levels = plan.levels(), upper = (levels + 1) / 2, lower = levels - upper;
  const u64 node = plan.first_node();
  for (u64 c = begin; c < end; c += C) {
    const u64 width = end - c < C ? end - c : C, filled = filled_rows(plan, a, c);
    const bool half = filled <= rows / 2;
    for (u64 j = 0; j < filled; ++j) split_points(plan, odd, a, j * q + c, width, tile + j * C, rows * C);
    for (u32 s = 0; s < sequences; ++s) {
      double* x = tile + s * rows * C;
      double* y = F + s * M + c;
      const ResidueModulus& modulus = plan.modulus[s / K];
      for (u64 j = filled; j < (half ? rows / 2 : rows); ++j) __builtin_memset(x + j * C, 0, 8 * C);
      const u64 group = rows >> upper;  // rows a subtree of the upper levels
      with_levels(upper, [&](auto n) {
        ResidueFactor f[1u << n];
        pass_roots<n>(modulus, node, false, f);
        for (u64 j = 0; j < group; ++j) {
          double* row = x + j * C;
          const Rows<double> to = lower ? Rows<double>{row, group * C} : Rows<double>{y, q};
          if (half)
            forward_pass<n, Start::kHalf>(Mod(modulus), {row, group * C}, to, width, f);
          else
            forward_pass<n, Start::kPlain>(Mod(modulus), {row, group * C}, to, width, f);
        }
      });
      if (lower == 0) continue;
      with_levels(lower, [&](auto n) {
        for (u64 b = 0; b < rows / group; ++b) {
          ResidueFactor f[1u << n];
          pass_roots<n>(modulus, (node << upper) + b, false, f);
          forward_pass<n, Start::kPlain>(Mod(modulus), {x + b * group * C, C}, {y + b * group * q, q}, width,
                                         f);
        }
      });
    }
  }
}

// The odd factor's inverse over `width` points of each sequence from position i on.
template <u32 K>
void join_sequences(const ResiduePlan& plan, const OddFactor<K>& odd, u64 i, u64 width, double* x,
                    u64 stride) {
  if constexpr (K == 1) return;
  const bool turned = plan.negacyclic();
  for (u32 r = 0; r < plan.row.P; ++r) {
    const Mod mod(plan.modulus[r]);
    double* y = x + r * K * stride;
    for (u64 h = 0; h < width; h += L) {
      F64 v[K];
#pragma GCC unroll 7
      for (u32 j = 0; j < K; ++j) v[j] = F64::load(y + j * stride + h);
      odd.inverse(mod, plan.set->dft[r], i + h, v);
#pragma GCC unroll 7
      for (u32 t = 0; t < K; ++t) (turned && t % 2 ? F64::all(0) - v[t] : v[t]).store(y + t * stride + h);
    }
  }
}

// Row j of each output of the odd factor, points [i, i + width) of its sequences, into its run.
template <u32 K>
void join_row(const ResiduePlan& plan, const OddFactor<K>& odd, u64 i, u64 width, double* x, u64 stride,
              ResidueJoinRun* runs, u64 runs_stride) {
  join_sequences(plan, odd, i, width, x, stride);
  for (u32 t = 0; t < K; ++t) {
    ResidueJoinRun& run = runs[t * runs_stride];
    if (2 * run.word < run.window.end) join(plan, x + t * stride, K * stride, width, run);
  }
}

// The last levels, the odd factor and the join: tiles of columns, every sequence of every prime.
template <u32 K>
void last_stage_of(const ResiduePlan& plan, double* F, u64 begin, u64 end, double* tile, ResidueJoinRun* runs,
                   u64 stride) {
  const u32 sequences = plan.row.P * K;
  const u64 M = plan.length(), q = plan.columns(), rows = plan.rows(), C = plan.tile_columns();
  const OddFactor<K> odd(plan.row.n);
  if (rows == 1) return join_row(plan, odd, begin, end - begin, F + begin, M, runs, stride);
  const u32 levels = plan.levels(), upper = (levels + 1) / 2, lower = levels - upper;
  const u64 node = plan.first_node(), group = rows >> upper;
  for (u64 c = begin; c < end; c += C) {
    const u64 width = end - c < C ? end - c : C;
    for (u32 s = 0; s < sequences; ++s) {
      double* x = tile + s * rows * C;
      const double* y = F + s * M + c;
      const ResidueModulus& modulus = plan.modulus[s / K];
      if (lower)
        with_levels(lower, [&](auto n) {
          for (u64 b = 0; b < rows / group; ++b) {
            ResidueFactor f[1u << n];
            pass_roots<n>(modulus, (node << upper) + b, true, f);
            inverse_pass<n>(Mod(modulus), {y + b * group * q, q}, {x + b * group * C, C}, width, f);
          }
        });
      with_levels(upper, [&](auto n) {
        ResidueFactor f[1u << n];
        pass_roots<n>(modulus, node, true, f);
        for (u64 j = 0; j < group; ++j) {
          double* row = x + j * C;
          const Rows<const double> from =
              lower ? Rows<const double>{row, group * C} : Rows<const double>{y, q};
          inverse_pass<n>(Mod(modulus), from, {row, group * C}, width, f);
        }
      });
    }
    for (u64 j = 0; j < rows; ++j)
      join_row(plan, odd, j * q + c, width, tile + j * C, rows * C, runs + j * stride, rows * stride);
  }
}

// Interim.
void first_stage(const ResiduePlan& plan, double* F, ResidueOperand a, u64 begin, u64 end, double* tile) {
  with_odd_factor(plan.row.k, [&](auto k) { first_stage_of<k>(plan, F, a, begin, end, tile); });
}
void last_stage(const ResiduePlan& plan, double* F, u64 begin, u64 end, double* tile, ResidueJoinRun* runs,
                u64 stride) {
  with_odd_factor(plan.row.k, [&](auto k) { last_stage_of<k>(plan, F, begin, end, tile, runs, stride); });
}

}  // namespace

extern const ResidueKernels residue_kernel_table;
constinit const ResidueKernels residue_kernel_table{
    SIMD_ISA_NAME, &first_stage, &forward, &multiply, &last_stage, &join,
};

}  // namespace orl::SIMD_ISA
