// What the page "Hardware Features" tells.
#include <sys/resource.h>
#include <unistd.h>

#include <filesystem>
#include <map>

#include "core/format.h"
#include "core/settings.h"
#include "simd/features.h"
#include "system/kernel_files.h"
#include "system/limits.h"
#include "system/machine.h"

namespace orl {
namespace {

const char* yes_no(bool yes) { return yes ? "Yes" : "No"; }

std::string or_unknown(std::string text) { return text.empty() ? "Unknown" : text; }

ReportSection features() {
  ReportSection section{"Processor Features:", {}};
  for (const auto& feature : simd::processor_features())
    section.rows.emplace_back(feature.name, yes_no(feature.present));
  return section;
}

ReportSection targets() {
  ReportSection section{"Instruction Targets:", {}};
  for (const auto target : {simd::Target::kAvx2, simd::Target::kAvx512, simd::Target::kAvx512Ifma}) {
    std::string missing;
    for (const std::string& name : simd::missing_features(target))
      missing += (missing.empty() ? "" : ", ") + name;
    section.rows.emplace_back(simd::target_name(target), missing.empty() ? "Yes" : "No - lacks " + missing);
  }
  return section;
}

ReportSection caches(const std::string& root, u32 core) {
  ReportSection section{"Caches of Core " + std::to_string(core) + ":", {}};
  const std::string folder = root + "sys/devices/system/cpu/cpu" + std::to_string(core) + "/cache/index";
  for (u32 i = 0;; i++) {
    const std::string own = folder + std::to_string(i) + "/";
    const auto level = read_kernel_number(own + "level");
    const auto kilobytes = read_kernel_number(own + "size");  // always given as "48K"
    if (!level || !kilobytes) break;
    std::string text = format_bytes(static_cast<u64>(*kilobytes) << 10);
    const auto ways = read_kernel_number(own + "ways_of_associativity");
    const auto line = read_kernel_number(own + "coherency_line_size");
    if (ways.value_or(0) > 0) text += ", " + std::to_string(*ways) + "-way";
    if (line.value_or(0) > 0) text += ", " + std::to_string(*line) + " B lines";
    const auto sharers = parse_id_list(read_kernel_line(own + "shared_cpu_list"));
    if (!sharers.empty()) text += ", cores " + id_list_text(sharers);
    section.rows.emplace_back(
        "L" + std::to_string(*level) + " " + printable(read_kernel_line(own + "type")) + ":", text);
  }
  if (section.rows.empty()) section.rows.emplace_back("", "Unknown");
  return section;
}

ReportSection nodes(const Topology& topology) {
  ReportSection section{"NUMA Nodes:", {}};
  for (const NumaNode& node : topology.nodes)
    section.rows.emplace_back(
        "Node " + std::to_string(node.id) + ":",
        "cores " + id_list_text(node.cores) + ", memory " + format_bytes(node.memory_bytes));
  return section;
}

// "always [madvise] never": the word in brackets is in force.
std::string chosen_word(const std::string& text) {
  const std::size_t open = text.find('['), close = text.find(']');
  if (open == text.npos || close == text.npos || close < open) return "Not Available";
  return printable(text.substr(open + 1, close - open - 1));
}

std::string lockable_memory() {
  rlimit limit{};
  if (getrlimit(RLIMIT_MEMLOCK, &limit) != 0) return "Unknown";
  return limit.rlim_cur == RLIM_INFINITY ? "Unlimited" : format_bytes(limit.rlim_cur);
}

ReportSection pages(const std::string& root) {
  ReportSection section{
      "Memory Pages:",
      {{"Page Size:", format_bytes(static_cast<u64>(sysconf(_SC_PAGESIZE)))},
       {"Transparent Huge Pages:",
        chosen_word(read_kernel_line(root + "sys/kernel/mm/transparent_hugepage/enabled"))}}};
  std::map<s64, std::string> folders;  // by size in KiB
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(root + "sys/kernel/mm/hugepages", error)) {
    constexpr std::string_view kPrefix = "hugepages-";
    const std::string name = entry.path().filename().string();
    const auto size = leading_number(std::string_view(name).substr(std::min(name.size(), kPrefix.size())));
    if (size.value_or(0) > 0) folders[*size] = entry.path().string();
  }
  for (const auto& [kilobytes, folder] : folders)
    section.rows.emplace_back(
        "Pages of " + std::to_string(kilobytes) + " KiB:",
        std::to_string(read_kernel_number(folder + "/nr_hugepages").value_or(0)) + " reserved, " +
            std::to_string(read_kernel_number(folder + "/free_hugepages").value_or(0)) + " free");
  section.rows.emplace_back("Lockable Memory:", lockable_memory());
  return section;
}

ReportSection clocks(const std::string& root) {
  const std::string folder = root + "sys/devices/system/clocksource/clocksource0/";
  return {
      "Clocks:",
      {{"Clock Source:", or_unknown(printable(read_kernel_line(folder + "current_clocksource")))},
       {"Available Sources:", or_unknown(printable(read_kernel_line(folder + "available_clocksource")))}}};
}

// What belongs to the running process rather than to the machine.
ReportSection measured() {
  const double hz = measure_tsc_frequency(0.05);
  const Limits granted = limits();
  return {"Measured Now:",
          {{"Memory Granted:", format_bytes(granted.memory_bytes)},
           {"Available Memory:", format_bytes(granted.available_bytes)},
           {"Processors Granted:", std::to_string(granted.processors)},
           {"Time-Stamp Counter:",
            hz > 0 ? format_with_commas(static_cast<u64>(hz)) + " Hz, constant rate" : "no constant rate"},
           {"Is Debugger Present:", yes_no(debugger_is_present())}}};
}

}  // namespace

std::vector<ReportSection> read_hardware_sections(const std::string& root, const Topology& topology) {
  return {caches(root, topology.cores.front()), nodes(topology), pages(root), clocks(root)};
}

std::vector<ReportSection> hardware_sections() {
  std::vector<ReportSection> sections = system_report(settings().print_pii);
  sections.push_back(features());
  sections.push_back(targets());
  for (ReportSection& section : read_hardware_sections("/", topology()))
    sections.push_back(std::move(section));
  sections.push_back(measured());
  return sections;
}

}  // namespace orl
