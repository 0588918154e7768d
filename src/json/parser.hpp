#pragma once

// The grammar walk from UTF-8 text to a Value tree.
//
// A value is the first of string, number, object, array, boolean and null
// that matches; when none does, the failure reported is the one that got
// furthest into the text, the earlier alternative winning a tie. The walk
// gets the same code and position from the first byte alone, without trying
// the alternatives one after the other (see parser.cpp).
//
// Every failure is a code and a cursor: the cursor stands on the byte that
// could not be read (on the backslash for a failure inside an escape, at the
// end for text that stops too early).

#include "foundation/json/support.hpp"
#include "foundation/json/value.hpp"

namespace dovra_json {

// Reads one value starting at cur and leaves cur just after it (success) or
// at the failure. What follows the value is not looked at. flags: 0 or
// kAllowComments (parse_step.hpp). Arrays and objects nested deeper than
// kMaxNestingDepth fail with kNestingTooDeep on their opening bracket.
foundation::json::ParseResult parse_value(const char*& cur, const char* end, unsigned char flags,
                                          foundation::json::Value& out);

}  // namespace dovra_json
