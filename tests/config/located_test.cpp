#include "config/located.h"

#include <gtest/gtest.h>

#include "config/parser.h"

namespace orl {
namespace {

constexpr const char* kText = "{\n  A : 1\n  B : {\n    C : [ { D : 1 } { D : 2 } ]\n  } // E\n  F : { }\n}";

// What runs into `body`, which reads the object.
template <class Body>
std::string failure(const Object& object, Body&& body) {
  try {
    body(object);
  } catch (const Exception& e) {
    return e.message();
  }
  return "nothing was thrown";
}

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
    return failure(root, [&](const Object& object) {
      read_key(object, "B", [&] {
        const Object& b = object.get_object("B");
        read_key(b, inner, [&] { body(b); });
      });
    });
  };
  EXPECT_EQ(reads("C", [](const Object& b) { b.get_integer("C"); }),
            "Line 4: B.C: Expected Integer, got Array.");
  EXPECT_EQ(reads("X", [](const Object& b) { b.get("X"); }), "Line 3: B.X: Key not found: X");
  EXPECT_EQ(failure(Object(), [](const Object& o) { read_key(o, "X", [&] { o.get_bool("X"); }); }),
            "X: Key not found: X");
  EXPECT_EQ(failure(root, [](const Object& o) { read_optional_key(o, "X", [&] { o.get_bool("X"); }); }),
            "nothing was thrown");
}

TEST(Located, UnknownKeysAreFoundAtAnyDepth) {
  const auto value = parse_text(kText);
  const auto refused = [&](const char* text) {
    const auto other = parse_text(text);
    const std::string message = failure(
        root_object(*other), [&](const Object& object) { refuse_unknown_keys(object, root_object(*value)); });
    return message.substr(0, message.find(": Unknown key."));
  };
  EXPECT_EQ(refused(kText), "nothing was thrown");
  EXPECT_EQ(refused("{ A : \"another kind\" DisplayText : 1 B : { DisplayText : \"\" } }"),
            "nothing was thrown");
  EXPECT_EQ(refused("{ A : 1\n a : 1 }"), "Line 2: a");
  EXPECT_EQ(refused("{ B : {\n\n A : 1 } }"), "Line 3: B.A");
  EXPECT_EQ(refused("{ B : { C : [ { D : 1 }\n { E : 1 } ] } }"), "Line 2: B.C.E");
  EXPECT_EQ(refused("{ F : { A : 1 } }"), "Line 1: F.A");
}

}  // namespace
}  // namespace orl
