#include "transforms/c17/residue_join.h"

#include <algorithm>
#include <cstring>

#include "transforms/c17/residue_bounds.h"

namespace orl {
namespace {

constexpr u32 kHead = ResidueJoinRun::kHead;

/// Adds -1, 0 or 1 to words (32-bit) [at, end) of the window; returns the carry.
s64 ripple(WordWindow window, u64 at, u64 end, s64 carry) {
  for (; carry && at < end; ++at) {
    const u32 before = load_u32(window.at(at));
    store_u32(window.at(at), before + static_cast<u32>(carry));
    carry = before == (carry > 0 ? ~u32{0} : 0) ? carry : 0;
  }
  return carry;
}

/// Adds an overflow to a run. Returns what leaves its end, where that is still in the window.
s64 add_to_run(ResidueJoinRun& run, const ResidueOverflow& overflow) {
  s64 carry = overflow.add_to(run.head);
  for (u32 j = 0; j < kHead; ++j) run.window.put_u64(run.begin + j, run.head[j]);
  u64 at = 2 * (run.begin + kHead);
  const u64 stop = std::min(2 * run.end, run.window.end);
  if (carry && at < run.window.begin) {
    if (!run.dropped_ones) return 0;
    at = std::min(run.window.begin, 2 * run.end);
  }
  return at < stop ? ripple(run.window, at, stop, carry) : carry;
}

/// Adds to all words of a wrapped product, at their begin; returns the carry.
s64 add_to_begin(const ResidueJoinRun& first, u64 words, const ResidueOverflow& overflow) {
  u64 head[kHead];
  std::memcpy(head, first.window.target, sizeof(head));
  const s64 carry = overflow.add_to(head);
  std::memcpy(first.window.target, head, sizeof(head));
  return ripple(first.window, 2 * kHead, words, carry);
}

}  // namespace

void ResidueOverflow::add(s64 value, u32 shift) {
  const u32 at = shift / 64, bits = shift % 64;
  const u64 low = static_cast<u64>(value) << bits;
  const u64 high = static_cast<u64>(bits ? value >> (64 - bits) : value >> 63);
  const u64 sign = static_cast<u64>(value >> 63);
  u64 carry = 0;
  for (u32 j = at; j < kHead; ++j) {
    const u128 sum = static_cast<u128>(word[j]) + (j == at ? low : j == at + 1 ? high : sign) + carry;
    word[j] = static_cast<u64>(sum);
    carry = static_cast<u64>(sum >> 64);
  }
}

void ResidueOverflow::negate() {
  for (u64& w : word) w = ~w;
  add(1, 0);
}

s64 ResidueOverflow::add_to(u64 (&x)[kHead]) const {
  u64 carry = 0;
  for (u32 j = 0; j < kHead; ++j) {
    const u128 sum = static_cast<u128>(x[j]) + word[j] + carry;
    x[j] = static_cast<u64>(sum);
    carry = static_cast<u64>(sum >> 64);
  }
  return static_cast<s64>(carry) - negative();
}

ResidueOverflow residue_overflow(const ResidueJoinRun& run, u32 P) {
  const u32 K = join_limbs(P), w = join_limb_bits(P);
  ResidueOverflow overflow;
  for (u32 k = 0; k <= K; ++k) overflow.add(static_cast<s64>(run.pending[7 + k]), w * k);
  overflow.add(static_cast<s64>(run.pending[8 + K]), 0);
  return overflow;
}

u32 ResidueJoinRun::excess_bits() const {
  u64 all = 0;
  for (const u64 part : seen) all |= part;
  const u32 bits = static_cast<u32>(std::bit_width(all));
  return bits > limit_bits ? bits - limit_bits : 0;
}

ResidueJoinRun start_residue_run(const ResidueRow& row, ProductRing ring, u64 begin, u64 end,
                                 WordWindow window) {
  ResidueJoinRun run{};
  const u32 top_bits = residue_coefficient_bits(row, ring) - static_cast<u32>(2 * row.point_bits());
  run.window = window;
  run.begin = run.word = begin * row.point_bits() / 64;
  run.end = end * row.point_bits() / 64;
  run.offset = ring == ProductRing::kNegacyclic ? u64{1} << top_bits : 0;
  run.limit_bits = ring == ProductRing::kNegacyclic ? top_bits + 1 : top_bits;
  run.dropped_ones = true;
  return run;
}

void place_residue_words(ResidueJoinRun& run, const u64* words, u64 count) {
  if (2 * run.word >= run.window.begin && 2 * (run.word + count) <= run.window.end) {
    std::memcpy(run.window.target + (2 * run.word - run.window.begin), words, 8 * count);
    if (run.word == run.begin) std::copy(words, words + kHead, run.head);
    return;
  }
  for (u64 i = 0; i < count; ++i) {
    const u64 index = run.word + i, value = words[i];
    if (index - run.begin < kHead)
      run.head[index - run.begin] = value;
    else if (2 * index + 1 < run.window.begin)
      run.dropped_ones &= value == ~u64{0};
    else if (2 * index < run.window.begin)
      run.dropped_ones &= static_cast<u32>(value) == ~u32{0};
    run.window.put_u64(index, value);
  }
}

ResidueOverflow chain_residue_runs(const ResidueRow& row, ResidueJoinRun* runs, u64 count) {
  ResidueOverflow overflow = residue_overflow(runs[0], row.P);
  for (u64 b = 1; b < count; ++b) {
    const s64 carry = add_to_run(runs[b], overflow);
    overflow = residue_overflow(runs[b], row.P);
    overflow.add(carry, 0);
  }
  return overflow;
}

bool resolve_residue_runs(const ResidueRow& row, ProductRing ring, ResidueJoinRun* runs, u64 count) {
  ResidueOverflow overflow = chain_residue_runs(row, runs, count);
  if (ring == ProductRing::kPlain) return false;

  const u64 words = row.bits() / 32;
  const ResidueOverflow one{{1}};
  ResidueOverflow minus_one = one;
  minus_one.negate();
  if (ring == ProductRing::kCyclic) {
    if (add_to_begin(runs[0], words, overflow)) add_to_begin(runs[0], words, one);
    return false;
  }
  // W^n is -1: x + carry W^n is x - carry, of [-1, W^n].
  overflow.negate();
  const s64 carry = add_to_begin(runs[0], words, overflow);
  if (carry == 0) return false;
  const s64 next = add_to_begin(runs[0], words, carry > 0 ? minus_one : one);
  if (next == 0) return false;
  // -1, which has become W^n - 1 or ended as W^n.
  std::memset(runs[0].window.target, 0, 4 * words);
  return true;
}

}  // namespace orl
