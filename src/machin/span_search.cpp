#include "machin/span_search.h"

#include <algorithm>
#include <cstdlib>

#include "core/ending.h"
#include "words/hash.h"

namespace orl {
namespace {

// Vectors modulo 2^61 - 1, in canonical form.
using Residues = std::array<u64, kMaxBasePrimes>;

u64 residue_of(s64 value) {
  const u64 magnitude = hash_canon(static_cast<u64>(std::abs(value)));
  return value < 0 && magnitude ? kHashModulus - magnitude : magnitude;
}

Residues residues_of(const ExponentVector& exponents) {
  Residues residues;
  std::transform(exponents.begin(), exponents.end(), residues.begin(), residue_of);
  return residues;
}

// A vector of an echelon form: its entries behind `pivot` are 0, that one is not.
struct EchelonRow {
  Residues entries;
  u32 pivot;

  // Clears the entry of `vector` at the pivot and multiplies the rest alike: what it spans with the row
  // stays.
  void clear(Residues& vector, u32 primes) const {
    const u64 factor = vector[pivot];
    if (factor == 0) return;
    for (u32 i = 0; i < primes; ++i)
      vector[i] = hash_canon(
          hash_fold_128(u128{entries[pivot]} * vector[i] + u128{kHashModulus - factor} * entries[i]));
  }
};

// Entries up to the last that is not 0.
template <class Vector>
u32 used_entries(const Vector& vector) {
  u32 used = kMaxBasePrimes;
  while (used > 0 && vector[used - 1] == 0) --used;
  return used;
}

// Branch and bound; see the header.
class SpanSearch {
 public:
  SpanSearch(std::span<const ArcCothCandidate> candidates, const ExponentVector& target, double bound,
             u64 tries)
      : candidates_(candidates), target_(target), best_cost_(bound), tries_(tries) {
    primes_ = used_entries(target);
    for (const ArcCothCandidate& candidate : candidates) {
      primes_ = std::max(primes_, used_entries(candidate.exponents));
      vectors_.push_back(residues_of(candidate.exponents));
    }
    is_out_.assign(candidates.size(), false);
  }

  std::optional<MachinFormula> run() {
    if (used_entries(target_) == 0 && best_cost_ > 0) return MachinFormula{};
    branch(0, residues_of(target_));
    return best_;
  }

 private:
  // Goes on from the set of the branch, which costs `set_cost` and leaves `rest` of the target, not all 0. A
  // set that spans the target has a member that is not 0, reduced by the branch, where `rest` is not: only
  // such candidates are tried, at the largest prime, which few have. One that has been tried is in none of
  // the sets behind it.
  void branch(double set_cost, const Residues& rest) {
    const u32 column = used_entries(rest) - 1;
    const u64 depth = rows_.size();
    std::vector<u64> done;
    for (u64 i = 0; i < candidates_.size() && tries_ > 0; ++i) {
      if (is_out_[i]) continue;
      const double with_this = set_cost + candidates_[i].cost;
      if (with_this >= best_cost_) break;
      --tries_;
      Residues vector = vectors_[i];
      for (const EchelonRow& row : rows_) row.clear(vector, primes_);
      if (vector[column] == 0) continue;
      rows_.push_back({vector, used_entries(vector) - 1});
      set_.push_back(i);
      is_out_[i] = true;
      done.push_back(i);
      Residues left = rest;
      rows_.back().clear(left, primes_);
      if (used_entries(left) == 0)
        accept();
      else if (with_this + candidates_[0].cost < best_cost_)
        branch(with_this, left);
      rows_.resize(depth);
      set_.resize(depth);
    }
    for (const u64 i : done) is_out_[i] = false;
  }

  void accept() {
    std::vector<ArcCothCandidate> set;
    for (const u64 index : set_) set.push_back(candidates_[index]);
    std::optional<MachinFormula> formula = solve(set, target_);
    if (!formula) return;
    // Members of the set that the formula does without cost nothing.
    best_cost_ = 0;
    for (const ArcCothCandidate& member : set)
      for (const MachinTerm& term : *formula) best_cost_ += term.x == member.x ? member.cost : 0;
    best_ = std::move(formula);
  }

