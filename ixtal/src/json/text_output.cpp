#include "foundation/json/text_output.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <stdexcept>
#include <type_traits>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "ixtal/text.hpp"
#include "number_text.hpp"

namespace foundation::json {

using namespace number_text;

namespace {

// Big enough that passing it on is rare, small enough to stay in cache.
constexpr std::size_t kChunk = 1 << 16;
static_assert(TextOutput::kNumberRoom == kNumberRoom && TextOutput::kLongestNumber == kLongestNumberText);

void check_finite(double d) {
  if (!std::isfinite(d)) throw std::domain_error("JSON text has no form for NaN or infinity");
}

constexpr char kHex[] = "0123456789abcdef";

// A short text among other text is cheaper through the chunk than passing
// the chunk on for it.
constexpr std::size_t kShortText = 64;

// Stores the bytes of eight units at out when each is printable ASCII with
// no escape (0x20-0x7F but for the quote and the backslash).
inline bool ascii8(const char16_t* units, char* out) noexcept {
#if defined(__SSE2__)
  const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(units));
  const __m128i outside = _mm_or_si128(_mm_cmplt_epi16(v, _mm_set1_epi16(0x20)), _mm_cmpgt_epi16(v, _mm_set1_epi16(0x7F)));
  const __m128i escaped = _mm_or_si128(_mm_cmpeq_epi16(v, _mm_set1_epi16('"')), _mm_cmpeq_epi16(v, _mm_set1_epi16('\\')));
  if (_mm_movemask_epi8(_mm_or_si128(outside, escaped))) return false;
  _mm_storel_epi64(reinterpret_cast<__m128i*>(out), _mm_packus_epi16(v, v));
  return true;
#else
  for (int k = 0; k < 8; ++k)
    if (units[k] >= 0x80 || kEscapes[units[k]]) return false;
  for (int k = 0; k < 8; ++k) out[k] = char(units[k]);
  return true;
#endif
}

}  // namespace

TextOutput::TextOutput(std::string& out)
    : chunk_(new char[kChunk]), p_(chunk_.get()), end_(chunk_.get() + kChunk), text_(&out), text_mark_(out.size()) {}
TextOutput::TextOutput(char16_t* out)
    : chunk_(new char[kChunk]), p_(chunk_.get()), end_(chunk_.get() + kChunk), units_begin_(out), units_(out) {}
TextOutput::TextOutput(char16_t* out, std::size_t room)
    : chunk_(new char[kChunk]),
      p_(chunk_.get()),
      end_(chunk_.get() + kChunk),
      units_begin_(out),
      units_(out),
      units_end_(out + room) {}
TextOutput::~TextOutput() = default;

void TextOutput::flush(bool last) {
  const std::size_t n = std::size_t(p_ - chunk_.get());
  if (text_) {
    text_->append(chunk_.get(), n);
    p_ = chunk_.get();
    return;
  }
  const std::size_t held = last ? 0 : fl::i18n::utf8_incomplete_tail(chunk_.get(), n);
  // Never more units than bytes; near the end of the room, where the bytes
  // (three for each U+FFFD, say) may outnumber the room left, the units
  // themselves are counted.
  if (units_end_ && std::size_t(units_end_ - units_) < n - held) [[unlikely]] {
    if (std::size_t(units_end_ - units_) < fl::i18n::codecvt_string_to_ustring("UTF-8").measure(chunk_.get(), n - held))
      std::abort();
  }
  units_ += fl::i18n::codecvt_string_to_ustring("UTF-8").convert_bounded(chunk_.get(), n - held, units_);
  std::memmove(chunk_.get(), p_ - held, held);
  p_ = chunk_.get() + held;
}

std::size_t TextOutput::finish() {
  flush(true);
  return text_ ? text_->size() - text_mark_ : std::size_t(units_ - units_begin_);
}

void TextOutput::put_long(const char* s, std::size_t n) {
  while (std::size_t(end_ - p_) < n) {  // a long text passes through in pieces
    const std::size_t part = std::size_t(end_ - p_);
    std::memcpy(p_, s, part);
    p_ += part;
    s += part;
    n -= part;
    flush();
  }
  std::memcpy(p_, s, n);
  p_ += n;
}

void TextOutput::string(std::string_view s) {
  put('"');
  const char* run = s.data();
  const char* const end = run + s.size();
  for (const char* p = run; p != end; ++p) {
    const char e = kEscapes[static_cast<unsigned char>(*p)];
    if (!e) continue;
    put(run, std::size_t(p - run));
    run = p + 1;
    if (e == 'u') {
      const unsigned char c = static_cast<unsigned char>(*p);
      const char u[] = {'\\', 'u', '0', '0', kHex[c >> 4], kHex[c & 0xF]};
      put(u, sizeof u);
    } else {
      const char b[] = {'\\', e};
      put(b, 2);
    }
  }
  put(run, std::size_t(end - run));
  put('"');
}

