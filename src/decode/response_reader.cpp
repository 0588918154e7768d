// The common response, a list of strings, numbers, booleans and records,
// read straight into its cell: each string's units are copied from the text
// into its char row (escapes decoded on the way), with no UTF-8 string and
// no tree between.

#include <new>
#include <vector>

#include "decode/element_reader.hpp"
#include "decode/response.hpp"

namespace ixtal_json {
namespace {

template <class Char>
class ResponseReader : public detail::ElementReader<ResponseReader<Char>, Char> {
  using Base = detail::ElementReader<ResponseReader<Char>, Char>;
  using Base::at;

 public:
  explicit ResponseReader(const Char* end) noexcept : Base(end) {}

  std::optional<matrix::owned_array> read(const Char* p) {
    if (!at(p, '{')) return std::nullopt;
    ++p;
    this->skip_white_space(p);
    if (!at(p, '"') || !this->string_units(p) || this->units() != u"lhs") return std::nullopt;
    this->skip_white_space(p);
    if (!at(p, ':')) return std::nullopt;
    ++p;
    this->skip_white_space(p);
    std::vector<matrix::owned_array> elements;
    const bool listed = this->list(p, [&](const Char*& q) {
      matrix::owned_array e = this->element(q);
      if (!e) return false;
      ixSetArrayScope(e.get(), kReturnedScope);
      elements.push_back(std::move(e));
      return true;
    });
    if (!listed) return std::nullopt;
    this->skip_white_space(p);
    if (!at(p, '}') || ++p != this->end()) return std::nullopt;

    matrix::owned_array cell(ixCreateCellMatrix(elements.size(), 1));
    for (std::size_t i = 0; i < elements.size(); ++i) ixSetCell(cell.get(), i, elements[i].release());
    return cell;
  }
};

}  // namespace

template <class Char>
std::optional<matrix::owned_array> read_response(std::basic_string_view<Char> text) {
  // Out of memory, the tree's answer is the one to give.
  try {
    return ResponseReader<Char>(text.data() + text.size()).read(text.data());
  } catch (const std::bad_alloc&) {
    return std::nullopt;
  }
}

template std::optional<matrix::owned_array> read_response(std::basic_string_view<char>);
template std::optional<matrix::owned_array> read_response(std::basic_string_view<char16_t>);

}  // namespace ixtal_json
