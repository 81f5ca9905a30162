#include "config/writer.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>

#include "config/parser.h"
#include "support/thrown.h"

namespace orl::test {
namespace {

Object commented_sample() {
  Object inner;
  inner.comment = "of the object";
  inner.add_string("Text", "say \"a\\b\"", "first line\r\nsecond line");
  inner.add_object("Empty", Object());
  Array list;
  list.comment = "of the list";
  list.add_integer(-1);
  list.add_object(Object());
  list.add_array(Array());
  Object root;
  root.add_object("Inner", std::move(inner));
  root.add_array("List", std::move(list), "before the list");
  return root;
}

TEST(ConfigWriter, PrimaryFormToTheByte) {
  EXPECT_EQ(to_string(commented_sample()),
            "{\r\n"
            "    Inner : {   //  of the object\r\n"
            "        //  first line\r\n"
            "        //  second line\r\n"
            "        Text : \"say \\\"a\\\\b\\\"\"\r\n"
            "        Empty : {}\r\n"
            "    }\r\n"
            "    //  before the list\r\n"
            "    List : [   //  of the list\r\n"
            "        -1\r\n"
            "        {}\r\n"
            "        [\r\n"
            "        ]\r\n"
            "    ]\r\n"
            "}\r\n");
  EXPECT_EQ(to_string(Object()), "{}");
}

TEST(ConfigWriter, JsonFormToTheByte) {
  EXPECT_EQ(to_json(commented_sample()),
            "{\r\n"
            "    \"Inner\": {\r\n"
            "        \"Text\": \"say \\\"a\\\\b\\\"\",\r\n"
            "        \"Empty\": {}\r\n"
            "    },\r\n"
            "    \"List\": [\r\n"
            "        -1,\r\n"
            "        {},\r\n"
            "        [\r\n"
            "        ]\r\n"
            "    ]\r\n"
            "}\r\n");
}

TEST(ConfigWriter, IndentIsTheLevelOfTheFirstLine) {
  Object object;
  object.add_integer("a", 1);
  EXPECT_EQ(to_string(object, 2), "{\r\n            a : 1\r\n        }\r\n");
}

TEST(ConfigWriter, SideCommentOfSeveralLinesStaysAComment) {
  Object object;
  auto value = std::make_unique<Integer>(5);
  value->comment = "one\n} two";
  object.add_node("a", std::move(value));
  EXPECT_EQ(to_string(object), "{\r\n    a : 5   //  one\r\n    //  } two\r\n}\r\n");
  EXPECT_TRUE(same_content(*parse_text(to_string(object)), object));
}

class Foreign final : public Value {
 public:
  Foreign() : Value(static_cast<ValueKind>(7)) {}
};

TEST(ConfigWriter, RefusesWhatTheFormCannotHold) {
  const auto refusal = [](const Value& value) {
    return message_of<InvalidParametersException>([&] { to_string(value); });
  };
  Object empty_key, zero_key;
  empty_key.add_integer("", 1);
  zero_key.add_integer(std::string("a\0b", 3), 1);
  EXPECT_EQ(refusal(empty_key), "A key cannot be empty.");
  EXPECT_EQ(refusal(zero_key), "Key holds a byte of zero.");
  EXPECT_EQ(refusal(String(std::string("\0", 1))), "String holds a byte of zero.");
  EXPECT_EQ(refusal(Foreign()), "Invalid object type: 7");
}

/// Trees with awkward texts: what the grammar uses, control characters, bytes above 127.
class RandomTree {
 public:
  explicit RandomTree(u32 seed) : random_(seed) {}

  std::unique_ptr<Value> value(u32 depth) {
    const u32 kind = random_() % (depth == 0 ? 2 : 4);
    std::unique_ptr<Value> result;
    if (kind == 0) result = std::make_unique<Integer>(integer());
    if (kind == 1) result = std::make_unique<String>(text());
    if (kind == 2) {
      auto array = std::make_unique<Array>();
      for (u64 count = random_() % 5; count > 0; count--) array->add(value(depth - 1));
      result = std::move(array);
    }
    if (kind == 3) {
      auto object = std::make_unique<Object>();
      for (u64 count = random_() % 5; count > 0; count--) {
        std::string key = "k" + text();
        if (random_() % 2 == 0) std::swap(key.front(), key.back());
        if (!object->contains(key)) object->add_node(std::move(key), value(depth - 1), text());
      }
      result = std::move(object);
    }
    result->comment = text();
    return result;
  }

 private:
  s64 integer() {
    const s64 edges[] = {0, -1, std::numeric_limits<s64>::min(), std::numeric_limits<s64>::max()};
    return random_() % 2 == 0 ? edges[random_() % 4] : static_cast<s64>(random_());
  }
  std::string text() {
    const std::string bytes = "{}[]:,\"\\///  \t\r\n\x01\x1f\x7f\x80\xff-09az";
    std::string result;
    for (u64 length = random_() % 8; length > 0; length--) result += bytes[random_() % bytes.size()];
    return result;
  }

  std::mt19937 random_;
};

TEST(ConfigRoundTrip, WritingAndReadingIsTheIdentityInBothForms) {
  for (u32 seed = 1; seed <= 3000; seed++) {
    const std::unique_ptr<Value> tree = RandomTree(seed).value(4);
    ASSERT_TRUE(same_content(*parse_text(to_string(*tree)), *tree)) << "seed " << seed << "\n"
                                                                    << to_string(*tree);
    ASSERT_TRUE(same_content(*parse_json(to_json(*tree)), *tree)) << "seed " << seed << "\n"
                                                                  << to_json(*tree);
    ASSERT_EQ(to_json(*parse_json(to_json(*tree))), to_json(*tree)) << "seed " << seed;
  }
}

}  // namespace
}  // namespace orl::test
