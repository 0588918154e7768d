#pragma once

// What the conversion code throws where it finds a fault. Only the decode
// driver and the encode builtin catch these and raise the public identifier
// of the same stem; the what() texts are for debugging, never shown.
// members() gives the texts that become the public error's arguments.

#include <stdexcept>
#include <string>
#include <tuple>

namespace ixtal_json {

class ParseError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class InvalidTNSize : public ParseError {
 public:
  InvalidTNSize() : ParseError("\"tnsize\" must be an array of 2 or more positive integers") {}
  std::tuple<> members() const { return {}; }
};

class InvalidTNDataType : public ParseError {
 public:
  // The class name and the JSON kind "tndata" must have.
  InvalidTNDataType(const std::string& first, const std::string& second)
      : ParseError("\"tndata\" for " + first + " arrays must be a " + second), first(first), second(second) {}
  auto members() const { return std::tie(first, second); }
  std::string first, second;
};

class InvalidPropertyType : public ParseError {
 public:
  // The key and the JSON kind its value must have.
  InvalidPropertyType(const std::string& first, const std::string& second)
      : ParseError("\"" + first + "\" must be a " + second), first(first), second(second) {}
  auto members() const { return std::tie(first, second); }
  std::string first, second;
};

class MissingTNSizeOrTNData : public ParseError {
 public:
  MissingTNSizeOrTNData() : ParseError("JSON object with \"tntype\" must have \"tnsize\" and \"tndata\"") {}
  std::tuple<> members() const { return {}; }
};

class MissingTNTypeOrTNSize : public ParseError {
 public:
  MissingTNTypeOrTNSize()
      : ParseError(
            "JSON object with \"tndata\" must have \"tntype\" and \"tnsize\", unless \"tndata\" is \"NaN\", "
            "\"Inf\", or \"-Inf\"") {}
  std::tuple<> members() const { return {}; }
};

class IncompleteComplexData : public ParseError {
 public:
  IncompleteComplexData() : ParseError("Complex data is incomplete") {}
  std::tuple<> members() const { return {}; }
};

class InvalidTNType : public ParseError {
 public:
  explicit InvalidTNType(const std::string& text) : ParseError("Unsupported \"tntype\": " + text), text(text) {}
  auto members() const { return std::tie(text); }
  std::string text;
};

class InvalidCharArrayTNData : public ParseError {
 public:
  InvalidCharArrayTNData() : ParseError("\"tndata\" for char array must be in the format [\"<data>\"]") {}
  std::tuple<> members() const { return {}; }
};

class NullNotSupported : public ParseError {
 public:
  NullNotSupported() : ParseError("JSON null not supported") {}
  std::tuple<> members() const { return {}; }
};

class InvalidArrayElemType : public ParseError {
 public:
  InvalidArrayElemType()
      : ParseError(
            "Array in small notation must contain JSON numbers, JSON booleans, or {\"tndata\":\"NaN\"}, "
            "{\"tndata\":\"Inf\"}, or {\"tndata\":\"-Inf\"}") {}
  std::tuple<> members() const { return {}; }
};

class ArrayInconsistentDepths : public ParseError {
 public:
  ArrayInconsistentDepths() : ParseError("Nested arrays in small notation does not have consistent depths") {}
  std::tuple<> members() const { return {}; }
};

class ArrayInconsistentSizes : public ParseError {
 public:
  ArrayInconsistentSizes() : ParseError("Nested arrays in small notation does not have consistent sizes") {}
  std::tuple<> members() const { return {}; }
};

class MismatchedTNSize : public ParseError {
 public:
  MismatchedTNSize() : ParseError("Data size does not match \"tnsize\" specified.") {}
  std::tuple<> members() const { return {}; }
};

class InvalidFloatingElem : public ParseError {
 public:
  // The class name.
  explicit InvalidFloatingElem(const std::string& text)
      : ParseError("Invalid value for type " + text +
                   ". Expected a number or one of the following:\"NaN\", \"Inf\", \"-Inf\", {\"tndata\":\"NaN\"}, "
                   "{\"tndata\":\"Inf\"}, {\"tndata\":\"-Inf\"}"),
        text(text) {}
  auto members() const { return std::tie(text); }
  std::string text;
};

class InvalidIntegralElem : public ParseError {
 public:
  // The class name.
  explicit InvalidIntegralElem(const std::string& text)
      : ParseError("Invalid value for type " + text + ". Expected an integral number"), text(text) {}
  auto members() const { return std::tie(text); }
  std::string text;
};

class InvalidLogicalElem : public ParseError {
 public:
  InvalidLogicalElem() : ParseError("Invalid value for type logical. Expected true or false") {}
  std::tuple<> members() const { return {}; }
};

class ArrayInconsistentTypes : public ParseError {
 public:
  // The kind expected and the kind met.
  ArrayInconsistentTypes(const std::string& first, const std::string& second)
      : ParseError("Array in small notation has both " + first + " and " + second + " types. Expected one type."),
        first(first), second(second) {}
  auto members() const { return std::tie(first, second); }
  std::string first, second;
};

// The encoder's one failure of its own: an array of a class it cannot write.
class IxUnsupportedType : public std::invalid_argument {
 public:
  explicit IxUnsupportedType(const std::string& text)
      : std::invalid_argument(text + " objects are not supported"), text(text) {}
  std::string text;
};

}  // namespace ixtal_json
