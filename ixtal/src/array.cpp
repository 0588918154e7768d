#include "ixtal/array.hpp"

#include <atomic>
#include <boost/throw_exception.hpp>
#include <cmath>
#include <complex>
#include <cstdlib>
#include <cstring>
#include <new>
#include <stdexcept>

#include "array_record.hpp"
#include "ixtal/classes.hpp"
#include "ixtal/errors.hpp"
#include "ixtal/matrix.hpp"
#include "ixtal/text.hpp"

using ixtal::detail::g_fail_after;
using ixtal::detail::g_live;

namespace {

// No single array may claim more than this many bytes: far beyond any real
// machine, and small enough that size arithmetic below cannot overflow.
constexpr ixSize kMaxArrayBytes = ixSize(1) << 48;

[[noreturn]] void out_of_memory() { boost::throw_exception(foundation::core::except::bad_alloc()); }

void count_creation() {
  std::int64_t left = g_fail_after.load(std::memory_order_relaxed);
  while (left >= 0) {
    if (left == 0) out_of_memory();
    if (g_fail_after.compare_exchange_weak(left, left - 1, std::memory_order_relaxed)) break;
  }
}

std::size_t element_size(ixClassID cls) noexcept { return ixtal::info_of(cls).element_size; }

bool is_numeric_class(ixClassID cls) noexcept { return ixtal::info_of(cls).numeric; }

}  // namespace

void ixDimensionList::assign(const ixSize* first, const ixSize* last) {
  const std::size_t n = std::size_t(last - first);
  if (n > capacity_) {
    release();
    size_ = 0;
    grow(n);
  }
  std::copy(first, last, data_);
  size_ = n;
}

void ixDimensionList::grow(std::size_t capacity) {
  ixSize* bigger = new ixSize[capacity];
  std::copy(data_, data_ + size_, bigger);
  if (data_ != in_place_) delete[] data_;
  data_ = bigger;
  capacity_ = capacity;
}

namespace {

// Normalises a dimension list the way the host shows arrays: at least two
// entries, no trailing singleton beyond the second. Raises out-of-memory when
// the element count overflows 64 bits.
void set_shape(ixArray* a, std::size_t ndim, const ixSize* dims) {
  a->dims.assign(dims, dims + ndim);
  while (a->dims.size() > 2 && a->dims.back() == 1) a->dims.pop_back();
  while (a->dims.size() < 2) a->dims.push_back(a->dims.empty() ? 0 : 1);
  ixSize n = 1;
  bool zero = false;
  for (ixSize d : a->dims) {
    if (d == 0) zero = true;
    else if (__builtin_mul_overflow(n, d, &n)) n = ~ixSize(0);  // saturate; fails below unless empty
  }
  if (zero) n = 0;
  if (n == ~ixSize(0)) out_of_memory();
  a->numel = n;
}

// Data up to this size live in the record's own allocation: scalars and
// short texts, which a decoded document holds by the hundred thousand, then
// cost one allocation each instead of two.
constexpr std::size_t kDataInRecord = 64;

struct new_array {
  ixArray* a;
  // data_bytes: room for data after the record (0: none).
  explicit new_array(std::size_t data_bytes = 0) {
    count_creation();
    void* block = ::operator new(sizeof(ixArray) + data_bytes);
    a = new (block) ixArray;
    if (data_bytes) {
      a->data = reinterpret_cast<unsigned char*>(block) + sizeof(ixArray);
      a->data_in_record = true;
    }
    g_live.fetch_add(1, std::memory_order_relaxed);
  }
  ~new_array() { ixDestroyArray(a); }
  ixArray* release() { return std::exchange(a, nullptr); }
};
static_assert(sizeof(ixArray) % alignof(double) == 0, "data after the record are aligned for any element");

// The bytes of data a full array of this shape needs, when they are few
// enough to live in the record; 0 otherwise (no data, or too many).
std::size_t data_in_record_bytes(std::size_t ndim, const ixSize* dims, ixClassID cls, ixComplexity cx) noexcept {
  ixSize n = 1;
  for (std::size_t i = 0; i < ndim; ++i) {
    if (dims[i] > kDataInRecord) return 0;
    n *= dims[i];
    if (n > kDataInRecord) return 0;
  }
  const std::size_t bytes = std::size_t(n) * element_size(cls) * (cx == ixCOMPLEX ? 2 : 1);
  return bytes <= kDataInRecord ? bytes : 0;
}

void allocate_data(ixArray* a, bool zeroed) {
  const std::size_t elem = element_size(a->class_id) * (a->complex ? 2 : 1);
  if (a->data_in_record) {
    if (zeroed) std::memset(a->data, 0, a->numel * elem);
    return;
  }
  if (a->numel == 0) return;
  if (a->numel > kMaxArrayBytes / elem) out_of_memory();
  const std::size_t bytes = a->numel * elem;
  a->data = zeroed ? std::calloc(a->numel, elem) : std::malloc(bytes);
  if (!a->data) out_of_memory();
}

ixArray* make_full(std::size_t ndim, const ixSize* dims, ixClassID cls, ixComplexity cx, bool zeroed) {
  if (!is_numeric_class(cls) && cls != ixLOGICAL_CLASS && cls != ixCHAR_CLASS)
    throw std::invalid_argument("array creation: not a numeric, logical or char class");
  if (cx == ixCOMPLEX && !is_numeric_class(cls))
    throw std::invalid_argument("array creation: only numeric classes can be complex");
  new_array n(data_in_record_bytes(ndim, dims, cls, cx));
  n.a->class_id = cls;
  n.a->complex = cx == ixCOMPLEX;
  set_shape(n.a, ndim, dims);
  allocate_data(n.a, zeroed);
  return n.release();
}

ixArray* make_container(std::size_t ndim, const ixSize* dims, ixClassID cls, std::size_t per_element) {
  new_array n;
  n.a->class_id = cls;
  set_shape(n.a, ndim, dims);
  if (per_element && n.a->numel > kMaxArrayBytes / sizeof(ixArray*) / per_element) out_of_memory();
  try {
    n.a->elements.assign(n.a->numel * per_element, nullptr);
  } catch (const std::bad_alloc&) {
    out_of_memory();
  }
  return n.release();
}

const ixArray* as_struct(const ixArray* s) {
  if (!s || s->class_id != ixSTRUCT_CLASS) throw std::invalid_argument("not a structure array");
  return s;
}

}  // namespace

