// What a disk array says about faults, and what it asks.
//
// Each function holds fault_mutex() while it speaks, so the dialogues of several lanes come one after the other.
//
//   one file of a RAID 3 group fails  told; the others give its data; if it fails again at once, it is flagged
//   more than one, or no parity left  told and tried again, then asked: try again or quit
//   parity does not match             told, then asked: try again or quit
//
// Nobody but a person is waited for: without a terminal, and at the end of input, the answer is to quit.
#pragma once

#include <optional>
#include <span>
#include <string>

#include "core/exceptions.h"
#include "core/types.h"

namespace orl::R03 {

/// Which way bytes were to go.
enum class Direction { read, write };

/// What to do about a fault.
enum class FaultChoice : u32 { retry = 0, flag = 1, quit = 3 };

/// Who answers the prompts of an array.
class FaultAnswers {
 public:
  virtual ~FaultAnswers() = default;
  /// The number typed at a prompt that has been printed; none where nobody answers.
  virtual std::optional<u64> option() = 0;
};

/// Puts another one in force, which must live as long as any array; null: nobody answers. Not while arrays are in use.
void set_fault_answers(FaultAnswers* answers);

/// "A Raid-File operation has failed." with the options that a group has that can lose `tolerance` more drives; asks
/// until one of them is chosen. `path` is that of the file.
FaultChoice ask_about_fault(const Exception& fault, const std::string& path, s64 tolerance);
/// The question about faults in several files, or about one that cannot be named: try again or quit.
FaultChoice ask_to_retry();

/// One file of a group with parity failed: "An I/O Read Fault has been detected. Recovering from parity.".
void tell_recovery(const Exception& fault, const std::string& path, Direction direction);
/// "Marking drive as failed."
void tell_flagged(const std::string& path);
/// "I/O Read Faults have been detected in multiple drives." `mask` has a bit for each file that failed.
void tell_several_faults(std::span<const std::string> paths, u64 mask, Direction direction);
/// "A parity mismatch has been detected." `paths` are all files of the group.
void tell_mismatch(std::span<const std::string> paths);

/// Code of the exception that follows a mismatch after which the user quits.
inline constexpr s32 kParityMismatch = 0x20000009;

}  // namespace orl::R03
