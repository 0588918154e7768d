#include "json/parse_step.hpp"

#include <memory>
#include <optional>
#include <string_view>

#include "errors/ix_err_msg_id.hpp"
#include "errors/keys.hpp"
#include "host/text_argument.hpp"
#include "ixtal/catalog.hpp"
#include "ixtal/text.hpp"
#include "json/parser.hpp"
#include "json/parser_exception.hpp"

namespace dovra_json {

namespace fj = foundation::json;

namespace {

// Everything the user is told about a failed parse; the exception itself is
// gone by the time the error is raised.
struct ParseFailure {
  fj::ParseResult code;
  std::u16string prefix;
  std::u16string suffix;
};

ParseFailure describe(const fj::ParserException& e) {
  using namespace DOVRA::IXTAL::JSON;
  const auto& locale = fl::i18n::TnLocale::global();
  const std::string prefix = fl::i18n::MessageCatalog::get_message(
      DecodeJsonErrPrefix(long(e.line()), long(e.column()), long(e.offset())), locale);
  const std::string caret_line = std::string(e.caret(), ' ') + '^';
  const std::string suffix =
      fl::i18n::MessageCatalog::get_message(DecodeJsonErrSuffix(e.context(), caret_line), locale);
  const fl::i18n::codecvt_string_to_ustring to_u16("UTF-8");
  return {e.result(), to_u16(prefix), to_u16(suffix)};
}

[[noreturn]] void raise(const ParseFailure& f) {
  using namespace DOVRA::IXTAL::JSON;
  switch (f.code) {
    case fj::kInvalidUnicodeEscape: ixErrMsgId(DecodeCharInvalidUnicodeEscape(f.prefix, f.suffix));
    case fj::kInvalidEscape: ixErrMsgId(DecodeCharInvalidEscape(f.prefix, f.suffix));
    case fj::kFractionDigitExpected: ixErrMsgId(DecodeNumberInvalidFractionalComponent(f.prefix, f.suffix));
    case fj::kExponentDigitExpected: ixErrMsgId(DecodeNumberInvalidExponent(f.prefix, f.suffix));
    case fj::kColonExpected: ixErrMsgId(DecodeObjectNoColonAfterName(f.prefix, f.suffix));
    case fj::kUnexpectedEnd: ixErrMsgId(DecodeIncomplete(f.prefix, f.suffix));
    case fj::kNestingTooDeep: ixErrMsgId(DecodeNestingTooDeep(f.prefix, f.suffix));
    // Text after a complete value (code 0) lands here too: the value was
    // fine, what follows it is not.
    default: ixErrMsgId(DecodeUnexpectedValue(f.prefix, f.suffix));
  }
}

}  // namespace

std::u16string_view text_argument(const ixArray* arg) {
  std::optional<std::u16string_view> text;
  try {
    text = dovra_host::read_text_argument(arg, dovra_host::TextShape::any);
  } catch (...) {
    // Whatever made the argument unreadable, the caller hears one thing.
  }
  if (!text) ixErrMsgId(IXTAL::checkSyntacticWarnings::MustBeStringScalarOrCharacterVector());
  return *text;
}

fj::Value parse_text_argument(const ixArray* arg) { return parse_text(text_argument(arg)); }

fj::Value parse_text(std::u16string_view text) {
  // A request body can be tens of megabytes: it is read as the host holds
  // it, without a UTF-8 copy beside it.
  {
    const char16_t* cur = text.data();
    const char16_t* const end = cur + text.size();
    fj::Value root;
    if (parse_value(cur, end, 0, root) == fj::kParseOk && cur == end) return root;
  }
  // Users are told the byte positions of the text's UTF-8 form, so a failure
  // is found again there: converted in one pass, with no zero fill and no
  // spare room when it is all ASCII.
  std::size_t size = 0;
  const auto utf8 =
      fl::i18n::codecvt_ustring_to_string("UTF-8").convert_once(text.data(), text.size(), size);

  std::optional<ParseFailure> failure;
  try {
    return parse(std::string_view(utf8.get(), size), 0);
  } catch (const fj::ParserException& e) {
    failure = describe(e);
  }
  raise(*failure);
}

}  // namespace dovra_json
