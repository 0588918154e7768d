#pragma once

// The large notation's key texts, made once at load and only read after.

#include <string>

namespace ixtal_json::keys {
extern const std::string tndata;
extern const std::string tnsize;
extern const std::string tntype;
extern const std::string tncomplex;
extern const std::string tnclass;
// The member of a response that lists its outputs.
extern const std::string lhs;
}  // namespace ixtal_json::keys
