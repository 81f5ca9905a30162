#include "config/object.h"

#include <gtest/gtest.h>

#include "support/thrown.h"

namespace orl::test {
namespace {

Object sample() {
  Object object;
  object.add_integer("zeta", -3);
  object.add_string("alpha", "text");
  object.add_bool("flag", true);
  Array array;
  array.add_integer(1);
  object.add_array("list", std::move(array));
  object.add_object("inner", std::make_unique<Object>());
  return object;
}

TEST(ConfigObject, KeepsTheOrderOfInsertionAndFindsByKey) {
  const Object object = sample();
  std::string order;
  for (const Object::Node& node : object.nodes()) order += node.key + " ";
  EXPECT_EQ(order, "zeta alpha flag list inner ");
  EXPECT_EQ(object.get_integer("zeta"), -3);
  Object with_unit;
  with_unit.add_node("size", std::make_unique<Integer>(8000000, 'M'));
  EXPECT_EQ(with_unit.get_count("size"), 8000000);
  EXPECT_THROW(with_unit.get_integer("size"), InvalidParametersException);  // bytes have units of their own
  EXPECT_EQ(object.get_string("alpha"), "text");
  EXPECT_TRUE(object.get_bool("flag"));
  EXPECT_EQ(object.get_array("list")[0].as_integer("").value, 1);
  EXPECT_TRUE(object.get_object("inner").nodes().empty());
  EXPECT_FALSE(object.contains("nothing"));
}

TEST(ConfigObject, ExistingKeyIsRefusedByTheNameOfTheOperationAndChangesNothing) {
  Object object = sample();
  const auto refused = [](auto call) { return refusal<InvalidParametersException>(call); };
  const std::string words = "() Attempted to add an existing key.";
  EXPECT_EQ(refused([&] { object.add_integer("alpha", 1); }), "Object::add_integer" + words);
  EXPECT_EQ(refused([&] { object.add_string("alpha", "x"); }), "Object::add_string" + words);
  EXPECT_EQ(refused([&] { object.add_array("alpha", Array()); }), "Object::add_array" + words);
  EXPECT_EQ(refused([&] { object.add_object("alpha", Object()); }), "Object::add_object" + words);
  EXPECT_EQ(refused([&] { object.add_node("alpha", std::make_unique<Integer>(1)); }),
            "Object::add_node" + words);
  EXPECT_TRUE(same_content(object, sample()));
}

TEST(ConfigObject, MissingKeyIsNamed) {
  const Object object = sample();
  EXPECT_NE(refusal<KeyNotFoundException>([&] { object.get_integer("Lanes"); }).find("Lanes"),
            std::string::npos);
}

TEST(ConfigObject, WrongKindIsToldWithBothKinds) {
  const Object object = sample();
  const auto refused = [](auto call) { return refusal<InvalidParametersException>(call); };
  const std::string kind = "Value::check_kind() ";
  EXPECT_EQ(refused([&] { object.get_bool("zeta"); }), kind + "zeta: Expected String, got Integer.");
  EXPECT_EQ(refused([&] { object.get_integer("alpha"); }), kind + "alpha: Expected Integer, got String.");
  EXPECT_EQ(refused([&] { object.get_array("inner"); }), kind + "inner: Expected Array, got Object.");
  EXPECT_EQ(refused([&] { root_object(String("x")); }), kind + "Expected Object, got String.");
  EXPECT_EQ(refusal<ParseException>([&] { object.get_bool("alpha"); }),
            "Object::get_bool() Expected true or false.");
  EXPECT_STREQ(kind_name(static_cast<ValueKind>(4)), "invalid type");
}

TEST(ConfigObject, SameContentSeesEveryDifferenceButComments) {
  Object other = sample();
  other.comment = "a comment";
  EXPECT_TRUE(same_content(sample(), other));
  other.add_integer("more", 1);
  EXPECT_FALSE(same_content(sample(), other));
  EXPECT_FALSE(same_content(Integer(1), Integer(2)));
  EXPECT_FALSE(same_content(Integer(1), String("1")));
  Object forward, backward;
  forward.add_integer("a", 1);
  forward.add_integer("b", 1);
  backward.add_integer("b", 1);
  backward.add_integer("a", 1);
  EXPECT_FALSE(same_content(forward, backward));
}

}  // namespace
}  // namespace orl::test
