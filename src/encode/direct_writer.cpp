#include "encode/direct_writer.hpp"

#include <algorithm>
#include <cmath>
#include <complex>
#include <limits>
#include <numeric>
#include <string>
#include <vector>

#include "encode/large_object.hpp"
#include "foundation/json/serializer.hpp"
#include "host/class_traits.hpp"
#include "ixtal/matrix.hpp"

namespace ixtal_json::detail {
namespace {

using foundation::json::TextStream;

// Containers within containers the writer follows. Each adds at most three
// levels of JSON, so text this deep stays far inside the parser's bound and
// the tree's depth errors are never the writer's to raise; deeper arrays go
// to the tree, which checks the bound exactly.
constexpr std::size_t kMaxContainerLevels = 100;

// Units of UTF-16 text, never fewer than written: a number and its comma
// (special numbers, {"tndata":"-Inf"}, are shorter), a boolean and its
// comma, and the fixed text of a large object besides its size.
constexpr std::size_t kNumberUnits = 25;
constexpr std::size_t kBooleanUnits = 6;
constexpr std::size_t kLargeObjectUnits = 80;

// Units a text takes once quoted and escaped: at most one per unit of the
// host text (a pair stays two, a lone surrogate becomes one), six for a
// control character, two for a quote or backslash.
std::size_t text_units(const char16_t* s, std::size_t n) noexcept {
  std::size_t units = n + 3;  // quotes and a comma
  for (std::size_t i = 0; i < n; ++i) units += s[i] < 0x20 ? 5 : s[i] == u'"' || s[i] == u'\\';
  return units;
}
std::size_t text_units(std::string_view s) noexcept {
  std::size_t units = s.size() + 4;  // quotes, colon or comma
  for (const char c : s) units += static_cast<unsigned char>(c) < 0x20 ? 5 : c == '"' || c == '\\';
  return units;
}

// Field numbers in the byte order of their names, the order of the tree's
// object; empty when two names are the same (the tree's business).
std::vector<int> sorted_fields(const ixArray* s) {
  std::vector<int> order(std::size_t(ixGetNumberOfFields(s)));
  std::iota(order.begin(), order.end(), 0);
  std::sort(order.begin(), order.end(), [&](int x, int y) { return ixGetFieldName(s, x) < ixGetFieldName(s, y); });
  for (std::size_t k = 1; k < order.size(); ++k)
    if (ixGetFieldName(s, order[k]) == ixGetFieldName(s, order[k - 1])) return {};
  return order;
}

// Values ahead of the one being planned whose arrays are fetched into the
// cache: the host keeps a structure's values element by element, so a
// column strides through memory where no hardware prefetcher follows. The
// second line is where a small array keeps its data.
constexpr ixSize kPrefetchAhead = 8;
inline void prefetch(const ixArray* a) noexcept {
  __builtin_prefetch(a);
  __builtin_prefetch(reinterpret_cast<const char*>(a) + 64);
}

// What the text of one array is, decided while the room is reckoned. The
// writing then reads the plan in order and goes back to the host array only
// for the larger forms: a structure of many scalar fields is written
// without another call to the host per value.
enum class Form : std::uint8_t {
  empty,          // an unset element: the empty double
  number,         // a small-notation 1-by-1 double
  boolean,        // a small-notation 1-by-1 logical
  text,           // a small-notation char row (or 0-by-0) as a string
  other,          // any other form of a numeric, logical or char array
  cell,           // followed by the plans of its elements
  struct_large,   // followed by its values, field by field in name order
  struct_scalar,  // followed by its values in name order
  empty_object,   // a small-notation 0-by-0 structure without fields: {}
};

struct Step {
  Step() noexcept {}  // left unset: the plan of a structure is sized first, then filled
  Form form;
  const ixArray* a;
  union {
    double number;
    bool boolean;
    std::size_t text;    // where it starts in the text list
    std::size_t fields;  // structures: where their field order starts in the field list
  };
  std::size_t count;  // text: its units
};

class Writer {
 public:
  Writer(ToJsonMode mode, NanType nan) : small_(mode == ToJsonMode::small), nan_(nan) {}

  // Plans the text of a (null: unset) and returns the units it takes at
  // most; 0 when the writer leaves the array to the tree.
  std::size_t plan(const ixArray* a, std::size_t levels = 0) {
    const ixArrayHeader h = a ? ixGetHeader(a) : ixArrayHeader{};
    if (a && is_container(h.class_id) && !h.complex) return plan_container(a, levels);
    return plan_leaf(steps_.emplace_back(), a, h);
  }

 private:
  static bool is_container(ixClassID c) noexcept { return c == ixCELL_CLASS || c == ixSTRUCT_CLASS; }

