#include "session/parameters.h"
#include "console/console.h"

#include <gtest/gtest.h>

#include "config/writer.h"
#include "core/exceptions.h"
#include "support/child.h"
#include "support/files.h"
#include "support/gmp_oracle.h"

namespace orvane {
namespace {

using orl::test::run_child;

template <class Body>
std::string message_of(Body&& body) {
  try {
    body();
  } catch (const orl::Exception& e) {
    return e.message();
  }
  return "nothing was thrown";
}

constexpr const char* kTooFew = "Computation size must be at least 100 decimal digits.";
constexpr const char* kTooMany =
    "Computation size cannot be larger than 1,000,000,000,000,050 decimal digits.";

TEST(Parameters, LimitTheDigits) {
  RamParameters parameters;
  EXPECT_EQ(parameters.decimal_digits(), 1000000u);
  EXPECT_EQ(parameters.hexadecimal_digits(), 0u);
  EXPECT_EQ(parameters.precision().digits, 1000100u);
  const auto dec = [&](u64 digits) { return message_of([&] { parameters.set_decimal_digits(digits); }); };
  const auto hex = [&](u64 digits) { return message_of([&] { parameters.set_hexadecimal_digits(digits); }); };
  EXPECT_EQ(dec(99), kTooFew);
  EXPECT_EQ(dec(1000000000000051), kTooMany);
  EXPECT_EQ(dec(~u64{0}), kTooMany);
  EXPECT_EQ(parameters.decimal_digits(), 1000000u) << "a refused count changes nothing";
  EXPECT_EQ(dec(1000000000000050), "nothing was thrown");
  EXPECT_EQ(dec(100), "nothing was thrown");
  // 83 hexadecimal digits are worth 99.9 decimal ones.
  EXPECT_EQ(hex(82), std::string(kTooFew) + "\nThose are 83 hexadecimal digits.");
  EXPECT_EQ(hex(83), "nothing was thrown");
  EXPECT_EQ(hex(~u64{0}), kTooMany);
  EXPECT_EQ(hex(900000000000000), kTooMany);
  EXPECT_EQ(hex(0), "nothing was thrown");
}

TEST(Parameters, HoldThePrecisionOfTheLongerOutput) {
  RamParameters parameters;
  parameters.set_decimal_digits(1000);
  EXPECT_EQ(parameters.precision().digits, 1100u);
  EXPECT_EQ(parameters.constant().precision(), 1100u);
  parameters.set_hexadecimal_digits(1000);
  EXPECT_EQ(parameters.precision().digits, 1305u);  // ceil(1204.11...) + 100
  parameters.set_constant(make_constant(2));
  EXPECT_EQ(parameters.constant().precision(), 1305u);
  // The words hold the digits and the integer part: 2^(64 (words - 1)) >= 10^digits.
  for (const u64 digits : {u64{100}, u64{1000}, u64{19265}, u64{19266}, u64{1000100}}) {
    orl::test::Mpz power;
    mpz_ui_pow_ui(power, 10, digits);
    const u64 bits = mpz_sizeinbase(power, 2), words = Precision{digits}.words();
    EXPECT_GE(64 * (words - 1), bits) << digits;
    EXPECT_LE(64 * (words - 3), bits) << digits;
  }
}

// Runs `body` on fresh parameters; the digits per file that it ends with, then what it printed.
std::string told(const std::function<void(ComputeParameters&)>& body) {
  return run_child("",
                   [&] {
                     RamParameters parameters;
                     body(parameters);
                     orl::console::println("= " + std::to_string(parameters.digits_per_file()));
                     return 0;
                   })
      .output;
}

TEST(Parameters, FollowTheFileSizeRule) {
  const std::string least = "\nA compressed file holds at least 1,000,000 digits.\n",
                    to_compress = "Warning: Too few digits to compress." + least,
                    for_file = "Warning: Too few digits for file." + least,
                    disabling = "Warning: Digits per file below minimum: Disabling compression." + least,
                    one = "= 18446744073709551615\n";
  EXPECT_EQ(told([](auto& p) { p.request_digits_per_file(1000000); }), "= 1000000\n");
  EXPECT_EQ(told([](auto& p) { p.request_digits_per_file(kOneFile); }), one);
  EXPECT_EQ(told([](auto& p) { p.request_digits_per_file(999999); }), for_file + "= 0\n");
  EXPECT_EQ(told([](auto& p) {
              p.set_decimal_digits(999999);
              p.request_digits_per_file(1000000);
            }),
            to_compress + "= 0\n");
  EXPECT_EQ(told([](auto& p) {
              p.set_hexadecimal_digits(999999);
              p.request_digits_per_file(1000000);
            }),
            to_compress + "= 0\n");
  EXPECT_EQ(told([](auto& p) {
              p.request_digits_per_file(2000000);
              p.request_digits_per_file(5);
            }),
            for_file + "= 2000000\n")
      << "a refused value keeps the old one";
  EXPECT_EQ(told([](auto& p) {
              p.request_digits_per_file(2000000);
              p.request_digits_per_file(0);
              p.settle_digits_per_file();
            }),
            "= 0\n");
  EXPECT_EQ(told([](auto& p) {
              p.request_digits_per_file(kOneFile);
              p.set_hexadecimal_digits(1000);
            }),
            disabling + "= 0\n");
  EXPECT_EQ(told([](auto& p) {
              p.request_digits_per_file(1000000);
              p.set_decimal_digits(999999);
              p.settle_digits_per_file();
            }),
            disabling + "= 0\n");
  // Counts that come later on the line count when it is complete.
  EXPECT_EQ(told([](auto& p) {
              p.set_decimal_digits(1000);
              p.request_digits_per_file(1000000);
              p.set_decimal_digits(5000000);
              p.settle_digits_per_file();
            }),
            to_compress + "= 1000000\n");
}

TEST(Parameters, KeepThePathWhenTheNewOneCannotBeWritten) {
  orl::test::TemporaryFolder folder;
  RamParameters parameters;
  const std::string missing = folder.file("a") + "/b";
  parameters.set_output_path(missing);
  EXPECT_TRUE(folder.names().empty()) << "a folder is made when a run begins";
  EXPECT_EQ(message_of([&] { parameters.set_output_path("/dev/null/such"); }),
            "Path is not writable.\nPath: /dev/null/such\nReason: Not a directory.\n"
            "Please name a folder that can be written to.");
  EXPECT_EQ(parameters.output_path(), missing);
}

TEST(Parameters, SayBeforeTheRunWhatCannotBeRun) {
  orl::test::TemporaryFolder folder;
  const auto checked = [&](const std::function<void(RamParameters&)>& change) {
    std::filesystem::create_directory(folder.path());
    return run_child("",
                     [&] {
                       RamParameters parameters;
                       parameters.set_output_path(folder.path());
                       parameters.set_decimal_digits(1000);
                       change(parameters);
                       const std::string message = message_of([&] { parameters.check_parameters(); });
                       orl::console::println("= " + message);
                       return 0;
                     })
        .output;
  };
  EXPECT_NE(checked([](auto&) {}).find("= nothing was thrown"), std::string::npos);
  EXPECT_NE(checked([&](auto&) { std::filesystem::remove(folder.path()); }).find("= nothing was thrown"),
            std::string::npos);
  EXPECT_TRUE(std::filesystem::is_directory(folder.path())) << "made where it is missing";
  const auto put_a_file_there = [&](auto&) {
    std::filesystem::remove_all(folder.path());
    std::ofstream(folder.path()) << "no folder";
  };
  EXPECT_NE(checked(put_a_file_there).find("= Path is not writable."), std::string::npos);
  std::filesystem::remove(folder.path());
  EXPECT_NE(checked([](auto& p) {
              p.set_constant(make_constant(10));
            }).find("= Custom cannot be computed by this version yet."),
            std::string::npos);
}

TEST(Parameters, DumpWhatWasSetAndWhatItTakes) {
  RamParameters parameters;
  parameters.set_decimal_digits(3000000);
  parameters.set_hexadecimal_digits(2000000);
  parameters.set_allocator("malloc");
  const auto dump_of = [&](const char* section) {
    return orl::to_string(parameters.configuration_dump().get(section));
  };
  const orl::Object dump = parameters.configuration_dump();
  EXPECT_EQ(dump.get_object("Constant").get_object("Algorithm").get_string("Value"), "chudnovsky");
  EXPECT_EQ(dump.get_object("Constant").get_string("AlgorithmLong"), "Chudnovsky (1989)");
  EXPECT_EQ(dump.get_object("Mode").get_string("value"), "ram");
  EXPECT_EQ(dump.get_object("Mode").get_string("DisplayText"), "Ram Only");
  EXPECT_EQ(dump.get_object("Allocator").get_string("Allocator"), "malloc");
  const u64 bytes = parameters.required_bytes();
  EXPECT_EQ(dump.get_object("Memory").get_object("RequiredRam").get_integer("Value"), bytes);
  EXPECT_GT(bytes, (3000000 + 2000000) / 3);
  const auto format = [&](u64 digits_per_file) {
    parameters.request_digits_per_file(digits_per_file);
    const orl::Object now = parameters.configuration_dump();
    const orl::Object& output = now.get_object("Output");
    return output.get_object("Format").get_string("DisplayText") + " " +
           std::to_string(output.get_object("Size").get_integer("Value"));
  };
  EXPECT_EQ(format(0), "None - Write digits to a text file. 5000004");
  // 157895 words of 19 digits and 125000 words of 16.
  EXPECT_EQ(format(kOneFile), "Compress digits into one .ovd file. 2263160");
  // Three files of 52632 words and two of 62500.
  EXPECT_EQ(format(1000000), "Compress with 1,000,000 digits per file. 2263168");
  parameters.output_digits = false;
  EXPECT_NE(dump_of("Output").find("Value : 0\r\n"), std::string::npos);

  parameters.set_constant(make_constant(10));
  EXPECT_NE(dump_of("Memory").find("Custom cannot be computed by this version yet."), std::string::npos);
  EXPECT_THROW(parameters.required_bytes(), orl::InvalidParametersException);
}

TEST(ModeHolder, CarriesTheSharedSettingsAcross) {
  orl::test::TemporaryFolder folder;
  ModeHolder mode;
  auto root = make_constant(0);
  root->set_argument("7");
  mode.current().set_constant(std::move(root));
  mode.current().set_decimal_digits(5000000);
  mode.current().set_hexadecimal_digits(2000000);
  mode.current().request_digits_per_file(1500000);
  mode.current().set_output_path(folder.path());
  mode.current().output_digits = false;
  mode.current().verify_conversion = false;
  mode.current().parallelism.set_tds(13);
  mode.current().parallelism.set_framework("spawn");
  mode.current().set_allocator("malloc");
  EXPECT_EQ(message_of([&] { mode.swap_for("-M"); }), "Option -M is not supported for this mode.");
  EXPECT_EQ(message_of([&] { mode.set_mode("tape"); }), "Invalid Mode: tape");
  mode.set_mode("swap");
  EXPECT_STREQ(mode.current().mode_name(), "Swap Mode");
  mode.swap_for("-M").set_memory_bytes(1);
  const ComputeParameters& swap = mode.current();
  EXPECT_EQ(swap.constant().name(), "Sqrt(7)");
  EXPECT_EQ(swap.decimal_digits(), 5000000u);
  EXPECT_EQ(swap.hexadecimal_digits(), 2000000u);
  EXPECT_EQ(swap.precision().digits, 5000100u);
  EXPECT_EQ(swap.digits_per_file(), 1500000u);
  EXPECT_EQ(swap.output_path(), folder.path());
  EXPECT_FALSE(swap.output_digits || swap.verify_conversion);
  EXPECT_EQ(swap.parallelism.tds(), 13u);
  EXPECT_STREQ(swap.parallelism.framework().key(), "spawn");
  EXPECT_STREQ(swap.allocator->key(), "malloc");
  mode.current().set_decimal_digits(1000);
  mode.set_mode("ram");
  EXPECT_STREQ(mode.current().mode_name(), "Ram Only");
  EXPECT_EQ(mode.current().decimal_digits(), 1000u);
  mode.set_mode("swap");
  EXPECT_EQ(mode.swap_for("-M").memory_setting(), 1u) << "what is not shared stays";
}

}  // namespace
}  // namespace orvane
