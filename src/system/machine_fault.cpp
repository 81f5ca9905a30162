#include "system/machine_fault.h"

#include <fcntl.h>

#include <cerrno>
#include <cstring>
#include <mutex>
#include <utility>

#include "core/ending.h"
#include "core/format.h"
#include "core/output.h"
#include "core/run_timer.h"
#include "core/version.h"
#include "files/file_calls.h"
#include "system/machine.h"

namespace orl {
namespace {

constexpr u64 kLabelWidth = 12;

struct Work {
  std::mutex mutex;
  std::string name, stage;
};

// Never destroyed: a thread may fail while the process ends.
Work& work() {
  static Work* const current = new Work;
  return *current;
}

std::string row(const char* label, const std::string& value) {
  return "    " + padded(label, kLabelWidth) + value + "\r\n";
}

std::string machine_rows() {
  std::string text;
  for (const ReportSection& section : system_report(false)) {
    std::string line;
    for (const auto& [label, value] : section.rows)
      line += (line.empty() ? "" : "; ") + (label.empty() ? "" : label + " ") + value;
    text += "        " + section.title + (section.title.ends_with(":") ? " " : ": ") + line + "\r\n";
  }
  return text;
}

std::string detail_rows(const std::string& details) {
  std::string text;
  for (std::size_t at = 0; at < details.size();) {
    const std::size_t end = std::min(details.find('\n', at), details.size());
    if (end != at) text += "        " + details.substr(at, end - at) + "\r\n";
    at = end + 1;
  }
  return text;
}

std::string entry_text(const std::string& event, const std::string& details) {
  std::string name, stage;
  {
    const std::lock_guard lock(work().mutex);
    name = work().name;
    stage = work().stage;
  }
  std::string text = iso_date_of_now() + "\r\n" + row("Event:", event) +
                     row("Program:", std::string("Orvane v") + kVersion + " " + kBuildType);
  if (!name.empty()) text += row("Work:", name);
  if (!stage.empty()) text += row("Stage:", stage);
  text += "    Machine:\r\n" + machine_rows() + "    Details:\r\n" + detail_rows(details) + "\r\n";
  return text;
}

// 0 or the number of the reason.
int append(const std::string& text) {
  FileCalls& calls = file_calls();
  const int fd = calls.open(kEventLogFile, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  if (fd < 0) return errno;
  const bool whole = calls.write(fd, text.data(), text.size()) == static_cast<s64>(text.size());
  const int code = whole && calls.fsync(fd) == 0 ? 0 : errno;
  calls.close(fd);
  return code;
}

}  // namespace

LoggedWork::LoggedWork(std::string name) {
  const std::lock_guard lock(work().mutex);
  work().name = std::move(name);
  work().stage.clear();
}

LoggedWork::~LoggedWork() {
  const std::lock_guard lock(work().mutex);
  work().name.clear();
  work().stage.clear();
}

void LoggedWork::set_stage(std::string stage) {
  const std::lock_guard lock(work().mutex);
  work().stage = std::move(stage);
}

std::string log_event(const std::string& event, const std::string& details) {
  const int code = append(entry_text(event, details));
  if (code == 0) return std::string("It is noted in \"") + kEventLogFile + "\".";
  return std::string("It could not be noted in \"") + kEventLogFile + "\": " + std::strerror(code) + ".";
}

void tell_wrong_result(const std::string& details) {
  const std::string noted = log_event("Wrong result", details);
  notice_line(
      "\nA check has found a wrong result: most likely this machine computed or kept a\n"
      "bit wrongly.",
      'R');
  notice_line(
      "Nothing unproved was left: digit files get their names after all checks.\n"
      "Test memory, processor, clocks and cooling with \"orvane stress\", then run again.\n" +
          noted + "\nWhat was found:",
      'Y');
}

void tell_wrong_result(const Exception& fault) {
  std::string details;
  {
    const OutputCapture capture;
    fault.print();
    details = capture.text();
  }
  tell_wrong_result(details);
}

void end_at_wrong_result(const std::vector<std::string>& findings, const std::string& conclusion) {
  std::string details;
  for (const std::string& finding : findings) details += finding + "\n";
  tell_wrong_result(details + conclusion);
  for (const std::string& finding : findings) notice_line(finding, 'R');
  fatal_error(conclusion);
}

}  // namespace orl
