// What the reports say about the machine: processor, memory, board, clocks.
//
// A function with a `root` reads the tree below it, which ends with a separator: "/" on a running system, a
// made-up one in tests.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "core/types.h"
#include "system/topology.h"

namespace orl {

/// A section of a report, such as "Processor(s):", with its rows in order.
struct ReportSection {
  std::string title;
  std::vector<std::pair<std::string, std::string>> rows;  ///< label with its colon, value
};

/// "Operating System:" (a section without rows of its own has its value in `rows[0]` under an empty label),
/// then "Processor(s):", "Motherboard:" and "Memory:". Without `identifying` the board's serial number reads
/// "Suppressed - Personally identifiable information is opt-in only." What the system does not tell is
/// "Unknown" or "Not Available".
std::vector<ReportSection> system_report(bool identifying);
/// `tsc_hz` stands in for a base frequency that the system does not tell; 0: unknown too.
std::vector<ReportSection> read_system_report(const std::string& root, const Topology& topology,
                                              bool identifying, double tsc_hz);

/// The most memory that this process has had in use at once.
u64 peak_memory_bytes();

/// The kernel's clock source, such as "tsc"; empty when it does not tell.
std::string clock_source();
/// True while another process traces this one.
bool debugger_is_present();

/// Frequency of the time-stamp counter against CLOCK_MONOTONIC_RAW, in Hz, measured over `seconds` of sleep;
/// 0 where its rate is not constant.
double measure_tsc_frequency(double seconds);

/// What the page "Hardware Features" adds to the system report: the processor's features and targets, caches,
/// nodes, pages and clocks.
std::vector<ReportSection> read_hardware_sections(const std::string& root, const Topology& topology);
/// All of the page "Hardware Features" of this machine, measured values included.
std::vector<ReportSection> hardware_sections();
/// Compiler, instruction targets and libraries of this very program.
std::vector<ReportSection> compilation_sections();

}  // namespace orl
