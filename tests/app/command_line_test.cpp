// What the program answers to lines that it cannot run, and what it leaves behind.
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>

#include "app/process.h"

namespace orvane::test {
namespace {

struct BadLine {
  std::vector<std::string> arguments;
  const char* words;
};

TEST(BadInput, PrintsItsWordsAndEndsWithOne) {
  TemporaryFolder folder;
  std::ofstream(folder.file("formula.cfg"))
      << "{ Constant : { NameShort : \"" << std::string(51, 'x') << "\" } }";
  std::ofstream(folder.file("comma.cfg")) << "{ Action : \"CustomCompute\", x : 1 }";
  std::ofstream(folder.file("action.cfg")) << "{ Action : \"Fly\" }";
  std::ofstream(folder.file("large.cfg"))
      << "{ Action : \"CustomCompute\" CustomCompute : { Constant : { Constant : \"pi\" } "
         "ComputeSize : { DecimalDigits : 1000000000000 } } }";
  std::ofstream(folder.file("pi.txt")) << "3." << std::string(60, '1');
  mkfifo(folder.file("pipe.cfg").c_str(), 0600);
  mkfifo(folder.file("pipe.txt").c_str(), 0600);
  const BadLine lines[] = {
      {{"fly"}, "Invalid Parameter: fly"},
      {{"custom", "tau"}, "Invalid Constant: tau"},
      {{"custom", "Pi"}, "Invalid Constant: Pi"},
      {{"custom", "pi", "-fly:1"}, "Invalid Parameter: -fly"},
      {{"custom", "pi", "-dec:99"}, "Computation size must be at least 100 decimal digits."},
      {{"custom", "pi", "-dec:2.5b"}, "Computation size must be at least 100 decimal digits."},
      {{"custom", "pi", "-dec:2.5b"}, "\"2\" was read, but not the \".5b\" behind it."},
      {{"custom", "pi", "-dec:250.5m"}, "\"250\" was read, but not the \".5m\" behind it."},
      {{"custom", "pi", "-dec:1000 m"}, "\"1000\" was read, but not the \" m\" behind it."},
      {{"custom", "pi", "-hex:1000mm"}, "\"1000m\" was read, but not the \"m\" behind it."},
      {{"custom", "pi", "-od:maybe"}, "\"maybe\" is neither 0, no or false nor 1, yes or true."},
      {{"custom", "pi", "-json:on"}, "\"on\" is neither 0, no or false nor 1, yes or true."},
      {{"custom", "pi", "-C:-"}, "\"-\" is not a number."},
      {{"custom", "pi", "-C:-5"}, "It takes the digits of a file, or -1 for one file."},
      {{"custom", "pi", "-o:x", "."}, "It takes no value, so \"x\" would be left out."},
      {{"custom", "pi", "-dec:1m", "-hex:1m", "-dec:2m"}, "\"-dec:2m\" is the second."},
      {{"custom", "pi", "-C:1m", "-compress:2m"}, "\"-compress:2m\" is the second."},
      {{"quiet:1", "height:1", "quiet:0", "about"}, "\"quiet:0\" is the second."},
      {{"custom", "pi", "-TD:8x"}, "\"8\" was read, but not the \"x\" behind it."},
      {{"custom", "pi", "-dec:1000000000000051"},
       "Computation size cannot be larger than 1,000,000,000,000,050 decimal digits."},
      {{"custom", "pi", "-hex:82"}, "Those are 83 hexadecimal digits."},
      {{"custom", "pi", "-dec:1t"}, "Choose a smaller size, or end what else uses memory."},
      {{"custom", "pi", "-algorithm:fly"}, "Invalid Algorithm: fly"},
      {{"custom", "pi:3"}, "takes no argument"},
      {{"custom", "pi", "-TD:0"}, "Task decomposition must be between 1 and 65536"},
      {{"custom", "pi", "-TD:65537"}, "Task decomposition must be between 1 and 65536"},
      {{"custom", "pi", "-PF:fly"}, "Invalid Parallel Framework: fly"},
      {{"custom", "pi", "-MA:fly"}, "Invalid Memory Allocator: fly"},
      {{"custom", "pi", "-mode:fly"}, "Invalid Mode: fly"},
      {{"custom", "pi", "-mode:swap"}, "Swap mode is not available in this version yet."},
      {{"custom", "pi", "-M:1G"}, "Option -M is not supported for this mode."},
      {{"custom", "pi", "-minIO:1M"}, "Option -minIO is not supported for this mode."},
      {{"custom", "pi", "-swap:raid0", "x"}, "Option -swap is not supported for this mode."},
      {{"custom", "pi", "-mode:swap", "-swap:raid5", "x"}, "Unrecognized mode: raid5"},
      {{"custom", "pi", "-mode:swap", "-swap:raid0"}, "Expected more parameters."},
      {{"custom", "pi", "-o"}, "Expected more parameters."},
      {{"custom", "pi", "-o", folder.file("action.cfg") + "/x"}, "Reason: Not a directory."},
      {{"custom", "pi", "-o", folder.file("action.cfg")}, "Path is not writable."},
      {{"custom", "sqrt"}, "needs a whole number"},
      {{"custom", "sqrt:1"}, "Argument must be greater than 1."},
      {{"custom", "sqrt:16"}, "16 is a perfect square."},
      {{"custom", "sqrt:18446744065119617025"}, "18446744065119617025 is a perfect square."},
      {{"custom", "sqrt:18446744073709551616"}, "18446744073709551616 is out of range."},
      {{"custom", "log:1"}, "1 is out of range."},
      {{"custom", "log:3", "-algorithm:zuniga"}, "zuniga is an algorithm for Log(2) alone"},
      {{"custom", "brent:64"}, "64 is out of range."},
      {{"custom", "brent:0"}, "Argument must be greater than 0."},
      {{"custom", "custom:" + folder.file("formula.cfg")}, "String cannot be longer than 50 characters."},
      {{"config"}, "Please specify a config file."},
      {{"config", folder.file("missing.cfg")}, "Path does not exist."},
      {{"config", folder.file("pipe.cfg")}, "It is a pipe."},
      {{"config", "/dev/./zero"}, "It is a device."},  // a name with a point in it
      {{"checkdigits", folder.file("pipe.txt")}, "It is a pipe."},
      {{"validate", folder.file("pipe.txt")}, "Unable to read"},
      {{"config", folder.file("comma.cfg")}, "Line 1: Don't use commas to separate elements."},
      {{"config", folder.file("action.cfg")}, "Invalid Action: Fly"},
      {{"config", folder.file("large.cfg")}, "Cannot run computation with these parameters."},
      {{"bench", "-od:1"}, "No benchmark size selected."},
      {{"bench", "1b", "colors:0"}, "Invalid Parameter: colors"},
      {{"bench", "1M", "2M", "4M"}, "Only one size is taken at a time, and \"2M\" is a second one."},
      {{"about", "foo"}, "Invalid Parameter: foo"},
      {{"about:foo"}, "It takes no value, so \"foo\" would be left out."},
      {{"--version", "foo"}, "Invalid Parameter: foo"},
      {{"digitviewer", folder.file("pi.txt"), "-extract", ""}, "It is empty."},
      {{"digitviewer", folder.file("pi.txt"), "-C:1m", "-name:"}, "It is empty."},
      {{"digitviewer", "foo"}, "No Extension found."},
      {{"digitviewer", "missing.txt", "-stats"}, "Path does not exist."},
      {{"digitviewer", "-stats", "pi.txt"}, "The file comes first"},
      {{"digitviewer", "pi.txt", "foo"}, "Invalid Parameter: foo"},
      {{"digitviewer", "pi.txt", "-start:5"}, "It belongs to -view, -stats and -extract."},
      {{"digitviewer", "pi.txt", "-view:5", "-end:5"}, "It belongs to -stats, -extract and -C"},
      {{"digitviewer", "pi.txt", "-stats", "-name:x"}, "It belongs to -C."},
      {{"digitviewer", "pi.txt", "-stats", "-C:1m", "-endid:0", "-o", "x", "-C:2m"},
       "\"-C:2m\" is the second."},
      {{"digitviewer", "pi.txt", "-C:1m", "-startid:0", "-end:5"}, "It belongs to -stats, -extract and -C"},
      {{"digitviewer", "pi.txt", "-C:-2"}, "It takes the digits of a file, or -1"},
      {{"digitviewer", "pi.txt", "-C:1m"}, "Please select at least 1,000,000 digits."},
      {{"digitviewer", "pi.txt", "-view:0"}, "It must be between 1 and 60."},
      {{"digitviewer", "pi.txt", "-view:61"}, "It must be between 1 and 60."},
      {{"digitviewer", "pi.txt", "-start:61", "-stats"}, "It must be between 1 and 60."},
      {{"digitviewer", "pi.txt", "-start:9", "-end:8", "-extract", "x"}, "It must be between 9 and 60."},
      {{"digitviewer", "pi.txt", "-extract", "pi"}, "This file exists already"},
      {{"digitviewer", "pi.txt", "-search", "."}, "A text file is one file"},
      {{"digitviewer", "pi.txt", "-prove"}, "These are no hexadecimal digits of Pi"},
      {{"digitviewer", "pi.txt", "-check", "missing.txt"},
       "Unable to read \"missing.txt\": No such file or directory."},
      {{"digitviewer", "pi.txt"}, "The input has ended"},
      {{"validate", "missing.txt"}, "Unable to read \"missing.txt\": No such file or directory."},
      {{"validate", "missing.txt", "foo"}, "Invalid Parameter: foo"},
      {{"validate", "-json:1"}, "The file comes first"},
      {{"validate", "missing.txt", "-json:1"}, "\"Passed\": false"},
      {{"bbp", "-offset:1,000,00"}, "\"1,000\" was read, but not the \",00\" behind it."},
      {{"bbp", "-digits:7"}, "It must be between 8 and 1,048,576."},
      {{"bbp", "-formula:fly"}, "Invalid Formula: fly"},
      {{"PII:1x", "about"}, "PII"},
      {{"bench", "2.5t"}, "Choose a smaller size"},
      {{"stress", "fly"}, "Invalid Parameter: fly"},
      {{"stress", "BKT", "-D:2m"}, "\"2\" was read, but not the \"m\" behind it."},
      {{"stress", "BKT", "-M:1K"}, "are too little for every selected test. Ask for more."},
      {{"benchio", "-swap:fly", "x"}, "Unrecognized mode: fly"},
      {{"digitviewer"}, "Enter the path of the file (include .txt or .ovd extensions):"},
  };
  for (const BadLine& line : lines) {
    std::string text;
    for (const std::string& argument : line.arguments) text += argument + " ";
    SCOPED_TRACE(text);
    const Outcome outcome = run_orvane(line.arguments, {.folder = folder.path()});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_TRUE(holds(outcome.output, line.words)) << outcome.output;
  }
  EXPECT_EQ(folder.names(), (std::vector<std::string>{"action.cfg", "comma.cfg", "formula.cfg", "large.cfg",
                                                      "pi.txt", "pipe.cfg", "pipe.txt"}));
}

TEST(Help, NamesEveryActionAndEndsWithZero) {
  for (const char* word : {"--help", "-h", "help"}) {
    const Outcome outcome = run_orvane({word});
    EXPECT_EQ(outcome.status, 0);
    for (const char* form :
         {"bench SIZE", "stress", "benchio", "custom CONSTANT", "bbp", "digitviewer", "about", "validate",
          "config FILE", "-swap:TYPE PATH", "pause:N", "chudnovsky-reduced", "2.5t", "DIGITS", "BYTES"})
      EXPECT_TRUE(holds(outcome.output, form)) << form;
  }
  for (const char* word : {"--version", "version"}) {
    const Outcome outcome = run_orvane({word});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_TRUE(holds(outcome.output, "Orvane "));
  }
}

TEST(Menu, AsksAgainAndEndsAtTheEndOfInput) {
  const Outcome about = run_orvane({}, {.input = "9\n7\n"});
  EXPECT_EQ(about.status, 0) << about.output;
  EXPECT_TRUE(holds(about.output, "  7         About"));
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(run_orvane({}, {.input = "9\n"}).status, 1);
  EXPECT_EQ(run_orvane({}, {.input = "6\n"}).status, 1);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
}

TEST(Colours, ReachTheOutputOnlyWhenTheyAreOn) {
  for (const char* word : {"about", "--help", "fly"})
    EXPECT_EQ(run(ORVANE_PROGRAM, {"priority:0", word}).output.find('\033'), std::string::npos) << word;
  const Outcome coloured =
      run(ORVANE_PROGRAM, {"priority:0", "colors:1", "about"}, {.environment = {{"TERM", "dumb"}}});
  EXPECT_NE(coloured.output.find("\033[01;36m"), std::string::npos);
  EXPECT_TRUE(coloured.output.ends_with("\033[39;49m\033[0m\n"));
}

TEST(Scripts, NeedNoWordsInFrontAndGetNoneAtTheStart) {
  const Outcome failed = run(ORVANE_PROGRAM, {"priority:0", "quiet:1", "fly"});
  EXPECT_EQ(failed.status, 1);
  EXPECT_EQ(failed.output, "Invalid Parameter: fly\n\n");
}

TEST(Priority, ReachesTheScheduler) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to ask for real-time scheduling";
  const char* const script =
      "import os, subprocess, sys\n"
      "level = int(sys.argv[2])\n"
      "p = subprocess.Popen([sys.argv[1], 'pause:-2', 'skip-warnings', f'priority:{level}', 'digitviewer'],\n"
      "                     stdin=subprocess.PIPE, stdout=subprocess.PIPE)\n"
      "seen = b''\n"
      "for line in p.stdout:\n"
      "    seen += line\n"
      "    if b'Enter the path' in line: break\n"
      "got = os.sched_getscheduler(p.pid), os.sched_getparam(p.pid).sched_priority\n"
      "p.communicate()\n"
      "if b'Insufficient permissions' in seen: sys.exit(0)\n"
      "edge = os.sched_get_priority_max if level > 0 else os.sched_get_priority_min\n"
      "wanted = (os.SCHED_RR, edge(os.SCHED_RR)) if level else (os.SCHED_OTHER, 0)\n"
      "sys.exit(0 if got == wanted else f'{level}: {got}, not {wanted}')\n";
  TemporaryFolder folder;
  orl::test::write_file(folder.file("check.py"), script);
  for (const char* level : {"-3", "0", "3"}) {
    const std::string command =
        "cd '" + folder.path() + "' && python3 check.py '" ORVANE_PROGRAM "' " + level;
    EXPECT_EQ(std::system(command.c_str()), 0) << level;
  }
}

TEST(FileSizeRule, CountsWhenTheLineIsComplete) {
  struct {
    std::vector<std::string> options;
    const char* words;  // null: no warning
    bool compressed;
  } const rows[] = {
      {{"-dec:1000000", "-C:1000000"}, nullptr, true},
      {{"-dec:1000000", "-C:-1"}, nullptr, true},
      {{"-dec:1000000", "-C:999999"}, "Too few digits for file.", false},
      {{"-dec:999999", "-C:1000000"}, "Too few digits to compress.", false},
      {{"-C:1000000", "-dec:999999"}, "Digits per file below minimum: Disabling compression.", false},
      {{"-C:1,000,000", "-dec:1e6"}, nullptr, true},
      {{"-dec:1000000", "-C"}, nullptr, false},
  };
  for (const auto& row : rows) {
    TemporaryFolder folder;
    std::vector<std::string> arguments = {"custom", "sqrt:2", "-verify:0", "-o", folder.path()};
    arguments.insert(arguments.end(), row.options.begin(), row.options.end());
    const Outcome outcome = run_orvane(arguments);
    EXPECT_EQ(outcome.status, 0) << outcome.output;
    EXPECT_EQ(holds(outcome.output, row.words ? row.words : "Too few"), row.words != nullptr)
        << outcome.output;
    ASSERT_FALSE(folder.names().empty());
    const std::string last = folder.names().back();
    EXPECT_EQ(last.ends_with(".ovd"), row.compressed) << last;
  }
}

TEST(DigitFiles, AreLeftOutOnRequestAndTheDigitsStillProved) {
  TemporaryFolder folder;
  const Outcome outcome = run_orvane({"custom", "pi", "-dec:1000", "-od:0"}, {.folder = folder.path()});
  EXPECT_EQ(outcome.status, 0) << outcome.output;
  EXPECT_TRUE(holds(outcome.output, "Processing Decimal Digits:"));
  EXPECT_TRUE(holds(outcome.output, "Verifying Base Conversion:"));
  EXPECT_FALSE(holds(outcome.output, "Verifying Decimal Output"));
  ASSERT_EQ(folder.names().size(), 1u) << "only the report";
  EXPECT_TRUE(folder.names()[0].starts_with("Validation - Pi - Chudnovsky - 1000 - "));
}

TEST(DigitFiles, ThatCannotBeWrittenLeaveNothingThatLooksFinished) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to mount a small file system";
  TemporaryFolder folder;
  if (mount("tmpfs", folder.path().c_str(), "tmpfs", 0, "size=512k") != 0)
    GTEST_SKIP() << "no file system can be mounted here";
  for (const char* compression : {"-C:0", "-C:1000000"}) {
    const Outcome outcome =
        run_orvane({"custom", "sqrt:2", "-dec:2000000", compression, "-o", folder.path()});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_TRUE(holds(outcome.output, ", and the disk has 524,288 ")) << outcome.output;
    EXPECT_FALSE(holds(outcome.output, "Begin Computation"));
    for (const std::string& name : folder.names())
      EXPECT_TRUE(name.find('.') == std::string::npos || name.find(" (incomplete).") != std::string::npos)
          << name;
  }
  mount("tmpfs", folder.path().c_str(), "tmpfs", MS_REMOUNT | MS_RDONLY, "size=512k");
  const Outcome read_only = run_orvane({"custom", "sqrt:2", "-o", folder.path()});
  EXPECT_EQ(read_only.status, 1);
  EXPECT_TRUE(holds(read_only.output, "Path is not writable."));
  // Without -o the digits would go to the working folder; that is told before they are computed.
  const Outcome working_folder = run_orvane({"custom", "sqrt:2"}, {.folder = folder.path()});
  EXPECT_EQ(working_folder.status, 1);
  EXPECT_TRUE(holds(working_folder.output, "Path is not writable."));
  EXPECT_FALSE(holds(working_folder.output, "Begin Computation"));
  // Without digit files nothing would be left at all.
  const Outcome no_report = run_orvane({"custom", "sqrt:2", "-dec:1000", "-od:0"}, {.folder = folder.path()});
  EXPECT_EQ(no_report.status, 1);
  EXPECT_TRUE(holds(no_report.output, "The working folder is not writable"));
  EXPECT_FALSE(holds(no_report.output, "Begin Computation"));
  umount(folder.path().c_str());
}