  std::size_t plan_container(const ixArray* a, std::size_t levels) {
    if (ixIsSparse(a) || levels >= kMaxContainerLevels) return 0;
    const auto dims = dims_of(a);
    if (dims.size() < 2) return 0;
    const ixSize n = ixGetNumberOfElements(a);
    const std::size_t fixed = kLargeObjectUnits + kNumberUnits * dims.size();
    const std::size_t at = steps_.size();
    steps_.emplace_back().a = a;
    std::size_t units = fixed;
    if (ixGetClassID(a) == ixCELL_CLASS) {
      steps_[at].form = Form::cell;
      ixArray* const* const cells = ixGetContents(a);
      for (ixSize i = 0; i < n; ++i) {
        const std::size_t r = plan(cells[i], levels + 1);
        if (!r) return 0;
        units += r + 1;
      }
      return units;
    }
    const int nfields = ixGetNumberOfFields(a);
    const std::vector<int> order = sorted_fields(a);
    if (nfields > 0 && order.empty()) return 0;
    steps_[at].form = small_ && is_2d(dims, 1, 1)                        ? Form::struct_scalar
                      : small_ && is_2d(dims, 0, 0) && nfields == 0 ? Form::empty_object
                                                                     : Form::struct_large;
    steps_[at].fields = fields_.size();
    fields_.insert(fields_.end(), order.begin(), order.end());
    for (const int f : order) units += text_units(ixGetFieldName(a, f)) + 2;
    // The text goes field by field, the host keeps the values element by
    // element: values without elements of their own are planned in the
    // host's order, each into its place in the text's.
    const std::size_t first = steps_.size(), count = n * order.size();
    std::vector<std::size_t> place(order.size());
    for (std::size_t k = 0; k < order.size(); ++k) place[std::size_t(order[k])] = first + k * n;
    steps_.resize(first + count);
    // Read from the slots themselves: a checked accessor per value cost a
    // sixth of a table's encode.
    ixArray* const* const values = ixGetContents(a);
    const auto value = [&](ixSize i, int f) { return values[i * std::size_t(nfields) + std::size_t(f)]; };
    bool flat = true;
    for (ixSize i = 0; i < n && flat; ++i)
      for (int f = 0; f < nfields; ++f) {
        const ixArray* v = value(i, f);
        const ixArrayHeader h = v ? ixGetHeader(v) : ixArrayHeader{};
        if (v && is_container(h.class_id)) {
          flat = false;
          break;
        }
        const std::size_t r = plan_leaf(steps_[place[std::size_t(f)] + i], v, h);
        if (!r) return 0;
        units += r + 1;
      }
    if (flat) return units;
    steps_.resize(first);
    units = fixed;
    for (const int f : order) {
      units += text_units(ixGetFieldName(a, f)) + 2;
      for (ixSize i = 0; i < n; ++i) {
        if (i + kPrefetchAhead < n) prefetch(value(i + kPrefetchAhead, f));
        const std::size_t r = plan(value(i, f), levels + 1);
        if (!r) return 0;
        units += r + 1;
      }
    }
    return units;
  }

  // An array without elements of its own (null: unset), with its header:
  // one call to the host per value, of which a table of records holds many.
  std::size_t plan_leaf(Step& step, const ixArray* a, const ixArrayHeader& h) {
    step.a = a;
    if (!a) {
      step.form = Form::empty;
      return kLargeObjectUnits;
    }
    const ixClassID cls = h.class_id;
    if (h.sparse || h.ndim < 2) return 0;
    const std::span<const ixSize> dims(h.dims, h.ndim);
    const ixSize n = h.count;
    const std::size_t fixed = kLargeObjectUnits + kNumberUnits * dims.size();
    step.form = Form::other;
    if (h.complex) return ixIsNumeric(a) ? fixed + 2 * kNumberUnits * n : 0;
    switch (cls) {
      case ixCHAR_CLASS: {
        const auto* text = static_cast<const char16_t*>(h.data);
        if (small_ && ((dims.size() == 2 && dims[0] == 1 && dims[1] >= 1) || is_2d(dims, 0, 0))) {
          // Copied while the array is in cache.
          step.form = Form::text;
          step.text = texts_.size();
          step.count = n;
          texts_.append(text, n);
          return 6 * n + 3;  // every unit escaped, quotes and a comma
        }
        return fixed + text_units(text, n);
      }
      case ixLOGICAL_CLASS:
      case ixDOUBLE_CLASS:
        if (small_ && is_2d(dims, 1, 1)) {
          if (cls == ixDOUBLE_CLASS) {
            step.form = Form::number;
            step.number = *static_cast<const double*>(h.data);
          } else {
            step.form = Form::boolean;
            step.boolean = *static_cast<const bool*>(h.data);
          }
          return kNumberUnits;
        }
        // Small notation nests one JSON array per dimension; only two are
        // written here.
        if (small_ && n > 1 && dims.size() > 2) return 0;
        return fixed + (cls == ixLOGICAL_CLASS ? kBooleanUnits : kNumberUnits) * n + (n ? 3 * dims[0] : 0);
      case ixCELL_CLASS:
      case ixSTRUCT_CLASS:
        return 0;  // complex containers: the tree names the class
      default:
        if (!matrix::detail::isValidClassId(cls)) return 0;
        return ixIsNumeric(a) ? fixed + kNumberUnits * n : 0;
    }
  }

