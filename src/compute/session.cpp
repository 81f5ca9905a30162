// The run of a computation in memory, stage by stage.
#include <algorithm>
#include <cstring>

#include "compute/digit_output.h"
#include "compute/parameters.h"
#include "compute/ram_plan.h"
#include "frame/console.h"
#include "frame/ending.h"
#include "frame/event_log.h"
#include "frame/exceptions.h"
#include "frame/run_timer.h"
#include "frame/status.h"
#include "numbers/algorithm_table.h"
#include "numbers/big_float.h"
#include "numbers/hash.h"
#include "parallel/frameworks.h"
#include "swap/path_check.h"
#include "system/machine.h"

namespace orvane {
namespace {

namespace console = orl::console;
using orl::InvalidParametersException;
using orl::LinearHeapBuffer;
using orl::seconds_text;

constexpr orl::u32 kStatusWidth = 79;
constexpr double kStatusRefresh = 1.0;

// A label, its value, the end of the line.
void print_line(std::string_view label, std::string_view value, char colour) {
  console::label_value(label, value, colour);
  console::newline();
}

void print_count(const char* label, u64 value) {
  constexpr u64 kLabelWidth = 20, kNumberWidth = 22;
  console::print_padded(kLabelWidth, label, 'w');
  const std::string number = console::format_with_commas(value);
  console::println(std::string(number.size() < kNumberWidth ? kNumberWidth - number.size() : 0, ' ') + number,
                   'G');
}

// What the conversion to digits is made for: refused with a first line that says why.
void check_range(bool in_range, const char* why) {
  if (in_range) return;
  throw InvalidParametersException(
      "words_to_dec()",
      std::string(why) +
          "\n\nOrvane's radix conversion and digit output is only equipped to handle\n"
          "positive numbers with a magnitude near 1.\n\nThe exact range that Orvane can handle is:\n"
          "    32-bit binaries: 2^-32 < x < 2^32\n    64-bit binaries: 2^-64 < x < 2^64");
}

// Sets the number to a fixed layout, [base, base + words): the word at index words - 1 is the integer part.
// Zeros fill what the number does not reach; what lies below the lowest word is dropped.
void lay_out(const orl::BigFloat<Word>& number, Word* base, u64 words) {
  check_range(number.signum() != 0, "Number is zero and out of range.");
  check_range(number.signum() > 0 && number.magnitude() <= 1 && number.magnitude() >= 0,
              "Number is out of range.");
  const orl::s64 lowest = 1 - static_cast<orl::s64>(words);  // exponent of base[0]
  const u64 dropped = number.exp < lowest ? static_cast<u64>(lowest - number.exp) : 0;
  const u64 kept = number.L - std::min(dropped, number.L);
  const u64 at = static_cast<u64>(number.exp + static_cast<orl::s64>(dropped) - lowest);
  std::memmove(base + at, number.T + dropped, kept * sizeof(Word));
  std::memset(base, 0, at * sizeof(Word));
  std::memset(base + at + kept, 0, (words - at - kept) * sizeof(Word));
}

// One run: the stages in order, over the two blocks.
class RamSession {
 public:
  explicit RamSession(ComputeParameters& parameters)
      : parameters_(parameters),
        plan_(parameters.constant(), parameters.precision().words(), parameters.decimal_digits(),
              parameters.parallelism.tds(), parameters.verify_conversion),
        status_(kStatusWidth, kStatusRefresh),
        parallel_(parameters.parallelism.context()) {}

  void run() {
    print_summary();
    print_line("\nStart Time:  ", timer_.start_date(), 'Y');
    console::newline();
    parallel_.parallelizer.reserve();
    const auto working = allocate("Working Memory", plan_.working_bytes());
    const auto twiddles = allocate("Twiddle Tables", plan_.table_bytes());
    if (allocation_errors_)
      console::println(
          "Memory allocation errors detected. Possible performance degradation.\nPlease see event log for "
          "details.",
          'Y');
    const LinearHeapBuffer heap(working->address(), working->length());
    orl::TransformTables tables(LinearHeapBuffer(twiddles->address(), twiddles->length()));
    orl::basic_table<Word>().ensure_tables(tables, plan_.table_bits());

    event("Begin Computation", "\nBegin Computation:\n");
    compute_and_write(heap, tables);
    parallel_.parallelizer.reset();
    timer_.stop();
    events_.add("End Computation");
    print_report();
  }

 private:
  void event(const char* name, const char* line) {
    events_.add(name);
    status_.println(line, 'w');
  }

