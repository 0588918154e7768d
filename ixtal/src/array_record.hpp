#pragma once

// What the runtime's array files share and hosts do not see: reading the
// record, and making and releasing its block (array_storage.cpp).

#include <boost/throw_exception.hpp>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "ixtal/array.hpp"
#include "ixtal/classes.hpp"
#include "ixtal/errors.hpp"
#include "record_pool.hpp"

namespace ixtal::detail {

// No single array may claim more than this many bytes: far beyond any real
// machine, and small enough that size arithmetic cannot overflow.
inline constexpr ixSize kMaxArrayBytes = ixSize(1) << 48;

inline std::size_t element_size(ixClassID cls) noexcept { return ixtal::info_of(cls).element_size; }
inline bool is_numeric_class(ixClassID cls) noexcept { return ixtal::info_of(cls).numeric; }

// The element count is not stored: a document's arrays are mostly scalars,
// and eight bytes fewer bring each one's record and data into a 64-byte
// block. The product cannot overflow: creation refuses such shapes, and a
// zero among the sizes makes any wrapped product zero too.
inline ixSize numel(const ixArray* a) noexcept {
  const ixSize* d = a->dims.data();
  ixSize n = d[0] * d[1];
  for (std::size_t i = 2; i < a->dims.size(); ++i) n *= d[i];
  return n;
}

// Cells and structures keep their element slots where other classes keep
// their data.
inline bool holds_slots(const ixArray* a) noexcept {
  return a->class_id == ixCELL_CLASS || a->class_id == ixSTRUCT_CLASS;
}
inline ixArray** slots(const ixArray* a) noexcept { return static_cast<ixArray**>(a->data); }
inline const std::vector<std::string>& field_names(const ixArray* a) noexcept {
  static const std::vector<std::string> none;
  return a->class_id == ixSTRUCT_CLASS && a->fields ? a->fields->names : none;
}
inline std::size_t field_count(const ixArray* a) noexcept {
  return a->class_id == ixSTRUCT_CLASS && a->fields ? a->fields->names.size() : 0;
}
// A structure made alike shares the list; the last to go frees it.
inline const ixFieldNames* share_fields(const ixFieldNames* f) noexcept {
  if (f) f->users.fetch_add(1, std::memory_order_relaxed);
  return f;
}
inline void release_fields(const ixFieldNames* f) noexcept {
  if (f && f->users.fetch_sub(1, std::memory_order_acq_rel) == 1) delete f;
}
// A new list of names, used by one structure; out-of-memory when it cannot be made.
const ixFieldNames* make_fields(const std::string* first, const std::string* last);
inline std::size_t slot_count(const ixArray* a) noexcept {
  if (a->class_id == ixCELL_CLASS) return numel(a);
  return a->class_id == ixSTRUCT_CLASS ? numel(a) * field_count(a) : 0;
}

inline const ixArrayExtra& extra_or_none(const ixArray* a) noexcept {
  static const ixArrayExtra none;
  return a->class_id != ixSTRUCT_CLASS && a->extra ? *a->extra : none;
}
// Made when first needed, for any class but structures; out-of-memory when
// it cannot be.
ixArrayExtra& extra_of(ixArray* a);

// The field numbers ordered by name (ties by number), so that checks over
// all names cost n log n, not a comparison of every pair.
std::vector<std::size_t> sorted_field_order(const std::string* names, std::size_t n);

// --- the record's block (array_storage.cpp; taking one: record_pool.hpp) ------

// Zeroed room for n element slots; none for n = 0.
ixArray** new_slots(std::size_t n);

// Arrays alive: the count every thread keeps, summed.
std::int64_t live_arrays() noexcept;
// Creations left before creation fails (-1: never), set by the test hook.
void fail_creations_after(std::int64_t n) noexcept;

// The record under construction: destroyed with whatever it holds unless
// released.
struct new_array {
  ixArray* a;
  explicit new_array(std::size_t data_bytes = 0) : a(new_record(data_bytes)) {}
  new_array(const new_array&) = delete;
  new_array& operator=(const new_array&) = delete;
  ~new_array() {
    if (a) ixDestroyArray(a);
  }
  ixArray* release() noexcept {
    ixArray* out = a;
    a = nullptr;
    return out;
  }
};

// Gives a the host's form of a shape: at least two entries, no trailing
// singleton beyond the second. Raises out-of-memory when the element count
// overflows 64 bits, leaving a as it was.
void set_shape(ixArray* a, std::size_t ndim, const ixSize* dims);

// --- used beyond the array files ----------------------------------------------

// A 1-by-1 array of class cls with no data, named name (null: unnamed).
ixArray* make_named(ixClassID cls, const char* name);

// std::out_of_range naming what, unless index is an element of a. Inline:
// every element a reader sets passes here.
[[noreturn]] void index_exceeds(const char* what);
inline void check_index(const ixArray* a, ixSize index, const char* what) {
  if (__builtin_expect(index >= numel(a), 0)) index_exceeds(what);
}

// std::invalid_argument unless s is a structure array.
[[noreturn]] void not_a_struct();
inline const ixArray* as_struct(const ixArray* s) {
  if (__builtin_expect(!s || s->class_id != ixSTRUCT_CLASS, 0)) not_a_struct();
  return s;
}

}  // namespace ixtal::detail
