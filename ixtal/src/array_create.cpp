// Making arrays: checking what is asked, the host's form of a shape, and
// the room for the data; copying one.

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <stdexcept>

#include "array_record.hpp"
#include "ixtal/matrix.hpp"
#include "ixtal/memory.hpp"
#include "ixtal/text.hpp"

using namespace ixtal::detail;

namespace {

// The bytes a shape needs at unit bytes per element, when they are few
// enough to live in the record (a scalar, a short text, the slots of a
// record of a few fields); 0 otherwise.
std::size_t in_record_bytes(std::size_t ndim, const ixSize* dims, std::size_t unit) noexcept {
  ixSize n = 1;
  for (std::size_t i = 0; i < ndim; ++i) {
    if (dims[i] > kDataInRecord) return 0;
    n *= dims[i];
    if (n > kDataInRecord) return 0;
  }
  const std::size_t bytes = std::size_t(n) * unit;
  return bytes <= kDataInRecord ? bytes : 0;
}

void allocate_data(ixArray* a, bool zeroed) {
  const std::size_t elem = element_size(a->class_id) * (a->complex ? 2 : 1);
  if (a->data_in_record) {
    if (zeroed) std::memset(a->data, 0, numel(a) * elem);
    return;
  }
  if (numel(a) == 0) return;
  if (numel(a) > kMaxArrayBytes / elem) out_of_memory();
  const std::size_t bytes = numel(a) * elem;
  a->data = zeroed ? ixtal::allocate_zeroed(numel(a), elem) : ixtal::allocate_large(bytes);
  if (!a->data) out_of_memory();
}

// A real m-by-n array of a class with data, its bytes of data in the
// record: scalars and short rows, most of what a document holds, made
// without the checks of a shape that might not be a matrix. Nothing after
// the record's block can fail.
[[gnu::always_inline]] inline ixArray* make_small(ixSize m, ixSize n, ixClassID cls, std::size_t bytes) {
  ixArray* a = new_record(bytes);
  a->class_id = cls;
  a->dims.assign_matrix(m, n);
  return a;
}

ixArray* make_full(std::size_t ndim, const ixSize* dims, ixClassID cls, ixComplexity cx, bool zeroed) {
  if (!is_numeric_class(cls) && cls != ixLOGICAL_CLASS && cls != ixCHAR_CLASS)
    throw std::invalid_argument("array creation: not a numeric, logical or char class");
  if (cx == ixCOMPLEX && !is_numeric_class(cls))
    throw std::invalid_argument("array creation: only numeric classes can be complex");
  const std::size_t unit = element_size(cls) * (cx == ixCOMPLEX ? 2 : 1);
  if (ndim == 2 && dims[0] <= kDataInRecord && dims[1] <= kDataInRecord && dims[0] * dims[1] * unit <= kDataInRecord) {
    const std::size_t bytes = std::size_t(dims[0] * dims[1]) * unit;
    ixArray* a = make_small(dims[0], dims[1], cls, bytes);
    a->complex = cx == ixCOMPLEX;
    if (zeroed && bytes) std::memset(a->data, 0, bytes);
    return a;
  }
  new_array n(in_record_bytes(ndim, dims, unit));
  n.a->class_id = cls;
  n.a->complex = cx == ixCOMPLEX;
  set_shape(n.a, ndim, dims);
  allocate_data(n.a, zeroed);
  return n.release();
}

template <class T>
ixArray* make_scalar(T value) {
  ixArray* a = make_small(1, 1, ixtal::class_of_element<T>::id, sizeof(T));
  *static_cast<T*>(a->data) = value;
  return a;
}

ixArray* make_container(std::size_t ndim, const ixSize* dims, ixClassID cls, std::size_t per_element) {
  const std::size_t in_record = in_record_bytes(ndim, dims, per_element * sizeof(ixArray*));
  new_array n(in_record);
  n.a->class_id = cls;
  set_shape(n.a, ndim, dims);
  if (in_record) {
    std::memset(n.a->data, 0, in_record);
    return n.release();
  }
  if (per_element && numel(n.a) > kMaxArrayBytes / sizeof(ixArray*) / per_element) out_of_memory();
  n.a->data = new_slots(numel(n.a) * per_element);
  return n.release();
}

}  // namespace

