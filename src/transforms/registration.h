// All multiplication algorithms of the program.
#pragma once

#include <string>
#include <vector>

namespace orl {

/// Registers every algorithm and builds the tables of products; once, before any product. Returns what is to be
/// told to the user: a warning for each row of a table that is left out.
std::vector<std::string> register_multiplication();

}  // namespace orl
