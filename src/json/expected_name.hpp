#pragma once

// A member name a handler expects next: records of one layout mostly give
// their names as the record before did, so a name spelt exactly so is
// taken whole, with no scan of its units.

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace dovra_json::detail {

// The name must be ASCII with no '"' or '\\', so that the string rule reads
// it as itself. It is kept as the text spells it, quotes and all, in blocks
// of 16 bytes (zeros after the closing quote), so that most names are
// compared in one step.
template <class Char>
class ExpectedName {
 public:
  // Whether name can be expected so.
  static bool spellable(std::string_view name) noexcept {
    return std::all_of(name.begin(), name.end(), [](char c) {
      return static_cast<unsigned char>(c) < 0x80 && c != '"' && c != '\\';
    });
  }

  explicit ExpectedName(std::string_view name) : units_(name.size() + 2) {
    std::basic_string<Char> quoted(units_, Char('"'));
    std::copy(name.begin(), name.end(), quoted.begin() + 1);
    const std::size_t first = std::min(units_, kPerBlock);
    std::copy(quoted.begin(), quoted.begin() + std::ptrdiff_t(first), first_);
    std::fill(first_ + first, first_ + kPerBlock, Char(0));
    first_bytes_ = first * sizeof(Char) == 16 ? 0xFFFFu : (1u << (first * sizeof(Char))) - 1;
    rest_.assign(quoted.begin() + std::ptrdiff_t(first), quoted.end());
  }

  // Its units in the text, with the quotes.
  std::size_t units() const noexcept { return units_; }

  // Whether the text at p (up to end) starts with this name as it is
  // spelt here; if so, p goes past it.
  bool take(const Char*& p, const Char* end) const noexcept {
    const std::size_t room = std::size_t(end - p);
    if (room < units_ || !starts(p, room)) return false;
    p += units_;
    return true;
  }

 private:
  static constexpr std::size_t kPerBlock = 16 / sizeof(Char);

  // room is at least units_: the first block in one step where the text
  // has room for it.
  bool starts(const Char* p, std::size_t room) const noexcept {
#if defined(__SSE2__)
    if (room >= kPerBlock) {
      const __m128i text = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
      const __m128i want = _mm_load_si128(reinterpret_cast<const __m128i*>(first_));
      const unsigned equal = unsigned(_mm_movemask_epi8(_mm_cmpeq_epi8(text, want)));
      return (equal & first_bytes_) == first_bytes_ && std::equal(rest_.begin(), rest_.end(), p + kPerBlock);
    }
#endif
    (void)room;
    const std::size_t first = std::min(units_, kPerBlock);
    return std::equal(first_, first_ + first, p) && std::equal(rest_.begin(), rest_.end(), p + first);
  }

  alignas(16) Char first_[kPerBlock];  // the first units, zeros after the last
  unsigned first_bytes_;              // the bits of first_'s bytes that count
  std::size_t units_;                 // with the quotes
  std::basic_string<Char> rest_;      // the units after first_'s
};

}  // namespace dovra_json::detail
