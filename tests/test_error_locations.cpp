// Conversion errors say where: the path to the value at fault and its first
// byte in the UTF-8 text, beside the catalogued error. A table names, for
// each decode conversion error and the encode ones, a document (or array)
// and where its error must point; a property test plants one fault in a
// generated valid document of every shape and finds the report pointing at
// the planted value.

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "encode_rows.hpp"
#include "ixtal/json_host.hpp"

namespace dovra_test {
namespace {

// The host error a call raised; fails the test when it raised none.
template <class F>
ixtal::HostError raised_by(F&& f) {
  try {
    f();
  } catch (const ixtal::HostError& e) {
    return e;
  }
  ADD_FAILURE() << "no error";
  return ixtal::HostError("", {}, "");
}

// '@' marks the first byte of the value at fault; the document is the text
// without it.
struct decode_row {
  std::string marked;
  const char* identifier;
  const char* path;
  bool response = false;  // through the response builtin
};

TEST(ErrorLocations, EveryDecodeConversionErrorPointsAtItsValue) {
  const std::vector<decode_row> rows = {
      {R"({"tntype":"double","tnsize":[1,@2.5],"tndata":[1,2]})", "InvalidTNSize", "$.tnsize[1]"},
      {R"({"tntype":"double","tnsize":@[3],"tndata":[1,2,3]})", "InvalidTNSize", "$.tnsize"},
      {R"({"tntype":"int8","tnsize":[1,1],"tndata":@5})", "InvalidTNDataType", "$.tndata"},
      {R"({"tntype":"struct","tnsize":[1,1],"tndata":{"b":[1],"a":@2}})", "InvalidTNDataType", "$.tndata.a"},
      {R"({"tntype":"string","tnsize":[1,2],"tndata":["x",@3]})", "InvalidTNDataType", "$.tndata[1]"},
      {R"({"tntype":"string","tnsize":[1,1],"tndata":[@3,"x"]})", "InvalidTNDataType", "$.tndata[0]"},
      {R"({"tndata":[1],"tntype":"double","tnsize":[1,1],"tncomplex":@"yes"})", "InvalidPropertyType", "$.tncomplex"},
      {R"({"tntype":@7,"tnsize":[1,1],"tndata":[1]})", "InvalidPropertyType", "$.tntype"},
      {R"({"tntype":"double","tnsize":@{},"tndata":[1]})", "InvalidPropertyType", "$.tnsize"},
      {R"({"tntype":"cell","tnsize":[1,2],"tndata":[1, @{"tntype":"double","tndata":[1]}]})", "MissingTNSizeOrTNData",
       "$.tndata[1]"},
      {R"({"x":@{"tndata":"nan"}})", "MissingTNTypeOrTNSize", "$.x"},
      {R"({"z":@{"tntype":"double","tnsize":[1,2],"tndata":[1,2,3],"tncomplex":true}})", "IncompleteComplexData", "$.z"},
      {R"({"tntype":@"quux","tnsize":[1,1],"tndata":[1]})", "InvalidTNType", "$.tntype"},
      {R"({"tntype":@"object","tnsize":[1,1],"tndata":[]})", "InvalidTNType", "$.tntype"},
      {R"({"tntype":"char","tnsize":[1,2],"tndata":@["a","b"]})", "InvalidCharArrayTNData", "$.tndata"},
      {R"({"k":{"tntype":"cell","tnsize":[1,1],"tndata":[@null]}})", "NullNotSupported", "$.k.tndata[0]"},
      {R"([[@"x"]])", "InvalidArrayElemType", "$[0][0]"},
      {R"([[1,2],@3])", "ArrayInconsistentDepths", "$[1]"},
      {R"([[1,@[2]],[3,4]])", "ArrayInconsistentDepths", "$[0][1]"},
      {R"([[1,2],@[3]])", "ArrayInconsistentSizes", "$[1]"},
      {R"({"lhs":[1,@{"tntype":"double","tnsize":[1,3],"tndata":[1,2]}]})", "MismatchedTNSize", "$.lhs[1]", true},
      {R"(@{"tntype":"char","tnsize":[2,2],"tndata":["abc"]})", "MismatchedTNSize", "$"},
      {R"({"tntype":"single","tnsize":[1,2],"tndata":[1,@1e39]})", "InvalidFloatingElem", "$.tndata[1]"},
      {R"({"tntype":"int8","tnsize":[1,3],"tndata":[1,2,@300]})", "InvalidIntegralElem", "$.tndata[2]"},
      // The count is off too, but an element error the fill meets first wins.
      {R"({"tntype":"int8","tnsize":[1,1],"tndata":[@300,1]})", "InvalidIntegralElem", "$.tndata[0]"},
      {R"({"tntype":"logical","tnsize":[1,2],"tndata":[true,@1]})", "InvalidLogicalElem", "$.tndata[1]"},
      {R"([[1,2],[3,@null]])", "ArrayInconsistentTypes", "$[1][1]"},
      // Storage order: [1][0] comes before [0][1].
      {R"([[1,true],[@null,2]])", "ArrayInconsistentTypes", "$[1][0]"},
      // Fields in byte order: "a" before "b", whatever the text's order.
      {R"({"b":null,"a":[true,@1]})", "ArrayInconsistentTypes", "$.a[1]"},
      // Of repeated names the first counts, in the tree and in the text.
      {R"({"a":[1,@null],"a":[1,2]})", "ArrayInconsistentTypes", "$.a[1]"},
      {R"({"tntype":"struct","tnsize":[1,2],"tndata":{"v":[1,{"w":[@null]}]}})", "InvalidArrayElemType",
       "$.tndata.v[1].w[0]"},
      // Keys that are not plain names are quoted; offsets count UTF-8 bytes.
      {"{\"x y\":@null}", "NullNotSupported", R"($["x y"])"},
      {"{\"\xC3\xA9\":@null}", "NullNotSupported", "$[\"\xC3\xA9\"]"},
      {R"({"q\"":@null})", "NullNotSupported", R"($["q\""])"},
      {R"({"lhs":[{"tntype":"cell","tnsize":[1,1],"tndata":[@null]}]})", "NullNotSupported", "$.lhs[0].tndata[0]", true},
  };
  LeakCheck leaks;
  for (const decode_row& row : rows) {
    SCOPED_TRACE(row.marked);
    std::string text = row.marked;
    const std::size_t offset = text.find('@');
    text.erase(offset, 1);
    const ixtal::HostError e = raised_by([&] {
      if (row.response) ixtal::json_host::decode_response(text);
      else ixtal::json_host::decode(text);
    });
    EXPECT_EQ(e.identifier(), std::string("DOVRA:IXTAL:JSON:Decode") + row.identifier);
    ASSERT_NE(e.location(), nullptr);
    EXPECT_EQ(e.location()->path, row.path);
    EXPECT_TRUE(e.location()->in_text);
    EXPECT_EQ(e.location()->offset, offset);
  }
}

TEST(ErrorLocations, LineColumnAndContextAreCountedAsForParseErrors) {
  const std::string text = "{\n  \"rows\": [[1, 2],\n\t [3, \"x\"]]\n}";
  const ixtal::HostError e = raised_by([&] { ixtal::json_host::decode(text); });
  ASSERT_NE(e.location(), nullptr);
  const ixtal::ErrorLocation& at = *e.location();
  EXPECT_EQ(at.path, "$.rows[1][1]");
  EXPECT_EQ(at.offset, text.find("\"x\""));
  EXPECT_EQ(at.line, 3u);
  EXPECT_EQ(at.column, 6u);
  EXPECT_EQ(at.context, "\t [3, \"x\"]]");
  EXPECT_EQ(at.caret, 6u);
  // Only conversion errors name a value: a parse error's position is in its
  // arguments.
  EXPECT_EQ(raised_by([] { ixtal::json_host::decode("[1,"); }).location(), nullptr);
}

// levels scalar structures, each holding the next in its field "f".
shared_array nested_structs(std::size_t levels, const shared_array& inner) {
  owned_array a = copy_of(inner);
  for (std::size_t i = 0; i < levels; ++i) {
    std::vector<owned_array> one;
    one.push_back(std::move(a));
    a = make_struct({"f"}, std::move(one), {1, 1});
  }
  return share(std::move(a));
}

TEST(ErrorLocations, EncodeErrorsNameThePathThroughTheArrays) {
  const auto sparse = share(owned_array(ixCreateSparse(1, 1, ixDOUBLE_CLASS, ixREAL)));
  const auto one = doubles({1}, {1, 1});
  std::vector<shared_array> three(3, one);
  three[2] = structure({"meta"}, {cell({one, sparse}, {1, 2})}, {1, 1});
  const struct {
    const char* label;
    shared_array array;
    const char* format;
    const char* identifier;
    const char* path;
  } rows[] = {
      {"the argument itself", sparse, "large", "DOVRA:IXTAL:JSON:EncodeUnsupportedType", ""},
      {"in a cell in a structure in a cell", cell(three, {1, 3}), "small",
       "DOVRA:IXTAL:JSON:EncodeUnsupportedType", "{3}.meta{2}"},
      {"in a structure array", structure({"a", "b c"}, {one, one, one, sparse}, {2, 1}), "large",
       "DOVRA:IXTAL:JSON:EncodeUnsupportedType", "(2).'b c'"},
      {"in a matrix of cells", cell({one, one, one, sparse}, {2, 2}), "large",
       "DOVRA:IXTAL:JSON:EncodeUnsupportedType", "{2,2}"},
      {"333 structures", nested_structs(333, one), "large", "DOVRA:IXTAL:JSON:EncodeNestingTooDeep",
       nullptr},
  };
  LeakCheck leaks;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.label);
    const ixtal::HostError e = raised_by([&] {
      ixtal::json_host::encode(row.array.get(), {row.format, "string", false});
    });
    EXPECT_EQ(e.identifier(), row.identifier);
    ASSERT_NE(e.location(), nullptr);
    EXPECT_FALSE(e.location()->in_text);
    // 333 structures take 999 levels: the double inside has no room.
    std::string path = row.path ? row.path : "";
    if (!row.path)
      for (int k = 0; k < 333; ++k) path += ".f";
    EXPECT_EQ(e.location()->path, path);
  }
}

