#include "bbp/bbp_digits.h"

#include <algorithm>
#include <atomic>
#include <system_error>
#include <thread>

#include "core/exceptions.h"
#include "core/output.h"
#include "system/topology.h"
#include "threads/frameworks.h"
#include "threads/parallelizer.h"
#include "threads/task_entry.h"

namespace orvane {
namespace {

using orl::BbpTerm;
using orl::s64;
using orl::u32;

// Indices of a block: about a millisecond's work where denominators fit doubles. An index costs its power and
// its limbs; a call costs its limbs some ten times.
u64 block_indices(u64 limb_count) {
  constexpr u64 kWork = u64{1} << 21, kPowerWork = 16, kLimbsAUnit = 3;
  return std::clamp<u64>(kWork / (kPowerWork + limb_count / kLimbsAUnit), 768, u64{1} << 17);
}

// The terms in turn, each cut into blocks of its indices; threads take the next block when they have done
// one.
class Extraction final : public orl::ParallelTask {
 public:
  Extraction(const BbpTask& task, orl::StatusNode& status)
      : task_(task),
        status_(status),
        terms_(bbp_terms(task.formula, task.offset)),
        block_(block_indices(task.limb_count())),
        blocks_a_term_((task.terms_needed() + block_ - 1) / block_),
        sums_(task.threads, std::vector<u64>(task.limb_count())) {}

  void run(u64 thread) override;
  void run_threads();
  std::vector<u64> total() const;

 private:
  u64 blocks() const { return blocks_a_term_ * terms_.size(); }
  void show_progress(u64 blocks_done);

  const BbpTask& task_;
  orl::StatusNode& status_;
  const std::vector<BbpTerm> terms_;
  const u64 block_, blocks_a_term_;
  std::vector<std::vector<u64>> sums_;  // one per thread
  std::atomic<u64> next_{0};
  std::atomic_flag showing_;
};

void Extraction::run(u64 thread) {
  if (!task_.pin_order.empty()) {
    const u32 core = task_.pin_order[thread % task_.pin_order.size()];
    if (!orl::bind_thread({core}))
      orl::notice_line("Failed to set core affinity to core: " + std::to_string(core), 'R');
  }
  for (;;) {
    const u64 block = next_.fetch_add(1, std::memory_order_relaxed);
    if (block >= blocks()) return;
    const u64 first = block % blocks_a_term_ * block_;
    orl::bbp_sum(terms_[block / blocks_a_term_], first, std::min(first + block_, task_.terms_needed()),
                 sums_[thread].data(), sums_[thread].size());
    show_progress(block);
  }
}

// By whoever comes while nobody else does: the node is for one thread at a time.
void Extraction::show_progress(u64 blocks_done) {
  if (showing_.test_and_set(std::memory_order_acquire)) return;
  status_.set_progress(static_cast<double>(blocks_done) / static_cast<double>(blocks()));
  showing_.clear(std::memory_order_release);
}

void Extraction::run_threads() {
  if (task_.pin_order.empty()) {
    // This framework gives each task a thread of its own: it is threads that the user asked for.
    orl::create_framework("spawn")->run_range(*this, 0, task_.threads);
    return;
  }
  // Threads of our own: the binding goes with them.
  std::vector<std::jthread> threads;
  try {
    for (u64 i = 0; i < task_.threads; i++) threads.emplace_back([this, i] { orl::run_task(*this, i); });
  } catch (const std::system_error&) {
    next_ = blocks();  // so that those which run end soon
    throw orl::InvalidParametersException(
        "bbp_digits()",
        "The system gives only " + std::to_string(threads.size()) + " threads. Please select fewer.");
  }
}

std::vector<u64> Extraction::total() const {
  std::vector<u64> total(task_.limb_count());
  for (const std::vector<u64>& sum : sums_) orl::bbp_add(total.data(), sum.data(), total.size());
  return total;
}

std::string hexadecimal(const std::vector<u64>& limbs, u64 digits) {
  constexpr u32 kDigitsALimb = orl::kBbpLimbBits / 4;
  std::string text;
  for (u64 i = limbs.size(); i-- > 0;)
    for (u32 digit = kDigitsALimb; digit-- > 0;) text += "0123456789abcdef"[limbs[i] >> (4 * digit) & 15];
  text.resize(digits);
  return text;
}

}  // namespace

u64 BbpTask::terms_needed() const {
  constexpr u64 kSpare = 16;  // digits
  const u64 bits = 4 * (offset + digits + kSpare);
  return formula == BbpFormula::kPlouffe ? bits / 4 : bits / 20 + 1;
}

u64 BbpTask::limb_count() const {
  return std::max<u64>((precision_words() * 32 + orl::kBbpLimbBits - 1) / orl::kBbpLimbBits, 2);
}

std::vector<BbpTerm> bbp_terms(BbpFormula formula, u64 offset) {
  const s64 H = 4 * static_cast<s64>(offset);
  // Pi = SUM 16^-k (4/(8k+1) - 2/(8k+4) - 1/(8k+5) - 1/(8k+6)), in lowest terms.
  if (formula == BbpFormula::kPlouffe)
    return {
        {8, 1, -4, H + 2, true}, {2, 1, -4, H - 1, false}, {8, 5, -4, H, false}, {4, 3, -4, H - 1, false}};
  // Pi = SUM (-1)^k 1024^-k (- 2^-1/(4k+1) - 2^-6/(4k+3) + 2^2/(10k+1) - 1/(10k+3) - 2^-4/(10k+5)
  // - 2^-4/(10k+7) + 2^-6/(10k+9)), an even k together with the odd one behind it.
  return {{8, 1, -20, H - 1, false},   {8, 3, -20, H - 6, false},   {8, 5, -20, H - 11, true},
          {8, 7, -20, H - 16, true},   {20, 1, -20, H + 2, true},   {20, 3, -20, H, false},
          {20, 5, -20, H - 4, false},  {20, 7, -20, H - 4, false},  {20, 9, -20, H - 6, true},
          {20, 11, -20, H - 8, false}, {20, 13, -20, H - 10, true}, {20, 15, -20, H - 14, true},
          {20, 17, -20, H - 14, true}, {20, 19, -20, H - 16, false}};
}

std::string to_string(const BbpTerm& term) {
  return "Frac( 1/(" + std::to_string(term.a) + "k + " + std::to_string(term.b) + ") * 2^(" +
         std::to_string(term.c) + "k + " + std::to_string(term.d) + ") )";
}

std::string bbp_digits(const BbpTask& task, orl::StatusNode& status) {
  orl::StatusFrame frame(status, "Preparing...  ");
  Extraction extraction(task, status);
  status.set_line("Running...  ", 0);
  extraction.run_threads();
  status.set_line("Summing...  ", 1);
  return hexadecimal(extraction.total(), task.precision_digits());
}

}  // namespace orvane
