// The common response, a list of strings and numbers, read straight into
// its cell: each string's units are copied from the text into its char row
// (escapes decoded on the way), with no UTF-8 string and no tree between.

#include <algorithm>
#include <vector>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "decode/response.hpp"
#include "json/basic_parser.hpp"

namespace ixtal_json {
namespace {

namespace fj = foundation::json;

bool is_surrogate(char16_t u) noexcept { return (u & 0xF800) == 0xD800; }
bool is_high_surrogate(char16_t u) noexcept { return (u & 0xFC00) == 0xD800; }
bool is_low_surrogate(char16_t u) noexcept { return (u & 0xFC00) == 0xDC00; }

template <class Char>
class ResponseReader : public dovra_json::detail::BasicParser<ResponseReader<Char>, Char> {
  using Base = dovra_json::detail::BasicParser<ResponseReader<Char>, Char>;

 public:
  explicit ResponseReader(const Char* end) noexcept : Base(end, 0) {}

  std::optional<matrix::owned_array> read(const Char* p) {
    if (!at(p, '{')) return std::nullopt;
    ++p;
    this->skip_white_space(p);
    if (!at(p, '"') || !string(p) || std::u16string_view(units_.data(), size_) != u"lhs") return std::nullopt;
    this->skip_white_space(p);
    if (!at(p, ':')) return std::nullopt;
    ++p;
    this->skip_white_space(p);
    if (!at(p, '[')) return std::nullopt;
    ++p;
    this->skip_white_space(p);
    std::vector<matrix::owned_array> elements;
    if (!at(p, ']')) {
      for (;;) {
        matrix::owned_array e = element(p);
        if (!e) return std::nullopt;
        ixSetArrayScope(e.get(), kReturnedScope);
        elements.push_back(std::move(e));
        this->skip_white_space(p);
        if (at(p, ']')) break;
        if (!at(p, ',')) return std::nullopt;
        ++p;
        this->skip_white_space(p);
      }
    }
    ++p;
    this->skip_white_space(p);
    if (!at(p, '}') || ++p != this->end()) return std::nullopt;

    matrix::owned_array cell(ixCreateCellMatrix(elements.size(), 1));
    for (std::size_t i = 0; i < elements.size(); ++i) ixSetCell(cell.get(), i, elements[i].release());
    return cell;
  }

 private:
  bool at(const Char* p, char c) const noexcept { return p != this->end() && *p == Char(c); }

  // A string or a number at p, as decoding its tree value gives it; null for
  // anything else.
  matrix::owned_array element(const Char*& p) {
    if (at(p, '"')) {
      if (!string(p)) return nullptr;
      std::u16string_view units(units_.data(), size_);
      return matrix::owned_array(ixCreateStringInPlace(
          size_,
          [](char16_t* out, void* read) {
            const auto& u = *static_cast<std::u16string_view*>(read);
            std::copy(u.begin(), u.end(), out);
            return u.size();
          },
          &units));
    }
    double d;
    if (p == this->end() || !(*p == Char('-') || (*p >= Char('0') && *p <= Char('9'))) ||
        this->number_value(p, d) != fj::kParseOk)
      return nullptr;
    return matrix::owned_array(ixCreateDoubleScalar(d));
  }

  // Reads the string at p (on its '"') into units_, as the host sees it
  // after the tree's round trip through UTF-8. An unpaired surrogate, raw or
  // escaped, would come back as U+FFFD in ways this reader does not copy,
  // so it refuses them along with malformed strings.
  bool string(const Char*& p) {
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
};

}  // namespace

template <class Char>
std::optional<matrix::owned_array> read_response(std::basic_string_view<Char> text) {
  return ResponseReader<Char>(text.data() + text.size()).read(text.data());
}

template std::optional<matrix::owned_array> read_response(std::basic_string_view<char>);
template std::optional<matrix::owned_array> read_response(std::basic_string_view<char16_t>);

}  // namespace ixtal_json