// A generated valid document with one fault planted at a value chosen at
// random: the site's path (spelt out here, not by the library), and the
// offset of its first byte.
class Planter {
 public:
  Planter(unsigned seed, long plant) : rng_(seed), plant_(plant) {}

  std::string text;
  long sites = 0;
  std::string planted_path;
  std::size_t planted_offset = 0;

  void document(bool response) {
    if (!response) return value("$", 0);
    text += "{" + blank() + "\"lhs\":" + blank() + "[";
    for (int n = 1 + pick(3), i = 0; i < n; ++i) {
      if (i) text += "," + blank();
      value("$.lhs[" + std::to_string(i) + "]", 1);
    }
    text += "]}";
  }

 private:
  int pick(int n) { return int(rng_() % unsigned(n)); }
  std::string blank() {
    static const char* const kBlanks[] = {"", "", "", " ", "\n", "\n  ", "\t"};
    return kBlanks[pick(int(std::size(kBlanks)))];
  }
  std::string number() { return pick(2) ? std::to_string(pick(100)) : std::to_string(pick(100)) + ".25"; }

  // Here, a value that is the fault (when this is the site chosen) or what
  // valid() writes. The fault is reported at `path`, starting `at` (this
  // value's first byte when npos).
  template <class Valid>
  void site(const std::string& path, const std::string& fault, Valid&& valid, std::size_t at = std::string::npos) {
    if (sites++ == plant_) {
      planted_path = path;
      planted_offset = at == std::string::npos ? text.size() : at;
      text += fault;
    } else {
      valid();
    }
  }

