// The tree builder: the grammar's handler that makes a Value of each value.

#include "json/parser.hpp"

#include <string>
#include <utility>
#include <vector>

#include "json/grammar.hpp"
#include "json/parser_exception.hpp"

namespace dovra_json {
namespace {

namespace fj = foundation::json;
using detail::Token;

template <class Char>
class TreeBuilder {
 public:
  TreeBuilder(const Char* end, unsigned char flags, std::size_t text_size) : g_(end, flags) {
    // Room for one element per eight bytes of text, what a dense numeric
    // array needs, so that a large one does not regrow its way up through
    // the stack (one pass over fresh memory instead of twenty). Reserved
    // room that is never written is never touched. Only a hint: without
    // the memory the stack grows as it must.
    try {
      scratch_.reserve(text_size / 8);
    } catch (const std::bad_alloc&) {
    }
  }

  // A value is the first of string, number, object, array, boolean and null
  // that matches, or else the failure that got furthest, the earlier
  // alternative among equals. Why the first unit decides: all six start on
  // the same unit. The string fails right there only for a unit other than
  // '"' (kStringExpected) or at the end (kUnexpectedEnd); after a '"' it
  // always fails further in. The number fails further in once the unit is
  // '-' or a digit, and on that unit otherwise. Object and array fail on the
  // unit unless it opens them, and the literals never move the cursor. So the
  // alternative the unit selects is the only one that can get past it, and
  // where none does, the string comes first among equals: kStringExpected on
  // that unit, or kUnexpectedEnd at the end.
  fj::ParseResult value(const Char*& p, fj::Value& out) {
    if (p == g_.end()) return fj::kUnexpectedEnd;
    switch (const Token t = g_.token(*p)) {
      case Token::kString: {
        // Read into a buffer that keeps its room from string to string, then
        // copied once at its final size.
        text_.clear();
        detail::Utf8Sink sink(text_);
        const fj::ParseResult r = g_.string(p, sink);
        if (r == fj::kParseOk) out = fj::Value(std::string(text_));
        return r;
      }
      case Token::kNumber: {
        double d;
        const fj::ParseResult r = g_.number(p, d);
        if (r == fj::kParseOk) out = fj::Value(d);
        return r;
      }
      case Token::kObject: return object(p, out);
      case Token::kArray: return array(p, out);
      case Token::kNone: return fj::kStringExpected;
      default: {
        const fj::ParseResult r = g_.literal(p, t);
        if (r == fj::kParseOk) out = t == Token::kNull ? fj::Value(fj::Null{}) : fj::Value(t == Token::kTrue);
        return r;
      }
    }
  }

 private:
  // Elements gather on the scratch stack shared by every level and move
  // into a vector of exactly their number at the closing bracket: no vector
  // regrows element by element.
  fj::ParseResult array(const Char*& p, fj::Value& out) {
    const std::size_t mark = scratch_.size();
    const fj::ParseResult r = g_.elements(p, [&](const Char*& q) {
      fj::Value element;
      const fj::ParseResult e = value(q, element);
      if (e == fj::kParseOk) scratch_.push_back(std::move(element));
      return e;
    });
    if (r != fj::kParseOk) {
      scratch_.resize(mark);
      return r;
    }
    if (mark == 0 && scratch_.size() >= scratch_.capacity() / 2) {
      // Everything on the stack is this array's and fills at least half of
      // it (a large flat array, most often): the stack itself becomes the
      // array, with no copy and no more spare room than regrowing leaves.
      out = fj::Value(std::exchange(scratch_, {}));
      return r;
    }
    const auto first = scratch_.begin() + std::ptrdiff_t(mark);
    out = fj::Value(fj::Array(std::make_move_iterator(first), std::make_move_iterator(scratch_.end())));
    scratch_.erase(first, scratch_.end());
    return r;
  }

  fj::ParseResult object(const Char*& p, fj::Value& out) {
    fj::Object members;
    std::string name;
    const fj::ParseResult r = g_.members(p, name, [&](std::string& key, const Char*& q) {
      fj::Value v;
      const fj::ParseResult e = value(q, v);
      // A repeated name keeps its first value. Members mostly arrive in
      // order, so the end is the likely place for the new one.
      if (e == fj::kParseOk) members.try_emplace(members.end(), std::move(key), std::move(v));
      return e;
    });
    if (r == fj::kParseOk) out = fj::Value(std::move(members));
    return r;
  }

  detail::Grammar<Char> g_;
  std::string text_;
  std::vector<fj::Value> scratch_;
};

}  // namespace

foundation::json::ParseResult parse_value(const char*& cur, const char* end, unsigned char flags,
                                          foundation::json::Value& out) {
  return TreeBuilder<char>(end, flags, std::size_t(end - cur)).value(cur, out);
}

foundation::json::ParseResult parse_value(const char16_t*& cur, const char16_t* end, unsigned char flags,
                                          foundation::json::Value& out) {
  return TreeBuilder<char16_t>(end, flags, std::size_t(end - cur)).value(cur, out);
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
