#include "foundation/json/serializer.hpp"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <ostream>

#include "foundation/json/text_output.hpp"
#include "number_text.hpp"

namespace foundation::json {
namespace {

// The walk of a value tree, compact or pretty, over one text output.
class TreeWriter {
 public:
  TreeWriter(TextOutput& out, bool pretty) : out_(out), pretty_(pretty) {}

  void value(const Value& v, std::size_t level) {
    switch (v.index()) {
      // Undefined has no text of its own; the encoder never hands one over,
      // and null is the nearest thing a reader would understand.
      case Value::kUndefined:
      case Value::kNull: out_.put("null", 4); break;
      case Value::kBool: out_.boolean(v.as_bool()); break;
      case Value::kDouble: out_.number(v.as_double()); break;
      case Value::kFloat: out_.number(v.as_float()); break;
      case Value::kString: out_.string(v.as_string()); break;
      case Value::kArray: array(v.as_array(), level); break;
      case Value::kObject: object(v.as_object(), level); break;
      default: std::abort();
    }
  }

 private:
  void array(const Array& a, std::size_t level) {
    out_.put('[');
    const Value* const first = a.data();
    const Value* const last = first + a.size();
    if (pretty_ && first != last && std::all_of(first, last, is_scalar)) {
      // A row of numbers reads best on one line: a matrix then looks like
      // one, and a size stays "[2, 3]".
      for (const Value* e = first; e != last; ++e) {
        if (e != first) out_.put(", ", 2);
        if (e->index() == Value::kObject) {
          const auto& [name, member] = *e->as_object().begin();
          out_.put('{');
          out_.string(name);
          out_.put(": ", 2);
          value(member, level + 1);
          out_.put('}');
        } else {
          value(*e, level + 1);
        }
      }
    } else if (pretty_) {
      for (const Value* e = first; e != last; ++e) {
        if (e != first) out_.put(',');
        newline(level + 1);
        value(*e, level + 1);
      }
      if (first != last) newline(level);
    } else {
      // Numeric arrays are the long ones: their elements skip the switch,
      // and the cursor stays in a register while whole numbers are written.
      for (const Value* e = first; e != last; ++e) {
        char* p = out_.room(TextOutput::kNumberRoom + 1);
        *p = ',';
        p += e != first;
        if (e->index() == Value::kDouble) [[likely]] {
          if (char* const q = number_text::whole_number(p, e->as_double())) [[likely]] {
            out_.advance(q);
            continue;
          }
        }
        out_.advance(p);
        value(*e, level + 1);
      }
    }
    out_.put(']');
  }

  // What pretty text keeps on one line inside an array: anything but a
  // container, and the one-member object that stands for a special number
  // ({"tndata": "NaN"}).
  static bool is_scalar(const Value& v) noexcept {
    switch (v.index()) {
      case Value::kArray: return false;
      case Value::kObject: {
        const Object& o = v.as_object();
        return o.size() == 1 && o.begin()->second.index() == Value::kString;
      }
      default: return true;
    }
  }

  void object(const Object& o, std::size_t level) {
    out_.put('{');
    bool first = true;
    for (const auto& [name, member] : o) {
      if (!first) out_.put(',');
      first = false;
      newline(level + 1);
      out_.string(name);
      pretty_ ? out_.put(": ", 2) : out_.put(':');
      value(member, level + 1);
    }
    if (!o.empty()) newline(level);
    out_.put('}');
  }

  void newline(std::size_t level) {
    if (!pretty_) return;
    out_.put('\n');
    constexpr std::size_t kBlanks = 256;
    for (std::size_t blanks = 2 * level; blanks > 0;) {
      const std::size_t n = std::min(blanks, kBlanks);
      char* const p = out_.room(n);
      std::memset(p, ' ', n);
      out_.advance(p + n);
      blanks -= n;
    }
  }

  TextOutput& out_;
  const bool pretty_;
};

}  // namespace

void Serializer::write(std::string& out, const Value& v) const {
  const std::size_t mark = out.size();
  out.reserve(mark + room(v));
  try {
    TextOutput text(out);
    TreeWriter(text, pretty_).value(v, 0);
    text.finish();
  } catch (...) {
    out.resize(mark);  // a failed write leaves nothing behind
    throw;
  }
}

std::size_t Serializer::write(char16_t* out, const Value& v) const {
  TextOutput text(out);
  TreeWriter(text, pretty_).value(v, 0);
  return text.finish();
}

void Serializer::write(std::ostream& os, const Value& v) const {
  const std::string text = to_string(v);
  os.write(text.data(), std::streamsize(text.size()));
}

}  // namespace foundation::json
