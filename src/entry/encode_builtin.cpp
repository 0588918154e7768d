// The encode builtin: array, "large"|"small", "string"|"object", pretty flag.

#include <algorithm>
#include <cstring>
#include <new>
#include <string>
#include <string_view>
#include <utility>

#include "encode/converter.hpp"
#include "encode/direct_writer.hpp"
#include "entry/builtins.hpp"
#include "errors/conversion_exceptions.hpp"
#include "errors/ix_err_msg_id.hpp"
#include "errors/keys.hpp"
#include "foundation/json/serializer.hpp"
#include "host/text_argument.hpp"
#include "ixtal/host.hpp"
#include "ixtal/matrix.hpp"

namespace dovra_entry {
namespace {

using ixtal_json::detail::NanType;
using ixtal_json::detail::ToJsonMode;

// Picks first or second by the option's exact text.
template <class Choice>
Choice read_option(const ixArray* arg, const char* name, std::u16string_view first_text, Choice first,
                   std::u16string_view second_text, Choice second) {
  std::u16string_view text;
  try {
    text = dovra_host::read_text_argument(arg, dovra_host::TextShape::row_or_empty);
  } catch (...) {
    ixErrMsgId(IXTAL::checkSyntacticWarnings::MustBeStringScalarOrCharacterVector());
  }
  if (text == first_text) return first;
  if (text == second_text) return second;
  char option[11] = {};  // the key takes the option's name in a fixed buffer
  std::memcpy(option, name, std::min(std::strlen(name), sizeof option - 1));
  ixErrMsgId(component_IXTAL::catalog_class::key_InvalidArgument(option, option));
}

// The path to the array at fault goes beside the error, read while the
// arrays it passes through still live.
void locate(ixtal::HostError& e, const ixtal_json::detail::encode_trail& trail) noexcept {
  if (!trail.known()) return;
  try {
    ixtal::ErrorLocation where;
    where.path = trail.text();
    e.set_location(std::move(where));
  } catch (...) {
    // Without memory for the path the error still goes out, as it is.
  }
}

}  // namespace

void json_encode_builtin(std::int32_t nlhs, ixArray* plhs[], std::int32_t nrhs, const ixArray* prhs[]) {
  check_arity(nlhs, 1, nrhs, 4, 4);
  const ToJsonMode mode = read_option(prhs[1], "format", u"large", ToJsonMode::large, u"small", ToJsonMode::small);
  const NanType nan = read_option(prhs[2], "nanInfType", u"string", NanType::string, u"object", NanType::object);
  if (!ixIsLogicalScalar(prhs[3])) ixErrMsgId(component_IXTAL::catalog_class::key_RequireLogical());

  const bool pretty = ixIsLogicalScalarTrue(prhs[3]);
  // Compact text is written straight from the arrays where the writer
  // serves them; the rest, and every error, comes from the tree.
  if (!pretty)
    if (ixArray* text = ixtal_json::detail::write_direct(prhs[0], mode, nan)) {
      plhs[0] = text;
      return;
    }
  foundation::json::Value value;
  ixtal_json::detail::encode_trail trail;
  try {
    try {
      value = ixtal_json::detail::convert(prhs[0], mode, nan, &trail);
    } catch (const ixtal_json::IxUnsupportedType& e) {
      ixErrMsgId(DOVRA::IXTAL::JSON::EncodeUnsupportedType(e.text));
    } catch (const ixtal_json::IxNestingTooDeep&) {
      ixErrMsgId(DOVRA::IXTAL::JSON::EncodeNestingTooDeep());
    } catch (const std::bad_alloc&) {
      throw;  // the host's out-of-memory error, which is about no one array
    } catch (...) {
      ixtal::rethrow_as_host_error();  // a writer's own failure
    }
  } catch (ixtal::HostError& e) {
    locate(e, trail);
    throw;
  }
  // The text goes straight into the result's UTF-16 storage: no UTF-8
  // text is made, and room never written is never touched.
  struct Text {
    foundation::json::Serializer writer;
    const foundation::json::Value& value;
  } text{{}, value};
  text.writer.pretty_print(pretty);
  plhs[0] = ixCreateStringInPlace(
      text.writer.room(value),
      [](char16_t* out, void* t) {
        const auto& text = *static_cast<const Text*>(t);
        return text.writer.write(out, text.value);
      },
      &text);
}

}  // namespace dovra_entry