namespace ixtal::detail {

ixArray* make_named(ixClassID cls, const char* name) {
  new_array n;
  n.a->class_id = cls;
  n.a->class_name = name ? name : "";
  const ixSize one[2] = {1, 1};
  set_shape(n.a, 2, one);
  return n.release();
}

void check_index(const ixArray* a, ixSize index, const char* what) {
  if (index >= a->numel) throw std::out_of_range(std::string(what) + ": index exceeds the number of elements");
}

}  // namespace ixtal::detail

using ixtal::detail::check_index;
using ixtal::detail::make_named;

// --- creation ----------------------------------------------------------------

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
ixArray* ixCreateDoubleScalar(double value) {
  ixArray* a = ixCreateDoubleMatrix(1, 1, ixREAL);
  *static_cast<double*>(a->data) = value;
  return a;
}
ixArray* ixCreateLogicalArray(std::size_t ndim, const ixSize* dims) {
  return make_full(ndim, dims, ixLOGICAL_CLASS, ixREAL, true);
}
ixArray* ixCreateLogicalScalar(bool value) {
  const ixSize dims[2] = {1, 1};
  ixArray* a = ixCreateLogicalArray(2, dims);
  *static_cast<bool*>(a->data) = value;
  return a;
}
ixArray* ixCreateCharArray(std::size_t ndim, const ixSize* dims) {
  return make_full(ndim, dims, ixCHAR_CLASS, ixREAL, true);
}
ixArray* ixCreateStringFromUtf16(std::u16string_view text) {
  const ixSize dims[2] = {ixSize(text.empty() ? 0 : 1), text.size()};
  ixArray* a = make_full(2, dims, ixCHAR_CLASS, ixREAL, false);
  if (!text.empty()) std::memcpy(a->data, text.data(), text.size() * sizeof(char16_t));
  return a;
}
ixArray* ixCreateStringFromUtf8(std::string_view utf8) {
  // UTF-16 never takes more units than UTF-8 has bytes, so the text is
  // converted once into room for that many and the row trimmed after.
  const ixSize dims[2] = {ixSize(utf8.empty() ? 0 : 1), utf8.size()};
  ixArray* a = make_full(2, dims, ixCHAR_CLASS, ixREAL, false);
  if (utf8.empty()) return a;
  const fl::i18n::codecvt_string_to_ustring cvt("UTF-8");
  const std::size_t units = cvt.convert_bounded(utf8.data(), utf8.size(), static_cast<char16_t*>(a->data));
  if (units != utf8.size()) {
    a->dims[1] = units;
    a->numel = units;
    if (!a->data_in_record)
      if (void* smaller = std::realloc(a->data, units * sizeof(char16_t))) a->data = smaller;
  }
  return a;
}
ixArray* ixCreateString(const char* utf8) { return ixCreateStringFromUtf8(utf8); }
ixArray* ixCreateCellArray(std::size_t ndim, const ixSize* dims) { return make_container(ndim, dims, ixCELL_CLASS, 1); }
ixArray* ixCreateCellMatrix(ixSize m, ixSize n) {
  const ixSize dims[2] = {m, n};
  return ixCreateCellArray(2, dims);
}
ixArray* ixCreateStructArray(std::size_t ndim, const ixSize* dims, int nfields, const std::string* names) {
  if (nfields < 0) throw std::invalid_argument("structure creation: negative field count");
  for (int i = 0; i < nfields; ++i)
    for (int j = 0; j < i; ++j)
      if (names[i] == names[j]) throw std::invalid_argument("structure creation: repeated field name \"" + names[i] + "\"");
  ixArray* a = make_container(ndim, dims, ixSTRUCT_CLASS, std::size_t(nfields));
  matrix::owned_array guard(a);
  a->fields.assign(names, names + nfields);
  return guard.release();
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
  n.a->class_name = "string";
  set_shape(n.a, ndim, dims);
  if (n.a->numel > kMaxArrayBytes / sizeof(std::u16string)) out_of_memory();
  n.a->texts.resize(n.a->numel);
  n.a->missing.assign(n.a->numel, false);
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
  a.a->sparse_cols.assign(n + 1, 0);
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
  d->numel = a->numel;
  d->fields = a->fields;
  d->texts = a->texts;
  d->missing = a->missing;
  d->class_name = a->class_name;
  d->sparse_rows = a->sparse_rows;
  d->sparse_cols = a->sparse_cols;
  const std::size_t elem = element_size(a->class_id) * (a->complex ? 2 : 1);
  const std::size_t count = a->sparse ? a->sparse_rows.size() : a->numel;
  if (a->data && count) {
    d->data = std::malloc(count * elem);
    if (!d->data) out_of_memory();
    std::memcpy(d->data, a->data, count * elem);
  }
  d->elements.assign(a->elements.size(), nullptr);
  for (std::size_t i = 0; i < a->elements.size(); ++i) d->elements[i] = ixDuplicateArray(a->elements[i]);
  return n.release();
}

