#pragma once

// The host array model. Every value the host hands a builtin, and every
// value a builtin hands back, is an ixArray: a class, at least two
// dimensions, and elements stored first dimension fastest. Complex data are
// interleaved (re, im) pairs. Arrays are created, read and destroyed only
// through the functions below.
//
// Creation raises the host's out-of-memory error
// (foundation::core::except::bad_alloc) when the element count overflows 64
// bits or memory cannot be had; it never returns null.

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "ixtal/export.hpp"

enum ixClassID : int {
  ixUNKNOWN_CLASS = 0,
  ixCELL_CLASS = 1,
  ixSTRUCT_CLASS = 2,
  ixLOGICAL_CLASS = 3,
  ixCHAR_CLASS = 4,
  ixVOID_CLASS = 5,
  ixDOUBLE_CLASS = 6,
  ixSINGLE_CLASS = 7,
  ixINT8_CLASS = 8,
  ixUINT8_CLASS = 9,
  ixINT16_CLASS = 10,
  ixUINT16_CLASS = 11,
  ixINT32_CLASS = 12,
  ixUINT32_CLASS = 13,
  ixINT64_CLASS = 14,
  ixUINT64_CLASS = 15,
  ixFUNCTION_CLASS = 16,
  ixOPAQUE_CLASS = 17,
  ixOBJECT_CLASS = 18,
};

enum ixComplexity : int { ixREAL = 0, ixCOMPLEX = 1 };

using ixSize = std::uint64_t;
using ixChar = char16_t;
using ixLogical = bool;

struct ixArray_tag;
using ixArray = ixArray_tag;

// The dimension list of an array record: two sizes held in place (a matrix,
// which nearly every array is), more on the heap, so creating an array
// costs no allocation for its shape.
class IXTAL_API ixDimensionList {
 public:
  ixDimensionList() noexcept : in_place_{0, 0} {}
  ixDimensionList(const ixDimensionList& other) : ixDimensionList() { assign(other.begin(), other.end()); }
  ixDimensionList& operator=(const ixDimensionList& other) {
    if (this != &other) assign(other.begin(), other.end());
    return *this;
  }
  ~ixDimensionList() { release(); }

  void assign(const ixSize* first, const ixSize* last);
  // Two sizes, held in place: a matrix, nearly every array.
  void assign_matrix(ixSize m, ixSize n) noexcept {
    release();
    in_place_[0] = m;
    in_place_[1] = n;
    size_ = 2;
  }
  void push_back(ixSize d) {
    if (size_ == capacity_) grow(2 * std::size_t(capacity_));
    ptr()[size_++] = d;
  }
  void pop_back() noexcept { --size_; }

  std::size_t size() const noexcept { return size_; }
  bool empty() const noexcept { return size_ == 0; }
  const ixSize* data() const noexcept { return ptr(); }
  ixSize& operator[](std::size_t i) noexcept { return ptr()[i]; }
  ixSize operator[](std::size_t i) const noexcept { return ptr()[i]; }
  ixSize back() const noexcept { return ptr()[size_ - 1]; }
  const ixSize* begin() const noexcept { return ptr(); }
  const ixSize* end() const noexcept { return ptr() + size_; }
  friend bool operator==(const ixDimensionList& a, const ixDimensionList& b) noexcept {
    return a.size_ == b.size_ && std::equal(a.begin(), a.end(), b.begin());
  }

 private:
  static constexpr std::uint32_t kInPlace = 2;
  ixSize* ptr() noexcept { return capacity_ > kInPlace ? heap_ : in_place_; }
  const ixSize* ptr() const noexcept { return capacity_ > kInPlace ? heap_ : in_place_; }
  void grow(std::size_t capacity);
  void release() noexcept {
    if (capacity_ > kInPlace) delete[] heap_;
    capacity_ = kInPlace;
    in_place_[0] = in_place_[1] = 0;  // an emptied list reads as no elements
  }

  std::uint32_t size_ = 0;
  std::uint32_t capacity_ = kInPlace;
  union {
    ixSize in_place_[kInPlace];
    ixSize* heap_;
  };
};

// What only some classes hold, kept out of the record: a document decodes to
// arrays by the hundred thousand, nearly all scalars and short texts, and
// every byte of the record is paid that many times.
struct ixArrayExtra {
  std::vector<std::u16string> texts;  // string arrays: numel texts
  std::vector<bool> missing;          // string arrays: which elements are missing
  std::string class_name;             // function handles, opaque and class objects
  std::vector<std::uint64_t> sparse_rows, sparse_cols;  // sparse: row index and column start per entry

  // From the runtime's pool of small blocks, as records are: every decoded
  // structure has one.
  IXTAL_API static void* operator new(std::size_t bytes);
  IXTAL_API static void operator delete(void* block, std::size_t bytes) noexcept;
};

// A structure's field names in field-number order, never changed once made:
// structures made alike share one list, which counts them.
struct ixFieldNames {
  std::vector<std::string> names;
  mutable std::atomic<std::size_t> users{1};
};

