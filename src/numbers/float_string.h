// FloatString: a number object as text. For reports and small values: the conversion is quadratic.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "core/types.h"
#include "numbers/big_float.h"
#include "numbers/big_int.h"

namespace orl {

/// The text of one number: a character buffer with room in front of the digits for what is put there later.
template <class W>
class FloatString {
 public:
  FloatString() = default;

  /// x to `digits` significant digits in radix 10 or 16, truncated, with dot, exponent and sign applied. A
  /// number whose digits reach the units place reads "-12.5", another one "1.25 *10^ 7". Trailing zeros
  /// behind the dot are dropped. Throws StringException "Formatting has already been set." on a second call.
  void set_float(const BigFloat<W>& x, u64 digits, u32 radix = 10);
  /// The whole integer in radix 10 or 16.
  void set_integer(const BigInt<W>& i, u32 radix = 10);
  /// Digits of |x| with exponent and sign, nothing applied: truncate() and round() may follow.
  void set_digits(const BigFloat<W>& x, u64 digits, u32 radix = 10);
  void set_digits(const BigInt<W>& i, u32 radix = 10);

  /// Keeps the first `digits` digits and raises the exponent. Throws StringException "Cannot truncate after
  /// dot.", "Cannot truncate after sign." or "Cannot truncate after exp.".
  void truncate(u64 digits);
  /// truncate() to the nearest, halves away from zero.
  void round(u64 digits);
  /// Puts the dot behind the first `place` digits, with a '0' before it when there are none. Throws
  /// StringException "Cannot apply dot after end of string.", "ptr <= base_ptr" when the room in front has
  /// run out.
  void apply_dot(u64 place);
  /// '-' before a negative number. "ptr <= base_ptr" as above.
  void apply_sign();
  /// The exponent of the dot, or of the first digit: " *10^ 7"; nothing for 0. BufferTooSmallException
  /// "FloatString::apply_exp()".
  void apply_exp();

  u64 length() const { return L_; }
  s64 exponent() const { return exp_; }
  std::string_view text() const { return {buffer_.data() + ptr_, L_}; }

 private:
  void start(const char* function);
  void take(const std::string& text, s64 exponent);
  void check_plain(const char* function) const;
  char* digits() { return buffer_.data() + ptr_; }

  std::vector<char> buffer_;  ///< base_ptr is its begin
  u64 ptr_ = 0;               ///< first character of the digits
  u64 L_ = 0;
  s64 exp_ = 0;  ///< exponent of the last digit in the radix
  u8 sign_ = 1;
  u32 radix_ = 10;
  bool has_dot_ = false;
  bool has_sign_ = false;
  bool has_exp_ = false;
  bool is_set_ = false;
};

}  // namespace orl
