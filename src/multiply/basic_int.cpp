#include "multiply/basic_int.h"

#include <algorithm>
#include <utility>

#include "core/exceptions.h"
#include "memory/aligned_malloc.h"
#include "multiply/basecase.h"
#include "words/hash.h"
#include "words/word_loops.h"
#include "words/words.h"

namespace orl {
namespace {

[[noreturn]] void throw_zero(const char* function) {
  throw UnsupportedZeroException(function, "Zero was encountered.");
}
[[noreturn]] void throw_negative(const char* function) {
  throw UnsupportedNegativeException(function, "A negative value was encountered.");
}

constexpr u64 kInitialWords = 4;
constexpr u64 kSpareWords = 2;

}  // namespace

template <class W>
void BasicInt<W>::recompute_hash() {
  hash_ = bp_hash(0, T_, L_);
}

template <class W>
u64 BasicInt<W>::check_hash() const {
  return hash_sub(hash_, bp_hash(0, T_, L_));
}

template <class W>
void BasicInt<W>::check_size(const char* function, u64 required) const {
  if (size_ < required) throw BufferTooSmallException(function, size_, required);
}

template <class W>
void BasicInt<W>::set_BasicInt(const BasicInt& b) {
  check_size("BasicInt::set_BasicInt()", b.L_);
  if (T_ != b.T_) bp_copy(T_, b.T_, b.L_);
  L_ = b.L_;
  hash_ = b.hash_;
}

// A 1 above the top is lost exactly when the difference is negative.
template <class W>
void BasicInt<W>::subtract(const char* function, const BasicInt& a, const BasicInt& b) {
  if (a.L_ < b.L_) throw_negative(function);
  check_size(function, a.L_ + 1);
  const u64 length = a.L_;
  const u64 hash = hash_sub(a.hash_, b.hash_);
  const W* const low = a.T_;
  const u64 common = b.L_;
  const W borrow = bp_sub(T_, low, b.T_, common);
  if (T_ != low) bp_copy(T_ + common, low + common, length - common);
  T_[length] = 1;
  if (borrow) bp_carry<W>(-1, T_ + common, length + 1 - common);
  if (T_[length] == 0) throw_negative(function);
  L_ = bp_strip<W>(0, T_, length);
  if (L_ == 0) throw_zero(function);
  hash_ = hash;
}

template <class W>
BasicInt<W>& BasicInt<W>::operator-=(const BasicInt& b) {
  subtract("BasicInt::operator-=()", *this, b);
  return *this;
}

template <class W>
void BasicInt<W>::set_sub(const BasicInt& a, const BasicInt& b) {
  subtract("BasicInt::set_sub()", a, b);
}

template <class W>
void BasicInt<W>::set_sqrB(const BasicInt& a) {
  check_size("BasicInt::set_sqrB()", 2 * a.L_);
  sqrB(T_, a.T_, a.L_);
  L_ = 2 * a.L_;
  drop_zero_top();
  hash_ = hash_mul(a.hash_, a.hash_);
}

template <class W>
void BasicIntR<W>::set_uW(W w) {
  if (w == 0) throw_zero("BasicIntR::set_uW()");
  this->check_size("BasicIntR::set_uW()", 1);
  this->T_[0] = w;
  this->L_ = 1;
  this->hash_ = hash_fold(u64{w});
}

template <class W>
void BasicIntR<W>::set_add(const BasicInt<W>& a, const BasicInt<W>& b) {
  const BasicInt<W>& high = a.L() >= b.L() ? a : b;
  const BasicInt<W>& low = a.L() >= b.L() ? b : a;
  const u64 length = high.L();
  const u64 common = low.L();
  this->check_size("BasicIntR::set_add()", length + 1);
  const u64 hash = hash_add(a.hash(), b.hash());
  W* const T = this->T_;
  const W carry = bp_add(T, high.words(), low.words(), common);
  if (T != high.words()) bp_copy(T + common, high.words() + common, length - common);
  T[length] = 0;
  if (carry) bp_carry<W>(1, T + common, length + 1 - common);
  this->L_ = length + 1;
  this->drop_zero_top();
  this->hash_ = hash;
}

template <class W>
void BasicIntR<W>::set_mulB(const BasicInt<W>& a, const BasicInt<W>& b) {
  this->check_size("BasicIntR::set_mulB()", a.L() + b.L());
  mulB(this->T_, a.words(), a.L(), b.words(), b.L());
  this->L_ = a.L() + b.L();
  this->drop_zero_top();
  this->hash_ = hash_mul(a.hash(), b.hash());
}

WordAllocator& aligned_word_allocator() {
  static class : public WordAllocator {
   public:
    void* allocate(u64 bytes) override { return aligned_malloc(bytes, 64); }
    void release(void* allocation) override { aligned_free(allocation); }
  } allocator;
  return allocator;
}

template <class W>
BasicIntO<W>::BasicIntO(u64 value, WordAllocator& allocator)
    : BasicIntR<W>(nullptr, kInitialWords), allocation_(nullptr), allocator_(&allocator) {
  if (value == 0) throw_zero("BasicIntO::BasicIntO()");
  allocation_ = allocator.allocate(kInitialWords * sizeof(W));
  this->T_ = static_cast<W*>(allocation_);
  this->L_ = 1;
  this->T_[0] = static_cast<W>(value);
  if constexpr (sizeof(W) == 4) {
    this->T_[1] = static_cast<W>(value >> 32);
    this->L_ = this->T_[1] ? 2 : 1;
  }
  this->hash_ = hash_fold(value);
}

template <class W>
BasicIntO<W>::BasicIntO(const BasicInt<W>& b, WordAllocator& allocator)
    : BasicIntR<W>(nullptr, b.L() + kSpareWords),
      allocation_(allocator.allocate(this->size_ * sizeof(W))),
      allocator_(&allocator) {
  this->T_ = static_cast<W*>(allocation_);
  this->set_BasicInt(b);
}

template <class W>
BasicIntO<W>::BasicIntO(BasicIntO&& b) noexcept
    : BasicIntR<W>(b), allocation_(std::exchange(b.allocation_, nullptr)), allocator_(b.allocator_) {
  b.T_ = nullptr;
  b.L_ = b.size_ = 0;
}

template <class W>
BasicIntO<W>& BasicIntO<W>::operator=(BasicIntO b) noexcept {
  BasicIntR<W>& mine = *this;
  BasicIntR<W>& theirs = b;
  std::swap(mine, theirs);
  std::swap(allocation_, b.allocation_);
  std::swap(allocator_, b.allocator_);
  return *this;
}

template <class W>
BasicIntO<W>::~BasicIntO() {
  if (allocation_) allocator_->release(allocation_);
}

template <class W>
W BasicIntO<W>::div(W w) {
  if (w == 0) throw ArithmeticException("BasicIntO::div()", "Divide by zero.");
  W remainder = 0;
  for (u64 i = this->L_; i-- > 0;) this->T_[i] = word_loops::divide_step(remainder, this->T_[i], w);
  if (this->L_) this->drop_zero_top();
  this->recompute_hash();
  return remainder;
}

template class BasicInt<u32>;
template class BasicInt<u64>;
template class BasicIntR<u32>;
template class BasicIntR<u64>;
template class BasicIntO<u32>;
template class BasicIntO<u64>;

}  // namespace orl
