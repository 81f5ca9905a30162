#include "app/custom_menu.h"

#include <optional>
#include <string>

#include "app/action_file.h"
#include "app/constants_menu.h"
#include "app/menu_steps.h"
#include "console/console.h"
#include "console/menu_input.h"
#include "core/exceptions.h"
#include "core/format.h"
#include "menus/allocator_menu.h"
#include "menus/bytes_per_seek_menu.h"
#include "menus/parallelism_menu.h"
#include "menus/raid_menu.h"
#include "session/output_claim.h"
#include "session/parameters.h"
#include "system/limits.h"

namespace orvane {
namespace {

namespace console = orl::console;
using orl::InvalidParametersException;

constexpr u64 kLabelWidth = 24;

// "  1     Label:   " and the value; without a number for what is derived.
void print_row(const char* number, const char* label, const std::string& value, char colour = 'G') {
  console::print(number, 'T');
  console::print_padded(kLabelWidth, label, 'T');
  console::println(value, colour);
}

std::string count_text(u64 digits) { return digits == 0 ? "Disabled" : orl::format_with_commas(digits); }

class CustomMenu {
 public:
  int run() {
    for (;;) {
      print();
      const u64 choice = console::read_bounded("Enter # to change option:\n", 0, kSaveRow, 'G');
      if (choice != 0)
        try_step([&] { change(choice); });
      else if (try_step([&] { check(); }))
        return parameters().run(0);
    }
  }

 private:
  ComputeParameters& parameters() { return mode_.current(); }

  void check() {
    console::newline();
    const bool setting = parameters().overwrite;
    if (!setting) parameters().overwrite = may_replace(larger_digits_text(digits_to_replace(parameters())));
    try {
      parameters().check_parameters();
    } catch (const orl::Exception&) {
      parameters().overwrite = setting;  // an answer holds for one start
      throw;
    }
    console::newline();
  }

  static bool may_replace(const std::string& larger) {
    if (larger.empty()) return false;
    console::print(larger, 'Y');
    console::println("\n  0     Keep it, and go back.\n  1     Replace it.\n", 'T');
    if (console::read_bounded("option: ", 0, 1, 'G') == 1) return true;
    throw InvalidParametersException("may_replace()", "It is kept. Choose another output path.");
  }

  void print() {
    // Some constants say on the console what it takes to name their algorithm.
    const std::string algorithm = parameters().constant().algorithm_long();
    console::println("\n\nCustom Compute a Constant:\n", 'Y');
    print_computation(algorithm);
    console::newline();
    print_output();
    console::newline();
    print_machine();
    console::newline();
    print_needs();
    console::newline();
    print_file_rows();
    console::newline();
    console::println("  0     Start Computation!", 'T');
    console::newline();
  }

  void print_computation(const std::string& algorithm) {
    const Constant& constant = parameters().constant();
    print_row("  1     ", "Constant:", constant.name_long(), constant.row().menu.colour);
    print_row("  2     ", "Algorithm:", algorithm);
    print_row("  3     ", "Decimal Digits:", count_text(parameters().decimal_digits()));
    print_row("  4     ", "Hexadecimal Digits:", count_text(parameters().hexadecimal_digits()),
              parameters().hexadecimal_digits() == 0 ? 'g' : 'G');
  }

  void print_output() {
    print_row("  5     ",
              "Output Digits:", parameters().output_digits ? "Enabled" : "Disabled (digits are only hashed)",
              parameters().output_digits ? 'G' : 'g');
    print_row("  6     ", "Output Path:", path_text(parameters().output_path()));
    print_row("  7     ", "Compression:", format_text(parameters().digits_per_file()));
    print_row("  8     ", "Verify Output:", parameters().verify_conversion ? "Enabled" : "Disabled",
              parameters().verify_conversion ? 'G' : 'Y');
    print_row(" 15     ", "JSON Results:", parameters().json_results ? "Enabled" : "Disabled",
              parameters().json_results ? 'G' : 'g');
    print_row(" 16     ",
              "Overwrite:", parameters().overwrite ? "Enabled" : "Ask before larger files are replaced",
              parameters().overwrite ? 'Y' : 'g');
    if (has_pi_proof())
      print_row(" 17     ", "BBP Check:", pi_proof_text(), parameters().pi_proof == false ? 'g' : 'G');
  }

  /// Shown where it can be done, and where it is asked for in vain.
  bool has_pi_proof() {
    return parameters().constant().index() == ConstantIndex::kPi || parameters().pi_proof;
  }
  std::string pi_proof_text() {
    if (!parameters().pi_proof) return "Automatic (below 5 % of the time)";
    return *parameters().pi_proof ? "Enabled" : "Disabled";
  }
  /// Automatic, on, off, and so on.
  static std::optional<bool> next_proof(std::optional<bool> proof) {
    if (!proof) return true;
    return *proof ? std::optional(false) : std::nullopt;
  }