// The array record. Its members are the runtime's; builtins use the
// functions below.
struct IXTAL_API ixArray_tag {
  // Bit-fields: the class and both flags share one word with the scope.
  ixClassID class_id : 16 = ixUNKNOWN_CLASS;
  bool complex : 1 = false;
  bool sparse : 1 = false;
  bool data_in_record : 1 = false;  // data share the record's allocation (small arrays)
  unsigned block_class : 3 = 0;     // the record pool's size class of the block (0: from the heap)
  int scope = 0;
  ixDimensionList dims;  // at least two entries
  // Numeric, logical, char: numel elements (pairs if complex), right after
  // the record when they are few. Cell: numel element slots; struct:
  // numel * field count slots, element-major.
  void* data = nullptr;
  // A structure keeps its field names (null: none) in the record: a decoded
  // document holds structures by the thousand, and a block more for each
  // cost as much as making it. Other classes keep here what only some of
  // them hold, made when first needed. The runtime releases either.
  union {
    ixArrayExtra* extra = nullptr;
    const ixFieldNames* fields;
  };

  ixArray_tag() = default;
  ixArray_tag(const ixArray_tag&) = delete;
  ixArray_tag& operator=(const ixArray_tag&) = delete;

  // This host always holds full dimension vectors; kept for callers written
  // for hosts that complete lazily.
  void _complete_opaque_dimensions() const noexcept {}
};

