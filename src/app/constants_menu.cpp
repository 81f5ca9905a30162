#include "app/constants_menu.h"

#include <string>
#include <string_view>
#include <vector>

#include "console/console.h"
#include "core/exceptions.h"
#include "core/format.h"

namespace orvane {
namespace {

namespace console = orl::console;

void print_row(const ConstantRow& row) {
  console::print_number(3, static_cast<u64>(row.index), row.menu.colour);
  console::print("         ", row.menu.colour);
  console::print_padded(28, row.menu.name, row.menu.colour);
  console::print("  ", row.menu.colour);
  console::print_padded(16, row.menu.value, row.menu.colour);
  console::println(row.menu.difficulty, row.menu.colour);
}

void print_catalogue() {
  console::println("\nCompute a Constant: (in ascending order of difficulty to compute)\n", 'w');
  console::println("  #         Constant                      Value        Approximate Difficulty*\n", 'w');
  std::string_view section;
  for (const ConstantRow& row : catalogue()) {
    if (section != row.menu.section) {
      if (!section.empty()) console::newline();
      console::println(section = row.menu.section, 'w');
    }
    print_row(row);
  }
  console::newline();
  console::println("*Actual numbers will vary. Radix conversion = 1.00", 'w');
  std::string to_come;
  for (u64 i = 0; i < kConstantCount; i++)
    if (!make_constant(i)->unavailable().empty())
      to_come += (to_come.empty() ? " " : ", ") + std::to_string(i);
  if (!to_come.empty()) console::println("Not in this version yet:" + to_come, 'w');
  console::newline();
}

// False when the user keeps the former constant.
bool ask_argument(Constant& constant) {
  const ConstantRow& row = constant.row();
  console::println("\nEnter nothing to keep the former constant.", 'w');
  for (;;) {
    const std::string line = console::read_line(row.argument.prompt);
    if (line.empty()) return false;
    try {
      constant.set_argument(line);
      return true;
    } catch (const orl::InvalidParametersException& e) {
      // A file is not asked for again.
      if (row.argument.kind == Argument::kFormulaFile) throw;
      console::println(orl::wrapped(e.message()), 'R');
    }
  }
}

std::string menu_text(const Constant& constant, const AlgorithmRow& row) {
  if (*row.menu_text != '\0') return row.menu_text;
  const auto choice = constant.clone();
  choice->set_algorithm(row.key);
  return choice->algorithm_long();
}

}  // namespace

std::unique_ptr<Constant> constants_menu() {
  print_catalogue();
  console::println("Enter your choice:", 'w');
  std::unique_ptr<Constant> constant;
  while (!constant) constant = make_constant(console::read_number("option: ", 'G'));
  if (constant->takes_argument() && !ask_argument(*constant)) return nullptr;
  return constant;
}

void algorithm_menu(Constant& constant) {
  // The texts first: some say on the console what it takes to make them.
  std::vector<std::string> keys, texts;
  const auto offer = [&](const std::string& key, const std::string& text) {
    texts.push_back("   " + std::to_string(keys.size()) + "    " + text);
    keys.push_back(key);
  };
  const auto rows = constant.algorithms();
  for (u32 i = 0; i < rows.size(); ++i) {
    const bool marked = i != 0 && i == constant.default_algorithm();
    if (rows[i].menu_text) offer(rows[i].key, menu_text(constant, rows[i]) + (marked ? "    (default)" : ""));
  }
  if (keys.empty()) offer(constant.algorithm_key(), constant.algorithm_long());
  console::println("\nSelect an Algorithm:\n", 'w');
  for (const std::string& text : texts) console::println(text, 'T');
  const char* const note = constant.row().algorithm_menu.note;
  if (note) console::println(note, 'w');
  if (!(note ? std::string_view(note) : texts.back()).ends_with('\n')) console::newline();
  constant.set_algorithm(keys[console::read_bounded("Algorithm: ", 0, keys.size() - 1, 'G')]);
}

}  // namespace orvane
