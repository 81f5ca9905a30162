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

using simd::SIMD_ISA::U64;

constexpr u32 kRuns = 8;
// A step may be followed by this many bytes of clutter: 32 bytes are stored of
// at least 17, or 16 of at least 9.
constexpr u32 kClutter = 15;

/// How values become points and points words: constants of a shape. Shift counts are vectors: a shift by one
/// count for all lanes holds up the multiply-add ports.
///
/// Adding kMagic leaves an integer x as kMagicBits + x in the sum's bits. Carries are kept less what these add to a
/// sum modulo 2^64, so that they need no operation of their own; `bias` is its negative:
///     w > 16   a sum is x + c, of one point;
///     w <= 16  a sum is x0 + 2^w x1 + c < 2^64, of two (fft_table.cpp).
/// A negative sum, which folded products have among their lowest points, is thus taken modulo 2^64.
struct Packing {
  static constexpr double kMagic = 6755399441055744.0;  // 1.5 * 2^52
  static constexpr u64 kMagicBits = 0x4338000000000000;
  static constexpr u64 kMagicExponent = 0x433;

  explicit Packing(const FftPlan& plan)
      : w(plan.w),
        scale(F64::all(1.0 / static_cast<double>(plan.complex_points()))),
        magic(F64::all(kMagic)),
        bias(U64::all(u64{0} - (w <= 16 ? kMagicBits + (kMagicBits << w) : kMagicBits))),
        mask(U64::all((u64{1} << (w <= 16 ? 2 * w : w)) - 1)),
        by_w(U64::all(w)),
        by_2w(U64::all(2 * w)),
        up(U64::all(w <= 16 ? 4 * w : 4 * w - 64)),
        down(U64::all(w <= 16 ? 64 - 4 * w : 128 - 4 * w)),
        pair_down(U64::all(64 - 2 * w)) {}

  u32 w;
  F64 scale, magic;
  U64 bias, mask, by_w, by_2w, up, down, pair_down;
};

/// What rounding shows of the errors of points.
struct Rounding {
  // Vectors look at every fourth point: an error of a transform is in all of them. A look at every one takes 3 to 5 % of
  // a product (Intel Xeon, AVX-512, quiet machine, medians of pairs), at every fourth at most 2 %.
  static constexpr u32 kStep = L > 1 ? 4 : 1;
  F64 error;  ///< largest distance from an integer
  U64 seen;   ///< all rounded values with magic added, or-ed

  FFT_INLINE Rounding() : error(F64::all(0)), seen(U64::all(Packing::kMagicExponent << 52)) {}
  /// value * scale + magic, which rounds it; `i` numbers the calls.
  FFT_INLINE U64 round(F64 value, const Packing& p, u32 i) {
    const F64 sum = fma(value, p.scale, p.magic);
    const U64 bits = as_bits(sum);
    if (i % kStep == 0) {
      error = max_abs(error, fms(value, p.scale, sum - p.magic));
      seen = seen | bits;
    }
    return bits;
  }
  /// The largest error; infinite when a value was no number or 2^51 and more, which magic does not round: its
  /// sum then has another exponent. (The exponents that or-ing hides are those of sums below 2^52, so of values
  /// from -2^54 to -2^51.)
  double largest() const {
    return or_of_lanes(seen) >> 52 == Packing::kMagicExponent ? largest_lane(error) : __builtin_inf();
  }
};

/// Eight points of L runs, scaled, rounded and carried, as pairs of 2 w bits.
template <bool kWide>
FFT_INLINE void carry_step(const double* const (&run)[L], u64 offset, const Packing& p, U64& carry,
                           U64 (&pair)[4], Rounding& rounding) {
  constexpr u32 kTogether = L > 1 ? L : 2;
  for (u32 c = 0; c < 8 / kTogether; ++c) {
    U64 x[kTogether];
    for (u32 h = 0; h < kTogether; h += L) {
      F64 row[L];
      for (u32 l = 0; l < L; ++l) row[l] = F64::load(run[l] + offset + (c * kTogether + h) / L * kGroup);
      transpose(row);
      for (u32 i = 0; i < L; ++i) x[h + i] = rounding.round(row[i], p, i);
    }
    for (u32 i = 0; i < kTogether; i += 2) {
      U64& result = pair[(c * kTogether + i) / 2];
      if constexpr (kWide) {
        const U64 low = x[i] + carry, high = x[i + 1] + (low.shr(p.by_w) + p.bias);
        result = (low & p.mask) | (high & p.mask).shl(p.by_w);
        carry = high.shr(p.by_w) + p.bias;
      } else {
        const U64 sum = (x[i] + x[i + 1].shl(p.by_w)) + carry;
        result = sum & p.mask;
        carry = sum.shr(p.by_2w) + p.bias;
      }
    }
  }
}