// The UTF-8 of the host text, escaped, a unit at a time into the chunk: at
// most six bytes per unit (\u00XX, or three for U+FFFD) and the quotes.
void TextOutput::string(std::u16string_view s) {
  if (units_end_ && (p_ == chunk_.get() || s.size() >= kShortText) && string_directly(s)) return;
  constexpr std::size_t kBlock = 256;  // and room for the quotes
  char* p = room(6 * kBlock + 8);
  *p++ = '"';
  for (std::size_t i = 0; i < s.size();) {
    if (i) {
      advance(p);
      p = room(6 * kBlock + 8);
    }
    for (const std::size_t stop = std::min(s.size(), i + kBlock); i < stop; ++i) {
      // Eight units at once while they are printable ASCII that needs no
      // escape, as nearly every text is: each is its own byte.
      while (stop - i >= 8 && ascii8(s.data() + i, p)) {
        i += 8;
        p += 8;
      }
      if (i == stop) break;
      const char16_t c = s[i];
      if (c < 0x80) {
        const char e = kEscapes[c];
        if (!e) [[likely]] {
          *p++ = char(c);
        } else if (e == 'u') {
          const char u[] = {'\\', 'u', '0', '0', kHex[c >> 4], kHex[c & 0xF]};
          std::memcpy(p, u, 6);
          p += 6;
        } else {
          *p++ = '\\';
          *p++ = e;
        }
      } else if (c < 0x800) {
        *p++ = char(0xC0 | (c >> 6));
        *p++ = char(0x80 | (c & 0x3F));
      } else if (c < 0xD800 || c > 0xDFFF) {
        *p++ = char(0xE0 | (c >> 12));
        *p++ = char(0x80 | ((c >> 6) & 0x3F));
        *p++ = char(0x80 | (c & 0x3F));
      } else if (c <= 0xDBFF && i + 1 < s.size() && s[i + 1] >= 0xDC00 && s[i + 1] <= 0xDFFF) {
        const char32_t cp = 0x10000 + ((char32_t(c) - 0xD800) << 10) + (char32_t(s[i + 1]) - 0xDC00);
        ++i;
        *p++ = char(0xF0 | (cp >> 18));
        *p++ = char(0x80 | ((cp >> 12) & 0x3F));
        *p++ = char(0x80 | ((cp >> 6) & 0x3F));
        *p++ = char(0x80 | (cp & 0x3F));
      } else {
        std::memcpy(p, "\xEF\xBF\xBD", 3);  // U+FFFD
        p += 3;
      }
    }
  }
  *p++ = '"';
  advance(p);
}

// From s straight to the UTF-16 output of a writer that knows its room: the
// two conversions of a round trip give back every unit except an unpaired
// surrogate, which becomes U+FFFD. False when the text goes through the
// chunk instead.
bool TextOutput::string_directly(std::u16string_view s) {
  constexpr std::size_t kEscapedUnits = 6;  // \u00XX
  if (p_ != chunk_.get()) flush();
  if (p_ != chunk_.get()) return false;
  if (std::size_t(units_end_ - units_) / kEscapedUnits < s.size() + 2) return false;
  char16_t* u = units_;
  *u++ = u'"';
  for (std::size_t i = 0; i < s.size(); ++i) {
    const char16_t c = s[i];
    if (c >= 0x80) [[unlikely]] {
      if (c < 0xD800 || c > 0xDFFF) {
        *u++ = c;
      } else if (c <= 0xDBFF && i + 1 < s.size() && s[i + 1] >= 0xDC00 && s[i + 1] <= 0xDFFF) {
        *u++ = c;
        *u++ = s[++i];
      } else {
        *u++ = char16_t(0xFFFD);
      }
      continue;
    }
    const char e = kEscapes[c];
    if (!e) [[likely]] {
      *u++ = c;
      continue;
    }
    *u++ = u'\\';
    *u++ = char16_t(e);
    if (e == 'u') {
      *u++ = u'0';
      *u++ = u'0';
      *u++ = char16_t(kHex[c >> 4]);
      *u++ = char16_t(kHex[c & 0xF]);
    }
  }
  *u++ = u'"';
  units_ = u;
  return true;
}

// Numeric arrays are mostly whole numbers, and the general shortest
// conversion costs many times an integer one: whole numbers take
// whole_number's path, everything else the general one.
void TextOutput::number(double d) {
  if (char* const end = whole_number(room(kNumberRoom), d)) [[likely]] {
    p_ = end;
    return;
  }
  general_number(d);
}

