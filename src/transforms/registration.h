// All multiplication algorithms of the program.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "transforms/common/far_transform.h"

namespace orl {

/// Registers every algorithm and builds the tables of products; once, before any product. Returns what is to be
/// told to the user: a warning for each row of a table that is left out.
std::vector<std::string> register_multiplication();

/// The family of transforms for numbers on disks, by the id of its algorithm; null when there is none.
const FarFamily* find_far_family(std::string_view id);

}  // namespace orl
