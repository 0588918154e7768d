#include "foundation/json/value.hpp"

namespace foundation::json::detail {

const char* alternative_name(int index) noexcept {
  switch (index) {
    case 0: return traits<Undefined>::name;
    case 1: return traits<Null>::name;
    case 2: return traits<bool>::name;
    case 3: return traits<double>::name;
    case 4: return traits<std::string>::name;
    case 5: return traits<Array>::name;
    case 6: return traits<Object>::name;
    case 7: return traits<float>::name;
    default: return "invalid";
  }
}

void throw_invalid_conversion(int held, int wanted) {
  throw std::runtime_error(std::string("invalid conversion: ") + alternative_name(held) + " to " +
                           alternative_name(wanted));
}

}  // namespace foundation::json::detail