void ixDestroyArray(ixArray* a) noexcept {
  // Iterative, so that however deep cells nest the host's stack is safe:
  // each array's elements are taken over into the work list before it dies.
  std::vector<ixArray*> pending;
  while (a) {
    for (ixArray* e : a->elements)
      if (e) {
        try {
          pending.push_back(e);
        } catch (...) {
          ixDestroyArray(e);  // no memory for the list: fall back to recursion
        }
      }
    if (!a->data_in_record) std::free(a->data);
    a->~ixArray();
    ::operator delete(a);
    g_live.fetch_sub(1, std::memory_order_relaxed);
    a = nullptr;
    if (!pending.empty()) {
      a = pending.back();
      pending.pop_back();
    }
  }
}

// --- class and shape ---------------------------------------------------------

ixClassID ixGetClassID(const ixArray* a) noexcept { return a->class_id; }

const char* ixClassNameOf(ixClassID cls) noexcept { return ixtal::info_of(cls).name; }

const char* ixGetClassName(const ixArray* a) noexcept {
  if ((a->class_id == ixOBJECT_CLASS || a->class_id == ixOPAQUE_CLASS) && !a->class_name.empty())
    return a->class_name.c_str();
  return ixClassNameOf(a->class_id);
}

bool ixIsComplex(const ixArray* a) noexcept { return a->complex; }
bool ixIsSparse(const ixArray* a) noexcept { return a->sparse; }
bool ixIsNumeric(const ixArray* a) noexcept { return is_numeric_class(a->class_id); }
bool ixIsLogicalScalar(const ixArray* a) noexcept {
  return a && a->class_id == ixLOGICAL_CLASS && !a->sparse && a->dims.size() == 2 && a->numel == 1;
}
bool ixIsLogicalScalarTrue(const ixArray* a) noexcept {
  return ixIsLogicalScalar(a) && *static_cast<const bool*>(a->data);
}
std::size_t ixGetNumberOfDimensions(const ixArray* a) noexcept { return a->dims.size(); }
const ixSize* ixGetDimensions(const ixArray* a) noexcept { return a->dims.data(); }
ixSize ixGetM(const ixArray* a) noexcept { return a->dims[0]; }
ixSize ixGetN(const ixArray* a) noexcept {
  ixSize n = 1;  // columns of the 2-D view: every dimension after the first
  for (std::size_t i = 1; i < a->dims.size(); ++i) n *= a->dims[i];
  return n;
}
ixSize ixGetNumberOfElements(const ixArray* a) noexcept { return a->numel; }
bool ixIsEmpty(const ixArray* a) noexcept { return a->numel == 0; }
std::size_t ixGetElementSize(const ixArray* a) noexcept { return element_size(a->class_id); }

