#include "arrays/raid_faults.h"

#include <mutex>

#include "core/fault_mutex.h"
#include "core/output.h"

namespace orl::R03 {
namespace {

FaultAnswers* g_answers = nullptr;

void print_options(s64 tolerance) {
  notice("What do you wish to do?\n\n", 'w');
  notice_line("  0  -  Re-attempt the operation. (This may solve intermittent failures.)", 'T');
  const bool left = tolerance > 0;
  notice_line("  1  -  Flag the drive as failed and continue.", left ? 'T' : 'w');
  if (left) notice_line("        (This raid group will not be able to tolerate anymore failures.)", 'T');
  notice_line(left ? "  2  -  Rebuild this drive onto a new path and continue."
                   : "  2  -  Rebuild the drive on a different path.",
              'w');
  if (left) notice_line("        (Not Implemented Yet)", 'w');
  notice_line("  3  -  Quit.\n", 'T');
}

// A number that is not offered is asked for again; who does not answer quits.
FaultChoice read_choice(bool may_flag) {
  for (;;) {
    notice("option: ", 'w');
    const std::optional<u64> option = g_answers ? g_answers->option() : std::nullopt;
    if (!option) notice_line("3", 'G');
    output().set_colour('w');
    if (!option || *option == 3) return FaultChoice::quit;
    if (*option == 0) return FaultChoice::retry;
    if (*option == 1 && may_flag) return FaultChoice::flag;
  }
}

const char* word(Direction direction) { return direction == Direction::read ? "Read" : "Write"; }

void print_files(std::span<const std::string> paths, u64 mask) {
  notice_line("Files:", 'w');
  for (u64 i = 0; i < paths.size(); i++)
    if ((mask >> i & 1) != 0) notice_line("    " + paths[i], 'Y');
}

}  // namespace

void set_fault_answers(FaultAnswers* answers) { g_answers = answers; }

FaultChoice ask_about_fault(const Exception& fault, const std::string& path, s64 tolerance) {
  const std::lock_guard lock(fault_mutex());
  fault.print();
  notice_line("\nA Raid-File operation has failed.", 'R');
  notice_value("Path:  ", path, 'Y');
  notice("\n\n", ' ');
  notice("This raid group can tolerate " + std::to_string(tolerance) +
             (tolerance == 1 ? " more failure. (excluding this one)\n"
                             : " more failures. (excluding this one)\n") +
             "\n",
         'w');
  print_options(tolerance);
  return read_choice(tolerance > 0);
}

FaultChoice ask_to_retry() {
  const std::lock_guard lock(fault_mutex());
  print_options(0);
  return read_choice(false);
}

void tell_recovery(const Exception& fault, const std::string& path, Direction direction) {
  const std::lock_guard lock(fault_mutex());
  fault.print();
  notice_line(
      std::string("\nAn I/O ") + word(direction) + " Fault has been detected. Recovering from parity.", 'Y');
  notice_line("File:  " + path, 'Y');
  output().set_colour('w');
}

void tell_flagged(const std::string& path) {
  const std::lock_guard lock(fault_mutex());
  notice_line("Marking drive as failed.", 'R');
  notice_line("Path:  " + path, 'R');
  output().set_colour('w');
}

void tell_several_faults(std::span<const std::string> paths, u64 mask, Direction direction) {
  const std::lock_guard lock(fault_mutex());
  notice_line(std::string("\nI/O ") + word(direction) + " Faults have been detected in multiple drives.",
              'R');
  notice_line("The program is not capable of handling multiple simultaneous I/O failures.\n", 'R');
  print_files(paths, mask);
  notice_line("ord_rf2_process_raid_lp() -> ret = " + std::to_string(mask), 'w');
  notice_line("\nThe program will now reattempt the operation...", 'Y');
  output().set_colour('w');
}

void tell_mismatch(std::span<const std::string> paths) {
  const std::lock_guard lock(fault_mutex());
  notice_line("\nA parity mismatch has been detected.", 'R');
  notice_line("This is a serious error because it has not been detected by hardware CRC.\n", 'R');
  notice_line("This error cannot be recovered because the program cannot determine", 'R');
  notice_line("which of the drives has returned wrong data.\n", 'R');
  print_files(paths, ~u64{0});
  notice("\n", ' ');
}

}  // namespace orl::R03
