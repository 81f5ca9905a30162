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
  const u64 low = node % kResidueLowRoots, above = node / kResidueLowRoots;
  const u64 middle = above % kResidueMiddleRoots, top = above / kResidueMiddleRoots;
  const ResidueRoots& roots = modulus.roots;
  ResidueFactor f{roots.low_w[low], roots.low_ratio[low]};
  if (middle) f = factor_times(modulus, f, roots.middle[middle]);
  if (top) f = factor_times(modulus, f, roots.top[top]);
  return f;
}

// s[2^l + r] s[2^l + (2^l - 1 - r)] = -1.
ResidueFactor inverse_root(const ResidueModulus& modulus, u64 node) {
  if (node == 0) return root(modulus, 0);
  const u64 top = u64{1} << (63 - __builtin_clzll(node));
  const ResidueFactor f = root(modulus, node ^ (top - 1));
  return {-f.w, -f.ratio};
}

// The roots, or their inverses, of the first levels below a node: that of descendant b, l levels below, at
// 2^l + b. Size: 2^levels, at most kResidueLowRoots.
template <u64 Size>
struct Roots {
  alignas(64) double w[Size + 8], ratio[Size + 8];

  RESIDUE_INLINE void fill(const ResidueModulus& modulus, u32 levels, u64 node, bool inverse) {
    const Mod mod(modulus);
    const double* table = inverse ? modulus.roots.low_inverse_w : modulus.roots.low_w;
    for (u32 l = 0; l < levels; ++l) {
      const u64 first = node << l, count = u64{1} << l;
      const bool whole = first >= kResidueLowRoots;  // s[first + b] = s[first] s[b]
      const double* low = whole ? table : table + first;
      const ResidueFactor head = !whole    ? ResidueFactor{}
                                 : inverse ? inverse_root(modulus, first)
                                           : root(modulus, first);
      // A vector may end beyond its level: the next level comes later.
      for (u64 b = 0; b < count; b += L) {
        F64 v = F64::load(low + b);
        if (whole) v = mod.times(v, head);
        v.store(w + count + b);
        (v * mod.inverse).store(ratio + count + b);
      }
    }
  }
  RESIDUE_INLINE ResidueFactor operator[](u64 i) const { return {w[i], ratio[i]}; }
  // Those of a pass from descendant j of the level of `nodes` nodes.
  template <u32 Levels>
  RESIDUE_INLINE std::array<ResidueFactor, 1u << Levels> pass(u64 nodes, u64 j) const {
    std::array<ResidueFactor, 1u << Levels> f;
    for (u32 l = 0; l < Levels; ++l)
      for (u32 b = 0; b < (1u << l); ++b) f[(1u << l) + b] = (*this)[((nodes + j) << l) + b];
    return f;
  }
};

// The roots of a subtree of up to kBlockPoints, down to eight points.
using BlockRoots = Roots<kResidueLowRoots>;
static_assert(kBlockPoints / 8 == kResidueLowRoots && sizeof(BlockRoots) == kResidueBlockRootsBytes);

// The roots of one pass.
template <u32 Levels>
struct PassRoots : Roots<1u << Levels> {
  PassRoots(const ResidueModulus& modulus, u64 node, bool inverse) {
    this->fill(modulus, Levels, node, inverse);
  }
};

// Passes ----------------------------------------------------------------------------------------------------

// Rows of a pass: row j at data + j * stride.
template <class T>
struct Rows {
  T* data;
  u64 stride;
};

// Levels of 2^Levels rows, all in registers, `count` columns. kReduce: the lower rows are reduced first;
// kHalf: the upper rows are zeros and not read. AtRoot: of x^M - 1, where the factors of leftmost nodes
// are 1.
enum class Start { kPlain, kReduce, kHalf };

// Whether factor i, i.e. 2^l + b of node b of level l, is that of the first node of a level.
constexpr bool is_leftmost(u32 i) { return (i & (i - 1)) == 0; }

