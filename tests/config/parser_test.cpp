#include "config/parser.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <random>
#include <string>

#include "config/writer.h"
#include "support/thrown.h"

namespace orl::test {
namespace {

using Parse = std::unique_ptr<Value> (*)(std::string_view);

/// Message of the exception, or the text form of what was read.
std::string outcome(Parse parse, std::string_view text) {
  try {
    return to_string(*parse(text));
  } catch (const ParseException& failure) {
    return failure.message();
  } catch (const EndOfStreamException& failure) {
    return "EOS " + failure.message();
  }
}

struct Case {
  std::string text;
  std::string outcome;
};

void check(Parse parse, const std::vector<Case>& cases) {
  for (const Case& c : cases) EXPECT_EQ(outcome(parse, c.text), c.outcome) << c.text;
}

constexpr const char* kEnd = "EOS Unexpected end of stream.";
constexpr const char* kLong = "Line 1: Invalid integer literal.";

TEST(ConfigText, IntegersReachTheEndsOfTheirRange) {
  check(parse_text,
        {{"9223372036854775807", "9223372036854775807"},
         {"-9223372036854775808", "-9223372036854775808"},
         {"0009", "9"},
         {"9223372036854775808", kLong},
         {"-9223372036854775809", kLong},
         {"18446744073709551616", kLong},
         {"14757395258967641300", kLong},
         {"99999999999999999999999999999999", kLong},
         {"-", kLong},
         {"--1", kLong},
         {"+1", kLong},
         {"[ 25m 1_000 3e2 -1k ]", "[\r\n    25000000\r\n    1000\r\n    300\r\n    -1000\r\n]\r\n"},
         {"[ 1,000 ]", "Line 1: Don't use commas to separate elements."},
         {"[ 2.5b ]", std::string(kLong) + " \"2\" was read, but not the \".5b\" behind it.\nPlease enter a "
                                           "whole number; K, M, B and T are 10^3, 10^6, 10^9 and 10^12."},
         {"word", kLong}});
}

TEST(ConfigText, StringsKnowTwoEscapes) {
  check(parse_text, {{R"("a \"b\" \\ //no")", R"("a \"b\" \\ //no")"},
                     {R"("a\n")", "Line 1: Invalid escape character: n"},
                     {R"("a)", kEnd},
                     {R"("a\)", kEnd},
                     {"\"two\r\nlines\"", "\"two\r\nlines\""},
                     {"\"two\nlines\" x", "Line 2: Unexpected text behind the end."}});
}

TEST(ConfigText, ObjectsHaveNoCommas) {
  check(parse_text, {{"{}", "{}"},
                     {"\t{ \r\n }", "{}"},
                     {"{a:1 b : 2}", "{\r\n    a : 1\r\n    b : 2\r\n}\r\n"},
                     {"{ a : 1, b : 2 }", "Line 1: Don't use commas to separate elements."},
                     {"{ , a : 1}", "Line 1: Don't use commas to separate elements."},
                     {"{ a : , }", "Line 1: Don't use commas to separate elements."},
                     {"{ : 1 }", "Line 1: Expected identifier."},
                     {"{ \"a\" : 1 }", "Line 1: Expected identifier."},
                     {"{\n a 1 }", "Line 2: Expected colon after identifier."},
                     {"{\n\n a : 1\n a : 2 }", "Line 4: Duplicate key in object."},
                     {"{ a : }", "Line 1: Unexpected '}'."},
                     {"{ a : ]", "Line 1: Unexpected ']'."},
                     {"{ a\n : 1 }", "Line 1: Invalid character in identifier."},
                     {"}", "Line 1: Unexpected '}'."},
                     {"{} {}", "Line 1: Unexpected text behind the end."}});
}

TEST(ConfigText, NamesHoldWhatIsEscapedAndASingleSlash) {
  check(parse_text, {{R"({ a/b\:\ \"\\ : 1})", "{\r\n    a/b\\:\\ \\\"\\\\ : 1\r\n}\r\n"},
                     {"{ a// comment\n : 1}", "{\r\n    a : 1\r\n}\r\n"},
                     {"{ / : 1}", "{\r\n    / : 1\r\n}\r\n"},
                     {"{ a\\", kEnd}});
}

TEST(ConfigText, ArraysHaveNoCommas) {
  check(parse_text,
        {{"[]", "[\r\n]\r\n"},
         {"[1 \"a\"[2]{}]", "[\r\n    1\r\n    \"a\"\r\n    [\r\n        2\r\n    ]\r\n    {}\r\n]\r\n"},
         {"[1, 2]", "Line 1: Don't use commas to separate elements."},
         {"[1 }", "Line 1: Unexpected '}'."}});
}

TEST(ConfigText, CommentsStandWhereWhitespaceMay) {
  check(parse_text, {{"// first\n{ // second\n a // third\n : // fourth\n 1 // fifth\n } // sixth",
                      "{\r\n    a : 1\r\n}\r\n"},
                     {"", kEnd},
                     {"// only", kEnd},
                     {"{ // open", kEnd},
                     {"{ a : 1 // open", kEnd},
                     {std::string("{ a \0: 1 }", 10), kEnd},
                     {"{ / }", "Line 1: Expected colon after identifier."},
                     {"[ / ]", "Line 1: Invalid integer literal."}});
}

TEST(ConfigJson, TakesCommasAndQuotedKeysOnly) {
  check(parse_json,
        {{"{}", "{}"},
         {R"({"a b": 1, "c": [1, "x", []], "d": {"e": -2}})",
          "{\r\n    a\\ b : 1\r\n    c : [\r\n        1\r\n        \"x\"\r\n        [\r\n        ]\r\n"
          "    ]\r\n    d : {\r\n        e : -2\r\n    }\r\n}\r\n"},
         {R"({a: 1})", "Line 1: Expected object key string."},
         {R"({"a": 1,})", "Line 1: Expected object key string."},
         {R"({"a": 1 "b": 2})", "Line 1: Expected ',' before object key string."},
         {R"({, "a": 1})", "Line 1: Unexpected ','."},
         {R"({"a": 1,, "b": 2})", "Line 1: Unexpected ','."},
         {R"({"a": ,})", "Line 1: Unexpected ','."},
         {R"({"a" 1})", "Line 1: Expected colon after object key string."},
         {R"({"a": 1, "a": 2})", "Line 1: Duplicate key in object."},
         {"[1 2]", "Line 1: Expected ',' before identifier."},
         {"[,1]", "Line 1: Unexpected ','."},
         {"[1,,2]", "Line 1: Unexpected ','."},
         {"[1,]", "Line 1: Unexpected ']'."},
         {"[1", kEnd}});
}

TEST(ConfigParser, DeepNestingIsRefusedBeforeTheStackEnds) {
  for (const Parse parse : {parse_text, parse_json}) {
    EXPECT_NO_THROW(parse(std::string(500, '[') + std::string(500, ']')));
    EXPECT_EQ(outcome(parse, std::string(501, '[') + std::string(501, ']')), "Line 1: Nesting is too deep.");
    EXPECT_NO_THROW(parse("[" + std::string(parse == parse_json ? "[],[]" : "[][]") + "]"));
    EXPECT_EQ(outcome(parse, std::string(1000000, '[')), "Line 1: Nesting is too deep.");
  }
}

const std::string kSample =
    "// head\r\n{\r\n    Action : \"Custom\\\"Compute\"   //  side\r\n    Com\\ pute : {\r\n"
    "        Sizes : [ 100 -2 \"true\" { a : 1 } ]\r\n    }\r\n}\r\n";
const std::string kJsonSample =
    R"({ "Action": "Custom\\Compute", "x": { "Sizes": [100, -2, "true", {"a": 1}] } })";

TEST(ConfigParser, EveryTruncationOfAValidFileFailsInTheFamily) {
  const auto check_truncations = [](Parse parse, std::string_view text) {
    const u64 complete = text.rfind('}') + 1;
    ASSERT_NO_THROW(parse(text));
    for (u64 length = 0; length < complete; length++) {
      // A copy on the heap, so that a sanitizer sees a read past the end.
      const std::string part(text.substr(0, length));
      EXPECT_THROW(parse(part), StringException) << part;
    }
  };
  check_truncations(parse_text, kSample);
  check_truncations(parse_json, kJsonSample);
}

TEST(ConfigParser, DamagedTextIsReadOrRefusedInTheFamily) {
  const u32 seed = 20260301;
  std::mt19937 random(seed);
  const std::string bytes = "{}[]:,\"\\/ \t\r\n-09a\x01\x80\xff" + std::string(1, '\0');
  u64 read = 0, refused = 0;
  for (int round = 0; round < 20000; round++) {
    const Parse parse = round % 2 == 0 ? parse_text : parse_json;
    std::string text = round % 2 == 0 ? kSample : kJsonSample;
    for (u64 edits = random() % 4 + 1; edits > 0; edits--) {
      const u64 at = random() % text.size();
      const char byte = bytes[random() % bytes.size()];
      if (random() % 3 == 0) {
        text.insert(at, 1, byte);
      } else if (random() % 2 == 0) {
        text.erase(at, random() % 5);
      } else {
        text[at] = byte;
      }
    }
    try {
      const std::unique_ptr<Value> value = parse(text);
      read++;
      ASSERT_TRUE(same_content(*parse_text(to_string(*value)), *value)) << "seed " << seed << ": " << text;
    } catch (const StringException&) {
      refused++;
    }
  }
  EXPECT_GT(read, 1000u);
  EXPECT_GT(refused, 1000u);
}

TEST(ConfigFile, IsReadWholeOrRefusedByItsPath) {
  const std::string path = testing::TempDir() + "config_file_test.cfg";
  Object root;
  root.add_string("Long", std::string(10000, 'x'));
  root.add_integer("Last", 7);
  save_file(path, to_string(root));
  EXPECT_TRUE(same_content(*load_file(path), root));
  save_file(path, "\xef\xbb\xbf" + to_string(root));  // with a byte order mark
  EXPECT_TRUE(same_content(*load_file(path), root));
  save_file(path, to_json(root));
  EXPECT_TRUE(same_content(*load_json_file(path), root));
  std::remove(path.c_str());
  const auto code = [](auto call) { return caught<FileIO::FileException>(call).code(); };
  EXPECT_EQ(code([&] { load_file(path); }), 2);
  EXPECT_NE(code([&] { load_file(testing::TempDir()); }), 0);  // a folder
  EXPECT_EQ(code([&] { load_file("/dev/zero"); }), 0);         // it has no end: refused before it is opened
  EXPECT_EQ(code([&] { save_file(path + "/inside", "x"); }), 2);
  EXPECT_EQ(code([&] { save_file("/dev/full", "x"); }), 28);
}

}  // namespace
}  // namespace orl::test
