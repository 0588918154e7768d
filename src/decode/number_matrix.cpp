#include "decode/number_matrix.hpp"

#include <array>
#include <cstdint>
#include <new>
#include <vector>

#include "decode/dimensions.hpp"
#include "ixtal/shape.hpp"
#include "json/basic_parser.hpp"
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace ixtal_json {
namespace {

namespace fj = foundation::json;
using detail::dims_vector;

// Deeper matrices are rare in request bodies; the general path takes them.
constexpr std::size_t kMaxLevels = 32;

// The number of ']' units in [p, end). A ']' inside a string is counted
// too: such a text holds a string, which the reader refuses anyway.
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

// Every array of level L has sizes[L] elements, and numbers stand only at
// level `last`; level 0 is the outermost array, whose size is found last.
template <class Char>
class NumberMatrixReader : public dovra_json::detail::BasicParser<NumberMatrixReader<Char>, Char> {
  using Base = dovra_json::detail::BasicParser<NumberMatrixReader<Char>, Char>;

 public:
  explicit NumberMatrixReader(const Char* end) noexcept : Base(end, 0) {}

  std::optional<matrix::owned_array> read(const Char* p) {
    const Char* const begin = p;
    if (!at(p, '[')) return std::nullopt;
    ++p;
    this->skip_white_space(p);
    if (!at(p, '[') || !learn(p, 1)) return std::nullopt;

    // One row is read and regular: the count of closing brackets tells how
    // many rows a regular text holds, so the array is made before the rest
    // is read and every number goes straight to its place.
    std::size_t arrays_per_row = 0, row_arrays = 1;
    for (std::size_t level = 1; level <= last_; ++level) {
      arrays_per_row += row_arrays;
      row_arrays *= sizes_[level];
    }
    const std::size_t brackets = count_closing_brackets(begin, this->end());
    const std::size_t rows = (brackets - 1) / arrays_per_row;
    if (rows == 0 || (brackets - 1) % arrays_per_row != 0) return std::nullopt;
    // Each number takes at least one unit of text: a count that promises
    // more numbers than that is not this text's, and nothing that size is
    // made for it.
    if (row_.size() > std::size_t(this->end() - begin) / rows) return std::nullopt;
    sizes_[0] = rows;

    dims_vector dims(sizes_.begin(), sizes_.begin() + std::ptrdiff_t(last_ + 1));
    ixtal::strides_of(std::span<const ixSize>(sizes_.data(), last_ + 1), std::size_t(1), strides_.begin());
    std::optional<matrix::owned_array> result;
    try {
      result.emplace(detail::uninitialised_array<double>(dims));
    } catch (const std::bad_alloc&) {
      return std::nullopt;  // the general path decides what this text is
    }
    out_ = detail::data_of<double>(*result);
    const double* first_row = row_.data();
    place(first_row, 1, 0);
    std::vector<double>().swap(row_);

    for (std::size_t row = 1; row < rows; ++row) {
      this->skip_white_space(p);
      if (!at(p, ',')) return std::nullopt;
      ++p;
      this->skip_white_space(p);
      if (!at(p, '[') || !fill(p, 1, row)) return std::nullopt;
    }
    this->skip_white_space(p);
    if (!at(p, ']') || ++p != this->end()) return std::nullopt;
    return result;
  }

 private:
  bool at(const Char* p, char c) const noexcept { return p != this->end() && *p == Char(c); }

  // Reads the array at p (on its '[') of the first row, keeping its numbers
  // in text order: the first array of each level sets the level's size, the
  // first number sets the level of numbers, and everything after must agree.
  bool learn(const Char*& p, std::size_t level) {
    if (level >= kMaxLevels || (last_ != 0 && level > last_)) return false;
    ++p;
    this->skip_white_space(p);
    std::size_t n = 0;
    for (;;) {
      if (at(p, '[')) {
        if (!learn(p, level + 1)) return false;
      } else {
        if (last_ == 0) last_ = level;
        double d;
        if (level != last_ || this->number_value(p, d) != fj::kParseOk) return false;
        row_.push_back(d);
      }
      ++n;
      this->skip_white_space(p);
      if (at(p, ']')) break;
      if (!at(p, ',')) return false;
      ++p;
      this->skip_white_space(p);
    }
    ++p;
    if (sizes_[level] == 0) sizes_[level] = n;
    return sizes_[level] == n;
  }

  // The first row's numbers, from text order to their places.
  void place(const double*& from, std::size_t level, std::size_t offset) noexcept {
    for (std::size_t j = 0; j < sizes_[level]; ++j, offset += strides_[level]) {
      if (level == last_) out_[offset] = *from++;
      else place(from, level + 1, offset);
    }
  }

  // Reads the array at p (on its '[') of a later row into its places.
  bool fill(const Char*& p, std::size_t level, std::size_t offset) noexcept {
    ++p;
    const std::size_t n = sizes_[level], stride = strides_[level];
    for (std::size_t j = 0; j < n; ++j, offset += stride) {
      this->skip_white_space(p);
      if (j != 0) {
        if (!at(p, ',')) return false;
        ++p;
        this->skip_white_space(p);
      }
      if (level == last_) {
        if (this->number_value(p, out_[offset]) != fj::kParseOk) return false;
      } else if (!at(p, '[') || !fill(p, level + 1, offset)) {
        return false;
      }
    }
    this->skip_white_space(p);
    if (!at(p, ']')) return false;
    ++p;
    return true;
  }

  std::array<std::size_t, kMaxLevels> sizes_{};
  std::array<std::size_t, kMaxLevels> strides_{};
  std::size_t last_ = 0;  // 0 until the first number is met
  std::vector<double> row_;
  double* out_ = nullptr;
};

}  // namespace

template <class Char>
std::optional<matrix::owned_array> read_number_matrix(std::basic_string_view<Char> text) {
  return NumberMatrixReader<Char>(text.data() + text.size()).read(text.data());
}

template std::optional<matrix::owned_array> read_number_matrix(std::basic_string_view<char>);
template std::optional<matrix::owned_array> read_number_matrix(std::basic_string_view<char16_t>);

}  // namespace ixtal_json