void ixSetDimensions(ixArray* a, const ixSize* dims, std::size_t ndim) {
  const ixSize before = a->numel;
  const ixDimensionList old = a->dims;
  set_shape(a, ndim, dims);
  if (a->numel != before) {
    a->dims = old;
    a->numel = before;
    throw std::invalid_argument("ixSetDimensions: the number of elements must not change");
  }
}

void* ixGetData(const ixArray* a) noexcept { return a->data; }

// --- cells and structures ----------------------------------------------------

ixArray* ixGetCell(const ixArray* cell, ixSize index) {
  if (cell->class_id != ixCELL_CLASS) throw std::invalid_argument("ixGetCell: not a cell array");
  check_index(cell, index, "ixGetCell");
  return cell->elements[index];
}
void ixSetCell(ixArray* cell, ixSize index, ixArray* value) {
  if (cell->class_id != ixCELL_CLASS) throw std::invalid_argument("ixSetCell: not a cell array");
  check_index(cell, index, "ixSetCell");
  ixDestroyArray(std::exchange(cell->elements[index], value));
}
int ixGetNumberOfFields(const ixArray* s) noexcept {
  return s->class_id == ixSTRUCT_CLASS ? int(s->fields.size()) : 0;
}
const std::string& ixGetFieldName(const ixArray* s, int field) { return as_struct(s)->fields.at(std::size_t(field)); }
int ixGetFieldNumber(const ixArray* s, std::string_view name) noexcept {
  if (s->class_id != ixSTRUCT_CLASS) return -1;
  for (std::size_t i = 0; i < s->fields.size(); ++i)
    if (s->fields[i] == name) return int(i);
  return -1;
}
ixArray* ixGetFieldByNumber(const ixArray* s, ixSize index, int field) {
  as_struct(s);
  check_index(s, index, "ixGetFieldByNumber");
  if (field < 0 || std::size_t(field) >= s->fields.size()) throw std::out_of_range("ixGetFieldByNumber: no such field");
  return s->elements[index * s->fields.size() + std::size_t(field)];
}
void ixSetFieldByNumber(ixArray* s, ixSize index, int field, ixArray* value) {
  as_struct(s);
  check_index(s, index, "ixSetFieldByNumber");
  if (field < 0 || std::size_t(field) >= s->fields.size()) throw std::out_of_range("ixSetFieldByNumber: no such field");
  ixDestroyArray(std::exchange(s->elements[index * s->fields.size() + std::size_t(field)], value));
}
int ixAddField(ixArray* s, std::string_view name) {
  as_struct(s);
  if (ixGetFieldNumber(s, name) >= 0) throw std::invalid_argument("ixAddField: repeated field name");
  const std::size_t nf = s->fields.size();
  std::vector<ixArray*> grown(s->numel * (nf + 1), nullptr);
  for (ixSize i = 0; i < s->numel; ++i)
    for (std::size_t f = 0; f < nf; ++f) grown[i * (nf + 1) + f] = s->elements[i * nf + f];
  s->fields.emplace_back(name);
  s->elements.swap(grown);
  return int(nf);
}

// --- scope ---------------------------------------------------------------------

void ixSetArrayScope(ixArray* a, int code) noexcept { a->scope = code; }
int ixGetArrayScope(const ixArray* a) noexcept { return a->scope; }

// --- comparison ----------------------------------------------------------------

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
      a->class_name != b->class_name)
    return false;
  switch (a->class_id) {
    case ixCELL_CLASS:
      for (ixSize i = 0; i < a->numel; ++i)
        if (!equal_elements(a->elements[i], b->elements[i])) return false;
      return true;
    case ixSTRUCT_CLASS: {
      // Field order is not part of a structure's value.
      if (a->fields.size() != b->fields.size()) return false;
      const std::size_t nf = a->fields.size();
      for (std::size_t f = 0; f < nf; ++f) {
        const int g = ixGetFieldNumber(b, a->fields[f]);
        if (g < 0) return false;
        for (ixSize i = 0; i < a->numel; ++i)
          if (!equal_elements(a->elements[i * nf + f], b->elements[i * nf + std::size_t(g)])) return false;
      }
      return true;
    }
    case ixOBJECT_CLASS:
      return a->texts == b->texts && a->missing == b->missing;
    case ixFUNCTION_CLASS: case ixOPAQUE_CLASS:
      return true;
    default: break;
  }
  if (a->sparse && (a->sparse_rows != b->sparse_rows || a->sparse_cols != b->sparse_cols)) return false;
  const std::size_t count = (a->sparse ? a->sparse_rows.size() : a->numel) * (a->complex ? 2 : 1);
  if (count == 0) return true;
  if (a->class_id == ixDOUBLE_CLASS) return same_floats<double>(a->data, b->data, count);
  if (a->class_id == ixSINGLE_CLASS) return same_floats<float>(a->data, b->data, count);
  return std::memcmp(a->data, b->data, count * element_size(a->class_id)) == 0;
}
