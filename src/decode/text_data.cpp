// The reader from the text: the data of large notation by class, read
// where they stand or gathered before their class is known.

#include <algorithm>
#include <type_traits>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "decode/element_rules.hpp"
#include "decode/rules.hpp"
#include "decode/text_reader_impl.hpp"
#include "host/json_keys.hpp"
#include "ixtal/string_array.hpp"

namespace ixtal_json::detail {

namespace {

// The ']' that closes a list starting at p, when no '[', '{', '}' or '"'
// comes before it; else null. What lies between is left to the grammar. A
// few units no list of numbers holds outside a string ('Y', 'Z', '\\', '^',
// '_', 'y', 'z', '|', '~', DEL: one bit apart from the brackets) stop it
// too, so that a step tests three patterns rather than five.
template <class Char>
const Char* flat_list_end(const Char* p, const Char* end) noexcept {
  const auto stops = [](unsigned c) { return (c | 6) == 0x5F || (c | 6) == 0x7F || c == '"'; };
#if defined(__SSE2__)
  if constexpr (sizeof(Char) == 2) {
    for (; end - p >= 16; p += 16) {
      // Units beyond a byte narrow to 0 or 0xFF, which stop nothing.
      const __m128i v = _mm_packus_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)),
                                         _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 8)));
      const __m128i folded = _mm_or_si128(v, _mm_set1_epi8(6));
      const __m128i hit = _mm_or_si128(
          _mm_or_si128(_mm_cmpeq_epi8(folded, _mm_set1_epi8(0x5F)), _mm_cmpeq_epi8(folded, _mm_set1_epi8(0x7F))),
          _mm_cmpeq_epi8(v, _mm_set1_epi8('"')));
      if (const unsigned bits = unsigned(_mm_movemask_epi8(hit))) {
        p += __builtin_ctz(bits);
        return *p == ']' ? p : nullptr;
      }
    }
  }
#endif
  for (; p != end; ++p)
    if (stops(unsigned(*p))) return *p == ']' ? p : nullptr;
  return nullptr;
}

}  // namespace

ixSize TextReader::countable(const Char* p, const dims_vector& dims, ixSize per_element) const {
  const ixSize n = element_count(dims);
  const ixSize room = ixSize(g_.end() - p) / 2 + 1;  // one unit a value, and a comma between
  if (n == kUncountable || n > room / per_element) decline();
  return n;
}

// One value a slot, a pair of slots per complex element (stored
// interleaved), each through the class's element rule.
template <class T>
matrix::owned_array TextReader::flat_data(const Char*& p, const dims_vector& dims, bool complex) {
  if (!g_.at(p, '[')) decline();
  const ixSize parts = complex ? 2 : 1;
  const ixSize slots = countable(p, dims, parts) * parts;
  matrix::owned_array a = uninitialised_array<T>(dims, complex);
  T* const out = slots ? data_of<T>(a) : nullptr;
  ixSize i = 0;
  const Char* const end = g_.end();
  ok(g_.elements(p, [&](const Char*& q) {
    // Numbers that follow one another as compact text writes them are read
    // here in one loop, the cursor in a register; anything else goes back
    // to the element loop.
    const Char* r = q;
    for (;;) {
      if (i == slots) decline();
      if constexpr (!std::is_same_v<T, bool>) {
        if (g_.starts_number(*r)) {
          double x;
          if (g_.number(r, x) != fj::kParseOk || !convert_number(x, out[i++])) decline();
          if (g_.at(r, ',')) {
            T* const next = out + i;
            i += g_.comma_numbers(r, slots - i, [&](std::size_t k, double y) {
              if (!convert_number(y, next[k])) decline();
            });
          }
          if (end - r >= 2 && r[0] == ',' && g_.starts_number(r[1])) {
            ++r;
            continue;
          }
          break;
        }
      }
      const Char* s = r;
      element(s, out[i++]);
      r = s;
      break;
    }
    q = r;
    return fj::kParseOk;
  }));
  if (i != slots) decline();
  return a;
}

template <class T>
void TextReader::element(const Char*& p, T& out) {
  const Token t = g_.token(*p);
  if constexpr (std::is_same_v<T, bool>) {
    if (t != Token::kTrue && t != Token::kFalse) decline();
    ok(g_.literal(p, t));
    out = t == Token::kTrue;
  } else {
    double x;
    if (t == Token::kNumber) {
      ok(g_.number(p, x));
      if (!convert_number(x, out)) decline();
      return;
    }
    if constexpr (std::is_floating_point_v<T>) {
      if (t == Token::kObject && special_float(p, x)) {
        out = static_cast<T>(x);
        return;
      }
    }
    decline();
  }
}

