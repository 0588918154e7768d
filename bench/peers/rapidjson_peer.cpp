#include "peers/rapidjson_peer.hpp"

#include <cmath>
#include <limits>
#include <stdexcept>

#include <rapidjson/document.h>
#include <rapidjson/writer.h>

namespace dovra_bench::peers {

namespace {

constexpr unsigned kFlags = rapidjson::kParseFullPrecisionFlag;

[[noreturn]] void bad_shape(const char* what) { throw std::runtime_error(std::string("rapidjson peer: ") + what); }

void parse(rapidjson::Document& doc, std::string_view text) {
  doc.Parse<kFlags>(text.data(), text.size());
  if (doc.HasParseError()) bad_shape("parse error");
}

const rapidjson::Value& member(const rapidjson::Value& object, const char* key) {
  if (!object.IsObject()) bad_shape("object expected");
  const auto it = object.FindMember(key);
  if (it == object.MemberEnd()) bad_shape(key);
  return it->value;
}

double number(const rapidjson::Value& v) {
  if (!v.IsNumber()) bad_shape("number expected");
  return v.GetDouble();
}

std::string_view string(const rapidjson::Value& v) {
  if (!v.IsString()) bad_shape("string expected");
  return {v.GetString(), v.GetStringLength()};
}

const rapidjson::Value& array(const rapidjson::Value& v) {
  if (!v.IsArray()) bad_shape("array expected");
  return v;
}

}  // namespace

void RapidjsonDecoder::matrix(double* out, std::size_t rows, std::size_t cols) {
  rapidjson::Document doc;
  parse(doc, text_);
  const auto& outer = array(doc);
  if (outer.Size() != rows) bad_shape("row count");
  for (std::size_t i = 0; i < rows; ++i) {
    const auto& row = array(outer[rapidjson::SizeType(i)]);
    if (row.Size() != cols) bad_shape("row length");
    double* column_start = out + i;
    std::size_t j = 0;
    for (const auto& v : row.GetArray()) column_start[j++ * rows] = number(v);
  }
}

void RapidjsonDecoder::int32_row(std::int32_t* out, std::size_t n) {
  rapidjson::Document doc;
  parse(doc, text_);
  if (string(member(doc, "tntype")) != "int32") bad_shape("tntype");
  std::size_t product = 1;
  const auto& size = array(member(doc, "tnsize"));
  for (const auto& d : size.GetArray()) {
    if (!d.IsUint64()) bad_shape("tnsize");
    product *= d.GetUint64();
  }
  if (size.Size() < 2 || product != n) bad_shape("tnsize");
  const auto& data = array(member(doc, "tndata"));
  if (data.Size() != n) bad_shape("data count");
  std::size_t k = 0;
  for (const auto& v : data.GetArray()) {
    if (!v.IsInt()) bad_shape("int32 expected");
    out[k++] = v.GetInt();
  }
}

void RapidjsonDecoder::response_strings(StringColumn& out) {
  rapidjson::Document doc;
  parse(doc, text_);
  out.clear();
  for (const auto& v : array(member(doc, "lhs")).GetArray()) out.append(string(v));
}

void RapidjsonDecoder::records(std::vector<Record>& out) {
  rapidjson::Document doc;
  parse(doc, text_);
  if (string(member(doc, "tntype")) != "cell") bad_shape("tntype");
  const auto& data = array(member(doc, "tndata"));
  if (data.Size() != out.size()) bad_shape("record count");
  std::size_t k = 0;
  for (const auto& o : data.GetArray()) {
    Record& r = out[k++];
    const auto& active = member(o, "active");
    if (!active.IsBool()) bad_shape("boolean expected");
    r.active = active.GetBool();
    r.city = string(member(o, "city"));
    r.id = number(member(o, "id"));
    r.level = number(member(o, "level"));
    r.name = string(member(o, "name"));
    r.score = number(member(o, "score"));
  }
}

namespace {

using Writer = rapidjson::Writer<rapidjson::StringBuffer>;

// Non-finite values as our encoder writes them: strings in large notation,
// objects in small notation. The data sets hold none; this keeps the peer
// total.
void write_double(Writer& w, double v, Layout layout) {
  if (std::isfinite(v)) {
    w.Double(v);
    return;
  }
  const char* text = std::isnan(v) ? "NaN" : v > 0 ? "Inf" : "-Inf";
  if (layout == Layout::Small) {
    w.StartObject();
    w.Key("tndata");
    w.String(text);
    w.EndObject();
  } else {
    w.String(text);
  }
}

}  // namespace

std::string_view RapidjsonEncoder::write(const NumericMatrix& m, Layout layout) {
  buffer_.Clear();
  Writer w(buffer_);
  if (layout == Layout::Small && m.doubles && !m.complex) {
    // One JSON array per row: element (i, j) sits at i + j * rows.
    w.StartArray();
    for (std::size_t i = 0; i < m.rows; ++i) {
      w.StartArray();
      for (std::size_t j = 0; j < m.cols; ++j) write_double(w, m.doubles[i + j * m.rows], layout);
      w.EndArray();
    }
    w.EndArray();
  } else {
    w.StartObject();
    if (m.complex) {
      w.Key("tncomplex");
      w.Bool(true);
    }
    w.Key("tndata");
    w.StartArray();
    if (m.int32s) {
      for (std::size_t k = 0; k < m.count(); ++k) w.Int(m.int32s[k]);
    } else {
      const std::size_t values = m.count() * (m.complex ? 2 : 1);
      for (std::size_t k = 0; k < values; ++k) write_double(w, m.doubles[k], Layout::Large);
    }
    w.EndArray();
    w.Key("tnsize");
    w.StartArray();
    w.Uint64(m.rows);
    w.Uint64(m.cols);
    w.EndArray();
    w.Key("tntype");
    w.String(m.type_name());
    w.EndObject();
  }
  return {buffer_.GetString(), buffer_.GetSize()};
}

std::string_view RapidjsonEncoder::write(const FieldTable& t) {
  buffer_.Clear();
  Writer w(buffer_);
  w.StartObject();
  w.Key("tndata");
  w.StartObject();
  for (std::size_t k = 0; k < t.fields(); ++k) {
    w.Key(t.names[k].data(), rapidjson::SizeType(t.names[k].size()));
    w.StartArray();
    for (std::size_t i = 0; i < t.count; ++i) {
      switch (k % 4) {
        case 0: case 1: write_double(w, t.number(i, k), Layout::Small); break;
        case 2: {
          const std::string& s = t.string(i, k);
          w.String(s.data(), rapidjson::SizeType(s.size()));
          break;
        }
        default: w.Bool(t.flag(i, k));
      }
    }
    w.EndArray();
  }
  w.EndObject();
  w.Key("tnsize");
  w.StartArray();
  w.Uint64(1);
  w.Uint64(t.count);
  w.EndArray();
  w.Key("tntype");
  w.String("struct");
  w.EndObject();
  return {buffer_.GetString(), buffer_.GetSize()};
}

}  // namespace dovra_bench::peers
