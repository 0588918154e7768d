#pragma once

// The decode side's mapping from internal exceptions to public identifiers,
// written once as a type list and walked in order.

#include <new>
#include <optional>
#include <string_view>
#include <tuple>
#include <utility>

#include "errors/conversion_exceptions.hpp"
#include "errors/ix_err_msg_id.hpp"
#include "errors/keys.hpp"

namespace dovra_errors {

template <class Internal, class Key>
struct maps_to {
  using internal = Internal;
  using key = Key;
};

namespace json = DOVRA::IXTAL::JSON;
// Every DOVRA_CONVERSION_KEY of the identifier list.
using decode_error_map = drop_first<void
#define DOVRA_JSON_KEY(Name, ...)
#define DOVRA_CONVERSION_KEY(Stem, ...) , maps_to<ixtal_json::Stem, json::Decode##Stem>
#include "errors/identifiers.def"
                                    >;

// Raises the public error for e when its class is in the map; returns when
// it is not.
template <std::size_t I = 0>
void raise_mapped(const ixtal_json::ParseError& e) {
  if constexpr (I < std::tuple_size_v<decode_error_map>) {
    using entry = std::tuple_element_t<I, decode_error_map>;
    if (auto* p = dynamic_cast<const typename entry::internal*>(&e))
      std::apply([](const auto&... texts) { ixErrMsgId(typename entry::key(texts...)); }, p->members());
    raise_mapped<I + 1>(e);
  }
}

// Raises the public error for e, with the location of the value e is about
// in text beside it. The error goes out the same should the location cost
// more memory than there is.
[[noreturn]] inline void raise_located(const ixtal_json::ParseError& e, std::u16string_view text) {
  std::optional<ixtal::ErrorLocation> where;
  try {
    where = dovra_json::locate_value(text, e.path());
  } catch (const std::bad_alloc&) {
  }
  try {
    raise_mapped(e);
  } catch (ixtal::HostError& raised) {
    if (where) raised.set_location(std::move(*where));
    throw;
  }
  throw;  // not a conversion error after all: it passes unchanged
}

// Runs f; an internal decode exception leaving it becomes its public error,
// which carries the location of the value at fault when f converts a tree
// parsed from text. Every other exception passes unchanged.
template <class F>
decltype(auto) translate_decode_errors(F&& f, std::optional<std::u16string_view> text = std::nullopt) {
  try {
    return std::forward<F>(f)();
  } catch (const ixtal_json::ParseError& e) {
    if (text) raise_located(e, *text);
    raise_mapped(e);
    throw;
  }
}

}  // namespace dovra_errors