  void value(const std::string& path, int depth) {
    switch (depth > 2 ? pick(3) : pick(8)) {
      case 0: return matrix(path);
      case 1: return large(path);
      case 2: return site(path, R"({"tndata":"nan"})", [&] { text += R"({"tndata":"-Inf"})"; });
      case 3: return record(path, depth);
      case 4: return cells(path, depth);
      case 5: return structs(path, depth);
      case 6: return strings(path);
      default: return site(path, "null", [&] { text += "\"text\""; });
    }
  }

  // Small notation: a list or rows of numbers. Any element may be spoilt,
  // and any row but the first, which sets the size, may be one short.
  void matrix(const std::string& path) {
    static const char* const kFaults[] = {"null", "\"s\"", "{}"};
    const bool rows = pick(2);
    const int m = 1 + pick(3), n = 1 + pick(3);
    text += "[" + blank();
    for (int i = 0; i < (rows ? m : n); ++i) {
      if (i) text += "," + blank();
      const std::string row = path + "[" + std::to_string(i) + "]";
      const auto element = [&](const std::string& at) { site(at, kFaults[pick(3)], [&] { text += number(); }); };
      if (!rows) {
        element(row);
        continue;
      }
      const auto full = [&] {
        text += "[";
        for (int j = 0; j < n; ++j) {
          if (j) text += "," + blank();
          element(row + "[" + std::to_string(j) + "]");
        }
        text += "]";
      };
      if (i == 0) full();
      else site(row, "[" + std::string(n > 1 ? "1" : "") + std::string(n > 2 ? ",2" : "") + "]", full);
    }
    text += blank() + "]";
  }

