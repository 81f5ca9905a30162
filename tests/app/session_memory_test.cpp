// What a run states is what it uses: buffers, resident pages, allocations.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>

#include "app/process.h"
#include "memory/linear_buffer.h"
#include "session/parameters.h"
#include "session/ram_plan.h"
#include "support/allocation_counter.h"

namespace orvane::test {
namespace {

// Follows the cuts of the working memory, which open with the number's own, and the allocations from then on.
class Watch final : public orl::CutObserver {
 public:
  explicit Watch(const RamPlan& plan)
      : number_bytes_(orl::LinearHeapBuffer::cut_bytes<Word>(plan.number_words())),
        working_bytes_(plan.working_bytes()) {
    orl::set_cut_observer(this);
  }
  ~Watch() override { orl::set_cut_observer(nullptr); }

  void on_cut(const void* begin, orl::u64 bytes) override {
    const auto from = reinterpret_cast<std::uintptr_t>(begin), to = from + bytes;
    std::uintptr_t none = 0;
    if (base_ == 0 && bytes == number_bytes_ && base_.compare_exchange_strong(none, from)) {
      end_ = to;
      first_ = last_ = orl::test::allocation_calls();
    }
    if (base_ == 0 || from < base_ || from >= base_ + working_bytes_) return;
    for (auto old = end_.load(); old < to && !end_.compare_exchange_weak(old, to);) {
    }
    last_ = orl::test::allocation_calls();
  }
  double share() const { return static_cast<double>(end_ - base_) / static_cast<double>(working_bytes_); }
  orl::u64 allocations() const { return last_ - first_; }

 private:
  orl::u64 number_bytes_, working_bytes_;
  std::atomic<std::uintptr_t> base_{0}, end_{0};
  std::atomic<orl::u64> first_{0}, last_{0};
};

struct Usage {
  double share;          // of the working memory that was cut
  orl::u64 allocations;  // between the first and the last cut
};

Usage run_in_process(const char* constant, orl::u64 digits, orl::u64 tds) {
  RamParameters parameters;
  auto object = make_constant(constant_index(constant));
  if (object->takes_argument()) object->set_argument("2");
  parameters.set_constant(std::move(object));
  parameters.set_decimal_digits(digits);
  parameters.output_digits = false;
  parameters.parallelism.set_framework(tds == 1 ? "none" : "pushpool");
  parameters.parallelism.set_tds(tds);
  const RamPlan plan(parameters.constant(), parameters.precision().words(), digits, tds, true);
  const Watch watch(plan);
  const TemporaryFolder folder;  // for the report
  std::filesystem::current_path(folder.path());
  testing::internal::CaptureStdout();
  EXPECT_EQ(parameters.run(0), 0);
  testing::internal::GetCapturedStdout();
  return {watch.share(), watch.allocations()};
}

TEST(SessionMemory, UsesTheWholePlan) {
  for (const char* constant : {"pi", "e", "sqrt", "phi", "log", "lemniscate"})
    for (const orl::u64 digits : {orl::u64{300000}, orl::u64{1000000}, orl::u64{3000000}})
      for (const orl::u64 tds : {orl::u64{1}, orl::u64{4}})
        EXPECT_GE(run_in_process(constant, digits, tds).share, 0.95)
            << constant << " " << digits << " tds " << tds;
}

TEST(SessionMemory, DoesNotAllocateMoreForMoreDigits) {
  for (const char* constant : {"pi", "e"}) {
    const orl::u64 few = run_in_process(constant, 100000, 2).allocations;
    const orl::u64 many = run_in_process(constant, 4000000, 2).allocations;
    // Names and reports of stages; a framework may start a worker more.
    EXPECT_LE(many, few + 40) << constant;
    EXPECT_LE(many, 400u) << constant;
  }
}

// The figures as the program prints them, against the peak that the system saw.
TEST(SessionMemory, IsTheResidentSize) {
  for (const char* tasks : {"-TD:1", "-TD:2"}) {
    TemporaryFolder folder;
    const Outcome outcome =
        run_orvane({"custom", "pi", "-dec:10000000", tasks, "-PF:pushpool", "-o", folder.path()});
    ASSERT_EQ(outcome.status, 0) << outcome.output;
    double stated = 0;
    for (const char* label : {"Working Memory...  ", "Twiddle Tables...  "}) {
      const auto begin = outcome.output.find(label) + std::string(label).size();
      std::string digits = outcome.output.substr(begin, outcome.output.find(' ', begin) - begin);
      std::erase(digits, ',');
      stated += std::stod(digits);
    }
    const double peak = static_cast<double>(outcome.peak_bytes);
    EXPECT_LE(peak, stated * 1.1 + 32.0 * 1048576);
    EXPECT_GE(peak, stated * 0.9 - 32.0 * 1048576);
  }
}

}  // namespace
}  // namespace orvane::test
