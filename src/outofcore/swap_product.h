// Products of numbers on disks: the front of all schemes.
//
//   const SwapPlan plan = plan_swap_product(&family, whole_product(a.words(), b.words()), budget);
//   SwapNumber c(disk, plan.wanted_words(), "orv_R.sf");
//   swap_multiply(plan, {family, run}, {a, &b}, c);
//
// Proof    every product ends in AlgorithmFailedException or ConvolutionFailedException when a bit has changed on its way
//          (outofcore/product_proof.h); c is then worthless.
// Overlap  transfers run on the array's threads while the caller computes, whatever framework and however many threads.
// Faults   fault_point sites "swap operand" (words as loaded), "swap residues" (packed residues as loaded), "swap
//          transform" (a transform in memory) and "swap product" (words before they are hashed).
#pragma once

#include "core/status.h"
#include "outofcore/product_proof.h"
#include "outofcore/swap_number.h"
#include "outofcore/swap_plan.h"

namespace orl {

/// What a product runs in.
struct SwapRun {
  ParallelContext parallel;
  SwapDescriptor& disk;
  LinearHeapBuffer memory;  ///< plan.memory_bytes at least; multiples of 4096 are best
  StatusNode& status;
};

/// The second operand of several products, transformed once and kept on the disks, by a plan whose request says so. Schemes in
/// passes take the transforms as they are, in place of reading the number and storing them anew; the others read the number
/// again, which moves less.
class SwapKept : Uncopied {
 public:
  /// Bytes on the disks beside the number: none by a plan that is not in passes.
  static u64 disk_bytes(const SwapPlan& plan);
  /// Takes what a product by the plan takes. A null name: one that nobody needs to know.
  SwapKept(const SwapPlan& plan, const FarFamily* family, const SwapRun& run, const SwapNumber& number,
           const char* name = nullptr);

  const SwapNumber& number() const { return number_; }
  /// Null where the scheme does not keep them.
  FarMemory* residues() const { return residues_.get(); }
  /// What the number was read as.
  const WordSums& read() const { return read_; }
  /// Whether products by `plan` may take this.
  bool serves(const SwapPlan& plan) const;

 private:
  SwapNumber number_;
  SwapPlan plan_;
  std::optional<RingCheck> ring_;
  WordSums read_;
  std::unique_ptr<PersistentMemory> residues_;
};

/// The operands; b is null for a square. Where the request says so, `kept` is the second one, and b its number.
struct SwapOperands {
  const SwapNumber& a;
  const SwapNumber* b = nullptr;
  const SwapKept* kept = nullptr;

  bool square() const { return b == nullptr; }
};

/// What the stages of a product are called on the status line, and the files of its operands' residues.
struct SwapNames {
  const char* forward[2] = {"CRT-F: ", "CRT-F: "};
  const char* multiply = "CRT-I: ";
  const char* inverse = "CRT-I: ";
  const char* file[2] = {"orv_Ta.sf", "orv_Tb.sf"};
};

/// A product on its way through a scheme.
struct SwapWork {
  const SwapPlan& plan;
  const FarFamily* family;  ///< null for the schemes in memory
  SwapRun run;              ///< its memory is what the scheme cuts from
  SwapOperands operands;
  ProductProof& proof;
  ProductSink& sink;
  SwapNames names = {};
};

/// One scheme, on what swap_multiply() has checked and cut.
bool run_swap_scheme(const SwapWork& work);

/// Hands the words of the product to `sink`, proved when the call returns. True for a product modulo W^n + 1 that is W^n:
/// its words are zero. Throws InvalidParametersException when operands or memory are not those of the plan, and
/// "Truncated Range:" under the given names when the product has not the words that are wanted.
bool swap_multiply(const SwapPlan& plan, const FarFamily* family, const SwapRun& run,
                   const SwapOperands& operands, ProductSink& sink);
/// swap_multiply() to a number of plan.wanted_words() words.
bool swap_multiply(const SwapPlan& plan, const FarFamily* family, const SwapRun& run,
                   const SwapOperands& operands, SwapNumber& product);

/// Products that each scheme has made since the process began.
u64 swap_products(SwapScheme scheme);

}  // namespace orl