  // Large notation of a numeric or logical class, its members in any order.
  void large(const std::string& path) {
    static const struct {
      const char* name;
      const char* valid;
      const char* fault;
    } kClasses[] = {{"double", "1.5", "\"x\""},   {"single", "-2", "1e39"}, {"int8", "-128", "300"},
                    {"uint16", "7", "-1"},        {"int32", "5", "1.5"},    {"logical", "true", "1"}};
    const auto& c = kClasses[pick(int(std::size(kClasses)))];
    const std::size_t object = text.size();
    const int n = 1 + pick(4);
    const bool complex = c.name != std::string("logical") && pick(3) == 0;
    std::vector<int> order{0, 1, 2, 3};
    std::shuffle(order.begin(), order.end(), rng_);
    text += "{";
    bool first = true;
    for (int member : order) {
      if (member == 3 && !complex) continue;
      if (!first) text += "," + blank();
      first = false;
      switch (member) {
        case 0:
          text += "\"tntype\":" + blank();
          site(path + ".tntype", "\"quux\"", [&] { text += std::string("\"") + c.name + "\""; });
          break;
        case 1:
          text += "\"tnsize\":" + blank();
          // A size the data do not fill is the object's fault.
          site(path, "[1," + std::to_string(n + 1) + "]", [&] {
            text += "[";
            site(path + ".tnsize[0]", "-1", [&] { text += "1"; });
            text += ",";
            site(path + ".tnsize[1]", "2.5", [&] { text += std::to_string(n); });
            text += "]";
          }, object);
          break;
        case 2:
          text += "\"tndata\":" + blank() + "[";
          for (int i = 0; i < (complex ? 2 * n : n); ++i) {
            if (i) text += "," + blank();
            site(path + ".tndata[" + std::to_string(i) + "]", c.fault, [&] { text += c.valid; });
          }
          text += "]";
          break;
        default:
          text += "\"tncomplex\":";
          site(path + ".tncomplex", "\"yes\"", [&] { text += "true"; });
      }
    }
    text += "}";
  }

  // A plain record: names that are plain, quoted, and beyond ASCII.
  void record(const std::string& path, int depth) {
    static const std::pair<const char*, const char*> kNames[] = {
        {"\"a\"", ".a"}, {"\"b_2\"", ".b_2"}, {"\"x y\"", "[\"x y\"]"}, {"\"\xC3\xA9t\xC3\xA9\"", "[\"\xC3\xA9t\xC3\xA9\"]"}};
    std::vector<int> names{0, 1, 2, 3};
    std::shuffle(names.begin(), names.end(), rng_);
    text += "{" + blank();
    for (int k = 0, n = 1 + pick(4); k < n; ++k) {
      if (k) text += "," + blank();
      text += std::string(kNames[names[k]].first) + ":" + blank();
      value(path + kNames[names[k]].second, depth + 1);
    }
    text += blank() + "}";
  }

  void cells(const std::string& path, int depth) {
    const std::size_t object = text.size();
    const int n = pick(4);
    text += R"({"tntype":"cell","tnsize":)";
    site(path, "[1," + std::to_string(n + 1) + "]", [&] { text += "[1," + std::to_string(n) + "]"; }, object);
    text += R"(,"tndata":[)";
    for (int i = 0; i < n; ++i) {
      if (i) text += "," + blank();
      value(path + ".tndata[" + std::to_string(i) + "]", depth + 1);
    }
    text += "]}";
  }

  void structs(const std::string& path, int depth) {
    const int n = 1 + pick(3);
    text += R"({"tntype":"struct","tnsize":[)" + std::to_string(n) + R"(,1],"tndata":{)";
    for (const char* field : {"p", "q"}) {
      if (field[0] == 'q') text += ",";
      text += std::string("\"") + field + "\":" + blank();
      site(path + ".tndata." + field, "7", [&] {
        text += "[";
        for (int i = 0; i < n; ++i) {
          if (i) text += ",";
          value(path + ".tndata." + field + "[" + std::to_string(i) + "]", depth + 1);
        }
        text += "]";
      });
    }
    text += "}}";
  }

  void strings(const std::string& path) {
    const int n = 1 + pick(3);
    text += R"({"tntype":"string","tnsize":[1,)" + std::to_string(n) + R"(],"tndata":[)";
    for (int i = 0; i < n; ++i) {
      if (i) text += ",";
      site(path + ".tndata[" + std::to_string(i) + "]", "3", [&] { text += pick(3) ? "\"s\"" : "null"; });
    }
    text += "]}";
  }

  std::mt19937 rng_;
  long plant_;
};

TEST(ErrorLocations, APlantedFaultIsWhereTheErrorPoints) {
  LeakCheck leaks;
  for (unsigned seed = 1; seed <= 600; ++seed) {
    const bool response = seed % 3 == 0;
    Planter count(seed, -1);
    count.document(response);
    const long chosen = long(std::mt19937(seed)() % unsigned(count.sites));
    Planter planted(seed, chosen);
    planted.document(response);
    const std::string& text = planted.text;
    SCOPED_TRACE(text);
    const ixtal::HostError e = raised_by([&] {
      if (response) ixtal::json_host::decode_response(text);
      else ixtal::json_host::decode(text);
    });
    ASSERT_NE(e.location(), nullptr) << e.identifier();
    const ixtal::ErrorLocation& at = *e.location();
    EXPECT_EQ(at.path, planted.planted_path) << e.identifier();
    EXPECT_EQ(at.offset, planted.planted_offset) << e.identifier();
    ASSERT_LT(at.caret, at.context.size());
    EXPECT_EQ(at.context[at.caret], text[at.offset]);
  }
}

}  // namespace
}  // namespace dovra_test
