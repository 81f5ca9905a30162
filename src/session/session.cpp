// The run of a computation in memory, stage by stage.
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>

#include "console/console.h"
#include "console/console_status.h"
#include "core/event_log.h"
#include "core/exceptions.h"
#include "core/fault_mutex.h"
#include "core/fault_point.h"
#include "core/format.h"
#include "core/run_timer.h"
#include "core/settings.h"
#include "core/status.h"
#include "files/path_check.h"
#include "multiply/algorithm_table.h"
#include "numbers/ram_store.h"
#include "session/digit_output.h"
#include "session/number_layout.h"
#include "session/output_claim.h"
#include "session/parameters.h"
#include "session/ram_plan.h"
#include "session/report_files.h"
#include "session/run_report.h"
#include "session/user_name.h"
#include "session/work_model.h"
#include "system/limits.h"
#include "system/machine.h"
#include "system/machine_fault.h"
#include "system/places.h"
#include "words/hash.h"

namespace orvane {
namespace {

namespace console = orl::console;
using orl::InvalidParametersException;
using orl::LinearHeapBuffer;
using orl::seconds_text;

using Frame = orl::RamStore<Word>::Frame;

constexpr orl::u32 kStatusWidth = 79;
constexpr double kStatusRefresh = 1.0;
constexpr const char* kConversionStage = "Base Conversion";

// A label, its value, the end of the line.
void print_line(std::string_view label, std::string_view value, char colour) {
  console::label_value(label, value, colour);
  console::newline();
}

void print_count(const char* label, u64 value) {
  constexpr u64 kLabelWidth = 20, kNumberWidth = 22;
  console::print_padded(kLabelWidth, label, 'w');
  const std::string number = orl::format_with_commas(value);
  console::println(std::string(number.size() < kNumberWidth ? kNumberWidth - number.size() : 0, ' ') + number,
                   'G');
}

// How files call the constant. A formula of the user's own is never taken for a constant of the catalogue.
std::string file_name_of(const Constant& constant) {
  return (constant.index() == ConstantIndex::kCustom ? "Custom - " : "") + constant.name();
}

// One run: the stages in order, over the two blocks.
class RamSession {
 public:
  explicit RamSession(ComputeParameters& parameters)
      : parameters_(parameters),
        plan_(parameters.constant(), parameters.precision().words(), parameters.decimal_digits(),
              parameters.parallelism.tds(), parameters.verify_conversion),
        progress_(expected_work(parameters)),
        status_(kStatusWidth, kStatusRefresh, &progress_),
        parallel_(parameters.parallelism.context()) {}

  void run() {
    report_.user = user_name(orl::settings_places().path_of(kUserFile));
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
    Frame frame;
    try {
      compute_and_write(frame, heap, tables);
    } catch (const orl::Exception& e) {
      if (e.is_wrong_result()) discard_files();
      throw;
    }
    parallel_.parallelizer.reset();
    timer_.stop();
    report_.clocks = clocks_.finish();
    events_.add("End Computation");
    finish_report();
    publish();
    print_report();
    leave_report(report_, parameters_.json_results);
  }

 private:
  void event(const char* name, const char* line) {
    events_.add(name);
    orl::LoggedWork::set_stage(name);
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
    const std::string size = orl::format_bytes(bytes);
    status_.println(size, 'G');
    events_.add_line(std::string(name) + ": ", size);
    for (const std::string& error : errors) {
      events_.add_line("Allocation Error: ", error);
      status_.println("Allocation Error: " + error, 'Y');
    }
    allocation_errors_ = allocation_errors_ || !errors.empty();
    show_placement(memory->report(), !errors.empty());
    return memory;
  }

  /// What became of the pages, where something was asked of them or went wrong.
  void show_placement(const orl::AllocationReport& report, bool failed) {
    if (!failed && report.is_ordinary()) return;
    report.print();
    for (const auto& [label, value] : report.rows()) events_.add_line("    " + label + " ", value);
  }

  double add_stage(const std::string& name) {
    report_.stage_parts.push_back(progress_.finish_stage(name));
    return timer_.add_stage(name);
  }

  void finish_stage(const std::string& name) {
    const double spent = add_stage(name);
    status_.print(name + ":  ", 'w');
    status_.println(seconds_text(spent) + "\n", 'Y');
  }

