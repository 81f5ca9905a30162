// Bytes at any offset of a file that takes whole pages only, and the file's unfinished name until it is
// complete.
//
// Threads  any number may store different ranges at once: a caller fills its own window first, and only the
//          reading of shared pages and the writing stand under the file's mutex. Nothing forks under it.
#pragma once

#include <mutex>
#include <string>

#include "core/uncopied.h"
#include "files/raw_file.h"
#include "files/raw_io_buffer.h"
#include "memory/linear_buffer.h"

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

/// Bytes of window, aligned to 64, that cut_pages needs for `bytes` >= 1 at any offset.
constexpr u64 page_span_bytes(u64 bytes) {
  constexpr u64 kLostToAlignment = kIoAlignment - 64;
  return ((bytes + kIoAlignment - 2) / kIoAlignment + 1) * kIoAlignment + kLostToAlignment;
}

/// What ends the name, before its extension, of a file that is not finished or not proved yet.
inline constexpr const char* kUnfinishedNote = " (incomplete)";
/// "x.txt" becomes "x (4711) (incomplete).txt" in the process with this number: two programs that make the same
/// file keep apart.
std::string unfinished_name(const std::string& path);
/// "x - 3.ovd" becomes "x - 3 (replaced).ovd".
std::string replaced_name(const std::string& path);

/// A file under construction. It is made under its unfinished name, filled in any order, sealed when complete
/// and then given its final name. One that goes before it is sealed is removed; one that is sealed but could
/// not take its name stays under the unfinished one. A process that ends while it lives takes it along
/// (core/unfinished_files.h), sealed or not.
class PageFile : Uncopied {
 public:
  /// Throws FileException when the file cannot be made, has no room, or when a folder stands at `final_path`.
  PageFile(std::string final_path, u64 expected_bytes);
  ~PageFile();

  /// Stores [offset, offset + bytes) from a span that cut_pages made for it and whose data the caller has
  /// filled in. What the file holds around the range in the first and last page stays.
  void store(const PageSpan& span, u64 offset, u64 bytes);

  /// Lets `change` alter the bytes [offset, offset + bytes), at most a page of them, as they stand in the
  /// file (zeros where nothing was stored yet). No other store comes between the reading and the writing.
  template <class Change>
  void update(u64 offset, u64 bytes, Change&& change) {
    alignas(kIoAlignment) u8 pages[2 * kIoAlignment];
    const PageSpan span =
        cut_pages(LinearHeapBuffer(pages, sizeof pages), offset, bytes, "PageFile::update()");
    with_file([&] {
      for (u64 at = 0; at < span.length; at += kIoAlignment)
        load_page(span.pages + at, span.file_offset + at);
      change(span.data);
      file_.store(span.pages, span.file_offset, span.length);
    });
  }

  /// Flushes and closes the file; from now on it is open only while something is stored.
  void park();

  /// Flushes the file and cuts it to `bytes`.
  void seal(u64 bytes);
  /// Gives a sealed file its final name, over whatever file has it. Nothing happens when it has it already.
  void publish();
  /// The file goes with this object, sealed or not, unless it has its final name.
  void discard() { kept_ = false; }
  /// Gives the file that has the final name another one for now. Without such a file nothing happens.
  void set_aside();
  /// Undoes what was done of set_aside and publish, and tells which file could not get its name back.
  void put_back() noexcept;
  /// Removes what was set aside.
  void drop_replaced() noexcept;
  const std::string& final_path() const { return final_path_; }
  const std::string& unfinished_path() const { return unfinished_path_; }

 private:
  // Runs body() with the file open and the mutex held.
  template <class Body>
  void with_file(Body&& body) {
    const std::lock_guard lock(mutex_);
    if (!file_.is_open()) file_ = RawFile(unfinished_path_, RawFile::Mode::kReadWrite);
    body();
    if (parked_) file_.close();
  }
  void load_page(u8* page, u64 file_offset);

  std::string unfinished_path_, final_path_;
  std::string replaced_path_;  ///< of what was set aside
  RawFile file_;
  std::mutex mutex_;
  bool parked_ = false;
  bool kept_ = false;  ///< when this object goes: it is sealed, and nobody found it wrong
  bool published_ = false;
};

}  // namespace orl
