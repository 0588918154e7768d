// The class table (ixtal/classes.hpp) and the lists built on it must agree:
// a class added to one of them and not the others fails here, at compile
// time where it can, by name of the class otherwise.

#include <gtest/gtest.h>

#include <set>
#include <string>

#include "decode/ixtal_type.hpp"
#include "foundation/json/ixtal_type.hpp"
#include "host/class_traits.hpp"
#include "ixtal/classes.hpp"
#include "ixtal/matrix.hpp"

namespace {

using namespace ixtal_json::detail;

// Every class with elements has exactly one place in the "tntype" order,
// and the order holds nothing else.
template <class... T>
constexpr int count_in(type_list<T...>, ixClassID id) {
  return (0 + ... + int(ixtal::class_of_element<T>::id == id));
}
static_assert([] {
  bool ok = true;
  ixtal::for_each_class([&](auto row) {
    ok = ok && count_in(ixtal_element_types{}, row.id) == (decltype(row)::has_elements ? 1 : 0);
  });
  return ok;
}(), "each element class of ixtal/classes.hpp needs its place in ixtal_element_types");
static_assert(size_of(ixtal_element_types{}) == kIxtalElementTypeCount);

// The library's traits read back what the table says.
static_assert([] {
  bool ok = true;
  for_each_type(ixtal_element_types{}, [&](auto tag) {
    using T = typename decltype(tag)::type;
    using Row = ixtal::class_of_element<T>;
    ok = ok && std::is_same_v<element_type_of<element_traits<T>::ixtal_type>, T> &&
         is_numeric_type(element_traits<T>::ixtal_type) == Row::numeric;
  });
  return ok;
}());

TEST(ClassTable, EveryRowIsWhatTheRuntimeReports) {
  ixtal::for_each_class([](auto row) {
    using Row = decltype(row);
    SCOPED_TRACE(Row::name);
    EXPECT_STREQ(ixClassNameOf(Row::id), Row::name);
    EXPECT_EQ(matrix::detail::isValidClassId(Row::id), Row::id != ixVOID_CLASS);
    if constexpr (Row::has_elements) {
      using T = typename Row::element_type;
      const ixSize dims[2] = {2, 3};
      const matrix::owned_array a = matrix::detail::create_numeric<T>(2, dims);
      EXPECT_EQ(ixGetClassID(a.get()), Row::id);
      EXPECT_EQ(ixGetElementSize(a.get()), sizeof(T));
      EXPECT_EQ(ixIsNumeric(a.get()), Row::numeric);
    }
  });
  EXPECT_STREQ(ixClassNameOf(ixUNKNOWN_CLASS), "unknown");
  EXPECT_FALSE(matrix::detail::isValidClassId(ixClassID(ixtal::detail::kClassSlots)));
}

TEST(ClassTable, EveryTntypeHasOneNameThatReadsBack) {
  std::set<std::string> seen;
  for (int i = 0; i < kIxtalTypeCount; ++i) {
    const auto type = IxtalType(i);
    const std::string name = ixtal_type_name(type);
    SCOPED_TRACE(name);
    EXPECT_FALSE(name.empty());
    EXPECT_TRUE(seen.insert(name).second) << "two types share a name";
    EXPECT_EQ(ixtal_type_for_name(name), type);
  }
  for_each_type(ixtal_element_types{}, [](auto tag) {
    using T = typename decltype(tag)::type;
    EXPECT_STREQ(ixtal_type_name(element_traits<T>::ixtal_type), element_traits<T>::name);
  });
}

}  // namespace