  /// A restart replays it: each stage names what is read behind it.
  void compute_and_write(Frame& frame, LinearHeapBuffer heap, const orl::TransformTables& tables) {
    const orl::RunContext context{parallel_, tables, status_};
    add_stage("Setup");
    RamPlan::Buffers buffers = plan_.cut(heap);
    spare_ = buffers.above_digits;
    FixedNumber number{};
    frame.stage([&] { number = compute(context, frame, buffers); }, number);

    const DigitWords hexadecimal{16, number.words[number.count - 1], number.words, number.count - 1};
    hexadecimal_ = hexadecimal;
    frame.stage(
        [&] {
          if (parameters_.hexadecimal_digits() != 0)
            report_.hex =
                output(buffers.above_number, hexadecimal, parameters_.hexadecimal_digits(), "Hexadecimal");
        },
        number, report_.hex);
    const orl::BigFloat<Word> binary = as_float(number);
    frame.stage([&] { convert(context, frame, binary, buffers); }, number, decimal_, report_.hex);
    frame.stage(
        [&] {
          report_.dec = output(buffers.above_digits, decimal_, parameters_.decimal_digits(), "Decimal");
        },
        number, decimal_, report_.hex, report_.dec);
    if (!parameters_.verify_conversion) return;
    frame.stage([&] { verify_conversion(context, frame, number, binary, buffers.above_digits); }, number,
                decimal_, report_.hex, report_.dec);
    frame.stage([&] { verify_output(); }, decimal_, report_.hex, report_.dec);
    finish_stage("Verification");
  }

  /// The constant in its fixed layout.
  FixedNumber compute(const orl::RunContext& context, Frame& frame, RamPlan::Buffers& buffers) {
    orl::BigFloat<Word>& result = buffers.number;
    const u64 hash = plan_.constant().run(context, frame, result, buffers.above_number);
    orl::fault_point("binary number", result.T, result.L * sizeof(Word));
    const FixedNumber number = lay_out(result, hash, plan_.precision_words(), parallel_);
    check_number(number);
    finish_stage(parameters_.constant().name());
    orl::fault_point("binary number", number.words, number.count * sizeof(Word));
    return number;
  }

  static orl::BigFloat<Word> as_float(const FixedNumber& number) {
    orl::BigFloat<Word> binary(number.words, number.count);
    binary.L = number.count;
    binary.exp = 1 - static_cast<orl::s64>(number.count);
    binary.sign = 1;
    binary.strip_top_zeros();
    return binary;
  }

  void convert(const orl::RunContext& context, Frame& frame, const orl::BigFloat<Word>& binary,
               const RamPlan::Buffers& buffers) {
    event("Base Converting", "Base Converting:");
    plan_.conversion().run(context, frame, buffers.digits, binary, buffers.above_digits);
    decimal_ = {10, binary.base[binary.size - 1], buffers.digits, plan_.decimal_words()};
    orl::fault_point("binary number", binary.base, binary.size * sizeof(Word));
    finish_stage(kConversionStage);
  }

  OutputResult output(LinearHeapBuffer buffer, const DigitWords& words, u64 digit_count,
                      const char* radix_name) {
    const OutputContext context = output_context(buffer);
    const std::string line =
        std::string(parameters_.output_digits ? "Writing " : "Processing ") + radix_name + " Digits:";
    event(line.c_str(), line.c_str());
    OutputResult result = parameters_.output_digits ? write_or_ask(context, words, digit_count)
                                                    : process_digits(context, words, digit_count);
    finish_stage(std::string(radix_name) + " Output");
    return result;
  }

  OutputContext output_context(LinearHeapBuffer buffer) { return {parallel_, status_, events_, buffer}; }

  /// Digits that are in memory are not lost to a full disk or a folder that went away while somebody can help: asks
  /// on a terminal, and throws `failure` again when nobody can or will.
  void ask_for_help(const orl::FileIO::FileException& failure) const {
    if (!isatty(STDIN_FILENO) || !isatty(STDOUT_FILENO)) throw;
    const std::lock_guard asking(orl::fault_mutex());
    failure.print();
    console::println("\nThe digits are still in memory. Make room for them, then press ENTER to write again.",
                     'Y');
    if (console::read_line("(q and ENTER ends the run, and loses them.)\n") == "q") throw;
  }

  OutputResult write_or_ask(const OutputContext& context, const DigitWords& words, u64 digit_count) {
    const Constant& constant = parameters_.constant();
    const OutputTarget target{constant.name(), constant.algorithm_short(), parameters_.output_path(),
                              parameters_.digits_per_file()};
    for (;;) {
      orl::make_folders(target.path);  // it was there at the start; a failure shows at the next step
      try {
        return write_digits(context, words, digit_count, target);
      } catch (const orl::FileIO::FileException& e) {
        ask_for_help(e);
      }
    }
  }

