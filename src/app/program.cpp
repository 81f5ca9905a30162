#include "app/program.h"

#include <unistd.h>

#include <exception>
#include <filesystem>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "app/actions.h"
#include "app/command_line.h"
#include "app/options.h"
#include "console/console.h"
#include "core/ending.h"
#include "core/exceptions.h"
#include "core/output.h"
#include "core/settings.h"
#include "memory/allocators.h"
#include "menus/fault_prompt.h"
#include "simd/target.h"
#include "system/environment.h"
#include "system/places.h"
#include "system/topology.h"
#include "threads/frameworks.h"
#include "threads/thread_priority.h"
#include "transforms/registration.h"

namespace orvane {
namespace {

namespace console = orl::console;

constexpr const char* kCheckpointFile = "Orvane Checkpoint File.txt";
constexpr const char* kEnvironmentFile = "environment.cfg";

// Full path of the running file; empty when the system does not tell.
std::string own_path() {
  for (std::size_t size = 2048;; size *= 2) {
    std::string buffer(size, '\0');
    const ssize_t length = readlink("/proc/self/exe", buffer.data(), size);
    if (length < 0) return {};
    if (static_cast<std::size_t>(length) == size) continue;
    buffer.resize(static_cast<std::size_t>(length));
    return buffer;
  }
}

void store_own_path() {
  orl::Settings& settings = orl::settings();
  settings.exe_path = own_path();
  if (settings.exe_path.empty()) {
    console::println("Failed to retrieve path.", 'R');
    orl::fatal_exit(1);
  }
  settings.exe_dir = settings.exe_path.substr(0, settings.exe_path.find_last_of("/\\") + 1);
}

// What the start says while it stands: nothing when it is to be quiet, unless there is a warning in it.
class StartWords : orl::Output {
 public:
  explicit StartWords(bool quiet) : console_(orl::output()) {
    if (quiet) orl::set_output(this);
  }
  ~StartWords() override { show(); }

 private:
  void print(std::string_view text, char colour) override { keep(std::string(text), colour); }
  void print_line(std::string_view text, char colour) override { keep(std::string(text) + "\n", colour); }
  // Whoever waits has something to say.
  void wait_for_user() override {
    warned_ = true;
    show();
    console_.wait_for_user();
  }

  void keep(std::string text, char colour) {
    warned_ = warned_ || colour == 'R' || colour == 'Y';
    held_.emplace_back(std::move(text), colour);
  }
  void show() {
    orl::set_output(&console_);
    if (warned_)
      for (const auto& [text, colour] : held_) console_.print(text, colour);
    held_.clear();
  }

  orl::Output& console_;
  std::vector<std::pair<std::string, char>> held_;
  bool warned_ = false;
};

void check_processor() {
  using orl::simd::Target;
  // A processor that lacks a higher target runs a lower one; only below the lowest is there something to warn
  // of.
  const Target target = std::max(orl::simd::best_target(), Target::kAvx2);
  orl::notice_line("\nChecking processor/OS features...\n", 'w');
  orl::notice_line("Required Features:", 'w');
  orl::notice_line(orl::simd::target_feature_list(target), 'T');
  if (orl::simd::missing_features(target).empty()) return;
  orl::notice_line("Warning:", 'R');
  orl::notice_line(
      "  This computer does not have all the processor or operating system\n"
      "  features that are necessary to run this binary.\n\n"
      "  Proceeding may cause the program to crash.\n"
      "  Command line users can skip this message by passing, \"skip-warnings\"\n"
      "  as the first parameter.",
      'Y');
  if (!orl::settings().skip_warnings) orl::output().wait_for_user();
}

int resume() {
  console::println("An unfinished computation has been found.", 'Y');
  console::println("Resuming...", 'w');
  console::pause();
  console::println("Resuming a computation is not available in this version yet. Move \"" +
                       std::string(kCheckpointFile) + "\" away to start another one.",
                   'R');
  return 1;
}

int guarded_body(orl::CommandLine::Parameters& line) {
  orl::Settings& settings = orl::settings();
  GivenOptions given;
  while (!line.at_end() && take_option(global_options(), settings, line, given)) {
  }
  if (asks_for_words(line)) return dispatch(line);
  {
    const StartWords words(settings.quiet);
    orl::notice("\n", ' ');
    orl::set_thread_priority(settings.thread_priority);
    check_processor();
    orl::set_environment(orl::on_usable_cores(
        orl::load_environment(orl::settings_places().path_of(kEnvironmentFile), orl::topology()),
        orl::bound_cores()));
    orl::notice("\n", ' ');
  }
  if (std::filesystem::exists(kCheckpointFile)) return resume();
  return dispatch(line);
}

}  // namespace

// The order is part of the program: nothing registers itself.
void register_everything() {
  orl::register_exceptions();
  orl::register_frameworks();
  orl::register_allocators();
  for (const std::string& warning : orl::register_multiplication()) orl::console::println(warning, 'Y');
}

int run_program(int argc, char** argv) {
  console::install();
  orl::install_fault_prompt();
  orl::settings().colors_enabled = console::terminal_takes_colours();
  console::end_in_order_at_signals();
  store_own_path();
  orl::CommandLine::Parameters line(argc, argv);
  try {
    register_everything();
    return guarded_body(line);
  } catch (const orl::Exception& e) {
    e.print();
  } catch (const std::exception& e) {
    console::println("Uncaught std exception", 'R');
    console::println(e.what(), ' ');
    console::set_colour('w');
  }
  return 1;
}

}  // namespace orvane