void TextOutput::general_number(double d) {
  check_finite(d);
  p_ = shortest(room(kNumberRoom), d);
}

// Otherwise the exact value is written as a double.
void TextOutput::number(float f) {
  check_finite(f);
  char* const p = room(kNumberRoom);
  char* const end = shortest(p, f);
  double back = 0;
  std::from_chars(p, end, back);
  if (std::fabs(back) <= kLargestFloat && static_cast<float>(back) == f) [[likely]] {
    p_ = end;
    return;
  }
  general_number(static_cast<double>(f));
}

// The cursor stays in a register while whole numbers are written.
template <class T>
std::size_t TextOutput::numbers(const T* x, std::size_t n, bool comma) {
  std::size_t i = 0;
  if constexpr ((std::is_integral_v<T> && sizeof(T) <= 4) || std::is_same_v<T, double>) i = units_directly(x, n, comma);
  char* p = p_;
  for (; i < n; ++i) {
    if (std::size_t(end_ - p) < kNumberRoom + 1) [[unlikely]] {
      p_ = p;
      flush();
      p = p_;
    }
    if constexpr (std::is_floating_point_v<T>)
      if (!std::isfinite(x[i])) [[unlikely]] {
        p_ = p;
        return i;
      }
    *p = ',';
    p += i > 0 || comma;
    if constexpr (std::is_same_v<T, float>) {
      p_ = p;
      number(x[i]);  // as the tree's float alternative
      p = p_;
      continue;
    } else {
      char* q;
      if constexpr (std::is_integral_v<T> && sizeof(T) <= 4) {
        q = small_whole_number(p, x[i]);
      } else {
        q = whole_number(p, static_cast<double>(x[i]));
      }
      p = q ? q : shortest(p, static_cast<double>(x[i]));  // finite: integers, or tested above
    }
  }
  p_ = p;
  return n;
}

// Integers of up to 32 bits and doubles go straight to the UTF-16 output
// of a writer that knows its room, without the chunk and the conversion
// after it (the digits are made as UTF-16 or widened in their register).
// Returns the elements written, up to the first that is not finite; the
// chunk's loop writes the rest.
template <class T>
std::size_t TextOutput::units_directly(const T* x, std::size_t n, bool comma) {
  if (!units_end_) return 0;
  if (p_ != chunk_.get()) flush();
  if (p_ != chunk_.get()) return 0;  // the chunk holds the start of a UTF-8 sequence
  // A number takes at most 12 units; the widened digits are 16 stored.
  constexpr std::size_t kUnitsRoom = 2 + 16;
  if constexpr (std::is_floating_point_v<T>) {
    if (std::size_t(units_end_ - units_) < kUnitsRoom + kNumberRoom) return 0;
    return number_units(units_, units_end_ - kUnitsRoom - kNumberRoom, x, n, comma);
  }
  char16_t* u = units_;
  std::size_t i = 0;
  for (; i < n && std::size_t(units_end_ - u) >= kUnitsRoom + kNumberRoom; ++i) {
    *u = u',';
    u += i > 0 || comma;
    const std::int64_t v = x[i];
    if (!written_as_digits(v)) [[unlikely]] {  // the shortest writer decides, as in whole_number
      char text[kNumberRoom];
      const char* const end = shortest(text, static_cast<double>(v));
      for (const char* c = text; c != end; ++c) *u++ = char16_t(*c);
      continue;
    }
    *u = u'-';
    u += v < 0;
    int digits;
    store_widened(u, decimal_register_32(std::uint32_t(v < 0 ? -v : v), digits));
    u += digits;
  }
  units_ = u;
  return i;
}

template IXTAL_API std::size_t TextOutput::numbers(const double*, std::size_t, bool);
template IXTAL_API std::size_t TextOutput::numbers(const float*, std::size_t, bool);
template IXTAL_API std::size_t TextOutput::numbers(const std::int8_t*, std::size_t, bool);
template IXTAL_API std::size_t TextOutput::numbers(const std::uint8_t*, std::size_t, bool);
template IXTAL_API std::size_t TextOutput::numbers(const std::int16_t*, std::size_t, bool);
template IXTAL_API std::size_t TextOutput::numbers(const std::uint16_t*, std::size_t, bool);
template IXTAL_API std::size_t TextOutput::numbers(const std::int32_t*, std::size_t, bool);
template IXTAL_API std::size_t TextOutput::numbers(const std::uint32_t*, std::size_t, bool);
template IXTAL_API std::size_t TextOutput::numbers(const std::int64_t*, std::size_t, bool);
template IXTAL_API std::size_t TextOutput::numbers(const std::uint64_t*, std::size_t, bool);

}  // namespace foundation::json
