#include "app/action_file.h"

#include <algorithm>
#include <iterator>

#include "benchio/io_benchmark.h"
#include "config/located.h"
#include "config/parser.h"
#include "config/writer.h"
#include "console/console.h"
#include "core/exceptions.h"
#include "core/format.h"
#include "stress/stress_tester.h"

namespace orvane {
namespace {

namespace console = orl::console;
using orl::InvalidParametersException;
using orl::Object;

constexpr const char* kCustomCompute = "CustomCompute";
constexpr const char* kBenchIo = "BenchIO";
constexpr const char* kStressTest = "StressTest";

// What a saved file opens with; the readers skip it.
constexpr const char* kHeader =
    "//\r\n"
    "//  Orvane Configuration File\r\n"
    "//\r\n"
    "//  Run it with:  orvane config FILE\r\n"
    "//\r\n";

// Hands the settings under `key` to `target`; what they lack or get wrong is placed there.
template <class Target>
void read_settings(const Object& root, const char* key, Target& target) {
  orl::read_key(root, key, [&] { target.from_object(root.get_object(key)); });
}

int run_custom_compute(const Object& root) {
  ModeHolder mode;
  read_settings(root, kCustomCompute, mode);
  console::newline();
  if (!mode.current().check_parameters())
    throw InvalidParametersException("config", "Cannot run computation with these parameters.");
  console::newline();
  return mode.current().run(0);
}

int run_bench_io(const Object& root) {
  BenchIoSettings settings;
  read_settings(root, kBenchIo, settings);
  if (const std::string refusal = settings.refusal(); !refusal.empty()) {
    console::println(refusal, 'R');
    throw InvalidParametersException("config", "Cannot run benchmark with these parameters.");
  }
  return run_io_benchmark(settings);
}

int run_stress(const Object& root) {
  StressSettings settings;
  read_settings(root, kStressTest, settings);
  if (const std::string refusal = settings.refusal(); !refusal.empty()) {
    console::println(orl::wrapped(refusal), 'R');
    throw InvalidParametersException("config", "Cannot run stress test with these parameters.");
  }
  return run_stress_test(settings);
}

// An action of a file: its word, which is the key of its settings too, and what runs with the root of the
// file.
constexpr struct FileAction {
  const char* name;
  int (*run)(const Object& root);
} kFileActions[] = {
    {kCustomCompute, run_custom_compute},
    {kBenchIo, run_bench_io},
    {kStressTest, run_stress},
};

const FileAction& find_file_action(const std::string& word) {
  const auto* action = std::find_if(std::begin(kFileActions), std::end(kFileActions),
                                    [&](const auto& a) { return word == a.name; });
  if (action == std::end(kFileActions)) throw InvalidParametersException("config", "Invalid Action: " + word);
  return *action;
}

const FileAction& read_action(const Object& root) {
  const FileAction* action = nullptr;
  orl::read_key(root, "Action", [&] { action = &find_file_action(root.get_string("Action")); });
  orl::read_key(root, action->name, [&] { root.get_object(action->name); });
  for (const Object::Node& node : root.nodes())
    if (node.key != "Action" && node.key != action->name)
      throw orl::ConfigException(node.value->line, node.key,
                                 "Unknown key. Please remove it or correct its name.");
  return *action;
}

void save_action(const std::string& path, const char* action, Object settings) {
  Object root;
  root.add_string("Action", action);
  root.add_object(action, std::move(settings));
  orl::save_file(path, kHeader + orl::to_string(root));
}

template <class Target>
void load_action(const std::string& path, const std::string& action, Target& target) {
  const auto value = orl::load_file(path);
  const Object& root = orl::root_object(*value);
  const std::string name = read_action(root).name;
  if (name != action)
    throw InvalidParametersException("load_action()", "This file holds the action " + name + ", not " +
                                                          action + ". Run it with:  orvane config FILE");
  read_settings(root, name.c_str(), target);
}

}  // namespace

std::string action_file_path(const std::string& name) {
  return name.find('.') == std::string::npos ? name + ".cfg" : name;
}

void save_custom(const std::string& path, const ModeHolder& mode) {
  save_action(path, kCustomCompute, mode.current().to_object());
}
void save_bench_io(const std::string& path, const BenchIoSettings& settings) {
  save_action(path, kBenchIo, settings.to_object());
}
void save_stress(const std::string& path, const StressSettings& settings) {
  save_action(path, kStressTest, settings.to_object());
}
void load_custom(const std::string& path, ModeHolder& mode) { load_action(path, kCustomCompute, mode); }
void load_bench_io(const std::string& path, BenchIoSettings& settings) {
  BenchIoSettings fresh;
  load_action(path, kBenchIo, fresh);
  settings = std::move(fresh);
}
void load_stress(const std::string& path, StressSettings& settings) {
  load_action(path, kStressTest, settings);
}

int run_config(orl::CommandLine::Parameters& line) {
  line.take();
  if (line.at_end()) throw InvalidParametersException("config", "Please specify a config file.");
  const std::string path = action_file_path(line.take());
  if (!line.at_end()) {
    console::println("Invalid Parameter: " + line.key(), 'R');
    return 1;
  }
  console::label_value("Configuration File:  ", path, 'G');
  console::newline();
  const auto root = orl::load_file(path);
  return read_action(orl::root_object(*root)).run(orl::root_object(*root));
}

}  // namespace orvane
