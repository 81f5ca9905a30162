#include "numbers/float_string.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>

#include "core/exceptions.h"
#include "threads/simple_frameworks.h"
#include "words/shoup_divider.h"
#include "words/words.h"

namespace orl {
namespace {

constexpr u64 kRoomInFront = 8;                         // for the sign, the dot and a '0' before it
constexpr u64 kRoomBehind = 32;                         // for the exponent
constexpr double kWordsPerDigit = 0.10381025296523007;  // log2(10) / 32, for u32
constexpr double kLog10Of2 = 0.30102999566398120;

// Decimal digits are made in groups of as many as a divisor without a top bit has: 10^9 and 10^18.
template <class W>
constexpr u32 kGroupDigits = sizeof(W) == 4 ? 9 : 18;

template <class W>
W power_of_ten(u64 n) {
  W power = 1;
  for (; n > 0; --n) power *= 10;
  return power;
}

// The digits of an integer, most significant first; at least one.
template <class W>
std::string hexadecimal(const W* T, u64 L) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (u64 i = L; i-- > 0;)
    for (int shift = 8 * sizeof(W) - 4; shift >= 0; shift -= 4) text += kDigits[T[i] >> shift & 15];
  return text.empty() ? "0" : text;
}

// Divides by the group again and again: quadratic.
template <class W>
std::string decimal(const W* A, u64 AL) {
  const ShoupDivider<W> group(power_of_ten<W>(kGroupDigits<W>));
  std::vector<W> T(A, A + AL);
  std::string reversed;
  for (u64 L = AL; L > 0;) {
    W rest = bp_div_np(group, T.data(), T.data(), L, 0);
    for (u32 i = 0; i < kGroupDigits<W>; ++i, rest /= 10) reversed += static_cast<char>('0' + rest % 10);
    L = bp_strip<W>(0, T.data(), L);
  }
  std::reverse(reversed.begin(), reversed.end());
  return reversed.empty() ? "0" : reversed;
}

// |x| * 10^scale truncated to p + 2 words, by one group at a time, so that what is exact stays exact.
template <class W>
void scale_decimal(BigFloat<W>& x, BigFloat<W>& spare, u64 p, s64 scale, ParallelContext serial) {
  while (scale != 0) {
    const u64 step = std::min<u64>(static_cast<u64>(std::abs(scale)), kGroupDigits<W>);
    if (scale > 0) {
      spare.set_mul_uW(p, x, power_of_ten<W>(step), serial);
      scale -= static_cast<s64>(step);
    } else {
      spare.set_div_sW(p, x, static_cast<std::make_signed_t<W>>(power_of_ten<W>(step)), serial);
      scale += static_cast<s64>(step);
    }
    std::swap(x, spare);
  }
}

}  // namespace

template <class W>
void FloatString<W>::start(const char* function) {
  if (is_set_) throw StringException(function, "Formatting has already been set.");
  is_set_ = true;
}

template <class W>
void FloatString<W>::take(const std::string& text, s64 exponent) {
  const u64 zeros = std::min(text.find_first_not_of('0'), text.size() - 1);
  L_ = text.size() - zeros;
  exp_ = exponent;
  buffer_.assign(kRoomInFront + L_ + kRoomBehind, '\0');
  ptr_ = kRoomInFront;
  std::copy(text.begin() + static_cast<std::ptrdiff_t>(zeros), text.end(), digits());
}

template <class W>
void FloatString<W>::set_digits(const BigFloat<W>& x, u64 digit_count, u32 radix) {
  start("FloatString::set_float()");
  const u64 wanted = std::max<u64>(digit_count, 1);
  radix_ = radix;
  sign_ = x.L == 0 || x.sign;
  if (x.L == 0) return take("0", 0);

  Parallelizer_None none;
  const ParallelContext serial{none, 1};
  const u64 p = static_cast<u64>(static_cast<double>(wanted) * kWordsPerDigit * 4 / sizeof(W) *
                                 (radix == 16 ? 1.25 : 1.0)) +
                2;
  std::vector<W> words[2] = {std::vector<W>(p + 4), std::vector<W>(p + 4)};
  BigFloat<W> y(words[0].data(), p + 4), spare(words[1].data(), p + 4);
  y.set_BigFloat(p, x, serial);
  y.sign = 1;
  // An integer of at least `wanted` digits: x has more than `whole` digits before the point.
  const double bits = static_cast<double>(x.bit_length() - 1);
  s64 scale;
  if (radix == 16) {
    scale = static_cast<s64>(wanted) - ((x.bit_length() - 1) >> 2);
    y.mp2(4 * scale, serial);
  } else {
    scale = static_cast<s64>(wanted) - static_cast<s64>(std::floor(bits * kLog10Of2));
    scale_decimal(y, spare, p, scale, serial);
  }
  std::vector<W> integer_words(static_cast<u64>(std::max<s64>(y.magnitude(), 1)));
  BigInt<W> integer(integer_words.data(), integer_words.size());
  integer.set_BigFloat(y, serial);
  take(radix == 16 ? hexadecimal(integer.T, integer.L) : decimal(integer.T, integer.L), -scale);
  truncate(wanted);
}

