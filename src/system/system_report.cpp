#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "core/format.h"
#include "system/kernel_files.h"
#include "system/machine.h"
#include "system/smbios.h"

namespace orl {
namespace {

constexpr const char* kUnknown = "Unknown";
constexpr const char* kNotAvailable = "Not Available";

std::string or_unknown(std::string text) { return text.empty() ? kUnknown : text; }

// Value of NAME="value" in the text of an os-release file, which follows the quoting of a shell.
std::string release_value(std::string_view text, std::string_view name) {
  for (std::string_view line : lines_of(text)) {
    line = trimmed(line);
    if (line.substr(0, name.size()) != name || line.substr(name.size(), 1) != "=") continue;
    line.remove_prefix(name.size() + 1);
    const bool quoted = line.size() >= 2 && (line[0] == '"' || line[0] == '\'') && line.back() == line[0];
    if (quoted) line = line.substr(1, line.size() - 2);
    std::string value;
    for (std::size_t i = 0; i < line.size(); i++) {
      if (line[i] == '\\' && i + 1 < line.size()) i++;
      value.push_back(line[i]);
    }
    return printable(value);
  }
  return {};
}

std::string operating_system(const std::string& root) {
  auto release = read_kernel_file(root + "etc/os-release");
  if (!release) release = read_kernel_file(root + "usr/lib/os-release");
  std::string name = release_value(release.value_or(""), "PRETTY_NAME");
  if (name.empty()) name = release_value(release.value_or(""), "NAME");
  const std::string kernel =
      "Linux " + printable(read_kernel_line(root + "proc/sys/kernel/osrelease")) + " (x86-64)";
  return name.empty() ? kernel : name + ", " + kernel;
}

// Value of a line "label : value" of /proc/cpuinfo, blanks inside it single.
std::string cpuinfo_value(const std::string& root, std::string_view label) {
  const std::string text = read_kernel_file(root + "proc/cpuinfo").value_or("");
  for (const std::string_view line : lines_of(text)) {
    const std::size_t colon = line.find(':');
    if (colon == line.npos || trimmed(line.substr(0, colon)) != label) continue;
    std::string value = printable(line.substr(colon + 1));
    value.erase(std::unique(value.begin(), value.end(), [](char a, char b) { return a == ' ' && b == ' '; }),
                value.end());
    return value;
  }
  return {};
}

std::string gigahertz(double hz) {
  char text[64];
  std::snprintf(text, sizeof text, "%.3f GHz", hz / 1e9);
  return text;
}

// As the driver tells it, else as the maker wrote it into the name: "... CPU @ 2.50GHz".
std::string base_frequency(const std::string& root, u32 core, const std::string& name, double tsc_hz) {
  const auto kilohertz = read_kernel_number(root + "sys/devices/system/cpu/cpu" + std::to_string(core) +
                                            "/cpufreq/base_frequency");
  if (kilohertz && *kilohertz > 0) return gigahertz(static_cast<double>(*kilohertz) * 1e3);
  const std::size_t at = name.rfind("@ ");
  if (at != name.npos && name.find("GHz", at) != name.npos)
    return gigahertz(std::strtod(name.c_str() + at + 2, nullptr) * 1e9);
  return tsc_hz > 0 ? gigahertz(tsc_hz) : kUnknown;
}

ReportSection processors(const std::string& root, const Topology& topology, double tsc_hz) {
  const std::string name = cpuinfo_value(root, "model name");
  return {"Processor(s):",
          {{"Name:", or_unknown(name)},
           {"Logical Cores:", std::to_string(topology.cores.size())},
           {"Physical Cores:", std::to_string(topology.physical_cores)},
           {"Sockets:", std::to_string(topology.sockets)},
           {"NUMA Nodes:", std::to_string(topology.nodes.size())},
           {"Base Frequency:", base_frequency(root, topology.cores.front(), name, tsc_hz)}}};
}

// A virtual machine often has no board; then the firmware's words for the whole system stand in.
ReportSection motherboard(const std::string& root, bool identifying) {
  const std::string folder = root + "sys/devices/virtual/dmi/id/";
  const auto read = [&](const std::string& name) { return printable(read_kernel_line(folder + name)); };
  const bool board = !(read("board_vendor") + read("board_name")).empty();
  const std::string prefix = board ? "board_" : "product_";
  std::string serial = "Suppressed - Personally identifiable information is opt-in only.";
  if (identifying) {
    serial = read(prefix + "serial");
    if (serial.empty()) serial = kNotAvailable;
  }
  return {"Motherboard:",
          {{"Manufacturer:", or_unknown(read(board ? "board_vendor" : "sys_vendor"))},
           {"Model:", or_unknown(read(prefix + "name"))},
           {"Version:", or_unknown(read(prefix + "version"))},
           {"Serial Number:", serial}}};
}

std::string module_text(const MemoryModule& module) {
  std::string text = format_float(std::ldexp(static_cast<double>(module.bytes), -30), 3) + " GiB";
  if (!module.type.empty()) text += " " + module.type;
  if (module.megatransfers != 0) text += " " + std::to_string(module.megatransfers) + " MT/s";
  for (const std::string& part : {module.locator, module.manufacturer, module.part})
    if (!part.empty()) text += ", " + part;
  return text;
}

// The kernel's list of blocks counts what it was given before it took its own share of it.
u64 memory_block_bytes(const std::string& root) {
  const std::string folder = root + "sys/devices/system/memory/";
  const std::string text = read_kernel_line(folder + "block_size_bytes");  // hexadecimal, without a prefix
  const u64 block = std::strtoull(text.c_str(), nullptr, 16);
  u64 blocks = 0;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(folder, error))
    blocks += read_kernel_number(entry.path().string() + "/online").value_or(0) == 1;
  return block > ~u64{0} >> 24 ? 0 : block * blocks;
}

ReportSection memory(const std::string& root) {
  const u64 usable = kilobytes_field(read_kernel_file(root + "proc/meminfo").value_or(""), "MemTotal:");
  const std::string table = root + "sys/firmware/dmi/tables/DMI";
  const auto modules = parse_memory_modules(read_kernel_file(table).value_or(""));
  u64 total = 0;
  for (const MemoryModule& module : modules) total += module.bytes;
  total = std::max({total, modules.empty() ? memory_block_bytes(root) : 0, usable});
  ReportSection section{"Memory:",
                        {{"Usable Memory:", usable ? format_bytes(usable) : kUnknown},
                         {"Total Memory:", total ? format_bytes(total) : kUnknown}}};
  for (const MemoryModule& module : modules) section.rows.emplace_back("DIMM:", module_text(module));
  if (modules.empty()) {
    std::error_code error;
    const bool hidden = std::filesystem::exists(table, error) && !read_kernel_file(table);
    section.rows.emplace_back("DIMM:",
                              std::string(kNotAvailable) + (hidden ? " - Only root may read it." : ""));
  }
  return section;
}

}  // namespace

std::vector<ReportSection> read_system_report(const std::string& root, const Topology& topology,
                                              bool identifying, double tsc_hz) {
  return {{"Operating System:", {{"", operating_system(root)}}},
          processors(root, topology, tsc_hz),
          motherboard(root, identifying),
          memory(root)};
}

std::vector<ReportSection> system_report(bool identifying) {
  static const double tsc_hz = measure_tsc_frequency(0.005);
  return read_system_report("/", topology(), identifying, tsc_hz);
}

}  // namespace orl
