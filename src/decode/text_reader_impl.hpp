#pragma once

// The reader from the text, shared by its two source files. Every refusal
// is decline(): it unwinds to read_document or read_response, destroying
// whatever was under construction, and the text goes to the general path.

#include <cstdint>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "decode/dimensions.hpp"
#include "decode/ixtal_type.hpp"
#include "foundation/json/ixtal_type.hpp"
#include "ixtal/matrix.hpp"
#include "json/grammar.hpp"
#include "json/utf16_sink.hpp"

namespace ixtal_json::detail {

namespace fj = foundation::json;
using dovra_json::detail::Token;

class TextReader {
 public:
  using Char = char16_t;

  TextReader(const Char* begin, const Char* end) : g_(end, 0), begin_(begin) {}

  matrix::owned_array document();
  matrix::owned_array response();

 private:
  struct Decline {};
  [[noreturn]] static void decline() { throw Decline{}; }
  static void ok(fj::ParseResult r) {
    if (r != fj::kParseOk) decline();
  }
  static matrix::owned_array owned(ixArray* a) { return matrix::owned_array(a); }

  using Name = dovra_json::detail::Grammar<Char>::Name;
  using ExpectedName = dovra_json::detail::Grammar<Char>::ExpectedName;
  struct Layout {
    std::vector<std::string> names;       // as the text lists them
    std::vector<std::size_t> order;       // field k's member
    matrix::owned_array model;            // a structure with the fields, in field order
    std::vector<ExpectedName> spelt;      // the names to expect, when the text may spell them as they stand
    bool in_order = false;                // order is the members' own: field k is member k
  };
  struct DecidingKeys;
  struct Members;

  // Data met before the class and size that say how to read them (as the
  // encoder writes them: keys in byte order). A flat list of numbers is
  // only looked through and read again in place later (kUnread); anything
  // else is read once in a form that every class it may turn out to be
  // can take.
  struct Pending {
    enum class Form { kUnread, kNumbers, kBooleans, kElements, kFields } form = Form::kUnread;
    std::vector<double> numbers;
    std::vector<bool> special;  // numbers[i] came from a special float object; empty when none did
    std::vector<bool> booleans;
    std::size_t mark = 0;             // kElements, kFields: their values on elements_ from here
    std::vector<std::string> names;   // kFields
    std::vector<std::size_t> counts;  // kFields: values of each name
  };

  // The names an object has given so far, to find a repeated one: a scan
  // while they are few, a hash beyond, so that a wide object stays linear.
  class Names {
   public:
    bool contains(const std::string& name) const;
    void add(const std::string& name);

   private:
    static constexpr std::size_t kScanned = 32;
    std::vector<std::string> few_;
    std::unique_ptr<std::unordered_set<std::string>> many_;  // made when few_ is full
  };

  // Gives a stack back what it held before, however the reading ends.
  template <class Stack>
  struct StackMark {
    explicit StackMark(Stack& s) noexcept : stack(s), at(s.size()) {}
    ~StackMark() { stack.erase(stack.begin() + std::ptrdiff_t(at), stack.end()); }
    StackMark(const StackMark&) = delete;
    StackMark& operator=(const StackMark&) = delete;
    Stack& stack;
    const std::size_t at;
  };
  using Mark = StackMark<std::vector<matrix::owned_array>>;
  // The same for a stack of arrays it owns as plain pointers, so that a
  // record that takes its fields leaves nothing to destroy or even to test.
  struct ArrayMark {
    explicit ArrayMark(std::vector<ixArray*>& s) noexcept : stack(s), at(s.size()) {}
    ~ArrayMark() {
      for (std::size_t i = at; i < stack.size(); ++i) ixDestroyArray(stack[i]);
      stack.resize(at);
    }
    ArrayMark(const ArrayMark&) = delete;
    ArrayMark& operator=(const ArrayMark&) = delete;
    std::vector<ixArray*>& stack;
    const std::size_t at;
  };
  using NameMark = StackMark<std::vector<std::string>>;
  // A T made when first asked for: until then it costs nothing, not even
  // the zeroing an empty std::optional of a large T gets.
  template <class T>
  class Lazy {
   public:
    Lazy() noexcept {}
    ~Lazy() {
      if (made_) value_.~T();
    }
    Lazy(const Lazy&) = delete;
    Lazy& operator=(const Lazy&) = delete;
    template <class... Args>
    void make(Args&... args) {
      new (&value_) T(args...);
      made_ = true;
    }
    explicit operator bool() const noexcept { return made_; }
    T* operator->() noexcept { return &value_; }

   private:
    union {
      T value_;
    };
    bool made_ = false;
  };
  struct Depth {
    explicit Depth(std::size_t& d) noexcept : depth(++d) {}
    ~Depth() { --depth; }
    std::size_t& depth;
  };

  // Reads the object at p, handing the value of its first member named key
  // (the first of repeated names counts) to read(q); the rest are read for
  // their grammar alone.
  template <class Read>
  void first_member(const Char*& p, std::string_view key, Read&& read) {
    bool found = false;
    std::string scratch;
    ok(g_.members(p, [&](const Name& k, const Char*& q) {
      if (found || !g_.same(k, key, scratch)) return g_.skip_value(q);
      found = true;
      return read(q);
    }));
  }

