#pragma once

// The JSON grammar, written once: white space, the literal words, strings,
// numbers (number_grammar.hpp), runs of plain units and white space
// (unit_scan.hpp), and the element and member loops. It builds nothing
// itself. A handler chooses what each value becomes: the tree builder
// (parser.cpp) makes a Value; the reader of decode/text_reader makes host
// arrays. Both call these primitives, so each rule of the text has one
// place.
//
// Char is char for UTF-8 text, or char16_t for the host's UTF-16 text read
// as it stands. Over UTF-16 only ASCII units are grammar; others can only be
// string content, handed to the string's sink as they stand.
//
// Every function returns a code and leaves the cursor after what it read
// (success) or on the unit it could not read (failure); a failure inside an
// escape leaves it on the escape's backslash.

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "foundation/json/support.hpp"
#include "ixtal/text.hpp"
#include "json/expected_name.hpp"
#include "json/limits.hpp"
#include "json/number_grammar.hpp"
#include "json/unit_scan.hpp"
#include "json/utf8_sink.hpp"

namespace dovra_json::detail {

using foundation::json::ParseResult;

// What the first unit of a value says it is.
enum class Token : unsigned char { kString, kNumber, kObject, kArray, kTrue, kFalse, kNull, kNone };

template <class Char>
class Grammar : public NumberGrammar<Char> {
  using Numbers = NumberGrammar<Char>;
  using Numbers::end_;
  using Numbers::is_digit;
  using Scan = UnitScan<Char>;

 public:
  using ExpectedName = dovra_json::detail::ExpectedName<Char>;

  Grammar(const Char* end, unsigned char flags) noexcept
      : Numbers(end), comments_((flags & kAllowComments) != 0) {}

  using Numbers::number;

  const Char* end() const noexcept { return end_; }
  bool at(const Char* p, char c) const noexcept { return p != end_ && *p == Char(c); }

  // The dispatch on a value's first unit. Why the first unit decides among
  // the alternatives: see parser.cpp.
  static Token token(Char c) noexcept {
    switch (c) {
      case '"': return Token::kString;
      case '-': case '0': case '1': case '2': case '3': case '4':
      case '5': case '6': case '7': case '8': case '9':
        return Token::kNumber;
      case '{': return Token::kObject;
      case '[': return Token::kArray;
      case 't': return Token::kTrue;
      case 'f': return Token::kFalse;
      case 'n': return Token::kNull;
      default: return Token::kNone;
    }
  }

  // The word of kTrue, kFalse or kNull at p. A word that does not match
  // fails where it starts, as a string would.
  ParseResult literal(const Char*& p, Token t) const noexcept {
    static constexpr Char kTrue[] = {'t', 'r', 'u', 'e'}, kFalse[] = {'f', 'a', 'l', 's', 'e'},
                          kNull[] = {'n', 'u', 'l', 'l'};
    switch (t) {
      case Token::kTrue: return word(p, kTrue);
      case Token::kFalse: return word(p, kFalse);
      default: return word(p, kNull);
    }
  }

  // The string at p into out: a sink with append_run (content as it
  // stands), put (an escaped ASCII character) and put_escape (a \u escape).
  template <class Sink>
  ParseResult string(const Char*& p, Sink& out) {
    if (p == end_) return foundation::json::kUnexpectedEnd;
    if (*p != '"') return foundation::json::kStringExpected;
    ++p;
    for (;;) {
      if constexpr (requires { out.copy_plain(p, end_); }) {
        p = out.copy_plain(p, end_);
      } else {
        const Char* run = p;
        p = Scan::find_quote_or_backslash(p, end_);
        out.append_run(run, p);
      }
      if (p == end_) return foundation::json::kUnexpectedEnd;
      if (*p == '"') {
        ++p;
        return foundation::json::kParseOk;
      }
      if (const ParseResult r = escape(p, out); r != foundation::json::kParseOk) return r;
    }
  }

  // [ element, ... ] at p: element(p) reads one value and returns its code;
  // it is never called at the end of the text.
  template <class Element>
  ParseResult elements(const Char*& p, Element&& element) {
    if (p == end_) return foundation::json::kUnexpectedEnd;
    if (*p != '[') return foundation::json::kArrayExpected;
    if (depth_ >= kMaxNestingDepth) return foundation::json::kNestingTooDeep;
    const Level level(depth_);
    ++p;
    skip_white_space(p);
    if (p == end_) return foundation::json::kUnexpectedEnd;
    if (*p != ']') {
      for (;;) {
        if (const ParseResult r = element(p); r != foundation::json::kParseOk) return r;
        if (!at(p, ',')) {  // as in members
          skip_white_space(p);
          if (p == end_) return foundation::json::kUnexpectedEnd;
          if (*p == ']') break;
          if (*p != ',') return foundation::json::kCommaOrBracketExpected;
        }
        ++p;
        skip_white_space(p);
        if (p == end_) return foundation::json::kUnexpectedEnd;
      }
    }
    ++p;
    return foundation::json::kParseOk;
  }