  void verify_conversion(const orl::RunContext& context, Frame& frame, const FixedNumber& number,
                         const orl::BigFloat<Word>& binary, LinearHeapBuffer heap) {
    event("Verifying Base Conversion", "Verifying Base Conversion:");
    check_number(number);
    const auto proof = plan_.verification()->run(context, frame, decimal_.words, binary, heap);
    if (proof.ok) return;
    orl::end_at_wrong_result(
        {"R = " + std::to_string(proof.digits_hash), "B = " + std::to_string(proof.binary_hash)},
        "Base Conversion Failed: Checksum Mismatch");
  }

  void verify_output() {
    const OutputContext context = output_context(spare_);
    verify_digits(context, decimal_, report_.dec);
    if (report_.hex.digit_count != 0) verify_binary_output(context, hexadecimal_, report_.hex);
    read_check_or_ask(decimal_, report_.dec);
    read_check_or_ask(hexadecimal_, report_.hex);
  }

  /// Reads the files back. What is in them and is not what was written there is a wrong result of the machine too,
  /// whatever the reader calls it; files that cannot be read are written again when somebody has helped.
  void read_check_or_ask(const DigitWords& words, OutputResult& written) {
    if (written.path.empty()) return;
    const OutputContext context = output_context(spare_);
    for (;;) {
      try {
        return read_check(context, written);
      } catch (const orl::FileIO::FileException& e) {
        if (e.code() == 0) found_wrong(e);
        ask_for_help(e);
      } catch (const orl::Exception& e) {
        found_wrong(e);
      }
      write_again(words, written);
    }
  }

  void write_again(const DigitWords& words, OutputResult& written) {
    written.files.reset();
    written = write_or_ask(output_context(spare_), words, written.digit_count);
  }

  [[noreturn]] void found_wrong(const orl::Exception& fault) {
    if (!fault.is_wrong_result()) orl::tell_wrong_result(fault);
    discard_files();
    throw;
  }

  void discard_files() {
    for (const OutputResult* written : {&report_.dec, &report_.hex})
      if (written->files) written->files->discard();
  }

  /// The words of the number are still those that the constant's plan proved.
  void check_number(const FixedNumber& number) {
    if (orl::hash_canon(orl::bp_hash<Word>(0, number.words, number.count, parallel_)) != number.hash)
      orl::end_at_wrong_result({}, "Data Corruption Detected: Checksum Mismatch");
  }

  /// Only what every check of the run has passed gets its final name.
  void publish() {
    if (report_.spot_check.result == SpotCheck::kFailed) return;
    if (report_.pi_proof && report_.pi_proof->result == PiProof::kFailed) return;
    publish_or_ask(decimal_, report_.dec);
    publish_or_ask(hexadecimal_, report_.hex);
  }

  void publish_or_ask(const DigitWords& words, OutputResult& written) {
    for (;;) {
      try {
        return publish_digits(written);
      } catch (const orl::FileIO::FileException& e) {
        ask_for_help(e);
      }
      std::error_code ignored;
      if (std::filesystem::exists(written.files->unfinished_path(), ignored)) continue;
      write_again(words, written);
      if (parameters_.verify_conversion) read_check_or_ask(words, written);
    }
  }

  void finish_report() {
    const Constant& constant = parameters_.constant();
    report_.constant = file_name_of(constant);
    report_.constant_long = constant.name_long();
    report_.algorithm = constant.algorithm_short();
    report_.algorithm_long = constant.algorithm_long();
    report_.decimal_digits = parameters_.decimal_digits();
    report_.hexadecimal_digits = parameters_.hexadecimal_digits();
    report_.mode = parameters_.mode_name();
    report_.threading = parallel_.parallelizer.to_string(parallel_.tds);
    report_.threads = orl::processor_count();
    report_.working_bytes = plan_.working_bytes();
    report_.table_bytes = plan_.table_bytes();
    report_.configuration = parameters_.configuration_dump();
    report_.timer = timer_;
    report_.computation_seconds =
        timer_.stage_seconds(constant.name()) + timer_.stage_seconds(kConversionStage);
    report_.system = orl::system_report(orl::settings().print_pii);
    report_.peak_bytes = orl::peak_memory_bytes();
    report_.debugger = orl::debugger_is_present();
    report_.events = events_.text();
    report_.spot_check = spot_check(stored_digit_folders("", orl::settings().exe_dir),
                                    report_.constant + ".txt", decimal_, report_.dec.digit_count);
    prove_end_of_pi();
  }