/// Four pairs of fields per lane as three words per lane; two are enough while w <= 16.
template <bool kWide>
FFT_INLINE void pack_step(const U64 (&pair)[4], const Packing& p, U64 (&q)[3]) {
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

/// `steps` steps of L runs from `run` on; run l is written to out[l]. Unless `kept` is null, step 0 goes to
/// kept[8 * word + l] instead.
template <bool kWide>
FFT_INLINE void pack_runs_of(const double* const (&run)[L], u64 steps, const Packing& p, U64& carry,
                             u8* const (&out)[L], u64* kept, Rounding& result) {
  U64 pair[4], q[3];
  U64 biased = carry + p.bias;
  Rounding rounding = result;
  u64 i = 0;
  if (kept) {
    carry_step<kWide>(run, 0, p, biased, pair, rounding);
    pack_step<kWide>(pair, p, q);
    for (u32 j = 0; j < 3; ++j) q[j].store(kept + j * kRuns);
    i = 1;
  }
  for (; i < steps; ++i) {
    carry_step<kWide>(run, i * kPointGroup, p, biased, pair, rounding);
    pack_step<kWide>(pair, p, q);
    store_fields<kWide ? 3 : 2>(out, i * p.w, q);
  }
  carry = biased - p.bias;
  result = rounding;
}
void pack_runs(const double* const (&run)[L], u64 steps, const Packing& p, U64& carry, u8* const (&out)[L],
               u64* kept, Rounding& rounding) {
  if (p.w <= 16)
    pack_runs_of<false>(run, steps, p, carry, out, kept, rounding);
  else
    pack_runs_of<true>(run, steps, p, carry, out, kept, rounding);
}

/// The last pass of a small transform, in place.
template <u32 R>
void small_last_pass(const FftPlan& plan, double* F) {
  const u64 stride = 2 * plan.complex_points() / R;
  root_inverse_pass<R>(F, stride, stride, fft_first_powers(R), plan.tables->root(1, 0)[0][0]);
}

void last_pass(const FftPlan& plan, double* F) {
  if (plan.first_radix() == 1) return;
  with_constant<2, 3, 4, 5, 8>(plan.first_radix(), [&](auto radix) { small_last_pass<radix>(plan, F); });
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

/// Packs all points into `fields` in eight runs; returns the largest rounding error.
double pack_small(const FftPlan& plan, const double* F, u8* fields) {
  const Packing p(plan);
  const u64 steps = plan.points() / (8 * kRuns), bytes = steps * p.w;
  alignas(64) u64 kept[3 * kRuns], leaving[kRuns + 1];
  leaving[0] = 0;
  Rounding rounding;
  for (u32 s = 0; s < kRuns; s += L) {
    // Runs 0 to 3 are real parts, 4 to 7 imaginary parts.
    const double* run[L];
    u8* out[L];
    for (u32 l = 0; l < L; ++l) {
      run[l] = F + (s + l) % 4 * steps * kPointGroup + (s + l) / 4 * L;
      out[l] = fields + (s + l) * bytes;
    }
    U64 carry = U64::all(0);
    pack_runs(run, steps, p, carry, out, kept + s, rounding);
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
    return rounding.largest();
  u64 carry = 0;
  for (u32 s = 0; s < kRuns; ++s) {
    u8* out = fields + s * bytes;
    const FftFirstStep step({kept[s], kept[kRuns + s], kept[2 * kRuns + s]}, p.w, carry);
    store_first(out, p.w, step.word[0], step.word[1], step.word[2]);
    u64 on = step.leaving;
    for (u64 i = p.w; on && i < bytes; ++i) on = ++out[i] == 0;
    carry = leaving[s + 1] + on;
  }
  return rounding.largest();
}

double finish(const FftPlan& plan, double* F, FftWindow window, u8* fields) {
  last_pass(plan, F);
  const double error = pack_small(plan, F, fields);
  __builtin_memcpy(window.target, fields + window.begin, window.end - window.begin);
  return error;
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
double blocked_last_stage(const FftPlan& plan, const double* F, FftWindow window, u64 chunk_begin,
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
  Rounding rounding;
  for (u64 c = chunk_begin; c < chunk_end; ++c) {
    for (u32 i = 0; i < R; ++i)
      node_pass<Direction::kInverse, kFftSecondRadix>(
          F + i * kFftSecondRadix * stream * kPointGroup + c * row, stream * kPointGroup,
          chunk + i * kFftSecondRadix * row, row, row, second_twiddles(plan, i));
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
        pack_runs(run, groups, p, carry, out, c == chunk_begin ? &group.first[0][s] : nullptr, rounding);
        carry.store(group.carry + s);
      }
      targets.end(c == chunk_begin ? p.w : 0, group);
    }
  }
  return rounding.largest();
}

double last_stage(const FftPlan& plan, const double* F, FftWindow window, u64 chunk_begin, u64 chunk_end,
                  const FftStageWork& work) {
  double error = 0;
  with_constant<8, 3, 5>(plan.first_radix(), [&](auto radix) {
    error = blocked_last_stage<radix>(plan, F, window, chunk_begin, chunk_end, work);
  });
  return error;
}

}  // namespace
}  // namespace orl::SIMD_ISA
