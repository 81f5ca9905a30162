#include "app/options.h"

#include <algorithm>
#include <limits>

#include "core/exceptions.h"
#include "core/format.h"
#include "core/number_forms.h"
#include "core/settings.h"
#include "system/environment.h"
#include "threads/frameworks.h"

namespace orvane {
namespace {

using orl::InvalidParametersException;
using orl::NumberForm;
using orl::s64;
using orl::CommandLine::CommandLineException;
using Line = orl::CommandLine::Parameters;

// The value behind the colon; the cursor steps past the token.
std::string take_value(Line& line) {
  std::string value = line.value();
  line.take();
  return value;
}

// `text` as a number; `text` empty: 0.
u64 number_of(const std::string& key, std::string_view text, NumberForm form) {
  const orl::Number number = orl::parse_number(text, form);
  if (text.empty() || number.is_whole()) return number.value;
  std::string refusal = number_refusal(number, form);
  // A count that breaks off is seldom large enough, and 2 digits are what "2.5b" was always read as.
  if (form == NumberForm::kCount && number.value < kMinDecimalDigits && (key == "-dec" || key == "-hex"))
    refusal = kTooFewDigits + ("\n" + refusal);
  throw InvalidParametersException(key, refusal);
}

// The number behind the colon, 0 where there is none; the cursor steps past the token.
u64 take_number(Line& line, NumberForm form) {
  const std::string key = line.key();
  return number_of(key, take_value(line), form);
}
u64 take_count(Line& line) { return take_number(line, NumberForm::kCount); }
u64 take_bytes(Line& line) { return take_number(line, NumberForm::kBytes); }
u64 take_integer(Line& line) { return take_number(line, NumberForm::kInteger); }

s64 signed_of(const std::string& key, std::string_view text) {
  const bool negative = text.starts_with('-');
  if (negative) text.remove_prefix(1);
  if (negative && text.empty()) throw InvalidParametersException(key, "\"-\" is not a number.");
  constexpr u64 kLargest = std::numeric_limits<s64>::max();
  const s64 value = static_cast<s64>(std::min(number_of(key, text, NumberForm::kCount), kLargest));
  return negative ? -value : value;
}

// A count with an optional minus sign.
s64 take_signed(Line& line) {
  const std::string key = line.key();
  return signed_of(key, take_value(line));
}
orl::s32 take_level(Line& line) {
  return static_cast<orl::s32>(std::clamp<s64>(take_signed(line), INT32_MIN, INT32_MAX));
}

// 1 for yes and true, 0 for no, false and nothing, and every number as it stands.
s64 take_switch(Line& line) {
  const std::string key = line.key(), value = take_value(line);
  if (value == "yes" || value == "true") return 1;
  if (value == "no" || value == "false") return 0;
  if (!value.empty() && value.find_first_not_of("-0123456789") != std::string::npos)
    throw InvalidParametersException(key, "\"" + value + "\" is neither 0, no or false nor 1, yes or true.");
  return signed_of(key, value);
}

u64 clamp_memory(u64 bytes) { return std::min(bytes, StressSettings::kMaxMemory); }

// "-o path": the option and the token behind it.
std::string take_path(Line& line) {
  line.take();
  return line.take();
}

// Refuses what a variable that a script has not set leaves.
std::string not_empty(const char* key, std::string text) {
  if (text.empty()) throw InvalidParametersException(key, "It is empty.");
  return text;
}

// "-swap:type path...": the rest of the line.
void take_swap(Line& line, orl::R03::Raid03Descriptor& raid) {
  orl::R03::RaidGroup group{orl::R03::raid_type_of_option(take_value(line)), {}};
  if (line.at_end()) throw CommandLineException("Expected more parameters.");
  while (!line.at_end()) group.paths.push_back(line.take());
  raid.set_group(std::move(group));
}

// The settings that several actions have in common, and their rows, which are stated once.
ComputeParameters& parameters_of(ModeHolder& mode) { return mode.current(); }
ComputeParameters& parameters_of(BenchSettings& bench) { return bench.parameters; }
template <class Target>
orl::Parallelism& parallelism_of(Target& target) {
  return parameters_of(target).parallelism;
}
orl::Parallelism& parallelism_of(BenchIoSettings& io) { return io.parallelism; }
template <class Target>
void set_allocator(Target& target, const std::string& key) {
  parameters_of(target).set_allocator(key);
}
void set_allocator(BenchIoSettings& io, const std::string& key) { io.allocator = orl::create_allocator(key); }

template <class Target>
constexpr Option<Target> kOutputFolder = {
    "-o",
    "-o PATH",
    "Folder of the digit files, which is made where it is missing. Default: the working folder.",
    "-o digits",
    [](Target& target, Line& line) { parameters_of(target).set_output_path(take_path(line)); },
    Values::kFolder};
template <class Target>
constexpr Option<Target> kOverwrite = {
    "-overwrite", "-overwrite:N",
    "1 lets the run replace digit files with more digits than it makes. Default 0.", "-overwrite:1",
    [](Target& target, Line& line) { parameters_of(target).overwrite = take_switch(line) != 0; }};
template <class Target>
constexpr Option<Target> kPiProof = {
    "-bbp", "-bbp:N",
    "1 also proves the last hexadecimal digits of Pi by another formula, 0 does not. Default: where it "
    "takes less than 5 % of the time.",
    "-bbp:1", [](Target& target, Line& line) { parameters_of(target).pi_proof = take_switch(line) != 0; }};
template <class Target>
constexpr Option<Target> kJson = {
    "-json", "-json:N",
    "Other than 0 also writes the results as JSON, beside the validation file. Default 0.", "-json:1",
    [](Target& target, Line& line) { parameters_of(target).json_results = take_switch(line) != 0; }};
template <class Target>
constexpr Option<Target> kAllocator = {
    "-MA",
    "-MA:NAME",
    "Memory allocator; the default is mmap.",
    "-MA:malloc",
    [](Target& target, Line& line) { set_allocator(target, take_value(line)); },
    Values::kAllocator};
template <class Target>
constexpr Option<Target> kFramework = {
    "-PF",
    "-PF:NAME",
    "Parallel framework.",
    "-PF:pushpool",
    [](Target& target, Line& line) { parallelism_of(target).set_framework(take_value(line)); },
    Values::kFramework};
template <class Target>
constexpr Option<Target> kTasks = {
    "-TD", "-TD:N", "Task decomposition, 1 to 65536: the number of tasks to cut the work into.", "-TD:8",
    [](Target& target, Line& line) { parallelism_of(target).set_tds(take_integer(line)); }};

constexpr Option<orl::Settings> kGlobal[] = {
    {"pause", "pause:N",
     "When to ask for ENTER at the end: 1 always, 0 and -1 after a failure, below -1 never. Without it: "
     "after a "
     "failure, on a terminal.",
     "pause:-2",
     [](orl::Settings& settings, Line& line) {
       settings.pause_level = take_level(line);
       settings.pause_given = true;
       if (settings.pause_level < -1) settings.pause_on_fatal = false;
     }},
    {"priority", "priority:N",
     "Real-time scheduling: 0 leaves it alone, below 0 the lowest, above 0 the highest priority. The default "
     "is -1; "
     "it needs root.",
     "priority:0", [](orl::Settings& settings, Line& line) { settings.thread_priority = take_level(line); }},
    {"colors", "colors:N",
     "1 prints in colour, 0 without. Default: in colour on a terminal, unless NO_COLOR is set or TERM is "
     "dumb.",
     "colors:0",
     [](orl::Settings& settings, Line& line) { settings.colors_enabled = take_switch(line) > 0; }},
    {"PII", "PII:N", "Above 0 lets reports show serial numbers, below 0 hides them.", "PII:1",
     [](orl::Settings& settings, Line& line) {
       const s64 level = take_switch(line);
       if (level != 0) settings.print_pii = level > 0;
     }},
    {"height", "height:N", "Accepted for old scripts; without effect.", "height:50",
     [](orl::Settings&, Line& line) { take_signed(line); }},
    {"quiet", "quiet:N",
     "1 leaves out what a start says of processor and settings, unless something is missing.", "quiet:1",
     [](orl::Settings& settings, Line& line) { settings.quiet = take_switch(line) > 0; }},
    {"skip-warnings", "skip-warnings", "The processor check does not stop for ENTER.", "skip-warnings",
     [](orl::Settings& settings, Line& line) {
       line.take();
       settings.skip_warnings = true;
     }},
};

// Digits per file; -1 for all of them in one, as which it is kept.
u64 take_file_size(Line& line) {
  const std::string key = line.key();
  const s64 digits = take_signed(line);
  if (digits < -1)
    throw InvalidParametersException(key, "It takes the digits of a file, or -1 for one file.");
  return static_cast<u64>(digits);
}

// "-C" and "-compress".
void take_digits_per_file(ModeHolder& mode, Line& line) {
  mode.current().request_digits_per_file(take_file_size(line));
}

constexpr Option<ModeHolder> kCustom[] = {
    {"-dec", "-dec:DIGITS", "Decimal digits, at least 100. Default 1m.", "-dec:10m",
     [](ModeHolder& mode, Line& line) { mode.current().set_decimal_digits(take_count(line)); }},
    {"-hex", "-hex:DIGITS", "Hexadecimal digits; 0 (the default) for none.", "-hex:1000000",
     [](ModeHolder& mode, Line& line) { mode.current().set_hexadecimal_digits(take_count(line)); }},
    {"-algorithm", "-algorithm:NAME", "Algorithm of the constant; the constants are listed with theirs.",
     "-algorithm:ramanujan",
     [](ModeHolder& mode, Line& line) { mode.current().constant().set_algorithm(take_value(line)); },
     Values::kAlgorithm},
    kOutputFolder<ModeHolder>,
    {"-od", "-od:N", "0 computes and proves the digits without writing files. Default 1.", "-od:0",
     [](ModeHolder& mode, Line& line) { mode.current().output_digits = take_switch(line) != 0; }},
    kOverwrite<ModeHolder>,
    {"-C", "-C:N",
     "Compressed digit files of N digits each, at least 1m; 0 (the default) for text, -1 for one compressed "
     "file.",
     "-C:1m", take_digits_per_file},
    {"-compress", "-compress:N", "The same as -C.", "-compress:-1", take_digits_per_file},
    {"-verify", "-verify:N",
     "0 skips the proof of the conversion and the reading back of the files. Default 1.", "-verify:1",
     [](ModeHolder& mode, Line& line) { mode.current().verify_conversion = take_switch(line) != 0; }},
    {"-mode", "-mode:MODE", "ram (the default) or swap (not in this version yet).", "-mode:ram",
     [](ModeHolder& mode, Line& line) { mode.set_mode(take_value(line)); }, Values::kMode},
    kAllocator<ModeHolder>,
    kFramework<ModeHolder>,
    kTasks<ModeHolder>,
    kPiProof<ModeHolder>,
    kJson<ModeHolder>,
    {"-M", "-M:BYTES", "Memory to use; swap mode only.", "-M:1.5G",
     [](ModeHolder& mode, Line& line) {
       auto& swap = mode.swap_for("-M");
       swap.set_memory_bytes(take_bytes(line));
     }},
    {"-minIO", "-minIO:BYTES", "Smallest unit of reading and writing; swap mode only.", "-minIO:1M",
     [](ModeHolder& mode, Line& line) {
       auto& swap = mode.swap_for("-minIO");
       swap.set_bytes_per_seek(take_bytes(line));
     }},
    {"-swap", "-swap:TYPE PATH...",
     "Disk array, raid0 or raid3, on all folders that follow; swap mode only, last on the line.",
     "-swap:raid0 /disk1 /disk2",
     [](ModeHolder& mode, Line& line) {
       auto& swap = mode.swap_for("-swap");
       take_swap(line, swap.raid);
     },
     Values::kRaidType},
};

constexpr BenchSize kSizes[] = {
    {"25m", 25000000},      {"50m", 50000000},      {"100m", 100000000},   {"250m", 250000000},
    {"500m", 500000000},    {"1b", 1000000000},     {"2.5b", 2500000000},  {"5b", 5000000000},
    {"10b", 10000000000},   {"25b", 25000000000},   {"50b", 50000000000},  {"100b", 100000000000},
    {"250b", 250000000000}, {"500b", 500000000000}, {"1t", 1000000000000}, {"2.5t", 2500000000000},
    {"1M", u64{1} << 20},   {"2M", u64{1} << 21},   {"4M", u64{1} << 22},  {"8M", u64{1} << 23},
    {"16M", u64{1} << 24},  {"32M", u64{1} << 25},  {"64M", u64{1} << 26}, {"128M", u64{1} << 27},
    {"256M", u64{1} << 28}, {"512M", u64{1} << 29}, {"1G", u64{1} << 30},  {"2G", u64{1} << 31},
    {"4G", u64{1} << 32},   {"8G", u64{1} << 33},   {"16G", u64{1} << 34}, {"32G", u64{1} << 35},
    {"64G", u64{1} << 36},  {"128G", u64{1} << 37},
};

constexpr Option<BenchSettings> kBench[] = {
    kOutputFolder<BenchSettings>,
    {"-od", "-od:N", "Other than 0 writes digit files; 0 (the default) does not.", "-od:1",
     [](BenchSettings& bench, Line& line) { bench.parameters.output_digits = take_switch(line) != 0; }},
    kOverwrite<BenchSettings>,
    kTasks<BenchSettings>,
    kFramework<BenchSettings>,
    kAllocator<BenchSettings>,
    kPiProof<BenchSettings>,
    kJson<BenchSettings>,
};

constexpr Option<BenchIoSettings> kBenchIo[] = {
    {"-M", "-M:BYTES", "Memory to use, and size of the file. Default 1G, or half of what is available.",
     "-M:4G", [](BenchIoSettings& io, Line& line) { io.memory_bytes = clamp_memory(take_bytes(line)); }},
    kAllocator<BenchIoSettings>,
    kFramework<BenchIoSettings>,
    kTasks<BenchIoSettings>,
    {"-minIO", "-minIO:BYTES", "Smallest unit of reading and writing, at least 4096.", "-minIO:1M",
     [](BenchIoSettings& io, Line& line) { io.bytes_per_seek.set(std::max<u64>(take_bytes(line), 4096)); }},
    {"-swap", "-swap:TYPE PATH...", "Disk array, raid0 or raid3, on all folders that follow.",
     "-swap:raid0 /disk1 /disk2", [](BenchIoSettings& io, Line& line) { take_swap(line, io.raid); },
     Values::kRaidType},
    {"-json", "-json:N", "Other than 0 also writes the results as JSON, in the working folder. Default 0.",
     "-json:1", [](BenchIoSettings& io, Line& line) { io.json_results = take_switch(line) != 0; }},
};

constexpr Option<LogFormulaLine> kLogFormula[] = {
    {"-dec", "-dec:DIGITS",
     "Decimal digits that the formulas are to be the cheapest for, at least 100. Default 1m.", "-dec:1b",
     [](LogFormulaLine& formula, Line& line) { formula.decimal_digits = take_count(line); }},
};

// A number of the line that must lie in a range.
u64 take_in_range(Line& line, u64 low, u64 high) {
  const std::string key = line.key();
  const u64 value = take_count(line);
  if (value >= low && value <= high) return value;
  throw InvalidParametersException(key, "It must be between " + orl::format_with_commas(low) + " and " +
                                            orl::format_with_commas(high) + ".");
}

BbpFormula bbp_formula(const std::string& name) {
  if (name == "plouffe") return BbpFormula::kPlouffe;
  if (name == "bellard") return BbpFormula::kBellard;
  throw InvalidParametersException("-formula", "Invalid Formula: " + name);
}

constexpr const char* kJsonAloneHelp =
    "1 prints the outcome as JSON and nothing else; quiet:1 in front leaves out the words of the start. "
    "Default 0.";

constexpr Option<BbpLine> kBbp[] = {
    {"-offset", "-offset:DIGITS", "Hexadecimal digits to skip. Default 0.", "-offset:1m",
     [](BbpLine& bbp, Line& line) { bbp.task.offset = take_in_range(line, 0, kMaxBbpOffset); }},
    {"-digits", "-digits:DIGITS", "Hexadecimal digits to compute, 8 to 1048576. Default 32.", "-digits:64",
     [](BbpLine& bbp, Line& line) { bbp.task.digits = take_in_range(line, kMinBbpDigits, kMaxBbpDigits); }},
    {"-formula", "-formula:NAME", "plouffe, of four terms, or bellard (the default), of seven.",
     "-formula:plouffe", [](BbpLine& bbp, Line& line) { bbp.task.formula = bbp_formula(take_value(line)); },
     Values::kBbpFormula},
    {"-threads", "-threads:N", "Threads. Default: one for each core.", "-threads:4",
     [](BbpLine& bbp, Line& line) { bbp.task.threads = take_in_range(line, 1, orl::kMaxThreads); }},
    {"-pin", "-pin:N", "1 pins the threads to cores, in the order of environment.cfg. Default 0.", "-pin:1",
     [](BbpLine& bbp, Line& line) {
       bbp.task.pin_order = take_switch(line) > 0 ? orl::static_pin_order() : std::vector<orl::u32>();
     }},
    {"-json", "-json:N", kJsonAloneHelp, "-json:1",
     [](BbpLine& bbp, Line& line) { bbp.json = take_switch(line) != 0; }},
};

constexpr Option<ValidateLine> kValidate[] = {
    {"-json", "-json:N", kJsonAloneHelp, "-json:1",
     [](ValidateLine& validate, Line& line) { validate.json = take_switch(line) != 0; }},
};

// A token without a value.
bool take_flag(Line& line) {
  line.take();
  return true;
}

constexpr Option<ViewerTask> kViewer[] = {
    {"-start", "-start:DIGIT", "First digit of a step; that behind the point is 1, the default.", "-start:1m",
     [](ViewerTask& task, Line& line) { task.start = take_count(line); }},
    {"-end", "-end:DIGIT", "Last digit of -stats, -extract and -C. Default: the last one of the file.",
     "-end:2m", [](ViewerTask& task, Line& line) { task.end = take_count(line); }},
    {"-view", "-view:DIGITS", "Shows so many digits from -start on, at most 100000.", "-view:100",
     [](ViewerTask& task, Line& line) { task.view = take_count(line); }},
    {"-stats", "-stats", "Counts the digits from -start to -end and computes their hash.", "-stats",
     [](ViewerTask& task, Line& line) { task.stats = take_flag(line); }},
    {"-extract", "-extract FILE", "Writes the digits from -start to -end to a new text file.",
     "-extract part.txt",
     [](ViewerTask& task, Line& line) { task.extract = not_empty("-extract", take_path(line)); },
     Values::kFile},
    {"-C", "-C:N",
     "Compresses the digits up to -end into files of N digits each, at least 1m; -1 for one file.", "-C:100m",
     [](ViewerTask& task, Line& line) { task.digits_per_file = take_file_size(line); }},
    {"-startid", "-startid:ID",
     "With -C: the first file of a share of the set, over all digits. Default 0, or all of the set without "
     "-endid too.",
     "-startid:0", [](ViewerTask& task, Line& line) { task.start_id = take_integer(line); }},
    {"-endid", "-endid:ID", "With -C: the last file of a share of the set. Default: the set's last one.",
     "-endid:3", [](ViewerTask& task, Line& line) { task.end_id = take_integer(line); }},
    {"-name", "-name:NAME", "With -C: the name of the set. Default: that of the file.", "-name:Pi",
     [](ViewerTask& task, Line& line) { task.name = not_empty("-name", take_value(line)); }},
    {"-o", "-o PATH", "With -C: the folder of the set. Default: the working folder.", "-o digits",
     [](ViewerTask& task, Line& line) { task.folder = take_path(line); }, Values::kFolder},
    {"-search", "-search PATH", "A folder where files of a set may lie as well; may be repeated.",
     "-search /disk2/digits",
     [](ViewerTask& task, Line& line) { task.search_folders.push_back(take_path(line)); }, Values::kFolder,
     Repeats::kYes},
    {"-check", "-check FILE", "Checks all digits against the validation file of their run.",
     "-check report.txt", [](ViewerTask& task, Line& line) { task.report = take_path(line); }, Values::kFile},
    {"-prove", "-prove",
     "Proves hexadecimal digits of Pi by the BBP formula: the last 16, and 16 behind a sixteenth of them.",
     "-prove", [](ViewerTask& task, Line& line) { task.prove = take_flag(line); }},
};

void select_test(StressLine& stress, Line& line) { stress.tests.push_back(line.take()); }

constexpr Option<StressLine> kStress[] = {
    {"-M", "-M:BYTES", "Memory to test. Default: 15/16 of what is available.", "-M:8G",
     [](StressLine& stress, Line& line) { stress.settings.total_memory = clamp_memory(take_bytes(line)); }},
    {"-D", "-D:SECONDS", "Seconds a test, at most 1000000. Default 120.", "-D:120",
     [](StressLine& stress, Line& line) {
       stress.settings.seconds = std::min(take_integer(line), StressSettings::kMaxSeconds);
     }},
    {"BKT", "BKT", "Basecase and Karatsuba products.", "BKT", select_test},
    {"N32", "N32", "32-bit residue transforms.", "N32", select_test},
    {"N64", "N64", "64-bit residue transforms.", "N64", select_test},
    {"HNT", "HNT", "Mixed workload.", "HNT", select_test},
    {"VST", "VST", "Vector residue transforms.", "VST", select_test},
    {"C17", "C17", "The transforms of the largest products.", "C17", select_test},
};

}  // namespace

void GivenOptions::add(const void* option, const Line& line, u64 first) {
  std::string value = line.pairs[first].second;
  for (u64 i = first + 1; i < line.cursor; i++) value += "\n" + line.tokens[i];
  const auto [place, is_new] = values_.emplace(option, value);
  if (is_new || place->second == value) return;
  throw InvalidParametersException(line.pairs[first].first,
                                   "This was given twice, with different values. Which one is meant?\n\"" +
                                       line.tokens[first] + "\" is the second.");
}

void refuse_value(const Line& line) {
  if (line.tokens[line.cursor].size() == line.key().size()) return;
  throw InvalidParametersException(line.key(),
                                   "It takes no value, so \"" + line.value() + "\" would be left out.");
}

std::span<const Option<orl::Settings>> global_options() { return kGlobal; }
std::span<const Option<ModeHolder>> custom_options() { return kCustom; }
std::span<const Option<BenchSettings>> bench_options() { return kBench; }
std::span<const Option<BenchIoSettings>> benchio_options() { return kBenchIo; }
std::span<const Option<StressLine>> stress_options() { return kStress; }
std::span<const Option<LogFormulaLine>> log_formula_options() { return kLogFormula; }
std::span<const Option<BbpLine>> bbp_options() { return kBbp; }
std::span<const Option<ViewerTask>> viewer_options() { return kViewer; }
std::span<const Option<ValidateLine>> validate_options() { return kValidate; }
std::span<const BenchSize> bench_sizes() { return kSizes; }

}  // namespace orvane
