// A stream of digits over a numbered set of compressed files, or in one.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "digits/digit_reader.h"
#include "digits/digit_writer.h"
#include "digits/ovd_file.h"

namespace orl {

/// Digits per file that mean: the whole stream in one file.
inline constexpr u64 kSingleFile = ~u64{0};

/// A stretch of one file: stream indices [begin, end), all in file `id`.
struct OvdCommand {
  u64 id;
  u64 begin, end;
};

/// How a stream is cut into files. Throws InvalidParametersException "Internal Overflow" naming `function`
/// for a range that is empty or goes beyond 64 bits.
class OvdCommands {
 public:
  /// Stream indices [offset, offset + count).
  OvdCommands(u64 offset, u64 count, u64 digits_per_file, const char* function);

  /// The next stretch in order, until there is none.
  std::optional<OvdCommand> next();

 private:
  u64 at_, end_, digits_per_file_;
};

/// A stream of digits in compressed files, under construction.
class BasicOvdSetWriter final : public DigitWriter {
 public:
  /// Files "<path>/<name>/<name> - <id>.ovd", or one file "<path>/<name> - 0.ovd". Throws
  /// InvalidParametersException "Invalid Parameters" for another radix, "Single-file is incompatible with
  /// unbounded output." for one file and no total.
  BasicOvdSetWriter(const std::string& path, const std::string& name, const std::string& first_digits,
                    u32 radix, u64 digits_per_file, u64 total_digits);

  u32 radix() const override { return shape_.radix; }
  u64 buffer_bytes(u64 count) const override { return BasicOvdFileWriter::buffer_bytes(shape_.radix, count); }
  void store_digits(const u8* digits, u64 offset, u64 count, LinearHeapBuffer buffer,
                    ParallelContext parallel) override;
  void seal() override;
  void publish(Pieces others) override;
  void discard() override;
  std::string path() const override { return files_.empty() ? file_path(0) : files_.begin()->second->path(); }
  std::string unfinished_path() const override { return files_.begin()->second->unfinished_path(); }
  /// A file under its final name.
  std::string file_path(u64 id) const;

 private:
  BasicOvdFileWriter& file(u64 id);

  std::string stem_;  ///< path of every file up to its number
  OvdHeader shape_;   ///< of every file, but for its number
  std::mutex mutex_;
  std::map<u64, std::unique_ptr<BasicOvdFileWriter>> files_;
  std::vector<BasicOvdFileWriter*> open_;  ///< not parked
};

/// The path without extension and number: what the names of a set's files share.
std::string ovd_stem(const std::string& path);
/// The finished files that share the stem of `path`, in no order; those of an unreadable folder are none.
std::vector<std::string> ovd_files_like(const std::string& path);

/// Any number of threads may read at once, while no search path is added.
class BasicOvdSetReader final : public DigitReader {
 public:
  /// `path` is any file of the set, finished or not; the others are looked for in its folder.
  explicit BasicOvdSetReader(const std::string& path);

  u32 radix() const override { return first_->header().radix; }
  const std::string& first_digits() const override { return first_->header().first_digits; }
  u64 total_digits() const override { return first_->header().total_digits; }
  u64 digits_per_file() const { return first_->header().block_size; }
  /// Looks for the set's files in `folder` as well, behind the folders before it.
  void add_search_path(const std::string& folder);
  /// As they were given; the first is the opened file's.
  const std::vector<std::string>& search_paths() const { return search_paths_; }

  u64 buffer_bytes(u64 count) const override { return BasicOvdFileReader::buffer_bytes(radix(), count); }
  void check_range(u64 offset, u64 count) override;
  void load_digits(u8* digits, u64 offset, u64 count, LinearHeapBuffer buffer,
                   ParallelContext parallel) override;
  void check_as_written(const std::string& first_digits, u64 digits_per_file, u64 total_digits) override;

  /// Files of a bounded stream.
  u64 file_count() const;

 private:
  using OpenFile = std::shared_ptr<const BasicOvdFileReader>;

  OpenFile open_file(u64 id) const;
  OpenFile load_file(u64 id);
  OvdCommands make_commands(u64 offset, u64 count);
  std::string file_name(u64 id) const { return stem_ + std::to_string(id) + note_ + ".ovd"; }

  std::string stem_;  ///< without folder
  std::string note_;  ///< between number and extension of unfinished files
  std::vector<std::string> search_paths_;
  OpenFile first_;  ///< the file that the set was opened by
  std::mutex mutex_;
  std::map<u64, OpenFile> files_;  ///< those open now
};

}  // namespace orl
