// All multiplication algorithms of the program.
#pragma once

namespace orl {

/// Registers every algorithm and builds the tables of products; once, before any product.
void register_multiplication();

}  // namespace orl
