// A table of choices by configuration word, filled by explicit calls at start-up and only read afterwards.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace orl {

/// One choice: its configuration word, its display name, and how it is made.
template <class Product>
struct RegistryEntry {
  const char* key;
  const char* name;
  std::unique_ptr<Product> (*create)();
};

/// Types by key, in the order in which they were added.
template <class Product>
class Registry {
 public:
  using Entry = RegistryEntry<Product>;

  /// Returns false, and changes nothing, when the key is taken.
  [[nodiscard]] bool add(const Entry& entry) {
    if (find(entry.key) != nullptr) return false;
    entries_.push_back(entry);
    return true;
  }
  /// Null when the key is unknown.
  const Entry* find(std::string_view key) const {
    for (const Entry& entry : entries_) {
      if (key == entry.key) return &entry;
    }
    return nullptr;
  }
  /// In order of registration.
  const std::vector<Entry>& entries() const { return entries_; }

 private:
  std::vector<Entry> entries_;
};

}  // namespace orl
