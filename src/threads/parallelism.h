// The multi-threading settings of a computation: how many tasks, and which framework runs them.
#pragma once

#include <memory>
#include <string>

#include "threads/frameworks.h"

namespace orl {

/// Owns the framework that it names; may be moved, not copied.
class Parallelism {
 public:
  /// The defaults for this machine.
  Parallelism();

  u64 tds() const { return tds_; }
  /// Throws InvalidParametersException unless 1 <= tds <= kMaxTaskDecomposition.
  void set_tds(u64 tds);
  Parallelizer& framework() const { return *framework_; }
  /// Replaces the framework by a fresh one. Throws InvalidParametersException for an unknown key.
  void set_framework(const std::string& key);
  void restore_defaults(u64 logical_cores);
  ParallelContext context() const { return {*framework_, tds_}; }

  /// The keys TaskDecomposition and Framework and the framework's own, as a configuration file holds them.
  void write_settings(Object& object) const;
  /// The settings for the dump of a report: with texts for the reader of the file.
  Object to_object() const;
  /// Reads either form. Throws InvalidParametersException; nothing has changed then.
  void read_object(const Object& object);

 private:
  u64 tds_;
  std::unique_ptr<Parallelizer> framework_;
};

}  // namespace orl
