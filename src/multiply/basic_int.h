// Small strictly positive integers that carry their hash.
//
// BasicInt   a view on words and the operations that need no storage of their own;
// BasicIntR  writes into a buffer that its caller supplies;
// BasicIntO  owns its words.
// Zero and negative values do not exist here and are refused. Every operation checks its capacity first and
// throws BufferTooSmallException with nothing written. Hashes follow from the operands' hashes, never from
// the words of the result, so check_hash() proves the words. Everything runs in the calling thread.
#pragma once

#include "core/types.h"

namespace orl {

template <class W>
class BasicInt {
 public:
  u64 L() const { return L_; }        ///< length in words; the top word is not zero
  u64 size() const { return size_; }  ///< capacity in words
  u64 hash() const { return hash_; }  ///< lazy hash of the value
  const W* words() const { return T_; }
  /// Word i, below length().
  W operator[](u64 i) const { return T_[i]; }

  /// Takes the hash from the words.
  void recompute_hash();
  /// The carried hash less that of the words: canonically 0 when they agree.
  u64 check_hash() const;

  /// A copy of b, of b.L() words.
  void set_BasicInt(const BasicInt& b);
  /// *this -= b. Capacity L() + 1. Throws UnsupportedNegativeException "A negative value was encountered."
  /// and UnsupportedZeroException "Zero was encountered."; the value is then lost. So does set_sub.
  BasicInt& operator-=(const BasicInt& b);
  /// a - b; capacity a.L() + 1. *this may be a or b.
  void set_sub(const BasicInt& a, const BasicInt& b);
  /// a^2 by the schoolbook method; capacity 2 a.L(). *this may not be a.
  void set_sqrB(const BasicInt& a);

 protected:
  BasicInt(W* T, u64 L, u64 size, u64 hash) : T_(T), L_(L), size_(size), hash_(hash) {}
  BasicInt(const BasicInt&) = default;
  BasicInt& operator=(const BasicInt&) = default;
  ~BasicInt() = default;

  void check_size(const char* function, u64 required) const;
  void drop_zero_top() { L_ -= T_[L_ - 1] == 0; }
  void subtract(const char* function, const BasicInt& a, const BasicInt& b);

  W* T_;
  u64 L_;
  u64 size_;
  u64 hash_;
};

template <class W>
class BasicIntR : public BasicInt<W> {
 public:
  /// Room for `size` words, without a value yet.
  BasicIntR(W* T, u64 size) : BasicInt<W>(T, 0, size, 0) {}

  /// One word that is not zero.
  void set_uW(W w);
  /// a + b; capacity of the longer and one word. *this may be a or b.
  void set_add(const BasicInt<W>& a, const BasicInt<W>& b);
  /// a * b by the schoolbook method; capacity a.L() + b.L(). *this may be neither.
  void set_mulB(const BasicInt<W>& a, const BasicInt<W>& b);
};

/// Where a BasicIntO gets its words.
class WordAllocator {
 public:
  virtual ~WordAllocator() = default;
  /// As malloc and free.
  virtual void* allocate(u64 bytes) = 0;
  virtual void release(void* allocation) = 0;
};
/// 64-byte aligned blocks between guard words.
WordAllocator& aligned_word_allocator();

template <class W>
class BasicIntO : public BasicIntR<W> {
 public:
  /// Capacity 4. Throws UnsupportedZeroException "Zero was encountered.".
  explicit BasicIntO(u64 value, WordAllocator& allocator = aligned_word_allocator());
  /// A copy with capacity b.L() + 2.
  explicit BasicIntO(const BasicInt<W>& b, WordAllocator& allocator = aligned_word_allocator());
  BasicIntO(const BasicIntO& b) : BasicIntO(static_cast<const BasicInt<W>&>(b), *b.allocator_) {}
  BasicIntO(BasicIntO&& b) noexcept;
  BasicIntO& operator=(BasicIntO b) noexcept;
  ~BasicIntO();

  /// Divides in place by w and returns the remainder. A value below w leaves L() 0, the end of a loop that
  /// takes digits off. Throws ArithmeticException "Divide by zero.".
  W div(W w);

 private:
  void* allocation_;
  WordAllocator* allocator_;
};

}  // namespace orl
