// The algorithm "VST" over vectors of doubles, on the arithmetic of residue_mod.kernel.h; vst_shape.cpp
// states what the passes make of its intervals.
namespace orl::SIMD_ISA {
namespace {

constexpr u32 kPrimes = kMaxResiduePrimes;

// w / p to the last place: a quotient by the rounded inverse, corrected once.
RESIDUE_INLINE F64 ratio_of(const Mod& mod, F64 w) {
  const F64 r = w * mod.inverse;
  return fma(fnma(r, mod.p, w), mod.inverse, r);
}

// Roots that split nodes [first, first + count) of `level`, or their inverses. Writes whole vectors.
template <bool Inverse>
RESIDUE_INLINE void load_roots(const VstPlan& plan, u32 r, u32 sequence, u32 level, u64 first, u32 count,
                               double* w, double* ratio) {
  const Mod mod(plan.primes.modulus[r]);
  const VstRoots& roots = plan.roots[r];
  F64 high = F64::all((Inverse ? roots.high_inverse : roots.high)[first / kVstLow]);
  if (const u32 e = plan.exponent[sequence][level])
    high = mod.times(high, plan.primes.modulus[r].odd[Inverse ? plan.primes.row.k - e : e]);
  const F64 high_ratio = ratio_of(mod, high);
  const double* low = (Inverse ? roots.low_inverse : roots.low) + first % kVstLow;
  for (u32 i = 0; i < count; i += L) {
    const F64 root = mod.times(F64::load(low + i), high, high_ratio);
    root.store(w + i);
    ratio_of(mod, root).store(ratio + i);
  }
}

// Where a column of rows is, and which nodes its passes split.
struct Columns {
  double* x;
  u64 stride;  // doubles from row to row
  u32 rows;    // vectors of eight points, of all primes, that follow each other: the width
  u32 sequence, level;
  u64 node;
};

// Butterflies of 2^Levels values; factor (1 << l) + b belongs to node b of level l.
template <u32 Levels>
RESIDUE_INLINE void forward_butterflies(const Mod& mod, F64 (&v)[1u << Levels], const double* w,
                                        const double* ratio) {
  for_levels_down<Levels>(v, [&](F64& lo, F64& hi, u32 i) {
    const F64 t = mod.times(hi, F64::all(w[i]), F64::all(ratio[i]));
    hi = lo - t;
    lo = lo + t;
  });
}

template <u32 Levels>
RESIDUE_INLINE void inverse_butterflies(const Mod& mod, F64 (&v)[1u << Levels], const double* w,
                                        const double* ratio) {
  constexpr u32 R = 1u << Levels;
  const auto butterfly = [&](F64& lo, F64& hi, u32 i) {
    const F64 t = lo - hi;
    lo = lo + hi;
    hi = mod.times(t, F64::all(w[i]), F64::all(ratio[i]));
  };
  for_levels_up<Levels>(v, butterfly, [&](u32 s) {
    // The sums that met no product yet would pass 2^51 in the last two levels.
    if (Levels != 4 || s != 1) return;
#pragma GCC unroll 4
    for (u32 j = 0; j < R; j += 4) v[j] = mod.reduce(v[j]);
  });
#pragma GCC unroll 8
  for (u32 j = 0; j < R / 2; ++j) v[j] = mod.reduce(v[j]);
}

// One pass over 2^levels rows of columns, of which it takes 2^Levels apart by `inner` rows at a time.
template <u32 Levels, bool Inverse, bool Reduce>
void column_pass(const VstPlan& plan, const Columns& c, u64 inner) {
  constexpr u32 R = 1u << Levels;
  const u32 P = plan.shape.row.P;
  alignas(64) double w[kPrimes][R + 8], ratio[kPrimes][R + 8];
  for (u32 r = 0; r < P; ++r)
    for (u32 l = 0; l < Levels; ++l)
      load_roots<Inverse>(plan, r, c.sequence, c.level + l, c.node << l, 1u << l, w[r] + (1u << l),
                          ratio[r] + (1u << l));
  const u64 apart = inner * c.stride;
  for (u64 i = 0; i < inner; ++i)
    for (u32 row = 0; row < c.rows; ++row)
      for (u32 r = 0; r < P; ++r) {
        const Mod mod(plan.primes.modulus[r]);
        double* x = c.x + i * c.stride + (u64{row} * P + r) * kVstRow;
        for (u32 h = 0; h < kVstRow; h += L) {
          F64 v[R];
#pragma GCC unroll 16
          for (u32 j = 0; j < R; ++j) {
            v[j] = F64::load(x + j * apart + h);
            if (Reduce && j < R / 2) v[j] = mod.reduce(v[j]);
          }
          if constexpr (Inverse)
            inverse_butterflies<Levels>(mod, v, w[r], ratio[r]);
          else
            forward_butterflies<Levels>(mod, v, w[r], ratio[r]);
#pragma GCC unroll 16
          for (u32 j = 0; j < R; ++j) v[j].store(x + j * apart + h);
        }
      }
}

template <bool Inverse, bool Reduce>
void pass(const VstPlan& plan, const Columns& c, u32 levels, u64 inner) {
  with_constant<1, 2, 3, 4>(levels, [&](auto n) { column_pass<n, Inverse, Reduce>(plan, c, inner); });
}

// All `levels` levels of columns of 2^levels rows.
template <bool Reduce>
void forward_columns(const VstPlan& plan, const Columns& c, u32 levels) {
  if (levels == 0) return;
  const u32 first = vst_pass_levels(levels), rest = levels - first;
  pass<false, Reduce>(plan, c, first, u64{1} << rest);
  if (rest == 0) return;
  for (u64 j = 0; j < u64{1} << first; ++j)
    forward_columns<false>(
        plan,
        {c.x + (j << rest) * c.stride, c.stride, c.rows, c.sequence, c.level + first, (c.node << first) + j},
        rest);
}

void inverse_columns(const VstPlan& plan, const Columns& c, u32 levels) {
  if (levels == 0) return;
  const u32 first = vst_pass_levels(levels), rest = levels - first;
  if (rest)
    for (u64 j = 0; j < u64{1} << first; ++j)
      inverse_columns(plan,
                      {c.x + (j << rest) * c.stride, c.stride, c.rows, c.sequence, c.level + first,
                       (c.node << first) + j},
                      rest);
  pass<true, false>(plan, c, first, u64{1} << rest);
}

// Roots of eight tiles at the levels of a tile: factor b of level l of tile t stands at (8 << l) + (t << l) +
// b.
struct TileRoots {
  alignas(64) double w[136], ratio[136];

