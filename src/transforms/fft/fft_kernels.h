// The stages of the floating-point FFT, compiled once per instruction set.
//
// Layout   complex point j of a transform lies in group j / lanes: `lanes` real parts, then `lanes` imaginary
//          parts. Bottom blocks of 64 points are left transposed by the forward stages, as the inverse expects.
// Values   every instruction set rounds alike, so transforms are equal but for the layout.
// Threads  a kernel touches what its arguments name: chunks of columns or one branch.
#pragma once

#include <type_traits>

#include "core/types.h"
#include "simd/target.h"
#include "transforms/fft/fft_plan.h"

namespace orl {

/// The words of an operand, as bytes; what lies behind them counts as zero.
struct FftOperand {
  const u8* bytes;
  u64 count;
};

/// Bytes [begin, end) of a product, for target[0, end - begin).
struct FftWindow {
  u8* target;
  u64 begin, end;
};

/// Words are packed in runs of consecutive points with a carry of their own. The first eight points of a run
/// are kept back as 8 w bits, for they receive the carry of the run before. Eight runs of a blocked transform,
/// those of the second pass over one part of the first, are packed side by side.
struct FftRunGroup {
  alignas(64) u64 carry[kFftSecondRadix];  ///< out of what has been packed, at last out of the run
  u64 first[3][kFftSecondRadix];           ///< word by run
  /// Whether all bits behind `first` and below the window are ones: carries pass.
  bool dropped_ones[kFftSecondRadix];
  double error;  ///< of the first group of a task: the largest of its rounding
};

/// What a task of the first or last stage of a blocked transform works in.
struct FftStageWork {
  double* chunk;        ///< chunk_doubles(plan) of them: a chunk of columns
  FftRunGroup* groups;  ///< group_count(plan) of them: those of the real parts, then of the imaginary parts

  /// Doubles of a chunk: the 16 of each group in each branch.
  static u64 chunk_doubles(const FftPlan& plan) { return plan.branches() * plan.chunk_groups() * 16; }
  /// One group for each run of the first stage, of real and of imaginary parts.
  static u64 group_count(const FftPlan& plan) { return 2 * plan.first_radix(); }
};

/// What a branch is asked for. The `convolve` forms begin with the forward transform; convolve_multiply
/// transforms the branch of G as well.
enum class FftStep { forward, square, multiply, convolve_square, convolve_multiply };

/// The stages of a transform, compiled for one instruction set of `lanes` doubles.
struct FftKernels {
  const char* name;
  u32 lanes;

  /// Unpacks an operand and runs the first stage: all of it for a small transform, chunks [chunk_begin,
  /// chunk_end) of columns for a blocked one, by way of `chunk`, which holds FftStageWork::chunk_doubles.
  void (*first_stage)(const FftPlan& plan, double* F, FftOperand a, u64 chunk_begin, u64 chunk_end,
                      double* chunk);
  /// The step on branches [begin, end). G is changed by convolve_multiply only.
  void (*branches)(const FftPlan& plan, FftStep step, double* F, double* G, u32 begin, u32 end);

  // Both last stages return the largest distance of a coefficient from the integer that it was rounded to, or
  // infinity when one was no number or 2^51 and more.

  /// Last stage of a small transform: destroys F. `fields` holds field_bytes() + kFftFieldSlack bytes.
  double (*finish)(const FftPlan& plan, double* F, FftWindow window, u8* fields);
  /// Last stage of a blocked transform: packs chunks [chunk_begin, chunk_end) of columns, a run each stream,
  /// up to the carries between runs.
  double (*last_stage)(const FftPlan& plan, const double* F, FftWindow window, u64 chunk_begin, u64 chunk_end,
                       const FftStageWork& work);
};

/// Bytes behind packed fields that kernels may write.
inline constexpr u64 kFftFieldSlack = 64;

/// The kernels of a target, which this machine must be able to run.
const FftKernels& fft_kernels(simd::Target target);

/// The sum of a run's first eight fields and a carry.
struct FftFirstStep {
  u64 word[3];
  u64 leaving;  ///< what does not fit in 8 w bits

  /// `first` holds the words of the sum without the carry, fields of w bits each.
  FftFirstStep(const u64 (&first)[3], u32 w, u64 carry) {
    u128 sum = carry;
    for (u32 i = 0; i < 3; ++i) {
      sum += first[i];
      word[i] = static_cast<u64>(sum);
      sum >>= 64;
    }
    leaving = word[w / 8] >> (w % 8 * 8);
  }
};

}  // namespace orl
