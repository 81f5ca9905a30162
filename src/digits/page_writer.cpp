#include "digits/page_writer.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "frame/exceptions.h"
#include "swap/file_calls.h"
#include "swap/raw_io_buffer.h"

namespace orl {

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

PageFile::PageFile(std::string unfinished_path, std::string final_path, u64 expected_bytes)
    : unfinished_path_(std::move(unfinished_path)), final_path_(std::move(final_path)) {
  // What an earlier run left unfinished is not ours to continue.
  if (!remove_file(unfinished_path_))
    FileIO::throw_file_error("PageFile()", errno, "Unable to create file.", unfinished_path_);
  file_ = RawFile(expected_bytes, unfinished_path_);
}

PageFile::~PageFile() {
  if (finished_) return;
  file_ = RawFile();
  remove_file(unfinished_path_);
}

void PageFile::load_page(u8* page, u64 file_offset) {
  const u64 got = file_.load_up_to(page, file_offset, kIoAlignment);
  std::memset(page + got, 0, kIoAlignment - got);
}

void PageFile::load_end_pages(const PageSpan& span, u64 offset, u64 bytes, bool always) {
  const u64 end = offset + bytes, last = span.length - kIoAlignment;
  const bool first_partial = always || offset % kIoAlignment != 0;
  const bool last_partial = always || end % kIoAlignment != 0;
  if (first_partial || (last == 0 && last_partial)) load_page(span.pages, span.file_offset);
  if (last != 0 && last_partial) load_page(span.pages + last, span.file_offset + last);
}

void PageFile::finish(u64 bytes) {
  file_.close_and_set_size(bytes);
  rename_or_throw(unfinished_path_, final_path_, "PageFile::finish()");
  finished_ = true;
}

void rename_or_throw(const std::string& from, const std::string& to, const char* function) {
  if (file_calls().rename(from.c_str(), to.c_str()) != 0)
    FileIO::throw_file_error(function, errno, "Unable to rename file.", to);
}

}  // namespace orl
