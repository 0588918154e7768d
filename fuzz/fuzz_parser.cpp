// Arbitrary bytes through the parser, with comments off and on. Whatever the
// parser rejects must be reported at a place inside the text with a location
// that agrees with it; whatever it accepts must come back as the same tree
// through the serializer, compact and pretty alike. The same input read as
// UTF-16 (each byte a unit, and each pair of bytes a unit) must be accepted
// by the UTF-16 reading exactly when its UTF-8 form is, with the same tree.

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "foundation/json/serializer.hpp"
#include "json/parser.hpp"
#include "ixtal/text.hpp"
#include "json/parser_exception.hpp"

namespace {

namespace fj = foundation::json;

void require(bool ok, const char* what) {
  if (ok) return;
  std::fprintf(stderr, "broken: %s\n", what);
  std::abort();
}

bool all_finite(const fj::Value& v) {
  if (v.is_double()) return std::isfinite(v.as_double());
  if (v.is_array()) return std::all_of(v.as_array().begin(), v.as_array().end(), all_finite);
  if (v.is_object())
    return std::all_of(v.as_object().begin(), v.as_object().end(), [](const auto& m) { return all_finite(m.second); });
  return true;
}

void check_report(const std::string& text, const fj::ParserException& e) {
  require(e.offset() <= text.size(), "offset inside the text");
  require(e.result() != fj::kParseOk || e.offset() < text.size(), "incomplete only before the end");
  const auto newlines = std::count(text.begin(), text.begin() + std::ptrdiff_t(e.offset()), '\n');
  require(e.line() == 1 + std::uint64_t(newlines), "line counts newlines");
  require(e.caret() == std::min<std::uint64_t>(e.column(), 80), "caret");
  require(e.context().size() <= 160, "context length");
  require(text.compare(e.offset() - e.caret(), e.context().size(), e.context()) == 0, "context is the text");
}

void check_round_trip(const fj::Value& tree) {
  fj::Serializer writer;
  for (bool pretty : {false, true}) {
    writer.pretty_print(pretty);
    std::string text;
    try {
      writer.write(text, tree);
    } catch (const std::domain_error&) {
      require(!all_finite(tree), "only non-finite numbers are refused");
      return;
    }
    try {
      require(dovra_json::parse(text) == tree, "serialized text reads back as the same tree");
    } catch (const fj::ParserException&) {
      require(false, "serialized text parses");
    }
  }
}

void check_utf16_reading(const std::u16string& text) {
  const std::string bytes = fl::i18n::codecvt_ustring_to_string("UTF-8")(text);
  const char *p8 = bytes.data(), *end8 = p8 + bytes.size();
  const char16_t *p16 = text.data(), *end16 = p16 + text.size();
  fj::Value v8, v16;
  const bool ok8 = dovra_json::parse_value(p8, end8, 0, v8) == fj::kParseOk && p8 == end8;
  const bool ok16 = dovra_json::parse_value(p16, end16, 0, v16) == fj::kParseOk && p16 == end16;
  require(ok8 == ok16, "UTF-16 and UTF-8 readings accept the same texts");
  require(!ok8 || v8 == v16, "UTF-16 and UTF-8 readings give the same tree");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  for (const unsigned char flags : {static_cast<unsigned char>(0), dovra_json::kAllowComments}) {
    try {
      check_round_trip(dovra_json::parse(text, flags));
    } catch (const fj::ParserException& e) {
      check_report(text, e);
    }
  }
  check_utf16_reading(std::u16string(data, data + size));
  std::u16string pairs(size / 2, u'\0');
  for (std::size_t i = 0; i < pairs.size(); ++i) pairs[i] = char16_t(data[2 * i] | data[2 * i + 1] << 8);
  check_utf16_reading(pairs);
  return 0;
}
