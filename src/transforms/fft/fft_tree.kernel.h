// The recursion over nodes: depth first, so that a block is transformed to the
// bottom, multiplied there and transformed back while it is in cache. Needs
// fft_pass.kernel.h.
namespace orl::SIMD_ISA {
namespace {

/// Where the records of a node come from: a root's table, rotated by the base
/// records of a subtree if any.
struct Source {
  const FftTwiddles* const* levels;
  const FftTwiddles* base;  ///< null: no rotation
  const u8* base_index;     ///< level to base record
  u64 ahead;                ///< doubles to what is prefetched beside each block; 0 for none

  /// The record of node n at `level`; `room` holds it when it must be computed.
  FFT_INLINE const FftTwiddles& record(u32 level, u64 n, FftTwiddles& room) const {
    const FftTwiddles& t = levels[level][n];
    if (!base) return t;
    const FftTwiddles& b = base[base_index[level]];
    for (u32 i = 0; i < FftTwiddles::kCount; i += L) {
      const Complex z = times(Complex{F64::load(t.re + i), F64::load(t.im + i)},
                              Complex{F64::load(b.re + i), F64::load(b.im + i)});
      z.re.store(room.re + i);
      z.im.store(room.im + i);
    }
    return room;
  }
};

// From entry kFftSubtreeLevels - b on for records that begin with level b.
constexpr u8 kEveryLevel[2 * kFftSubtreeLevels + 1] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8};
constexpr u8 kPassLevel[kFftSubtreeLevels + 1] = {0, 0, 0, 1, 0, 0, 2, 0, 3};

/// log2 of the radix of the first pass over a node `height` levels high.
constexpr u32 radix_bits(u32 height) { return height == 4 || height == 2 ? 2 : height == 1 ? 1 : 3; }

constexpr u64 kBlockDoubles = 2 * kFftBlockPoints;

template <Direction D>
FFT_INLINE void node_pass_in_place(double* x, u64 stride, u32 bits, const FftTwiddles& t) {
  with_constant<3, 2, 1>(bits, [&](auto b) { node_pass<D, 1u << b>(x, stride, x, stride, stride, t); });
}

constexpr bool is_forward(FftStep s) {
  return s == FftStep::forward || s == FftStep::convolve_square || s == FftStep::convolve_multiply;
}
constexpr bool uses_g(FftStep s) { return s == FftStep::multiply || s == FftStep::convolve_multiply; }
constexpr Pointwise pointwise_of(FftStep s) {
  return s == FftStep::forward ? Pointwise::kNone : uses_g(s) ? Pointwise::kMultiply : Pointwise::kSquare;
}

/// Fetches a block into the second-level cache.
FFT_INLINE void prefetch_block(const double* x) {
  for (u32 i = 0; i < kBlockDoubles; i += 8) __builtin_prefetch(x + i, 1, 2);
}

template <FftStep S>
FFT_INLINE void block_step(double* x, double* g, const FftTwiddles& t) {
  if constexpr (S == FftStep::convolve_multiply) transform_block<true, Pointwise::kNone>(g, nullptr, t);
  transform_block<is_forward(S), pointwise_of(S)>(x, g, t);
}

/// Node n at `level` of the source's root, `height` levels above its blocks, at
/// x; g is the same node of the other operand.
template <FftStep S>
void node_step(const Source& source, double* x, double* g, u32 level, u64 n, u32 height) {
  FftTwiddles room;
  const FftTwiddles& t = source.record(level, n, room);
  if (height == 0) {
    if (source.ahead) {
      prefetch_block(x + source.ahead);
      if constexpr (uses_g(S)) prefetch_block(g + source.ahead);
    }
    block_step<S>(x, g, t);
    return;
  }
  const u32 bits = radix_bits(height);
  const u64 stride = kBlockDoubles << (height - bits);
  if constexpr (S == FftStep::convolve_multiply) node_pass_in_place<Direction::kForward>(g, stride, bits, t);
  if constexpr (is_forward(S)) node_pass_in_place<Direction::kForward>(x, stride, bits, t);
  for (u64 i = 0; i < u64{1} << bits; ++i)
    node_step<S>(source, x + i * stride, uses_g(S) ? g + i * stride : nullptr, level + bits, (n << bits) + i,
                 height - bits);
  if constexpr (S != FftStep::forward) node_pass_in_place<Direction::kInverse>(x, stride, bits, t);
}

/// node_step() of node n, at `level` of a root, by the records of the subtree that it lies in.
template <FftStep S>
void subtree_step(const FftPlan& plan, u64 ahead, double* x, double* g, const FftBranch& at) {
  const u32 depth = plan.subtree_depth(), below = at.level - depth;
  const u32 count = FftTables::base_count(plan.k, depth);
  const Source source{plan.tables->root(1, 0),
                      plan.tables->subtree_bases(plan.k, at.root, depth) + (at.node >> below) * count,
                      FftTables::begins_with_passes(plan.k, depth)
                          ? kPassLevel
                          : kEveryLevel + kFftSubtreeLevels - FftTables::base_level(plan.k, depth),
                      ahead};
  node_step<S>(source, x, g, below, at.node & ((u64{1} << below) - 1), at.height);
}

/// node_step() of a node above the subtrees of a rotated transform, or in one.
template <FftStep S>
void upper_node_step(const FftPlan& plan, u64 ahead, double* x, double* g, const FftBranch& at) {
  const u32 depth = plan.subtree_depth();
  if (at.level >= depth) return subtree_step<S>(plan, ahead, x, g, at);
  const FftTwiddles& t = plan.tables->root(plan.k, at.root)[at.level][at.node];
  const u32 bits = radix_bits(depth - at.level);
  const u64 stride = kBlockDoubles << (at.height - bits);
  if constexpr (S == FftStep::convolve_multiply) node_pass_in_place<Direction::kForward>(g, stride, bits, t);
  if constexpr (is_forward(S)) node_pass_in_place<Direction::kForward>(x, stride, bits, t);
  for (u64 i = 0; i < u64{1} << bits; ++i)
    upper_node_step<S>(plan, ahead, x + i * stride, uses_g(S) ? g + i * stride : nullptr,
                       {at.root, at.level + bits, at.height - bits, (at.node << bits) + i});
  if constexpr (S != FftStep::forward) node_pass_in_place<Direction::kInverse>(x, stride, bits, t);
}

template <FftStep S>
void branch_step(const FftPlan& plan, double* F, double* G, u32 index) {
  const FftBranch b = plan.branch(index);
  const u64 offset = 2 * plan.branch_points() * index;
  double* g = uses_g(S) ? G + offset : nullptr;
  if (plan.rotated()) {
    // A transform beyond the caches: while a branch is worked on in cache, the next one is fetched (64 MiB,
    // one thread, Zen 4: forward 9.9 -> 7.6 ms; 8 MiB: no difference).
    const bool fetch = plan.complex_points() >= kFftPrefetchPoints && index + 1 < plan.branches();
    upper_node_step<S>(plan, fetch ? 2 * plan.branch_points() : 0, F + offset, g, b);
  } else {
    node_step<S>(Source{plan.tables->root(plan.k, b.root), nullptr, nullptr, 0}, F + offset, g, b.level,
                 b.node, b.height);
  }
}

template <FftStep S>
void branch_steps(const FftPlan& plan, double* F, double* G, u32 begin, u32 end) {
  for (u32 i = begin; i < end; ++i) branch_step<S>(plan, F, G, i);
}

void branches(const FftPlan& plan, FftStep step, double* F, double* G, u32 begin, u32 end) {
  switch (step) {
    case FftStep::forward:
      return branch_steps<FftStep::forward>(plan, F, G, begin, end);
    case FftStep::square:
      return branch_steps<FftStep::square>(plan, F, G, begin, end);
    case FftStep::multiply:
      return branch_steps<FftStep::multiply>(plan, F, G, begin, end);
    case FftStep::convolve_square:
      return branch_steps<FftStep::convolve_square>(plan, F, G, begin, end);
    case FftStep::convolve_multiply:
      return branch_steps<FftStep::convolve_multiply>(plan, F, G, begin, end);
  }
}

}  // namespace
}  // namespace orl::SIMD_ISA