  // A member's name as it stands in the text: the units between its quotes,
  // and whether they are plain (ASCII, no escape), so that they are their
  // own UTF-8 form. A handler that only compares names then decodes none.
  struct Name {
    const Char* first;  // just after the opening quote
    const Char* last;   // on the closing quote
    bool plain;
    bool expected = false;  // spelt as the handler expected (see members)
  };

  // The name's UTF-8 form, as the string rule with a Utf8Sink gives it.
  void decode(const Name& n, std::string& out) {
    if (n.plain) {
      out.resize(std::size_t(n.last - n.first));
      std::transform(n.first, n.last, out.begin(), [](Char c) { return char(c); });
      return;
    }
    out.clear();
    const Char* q = n.first - 1;
    Utf8Sink sink(out);
    string(q, sink);  // read once already: cannot fail
  }

  // Whether the name is text (UTF-8), decoding only one that is not plain.
  bool same(const Name& n, std::string_view text, std::string& scratch) {
    if (n.plain)
      return std::size_t(n.last - n.first) == text.size() &&
             std::equal(n.first, n.last, text.begin(), [](Char c, char t) { return c == Char(t); });
    decode(n, scratch);
    return scratch == text;
  }

  // { "name": value, ... } at p: member(name, p) is handed each name as a
  // Name, then reads the value (never at the end of the text) and returns
  // its code. Every member is reported, repeated names too: which one
  // counts is the handler's rule.
  template <class Member>
  ParseResult members(const Char*& p, Member&& member) {
    return members(p, [] { return static_cast<const ExpectedName*>(nullptr); }, member);
  }

  // The same, with expect() giving before each name the one the handler
  // expects there (an ExpectedName), or null. Spelt so in the text, it is
  // taken whole and marked expected, with no scan. Records of one layout
  // mostly give their names as the record before did.
  template <class Expect, class Member>
  ParseResult members(const Char*& cursor, Expect&& expect, Member&& member) {
    // The loop keeps the cursor in a local that nothing outside it sees,
    // so that it stays in a register: the caller's may live in memory. A
    // handler that hands it on to a call does so through a copy.
    const Char* p = cursor;
    const ParseResult r = member_loop(p, expect, member);
    cursor = p;
    return r;
  }

  // The same, each name decoded into name (as UTF-8) for member(name, p).
  template <class Member>
  ParseResult members(const Char*& p, std::string& name, Member&& member) {
    return members(p, [&](const Name& n, const Char*& q) {
      decode(n, name);
      return member(name, q);
    });
  }

 private:
  template <class Expect, class Member>
  [[gnu::always_inline]] ParseResult member_loop(const Char*& p, Expect& expect, Member& member) {
    if (p == end_) return foundation::json::kUnexpectedEnd;
    if (*p != '{') return foundation::json::kObjectExpected;
    if (depth_ >= kMaxNestingDepth) return foundation::json::kNestingTooDeep;
    const Level level(depth_);
    ++p;
    skip_white_space(p);
    if (p == end_) return foundation::json::kUnexpectedEnd;
    if (*p != '}') {
      for (;;) {
        // A name spelt as expected starts with its quote: white space
        // before a name (none in compact text) is skipped only when the
        // name is not taken so.
        Name scanned;  // a name not taken as expected
        const ExpectedName* const e = expect();
        bool taken = e && e->take(p, end_);
        if (!taken) {
          skip_white_space(p);
          taken = e && e->take(p, end_);
          if (!taken) {
            const Char* q = p;  // through a copy, so that the cursor stays in a register
            const ParseResult r = member_name(q, scanned);
            p = q;
            if (r != foundation::json::kParseOk) return r;
          }
        }
        const Char* const after_name = p;
        // Compact text puts the colon and the comma right after what comes
        // before them, and neither is white space: tested first.
        if (!at(p, ':')) {
          skip_white_space(p);
          if (p == end_) return foundation::json::kUnexpectedEnd;
          if (*p != ':') return foundation::json::kColonExpected;
        }
        ++p;
        skip_white_space(p);
        if (p == end_) return foundation::json::kUnexpectedEnd;
        // Two calls, so that each sees whether its name was expected
        // without a test, and an expected name is never stored.
        const ParseResult r = taken ? member(Name{after_name - e->units() + 1, after_name - 1, true, true}, p)
                                    : member(std::as_const(scanned), p);
        if (r != foundation::json::kParseOk) return r;
        if (!at(p, ',')) {
          skip_white_space(p);
          if (p == end_) return foundation::json::kUnexpectedEnd;
          if (*p == '}') break;
          if (*p != ',') return foundation::json::kCommaOrBraceExpected;
        }
        ++p;
      }
    }
    ++p;
    return foundation::json::kParseOk;
  }