 public:
  void write(TextStream& out) {
    out_ = &out;
    next_ = steps_.data();
    value();
  }

 private:
  // Writes the text of the next step (and of the steps it is followed by),
  // after a comma when `comma` is set.
  void value(bool comma = false) {
    const Step& step = *next_++;
    switch (step.form) {
      case Form::number:
        if (std::isfinite(step.number)) [[likely]] return out_->number(step.number, comma);
        break;
      case Form::boolean: return out_->boolean(step.boolean, comma);
      case Form::text: return out_->string(std::u16string_view(texts_.data() + step.text, step.count), comma);
      default: break;
    }
    if (comma) out_->raw(",");
    switch (step.form) {
      case Form::empty: return empty_double();
      case Form::number: return special(step.number, false);
      case Form::boolean: case Form::text: return;  // written above
      case Form::cell: return cell(step.a);
      case Form::struct_large: return struct_large(step.a, fields_.data() + step.fields);
      case Form::struct_scalar: return struct_scalar(step.a, fields_.data() + step.fields);
      case Form::empty_object: return out_->raw("{}");
      case Form::other: break;
    }
    const ixArray* a = step.a;
    if (ixIsComplex(a)) return numeric_large(a);
    const auto dims = dims_of(a);
    switch (ixGetClassID(a)) {
      case ixCHAR_CLASS: return chars(a);
      case ixLOGICAL_CLASS:
        if (!small_ || ixGetNumberOfElements(a) == 0) return large(a, matrix::typed_array<bool>(a));
        return small(matrix::typed_array<bool>(a), dims);
      case ixDOUBLE_CLASS:
        if (!small_) return large(a, matrix::typed_array<double>(a));
        if (is_2d(dims, 0, 0)) return out_->raw("[]");
        if (ixGetNumberOfElements(a) == 0) return large(a, matrix::typed_array<double>(a));
        return small(matrix::typed_array<double>(a), dims);
      default: return numeric_large(a);
    }
  }

  // The converter's stand-in for an unset element: a 0-by-0 double.
  void empty_double() {
    if (small_) return out_->raw("[]");
    out_->raw(R"({"tndata":[],"tnsize":[0,0],"tntype":"double"})");
  }

  void size_and_type(const ixArray* a, const char* type) {
    out_->raw(R"(,"tnsize":[)");
    bool first = true;
    for (const ixSize d : dims_of(a)) {
      if (!first) out_->raw(",");
      first = false;
      out_->number(static_cast<double>(d));
    }
    out_->raw(R"(],"tntype":")");
    out_->raw(type);
    out_->raw(R"("})");
  }

  void cell(const ixArray* a) {
    out_->raw(R"({"tndata":[)");
    const ixSize n = ixGetNumberOfElements(a);
    for (ixSize i = 0; i < n; ++i) value(i > 0);
    out_->raw("]");
    size_and_type(a, "cell");
  }

  void struct_scalar(const ixArray* a, const int* order) {
    out_->raw("{");
    for (int k = 0; k < ixGetNumberOfFields(a); ++k) {
      if (k) out_->raw(",");
      out_->string(ixGetFieldName(a, order[k]));
      out_->raw(":");
      value();
    }
    out_->raw("}");
  }

  // Field by field, in name order, each the column of its values.
  void struct_large(const ixArray* a, const int* order) {
    out_->raw(R"({"tndata":{)");
    const ixSize n = ixGetNumberOfElements(a);
    for (int k = 0; k < ixGetNumberOfFields(a); ++k) {
      if (k) out_->raw(",");
      out_->string(ixGetFieldName(a, order[k]));
      out_->raw(":[");
      if (!number_column(n))
        for (ixSize i = 0; i < n; ++i) value(i > 0);
      out_->raw("]");
    }
    out_->raw("}");
    size_and_type(a, "struct");
  }

  // A column of the next n steps that are all finite scalar doubles goes
  // through the numeric array loop in one call. Returns whether it did.
  bool number_column(std::size_t n) {
    column_.clear();
    for (const Step* s = next_; s != next_ + n; ++s) {
      if (s->form != Form::number || !std::isfinite(s->number)) return false;
      column_.push_back(s->number);
    }
    out_->numbers(column_.data(), n, false);
    next_ += n;
    return true;
  }

