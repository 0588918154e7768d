#pragma once

// The one table of the host's array classes: class ID, C++ element type,
// host class name and element size. Everything that treats classes one by
// one, in the runtime, the builtins and the hosts, iterates over this table;
// to add a class, add its ID to ixClassID (array.hpp) and its row here.

#include <array>
#include <complex>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <type_traits>

#include "ixtal/array.hpp"

namespace ixtal {

template <class... T> struct type_list {};

// A class name as a template argument, so that each row carries its own.
template <std::size_t N>
struct class_name_text {
  char text[N];
  constexpr class_name_text(const char (&s)[N]) {  // NOLINT: implicit on purpose
    for (std::size_t i = 0; i < N; ++i) text[i] = s[i];
  }
};

// One class. Element is the C++ type of one element (one part of a complex
// element), or void for a class whose arrays hold no data.
template <ixClassID Id, class Element, class_name_text Name>
struct class_row {
  static constexpr ixClassID id = Id;
  using element_type = Element;
  static constexpr const char* name = Name.text;
  static constexpr bool has_elements = !std::is_void_v<Element>;
  static constexpr std::size_t element_size = [] {
    if constexpr (std::is_void_v<Element>) return std::size_t(0);
    else return sizeof(Element);
  }();
  // Numeric: the ten classes that may be complex (not logical, not char).
  static constexpr bool numeric =
      has_elements && !std::is_same_v<Element, bool> && !std::is_same_v<Element, char16_t>;
};

// Every class ID but ixUNKNOWN_CLASS, in ID order.
using classes = type_list<
    class_row<ixCELL_CLASS, void, "cell">,
    class_row<ixSTRUCT_CLASS, void, "struct">,
    class_row<ixLOGICAL_CLASS, bool, "logical">,
    class_row<ixCHAR_CLASS, char16_t, "char">,
    class_row<ixVOID_CLASS, void, "void">,
    class_row<ixDOUBLE_CLASS, double, "double">,
    class_row<ixSINGLE_CLASS, float, "single">,
    class_row<ixINT8_CLASS, std::int8_t, "int8">,
    class_row<ixUINT8_CLASS, std::uint8_t, "uint8">,
    class_row<ixINT16_CLASS, std::int16_t, "int16">,
    class_row<ixUINT16_CLASS, std::uint16_t, "uint16">,
    class_row<ixINT32_CLASS, std::int32_t, "int32">,
    class_row<ixUINT32_CLASS, std::uint32_t, "uint32">,
    class_row<ixINT64_CLASS, std::int64_t, "int64">,
    class_row<ixUINT64_CLASS, std::uint64_t, "uint64">,
    class_row<ixFUNCTION_CLASS, void, "function_handle">,
    class_row<ixOPAQUE_CLASS, void, "opaque">,
    class_row<ixOBJECT_CLASS, void, "object">>;

// Calls f(T{}) for each T of a list, in order.
template <class... T, class F>
constexpr void for_each_of(type_list<T...>, F&& f) {
  (f(T{}), ...);
}

// Calls f(Row{}) for each row of the class table, in ID order.
template <class F>
constexpr void for_each_class(F&& f) {
  for_each_of(classes{}, f);
}

namespace detail {
template <class F, class Otherwise, class Row, class... Rest>
constexpr decltype(auto) visit_class(ixClassID cls, F& f, Otherwise& otherwise, type_list<Row, Rest...>) {
  if (cls == Row::id) return f(Row{});
  if constexpr (sizeof...(Rest) == 0) return otherwise();
  else return visit_class(cls, f, otherwise, type_list<Rest...>{});
}
}  // namespace detail

// f(Row{}) for the row of cls, or otherwise() when cls has no row; both
// return the same type.
template <class F, class Otherwise>
constexpr decltype(auto) visit_class(ixClassID cls, F&& f, Otherwise&& otherwise) {
  return detail::visit_class(cls, f, otherwise, classes{});
}

// A row's properties as plain values, for lookups at run time.
struct class_info {
  const char* name = "unknown";
  std::size_t element_size = 0;
  bool numeric = false;
  bool known = false;
};
namespace detail {
// The rows as one array indexed by class ID, so that a lookup is a load.
template <class... Row>
constexpr std::size_t count_rows(type_list<Row...>) { return sizeof...(Row); }
inline constexpr std::size_t kClassSlots = count_rows(classes{}) + 1;  // slot 0: ixUNKNOWN_CLASS

// The rows follow the IDs one to one from ixCELL_CLASS: no ID between the
// first and the last is skipped or given two rows.
static_assert([] {
  std::size_t expected = 1;
  bool in_order = true;
  for_each_class([&](auto row) { in_order = in_order && std::size_t(row.id) == expected++; });
  return in_order;
}(), "one row per class ID, in ID order from ixCELL_CLASS");
inline constexpr auto kClassInfo = [] {
  std::array<class_info, kClassSlots> table{};
  for_each_class([&](auto row) {
    table[std::size_t(row.id)] = class_info{row.name, row.element_size, row.numeric, true};
  });
  return table;
}();
}  // namespace detail

// The properties of cls; known is false (name "unknown") when cls has no row.
constexpr class_info info_of(ixClassID cls) noexcept {
  const auto i = std::size_t(cls);
  return i < detail::kClassSlots ? detail::kClassInfo[i] : class_info{};
}

namespace detail {
template <class T, class Row, class... Rest>
constexpr auto find_row(type_list<Row, Rest...>) {
  if constexpr (std::is_same_v<typename Row::element_type, T>) return Row{};
  else return find_row<T>(type_list<Rest...>{});
}
template <class T> struct element_row { using type = decltype(find_row<T>(classes{})); };
template <class T> struct element_row<std::complex<T>> : element_row<T> {};
}  // namespace detail

// The row of the class whose elements are of type T (a complex T: its
// part's). The one way to go from an element type to its class:
// class_of_element<T>::id, ::name, ::numeric.
template <class T>
using class_of_element = typename detail::element_row<T>::type;

}  // namespace ixtal
