// Reading and changing an array once made: class and shape, data, the
// elements of cells and structures, scope.

#include <cstdlib>
#include <stdexcept>
#include <utility>

#include "array_record.hpp"
#include "ixtal/memory.hpp"

using namespace ixtal::detail;

namespace ixtal::detail {

void index_exceeds(const char* what) {
  throw std::out_of_range(std::string(what) + ": index exceeds the number of elements");
}

void not_a_struct() { throw std::invalid_argument("not a structure array"); }

}  // namespace ixtal::detail

// --- class and shape -------------------------------------------------------------

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

// --- data ------------------------------------------------------------------------

void* ixGetData(const ixArray* a) noexcept { return holds_slots(a) ? nullptr : a->data; }
ixArray* const* ixGetContents(const ixArray* a) noexcept { return holds_slots(a) ? slots(a) : nullptr; }

// --- cells and structures ----------------------------------------------------------

ixArray* ixGetCell(const ixArray* cell, ixSize index) {
  if (cell->class_id != ixCELL_CLASS) throw std::invalid_argument("ixGetCell: not a cell array");
  check_index(cell, index, "ixGetCell");
  return slots(cell)[index];
}
void ixSetCell(ixArray* cell, ixSize index, ixArray* value) {
  if (cell->class_id != ixCELL_CLASS) throw std::invalid_argument("ixSetCell: not a cell array");
  check_index(cell, index, "ixSetCell");
  // Filling a new cell replaces nothing: no call for that.
  if (ixArray* const old = std::exchange(slots(cell)[index], value)) ixDestroyArray(old);
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
    std::vector<std::string> names(field_names(s));
    names.emplace_back(name);
    const ixFieldNames* const made = make_fields(names.data(), names.data() + names.size());
    release_fields(std::exchange(s->fields, made));
  } catch (...) {
    ixtal::release_large(grown);
    throw;
  }
  void* old = std::exchange(s->data, grown);
  if (s->data_in_record) s->data_in_record = false;
  else ixtal::release_large(old);
  return int(nf);
}

// --- scope ---------------------------------------------------------------------------

void ixSetArrayScope(ixArray* a, int code) noexcept { a->scope = code; }
int ixGetArrayScope(const ixArray* a) noexcept { return a->scope; }
