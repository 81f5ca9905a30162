#include "app/process.h"

#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <stdexcept>

namespace orvane::test {
namespace {

// The options that every script passes, but for those that the line gives itself.
std::vector<std::string> with_fixed(std::vector<std::string> arguments) {
  const auto key = [](const std::string& word) { return word.substr(0, word.find(':')); };
  std::vector<std::string> line;
  for (const char* fixed : {"pause:-2", "priority:0", "colors:0", "skip-warnings"})
    if (std::none_of(arguments.begin(), arguments.end(),
                     [&](const std::string& word) { return key(word) == key(fixed); }))
      line.push_back(fixed);
  line.insert(line.end(), arguments.begin(), arguments.end());
  return line;
}

void write_all(int fd, const std::string& text) {
  for (std::size_t done = 0; done < text.size();) {
    const ssize_t put = write(fd, text.data() + done, text.size() - done);
    if (put <= 0) return;  // the child reads no further
    done += static_cast<std::size_t>(put);
  }
}

}  // namespace

Outcome run(const std::string& program, const std::vector<std::string>& arguments,
            const RunOptions& options) {
  int in[2], out[2];
  if (pipe(in) != 0 || pipe(out) != 0) throw std::runtime_error("pipe");
  const pid_t child = fork();
  if (child < 0) throw std::runtime_error("fork");
  if (child == 0) {
    dup2(in[0], 0);
    dup2(out[1], 1);
    dup2(out[1], 2);
    for (int fd : {in[0], in[1], out[0], out[1]}) close(fd);
    if (!options.folder.empty() && chdir(options.folder.c_str()) != 0) _exit(126);
    for (const auto& [name, value] : options.environment) setenv(name.c_str(), value.c_str(), 1);
    std::vector<char*> argv{const_cast<char*>(program.c_str())};
    for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    execv(program.c_str(), argv.data());
    _exit(127);
  }
  close(in[0]);
  close(out[1]);
  signal(SIGPIPE, SIG_IGN);
  write_all(in[1], options.input);
  close(in[1]);
  Outcome outcome;
  char buffer[4096];
  for (ssize_t got; (got = read(out[0], buffer, sizeof buffer)) > 0;)
    outcome.output.append(buffer, static_cast<std::size_t>(got));
  close(out[0]);
  int status = 0;
  rusage usage{};
  wait4(child, &status, 0, &usage);
  outcome.peak_bytes = static_cast<unsigned long>(usage.ru_maxrss) * 1024;
  const auto seconds = [](const timeval& t) {
    return static_cast<double>(t.tv_sec) + 1e-6 * static_cast<double>(t.tv_usec);
  };
  outcome.user_seconds = seconds(usage.ru_utime);
  outcome.kernel_seconds = seconds(usage.ru_stime);
  outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return outcome;
}

Outcome run_orvane(std::vector<std::string> arguments, const RunOptions& options) {
  arguments = with_fixed(std::move(arguments));
  if (!options.folder.empty()) return run(ORVANE_PROGRAM, arguments, options);
  static const TemporaryFolder scratch;
  RunOptions inside = options;
  inside.folder = scratch.path();
  return run(ORVANE_PROGRAM, arguments, inside);
}

Outcome run_faulty(const std::string& fault, const std::string& folder, std::vector<std::string> arguments) {
  return run(ORVANE_FAULTY_PROGRAM, with_fixed(std::move(arguments)),
             {.input = {}, .folder = folder, .environment = {{"ORVANE_TEST_FAULT", fault}}});
}

}  // namespace orvane::test
