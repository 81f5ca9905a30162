#include "digits/ovd_set.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <string_view>

#include "core/exceptions.h"
#include "core/output.h"
#include "core/uncopied.h"
#include "core/unfinished_files.h"
#include "files/file_calls.h"
#include "files/path_check.h"

namespace orl {
namespace {

// A process may have 1024 files open, or as few as somebody allows it; a stream may have more. Half of them are for
// others.
u64 most_open_files() { return std::clamp<u64>(open_file_limit() / 2, 1, 64); }

constexpr std::string_view kExtension = ".ovd";

void make_folder(const std::string& path) {
  constexpr mode_t kPermission = 0775;
  if (file_calls().mkdir(path.c_str(), kPermission) != 0 && errno != EEXIST)
    FileIO::throw_file_error("BasicOvdSetWriter()", errno, "Unable to create folder.", path);
}

// A file of an older set that no new one replaces, out of the way until the new set is named.
class PieceAside : Uncopied {
 public:
  explicit PieceAside(std::string path) : path_(std::move(path)) {
    if (file_calls().rename(path_.c_str(), replaced_name(path_).c_str()) != 0)
      FileIO::throw_file_error("BasicOvdSetWriter::publish()", errno, "Unable to rename file.", path_);
  }
  ~PieceAside() {
    if (dropped_ || file_calls().rename(replaced_name(path_).c_str(), path_.c_str()) == 0) return;
    notice_line("Unable to rename file: " + replaced_name(path_) + "\n    to: " + path_, 'R');
  }
  void drop() {
    dropped_ = true;
    remove_file(replaced_name(path_));
  }

