// How counts, sizes and measured values are written, on the console and in files.
#pragma once

#include <string>
#include <string_view>

#include "core/types.h"

namespace orl {

/// "1,234,567".
std::string format_with_commas(u64 value);
/// "1,234,567 (1.18 MiB)": bytes, then three significant digits in a unit of a power of 1024.
std::string format_bytes(u64 bytes);
/// format_bytes() without the count of bytes: "1.18 MiB".
std::string format_binary_size(u64 bytes);
/// `digits` significant digits without an exponent: format_float(12.345, 3) is "12.3". Large values keep all
/// digits before the point. `digits` is 1 to 17.
std::string format_float(double value, u32 digits);
/// The text with blanks behind it up to `width` bytes; a longer text as it stands.
std::string padded(std::string_view text, u64 width);
/// The text in lines of at most 79 columns, broken at blanks; all but the first begin with `margin` blanks, and the
/// first stands behind as many. A line that begins with "Path: " or a quoted
/// name stands as it is.
std::string wrapped(std::string_view text, u64 margin = 0);

}  // namespace orl