  void print_summary() {
    const Constant& constant = parameters_.constant();
    print_line("Constant:    ", constant.name_long(), 'G');
    print_line("Algorithm:   ", constant.algorithm_long(), 'G');
    console::newline();
    print_count("Decimal Digits:", parameters_.decimal_digits());
    if (parameters_.hexadecimal_digits() != 0)
      print_count("Hexadecimal Digits:", parameters_.hexadecimal_digits());
    else
      print_line("Hexadecimal Digits:               ", "Disabled", 'g');
    console::newline();
    print_line("Computation Mode:  ", parameters_.mode_name(), 'R');
    console::print("Multi-Threading:   ", 'w');
    parallel_.parallelizer.print_status(parallel_.tds);
    print_line("\nMemory Allocator:  ", parameters_.allocator->to_string(), 'G');
  }

  std::unique_ptr<orl::LargeMemory> allocate(const char* name, u64 bytes) {
    events_.add(name);
    status_.print(std::string(name) + "...  ", 'w');
    std::vector<std::string> errors;
    auto memory =
        orl::allocate_or_exit(*parameters_.allocator, std::max<u64>(bytes, 4096), parallel_, errors);
    const std::string size = console::format_bytes(bytes);
    status_.println(size, 'G');
    events_.add_line(std::string(name) + ": ", size);
    for (const std::string& error : errors) {
      events_.add_line("Allocation Error: ", error);
      status_.println("Allocation Error: " + error, 'Y');
    }
    allocation_errors_ = allocation_errors_ || !errors.empty();
    return memory;
  }

  void finish_stage(const std::string& name) {
    const double spent = timer_.add_stage(name);
    status_.print(name + ":  ", 'w');
    status_.println(seconds_text(spent) + "\n", 'Y');
  }

  void compute_and_write(LinearHeapBuffer heap, const orl::TransformTables& tables) {
    const orl::RunContext context{parallel_, tables, status_};
    timer_.add_stage("Setup");

    Word* const number = heap.cut<Word>(plan_.number_words());
    orl::BigFloat<Word> result(number, plan_.number_words());
    plan_.constant().run(context, result, heap);
    const u64 words = plan_.precision_words();
    lay_out(result, number, words);
    number_hash_ = number_hash(number, words);
    finish_stage(parameters_.constant().name());

    const DigitWords hexadecimal{16, number[words - 1], number, words - 1};
    if (parameters_.hexadecimal_digits() != 0) {
      hex_ = output(heap, hexadecimal, parameters_.hexadecimal_digits(), "Hexadecimal");
    }

    event("Base Converting", "Base Converting:");
    Word* const digits = heap.cut<Word>(plan_.decimal_words());
    orl::BigFloat<Word> binary(number, words);
    binary.L = number[words - 1] == 0 ? words - 1 : words;
    binary.exp = 1 - static_cast<orl::s64>(words);
    binary.sign = 1;
    binary.strip_top_zeros();
    plan_.conversion().run(context, digits, binary, heap);
    finish_stage("Base Conversion");

    const DigitWords decimal{10, number[words - 1], digits, plan_.decimal_words()};
    dec_ = output(heap, decimal, parameters_.decimal_digits(), "Decimal");

    if (!parameters_.verify_conversion) return;
    OutputContext reading{parallel_, status_, events_, heap};
    verify_conversion(context, digits, binary, heap);
    verify_digits(reading, decimal, dec_);
    if (hex_.digit_count != 0) verify_binary_output(reading, hexadecimal, hex_);
    if (!dec_.path.empty()) read_check(reading, dec_);
    if (!hex_.path.empty()) read_check(reading, hex_);
    finish_stage("Verification");
  }

  OutputResult output(LinearHeapBuffer buffer, const DigitWords& words, u64 digit_count,
                      const char* radix_name) {
    const OutputContext context{parallel_, status_, events_, buffer};
    const std::string line =
        std::string(parameters_.output_digits ? "Writing " : "Processing ") + radix_name + " Digits:";
    event(line.c_str(), line.c_str());
    const Constant& constant = parameters_.constant();
    const OutputTarget target{constant.name(), constant.algorithm_short(), parameters_.output_path(),
                              parameters_.digits_per_file()};
    OutputResult result = parameters_.output_digits ? write_digits(context, words, digit_count, target)
                                                    : process_digits(context, words, digit_count);
    finish_stage(std::string(radix_name) + " Output");
    return result;
  }

