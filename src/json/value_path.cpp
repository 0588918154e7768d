#include "json/value_path.hpp"

#include <algorithm>
#include <cstdio>

#include "ixtal/text.hpp"
#include "json/grammar.hpp"
#include "json/location.hpp"

namespace dovra_json {

namespace {

bool is_plain_name(std::string_view name) {
  const auto word = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_'; };
  return !name.empty() && word(name.front()) &&
         std::all_of(name.begin(), name.end(), [&](char c) { return word(c) || (c >= '0' && c <= '9'); });
}

void append_quoted(std::string& out, std::string_view name) {
  out += '"';
  for (const char c : name) {
    if (c == '"' || c == '\\') {
      out += '\\';
      out += c;
    } else if (static_cast<unsigned char>(c) < 0x20) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\u%04x", unsigned(c));
      out += escape;
    } else {
      out += c;
    }
  }
  out += '"';
}

// Returned from inside a loop of the grammar to leave it where the step's
// value starts; the text parsed once already, so no real failure can come.
constexpr foundation::json::ParseResult kFound = foundation::json::kUnexpectedEnd;

}  // namespace

std::string path_text(const ValuePath& path) {
  std::string out = "$";
  for (const PathStep& step : path) {
    if (const auto* index = std::get_if<std::size_t>(&step)) {
      out += '[' + std::to_string(*index) + ']';
    } else if (const std::string& name = std::get<std::string>(step); is_plain_name(name)) {
      out += '.' + name;
    } else {
      out += '[';
      append_quoted(out, name);
      out += ']';
    }
  }
  return out;
}

ixtal::ErrorLocation locate_value(std::u16string_view text, const ValuePath& path) {
  // The positions users are told are those of the UTF-8 form, as for parse
  // errors: the text is converted once, only now that an error is raised.
  std::size_t size = 0;
  const auto utf8 = fl::i18n::codecvt_ustring_to_string("UTF-8").convert_once(text.data(), text.size(), size);
  const char* const begin = utf8.get();
  const char* const end = begin + size;

  detail::Grammar<char> grammar(end, 0);
  const char* at = begin;
  std::string name;
  for (const PathStep& step : path) {
    const char* found = nullptr;
    const char* p = at;
    if (const auto* index = std::get_if<std::size_t>(&step)) {
      std::size_t i = 0;
      grammar.elements(p, [&](const char*& q) {
        if (i++ == *index) {
          found = q;
          return kFound;
        }
        return grammar.skip_value(q);
      });
    } else {
      const std::string& key = std::get<std::string>(step);
      grammar.members(p, name, [&](const std::string& member, const char*& q) {
        if (member == key) {
          found = q;
          return kFound;
        }
        return grammar.skip_value(q);
      });
    }
    if (!found) break;
    at = found;
  }

  foundation::json::LocationInfo where = foundation::json::get_location_info(begin, at, end);
  ixtal::ErrorLocation out;
  out.path = path_text(path);
  out.in_text = true;
  out.offset = std::uint64_t(at - begin);
  out.line = where.line;
  out.column = where.column;
  out.context = std::move(where.context);
  out.caret = where.caret;
  return out;
}

}  // namespace dovra_json
