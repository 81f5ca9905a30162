#include "fuzz/formats.h"

#include <cstdio>
#include <cstdlib>

#include "config/parser.h"
#include "config/writer.h"
#include "core/exceptions.h"
#include "digits/digit_reader.h"
#include "digits/digit_writer.h"
#include "digits/ovd_file.h"
#include "digits/ovd_header.h"
#include "digits/text_file.h"
#include "session/parameters.h"
#include "session/validation_file.h"
#include "support/files.h"
#include "support/test_parallelizers.h"

namespace orvane::fuzz {
namespace {

using orl::test::TemporaryFolder;

void require(bool holds, const char* text) {
  if (holds) return;
  std::fprintf(stderr, "%s\n", text);
  std::abort();
}

const TemporaryFolder& folder() {
  static const TemporaryFolder instance;
  return instance;
}

std::string text_of(const u8* data, u64 size) { return {reinterpret_cast<const char*>(data), size}; }

// Configuration files: what is read can be written and read again, in both forms; settings that it holds are
// taken or refused.
void read_config(const u8* data, u64 size) {
  const std::string text = text_of(data, size);
  std::unique_ptr<orl::Value> root;
  try {
    root = orl::parse_text(text);
  } catch (const orl::Exception&) {
    return;
  }
  try {
    const std::string written = orl::to_string(*root);
    require(orl::same_content(*root, *orl::parse_text(written)),
            "a configuration changes when it is written");
    const std::string json = orl::to_json(*root);
    require(orl::same_content(*root, *orl::parse_json(json)),
            "a configuration changes when it is written as JSON");
  } catch (const orl::InvalidParametersException&) {
    // A tree may hold what a form cannot say.
  }
  try {
    ModeHolder mode;
    mode.from_object(orl::root_object(*root));
    ModeHolder again;
    again.from_object(mode.current().to_object());
    require(orl::same_content(mode.current().to_object(), again.current().to_object()),
            "settings change when they are saved and loaded");
  } catch (const orl::Exception&) {
  }
}

std::vector<std::string> config_seeds() {
  ModeHolder mode;
  std::vector<std::string> seeds = {
      orl::to_string(mode.current().to_object()),
      "{ // nothing\r\n  \"a b\" : [ -1 \"\\\"\" { } [ [ ] ] ] c\\ d : 9223372036854775807 }"};
  mode.set_mode("swap");
  seeds.push_back(orl::to_string(mode.current().to_object()));
  return seeds;
}

// Both ends of a stream of digits, and some in between: each one is a digit of the radix.
void read_digits(orl::DigitReader& reader) {
  require(reader.radix() == 10 || reader.radix() == 16, "a stream has no radix");
  require(reader.first_digits().size() <= 65536, "first digits without end");
  static orl::test::ReverseOrder framework;
  alignas(64) static u8 window[65536];
  u8 digits[200];
  const u64 total = reader.total_digits();
  for (const u64 at : {u64{0}, u64{37}, total / 2, total - 1, total}) {
    for (const u64 count : {u64{1}, u64{39}, u64{200}}) {
      try {
        reader.load_digits(digits, at, count, {window, sizeof window}, {framework, 2});
      } catch (const orl::Exception&) {
        continue;
      }
      require(total == 0 || (at <= total && count <= total - at), "digits from beyond the end");
      for (u64 i = 0; i < count; i++) require(digits[i] < reader.radix(), "a digit that is none");
    }
  }
}

// Compressed digit files: a header is taken only with sizes that can be computed with.
void read_ovd(const u8* data, u64 size) {
  const std::string path = folder().file("x - 0.ovd");
  orl::test::write_file(path, text_of(data, size));
  try {
    const orl::BasicOvdFileReader file(path);
    const orl::OvdHeader& header = file.header();
    require(header.data_offset <= size, "a header that is longer than its file");
    require(header.begin() <= header.end(), "a file that ends before it begins");
    const orl::OvdHeader again = [&] {
      orl::test::write_file(folder().file("again.ovd"), orl::format_header(header));
      return orl::parse_header(orl::RawFile(folder().file("again.ovd"), orl::RawFile::Mode::kRead));
    }();
    require(again.begin() == header.begin() && again.end() == header.end() && again.radix == header.radix &&
                again.first_digits == header.first_digits,
            "a header changes when it is written");
    read_digits(*orl::open_digits(path));
  } catch (const orl::Exception&) {
  }
}

void read_text(const u8* data, u64 size) {
  const std::string path = folder().file("x.txt");
  orl::test::write_file(path, text_of(data, size));
  for (const orl::u32 radix : {0u, 10u, 16u}) {
    try {
      orl::BasicTextReader reader(path, radix);
      require(reader.total_digits() < size, "more digits than characters");
      read_digits(reader);
    } catch (const orl::Exception&) {
    }
  }
}

// The bytes of a finished stream of `count` digits.
std::string stream(orl::u32 radix, u64 digits_per_file, u64 count) {
  static orl::test::ReverseOrder framework;
  alignas(64) static u8 window[65536];
  std::vector<u8> digits(count);
  for (u64 i = 0; i < count; i++) digits[i] = static_cast<u8>(i * i % radix);
  const auto writer = orl::make_digit_writer(folder().path(), "seed", "3.", radix, digits_per_file, count);
  writer->store_digits(digits.data(), 0, count, {window, sizeof window}, {framework, 1});
  writer->close_and_get_basic_reader();
  return orl::test::read_file(writer->path());
}

std::vector<std::string> ovd_seeds() { return {stream(10, ~u64{0}, 150), stream(16, 100, 350)}; }
std::vector<std::string> text_seeds() {
  return {stream(10, 0, 150), stream(16, 0, 90), "3.14\r\n", std::string(63, '1') + ".5"};
}

// Validation files: the genuine one passes, and nothing that is made from it does.
const std::vector<std::string>& validation_seed_list() {
  static const std::vector<std::string> seeds = [] {
    RunReport report;
    report.user = "Ada";
    report.constant = report.constant_long = "Pi";
    report.algorithm = report.algorithm_long = "Chudnovsky";
    report.timer.stop();
    report.clocks = {orl::ClockCheck::kPassed, orl::ClockCheck::kPassed, "none", {}};
    report.decimal_digits = report.dec.digit_count = 100;
    report.dec.counts = orl::DigitCounts(10);
    const std::vector<u8> digits(100, 7);
    report.dec.counts.append(digits.data(), digits.size());
    report.dec.last_digits.set(10, digits.data(), digits.size());
    report.dec.sha256.emplace(1, 100, std::string(64, '0'));
    return std::vector<std::string>{validation_text(report), "Validation Version: 1.1\r\n----\r\n"};
  }();
  return seeds;
}

void read_validation(const u8* data, u64 size) {
  const std::string text = text_of(data, size);
  const ValidationResult result = check_validation_text(text);
  if (result.outcome == Validation::kPassed)
    require(text == validation_seed_list()[0], "a changed validation file passes");
}

std::vector<std::string> validation_seeds() { return validation_seed_list(); }

}  // namespace

std::span<const Format> formats() {
  static constexpr Format list[] = {{"config", read_config, config_seeds},
                                    {"ovd", read_ovd, ovd_seeds},
                                    {"text-digits", read_text, text_seeds},
                                    {"validation", read_validation, validation_seeds}};
  return list;
}

}  // namespace orvane::fuzz
