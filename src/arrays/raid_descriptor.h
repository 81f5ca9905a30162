// The settings of a disk array: which folders, in which arrangement, through how much buffer.
//
// Groups stand side by side and share the data; a group is RAID 0 or RAID 3 over its paths. A path is a
// folder; an empty one is the working folder.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "config/object.h"

namespace orl::R03 {

/// The numbers stand in configuration files.
enum class RaidType : u32 { raid0 = 0, raid3 = 1 };

/// A folder, and what became of the drive that it lies on.
struct RaidPath {
  /// A drive that is in order; implicit, so that lists of folders read as such.
  RaidPath(std::string folder) : path(std::move(folder)) {}
  RaidPath(const char* folder) : path(folder) {}

  std::string path;  ///< empty: the working folder
  s64 status =
      0;  ///< faults so far; below 0 the drive has failed, and nothing of it is read or written any more
  bool failed() const { return status < 0; }
};

/// The folders of one group. The last one of a RAID 3 holds the parity.
struct RaidGroup {
  RaidType type = RaidType::raid0;
  std::vector<RaidPath> paths = std::vector<RaidPath>(1, RaidPath(""));

  bool has_parity() const { return type == RaidType::raid3; }
  u64 data_files() const { return paths.size() - (has_parity() ? 1 : 0); }
  /// Paths whose drive has failed.
  u64 failed_drives() const;
  /// Drives that may still fail: 1 for RAID 3, 0 for RAID 0, less those that have; below 0 the data are lost.
  s64 tolerance() const { return (has_parity() ? 1 : 0) - static_cast<s64>(failed_drives()); }
  /// Flags the drive. Throws Raid03Exception "This raid group has already failed." where the tolerance is negative.
  void mark_failed(u64 path_index);
};

inline constexpr u64 kMaxGroups = 64;
inline constexpr u64 kMaxRaid0Paths = 64;
inline constexpr u64 kMinRaid3Paths = 2;
inline constexpr u64 kMaxRaid3Paths = 8;
inline constexpr u64 kDefaultBufferPerFile = 67108864;
inline constexpr u64 kMinBufferPerFile = 1048576;

/// "raid0" or "raid3".
const char* raid_type_key(RaidType type);
/// "RAID 0 - No Redundancy" or "RAID 3 - Parity".
const char* raid_type_text(RaidType type);

/// The path, or what stands for the empty one: "** Default Path **".
std::string shown_path(const std::string& path);
/// "   ( Status: ok )", "   ( Status: 2 errors )" or "   ( Status: Failed )".
std::string shown_status(s64 status);

/// The settings of an array: its groups and the buffer of each file.
class Raid03Descriptor {
 public:
  const std::vector<RaidGroup>& groups() const { return groups_; }
  /// Throws InvalidParametersException for a group that cannot be; nothing has changed then.
  void set_group(RaidGroup group);
  /// set_group() for several; throws for a number of groups that cannot be, too.
  void set_lanes(std::vector<RaidGroup> groups);
  u64 buffer_per_file() const { return buffer_per_file_; }
  /// Raised to 1 MiB; at most 2^63 - 1.
  void set_buffer_per_file(u64 bytes);
  /// Whether the user chose the buffer: then it is not cut down to what the memory allows.
  bool has_own_buffer() const { return buffer_per_file_ != kDefaultBufferPerFile; }
  /// Files that hold data, over all groups.
  u64 data_files() const;

  /// Makes and removes a file in each folder. A folder that does not take it is told and its drive flagged as failed.
  /// Throws InvalidParametersException where two paths are one folder. The descriptor is ready afterwards.
  void prepare();
  /// Throws InvalidParametersException where the array has a user, was not prepared, or has a group that lost more drives
  /// than it can.
  void check_usable() const;
  /// Takes the array, which is usable, for one user.
  void claim();
  /// Ends what claim() began, and keeps what became of the drives: for each group the status of each path.
  void release(const std::vector<std::vector<s64>>& statuses);

  /// The keys of a configuration: BufferPerFile, then Type and Paths of the group, or Lanes, an array of
  /// objects with RaidType and Paths, where the groups were given as lanes.
  Object to_object() const;
  /// to_object() with texts for the reader of a report.
  Object dump() const;
  /// Reads to_object()'s form. Throws ConfigException; nothing has changed then.
  void read_object(const Object& object);

  /// One line: the arrangement in words.
  std::string to_string() const;

 private:
  std::vector<RaidGroup> groups_{RaidGroup{}};
  bool as_lanes_ = false;
  u64 buffer_per_file_ = kDefaultBufferPerFile;
  bool ready_ = false;
  bool in_use_ = false;
};

/// Throws InvalidParametersException "Unrecognized mode: " with a word that is neither raid0 nor raid3.
RaidType raid_type_of_option(const std::string& word);

}  // namespace orl::R03
