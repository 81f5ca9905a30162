// The vector kernels of the residue transforms, one table a target, and the plan they read.
//
// A transform is, for each prime, k sequences of M = 2^n doubles, one after the other, each cut into subtrees
// with gaps between them (residue_shape.h). Sequence j holds the polynomial modulo x^M - 1 that Good and
// Thomas' map gives it, so all k share one twiddle table. A node of the transform is a polynomial modulo x^m
// - t; node j splits by the square root s[j] of t into 2 j (x^(m/2) - s) and 2 j + 1 (x^(m/2) + s).
// Transforms end at polynomials of eight terms, which are multiplied as such.
#pragma once

#include "simd/target.h"
#include "transforms/c17/residue_join.h"
#include "transforms/c17/residue_primes.h"
#include "transforms/c17/residue_shape.h"
#include "transforms/c17/residue_tables.h"

namespace orl {

/// A prime, as kernels see it.
struct ResidueModulus {
  double p;
  double inverse;
  ResidueRoots roots;
  ResidueFactor scale;       ///< what a finished inverse is multiplied by: 8 / (k M) times the CRT factor
  const ResidueFactor* odd;  ///< powers of a root of order k
};

/// What kernels read of one multiplication.
struct ResiduePlan {
  ResidueRow row;
  ProductRing ring;
  const ResidueSet* set;
  ResidueModulus modulus[kMaxResiduePrimes];

  u64 length() const { return u64{1} << row.n; }
  bool negacyclic() const { return ring == ProductRing::kNegacyclic; }
  /// Node 0 is the sequence modulo x^M - 1, node 1 modulo x^M + 1.
  u64 first_node() const { return negacyclic(); }
  /// Levels of the first and of the last stage; then subtrees of columns() points remain.
  u32 levels() const { return residue_stage_levels(row.n); }
  u64 rows() const { return u64{1} << levels(); }
  u64 columns() const { return length() >> levels(); }
  /// Doubles from a subtree, or a sequence, to the next.
  u64 subtree_stride() const { return residue_subtree_stride(row); }
  u64 sequence_stride() const { return rows() * subtree_stride(); }
  /// Columns of a tile: all sequences of a tile stay in L2, those of one sequence in L1 where k allows.
  u64 tile_columns() const { return residue_tile_columns(row); }
};

/// What kernels read for a shape and ring. Throws InvalidParametersException when `tables` do not serve the row.
ResiduePlan residue_plan(const ResidueRow& row, ProductRing ring, const ResidueTables* tables);
/// Throws ConvolutionFailedException under `id` when a coefficient of one of these runs of a product is out of range.
void check_residue_runs(const char* id, const ResidueRow& row, ProductRing ring, const ResidueJoinRun* runs,
                        u64 count);

/// One subtree in each of several sequences of a prime, `apart` doubles from one to the next.
struct ResidueSubtrees {
  u64 points, node;
  u64 count, apart;
  s64 ahead;    ///< from the last one to what comes next, 0 at the end
  void* roots;  ///< room for residue_roots_bytes(points), aligned to 64 bytes
};

/// One instruction set's stages.
struct ResidueKernels {
  const char* name;
  /// Words to residues, the odd factor, and the first levels() of columns [begin, end) (multiples of 8) of
  /// every sequence of every prime. `tile` holds residue_tile_bytes().
  void (*first_stage)(const ResiduePlan&, double* F, OperandBytes a, u64 begin, u64 end, double* tile);
  /// Subtrees of x forward.
  void (*forward)(const ResidueModulus&, const ResidueSubtrees&, double* x);
  /// Forward of both when only started, product, inverse. g, which may be x, is changed only by the former.
  void (*multiply)(const ResidueModulus&, const ResidueSubtrees&, double* x, double* g, OperandState state);
  /// The last levels of columns [begin, end), the odd factor's inverse, scale and join: the points of row j
  /// of the columns of output t, from t M + j columns() + begin on, go to run (t rows() + j) of every
  /// `stride`-th. F is destroyed.
  void (*last_stage)(const ResiduePlan&, double* F, u64 begin, u64 end, double* tile, ResidueJoinRun* runs,
                     u64 stride);
  /// Scales and joins the next `count` points (a multiple of 8) of a run. Residues of prime r of them stand
  /// at x + r * stride, lazy (|x| <= 15 * 2^48); they are only read.
  void (*join)(const ResiduePlan&, const double* x, u64 stride, u64 count, ResidueJoinRun& run);
};

/// The kernels that a target runs.
const ResidueKernels& residue_kernels(simd::Target target);

}  // namespace orl
