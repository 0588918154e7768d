#pragma once

// The host kit: what every host of the JSON builtins does, written once.
// dovra-json, the tests, the benchmark, the fuzzers and the Python module
// all go through it, so loading, text conversion and the calling convention
// cannot drift between them.
//
//   load()              loads libdovra_json_builtins once per process and
//                       publishes its functions. Later calls return the same
//                       library. Safe from any thread.
//   text(utf8)          a 1-by-N char row of the UTF-16 form (0-by-0 when
//                       empty; ill-formed UTF-8 becomes U+FFFD; NUL is text).
//   utf8(chars)         a char array's characters, in storage order, as UTF-8.
//   decode(json)        dovra.json.decode; json is UTF-8 or a char row.
//   decode_response(json)
//                       the response builtin; a logical false for a
//                       document of the wrong shape.
//   encode(value, opts) the encode builtin, as UTF-8 (encode_chars: as the
//                       char row the builtin returned).
//   nomem()             the host's out-of-memory error, for a host that
//                       turns its own std::bad_alloc into the same report.
//
// Every failure is an ixtal::HostError: identifier(), arguments() (integers
// stay integers) and what(), the catalog message. A conversion error also
// says where, in location() (null for other errors): a decode error the
// path from the document's root to the value at fault and that value's
// byte offset, line, column and context line in the UTF-8 text; an encode
// error the path through the arrays to the one at fault. Loading fails with
// "IXTAL:CannotLoadLibrary" naming every path tried; a builtin's own errors
// keep their identifiers; running out of memory is "IXTAL:nomem". Calls hold
// no lock while the builtin runs, so threads may call at once (a Python host
// releases the GIL around them); the arrays they pass must not be changed
// meanwhile.
//
// Where the library is found: the path in DOVRA_JSON_BUILTINS when set,
// otherwise libdovra_json_builtins.so in the directory libixtal itself was
// loaded from (they are installed side by side), otherwise the dynamic
// linker's own search.

#include <string>
#include <string_view>
#include <vector>

#include "ixtal/errors.hpp"
#include "ixtal/export.hpp"
#include "ixtal/host.hpp"
#include "ixtal/matrix.hpp"

namespace ixtal::json_host {

IXTAL_API const BuiltinLibrary& load();

IXTAL_API matrix::owned_array text(std::string_view utf8);
IXTAL_API std::string utf8(const ixArray* chars);

IXTAL_API matrix::owned_array decode(std::string_view json);
IXTAL_API matrix::owned_array decode(const ixArray* json);
IXTAL_API matrix::owned_array decode_response(std::string_view json);
IXTAL_API matrix::owned_array decode_response(const ixArray* json);

struct EncodeOptions {
  std::string_view format = "large";   // "large" or "small"
  std::string_view nan_inf = "string"; // "string" or "object"
  bool pretty = false;
};
IXTAL_API matrix::owned_array encode_chars(const ixArray* value, const EncodeOptions& options = {});
IXTAL_API std::string encode(const ixArray* value, const EncodeOptions& options = {});

// Calls any function by host name and returns its one result.
IXTAL_API matrix::owned_array call_one(std::string_view name, const std::vector<const ixArray*>& args);

IXTAL_API HostError nomem();

// The paths load() tries, in order.
IXTAL_API std::vector<std::string> candidate_paths();

}  // namespace ixtal::json_host