template <u32 Levels, Start start, bool AtRoot = false, class Factors>
RESIDUE_INLINE void forward_pass(const Mod& mod, Rows<const double> from, Rows<double> to, u64 count,
                                 const Factors& f) {
  constexpr u32 R = 1u << Levels;
  for (u64 i = 0; i < count; i += L) {
    F64 v[R];
#pragma GCC unroll 16
    for (u32 j = 0; j < (start == Start::kHalf ? R / 2 : R); ++j) {
      v[j] = F64::load(from.data + i + j * from.stride);
      if (start == Start::kReduce && j < R / 2) v[j] = mod.reduce(v[j]);
      if (start == Start::kHalf) v[j + R / 2] = v[j];
    }
    for_levels_down<Levels, start == Start::kHalf>(v, [&](F64& lo, F64& hi, u32 n) {
      const F64 t = AtRoot && is_leftmost(n) ? hi : mod.times(hi, f[n]);
      hi = lo - t;
      lo = lo + t;
    });
#pragma GCC unroll 16
    for (u32 j = 0; j < R; ++j)
      (AtRoot && residue_forward_reduces(Levels, j) ? mod.reduce(v[j]) : v[j])
          .store(to.data + i + j * to.stride);
  }
}

template <u32 Levels, bool AtRoot = false, class Factors>
RESIDUE_INLINE void inverse_pass(const Mod& mod, Rows<const double> from, Rows<double> to, u64 count,
                                 const Factors& f) {
  constexpr u32 R = 1u << Levels;
  for (u64 i = 0; i < count; i += L) {
    F64 v[R];
#pragma GCC unroll 16
    for (u32 j = 0; j < R; ++j) v[j] = F64::load(from.data + i + j * from.stride);
    const auto butterfly = [&](F64& lo, F64& hi, u32 n) {
      const F64 t = lo - hi;
      lo = lo + hi;
      hi = AtRoot && is_leftmost(n) ? t : mod.times(t, f[n]);
    };
    for_levels_up<Levels>(v, butterfly, [&](u32 s) {
#pragma GCC unroll 16
      for (u32 j = 0; j < R; ++j)
        if (residue_inverse_reduces(Levels, s, j, AtRoot)) v[j] = mod.reduce(v[j]);
    });
#pragma GCC unroll 16
    for (u32 j = 0; j < R; ++j) v[j].store(to.data + i + j * to.stride);
  }
}

// Passes over a range of memory that is its own rows.
template <u32 Levels, Start start>
void forward_in_place(const ResidueModulus& modulus, double* x, u64 m, u64 node) {
  const PassRoots<Levels> f(modulus, node, false);
  const u64 q = m >> Levels;
  forward_pass<Levels, start>(Mod(modulus), {x, q}, {x, q}, q, f);
}
template <u32 Levels>
void inverse_in_place(const ResidueModulus& modulus, double* x, u64 m, u64 node) {
  const PassRoots<Levels> f(modulus, node, true);
  const u64 q = m >> Levels;
  inverse_pass<Levels>(Mod(modulus), {x, q}, {x, q}, q, f);
}

/// Calls body with a number of levels, 1 to 4, as a constant.
template <class Body>
RESIDUE_INLINE void with_levels(u32 levels, Body&& body) {
  with_constant<1, 2, 3, 4>(levels, body);
}

// Rows of cache lines on their way while others are worked on: they stand too far apart for the processor to
// foresee them.
template <int Write>
RESIDUE_INLINE void fetch_rows(const double* x, u64 stride, u64 rows, u64 width) {
  for (u64 j = 0; j < rows; ++j)
    for (u64 i = 0; i < width; i += 8) __builtin_prefetch(x + j * stride + i, Write, 2);
}

/// Calls body with a choice as a constant.
template <class Body>
RESIDUE_INLINE void with_choice(bool choice, Body&& body) {
  if (choice)
    body(std::true_type());
  else
    body(std::false_type());
}

// Blocks ----------------------------------------------------------------------------------------------------
//
// Down to tiles of 64 points, eight polynomials of eight terms each, whose last three levels go in registers.

constexpr u64 kTilePoints = 64;

