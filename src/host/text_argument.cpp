#include "host/text_argument.hpp"

#include "errors/ix_err_msg_id.hpp"
#include "errors/keys.hpp"
#include "ixtal/string_array.hpp"

namespace dovra_host {

std::u16string_view read_text_argument(const ixArray* a, TextShape shape) {
  using wrong_argument = dovra_errors::msg_exception<IXTAL::string::MustBeStringScalarOrCharacterVector>;
  using missing = dovra_errors::msg_exception<IXTAL::string::MissingNotSupported>;
  if (a && ixGetClassID(a) == ixCHAR_CLASS && !ixIsSparse(a)) {
    if (shape == TextShape::row_or_empty) {
      const bool two_d = ixGetNumberOfDimensions(a) == 2;
      const bool row = two_d && ixGetM(a) == 1;
      const bool empty = two_d && ixGetM(a) == 0 && ixGetN(a) == 0;
      if (!row && !empty) throw wrong_argument(IXTAL::string::MustBeStringScalarOrCharacterVector());
    }
    return {static_cast<const char16_t*>(ixGetData(a)), std::size_t(ixGetNumberOfElements(a))};
  }
  if (a && Tovenar::String::isString(a)) {
    if (ixGetNumberOfDimensions(a) != 2 || ixGetNumberOfElements(a) != 1 || ixGetM(a) != 1)
      throw wrong_argument(IXTAL::string::MustBeStringScalarOrCharacterVector());
    auto text = Tovenar::String::getString(a, 0);
    if (!text) throw missing(IXTAL::string::MissingNotSupported());
    return *text;
  }
  throw wrong_argument(IXTAL::string::MustBeStringScalarOrCharacterVector());
}

}  // namespace dovra_host