template <class W>
void FloatString<W>::set_digits(const BigInt<W>& i, u32 radix) {
  start("FloatString::set_integer()");
  radix_ = radix;
  sign_ = i.L == 0 || i.sign;
  take(radix == 16 ? hexadecimal(i.T, i.L) : decimal(i.T, i.L), 0);
}

template <class W>
void FloatString<W>::set_float(const BigFloat<W>& x, u64 digit_count, u32 radix) {
  set_digits(x, digit_count, radix);
  const bool reaches_units = exp_ < 1 && exp_ + static_cast<s64>(L_) >= 0;
  while (L_ > 1 && digits()[L_ - 1] == '0' && (exp_ < 0 || !reaches_units)) {
    --L_;
    ++exp_;
  }
  if (!reaches_units) {
    if (L_ > 1) apply_dot(1);
    apply_exp();
  } else if (exp_ < 0) {
    apply_dot(L_ - static_cast<u64>(-exp_));
  }
  apply_sign();
}

template <class W>
void FloatString<W>::set_integer(const BigInt<W>& i, u32 radix) {
  set_digits(i, radix);
  apply_sign();
}

template <class W>
void FloatString<W>::check_plain(const char* function) const {
  if (has_dot_) throw StringException(function, "Cannot truncate after dot.");
  if (has_sign_) throw StringException(function, "Cannot truncate after sign.");
  if (has_exp_) throw StringException(function, "Cannot truncate after exp.");
}

template <class W>
void FloatString<W>::truncate(u64 digit_count) {
  check_plain("FloatString::truncate()");
  if (L_ <= digit_count) return;
  exp_ += static_cast<s64>(L_ - digit_count);
  L_ = digit_count;
}

template <class W>
void FloatString<W>::round(u64 digit_count) {
  check_plain("FloatString::truncate()");
  if (L_ <= digit_count || digit_count == 0) return truncate(digit_count);
  const char next = digits()[digit_count];
  truncate(digit_count);
  if (next < (radix_ == 16 ? '8' : '5')) return;
  const char last = radix_ == 16 ? 'f' : '9';
  u64 i = L_;
  while (i > 0 && digits()[i - 1] == last) digits()[--i] = '0';
  if (i > 0) {
    char& digit = digits()[i - 1];
    digit = digit == '9' ? 'a' : static_cast<char>(digit + 1);
  } else {
    digits()[0] = '1';  // all nines: one and zeros, a digit further up
    ++exp_;
  }
}

template <class W>
void FloatString<W>::apply_dot(u64 place) {
  const char* const function = "FloatString::apply_dot()";
  if (place > L_) throw StringException(function, "Cannot apply dot after end of string.");
  const u64 room = place == 0 ? 2 : 1;
  if (ptr_ < room) throw StringException(function, "ptr <= base_ptr");
  exp_ += static_cast<s64>(L_ - place);
  std::memmove(digits() - room, digits(), place);
  ptr_ -= room;
  L_ += room;
  if (place == 0) digits()[0] = '0';
  digits()[place == 0 ? 1 : place] = '.';
  has_dot_ = true;
}

template <class W>
void FloatString<W>::apply_sign() {
  has_sign_ = true;
  if (sign_) return;
  if (ptr_ == 0) throw StringException("FloatString::apply_sign()", "ptr <= base_ptr");
  --ptr_;
  ++L_;
  digits()[0] = '-';
}

template <class W>
void FloatString<W>::apply_exp() {
  // The exponent belongs to the dot, or to the first digit when there is none.
  if (!has_dot_) exp_ += static_cast<s64>(L_) - 1;
  has_exp_ = true;
  if (exp_ == 0) return;
  char text[kRoomBehind];
  const u64 length =
      static_cast<u64>(std::snprintf(text, sizeof text, " *%u^ %ld", radix_, static_cast<long>(exp_)));
  const u64 room = buffer_.size() - ptr_ - L_;
  if (room < length) throw BufferTooSmallException("FloatString::apply_exp()", room, length);
  std::memcpy(digits() + L_, text, length);
  L_ += length;
}

template class FloatString<u32>;
template class FloatString<u64>;

}  // namespace orl
