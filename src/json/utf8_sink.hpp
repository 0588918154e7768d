#pragma once

// String content as UTF-8: the tree's form of strings, and every member
// name. A sink of the grammar's string rule (grammar.hpp).

#include <string>

#include "foundation/json/support.hpp"
#include "ixtal/text.hpp"

namespace dovra_json::detail {

// String content as UTF-8, the tree's form. Runs of UTF-16 beyond ASCII,
// and unpaired surrogates among them, convert as the host converts them.
class Utf8Sink {
 public:
  explicit Utf8Sink(std::string& out) noexcept : out_(out) {}

  template <class Char>
  void append_run(const Char* p, const Char* q) {
    if constexpr (sizeof(Char) == 1) {
      out_.append(p, q);
    } else {
      p = narrow<false>(p, q);
      if (p != q) fl::i18n::codecvt_ustring_to_string("UTF-8").convert(p, std::size_t(q - p), out_);
    }
  }
  // Over UTF-16: plain ASCII up to the first '"' or '\' is narrowed as it
  // is found (names mostly are that); the rest goes by append_run.
  const char16_t* copy_plain(const char16_t* p, const char16_t* end) {
    p = narrow<true>(p, end);
    const char16_t* run = p;
    while (p != end && *p != '"' && *p != '\\') ++p;
    append_run(run, p);
    return p;
  }
  void put(char c) { out_.push_back(c); }
  // A \u escape, with the escape after it when the first is a high
  // surrogate: unpaired units become U+FFFD.
  void put_escape(char16_t first, char16_t second, bool has_second) {
    foundation::json::detail::u16_to_u8(first, second, has_second, out_);
  }

 private:
  // Narrows the ASCII units from p, a block at a time (mostly there is one:
  // names are short), up to q or the first unit beyond ASCII (or, with
  // kStopAtQuote, a '"' or '\\'); returns where it stopped.
  template <bool kStopAtQuote>
  const char16_t* narrow(const char16_t* p, const char16_t* q) {
    for (;;) {
      char block[64];
      std::size_t n = 0;
      for (; p != q && n < sizeof block && *p < 0x80 && !(kStopAtQuote && (*p == '"' || *p == '\\')); ++p)
        block[n++] = char(*p);
      out_.append(block, n);
      if (n < sizeof block) return p;
    }
  }

  std::string& out_;
};

}  // namespace dovra_json::detail
