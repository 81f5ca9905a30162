#include <string>

#include "app/actions.h"
#include "app/options.h"
#include "app/version.h"
#include "compute/constant.h"
#include "frame/console.h"
#include "simd/target.h"

namespace orvane {
namespace {

namespace console = orl::console;

constexpr std::size_t kFormWidth = 22;
constexpr std::size_t kLineWidth = 100;

// "  form      help text, wrapped under itself" and the example on its own line.
void print_entry(const char* form, const std::string& help, const char* example) {
  console::print("  ", 'w');
  console::print_padded(kFormWidth, form, 'G');
  std::size_t column = kFormWidth + 2;
  if (std::string(form).size() >= kFormWidth) {
    console::newline();
    console::print(std::string(kFormWidth + 2, ' '), 'w');
  }
  for (std::size_t start = 0; start < help.size();) {
    const std::size_t space = help.find(' ', start);
    const std::size_t end = space == std::string::npos ? help.size() : space;
    if (column + 1 + (end - start) > kLineWidth) {
      console::newline();
      console::print(std::string(kFormWidth + 2, ' '), 'w');
      column = kFormWidth + 2;
    } else if (start != 0) {
      console::print(" ", 'w');
      column++;
    }
    console::print(help.substr(start, end - start), 'w');
    column += end - start;
    start = end + 1;
  }
  console::newline();
  if (example) console::println(std::string(kFormWidth + 2, ' ') + "Example: " + example, 't');
}

template <class Target>
void print_table(const char* title, std::span<const Option<Target>> table) {
  console::println(std::string("\n") + title, 'Y');
  for (const auto& option : table) print_entry(option.form, option.help, option.example);
}

void print_constants() {
  console::println("\nConstants and their algorithms (the first is the default)", 'Y');
  for (u64 i = 0; i < kConstantCount; i++) {
    const auto constant = make_constant(i);
    std::string algorithms;
    for (const AlgorithmRow& row : constant->algorithms())
      algorithms += (algorithms.empty() ? ": " : ", ") + std::string(row.key);
    std::string text = catalogue()[i].menu_name + algorithms;
    if (!constant->unavailable().empty()) text += " (not in this version yet)";
    print_entry(constant->key(), text, nullptr);
  }
  console::println("  Other words: phi (goldenratio), apery and zeta(3) (zeta3).", 'w');
}

void print_number_forms() {
  console::println("\nNumbers", 'Y');
  print_entry("DIGITS", "Digits, then K, M, B or T for 10^3, 10^6, 10^9 or 10^12.", "10m is 10,000,000");
  print_entry("N", "The same with an optional minus sign.", "-1");
  print_entry("BYTES", "Digits, a fraction, then K, M, G, T, P or E for 2^10 to 2^60.",
              "1.5G is 1,610,612,736");
  print_entry("SECONDS, tasks", "Digits only.", "64");
}

}  // namespace

void print_banner() {
  console::println(std::string("Orvane v") + kVersion + "  (" +
                       orl::simd::target_name(orl::simd::active_target()) + ", " + kBuildType + ")",
                   'T');
}

void print_version() { console::println(std::string("Orvane ") + kVersion, 'w'); }

void print_help() {
  print_banner();
  console::println("Computes mathematical constants to very many digits, and proves them.\n", 'w');
  console::println("Usage:  orvane [global options] [action [its options]]", 'w');
  console::println("        orvane                       the main menu", 'w');
  console::println("        orvane custom pi -dec:10m    Pi to ten million digits", 'w');
  console::println("        orvane --help | --version", 'w');
  console::println("The status is 0 on success and 1 on any failure.", 'w');
  print_table("Global options (before the action)", global_options());
  console::println("\nActions", 'Y');
  for (const Action& action : actions()) print_entry(action.form, action.help, action.example);
  print_constants();
  print_table("Options of custom", custom_options());
  print_table("Options of bench", bench_options());
  std::string sizes;
  for (const BenchSize& size : bench_sizes()) sizes += std::string(size.token) + "  ";
  print_entry("Sizes", sizes + "(m, b, t: powers of ten; M, G: powers of two)", "25m");
  print_table("Options of benchio", benchio_options());
  print_table("Options of stress (tests: name those to run; none names all)", stress_options());
  print_number_forms();
}

}  // namespace orvane
