#include "encode/direct_writer.hpp"

#include <algorithm>
#include <cmath>
#include <deque>
#include <string>
#include <vector>

#include "encode/forms.hpp"
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

// The field numbers of a structure in the byte order of their names, the
// order of the tree's object. Structures made alike share their list of
// names, so the orders of the lists met last are kept; an order stays put
// while the writer is in the structure.
class field_order {
 public:
  struct list {
    const std::string* first;
    int count;
    std::vector<int> order;  // empty when two names are the same (the tree's business)
    std::vector<const std::string*> names;
  };

  const list& of(const ixArray* s, int nfields) {
    const std::string* first = nfields > 0 ? &ixGetFieldName(s, 0) : nullptr;
    constexpr std::size_t kRecent = 8;
    for (std::size_t k = lists_.size(); k > 0 && k + kRecent > lists_.size(); --k)
      if (lists_[k - 1].first == first && lists_[k - 1].count == nfields) return lists_[k - 1];
    // Records made one by one hold lists of their own, mostly the same names.
    for (std::size_t k = lists_.size(); k > 0 && k + kRecent > lists_.size(); --k)
      if (same_names(lists_[k - 1], s, nfields)) return lists_[k - 1];
    list& l = lists_.emplace_back(list{first, nfields, {}, {}});
    l.order.resize(std::size_t(nfields));
    l.names.resize(std::size_t(nfields));
    for (int f = 0; f < nfields; ++f) {
      l.order[std::size_t(f)] = f;
      l.names[std::size_t(f)] = &ixGetFieldName(s, f);
    }
    std::sort(l.order.begin(), l.order.end(), [&](int x, int y) { return *l.names[x] < *l.names[y]; });
    for (std::size_t k = 1; k < l.order.size(); ++k)
      if (*l.names[l.order[k]] == *l.names[l.order[k - 1]]) l.order.clear();
    return l;
  }

 private:
  static bool same_names(const list& l, const ixArray* s, int nfields) {
    if (l.count != nfields) return false;
    for (int f = 0; f < nfields; ++f)
      if (*l.names[std::size_t(f)] != ixGetFieldName(s, f)) return false;
    return true;
  }

  std::deque<list> lists_;
};

class text_writer {
 public:
  text_writer(TextOutput& out, ToJsonMode mode, NanType nan) : out_(out), mode_(mode), nan_(nan) {}

