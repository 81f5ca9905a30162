#include "app/menu_steps.h"

#include <filesystem>

#include "app/action_file.h"
#include "console/console.h"
#include "core/exceptions.h"
#include "core/format.h"

namespace orvane {
namespace {

namespace console = orl::console;

// `writes`: the step replaces the file.
void choose_file(const char* verb, const char* done, bool writes,
                 const std::function<void(const std::string&)>& step) {
  const std::string name = console::read_line(std::string("\nEnter path to ") + verb +
                                              " configuration file. (the .cfg extension can be omitted)\n");
  if (name.empty()) return;
  const std::string path = action_file_path(name);
  if (writes && std::filesystem::exists(path) &&
      console::read_line("\nThis file exists already. Enter \"yes\" to replace it: ") != "yes") {
    console::println("\nNothing was saved.", 'Y');
    return;
  }
  step(path);
  console::println("\n" + std::string(done) + ": " + path, 'Y');
}

}  // namespace

bool try_step(const std::function<void()>& step) {
  try {
    step();
    return true;
  } catch (const orl::FileIO::FileException& e) {
    e.print();
  } catch (const orl::EndOfStreamException& e) {
    e.print();  // which names the line
  } catch (const orl::Exception& e) {
    console::println("\n" + orl::wrapped(e.message()), 'R');
  }
  return false;
}

void print_file_rows() { console::println(" 20/21  Load / Save Configuration", 'T'); }

void choose_file_to_load(const std::function<void(const std::string&)>& load) {
  choose_file("load", "Loaded", false, load);
}

void choose_file_to_save(const std::function<void(const std::string&)>& save) {
  choose_file("save", "Saved", true, save);
}

}  // namespace orvane
