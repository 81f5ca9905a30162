#include "multiply/ring_check.h"

#include <algorithm>
#include <bit>

#include "core/exceptions.h"

namespace orl {
namespace {

constexpr u64 kBlockWords = u64{1} << 16;  // that a task takes at once: 256 KiB, a few microseconds
constexpr u64 kMaxTasks = 64;

}  // namespace

RingCheck::RingCheck(u64 n, Ring ring) : n_(n), ring_(ring), m_(u64{1} << std::countr_zero(n)) {
  if (m_ > kWords) m_ = ring == Ring::kMinusOne ? kWords : 0;
}

// Sums of the words at each place modulo m; those of every other row with the other sign in a ring + 1. Fewer
// than 2^31 rows are added, so a sum stays below 2^63.
RingCheck::Columns RingCheck::sums(const u32* A, u64 L) const {
  Columns columns{};
  if (m_ == kWords && ring_ == Ring::kMinusOne) {
    u64 at = 0;
    for (; at + kWords <= L; at += kWords)
      for (u64 j = 0; j < kWords; ++j) columns[j] += A[at + j];
    for (; at < L; ++at) columns[at % kWords] += A[at];
    return columns;
  }
  s64 factor = 1;
  for (u64 at = 0; at < L; at += m_, factor *= sign()) {
    const u64 count = std::min(m_, L - at);
    for (u64 j = 0; j < count; ++j) columns[j] += factor * s64{A[at + j]};
  }
  return columns;
}

// Carries run upwards and come in below, with the ring's sign.
RingCheck::Residue RingCheck::reduced(Columns columns) const {
  Residue words{};
  s64 carry = 0;
  do {
    for (u64 j = 0; j < m_; ++j) {
      const s64 sum = columns[j] + carry;
      columns[j] = sum & 0xffffffff;
      carry = sum >> 32;
    }
    const bool zero = std::all_of(columns.begin(), columns.begin() + m_, [](s64 word) { return word == 0; });
    if (ring_ == Ring::kPlusOne && carry == 1 && zero) {
      words[m_] = 1;
      return words;
    }
    carry *= sign();
  } while (carry != 0);
  const bool ones =
      std::all_of(columns.begin(), columns.begin() + m_, [](s64 word) { return word == 0xffffffff; });
  if (ring_ == Ring::kMinusOne && ones) return words;
  for (u64 j = 0; j < m_; ++j) words[j] = static_cast<u32>(columns[j]);
  return words;
}

RingCheck::Residue RingCheck::residue(const u32* A, u64 L, ParallelContext parallel) const {
  // An even number of rows a block keeps the signs of a ring + 1.
  const u64 tasks = std::clamp<u64>(L / kBlockWords, 1, std::min(parallel.tds, kMaxTasks));
  const u64 block = (L / tasks + 2 * kWords) / (2 * kWords) * (2 * kWords);
  Columns parts[kMaxTasks];
  const auto part = [&](u64 k) {
    parts[k] = sums(A + std::min(L, k * block), std::min(L, (k + 1) * block) - std::min(L, k * block));
  };
  if (tasks == 1)
    parts[0] = sums(A, L);
  else
    fork_range(parallel.parallelizer, 0, tasks, part);
  // Residues first, as the sum of many sums could pass 2^63.
  Columns sum{};
  for (u64 k = 0; k < tasks; ++k) {
    const Columns part_sum = columns_of(reduced(parts[k]));
    for (u64 j = 0; j < m_; ++j) sum[j] += part_sum[j];
  }
  return reduced(sum);
}

// Both halves of a product of words go to their columns: fewer than 2 * 16 * 2 of 32 bits.
RingCheck::Residue RingCheck::product(const Residue& a, const Residue& b) const {
  if (m_ == 0) return {};
  Columns columns{};
  const auto add = [&](u64 place, u64 word) {
    columns[place % m_] += place / m_ % 2 == 0 ? static_cast<s64>(word) : sign() * static_cast<s64>(word);
  };
  for (u64 i = 0; i <= m_; ++i) {
    for (u64 j = 0; j <= m_; ++j) {
      const u64 word = u64{a[i]} * b[j];
      add(i + j, word & 0xffffffff);
      add(i + j + 1, word >> 32);
    }
  }
  return reduced(columns);
}

// W^m is the ring's sign.
RingCheck::Columns RingCheck::columns_of(const Residue& words) const {
  Columns columns{};
  for (u64 j = 0; j < m_; ++j) columns[j] = words[j];
  if (m_ != 0) columns[0] += sign() * words[m_];
  return columns;
}

void RingCheck::add_shifted(Residue& sum, u64 at, const Residue& more, s64 factor) const {
  if (m_ == 0) return;
  Columns columns = columns_of(sum);
  for (u64 j = 0; j <= m_; ++j) {
    const u64 place = at % (2 * m_) + j;
    columns[place % m_] += (place / m_ % 2 == 0 ? factor : factor * sign()) * s64{more[j]};
  }
  sum = reduced(columns);
}

void RingCheck::add(Residue& sum, u64 at, const u32* A, u64 L, ParallelContext parallel) const {
  if (m_ != 0) add_shifted(sum, at, residue(A, L, parallel), 1);
}

void RingCheck::subtract(Residue& sum, u64 at, const u32* A, u64 L, ParallelContext parallel) const {
  if (m_ != 0) add_shifted(sum, at, residue(A, L, parallel), -1);
}

void RingCheck::take(const u32* A, u64 L, ParallelContext parallel) {
  if (m_ != 0) value_ = residue(A, L, parallel);
}

void RingCheck::multiply(const u32* B, u64 L, ParallelContext parallel) {
  if (m_ != 0) value_ = product(value_, residue(B, L, parallel));
}

void RingCheck::square() {
  if (m_ != 0) value_ = product(value_, value_);
}

void RingCheck::compare(const u32* P, bool top, const char* function, ParallelContext parallel) const {
  if (m_ == 0) return;
  Residue found = residue(P, n_, parallel);
  if (top) {
    // W^n is the ring's sign.
    Columns more = columns_of(found);
    more[0] += sign();
    found = reduced(more);
  }
  if (found != value_) throw AlgorithmFailedException(function, "Checksum Mismatch. Multiplication Failed.");
}

}  // namespace orl