  void push_field(matrix::owned_array value) {
    fields_.push_back(value.get());
    value.release();  // once the stack holds it
  }

  // text_reader.cpp
  matrix::owned_array value(const Char*& p, bool whole = false);
  [[gnu::noinline]] matrix::owned_array number(const Char*& p);
  // The string at p's units: a view of the text, or of units_ until the
  // next call.
  std::u16string_view string_units(const Char*& p);
  // A string with escapes or surrogates, apart: the plain case then saves
  // none of the registers its reading takes.
  [[gnu::noinline]] std::u16string_view escaped_units(const Char*& p);
  static matrix::owned_array char_row(std::u16string_view units);
  std::string utf8_string(const Char*& p);
  matrix::owned_array object(const Char*& p);
  void member(std::string& key, const Char*& q, DecidingKeys& k, std::size_t mark, const Layout& layout,
              bool& on_layout, Names& seen);
  bool repeated(const std::string& key, std::size_t mark, const Layout& layout, bool& on_layout, Names& seen);
  bool read_size(const Char*& p, dims_vector& dims);
  matrix::owned_array large(DecidingKeys& k);
  Layout& layout_at(std::size_t depth) {
    if (depth > layouts_.size()) add_layouts(depth);
    return *layouts_[depth - 1];
  }
  void add_layouts(std::size_t depth);
  matrix::owned_array plain_struct(std::size_t mark, std::size_t names_mark, Layout& layout, bool on_layout);
  [[gnu::noinline]] void new_layout(std::size_t n, std::size_t names_mark, Layout& layout, bool on_layout);
  [[gnu::noinline]] ixArray* const* in_field_order(std::size_t mark, const Layout& layout);
  matrix::owned_array cell_from_stack(const dims_vector& dims, std::size_t mark);

  // text_data.cpp
  matrix::owned_array small_array(const Char*& p, bool whole);
  void small_level(const Char*& p, std::size_t level);
  void small_leaf(const Char*& p);
  bool special_float(const Char*& p, double& out);
  matrix::owned_array small_result();
  matrix::owned_array flat_list();
  // The sizes of the levels down to the leaves.
  dims_vector known_levels() const {
    return dims_vector(levels_.begin(), levels_.begin() + std::ptrdiff_t(leaf_level_ + 1));
  }
  struct Restart {};
  matrix::owned_array matrix_rows(const Char*& p);
  void fill_row(const Char*& p, std::size_t level, std::size_t offset, double* out, const dims_vector& strides);
  matrix::owned_array large_data(const Char*& p, IxtalType type, const dims_vector& dims, bool complex);
  template <class T>
  matrix::owned_array flat_data(const Char*& p, const dims_vector& dims, bool complex);
  template <class T>
  void element(const Char*& p, T& out);
  matrix::owned_array char_data(const Char*& p, const dims_vector& dims);
  matrix::owned_array cell_data(const Char*& p, const dims_vector& dims);
  matrix::owned_array struct_data(const Char*& p, const dims_vector& dims);
  void read_fields(const Char*& p, std::vector<std::string>& names, std::vector<std::size_t>& counts);
  matrix::owned_array struct_from(const dims_vector& dims, const std::vector<std::string>& names,
                                  const std::vector<std::size_t>& counts, std::size_t mark);
  void read_pending(const Char*& p, Pending& d);
  void to_elements(Pending& d);
  matrix::owned_array from_pending(Pending& d, IxtalType type, const dims_vector& dims, bool complex);
  matrix::owned_array string_data(const Char*& p, const dims_vector& dims);
  // The number of elements of dims, when the rest of the text could hold
  // that many values of at least one unit each; else decline, before an
  // array of a size no data back is made.
  ixSize countable(const Char* p, const dims_vector& dims, ixSize per_element = 1) const;

  dovra_json::detail::Grammar<Char> g_;
  const Char* const begin_;
  dovra_json::detail::Utf16Sink units_;
  std::vector<matrix::owned_array> elements_;  // of cells and responses, shared by every depth
  // The fields of plain structures, shared by every depth: their values,
  // and the names of those of an object off its layout (an object on it has
  // the layout's).
  std::vector<ixArray*> fields_;  // owned: see ArrayMark
  std::vector<std::string> field_names_;
  std::vector<std::unique_ptr<Layout>> layouts_;  // of plain structures, one per depth (held by reference)
  std::vector<ixArray*> values_;               // a record's field values in field order, as it is made
  std::size_t record_depth_ = 0;

  // Small notation: the size of each level as its first array says, the
  // level of the leaves once known, and the leaves in text order.
  static constexpr std::size_t kUnknown = std::size_t(-1);
  enum class SmallKind { kNone, kDouble, kLogical };
  dims_vector levels_;
  std::vector<bool> level_known_;
  std::size_t leaf_level_ = kUnknown;
  SmallKind kind_ = SmallKind::kNone;
  std::vector<double> numbers_;
  std::vector<bool> booleans_;
};

}  // namespace ixtal_json::detail
