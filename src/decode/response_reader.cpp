// The common response, a list of strings and numbers, read straight into
// its cell: each string's units are copied from the text into its char row
// (escapes decoded on the way), with no UTF-8 string and no tree between.

#include <vector>

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
    if (!at(p, '"') || !string(p) || units_ != u"lhs") return std::nullopt;
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
      return matrix::owned_array(ixCreateStringInPlace(
          units_.size(),
          [](char16_t* out, void* units) {
            const auto& u = *static_cast<std::u16string*>(units);
            std::copy(u.begin(), u.end(), out);
            return u.size();
          },
          &units_));
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
    units_.clear();
    ++p;
    for (;;) {
      const Char* run = p;
      p = Base::find_quote_or_backslash(p, this->end());
      if (!append_run(run, p)) return false;
      if (p == this->end()) return false;
      if (*p == Char('"')) {
        ++p;
        return true;
      }
      if (!escape(p)) return false;
    }
  }

  // Text units between escapes. UTF-8 text is left to the general path
  // unless it is ASCII; UTF-16 units are kept as they are once each
  // surrogate is seen paired.
  bool append_run(const Char* p, const Char* q) {
    unsigned odd = 0;
    for (const Char* r = p; r != q; ++r) {
      if constexpr (sizeof(Char) == 1) odd |= static_cast<unsigned char>(*r) >> 7;
      else odd |= is_surrogate(*r);
    }
    if (odd) {
      if constexpr (sizeof(Char) == 1) return false;
      for (const Char* r = p; r != q; ++r) {
        if (!is_surrogate(*r)) continue;
        if (!is_high_surrogate(*r) || r + 1 == q || !is_low_surrogate(r[1])) return false;
        ++r;
      }
    }
    units_.append(p, q);
    return true;
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
    units_.push_back(c);
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
      units_.push_back(char16_t(first));
      units_.push_back(char16_t(second));
      p = e + 6;
      return true;
    }
    units_.push_back(char16_t(first));
    p = e;
    return true;
  }

  std::u16string units_;
};

}  // namespace

template <class Char>
std::optional<matrix::owned_array> read_response(std::basic_string_view<Char> text) {
  return ResponseReader<Char>(text.data() + text.size()).read(text.data());
}

template std::optional<matrix::owned_array> read_response(std::basic_string_view<char>);
template std::optional<matrix::owned_array> read_response(std::basic_string_view<char16_t>);

}  // namespace ixtal_json
