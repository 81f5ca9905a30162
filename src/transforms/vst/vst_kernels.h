// The vector kernels of the algorithm "VST", one table a target, and the plan they read.
//
// Sequence j, j < k, holds a polynomial modulo x^M - w^j, M = 2^n and w of order k. A node of a transform is
// a polynomial modulo x^m - t; node i of level l splits by the square root of t, s[i] w^(j / 2^(l + 1)), into
// 2 i (x^(m/2) minus the root) and 2 i + 1 (plus the root). Products modulo x^(k M) + 1 have x^M + w^j in
// place of x^M - w^j: their transforms begin at node 1 of a level 0 instead of node 0. Transforms end at
// polynomials of four terms, which are multiplied as such. Every kernel takes all primes of a row, or of
// eight tiles of 64 points, before it goes to the next.
#pragma once

#include "simd/target.h"
#include "transforms/c17/residue_kernels.h"
#include "transforms/vst/vst_tables.h"

namespace orl {

/// What kernels read of one multiplication.
struct VstPlan {
  VstShape shape;
  ResiduePlan primes;  ///< set and moduli; roots are null
  u32 root;            ///< the first node: 0, or 1 for products modulo x^(k M) + 1
  VstRoots roots[kMaxResiduePrimes];
  u8 exponent[7][48];  ///< of w, by sequence and level

  /// The node of subtree `child` at its level.
  u64 node(u64 child) const { return (u64{root} << shape.a) + child; }
  /// First double of subtree `child` of sequence j.
  u64 child(u64 j, u64 child) const {
    return (j * shape.children() + child) * shape.stride(shape.child_levels()) * shape.row_doubles();
  }
};

/// What kernels read for a shape and ring, but for the roots.
VstPlan vst_plan(const VstShape& shape, ProductRing ring);

/// One instruction set's stages.
struct VstKernels {
  const char* name;
  /// Columns of rows [begin, end) of each child: residues of the operand's points, the odd factor's butterfly
  /// and the first `a` levels.
  void (*first_stage)(const VstPlan&, double* F, OperandBytes a, u64 begin, u64 end);
  /// Subtree `child` of sequence j: its transform, and its product with the same subtree of G (which may be
  /// F), brought back. `state` is that of both.
  void (*forward)(const VstPlan&, double* F, u32 j, u64 child);
  void (*product)(const VstPlan&, double* F, double* G, OperandState state, u32 j, u64 child);
  /// The way back of first_stage, to residues within 8 p that are still to be scaled.
  void (*last_stage)(const VstPlan&, double* F, u64 begin, u64 end);
};

/// The kernels that a target runs.
const VstKernels& vst_kernels(simd::Target target);

}  // namespace orl
