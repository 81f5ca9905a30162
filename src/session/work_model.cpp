#include "session/work_model.h"

#include <algorithm>
#include <cmath>
#include <string_view>

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

// Along the power law through two measured sizes; through one, quasi-linear.
double scaled(const MeasuredWork& near, const MeasuredWork* other, double digits) {
  constexpr double kQuasiLinear = 1.1, kLeast = 0.9, kMost = 1.35;
  double power = kQuasiLinear;
  if (other && other->digits != near.digits && other->seconds > 0 && near.seconds > 0)
    power = std::clamp(std::log(near.seconds / other->seconds) /
                           std::log(static_cast<double>(near.digits) / static_cast<double>(other->digits)),
                       kLeast, kMost);
  return near.seconds * std::pow(digits / static_cast<double>(near.digits), power);
}

}  // namespace

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
    plan.push_back({stage == "Compute" ? constant.name() : std::string(stage), row.part,
                    scaled(row, sizes.size() > 1 ? row_at(rows, sizes[1], row, before) : nullptr, size)});
  }
  return plan;
}

}  // namespace orvane
