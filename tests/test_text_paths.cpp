// The vector paths of the UTF-16 <-> UTF-8 conversions (SSE2, AVX2) give
// what the unit-by-unit path gives, wherever a run of ASCII breaks.

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "ixtal/text.hpp"

namespace {

using fl::i18n::vector_path;

// Everything each direction gives for one input, on the current path.
struct Utf16Results {
  std::string converted, bounded, once;
  std::size_t measured = 0;
  bool operator==(const Utf16Results&) const = default;
};
struct Utf8Results {
  std::u16string converted, bounded;
  std::size_t measured = 0;
  bool operator==(const Utf8Results&) const = default;
};

Utf16Results from_utf16(const std::u16string& units) {
  const fl::i18n::codecvt_ustring_to_string to8("UTF-8");
  Utf16Results r;
  r.converted = to8(units);
  r.bounded.assign(3 * units.size(), '\0');
  r.bounded.resize(to8.convert_bounded(units.data(), units.size(), r.bounded.data()));
  std::size_t size = 0;
  const auto once = to8.convert_once(units.data(), units.size(), size);
  r.once.assign(once.get(), size);
  r.measured = to8.measure(units.data(), units.size());
  return r;
}

Utf8Results from_utf8(const std::string& bytes) {
  const fl::i18n::codecvt_string_to_ustring to16("UTF-8");
  Utf8Results r;
  r.converted = to16(bytes);
  r.bounded.assign(bytes.size(), u'\0');
  r.bounded.resize(to16.convert_bounded(bytes.data(), bytes.size(), r.bounded.data()));
  r.measured = to16.measure(bytes.data(), bytes.size());
  return r;
}

// Runs f on every path the machine has and checks each against the
// unit-by-unit path; the path in use is restored afterwards.
template <class F>
void expect_same_on_every_path(F f, const std::string& name) {
  const vector_path before = fl::i18n::use_vector_path(vector_path::none);
  const auto reference = f();
  for (const vector_path p : {vector_path::sse2, vector_path::avx2}) {
    if (p > fl::i18n::best_vector_path()) continue;
    fl::i18n::use_vector_path(p);
    EXPECT_TRUE(f() == reference) << name << " on path " << int(p);
  }
  fl::i18n::use_vector_path(before);
}

TEST(TextPaths, AsciiRunsBrokenAtEveryOffset) {
  const std::u16string units_breakers[] = {u"\u0080", u"\u07FF", u"\u0800", u"\uFFFF", u"\U0001F600",
                                           std::u16string(1, char16_t(0xD800)), std::u16string(1, char16_t(0xDC00)),
                                           u"\u007F"};
  const std::string byte_breakers[] = {"\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80", "\x80",         "\xC0\xAF",
                                       "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xE2\x82", "\xFF", "\x7F"};
  for (std::size_t length = 0; length <= 100; ++length) {
    for (std::size_t at = 0; at <= length; ++at) {
      for (const auto& breaker : units_breakers) {
        std::u16string units(length, u'a');
        units.insert(at, breaker);
        expect_same_on_every_path([&] { return from_utf16(units); },
                                  "UTF-16 of " + std::to_string(length) + " broken at " + std::to_string(at));
      }
      for (const auto& breaker : byte_breakers) {
        std::string bytes(length, 'a');
        bytes.insert(at, breaker);
        expect_same_on_every_path([&] { return from_utf8(bytes); },
                                  "UTF-8 of " + std::to_string(length) + " broken at " + std::to_string(at));
      }
    }
  }
}

// Long mixed texts: runs of every length between non-ASCII of every form,
// well-formed or not.
TEST(TextPaths, LongMixedText) {
  std::mt19937 rng(23);
  for (int round = 0; round < 200; ++round) {
    std::u16string units;
    std::string bytes;
    while (units.size() < 3000) {
      units.append(rng() % 80, char16_t(' ' + rng() % 95));
      units += char16_t(rng() % 4 == 0 ? 0xD800 + rng() % 0x800 : 0x80 + rng() % 0xFF80);
      bytes.append(rng() % 80, char(' ' + rng() % 95));
      bytes += char(0x80 + rng() % 0x80);
      if (rng() % 2) bytes += char(0x80 + rng() % 0x40);
    }
    expect_same_on_every_path([&] { return from_utf16(units); }, "UTF-16 round " + std::to_string(round));
    expect_same_on_every_path([&] { return from_utf8(bytes); }, "UTF-8 round " + std::to_string(round));
  }
}

}  // namespace