  void print_machine() {
    print_row("  9     ", "Computation Mode:", parameters().mode_name(), 'R');
    print_row(" 10     ", "Memory Allocator:", parameters().allocator->to_string());
    print_row(" 11     ", "Multi-Threading:",
              parameters().parallelism.framework().to_string(parameters().parallelism.tds()));
    const SwapParameters* const swap = mode_.swap();
    if (!swap) return;
    const auto with_default = [](u64 bytes, bool is_default) {
      return orl::format_bytes(bytes) + (is_default ? "  (default)" : "");
    };
    print_row(" 12     ", "Memory:", with_default(swap->memory_bytes(), swap->memory_setting() == 0));
    print_row(" 13     ",
              "Bytes/Seek:", with_default(swap->bytes_per_seek(), swap->has_default_bytes_per_seek()));
    print_row(" 14     ", "Swap Paths:", swap->raid.to_string());
  }

  void print_needs() {
    constexpr const char* kNoNumber = "        ";
    const u64 available = orl::available_memory_bytes();
    std::string trouble = parameters().unavailable();
    try {
      const u64 needed = parameters().memory_needed();
      print_row(kNoNumber, "Memory Needed:", orl::format_bytes(needed), needed <= available ? 'G' : 'R');
      if (trouble.empty() && needed > available)
        trouble = "Warning: this is more than the memory that is available.";
    } catch (const InvalidParametersException& e) {
      trouble = e.message();
    }
    print_row(kNoNumber, "Memory Available:", orl::format_bytes(available));
    print_row(kNoNumber, "Digit Files:", orl::format_bytes(parameters().output_bytes()));
    if (!trouble.empty()) console::println("\n" + orl::wrapped(trouble), 'Y');
  }

  void change(u64 choice) {
    switch (choice) {
      case 1:
        return choose_constant();
      case 2:
        return algorithm_menu(parameters().constant());
      case 3:
        return parameters().set_decimal_digits(
            orl::ask_decimal_count("\nDecimal Digits: ", parameters().decimal_digits()));
      case 4:
        return parameters().set_hexadecimal_digits(orl::ask_decimal_count(
            "\nHexadecimal Digits: (0 disables them)  ", parameters().hexadecimal_digits()));
      case 5:
        parameters().output_digits = !parameters().output_digits;
        return;
      case 6:
        return parameters().set_output_path(
            console::read_line("\nEnter the folder for the digits. Enter nothing for the default path:\n"));
      case 7:
        return choose_format();
      case 8:
        parameters().verify_conversion = !parameters().verify_conversion;
        return;
      case 9:
        return mode_.set_mode(mode_.swap() ? "ram" : "swap");
      case 10:
        return orl::run_allocator_menu(parameters().allocator);
      case 11:
        return orl::run_parallelism_menu(parameters().parallelism);
      case 15:
        parameters().json_results = !parameters().json_results;
        return;
      case 16:
        parameters().overwrite = !parameters().overwrite;
        return;
      case 17:
        if (has_pi_proof()) parameters().pi_proof = next_proof(parameters().pi_proof);
        return;
      case kLoadRow:
        return choose_file_to_load([&](const std::string& path) { load_custom(path, mode_); });
      case kSaveRow:
        return choose_file_to_save([&](const std::string& path) { save_custom(path, mode_); });
    }
    if (mode_.swap()) change_swap(*mode_.swap(), choice);
  }

  static void change_swap(SwapParameters& swap, u64 choice) {
    switch (choice) {
      case 12:
        swap.set_memory_bytes(orl::ask_byte_size("\nMemory to use: (e.g. 8GB)  0 resets to default value.\n",
                                                 swap.memory_setting()));
        break;
      case 13:
        orl::ask_bytes_per_seek(swap.bytes_per_seek_setting());
        break;
      case 14:
        orl::R03::run_raid_menu(swap.raid, swap.memory_bytes());
    }
  }

  void choose_constant() {
    std::unique_ptr<Constant> constant = constants_menu();
    if (constant) parameters().set_constant(std::move(constant));
  }

  void choose_format() {
    console::newline();
    console::println("   0    " + format_text(0), 'T');
    console::println("   1    " + format_text(kOneFile), 'T');
    console::println("   2    Compress with a number of digits per file.", 'T');
    const u64 choice = console::read_bounded("\noption: ", 0, 2, 'G');
    u64 digits_per_file = choice == 0 ? 0 : kOneFile;
    if (choice == 2)
      digits_per_file = orl::ask_decimal_count("\nDigits per file: ", parameters().digits_per_file());
    parameters().request_digits_per_file(digits_per_file);
  }

  ModeHolder mode_;
};

}  // namespace

int custom_menu() { return CustomMenu().run(); }

}  // namespace orvane
