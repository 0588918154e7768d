#pragma once

// One key type per catalogued identifier. A key's constructor takes exactly
// the identifier's arguments, in order; the component and key texts are
// fixed by the type.

#include <string>
#include <tuple>

#include "ixtal/errors.hpp"

namespace dovra_errors {

template <const char* Component, const char* Key, class... Args>
class msg_key : public resource_core::BaseMsgID {
 public:
  static constexpr const char* component_text = Component;
  static constexpr const char* key_text = Key;
  static constexpr std::size_t arity = sizeof...(Args);

  explicit msg_key(const Args&... args) : BaseMsgID(Component, Key, sizeof...(Args)) { (add_arg(to_arg(args)), ...); }

 private:
  static resource_core::MsgArg to_arg(long v) { return v; }
  static resource_core::MsgArg to_arg(const std::string& s) { return s; }
  static resource_core::MsgArg to_arg(const std::u16string& s) { return s; }
  static resource_core::MsgArg to_arg(const char* s) { return std::string(s); }
};

using text = std::string;
using u16 = std::u16string;
using fixed11 = char[11];

inline constexpr char kJson[] = "DOVRA:IXTAL:JSON";
inline constexpr char kString[] = "IXTAL:string";
inline constexpr char kSyntactic[] = "IXTAL:checkSyntacticWarnings";
inline constexpr char kClass[] = "IXTAL:class";

// A list built by an X-macro starts with void so that each entry can begin
// with a comma; the void is dropped here.
template <class, class... Entries>
using drop_first = std::tuple<Entries...>;

#define DOVRA_KEY_NAME(name) inline constexpr char k##name[] = #name
#define DOVRA_JSON_KEY(Name, ...) DOVRA_KEY_NAME(Name);
#include "errors/identifiers.def"
DOVRA_KEY_NAME(MustBeStringScalarOrCharacterVector);
DOVRA_KEY_NAME(MissingNotSupported);
DOVRA_KEY_NAME(InvalidArgument);
DOVRA_KEY_NAME(RequireLogical);
#undef DOVRA_KEY_NAME

}  // namespace dovra_errors

namespace DOVRA::IXTAL::JSON {
using namespace dovra_errors;
#define DOVRA_JSON_KEY(Name, ...) using Name = msg_key<kJson, k##Name __VA_OPT__(, ) __VA_ARGS__>;
#include "errors/identifiers.def"
}  // namespace DOVRA::IXTAL::JSON

namespace IXTAL::string {
using MustBeStringScalarOrCharacterVector =
    dovra_errors::msg_key<dovra_errors::kString, dovra_errors::kMustBeStringScalarOrCharacterVector>;
using MissingNotSupported = dovra_errors::msg_key<dovra_errors::kString, dovra_errors::kMissingNotSupported>;
}  // namespace IXTAL::string

namespace IXTAL::checkSyntacticWarnings {
using MustBeStringScalarOrCharacterVector =
    dovra_errors::msg_key<dovra_errors::kSyntactic, dovra_errors::kMustBeStringScalarOrCharacterVector>;
}

namespace component_IXTAL::catalog_class {
// The two arguments name the option, e.g. "format", "format".
using key_InvalidArgument =
    dovra_errors::msg_key<dovra_errors::kClass, dovra_errors::kInvalidArgument, dovra_errors::fixed11,
                          dovra_errors::fixed11>;
using key_RequireLogical = dovra_errors::msg_key<dovra_errors::kClass, dovra_errors::kRequireLogical>;
}  // namespace component_IXTAL::catalog_class

namespace dovra_errors {
// Every key type the library raises, for the tests that hold the list
// against the runtime's catalog.
using all_keys = drop_first<void
#define DOVRA_JSON_KEY(Name, ...) , DOVRA::IXTAL::JSON::Name
#include "errors/identifiers.def"
                            , IXTAL::string::MustBeStringScalarOrCharacterVector, IXTAL::string::MissingNotSupported,
                            IXTAL::checkSyntacticWarnings::MustBeStringScalarOrCharacterVector,
                            component_IXTAL::catalog_class::key_InvalidArgument,
                            component_IXTAL::catalog_class::key_RequireLogical>;
}  // namespace dovra_errors
