// Bytes at any offset of a file that takes whole pages only.
#pragma once

#include <mutex>
#include <string>

#include "parallel/linear_buffer.h"
#include "swap/raw_file.h"

namespace orl {

/// A window on pages of 4096 bytes: `data` points at the byte with the wanted file offset.
struct PageSpan {
  u8* pages;        ///< first page, 4096-aligned
  u64 file_offset;  ///< of the first page
  u64 length;       ///< whole pages
  u8* data;
};

/// The pages that [offset, offset + bytes) of a file touches, cut from `buffer`. Throws
/// BufferTooSmallException naming `function`.
PageSpan cut_pages(LinearHeapBuffer buffer, u64 offset, u64 bytes, const char* function);
/// Bytes of window that cut_pages needs for `bytes` at any offset.
constexpr u64 page_span_bytes(u64 bytes) { return ((bytes + 4095) & ~u64{4095}) + 3 * 4096; }

/// A file under construction. It is made under `unfinished_path`, filled in any order, and renamed at
/// finish(). One that goes without finish() is removed.
class PageFile {
 public:
  PageFile(std::string unfinished_path, std::string final_path, u64 expected_bytes);
  PageFile(const PageFile&) = delete;
  PageFile& operator=(const PageFile&) = delete;
  ~PageFile();

  /// Reads the span's first and last page where [offset, offset + bytes) covers them in part, lets `fill`
  /// write the span's data, and stores all pages. With `keep_ends`, the first and last page are read in any
  /// case, because `fill` merges with what they hold. One caller at a time gets past the lock.
  template <class Fill>
  void update(u64 offset, u64 bytes, LinearHeapBuffer buffer, const char* function, Fill&& fill,
              bool keep_ends = false) {
    const PageSpan span = cut_pages(buffer, offset, bytes, function);
    const std::lock_guard lock(mutex_);
    load_end_pages(span, offset, bytes, keep_ends);
    fill(span.data);
    file_.store(span.pages, span.file_offset, span.length);
  }

  /// Flushes, cuts the file to `bytes`, and gives it its final name.
  void finish(u64 bytes);
  const std::string& final_path() const { return final_path_; }

 private:
  void load_end_pages(const PageSpan& span, u64 offset, u64 bytes, bool always);
  void load_page(u8* page, u64 file_offset);

  std::string unfinished_path_, final_path_;
  RawFile file_;
  std::mutex mutex_;
  bool finished_ = false;
};

/// Renames over what stands there; throws FileException "Unable to rename file.".
void rename_or_throw(const std::string& from, const std::string& to, const char* function);

}  // namespace orl
