// The reader from the text: values, objects and responses. Small notation
// and the data of large notation are in text_data.cpp.

#include "decode/text_reader.hpp"

#include <algorithm>
#include <memory>
#include <new>

#include "decode/response.hpp"
#include "decode/rules.hpp"
#include "decode/text_reader_impl.hpp"
#include "host/json_keys.hpp"

namespace ixtal_json::detail {

matrix::owned_array TextReader::document() {
  const Char* p = begin_;
  matrix::owned_array a = value(p, true);
  if (p != g_.end()) decline();
  return a;
}

matrix::owned_array TextReader::response() {
  const Char* p = begin_;
  if (!g_.at(p, '{')) {
    ok(g_.skip_value(p));
    if (p != g_.end()) decline();
    return owned(ixCreateLogicalScalar(false));
  }
  const Mark mark(elements_);
  bool listed = false;
  first_member(p, keys::lhs, [&](const Char*& q) {
    if (!g_.at(q, '[')) return g_.skip_value(q);
    listed = true;
    return g_.elements(q, [&](const Char*& r) {
      matrix::owned_array e = value(r);
      ixSetArrayScope(e.get(), kReturnedScope);
      elements_.push_back(std::move(e));
      return fj::kParseOk;
    });
  });
  if (p != g_.end()) decline();
  if (!listed) return owned(ixCreateLogicalScalar(false));
  const dims_vector dims{elements_.size() - mark.at, 1};
  return cell_from_stack(dims, mark.at);
}

matrix::owned_array TextReader::value(const Char*& p, bool whole) {
  if (p == g_.end()) decline();
  switch (const Token t = g_.token(*p)) {
    case Token::kString: return char_row(string_units(p));
    case Token::kNumber: return number(p);
    case Token::kTrue:
    case Token::kFalse:
      ok(g_.literal(p, t));
      return scalar(t == Token::kTrue);
    case Token::kArray: return small_array(p, whole);
    case Token::kObject: return object(p);
    default: decline();  // null, and what is no value
  }
}

// Apart from value(), whose other cases then need none of the registers
// the number's reading takes.
matrix::owned_array TextReader::number(const Char*& p) {
  double d;
  ok(g_.number(p, d));
  return scalar(d);
}

std::u16string_view TextReader::string_units(const Char*& p) {
  // Most strings hold no escape and no surrogate: their units are the
  // char row's as they stand in the text.
  const Char* const first = p + 1;
  int units = 0;
  const Char* const q = g_.plain_run(first, units);
  if (q != g_.end() && *q == '"' &&
      (units < 0x80 || std::none_of(first, q, [](Char c) { return (c & 0xF800) == 0xD800; }))) {
    p = q + 1;
    return {first, std::size_t(q - first)};
  }
  return escaped_units(p);
}

std::u16string_view TextReader::escaped_units(const Char*& p) {
  units_.clear();
  ok(g_.string(p, units_));
  return units_.units();
}

matrix::owned_array TextReader::char_row(std::u16string_view u) { return owned(ixCreateStringFromUtf16(u)); }

std::string TextReader::utf8_string(const Char*& p) {
  if (!g_.at(p, '"')) decline();
  std::string s;
  dovra_json::detail::Utf8Sink sink(s);
  ok(g_.string(p, sink));
  return s;
}

// What an object's members say of the keys that decide what it is. The
// first of repeated names counts, as everywhere.
struct TextReader::DecidingKeys {
  const Char* type_at = nullptr;
  const Char* size_at = nullptr;
  const Char* data_at = nullptr;
  const Char* complex_at = nullptr;
  IxtalType type{};
  dims_vector dims;
  bool size_ok = false;
  bool complex = false, complex_ok = true;
  // The data, when they could be read where they stand: the class and
  // the size came first. Read as real or complex, whichever was known.
  matrix::owned_array data;
  bool data_complex = false;
  std::unique_ptr<Pending> pending;  // else, the data as read before the class and size
};

// What the members of an object other than its layout's say: the deciding
// keys, and the names given once it has left the layout. A record on its
// layout has none of them and pays nothing for them.
struct TextReader::Members {
  // The object's marks on the stacks only such members push on.
  Members(std::vector<std::string>& field_names, std::vector<matrix::owned_array>& elements)
      : names_mark(field_names), pending_mark(elements) {}
  const NameMark names_mark;
  const Mark pending_mark;
  DecidingKeys k;
  Names seen;
  std::string name;
};

matrix::owned_array TextReader::object(const Char*& p) {
  const ArrayMark mark(fields_);
  const Depth depth(record_depth_);
  Layout& layout = layout_at(record_depth_);
  bool on_layout = true;  // the names so far are the layout's first names
  Lazy<Members> rest;
  // A record with the names of the one before, in its order: each name is
  // expected as that record spelt it, and the member is the next field,
  // for as long as the record stays on the layout and no key makes it
  // large notation.
  std::size_t expected = layout.spelt.size();
  const auto expect = [&]() -> const ExpectedName* {
    const std::size_t i = fields_.size() - mark.at;
    return i < expected ? &layout.spelt[i] : nullptr;
  };
  ok(g_.members(p, expect, [&](const Name& n, const Char*& q) {
    const Char* r = q;  // see members()
    if (n.expected) {
      push_field(value(r));
      q = r;
      return fj::kParseOk;
    }
    if (!rest) rest.make(field_names_, elements_);  // as they were when the object began: values leave them so
    g_.decode(n, rest->name);
    member(rest->name, r, rest->k, mark.at, layout, on_layout, rest->seen);
    q = r;
    if (!on_layout || rest->k.type_at || rest->k.data_at) expected = 0;
    return fj::kParseOk;
  }));
  if (rest) {
    DecidingKeys& k = rest->k;
    switch (object_role(k.type_at != nullptr, k.data_at != nullptr)) {
      case ObjectRole::kLarge: return large(k);
      case ObjectRole::kSpecialFloat: {
        const Char* q = k.data_at;
        double x;
        if (!special_float_value(utf8_string(q), x)) decline();
        return scalar(x);
      }
      case ObjectRole::kPlainStruct: break;
    }
  }
  // Off the layout only with rest made: its names are those given from its mark.
  return plain_struct(mark.at, rest ? rest->names_mark.at : field_names_.size(), layout, on_layout);
}

void TextReader::member(std::string& key, const Char*& q, DecidingKeys& k, std::size_t mark, const Layout& layout,
                        bool& on_layout, Names& seen) {
  // Every key of large notation starts so; most names do not.
  const bool large_key = key.size() >= 6 && key[0] == 't' && key[1] == 'n';
  if (large_key && key == keys::tntype) {
    if (k.type_at) return ok(g_.skip_value(q));
    k.type_at = q;
    // An object with a class is large notation, whatever else it holds.
    const std::string type = utf8_string(q);
    try {
      k.type = ixtal_type_for_name(type);
    } catch (...) {
      decline();
    }
    return;
  }
  if (large_key && key == keys::tndata) {
    if (k.data_at) return ok(g_.skip_value(q));
    k.data_at = q;
    if (k.type_at && k.size_at && k.size_ok) {
      const Char* const start = q;
      try {
        k.data = large_data(q, k.type, k.dims, k.complex);
        k.data_complex = k.complex;
        return;
      } catch (const Decline&) {
        // Numeric data may yet be declared complex by a later "tncomplex".
        if (k.complex_at || !is_numeric_type(k.type)) throw;
        q = start;
      }
    }
    k.pending = std::make_unique<Pending>();
    return read_pending(q, *k.pending);
  }
  const bool first_size = large_key && key == keys::tnsize && !k.size_at;
  const bool first_complex = large_key && key == keys::tncomplex && !k.complex_at;
  const Char* const start = q;
  // Until a key says otherwise, the object is a plain structure and its
  // members are its fields, read as they come.
  if (k.type_at || k.data_at || repeated(key, mark, layout, on_layout, seen)) ok(g_.skip_value(q));
  else {
    if (!on_layout) field_names_.push_back(std::move(key));
    push_field(value(q));
  }
  if (first_size) {
    k.size_at = start;
    const Char* s = start;
    k.size_ok = read_size(s, k.dims);
  }
  if (first_complex) {
    k.complex_at = start;
    const Char* c = start;
    const Token t = g_.token(*c);
    k.complex_ok = t == Token::kTrue || t == Token::kFalse;
    k.complex = t == Token::kTrue;
  }
}

bool TextReader::repeated(const std::string& key, std::size_t mark, const Layout& layout, bool& on_layout,
                          Names& seen) {
  const std::size_t k = fields_.size() - mark;
  if (on_layout && k < layout.names.size() && layout.names[k] == key) return false;  // the layout has no repeats
  if (on_layout) {
    on_layout = false;
    // The fields so far are the layout's first.
    for (std::size_t i = 0; i < k; ++i) {
      field_names_.push_back(layout.names[i]);
      seen.add(layout.names[i]);
    }
  }
  if (seen.contains(key)) return true;
  seen.add(key);
  return false;
}

bool TextReader::Names::contains(const std::string& name) const {
  return many_ ? many_->count(name) != 0 : std::find(few_.begin(), few_.end(), name) != few_.end();
}

void TextReader::Names::add(const std::string& name) {
  if (many_) {
    many_->insert(name);
    return;
  }
  few_.push_back(name);
  if (few_.size() == kScanned) many_ = std::make_unique<std::unordered_set<std::string>>(few_.begin(), few_.end());
}

bool TextReader::read_size(const Char*& p, dims_vector& dims) {
  dims.clear();
  if (!g_.at(p, '[')) return false;
  bool fine = true;
  ok(g_.elements(p, [&](const Char*& q) {
    if (g_.token(*q) != Token::kNumber) {
      fine = false;
      return g_.skip_value(q);
    }
    double x;
    ixSize size;
    const fj::ParseResult r = g_.number(q, x);
    if (!size_entry(x, size)) fine = false;
    else dims.push_back(size);
    return r;
  }));
  return fine && dims.size() >= kMinDimensions;
}

matrix::owned_array TextReader::large(DecidingKeys& k) {
  if (!k.size_at || !k.data_at || !k.size_ok) decline();
  const bool complex_matters = is_numeric_type(k.type);
  if (complex_matters && !k.complex_ok) decline();
  if (k.data && (!complex_matters || k.data_complex == k.complex)) return std::move(k.data);
  if (k.pending && k.pending->form != Pending::Form::kUnread)
    if (matrix::owned_array a = from_pending(*k.pending, k.type, k.dims, k.complex)) return a;
  // Read again, now that the class and size are known.
  k.data.reset();
  const Char* q = k.data_at;
  return large_data(q, k.type, k.dims, k.complex);
}

void TextReader::add_layouts(std::size_t depth) {
  while (layouts_.size() < depth) layouts_.push_back(std::make_unique<Layout>());
}

// Records of one body mostly share their names, in one order: the layout
// of the last record at this depth is kept, and a record that matches it
// is made with its values in one call, sharing its field names.
matrix::owned_array TextReader::plain_struct(std::size_t mark, std::size_t names_mark, Layout& layout,
                                            bool on_layout) {
  const std::size_t n = fields_.size() - mark;
  // on_layout: each name was found equal to the layout's, in its place.
  if (!layout.model || !on_layout || n != layout.names.size()) new_layout(n, names_mark, layout, on_layout);
  // The values are in field order already where the names came so.
  matrix::owned_array s(ixCreateStructScalarLike(
      layout.model.get(), layout.in_order ? fields_.data() + mark : in_field_order(mark, layout)));
  fields_.erase(fields_.begin() + std::ptrdiff_t(mark), fields_.end());  // the structure holds them from here
  return s;
}

void TextReader::new_layout(std::size_t n, std::size_t names_mark, Layout& layout, bool on_layout) {
  std::vector<std::string> names;
  for (std::size_t f = 0; f < n; ++f) names.push_back(on_layout ? layout.names[f] : field_names_[names_mark + f]);
  layout.model.reset();
  layout.names = std::move(names);
  layout.order = field_order(layout.names);
  layout.in_order = std::is_sorted(layout.order.begin(), layout.order.end());
  // Names the text may spell as they stand, none of them read by large
  // notation: a record on such a layout is read by its names alone.
  layout.spelt.clear();
  if (std::all_of(layout.names.begin(), layout.names.end(), [](const std::string& s) {
        return s != keys::tnsize && s != keys::tncomplex && ExpectedName::spellable(s);
      }))
    for (const std::string& name : layout.names) layout.spelt.emplace_back(name);
  std::vector<std::string> sorted;
  for (std::size_t i : layout.order) sorted.push_back(layout.names[i]);
  const ixSize none[2] = {0, 0};
  layout.model.reset(ixCreateStructArray(2, none, int(n), sorted.data()));
}

ixArray* const* TextReader::in_field_order(std::size_t mark, const Layout& layout) {
  values_.clear();
  for (std::size_t i : layout.order) values_.push_back(fields_[mark + i]);
  return values_.data();
}

matrix::owned_array TextReader::cell_from_stack(const dims_vector& dims, std::size_t mark) {
  return cell_of(dims, elements_.size() - mark, [&](std::size_t i) { return std::move(elements_[mark + i]); });
}

template <class Read>
std::optional<matrix::owned_array> read_or_decline(std::u16string_view text, Read read) {
  // Whatever stops the reader (a decline, a failed allocation, anything the
  // runtime raises) leaves the text to the general path, whose answer is
  // the one to give.
  try {
    TextReader reader(text.data(), text.data() + text.size());
    return read(reader);
  } catch (...) {
    return std::nullopt;
  }
}

}  // namespace ixtal_json::detail

namespace ixtal_json {

std::optional<matrix::owned_array> read_document(std::u16string_view text) {
  return detail::read_or_decline(text, [](detail::TextReader& r) { return r.document(); });
}

std::optional<matrix::owned_array> read_response(std::u16string_view text) {
  return detail::read_or_decline(text, [](detail::TextReader& r) { return r.response(); });
}

}  // namespace ixtal_json
