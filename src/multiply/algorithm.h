// The front of all large multiplication: what a multiplication algorithm is, to its callers.
//
// An Algorithm is a static object. Asked for a product size it gives a Parameters, the shape of one
// multiplication, built in place into a ParametersBox (no allocation). A multiplication takes
// 2 * transform_size + scratch_size bytes: first transform, second transform, working scratch.
//
// Word types   everything here speaks of 32-bit words, in views (words/word_view.h) to which arrays of 64-bit
//              words convert with doubled counts. An algorithm with kernels of its own for 64-bit words
//              (Basecase/Karatsuba) has an instance for them, whose views are of such arrays.
// Planning     sizes() and a Parameters built without tables can be asked for sizes; only running needs
//              tables.
// Threads      Algorithm and Parameters are immutable and may be shared; scratch belongs to one product.
#pragma once

#include <array>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "core/types.h"
#include "core/uncopied.h"
#include "memory/linear_buffer.h"
#include "threads/parallelizer.h"
#include "words/word_view.h"

namespace orl {

/// One family's twiddle or root tables.
struct FamilyTables {
  virtual ~FamilyTables() = default;
};

/// The shared tables of a computation: one FamilyTables per family, cut from one block that is allocated
/// once. Grown by ensure_tables only while no multiplication runs; read-only otherwise.
class TransformTables : Uncopied {
 public:
  /// Tables will be cut from `memory`, which the caller owns and keeps alive.
  explicit TransformTables(LinearHeapBuffer memory) : memory_(memory) {}

  LinearHeapBuffer& memory() { return memory_; }
  /// Null when the family has no tables yet.
  const FamilyTables* find(std::string_view family_id) const;
  FamilyTables* find(std::string_view family_id);
  void put(std::string_view family_id, std::unique_ptr<FamilyTables> tables);

 private:
  LinearHeapBuffer memory_;
  std::vector<std::pair<std::string_view, std::unique_ptr<FamilyTables>>> families_;
};

/// What every product needs beside its operands.
struct MultiplyContext {
  ParallelContext parallel;
  const TransformTables& tables;
  LinearHeapBuffer scratch;

  /// This context with other scratch.
  MultiplyContext with_scratch(LinearHeapBuffer buffer) const { return {parallel, tables, buffer}; }
};

/// Bytes of one multiplication.
struct MultiplySizes {
  u64 transform_bytes = 0;
  u64 scratch_bytes = 0;
  u64 total_bytes() const { return 2 * transform_bytes + scratch_bytes; }
  u64 square_bytes() const { return transform_bytes + scratch_bytes; }
};

/// Bytes of a multiplication: what its product, and its square, may take.
struct ProductSizes {
  u64 product_bytes = 0;
  u64 square_bytes = 0;
};

/// Where a product of two operands finds its transforms and its working scratch. G is F for a square.
struct TransformAreas {
  void* F;
  void* G;
  void* tmp;
};

/// The two rings of wrapped products, for words W = 2^32: modulo W^n - 1, and modulo W^n + 1.
enum class Wrap : u8 { cyclic, negacyclic };

/// Products modulo W^n - 1 and W^n + 1, W = 2^32, of a shape that has them. The transforms of the two rings
/// do not mix with each other or with Parameters::forward(). tmp holds scratch_size() bytes of the shape.
class WrappedProducts {
 public:
  u64 words() const { return words_; }  ///< n

