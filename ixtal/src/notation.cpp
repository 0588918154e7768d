#include "ixtal/notation.hpp"

#include <algorithm>
#include <cstdio>

#include "ixtal/text.hpp"

namespace ixtal {

std::string readable(std::u16string_view units) {
  static const fl::i18n::codecvt_ustring_to_string to_utf8("UTF-8");
  std::string out;
  std::size_t run = 0;  // start of the units not yet converted
  for (std::size_t i = 0; i < units.size(); ++i) {
    const char16_t c = units[i];
    if (c >= 0x20 && c != 0x7F && !(c >= 0x80 && c < 0xA0)) continue;
    to_utf8.convert(units.data() + run, i - run, out);
    run = i + 1;
    char buffer[8];
    switch (c) {
      case u'\n': out += "\\n"; break;
      case u'\r': out += "\\r"; break;
      case u'\t': out += "\\t"; break;
      case u'\0': out += "\\0"; break;
      default:
        std::snprintf(buffer, sizeof buffer, c < 0x80 ? "\\x%02x" : "\\u%04x", unsigned(c));
        out += buffer;
    }
  }
  to_utf8.convert(units.data() + run, units.size() - run, out);
  return out;
}

std::string subscripts(const ixArray* a, ixSize i) {
  const ixSize* dims = ixGetDimensions(a);
  const std::size_t n = ixGetNumberOfDimensions(a);
  if (n == 2 && (dims[0] == 1 || dims[1] == 1)) return std::to_string(i + 1);
  std::string out;
  for (std::size_t d = 0; d < n; ++d) {
    out += (d ? "," : "") + std::to_string(i % dims[d] + 1);
    i /= dims[d];
  }
  return out;
}

std::string field_label(const std::string& name) {
  const bool plain = !name.empty() && std::all_of(name.begin(), name.end(), [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
  });
  if (plain) return name;
  return "'" + readable(fl::i18n::codecvt_string_to_ustring("UTF-8")(name)) + "'";
}

}  // namespace ixtal