// A pass over all nodes of m points of a block.
template <u32 Levels>
RESIDUE_INLINE void forward_nodes(const Mod& mod, const BlockRoots& roots, double* x, u64 points, u64 m) {
  const u64 q = m >> Levels;
  for (u64 j = 0; j < points / m; ++j) {
    double* const node = x + j * m;
    forward_pass<Levels, Start::kPlain>(mod, {node, q}, {node, q}, q, roots.pass<Levels>(points / m, j));
  }
}
template <u32 Levels>
RESIDUE_INLINE void inverse_nodes(const Mod& mod, const BlockRoots& roots, double* x, u64 points, u64 m) {
  const u64 q = m >> Levels;
  for (u64 j = 0; j < points / m; ++j) {
    double* const node = x + j * m;
    inverse_pass<Levels>(mod, {node, q}, {node, q}, q, roots.pass<Levels>(points / m, j));
  }
}

// To tiles: a shorter pass first, where there is one.
void forward_block(const Mod& mod, const BlockRoots& roots, double* x, u64 points) {
  u64 m = points;
  if (const u32 levels = residue_block_levels(points) % 3) {
    with_levels(levels, [&](auto n) { forward_nodes<n>(mod, roots, x, points, m); });
    m >>= levels;
  }
  for (; m > kTilePoints; m /= 8) forward_nodes<3>(mod, roots, x, points, m);
}

void inverse_block(const Mod& mod, const BlockRoots& roots, double* x, u64 points) {
  u64 m = kTilePoints;
  while (m * 8 <= points) inverse_nodes<3>(mod, roots, x, points, m *= 8);
  if (m < points)
    with_levels(residue_block_levels(points) % 3,
                [&](auto n) { inverse_nodes<n>(mod, roots, x, points, points); });
}