namespace ixtal::detail {

void set_shape(ixArray* a, std::size_t ndim, const ixSize* dims) {
  if (ndim == 2) {
    // A matrix, nearly every array made, is in the host's form already.
    ixSize n;
    if (__builtin_mul_overflow(dims[0], dims[1], &n) || n == ~ixSize(0)) out_of_memory();
    a->dims.assign(dims, dims + 2);
    return;
  }
  ixDimensionList shape;
  shape.assign(dims, dims + ndim);
  while (shape.size() > 2 && shape.back() == 1) shape.pop_back();
  while (shape.size() < 2) shape.push_back(shape.empty() ? 0 : 1);
  ixSize n = 1;
  bool zero = false;
  for (ixSize d : shape) {
    if (d == 0) zero = true;
    else if (__builtin_mul_overflow(n, d, &n)) n = ~ixSize(0);  // saturate; fails below unless empty
  }
  if (!zero && n == ~ixSize(0)) out_of_memory();
  a->dims = shape;
}

ixArrayExtra& extra_of(ixArray* a) {
  if (!a->extra) {
    try {
      a->extra = new ixArrayExtra;  // its members start empty: nothing to zero first
    } catch (const std::bad_alloc&) {
      out_of_memory();
    }
  }
  return *a->extra;
}

const ixFieldNames* make_fields(const std::string* first, const std::string* last) {
  try {
    return new ixFieldNames{std::vector<std::string>(first, last)};
  } catch (const std::bad_alloc&) {
    out_of_memory();
  }
}

std::vector<std::size_t> sorted_field_order(const std::string* names, std::size_t n) {
  std::vector<std::size_t> order(n);
  for (std::size_t i = 0; i < n; ++i) order[i] = i;
  std::sort(order.begin(), order.end(), [names](std::size_t x, std::size_t y) {
    const int c = names[x].compare(names[y]);
    return c < 0 || (c == 0 && x < y);
  });
  return order;
}

ixArray* make_named(ixClassID cls, const char* name) {
  new_array n;
  n.a->class_id = cls;
  if (name && *name) extra_of(n.a).class_name = name;
  const ixSize one[2] = {1, 1};
  set_shape(n.a, 2, one);
  return n.release();
}

}  // namespace ixtal::detail

