#include "session/work_model.h"

#include <algorithm>
#include <cmath>
#include <string_view>

#include "bbp/pi_proof.h"
#include "system/limits.h"

namespace orvane {
namespace {

// A measured part of a run with so many decimal digits. Parts of one size follow each other in the order of the run;
// the constant's own stage is called "Compute".
struct MeasuredWork {
  const char *constant, *algorithm;
  u64 digits;
  const char *stage, *part;
  double seconds;
};

constexpr MeasuredWork kMeasured[] = {
#include "session/work_rows.inc"
};

std::vector<MeasuredWork> rows_of(std::string_view constant, std::string_view algorithm) {
  std::vector<MeasuredWork> rows;
  for (const MeasuredWork& row : kMeasured)
    if (row.constant == constant && row.algorithm == algorithm) rows.push_back(row);
  return rows;
}

// The n-th row of this stage and part at a size; null where the run of that size had none.
const MeasuredWork* row_at(const std::vector<MeasuredWork>& rows, u64 digits, const MeasuredWork& like,
                           u64 n) {
  for (const MeasuredWork& row : rows)
    if (row.digits == digits && std::string_view(row.stage) == like.stage &&
        std::string_view(row.part) == like.part && n-- == 0)
      return &row;
  return nullptr;
}

// Along n (log n)^k through two measured sizes; through one, with the k of a fast product. Measured for Pi from 1 to 100
// million digits, k falls from 3.7 to 3.2, where a power of n itself would have to fall from 1.25 to 1.19.
double scaled(const MeasuredWork& near, const MeasuredWork* other, double digits) {
  constexpr double kProduct = 1, kLeast = -2, kMost = 5;
  const auto ratio = [&](double to, double from) { return std::log(to) / std::log(from); };
  const double size = static_cast<double>(near.digits);
  double k = kProduct;
  if (other && other->digits != near.digits && other->seconds > 0 && near.seconds > 0) {
    const double other_size = static_cast<double>(other->digits);
    k = std::clamp(
        std::log(near.seconds / other->seconds / (size / other_size)) / std::log(ratio(size, other_size)),
        kLeast, kMost);
  }
  return near.seconds * digits / size * std::pow(ratio(digits, size), k);
}

// The check of the last digits, if the run will make it.
void add_pi_proof(const ComputeParameters& parameters, std::vector<orl::PlannedWork>& plan) {
  double run = 0;
  for (const orl::PlannedWork& work : plan) run += work.seconds;
  const u64 threads = std::min(parameters.parallelism.tds(), orl::processor_count());
  const double seconds = pi_proof_seconds(pi_proof_digits(parameters), threads);
  if (parameters.pi_proof.value_or(seconds < kPiProofShare * run)) plan.push_back({"BBP Check", "", seconds});
}

}  // namespace

u64 pi_proof_digits(const ComputeParameters& parameters) {
  const u64 wanted = parameters.hexadecimal_digits();
  return wanted != 0 ? wanted : hexadecimal_equivalent(parameters.decimal_digits());
}

std::vector<orl::PlannedWork> expected_work(const ComputeParameters& parameters) {
  const Constant& constant = parameters.constant();
  std::vector<MeasuredWork> rows = rows_of(constant.name(), constant.algorithm_short());
  if (rows.empty()) rows = rows_of("Pi", "Chudnovsky");
  const double digits = static_cast<double>(parameters.decimal_digits());
  const double hexadecimal = static_cast<double>(parameters.hexadecimal_digits());

  // The two measured sizes next to the run's, the nearer one first.
  std::vector<u64> sizes;
  for (const MeasuredWork& row : rows)
    if (std::find(sizes.begin(), sizes.end(), row.digits) == sizes.end()) sizes.push_back(row.digits);
  std::sort(sizes.begin(), sizes.end(), [&](u64 a, u64 b) {
    return std::abs(std::log(static_cast<double>(a) / digits)) <
           std::abs(std::log(static_cast<double>(b) / digits));
  });

  // Rows are in seconds of one processor.
  const double threads = static_cast<double>(std::min(parameters.parallelism.tds(), orl::processor_count()));
  std::vector<orl::PlannedWork> plan;
  std::vector<const MeasuredWork*> seen;
  for (const MeasuredWork& row : rows) {
    if (row.digits != sizes[0]) continue;
    const std::string_view stage = row.stage;
    const u64 before =
        static_cast<u64>(std::count_if(seen.begin(), seen.end(), [&](const MeasuredWork* other) {
          return stage == other->stage && std::string_view(other->part) == row.part;
        }));
    seen.push_back(&row);
    if (stage == "Verification" && !parameters.verify_conversion) continue;
    double size = digits;
    if (stage == "Hexadecimal Output") size = hexadecimal;
    if (size == 0) continue;
    plan.push_back(
        {stage == "Compute" ? constant.name() : std::string(stage), row.part,
         scaled(row, sizes.size() > 1 ? row_at(rows, sizes[1], row, before) : nullptr, size) / threads});
  }
  if (constant.index() == ConstantIndex::kPi) add_pi_proof(parameters, plan);
  return plan;
}

}  // namespace orvane