  void verify_conversion(const orl::RunContext& context, const Word* digits,
                         const orl::BigFloat<Word>& binary, LinearHeapBuffer heap) {
    event("Verifying Base Conversion", "Verifying Base Conversion:");
    if (number_hash(binary.base, plan_.precision_words()) != number_hash_)
      orl::fatal_error("Data Corruption Detected: Checksum Mismatch");
    const auto proof = plan_.verification()->run(context, digits, binary, heap);
    if (proof.ok) return;
    if (!dec_.path.empty()) orl::mark_unfinished(dec_.path);
    status_.println("R = " + std::to_string(proof.digits_hash), 'R');
    status_.println("B = " + std::to_string(proof.binary_hash), 'R');
    orl::fatal_error("Base Conversion Failed: Checksum Mismatch");
  }

  u64 number_hash(const Word* number, u64 words) const {
    return orl::hash_canon(orl::bp_hash<Word>(0, number, words, parallel_));
  }

  void print_report() {
    double computing = 0;
    for (const auto& [name, spent] : timer_.stages())
      if (name == parameters_.constant().name() || name == "Base Conversion") computing += spent;
    console::println("\nEnd Computation\n", 'w');
    print_line("Start Time:                 ", timer_.start_date(), 'Y');
    print_line("End Time:                   ", timer_.end_date(), 'Y');
    console::newline();
    const std::string wall = seconds_text(timer_.wall_seconds());
    std::string computation = seconds_text(computing);
    computation.insert(0, wall.size() - std::min(wall.size(), computation.size()), ' ');
    print_line("Total Computation Time:     ", computation, 'G');
    print_line("Start-to-End Wall Time:     ", wall, 'G');
    console::newline();
    print_line("CPU Utilization:        ", timer_.utilization(1), 'Y');
    print_line("Multi-core Efficiency:  ", timer_.utilization(orl::logical_core_count()), 'Y');
    console::newline();
    print_results();
  }

  // Last digits, counts and hashes, each of both radices before the next.
  void print_results() {
    const bool hexadecimal = hex_.digit_count != 0;
    print_last_digits("Last Decimal Digits:", dec_);
    if (hexadecimal) print_last_digits("Last Hexadecimal Digits:", hex_);
    print_counts("Dec Counts: ", dec_);
    if (hexadecimal) print_counts("Hex Counts: ", hex_);
    print_line("Dec Hash: Floor(|x| * 10^dec) mod (2^61 - 1) = ", std::to_string(dec_.hash), 'G');
    if (hexadecimal)
      print_line("Hex Hash: Floor(|x| * 16^hex) mod (2^61 - 1) = ", std::to_string(hex_.hash), 'G');
    if (dec_.sha256)
      print_line("SHA256-dec(1 - " + std::to_string(dec_.digit_count) + ") = ", dec_.sha256->sha256(), 'G');
  }

  // Groups of ten, five to a line, with the index of the line's last digit.
  static void print_last_digits(const char* title, const OutputResult& result) {
    constexpr std::size_t kGroup = 10, kLine = 50;
    console::println(title, 'w');
    const std::string& digits = result.last_digits.text();
    const u64 first = result.digit_count - digits.size();
    const std::size_t index_width = console::format_with_commas(result.digit_count).size();
    for (std::size_t at = 0; at < digits.size(); at += kLine) {
      const std::size_t end = std::min(at + kLine, digits.size());
      std::string line;
      for (std::size_t group = at; group < end; group += kGroup)
        line += digits.substr(group, std::min(kGroup, end - group)) + " ";
      console::print_padded(kLine + kLine / kGroup, line, 'G');
      console::print(" :  ", 'w');
      console::print_number(index_width, first + end, 'w');
      console::newline();
    }
    console::newline();
  }

  static void print_counts(const char* label, const OutputResult& result) {
    print_line(label, counts_text(result.counts), 'G');
  }

  ComputeParameters& parameters_;
  RamPlan plan_;
  orl::RunTimer timer_;
  orl::EventLog events_;
  orl::LinearConsoleNode status_;
  orl::ParallelContext parallel_;
  bool allocation_errors_ = false;
  u64 number_hash_ = 0;  ///< of the constant's words, as its plan left them
  OutputResult dec_, hex_;
};

}  // namespace

bool RamParameters::check_parameters() {
  const std::string refusal = constant().unavailable();
  if (!refusal.empty()) throw InvalidParametersException("check_parameters()", refusal);
  // A run that could not write its digits says so before it computes them.
  if (output_digits && !orl::path_is_writable(output_path()))
    throw InvalidParametersException("check_parameters()", "Path is not writable.");
  const u64 bytes = required_bytes();
  print_line("Required Memory:   ", console::format_bytes(bytes), 'G');
  const u64 installed = orl::total_memory_bytes();
  if (bytes <= installed) return true;
  console::println("Warning: this is more than the " + console::format_bytes(installed) + " of this machine.",
                   'Y');
  return false;
}

int RamParameters::run(int) {
  RamSession(*this).run();
  return 0;
}

}  // namespace orvane
