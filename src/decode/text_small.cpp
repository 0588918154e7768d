// The reader from the text: small notation.

#include <algorithm>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "decode/rules.hpp"
#include "decode/text_reader_impl.hpp"
#include "host/json_keys.hpp"

namespace ixtal_json::detail {

namespace {

// The number of ']' units in [p, end). A ']' inside a string is counted
// too: such a text holds a string, which a matrix refuses anyway.
template <class Char>
std::size_t count_closing_brackets(const Char* p, const Char* end) noexcept {
  std::size_t n = 0;
#if defined(__SSE2__)
  // Each byte lane counts its own hits (a hit compares as -1, so
  // subtracting adds one) and is emptied before it can overflow: no
  // per-block mask to count, which without a popcount instruction is a
  // library call. UTF-16 hits are narrowed to bytes, sixteen units a step.
  constexpr std::ptrdiff_t kUnits = 16;
  constexpr std::ptrdiff_t kBlocksPerFlush = 255;  // a byte lane holds 255
  const auto hits = [](const Char* q) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(q));
    if constexpr (sizeof(Char) == 1) {
      return _mm_cmpeq_epi8(v, _mm_set1_epi8(']'));
    } else {
      const __m128i w = _mm_loadu_si128(reinterpret_cast<const __m128i*>(q + 8));
      const __m128i bracket = _mm_set1_epi16(']');
      return _mm_packs_epi16(_mm_cmpeq_epi16(v, bracket), _mm_cmpeq_epi16(w, bracket));
    }
  };
  while (end - p >= kUnits) {
    __m128i lanes = _mm_setzero_si128();
    for (std::ptrdiff_t k = 0; k < kBlocksPerFlush && end - p >= kUnits; ++k, p += kUnits)
      lanes = _mm_sub_epi8(lanes, hits(p));
    const __m128i sums = _mm_sad_epu8(lanes, _mm_setzero_si128());
    n += std::size_t(_mm_cvtsi128_si64(sums) + _mm_cvtsi128_si64(_mm_unpackhi_epi64(sums, sums)));
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
  bool valid = false;
  first_member(p, keys::tndata, [&](const Char*& q) {
    if (!g_.at(q, '"')) return g_.skip_value(q);
    valid = special_float_value(utf8_string(q), out);
    return fj::kParseOk;
  });
  return valid;
}

matrix::owned_array TextReader::small_result() {
  if (leaf_level_ == 0) return flat_list();
  const dims_vector levels = known_levels();
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

// A list of leaves, the commonest small array (a record's row of numbers):
// a column, its leaves in text order.
matrix::owned_array TextReader::flat_list() {
  const bool logical = kind_ == SmallKind::kLogical;
  const std::size_t count = logical ? booleans_.size() : numbers_.size();
  if (levels_[0] != count) decline();
  const ixSize dims[2] = {count, 1};
  matrix::owned_array a(ixCreateUninitNumericArray(2, dims, logical ? ixLOGICAL_CLASS : ixDOUBLE_CLASS, ixREAL));
  if (logical) std::copy(booleans_.begin(), booleans_.end(), data_of<bool>(a));
  else std::copy(numbers_.begin(), numbers_.end(), data_of<double>(a));
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
      const dims_vector levels = known_levels();
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
// the shape is known, so each number is read straight into its place. The
// cursor stays in a register through the inlined number reader: white
// space is looked for only where the next unit is not what compact text
// has there, and skipped on a copy.
void TextReader::fill_row(const Char*& p, std::size_t level, std::size_t offset, double* out,
                          const dims_vector& strides) {
  const auto space = [this](const Char* r) {
    g_.skip_white_space(r);
    return r;
  };
  const Char* const end = g_.end();
  const Char* q = p + 1;
  const std::size_t n = levels_[level], stride = strides[level];
  const bool leaves = level == leaf_level_;
  for (std::size_t j = 0; j < n; ++j, offset += stride) {
    if (j != 0) {
      if (!g_.at(q, ',')) {
        q = space(q);
        if (!g_.at(q, ',')) throw Restart{};
      }
      if (leaves) {
        // The numbers up to the row's last, each from its comma to the
        // next, where the commas say where they end.
        if (const std::size_t k =
                g_.comma_numbers(q, n - j, [&](std::size_t i, double x) { out[offset + i * stride] = x; })) {
          j += k - 1;
          offset += (k - 1) * stride;
          continue;
        }
      }
      ++q;
    }
    if (leaves) {
      if (q == end || !g_.starts_number(*q)) q = space(q);
      if (g_.number(q, out[offset]) != fj::kParseOk) throw Restart{};
    } else {
      if (!g_.at(q, '[')) q = space(q);
      if (!g_.at(q, '[')) throw Restart{};
      const Char* r = q;
      fill_row(r, level + 1, offset, out, strides);
      q = r;
    }
  }
  if (!g_.at(q, ']')) q = space(q);
  if (!g_.at(q, ']')) throw Restart{};
  p = q + 1;
}

}  // namespace ixtal_json::detail
