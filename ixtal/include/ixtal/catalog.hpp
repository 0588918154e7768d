#pragma once

// The host's message catalog: one English text per identifier, with {0},
// {1}, ... standing for the arguments in order. Substitution is one pass:
// argument texts are copied literally, never read as placeholders or format
// directives.

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ixtal/errors.hpp"
#include "ixtal/export.hpp"

namespace fl::i18n {

class IXTAL_API TnLocale {
 public:
  static const TnLocale& global() noexcept;
};

class IXTAL_API MessageCatalog {
 public:
  // The text for the key's identifier with its arguments filled in. An
  // identifier missing from the catalog gives the identifier followed by its
  // arguments, so nothing is ever lost.
  static std::string get_message(const resource_core::BaseMsgID& key, const TnLocale& locale);
  // The raw template, or null when the catalog has no such identifier.
  static const char* find_template(std::string_view identifier) noexcept;
  // Every (identifier, template) pair, in identifier order.
  static const std::vector<std::pair<std::string_view, std::string_view>>& entries();
};

}  // namespace fl::i18n