  /// The end of Pi by another formula, where it was asked for or costs little of the run's time.
  void prove_end_of_pi() {
    if (parameters_.constant().index() != ConstantIndex::kPi) return;
    const u64 digits = pi_proof_digits(parameters_);
    const u64 threads = std::min(parallel_.tds, report_.threads);
    report_.pi_proof.emplace();
    if (!parameters_.pi_proof.value_or(pi_proof_seconds(digits, threads) <
                                       kPiProofShare * timer_.wall_seconds()))
      return;
    status_.println("Verifying the Last Digits by the BBP Formula:");
    const auto digits_at = [&](u64 offset, u64 count) { return digits_text(hexadecimal_, offset, count); };
    try {
      report_.pi_proof = prove_pi(digits, threads, digits_at, status_);
    } catch (const orl::SystemException&) {
      // The system gives no more threads; a finished computation is not lost for them.
      report_.pi_proof = prove_pi(digits, 1, digits_at, status_);
    }
    status_.print("BBP Check:  ");
    status_.println(seconds_text(report_.pi_proof->seconds) + "\n", 'Y');
  }

  void print_report() const {
    console::println("\nEnd Computation\n", 'w');
    print_lines(time_lines(report_, ReportForm::kConsole));
    console::newline();
    print_lines(utilization_lines(report_));
    console::newline();
    print_lines(result_lines(report_));
    console::newline();
    print_lines(check_lines(report_, ReportForm::kConsole));
    console::newline();
  }

  ComputeParameters& parameters_;
  RamPlan plan_;
  orl::ReferenceClocks clocks_;
  orl::RunTimer timer_;
  orl::EventLog events_;
  orl::RunProgress progress_;
  orl::LinearConsoleNode status_;
  orl::ParallelContext parallel_;
  bool allocation_errors_ = false;
  DigitWords decimal_{}, hexadecimal_{};  ///< the digits of the result, in the working memory
  LinearHeapBuffer spare_;                ///< of that memory, behind the digits
  RunReport report_;
};

}  // namespace

bool RamParameters::check_parameters() {
  const std::string refusal = constant().unavailable();
  if (!refusal.empty()) throw InvalidParametersException("check_parameters()", refusal);
  if (pi_proof.value_or(false) && constant().index() != ConstantIndex::kPi)
    throw InvalidParametersException("check_parameters()",
                                     "The BBP check (-bbp:1) proves digits of Pi alone.");
  // A run that could not write its digits says so before it computes them.
  const auto refuse_folder = [&](int reason) {
    if (reason == 0) return;
    throw InvalidParametersException("check_parameters()", orl::unwritable_text(output_path(), reason));
  };
  if (output_digits) refuse_folder(orl::why_unwritable(output_path()));
  const int no_report = orl::why_unwritable("");
  if (no_report != 0 && !output_digits)
    throw InvalidParametersException(
        "check_parameters()", "The working folder is not writable (" + std::string(std::strerror(no_report)) +
                                  "), and the run would leave nothing: neither "
                                  "digits nor a validation file.\nRun in a folder that can be written to.");
  if (no_report != 0)
    console::println("Warning: The working folder is not writable (" + std::string(std::strerror(no_report)) +
                         "). The run\nwill end without a validation file.",
                     'Y');
  const u64 bytes = required_bytes();
  print_line("Required Memory:   ", orl::format_bytes(bytes), 'G');
  constexpr u64 kTasksPerThread = 64;  // beyond it more tasks only cost memory and time
  if (const u64 most = kTasksPerThread * orl::processor_count(); parallelism.tds() > most)
    console::println("A task decomposition above " + orl::format_with_commas(most) +
                         " costs memory and time on this machine, and gains\nnothing.",
                     'Y');
  if (const std::string missing = memory_refusal(bytes); !missing.empty())
    throw InvalidParametersException("check_parameters()",
                                     missing + "\n\nCannot run computation with these parameters.");
  if (output_digits) refuse_folder(orl::make_folders(output_path()));
  claim_.reset();
  claim_ = std::make_unique<OutputClaim>(*this);
  return true;
}

int RamParameters::run(int) {
  const std::unique_ptr<OutputClaim> claim = std::move(claim_);
  const orl::LoggedWork work(constant().name_long() + ", " + constant().algorithm_long() + ", " +
                             orl::format_with_commas(decimal_digits()) + " decimal digits");
  try {
    RamSession(*this).run();
  } catch (const orl::Exception& e) {
    if (e.is_wrong_result()) orl::tell_wrong_result(e);
    throw;
  }
  return 0;
}

}  // namespace orvane
