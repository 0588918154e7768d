#include "encode/direct_writer.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "encode/forms.hpp"
#include "encode/layouts.hpp"
#include "foundation/json/text_output.hpp"
#include "host/class_traits.hpp"

namespace ixtal_json::detail {
namespace {

using foundation::json::TextOutput;

// Containers within containers the writer follows. Each adds at most three
// levels of JSON, so text this deep stays far inside the parser's bound and
// the tree's depth errors are never the writer's to raise; deeper arrays go
// to the tree, which checks the bound exactly.
constexpr std::size_t kMaxContainerLevels = 100;

// Values ahead of the one being written whose arrays are fetched into the
// cache: the host keeps a structure's values element by element, so a
// column strides through memory where no hardware prefetcher follows. The
// second line is where a small array keeps its data.
constexpr ixSize kPrefetchAhead = 8;
inline void prefetch(const ixArray* a) noexcept {
  __builtin_prefetch(a);
  __builtin_prefetch(reinterpret_cast<const char*>(a) + 64);
}

class text_writer {
 public:
  text_writer(TextOutput& out, ToJsonMode mode, NanType nan) : out_(out), mode_(mode), nan_(nan) {}

  // Writes the text of a (null: unset); false for an array the writer
  // leaves to the tree, with whatever was written of it.
  [[gnu::always_inline]] bool value(const ixArray* a, std::size_t levels) {
    if (!a) [[unlikely]] return unset();
    const ixArrayHeader h = ixGetHeader(a);
    // Containers hold their slots apart from data, and none without fields.
    if (h.ndim < 2 || (h.count > 0 && !h.data && h.class_id != ixCELL_CLASS && h.class_id != ixSTRUCT_CLASS))
      [[unlikely]] return false;
    // The forms of most values in a table of records are written here, in
    // a function small enough to keep its registers; the rest out of line.
    switch (const Form form = form_of(h, mode_)) {
      // Fields of the header, not the header: so it stays in registers.
      case Form::scalar: scalar(h.class_id, h.data); return true;
      case Form::string: out_.string(std::u16string_view(static_cast<const char16_t*>(h.data), h.count)); return true;
      // The header is read again there.
      default: return other(a, form, levels);
    }
  }

  // Units the text of an array with no arrays in it takes at most, from its
  // header alone: a number and its comma, a boolean and its comma, a text
  // unit escaped, and the fixed text of a large object besides its size.
  static std::size_t leaf_room(const ixArrayHeader& h, Form form) noexcept {
    constexpr std::size_t number = TextOutput::kLongestNumber + 1, boolean = 6, escaped = 6, fixed = 80;
    const std::size_t n = h.count, large = fixed + number * h.ndim;
    switch (form) {
      case Form::empty_array: return 2;
      case Form::scalar: return number;
      case Form::string: return escaped * n + 2;
      case Form::nested: return (h.class_id == ixLOGICAL_CLASS ? boolean : number) * n + 3 * h.dims[0] + 2;
      case Form::large:
        if (h.class_id == ixCHAR_CLASS) return large + escaped * n + 2;
        return large + (h.class_id == ixLOGICAL_CLASS ? boolean : number) * n * (h.complex ? 2 : 1);
      default: return 0;
    }
  }

 private:
  void key(std::string_view name) {
    out_.put('"');
    out_.raw(name);
    out_.put("\":", 2);
  }

  bool unset() {
    const ixArrayHeader h = unset_header();
    return leaf(h, form_of(h, mode_));
  }

  // ,"tnsize":[d,...],"tntype":"class"} after the data
  void size_and_type(const ixArrayHeader& h, const char* type) {
    out_.put(',');
    key(names::tnsize);
    out_.put('[');
    for (std::size_t k = 0; k < h.ndim; ++k) {
      if (k) out_.put(',');
      out_.number(size_entry(h.dims[k]));
    }
    out_.put("],", 2);
    key(names::tntype);
    out_.put('"');
    out_.raw(type);
    out_.put("\"}", 2);
  }

  void open_large(bool complex) {
    out_.put('{');
    if (complex) {
      key(names::tncomplex);
      out_.put("true,", 5);
    }
    key(names::tndata);
  }

