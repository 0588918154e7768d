#pragma once

// One key type per catalogued identifier. A key's constructor takes exactly
// the identifier's arguments, in order; the component and key texts are
// fixed by the type.

#include <string>

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

#define DOVRA_KEY_NAME(name) inline constexpr char k##name[] = #name
DOVRA_KEY_NAME(DecodeJsonErrPrefix);
DOVRA_KEY_NAME(DecodeJsonErrSuffix);
DOVRA_KEY_NAME(DecodeCharInvalidUnicodeEscape);
DOVRA_KEY_NAME(DecodeCharInvalidEscape);
DOVRA_KEY_NAME(DecodeNumberInvalidFractionalComponent);
DOVRA_KEY_NAME(DecodeNumberInvalidExponent);
DOVRA_KEY_NAME(DecodeObjectNoColonAfterName);
DOVRA_KEY_NAME(DecodeIncomplete);
DOVRA_KEY_NAME(DecodeUnexpectedValue);
DOVRA_KEY_NAME(DecodeNestingTooDeep);
DOVRA_KEY_NAME(DecodeInvalidTNSize);
DOVRA_KEY_NAME(DecodeInvalidTNDataType);
DOVRA_KEY_NAME(DecodeInvalidPropertyType);
DOVRA_KEY_NAME(DecodeMissingTNSizeOrTNData);
DOVRA_KEY_NAME(DecodeMissingTNTypeOrTNSize);
DOVRA_KEY_NAME(DecodeIncompleteComplexData);
DOVRA_KEY_NAME(DecodeInvalidTNType);
DOVRA_KEY_NAME(DecodeInvalidCharArrayTNData);
DOVRA_KEY_NAME(DecodeNullNotSupported);
DOVRA_KEY_NAME(DecodeInvalidArrayElemType);
DOVRA_KEY_NAME(DecodeArrayInconsistentDepths);
DOVRA_KEY_NAME(DecodeArrayInconsistentSizes);
DOVRA_KEY_NAME(DecodeArrayInconsistentTypes);
DOVRA_KEY_NAME(DecodeMismatchedTNSize);
DOVRA_KEY_NAME(DecodeInvalidFloatingElem);
DOVRA_KEY_NAME(DecodeInvalidIntegralElem);
DOVRA_KEY_NAME(DecodeInvalidLogicalElem);
DOVRA_KEY_NAME(EncodeUnsupportedType);
DOVRA_KEY_NAME(EncodeNestingTooDeep);
DOVRA_KEY_NAME(MustBeStringScalarOrCharacterVector);
DOVRA_KEY_NAME(MissingNotSupported);
DOVRA_KEY_NAME(InvalidArgument);
DOVRA_KEY_NAME(RequireLogical);
#undef DOVRA_KEY_NAME

}  // namespace dovra_errors

namespace DOVRA::IXTAL::JSON {
using namespace dovra_errors;
// Message texts only: the position prefix and the context suffix of a parse error.
using DecodeJsonErrPrefix = msg_key<kJson, kDecodeJsonErrPrefix, long, long, long>;
using DecodeJsonErrSuffix = msg_key<kJson, kDecodeJsonErrSuffix, text, text>;
// Parse errors: the prefix and suffix texts.
using DecodeCharInvalidUnicodeEscape = msg_key<kJson, kDecodeCharInvalidUnicodeEscape, u16, u16>;
using DecodeCharInvalidEscape = msg_key<kJson, kDecodeCharInvalidEscape, u16, u16>;
using DecodeNumberInvalidFractionalComponent = msg_key<kJson, kDecodeNumberInvalidFractionalComponent, u16, u16>;
using DecodeNumberInvalidExponent = msg_key<kJson, kDecodeNumberInvalidExponent, u16, u16>;
using DecodeObjectNoColonAfterName = msg_key<kJson, kDecodeObjectNoColonAfterName, u16, u16>;
using DecodeIncomplete = msg_key<kJson, kDecodeIncomplete, u16, u16>;
using DecodeUnexpectedValue = msg_key<kJson, kDecodeUnexpectedValue, u16, u16>;
using DecodeNestingTooDeep = msg_key<kJson, kDecodeNestingTooDeep, u16, u16>;
// Conversion errors.
using DecodeInvalidTNSize = msg_key<kJson, kDecodeInvalidTNSize>;
using DecodeInvalidTNDataType = msg_key<kJson, kDecodeInvalidTNDataType, text, text>;
using DecodeInvalidPropertyType = msg_key<kJson, kDecodeInvalidPropertyType, text, text>;
using DecodeMissingTNSizeOrTNData = msg_key<kJson, kDecodeMissingTNSizeOrTNData>;
using DecodeMissingTNTypeOrTNSize = msg_key<kJson, kDecodeMissingTNTypeOrTNSize>;
using DecodeIncompleteComplexData = msg_key<kJson, kDecodeIncompleteComplexData>;
using DecodeInvalidTNType = msg_key<kJson, kDecodeInvalidTNType, text>;
using DecodeInvalidCharArrayTNData = msg_key<kJson, kDecodeInvalidCharArrayTNData>;
using DecodeNullNotSupported = msg_key<kJson, kDecodeNullNotSupported>;
using DecodeInvalidArrayElemType = msg_key<kJson, kDecodeInvalidArrayElemType>;
using DecodeArrayInconsistentDepths = msg_key<kJson, kDecodeArrayInconsistentDepths>;
using DecodeArrayInconsistentSizes = msg_key<kJson, kDecodeArrayInconsistentSizes>;
using DecodeArrayInconsistentTypes = msg_key<kJson, kDecodeArrayInconsistentTypes, text, text>;
using DecodeMismatchedTNSize = msg_key<kJson, kDecodeMismatchedTNSize>;
using DecodeInvalidFloatingElem = msg_key<kJson, kDecodeInvalidFloatingElem, text>;
using DecodeInvalidIntegralElem = msg_key<kJson, kDecodeInvalidIntegralElem, text>;
using DecodeInvalidLogicalElem = msg_key<kJson, kDecodeInvalidLogicalElem>;
using EncodeUnsupportedType = msg_key<kJson, kEncodeUnsupportedType, text>;
// Cell and structure arrays nested deeper than the encoder follows.
using EncodeNestingTooDeep = msg_key<kJson, kEncodeNestingTooDeep>;
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
