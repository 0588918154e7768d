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
  std::size_t arity;
  std::vector<MsgArg> args;
};

// A distinct sample per position, so that a swapped pair shows.
template <class T>
struct sample;
template <>
struct sample<long> {
  static long at(std::size_t i) { return 3 + 4 * static_cast<long>(i); }
  static MsgArg arg(std::size_t i) { return at(i); }
};
template <>
struct sample<std::string> {
  static std::string at(std::size_t i) { return "arg" + std::to_string(i); }
  static MsgArg arg(std::size_t i) { return at(i); }
};
template <>
struct sample<std::u16string> {
  static std::u16string at(std::size_t i) { return u"u16arg" + std::u16string(1, char16_t(u'0' + i)); }
  static MsgArg arg(std::size_t i) { return at(i); }
};
const char kFixed[2][11] = {"format", "nanInfType"};
template <>
struct sample<char[11]> {
  static const char (&at(std::size_t i))[11] { return kFixed[i]; }
  static MsgArg arg(std::size_t i) { return std::string(kFixed[i]); }
};

template <const char* C, const char* K, class... Args, std::size_t... I>
KeyRow row_of(std::index_sequence<I...>) {
  using Key = dovra_errors::msg_key<C, K, Args...>;
  return {[] { return Key(sample<Args>::at(I)...); }, std::string(C) + ":" + K, sizeof...(Args),
          {sample<Args>::arg(I)...}};
}
template <const char* C, const char* K, class... Args>
KeyRow row_of(std::type_identity<dovra_errors::msg_key<C, K, Args...>>) {
  return row_of<C, K, Args...>(std::index_sequence_for<Args...>());
}
template <class... Keys>
std::vector<KeyRow> rows_of(std::type_identity<std::tuple<Keys...>>) {
  return {row_of(std::type_identity<Keys>())...};
}

// One row per identifier of the library's one list.
const std::vector<KeyRow>& key_rows() {
  static const std::vector<KeyRow> rows = rows_of(std::type_identity<dovra_errors::all_keys>());
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

// Counts the distinct {N} placeholders of a catalog template.
std::size_t placeholders(std::string_view text) {
  std::set<char> seen;
  for (std::size_t i = 0; i + 2 < text.size(); ++i)
    if (text[i] == '{' && text[i + 2] == '}' && text[i + 1] >= '0' && text[i + 1] <= '9') seen.insert(text[i + 1]);
  return seen.size();
}

TEST(Errors, CatalogAndListNameTheSameIdentifiers) {
  std::set<std::string> keyed;
  for (const auto& row : key_rows()) {
    SCOPED_TRACE(row.identifier);
    keyed.insert(row.identifier);
    const char* text = fl::i18n::MessageCatalog::find_template(row.identifier);
    ASSERT_NE(text, nullptr) << "in the list, not in the catalog";
    EXPECT_EQ(placeholders(text), row.arity);
  }
  // Every catalog entry of the components the library raises in must be
  // in the list. IXTAL:string and IXTAL:class also hold the runtime's own
  // identifiers, so only the library's own component is held whole.
  for (const auto& [id, text] : fl::i18n::MessageCatalog::entries()) {
    if (std::string(id).rfind("DOVRA:", 0) == 0) {
      EXPECT_TRUE(keyed.count(std::string(id))) << id << " is in the catalog, not in the list";
    }
  }
}

// The internal exception's fixed text says "positive" while users read the
// catalog's "non-negative": a size of 0 is valid, so the catalog is right and
// the internal text is never shown.
TEST(Errors, TNSizeTextsKeepTheirDeliberateDrift) {
  EXPECT_STREQ(ixtal_json::InvalidTNSize().what(), "\"tnsize\" must be an array of 2 or more positive integers");
  EXPECT_STREQ(fl::i18n::MessageCatalog::find_template("DOVRA:IXTAL:JSON:DecodeInvalidTNSize"),
               "\"tnsize\" must be an array of two or more non-negative integers.");
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

// Throws the internal exception with the samples of its key's arguments and
// checks the public error it becomes.
template <class Internal, const char* C, const char* K, class... Args, std::size_t... I>
void check_mapping(std::type_identity<dovra_errors::msg_key<C, K, Args...>>, std::index_sequence<I...>) {
  const std::string identifier = std::string(C) + ":" + K;
  SCOPED_TRACE(identifier);
  // The debugging text names what the class carries.
  const std::string what = Internal(sample<Args>::at(I)...).what();
  for (const std::string& member : std::vector<std::string>{std::string(sample<Args>::at(I))...})
    EXPECT_NE(what.find(member), std::string::npos) << what;
  auto failure = dovra_test::failure_of(
      [] { dovra_errors::translate_decode_errors([] { throw Internal(sample<Args>::at(I)...); }); });
  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->identifier, identifier);
  EXPECT_EQ(describe(failure->arguments), describe(std::vector<MsgArg>{sample<Args>::arg(I)...}));
}
template <class Internal, const char* C, const char* K, class... Args>
void check_mapping(std::type_identity<dovra_errors::msg_key<C, K, Args...>> key) {
  check_mapping<Internal>(key, std::index_sequence_for<Args...>());
}

TEST(Errors, DecodeMappingRaisesThePublicErrorOfTheSameStem) {
  std::apply([](auto... entry) {
    (check_mapping<typename decltype(entry)::internal>(std::type_identity<typename decltype(entry)::key>()), ...);
  }, dovra_errors::decode_error_map{});
}

TEST(Errors, DecodeMappingLetsOtherExceptionsPass) {
  EXPECT_THROW(dovra_errors::translate_decode_errors([] { throw std::runtime_error("invalid IxtalType"); }),
               std::runtime_error);
  EXPECT_THROW(dovra_errors::translate_decode_errors([] { throw ixtal_json::ParseError("base"); }),
               ixtal_json::ParseError);
  EXPECT_EQ(dovra_errors::translate_decode_errors([] { return 7; }), 7);
}

}  // namespace
