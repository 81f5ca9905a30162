#include "system/machine.h"

#include "system/kernel_files.h"

namespace orl {

u64 peak_memory_bytes() {
  return kilobytes_field(read_kernel_file("/proc/self/status").value_or(""), "VmHWM:");
}

std::string clock_source() {
  return read_kernel_line("/sys/devices/system/clocksource/clocksource0/current_clocksource");
}

bool debugger_is_present() {
  const std::string status = read_kernel_file("/proc/self/status").value_or("");
  const std::string_view label = "\nTracerPid:";
  const std::size_t at = status.find(label);
  if (at == status.npos) return false;
  return trimmed(lines_of(status.substr(at + label.size())).front()) != "0";
}

}  // namespace orl
