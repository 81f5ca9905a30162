// Random words that look for carries: long runs of zeros and ones among plain random words.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "core/types.h"

namespace orl::test {

/// The word types that typed tests run with.
using BothWords = testing::Types<u32, u64>;

/// A replayable source. A failure in the thread and the lifetime of one shows its seed; setting ORVANE_TEST_SEED
/// to that number runs it again.
class Random {
 public:
  /// One fixed seed for every run, so that a run tells of the change it tests and of nothing else; or the
  /// number in ORVANE_TEST_SEED, or a new one where that reads "new", for sweeps with `ctest --repeat
  /// until-fail:20`.
  explicit Random(u64 seed = default_seed(), const char* file = __builtin_FILE(), int line = __builtin_LINE())
      : seed_(seed), state_(seed), trace_(file, line, replay()) {}

  std::string replay() const { return "replay with ORVANE_TEST_SEED=" + std::to_string(seed_); }

  /// Uniform (SplitMix64; Steele, Lea, Flood 2014).
  u64 next() {
    u64 z = state_ += 0x9e3779b97f4a7c15;
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9;
    z = (z ^ (z >> 27)) * 0x94d049bb133111eb;
    return z ^ (z >> 31);
  }
  /// In [0, bound), bound >= 1.
  u64 below(u64 bound) { return next() % bound; }
  /// In [low, high], any u64 range but the whole.
  u64 between(u64 low, u64 high) { return low + below(high - low + 1); }
  bool coin() { return next() >> 63; }

  template <class W>
  W word() {
    return static_cast<W>(next());
  }
  /// One word, often 0, 1, all ones, a power of two or one off it.
  template <class W>
  W edge_word() {
    constexpr int bits = sizeof(W) * 8;
    const u64 kind = below(8);
    const W power = static_cast<W>(W{1} << below(bits));
    const W edges[] = {0, static_cast<W>(~W{0}), power, static_cast<W>(power - 1),
                       static_cast<W>(W{0} - power)};
    return kind < 5 ? edges[kind] : kind == 5 ? static_cast<W>(below(4)) : word<W>();
  }

  /// Fills T[0, L) with stretches of zeros, ones, edge words and random words; stretches run from one word to
  /// the whole array. One array in eight is plain random, one zero, one all ones.
  template <class W>
  void fill(W* T, u64 L) {
    if (L == 0) return;
    const u64 shape = below(8);
    if (shape < 3) {
      for (u64 i = 0; i < L; ++i) T[i] = shape == 0 ? word<W>() : shape == 1 ? W{0} : static_cast<W>(~W{0});
      return;
    }
    for (u64 i = 0; i < L;) {
      const u64 longest = u64{1} << below(64 - static_cast<u64>(__builtin_clzll(L)));
      const u64 end = i + std::min(L - i, 1 + below(longest));
      const u64 kind = below(4);
      for (; i < end; ++i)
        T[i] = kind == 0 ? W{0} : kind == 1 ? static_cast<W>(~W{0}) : kind == 2 ? edge_word<W>() : word<W>();
    }
  }
  template <class W>
  std::vector<W> words(u64 L) {
    std::vector<W> v(L);
    fill(v.data(), L);
    return v;
  }
  /// Uniform words, where a test wants no runs.
  template <class W>
  std::vector<W> plain_words(u64 L) {
    std::vector<W> v(L);
    for (W& one : v) one = word<W>();
    return v;
  }
  /// words() with a top word that is not zero.
  template <class W>
  std::vector<W> number(u64 L) {
    std::vector<W> v = words<W>(L);
    while (L && v.back() == 0) v.back() = edge_word<W>();
    return v;
  }

 private:
  static u64 default_seed() {
    const char* text = std::getenv("ORVANE_TEST_SEED");
    if (text == nullptr) return 20261121;
    if (std::string_view(text) != "new") return std::strtoull(text, nullptr, 0);
    return u64{std::random_device{}()} << 32 | std::random_device{}();
  }

  u64 seed_;
  u64 state_;
  testing::ScopedTrace trace_;
};

/// Words between two guards: an array of exactly L words whose neighbours must stay as they were. `offset`
/// words from a 64-byte boundary, so that no alignment goes untested.
template <class W>
class GuardedWords {
 public:
  explicit GuardedWords(u64 L, u64 offset = 0) : L_(L), store_(L + 2 * kGuard + 2 * kLine, kPoison) {
    const u64 address = reinterpret_cast<std::uintptr_t>(store_.data() + kGuard);
    start_ = kGuard + (u64{0} - address) / sizeof(W) % kLine + offset % kLine;
  }
  GuardedWords(const std::vector<W>& words, u64 offset) : GuardedWords(words.size(), offset) {
    std::copy(words.begin(), words.end(), data());
  }

  W* data() { return store_.data() + start_; }
  const W* data() const { return store_.data() + start_; }
  u64 size() const { return L_; }
  std::vector<W> words() const { return {data(), data() + L_}; }
  /// True while nothing wrote outside the array.
  bool intact() const {
    for (u64 i = 0; i < store_.size(); ++i)
      if ((i < start_ || i >= start_ + L_) && store_[i] != kPoison) return false;
    return true;
  }

 private:
  static constexpr u64 kGuard = 16;
  static constexpr u64 kLine = 64 / sizeof(W);
  static constexpr W kPoison = static_cast<W>(0xa5a5'5a5a'c3c3'3c3c);

  u64 L_;
  u64 start_ = 0;
  std::vector<W> store_;
};

}  // namespace orl::test
