#pragma once

// The one table of the element classes: C++ element type, host class ID,
// "tntype" value and name, and for the integer classes the bounds a double
// must stay strictly inside. Decoder, encoder and tests iterate over it
// instead of spelling out each class.

#include <complex>
#include <cstdint>
#include <limits>
#include <type_traits>

#include "foundation/json/ixtal_type.hpp"
#include "ixtal/array.hpp"

namespace ixtal_json::detail {

template <class T, ixClassID C, IxtalType X, const char* Name>
struct element_traits_base {
  using type = T;
  static constexpr ixClassID class_id = C;
  static constexpr IxtalType ixtal_type = X;
  static constexpr const char* name = Name;
};

inline constexpr char kNameInt8[] = "int8", kNameInt16[] = "int16", kNameInt32[] = "int32", kNameInt64[] = "int64",
                      kNameUint8[] = "uint8", kNameUint16[] = "uint16", kNameUint32[] = "uint32",
                      kNameUint64[] = "uint64", kNameSingle[] = "single", kNameDouble[] = "double",
                      kNameLogical[] = "logical", kNameChar[] = "char";

template <class T> struct element_traits;
template <> struct element_traits<std::int8_t> : element_traits_base<std::int8_t, ixINT8_CLASS, IxtalType::kInt8, kNameInt8> {};
template <> struct element_traits<std::int16_t> : element_traits_base<std::int16_t, ixINT16_CLASS, IxtalType::kInt16, kNameInt16> {};
template <> struct element_traits<std::int32_t> : element_traits_base<std::int32_t, ixINT32_CLASS, IxtalType::kInt32, kNameInt32> {};
template <> struct element_traits<std::int64_t> : element_traits_base<std::int64_t, ixINT64_CLASS, IxtalType::kInt64, kNameInt64> {};
template <> struct element_traits<std::uint8_t> : element_traits_base<std::uint8_t, ixUINT8_CLASS, IxtalType::kUint8, kNameUint8> {};
template <> struct element_traits<std::uint16_t> : element_traits_base<std::uint16_t, ixUINT16_CLASS, IxtalType::kUint16, kNameUint16> {};
template <> struct element_traits<std::uint32_t> : element_traits_base<std::uint32_t, ixUINT32_CLASS, IxtalType::kUint32, kNameUint32> {};
template <> struct element_traits<std::uint64_t> : element_traits_base<std::uint64_t, ixUINT64_CLASS, IxtalType::kUint64, kNameUint64> {};
template <> struct element_traits<float> : element_traits_base<float, ixSINGLE_CLASS, IxtalType::kSingle, kNameSingle> {};
template <> struct element_traits<double> : element_traits_base<double, ixDOUBLE_CLASS, IxtalType::kDouble, kNameDouble> {};
template <> struct element_traits<bool> : element_traits_base<bool, ixLOGICAL_CLASS, IxtalType::kLogical, kNameLogical> {};
template <> struct element_traits<char16_t> : element_traits_base<char16_t, ixCHAR_CLASS, IxtalType::kChar, kNameChar> {};
template <class T> struct element_traits<std::complex<T>> : element_traits<T> {};

// A double x converts to the integer class T only when
// integer_lower<T> < x < integer_upper<T>. For int64 the lower bound is
// -2^63 itself: -2^63 - 1 has no double, so the most negative int64 is out.
template <class T>
inline constexpr double integer_lower = static_cast<double>(std::numeric_limits<T>::min()) - 1.0;
template <class T>
inline constexpr double integer_upper = static_cast<double>(std::numeric_limits<T>::max()) + 1.0;

static_assert(integer_lower<std::int8_t> == -129.0 && integer_upper<std::int8_t> == 128.0);
static_assert(integer_lower<std::int64_t> == -9223372036854775808.0);
static_assert(integer_upper<std::int64_t> == 9223372036854775808.0);
static_assert(integer_lower<std::uint64_t> == -1.0 && integer_upper<std::uint64_t> == 18446744073709551616.0);

template <class... T> struct type_list {};

using integer_types = type_list<std::int8_t, std::int16_t, std::int32_t, std::int64_t, std::uint8_t, std::uint16_t,
                                std::uint32_t, std::uint64_t>;
using floating_types = type_list<float, double>;
// The ten numeric classes, in "tntype" order.
using numeric_types = type_list<std::int8_t, std::int16_t, std::int32_t, std::int64_t, std::uint8_t, std::uint16_t,
                                std::uint32_t, std::uint64_t, float, double>;

template <class T> struct type_tag {
  using type = T;
};

// Calls f(type_tag<T>{}) for each T of the list, in order.
template <class... T, class F>
constexpr void for_each_type(type_list<T...>, F&& f) {
  (f(type_tag<T>{}), ...);
}

// Calls f(type_tag<T>{}) for the numeric T whose host class is cls; false
// when cls is not numeric.
template <class F>
bool with_numeric_class(ixClassID cls, F&& f) {
  bool found = false;
  for_each_type(numeric_types{}, [&](auto tag) {
    if (!found && element_traits<typename decltype(tag)::type>::class_id == cls) {
      found = true;
      f(tag);
    }
  });
  return found;
}

}  // namespace ixtal_json::detail
