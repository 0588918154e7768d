#pragma once

// The common elements of request bodies read from the text straight into
// host arrays: strings, numbers, booleans, and plain records whose fields
// hold these. Each is read exactly as parsing it and decoding the value
// gives it, or not at all: whatever the reader does not take, it refuses,
// and the caller leaves the whole text to the general path, which gives the
// same array or raises the error. The direct readers share it, so a cell of
// records and a response of records cost the same.

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "host/json_keys.hpp"
#include "ixtal/matrix.hpp"
#include "json/basic_parser.hpp"

namespace ixtal_json::detail {

template <class Derived, class Char>
class ElementReader : public dovra_json::detail::BasicParser<Derived, Char> {
  using Base = dovra_json::detail::BasicParser<Derived, Char>;

 public:
  explicit ElementReader(const Char* end) noexcept : Base(end, 0) {}

 protected:
  bool at(const Char* p, char c) const noexcept { return p != this->end() && *p == Char(c); }

  static bool starts_number(Char c) noexcept { return c == Char('-') || (c >= Char('0') && c <= Char('9')); }

  // The element at p, or null for anything this reader leaves to the
  // general path. Raises nothing but a failed allocation.
  matrix::owned_array element(const Char*& p) { return element(p, 0); }

  // Reads the string at p (on its '"') into units(), as the host sees it
  // after the tree's round trip through UTF-8. An unpaired surrogate, raw or
  // escaped, would come back as U+FFFD in ways this reader does not copy,
  // so it refuses them along with malformed strings.
  bool string_units(const Char*& p) {
    size_ = 0;
    ++p;
    for (;;) {
      p = copy_plain(p);
      if (p == this->end()) return false;
      const char16_t u = char16_t(*p);
      if (u == u'"') {
        ++p;
        return true;
      }
      if (u == u'\\') {
        if (!escape(p)) return false;
      } else if (is_surrogate(u)) {
        if (!is_high_surrogate(u) || this->end() - p < 2 || !is_low_surrogate(char16_t(p[1]))) return false;
        put(u);
        put(char16_t(p[1]));
        p += 2;
      } else {
        // Only UTF-16 text reaches here: UTF-8 beyond ASCII is left to the
        // general path.
        if (u > 0x7F && sizeof(Char) == 1) return false;
        put(u);
        ++p;
      }
    }
  }

  // The string read last.
  std::u16string_view units() const noexcept { return {units_.data(), size_}; }

  // Whether the n units at p spell text; p moves past them when they do.
  bool word(const Char*& p, const char* text, std::size_t n) const noexcept {
    if (std::size_t(this->end() - p) < n || !std::equal(text, text + n, p)) return false;
    p += n;
    return true;
  }

  // [ element, ... ] with element(p) reading one; p on the '['.
  template <class Element>
  bool list(const Char*& p, Element&& element) {
    if (!at(p, '[')) return false;
    ++p;
    this->skip_white_space(p);
    if (at(p, ']')) {
      ++p;
      return true;
    }
    for (;;) {
      if (!element(p)) return false;
      this->skip_white_space(p);
      if (at(p, ']')) {
        ++p;
        return true;
      }
      if (!at(p, ',')) return false;
      ++p;
      this->skip_white_space(p);
    }
  }

  // The string at p, when it is plain: ASCII without escapes, as names and
  // class names are.
  bool plain_name(const Char*& p, std::basic_string_view<Char>& name) const noexcept {
    if (!at(p, '"')) return false;
    const Char* const first = ++p;
    p = Base::find_quote_or_backslash(p, this->end());
    if (!at(p, '"')) return false;
    for (const Char* q = first; q != p; ++q)
      if (std::make_unsigned_t<Char>(*q) > 0x7F) return false;
    name = {first, std::size_t(p - first)};
    ++p;
    return true;
  }

 private:
  // Records inside records are rare in request bodies; deeper ones, like
  // anything else unusual, go to the general path, which has its own limit.
  static constexpr int kMaxRecordDepth = 16;

