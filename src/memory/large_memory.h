// The single large block of a computation, and what became of it on the machine's pages.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "threads/parallelizer.h"

namespace orl {

inline constexpr u64 kSmallPageBytes = 4096;
inline constexpr u64 kLargePageBytes = 2097152;

/// How hard an allocator tries for something that the machine may refuse.
enum class Mode : u32 { disabled = 0, attempt = 1, forced = 2 };

/// "Disabled", "Attempt" or "Forced"; throws InvalidParametersException "Invalid Mode" from "mode_to_string".
std::string mode_to_string(Mode mode);
/// "disable", "attempt" or "forced", as a configuration holds it.
std::string mode_to_word(Mode mode);
/// Throws InvalidParametersException: Invalid value for `key`. Expected "disable", "attempt", or "forced".
Mode word_to_mode(const std::string& key, const std::string& word);

/// word_to_mode() for NumaBind, which is never disabled: Expected "attempt" or "forced".
Mode word_to_bind_mode(const std::string& word);
/// Disabled, attempt, forced, disabled ...: what a menu does.
Mode next_mode(Mode mode);

/// What became of the pages of a block.
struct AllocationReport {
  u64 total_bytes = 0;
  u64 large_page_bytes = 0;
  u64 locked_bytes = 0;
  u64 page_size = kSmallPageBytes;
  std::map<int, u64> node_bytes;  ///< NUMA node -> bytes, from a sample of pages

  /// Small pages, none of them locked, all of those sampled on one node.
  bool is_ordinary() const;
  /// Labels with their colons, and values: "NUMA node 0:", "1,048,576 (1.00 MiB)".
  std::vector<std::pair<std::string, std::string>> rows() const;
  void print() const;
};

/// A block and its owner: the destructor gives it back.
class LargeMemory {
 public:
  virtual ~LargeMemory() = default;
  LargeMemory(const LargeMemory&) = delete;
  LargeMemory& operator=(const LargeMemory&) = delete;

  /// 64-byte aligned at least.
  void* address() const { return address_; }
  /// At least what was asked for.
  u64 length() const { return length_; }
  const AllocationReport& report() const { return report_; }

 protected:
  LargeMemory(void* address, u64 length) : address_(address), length_(length) {}

  void* address_;
  u64 length_;
  AllocationReport report_;
};

/// Writes every page of [address, address + length_bytes): the first byte becomes '{', the last one '@', and
/// every aligned 32-bit word number i = 0, 1, ... becomes i * i * 0xC82B9175 - 933796325 modulo 2^32.
void touch_memory(void* address, u64 length_bytes);
/// touch_memory() by tds tasks, each on pages of its own. With a tds / 4 of at least two the block is cut
/// into that many pieces, and each has a pattern of its own. The address is a multiple of 4.
void touch_memory(void* address, u64 length_bytes, const ParallelContext& parallel);
/// Writes bytes [begin, end) of what touch_memory() with a context of this tds writes. They are multiples of
/// 4; end may also be the end of the block.
void touch_part(void* address, u64 length_bytes, u64 tds, u64 begin, u64 end);

/// A hash without collisions, for places that shall follow no pattern.
u64 scatter(u64 x);

/// NUMA node -> bytes, from up to `samples` pages of the block; empty where the system has no answer.
std::map<int, u64> sample_nodes(const void* address, u64 length_bytes, u64 samples = 1024);

}  // namespace orl