TEST(DigitFiles, DoNotGoWhereAFolderHasTheirName) {
  TemporaryFolder folder;
  mkdir(folder.file("Sqrt(2) - Dec - Newton.txt").c_str(), 0700);
  const Outcome outcome = run_orvane({"custom", "sqrt:2", "-dec:1000", "-o", folder.path()});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_TRUE(holds(outcome.output, "Unable to create file. A folder has this name."));
  EXPECT_EQ(folder.names().size(), 1u);
}

// Lines of a shell in one folder, in order; $O is the program. A pipe's status is that of its last command.
TEST(ExitStatus, IsZeroOnlyWhenAllThatWasAskedForWasDone) {
  const struct {
    const char* line;
    int status;
    const char* words = "";
  } rows[] = {
      {"$O custom pi -dec:20k -hex:20k -o d", 0, "Validation File: "},
      {"mv Val*.txt report; $O validate report", 0, "Validation Passed!"},
      {"$O checkdigits 'd/Pi - Dec - Chudnovsky.txt' report", 0},
      {"$O checkdigits 'd/Pi - Hex - Chudnovsky.txt'", 0},
      {"echo | $O digitviewer", 0},
      {"$O bbp -digits:16", 0},
      {"$O logformula 2 -dec:1000", 0},
      {"$O --help", 0, "128 + N"},
      {"echo 7 | $O", 0, "MIT licence"},
      {"$O about >&-", 0},
      {"timeout --foreground --preserve-status -s INT 0.5 $O stress BKT -M:4M -D:0", 0, "Stopping..."},
      // A wrong line, a refusal, an input that ends, words that nobody gets.
      {"$O fly", 1, "Invalid Parameter: fly"},
      {"$O custom pi -dec:10k -o d", 1, "-overwrite:1"},
      {"$O custom pi -dec:99", 1},
      {"$O </dev/null", 1, "The input has ended"},
      {"$O --help >/dev/full", 1, "Unable to write to the standard output: No space left on device"},
      {"$O custom e -dec:1000 -od:0 >/dev/full", 1, "No space left on device"},
      // Files that are wrong, too large for a limit, or none.
      {"sed s/Pi/PI/ report >changed; $O validate changed", 1, "Validation Failed: Invalid Hash"},
      {"$O validate /dev/zero", 1, "Not a file"},
      {"mkfifo pipe; $O config ./pipe", 1, "It is a pipe."},
      {"ln -s /dev/zero z.cfg; $O config z.cfg", 1, "It is a device."},
      {"ln -s pipe p.txt; printf 'p.txt\\n\\n' | $O digitviewer", 1, "It is a pipe."},
      {"tr 7 8 <'d/Pi - Dec - Chudnovsky.txt' >bad.txt; $O checkdigits bad.txt report", 1},
      {"printf 'nope.txt\\n\\n' | $O digitviewer", 1, "Path does not exist."},
      {"(ulimit -f 10; $O custom e -dec:100k -o limit)", 1, "ulimit -f"},
      {"(ulimit -f 10; $O custom e -dec:1m -C:-1 -o limit)", 1, "File too large"},
      // Signals. A run that they end leaves what it found.
      {"timeout --foreground --preserve-status -s INT 0.4 $O custom pi -dec:20m -o k", 130, "Interrupted."},
      {"timeout --foreground --preserve-status -s TERM 0.4 $O custom pi -dec:20m -o k", 143,
       "Ended by a signal."},
      {"rmdir limit k", 0},
  };
  TemporaryFolder folder;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.line);
    const std::string script =
        "O='" ORVANE_PROGRAM " pause:-2 priority:0 skip-warnings'; " + std::string(row.line);
    const Outcome outcome = run("/bin/sh", {"-c", script}, {.folder = folder.path()});
    EXPECT_EQ(outcome.status, row.status) << outcome.output;
    EXPECT_TRUE(holds(outcome.output, row.words)) << outcome.output;
  }
}

TEST(UnfinishedComputation, IsNotRunOver) {
  TemporaryFolder folder;
  std::ofstream(folder.file("Orvane Checkpoint File.txt")) << "x";
  const Outcome outcome = run_orvane({"custom", "pi", "-dec:100"}, {.folder = folder.path()});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_TRUE(holds(outcome.output, "An unfinished computation has been found."));
  EXPECT_EQ(folder.names().size(), 1u);
}

}  // namespace
}  // namespace orvane::test
