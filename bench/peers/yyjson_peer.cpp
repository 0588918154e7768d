#include "peers/yyjson_peer.hpp"

#include <yyjson.h>

#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <sstream>
#include <stdexcept>

namespace dovra_bench::peers {

// Memory yyjson allocates from: reserved once (untouched until used), then
// the same pages from one call to the next.
class YyjsonPool {
 public:
  explicit YyjsonPool(std::size_t bytes) : memory_(std::malloc(bytes)) {
    if (!memory_ || !yyjson_alc_pool_init(&alc_, memory_, bytes)) {
      std::free(memory_);
      throw std::bad_alloc();
    }
  }
  ~YyjsonPool() { std::free(memory_); }
  YyjsonPool(const YyjsonPool&) = delete;
  YyjsonPool& operator=(const YyjsonPool&) = delete;

  const yyjson_alc* alc() const noexcept { return &alc_; }
  void release(void* p) noexcept {
    if (p) alc_.free(alc_.ctx, p);
  }

 private:
  void* memory_;
  yyjson_alc alc_{};
};

namespace {

[[noreturn]] void bad_shape(const std::string& what) { throw std::runtime_error("yyjson peer: " + what); }

yyjson_doc* read(std::string_view json, const yyjson_alc* alc) {
  yyjson_read_err err;
  // Without YYJSON_READ_INSITU the text is only read.
  yyjson_doc* doc = yyjson_read_opts(const_cast<char*>(json.data()), json.size(), YYJSON_READ_NOFLAG, alc, &err);
  if (!doc) bad_shape(std::string("not JSON: ") + err.msg + " at byte " + std::to_string(err.pos));
  return doc;
}

// Documents are read from UTF-8 text of this size at most: the reader's
// worst case (a value every two bytes) and the text's copy.
std::size_t read_room(std::size_t text_bytes) { return yyjson_read_max_memory_usage(text_bytes, YYJSON_READ_NOFLAG); }

struct DocFree {
  void operator()(yyjson_doc* d) const noexcept { yyjson_doc_free(d); }
};
using DocPtr = std::unique_ptr<yyjson_doc, DocFree>;

void walk_value(yyjson_val* v, WalkTotals& t) {
  switch (yyjson_get_type(v)) {
    case YYJSON_TYPE_NUM:
      ++t.numbers;
      t.sum += yyjson_get_num(v);
      break;
    case YYJSON_TYPE_STR: t.string_bytes += yyjson_get_len(v); break;
    case YYJSON_TYPE_BOOL: ++(yyjson_get_bool(v) ? t.trues : t.falses); break;
    case YYJSON_TYPE_ARR: {
      std::size_t i, n;
      yyjson_val* x;
      yyjson_arr_foreach(v, i, n, x) walk_value(x, t);
      break;
    }
    case YYJSON_TYPE_OBJ: {
      std::size_t i, n;
      yyjson_val *key, *x;
      yyjson_obj_foreach(v, i, n, key, x) walk_value(x, t);
      break;
    }
    default: break;
  }
}

}  // namespace

std::string WalkTotals::text() const {
  std::ostringstream s;
  s.precision(17);
  s << numbers << " numbers summing to " << sum << ", " << string_bytes << " string bytes, " << trues << " true, "
    << falses << " false";
  return s.str();
}

// --- reading -------------------------------------------------------------------

YyjsonDecoder::YyjsonDecoder(std::string_view json)
    : json_(json), pool_(std::make_unique<YyjsonPool>(read_room(json.size()))) {}
YyjsonDecoder::~YyjsonDecoder() = default;

WalkTotals YyjsonDecoder::walk() {
  const DocPtr doc(read(json_, pool_->alc()));
  WalkTotals t;
  walk_value(yyjson_doc_get_root(doc.get()), t);
  return t;
}

void YyjsonDecoder::matrix(double* out, std::size_t rows, std::size_t cols) {
  const DocPtr doc(read(json_, pool_->alc()));
  yyjson_val* outer = yyjson_doc_get_root(doc.get());
  if (yyjson_arr_size(outer) != rows) bad_shape("not " + std::to_string(rows) + " rows");
  std::size_t i, n;
  yyjson_val* row;
  yyjson_arr_foreach(outer, i, n, row) {
    if (yyjson_arr_size(row) != cols) bad_shape("a row is not " + std::to_string(cols) + " long");
    double* column_start = out + i;
    std::size_t j, m;
    yyjson_val* v;
    yyjson_arr_foreach(row, j, m, v) {
      if (!yyjson_is_num(v)) bad_shape("not a number");
      column_start[j * rows] = yyjson_get_num(v);
    }
  }
}

void YyjsonDecoder::int32_row(std::int32_t* out, std::size_t n) {
  const DocPtr doc(read(json_, pool_->alc()));
  yyjson_val* root = yyjson_doc_get_root(doc.get());
  if (!yyjson_equals_str(yyjson_obj_get(root, "tntype"), "int32")) bad_shape("tntype");
  yyjson_val* size = yyjson_obj_get(root, "tnsize");
  std::size_t product = 1, i, count;
  yyjson_val* d;
  yyjson_arr_foreach(size, i, count, d) {
    if (!yyjson_is_uint(d)) bad_shape("tnsize");
    product *= yyjson_get_uint(d);
  }
  if (count < 2 || product != n) bad_shape("tnsize");
  yyjson_val* data = yyjson_obj_get(root, "tndata");
  if (yyjson_arr_size(data) != n) bad_shape("tndata is not " + std::to_string(n) + " long");
  std::size_t k, m;
  yyjson_val* v;
  yyjson_arr_foreach(data, k, m, v) {
    std::int64_t x;
    if (yyjson_is_sint(v))
      x = yyjson_get_sint(v);
    else if (yyjson_is_uint(v) && yyjson_get_uint(v) <= std::uint64_t(std::numeric_limits<std::int32_t>::max()))
      x = std::int64_t(yyjson_get_uint(v));
    else
      bad_shape("not an int32");
    if (x < std::numeric_limits<std::int32_t>::min() || x > std::numeric_limits<std::int32_t>::max())
      bad_shape("int32 out of range");
    out[k] = static_cast<std::int32_t>(x);
  }
}

void YyjsonDecoder::response_strings(StringColumn& out) {
  out.clear();
  const DocPtr doc(read(json_, pool_->alc()));
  std::size_t i, n;
  yyjson_val* v;
  yyjson_arr_foreach(yyjson_obj_get(yyjson_doc_get_root(doc.get()), "lhs"), i, n, v) {
    if (!yyjson_is_str(v)) bad_shape("not a string");
    out.append(std::string_view(yyjson_get_str(v), yyjson_get_len(v)));
  }
}

// --- writing -------------------------------------------------------------------

namespace {

// The writer's output: at most a few times the text it reads back as.
std::size_t write_room(std::size_t text_bytes) { return 4 * text_bytes + (1 << 20); }

}  // namespace

YyjsonDocumentWriter::YyjsonDocumentWriter(std::string_view json)
    : pool_(std::make_unique<YyjsonPool>(read_room(json.size()) + write_room(json.size()))) {
  yyjson_doc* doc = read(json, pool_->alc());
  doc_ = doc;
  root_ = yyjson_doc_get_root(doc);
}

YyjsonDocumentWriter::~YyjsonDocumentWriter() {
  pool_->release(text_);
  yyjson_doc_free(static_cast<yyjson_doc*>(doc_));
}

std::string_view YyjsonDocumentWriter::write() {
  pool_->release(text_);
  std::size_t len = 0;
  yyjson_write_err err;
  text_ = yyjson_val_write_opts(static_cast<const yyjson_val*>(root_), YYJSON_WRITE_NOFLAG, pool_->alc(), &len, &err);
  if (!text_) bad_shape(std::string("write: ") + err.msg);
  return {text_, len};
}

namespace {

// Room for a mutable document of `values` numbers and for its text.
std::size_t build_room(const NumericMatrix& m) {
  const std::size_t values = m.count() * (m.complex ? 2 : 1);
  return values * 96 + write_room(values * 25);
}

yyjson_mut_val* build(yyjson_mut_doc* doc, const NumericMatrix& m) {
  if (!m.complex) {
    yyjson_mut_val* rows = yyjson_mut_arr(doc);
    for (std::size_t i = 0; i < m.rows; ++i) {
      yyjson_mut_val* row = yyjson_mut_arr_add_arr(doc, rows);
      for (std::size_t j = 0; j < m.cols; ++j) yyjson_mut_arr_add_real(doc, row, m.doubles[i + j * m.rows]);
    }
    return rows;
  }
  yyjson_mut_val* obj = yyjson_mut_obj(doc);
  yyjson_mut_obj_add_bool(doc, obj, "tncomplex", true);
  yyjson_mut_val* data = yyjson_mut_arr(doc);
  for (std::size_t k = 0; k < 2 * m.count(); ++k) yyjson_mut_arr_add_real(doc, data, m.doubles[k]);
  yyjson_mut_obj_add_val(doc, obj, "tndata", data);
  yyjson_mut_val* size = yyjson_mut_arr(doc);
  yyjson_mut_arr_add_uint(doc, size, m.rows);
  yyjson_mut_arr_add_uint(doc, size, m.cols);
  yyjson_mut_obj_add_val(doc, obj, "tnsize", size);
  yyjson_mut_obj_add_str(doc, obj, "tntype", "double");
  return obj;
}

}  // namespace

YyjsonMatrixWriter::YyjsonMatrixWriter(const NumericMatrix& m)
    : m_(m), pool_(std::make_unique<YyjsonPool>(build_room(m))) {
  if (!m.doubles) bad_shape("the matrix writer takes doubles");
}

YyjsonMatrixWriter::~YyjsonMatrixWriter() { pool_->release(text_); }

std::string_view YyjsonMatrixWriter::write() {
  pool_->release(text_);
  text_ = nullptr;
  yyjson_mut_doc* doc = yyjson_mut_doc_new(pool_->alc());
  if (!doc) throw std::bad_alloc();
  yyjson_mut_doc_set_root(doc, build(doc, m_));
  std::size_t len = 0;
  yyjson_write_err err;
  text_ = yyjson_mut_write_opts(doc, YYJSON_WRITE_NOFLAG, pool_->alc(), &len, &err);
  yyjson_mut_doc_free(doc);
  if (!text_) bad_shape(std::string("write: ") + err.msg);
  return {text_, len};
}

char* yyjson_write_doubles(const double* x, std::size_t n, char* out) {
  yyjson_val v;
  std::memset(&v, 0, sizeof v);
  for (std::size_t i = 0; i < n; ++i) {
    yyjson_set_real(&v, x[i]);
    out = yyjson_write_number(&v, out);
    *out++ = ',';
  }
  return out;
}

}  // namespace dovra_bench::peers
