#include "app/bench.h"

#include <span>
#include <string>

#include "console/console.h"
#include "core/exceptions.h"
#include "core/format.h"

namespace orvane {
namespace {

namespace console = orl::console;
using orl::InvalidParametersException;

// What a size asks of this machine. Nothing is allocated.
struct Fit {
  u64 needed = 0;       ///< bytes; 0 when the size cannot be computed at all
  std::string refusal;  ///< why it cannot run here and what to do; empty when it can
};

Fit fit(RamParameters& parameters, u64 decimal_digits) {
  Fit result;
  parameters.set_decimal_digits(decimal_digits);
  try {
    result.needed = parameters.required_bytes();
  } catch (const InvalidParametersException& limit) {
    result.refusal = limit.message() + " Choose a smaller size.";
    return result;
  }
  result.refusal = memory_refusal(result.needed);
  return result;
}

void use_one_thread(RamParameters& parameters) {
  parameters.parallelism.set_tds(1);
  parameters.parallelism.set_framework("none");
}

// A row of the size table; a size that cannot run here is dim.
void print_size(u64 option, const BenchSize& size, RamParameters& parameters) {
  constexpr u64 kOptionColumn = 3, kDigitColumn = 23, kMemoryColumn = 21;
  const Fit need = fit(parameters, size.decimal_digits);
  const bool fits = need.refusal.empty();
  std::string memory = need.needed == 0 ? "Too Large" : orl::format_binary_size(need.needed);
  if (memory.size() < kMemoryColumn) memory.insert(0, kMemoryColumn - memory.size(), ' ');
  console::print_number(kOptionColumn, option, fits ? 'T' : 't');
  console::print_number(kDigitColumn, size.decimal_digits, fits ? 'G' : 'g');
  console::println(memory, fits ? 'G' : 'r');
}

void print_sizes(std::span<const BenchSize> sizes, bool decimal, bool one_thread) {
  RamParameters parameters;
  if (one_thread) use_one_thread(parameters);
  console::println("\nOption      Decimal Digits          Approx. Memory Needed\n", 'w');
  console::println(decimal ? "  0         I prefer SuperPi sizes... (1M, 2M, 4M...)"
                           : "  0         I prefer decimal sizes... (25m, 50m, 100m...)",
                   'Y');
  console::newline();
  for (u64 i = 0; i < sizes.size(); i++) print_size(i + 1, sizes[i], parameters);
  console::println("\nEnter your choice:", 'w');
}

}  // namespace

int run_benchmark(BenchSettings& settings) {
  RamParameters& parameters = settings.parameters;
  const std::string refusal = fit(parameters, settings.decimal_digits).refusal;
  if (!refusal.empty()) throw InvalidParametersException("bench", refusal);
  return run_computation(parameters);
}

int run_computation(ComputeParameters& parameters) {
  if (!parameters.output_digits && !parameters.output_path().empty())
    console::println("Warning: -o has no effect without -od:1.", 'Y');
  console::newline();
  parameters.check_parameters();
  console::newline();
  return parameters.run(0);
}

int bench_menu() {
  console::println("Benchmark Pi:\n", 'T');
  console::println("Select a Benchmark Type:\n", 'w');
  console::println("  0         Single-Threaded", 'T');
  console::println("  1         Multi-Threaded", 'T');
  console::newline();
  const bool one_thread = console::read_bounded("option: ", 0, 1, 'G') == 0;
  for (bool decimal = true;; decimal = !decimal) {
    const auto all = bench_sizes();
    const auto sizes = decimal ? all.first(kDecimalSizes) : all.subspan(kDecimalSizes);
    print_sizes(sizes, decimal, one_thread);
    while (const u64 choice = console::read_bounded("option: ", 0, sizes.size(), 'G')) {
      BenchSettings settings;
      if (one_thread) use_one_thread(settings.parameters);
      settings.decimal_digits = sizes[choice - 1].decimal_digits;
      const std::string refusal = fit(settings.parameters, settings.decimal_digits).refusal;
      if (refusal.empty()) return run_benchmark(settings);
      console::println("\n" + orl::wrapped(refusal) + "\n", 'Y');
    }
  }
}

}  // namespace orvane
