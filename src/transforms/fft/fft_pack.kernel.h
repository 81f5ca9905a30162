// Last stage: the last passes of the inverse, then scaling, rounding, carrying
// and packing into words. Needs fft_pass.kernel.h and fft_unpack.kernel.h.
//
// Carrying runs along eight runs of consecutive points side by side, eight
// points a step. A step's 8 w bits begin at a byte; they are stored as whole
// vectors, and what is too much falls on bytes that the next step writes, or,
// at the end of a run, on the first step of the next run. First steps are kept
// back, so nothing is lost.
namespace orl::SIMD_ISA {
namespace {

using simd::SIMD_ISA::bits_of;
using simd::SIMD_ISA::store_fields;
using simd::SIMD_ISA::U64;
using simd::SIMD_ISA::operator&;
using simd::SIMD_ISA::operator|;

constexpr u32 kRuns = 8;
// A step may be followed by this many bytes of clutter: 32 bytes are stored of
// at least 17, or 16 of at least 9.
constexpr u32 kClutter = 15;

/// How values become points and points words: constants of a shape. Shift counts are vectors: a shift by one
/// count for all lanes holds up the multiply-add ports.
struct Packing {
  static constexpr double kMagic =
      6755399441055744.0;  // 1.5 * 2^52: adding it leaves an integer in the low bits
  static constexpr u64 kMagicMask = (u64{1} << 51) - 1;

  explicit Packing(const FftPlan& plan)
      : w(plan.w),
        scale(F64::all(1.0 / static_cast<double>(plan.complex_points()))),
        mask(U64::all((u64{1} << w) - 1)),
        by_w(U64::all(w)),
        by_2w(U64::all(2 * w)),
        up(U64::all(w <= 16 ? 4 * w : 4 * w - 64)),
        down(U64::all(w <= 16 ? 64 - 4 * w : 128 - 4 * w)),
        pair_down(U64::all(64 - 2 * w)) {}

