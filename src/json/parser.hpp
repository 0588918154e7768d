#pragma once

// From UTF-8 text to a Value tree: the value at the cursor, chosen by its
// first byte (parser.cpp says why that is the rule's own choice).
//
// Every failure is a code and a cursor: the cursor stands on the byte that
// could not be read (on the backslash for a failure inside an escape, at the
// end for text that stops too early).

#include <string_view>

#include "foundation/json/support.hpp"
#include "foundation/json/value.hpp"
#include "json/limits.hpp"

namespace dovra_json {

// Parses the whole of a UTF-8 text (flags: 0, or kAllowComments). Throws
// foundation::json::ParserException on malformed text or on anything after
// the value.
foundation::json::Value parse(std::string_view utf8, unsigned char flags = 0);

// Reads one value starting at cur and leaves cur just after it (success) or
// at the failure. What follows the value is not looked at. flags: 0 or
// kAllowComments. Arrays and objects nested deeper than kMaxNestingDepth
// fail with kNestingTooDeep on their opening bracket.
foundation::json::ParseResult parse_value(const char*& cur, const char* end, unsigned char flags,
                                          foundation::json::Value& out);

// The same over UTF-16 text, read without converting it. Where it succeeds,
// the tree is the one parse_value gives for the text's UTF-8 form; where it
// fails, the failure's code and place are not always those (a non-ASCII unit
// outside a string fails here): report failures from the UTF-8 form.
foundation::json::ParseResult parse_value(const char16_t*& cur, const char16_t* end, unsigned char flags,
                                          foundation::json::Value& out);

}  // namespace dovra_json