ixArray* ixCreateNumericArray(std::size_t ndim, const ixSize* dims, ixClassID cls, ixComplexity cx) {
  return make_full(ndim, dims, cls, cx, true);
}
ixArray* ixCreateUninitNumericArray(std::size_t ndim, const ixSize* dims, ixClassID cls, ixComplexity cx) {
  return make_full(ndim, dims, cls, cx, false);
}
ixArray* ixCreateNumericMatrix(ixSize m, ixSize n, ixClassID cls, ixComplexity cx) {
  const ixSize dims[2] = {m, n};
  return make_full(2, dims, cls, cx, true);
}
ixArray* ixCreateDoubleMatrix(ixSize m, ixSize n, ixComplexity cx) {
  return ixCreateNumericMatrix(m, n, ixDOUBLE_CLASS, cx);
}
ixArray* ixCreateDoubleScalar(double value) { return make_scalar(value); }
ixArray* ixCreateLogicalArray(std::size_t ndim, const ixSize* dims) {
  return make_full(ndim, dims, ixLOGICAL_CLASS, ixREAL, true);
}
ixArray* ixCreateLogicalScalar(bool value) { return make_scalar(value); }
ixArray* ixCreateCharArray(std::size_t ndim, const ixSize* dims) {
  return make_full(ndim, dims, ixCHAR_CLASS, ixREAL, true);
}
ixArray* ixCreateStringFromUtf16(std::u16string_view text) {
  const std::size_t bytes = text.size() * sizeof(char16_t);
  const ixSize dims[2] = {ixSize(text.empty() ? 0 : 1), text.size()};
  ixArray* a = bytes <= kDataInRecord ? make_small(dims[0], dims[1], ixCHAR_CLASS, bytes)
                                      : make_full(2, dims, ixCHAR_CLASS, ixREAL, false);
  if (!text.empty()) std::memcpy(a->data, text.data(), text.size() * sizeof(char16_t));
  return a;
}
ixArray* ixCreateStringInPlace(std::size_t room, std::size_t (*fill)(char16_t* out, void* context), void* context) {
  const ixSize dims[2] = {ixSize(room ? 1 : 0), room};
  ixArray* a = make_full(2, dims, ixCHAR_CLASS, ixREAL, false);
  if (!room) return a;
  matrix::owned_array guard(a);
  const std::size_t units = fill(static_cast<char16_t*>(a->data), context);
  if (units != room) {
    a->dims[0] = units ? 1 : 0;
    a->dims[1] = units;
    // A large block keeps its room: pages never written are not resident,
    // and a block of the same room is what the next such row asks for.
    if (!a->data_in_record && units && room * sizeof(char16_t) < ixtal::kKeptBlock)
      if (void* smaller = std::realloc(a->data, units * sizeof(char16_t))) a->data = smaller;
  }
  return guard.release();
}
ixArray* ixCreateStringFromUtf8(std::string_view utf8) {
  // UTF-16 never takes more units than UTF-8 has bytes.
  return ixCreateStringInPlace(
      utf8.size(),
      [](char16_t* out, void* text) {
        const auto& t = *static_cast<std::string_view*>(text);
        return fl::i18n::codecvt_string_to_ustring("UTF-8").convert_bounded(t.data(), t.size(), out);
      },
      &utf8);
}
ixArray* ixCreateString(const char* utf8) { return ixCreateStringFromUtf8(utf8); }
ixArray* ixCreateCellArray(std::size_t ndim, const ixSize* dims) { return make_container(ndim, dims, ixCELL_CLASS, 1); }
ixArray* ixCreateCellMatrix(ixSize m, ixSize n) {
  const ixSize dims[2] = {m, n};
  return ixCreateCellArray(2, dims);
}
ixArray* ixCreateStructArray(std::size_t ndim, const ixSize* dims, int nfields, const std::string* names) {
  if (nfields < 0) throw std::invalid_argument("structure creation: negative field count");
  // Reports the first name, in field order, that repeats an earlier one.
  const std::vector<std::size_t> order = sorted_field_order(names, std::size_t(nfields));
  std::size_t repeated = std::size_t(nfields);
  for (std::size_t k = 1; k < order.size(); ++k)
    if (names[order[k]] == names[order[k - 1]] && (k < 2 || names[order[k - 2]] != names[order[k]]))
      repeated = std::min(repeated, order[k]);
  if (repeated < std::size_t(nfields))
    throw std::invalid_argument("structure creation: repeated field name \"" + names[repeated] + "\"");
  ixArray* a = make_container(ndim, dims, ixSTRUCT_CLASS, std::size_t(nfields));
  matrix::owned_array guard(a);
  a->fields = make_fields(names, names + nfields);
  return guard.release();
}
ixArray* ixCreateStructArrayLike(std::size_t ndim, const ixSize* dims, const ixArray* model) {
  ixArray* a = make_container(ndim, dims, ixSTRUCT_CLASS, field_count(as_struct(model)));
  a->fields = share_fields(model->fields);
  return a;
}
ixArray* ixCreateStructScalarLike(const ixArray* model, ixArray* const* values) {
  const std::size_t nf = field_count(as_struct(model));
  const std::size_t bytes = nf * sizeof(ixArray*);
  if (bytes > kDataInRecord) {
    const ixSize one[2] = {1, 1};
    ixArray* a = ixCreateStructArrayLike(2, one, model);
    std::copy_n(values, nf, slots(a));
    return a;
  }
  // The slots share the record's block, as a scalar's data do.
  ixArray* a = make_small(1, 1, ixSTRUCT_CLASS, bytes);
  a->fields = share_fields(model->fields);
  std::copy_n(values, nf, slots(a));
  return a;
}
ixArray* ixCreateStructArray(std::size_t ndim, const ixSize* dims, int nfields, const char** names) {
  std::vector<std::string> v(names, names + (nfields > 0 ? nfields : 0));
  return ixCreateStructArray(ndim, dims, nfields, v.data());
}
ixArray* ixCreateStructMatrix(ixSize m, ixSize n, int nfields, const char** names) {
  const ixSize dims[2] = {m, n};
  return ixCreateStructArray(2, dims, nfields, names);
}
ixArray* ixCreateStringArray(std::size_t ndim, const ixSize* dims) {
  new_array n;
  n.a->class_id = ixOBJECT_CLASS;
  ixArrayExtra& extra = extra_of(n.a);
  extra.class_name = "string";
  set_shape(n.a, ndim, dims);
  if (numel(n.a) > kMaxArrayBytes / sizeof(std::u16string)) out_of_memory();
  extra.texts.resize(numel(n.a));
  extra.missing.assign(numel(n.a), false);
  return n.release();
}
ixArray* ixCreateSparse(ixSize m, ixSize n, ixClassID cls, ixComplexity cx) {
  if (cls != ixDOUBLE_CLASS && cls != ixLOGICAL_CLASS)
    throw std::invalid_argument("sparse arrays are double or logical");
  new_array a;
  a.a->class_id = cls;
  a.a->complex = cx == ixCOMPLEX;
  a.a->sparse = true;
  const ixSize dims[2] = {m, n};
  set_shape(a.a, 2, dims);
  extra_of(a.a).sparse_cols.assign(n + 1, 0);
  return a.release();
}
ixArray* ixCreateFunctionHandle(const char* function_name) { return make_named(ixFUNCTION_CLASS, function_name); }
ixArray* ixCreateClassObject(const char* class_name) { return make_named(ixOBJECT_CLASS, class_name); }
ixArray* ixCreateOpaque(const char* class_name) { return make_named(ixOPAQUE_CLASS, class_name); }

ixArray* ixDuplicateArray(const ixArray* a) {
  if (!a) return nullptr;
  new_array n;
  ixArray* d = n.a;
  d->class_id = a->class_id;
  d->complex = a->complex;
  d->sparse = a->sparse;
  d->dims = a->dims;
  if (a->class_id == ixSTRUCT_CLASS) d->fields = share_fields(a->fields);
  else if (a->extra) extra_of(d) = *a->extra;
  if (holds_slots(a)) {
    const std::size_t count = slot_count(a);
    d->data = new_slots(count);
    for (std::size_t i = 0; i < count; ++i) slots(d)[i] = ixDuplicateArray(slots(a)[i]);
    return n.release();
  }
  const std::size_t elem = element_size(a->class_id) * (a->complex ? 2 : 1);
  const std::size_t count = a->sparse ? a->extra->sparse_rows.size() : numel(a);
  if (a->data && count) {
    d->data = ixtal::allocate_large(count * elem);
    if (!d->data) out_of_memory();
    std::memcpy(d->data, a->data, count * elem);
  }
  return n.release();
}
