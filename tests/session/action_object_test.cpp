// Settings on their way through the text of a file.
#include <gtest/gtest.h>

#include "config/located.h"
#include "config/parser.h"
#include "config/writer.h"
#include "core/exceptions.h"
#include "session/parameters.h"
#include "support/files.h"
#include "threads/frameworks.h"

namespace orvane {
namespace {

using orl::Object;

void load(ModeHolder& mode, const std::string& text) {
  mode.from_object(orl::root_object(*orl::parse_text(text)));
}

// What `text` is refused with.
std::string refusal(const std::string& text) {
  ModeHolder mode;
  try {
    load(mode, text);
  } catch (const orl::Exception& e) {
    return e.message();
  }
  return "nothing was thrown";
}

// The dump of what a file holds that was saved from `mode`.
Object reloaded_dump(const ModeHolder& mode) {
  ModeHolder other;
  load(other, orl::to_string(mode.current().to_object()));
  return other.current().configuration_dump();
}

void expect_round_trip(const ModeHolder& mode) {
  const Object before = mode.current().configuration_dump();
  EXPECT_TRUE(orl::same_content(before, reloaded_dump(mode)))
      << orl::to_string(before) << orl::to_string(reloaded_dump(mode));
}

std::unique_ptr<Constant> sample(u64 index, const std::string& formula_file) {
  auto constant = make_constant(index);
  if (constant->index() == ConstantIndex::kCustom)
    constant->set_argument(formula_file);
  else if (constant->takes_argument())
    constant->set_argument("11");
  return constant;
}

std::vector<std::string> algorithm_keys(const Constant& constant) {
  std::vector<std::string> keys;
  for (const AlgorithmRow& row : constant.algorithms()) keys.emplace_back(row.key);
  if (keys.empty()) keys.push_back(constant.algorithm_key());
  return keys;
}

TEST(ActionObject, KeepsEverySettingOnTheWayThroughAFile) {
  orl::test::TemporaryFolder folder;
  orl::test::write_file(folder.file("x.cfg"),
                        "{ Constant : { NameShort : \"n\" NameLong : \"N\" AlgorithmShort : \"a\" "
                        "AlgorithmLong : \"A\" Formula : { Sqrt : [ -2 { Pi : { Power : 1 } } ] } } }");
  u64 trips = 0;
  for (u64 index = 0; index < kConstantCount; index++) {
    for (const std::string& algorithm : algorithm_keys(*sample(index, folder.file("x.cfg")))) {
      for (const char* mode_word : {"ram", "swap"}) {
        for (const auto& allocator : orl::allocators()) {
          for (const auto& framework : orl::frameworks()) {
            ModeHolder mode;
            mode.set_mode(mode_word);
            ComputeParameters& parameters = mode.current();
            parameters.set_constant(sample(index, folder.file("x.cfg")));
            parameters.constant().set_algorithm(algorithm);
            parameters.set_decimal_digits(1000 + ++trips);
            parameters.set_allocator(allocator.key);
            parameters.parallelism.set_framework(framework.key);
            parameters.output_digits = trips % 2 != 0;
            parameters.verify_conversion = trips % 3 != 0;
            parameters.json_results = trips % 5 == 0;
            SCOPED_TRACE(algorithm + " " + mode_word + " " + allocator.key + " " + framework.key);
            expect_round_trip(mode);
            ASSERT_FALSE(HasFailure());
          }
        }
      }
    }
  }
  EXPECT_GT(trips, 24u * 2 * 2 * 4);
}

TEST(ActionObject, KeepsValuesThatAreNotTheDefaults) {
  orl::test::TemporaryFolder folder;
  ModeHolder mode;
  auto root = make_constant(0);
  root->set_argument("18446744073709551615");  // more than an integer of the file holds
  mode.current().set_constant(std::move(root));
  mode.current().set_decimal_digits(5000000);
  mode.current().set_hexadecimal_digits(2000000);
  mode.current().set_output_path(folder.path());
  mode.current().parallelism.set_tds(65536);
  orl::Object policy, allocator;
  policy.add_string("LargePages", "attempt");
  policy.add_string("LockPages", "forced");
  allocator.add_object("MemoryPolicy", std::move(policy));
  mode.current().allocator->read_object(allocator);
  for (const u64 digits_per_file : {u64{0}, u64{1000000}, kOneFile}) {
    mode.current().request_digits_per_file(digits_per_file);
    expect_round_trip(mode);
  }
  EXPECT_EQ(mode.current().configuration_dump().get_object("Constant").get_string("NameShort"),
            "Sqrt(18446744073709551615)");
  mode.set_mode("swap");
  EXPECT_NE(orl::to_string(mode.current().to_object()).find("LockPages : \"forced\""), std::string::npos)
      << "a change of mode keeps the allocator's settings";
  SwapParameters& swap = mode.swap_for("-M");
  expect_round_trip(mode);
  swap.set_memory_bytes(u64{3} << 40);
  swap.set_bytes_per_seek(4096);
  swap.raid.set_group({orl::R03::RaidType::raid3, {"/a", "/b \"c\"", ""}});
  swap.raid.set_buffer_per_file(1 << 20);
  expect_round_trip(mode);
  const Object dump = swap.configuration_dump();
  EXPECT_EQ(dump.get_object("RaidFile").get_string("DisplayText"), "RAID 3 with 3 paths");
  EXPECT_EQ(dump.get_object("Memory").get_object("RequiredRam").get_integer("Value"), orl::s64{3} << 40);
  const auto memory = [&](u64 bytes) {
    swap.set_memory_bytes(bytes);
    return orl::to_string(swap.configuration_dump().get("Memory"));
  };
  EXPECT_NE(memory(u64{1} << 46).find("Insufficient Memory: This "), std::string::npos);
  EXPECT_NE(memory(u64{1} << 47).find("Insufficient Address Space"), std::string::npos);
  swap.raid.set_lanes({{orl::R03::RaidType::raid0, {"/a"}}, {orl::R03::RaidType::raid3, {"/b", "/c"}}});
  expect_round_trip(mode);
  swap.raid.set_lanes({{orl::R03::RaidType::raid0, {"/a"}}});
  expect_round_trip(mode);
}

TEST(ActionObject, TakesDefaultsForWhatIsAbsent) {
  ModeHolder mode;
  mode.current().set_decimal_digits(12345);
  load(mode, "{ Constant : { Constant : \"phi\" } }");
  ModeHolder fresh;
  fresh.current().set_constant(make_constant(1));
  EXPECT_TRUE(orl::same_content(mode.current().configuration_dump(), fresh.current().configuration_dump()));
  load(mode,
       "{ Mode : \"swap\"  Constant : { Constant : \"e\" DisplayText : \"for people\" }  BytesPerSeek : 0 "
       "  Parallelism : { TaskDecomposition : { Value : 6 DisplayText : \"six\" } } }");
  EXPECT_EQ(mode.current().parallelism.tds(), 6u);
  ASSERT_NE(mode.swap(), nullptr);
  EXPECT_EQ(mode.swap()->bytes_per_seek(), 1u << 20);
  mode.swap()->raid.set_group({orl::R03::RaidType::raid3, {"/a", "/b", "/c"}});
  EXPECT_EQ(mode.swap()->bytes_per_seek(), 2u << 20) << "two of the three drives hold data";
}

TEST(ActionObject, NamesLineAndKeyOfWhatItRefuses) {
  const auto with = [](const std::string& section) {
    return refusal("{\n Constant : { Constant : \"pi\" }\n " + section + " }");
  };
  const auto constant = [](const std::string& keys) { return refusal("{\nConstant : {" + keys + "\n} }"); };
  const auto swap = [&](const std::string& keys) { return with("Mode : \"swap\"\n" + keys); };
  const struct {
    std::string message, expected;
  } rows[] = {
      {refusal("{ }"), "Line 1: Constant: Key not found: Constant"},
      {constant("\nConstant : \"tau\""), "Line 3: Constant.Constant: Invalid Constant: tau"},
      {constant("\nConstant : 3"), "Line 3: Constant.Constant: Expected String, got Integer."},
      {constant("Constant : \"pi\"\n\nAlgorithm : \"fly\""),
       "Line 4: Constant.Algorithm: Invalid Algorithm: fly"},
      {constant("Constant : \"pi\"\nArgument : 3"),
       "Line 3: Constant.Argument: Unknown key. Please remove it or correct its name."},
      {constant("Constant : \"sqrt\""), "Line 2: Constant.Argument: Key not found: Argument"},
      {constant("Constant : \"sqrt\"\nArgument : 16"), "Line 3: Constant.Argument: 16 is a perfect square."},
      {constant("Constant : \"sqrt\"\nArgument : \"18446744073709551616\""),
       "Line 3: Constant.Argument: 18446744073709551616 is out of range."},
      {constant("Constant : \"sqrt\"\nArgument : \"2x\""),
       "Line 3: Constant.Argument: \"2x\" is not a whole number."},
      {constant("Constant : \"custom\" NameShort : \"" + std::string(51, 'x') + "\""),
       "Line 2: Constant.NameShort: String cannot be longer than 50 characters."},
      {with("Mode : \"tape\""), "Line 3: Mode: Invalid Mode: tape"},
      {with("ComputeSize : {\n DecimalDigits : 99 }"),
       "Line 4: ComputeSize.DecimalDigits: Computation size must be at least 100 decimal digits."},
      {with("ComputeSize : { HexadecimalDigits : 900000000000000 }"),
       "Line 3: ComputeSize.HexadecimalDigits: Computation size cannot be larger than 1,000,000,000,000,050 "
       "decimal digits."},
      {with("ComputeSize : { HexadecimalDigits : -1 }"),
       "Line 3: ComputeSize.HexadecimalDigits: -1 is out of range."},
      {with("ComputeSize : { Digits : 1000 }"),
       "Line 3: ComputeSize.Digits: Unknown key. Please remove it or correct its name."},
      {with("Output : { Format : { OutputEnable : \"yes\" } }"),
       "Line 3: Output.Format.OutputEnable: Expected true or false."},
      {with("Output : { Format : { Path : \"/dev/null/such\" } }"),
       "Line 3: Output.Format.Path: Path is not writable.\nPath: /dev/null/such\nReason: Not a directory.\n"
       "Please name a folder that can be written to."},
      {with("Parallelism : { Framework : \"fly\" }"),
       "Line 3: Parallelism.Framework: Invalid Parallel Framework: fly"},
      {with("Parallelism : { TaskDecomposition : 0 }"),
       "Line 3: Parallelism.TaskDecomposition: Task decomposition must be between 1 and 65536."},
      {with("Parallelism : { Framework : \"none\" WorkerThreads : 3 }"),
       "Line 3: Parallelism.WorkerThreads: Unknown key. Please remove it or correct its name."},
      {with("Parallelism : { Framework : \"pushpool\"\nRandomization : \"on\" }"),
       "Line 4: Parallelism.Randomization: Expected true or false."},
      {with("Allocator : { Allocator : \"fly\" }"),
       "Line 3: Allocator.Allocator: Invalid Memory Allocator: fly"},
      {with("Allocator : { Allocator : \"mmap\" MemoryPolicy : {\nLockPages : 1 } }"),
       "Line 4: Allocator.LockPages: Expected String, got Integer."},
      {with("BytesPerSeek : 4096"),
       "Line 3: BytesPerSeek: Unknown key. Please remove it or correct its name."},
      {swap("BytesPerSeek : 4095"), "Line 4: BytesPerSeek: MinIO is too small."},
      {swap("Memory : -1"), "Line 4: Memory: -1 is out of range."},
      {swap("RaidFile : { Type : \"raid5\" Paths : [ \"\" ] }"),
       "Line 4: RaidFile.Type: RaidType must be either \"raid0\" or  \"raid3\"."},
      {swap("RaidFile : { Type : \"raid0\" Paths : [ ] }"), "Line 4: RaidFile.Paths: Paths cannot be empty."},
      {swap("RaidFile : { Type : \"raid3\" Paths : [ \"a\" ] }"),
       "Line 4: RaidFile.Paths: RAID3 needs at least 2 paths."},
      {swap("RaidFile : { Type : \"raid0\" Paths : [ \"a\" \"a/\" ] }"),
       "Line 4: RaidFile: Two paths of a disk array are the same folder: a/"},
      {swap("RaidFile : { Lanes : [ ] }"), "Line 4: RaidFile.Lanes: Groups cannot be empty."},
      {swap("RaidFile : { Type : \"raid0\" Lanes : [ { RaidType : \"raid0\" Paths : [ \"\" ] } ] }"),
       "Line 4: RaidFile.Type: Unknown key. Please remove it or correct its name."},
      {swap("RaidFile : { Lanes : [ { RaidType : \"raid0\" Paths : [ \"\" ] }\n{ RaidType : \"raid0\" Paths "
            ": [ \"a\" "
            "] Path : 1 } ] }"),
       "Line 5: RaidFile.Lanes.Path: Unknown key. Please remove it or correct its name."},
  };
  for (const auto& row : rows) EXPECT_EQ(row.message, row.expected);
}

TEST(ActionObject, LeavesTheSettingsWhenTheFileIsWrong) {
  ModeHolder mode;
  mode.current().set_decimal_digits(12345);
  const std::string before = orl::to_string(mode.current().to_object());
  EXPECT_THROW(load(mode, "{ Mode : \"swap\" Constant : { Constant : \"e\" } Foo : 1 }"),
               orl::ConfigException);
  EXPECT_EQ(orl::to_string(mode.current().to_object()), before);
}

}  // namespace
}  // namespace orvane