  bool cell(const ixArrayHeader& h, std::size_t levels) {
    open_large(false);
    out_.put('[');
    ixArray* const* const cells = h.contents;
    for (ixSize i = 0; i < h.count; ++i) {
      if (i) out_.put(',');
      if (i + kPrefetchAhead < h.count && cells[i + kPrefetchAhead]) prefetch(cells[i + kPrefetchAhead]);
      if (!value(cells[i], levels)) return false;
    }
    out_.put(']');
    size_and_type(h, type_name(ixCELL_CLASS));
    return true;
  }

  // The k-th key of the layout, in name order, with the '{' or ',' before it.
  void field_key(const layouts::layout& l, std::size_t k) {
    const char* const text = l.keys.data() + l.key_at[k];
    const std::size_t n = l.key_at[k + 1] - l.key_at[k];
    if (n > layouts::kShortKey) return out_.put(text, n);
    char* const p = out_.room(layouts::kShortKey);
    std::memcpy(p, text, layouts::kShortKey);
    out_.advance(p + n);
  }

  bool structure(const ixArrayHeader& h, Form form, std::size_t levels) {
    const layouts::layout& l = layouts_.of(h);
    if (h.nfields > 0 && l.order.empty()) return false;
    // Read from the slots themselves: a checked accessor per value cost a
    // sixth of a table's encode.
    ixArray* const* const values = h.contents;
    const std::size_t nfields = std::size_t(h.nfields);
    const auto at = [&](ixSize i, int f) { return values[i * nfields + std::size_t(f)]; };
    if (form == Form::object) {
      // The values' arrays lie apart: their misses overlap when all are
      // asked for at once.
      for (std::size_t f = 0; f < nfields; ++f)
        if (values[f]) prefetch(values[f]);
      if (nfields == 0) out_.put('{');
      for (std::size_t k = 0; k < nfields; ++k) {
        field_key(l, k);
        if (!value(at(0, l.order[k]), levels)) return false;
      }
      out_.put('}');
      return true;
    }
    open_large(false);
    if (nfields == 0) out_.put('{');
    for (std::size_t k = 0; k < nfields; ++k) {
      const int f = l.order[k];
      field_key(l, k);
      out_.put('[');
      for (ixSize i = 0; i < h.count; ++i) {
        if (i) out_.put(',');
        if (i + kPrefetchAhead < h.count && at(i + kPrefetchAhead, f)) prefetch(at(i + kPrefetchAhead, f));
        if (!value(at(i, f), levels)) return false;
      }
      out_.put(']');
    }
    out_.put('}');
    size_and_type(h, type_name(ixSTRUCT_CLASS));
    return true;
  }

 public:
  // An array with no arrays in it, in a form the header decides.
  bool leaf(const ixArrayHeader& h, Form form) {
    switch (form) {
      case Form::empty_array: out_.raw("[]"); return true;
      case Form::string: out_.string(std::u16string_view(static_cast<const char16_t*>(h.data), h.count)); return true;
      case Form::scalar: scalar(h.class_id, h.data); return true;
      case Form::nested: return nested(h);
      case Form::large: large(h); return true;
      default: return false;
    }
  }

 private:
  [[gnu::noinline]] bool other(const ixArray* a, Form form, std::size_t levels) {
    const ixArrayHeader h = ixGetHeader(a);
    switch (form) {
      case Form::none: return false;
      case Form::cell: return levels < kMaxContainerLevels && cell(h, levels + 1);
      case Form::fields:
      case Form::object: return levels < kMaxContainerLevels && structure(h, form, levels + 1);
      case Form::empty_object: out_.raw("{}"); return true;
      default: return leaf(h, form);
    }
  }

  // Not through the loops of a matrix: most scalars sit in records.
  void scalar(ixClassID cls, const void* data) {
    if (cls == ixLOGICAL_CLASS) return out_.boolean(*static_cast<const bool*>(data));
    const double x = *static_cast<const double*>(data);
    if (std::isfinite(x)) [[likely]] return out_.number(x);
    special(names::special(x), Form::scalar);
  }

