#include "app/action_file.h"

#include <algorithm>
#include <iterator>

#include "config/located.h"
#include "config/parser.h"
#include "config/writer.h"
#include "frame/console.h"
#include "frame/exceptions.h"
#include "tools/stress_tester.h"

namespace orvane {
namespace {

namespace console = orl::console;
using orl::InvalidParametersException;
using orl::Object;

constexpr const char* kCustomCompute = "CustomCompute";
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

int run_io_benchmark(const Object&) {
  console::println("The I/O benchmark is not available in this version yet.", 'R');
  return 1;
}

int run_stress(const Object& root) {
  orl::read_key(root, kStressTest, [&] {
    orl::refuse_unknown_keys(root.get_object(kStressTest), StressSettings().to_object());
  });
  return run_stress_object(root.get_object(kStressTest));
}

// An action of a file: its word, which is the key of its settings too, and what runs with the root of the
// file.
constexpr struct FileAction {
  const char* name;
  int (*run)(const Object& root);
} kFileActions[] = {
    {kCustomCompute, run_custom_compute},
    {"BenchIO", run_io_benchmark},
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

}  // namespace

std::string action_file_path(const std::string& name) {
  return name.find('.') == std::string::npos ? name + ".cfg" : name;
}

void save_custom(const std::string& path, const ModeHolder& mode) {
  Object root;
  root.add_string("Action", kCustomCompute);
  root.add_object(kCustomCompute, mode.current().to_object());
  orl::save_file(path, kHeader + orl::to_string(root));
}

void load_custom(const std::string& path, ModeHolder& mode) {
  const auto value = orl::load_file(path);
  const Object& root = orl::root_object(*value);
  const std::string name = read_action(root).name;
  if (name != kCustomCompute)
    throw InvalidParametersException("load_custom()", "This file holds the action " + name + ", not " +
                                                          kCustomCompute +
                                                          ". Run it with:  orvane config FILE");
  read_settings(root, kCustomCompute, mode);
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