  u32 w;
  F64 scale;
  U64 mask, by_w, by_2w, up, down, pair_down;
};

/// Eight points of L runs: scaled, rounded and with carries taken into account;
/// d[b] < 2^w.
FFT_INLINE void carry_step(const double* const (&run)[L], u64 offset, const Packing& p, U64& carry,
                           U64 (&d)[8]) {
  const F64 magic = F64::all(Packing::kMagic);
  const U64 magic_mask = U64::all(Packing::kMagicMask);
  for (u32 c = 0; c < 8 / L; ++c) {
    F64 row[L];
    for (u32 l = 0; l < L; ++l) row[l] = F64::load(run[l] + offset + c * kGroup);
    transpose(row);
    for (u32 i = 0; i < L; ++i) {
      const U64 sum = (bits_of(fma(row[i], p.scale, magic)) & magic_mask) + carry;
      d[c * L + i] = sum & p.mask;
      carry = sum.shr(p.by_w);
    }
  }
}

/// Eight fields of w bits a lane as three words a lane; two are enough while w <= 16.
template <bool kWide>
FFT_INLINE void pack_step(const U64 (&d)[8], const Packing& p, U64 (&q)[3]) {
  U64 pair[4];
  for (u32 m = 0; m < 4; ++m) pair[m] = d[2 * m] | d[2 * m + 1].shl(p.by_w);
  const U64 low = pair[0] | pair[1].shl(p.by_2w), high = pair[2] | pair[3].shl(p.by_2w);
  if constexpr (!kWide) {
    q[0] = low | high.shl(p.up);
    q[1] = high.shr(p.down);
    q[2] = U64::all(0);
  } else {
    q[0] = low;
    q[1] = pair[1].shr(p.pair_down) | high.shl(p.up);
    q[2] = high.shr(p.down) | pair[3].shr(p.pair_down).shl(p.up);
  }
}

/// `steps` steps of L runs from `run` on; run l is written to out[l]. Step 0 goes to kept[8 * word + l]
/// instead when `keep_first`.
template <bool kWide>
FFT_INLINE void pack_runs_of(const double* const (&run)[L], u64 steps, const Packing& p, U64& carry,
                             u8* const (&out)[L], bool keep_first, u64* kept) {
  U64 d[8], q[3];
  u64 i = 0;
  if (keep_first) {
    carry_step(run, 0, p, carry, d);
    pack_step<kWide>(d, p, q);
    for (u32 j = 0; j < 3; ++j) q[j].store(kept + j * kRuns);
    i = 1;
  }
  for (; i < steps; ++i) {
    carry_step(run, i * kPointGroup, p, carry, d);
    pack_step<kWide>(d, p, q);
    store_fields<kWide ? 3 : 2>(out, i * p.w, q);
  }
}
void pack_runs(const double* const (&run)[L], u64 steps, const Packing& p, U64& carry, u8* const (&out)[L],
               bool keep_first, u64* kept) {
  if (p.w <= 16)
    pack_runs_of<false>(run, steps, p, carry, out, keep_first, kept);
  else
    pack_runs_of<true>(run, steps, p, carry, out, keep_first, kept);
}

/// The last pass of a small transform, in place.
template <u32 R>
void small_last_pass(const FftPlan& plan, double* F) {
  const u64 stride = 2 * plan.complex_points() / R;
  root_inverse_pass<R>(F, stride, stride, fft_first_powers(R), plan.tables->root(1, 0)[0][0]);
}

void last_pass(const FftPlan& plan, double* F) {
  switch (plan.first_radix()) {
    case 1:
      return;
    case 2:
      return small_last_pass<2>(plan, F);
    case 3:
      return small_last_pass<3>(plan, F);
    case 4:
      return small_last_pass<4>(plan, F);
    case 5:
      return small_last_pass<5>(plan, F);
    default:
      return small_last_pass<8>(plan, F);
  }
}

/// Writes 8 w bits over the first w bytes of a run that is longer.
FFT_INLINE void store_first(u8* out, u32 w, u64 word0, u64 word1, u64 word2) {
  const auto store_word = [out](u32 at, u64 word) { __builtin_memcpy(out + at, &word, 8); };
  const auto store_part = [&](u32 at, u64 word, u32 bytes) {
    u64 behind;
    __builtin_memcpy(&behind, out + at, 8);
    const u64 mask = (u64{1} << (8 * bytes)) - 1;
    store_word(at, (behind & ~mask) | (word & mask));
  };
  store_word(0, word0);
  if (w < 16) {
    store_part(8, word1, w - 8);
  } else {
    store_word(8, word1);
    store_part(16, word2, w - 16);
  }
}

/// Packs all points into `fields` in eight runs.
void pack_small(const FftPlan& plan, const double* F, u8* fields) {
  const Packing p(plan);
  const u64 steps = plan.points() / (8 * kRuns), bytes = steps * p.w;
  alignas(64) u64 kept[3 * kRuns], leaving[kRuns + 1];
  leaving[0] = 0;
  for (u32 s = 0; s < kRuns; s += L) {
    // Runs 0 to 3 are real parts, 4 to 7 imaginary parts.
    const double* run[L];
    u8* out[L];
    for (u32 l = 0; l < L; ++l) {
      run[l] = F + (s + l) % 4 * steps * kPointGroup + (s + l) / 4 * L;
      out[l] = fields + (s + l) * bytes;
    }
    U64 carry = U64::all(0);
    pack_runs(run, steps, p, carry, out, true, kept + s);
    carry.store(leaving + 1 + s);
  }
  // A carry seldom goes beyond the first word of a run.
  bool passing = false;
  for (u32 s = 0; s < kRuns; ++s) {
    const u64 sum = kept[s] + leaving[s];
    passing |= sum < kept[s];
    store_first(fields + s * bytes, p.w, sum, kept[kRuns + s], kept[2 * kRuns + s]);
  }
  if (!passing) [[likely]]
    return;
  u64 carry = 0;
  for (u32 s = 0; s < kRuns; ++s) {
    u8* out = fields + s * bytes;
    const FftFirstStep step({kept[s], kept[kRuns + s], kept[2 * kRuns + s]}, p.w, carry);
    store_first(out, p.w, step.word[0], step.word[1], step.word[2]);
    u64 on = step.leaving;
    for (u64 i = p.w; on && i < bytes; ++i) on = ++out[i] == 0;
    carry = leaving[s + 1] + on;
  }
}

void finish(const FftPlan& plan, double* F, FftWindow window, u8* fields) {
  last_pass(plan, F);
  pack_small(plan, F, fields);
  __builtin_memcpy(window.target, fields + window.begin, window.end - window.begin);
}

/// Where a group of eight runs writes a chunk, run by run: into the window, or
/// aside when a run's bytes do not all lie in it.
class ChunkTargets {
 public:
  ChunkTargets(const FftPlan& plan, FftWindow window)
      : bytes_(plan.chunk_groups() * plan.w), window_(window) {}

  /// Run l's bytes of the chunk begin at `begin` + l * `distance` of the
  /// product.
  void begin(u64 begin, u64 distance) {
    begin_ = begin;
    distance_ = distance;
    for (u32 l = 0; l < kRuns; ++l) {
      const u64 position = begin + l * distance;
      const bool inside = position >= window_.begin && position + bytes_ + kClutter <= window_.end;
      out_[l] = inside ? window_.target + (position - window_.begin) : aside_[l];
    }
  }
  u8* out(u32 l) const { return out_[l]; }
  /// Copies what of the bytes written aside belongs to the window. The first
  /// `kept` bytes were not written.
  void end(u64 kept, FftRunGroup& group) {
    for (u32 l = 0; l < kRuns; ++l)
      if (out_[l] == aside_[l]) finish_aside(l, begin_ + l * distance_, kept, group);
  }

