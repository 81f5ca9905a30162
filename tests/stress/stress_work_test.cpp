// The nine tests, each through its own work: how much memory they fill, and that no flipped bit passes.
#include "stress/stress_work.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include "config/located.h"
#include "config/parser.h"
#include "config/writer.h"
#include "core/format.h"
#include "stress/stress_settings.h"
#include "stress/stress_tester.h"
#include "stress/stress_threads.h"
#include "support/child.h"
#include "support/multiplication.h"
#include "support/random_words.h"
#include "support/thrown.h"
#include "system/limits.h"
#include "system/machine.h"
#include "system/topology.h"

namespace orvane::test {
namespace {

using orl::LinearHeapBuffer;
using orl::test::GuardedBlock;
using orl::test::Random;

const std::atomic<bool> never_stop{false};

TEST(StressWork, OperandsFillTheirShareOfMemory) {
  for (const auto& test : make_stress_tests()) {
    SCOPED_TRACE(test->tag());
    for (const u64 share : {u64{1} << 20, u64{12345678}, u64{1} << 28, (u64{1} << 33) + 4097, u64{1} << 40}) {
      const auto work = test->plan(share);
      ASSERT_TRUE(work) << share;
      EXPECT_LE(work->bytes(), share);
      EXPECT_GE(static_cast<double>(work->operand_bytes()), 0.6 * static_cast<double>(share)) << share;
    }
    EXPECT_FALSE(test->plan(0));
    EXPECT_FALSE(test->plan(500));
  }
}

// The rounds that a test makes, then the proof at its end.
bool passes(StressWork& work, u64 rounds) {
  try {
    for (u64 i = 0; i < rounds; ++i) work.round();
    work.check_memory();
    return true;
  } catch (const orl::Exception&) {
    return false;  // a mismatch, or what a transform finds by itself when its tables are wrong
  }
}

void flip(LinearHeapBuffer memory, Random& random) {
  static_cast<orl::u8*>(memory.ptr)[random.below(memory.size)] ^= static_cast<orl::u8>(1u << random.below(8));
}

TEST(StressWork, FindsEveryFlippedBitOfOperandsAndTables) {
  Random random;
  for (const auto& test : make_stress_tests()) {
    SCOPED_TRACE(test->tag());
    const auto work = test->plan(random.between(600000, 1500000));
    ASSERT_TRUE(work);
    const GuardedBlock memory(work->bytes());
    work->prepare(memory.buffer(), random.next(), never_stop);
    EXPECT_TRUE(passes(*work, 9));
    EXPECT_TRUE(memory.intact());
    const LinearHeapBuffer operands(memory.buffer().ptr, work->operand_bytes());
    for (int strike = 0; strike < 4; ++strike) {
      work->prepare(memory.buffer(), random.next(), never_stop);
      // Never in the tables of a test without any.
      flip(strike % 2 == 1 && work->tables().size > 0 ? work->tables() : operands, random);
      EXPECT_FALSE(passes(*work, 2));
    }
    work->prepare(memory.buffer(), random.next(), never_stop);
    EXPECT_TRUE(passes(*work, 2));
  }
}

// A round must see what it reads: with all operands damaged the next one fails, before any proof at the end.
TEST(StressWork, RoundsThemselvesCompare) {
  Random random;
  for (const auto& test : make_stress_tests()) {
    SCOPED_TRACE(test->tag());
    const auto work = test->plan(600000);
    const GuardedBlock memory(work->bytes());
    work->prepare(memory.buffer(), random.next(), never_stop);
    u64* const words = static_cast<u64*>(memory.buffer().ptr);
    for (u64 i = 0; i < work->operand_bytes() / 8; ++i) words[i] ^= u64{1} << 20;
    EXPECT_THROW(work->round(), orl::AlgorithmFailedException);
  }
}

TEST(StressWork, NeverWaits) {
  const auto switches = [] {
    rusage usage{};
    getrusage(RUSAGE_THREAD, &usage);
    return usage.ru_nvcsw;
  };
  for (const auto& test : make_stress_tests()) {
    SCOPED_TRACE(test->tag());
    const auto work = test->plan(1000000);
    const GuardedBlock memory(work->bytes());
    const long before = switches();
    work->prepare(memory.buffer(), 1, never_stop);
    EXPECT_TRUE(passes(*work, 10));
    EXPECT_LE(switches() - before, 2);
  }
}

class ThrowingTest final : public StressTest {
 public:
  ThrowingTest() : StressTest({"BAD", "Bad", "bads", Component::kMixed, 1, true}) {}
  std::unique_ptr<StressWork> plan(u64) const override { throw 1; }
};

TEST(StressThreads, EndTheProgramAtAnUnknownException) {
  const auto child = orl::test::run_child("", [] {
    orl::settings().pause_on_fatal = false;
    GuardedBlock memory(64);
    struct Block final : orl::LargeMemory {
      explicit Block(LinearHeapBuffer buffer) : LargeMemory(buffer.ptr, buffer.size) {}
    };
    StressThreads threads({{orl::topology().cores[0]}, 64, true, [&](u64, u32, std::vector<std::string>&) {
                             return std::make_unique<Block>(memory.buffer());
                           }});
    if (threads.ready()) threads.run(ThrowingTest(), 1000, [](double) { return true; });
    return 0;
  });
  EXPECT_EQ(child.status, 1);
  EXPECT_NE(child.output.find("Unknown exception thrown from worker thread."), std::string::npos);
}

// What a refusal leaves as it was, and what a file gives back.
TEST(StressSettings, GoThroughAConfigurationAndBack) {
  const StressSettings fresh;
  EXPECT_EQ(fresh.cores, orl::topology().cores);
  EXPECT_EQ(fresh.enabled_count(), 7u);
  EXPECT_LE(fresh.total_memory, orl::total_memory_bytes() / 16 * 15);
  EXPECT_EQ(fresh.refusal(), "");

  StressSettings a, b;
  a.allocate_locally = false;
  a.cores = {0};
  a.total_memory = 123456789;
  a.seconds = 7;
  a.stop_on_error = false;
  a.enable_only({"FFT", "BKT", "N32"});
  const auto tree = orl::parse_text(orl::to_string(a.to_object()));
  b.from_object(orl::root_object(*tree));
  EXPECT_TRUE(orl::same_content(a.to_object(), b.to_object()));
  EXPECT_EQ(b.share_bytes(), 123456789u);
  EXPECT_EQ(b.enabled_count(), 3u);

  struct {
    const char *text, *message;
  } const wrongs[] = {
      {"{\nTests : [\"BKT\"\n\"XYZ\"]}", "Line 3: Tests[1]: Invalid Test: XYZ"},
      {"{Tests : [1]}", "Line 1: Tests[0]: Expected String, got Integer."},
      {"{\n\nSeconds : 1000001}", "Line 3: Seconds: It must be between 0 and 1000000."},
      {"{Seconds : -1}", "Line 1: Seconds: It must be between 0 and 1000000."},
      {"{Seconds : 5\nTotalMemory : 0}",
       "Line 2: TotalMemory: It must be between 1 and 8070450532247928825."},
      {"{LogicalCores : [\n0\n0]}", "Line 3: LogicalCores[1]: Core 0 is named twice."},
      {"{LogicalCores : [-1]}", "Line 1: LogicalCores[0]: Invalid Logical Core: -1"},
      {"{LogicalCores : \"all\"}", "Line 1: LogicalCores: Expected Array, got String."},
      {"{\nStopOnError : \"maybe\"}", "Line 2: StopOnError: Expected true or false."},
      {"{\nSpeed : 1}", "Line 2: Speed: Unknown key. Please remove it or correct its name."},
  };
  for (const auto& wrong : wrongs) {
    const auto bad = orl::parse_text(wrong.text);
    EXPECT_EQ(orl::test::message_of([&] { b.from_object(orl::root_object(*bad)); }), wrong.message);
    EXPECT_TRUE(orl::same_content(a.to_object(), b.to_object())) << wrong.text;
  }
}

TEST(StressSettings, SayWhyATestCannotRun) {
  StressSettings settings;
  settings.enable_all(false);
  EXPECT_EQ(settings.refusal(), "No Tests Enabled.");
  settings.enable_all(true);
  settings.total_memory = orl::available_memory_bytes() / 2 * 3;
  const std::string needs =
      "The test needs " + orl::format_bytes(settings.total_memory) + " of memory,\nand ";
  EXPECT_EQ(settings.refusal().find(needs), 0u) << settings.refusal();
  settings.total_memory = 1;
  EXPECT_NE(settings.refusal(), "");
  settings.total_memory = u64{1} << 24;
  EXPECT_EQ(settings.refusal(), "");
  settings.cores.clear();
  EXPECT_NE(settings.refusal(), "");
}

}  // namespace
}  // namespace orvane::test
