#include "stress/swap_multiply.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "console/console.h"
#include "console/console_status.h"
#include "core/exceptions.h"
#include "core/format.h"
#include "core/run_timer.h"
#include "files/raw_io_buffer.h"
#include "outofcore/swap_product.h"
#include "stress/known_answers.h"
#include "system/limits.h"
#include "transforms/registration.h"
#include "words/hash.h"

namespace orvane {
namespace {

namespace console = orl::console;
using orl::LinearHeapBuffer;
using orl::ParallelContext;
using orl::SwapDescriptor;
using orl::SwapNumber;
using orl::u32;
using orl::Words;

constexpr const char* kFunction = "run_swap_multiply()";
constexpr u64 kDefaultMemory = u64{1} << 30;
constexpr u64 kMinMemory = u64{32} << 20;
constexpr u64 kMinOperand = 4096;
constexpr u64 kBlockShare = 16;  // of the memory, a block of words that are made or read
constexpr u64 kSeeds[] = {1, u64{1} << 40};

// A stage of the test, from its label to its time.
class Stage {
 public:
  explicit Stage(const char* label) : label_(label), start_(orl::monotonic_seconds()) {}
  double end() const {
    const double seconds = orl::monotonic_seconds() - start_;
    console::label_value(label_, orl::seconds_text(seconds), 'G');
    console::newline();
    return seconds;
  }

 private:
  const char* label_;
  double start_;
};

// The first words of the product end one stage and begin the next.
class StagedSink final : public orl::ProductSink {
 public:
  explicit StagedSink(orl::ProductSink& sink) : sink_(sink), stage_("Forward Transform A:  ") {}

  void take(Words<u32> words, ParallelContext parallel) override {
    if (!begun_) {
      stage_.end();
      stage_ = Stage("Inverse Transform C:  ");
      begun_ = true;
    }
    sink_.take(words, parallel);
  }
  void load(u64 at, u32* words, u64 count) override { sink_.load(at, words, count); }
  void store(u64 at, Words<u32> words, ParallelContext parallel) override {
    sink_.store(at, words, parallel);
  }
  void finish() override { sink_.finish(); }
  void end() const { stage_.end(); }

 private:
  orl::ProductSink& sink_;
  Stage stage_;
  bool begun_ = false;
};

class SwapMultiplyTest {
 public:
  SwapMultiplyTest(SwapMultiplySettings& settings, SwapDescriptor& disk, SwapDescriptor& second,
                   LinearHeapBuffer memory)
      : settings_(settings), disk_(disk), second_(second), memory_(memory) {}

  int run() {
    const double start = orl::monotonic_seconds();
    const orl::SwapPlan plan = planned();
    print_disk_space(plan);
    const u64 words = plan.request.a_words;
    const SwapNumber a = generated(disk_, words, 0), b = generated(second_, words, 1);
    const u64 hash_of_a = hashed("Hashing operand A:    ", a),
              hash_of_b = hashed("Hashing operand B:    ", b);
    const u64 expected = orl::hash_canon(orl::hash_mul(hash_of_a, hash_of_b));
    SwapNumber c(second_, plan.wanted_words(), "C.sf");
    const double compute = multiplied(plan, a, b, c);
    const u64 actual = hashed("Hashing operand C:    ", c);
    print_times(compute, orl::monotonic_seconds() - start);
    console::newline();
    console::label_value("Actual Hash  :  ", std::to_string(actual), actual == expected ? 'G' : 'R');
    console::label_value("\nExpected Hash:  ", std::to_string(expected), 'G');
    return result(actual == expected);
  }

  static int result(bool right) {
    console::println(right ? "\n\nTest Succeeded" : "\n\nTest Failed", right ? 'G' : 'R');
    return right ? 0 : 1;
  }

 private:
  ParallelContext parallel() const { return settings_.parallelism.context(); }

  orl::SwapPlan planned() const {
    const u64 words = settings_.operand_bytes() / sizeof(u32);
    const orl::SwapBudget budget{memory_.size, settings_.bytes_per_seek.value(settings_.raid),
                                 std::max(disk_.geometry().row_bytes, second_.geometry().row_bytes),
                                 settings_.parallelism.tds()};
    return orl::plan_swap_product(orl::find_far_family(settings_.algorithm), orl::whole_product(words, words),
                                  budget);
  }

  void print_disk_space(const orl::SwapPlan& plan) const {
    const u64 numbers = sizeof(u32) * (plan.request.a_words + plan.request.b_words + plan.wanted_words());
    console::label_value("Disk Space...      ", orl::format_bytes(numbers + plan.disk_bytes), 'G');
    console::println("\n", 'w');
  }

  u64 block_words(const SwapDescriptor& disk) const {
    const u64 row = disk.geometry().row_bytes;
    return std::max(row, memory_.size / kBlockShare / row * row) / sizeof(u32);
  }