 private:
  void finish_aside(u32 l, u64 position, u64 kept, FftRunGroup& group) {
    u64 i = kept;
    for (; i < bytes_ && position + i < window_.begin && group.dropped_ones[l]; ++i)
      group.dropped_ones[l] = aside_[l][i] == 0xff;
    const u64 from = position + kept < window_.begin ? window_.begin : position + kept;
    const u64 to = position + bytes_ < window_.end ? position + bytes_ : window_.end;
    if (from < to)
      __builtin_memcpy(window_.target + (from - window_.begin), aside_[l] + (from - position), to - from);
  }

  u64 bytes_;
  FftWindow window_;
  u64 begin_ = 0, distance_ = 0;
  u8* out_[kRuns];
  u8 aside_[kRuns][kFftMaxChunkGroups * kMaxW + 2 * kReadBytes];
};

template <u32 R>
void blocked_last_stage(const FftPlan& plan, const double* F, FftWindow window, u64 chunk_begin,
                        u64 chunk_end, const FftStageWork& work) {
  const Packing p(plan);
  const u64 groups = plan.chunk_groups(), row = groups * kPointGroup;
  const u64 stream = plan.branch_points() / 8;  // groups of eight points in a run of the whole column range
  double* chunk = work.chunk;
  for (u32 g = 0; g < 2 * R; ++g)
    for (u32 l = 0; l < kRuns; ++l) {
      work.groups[g].carry[l] = 0;
      work.groups[g].dropped_ones[l] = true;
    }
  ChunkTargets targets(plan, window);
  for (u64 c = chunk_begin; c < chunk_end; ++c) {
    for (u32 i = 0; i < R; ++i)
      inverse_pass<kFftSecondRadix>(F + i * kFftSecondRadix * stream * kPointGroup + c * row,
                                    stream * kPointGroup, chunk + i * kFftSecondRadix * row, row, row,
                                    second_twiddles(plan, i));
    const u64 part = kFftSecondRadix * row;
    for (u32 j = 0; j < kFftSecondRadix; ++j)
      root_inverse_pass<R>(chunk + j * row, part, row, fft_first_powers(R), plan.tables->root(1, 0)[0][0]);
    for (u32 g = 0; g < 2 * R; ++g) {
      FftRunGroup& group = work.groups[g];
      targets.begin((g * kFftSecondRadix * stream + c * groups) * p.w, stream * p.w);
      for (u32 s = 0; s < kRuns; s += L) {
        const double* run[L];
        u8* out[L];
        for (u32 l = 0; l < L; ++l) {
          run[l] = chunk + g % R * part + (s + l) * row + g / R * L;
          out[l] = targets.out(s + l);
        }
        U64 carry = U64::load(group.carry + s);
        pack_runs(run, groups, p, carry, out, c == chunk_begin, &group.first[0][s]);
        carry.store(group.carry + s);
      }
      targets.end(c == chunk_begin ? p.w : 0, group);
    }
  }
}

void last_stage(const FftPlan& plan, const double* F, FftWindow window, u64 chunk_begin, u64 chunk_end,
                const FftStageWork& work) {
  switch (plan.k) {
    case 1:
      return blocked_last_stage<8>(plan, F, window, chunk_begin, chunk_end, work);
    case 3:
      return blocked_last_stage<3>(plan, F, window, chunk_begin, chunk_end, work);
    default:
      return blocked_last_stage<5>(plan, F, window, chunk_begin, chunk_end, work);
  }
}

double rounding_error(const FftPlan& plan, double* F) {
  if (plan.blocked()) {
    const u64 stride = 2 * plan.branch_points();
    for (u32 i = 0; i < plan.first_radix(); ++i) {
      double* x = F + i * kFftSecondRadix * stride;
      inverse_pass<kFftSecondRadix>(x, stride, x, stride, stride, second_twiddles(plan, i));
    }
  }
  last_pass(plan, F);
  const F64 scale = Packing(plan).scale, magic = F64::all(Packing::kMagic);
  F64 largest = F64::all(0.0);
  for (u64 i = 0; i < plan.points(); i += L) {
    const F64 value = F64::load(F + i);
    const F64 rounded = fma(value, scale, magic) - magic;
    largest = max(largest, abs(fms(value, scale, rounded)));
  }
  alignas(64) double lane[L];
  largest.store(lane);
  double result = 0;
  for (double e : lane) result = e > result ? e : result;
  return result;
}

}  // namespace
}  // namespace orl::SIMD_ISA
