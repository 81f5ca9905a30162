#include "config/located.h"

#include <gtest/gtest.h>

#include "config/parser.h"
#include "support/thrown.h"

namespace orl::test {
namespace {

constexpr const char* kText = "{\n  A : 1\n  B : {\n    C : [ { D : 1 } { D : 2 } ]\n  } // E\n  F : { }\n}";

TEST(Located, ValuesKnowTheirLineAndCopiesToo) {
  const auto value = parse_text(kText);
  const Object copy = copy_of(root_object(*value));
  EXPECT_TRUE(same_content(copy, *value));
  EXPECT_EQ(copy.line, 1u);
  EXPECT_EQ(copy.get("A").line, 2u);
  EXPECT_EQ(copy.get_object("B").get_array("C")[1].line, 4u);
  EXPECT_EQ(copy.get("F").line, 6u);
  EXPECT_EQ(Integer(3).line, 0u);
}

TEST(Located, FailuresNameTheWayFromTheRoot) {
  const auto value = parse_text(kText);
  const Object& root = root_object(*value);
  const auto reads = [&](const char* inner, auto body) {
    return message_of([&] {
      read_key(root, "B", [&] {
        const Object& b = root.get_object("B");
        read_key(b, inner, [&] { body(b); });
      });
    });
  };
  EXPECT_EQ(reads("C", [](const Object& b) { b.get_integer("C"); }),
            "Line 4: B.C: Expected Integer, got Array.");
  EXPECT_EQ(reads("X", [](const Object& b) { b.get("X"); }), "Line 3: B.X: Key not found: X");
  const Object none;
  EXPECT_EQ(message_of([&] { read_key(none, "X", [&] { none.get_bool("X"); }); }), "X: Key not found: X");
  EXPECT_NO_THROW(read_optional_key(root, "X", [&] { root.get_bool("X"); }));
}

TEST(Located, UnknownKeysAreFoundAtAnyDepth) {
  const auto value = parse_text(kText);
  const auto refused = [&](const char* text) {
    const auto other = parse_text(text);
    const std::string message =
        message_of([&] { refuse_unknown_keys(root_object(*other), root_object(*value)); });
    return message.substr(0, message.find(": Unknown key."));
  };
  EXPECT_EQ(refused(kText), "accepted");
  EXPECT_EQ(refused("{ A : \"another kind\" DisplayText : 1 B : { DisplayText : \"\" } }"), "accepted");
  EXPECT_EQ(refused("{ A : 1\n a : 1 }"), "Line 2: a");
  EXPECT_EQ(refused("{ B : {\n\n A : 1 } }"), "Line 3: B.A");
  EXPECT_EQ(refused("{ B : { C : [ { D : 1 }\n { E : 1 } ] } }"), "Line 2: B.C.E");
  EXPECT_EQ(refused("{ F : { A : 1 } }"), "Line 1: F.A");
}

}  // namespace
}  // namespace orl::test
