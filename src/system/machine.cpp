#include "system/machine.h"

#include "system/kernel_files.h"

namespace orl {
namespace {

u64 meminfo_field(std::string_view label) {
  return kilobytes_field(read_kernel_file("/proc/meminfo").value_or(""), label);
}

}  // namespace

u64 total_memory_bytes() { return meminfo_field("MemTotal:"); }
u64 available_memory_bytes() { return meminfo_field("MemAvailable:"); }

}  // namespace orl
