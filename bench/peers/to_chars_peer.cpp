#include "peers/to_chars_peer.hpp"

#include <charconv>
#include <cmath>
#include <cstring>

namespace dovra_bench::peers {

namespace {

// The longest shortest-round-trip double ("-2.2250738585072014e-308") plus
// a separator; non-finite values in object form are shorter than that.
constexpr std::size_t kMaxNumber = 25;

char* put(char* p, std::string_view s) {
  std::memcpy(p, s.data(), s.size());
  return p + s.size();
}

char* put_double(char* p, double v, Layout layout) {
  if (std::isfinite(v)) return std::to_chars(p, p + kMaxNumber, v).ptr;
  const char* text = std::isnan(v) ? "\"NaN\"" : v > 0 ? "\"Inf\"" : "\"-Inf\"";
  if (layout == Layout::Small) return put(put(put(p, "{\"tndata\":"), text), "}");
  return put(p, text);
}

}  // namespace

std::string_view ToCharsEncoder::write(const NumericMatrix& m, Layout layout) {
  const std::size_t values = m.count() * (m.complex ? 2 : 1);
  const std::size_t worst = values * kMaxNumber + 2 * m.rows + 200;
  if (buffer_.size() < worst) buffer_.resize(worst);
  char* const start = buffer_.data();
  char* p = start;
  if (layout == Layout::Small && m.doubles && !m.complex) {
    // One JSON array per row: element (i, j) sits at i + j * rows.
    *p++ = '[';
    for (std::size_t i = 0; i < m.rows; ++i) {
      if (i) *p++ = ',';
      *p++ = '[';
      for (std::size_t j = 0; j < m.cols; ++j) {
        if (j) *p++ = ',';
        p = put_double(p, m.doubles[i + j * m.rows], layout);
      }
      *p++ = ']';
    }
    *p++ = ']';
  } else {
    p = put(p, m.complex ? "{\"tncomplex\":true,\"tndata\":[" : "{\"tndata\":[");
    if (m.int32s) {
      for (std::size_t k = 0; k < values; ++k) {
        if (k) *p++ = ',';
        p = std::to_chars(p, p + kMaxNumber, m.int32s[k]).ptr;
      }
    } else {
      for (std::size_t k = 0; k < values; ++k) {
        if (k) *p++ = ',';
        p = put_double(p, m.doubles[k], Layout::Large);
      }
    }
    p = put(p, "],\"tnsize\":[");
    p = std::to_chars(p, p + kMaxNumber, m.rows).ptr;
    *p++ = ',';
    p = std::to_chars(p, p + kMaxNumber, m.cols).ptr;
    p = put(put(put(p, "],\"tntype\":\""), m.type_name()), "\"}");
  }
  return {start, std::size_t(p - start)};
}

}  // namespace dovra_bench::peers
