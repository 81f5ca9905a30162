// The proof of Pi's last hexadecimal digits by the extractor's formula: processor time on one thread beside what is
// expected of it before it runs.
//
// pi_proof_bench [decimal digits ...]

#include <ctime>

#include "bbp/pi_proof.h"
#include "support/measure.h"
#include "threads/frameworks.h"

namespace {

using namespace orl;

double processor_seconds() {
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

void measure(u64 decimal_digits) {
  const u64 digits = static_cast<u64>(static_cast<double>(decimal_digits) * 0.83048202372184);
  const double expected = orvane::pi_proof_seconds(digits, 1), start = processor_seconds();
  // Digits that nobody compares: the work is the formula's.
  const orvane::PiProof proof = orvane::prove_pi(
      digits, 1, [](u64, u64 count) { return std::string(count, '-'); }, silent_status());
  const double taken = processor_seconds() - start;
  std::printf("  %15llu %12.4f %12.4f %8.2f\n", static_cast<unsigned long long>(decimal_digits), taken,
              expected, expected / taken);
  if (proof.places.size() != 2) std::exit(1);
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<u64> sizes;
  for (int i = 1; i < argc; ++i) sizes.push_back(std::strtoull(argv[i], nullptr, 10));
  if (sizes.empty()) sizes = {1'000'000, 10'000'000, 100'000'000};
  register_frameworks();
  bench::heading("pi_proof_bench", "the best that this machine runs");
  std::printf("  %15s %12s %12s %8s\n", "decimal digits", "seconds", "expected", "ratio");
  for (const u64 size : sizes) measure(size);
}
