// Each option changes what it says and nothing else: over the tables, so that none goes untested.
#include "app/options.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>

#include "config/object.h"
#include "core/exceptions.h"
#include "support/files.h"

namespace orvane {
namespace {

using Settings = std::map<std::string, std::string>;

void flatten(const orl::Value& value, const std::string& name, Settings& settings) {
  switch (value.kind()) {
    case orl::ValueKind::kInteger:
      settings[name] = std::to_string(value.as_integer("").value);
      break;
    case orl::ValueKind::kString:
      settings[name] = value.as_string("").value;
      break;
    case orl::ValueKind::kArray:
      for (u64 i = 0; i < value.as_array("").size(); i++)
        flatten(value.as_array("")[i], name + "[" + std::to_string(i) + "]", settings);
      break;
    case orl::ValueKind::kObject:
      for (const auto& node : value.as_object("").nodes())
        flatten(*node.value, name + (name.empty() ? "" : ".") + node.key, settings);
  }
}

Settings settings_of(const ComputeParameters& parameters) {
  Settings settings;
  flatten(parameters.to_object(), "", settings);
  settings.erase("Output.Format.DisplayText");  // says what DigitsPerFile says
  return settings;
}
Settings settings_of(const ModeHolder& mode) { return settings_of(mode.current()); }
Settings settings_of(const orl::Settings& s) {
  return {{"pause_level", std::to_string(s.pause_level)},
          {"pause_on_fatal", std::to_string(s.pause_on_fatal)},
          {"pause_given", std::to_string(s.pause_given)},
          {"quiet", std::to_string(s.quiet)},
          {"priority", std::to_string(s.thread_priority)},
          {"colours", std::to_string(s.colors_enabled)},
          {"pii", std::to_string(s.print_pii)},
          {"skip", std::to_string(s.skip_warnings)},
          {"exe", s.exe_path + s.exe_dir}};
}
Settings settings_of(const BenchSettings& bench) {
  Settings settings = settings_of(bench.parameters);
  settings["digits"] = std::to_string(bench.decimal_digits);
  return settings;
}
Settings settings_of(const BenchIoSettings& io) {
  Settings settings;
  flatten(io.to_object(), "", settings);
  return settings;
}
Settings settings_of(const StressLine& stress) {
  Settings settings;
  flatten(stress.settings.to_object(), "", settings);
  for (const std::string& test : stress.tests) settings["tests"] += test + " ";
  return settings;
}

Settings settings_of(const LogFormulaLine& formula) {
  return {{"digits", std::to_string(formula.decimal_digits)}, {"argument", formula.argument}};
}

Settings settings_of(const BbpLine& line) {
  const BbpTask& task = line.task;
  return {{"offset", std::to_string(task.offset)},
          {"digits", std::to_string(task.digits)},
          {"formula", std::to_string(static_cast<int>(task.formula))},
          {"threads", std::to_string(task.threads)},
          {"pinned", std::to_string(!task.pin_order.empty())},
          {"json", std::to_string(line.json)}};
}

Settings settings_of(const ValidateLine& line) { return {{"json", std::to_string(line.json)}}; }

Settings settings_of(const ViewerTask& task) {
  Settings settings{{"stats", std::to_string(task.stats)}, {"prove", std::to_string(task.prove)}};
  for (const auto& [name, number] : {std::pair{"start", task.start},
                                     {"end", task.end},
                                     {"view", task.view},
                                     {"per file", task.digits_per_file},
                                     {"start id", task.start_id},
                                     {"end id", task.end_id}})
    if (number) settings[name] = std::to_string(*number);
  for (const auto& [name, text] : {std::pair{"extract", task.extract},
                                   {"name", task.name},
                                   {"folder", task.folder},
                                   {"report", task.report}})
    if (text) settings[name] = *text;
  for (const std::string& folder : task.search_folders) settings["search"] += folder + " ";
  return settings;
}

struct Row {
  std::vector<std::string> line;  // the last option is the one that is looked at
  Settings changes;
  std::vector<std::string> before = {};
};

template <class Target>
void apply(std::span<const Option<Target>> table, const std::vector<std::string>& tokens, Target& target) {
  std::vector<const char*> argv = {"orvane"};
  for (const std::string& token : tokens) argv.push_back(token.c_str());
  orl::CommandLine::Parameters line(static_cast<int>(argv.size()), argv.data());
  GivenOptions given;
  while (!line.at_end()) ASSERT_TRUE(take_option(table, target, line, given)) << line.key();
}

template <class Target>
void expect_effects(std::span<const Option<Target>> table, const std::vector<Row>& rows) {
  for (const auto& option : table)
    EXPECT_TRUE(std::any_of(
        rows.begin(), rows.end(),
        [&](const Row& row) { return row.line[0].substr(0, row.line[0].find(':')) == option.key; }))
        << option.key << " has no row";
  for (const Row& row : rows) {
    SCOPED_TRACE(row.line[0]);
    Target target;
    apply(table, row.before, target);
    const Settings before = settings_of(target);
    apply(table, row.line, target);
    Settings changes;
    for (const auto& [key, value] : settings_of(target))
      if (const auto old = before.find(key); old == before.end() || old->second != value)
        changes[key] = value;
    EXPECT_EQ(changes, row.changes);
  }
}

const char* const kEnable = "Output.Format.OutputEnable";
const char* const kPerFile = "Output.Format.DigitsPerFile";
const char* const kPath = "Output.Format.Path";

Settings raid(const std::string& name) {
  return {{name + ".Type", "raid3"},
          {name + ".Paths[0]", "/a"},
          {name + ".Paths[1]", "/b"},
          {name + ".Paths[2]", "/c"}};
}

TEST(Options, OfAComputationChangeTheirOwnSetting) {
  const orl::test::TemporaryFolder folder;
  const std::vector<std::string> swap = {"-mode:swap"};
  expect_effects<ModeHolder>(custom_options(),
                             {{{"-dec:2m"}, {{"ComputeSize.DecimalDigits", "2000000"}}},
                              {{"-hex:200"}, {{"ComputeSize.HexadecimalDigits", "200"}}},
                              {{"-algorithm:ramanujan"}, {{"Constant.Algorithm", "ramanujan"}}},
                              {{"-o", folder.path()}, {{kPath, folder.path()}}},
                              {{"-od:0"}, {{kEnable, "false"}}},
                              {{"-od:1"}, {{kEnable, "true"}}, {"-od:0"}},
                              {{"-C:1000000"}, {{kPerFile, "1000000"}}},
                              {{"-compress:-1"}, {{kPerFile, "-1"}}},
                              {{"-verify:0"}, {{"Output.OutputVerify", "false"}}},
                              {{"-verify:1"}, {{"Output.OutputVerify", "true"}}, {"-verify:0"}},
                              {{"-mode:ram"}, {{"Mode", "ram"}}, swap},
                              {{"-MA:malloc"}, {{"Allocator.Allocator", "malloc"}}},
                              {{"-PF:none"}, {{"Parallelism.Framework", "none"}}, {"-PF:spawn"}},
                              {{"-TD:13"}, {{"Parallelism.TaskDecomposition", "13"}}},
                              {{"-json:1"}, {{"Output.JsonResults", "true"}}},
                              {{"-overwrite:1"}, {{"Output.Overwrite", "true"}}},
                              {{"-bbp:1"}, {{"Output.BbpCheck", "true"}}},
                              {{"-bbp:0"}, {{"Output.BbpCheck", "false"}}},
                              {{"-M:1G"}, {{"Memory", "1073741824"}}, swap},
                              {{"-minIO:1M"}, {{"BytesPerSeek", "1048576"}}, swap},
                              {{"-swap:raid3", "/a", "/b", "/c"}, raid("RaidFile"), swap}});
}

TEST(Options, OfTheProgramChangeTheirOwnSetting) {
  expect_effects<orl::Settings>(
      global_options(),
      {{{"pause:1"}, {{"pause_level", "1"}, {"pause_given", "1"}}},
       {{"pause:-1"}, {{"pause_level", "-1"}, {"pause_given", "1"}}},
       {{"pause:-2"}, {{"pause_level", "-2"}, {"pause_on_fatal", "0"}, {"pause_given", "1"}}},
       {{"priority:5"}, {{"priority", "5"}}},
       {{"priority:-5"}, {{"priority", "-5"}}},
       {{"colors:0"}, {{"colours", "0"}}},
       {{"colors:1"}, {{"colours", "1"}}, {"colors:0"}},
       {{"PII:1"}, {{"pii", "1"}}},
       {{"PII:0"}, {}, {"PII:1"}},
       {{"PII:-1"}, {{"pii", "0"}}, {"PII:1"}},
       {{"height:9"}, {}},
       {{"quiet:yes"}, {{"quiet", "1"}}},
       {{"skip-warnings"}, {{"skip", "1"}}}});
}

TEST(Options, OfTheOtherActionsChangeTheirOwnSetting) {
  const orl::test::TemporaryFolder folder;
  const Row shared[] = {{{"-TD:13"}, {{"Parallelism.TaskDecomposition", "13"}}},
                        {{"-PF:none"}, {{"Parallelism.Framework", "none"}}, {"-PF:spawn"}},
                        {{"-MA:malloc"}, {{"Allocator.Allocator", "malloc"}}}};
  const auto with_shared = [&](std::vector<Row> rows) {
    rows.insert(rows.end(), std::begin(shared), std::end(shared));
    return rows;
  };
  expect_effects<BenchSettings>(bench_options(),
                                with_shared({{{"-o", folder.path()}, {{kPath, folder.path()}}},
                                             {{"-od:1"}, {{kEnable, "true"}}},
                                             {{"-overwrite:1"}, {{"Output.Overwrite", "true"}}},
                                             {{"-bbp:1"}, {{"Output.BbpCheck", "true"}}},
                                             {{"-json:1"}, {{"Output.JsonResults", "true"}}}}));
  expect_effects<BenchIoSettings>(benchio_options(),
                                  with_shared({{{"-M:4G"}, {{"Memory", "4294967296"}}},
                                               {{"-minIO:1M"}, {{"BytesPerSeek", "1048576"}}},
                                               {{"-json:1"}, {{"JsonResults", "true"}}},
                                               {{"-swap:raid3", "/a", "/b", "/c"}, raid("RaidFile")}}));
  std::vector<Row> stress = {{{"-M:1G"}, {{"TotalMemory", "1073741824"}}}, {{"-D:7"}, {{"Seconds", "7"}}}};
  for (const char* test : {"BKT", "N32", "N64", "HNT", "VST", "C17"})
    stress.push_back({{test}, {{"tests", std::string(test) + " "}}});
  expect_effects<StressLine>(stress_options(), stress);
  expect_effects<BbpLine>(bbp_options(), {{{"-offset:2k"}, {{"offset", "2000"}}},
                                          {{"-digits:64"}, {{"digits", "64"}}},
                                          {{"-formula:plouffe"}, {{"formula", "0"}}},
                                          {{"-threads:3"}, {{"threads", "3"}}},
                                          {{"-pin:yes"}, {{"pinned", "1"}}},
                                          {{"-json:1"}, {{"json", "1"}}}});
  expect_effects<ValidateLine>(validate_options(), {{{"-json:yes"}, {{"json", "1"}}}});
  expect_effects<ViewerTask>(viewer_options(), {{{"-start:2k"}, {{"start", "2000"}}},
                                                {{"-end:3k"}, {{"end", "3000"}}},
                                                {{"-view:50"}, {{"view", "50"}}},
                                                {{"-stats"}, {{"stats", "1"}}},
                                                {{"-extract", "x"}, {{"extract", "x"}}},
                                                {{"-C:1m"}, {{"per file", "1000000"}}},
                                                {{"-C:-1"}, {{"per file", "18446744073709551615"}}},
                                                {{"-startid:1"}, {{"start id", "1"}}},
                                                {{"-endid:2"}, {{"end id", "2"}}},
                                                {{"-name:a:b"}, {{"name", "a:b"}}},
                                                {{"-o", "x"}, {{"folder", "x"}}},
                                                {{"-search", "x"}, {{"search", "y x "}}, {"-search", "y"}},
                                                {{"-check", "x"}, {{"report", "x"}}},
                                                {{"-prove"}, {{"prove", "1"}}}});
  expect_effects<LogFormulaLine>(log_formula_options(), {{{"-dec:2m"}, {{"digits", "2000000"}}}});
}

}  // namespace
}  // namespace orvane
