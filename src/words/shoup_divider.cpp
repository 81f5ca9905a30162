#include "words/shoup_divider.h"

#include "core/exceptions.h"
#include "words/shoup_step.h"
#include "words/word_division.h"

namespace orl {
namespace {

template <class W>
void check_top(const ShoupDivider<W>& s, W top, const char* function) {
  if (top >= s.divisor) throw InvalidParametersException(function, "Top word is too large.");
}

// The divider of 64-bit words: a u32 array of even length is the same bytes, and so is its quotient.
const ShoupDivider<u64>& wide(const ShoupDivider<u64>& s) { return s; }
ShoupDivider<u64> wide(const ShoupDivider<u32>& s) { return ShoupDivider<u64>(s.divisor); }

template <class W>
constexpr u64 kWordsOf64 = 8 / sizeof(W);

}  // namespace

template <class W>
ShoupDivider<W>::ShoupDivider(W d) : divisor(d), negative(static_cast<W>(W{0} - d)) {
  using word_loops::kBits;
  if (d >> (kBits<W> - 1)) throw InvalidParametersException("ShoupDivider()", "Divisor is too large.");
  if ((d & (d - 1)) == 0) throw InvalidParametersException("ShoupDivider()", "Untested with power-of-two.");
  const word_loops::Double<W> inverse = ~word_loops::Double<W>{0} / d;
  inverse_lo = static_cast<W>(inverse);
  inverse_hi = static_cast<W>(inverse >> kBits<W>);
}

template <class W>
W ShoupDivider<W>::mul(W a, W b) const {
  const word_loops::Double<W> product = word_loops::Double<W>{a} * b;
  W r = static_cast<W>(product >> word_loops::kBits<W>);  // < d
  ShoupStep<W>(*this).divide(r, static_cast<W>(product));
  return r;
}

template <class W>
W ShoupDivider<W>::pow_base(u64 n) const {
  if (n == 0) return 1;  // d >= 3
  const W base = static_cast<W>(inverse_hi * negative);
  W power = base;
  for (int bit = 62 - __builtin_clzll(n); bit >= 0; --bit) {
    power = mul(power, power);
    if (n >> bit & 1) power = mul(power, base);
  }
  return power;
}

template <class W>
W ShoupDivider<W>::mod(const W* A, u64 L, W top) const {
  check_top(*this, top, "mod()");
  const ShoupStep<W> step(*this);
  const u64 words = L / kWordsOf64<W>;
  const u64 rest = words >= kLeastFoldedWords ? words * kWordsOf64<W> : 0;
  for (u64 i = L; i-- > rest;) step.divide(top, A[i]);
  return rest ? static_cast<W>(WordFold(wide(*this)).mod(A, 0, words, top)) : top;
}

template <class W>
W ShoupDivider<W>::divmod(W* T, u64 L, W top) const {
  check_top(*this, top, "divmod()");
  const ShoupStep<W> step(*this);
  const u64 words = L / kWordsOf64<W>;
  const u64 rest = words >= kLeastHenselWords ? words * kWordsOf64<W> : 0;
  for (u64 i = L; i-- > rest;) T[i] = step.extend(top);
  return rest ? static_cast<W>(WordDivision(wide(*this)).extend(T, words, top, "divmod()")) : top;
}

template <class W>
W ShoupDivider<W>::divmod(W* T, const W* A, u64 L, W top) const {
  check_top(*this, top, "divmod(A)");
  const ShoupStep<W> step(*this);
  const u64 words = L / kWordsOf64<W>;
  const u64 rest = words >= kLeastHenselWords ? words * kWordsOf64<W> : 0;
  for (u64 i = L; i-- > rest;) T[i] = step.divide(top, A[i]);
  return rest ? static_cast<W>(WordDivision(wide(*this)).divide(T, A, words, top, "divmod(A)")) : top;
}

template struct ShoupDivider<u32>;
template struct ShoupDivider<u64>;

}  // namespace orl