  SwapNumber generated(SwapDescriptor& disk, u64 words, int index) const {
    const Stage stage(index == 0 ? "Generating operand A: " : "Generating operand B: ");
    SwapNumber number(disk, words, index == 0 ? "A.sf" : "B.sf");
    LinearHeapBuffer memory = memory_;
    const u64 block = block_words(disk), bytes = block * sizeof(u32);
    orl::NumberSink sink(number, 0, bytes, memory.cut_buffer(orl::NumberSink::bytes(bytes)));
    u32* const piece = memory.cut<u32>(block);
    for (u64 at = 0; at < words; at += block) {
      const u64 count = std::min(block, words - at);
      orl::fill_known_words<u32>(piece, at, count, kSeeds[index], parallel());
      sink.take({piece, count}, parallel());
    }
    sink.finish();
    stage.end();
    return number;
  }

  // Of the words that the array gives back.
  u64 hashed(const char* label, const SwapNumber& number) const {
    const Stage stage(label);
    LinearHeapBuffer memory = memory_;
    orl::WordReader reader(number, block_words(disk_), memory, kFunction);
    while (reader.next(parallel()).count != 0) {
    }
    stage.end();
    return reader.sums().hash();
  }

  double multiplied(const orl::SwapPlan& plan, const SwapNumber& a, const SwapNumber& b,
                    SwapNumber& c) const {
    orl::LinearConsoleNode status;
    const double start = orl::monotonic_seconds();
    orl::NumberSink number(c, 0, plan.sink_bytes, memory_);
    StagedSink sink(number);
    orl::swap_multiply(plan, orl::find_far_family(settings_.algorithm), {parallel(), disk_, memory_, status},
                       {a, &b}, sink);
    sink.end();
    return orl::monotonic_seconds() - start;
  }

  static void print_times(double compute, double total) {
    console::label_value("\nCompute Time:  ", orl::seconds_text(compute), 'G');
    console::label_value("\nTotal Time:    ", orl::seconds_text(total), 'G');
    console::newline();
  }

  SwapMultiplySettings& settings_;
  SwapDescriptor &disk_, &second_;
  LinearHeapBuffer memory_;
};

}  // namespace

SwapMultiplySettings::SwapMultiplySettings()
    : memory_bytes(std::max(kMinMemory, std::min(kDefaultMemory, orl::available_memory_bytes() / 2))),
      allocator(orl::create_allocator(orl::default_allocator_key())) {}

// Each array takes its part of the memory.
u64 SwapMultiplySettings::buffer_bytes() const {
  if (!second) return geometry_of(raid, memory_bytes).buffer_bytes();
  return geometry_of(raid, memory_bytes / 2).buffer_bytes() +
         geometry_of(*second, memory_bytes / 2).buffer_bytes();
}

std::string SwapMultiplySettings::refusal() const {
  if (memory_bytes < kMinMemory)
    return "The test needs " + orl::format_bytes(kMinMemory) + " of memory at least.";
  if (operand_bytes() < kMinOperand) return "Operands have " + orl::format_bytes(kMinOperand) + " at least.";
  if (const u64 buffers = buffer_bytes(); buffers > memory_bytes / 2)
    return "The buffers of the arrays take " + orl::format_bytes(buffers) +
           ", more than half of the memory. Use more memory, or smaller buffers.";
  if (const orl::Limits limits = orl::limits(); memory_bytes > limits.available_bytes)
    return orl::memory_sentence(limits) + " of memory, of which " +
           orl::format_bytes(limits.available_bytes) + " are available. Use less.";
  return "";
}

int run_swap_multiply(SwapMultiplySettings& settings) {
  settings.raid.prepare();
  if (settings.second) settings.second->prepare();
  const u64 share = settings.second ? settings.memory_bytes / 2 : settings.memory_bytes;
  SwapDescriptor disk(settings.raid, share);
  std::unique_ptr<SwapDescriptor> other;
  if (settings.second) other = std::make_unique<SwapDescriptor>(*settings.second, share);

  const u64 buffers = disk.buffer_bytes() + (other ? other->buffer_bytes() : 0);
  const u64 working = (settings.memory_bytes - buffers) / orl::kIoAlignment * orl::kIoAlignment;
  console::newline();
  console::label_value("Working Memory...  ", orl::format_bytes(working), 'G');
  console::newline();
  std::vector<std::string> errors;
  const auto memory =
      orl::allocate_or_exit(*settings.allocator, working, settings.parallelism.context(), errors);
  for (const std::string& error : errors) console::println(error, 'Y');
  console::label_value("I/O Buffers...     ", orl::format_bytes(buffers), 'G');
  console::newline();
  try {
    return SwapMultiplyTest(settings, disk, other ? *other : disk, {memory->address(), working}).run();
  } catch (const orl::AlgorithmFailedException& e) {
    e.print();
  } catch (const orl::ConvolutionFailedException& e) {
    e.print();
  }
  return SwapMultiplyTest::result(false);
}

}  // namespace orvane
