#include "menus/raid_menu.h"

#include <string>
#include <utility>
#include <vector>

#include "arrays/raid_report.h"
#include "console/console.h"
#include "console/menu_input.h"

namespace orl::R03 {

namespace {

RaidGroup ask_group(RaidType type) {
  const bool parity = type == RaidType::raid3;
  console::newline();
  console::println(raid_type_text(type), 'Y');
  console::println(parity ? "( Tolerate up to 1 drive failure. )" : "( Multiple Drives - No Redundancy. )",
                   'w');
  const u64 low = parity ? kMinRaid3Paths : 1, high = parity ? kMaxRaid3Paths : kMaxRaid0Paths;
  const u64 count = console::read_bounded(
      "How many drives? (min = " + std::to_string(low) + ", max = " + std::to_string(high) + "): ", low, high,
      'G');
  console::println("\nEnter the folder on each drive. Enter nothing for the default path.", 'w');
  RaidGroup group{type, {}};
  for (u64 i = 1; i <= count; i++)
    group.paths.push_back(console::read_line("Path " + std::to_string(i) + ": "));
  return group;
}

// By its number, or by its name in configuration files; anything else is told and asked for again.
RaidType ask_type() {
  console::println("  0     RAID 0", 'T');
  console::println("  1     RAID 3", 'T');
  for (;;) {
    const std::string word = console::read_line("option: ");
    if (word == "0" || word == raid_type_key(RaidType::raid0)) return RaidType::raid0;
    if (word == "1" || word == raid_type_key(RaidType::raid3)) return RaidType::raid3;
    console::println("Invalid Raid Type: " + word, 'R');
  }
}

std::vector<RaidGroup> ask_lanes() {
  const u64 count = console::read_bounded(
      "\nHow many lanes? (min = 1, max = " + std::to_string(kMaxGroups) + "): ", 1, kMaxGroups, 'G');
  std::vector<RaidGroup> groups;
  for (u64 i = 0; i < count; i++) {
    console::println("\nLane " + std::to_string(i) + ":", 'Y');
    groups.push_back(ask_group(ask_type()));
  }
  return groups;
}

}  // namespace

void run_raid_menu(Raid03Descriptor& raid, u64 memory_bytes) {
  print_raid_report(raid, memory_bytes, 0);
  console::newline();
  console::println("  0     Return", 'T');
  console::println("  1     RAID 0    ( Multiple Drives - No Redundancy. )", 'T');
  console::println("  2     RAID 3    ( Tolerate up to 1 drive failure. )", 'T');
  console::println("  3     Several arrays side by side", 'T');
  console::println("  4     Buffer Size", 'T');
  const u64 choice = console::read_bounded("\nEnter your choice:\noption: ", 0, 4, 'G');
  if (choice == 1) raid.set_group(ask_group(RaidType::raid0));
  if (choice == 2) raid.set_group(ask_group(RaidType::raid3));
  if (choice == 3) raid.set_lanes(ask_lanes());
  if (choice == 4)
    raid.set_buffer_per_file(
        ask_byte_size("\nBuffer for each file, at least 1 MiB (e.g. 64MB): ", raid.buffer_per_file()));
}

}  // namespace orl::R03
