// The peers of dovra-json as a whole process: read a file, parse it with
// simdjson, walk the matrix into a column-major buffer (decode), and write
// it back in small notation with RapidJSON's Writer (encode-small). Timed
// side by side with dovra-json by bench/process_bench.py, so both pay for a
// fresh process, reading the file and touching fresh memory.
//
//   dovra_process_peer decode|encode-small FILE

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <simdjson.h>

#include <cstdio>
#include <cstring>
#include <vector>

namespace {

struct Matrix {
  std::vector<double> data;  // column-major
  std::size_t rows = 0, cols = 0;
};

Matrix read_matrix(const char* path) {
  simdjson::padded_string text = simdjson::padded_string::load(path).value();
  simdjson::dom::parser parser;
  simdjson::dom::array outer = parser.parse(text).get_array().value();
  Matrix m;
  m.rows = outer.size();
  std::size_t i = 0;
  for (simdjson::dom::element row : outer) {
    simdjson::dom::array r = row.get_array().value();
    if (i == 0) {
      m.cols = r.size();
      m.data.resize(m.rows * m.cols);
    }
    std::size_t j = 0;
    for (simdjson::dom::element v : r) m.data[j++ * m.rows + i] = v.get_double().value();
    ++i;
  }
  return m;
}

void write_small(const Matrix& m) {
  rapidjson::StringBuffer out;
  rapidjson::Writer<rapidjson::StringBuffer> writer(out);
  writer.StartArray();
  for (std::size_t i = 0; i < m.rows; ++i) {
    writer.StartArray();
    for (std::size_t j = 0; j < m.cols; ++j) writer.Double(m.data[j * m.rows + i]);
    writer.EndArray();
  }
  writer.EndArray();
  std::fwrite(out.GetString(), 1, out.GetSize(), stdout);
  std::fputc('\n', stdout);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: dovra_process_peer decode|encode-small FILE\n");
    return 2;
  }
  const Matrix m = read_matrix(argv[2]);
  if (std::strcmp(argv[1], "encode-small") == 0) {
    write_small(m);
  } else {
    double sum = 0;  // the walk's result is used, so no compiler drops it
    for (double x : m.data) sum += x;
    std::printf("%zux%zu %.17g\n", m.rows, m.cols, sum);
  }
  return 0;
}
