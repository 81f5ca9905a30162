#include "digits/page_writer.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "core/exceptions.h"
#include "core/output.h"
#include "core/unfinished_files.h"
#include "files/file_calls.h"
#include "files/path_check.h"

namespace orl {
namespace {

// "name.ext" becomes "name" note ".ext".
std::string with_note(const std::string& path, const std::string& note) {
  return path.substr(0, path.rfind('.')) + note + path.substr(path.rfind('.'));
}

bool is_folder(const std::string& path) {
  const int fd = file_calls().open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0);
  if (fd < 0) return false;
  file_calls().close(fd);
  return true;
}

}  // namespace

std::string unfinished_name(const std::string& path) {
  return with_note(path, " (" + std::to_string(getpid()) + ")" + kUnfinishedNote);
}

std::string replaced_name(const std::string& path) { return with_note(path, " (replaced)"); }

PageSpan cut_pages(LinearHeapBuffer buffer, u64 offset, u64 bytes, const char* function) {
  const auto address = reinterpret_cast<std::uintptr_t>(buffer.ptr);
  const u64 skipped = (kIoAlignment - address % kIoAlignment) % kIoAlignment;
  PageSpan span;
  span.file_offset = offset & ~(kIoAlignment - 1);
  span.length = ((offset + bytes + kIoAlignment - 1) & ~(kIoAlignment - 1)) - span.file_offset;
  if (buffer.size < skipped + span.length)
    throw BufferTooSmallException(function, buffer.size, skipped + span.length);
  span.pages = static_cast<u8*>(buffer.ptr) + skipped;
  span.data = span.pages + (offset - span.file_offset);
  return span;
}

PageFile::PageFile(std::string final_path, u64 expected_bytes)
    : unfinished_path_(unfinished_name(final_path)), final_path_(std::move(final_path)) {
  // Told now rather than when all is written and the name cannot be given.
  if (is_folder(final_path_))
    FileIO::throw_file_error("PageFile()", EISDIR, "Unable to create file. A folder has this name.",
                             final_path_);
  // What an earlier run left unfinished is not ours to continue.
  if (!remove_file(unfinished_path_))
    FileIO::throw_file_error("PageFile()", errno, "Unable to create file.", unfinished_path_);
  const u64 pages = (expected_bytes + kIoAlignment - 1) / kIoAlignment;
  list_unfinished(unfinished_path_);
  try {
    file_ = RawFile(pages * kIoAlignment, unfinished_path_);
  } catch (const FileIO::FileException&) {
    remove_file(unfinished_path_);
    unlist_unfinished(unfinished_path_);
    throw;
  }
}

PageFile::~PageFile() {
  if (published_) return;
  if (!kept_) {
    file_.abandon();
    remove_file(unfinished_path_);
  }
  unlist_unfinished(unfinished_path_);
}

void PageFile::load_page(u8* page, u64 file_offset) {
  const u64 got = file_.load_up_to(page, file_offset, kIoAlignment);
  std::memset(page + got, 0, kIoAlignment - got);
}

void PageFile::store(const PageSpan& span, u64 offset, u64 bytes) {
  alignas(kIoAlignment) u8 page[kIoAlignment];
  const u64 before = offset % kIoAlignment, used = (offset + bytes) % kIoAlignment;
  const u64 last = span.length - kIoAlignment;
  with_file([&] {
    if (before != 0) {
      load_page(page, span.file_offset);
      std::memcpy(span.pages, page, before);
    }
    if (used != 0) {
      if (before == 0 || last != 0) load_page(page, span.file_offset + last);
      std::memcpy(span.pages + last + used, page + used, kIoAlignment - used);
    }
    file_.store(span.pages, span.file_offset, span.length);
  });
}

void PageFile::park() {
  const std::lock_guard lock(mutex_);
  parked_ = true;
  file_.close();
}

void PageFile::seal(u64 bytes) {
  file_.close_and_set_size(bytes);
  kept_ = true;
}

void PageFile::publish() {
  if (published_) return;
  if (file_calls().rename(unfinished_path_.c_str(), final_path_.c_str()) != 0)
    FileIO::throw_file_error("PageFile::publish()", errno, "Unable to rename file.", final_path_);
  published_ = true;
  unlist_unfinished(unfinished_path_);
  sync_folder_of(final_path_);
}

void PageFile::set_aside() {
  std::string replaced_path = replaced_name(final_path_);
  if (file_calls().rename(final_path_.c_str(), replaced_path.c_str()) == 0)
    replaced_path_ = std::move(replaced_path);
  else if (errno != ENOENT)
    FileIO::throw_file_error("PageFile::set_aside()", errno, "Unable to rename file.", final_path_);
}

void PageFile::put_back() noexcept {
  const auto give_back = [](const std::string& from, const std::string& to) {
    if (file_calls().rename(from.c_str(), to.c_str()) != 0)
      notice_line("Unable to rename file: " + from + "\n    to: " + to, 'R');
  };
  if (published_) {
    give_back(final_path_, unfinished_path_);
    list_unfinished(unfinished_path_);
  }
  if (!replaced_path_.empty()) give_back(replaced_path_, final_path_);
  published_ = false;
  replaced_path_.clear();
}

void PageFile::drop_replaced() noexcept {
  if (!replaced_path_.empty()) remove_file(replaced_path_);
  replaced_path_.clear();
}

}  // namespace orl