 private:
  std::string path_;
  bool dropped_ = false;
};

}  // namespace

OvdCommands::OvdCommands(u64 offset, u64 count, u64 digits_per_file, const char* function)
    : at_(offset), end_(offset + count), digits_per_file_(digits_per_file) {
  if (count == 0 || end_ < offset) throw InvalidParametersException(function, "Internal Overflow");
}

std::optional<OvdCommand> OvdCommands::next() {
  if (at_ == end_) return std::nullopt;
  const u64 begin = at_;
  at_ += std::min(end_ - at_, digits_per_file_ - at_ % digits_per_file_);
  return OvdCommand{begin / digits_per_file_, begin, at_};
}

BasicOvdSetWriter::BasicOvdSetWriter(const std::string& path, const std::string& name,
                                     const std::string& first_digits, u32 radix, u64 digits_per_file,
                                     u64 total_digits) {
  constexpr const char* kFunction = "BasicOvdSetWriter()";
  if (radix != 10 && radix != 16) throw InvalidParametersException(kFunction, "Invalid Parameters");
  std::string folder = with_separator(path);
  if (digits_per_file == kSingleFile) {
    if (total_digits == 0)
      throw InvalidParametersException(kFunction, "Single-file is incompatible with unbounded output.");
    digits_per_file = total_digits;
  } else {
    folder += name;
    make_folder(folder);
    folder += "/";
  }
  stem_ = folder + name + " - ";
  shape_.radix = radix;
  shape_.first_digits = first_digits;
  shape_.total_digits = total_digits;
  shape_.block_size = digits_per_file;
}

std::string BasicOvdSetWriter::file_path(u64 id) const { return stem_ + std::to_string(id) + ".ovd"; }

BasicOvdFileWriter& BasicOvdSetWriter::file(u64 id) {
  const std::lock_guard lock(mutex_);
  const auto found = files_.find(id);
  if (found != files_.end()) return *found->second;
  if (open_.size() >= most_open_files()) {
    for (BasicOvdFileWriter* file : open_) file->park();
    open_.clear();
  }
  auto file = std::make_unique<BasicOvdFileWriter>(file_path(id), shape_.first_digits, shape_.radix,
                                                   shape_.block_size, shape_.total_digits, id);
  open_.push_back(file.get());
  return *files_.emplace(id, std::move(file)).first->second;
}

void BasicOvdSetWriter::store_digits(const u8* digits, u64 offset, u64 count, LinearHeapBuffer buffer,
                                     ParallelContext parallel) {
  constexpr const char* kFunction = "BasicOvdSetWriter::store_digits()";
  if (shape_.total_digits != 0 && (offset > shape_.total_digits || count > shape_.total_digits - offset))
    throw InvalidParametersException(kFunction, "Out of range.");
  OvdCommands commands(offset, count, shape_.block_size, "BasicOvdSetWriter::make_commands()");
  while (const auto part = commands.next())
    file(part->id).store_digits_B(digits + (part->begin - offset), part->begin - part->id * shape_.block_size,
                                  part->end - part->begin, buffer, parallel);
}

void BasicOvdSetWriter::seal() {
  if (files_.empty())
    throw InvalidParametersException("BasicOvdSetWriter::close_and_get_basic_reader()", "No files open.");
  for (auto& [id, file] : files_) file->seal();
  open_.clear();
}

// An older set of the same name stays whole: its files go aside before any of the new ones takes a name, and come
// back when one cannot. At every moment one of the sets is complete; a signal waits for the end of it.
void BasicOvdSetWriter::publish(Pieces others) {
  const EndingHold hold;
  std::vector<std::unique_ptr<PieceAside>> aside;
  try {
    for (auto& [id, file] : files_) file->set_aside();
    if (others == Pieces::kRemoved)
      for (const std::string& piece : ovd_files_like(path()))
        aside.push_back(std::make_unique<PieceAside>(piece));
    for (auto& [id, file] : files_) file->publish();
  } catch (const Exception&) {
    for (auto& [id, file] : files_) file->put_back();
    throw;
  }
  for (auto& piece : aside) piece->drop();
  for (auto& [id, file] : files_) file->drop_replaced();
}

void BasicOvdSetWriter::discard() {
  for (auto& [id, file] : files_) file->discard();
}

std::string ovd_stem(const std::string& path) {
  std::string stem = path.substr(0, path.size() - kExtension.size());
  const std::size_t folder = stem.find_last_of("/\\") + 1;  // 0 when there is none
  while (stem.size() > folder && stem.back() >= '0' && stem.back() <= '9') stem.pop_back();
  return stem;
}

std::vector<std::string> ovd_files_like(const std::string& path) {
  const std::string stem = ovd_stem(path);
  const std::filesystem::path folder = std::filesystem::path(stem).parent_path();
  std::error_code failed;
  std::vector<std::string> files;
  for (std::filesystem::directory_iterator entry(folder.empty() ? "." : folder, failed), end;
       !failed && entry != end; entry.increment(failed)) {
    const std::string file = (folder / entry->path().filename()).string();
    const bool numbered = file.size() > stem.size() + kExtension.size();
    if (numbered && file.ends_with(kExtension) && ovd_stem(file) == stem) files.push_back(file);
  }
  return files;
}

namespace {

// What stands behind the number in an unfinished file's path without its extension, such as " (4711) (incomplete)".
std::string note_of(std::string_view path) {
  std::string_view rest = path;
  if (!rest.ends_with(kUnfinishedNote)) return {};
  rest.remove_suffix(std::string_view(kUnfinishedNote).size());
  if (rest.ends_with(")")) {
    const std::size_t open = rest.find_last_not_of("0123456789", rest.size() - 2);
    if (open != std::string_view::npos && open > 0 && rest.substr(open - 1, 2) == " (")
      rest = rest.substr(0, open - 1);
  }
  return std::string(path.substr(rest.size()));
}

}  // namespace

BasicOvdSetReader::BasicOvdSetReader(const std::string& path) {
  constexpr const char* kFunction = "BasicOvdSetReader()";
  if (path.size() < kExtension.size()) throw InvalidParametersException(kFunction, "File name is too short.");
  if (!path.ends_with(kExtension)) throw InvalidParametersException(kFunction, "Invalid Extension");
  note_ = note_of(path.substr(0, path.size() - kExtension.size()));
  stem_ = ovd_stem(path.substr(0, path.size() - kExtension.size() - note_.size()) + std::string(kExtension));
  const std::size_t folder = stem_.find_last_of("/\\") + 1;  // 0 when there is none
  search_paths_.push_back(stem_.substr(0, folder));
  stem_.erase(0, folder);
  first_ = std::make_shared<const BasicOvdFileReader>(path);
}

u64 BasicOvdSetReader::file_count() const {
  const OvdHeader& header = first_->header();
  return (header.total_digits + header.block_size - 1) / header.block_size;
}

void BasicOvdSetReader::add_search_path(const std::string& folder) {
  search_paths_.push_back(with_separator(folder));
}

// In the first folder that has it. The file that the set was opened by may have any name.
BasicOvdSetReader::OpenFile BasicOvdSetReader::open_file(u64 id) const {
  std::optional<FileIO::FileException> failure;
  for (const std::string& folder : search_paths_) {
    try {
      return std::make_shared<const BasicOvdFileReader>(folder + file_name(id));
    } catch (const FileIO::FileException& e) {
      if (!failure) failure = e;
    }
  }
  if (id == first_->header().block_id) return first_;
  FileIO::throw_file_error("BasicOvdSetReader::load_file()", failure->code(),
                           "Unable to open file #" + std::to_string(id), failure->path());
}

BasicOvdSetReader::OpenFile BasicOvdSetReader::load_file(u64 id) {
  const std::lock_guard lock(mutex_);
  if (const auto found = files_.find(id); found != files_.end()) return found->second;
  if (files_.size() >= most_open_files()) files_.clear();
  OpenFile opened = open_file(id);
  const OvdHeader& first = first_->header();
  const OvdHeader& header = opened->header();
  const auto require = [&](bool same, const char* text) {
    if (!same) throw InconsistentMetaData("BasicOvdSetReader::load_file()", opened->path(), text);
  };
  require(header.version == first.version, "File version does not match.");
  require(header.radix == first.radix, "Radix does not match.");
  require(header.block_size == first.block_size, "Digits per file does not match.");
  require(header.total_digits == first.total_digits, "Total digit does not match.");
  require(header.block_id == id, "File id does not match.");
  return files_.emplace(id, std::move(opened)).first->second;
}

OvdCommands BasicOvdSetReader::make_commands(u64 offset, u64 count) {
  constexpr const char* kFunction = "BasicOvdSetReader::make_commands()";
  constexpr u64 kMaxNames = 100;  // a range of an unbounded stream may lack any number
  const OvdHeader& header = first_->header();
  if (header.total_digits != 0 && (offset > header.total_digits || count > header.total_digits - offset))
    throw InvalidParametersException(kFunction, "This digit stream does not have enough digits.");
  const OvdCommands commands(offset, count, header.block_size, kFunction);
  std::vector<std::string> missing;
  OvdCommands all = commands;
  while (const auto part = all.next()) {
    try {
      load_file(part->id);
    } catch (const FileIO::FileException&) {
      missing.push_back(search_paths_.front() + file_name(part->id));
      if (missing.size() == kMaxNames) break;
    }
  }
  if (missing.empty()) return commands;
  notice_line("The following needed files are missing or inaccessible:", 'R');
  for (const std::string& name : missing) notice_line(name, 'Y');
  if (missing.size() == kMaxNames) notice_line("There may be more.", 'Y');
  throw InvalidParametersException(kFunction, "Missing required files.");
}

void BasicOvdSetReader::check_range(u64 offset, u64 count) {
  if (count != 0) make_commands(offset, count);
}

void BasicOvdSetReader::load_digits(u8* digits, u64 offset, u64 count, LinearHeapBuffer buffer,
                                    ParallelContext parallel) {
  if (count == 0) return;
  const u64 block_size = first_->header().block_size;
  OvdCommands commands = make_commands(offset, count);
  while (const auto part = commands.next())
    load_file(part->id)->load_digits(digits + (part->begin - offset), part->begin - part->id * block_size,
                                     part->end - part->begin, buffer, parallel);
}

void BasicOvdSetReader::check_as_written(const std::string& first_digits, u64 digits_per_file,
                                         u64 total_digits) {
  OvdHeader expected;
  expected.radix = radix();
  expected.first_digits = first_digits;
  expected.total_digits = total_digits;
  expected.block_size = digits_per_file == kSingleFile ? total_digits : digits_per_file;
  for (; expected.begin() < total_digits; expected.block_id++)
    load_file(expected.block_id)->check_as_written(expected);
}

}  // namespace orl