  std::span<const ArcCothCandidate> candidates_;
  const ExponentVector& target_;
  u32 primes_ = 0;  ///< entries of any vector up to here
  std::vector<Residues> vectors_;
  std::vector<EchelonRow> rows_;
  std::vector<u64> set_;      ///< indices of candidates
  std::vector<bool> is_out_;  ///< candidates that the branch has or that were tried in its place
  std::optional<MachinFormula> best_;
  double best_cost_;
  u64 tries_;
};

// The value of least magnitude with this residue.
s64 centred(u64 residue) {
  return residue <= kHashModulus / 2 ? static_cast<s64>(residue) : -static_cast<s64>(kHashModulus - residue);
}

// ln b^k has k times the coefficients of ln b, and k is at most 30.
constexpr s64 kMaxSolution = kMaxMachinCoefficient / 30;

u64 inverse(u64 residue) { return hash_pow(residue, kHashModulus - 2); }

}  // namespace

ExponentVector exponents_over(std::span<const u64> base, u64 n) {
  ExponentVector exponents{};
  for (u64 i = 0; i < base.size(); ++i)
    for (; n % base[i] == 0; n /= base[i]) ++exponents[i];
  if (n != 1)
    internal_error("exponents_over()", "Non-base prime found in queue.\nPlease report this as a bug.");
  return exponents;
}

ArcCothCandidate make_candidate(std::span<const u64> base, u64 x, double nats) {
  ArcCothCandidate candidate{x, arccoth_cost(x, nats), exponents_over(base, x + 1)};
  const ExponentVector below = exponents_over(base, x - 1);
  for (u64 i = 0; i < base.size(); ++i) candidate.exponents[i] -= below[i];
  return candidate;
}

std::optional<MachinFormula> solve(std::span<const ArcCothCandidate> set, const ExponentVector& target) {
  // Gauss and Jordan on one row per prime: a column per candidate, and the target.
  const u64 count = set.size();
  if (count > kMaxBasePrimes) return std::nullopt;
  std::array<std::array<u64, kMaxBasePrimes + 1>, kMaxBasePrimes> matrix{};
  for (u64 row = 0; row < kMaxBasePrimes; ++row) {
    for (u64 column = 0; column < count; ++column)
      matrix[row][column] = residue_of(set[column].exponents[row]);
    matrix[row][count] = residue_of(target[row]);
  }
  for (u64 column = 0; column < count; ++column) {
    u64 pivot = column;
    while (pivot < kMaxBasePrimes && matrix[pivot][column] == 0) ++pivot;
    if (pivot == kMaxBasePrimes) return std::nullopt;
    std::swap(matrix[pivot], matrix[column]);
    const u64 scale = inverse(matrix[column][column]);
    for (u64& entry : matrix[column]) entry = hash_canon(hash_mul(entry, scale));
    for (u64 row = 0; row < kMaxBasePrimes; ++row) {
      const u64 factor = kHashModulus - matrix[row][column];
      if (row == column || factor == kHashModulus) continue;
      for (u64 i = 0; i <= count; ++i)
        matrix[row][i] = hash_canon(hash_mul_add(factor, matrix[column][i], matrix[row][i]));
    }
  }
  MachinFormula formula;
  ExponentVector rest = target;
  for (u64 i = 0; i < count; ++i) {
    const s64 coefficient = centred(matrix[i][count]);
    if (std::abs(coefficient) > kMaxSolution) return std::nullopt;
    if (coefficient != 0) formula.push_back({coefficient, set[i].x});
    for (u64 prime = 0; prime < kMaxBasePrimes; ++prime) rest[prime] -= coefficient * set[i].exponents[prime];
  }
  if (rest != ExponentVector{}) return std::nullopt;
  return formula;
}

std::optional<MachinFormula> search_span(std::span<const ArcCothCandidate> candidates,
                                         const ExponentVector& target, double bound, u64 tries) {
  return SpanSearch(candidates, target, bound, tries).run();
}

}  // namespace orl
