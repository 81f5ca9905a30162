#include "session/output_claim.h"

#include <signal.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <filesystem>
#include <map>

#include "core/exceptions.h"
#include "core/format.h"
#include "digits/ovd_set.h"
#include "digits/page_writer.h"
#include "files/path_check.h"
#include "files/raw_file.h"

namespace orvane {
namespace {

constexpr const char* kFunction = "check_parameters()";

// A stream that the run writes.
struct Planned {
  std::string folder;  ///< of its files, with a separator
  std::string stem;    ///< of their paths, up to the number or the extension
  std::string lock;    ///< the path of its lock
  u64 digits, bytes;
  bool text;
};

std::vector<Planned> planned_streams(const ComputeParameters& parameters) {
  std::vector<Planned> streams;
  if (!parameters.output_digits) return streams;
  const u64 per_file = parameters.digits_per_file();
  for (const orl::u32 radix : {10u, 16u}) {
    const u64 digits = radix == 10 ? parameters.decimal_digits() : parameters.hexadecimal_digits();
    if (digits == 0) continue;
    const std::string name =
        orl::digit_file_name(parameters.constant().name(), parameters.constant().algorithm_short(), radix);
    const std::string top = orl::with_separator(parameters.output_path());
    const std::string folder = per_file == 0 || per_file == kOneFile ? top : top + name + "/";
    streams.push_back({folder, folder + name + (per_file == 0 ? "" : " - "),
                       top + name + orl::kUnfinishedNote + ".lock", digits, parameters.output_bytes_of(radix),
                       per_file == 0});
  }
  return streams;
}

std::vector<std::string> finished_files(const Planned& stream) {
  if (!stream.text) return orl::ovd_files_like(stream.stem + "0.ovd");
  const std::string path = stream.stem + ".txt";
  std::error_code ignored;
  if (!std::filesystem::is_regular_file(path, ignored)) return {};
  return {path};
}

// 0 when the file is none of digits.
u64 digits_of(const std::string& path) {
  try {
    if (!path.ends_with(".ovd")) return orl::open_digits(path)->total_digits();
    // Of a stream without a known end, the digits up to the end of this file.
    const orl::OvdHeader header = orl::BasicOvdFileReader(path).header();
    return header.total_digits != 0 ? header.total_digits : (header.block_id + 1) * header.block_size;
  } catch (const orl::Exception&) {
    return 0;
  }
}

// The largest of what stands there; `path` is empty when nothing does.
StoredDigits stored_for(const Planned& stream) {
  StoredDigits largest;
  u64 unreadable_bytes = 0;
  for (const std::string& path : finished_files(stream)) {
    const u64 digits = digits_of(path);
    std::error_code ignored;
    if (digits == 0) unreadable_bytes += std::filesystem::file_size(path, ignored);
    if (largest.path.empty() || digits > largest.digits) largest = {path, digits, stream.digits, false};
  }
  largest.larger = largest.digits > stream.digits || unreadable_bytes > stream.bytes;
  return largest;
}

// The number in "... (4711) (incomplete).ext"; 0 without one.
pid_t process_of(std::string_view name) {
  name = name.substr(0, name.rfind('.'));
  name.remove_suffix(std::string_view(orl::kUnfinishedNote).size());
  if (!name.ends_with(')')) return 0;
  pid_t process = 0;
  const auto begin = name.find_last_of('(') + 1;
  std::from_chars(name.data() + begin, name.data() + name.size(), process);
  return process;
}

bool is_unfinished_file_of(const Planned& stream, const std::string& path) {
  const std::string end = std::string(orl::kUnfinishedNote) + (stream.text ? ".txt" : ".ovd");
  if (!path.starts_with(stream.stem) || !path.ends_with(end) || path.size() < stream.stem.size() + end.size())
    return false;
  // Between them stand the number of a set's file and that of the process.
  const std::string_view between =
      std::string_view(path).substr(stream.stem.size(), path.size() - end.size() - stream.stem.size());
  return between.find_first_not_of("0123456789 ()") == std::string_view::npos;
}

// What processes left that are no more. The lock is ours: no run writes under these names.
void remove_leftovers(const Planned& stream) {
  std::error_code failed;
  std::vector<std::string> leftovers;
  for (std::filesystem::directory_iterator entry(stream.folder.empty() ? "." : stream.folder, failed), end;
       !failed && entry != end; entry.increment(failed)) {
    const std::string path = stream.folder + entry->path().filename().string();
    if (!is_unfinished_file_of(stream, path)) continue;
    const pid_t process = process_of(path);
    if (process == 0 || (kill(process, 0) != 0 && errno == ESRCH)) leftovers.push_back(path);
  }
  for (const std::string& path : leftovers) orl::remove_file(path);
}

void refuse_without_room(const std::vector<Planned>& streams) {
  struct Room {
    std::string folder;
    u64 needed = 0;
  };
  std::map<u64, Room> rooms;
  for (const Planned& stream : streams) {
    std::error_code ignored;
    // The folder of a set may be a file system of its own, or not be there yet.
    const std::string top = stream.lock.substr(0, stream.lock.find_last_of('/') + 1);
    const bool made = std::filesystem::is_directory(stream.folder, ignored);
    const std::string& folder = made ? stream.folder : top;
    Room& room = rooms[orl::file_system_of(folder)];
    room.folder = folder;
    room.needed += stream.bytes;
    if (stream.text && stream.bytes > orl::file_length_limit())
      throw orl::InvalidParametersException(
          kFunction, "A file of " + orl::format_bytes(stream.bytes) + " is longer than the " +
                         orl::format_bytes(orl::file_length_limit()) +
                         " that this process may write (ulimit -f).\nCompress the digits with -C:N, or raise "
                         "the limit.");
  }
  for (const auto& [id, room] : rooms) {
    const u64 free = orl::free_bytes(room.folder);
    if (room.needed <= free) continue;
    throw orl::InvalidParametersException(
        kFunction,
        "The digit files need " + orl::format_bytes(room.needed) + ", and the disk has " +
            orl::format_bytes(free) + " left.\nPath: " + (room.folder.empty() ? "./" : room.folder) +
            "\nFree some space, choose another folder with -o PATH, or write no files with -od:0.");
  }
}

void refuse_larger(const ComputeParameters& parameters) {
  if (parameters.overwrite) return;
  const std::string larger = larger_digits_text(digits_to_replace(parameters));
  if (larger.empty()) return;
  throw orl::InvalidParametersException(
      kFunction, larger + "It is kept. Choose another folder with -o PATH, or replace it with -overwrite:1.");
}

}  // namespace

std::vector<StoredDigits> digits_to_replace(const ComputeParameters& parameters) {
  std::vector<StoredDigits> stored;
  for (const Planned& stream : planned_streams(parameters)) {
    StoredDigits found = stored_for(stream);
    if (!found.path.empty()) stored.push_back(std::move(found));
  }
  return stored;
}

std::string larger_digits_text(const std::vector<StoredDigits>& stored) {
  std::string text;
  for (const StoredDigits& found : stored) {
    if (!found.larger) continue;
    text += "\"" + found.path + "\" has " +
            (found.digits != 0 ? orl::format_with_commas(found.digits) + " digits"
                               : std::string("more bytes than the new file")) +
            ";\nthis run would replace it by " + orl::format_with_commas(found.planned) + ".\n";
  }
  return text;
}

OutputClaim::OutputClaim(const ComputeParameters& parameters) {
  const std::vector<Planned> streams = planned_streams(parameters);
  // A run that is to be refused takes no names from another one, not even for a moment.
  refuse_larger(parameters);
  for (const Planned& stream : streams) {
    locks_.push_back(std::make_unique<orl::FileLock>(stream.lock));
    const auto state = locks_.back()->state();
    if (state == orl::FileLock::State::kTaken)
      throw orl::InvalidParametersException(
          kFunction, "Another run is about to write digit files of the same name in this folder.\nPath: " +
                         stream.stem + (stream.text ? ".txt" : "0.ovd") +
                         "\nWait for its end, or choose another folder with -o PATH.");
    if (state == orl::FileLock::State::kHeld) remove_leftovers(stream);
  }
  refuse_larger(parameters);
  refuse_without_room(streams);
}

}  // namespace orvane