  template <bool Inverse>
  RESIDUE_INLINE void load(const VstPlan& plan, u32 r, u32 sequence, u64 first, u32 tiles) {
    for (u32 l = 0; l < 4; ++l)
      load_roots<Inverse>(plan, r, sequence, plan.shape.row.n - kVstTileLevels + l, first << l, tiles << l,
                          w + (8u << l), ratio + (8u << l));
  }
  // The factors of a tile's first three levels, in the order of butterflies.
  RESIDUE_INLINE void of_tile(u32 t, double (&tw)[8], double (&tr)[8]) const {
    for (u32 l = 0; l < 3; ++l)
      for (u32 b = 0; b < (1u << l); ++b) {
        tw[(1u << l) + b] = w[(8u << l) + (t << l) + b];
        tr[(1u << l) + b] = ratio[(8u << l) + (t << l) + b];
      }
  }
  const double* last_w(u32 t) const { return w + 64 + 8 * t; }
  const double* last_ratio(u32 t) const { return ratio + 64 + 8 * t; }
};

// The eight rows of a tile, or the polynomials of eight terms that they become: row j at data + j * apart.
template <class T>
struct TileRows {
  T* data;
  u64 apart;  // doubles
};

// The first three levels of tile t, of one prime, or the way back.
template <bool Inverse>
RESIDUE_INLINE void tile_levels(const Mod& mod, const TileRoots& roots, u32 t, TileRows<const double> from,
                                TileRows<double> to) {
  double w[8], ratio[8];
  roots.of_tile(t, w, ratio);
  for (u32 h = 0; h < kVstRow; h += L) {
    F64 v[8];
#pragma GCC unroll 8
    for (u32 j = 0; j < 8; ++j) v[j] = F64::load(from.data + j * from.apart + h);
    if constexpr (Inverse)
      inverse_butterflies<3>(mod, v, w, ratio);
    else
      forward_butterflies<3>(mod, v, w, ratio);
#pragma GCC unroll 8
    for (u32 j = 0; j < 8; ++j) v[j].store(to.data + j * to.apart + h);
  }
}

// Polynomials [n, n + L) of eight terms become a vector per term and go to four terms: v[0, 4) modulo x^4 -
// s, v[4, 8) modulo x^4 + s.
RESIDUE_INLINE void load_terms(const Mod& mod, const double* tile, u32 n, F64 w, F64 ratio, F64 (&v)[8]) {
  load_rows(tile + 8 * n, v);
  for (F64& term : v) term = mod.reduce(term);
#pragma GCC unroll 4
  for (u32 i = 0; i < 4; ++i) {
    const F64 t = mod.times(v[i + 4], w, ratio);
    v[i + 4] = v[i] - t;
    v[i] = v[i] + t;
  }
}

// c = a b modulo x^4 - s.
RESIDUE_INLINE void multiply_terms(const Mod& mod, const F64* a, const F64* from, F64 w, F64 ratio, F64* c) {
  F64 b[4] = {from[0], from[1], from[2], from[3]};
#pragma GCC unroll 4
  for (u32 i = 0; i < 4; ++i) {
#pragma GCC unroll 4
    for (u32 r = 0; r < 4; ++r) {
      const F64 h = a[i] * b[r];
      const F64 q = fma(h, mod.inverse, mod.round) - mod.round;
      const F64 t = fnma(q, mod.p, h) + fms(a[i], b[r], h);
      c[r] = i ? c[r] + t : t;
    }
    if (i == 3) break;
    // b times x.
    const F64 top = mod.times(b[3], w, ratio);
    b[3] = b[2];
    b[2] = b[1];
    b[1] = b[0];
    b[0] = top;
  }
}

// The roots that terms are multiplied and brought back with, and their ratios to the prime.
struct TermRoots {
  F64 w, ratio, inverse_w, inverse_ratio;
};

// Products of terms, brought back to eight terms and to rows.
RESIDUE_INLINE void product_terms(const Mod& mod, const F64 (&a)[8], const F64 (&b)[8],
                                  const TermRoots& roots, double* tile, u32 n) {
  F64 c[8];
  const F64 zero = F64::all(0);
  multiply_terms(mod, a, b, roots.w, roots.ratio, c);
  multiply_terms(mod, a + 4, b + 4, zero - roots.w, zero - roots.ratio, c + 4);
#pragma GCC unroll 4
  for (u32 i = 0; i < 4; ++i) {
    const F64 t = c[i] - c[i + 4];
    c[i] = mod.reduce(c[i] + c[i + 4]);
    c[i + 4] = mod.times(t, roots.inverse_w, roots.inverse_ratio);
  }
  store_rows(c, tile + 8 * n);
}

// A subtree that is in cache: its tiles, in groups of eight, prime by prime.
template <class Body>
RESIDUE_INLINE void for_tiles(const VstPlan& plan, u64 node, Body&& body) {
  const u64 tiles = u64{1} << (plan.shape.c - kVstTileLevels);
  const u32 group = tiles < 8 ? static_cast<u32>(tiles) : 8;
  for (u64 t = 0; t < tiles; t += group)
    for (u32 r = 0; r < plan.shape.row.P; ++r)
      body(r, node * tiles + t, group, t * 8 * plan.shape.row_doubles() + r * kVstRow);
}

void forward_tiles(const VstPlan& plan, double* x, u32 sequence, u64 node) {
  const u64 stride = plan.shape.row_doubles();
  for_tiles(plan, node, [&](u32 r, u64 first, u32 tiles, u64 at) {
    const Mod mod(plan.primes.modulus[r]);
    TileRoots roots;
    roots.load<false>(plan, r, sequence, first, tiles);
    for (u32 t = 0; t < tiles; ++t) {
      double* const rows = x + at + t * 8 * stride;
      alignas(64) double tile[64];
      tile_levels<false>(mod, roots, t, {rows, stride}, {tile, 8});
      for (u32 n = 0; n < 8; n += L) {
        F64 v[8];
        load_terms(mod, tile, n, F64::load(roots.last_w(t) + n), F64::load(roots.last_ratio(t) + n), v);
        for (u32 i = 0; i < 8; ++i) v[i].store(rows + i * stride + n);
      }
    }
  });
}

template <OperandState State>
void product_tiles(const VstPlan& plan, double* x, const double* g, u32 sequence, u64 node) {
  const u64 stride = plan.shape.row_doubles();
  for_tiles(plan, node, [&](u32 r, u64 first, u32 tiles, u64 at) {
    const Mod mod(plan.primes.modulus[r]);
    TileRoots roots, inverses;
    roots.load<false>(plan, r, sequence, first, tiles);
    inverses.load<true>(plan, r, sequence, first, tiles);
    for (u32 t = 0; t < tiles; ++t) {
      double* const rows = x + at + t * 8 * stride;
      const double* const other = g + at + t * 8 * stride;
      alignas(64) double tile[64], second[64];
      if (State == OperandState::kStarted) {
        tile_levels<false>(mod, roots, t, {rows, stride}, {tile, 8});
        if (g != x) tile_levels<false>(mod, roots, t, {other, stride}, {second, 8});
      }
      for (u32 n = 0; n < 8; n += L) {
        const F64 w = F64::load(roots.last_w(t) + n), ratio = F64::load(roots.last_ratio(t) + n);
        F64 a[8], b[8];
        if (State == OperandState::kStarted) {
          load_terms(mod, tile, n, w, ratio, a);
          if (g != x)
            load_terms(mod, second, n, w, ratio, b);
          else
            for (u32 i = 0; i < 8; ++i) b[i] = a[i];
        } else {
          for (u32 i = 0; i < 8; ++i) {
            a[i] = F64::load(rows + i * stride + n);
            b[i] = F64::load(other + i * stride + n);
          }
        }
        product_terms(mod, a, b,
                      {w, ratio, F64::load(inverses.last_w(t) + n), F64::load(inverses.last_ratio(t) + n)},
                      tile, n);
      }
      tile_levels<true>(mod, inverses, t, {tile, 8}, {rows, stride});
    }
  });
}

// Rows of a column pass at a time: four, with the factors of up to 2^8 rows.
constexpr u32 kWidth = 4;

// A subtree of 2^levels points.
struct Subtree {
  u32 sequence, levels;
  u64 node;
  u32 level(const VstPlan& plan) const { return plan.shape.row.n - levels; }
  Subtree child(const VstPlan& plan, u64 j) const {
    return {sequence, levels - plan.shape.b, (node << plan.shape.b) + j};
  }
  // Columns of its children's rows, all of them, or its rows when it is in cache.
  template <class Body>
  RESIDUE_INLINE void for_columns(const VstPlan& plan, double* x, Body&& body) const {
    const VstShape& shape = plan.shape;
    if (levels == shape.c) {
      body(Columns{x, 8 * shape.row_doubles(), 8, sequence, level(plan), node}, shape.c - kVstTileLevels);
      return;
    }
    const u32 below = levels - shape.b;
    for (u64 row = 0; row < u64{1} << (below - 3); row += kWidth)
      body(Columns{x + shape.place(below, row) * shape.row_doubles(),
                   shape.stride(below) * shape.row_doubles(), kWidth, sequence, level(plan), node},
           shape.b);
  }
  template <class Body>
  RESIDUE_INLINE void for_children(const VstPlan& plan, Body&& body) const {
    const u64 apart = plan.shape.stride(levels - plan.shape.b) * plan.shape.row_doubles();
    for (u64 j = 0; j < u64{1} << plan.shape.b; ++j) body(child(plan, j), j * apart);
  }
};

void forward_subtree(const VstPlan& plan, double* x, Subtree s) {
  s.for_columns(plan, x, [&](const Columns& c, u32 levels) { forward_columns<true>(plan, c, levels); });
  if (s.levels == plan.shape.c)
    forward_tiles(plan, x, s.sequence, s.node);
  else
    s.for_children(plan, [&](Subtree child, u64 at) { forward_subtree(plan, x + at, child); });
}

void product_subtree(const VstPlan& plan, double* x, double* g, OperandState state, Subtree s) {
  if (state == OperandState::kStarted)
    for (double* operand : {x, g}) {
      s.for_columns(plan, operand,
                    [&](const Columns& c, u32 levels) { forward_columns<true>(plan, c, levels); });
      if (g == x) break;
    }
  if (s.levels != plan.shape.c)
    s.for_children(plan, [&](Subtree child, u64 at) { product_subtree(plan, x + at, g + at, state, child); });
  else if (state == OperandState::kStarted)
    product_tiles<OperandState::kStarted>(plan, x, g, s.sequence, s.node);
  else
    product_tiles<OperandState::kTransformed>(plan, x, g, s.sequence, s.node);
  s.for_columns(plan, x, [&](const Columns& c, u32 levels) { inverse_columns(plan, c, levels); });
}

void forward(const VstPlan& plan, double* F, u32 j, u64 child) {
  forward_subtree(plan, F + plan.child(j, child), {j, plan.shape.child_levels(), plan.node(child)});
}

void product(const VstPlan& plan, double* F, double* G, OperandState state, u32 j, u64 child) {
  const u64 at = plan.child(j, child);
  product_subtree(plan, F + at, G + at, state, {j, plan.shape.child_levels(), plan.node(child)});
}

// Points of the k sequences' rows that start at point i become residues and go through the odd factor.
RESIDUE_INLINE void split_rows(const VstPlan& plan, double* F, u64 sequence_stride, OperandBytes a, u64 i) {
  const u32 P = plan.shape.row.P, k = plan.shape.row.k;
  const F64 zero = F64::all(0);
  alignas(64) double limbs[7][4][8];
  u32 filled = 0;
  while (filled < k && (i + filled * plan.shape.length()) * 3 * (P - 1) < a.bytes) {
    read_limbs(a, P, i + filled * plan.shape.length(), limbs[filled]);
    ++filled;
  }
  for (u32 r = 0; r < P; ++r) {
    const ResidueModulus& modulus = plan.primes.modulus[r];
    const Mod mod(modulus);
    for (u32 h = 0; h < kVstRow; h += L) {
      double* out = F + r * kVstRow + h;
      F64 v[7];
      v[0] = zero;
      for (u32 t = 0; t < filled; ++t) {
        v[t] = mod.reduce(F64::load(limbs[t][0] + h));
        for (u32 j = 1; j < P / 2; ++j)
          v[t] = v[t] + mod.times(F64::load(limbs[t][j] + h), plan.primes.set->limb[r][j]);
        if (plan.root && t % 2) v[t] = zero - v[t];
      }
      for (u32 j = 0; j < k; ++j) {
        F64 sum = v[0];
        for (u32 t = 1; t < filled; ++t) sum = sum + (j ? mod.times(v[t], modulus.odd[j * t % k]) : v[t]);
        mod.reduce(sum).store(out + j * sequence_stride);
      }
    }
  }
}

// Sequences' rows to points.
RESIDUE_INLINE void merge_rows(const VstPlan& plan, double* F, u64 sequence_stride) {
  const u32 P = plan.shape.row.P, k = plan.shape.row.k;
  for (u32 r = 0; r < P; ++r) {
    const ResidueModulus& modulus = plan.primes.modulus[r];
    const Mod mod(modulus);
    for (u32 h = 0; h < kVstRow; h += L) {
      double* x = F + r * kVstRow + h;
      F64 v[7];
      for (u32 j = 0; j < k; ++j) v[j] = F64::load(x + j * sequence_stride);
      v[0] = mod.reduce(v[0]);
      for (u32 t = 0; t < k; ++t) {
        F64 sum = v[0];
        for (u32 j = 1; j < k; ++j) sum = sum + mod.times(v[j], modulus.odd[(k - j) * t % k]);
        (plan.root && t % 2 ? F64::all(0) - sum : sum).store(x + t * sequence_stride);
      }
    }
  }
}

// Columns of rows [begin, end) of each child, a few rows of all of them at a time.
template <class Body>
RESIDUE_INLINE void for_stage_columns(const VstPlan& plan, double* F, u64 begin, u64 end, Body&& body) {
  const VstShape& shape = plan.shape;
  const u64 stride = shape.stride(shape.child_levels()) * shape.row_doubles();
  for (u64 row = begin; row < end;) {
    // Not beyond what stands together.
    const u64 width = end - row < kWidth - row % kWidth ? end - row : kWidth - row % kWidth;
    body(row, Columns{F + shape.place(shape.child_levels(), row) * shape.row_doubles(), stride,
                      static_cast<u32>(width), 0, 0, plan.root});
    row += width;
  }
}

template <class Body>
RESIDUE_INLINE void for_stage_rows(const VstPlan& plan, const Columns& c, Body&& body) {
  for (u64 child = 0; child < plan.shape.children(); ++child)
    for (u32 row = 0; row < c.rows; ++row)
      body(c.x + child * c.stride + row * plan.shape.row_doubles(),
           (child << plan.shape.child_levels()) + row * kVstRow);
}

void first_stage(const VstPlan& plan, double* F, OperandBytes a, u64 begin, u64 end) {
  const u64 sequence_stride = plan.child(1, 0);
  for_stage_columns(plan, F, begin, end, [&](u64 row, Columns c) {
    for_stage_rows(plan, c, [&](double* x, u64 point) {
      split_rows(plan, x, sequence_stride, a, point + row * kVstRow);
    });
    for (u32 j = 0; j < plan.shape.row.k; ++j, c.x += sequence_stride) {
      c.sequence = j;
      forward_columns<false>(plan, c, plan.shape.a);
    }
  });
}

void last_stage(const VstPlan& plan, double* F, u64 begin, u64 end) {
  const u64 sequence_stride = plan.child(1, 0);
  for_stage_columns(plan, F, begin, end, [&](u64, Columns c) {
    Columns s = c;
    for (u32 j = 0; j < plan.shape.row.k; ++j, s.x += sequence_stride) {
      s.sequence = j;
      inverse_columns(plan, s, plan.shape.a);
    }
    if (plan.shape.row.k > 1)
      for_stage_rows(plan, c, [&](double* x, u64) { merge_rows(plan, x, sequence_stride); });
  });
}

}  // namespace

extern const VstKernels vst_kernel_table;
constinit const VstKernels vst_kernel_table{
    SIMD_ISA_NAME, &first_stage, &forward, &product, &last_stage,
};

}  // namespace orl::SIMD_ISA