  /// Transforms A, of n words at most, for products modulo W^n - 1.
  void forward_cyclic(void* F, Words<u32> A, void* tmp, ParallelContext parallel) const {
    forward_wrapped(Wrap::cyclic, F, A, tmp, parallel);
  }
  /// T[0, n) = the product of what F and G transform modulo W^n - 1, where W^n - 1 itself stands for 0 too. F
  /// is destroyed, G (which may be F) kept otherwise. T may lie in G's memory unless G is F; G is lost then.
  void pointwise_cyclic(void* F, const void* G, u32* T, void* tmp, ParallelContext parallel) const {
    pointwise_wrapped(Wrap::cyclic, F, G, T, tmp, parallel);
  }
  /// Transforms A, of n words at most, for products modulo W^n + 1.
  void forward_negacyclic(void* F, Words<u32> A, void* tmp, ParallelContext parallel) const {
    forward_wrapped(Wrap::negacyclic, F, A, tmp, parallel);
  }
  /// pointwise_cyclic() modulo W^n + 1. True when the product is W^n, whose words T then holds: all zero.
  bool pointwise_negacyclic(void* F, const void* G, u32* T, void* tmp, ParallelContext parallel) const {
    return pointwise_wrapped(Wrap::negacyclic, F, G, T, tmp, parallel);
  }

  /// The operations above, by ring; what pointwise_wrapped returns in the cyclic one means nothing.
  virtual void forward_wrapped(Wrap ring, void* F, Words<u32> A, void* tmp,
                               ParallelContext parallel) const = 0;
  virtual bool pointwise_wrapped(Wrap ring, void* F, const void* G, u32* T, void* tmp,
                                 ParallelContext parallel) const = 0;
  /// T[0, n) = A * B in the ring, for operands that nobody transformed, and what pointwise_wrapped returns:
  /// in fewer sweeps where the family can. The transforms are lost; areas.G is areas.F when A is B. A may lie
  /// in G's memory, and T as above.
  virtual bool product_wrapped(Wrap ring, const TransformAreas& areas, Words<u32> A, Words<u32> B, u32* T,
                               ParallelContext parallel) const;

 protected:
  ~WrappedProducts() = default;
  u64 words_ = 0;
};

/// The shape of one multiplication. Word arrays are least significant word first. tmp holds scratch_size()
/// bytes everywhere.
class Parameters : Uncopied {
 public:
  virtual ~Parameters() = default;

  u64 max_bits() const { return max_bits_; }              ///< largest product
  u64 transform_size() const { return transform_size_; }  ///< bytes of one forward transform
  u64 scratch_size() const { return scratch_size_; }      ///< bytes of working scratch
  MultiplySizes sizes() const { return {transform_size_, scratch_size_}; }

  /// Forward transform of A into F. Throws ConvolutionTooSmallException "Convolution length is too small."
  /// when A does not fit.
  virtual void forward(void* F, Words<u32> A, void* tmp, ParallelContext parallel) const = 0;
  /// The window of the square of what F transforms; F is destroyed.
  virtual void inverse_fsqr(void* F, Window<u32> T, void* tmp, ParallelContext parallel) const = 0;
  /// The window of the product of what F and G transform; F is destroyed, G kept.
  virtual void inverse_fmul(void* F, const void* G, Window<u32> T, void* tmp,
                            ParallelContext parallel) const = 0;

  /// True when a forward transform made with one can be used with the other.
  virtual bool compatible(const Parameters& other) const = 0;

  /// n, in u32 words, when forward and inverse_fmul also make middle products of operands of up to n words
  /// whose product is longer; 0 when they do not. What such a product has above n words falls on its lowest
  /// ones and spoils them and 66 bits above; the words over these, up to n, are the product's but for a unit
  /// of the lowest of them that is asked for. One operand must have at most n / 2 words.
  u64 folding_words() const { return folding_words_; }

  /// The shape's wrapped products; null when it has none.
  const WrappedProducts* wrapped() const { return wrapped_; }
  /// Their length in u32 words, 0 when there are none.
  u64 cyclic_words() const { return wrapped_ ? wrapped_->words() : 0; }

 protected:
  u64 max_bits_ = 0;
  u64 folding_words_ = 0;
  u64 transform_size_ = 0;
  u64 scratch_size_ = 0;
  const WrappedProducts* wrapped_ = nullptr;  ///< the object itself, as a rule
};

/// Room for any Parameters object, on the stack or in a plan.
class ParametersBox : Uncopied {
 public:
  ParametersBox() = default;
  ~ParametersBox() { clear(); }

