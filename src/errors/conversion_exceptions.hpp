#pragma once

// What the conversion code throws where it finds a fault. Only the decode
// driver and the encode builtin catch these and raise the public identifier
// of the same stem; the what() texts are for debugging, never shown.
// members() gives the texts that become the public error's arguments.
//
// The decode classes come from the identifier list, one per
// DOVRA_CONVERSION_KEY, so a class, its key and its place in the decode
// mapping cannot drift apart.

#include <stdexcept>
#include <string>
#include <tuple>

namespace ixtal_json {

class ParseError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

// The number of arguments of a list entry picks the class's shape: no
// members, one named text, or two named first and second.
#define DOVRA_ARITY(...) DOVRA_ARITY_PICK(__VA_OPT__(__VA_ARGS__, ) 2, 1, 0)
#define DOVRA_ARITY_PICK(a, b, c, ...) c
#define DOVRA_CONCAT(a, b) DOVRA_CONCAT_NOW(a, b)
#define DOVRA_CONCAT_NOW(a, b) a##b

#define DOVRA_CONVERSION_CLASS_0(Stem, What)                                   \
  class Stem : public ParseError {                                             \
  public:                                                                      \
    Stem() : ParseError(What) {}                                               \
    std::tuple<> members() const { return {}; }                                \
  };
#define DOVRA_CONVERSION_CLASS_1(Stem, What)                                   \
  class Stem : public ParseError {                                             \
  public:                                                                      \
    explicit Stem(const std::string &text) : ParseError(What), text(text) {}   \
    auto members() const { return std::tie(text); }                            \
    std::string text;                                                          \
  };
#define DOVRA_CONVERSION_CLASS_2(Stem, What)                                   \
  class Stem : public ParseError {                                             \
  public:                                                                      \
    Stem(const std::string &first, const std::string &second)                  \
        : ParseError(What), first(first), second(second) {}                    \
    auto members() const { return std::tie(first, second); }                   \
    std::string first, second;                                                 \
  };

#define DOVRA_JSON_KEY(Name, ...)
#define DOVRA_CONVERSION_KEY(Stem, What, ...)                                  \
  DOVRA_CONCAT(DOVRA_CONVERSION_CLASS_, DOVRA_ARITY(__VA_ARGS__))(Stem, What)
#include "errors/identifiers.def"

#undef DOVRA_ARITY
#undef DOVRA_ARITY_PICK
#undef DOVRA_CONCAT
#undef DOVRA_CONCAT_NOW
#undef DOVRA_CONVERSION_CLASS_0
#undef DOVRA_CONVERSION_CLASS_1
#undef DOVRA_CONVERSION_CLASS_2

// The encoder's one failure of its own: an array of a class it cannot write.
class IxUnsupportedType : public std::invalid_argument {
public:
  explicit IxUnsupportedType(const std::string &text)
      : std::invalid_argument(text + " objects are not supported"), text(text) {
  }
  std::string text;
};

} // namespace ixtal_json
