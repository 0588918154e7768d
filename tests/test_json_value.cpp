// The value tree: deep copies, moves, typed access and its messages.

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "foundation/json/value.hpp"
#include "json/parse_step.hpp"

namespace {

namespace fj = foundation::json;
using fj::Array;
using fj::Object;
using fj::Value;

TEST(json_value, DefaultIsUndefinedAndNotTheParsedNull) {
  EXPECT_TRUE(Value().is_undefined());
  EXPECT_NE(Value(), dovra_json::parse("null"));
  EXPECT_TRUE(dovra_json::parse("null").is_null());
}

TEST(json_value, ObjectsIterateInByteOrderOfTheirNames) {
  const Value v = dovra_json::parse(R"({"b":1,"a":2,"B":3,"\u00e9":4})");
  std::string order;
  for (const auto& [name, member] : v.get<Object>()) order += name + ",";
  EXPECT_EQ(order, "B,a,b,\xC3\xA9,");
}

TEST(json_value, CopiesAreDeepAndMovesTransferTheBox) {
  Value source = dovra_json::parse(R"({"a":[1,{"b":"x"}]})");
  Value copy = source;
  copy.get<Object>()["a"].get<Array>()[1].get<Object>()["b"] = Value("changed");
  copy.get<Object>()["a"].get<Array>().emplace_back(true);
  EXPECT_EQ(source, dovra_json::parse(R"({"a":[1,{"b":"x"}]})"));

  const Array* box = &source.get<Object>().at("a").get<Array>();
  Value moved = std::move(source);
  EXPECT_EQ(&moved.get<Object>().at("a").get<Array>(), box);
  EXPECT_TRUE(source.is_undefined());  // NOLINT(bugprone-use-after-move): the state is part of the contract

  copy = moved;
  EXPECT_EQ(copy, moved);
  EXPECT_NE(&copy.get<Object>().at("a").get<Array>(), box);
}

TEST(json_value, StringsKeepEmbeddedNulBytes) {
  const Value v = dovra_json::parse(R"("a\u0000b\u0000")");
  EXPECT_EQ(v.get<std::string>(), std::string("a\0b\0", 4));
}

template <class T>
std::string conversion_failure(const Value& v) {
  try {
    (void)v.get<T>();
  } catch (const std::runtime_error& e) {
    return e.what();
  }
  return "no failure";
}

TEST(json_value, TypedAccessNamesHeldAndWantedAlternatives) {
  const Value all[] = {Value(), Value(fj::Null{}), Value(true), Value(1.5), Value("s"),
                       Value(Array{}), Value(Object{}), Value(1.5f)};
  const char* names[] = {"undefined", "null", "boolean", "double", "string", "array", "object", "float"};
  for (int held = 0; held < 8; ++held) {
    const Value& v = all[held];
    ASSERT_EQ(v.index(), held);
    const std::string prefix = std::string("invalid conversion: ") + names[held] + " to ";
    if (held != Value::kArray) {
      EXPECT_EQ(conversion_failure<Array>(v), prefix + "array");
    }
    if (held != Value::kObject) {
      EXPECT_EQ(conversion_failure<Object>(v), prefix + "object");
    }
    if (held != Value::kBool) {
      EXPECT_EQ(conversion_failure<bool>(v), prefix + "boolean");
    }
  }
  EXPECT_EQ(conversion_failure<bool>(all[Value::kBool]), "no failure");
}

}  // namespace
