// The reader from the text: small notation, and the data of large notation
// by class.

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

// The number of ']' units in [p, end). A ']' inside a string is counted
// too: such a text holds a string, which a matrix refuses anyway.
template <class Char>
std::size_t count_closing_brackets(const Char* p, const Char* end) noexcept {
  std::size_t n = 0;
#if defined(__SSE2__)
  // Each lane counts its own hits (a hit compares as -1, so subtracting
  // adds one) and is emptied before it can overflow: no per-block mask to
  // count, which without a popcount instruction is a library call.
  constexpr std::ptrdiff_t kUnits = 16 / sizeof(Char);
  constexpr std::ptrdiff_t kBlocksPerFlush = 255;  // a byte lane holds 255
  const __m128i bracket = sizeof(Char) == 1 ? _mm_set1_epi8(']') : _mm_set1_epi16(']');
  while (end - p >= kUnits) {
    __m128i lanes = _mm_setzero_si128();
    for (std::ptrdiff_t k = 0; k < kBlocksPerFlush && end - p >= kUnits; ++k, p += kUnits) {
      const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
      lanes = _mm_sub_epi8(lanes, sizeof(Char) == 1 ? _mm_cmpeq_epi8(v, bracket) : _mm_cmpeq_epi16(v, bracket));
    }
    // A 16-bit hit adds one to both its bytes: the lanes' sum counts it twice.
    const __m128i sums = _mm_sad_epu8(lanes, _mm_setzero_si128());
    n += std::size_t(_mm_cvtsi128_si64(sums) + _mm_cvtsi128_si64(_mm_unpackhi_epi64(sums, sums))) / sizeof(Char);
  }
#endif
  for (; p != end; ++p) n += *p == ']';
  return n;
}

// Leaves in text order to their places: the innermost level moves fastest
// in the text, the outermost fastest in storage.
template <class Leaves, class T>
void scatter(const Leaves& leaves, T* out, const ixSize* levels, const ixSize* strides, std::size_t count) {
  const std::size_t last = count - 1;
  const ixSize inner = levels[last], step = strides[last];
  dims_vector index(count, 0);
  std::size_t offset = 0;
  for (std::size_t i = 0; i < leaves.size();) {
    for (ixSize j = 0; j < inner; ++j, ++i) out[offset + j * step] = leaves[i];
    for (std::size_t d = last; d-- > 0;) {
      offset += strides[d];
      if (++index[d] < levels[d]) break;
      offset -= strides[d] * levels[d];
      index[d] = 0;
    }
  }
}

}  // namespace

// Small notation: leaves gather in text order while each level's size is
// learned from its first array and checked against the others; the array
// is made at the end. A whole text that is a matrix of numbers is read
// straight into its places instead (matrix_rows): its leaves would double
// the peak of the largest bodies.
matrix::owned_array TextReader::small_array(const Char*& p, bool whole) {
  if (whole) {
    const Char* const start = p;
    try {
      return matrix_rows(p);
    } catch (const Restart&) {
      p = start;
    }
  }
  levels_.clear();
  level_known_.clear();
  leaf_level_ = kUnknown;
  kind_ = SmallKind::kNone;
  numbers_.clear();
  booleans_.clear();
  small_level(p, 0);
  return small_result();
}

void TextReader::small_level(const Char*& p, std::size_t level) {
  if (level == levels_.size()) {
    levels_.push_back(0);
    level_known_.push_back(false);
  }
  const auto leaves_here = [&] {
    if (leaf_level_ == kUnknown) leaf_level_ = level;
    else if (leaf_level_ != level) decline();
  };
  std::size_t n = 0;
  ok(g_.elements(p, [&](const Char*& q) {
    if (*q == '[') {
      if (leaf_level_ != kUnknown && level + 1 > leaf_level_) decline();
      small_level(q, level + 1);
    } else {
      leaves_here();
      small_leaf(q);
    }
    ++n;
    return fj::kParseOk;
  }));
  if (n == 0) leaves_here();
  if (!level_known_[level]) {
    level_known_[level] = true;
    levels_[level] = n;
  } else if (levels_[level] != n) {
    decline();
  }
}

// The first leaf sets the class; the rest must be of its kind.
void TextReader::small_leaf(const Char*& p) {
  const Token t = g_.token(*p);
  if (t == Token::kTrue || t == Token::kFalse) {
    if (kind_ == SmallKind::kDouble) decline();
    kind_ = SmallKind::kLogical;
    ok(g_.literal(p, t));
    booleans_.push_back(t == Token::kTrue);
    return;
  }
  if (kind_ == SmallKind::kLogical) decline();
  kind_ = SmallKind::kDouble;
  double x;
  if (t == Token::kNumber) ok(g_.number(p, x));
  else if (t != Token::kObject || !special_float(p, x)) decline();
  numbers_.push_back(x);
}