  void text(const char16_t* s, std::size_t n) { out_->string(std::u16string_view(s, n)); }

  void chars(const ixArray* a) {
    const auto dims = dims_of(a);
    const bool row = dims.size() == 2 && dims[0] == 1 && dims[1] >= 1;
    const auto* chars = static_cast<const char16_t*>(ixGetData(a));
    if (small_ && (row || is_2d(dims, 0, 0))) return text(chars, ixGetNumberOfElements(a));
    out_->raw(R"({"tndata":[)");
    text(chars, ixGetNumberOfElements(a));
    out_->raw("]");
    size_and_type(a, element_traits<char16_t>::name);
  }

  // NaN and the infinities: large data take the chosen form, small
  // notation always the object.
  void special(double x, bool large) {
    const char* name = x != x ? "NaN" : x > 0 ? "Inf" : "-Inf";
    if (large && nan_ == NanType::string) return out_->string(name);
    out_->raw(R"({"tndata":)");
    out_->string(name);
    out_->raw("}");
  }

  // Elements separated by commas, a comma first when `comma`.
  template <class T>
  void elements(const T* x, std::size_t n, bool comma, bool large) {
    if constexpr (std::is_same_v<T, bool>) {
      for (std::size_t i = 0; i < n; ++i) {
        if (i || comma) out_->raw(",");
        out_->boolean(x[i]);
      }
    } else {
      for (std::size_t i = 0; i < n;) {
        i += out_->numbers(x + i, n - i, comma || i);
        if (i == n) break;
        if (comma || i) out_->raw(",");
        special(static_cast<double>(x[i]), large);
        ++i;
      }
    }
  }

  template <class T>
  void large(const ixArray* a, const matrix::typed_array<T>& view) {
    out_->raw(R"({"tndata":[)");
    elements(view.data(), view.size(), false, true);
    out_->raw("]");
    size_and_type(a, element_traits<T>::name);
  }

  void numeric_large(const ixArray* a) {
    const bool complex = ixIsComplex(a);
    with_numeric_class(ixGetClassID(a), [&](auto tag) {
      using T = typename decltype(tag)::type;
      if (complex) {
        const matrix::typed_array<std::complex<T>> view(a);
        out_->raw(R"({"tncomplex":true,"tndata":[)");
        // Each element is its real part and then its imaginary part, as stored.
        elements(reinterpret_cast<const T*>(view.data()), 2 * view.size(), false, true);
        out_->raw("]");
        size_and_type(a, element_traits<T>::name);
      } else {
        large(a, matrix::typed_array<T>(a));
      }
    });
  }

  // A non-empty double or logical of two dimensions in small notation: the
  // bare value for 1-by-1, a flat array for a column, else one array per
  // row.
  template <class T>
  void small(const matrix::typed_array<T>& view, std::span<const ixSize> dims) {
    const T* x = view.data();
    if (is_2d(dims, 1, 1)) return elements(x, 1, false, false);
    out_->raw("[");
    if (dims[1] == 1) {
      elements(x, view.size(), false, false);
    } else {
      const std::size_t m = dims[0], n = dims[1];
      // Gathered so that the row is written in one run (bool as a byte: no
      // packed vector).
      std::vector<std::conditional_t<std::is_same_v<T, bool>, char, T>> row(n);
      for (std::size_t i = 0; i < m; ++i) {
        for (std::size_t j = 0; j < n; ++j) row[j] = x[i + j * m];
        out_->raw(i ? ",[" : "[");
        elements(reinterpret_cast<const T*>(row.data()), n, false, false);
        out_->raw("]");
      }
    }
    out_->raw("]");
  }

  const bool small_;
  const NanType nan_;
  std::vector<Step> steps_;
  std::vector<int> fields_;  // the field order of every structure planned
  std::u16string texts_;     // every text planned
  std::vector<double> column_;
  const Step* next_ = nullptr;
  TextStream* out_ = nullptr;
};

}  // namespace

ixArray* write_direct(const ixArray* a, ToJsonMode mode, NanType nan) {
  struct Job {
    Writer writer;
    const ixArray* a;
    std::size_t room;
  } job{Writer(mode, nan), a, 0};
  job.room = job.writer.plan(a);
  if (!job.room) return nullptr;
  return ixCreateStringInPlace(
      job.room,
      [](char16_t* out, void* context) {
        auto& job = *static_cast<Job*>(context);
        TextStream stream(out, job.room);
        job.writer.write(stream);
        return stream.finish();
      },
      &job);
}

}  // namespace ixtal_json::detail
