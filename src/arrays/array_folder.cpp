#include "arrays/array_folder.h"

#include <filesystem>

#include "arrays/raid_descriptor.h"
#include "core/exceptions.h"
#include "core/format.h"
#include "core/output.h"
#include "core/unfinished_files.h"
#include "files/path_check.h"
#include "files/raw_file.h"

namespace orl::R03 {
namespace {

// Files of checkpoints outlive their run: only a checkpoint says which of them are still needed.
bool is_left_over(const std::string& name) {
  return name.starts_with("orv_") && name.ends_with(".sf") && !name.starts_with("orv_checkpoint");
}

void remove_left_overs(const std::string& folder) {
  u64 count = 0, bytes = 0;
  std::error_code fault;
  const std::filesystem::path place = folder.empty() ? "." : folder;
  for (std::filesystem::directory_iterator at(place, fault), end; !fault && at != end; at.increment(fault)) {
    const std::string name = at->path().filename().string();
    std::error_code ignored;
    if (!is_left_over(name) || !at->is_regular_file(ignored)) continue;
    const u64 size = at->file_size(ignored);
    if (!remove_file(with_separator(folder) + name)) continue;
    count++;
    bytes += ignored ? 0 : size;
  }
  if (count == 0) return;
  notice_line("Removed " + std::to_string(count) + (count == 1 ? " file" : " files") +
                  " of an earlier run, " + format_bytes(bytes) + ", from: " + shown_path(folder),
              'Y');
  output().set_colour('w');
}

}  // namespace

ArrayFolder::ArrayFolder(const std::string& folder) : lock_(with_separator(folder) + "orv_array.lock") {
  if (lock_.state() == FileLock::State::kTaken)
    throw InvalidParametersException(
        "SwapDescriptor", "Another disk array is at work in this folder.\nPath: " + shown_path(folder) +
                              "\nWait for its end, or choose another folder.");
  if (lock_.state() != FileLock::State::kHeld) return;
  list_unfinished(lock_.path());
  remove_left_overs(folder);
}

ArrayFolder::~ArrayFolder() { unlist_unfinished(lock_.path()); }

}  // namespace orl::R03
