#include "display.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <stdexcept>
#include <type_traits>
#include <vector>

#include "ixtal/classes.hpp"
#include "ixtal/notation.hpp"
#include "ixtal/shape.hpp"
#include "ixtal/string_array.hpp"
#include "ixtal/text.hpp"

namespace dovra_cli {

std::string format_real(double v, bool integral) {
  if (std::isnan(v)) return "NaN";
  if (std::isinf(v)) return v > 0 ? "Inf" : "-Inf";
  if (v == 0) return "0";  // -0 too: the sign of zero is noise in a display
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, integral ? "%.0f" : "%.5g", v);
  return buffer;
}

namespace {

using ixtal::field_label;
using ixtal::readable;
using ixtal::subscripts;
using Dims = std::vector<ixSize>;

// Below this magnitude every integer-valued double prints exactly without
// an exponent; above it a column of integers is shown in %g form instead.
constexpr double kLargestPlainInteger = 1e15;

Dims dims_of(const ixArray* a) {
  const auto d = ixtal::dims_of(a);
  return Dims(d.begin(), d.end());
}

std::string join_dims(const Dims& d, const char* separator) {
  std::string s;
  for (std::size_t i = 0; i < d.size(); ++i) s += (i ? separator : "") + std::to_string(d[i]);
  return s;
}

std::string spaces(std::size_t n) { return std::string(n, ' '); }

// Display width of UTF-8 text: one column per character.
std::size_t width_of(const std::string& s) {
  return std::size_t(std::count_if(s.begin(), s.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

bool is_string_array(const ixArray* a) { return Tovenar::String::isString(a); }
bool is_char(const ixArray* a) { return ixGetClassID(a) == ixCHAR_CLASS; }
bool is_numeric_or_logical(const ixArray* a) {
  return !ixIsSparse(a) && (ixIsNumeric(a) || ixGetClassID(a) == ixLOGICAL_CLASS);
}

std::string header(const ixArray* a) {
  std::string h = join_dims(dims_of(a), "x") + " ";
  if (ixIsSparse(a)) h += "sparse ";
  if (ixIsComplex(a)) h += "complex ";
  h += is_string_array(a) ? "string" : ixGetClassName(a);
  if (ixGetClassID(a) == ixSTRUCT_CLASS && ixGetNumberOfFields(a) == 0) h += " with no fields";
  return h;
}

std::string string_element(const ixArray* a, ixSize i, std::size_t max_chars) {
  const auto text = Tovenar::String::getString(a, i);
  if (!text) return "<missing>";
  if (text->size() <= max_chars) return "\"" + readable(*text) + "\"";
  return "\"" + readable(text->substr(0, max_chars)) + "\"...";
}

// --- numbers -------------------------------------------------------------------

bool integral_for_display(double v) {
  return !std::isfinite(v) || (v == std::trunc(v) && std::fabs(v) < kLargestPlainInteger);
}

// The texts of the elements at the given indices, all of one width so that
// they stand in columns: numbers right-aligned, and for complex values the
// real parts right-aligned and the imaginary parts left-aligned after the
// sign, so the signs line up.
template <class T>
std::vector<std::string> numeric_texts(const ixArray* a, const std::vector<ixSize>& indices) {
  const T* data = static_cast<const T*>(ixGetData(a));
  const bool cx = ixIsComplex(a);
  auto re = [&](ixSize i) { return data[cx ? 2 * i : i]; };
  auto im = [&](ixSize i) { return data[2 * i + 1]; };

  bool integral = true;
  if constexpr (std::is_floating_point_v<T>) {
    for (ixSize i : indices)
      integral = integral && integral_for_display(re(i)) && (!cx || integral_for_display(im(i)));
  }
  auto text = [&](T v) -> std::string {
    if constexpr (std::is_same_v<T, bool>) return v ? "1" : "0";
    else if constexpr (std::is_floating_point_v<T>) return format_real(double(v), integral);
    else return std::to_string(v);
  };

  std::vector<std::string> out;
  out.reserve(indices.size());
  if (!cx) {
    std::size_t w = 0;
    for (ixSize i : indices) w = std::max(w, out.emplace_back(text(re(i))).size());
    for (auto& s : out) s.insert(0, w - s.size(), ' ');
    return out;
  }
  std::vector<std::string> imag;
  std::vector<bool> negative;
  std::size_t wr = 0, wi = 0;
  for (ixSize i : indices) {
    wr = std::max(wr, out.emplace_back(text(re(i))).size());
    std::string s = text(im(i));
    negative.push_back(s.front() == '-');
    if (negative.back()) s.erase(0, 1);
    wi = std::max(wi, imag.emplace_back(s + "i").size());
  }
  for (std::size_t k = 0; k < out.size(); ++k) {
    out[k].insert(0, wr - out[k].size(), ' ');
    out[k] += (negative[k] ? " - " : " + ") + imag[k] + spaces(wi - imag[k].size());
  }
  return out;
}

// f(T{}) for the element type T of a numeric or logical array; any other
// class is the caller's mistake.
template <class F>
decltype(auto) with_element_type(const ixArray* a, F&& f) {
  using Result = decltype(f(double{}));
  return ixtal::visit_class(
      ixGetClassID(a),
      [&](auto row) -> Result {
        using Row = decltype(row);
        using T = typename Row::element_type;
        if constexpr (Row::numeric || std::is_same_v<T, bool>) return f(T{});
        else throw std::logic_error(std::string("no numeric text for class ") + Row::name);
      },
      []() -> Result { throw std::logic_error("no numeric text for an unknown class"); });
}

std::vector<std::string> numeric_texts(const ixArray* a, const std::vector<ixSize>& indices) {
  return with_element_type(a, [&](auto tag) { return numeric_texts<decltype(tag)>(a, indices); });
}

// A numeric or logical scalar standing alone.
std::string scalar_text(const ixArray* a) {
  if (ixGetClassID(a) == ixLOGICAL_CLASS) return *static_cast<const bool*>(ixGetData(a)) ? "true" : "false";
  std::string s = numeric_texts(a, {0}).front();
  s.erase(s.find_last_not_of(' ') + 1);
  return s;
}

// --- the part of a page-structured array that is shown ---------------------------

struct Window {
  ixSize rows, columns, pages;
  ixSize shown_rows, shown_columns, shown_pages;

  Window(const ixArray* a, const DisplayLimits& limits, std::size_t column_limit) {
    const Dims d = dims_of(a);
    rows = d[0];
    columns = d[1];
    pages = 1;
    for (std::size_t k = 2; k < d.size(); ++k) pages *= d[k];
    shown_rows = std::min<ixSize>(rows, limits.rows);
    shown_columns = std::min<ixSize>(columns, column_limit);
    shown_pages = std::min<ixSize>(pages, limits.pages);
  }
  ixSize index(ixSize page, ixSize row, ixSize column) const { return row + rows * (column + columns * page); }

  // "(showing rows 1-10 of 1000 and columns 1-10 of 50; --full shows all)"
  std::string note(const char* column_word) const {
    std::vector<std::string> parts;
    auto part = [&](const char* word, ixSize shown, ixSize all) {
      if (shown < all) parts.push_back(std::string(word) + " 1-" + std::to_string(shown) + " of " + std::to_string(all));
    };
    part("rows", shown_rows, rows);
    part(column_word, shown_columns, columns);
    part("pages", shown_pages, pages);
    if (parts.empty()) return "";
    std::string s = "(showing ";
    for (std::size_t k = 0; k < parts.size(); ++k) s += (k == 0 ? "" : k + 1 == parts.size() ? " and " : ", ") + parts[k];
    return s + "; --full shows all)";
  }
};

// "(:,:,2,1)"
std::string page_label(const ixArray* a, ixSize page) {
  const Dims d = dims_of(a);
  std::string s = "(:,:";
  for (std::size_t k = 2; k < d.size(); ++k) {
    s += "," + std::to_string(page % d[k] + 1);
    page /= d[k];
  }
  return s + ")";
}

class Writer {
 public:
  Writer(std::ostream& out, const DisplayLimits& limits) : out_(out), limits_(limits) {}

  void top(const ixArray* a) {
    line(0, header(a));
    body(a, 4);
  }

 private:
  void line(std::size_t indent, const std::string& text) {
    std::string s = spaces(indent) + text;
    s.erase(s.find_last_not_of(' ') + 1);
    out_ << s << '\n';
  }

  // The one-line form of a value inside a cell or structure, if it has one:
  // scalars (with their class unless double or logical), text rows, string
  // scalars and empty arrays.
  std::optional<std::string> inline_text(const ixArray* a) {
    if (!a) return "[]";  // an unset element is the host's empty double
    if (is_char(a)) {
      if (ixIsEmpty(a)) return "''";
      if (ixGetNumberOfDimensions(a) != 2 || ixGetM(a) != 1) return std::nullopt;
      std::string s = char_row(a, Window(a, limits_, limits_.characters), 0, 0);
      if (ixGetN(a) > limits_.characters) s += " (" + header(a) + ")";
      return s;
    }
    if (ixIsEmpty(a)) return header(a);
    if (ixGetNumberOfElements(a) != 1) return std::nullopt;
    if (is_string_array(a)) return string_element(a, 0, limits_.characters);
    if (!is_numeric_or_logical(a)) return std::nullopt;
    const ixClassID cls = ixGetClassID(a);
    return scalar_text(a) + (cls == ixDOUBLE_CLASS || cls == ixLOGICAL_CLASS ? "" : std::string(" (") + ixGetClassName(a) + ")");
  }

  void body(const ixArray* a, std::size_t indent) {
    if (ixIsEmpty(a)) {
      if (ixGetClassID(a) == ixSTRUCT_CLASS && ixGetNumberOfFields(a) > 0) line(indent, "fields: " + field_list(a));
      return;
    }
    if (is_char(a)) return char_pages(a, indent);
    if (is_string_array(a)) return grid(a, indent, false);
    if (is_numeric_or_logical(a)) {
      if (ixGetNumberOfElements(a) == 1) return line(indent, scalar_text(a));
      return grid(a, indent, true);
    }
    if (ixGetClassID(a) == ixCELL_CLASS) return cell(a, indent);
    if (ixGetClassID(a) == ixSTRUCT_CLASS) return structure(a, indent);
    // Function handles, class objects and sparse arrays: the header says it all.
  }

  void item(std::size_t indent, const std::string& label, const ixArray* v) {
    if (auto s = inline_text(v)) return line(indent, label + ": " + *s);
    line(indent, label + ": " + header(v));
    body(v, indent + 4);
  }

  // Runs f for each page with the indentation of its rows, labelling pages
  // of N-d arrays, then marks what the window left out.
  template <class F>
  void pages(const ixArray* a, const Window& w, std::size_t indent, const char* column_word, F&& each_page) {
    const bool labelled = ixGetNumberOfDimensions(a) > 2;
    for (ixSize p = 0; p < w.shown_pages; ++p) {
      if (labelled) line(indent, page_label(a, p));
      const std::size_t inner = labelled ? indent + 4 : indent;
      each_page(p, inner);
      if (w.shown_rows < w.rows) line(inner, "...");
    }
    if (w.shown_pages < w.pages) line(indent, "...");
    if (auto note = w.note(column_word); !note.empty()) line(indent, note);
  }

  void grid(const ixArray* a, std::size_t indent, bool numeric) {
    const Window w(a, limits_, limits_.columns);
    std::vector<ixSize> indices;
    for (ixSize p = 0; p < w.shown_pages; ++p)
      for (ixSize c = 0; c < w.shown_columns; ++c)
        for (ixSize r = 0; r < w.shown_rows; ++r) indices.push_back(w.index(p, r, c));
    std::vector<std::string> texts;
    if (numeric) {
      texts = numeric_texts(a, indices);
    } else {
      std::size_t width = 0;
      for (ixSize i : indices) width = std::max(width, width_of(texts.emplace_back(string_element(a, i, limits_.characters))));
      for (auto& s : texts) s += spaces(width - width_of(s));
    }
    pages(a, w, indent, "columns", [&](ixSize p, std::size_t inner) {
      for (ixSize r = 0; r < w.shown_rows; ++r) {
        std::string row;
        for (ixSize c = 0; c < w.shown_columns; ++c)
          row += (c ? "   " : "") + texts[(p * w.shown_columns + c) * w.shown_rows + r];
        if (w.shown_columns < w.columns) row += "   ...";
        line(inner, row);
      }
    });
  }

  std::string char_row(const ixArray* a, const Window& w, ixSize page, ixSize row) {
    const char16_t* data = static_cast<const char16_t*>(ixGetData(a));
    std::u16string units;
    for (ixSize c = 0; c < w.shown_columns; ++c) units += data[w.index(page, row, c)];
    return "'" + readable(units) + "'" + (w.shown_columns < w.columns ? "..." : "");
  }

  void char_pages(const ixArray* a, std::size_t indent) {
    const Window w(a, limits_, limits_.characters);
    pages(a, w, indent, "characters", [&](ixSize p, std::size_t inner) {
      for (ixSize r = 0; r < w.shown_rows; ++r) line(inner, char_row(a, w, p, r));
    });
  }

  // Elements of cell and structure arrays are listed in storage order.
  template <class F>
  void elements(const ixArray* a, std::size_t indent, F&& each) {
    const ixSize n = ixGetNumberOfElements(a);
    const ixSize shown = std::min<ixSize>(n, limits_.elements);
    for (ixSize i = 0; i < shown; ++i) each(i);
    if (shown < n)
      line(indent, "... (showing elements 1-" + std::to_string(shown) + " of " + std::to_string(n) + "; --full shows all)");
  }

  void cell(const ixArray* a, std::size_t indent) {
    elements(a, indent, [&](ixSize i) { item(indent, "{" + subscripts(a, i) + "}", ixGetCell(a, i)); });
  }

  void fields(const ixArray* s, ixSize i, std::size_t indent) {
    for (int f = 0; f < ixGetNumberOfFields(s); ++f)
      item(indent, field_label(ixGetFieldName(s, f)), ixGetFieldByNumber(s, i, f));
  }

  void structure(const ixArray* s, std::size_t indent) {
    if (ixGetNumberOfElements(s) == 1) return fields(s, 0, indent);
    elements(s, indent, [&](ixSize i) {
      line(indent, "(" + subscripts(s, i) + "):");
      fields(s, i, indent + 4);
    });
  }

  static std::string field_list(const ixArray* s) {
    std::string names;
    for (int f = 0; f < ixGetNumberOfFields(s); ++f) names += (f ? ", " : "") + field_label(ixGetFieldName(s, f));
    return names;
  }

  std::ostream& out_;
  const DisplayLimits& limits_;
};

}  // namespace

void display(std::ostream& out, const ixArray* a, const DisplayLimits& limits) { Writer(out, limits).top(a); }

}  // namespace dovra_cli
