#include "formulas/simple_int.h"

#include "core/exceptions.h"
#include "words/word_loops.h"
#include "words/words.h"

namespace orl::Polynomials {
namespace {

using Words = std::vector<u64>;

std::strong_ordering compare(const Words& a, const Words& b) {
  if (a.size() != b.size()) return a.size() <=> b.size();
  for (u64 i = a.size(); i-- > 0;)
    if (a[i] != b[i]) return a[i] <=> b[i];
  return std::strong_ordering::equal;
}

// |a| + |b|, a the longer.
Words add(const Words& a, const Words& b) {
  Words sum = a;
  sum.push_back(0);
  const u64 carry = bp_add(sum.data(), a.data(), b.data(), b.size());
  bp_carry<u64>(static_cast<s64>(carry), sum.data() + b.size(), sum.size() - b.size());
  return sum;
}

// |a| - |b|, |a| >= |b|.
Words subtract(const Words& a, const Words& b) {
  Words difference = a;
  const u64 borrow = bp_sub(difference.data(), a.data(), b.data(), b.size());
  bp_carry<u64>(-static_cast<s64>(borrow), difference.data() + b.size(), a.size() - b.size());
  return difference;
}

// T[0, L] -= B[0, L) * q; true when it went below zero, T then being 2^64(L + 1) too large.
bool subtract_multiple(u64* T, const Words& B, u64 q) {
  u64 high = 0;
  for (u64 i = 0; i < B.size(); ++i) {
    const u128 product = u128{B[i]} * q + high;
    const u64 low = static_cast<u64>(product);
    high = static_cast<u64>(product >> 64) + (T[i] < low);
    T[i] -= low;
  }
  const bool below = T[B.size()] < high;
  T[B.size()] -= high;
  return below;
}

Words shift_left(const Words& a, int bits) {
  Words shifted(a.size() + 1, 0);
  for (u64 i = 0; i < a.size(); ++i) {
    shifted[i] |= a[i] << bits;
    shifted[i + 1] = bits ? a[i] >> (64 - bits) : 0;
  }
  return shifted;
}

void shift_right(Words& a, int bits) {
  if (bits == 0) return;
  for (u64 i = 0; i < a.size(); ++i) a[i] = a[i] >> bits | (i + 1 < a.size() ? a[i + 1] << (64 - bits) : 0);
}

// D. E. Knuth, The Art of Computer Programming, volume 2, algorithm 4.3.1 D. With the divisor's top bit set,
// the quotient word estimated from two words and the divisor's top word is at most 2 too large.
std::pair<Words, Words> divide(const Words& a, const Words& b) {
  if (a.size() < b.size()) return {Words{}, a};
  const int bits = __builtin_clzll(b.back());
  Words divisor = shift_left(b, bits);
  divisor.pop_back();
  Words rest = shift_left(a, bits);
  const u64 n = divisor.size();
  Words quotient(rest.size() - n, 0);
  for (u64 j = quotient.size(); j-- > 0;) {
    u64 top = rest[j + n];
    u64 q = ~u64{0};
    if (top < divisor[n - 1]) q = word_loops::divide_step(top, rest[j + n - 1], divisor[n - 1]);
    bool below = subtract_multiple(&rest[j], divisor, q);
    for (; below; --q) {
      const u64 carry = bp_add(&rest[j], &rest[j], divisor.data(), n);
      rest[j + n] += carry;
      below = !(carry && rest[j + n] == 0);
    }
    quotient[j] = q;
  }
  rest.resize(n);
  shift_right(rest, bits);
  return {quotient, rest};
}

}  // namespace

SimpleInt::SimpleInt(s64 value) : sign_(value >= 0) {
  const u64 magnitude = value < 0 ? u64{0} - static_cast<u64>(value) : static_cast<u64>(value);
  words_.push_back(magnitude);
  normalise();
}

SimpleInt::SimpleInt(bool not_negative, std::vector<u64> words)
    : sign_(not_negative), words_(std::move(words)) {
  normalise();
}

void SimpleInt::normalise() {
  L_ = bp_strip<u64>(0, words_.data(), words_.size());
  words_.resize(L_);
  if (L_ == 0) sign_ = true;
}

SimpleInt::operator stype() const {
  if (L_ == 0) return 0;
  const u64 limit = (u64{1} << 63) - (sign_ ? 1 : 0);
  if (L_ > 1 || words_[0] > limit)
    throw ArithmeticException("SimpleInt::operator stype()", "Number doesn't fit into an stype.");
  return static_cast<s64>(sign_ ? words_[0] : u64{0} - words_[0]);
}

SimpleInt SimpleInt::operator-() const { return {!sign_, words_}; }

SimpleInt operator+(const SimpleInt& a, const SimpleInt& b) {
  const std::strong_ordering order = compare(a.words_, b.words_);
  const SimpleInt& large = order >= 0 ? a : b;
  const SimpleInt& small = order >= 0 ? b : a;
  return {large.sign_,
          a.sign_ == b.sign_ ? add(large.words_, small.words_) : subtract(large.words_, small.words_)};
}

SimpleInt operator-(const SimpleInt& a, const SimpleInt& b) { return a + -b; }

SimpleInt operator*(const SimpleInt& a, const SimpleInt& b) {
  Words product(a.L_ + b.L_, 0);
  for (u64 i = 0; i < a.L_; ++i) {
    u64 carry = 0;
    for (u64 j = 0; j < b.L_; ++j) {
      const u128 sum = u128{a.words_[i]} * b.words_[j] + product[i + j] + carry;
      product[i + j] = static_cast<u64>(sum);
      carry = static_cast<u64>(sum >> 64);
    }
    product[i + b.L_] = carry;
  }
  return {a.sign_ == b.sign_, product};
}

std::pair<SimpleInt, SimpleInt> SimpleInt::divmod(const SimpleInt& divisor) const {
  if (divisor.is_zero()) throw ArithmeticException("SimpleInt::divmod()", "Divide by zero.");
  auto [quotient, rest] = divide(words_, divisor.words_);
  return {SimpleInt(sign_ == divisor.sign_, std::move(quotient)), SimpleInt(sign_, std::move(rest))};
}

std::strong_ordering operator<=>(const SimpleInt& a, const SimpleInt& b) {
  if (a.sign_ != b.sign_) return a.sign_ <=> b.sign_;
  return a.sign_ ? compare(a.words_, b.words_) : compare(b.words_, a.words_);
}

}  // namespace orl::Polynomials
