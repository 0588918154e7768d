#include "ixtal/matrix.hpp"

#include <stdexcept>
#include <string>

#include "ixtal/text.hpp"

namespace matrix {
namespace detail {

// ixVOID_CLASS has a row, but no array is ever made of it.
bool isValidClassId(ixClassID cls) noexcept { return ixtal::info_of(cls).known && cls != ixVOID_CLASS; }
void rejectClassId(const ixArray* a, ixClassID expected) {
  throw std::invalid_argument(std::string("expected an array of class ") + ixClassNameOf(expected) + ", got " +
                              ixGetClassName(a));
}
void rejectArrayShape(const ixArray* a) {
  throw std::invalid_argument(std::string("unsupported storage for an array of class ") + ixGetClassName(a) +
                              (a->sparse ? " (sparse)" : a->complex ? " (complex)" : " (real)"));
}
void rejectInvalidClassId(const ixArray* a) {
  throw std::invalid_argument("invalid class ID " + std::to_string(int(a->class_id)));
}

}  // namespace detail

std::string get_string(const ixArray* a, fl::i18n::codecvt_ustring_to_string& cvt) {
  typed_array<char16_t> chars(a);
  std::string out;
  cvt.convert(chars.data(), chars.size(), out);
  return out;
}

}  // namespace matrix
