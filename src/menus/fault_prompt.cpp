#include "menus/fault_prompt.h"

#include <unistd.h>

#include "arrays/raid_faults.h"
#include "console/console.h"

namespace orl {
namespace {

class Person final : public R03::FaultAnswers {
 public:
  std::optional<u64> option() override {
    if (isatty(STDIN_FILENO) == 0) return std::nullopt;
    return console::read_number("", 'G');
  }
};

}  // namespace

void install_fault_prompt() {
  // Never destroyed: a thread of an array may ask while the process ends.
  static Person* const person = new Person;
  R03::set_fault_answers(person);
}

}  // namespace orl
