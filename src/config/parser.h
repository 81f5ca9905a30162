// Reading the two text forms of a configuration tree: the primary form, which looks like JSON without commas,
// and strict JSON.
//
//   // a comment
//   {
//       Action : "CustomCompute"
//       CustomCompute : {
//           Sizes : [ 100 -2 "true" ]
//       }
//   }
//
// Both forms allow comments. A string knows the escapes \" and \\; a bare name may hold any byte behind a \.
// Integers lie in [-2^63, 2^63). Nothing but whitespace and comments may follow the root.
//
// Failures  ParseException "Line N: ..." with the line where it was noticed, or EndOfStreamException
//           "Unexpected end of stream." with the line behind the function's name. A byte of zero counts as
//           the end of the text.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "config/object.h"

namespace orl {

/// Brackets may be nested as deep as this; more is a ParseException.
inline constexpr u32 kMaxNesting = 500;

/// The root of a text in the primary form, or in JSON. Fails as the head of this file says.
std::unique_ptr<Value> parse_text(std::string_view text);
std::unique_ptr<Value> parse_json(std::string_view text);

/// Root of a file in the primary form, which may begin with a byte order mark. Throws FileException when it cannot be
/// read, is a pipe or a device, or holds more than 16 MiB.
std::unique_ptr<Value> load_file(const std::string& path);
std::unique_ptr<Value> load_json_file(const std::string& path);

}  // namespace orl
