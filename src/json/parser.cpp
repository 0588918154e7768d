#include "json/parser.hpp"

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>

#include "json/basic_parser.hpp"
#include "json/parser_exception.hpp"

namespace dovra_json {
namespace {

namespace fj = foundation::json;

template <class Char>
class Parser : public detail::BasicParser<Parser<Char>, Char> {
  using Base = detail::BasicParser<Parser<Char>, Char>;
  using typename Base::ParseResult;
  using typename Base::Value;

 public:
  using Base::Base;

  // A value is the first of string, number, object, array, boolean and null
  // that matches, or else the failure that got furthest, the earlier
  // alternative among equals. Why the first byte decides: all six start on
  // the same byte. The string fails right there only for a byte other than
  // '"' (kStringExpected) or at the end (kUnexpectedEnd); after a '"' it
  // always fails further in. The number fails further in once the byte is
  // '-' or a digit, and on that byte otherwise. Object and array fail on the
  // byte unless it opens them, and the literals never move the cursor. So the
  // alternative the byte selects is the only one that can get past it, and
  // where none does, the string comes first among equals: kStringExpected on
  // that byte, or kUnexpectedEnd at the end.
  ParseResult value(const Char*& p, Value& out) {
    if (p == this->end()) return fj::kUnexpectedEnd;
    switch (*p) {
      case '"': {
        // Read into a buffer that keeps its room from string to string, then
        // copied once at its final size.
        text_.clear();
        const ParseResult r = this->string(p, text_);
        if (r == fj::kParseOk) out = Value(std::string(text_));
        return r;
      }
      case '-': case '0': case '1': case '2': case '3': case '4':
      case '5': case '6': case '7': case '8': case '9':
        return this->number(p, out);
      case '{': return this->object(p, out);
      case '[': return this->array(p, out);
      case 't': return literal(p, "true", 4, true, out);
      case 'f': return literal(p, "false", 5, false, out);
      case 'n': return literal(p, "null", 4, fj::Null{}, out);
      default: return fj::kStringExpected;
    }
  }

 private:
  std::string text_;

  template <class T>
  ParseResult literal(const Char*& p, const char* word, std::size_t n, T v, Value& out) {
    if (std::size_t(this->end() - p) < n || !std::equal(word, word + n, p)) return fj::kStringExpected;
    p += n;
    out = v;
    return fj::kParseOk;
  }
};

}  // namespace

foundation::json::ParseResult parse_value(const char*& cur, const char* end, unsigned char flags,
                                          foundation::json::Value& out) {
  return Parser<char>(end, flags, std::size_t(end - cur)).value(cur, out);
}

foundation::json::ParseResult parse_value(const char16_t*& cur, const char16_t* end, unsigned char flags,
                                          foundation::json::Value& out) {
  return Parser<char16_t>(end, flags, std::size_t(end - cur)).value(cur, out);
}

foundation::json::Value parse(std::string_view utf8, unsigned char flags) {
  const char* const begin = utf8.data();
  const char* const end = begin + utf8.size();
  const char* cur = begin;
  foundation::json::Value root;
  if (const foundation::json::ParseResult r = parse_value(cur, end, flags, root); r != foundation::json::kParseOk)
    throw foundation::json::ParserException(begin, cur, end, r, foundation::json::get_parse_result_description(r));
  if (cur != end) throw foundation::json::ParserException(begin, cur, end, foundation::json::kParseOk, "Parse incomplete");
  return root;
}

}  // namespace dovra_json