bool TextReader::special_float(const Char*& p, double& out) {
  bool found = false, valid = false;
  std::string name;
  ok(g_.members(p, name, [&](const std::string& key, const Char*& q) {
    if (found || key != keys::tndata) return g_.skip_value(q);
    found = true;
    if (!g_.at(q, '"')) return g_.skip_value(q);
    valid = special_float_value(utf8_string(q), out);
    return fj::kParseOk;
  }));
  return valid;
}

matrix::owned_array TextReader::small_result() {
  const dims_vector levels(levels_.begin(), levels_.begin() + std::ptrdiff_t(leaf_level_ + 1));
  const dims_vector dims = small_result_dims(levels);
  const bool logical = kind_ == SmallKind::kLogical;
  const std::size_t count = logical ? booleans_.size() : numbers_.size();
  if (element_count(dims) != count) decline();
  matrix::owned_array a = logical ? uninitialised_array<bool>(dims) : uninitialised_array<double>(dims);
  if (count == 0) return a;
  const dims_vector strides = storage_strides(levels);
  if (logical) scatter(booleans_, data_of<bool>(a), levels.data(), strides.data(), levels.size());
  else scatter(numbers_, data_of<double>(a), levels.data(), strides.data(), levels.size());
  return a;
}

// The first row is learned as any small array is. Then the count of
// closing brackets tells how many rows a regular text holds, so the array
// is made before the rest is read and every number goes straight to its
// place. Anything else, and any fault, starts over the general way.
matrix::owned_array TextReader::matrix_rows(const Char*& p) {
  const Char* const start = p;
  levels_.assign(1, 0);
  level_known_.assign(1, true);
  leaf_level_ = kUnknown;
  kind_ = SmallKind::kNone;
  numbers_.clear();
  matrix::owned_array result;
  double* out = nullptr;
  dims_vector strides;
  std::size_t rows = 0, row = 0;
  ok(g_.elements(p, [&](const Char*& q) {
    if (*q != '[') throw Restart{};
    if (row == 0) {
      small_level(q, 1);
      if (kind_ != SmallKind::kDouble) throw Restart{};
      std::size_t arrays_per_row = 0, row_arrays = 1;
      for (std::size_t level = 1; level <= leaf_level_; ++level) {
        arrays_per_row += row_arrays;
        row_arrays *= levels_[level];
      }
      const std::size_t brackets = count_closing_brackets(start, g_.end());
      rows = (brackets - 1) / arrays_per_row;
      // Each number takes at least one unit of text.
      if (rows == 0 || (brackets - 1) % arrays_per_row != 0 ||
          numbers_.size() > std::size_t(g_.end() - start) / rows)
        throw Restart{};
      levels_[0] = rows;
      const dims_vector levels(levels_.begin(), levels_.begin() + std::ptrdiff_t(leaf_level_ + 1));
      strides = storage_strides(levels);
      result = uninitialised_array<double>(levels);
      out = data_of<double>(result);
      scatter(numbers_, out, levels.data() + 1, strides.data() + 1, levels.size() - 1);
    } else {
      if (row >= rows) throw Restart{};
      fill_row(q, 1, row, out, strides);
    }
    ++row;
    return fj::kParseOk;
  }));
  if (row == 0 || row != rows) throw Restart{};
  return result;
}

// The hot loop of the largest bodies, kept apart from the element loop:
// the shape is known, so each number is read straight into its place.
void TextReader::fill_row(const Char*& p, std::size_t level, std::size_t offset, double* out,
                          const dims_vector& strides) {
  ++p;
  const std::size_t n = levels_[level], stride = strides[level];
  for (std::size_t j = 0; j < n; ++j, offset += stride) {
    g_.skip_white_space(p);
    if (j != 0) {
      if (!g_.at(p, ',')) throw Restart{};
      ++p;
      g_.skip_white_space(p);
    }
    if (level == leaf_level_) {
      if (g_.number(p, out[offset]) != fj::kParseOk) throw Restart{};
    } else if (!g_.at(p, '[')) {
      throw Restart{};
    } else {
      fill_row(p, level + 1, offset, out, strides);
    }
  }
  g_.skip_white_space(p);
  if (!g_.at(p, ']')) throw Restart{};
  ++p;
}

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
  ok(g_.elements(p, [&](const Char*& q) {
    if (i == slots) decline();
    element(q, out[i++]);
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
  ok(g_.elements(p, [&](const Char*& q) {
    if (count++ != 0 || !g_.at(q, '"')) decline();
    string_units(q);
    return fj::kParseOk;
  }));
  const std::u16string_view u = units_.units();
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
