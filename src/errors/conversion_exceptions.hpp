#pragma once

// What the conversion code throws where it finds a fault. Only the decode
// driver and the encode builtin catch these and raise the public identifier
// of the same stem; the what() texts are for debugging, never shown.
// members() gives the texts that become the public error's arguments.
//
// Each carries the path to the value it is about. The path is not kept as
// the conversion descends: each level it passes through adds its step as
// the exception unwinds (at_path), so a conversion that succeeds pays
// nothing for it.
//
// The decode classes come from the identifier list, one per
// DOVRA_CONVERSION_KEY, so a class, its key and its place in the decode
// mapping cannot drift apart.

#include <stdexcept>
#include <string>
#include <tuple>
#include <utility>

#include "json/value_path.hpp"

namespace ixtal_json {

class ParseError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;

  // Adds the steps, outermost first, from an enclosing value to the one
  // the path so far starts at.
  template <class Outer, class... Inner>
  void enter(const Outer &outer, const Inner &...inner) {
    enter(inner...);
    inner_first_.emplace_back(outer);
  }
  void enter() {}

  // From the value whose conversion threw to the value at fault.
  dovra_json::ValuePath path() const {
    return dovra_json::ValuePath(inner_first_.rbegin(), inner_first_.rend());
  }

private:
  dovra_json::ValuePath inner_first_;
};

// e with the steps from the value being converted to the value at fault,
// for a throw site that knows them: throw fault_at(InvalidTNSize(), keys::tnsize, i).
template <class E, class... Steps> E fault_at(E e, const Steps &...steps) {
  e.enter(steps...);
  return e;
}

// Runs f, the conversion of the value that steps lead to from the value
// being converted; a fault inside it gets the steps in front of its path.
template <class F, class... Steps>
decltype(auto) at_path(F &&f, const Steps &...steps) {
  try {
    return std::forward<F>(f)();
  } catch (ParseError &e) {
    e.enter(steps...);
    throw;
  }
}

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
