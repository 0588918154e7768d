// Whether two arrays hold the same value.

#include <cmath>
#include <cstring>
#include <new>

#include "array_record.hpp"

using namespace ixtal::detail;

namespace {

template <class T>
bool same_floats(const void* a, const void* b, std::size_t n) {
  const T* x = static_cast<const T*>(a);
  const T* y = static_cast<const T*>(b);
  for (std::size_t i = 0; i < n; ++i) {
    if (std::isnan(x[i]) && std::isnan(y[i])) continue;
    if (std::memcmp(&x[i], &y[i], sizeof(T)) != 0) return false;
  }
  return true;
}

bool is_empty_double(const ixArray* a) {
  return a->class_id == ixDOUBLE_CLASS && !a->complex && !a->sparse && a->dims.size() == 2 && a->dims[0] == 0 &&
         a->dims[1] == 0;
}

bool equal_elements(const ixArray* a, const ixArray* b) {
  // An unset element reads as the empty double.
  if (!a && !b) return true;
  if (!a) return is_empty_double(b);
  if (!b) return is_empty_double(a);
  return ixIsEqualN(a, b);
}

}  // namespace

bool ixIsEqualN(const ixArray* a, const ixArray* b) noexcept {
  if (a == b) return true;
  if (!a || !b) return false;
  if (a->class_id != b->class_id || a->complex != b->complex || a->sparse != b->sparse || a->dims != b->dims ||
      extra_or_none(a).class_name != extra_or_none(b).class_name)
    return false;
  switch (a->class_id) {
    case ixCELL_CLASS:
      for (ixSize i = 0; i < numel(a); ++i)
        if (!equal_elements(slots(a)[i], slots(b)[i])) return false;
      return true;
    case ixSTRUCT_CLASS: {
      // Field order is not part of a structure's value.
      const std::vector<std::string>& af = field_names(a);
      const std::vector<std::string>& bf = field_names(b);
      if (af.size() != bf.size()) return false;
      const std::size_t nf = af.size();
      const auto same_field = [&](std::size_t f, std::size_t g) {
        for (ixSize i = 0; i < numel(a); ++i)
          if (!equal_elements(slots(a)[i * nf + f], slots(b)[i * nf + g])) return false;
        return true;
      };
      // The same order, the usual case, needs no pairing at all.
      if (af == bf) {
        for (std::size_t f = 0; f < nf; ++f)
          if (!same_field(f, f)) return false;
        return true;
      }
      // Otherwise fields pair by name through both sorted orders (names are
      // unique); without memory for the orders, by looking each one up.
      try {
        const std::vector<std::size_t> fa = sorted_field_order(af.data(), nf);
        const std::vector<std::size_t> fb = sorted_field_order(bf.data(), nf);
        for (std::size_t k = 0; k < nf; ++k)
          if (af[fa[k]] != bf[fb[k]] || !same_field(fa[k], fb[k])) return false;
      } catch (const std::bad_alloc&) {
        for (std::size_t f = 0; f < nf; ++f) {
          const int g = ixGetFieldNumber(b, af[f]);
          if (g < 0 || !same_field(f, std::size_t(g))) return false;
        }
      }
      return true;
    }
    case ixOBJECT_CLASS:
      return extra_or_none(a).texts == extra_or_none(b).texts && extra_or_none(a).missing == extra_or_none(b).missing;
    case ixFUNCTION_CLASS: case ixOPAQUE_CLASS:
      return true;
    default: break;
  }
  const ixArrayExtra& ax = extra_or_none(a);
  const ixArrayExtra& bx = extra_or_none(b);
  if (a->sparse && (ax.sparse_rows != bx.sparse_rows || ax.sparse_cols != bx.sparse_cols)) return false;
  const std::size_t count = (a->sparse ? ax.sparse_rows.size() : numel(a)) * (a->complex ? 2 : 1);
  if (count == 0) return true;
  if (a->class_id == ixDOUBLE_CLASS) return same_floats<double>(a->data, b->data, count);
  if (a->class_id == ixSINGLE_CLASS) return same_floats<float>(a->data, b->data, count);
  return std::memcmp(a->data, b->data, count * element_size(a->class_id)) == 0;
}
