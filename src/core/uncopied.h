// What an object is that others point to, or that holds a resource of its own.
#pragma once

namespace orl {

/// Base of a class whose objects are neither copied nor moved.
class Uncopied {
 public:
  Uncopied(const Uncopied&) = delete;
  Uncopied& operator=(const Uncopied&) = delete;

 protected:
  Uncopied() = default;
  ~Uncopied() = default;
};

}  // namespace orl
