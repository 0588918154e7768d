// Every catalogued identifier: its key type, argument list, catalog text,
// and the path from an internal exception to the public error.

#include <gtest/gtest.h>

#include <functional>
#include <set>

#include "errors/decode_errors.hpp"
#include "errors/ix_err_msg_id.hpp"
#include "errors/keys.hpp"
#include "ixtal/catalog.hpp"
#include "support/host.hpp"

namespace {

using resource_core::MsgArg;
using dovra_test::describe;
namespace J = DOVRA::IXTAL::JSON;

struct KeyRow {
  std::function<resource_core::BaseMsgID()> make;
  std::string identifier;
  std::vector<MsgArg> args;
};

const char kFormat[11] = "format";
const char kNanInf[11] = "nanInfType";

// One row per identifier, arguments in their order; distinct argument values
// so that a swapped pair shows.
const std::vector<KeyRow>& key_rows() {
  static const std::vector<KeyRow> rows = {
      {[] { return J::DecodeJsonErrPrefix(3, 7, 25); }, "DOVRA:IXTAL:JSON:DecodeJsonErrPrefix", {3L, 7L, 25L}},
      {[] { return J::DecodeJsonErrSuffix("ctx", "  ^"); }, "DOVRA:IXTAL:JSON:DecodeJsonErrSuffix", {std::string("ctx"), std::string("  ^")}},
      {[] { return J::DecodeCharInvalidUnicodeEscape(u"p", u"s"); }, "DOVRA:IXTAL:JSON:DecodeCharInvalidUnicodeEscape", {std::u16string(u"p"), std::u16string(u"s")}},
      {[] { return J::DecodeCharInvalidEscape(u"p", u"s"); }, "DOVRA:IXTAL:JSON:DecodeCharInvalidEscape", {std::u16string(u"p"), std::u16string(u"s")}},
      {[] { return J::DecodeNumberInvalidFractionalComponent(u"p", u"s"); }, "DOVRA:IXTAL:JSON:DecodeNumberInvalidFractionalComponent", {std::u16string(u"p"), std::u16string(u"s")}},
      {[] { return J::DecodeNumberInvalidExponent(u"p", u"s"); }, "DOVRA:IXTAL:JSON:DecodeNumberInvalidExponent", {std::u16string(u"p"), std::u16string(u"s")}},
      {[] { return J::DecodeObjectNoColonAfterName(u"p", u"s"); }, "DOVRA:IXTAL:JSON:DecodeObjectNoColonAfterName", {std::u16string(u"p"), std::u16string(u"s")}},
      {[] { return J::DecodeIncomplete(u"p", u"s"); }, "DOVRA:IXTAL:JSON:DecodeIncomplete", {std::u16string(u"p"), std::u16string(u"s")}},
      {[] { return J::DecodeUnexpectedValue(u"p", u"s"); }, "DOVRA:IXTAL:JSON:DecodeUnexpectedValue", {std::u16string(u"p"), std::u16string(u"s")}},
      {[] { return J::DecodeNestingTooDeep(u"p", u"s"); }, "DOVRA:IXTAL:JSON:DecodeNestingTooDeep", {std::u16string(u"p"), std::u16string(u"s")}},
      {[] { return J::DecodeInvalidTNSize(); }, "DOVRA:IXTAL:JSON:DecodeInvalidTNSize", {}},
      {[] { return J::DecodeInvalidTNDataType("double", "array"); }, "DOVRA:IXTAL:JSON:DecodeInvalidTNDataType", {std::string("double"), std::string("array")}},
      {[] { return J::DecodeInvalidPropertyType("tnsize", "array"); }, "DOVRA:IXTAL:JSON:DecodeInvalidPropertyType", {std::string("tnsize"), std::string("array")}},
      {[] { return J::DecodeMissingTNSizeOrTNData(); }, "DOVRA:IXTAL:JSON:DecodeMissingTNSizeOrTNData", {}},
      {[] { return J::DecodeMissingTNTypeOrTNSize(); }, "DOVRA:IXTAL:JSON:DecodeMissingTNTypeOrTNSize", {}},
      {[] { return J::DecodeIncompleteComplexData(); }, "DOVRA:IXTAL:JSON:DecodeIncompleteComplexData", {}},
      {[] { return J::DecodeInvalidTNType("quaternion"); }, "DOVRA:IXTAL:JSON:DecodeInvalidTNType", {std::string("quaternion")}},
      {[] { return J::DecodeInvalidCharArrayTNData(); }, "DOVRA:IXTAL:JSON:DecodeInvalidCharArrayTNData", {}},
      {[] { return J::DecodeNullNotSupported(); }, "DOVRA:IXTAL:JSON:DecodeNullNotSupported", {}},
      {[] { return J::DecodeInvalidArrayElemType(); }, "DOVRA:IXTAL:JSON:DecodeInvalidArrayElemType", {}},
      {[] { return J::DecodeArrayInconsistentDepths(); }, "DOVRA:IXTAL:JSON:DecodeArrayInconsistentDepths", {}},
      {[] { return J::DecodeArrayInconsistentSizes(); }, "DOVRA:IXTAL:JSON:DecodeArrayInconsistentSizes", {}},
      {[] { return J::DecodeArrayInconsistentTypes("double", "logical"); }, "DOVRA:IXTAL:JSON:DecodeArrayInconsistentTypes", {std::string("double"), std::string("logical")}},
      {[] { return J::DecodeMismatchedTNSize(); }, "DOVRA:IXTAL:JSON:DecodeMismatchedTNSize", {}},
      {[] { return J::DecodeInvalidFloatingElem("single"); }, "DOVRA:IXTAL:JSON:DecodeInvalidFloatingElem", {std::string("single")}},
      {[] { return J::DecodeInvalidIntegralElem("int8"); }, "DOVRA:IXTAL:JSON:DecodeInvalidIntegralElem", {std::string("int8")}},
      {[] { return J::DecodeInvalidLogicalElem(); }, "DOVRA:IXTAL:JSON:DecodeInvalidLogicalElem", {}},
      {[] { return J::EncodeUnsupportedType("function_handle"); }, "DOVRA:IXTAL:JSON:EncodeUnsupportedType", {std::string("function_handle")}},
      {[] { return J::EncodeNestingTooDeep(); }, "DOVRA:IXTAL:JSON:EncodeNestingTooDeep", {}},
      {[] { return IXTAL::string::MustBeStringScalarOrCharacterVector(); }, "IXTAL:string:MustBeStringScalarOrCharacterVector", {}},
      {[] { return IXTAL::string::MissingNotSupported(); }, "IXTAL:string:MissingNotSupported", {}},
      {[] { return IXTAL::checkSyntacticWarnings::MustBeStringScalarOrCharacterVector(); }, "IXTAL:checkSyntacticWarnings:MustBeStringScalarOrCharacterVector", {}},
      {[] { return component_IXTAL::catalog_class::key_InvalidArgument(kFormat, kNanInf); }, "IXTAL:class:InvalidArgument", {std::string("format"), std::string("nanInfType")}},
      {[] { return component_IXTAL::catalog_class::key_RequireLogical(); }, "IXTAL:class:RequireLogical", {}},
  };
  return rows;
}

std::string text_of(const MsgArg& a) {
  if (auto* l = boost::get<long>(&a)) return std::to_string(*l);
  if (auto* s = boost::get<std::string>(&a)) return *s;
  const auto& u = boost::get<std::u16string>(a);
  return std::string(u.begin(), u.end());  // the rows use ASCII only
}

TEST(Errors, EveryKeyHasItsIdentifierArgumentsAndCatalogText) {
  for (const auto& row : key_rows()) {
    SCOPED_TRACE(row.identifier);
    const auto key = row.make();
    EXPECT_EQ(key.id(), row.identifier);
    EXPECT_EQ(describe(key.args()), describe(row.args));
    ASSERT_NE(fl::i18n::MessageCatalog::find_template(row.identifier), nullptr);
    // Each argument shows in the message, in order.
    const std::string message = fl::i18n::MessageCatalog::get_message(key, fl::i18n::TnLocale::global());
    std::size_t at = 0;
    for (const auto& arg : row.args) {
      const std::size_t found = message.find(text_of(arg), at);
      ASSERT_NE(found, std::string::npos) << message;
      at = found;
    }
  }
}

TEST(Errors, CatalogHasNoIdentifierWithoutAKey) {
  std::set<std::string> keyed;
  for (const auto& row : key_rows()) keyed.insert(row.identifier);
  for (const auto& [id, text] : fl::i18n::MessageCatalog::entries()) {
    if (std::string(id).rfind("DOVRA:", 0) == 0) {
      EXPECT_TRUE(keyed.count(std::string(id))) << id;
    }
  }
}

TEST(Errors, ArgumentsAreCopiedLiterally) {
  // Placeholder and format characters in an argument are text, not directives.
  const std::string hostile = "{1}%s%n{0}";
  const auto message =
      fl::i18n::MessageCatalog::get_message(J::DecodeInvalidTNType(hostile), fl::i18n::TnLocale::global());
  EXPECT_NE(message.find("Unsupported \"tntype\": {1}%s%n{0}."), std::string::npos) << message;
}

TEST(Errors, RaisedErrorCarriesIdentifierArgumentsAndMessage) {
  for (const auto& row : key_rows()) {
    SCOPED_TRACE(row.identifier);
    const auto key = row.make();
    dovra_errors::msg_exception<resource_core::BaseMsgID> wrapper(key);
    EXPECT_EQ(wrapper.get_error_id(), row.identifier);
    auto failure = dovra_test::failure_of([&] { ixErrMsgId(key); });
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->identifier, row.identifier);
    EXPECT_EQ(describe(failure->arguments), describe(row.args));
    EXPECT_EQ(failure->message, wrapper.what());
  }
}