matrix::owned_array TextReader::large_data(const Char*& p, IxtalType type, const dims_vector& dims, bool complex) {
  return dispatch_on_IxtalType(type, [&](auto tag) -> matrix::owned_array {
    constexpr IxtalType X = decltype(tag)::value;
    if constexpr (is_numeric_type(X)) return flat_data<element_type_of<X>>(p, dims, complex);
    else if constexpr (X == IxtalType::kLogical) return flat_data<bool>(p, dims, false);
    else if constexpr (X == IxtalType::kChar) return char_data(p, dims);
    else if constexpr (X == IxtalType::kCell) return cell_data(p, dims);
    else if constexpr (X == IxtalType::kStruct) return struct_data(p, dims);
    else if constexpr (X == IxtalType::kString) return string_data(p, dims);
    else decline();  // no class objects or enumerations in this host
  });
}

matrix::owned_array TextReader::char_data(const Char*& p, const dims_vector& dims) {
  if (!g_.at(p, '[')) decline();
  std::size_t count = 0;
  std::u16string_view u;
  ok(g_.elements(p, [&](const Char*& q) {
    if (count++ != 0 || !g_.at(q, '"')) decline();
    u = string_units(q);
    return fj::kParseOk;
  }));
  if (count != 1 || u.size() != element_count(dims)) decline();
  matrix::owned_array a = uninitialised_array<char16_t>(dims);
  if (!u.empty()) std::copy(u.begin(), u.end(), data_of<char16_t>(a));
  return a;
}

matrix::owned_array TextReader::cell_data(const Char*& p, const dims_vector& dims) {
  if (!g_.at(p, '[')) decline();
  const ixSize n = countable(p, dims);
  const Mark mark(elements_);
  ok(g_.elements(p, [&](const Char*& q) {
    if (elements_.size() - mark.at == n) decline();
    elements_.push_back(value(q));
    return fj::kParseOk;
  }));
  if (!fills(elements_.size() - mark.at, dims)) decline();
  return cell_from_stack(dims, mark.at);
}

// Each field's values gather in turn; the structure is made once all are
// read, its fields in byte order of their names.
matrix::owned_array TextReader::struct_data(const Char*& p, const dims_vector& dims) {
  if (element_count(dims) == kUncountable) decline();
  const Mark mark(elements_);
  std::vector<std::string> names;
  std::vector<std::size_t> counts;
  read_fields(p, names, counts);
  return struct_from(dims, names, counts, mark.at);
}

// The object at p, one name a field (the first of repeated names counts),
// each a list of values pushed on elements_ in turn.
void TextReader::read_fields(const Char*& p, std::vector<std::string>& names, std::vector<std::size_t>& counts) {
  if (!g_.at(p, '{')) decline();
  Names seen;
  std::string name;
  ok(g_.members(p, name, [&](std::string& key, const Char*& q) {
    if (seen.contains(key)) return g_.skip_value(q);
    seen.add(key);
    if (!g_.at(q, '[')) decline();
    const std::size_t first = elements_.size();
    ok(g_.elements(q, [&](const Char*& r) {
      elements_.push_back(value(r));
      return fj::kParseOk;
    }));
    names.push_back(std::move(key));
    counts.push_back(elements_.size() - first);
    return fj::kParseOk;
  }));
}

matrix::owned_array TextReader::struct_from(const dims_vector& dims, const std::vector<std::string>& names,
                                            const std::vector<std::size_t>& counts, std::size_t mark) {
  const ixSize n = element_count(dims);
  if (n == kUncountable) decline();
  for (std::size_t c : counts)
    if (c != n) decline();
  const std::vector<std::size_t> order = field_order(names);
  std::vector<std::string> sorted;
  for (std::size_t k : order) sorted.push_back(names[k]);
  matrix::owned_array s(ixCreateStructArray(dims.size(), dims.data(), int(sorted.size()), sorted.data()));
  for (std::size_t f = 0; f < order.size(); ++f) {
    const std::size_t from = mark + order[f] * std::size_t(n);
    for (ixSize i = 0; i < n; ++i) ixSetFieldByNumber(s.get(), i, int(f), elements_[from + i].release());
  }
  return s;
}

