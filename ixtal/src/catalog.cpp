#include "ixtal/catalog.hpp"

#include <algorithm>
#include <boost/variant/static_visitor.hpp>

#include "ixtal/text.hpp"

namespace fl::i18n {
namespace {

using Entry = std::pair<std::string_view, std::string_view>;

// {N} stands for argument N. Texts are English, one per identifier; the
// parse errors put the position prefix first and the context and caret
// lines last.
const std::vector<Entry>& table() {
  static const std::vector<Entry> entries = [] {
    std::vector<Entry> e = {
        // Host errors.
        {"IXTAL:TooManyOutputs", "Too many output arguments."},
        {"IXTAL:TooManyInputs", "Too many input arguments."},
        {"IXTAL:NotEnoughInputs", "Not enough input arguments."},
        {"IXTAL:nomem", "Out of memory: the array is too large, or the host has no memory left."},
        {"IXTAL:UndefinedFunction", "Undefined function \"{0}\"."},
        {"IXTAL:UnexpectedException", "The builtin failed unexpectedly: {0}"},
        {"IXTAL:CannotLoadLibrary", "Cannot load the builtins library (tried {0}): {1}"},
        {"IXTAL:string:MustBeStringScalarOrCharacterVector", "The argument must be a string scalar or a character vector."},
        {"IXTAL:string:MissingNotSupported", "A missing string is not supported here."},
        {"IXTAL:checkSyntacticWarnings:MustBeStringScalarOrCharacterVector",
         "The argument must be a string scalar or a character vector."},
        {"IXTAL:class:InvalidArgument", "Invalid value for the \"{0}\" argument. Check the accepted values of \"{1}\"."},
        {"IXTAL:class:RequireLogical", "The argument must be a logical scalar (true or false)."},

        // Parse errors: {0} is the position prefix, {1} the context and caret lines.
        {"DOVRA:IXTAL:JSON:DecodeJsonErrPrefix", "JSON syntax error at line {0}, column {1} (byte offset {2})"},
        {"DOVRA:IXTAL:JSON:DecodeJsonErrSuffix", "    {0}\n    {1}"},
        {"DOVRA:IXTAL:JSON:DecodeCharInvalidUnicodeEscape",
         "{0}: invalid Unicode escape; \\u must be followed by four hexadecimal digits, and a high surrogate by a "
         "second \\u escape.\n{1}"},
        {"DOVRA:IXTAL:JSON:DecodeCharInvalidEscape",
         "{0}: invalid escape; a backslash must be followed by one of \" \\ / b f n r t u.\n{1}"},
        {"DOVRA:IXTAL:JSON:DecodeNumberInvalidFractionalComponent",
         "{0}: a decimal point must be followed by a digit.\n{1}"},
        {"DOVRA:IXTAL:JSON:DecodeNumberInvalidExponent", "{0}: an exponent must have at least one digit.\n{1}"},
        {"DOVRA:IXTAL:JSON:DecodeObjectNoColonAfterName", "{0}: expected ':' after an object member name.\n{1}"},
        {"DOVRA:IXTAL:JSON:DecodeIncomplete", "{0}: the text ends before the JSON value is complete.\n{1}"},
        {"DOVRA:IXTAL:JSON:DecodeUnexpectedValue", "{0}: unexpected text at this position.\n{1}"},
        {"DOVRA:IXTAL:JSON:DecodeNestingTooDeep", "{0}: arrays and objects are nested too deeply.\n{1}"},

        // Conversion errors.
        {"DOVRA:IXTAL:JSON:DecodeInvalidTNSize", "\"tnsize\" must be an array of two or more non-negative integers."},
        {"DOVRA:IXTAL:JSON:DecodeInvalidTNDataType", "\"tndata\" for {0} arrays must be a JSON {1}."},
        {"DOVRA:IXTAL:JSON:DecodeInvalidPropertyType", "\"{0}\" must be a JSON {1}."},
        {"DOVRA:IXTAL:JSON:DecodeMissingTNSizeOrTNData",
         "A JSON object with \"tntype\" must also have \"tnsize\" and \"tndata\"."},
        {"DOVRA:IXTAL:JSON:DecodeMissingTNTypeOrTNSize",
         "A JSON object with \"tndata\" must also have \"tntype\" and \"tnsize\", unless \"tndata\" is \"NaN\", "
         "\"Inf\" or \"-Inf\"."},
        {"DOVRA:IXTAL:JSON:DecodeIncompleteComplexData",
         "Complex data is incomplete: the last element has a real part but no imaginary part."},
        {"DOVRA:IXTAL:JSON:DecodeInvalidTNType", "Unsupported \"tntype\": {0}."},
        {"DOVRA:IXTAL:JSON:DecodeInvalidCharArrayTNData",
         "\"tndata\" for a char array must be in the form [\"<text>\"]."},
        {"DOVRA:IXTAL:JSON:DecodeNullNotSupported", "JSON null cannot be converted to an array."},
        {"DOVRA:IXTAL:JSON:DecodeInvalidArrayElemType",
         "An array in small notation must contain JSON numbers, JSON booleans, or {\"tndata\":\"NaN\"}, "
         "{\"tndata\":\"Inf\"} or {\"tndata\":\"-Inf\"}."},
        {"DOVRA:IXTAL:JSON:DecodeArrayInconsistentDepths",
         "Nested arrays in small notation do not have consistent depths."},
        {"DOVRA:IXTAL:JSON:DecodeArrayInconsistentSizes",
         "Nested arrays in small notation do not have consistent sizes."},
        {"DOVRA:IXTAL:JSON:DecodeArrayInconsistentTypes",
         "An array in small notation has both {0} and {1} elements; expected one type."},
        {"DOVRA:IXTAL:JSON:DecodeMismatchedTNSize", "The number of data elements does not match \"tnsize\"."},
        {"DOVRA:IXTAL:JSON:DecodeInvalidFloatingElem",
         "Invalid value for type {0}: expected a number within the range of the type, or {\"tndata\":\"NaN\"}, "
         "{\"tndata\":\"Inf\"} or {\"tndata\":\"-Inf\"}."},
        {"DOVRA:IXTAL:JSON:DecodeInvalidIntegralElem",
         "Invalid value for type {0}: expected an integral number within the range of the type."},
        {"DOVRA:IXTAL:JSON:DecodeInvalidLogicalElem", "Invalid value for type logical: expected true or false."},
        {"DOVRA:IXTAL:JSON:EncodeUnsupportedType", "Arrays of class {0} cannot be encoded as JSON."},
        {"DOVRA:IXTAL:JSON:EncodeNestingTooDeep",
         "Cell and structure arrays are nested too deeply to be encoded as JSON."},
    };
    std::sort(e.begin(), e.end());
    return e;
  }();
  return entries;
}

struct append_arg : boost::static_visitor<void> {
  std::string& out;
  explicit append_arg(std::string& o) : out(o) {}
  void operator()(long v) const { out += std::to_string(v); }
  void operator()(const std::string& s) const { out += s; }
  void operator()(const std::u16string& s) const {
    codecvt_ustring_to_string("UTF-8").convert(s.data(), s.size(), out);
  }
};

}  // namespace

const TnLocale& TnLocale::global() noexcept {
  static const TnLocale locale;
  return locale;
}

const char* MessageCatalog::find_template(std::string_view identifier) noexcept {
  const auto& t = table();
  auto it = std::lower_bound(t.begin(), t.end(), identifier, [](const Entry& e, std::string_view id) { return e.first < id; });
  return it != t.end() && it->first == identifier ? it->second.data() : nullptr;
}

const std::vector<std::pair<std::string_view, std::string_view>>& MessageCatalog::entries() { return table(); }

std::string MessageCatalog::get_message(const resource_core::BaseMsgID& key, const TnLocale&) {
  const std::string id = key.id();
  const auto& args = key.args();
  std::string out;
  const char* tmpl = find_template(id);
  if (!tmpl) {
    out = id;
    for (const auto& a : args) {
      out += out.size() == id.size() ? ": " : ", ";
      boost::apply_visitor(append_arg(out), a);
    }
    return out;
  }
  // One pass: what an argument holds is copied, never scanned again.
  for (const char* p = tmpl; *p;) {
    if (p[0] == '{' && p[1] >= '0' && p[1] <= '9') {
      const char* q = p + 1;
      std::size_t n = 0;
      while (*q >= '0' && *q <= '9') n = n * 10 + std::size_t(*q++ - '0');
      if (*q == '}') {
        if (n < args.size()) boost::apply_visitor(append_arg(out), args[n]);
        p = q + 1;
        continue;
      }
    }
    out += *p++;
  }
  return out;
}

}  // namespace fl::i18n

namespace ixtal {
std::string format_message(const resource_core::BaseMsgID& key) {
  return fl::i18n::MessageCatalog::get_message(key, fl::i18n::TnLocale::global());
}
}  // namespace ixtal
