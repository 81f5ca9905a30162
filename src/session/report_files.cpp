#include "session/report_files.h"

#include <unistd.h>

#include "console/console.h"
#include "core/exceptions.h"
#include "files/new_file.h"
#include "session/run_results.h"
#include "session/validation_file.h"

namespace orvane {
namespace {

namespace console = orl::console;

constexpr const char* kTextExtension = ".txt";

void print_name(const char* label, const std::string& name) {
  console::label_value(label, name, 'G');
  console::newline();
}

// `name` is that of the validation file, once it is written.
void write_files(const RunReport& report, bool json_results, std::string& name) {
  if (name.empty()) {
    name = orl::write_new_file(validation_stem(report), kTextExtension, validation_text(report));
    print_name("Validation File: ", name);
  }
  if (!json_results) return;
  const std::string stem = name.substr(0, name.rfind(kTextExtension));
  print_name("Results File:    ",
             orl::write_new_file(stem, ".json", results_json(results_object(report, name))));
}

}  // namespace

void leave_report(const RunReport& report, bool json_results) {
  std::string name;
  for (bool written = false; !written;) {
    try {
      write_files(report, json_results, name);
      written = true;
    } catch (const orl::FileIO::FileException& e) {
      console::println("The computation is finished, but its report could not be written.", 'R');
      if (!isatty(STDIN_FILENO) || !isatty(STDOUT_FILENO)) throw;
      e.print();
      console::println("\nMake room for it, then press ENTER to write it again.", 'Y');
      if (console::read_line("(q and ENTER goes on without it.)\n") == "q") throw;
    }
  }
  // Only now, so that a failed run leaves its report.
  if (report.pi_proof && report.pi_proof->result == PiProof::kFailed) {
    std::string readings;
    for (const std::string& line : differing_digits(*report.pi_proof)) readings += "\n" + line;
    throw orl::AlgorithmFailedException(
        "prove_pi()", "BBP check: " + to_string(*report.pi_proof) + readings +
                          "\n\nThe digit files, if any, keep the names of unfinished ones.");
  }
  const SpotCheck& check = report.spot_check;
  if (check.result != SpotCheck::kFailed) return;
  throw orl::AlgorithmFailedException(
      "spot_check()",
      "Spot check failed at: " + std::to_string(check.position) +
          "\n\nThe digit at this place after the point is not that of \"" + check.file +
          "\".\nEither that file is damaged, or this machine computes wrongly. The digit files, if any, "
          "keep the names of unfinished ones.");
}

}  // namespace orvane