  /// Makes a P in place of what is held.
  template <class P, class... Args>
  P& emplace(Args&&... args) {
    static_assert(sizeof(P) <= kBytes && alignof(P) <= 64);
    clear();
    P* p = new (storage_) P(std::forward<Args>(args)...);
    held_ = p;
    return *p;
  }
  /// Destroys what is held.
  void clear() {
    if (held_) held_->~Parameters();
    held_ = nullptr;
  }
  bool empty() const { return held_ == nullptr; }
  const Parameters& operator*() const { return *held_; }
  const Parameters* operator->() const { return held_; }

 private:
  static constexpr std::size_t kBytes = 320;
  alignas(64) std::byte storage_[kBytes];
  Parameters* held_ = nullptr;
};

/// One multiplication algorithm.
class Algorithm {
 public:
  virtual ~Algorithm() = default;

  u64 max_bits() const { return max_bits_; }  ///< largest product
  const char* id() const { return id_; }
  const char* name() const { return name_; }
  const char* module() const { return module_; }
  const char* variant() const { return variant_; }

  /// Bytes of tables that products up to `bits` need; what ensure_tables cuts from an empty TransformTables.
  virtual u64 table_bytes(u64 bits) const = 0;
  virtual void ensure_tables(TransformTables& tables, u64 bits) const = 0;
  /// Sizes of the shape that a product of `bits` takes. Throws LimitExceededException past max_bits.
  virtual MultiplySizes sizes(u64 bits, u64 tds) const = 0;
  /// Builds that shape. `tables` may be null when only sizes are wanted.
  virtual const Parameters& parameters_for(ParametersBox& out, const TransformTables* tables, u64 bits,
                                           u64 tds) const = 0;

  /// The largest product, in words of the instance's type, that mulB and sqrB of the operands where they lie
  /// make best; 0 when there is none. A table whose smallest products are this algorithm's then calls these.
  virtual u64 schoolbook_words() const { return 0; }
  /// True when a forward transform saves a second product nothing worth having: it is a copy of the operand.
  virtual bool transforms_are_copies() const { return false; }

  /// The window of a square or product; ctx.scratch must hold sizes(...).total_bytes() of the (trimmed)
  /// product, or square_bytes() for a square. The defaults build Parameters and run forward / inverse. T may
  /// not overlap an operand.
  virtual void sqr_window(const MultiplyContext& ctx, Window<u32> T, Words<u32> A) const;
  virtual void mul_window(const MultiplyContext& ctx, Window<u32> T, Words<u32> A, Words<u32> B) const;

  /// What sqr_window and mul_window give, in less memory where the family has products modulo W^n - 1 and
  /// W^n + 1: CRT_mulp at the shape for half the product. Where the shape offers no fitting length, the
  /// product is made by mul_window (a square by sqr_window). Which way is known beforehand, so ctx.scratch
  /// holds bounded_sizes() of the product's bits and the window's, and no more. Where that is less than
  /// sizes(), T may overlap the operands, for which it holds bounded_sizes() of a window of 0 bits.
  void sqr_bounded(const MultiplyContext& ctx, Window<u32> T, Words<u32> A) const;
  void mul_bounded(const MultiplyContext& ctx, Window<u32> T, Words<u32> A, Words<u32> B) const;
  /// Bytes of the bounded forms for a product of exactly `bits` with a window of `window_bits` or more, both
  /// whole words. Never above those of sizes(bits, tds). Throws LimitExceededException past max_bits.
  ProductSizes bounded_sizes(u64 bits, u64 window_bits, u64 tds) const;

 protected:
  Algorithm(u64 max_bits, const char* id, const char* name, const char* module, const char* variant)
      : max_bits_(max_bits), id_(id), name_(name), module_(module), variant_(variant) {}

 private:
  u64 max_bits_;
  const char* id_;
  const char* name_;
  const char* module_;
  const char* variant_;
};

}  // namespace orl
