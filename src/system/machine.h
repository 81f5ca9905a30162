// What the reports say about the machine: processor, memory, board, clocks.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "frame/types.h"

namespace orl {

/// A section of the system report, such as "Processor(s):", with its rows in order.
struct ReportSection {
  std::string title;
  std::vector<std::pair<std::string, std::string>> rows;  ///< label with its colon, value
};

/// "Operating System:" (a section without rows of its own has its value in `rows[0]` under an empty label),
/// then "Processor(s):", "Motherboard:" and "Memory:". Without `identifying` the board's serial number reads
/// "Suppressed - Personally identifiable information is opt-in only."
std::vector<ReportSection> system_report(bool identifying);

/// Bytes of memory: installed and known to the kernel, and what can be had without swapping (MemAvailable).
u64 total_memory_bytes();
u64 available_memory_bytes();

/// The kernel's clock source, such as "tsc"; empty when it does not tell.
std::string clock_source();
/// True while another process traces this one.
bool debugger_is_present();

/// Frequency of the time-stamp counter against CLOCK_MONOTONIC_RAW, in Hz, measured over `seconds` of sleep;
/// 0 where its rate is not constant.
double measure_tsc_frequency(double seconds);

/// The pages "Hardware Features" and "Compilation Options" of the advanced options.
void print_hardware_features();
void print_compilation_options();

}  // namespace orl
