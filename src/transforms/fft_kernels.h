// The passes of the floating-point FFT, compiled once per instruction set.
//
// Layout   complex point j of a transform lies in group j / lanes: `lanes` real parts, then `lanes` imaginary
//          parts. Bottom blocks of 64 points are left transposed by the forward pass, as the inverse expects.
// Values   every instruction set rounds alike, so transforms are equal but for the layout.
#pragma once

#include "frame/types.h"
#include "simd/target.h"
#include "transforms/fft_twiddles.h"

namespace orl {

/// What the passes of one shape need: k * 2^levels bottom blocks, w bits a point, and the tables.
struct FftPlan {
  u32 k;
  u32 levels;  ///< halvings between a root of the odd factor and its bottom blocks
  u32 w;
  const FftTables* tables;

  u64 blocks() const { return u64{k} << levels; }
  u64 complex_points() const { return blocks() * kFftBlockPoints; }
  u64 points() const { return 2 * complex_points(); }
  /// Bytes of all points' bits.
  u64 field_bytes() const { return points() / 8 * w; }
};

struct FftKernels {
  const char* name;
  u32 lanes;

  /// Cuts field_bytes() of words into points and writes the transform. 32 bytes behind them are read.
  void (*forward)(const FftPlan& plan, double* F, const u8* fields);
  /// Squares F pointwise, or multiplies it by G, and transforms back without scaling.
  void (*inverse_square)(const FftPlan& plan, double* F);
  void (*inverse_multiply)(const FftPlan& plan, double* F, const double* G);
  /// Scales, rounds, carries and packs field_bytes() of words; 32 bytes behind them are clobbered. Returns
  /// the carry out of the top point.
  u64 (*pack)(const FftPlan& plan, const double* F, u8* fields);
  /// Largest distance of a scaled result from an integer; for tests of the error bound.
  double (*rounding_error)(const FftPlan& plan, const double* F);
};

/// The kernels of a target. A target that this machine cannot run must not be asked for.
const FftKernels& fft_kernels(simd::Target target);

}  // namespace orl
