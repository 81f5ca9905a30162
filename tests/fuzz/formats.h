// What may arrive from outside as bytes, each read by one entry point for fuzzing.
//
// An entry takes any bytes and returns. It ends the process when the program would do what it never may:
// crash, read outside of its buffers (under a sanitizer), throw what is no exception of the library, or take
// something for what it is not. The last is what the checks in formats.cpp state.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "core/types.h"

namespace orvane::fuzz {

using orl::u64;
using orl::u8;

/// A format and what reads it.
struct Format {
  const char* name;  ///< of its entry and its seeds
  void (*read)(const u8* data, u64 size);
  /// Small whole files that the format takes, made by the program's own writers.
  std::vector<std::string> (*seeds)();
};

/// "config", "ovd", "text-digits", "validation".
std::span<const Format> formats();

}  // namespace orvane::fuzz
