#include "ixtal/array.hpp"

#include <algorithm>
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
#include "ixtal/memory.hpp"
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
  std::copy(first, last, ptr());
  size_ = std::uint32_t(n);
}

void ixDimensionList::grow(std::size_t capacity) {
  ixSize* bigger = new ixSize[capacity];
  std::copy(ptr(), ptr() + size_, bigger);
  if (capacity_ > kInPlace) delete[] heap_;
  heap_ = bigger;
  capacity_ = std::uint32_t(capacity);
}

namespace {

// The field numbers ordered by name (ties by number), so that checks over
// all names cost n log n, not a comparison of every pair.
std::vector<std::size_t> sorted_field_order(const std::string* names, std::size_t n) {
  std::vector<std::size_t> order(n);
  for (std::size_t i = 0; i < n; ++i) order[i] = i;
  std::sort(order.begin(), order.end(), [names](std::size_t x, std::size_t y) {
    const int c = names[x].compare(names[y]);
    return c < 0 || (c == 0 && x < y);
  });
  return order;
}

// The element count is not stored: a document's arrays are mostly scalars,
// and eight bytes fewer bring each one's record and data into a 64-byte
// block. The product cannot overflow: creation refuses such shapes, and a
// zero among the sizes makes any wrapped product zero too.
ixSize numel(const ixArray* a) noexcept {
  const ixSize* d = a->dims.data();
  ixSize n = d[0] * d[1];
  for (std::size_t i = 2; i < a->dims.size(); ++i) n *= d[i];
  return n;
}

// Cells and structures keep their element slots where other classes keep
// their data.
bool holds_slots(const ixArray* a) noexcept { return a->class_id == ixCELL_CLASS || a->class_id == ixSTRUCT_CLASS; }
ixArray** slots(const ixArray* a) noexcept { return static_cast<ixArray**>(a->data); }
const std::vector<std::string>& field_names(const ixArray* a) noexcept {
  static const std::vector<std::string> none;
  return a->extra && a->extra->fields ? *a->extra->fields : none;
}
std::size_t field_count(const ixArray* a) noexcept { return field_names(a).size(); }
std::size_t slot_count(const ixArray* a) noexcept {
  if (a->class_id == ixCELL_CLASS) return numel(a);
  return a->class_id == ixSTRUCT_CLASS ? numel(a) * field_count(a) : 0;
}

const ixArrayExtra& extra_or_none(const ixArray* a) noexcept {
  static const ixArrayExtra none;
  return a->extra ? *a->extra : none;
}
ixArrayExtra& extra_of(ixArray* a) {
  if (!a->extra) {
    try {
      a->extra = std::make_unique<ixArrayExtra>();
    } catch (const std::bad_alloc&) {
      out_of_memory();
    }
  }
  return *a->extra;
}

// Zeroed room for n element slots; none for n = 0.
ixArray** new_slots(std::size_t n) {
  if (n == 0) return nullptr;
  if (n > kMaxArrayBytes / sizeof(ixArray*)) out_of_memory();
  void* p = ixtal::allocate_zeroed(n, sizeof(ixArray*));
  if (!p) out_of_memory();
  return static_cast<ixArray**>(p);
}

// Normalises a dimension list the way the host shows arrays: at least two
// entries, no trailing singleton beyond the second. Raises out-of-memory when
// the element count overflows 64 bits.
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

// Data up to this size live in the record's own allocation: scalars and
// short texts, which a decoded document holds by the hundred thousand, then
// cost one allocation each instead of two.
constexpr std::size_t kDataInRecord = 256;

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

ixArray* make_full(std::size_t ndim, const ixSize* dims, ixClassID cls, ixComplexity cx, bool zeroed) {
  if (!is_numeric_class(cls) && cls != ixLOGICAL_CLASS && cls != ixCHAR_CLASS)
    throw std::invalid_argument("array creation: not a numeric, logical or char class");
  if (cx == ixCOMPLEX && !is_numeric_class(cls))
    throw std::invalid_argument("array creation: only numeric classes can be complex");
  new_array n(in_record_bytes(ndim, dims, element_size(cls) * (cx == ixCOMPLEX ? 2 : 1)));
  n.a->class_id = cls;
  n.a->complex = cx == ixCOMPLEX;
  set_shape(n.a, ndim, dims);
  allocate_data(n.a, zeroed);
  return n.release();
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

const ixArray* as_struct(const ixArray* s) {
  if (!s || s->class_id != ixSTRUCT_CLASS) throw std::invalid_argument("not a structure array");
  return s;
}

}  // namespace

namespace ixtal::detail {

ixArray* make_named(ixClassID cls, const char* name) {
  new_array n;
  n.a->class_id = cls;
  if (name && *name) extra_of(n.a).class_name = name;
  const ixSize one[2] = {1, 1};
  set_shape(n.a, 2, one);
  return n.release();
}

void check_index(const ixArray* a, ixSize index, const char* what) {
  if (index >= numel(a)) throw std::out_of_range(std::string(what) + ": index exceeds the number of elements");
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
    if (!a->data_in_record && units && room * sizeof(char16_t) < ixtal::kLargeBlock)
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
  try {
    extra_of(a).fields = std::make_shared<const std::vector<std::string>>(names, names + nfields);
  } catch (const std::bad_alloc&) {
    out_of_memory();
  }
  return guard.release();
}
ixArray* ixCreateStructArrayLike(std::size_t ndim, const ixSize* dims, const ixArray* model) {
  ixArray* a = make_container(ndim, dims, ixSTRUCT_CLASS, field_count(as_struct(model)));
  matrix::owned_array guard(a);
  extra_of(a).fields = model->extra ? model->extra->fields : nullptr;
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
  if (a->extra) extra_of(d) = *a->extra;
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

void ixDestroyArray(ixArray* a) noexcept {
  // Iterative, so that however deep cells nest the host's stack is safe:
  // each array's elements are taken over into the work list before it dies.
  std::vector<ixArray*> pending;
  while (a) {
    const std::size_t count = a->data && holds_slots(a) ? slot_count(a) : 0;
    for (std::size_t i = 0; i < count; ++i)
      if (ixArray* e = slots(a)[i]) {
        try {
          pending.push_back(e);
        } catch (...) {
          ixDestroyArray(e);  // no memory for the list: fall back to recursion
        }
      }
    if (!a->data_in_record) ixtal::release_large(a->data);
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
  if ((a->class_id == ixOBJECT_CLASS || a->class_id == ixOPAQUE_CLASS) && a->extra && !a->extra->class_name.empty())
    return a->extra->class_name.c_str();
  return ixClassNameOf(a->class_id);
}

bool ixIsComplex(const ixArray* a) noexcept { return a->complex; }
bool ixIsSparse(const ixArray* a) noexcept { return a->sparse; }
bool ixIsNumeric(const ixArray* a) noexcept { return is_numeric_class(a->class_id); }
bool ixIsLogicalScalar(const ixArray* a) noexcept {
  return a && a->class_id == ixLOGICAL_CLASS && !a->sparse && a->dims.size() == 2 && numel(a) == 1;
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
ixSize ixGetNumberOfElements(const ixArray* a) noexcept { return numel(a); }
bool ixIsEmpty(const ixArray* a) noexcept { return numel(a) == 0; }
std::size_t ixGetElementSize(const ixArray* a) noexcept { return element_size(a->class_id); }

void ixSetDimensions(ixArray* a, const ixSize* dims, std::size_t ndim) {
  const ixSize before = numel(a);
  const ixDimensionList old = a->dims;
  set_shape(a, ndim, dims);
  if (numel(a) != before) {
    a->dims = old;
    throw std::invalid_argument("ixSetDimensions: the number of elements must not change");
  }
}

void* ixGetData(const ixArray* a) noexcept { return holds_slots(a) ? nullptr : a->data; }
ixArrayHeader ixGetHeader(const ixArray* a) noexcept {
  return {a->class_id, a->complex, a->sparse, a->dims.size(), a->dims.data(), numel(a), ixGetData(a)};
}
ixArray* const* ixGetContents(const ixArray* a) noexcept { return holds_slots(a) ? slots(a) : nullptr; }

// --- cells and structures ----------------------------------------------------

ixArray* ixGetCell(const ixArray* cell, ixSize index) {
  if (cell->class_id != ixCELL_CLASS) throw std::invalid_argument("ixGetCell: not a cell array");
  check_index(cell, index, "ixGetCell");
  return slots(cell)[index];
}
void ixSetCell(ixArray* cell, ixSize index, ixArray* value) {
  if (cell->class_id != ixCELL_CLASS) throw std::invalid_argument("ixSetCell: not a cell array");
  check_index(cell, index, "ixSetCell");
  ixDestroyArray(std::exchange(slots(cell)[index], value));
}
int ixGetNumberOfFields(const ixArray* s) noexcept {
  return s->class_id == ixSTRUCT_CLASS ? int(field_count(s)) : 0;
}
const std::string& ixGetFieldName(const ixArray* s, int field) {
  return field_names(as_struct(s)).at(std::size_t(field));
}
int ixGetFieldNumber(const ixArray* s, std::string_view name) noexcept {
  if (s->class_id != ixSTRUCT_CLASS) return -1;
  const std::vector<std::string>& fields = field_names(s);
  for (std::size_t i = 0; i < fields.size(); ++i)
    if (fields[i] == name) return int(i);
  return -1;
}
ixArray* ixGetFieldByNumber(const ixArray* s, ixSize index, int field) {
  as_struct(s);
  check_index(s, index, "ixGetFieldByNumber");
  const std::size_t nf = field_count(s);
  if (field < 0 || std::size_t(field) >= nf) throw std::out_of_range("ixGetFieldByNumber: no such field");
  return slots(s)[index * nf + std::size_t(field)];
}
void ixSetFieldByNumber(ixArray* s, ixSize index, int field, ixArray* value) {
  as_struct(s);
  check_index(s, index, "ixSetFieldByNumber");
  const std::size_t nf = field_count(s);
  if (field < 0 || std::size_t(field) >= nf) throw std::out_of_range("ixSetFieldByNumber: no such field");
  ixDestroyArray(std::exchange(slots(s)[index * nf + std::size_t(field)], value));
}
int ixAddField(ixArray* s, std::string_view name) {
  as_struct(s);
  if (ixGetFieldNumber(s, name) >= 0) throw std::invalid_argument("ixAddField: repeated field name");
  const std::size_t nf = field_count(s);
  if (numel(s) > kMaxArrayBytes / sizeof(ixArray*) / (nf + 1)) out_of_memory();
  ixArray** grown = new_slots(numel(s) * (nf + 1));
  for (ixSize i = 0; i < numel(s); ++i)
    for (std::size_t f = 0; f < nf; ++f) grown[i * (nf + 1) + f] = slots(s)[i * nf + f];
  try {
    // Other structures may share the list: this one gets its own.
    auto names = std::make_shared<std::vector<std::string>>(field_names(s));
    names->emplace_back(name);
    extra_of(s).fields = std::move(names);
  } catch (...) {
    std::free(grown);
    throw;
  }
  void* old = std::exchange(s->data, grown);
  if (s->data_in_record) s->data_in_record = false;
  else std::free(old);
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
