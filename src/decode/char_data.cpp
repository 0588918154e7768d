#include "decode/char_data.hpp"

#include "errors/conversion_exceptions.hpp"
#include "ixtal/text.hpp"

namespace ixtal_json::detail {

namespace {

const fl::i18n::codecvt_string_to_ustring& from_utf8() {
  static const fl::i18n::codecvt_string_to_ustring cvt("UTF-8");
  return cvt;
}

// Measured first, so the array is made at its final size and written in
// place, without a UTF-16 copy in between.
matrix::owned_array filled(const std::string& utf8, std::size_t units, const dims_vector& dims) {
  auto a = uninitialised_array<char16_t>(dims);
  if (units) from_utf8().convert_into(utf8.data(), utf8.size(), data_of<char16_t>(a));
  return a;
}

}  // namespace

matrix::owned_array char_row(const std::string& utf8) { return matrix::owned_array(ixCreateStringFromUtf8(utf8)); }

matrix::owned_array char_array(const std::string& utf8, const dims_vector& dims) {
  const std::size_t units = from_utf8().measure(utf8.data(), utf8.size());
  if (units != element_count(dims)) throw MismatchedTNSize();
  return filled(utf8, units, dims);
}

}  // namespace ixtal_json::detail
