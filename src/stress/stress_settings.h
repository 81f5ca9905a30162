// What a stress test is asked to do, as the command line, the menu or a configuration file sets it.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "config/object.h"
#include "stress/stress_test.h"

namespace orvane {

using orl::u32;

/// All settings, with their defaults.
struct StressSettings {
  static constexpr u64 kMaxSeconds = 1000000;
  static constexpr u64 kMaxMemory = 0x6ffffffffffffff9;

  /// The cores of the static pin order, 15/16 of the available memory, the tests that are on by default.
  StressSettings();

  /// Memory of one thread.
  u64 share_bytes() const { return cores.empty() ? 0 : total_memory / cores.size(); }
  void enable_all(bool enabled);
  /// Throws InvalidParametersException "Invalid Test: " and the tag for an unknown one; nothing has changed
  /// then.
  void enable_only(const std::vector<std::string>& tags);
  u64 enabled_count() const;

  /// Why the test cannot run, and what to do; empty when it can.
  std::string refusal() const;

  /// The keys AllocateLocally, LogicalCores, TotalMemory, Seconds, StopOnError and Tests.
  orl::Object to_object() const;
  /// Takes the keys that are there, and the defaults for those that are not. Throws a ConfigException with
  /// the line for what it cannot use or does not know; nothing has changed then.
  void from_object(const orl::Object& object);

  bool allocate_locally = true;
  std::vector<u32> cores;
  u64 total_memory;  ///< bytes, of all threads
  u64 seconds = 120;
  bool stop_on_error = true;
  std::vector<std::unique_ptr<StressTest>> tests;

 private:
  void check_tag(const std::string& tag) const;
  std::vector<std::string> read_tags(const orl::Array& array) const;
};

}  // namespace orvane
