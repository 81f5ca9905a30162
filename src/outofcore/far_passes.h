// Products of numbers on disks in two or three passes: the passes at work, as pass_shape.h cuts them.
//
// Memory    a pass takes PassShape::memory_bytes from the begin of what it is given; nothing outlives it.
// Overlap   transfers are under way while a part is worked on: the next stripe or batch comes in, the one before goes out.
// Proof     every word that is read or made is summed up, in whatever order it comes. Residues have no sums: an error in
//           them shows in the product's.
// Faults    of disks come out of the pass that met them, as exceptions; so does a coefficient that cannot be right.
#pragma once

#include "core/status.h"
#include "outofcore/pass_shape.h"
#include "outofcore/product_proof.h"
#include "outofcore/product_runs.h"
#include "outofcore/swap_number.h"

namespace orl {

/// The passes of one shape.
class FarPasses {
 public:
  /// `ram` holds shape.memory_bytes; `transform` is of shape.shape. The innermost frame of `status` shows the progress of each
  /// pass.
  FarPasses(const FarTransform& transform, const PassShape& shape, LinearHeapBuffer ram,
            ParallelContext parallel, StatusNode& status)
      : transform_(transform), shape_(shape), ram_(ram), parallel_(parallel), status_(status) {}

  /// The operand's residues, with all levels that rows have not, to `residues` of shape.residue_bytes(). Adds the operand's
  /// words to `read`.
  void forward(const SwapNumber& operand, WordSums& read, FarMemory& residues) const;
  /// The product of what forward() left in both, which may be one, takes the place of the first.
  void multiply(FarMemory& residues, FarMemory& other) const;
  /// The words of what multiply() left, given to `proof` before they are stored; sets the number's hash. The levels back are
  /// made in place. True for a product modulo W^n + 1 that is W^n: its words are zero.
  bool back(FarMemory& residues, ProductProof& proof, const ProductTarget& target) const;

 private:
  enum class Direction : u8 { kForward, kBack };

  // `done` of `all` steps of a pass.
  void show(u64 done, u64 all) const {
    status_.set_progress(static_cast<double>(done) / static_cast<double>(all));
  }
  void columns_within(FarMemory& residues, Direction direction) const;
  FarStripe outer(u64 begin, u64 width) const { return {{}, shape_.levels, begin, width}; }

  const FarTransform& transform_;
  const PassShape shape_;
  LinearHeapBuffer ram_;
  ParallelContext parallel_;
  StatusNode& status_;
};

}  // namespace orl
