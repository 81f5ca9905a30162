// Word arrays as GMP integers and back: the oracle of exact arithmetic. Test programs link gmp.
#pragma once

#include <gmp.h>

#include <compare>
#include <concepts>
#include <type_traits>
#include <utility>
#include <vector>

#include "core/types.h"

namespace orl::test {

/// An mpz_t that frees itself.
class Mpz {
 public:
  Mpz() { mpz_init(z_); }
  template <std::integral Value>
  Mpz(Value value) {
    if constexpr (std::is_signed_v<Value>)
      mpz_init_set_si(z_, value);
    else
      mpz_init_set_ui(z_, value);
  }
  template <class W>
  Mpz(const W* A, u64 L) {
    mpz_init(z_);
    mpz_import(z_, L, -1, sizeof(W), 0, 0, A);
  }
  template <class W>
  explicit Mpz(const std::vector<W>& words) : Mpz(words.data(), words.size()) {}
  Mpz(const Mpz& other) { mpz_init_set(z_, other.z_); }
  Mpz(Mpz&& other) noexcept {
    mpz_init(z_);
    mpz_swap(z_, other.z_);
  }
  Mpz& operator=(Mpz other) {
    mpz_swap(z_, other.z_);
    return *this;
  }
  ~Mpz() { mpz_clear(z_); }

  operator mpz_ptr() { return z_; }
  operator mpz_srcptr() const { return z_; }

  /// -1, 0 or 1.
  int sign() const { return mpz_sgn(z_); }
  /// The low L words of |this|; `rest`, when given, receives what lies above them.
  template <class W>
  std::vector<W> words(u64 L, Mpz* rest = nullptr) const;
  /// Words [skip, len) of |this|.
  template <class W>
  std::vector<W> window(u64 skip, u64 len) const {
    return (*this >> 8 * sizeof(W) * skip).template words<W>(len - skip);
  }
  u64 low_u64() const {
    u64 low = 0;
    if (mpz_sgn(z_) != 0) low = mpz_getlimbn(z_, 0);
    return low;
  }

  friend Mpz operator+(const Mpz& a, const Mpz& b) { return apply(mpz_add, a, b); }
  friend Mpz operator-(const Mpz& a, const Mpz& b) { return apply(mpz_sub, a, b); }
  friend Mpz operator-(const Mpz& a) { return Mpz(0) - a; }
  friend Mpz abs(Mpz a) {
    mpz_abs(a, a);
    return a;
  }
  friend Mpz operator*(const Mpz& a, const Mpz& b) { return apply(mpz_mul, a, b); }
  /// Floor division.
  friend Mpz operator/(const Mpz& a, const Mpz& b) { return apply(mpz_fdiv_q, a, b); }
  friend Mpz operator%(const Mpz& a, const Mpz& b) { return apply(mpz_fdiv_r, a, b); }
  friend Mpz operator<<(const Mpz& a, u64 bits) {
    Mpz r;
    mpz_mul_2exp(r, a, bits);
    return r;
  }
  /// Floor.
  friend Mpz operator>>(const Mpz& a, u64 bits) {
    Mpz r;
    mpz_fdiv_q_2exp(r, a, bits);
    return r;
  }
  friend bool operator==(const Mpz& a, const Mpz& b) { return mpz_cmp(a, b) == 0; }
  friend auto operator<=>(const Mpz& a, const Mpz& b) { return mpz_cmp(a, b) <=> 0; }

 private:
  template <class F>
  static Mpz apply(F f, const Mpz& a, const Mpz& b) {
    Mpz r;
    f(r, a, b);
    return r;
  }

  mpz_t z_;
};

template <class W>
std::vector<W> Mpz::words(u64 L, Mpz* rest) const {
  constexpr u64 bits = sizeof(W) * 8;
  std::vector<W> out(L, 0);
  Mpz low;
  mpz_tdiv_r_2exp(low, z_, L * bits);
  mpz_export(out.data(), nullptr, -1, sizeof(W), 0, 0, low);
  if (rest) mpz_tdiv_q_2exp(*rest, z_, L * bits);
  return out;
}

/// The residue modulo 2^61 - 1, in [0, 2^61 - 1): what hash_canon of a hash must be.
inline u64 residue_m61(const Mpz& value) { return mpz_fdiv_ui(value, (u64{1} << 61) - 1); }

}  // namespace orl::test
