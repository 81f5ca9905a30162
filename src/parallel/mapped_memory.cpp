#include "parallel/mapped_memory.h"

#include <sys/mman.h>

#include <atomic>
#include <cerrno>
#include <cstring>

#include "frame/console.h"
#include "parallel/memory_calls.h"

namespace orl {

namespace {

constexpr int kReadWrite = PROT_READ | PROT_WRITE;
constexpr int kAnonymous = MAP_PRIVATE | MAP_ANONYMOUS;
/// Far below the number of mappings that a process may have by default (65530); neighbours grow together.
constexpr u64 kMostPieces = 1024;

std::unique_ptr<MappedMemory> map_pages(u64 bytes, u64 page_size, int protection, int flags) {
  const u64 length = (bytes + page_size - 1) & ~(page_size - 1);
  if (length < bytes) {
    errno = ENOMEM;
    return nullptr;
  }
  void* const address = memory_calls().mmap(nullptr, length, protection, flags);
  if (address == MAP_FAILED) return nullptr;
  return std::make_unique<MappedMemory>(address, length, page_size);
}

}  // namespace

MappedMemory::MappedMemory(void* address, u64 length, u64 page_size) : LargeMemory(address, length) {
  report_.total_bytes = length;
  report_.page_size = page_size;
  if (page_size == kLargePageBytes) report_.large_page_bytes = length;
}

MappedMemory::~MappedMemory() { memory_calls().munmap(address_, length_); }

std::unique_ptr<MappedMemory> map_large_pages(u64 bytes) {
  return map_pages(bytes, kLargePageBytes, kReadWrite, kAnonymous | MAP_POPULATE | MAP_HUGETLB);
}

// One call for the whole block would clear all of it on this thread, and on this thread's node.
// Transparent huge pages are left to the system's setting "always". Where it says "madvise", advice would
// have to come before the pages, hence in place of MAP_POPULATE, and Pi to 50 million digits gains nothing by
// them: 5.2 s with small pages, 5.6 s with "always" (2 cores, a virtual machine).
std::unique_ptr<MappedMemory> map_small_pages(u64 bytes, const ParallelContext& parallel) {
  const u64 large_pages = bytes / kLargePageBytes;
  const u64 pieces = std::min({parallel.tds, large_pages, kMostPieces});
  if (pieces < 2) return map_pages(bytes, kSmallPageBytes, kReadWrite, kAnonymous | MAP_POPULATE);
  std::unique_ptr<MappedMemory> memory =
      map_pages(bytes, kSmallPageBytes, PROT_NONE, kAnonymous | MAP_NORESERVE);
  if (memory == nullptr) return nullptr;
  char* const base = static_cast<char*>(memory->address());
  std::atomic<int> error = 0;
  fork_range(parallel.parallelizer, 0, pieces, [&](u64 k) {
    const u64 begin = large_pages * k / pieces * kLargePageBytes;
    const u64 end = k + 1 < pieces ? large_pages * (k + 1) / pieces * kLargePageBytes : memory->length();
    const void* const piece =
        memory_calls().mmap(base + begin, end - begin, kReadWrite, kAnonymous | MAP_POPULATE | MAP_FIXED);
    if (piece == MAP_FAILED) error = errno;
  });
  if (error == 0) return memory;
  memory.reset();
  errno = error;
  return nullptr;
}

std::unique_ptr<MappedMemory> map_unpopulated(u64 bytes) {
  return map_pages(bytes, kSmallPageBytes, kReadWrite, kAnonymous);
}

void test_page_locking() {
  static const bool possible = [] {
    if (memory_calls().mlockall(MCL_CURRENT) == 0) {
      memory_calls().munlockall();
      return true;
    }
    console::print(
        "This process does not have \"CAP_IPC_LOCK\". Page locking will not be possible.\n"
        "Please run Orvane with elevation to enable page locking.\n",
        'Y');
    console::set_colour('w');
    return false;
  }();
  static_cast<void>(possible);
}

int lock_pages(const void* address, u64 length) {
  return memory_calls().mlock(address, length) == 0 ? 0 : errno;
}

std::string with_reason(const std::string& text, int error) {
  return text + " (" + std::strerror(error) + ")";
}

}  // namespace orl