extern "C++" {

// --- creation --------------------------------------------------------------
IXTAL_API ixArray* ixCreateNumericArray(std::size_t ndim, const ixSize* dims, ixClassID cls, ixComplexity cx);
// As ixCreateNumericArray, but the data are left uninitialised: for callers
// that write every element.
IXTAL_API ixArray* ixCreateUninitNumericArray(std::size_t ndim, const ixSize* dims, ixClassID cls, ixComplexity cx);
IXTAL_API ixArray* ixCreateNumericMatrix(ixSize m, ixSize n, ixClassID cls, ixComplexity cx);
IXTAL_API ixArray* ixCreateDoubleMatrix(ixSize m, ixSize n, ixComplexity cx);
IXTAL_API ixArray* ixCreateDoubleScalar(double value);
IXTAL_API ixArray* ixCreateLogicalArray(std::size_t ndim, const ixSize* dims);
IXTAL_API ixArray* ixCreateLogicalScalar(bool value);
IXTAL_API ixArray* ixCreateCharArray(std::size_t ndim, const ixSize* dims);
// A 1-by-N char row of the UTF-16 form of a NUL-terminated UTF-8 text;
// 0-by-0 for the empty text.
IXTAL_API ixArray* ixCreateString(const char* utf8);
// The same from a UTF-8 text that may hold NUL.
IXTAL_API ixArray* ixCreateStringFromUtf8(std::string_view utf8);
// The same from UTF-16 code units.
IXTAL_API ixArray* ixCreateStringFromUtf16(std::u16string_view text);
// A 1-by-N char row written in place: fill(out, context) writes at most
// room units at out and returns how many it wrote, which the row keeps
// (0-by-0 for none). Room that fill does not write is never touched.
IXTAL_API ixArray* ixCreateStringInPlace(std::size_t room, std::size_t (*fill)(char16_t* out, void* context),
                                         void* context);
IXTAL_API ixArray* ixCreateCellArray(std::size_t ndim, const ixSize* dims);
IXTAL_API ixArray* ixCreateCellMatrix(ixSize m, ixSize n);
// Any text is a field name, the empty one included; a repeated name raises
// std::invalid_argument.
IXTAL_API ixArray* ixCreateStructArray(std::size_t ndim, const ixSize* dims, int nfields, const std::string* names);
IXTAL_API ixArray* ixCreateStructArray(std::size_t ndim, const ixSize* dims, int nfields, const char** names);
IXTAL_API ixArray* ixCreateStructMatrix(ixSize m, ixSize n, int nfields, const char** names);
// A structure array with model's fields, their names shared rather than
// copied or checked again: a document of many records of one layout then
// costs each record its slots.
IXTAL_API ixArray* ixCreateStructArrayLike(std::size_t ndim, const ixSize* dims, const ixArray* model);
// A 1-by-1 structure with model's fields holding values[f] as field f (one
// per field of model), made in one call: a record costs no call per field.
// The structure takes the values when it is made; should that fail, they
// stay the caller's.
IXTAL_API ixArray* ixCreateStructScalarLike(const ixArray* model, ixArray* const* values);
// Host string array (class "string"); every element starts as "".
IXTAL_API ixArray* ixCreateStringArray(std::size_t ndim, const ixSize* dims);
// A sparse double or logical m-by-n matrix with no stored entries.
IXTAL_API ixArray* ixCreateSparse(ixSize m, ixSize n, ixClassID cls, ixComplexity cx);
IXTAL_API ixArray* ixCreateFunctionHandle(const char* function_name);
IXTAL_API ixArray* ixCreateClassObject(const char* class_name);
IXTAL_API ixArray* ixCreateOpaque(const char* class_name);
IXTAL_API ixArray* ixDuplicateArray(const ixArray* a);
// Destroys the array and everything it holds; null is ignored.
IXTAL_API void ixDestroyArray(ixArray* a) noexcept;

// --- class and shape -------------------------------------------------------
IXTAL_API ixClassID ixGetClassID(const ixArray* a) noexcept;
// "double", "int8", "cell", "function_handle", ...; the class name of an
// object or opaque array; "unknown" for an unknown class ID.
IXTAL_API const char* ixGetClassName(const ixArray* a) noexcept;
IXTAL_API const char* ixClassNameOf(ixClassID cls) noexcept;
IXTAL_API bool ixIsComplex(const ixArray* a) noexcept;
IXTAL_API bool ixIsSparse(const ixArray* a) noexcept;
IXTAL_API bool ixIsNumeric(const ixArray* a) noexcept;
IXTAL_API bool ixIsLogicalScalar(const ixArray* a) noexcept;
IXTAL_API bool ixIsLogicalScalarTrue(const ixArray* a) noexcept;
IXTAL_API std::size_t ixGetNumberOfDimensions(const ixArray* a) noexcept;
IXTAL_API const ixSize* ixGetDimensions(const ixArray* a) noexcept;
IXTAL_API ixSize ixGetM(const ixArray* a) noexcept;
IXTAL_API ixSize ixGetN(const ixArray* a) noexcept;
IXTAL_API ixSize ixGetNumberOfElements(const ixArray* a) noexcept;
IXTAL_API bool ixIsEmpty(const ixArray* a) noexcept;
// Size in bytes of one element (one part of a complex element).
IXTAL_API std::size_t ixGetElementSize(const ixArray* a) noexcept;
// What a reader of many small arrays asks of each, in one call: a table of
// records asks it of every value it holds.
struct ixArrayHeader {
  ixClassID class_id;
  bool complex;
  bool sparse;
  std::size_t ndim;
  const ixSize* dims;
  ixSize count;      // elements
  const void* data;  // as ixGetData
  ixArray* const* contents = nullptr;  // as ixGetContents
  // A structure's field names in field-number order; structures made alike
  // share the list, so its address tells their layouts apart.
  int nfields = 0;
  const std::string* fields = nullptr;
};
// Inline: a writer of a table of records asks it of every value, and a
// call into the runtime for each cost more than reading the record.
inline ixArrayHeader ixGetHeader(const ixArray* a) noexcept {
  const ixSize* const d = a->dims.data();
  ixSize count = d[0] * d[1];
  for (std::size_t i = 2; i < a->dims.size(); ++i) count *= d[i];
  ixArrayHeader h{a->class_id, a->complex, a->sparse, a->dims.size(), d, count, a->data};
  if (a->class_id != ixCELL_CLASS && a->class_id != ixSTRUCT_CLASS) [[likely]] return h;
  h.data = nullptr;
  h.contents = static_cast<ixArray* const*>(a->data);
  if (a->class_id == ixSTRUCT_CLASS && a->fields) {
    h.nfields = int(a->fields->names.size());
    h.fields = a->fields->names.data();
  }
  return h;
}
// Reshapes without touching the data; the element count must stay the same
// (std::invalid_argument otherwise). Fewer than two entries are padded with 1.
IXTAL_API void ixSetDimensions(ixArray* a, const ixSize* dims, std::size_t ndim);

// --- data ------------------------------------------------------------------
// Numeric, logical and char data; complex data as interleaved pairs.
IXTAL_API void* ixGetData(const ixArray* a) noexcept;

// --- cells and structures --------------------------------------------------
// Null for an unset element.
// The arrays a cell or structure holds, in storage order (a structure's
// element by element: element i's field f at i * field count + f; an unset
// one is null), for readers that visit them all; null for other classes.
IXTAL_API ixArray* const* ixGetContents(const ixArray* a) noexcept;
IXTAL_API ixArray* ixGetCell(const ixArray* cell, ixSize index);
// The cell takes ownership of value and destroys what it held before.
IXTAL_API void ixSetCell(ixArray* cell, ixSize index, ixArray* value);
IXTAL_API int ixGetNumberOfFields(const ixArray* s) noexcept;
IXTAL_API const std::string& ixGetFieldName(const ixArray* s, int field);
// -1 when the structure has no such field.
IXTAL_API int ixGetFieldNumber(const ixArray* s, std::string_view name) noexcept;
IXTAL_API ixArray* ixGetFieldByNumber(const ixArray* s, ixSize index, int field);
IXTAL_API void ixSetFieldByNumber(ixArray* s, ixSize index, int field, ixArray* value);
// Appends a field (unset in every element) and returns its number.
IXTAL_API int ixAddField(ixArray* s, std::string_view name);

// --- scope -----------------------------------------------------------------
IXTAL_API void ixSetArrayScope(ixArray* a, int code) noexcept;
IXTAL_API int ixGetArrayScope(const ixArray* a) noexcept;

// --- comparison ------------------------------------------------------------
// Same class, size, complexity, sparsity and contents, recursively; NaN
// equals NaN whatever its payload, and +0 differs from -0.
IXTAL_API bool ixIsEqualN(const ixArray* a, const ixArray* b) noexcept;

}  // extern "C++"