  static bool is_surrogate(char16_t u) noexcept { return (u & 0xF800) == 0xD800; }
  static bool is_high_surrogate(char16_t u) noexcept { return (u & 0xFC00) == 0xD800; }
  static bool is_low_surrogate(char16_t u) noexcept { return (u & 0xFC00) == 0xDC00; }

  matrix::owned_array element(const Char*& p, int depth) {
    if (p == this->end()) return nullptr;
    switch (char16_t(*p)) {
      case u'"': return string_units(p) ? char_row(units()) : nullptr;
      case u't': return word(p, "true", 4) ? matrix::owned_array(ixCreateLogicalScalar(true)) : nullptr;
      case u'f': return word(p, "false", 5) ? matrix::owned_array(ixCreateLogicalScalar(false)) : nullptr;
      case u'{': return depth < kMaxRecordDepth ? record(p, depth + 1) : nullptr;
      default: break;
    }
    double d;
    if (!starts_number(*p) || this->number_value(p, d) != foundation::json::kParseOk) return nullptr;
    return matrix::owned_array(ixCreateDoubleScalar(d));
  }

  static matrix::owned_array char_row(std::u16string_view u) {
    return matrix::owned_array(ixCreateStringInPlace(
        u.size(),
        [](char16_t* out, void* read) {
          const auto& text = *static_cast<std::u16string_view*>(read);
          std::copy(text.begin(), text.end(), out);
          return text.size();
        },
        &u));
  }

  // A 1-by-1 structure whose fields are the members in byte order of their
  // names. Only plain names are taken, none of them a large-notation key
  // that makes the object something else, none twice.
  matrix::owned_array record(const Char*& p, int depth) {
    // Members gather on a stack shared by every depth, so that a body of
    // records allocates for none of them once the first has been read.
    const Mark mark{members_.size(), this};
    ++p;
    this->skip_white_space(p);
    if (at(p, '}')) {
      ++p;
    } else {
      for (;;) {
        Member m;
        if (!plain_name(p, m.name)) return nullptr;
        this->skip_white_space(p);
        if (!at(p, ':')) return nullptr;
        ++p;
        this->skip_white_space(p);
        m.value = element(p, depth);
        if (!m.value) return nullptr;
        members_.push_back(std::move(m));
        this->skip_white_space(p);
        if (at(p, '}')) break;
        if (!at(p, ',')) return nullptr;
        ++p;
        this->skip_white_space(p);
      }
      ++p;
    }
    const auto first = members_.begin() + std::ptrdiff_t(mark.members);
    return layout(first, members_.end()).make(first);
  }

  // Gives the stack back to what it held before a record, however it ends.
  struct Mark {
    std::size_t members;
    ElementReader* reader;
    ~Mark() { reader->members_.erase(reader->members_.begin() + std::ptrdiff_t(members), reader->members_.end()); }
  };

  struct Member {
    std::basic_string_view<Char> name;  // in the text, ASCII
    matrix::owned_array value;
  };
  using MemberIt = typename std::vector<Member>::iterator;

  static bool same_name(std::basic_string_view<Char> text, const std::string& name) noexcept {
    return text.size() == name.size() && std::equal(text.begin(), text.end(), name.begin());
  }

  // Where each field of a record comes from, kept from one record to the
  // next: the records of a body mostly share their names, in one order.
  struct Layout {
    std::vector<std::string> names;   // as the text lists them
    std::vector<std::size_t> source;  // field k's member
    matrix::owned_array model;        // a structure with the fields; null: no record has them
    bool made = false;                // false: no record read yet

    matrix::owned_array make(MemberIt members) const {
      if (!model) return nullptr;
      const ixSize one[2] = {1, 1};
      matrix::owned_array s(ixCreateStructArrayLike(2, one, model.get()));
      for (std::size_t k = 0; k < source.size(); ++k)
        ixSetFieldByNumber(s.get(), 0, int(k), members[std::ptrdiff_t(source[k])].value.release());
      return s;
    }
  };