// L polynomials of eight terms, reduced.
RESIDUE_INLINE void load_terms(const Mod& mod, const double* x, F64 (&v)[8]) {
  load_rows(x, v);
  for (F64& term : v) term = mod.reduce(term);
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

// c = a b modulo x^8 - t; each lane has a t of its own.
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

// c = a b or, with b null, a^2, of a tile: modulo x^8 - t, t = s[j] and -s[j] of nodes 2 j and 2 j + 1;
// `parents` are those s[].
RESIDUE_INLINE void multiply_tile(const Mod& mod, const BlockRoots& roots, u64 parents, const double* x,
                                  const double* g, double* out) {
  constexpr double kSigns[9] = {1, -1, 1, -1, 1, -1, 1, -1, 1};
  for (u32 j = 0; j < 8; j += L) {
    const F64 sign = F64::load(kSigns + j % 2);
    const F64 t = F64::load_pairs(roots.w + parents + j / 2) * sign;
    const F64 ratio = F64::load_pairs(roots.ratio + parents + j / 2) * sign;
    F64 a[8], c[8];
    load_terms(mod, x + 8 * j, a);
    if (g == nullptr) {
      square_terms(mod, t, ratio, a, c);
    } else {
      F64 b[8];
      load_terms(mod, g + 8 * j, b);
      multiply_terms(mod, t, ratio, a, b, c);
    }
    store_rows(c, out + 8 * j);
  }
}

// The tiles of a block: their last levels forward when only started, the product, and the first levels back.
template <bool Square>
void multiply_tiles(const Mod& mod, const BlockRoots& roots, const BlockRoots& inverses, double* x,
                    const double* g, u64 points, OperandState state, s64 ahead) {
  const u64 tiles = points / kTilePoints;
  alignas(64) double a[kTilePoints], b[kTilePoints];
  for (u64 j = 0; j < tiles; ++j, x += kTilePoints, g += kTilePoints) {
    const double *left = x, *right = g;
    fetch_rows<1>(x + ahead, 0, 1, kTilePoints);
    if (!Square) fetch_rows<0>(g + ahead, 0, 1, kTilePoints);
    if (state == OperandState::kStarted) {
      const auto f = roots.pass<3>(tiles, j);
      forward_pass<3, Start::kPlain>(mod, {x, 8}, {a, 8}, 8, f);
      if (!Square) forward_pass<3, Start::kPlain>(mod, {g, 8}, {b, 8}, 8, f);
      left = a, right = b;
    }
    multiply_tile(mod, roots, 4 * (tiles + j), left, Square ? nullptr : right, a);
    inverse_pass<3>(mod, {a, 8}, {x, 8}, 8, inverses.pass<3>(tiles, j));
  }
}

// Subtrees --------------------------------------------------------------------------------------------------
//
// One subtree of several sequences: they go through one after the other. The first one makes the roots of its
// blocks, two tables per block, for all. A subtree that is larger than what stays in cache has room for the
// tables of one of its own subtrees, which are made anew.

struct Subtree {
  u64 points, node;
  BlockRoots* roots;
  bool fill;  // whether the roots are still to be made
  s64 ahead;  // to what comes after the sequence

  // Levels that it does in memory, when it is larger than a block.
  u32 levels() const { return residue_memory_levels(points); }
  Subtree child(u64 j) const {
    const u64 apart = residue_roots_apart(points);
    return {points >> levels(), (node << levels()) + j, roots + j * apart, fill || apart == 0, ahead};
  }
  u32 root_levels() const { return residue_block_levels(points) + 3; }
};

void forward_subtree(const ResidueModulus& modulus, double* x, const Subtree& s) {
  if (s.points > kBlockPoints) {
    with_levels(s.levels(),
                [&](auto n) { forward_in_place<n, Start::kReduce>(modulus, x, s.points, s.node); });
    for (u64 j = 0; j < u64{1} << s.levels(); ++j) {
      const Subtree child = s.child(j);
      forward_subtree(modulus, x + j * child.points, child);
    }
    return;
  }
  const Mod mod(modulus);
  if (s.fill) s.roots->fill(modulus, s.root_levels(), s.node, false);
  forward_block(mod, *s.roots, x, s.points);
  forward_nodes<3>(mod, *s.roots, x, s.points, kTilePoints);
}

// Both go down together, to blocks that are transformed, multiplied and brought back while they are in cache.
void multiply_subtree(const ResidueModulus& modulus, double* x, double* g, OperandState state,
                      const Subtree& s) {
  const bool forward_x = state == OperandState::kStarted, forward_g = forward_x && g != x;
  if (s.points > kBlockPoints) {
    with_levels(s.levels(), [&](auto n) {
      if (forward_x) forward_in_place<n, Start::kReduce>(modulus, x, s.points, s.node);
      if (forward_g) forward_in_place<n, Start::kReduce>(modulus, g, s.points, s.node);
    });
    for (u64 j = 0; j < u64{1} << s.levels(); ++j) {
      const Subtree child = s.child(j);
      multiply_subtree(modulus, x + j * child.points, g + j * child.points, state, child);
    }
    with_levels(s.levels(), [&](auto n) { inverse_in_place<n>(modulus, x, s.points, s.node); });
    return;
  }
  const Mod mod(modulus);
  BlockRoots &roots = s.roots[0], &inverses = s.roots[1];
  if (s.fill) {
    roots.fill(modulus, s.root_levels(), s.node, false);
    inverses.fill(modulus, s.root_levels(), s.node, true);
  }
  if (forward_x) forward_block(mod, roots, x, s.points);
  if (forward_g) forward_block(mod, roots, g, s.points);
  if (g == x)
    multiply_tiles<true>(mod, roots, inverses, x, x, s.points, state, s.ahead);
  else
    multiply_tiles<false>(mod, roots, inverses, x, g, s.points, state, s.ahead);
  inverse_block(mod, inverses, x, s.points);
}

// The same subtree of sequence j. The first makes the roots for all.
Subtree subtree_of(const ResidueSubtrees& s, u64 j) {
  return {s.points, s.node, static_cast<BlockRoots*>(s.roots), j == 0,
          j + 1 < s.count ? static_cast<s64>(s.apart) : s.ahead};
}

void forward(const ResidueModulus& modulus, const ResidueSubtrees& subtrees, double* x) {
  for (u64 j = 0; j < subtrees.count; ++j)
    forward_subtree(modulus, x + j * subtrees.apart, subtree_of(subtrees, j));
}

void multiply(const ResidueModulus& modulus, const ResidueSubtrees& subtrees, double* x, double* g,
              OperandState state) {
  for (u64 j = 0; j < subtrees.count; ++j)
    multiply_subtree(modulus, x + j * subtrees.apart, g + j * subtrees.apart, state, subtree_of(subtrees, j));
}

// Rows that are the subtrees of a node ----------------------------------------------------------------------

// Down 2^levels rows, in place and then to others; `half`: the upper rows are zeros and not read.
void forward_rows(const ResidueModulus& modulus, u64 node, u32 levels, Rows<double> x, Rows<double> to,
                  u64 width, bool half) {
  const Mod mod(modulus);
  const u32 upper = residue_upper_levels(levels), lower = levels - upper;
  const u64 group = u64{1} << lower;  // rows a subtree of the upper levels
  with_levels(upper, [&](auto n) {
    const PassRoots<n> f(modulus, node, false);
    with_choice(node == 0, [&](auto root) {
      for (u64 j = 0; j < group; ++j) {
        const Rows<const double> from{x.data + j * x.stride, group * x.stride};
        const Rows<double> into = lower ? Rows<double>{x.data + j * x.stride, group * x.stride} : to;
        if (half)
          forward_pass<n, Start::kHalf, root>(mod, from, into, width, f);
        else
          forward_pass<n, Start::kPlain, root>(mod, from, into, width, f);
      }
    });
  });
  if (lower == 0) return;
  with_levels(lower, [&](auto n) {
    for (u64 b = 0; b < u64{1} << upper; ++b) {
      const PassRoots<n> f(modulus, (node << upper) + b, false);
      forward_pass<n, Start::kPlain>(mod, {x.data + b * group * x.stride, x.stride},
                                     {to.data + b * group * to.stride, to.stride}, width, f);
    }
  });
}

// And back: from others, and then in place.
void inverse_rows(const ResidueModulus& modulus, u64 node, u32 levels, Rows<const double> from,
                  Rows<double> x, u64 width) {
  const Mod mod(modulus);
  const u32 upper = residue_upper_levels(levels), lower = levels - upper;
  const u64 group = u64{1} << lower;
  if (lower)
    with_levels(lower, [&](auto n) {
      for (u64 b = 0; b < u64{1} << upper; ++b) {
        const PassRoots<n> f(modulus, (node << upper) + b, true);
        inverse_pass<n>(mod, {from.data + b * group * from.stride, from.stride},
                        {x.data + b * group * x.stride, x.stride}, width, f);
      }
    });
  with_levels(upper, [&](auto n) {
    const PassRoots<n> f(modulus, node, true);
    with_choice(node == 0, [&](auto root) {
      for (u64 j = 0; j < group; ++j) {
        const Rows<double> into{x.data + j * x.stride, group * x.stride};
        inverse_pass<n, root>(mod, lower ? Rows<const double>{into.data, into.stride} : from, into, width, f);
      }
    });
  });
}

// Split -----------------------------------------------------------------------------------------------------

// Residues of `width` points of each sequence from position i on, sequence by sequence `stride` apart: limbs,
// then the odd factor. Modulo x^N + 1, N = k M, point t M + i stands with sign (-1)^t.
template <u32 K>
void split_points(const ResiduePlan& plan, const OddFactor<K>& odd, OperandBytes a, u64 i, u64 width,
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
u64 filled_rows(const ResiduePlan& plan, OperandBytes a, u64 c) {
  const u64 bytes = 3 * (u64{plan.row.P} - 1), q = plan.columns(), rows = plan.rows();
  if (plan.row.k > 1) return rows;
  const u64 points = (a.bytes + bytes - 1) / bytes;
  if (points <= c) return 0;
  const u64 filled = (points - c + q - 1) / q;
  return filled < rows ? filled : rows;
}

constexpr u64 kRowsAhead = 4;

// The operand's bytes of `width` points of each sequence from position i on.
template <u32 K>
RESIDUE_INLINE void fetch_points(const ResiduePlan& plan, OperandBytes a, u64 i, u64 width) {
  const u64 bytes = 3 * (u64{plan.row.P} - 1), M = plan.length();
  for (u32 t = 0; t < K; ++t) {
    const u64 begin = (i + t * M) * bytes, end = begin + width * bytes;
    for (u64 at = begin; at < end && at < a.bytes; at += 64) __builtin_prefetch(a.data + at, 0, 2);
  }
}

// Split and the first levels: tiles of columns, every sequence of every prime, go from words to F.
template <u32 K>
void first_stage_of(const ResiduePlan& plan, double* F, OperandBytes a, u64 begin, u64 end, double* tile) {
  const u32 sequences = plan.row.P * K;
  const u64 M = plan.length(), q = plan.columns(), rows = plan.rows(), C = plan.tile_columns();
  const u64 apart = plan.subtree_stride(), sequence = plan.sequence_stride();
  const OddFactor<K> odd(plan.row.n);
  if (rows == 1) return split_points(plan, odd, a, begin, end - begin, F + begin, M);
  for (u64 c = begin; c < end; c += C) {
    const u64 width = end - c < C ? end - c : C, filled = filled_rows(plan, a, c);
    const bool half = filled <= rows / 2;
    for (u64 j = 0; j < filled; ++j) {
      fetch_points<K>(plan, a, (j + kRowsAhead) * q + c, width);
      split_points(plan, odd, a, j * q + c, width, tile + j * C, rows * C);
    }
    fetch_rows<1>(F + c, apart, rows, width);
    for (u32 s = 0; s < sequences; ++s) {
      double* x = tile + s * rows * C;
      double* y = F + s * sequence + c;
      const ResidueModulus& modulus = plan.modulus[s / K];
      if (s + 1 < sequences) fetch_rows<1>(y + sequence, apart, rows, width);
      for (u64 j = filled; j < (half ? rows / 2 : rows); ++j) __builtin_memset(x + j * C, 0, 8 * C);
      forward_rows(modulus, plan.first_node(), plan.levels(), {x, C}, {y, apart}, width, half);
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
      for (u32 j = 0; j < K; ++j) {
        v[j] = F64::load(y + j * stride + h);
        if (residue_odd_reduces(K)) v[j] = mod.reduce(v[j]);
      }
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

// The words that the next `width` points of a run become.
RESIDUE_INLINE void fetch_words(const ResiduePlan& plan, const ResidueJoinRun& run, u64 width) {
  if (2 * run.word < run.window.begin) return;
  const u32* words = run.window.target + (2 * run.word - run.window.begin);
  const u64 count = width * plan.row.point_bits() / 32;
  for (u64 i = 0; i < count && 2 * run.word + i < run.window.end; i += 16)
    __builtin_prefetch(words + i, 1, 2);
}

// The last levels, the odd factor and the join: tiles of columns, every sequence of every prime.
template <u32 K>
void last_stage_of(const ResiduePlan& plan, double* F, u64 begin, u64 end, double* tile, ResidueJoinRun* runs,
                   u64 stride) {
  const u32 sequences = plan.row.P * K;
  const u64 M = plan.length(), q = plan.columns(), rows = plan.rows(), C = plan.tile_columns();
  const u64 apart = plan.subtree_stride(), sequence = plan.sequence_stride();
  const OddFactor<K> odd(plan.row.n);
  if (rows == 1) return join_row(plan, odd, begin, end - begin, F + begin, M, runs, stride);
  for (u64 c = begin; c < end; c += C) {
    const u64 width = end - c < C ? end - c : C;
    fetch_rows<0>(F + c, apart, rows, width);
    for (u32 s = 0; s < sequences; ++s) {
      double* x = tile + s * rows * C;
      const double* y = F + s * sequence + c;
      const ResidueModulus& modulus = plan.modulus[s / K];
      if (s + 1 < sequences) fetch_rows<0>(y + sequence, apart, rows, width);
      inverse_rows(modulus, plan.first_node(), plan.levels(), {y, apart}, {x, C}, width);
    }
    for (u64 j = 0; j < rows; ++j) {
      if (j + kRowsAhead < rows)
        for (u32 t = 0; t < K; ++t) fetch_words(plan, runs[(t * rows + j + kRowsAhead) * stride], width);
      join_row(plan, odd, j * q + c, width, tile + j * C, rows * C, runs + j * stride, rows * stride);
    }
  }
}

// Table ----------------------------------------------------------------------------------------------------

void first_stage(const ResiduePlan& plan, double* F, OperandBytes a, u64 begin, u64 end, double* tile) {
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