  void large(const ixArrayHeader& h) {
    open_large(h.complex);
    out_.put('[');
    const char* type = type_name(h.class_id);
    switch (h.class_id) {
      case ixCHAR_CLASS: out_.string(std::u16string_view(static_cast<const char16_t*>(h.data), h.count)); break;
      case ixLOGICAL_CLASS: elements(static_cast<const bool*>(h.data), h.count, Form::large); break;
      default:
        // Each complex element is its real part and then its imaginary part, as stored.
        with_numeric_class(h.class_id, [&](auto tag) {
          using T = typename decltype(tag)::type;
          elements(static_cast<const T*>(h.data), h.complex ? 2 * h.count : h.count, Form::large);
        });
    }
    out_.put(']');
    size_and_type(h, type);
  }

  // A non-empty double or logical in small notation: a flat array for a
  // column, else one array per row. Only two dimensions are written here.
  bool nested(const ixArrayHeader& h) {
    if (h.ndim > 2) return false;
    out_.put('[');
    const std::size_t m = h.dims[0], n = h.dims[1];
    const auto rows = [&](const auto* x) {
      using T = std::remove_cv_t<std::remove_pointer_t<decltype(x)>>;
      if (n == 1) return elements(x, m, Form::nested);
      // Gathered so that the row is written in one run (bool as a byte: no
      // packed vector), in room the writer keeps for every matrix.
      if (row_.size() < n) row_.resize(n);
      auto* const row = reinterpret_cast<std::conditional_t<std::is_same_v<T, bool>, char, T>*>(row_.data());
      for (std::size_t i = 0; i < m; ++i) {
        for (std::size_t j = 0; j < n; ++j) row[j] = x[i + j * m];
        i ? out_.put(",[", 2) : out_.put('[');
        elements(reinterpret_cast<const T*>(row), n, Form::nested);
        out_.put(']');
      }
    };
    if (h.class_id == ixLOGICAL_CLASS) {
      rows(static_cast<const bool*>(h.data));
    } else {
      rows(static_cast<const double*>(h.data));
    }
    out_.put(']');
    return true;
  }

  // Elements separated by commas; NaN and the infinities as the form says.
  template <class T>
  void elements(const T* x, std::size_t n, Form form) {
    if constexpr (std::is_same_v<T, bool>) {
      for (std::size_t i = 0; i < n; ++i) {
        if (i) out_.put(',');
        out_.boolean(x[i]);
      }
    } else {
      for (std::size_t i = 0; i < n;) {
        i += out_.numbers(x + i, n - i, i > 0);
        if (i == n) break;
        if (i) out_.put(',');
        special(names::special(x[i]), form);
        ++i;
      }
    }
  }

  void special(std::string_view name, Form form) {
    if (special_as_string(form, nan_)) return out_.string(name);
    out_.put('{');
    key(names::tndata);
    out_.string(name);
    out_.put('}');
  }

  TextOutput& out_;
  const ToJsonMode mode_;
  const NanType nan_;
  layouts layouts_;
  std::vector<double> row_;
};

}  // namespace

ixArray* write_direct(const ixArray* a, ToJsonMode mode, NanType nan) {
  const ixArrayHeader h = ixGetHeader(a);
  const bool container = !h.complex && (h.class_id == ixCELL_CLASS || h.class_id == ixSTRUCT_CLASS);
  if (container) {
    // The room of a container's text is known only once it is written: it
    // goes to the thread's buffer as UTF-8 first, then into the row.
    // Not a buffer kept per thread: a thread-local of a library the host
    // loads at run time is what the leak checker's scan of the threads
    // trips on, and the allocator keeps a freed block of this size warm.
    std::string text;
    {
      TextOutput out(text);
      if (!text_writer(out, mode, nan).value(a, 0)) return nullptr;
      out.finish();
    }
    return ixCreateStringFromUtf8(text);
  }
  if (h.ndim < 2 || (h.count > 0 && !h.data)) return nullptr;
  struct Job {
    const ixArrayHeader& h;
    Form form;
    ToJsonMode mode;
    NanType nan;
    std::size_t room;
  } job{h, form_of(h, mode), mode, nan, 0};
  if (job.form == Form::nested && h.ndim > 2) return nullptr;
  job.room = text_writer::leaf_room(h, job.form);
  if (!job.room) return nullptr;
  return ixCreateStringInPlace(
      job.room,
      [](char16_t* units, void* context) {
        const auto& job = *static_cast<const Job*>(context);
        TextOutput out(units, job.room);
        text_writer(out, job.mode, job.nan).leaf(job.h, job.form);
        return out.finish();
      },
      &job);
}

}  // namespace ixtal_json::detail