  const Layout& layout(MemberIt first, MemberIt last) {
    if (layout_.made && std::equal(first, last, layout_.names.begin(), layout_.names.end(),
                                   [](const Member& m, const std::string& name) { return same_name(m.name, name); }))
      return layout_;
    Layout l;
    l.made = true;
    for (auto m = first; m != last; ++m) l.names.emplace_back(m->name.begin(), m->name.end());
    l.source.resize(l.names.size());
    for (std::size_t i = 0; i < l.source.size(); ++i) l.source[i] = i;
    std::sort(l.source.begin(), l.source.end(), [&](std::size_t x, std::size_t y) { return l.names[x] < l.names[y]; });
    std::vector<std::string> fields;
    for (std::size_t i : l.source) fields.push_back(l.names[i]);
    const bool valid = std::adjacent_find(fields.begin(), fields.end()) == fields.end() &&
                       std::find(fields.begin(), fields.end(), keys::tntype) == fields.end() &&
                       std::find(fields.begin(), fields.end(), keys::tndata) == fields.end();
    if (valid) {
      const ixSize none[2] = {0, 0};
      l.model.reset(ixCreateStructArray(2, none, int(fields.size()), fields.data()));
    }
    layout_ = std::move(l);
    return layout_;
  }

  // Copies units up to the first quote, backslash, surrogate (or, in UTF-8,
  // byte beyond ASCII) and returns where it stopped. Eight UTF-16 units at
  // a time: strings are mostly plain text.
  const Char* copy_plain(const Char* p) {
#if defined(__SSE2__)
    if constexpr (sizeof(Char) == 2) {
      const __m128i quote = _mm_set1_epi16('"'), backslash = _mm_set1_epi16('\\');
      const __m128i surrogate_bits = _mm_set1_epi16(short(0xF800)), surrogate = _mm_set1_epi16(short(0xD800));
      while (this->end() - p >= 8) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        const __m128i special =
            _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi16(v, quote), _mm_cmpeq_epi16(v, backslash)),
                         _mm_cmpeq_epi16(_mm_and_si128(v, surrogate_bits), surrogate));
        reserve(8);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(units_.data() + size_), v);
        const unsigned mask = unsigned(_mm_movemask_epi8(special));
        if (mask == 0) {
          size_ += 8;
          p += 8;
          continue;
        }
        const unsigned plain = unsigned(__builtin_ctz(mask)) / 2;
        size_ += plain;
        return p + plain;
      }
    }
#endif
    for (; p != this->end(); ++p) {
      const char16_t u = char16_t(*p);
      if (u == u'"' || u == u'\\' || is_surrogate(u) || (sizeof(Char) == 1 && u > 0x7F)) break;
      put(u);
    }
    return p;
  }

  void reserve(std::size_t n) {
    if (units_.size() - size_ < n) units_.resize(std::max(2 * units_.size(), size_ + n));
  }
  void put(char16_t u) {
    reserve(1);
    units_[size_++] = u;
  }

  // p is on a backslash.
  bool escape(const Char*& p) {
    const Char* e = p + 1;
    if (e == this->end()) return false;
    char16_t c;
    switch (*e) {
      case '"': case '/': case '\\': c = char16_t(*e); break;
      case 'b': c = u'\b'; break;
      case 'f': c = u'\f'; break;
      case 'n': c = u'\n'; break;
      case 'r': c = u'\r'; break;
      case 't': c = u'\t'; break;
      case 'u': return unicode_escape(p, e + 1);
      default: return false;
    }
    put(c);
    p = e + 1;
    return true;
  }

  bool unicode_escape(const Char*& p, const Char* digits) {
    if (this->end() - digits < 4) return false;
    const int first = Base::hex4(digits);
    if (first < 0) return false;
    const Char* e = digits + 4;
    if (is_surrogate(char16_t(first))) {
      if (!is_high_surrogate(char16_t(first)) || this->end() - e < 6 || e[0] != Char('\\') || e[1] != Char('u'))
        return false;
      const int second = Base::hex4(e + 2);
      if (second < 0 || !is_low_surrogate(char16_t(second))) return false;
      put(char16_t(first));
      put(char16_t(second));
      p = e + 6;
      return true;
    }
    put(char16_t(first));
    p = e;
    return true;
  }

  // The string read last: its first size_ units (the rest is room).
  std::u16string units_;
  std::size_t size_ = 0;
  std::vector<Member> members_;
  Layout layout_;
};

}  // namespace ixtal_json::detail