void TextReader::read_pending(const Char*& p, Pending& d) {
  using Form = Pending::Form;
  d.mark = elements_.size();
  if (g_.at(p, '{')) {
    d.form = Form::kFields;
    return read_fields(p, d.names, d.counts);
  }
  if (!g_.at(p, '[')) return ok(g_.skip_value(p));  // no class takes it: read again to decline
  // A list with no list, object or string in it is only looked through,
  // and read once its class and size are known, straight into its array:
  // gathered here, the numbers of the largest bodies took twice their
  // array's memory, in blocks the kernel mapped afresh each time.
  if (const Char* const close = flat_list_end(p + 1, g_.end())) {
    p = close + 1;
    return;
  }
  d.form = Form::kNumbers;
  ok(g_.elements(p, [&](const Char*& q) {
    const Token t = g_.token(*q);
    // A missing string: only a string array's data hold one, and they are
    // read again once their class is known.
    if (t == Token::kNull) d.form = Form::kUnread;
    if (d.form == Form::kUnread) return g_.skip_value(q);
    if (d.form == Form::kNumbers && t == Token::kNumber) {
      double x;
      ok(g_.number(q, x));
      d.numbers.push_back(x);
      if (!d.special.empty()) d.special.push_back(false);
      return fj::kParseOk;
    }
    if (d.form == Form::kNumbers && t == Token::kObject) {
      const Char* const start = q;
      double x;
      if (special_float(q, x)) {
        d.special.resize(d.numbers.size(), false);
        d.special.push_back(true);
        d.numbers.push_back(x);
        return fj::kParseOk;
      }
      q = start;  // a record, say: an element of a cell
    }
    if ((t == Token::kTrue || t == Token::kFalse) && d.numbers.empty() && d.form != Form::kElements) {
      d.form = Form::kBooleans;
      ok(g_.literal(q, t));
      d.booleans.push_back(t == Token::kTrue);
      return fj::kParseOk;
    }
    to_elements(d);
    elements_.push_back(value(q));
    return fj::kParseOk;
  }));
}

// Data of mixed kinds can only be a cell's: what was gathered so far
// becomes its first elements (one list at most holds any).
void TextReader::to_elements(Pending& d) {
  for (double x : d.numbers) elements_.push_back(scalar(x));
  for (bool b : d.booleans) elements_.push_back(scalar(b));
  d.numbers.clear();
  d.booleans.clear();
  d.form = Pending::Form::kElements;
}

// The array of the class from pending data, or null where the data must be
// read again (a char or string array, or data no list form held).
matrix::owned_array TextReader::from_pending(Pending& d, IxtalType type, const dims_vector& dims, bool complex) {
  using Form = Pending::Form;
  return dispatch_on_IxtalType(type, [&](auto tag) -> matrix::owned_array {
    constexpr IxtalType X = decltype(tag)::value;
    const ixSize n = element_count(dims);
    if constexpr (is_numeric_type(X) || X == IxtalType::kLogical) {
      using T = element_type_of<X>;
      constexpr bool logical = X == IxtalType::kLogical;
      const bool empty = d.numbers.empty() && d.booleans.empty();
      if (d.form == Form::kUnread || d.form == Form::kElements || d.form == Form::kFields) decline();
      if (!empty && (d.form == Form::kBooleans) != logical) decline();
      const bool parts = complex && !logical;
      const std::size_t count = logical ? d.booleans.size() : d.numbers.size();
      if (n == kUncountable || count != (parts ? 2 * n : n)) decline();
      matrix::owned_array a = uninitialised_array<T>(dims, parts);
      T* const out = count ? data_of<T>(a) : nullptr;
      for (std::size_t i = 0; i < count; ++i) {
        if constexpr (logical) {
          out[i] = d.booleans[i];
        } else if (!d.special.empty() && d.special[i]) {
          if constexpr (!std::is_floating_point_v<T>) decline();
          else out[i] = static_cast<T>(d.numbers[i]);
        } else if (!convert_number(d.numbers[i], out[i])) {
          decline();
        }
      }
      return a;
    } else if constexpr (X == IxtalType::kCell) {
      if (d.form == Form::kUnread || d.form == Form::kFields) decline();
      to_elements(d);
      if (!fills(elements_.size() - d.mark, dims)) decline();
      return cell_from_stack(dims, d.mark);
    } else if constexpr (X == IxtalType::kStruct) {
      if (d.form != Form::kFields) decline();
      return struct_from(dims, d.names, d.counts, d.mark);
    } else {
      return nullptr;
    }
  });
}

// A string a slot, or null for a missing one.
matrix::owned_array TextReader::string_data(const Char*& p, const dims_vector& dims) {
  if (!g_.at(p, '[')) decline();
  const ixSize n = countable(p, dims);
  matrix::owned_array a(ixCreateStringArray(dims.size(), dims.data()));
  ixSize i = 0;
  ok(g_.elements(p, [&](const Char*& q) {
    if (i == n) decline();
    if (g_.token(*q) == Token::kNull) {
      ok(g_.literal(q, Token::kNull));
      Tovenar::String::setString(a.get(), i++, std::nullopt);
    } else if (g_.at(q, '"')) {
      Tovenar::String::setString(a.get(), i++, string_units(q));
    } else {
      decline();
    }
    return fj::kParseOk;
  }));
  if (i != n) decline();
  return a;
}

}  // namespace ixtal_json::detail
