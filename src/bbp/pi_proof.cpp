#include "bbp/pi_proof.h"

#include <algorithm>

#include "bbp/bbp_digits.h"
#include "core/format.h"
#include "core/run_timer.h"

namespace orvane {
namespace {

BbpTask task_at(u64 offset, u64 threads) {
  BbpTask task;
  task.offset = offset;
  task.digits = kPiProofDigits;
  task.threads = threads;
  return task;
}

// The shorter of two samples: the first one may find the machine asleep.
double sample_seconds(const orl::BbpTerm& term, u64 first, u64 last, u64 limb_count) {
  std::vector<u64> limbs(limb_count);
  double shortest = 1e9;
  for (int i = 0; i < 2; i++) {
    const double start = orl::monotonic_seconds();
    orl::bbp_sum(term, first, last, limbs.data(), limb_count);
    shortest = std::min(shortest, orl::monotonic_seconds() - start);
  }
  return shortest;
}

}  // namespace

std::vector<u64> pi_proof_offsets(u64 digits) {
  // An offset costs in proportion to itself: the second one adds a sixteenth.
  constexpr u64 kEarlierPart = 16;
  if (digits < 4 * kPiProofDigits || digits - kPiProofDigits > kMaxBbpOffset) return {};
  return {digits - kPiProofDigits, digits / kEarlierPart};
}

double pi_proof_seconds(u64 digits, u64 threads) {
  constexpr u64 kSample = 8192;  // indices; about a millisecond
  double seconds = 0;
  for (const u64 offset : pi_proof_offsets(digits)) {
    const BbpTask task = task_at(offset, threads);
    const std::vector<orl::BbpTerm> terms = bbp_terms(task.formula, offset);
    // Exponents halve towards the end: the middle is dearer by a step of fifty than the mean.
    const u64 indices = task.terms_needed(), first = indices / 2;
    const u64 last = std::min(first + kSample, indices);
    const double sample = sample_seconds(terms.back(), first, last, task.limb_count());
    seconds += sample * static_cast<double>(indices) / static_cast<double>(last - first) *
               static_cast<double>(terms.size()) / static_cast<double>(threads);
  }
  return seconds;
}

PiProof prove_pi(u64 digits, u64 threads, const std::function<std::string(u64 offset, u64 count)>& digits_at,
                 orl::StatusNode& status) {
  PiProof proof;
  const double start = orl::monotonic_seconds();
  for (const u64 offset : pi_proof_offsets(digits)) {
    const std::string expected = bbp_digits(task_at(offset, threads), status).substr(0, kPiProofDigits);
    proof.places.push_back({offset, digits_at(offset, kPiProofDigits), expected});
  }
  proof.seconds = orl::monotonic_seconds() - start;
  if (proof.places.empty()) return proof;
  const bool agree = std::all_of(proof.places.begin(), proof.places.end(),
                                 [](const PiProofPlace& place) { return place.given == place.expected; });
  proof.result = agree ? PiProof::kPassed : PiProof::kFailed;
  return proof;
}

std::string to_string(const PiProof& proof) {
  if (proof.result == PiProof::kNotRun) return "Not Run";
  std::string text = proof.result == PiProof::kPassed ? "Passed" : "Failed";
  const char* between = " - after ";
  for (const PiProofPlace& place : proof.places) {
    if (proof.result == PiProof::kFailed && place.given == place.expected) continue;
    text += between + orl::format_with_commas(place.offset);
    between = " and ";
  }
  return text + " digits";
}

std::vector<std::string> differing_digits(const PiProof& proof) {
  std::vector<std::string> lines;
  for (const PiProofPlace& place : proof.places) {
    if (place.given == place.expected) continue;
    lines.push_back(place.given + " is what the number has");
    lines.push_back(place.expected + " is what the formula says");
  }
  return lines;
}

}  // namespace orvane
