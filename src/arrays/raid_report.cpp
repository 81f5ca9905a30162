#include "arrays/raid_report.h"

#include <string>

#include "arrays/raid_array.h"
#include "core/format.h"
#include "core/output.h"

namespace orl::R03 {
namespace {

void print_row(const char* label, const std::string& value) {
  notice_value(padded(std::string(label) + ":", 28), value, 'G');
  notice("\n", ' ');
}

std::string summary_of(const RaidGroup& group) {
  const std::string drives =
      std::to_string(group.paths.size()) + (group.paths.size() == 1 ? " drive with " : " drives with ");
  return drives + (group.has_parity() ? "Single-Bit Parity. (tolerate 1 drive failure)"
                                      : "No Redundancy. (no fault tolerance)");
}

}  // namespace

void print_raid_report(const Raid03Descriptor& descriptor, u64 memory_bytes, u64 object_bytes) {
  const ArrayGeometry geometry = geometry_of(descriptor, memory_bytes);
  notice_line("\nCurrent Raid-File Settings\n", 'Y');
  print_row("Total Groups", std::to_string(geometry.lanes.size()));
  print_row("Block Size", format_bytes(geometry.row_bytes));
  print_row("Buffer Size", format_bytes(geometry.buffer_bytes()) + " ( ~ " +
                               format_binary_size(geometry.buffer_bytes() / geometry.files()) + " / drive )");
  for (u64 i = 0; i < geometry.lanes.size(); i++) {
    const RaidGroup& group = descriptor.groups()[i];
    notice("\nGroup " + std::to_string(i) + ":  ", 'w');
    notice_line(summary_of(group), 'G');
    print_row("    Group Block Size", format_bytes(geometry.row_bytes));
    print_row("    File Block Size", format_bytes(geometry.lanes[i].file_block_bytes));
    if (object_bytes != 0)
      print_row("    Bytes Needed Per Path", format_bytes(geometry.file_bytes_of(i, object_bytes)));
    for (const RaidPath& path : group.paths) {
      notice("    " + shown_path(path.path), 'G');
      notice_line(shown_status(path.status), path.failed() ? 'R' : path.status != 0 ? 'Y' : 'w');
    }
  }
  output().set_colour('w');
}

}  // namespace orl::R03
