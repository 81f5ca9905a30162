// What a call throws, for tests of refusals.
#pragma once

#include <stdexcept>
#include <string>

#include "core/exceptions.h"

namespace orl::test {

/// The E that body() throws. A test in which nothing is thrown, or something else, fails.
template <class E, class Body>
E caught(Body&& body) {
  try {
    body();
  } catch (const E& failure) {
    return failure;
  }
  throw std::logic_error("nothing was thrown");
}

/// The function and the message of the E that body() throws: "f() Invalid size."; "accepted" when it throws nothing.
template <class E = Exception, class Body>
std::string refusal(Body&& body) {
  try {
    body();
  } catch (const E& failure) {
    return failure.function() + (failure.function().empty() ? "" : " ") + failure.message();
  }
  return "accepted";
}

/// The message alone.
template <class E = Exception, class Body>
std::string message_of(Body&& body) {
  try {
    body();
  } catch (const E& failure) {
    return failure.message();
  }
  return "accepted";
}

}  // namespace orl::test
