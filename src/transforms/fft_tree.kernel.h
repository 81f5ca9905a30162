// The recursion over nodes: depth first, so that a block is transformed to the bottom, multiplied there and
// transformed back while it is in cache. Needs fft_pass.kernel.h.
namespace orl::SIMD_ISA {
namespace {

/// Where the records of a node come from: the table of the root 1/4, rotated by base records when there are
/// any.
struct Root {
  const FftTables* tables;
  const FftTwiddles* base;         ///< null: no rotation
  const u8* base_index;            ///< level below the root to base record
  const FftSubtreeBase* subtrees;  ///< roots of the subtrees below, when this root stands above subtrees

  /// The record of node n at `level` below the root; `room` holds it when it must be computed.
  FFT_INLINE const FftTwiddles& record(u32 level, u64 n, FftTwiddles& room) const {
    const FftTwiddles& t = tables->level(level)[n];
    if (!base) return t;
    const FftTwiddles& b = base[base_index[level]];
    for (u32 i = 0; i < 8; i += L) {
      const Complex z =
          times({F64::load(t.re + i), F64::load(t.im + i)}, {F64::load(b.re + i), F64::load(b.im + i)});
      z.re.store(room.re + i);
      z.im.store(room.im + i);
    }
    for (u32 i = 8; i < FftTwiddles::kCount; ++i) {
      room.re[i] = __builtin_fma(t.re[i], b.re[i], -(t.im[i] * b.im[i]));
      room.im[i] = __builtin_fma(t.re[i], b.im[i], t.im[i] * b.re[i]);
    }
    return room;
  }
};

constexpr u8 kEveryLevel[kFftSubtreeLevels + 1] = {0, 1, 2, 3, 4, 5, 6, 7, 8};
constexpr u8 kPassLevel[kFftSubtreeLevels + 1] = {0, 0, 0, 1, 0, 0, 2, 0, 3};

/// log2 of the radix of the first pass over a node `levels` above its blocks.
constexpr u32 radix_bits(u32 levels) { return levels == 4 || levels == 2 ? 2 : levels == 1 ? 1 : 3; }

constexpr u64 kBlockDoubles = 2 * kFftBlockPoints;

/// Node n at `level` below the root, `height` levels above its blocks, at x; g is the same node of the other
/// operand.
template <bool kForward, Pointwise P>
void transform_node(const Root& root, double* x, const double* g, u32 level, u64 n, u32 height) {
  FftTwiddles room;
  if (height == 0) {
    transform_block<kForward, P>(x, g, root.record(level, n, room));
    return;
  }
  if (root.subtrees && height == kFftSubtreeLevels) {
    const Root subtree{root.tables, root.subtrees[n].pass, kPassLevel, nullptr};
    transform_node<kForward, P>(subtree, x, g, 0, 0, height);
    return;
  }
  const u32 upper = root.subtrees ? height - kFftSubtreeLevels : height;
  const u32 bits = radix_bits(upper);
  const u64 stride = kBlockDoubles << (height - bits);
  const FftTwiddles& t = root.record(level, n, room);
  if constexpr (kForward) {
    if (bits == 3)
      forward_pass<8>(x, stride, t);
    else if (bits == 2)
      forward_pass<4>(x, stride, t);
    else
      forward_pass<2>(x, stride, t);
  }
  for (u64 i = 0; i < u64{1} << bits; ++i)
    transform_node<kForward, P>(root, x + i * stride, P == Pointwise::kMultiply ? g + i * stride : nullptr,
                                level + bits, (n << bits) + i, height - bits);
  if constexpr (P != Pointwise::kNone) {
    if (bits == 3)
      inverse_pass<8>(x, stride, t);
    else if (bits == 2)
      inverse_pass<4>(x, stride, t);
    else
      inverse_pass<2>(x, stride, t);
  }
}

template <bool kForward, Pointwise P>
void transform_root(const FftPlan& plan, double* x, const double* g, u32 j) {
  const FftTables* tables = plan.tables;
  const Root root{tables, plan.k == 1 ? nullptr : tables->root_base(plan.k, j), kEveryLevel,
                  plan.levels > kFftSubtreeLevels
                      ? tables->subtree_base(plan.k, j, plan.levels - kFftSubtreeLevels)
                      : nullptr};
  transform_node<kForward, P>(root, x, g, 0, 0, plan.levels);
}

template <bool kForward, Pointwise P>
void transform(const FftPlan& plan, double* x, const double* g) {
  const u64 stride = kBlockDoubles << plan.levels;
  if constexpr (kForward) {
    if (plan.k == 3) forward_odd_pass<3>(x, stride, plan.tables->odd(3));
    if (plan.k == 5) forward_odd_pass<5>(x, stride, plan.tables->odd(5));
  }
  for (u32 j = 0; j < plan.k; ++j)
    transform_root<kForward, P>(plan, x + j * stride, P == Pointwise::kMultiply ? g + j * stride : nullptr,
                                j);
  if constexpr (P != Pointwise::kNone) {
    if (plan.k == 3) inverse_odd_pass<3>(x, stride, plan.tables->odd(3));
    if (plan.k == 5) inverse_odd_pass<5>(x, stride, plan.tables->odd(5));
  }
}

}  // namespace
}  // namespace orl::SIMD_ISA
