// Reading the small text files in which the kernel describes the machine. A file that is missing, unreadable
// or damaged gives what could be read of it; nothing here throws for it.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/types.h"

namespace orl {

/// Ids of cores and nodes at or above this are not believed.
inline constexpr u32 kMaxKernelId = 1 << 16;

/// The whole file; nothing when it cannot be opened.
std::optional<std::string> read_kernel_file(const std::string& path);
/// Its first line without blanks at its ends; empty when it cannot be read.
std::string read_kernel_line(const std::string& path);
/// The decimal number that a text or a file begins with; nothing when it does not.
std::optional<s64> leading_number(std::string_view text);
std::optional<s64> read_kernel_number(const std::string& path);

/// "0-3,7" as 0 1 2 3 7: rising, each once. Pieces that are no id or range are left out.
std::vector<u32> parse_id_list(std::string_view text);

/// "0-3,7"; "none" for an empty list.
std::string id_list_text(const std::vector<u32>& rising_ids);

/// Without blanks at its ends.
std::string_view trimmed(std::string_view text);
/// Without blanks at its ends and with "?" for every byte that is no printable ASCII: what firmware says may
/// hold anything, and reports are made of lines.
std::string printable(std::string_view text);
/// The lines of `text` without their ends.
std::vector<std::string_view> lines_of(std::string_view text);
/// Bytes of the line "<label> 123 kB" of a text such as /proc/meminfo; 0 when there is none.
u64 kilobytes_field(std::string_view text, std::string_view label);

}  // namespace orl
