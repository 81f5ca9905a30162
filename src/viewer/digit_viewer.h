// The digit viewer: a finished digit file, text or compressed, of any size, by a menu or by the options of a line.
//
// Both go through the steps of viewer/file_view.h.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "core/types.h"

namespace orvane {

using orl::u64;

/// What a line asks of a file.
struct ViewerTask {
  std::optional<u64> start{}, end{};          ///< digits; the first one is 1
  std::optional<u64> view{};                  ///< digits to show
  bool stats = false;                         ///< counts and hashes
  std::optional<std::string> extract{};       ///< a text file to write
  std::optional<u64> digits_per_file{};       ///< of a compressed set to write, or orl::kSingleFile
  std::optional<u64> start_id{}, end_id{};    ///< a share of its files
  std::optional<std::string> name{};          ///< of the set; by itself that of the file
  std::optional<std::string> folder{};        ///< of the set; by itself the working folder
  std::vector<std::string> search_folders{};  ///< where files of a set may lie as well
  std::optional<std::string> report{};        ///< a validation file to check all digits against
  bool prove = false;                         ///< the last hexadecimal digits of Pi by another formula

  bool is_share() const { return start_id || end_id; }
  bool has_steps() const { return view || stats || extract || digits_per_file || report || prove; }
};

/// Asks for files and shows the menu of each until the user leaves; end of input ends the program with
/// status 1. Returns 1 when anything that was asked for failed, which a script can tell then.
int Menu_DigitViewer();

/// Does what the task says with one file, in the order of the menu; without any step it shows the file's menu. Returns
/// the status. Throws InvalidParametersException for settings that no step reads and numbers that the file does not
/// have, before the first step.
int run_viewer_task(const std::string& path, const ViewerTask& task);

}  // namespace orvane
