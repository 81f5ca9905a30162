// First stage: the bits of an operand are cut into points of w bits, which go
// straight into the first pass. Needs fft_pass.kernel.h.
namespace orl::SIMD_ISA {
namespace {

using simd::SIMD_ISA::BitFields;

constexpr u32 kPointGroup = 16;  // doubles in a group of eight complex points
constexpr u32 kMaxRun = 32;      // groups of eight points that a call of unpack_pass takes at most
constexpr u32 kReadBytes = 32;   // bytes that reading a group touches
constexpr u32 kMaxW = 21;
constexpr u32 kRunBytes = (kMaxRun - 1) * kMaxW + kReadBytes;

alignas(64) constexpr u8 kZeroBytes[kRunBytes] = {};

/// Finds the packed bits of runs of points in an operand. Near the operand's
/// end they are copied, with zeros behind. Runs of one stage do not overlap and
/// are at least kReadBytes long or apart, so at most two meet the end.
class RunReader {
 public:
  RunReader(FftOperand a, u32 w) : a_(a), w_(w) {}

  /// The bits of `groups` groups of eight points from the group number `group`.
  const u8* run(u64 group, u64 groups) {
    const u64 begin = group * w_, end = begin + (groups - 1) * w_ + kReadBytes;
    if (end <= a_.count) return a_.bytes + begin;
    if (begin >= a_.count) return kZeroBytes;
    u8* copy = copies_[copied_++ % 2];
    __builtin_memset(copy, 0, end - begin);
    __builtin_memcpy(copy, a_.bytes + begin, a_.count - begin);
    return copy;
  }
  void restart() { copied_ = 0; }

 private:
  FftOperand a_;
  u32 w_;
  u32 copied_ = 0;
  alignas(64) u8 copies_[2][kRunBytes];
};

/// Runs of the parts of a first pass, in groups of eight points: part p begins at first + p * part.
struct PartRuns {
  u64 first, part, groups;
};
/// Where the points of the parts go: part p to at + p * stride, in doubles.
struct PartTarget {
  double* at;
  u64 stride;
};

/// First pass of radix R on the points behind R runs of real and, unless all
/// are zero, R of imaginary parts.
template <u32 R, bool kReal>
void unpack_pass(const u8* const (&re)[R], const u8* const (&im)[R], u64 groups, const BitFields& fields,
                 u32 w, const PartTarget& target) {
  const FftPowers& t = fft_first_powers(R);
  using Point = std::conditional_t<kReal, Real, Complex>;
  for (u64 i = 0; i < groups; ++i) {
    Point a[8 / L][R];
    for (u32 p = 0; p < R; ++p) {
      F64 x[8 / L], y[8 / L];
      fields.read(re[p] + i * w, x);
      if constexpr (!kReal) fields.read(im[p] + i * w, y);
      for (u32 c = 0; c < 8 / L; ++c) {
        if constexpr (kReal)
          a[c][p] = {x[c]};
        else
          a[c][p] = {x[c], y[c]};
      }
    }
    for (u32 c = 0; c < 8 / L; ++c) {
      Complex x[R];
      root_column(a[c], t, x);
      for (u32 p = 0; p < R; ++p) store(target.at + p * target.stride + i * kPointGroup + c * kGroup, x[p]);
    }
  }
}

/// First pass of radix R on the points of R runs.
template <u32 R>
void unpack_parts(RunReader& reader, const FftPlan& plan, bool real, const PartRuns& runs,
                  const BitFields& fields, const PartTarget& target) {
  const u64 half = plan.complex_points() / 8;
  const u8 *re[R], *im[R];
  reader.restart();
  for (u32 p = 0; p < R; ++p) re[p] = reader.run(runs.first + p * runs.part, runs.groups);
  if (real) {
    unpack_pass<R, true>(re, re, runs.groups, fields, plan.w, target);
  } else {
    for (u32 p = 0; p < R; ++p) im[p] = reader.run(half + runs.first + p * runs.part, runs.groups);
    unpack_pass<R, false>(re, im, runs.groups, fields, plan.w, target);
  }
}

template <u32 R>
void small_first_stage(const FftPlan& plan, double* F, FftOperand a) {
  const BitFields fields(plan.w);
  RunReader reader(a, plan.w);
  const bool real = a.count <= plan.field_bytes() / 2;
  const u64 part = plan.complex_points() / (8 * R);
  for (u64 i = 0; i < part; i += kMaxRun)
    unpack_parts<R>(reader, plan, real, {i, part, part - i < kMaxRun ? part - i : kMaxRun}, fields,
                    {F + i * kPointGroup, part * kPointGroup});
}

/// Record of the second pass over part i of the first.
const FftTwiddles& second_twiddles(const FftPlan& plan, u32 i) {
  return plan.k > 1 ? plan.tables->root(plan.k, i)[0][0] : plan.tables->root(1, 0)[3][i];
}

template <u32 R>
void blocked_first_stage(const FftPlan& plan, double* F, FftOperand a, u64 chunk_begin, u64 chunk_end,
                         double* chunk) {
  const BitFields fields(plan.w);
  RunReader reader(a, plan.w);
  const bool real = a.count <= plan.field_bytes() / 2;
  const u64 groups = plan.chunk_groups(), row = groups * kPointGroup;  // doubles of one stream in the chunk
  const u64 stream = plan.branch_points() / 8;                         // groups
  for (u64 c = chunk_begin; c < chunk_end; ++c) {
    for (u32 r = 0; r < kFftSecondRadix; ++r)
      unpack_parts<R>(reader, plan, real, {r * stream + c * groups, kFftSecondRadix * stream, groups}, fields,
                      {chunk + r * row, kFftSecondRadix * row});
    for (u32 i = 0; i < R; ++i)
      node_pass<Direction::kForward, kFftSecondRadix>(
          chunk + i * kFftSecondRadix * row, row, F + i * kFftSecondRadix * stream * kPointGroup + c * row,
          stream * kPointGroup, row, second_twiddles(plan, i));
  }
}

void first_stage(const FftPlan& plan, double* F, FftOperand a, u64 chunk_begin, u64 chunk_end,
                 double* chunk) {
  if (plan.blocked()) {
    with_constant<8, 3, 5>(plan.first_radix(), [&](auto radix) {
      blocked_first_stage<radix>(plan, F, a, chunk_begin, chunk_end, chunk);
    });
    return;
  }
  with_constant<1, 2, 3, 4, 5, 8>(plan.first_radix(),
                                  [&](auto radix) { small_first_stage<radix>(plan, F, a); });
}

}  // namespace
}  // namespace orl::SIMD_ISA
