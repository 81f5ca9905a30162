#include "stress/stress_settings.h"

#include <algorithm>

#include "config/located.h"
#include "core/exceptions.h"
#include "core/format.h"
#include "system/environment.h"
#include "system/limits.h"

namespace orvane {
namespace {

using orl::s64;

// Each core of the pin order once, and no more of them than the process is given time for: threads that wait for
// their turn heat nothing.
std::vector<u32> default_cores() {
  std::vector<u32> found;
  for (const u32 core : orl::static_pin_order())
    if (found.size() < orl::processor_count() && std::find(found.begin(), found.end(), core) == found.end())
      found.push_back(core);
  return found;
}

[[noreturn]] void refuse(const std::string& message) {
  throw orl::InvalidParametersException("StressTest", message);
}

u64 integer_in(const orl::Object& object, const char* key, u64 low, u64 high) {
  const s64 value = object.get_integer(key);
  if (value < 0 || static_cast<u64>(value) < low || static_cast<u64>(value) > high)
    refuse("It must be between " + std::to_string(low) + " and " + std::to_string(high) + ".");
  return static_cast<u64>(value);
}

std::vector<u32> read_cores(const orl::Array& array) {
  std::vector<u32> cores;
  for (u64 i = 0; i < array.size(); ++i)
    orl::read_element(array, i, [&](const orl::Value& element) {
      const s64 core = element.as_integer("").value;
      if (core < 0 || core > INT32_MAX) refuse("Invalid Logical Core: " + std::to_string(core));
      if (std::find(cores.begin(), cores.end(), core) != cores.end())
        refuse("Core " + std::to_string(core) + " is named twice.");
      cores.push_back(static_cast<u32>(core));
    });
  return cores;
}

}  // namespace

StressSettings::StressSettings()
    : cores(default_cores()),
      total_memory(orl::available_memory_bytes() / 16 * 15),
      tests(make_stress_tests()) {}

void StressSettings::enable_all(bool enabled) {
  for (auto& test : tests) test->enabled = enabled;
}

void StressSettings::check_tag(const std::string& tag) const {
  if (std::none_of(tests.begin(), tests.end(), [&](const auto& test) { return tag == test->tag(); }))
    refuse("Invalid Test: " + tag);
}

void StressSettings::enable_only(const std::vector<std::string>& tags) {
  for (const std::string& tag : tags) check_tag(tag);
  for (auto& test : tests) test->enabled = std::find(tags.begin(), tags.end(), test->tag()) != tags.end();
}

std::vector<std::string> StressSettings::read_tags(const orl::Array& array) const {
  std::vector<std::string> tags;
  for (u64 i = 0; i < array.size(); ++i)
    orl::read_element(array, i, [&](const orl::Value& element) {
      tags.push_back(element.as_string("").value);
      check_tag(tags.back());
    });
  return tags;
}

u64 StressSettings::enabled_count() const {
  return static_cast<u64>(
      std::count_if(tests.begin(), tests.end(), [](const auto& test) { return test->enabled; }));
}

std::string StressSettings::refusal() const {
  if (enabled_count() == 0) return "No Tests Enabled.";
  if (cores.empty()) return "No logical cores are selected. Select at least one.";
  const u64 available = orl::available_memory_bytes();
  if (total_memory > available)
    return "The test needs " + orl::format_bytes(total_memory) + " of memory,\nand " +
           orl::format_bytes(available) + " are available. Ask for less.";
  if (std::none_of(tests.begin(), tests.end(),
                   [&](const auto& test) { return test->enabled && test->plan(share_bytes()); }))
    return orl::format_bytes(total_memory) + " of memory for " + std::to_string(cores.size()) +
           " thread(s)\nare too little for every selected test. Ask for more.";
  return {};
}

orl::Object StressSettings::to_object() const {
  orl::Array core_list, tags;
  for (const u32 core : cores) core_list.add_integer(core);
  for (const auto& test : tests)
    if (test->enabled) tags.add_string(test->tag());
  orl::Object object;
  object.add_bool("AllocateLocally", allocate_locally);
  object.add_array("LogicalCores", std::move(core_list));
  object.add_integer("TotalMemory", static_cast<s64>(total_memory));
  object.add_integer("Seconds", static_cast<s64>(seconds));
  object.add_bool("StopOnError", stop_on_error);
  object.add_array("Tests", std::move(tags));
  return object;
}

void StressSettings::from_object(const orl::Object& object) {
  using orl::read_optional_key;
  StressSettings fresh;
  read_optional_key(object, "AllocateLocally",
                    [&] { fresh.allocate_locally = object.get_bool("AllocateLocally"); });
  read_optional_key(object, "LogicalCores",
                    [&] { fresh.cores = read_cores(object.get_array("LogicalCores")); });
  read_optional_key(object, "TotalMemory",
                    [&] { fresh.total_memory = integer_in(object, "TotalMemory", 1, kMaxMemory); });
  read_optional_key(object, "Seconds",
                    [&] { fresh.seconds = integer_in(object, "Seconds", 0, kMaxSeconds); });
  read_optional_key(object, "StopOnError", [&] { fresh.stop_on_error = object.get_bool("StopOnError"); });
  read_optional_key(object, "Tests", [&] { fresh.enable_only(fresh.read_tags(object.get_array("Tests"))); });
  orl::refuse_unknown_keys(object, fresh.to_object());
  *this = std::move(fresh);
}

}  // namespace orvane