  // Writes the text of a (null: unset); false for an array the writer
  // leaves to the tree, with whatever was written of it.
  bool value(const ixArray* a, std::size_t levels) {
    if (!a) return unset();
    const ixArrayHeader h = ixGetHeader(a);
    if (h.ndim < 2 || (h.count > 0 && !h.data && h.class_id != ixCELL_CLASS && h.class_id != ixSTRUCT_CLASS))
      return false;
    const int nfields = h.class_id == ixSTRUCT_CLASS ? ixGetNumberOfFields(a) : 0;
    const Form form = form_of(h, nfields, mode_);
    switch (form) {
      case Form::none: return false;
      case Form::cell: return levels < kMaxContainerLevels && cell(a, h, levels + 1);
      case Form::fields:
      case Form::object: return levels < kMaxContainerLevels && structure(a, h, form, nfields, levels + 1);
      case Form::empty_object: out_.raw("{}"); return true;
      default: return leaf(h, form);
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

  // The converter's stand-in for an unset element: a 0-by-0 double.
  bool unset() {
    static constexpr ixSize kEmpty[2] = {0, 0};
    const ixArrayHeader h{ixDOUBLE_CLASS, false, false, 2, kEmpty, 0, nullptr};
    return leaf(h, form_of(h, 0, mode_));
  }

  // ,"tnsize":[d,...],"tntype":"class"} after the data
  void size_and_type(const ixArrayHeader& h, const char* type) {
    out_.put(',');
    key(names::tnsize);
    out_.put('[');
    for (std::size_t k = 0; k < h.ndim; ++k) {
      if (k) out_.put(',');
      out_.number(static_cast<double>(h.dims[k]));  // counts past 2^63 stay unsigned
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

  bool cell(const ixArray* a, const ixArrayHeader& h, std::size_t levels) {
    open_large(false);
    out_.put('[');
    ixArray* const* const cells = ixGetContents(a);
    for (ixSize i = 0; i < h.count; ++i) {
      if (i) out_.put(',');
      if (i + kPrefetchAhead < h.count && cells[i + kPrefetchAhead]) prefetch(cells[i + kPrefetchAhead]);
      if (!value(cells[i], levels)) return false;
    }
    out_.put(']');
    size_and_type(h, names::cell);
    return true;
  }

  bool structure(const ixArray* a, const ixArrayHeader& h, Form form, int nfields, std::size_t levels) {
    const field_order::list& fields = fields_.of(a, nfields);
    if (nfields > 0 && fields.order.empty()) return false;
    // Read from the slots themselves: a checked accessor per value cost a
    // sixth of a table's encode.
    ixArray* const* const values = ixGetContents(a);
    const auto at = [&](ixSize i, int f) { return values[i * std::size_t(nfields) + std::size_t(f)]; };
    if (form == Form::object) {
      out_.put('{');
      for (std::size_t k = 0; k < fields.order.size(); ++k) {
        if (k) out_.put(',');
        const int f = fields.order[k];
        out_.string(*fields.names[std::size_t(f)]);
        out_.put(':');
        if (!value(at(0, f), levels)) return false;
      }
      out_.put('}');
      return true;
    }
    open_large(false);
    out_.put('{');
    for (std::size_t k = 0; k < fields.order.size(); ++k) {
      const int f = fields.order[k];
      if (k) out_.put(',');
      out_.string(*fields.names[std::size_t(f)]);
      out_.put(":[", 2);
      for (ixSize i = 0; i < h.count; ++i) {
        if (i) out_.put(',');
        if (i + kPrefetchAhead < h.count && at(i + kPrefetchAhead, f)) prefetch(at(i + kPrefetchAhead, f));
        if (!value(at(i, f), levels)) return false;
      }
      out_.put(']');
    }
    out_.put('}');
    size_and_type(h, names::structure);
    return true;
  }

 public:
  // An array with no arrays in it, in a form the header decides.
  bool leaf(const ixArrayHeader& h, Form form) {
    switch (form) {
      case Form::empty_array: out_.raw("[]"); return true;
      case Form::string: out_.string(std::u16string_view(static_cast<const char16_t*>(h.data), h.count)); return true;
      case Form::scalar:
        if (h.class_id == ixLOGICAL_CLASS) {
          out_.boolean(*static_cast<const bool*>(h.data));
        } else {
          elements(static_cast<const double*>(h.data), 1, form);
        }
        return true;
      case Form::nested: return nested(h);
      case Form::large: large(h); return true;
      default: return false;
    }
  }

 private:
  void large(const ixArrayHeader& h) {
    open_large(h.complex);
    out_.put('[');
    const char* type = ixtal::info_of(h.class_id).name;
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
      // packed vector).
      std::vector<std::conditional_t<std::is_same_v<T, bool>, char, T>> row(n);
      for (std::size_t i = 0; i < m; ++i) {
        for (std::size_t j = 0; j < n; ++j) row[j] = x[i + j * m];
        i ? out_.put(",[", 2) : out_.put('[');
        elements(reinterpret_cast<const T*>(row.data()), n, Form::nested);
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
  field_order fields_;
};

}  // namespace

ixArray* write_direct(const ixArray* a, ToJsonMode mode, NanType nan) {
  const ixArrayHeader h = ixGetHeader(a);
  const bool container = !h.complex && (h.class_id == ixCELL_CLASS || h.class_id == ixSTRUCT_CLASS);
  if (container) {
    // The room of a container's text is known only once it is written: it
    // goes to UTF-8 first, then into the row.
    std::string text;
    text.reserve(64 * std::size_t(h.count) + 256);  // grown as it must be
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
  } job{h, form_of(h, 0, mode), mode, nan, 0};
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
