// The value tree as the parser builds it: deep copies, moves, member order,
// embedded NUL bytes, and the messages of typed access.

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "foundation/json/value.hpp"
#include "json/parser.hpp"

namespace {

namespace fj = foundation::json;
using fj::Array;
using fj::Object;
using fj::Value;

TEST(JsonValue, CopiesAreDeepMovesTransferTheBox) {
  const std::string text = R"({"b":[1,{"c":"x"}],"a":"y\u0000z"})";
  Value source = dovra_json::parse(text);
  Value copy = source;
  copy.get<Object>()["b"].get<Array>()[1].get<Object>()["c"] = Value("changed");
  copy.get<Object>()["b"].get<Array>().emplace_back(true);
  EXPECT_EQ(source, dovra_json::parse(text));

  const Array* box = &source.get<Object>().at("b").get<Array>();
  const Value moved = std::move(source);
  EXPECT_EQ(&moved.get<Object>().at("b").get<Array>(), box);
  EXPECT_TRUE(source.is_undefined());  // a moved-from Value is Undefined, like a default one

  std::string order;
  for (const auto& [name, member] : moved.get<Object>()) order += name;
  EXPECT_EQ(order, "ab");
  EXPECT_EQ(moved.get<Object>().at("a").get<std::string>(), std::string("y\0z", 3));
  EXPECT_NE(Value(), dovra_json::parse("null"));
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

TEST(JsonValue, TypedAccessNamesHeldAndWantedAlternatives) {
  const Value all[] = {Value(), Value(fj::Null{}), Value(true), Value(1.5), Value("s"),
                       Value(Array{}), Value(Object{}), Value(1.5f)};
  const char* names[] = {"undefined", "null", "boolean", "double", "string", "array", "object", "float"};
  for (int held = 0; held < 8; ++held) {
    const std::string prefix = std::string("invalid conversion: ") + names[held] + " to ";
    const Value::Kind kind = all[held].index();
    const bool array = kind == Value::kArray, object = kind == Value::kObject, boolean = kind == Value::kBool;
    EXPECT_EQ(conversion_failure<Array>(all[held]), array ? "no failure" : prefix + "array");
    EXPECT_EQ(conversion_failure<Object>(all[held]), object ? "no failure" : prefix + "object");
    EXPECT_EQ(conversion_failure<bool>(all[held]), boolean ? "no failure" : prefix + "boolean");
  }
}

}  // namespace