TEST(Errors, WrapperClonesAndRethrowsItself) {
  dovra_errors::msg_exception<J::DecodeInvalidTNType> e(J::DecodeInvalidTNType("x"));
  std::unique_ptr<foundation::core::except::IMsgIDException> copy(e.clone());
  EXPECT_EQ(copy->GetID(), "DOVRA:IXTAL:JSON:DecodeInvalidTNType");
  EXPECT_EQ(describe(copy->GetBaseMsgIDObj().args()), describe({std::string("x")}));
  EXPECT_THROW(copy->rethrow(), foundation::core::except::IMsgIDException);
}

// The internal exceptions and the public error each must become.
struct MappingRow {
  std::function<void()> throw_internal;
  std::string identifier;
  std::vector<MsgArg> args;
};

TEST(Errors, DecodeMappingRaisesThePublicErrorOfTheSameStem) {
  using namespace ixtal_json;
  const std::vector<MappingRow> rows = {
      {[] { throw InvalidTNSize(); }, "DecodeInvalidTNSize", {}},
      {[] { throw InvalidTNDataType("char", "array"); }, "DecodeInvalidTNDataType", {std::string("char"), std::string("array")}},
      {[] { throw InvalidPropertyType("tncomplex", "boolean"); }, "DecodeInvalidPropertyType", {std::string("tncomplex"), std::string("boolean")}},
      {[] { throw MissingTNSizeOrTNData(); }, "DecodeMissingTNSizeOrTNData", {}},
      {[] { throw MissingTNTypeOrTNSize(); }, "DecodeMissingTNTypeOrTNSize", {}},
      {[] { throw IncompleteComplexData(); }, "DecodeIncompleteComplexData", {}},
      {[] { throw InvalidTNType("Double"); }, "DecodeInvalidTNType", {std::string("Double")}},
      {[] { throw InvalidCharArrayTNData(); }, "DecodeInvalidCharArrayTNData", {}},
      {[] { throw NullNotSupported(); }, "DecodeNullNotSupported", {}},
      {[] { throw InvalidArrayElemType(); }, "DecodeInvalidArrayElemType", {}},
      {[] { throw ArrayInconsistentDepths(); }, "DecodeArrayInconsistentDepths", {}},
      {[] { throw ArrayInconsistentSizes(); }, "DecodeArrayInconsistentSizes", {}},
      {[] { throw MismatchedTNSize(); }, "DecodeMismatchedTNSize", {}},
      {[] { throw InvalidFloatingElem("single"); }, "DecodeInvalidFloatingElem", {std::string("single")}},
      {[] { throw InvalidIntegralElem("uint16"); }, "DecodeInvalidIntegralElem", {std::string("uint16")}},
      {[] { throw InvalidLogicalElem(); }, "DecodeInvalidLogicalElem", {}},
      {[] { throw ArrayInconsistentTypes("logical", "double"); }, "DecodeArrayInconsistentTypes", {std::string("logical"), std::string("double")}},
  };
  ASSERT_EQ(rows.size(), std::tuple_size_v<dovra_errors::decode_error_map>);
  for (const auto& row : rows) {
    SCOPED_TRACE(row.identifier);
    auto failure = dovra_test::failure_of([&] { dovra_errors::translate_decode_errors(row.throw_internal); });
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->identifier, "DOVRA:IXTAL:JSON:" + row.identifier);
    EXPECT_EQ(describe(failure->arguments), describe(row.args));
  }
}

TEST(Errors, DecodeMappingLetsOtherExceptionsPass) {
  EXPECT_THROW(dovra_errors::translate_decode_errors([] { throw std::runtime_error("invalid IxtalType"); }),
               std::runtime_error);
  EXPECT_THROW(dovra_errors::translate_decode_errors([] { throw ixtal_json::ParseError("base"); }),
               ixtal_json::ParseError);
  EXPECT_EQ(dovra_errors::translate_decode_errors([] { return 7; }), 7);
}

}  // namespace
