// Arbitrary bytes through the parser, with comments off and on. Whatever the
// parser rejects must be reported at a place inside the text with a location
// that agrees with it; whatever it accepts must come back as the same tree
// through the serializer, compact and pretty alike.

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
  return 0;
}