 public:
  // Reads the value at p for its grammar alone, building nothing.
  ParseResult skip_value(const Char*& p) {
    if (p == end_) return foundation::json::kUnexpectedEnd;
    switch (const Token t = token(*p)) {
      case Token::kString: {
        Discard sink;
        return string(p, sink);
      }
      case Token::kNumber: {
        double ignored;
        return number(p, ignored);
      }
      case Token::kObject: {
        return members(p, [this](const Name&, const Char*& q) { return skip_value(q); });
      }
      case Token::kArray: return elements(p, [this](const Char*& q) { return skip_value(q); });
      case Token::kNone: return foundation::json::kStringExpected;
      default: return literal(p, t);
    }
  }

  // The first '"' or '\\' at or after p, or end; units as UnitScan says.
  const Char* plain_run(const Char* p, int& units) const noexcept { return Scan::plain_run(p, end_, units); }

  // Past white space, and comments when they are on (UnitScan::white_space).
  void skip_white_space(const Char*& p) const noexcept {
    // Compact text has none: a unit above ' ' is never white space.
    if (p != end_ && Numbers::code(*p) > ' ' && *p != '/') return;
    p = Scan::white_space(p, end_, comments_);
  }

 private:
  struct Discard {
    void append_run(const Char*, const Char*) noexcept {}
    void put(char) noexcept {}
    void put_escape(char16_t, char16_t, bool) noexcept {}
  };

  // The name at p, read as the string rule reads it (the same codes, the
  // cursor left where it would be), building nothing.
  ParseResult member_name(const Char*& p, Name& n) {
    if (p == end_) return foundation::json::kUnexpectedEnd;
    if (*p != '"') return foundation::json::kStringExpected;
    n.first = ++p;
    int units = 0;  // 0x80 or more once a unit is beyond ASCII
    bool escaped = false;
    for (;;) {
      p = plain_run(p, units);
      if (p == end_) return foundation::json::kUnexpectedEnd;
      if (*p == '"') break;
      Discard sink;
      if (const ParseResult r = escape(p, sink); r != foundation::json::kParseOk) return r;
      escaped = true;
    }
    n.last = p++;
    n.plain = !escaped && units < 0x80;
    return foundation::json::kParseOk;
  }

  // The word w at p, or the failure of literal().
  template <std::size_t N>
  ParseResult word(const Char*& p, const Char (&w)[N]) const noexcept {
    if (std::size_t(end_ - p) < N || std::memcmp(p, w, sizeof w) != 0) return foundation::json::kStringExpected;
    p += N;
    return foundation::json::kParseOk;
  }

  // Counts one level of array or object nesting for as long as it lives.
  class Level {
   public:
    explicit Level(std::size_t& depth) noexcept : depth_(++depth) {}
    ~Level() { --depth_; }
    Level(const Level&) = delete;
    Level& operator=(const Level&) = delete;

   private:
    std::size_t& depth_;
  };

  // p is on a backslash, and stays there unless the whole escape is read.
  template <class Sink>
  ParseResult escape(const Char*& p, Sink& out) {
    const Char* e = p + 1;
    if (e == end_) return foundation::json::kUnexpectedEnd;
    char c;
    switch (*e) {
      case '"': case '/': case '\\': c = char(*e); break;
      case 'b': c = '\b'; break;
      case 'f': c = '\f'; break;
      case 'n': c = '\n'; break;
      case 'r': c = '\r'; break;
      case 't': c = '\t'; break;
      case 'u': return unicode_escape(p, e + 1, out);
      default: return foundation::json::kInvalidEscape;
    }
    out.put(c);
    p = e + 1;
    return foundation::json::kParseOk;
  }

  // digits: just after the 'u'. A high surrogate takes a second escape with
  // it, whatever that one holds: the sink sorts out unpaired units.
  template <class Sink>
  ParseResult unicode_escape(const Char*& p, const Char* digits, Sink& out) {
    if (end_ - digits < 4) return foundation::json::kUnexpectedEnd;
    const int first = Scan::hex4(digits);
    if (first < 0) return foundation::json::kInvalidUnicodeEscape;
    const Char* e = digits + 4;
    if ((first & 0xFC00) == 0xD800) {
      if (end_ - e < 6) return foundation::json::kUnexpectedEnd;
      if (e[0] != '\\' || e[1] != 'u') return foundation::json::kInvalidUnicodeEscape;
      const int second = Scan::hex4(e + 2);
      if (second < 0) return foundation::json::kInvalidUnicodeEscape;
      out.put_escape(char16_t(first), char16_t(second), true);
      e += 6;
    } else {
      out.put_escape(char16_t(first), 0, false);
    }
    p = e;
    return foundation::json::kParseOk;
  }

  const bool comments_;
  std::size_t depth_ = 0;
};

}  // namespace dovra_json::detail
