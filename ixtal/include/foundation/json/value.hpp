#pragma once

// The JSON value tree shared by the host JSON library and the builtins.
// Both sides switch on index(), so the order of the alternatives is part of
// the contract:
//   0 Undefined, 1 Null, 2 bool, 3 double, 4 std::string, 5 Array, 6 Object, 7 float
//
// A Value is 16 bytes: a 32-bit tag and one word of payload. Strings, arrays
// and objects live in owning heap boxes, so a vector of a million numbers is
// a million 16-byte Values and nothing more.

#include <cstdint>
#include <cstdlib>
#include <map>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "ixtal/export.hpp"

namespace foundation::json {

struct Undefined {
  friend bool operator==(Undefined, Undefined) { return true; }
};
struct Null {
  friend bool operator==(Null, Null) { return true; }
};

class Value;
using Array = std::vector<Value>;
using Object = std::map<std::string, Value, std::less<std::string>>;

// Short lower-case names of the alternatives, used in conversion messages.
template <class T> struct traits;
template <> struct traits<Undefined> { static constexpr const char* name = "undefined"; };
template <> struct traits<Null> { static constexpr const char* name = "null"; };
template <> struct traits<bool> { static constexpr const char* name = "boolean"; };
template <> struct traits<double> { static constexpr const char* name = "double"; };
template <> struct traits<std::string> { static constexpr const char* name = "string"; };
template <> struct traits<Array> { static constexpr const char* name = "array"; };
template <> struct traits<Object> { static constexpr const char* name = "object"; };
template <> struct traits<float> { static constexpr const char* name = "float"; };

namespace detail {
template <class T> struct alternative_index;
template <> struct alternative_index<Undefined> : std::integral_constant<int, 0> {};
template <> struct alternative_index<Null> : std::integral_constant<int, 1> {};
template <> struct alternative_index<bool> : std::integral_constant<int, 2> {};
template <> struct alternative_index<double> : std::integral_constant<int, 3> {};
template <> struct alternative_index<std::string> : std::integral_constant<int, 4> {};
template <> struct alternative_index<Array> : std::integral_constant<int, 5> {};
template <> struct alternative_index<Object> : std::integral_constant<int, 6> {};
template <> struct alternative_index<float> : std::integral_constant<int, 7> {};

IXTAL_API const char* alternative_name(int index) noexcept;
[[noreturn]] IXTAL_API void throw_invalid_conversion(int held, int wanted);
}  // namespace detail

class IXTAL_API Value {
 public:
  // Scoped, so that no other kDouble or kString (IxtalType has both) can be
  // taken for one of these. The names stay reachable as Value::kDouble
  // (constants rather than `using enum`, which some compilers mishandle in
  // templates).
  enum class Kind : std::int32_t {
    kUndefined = 0, kNull = 1, kBool = 2, kDouble = 3, kString = 4, kArray = 5, kObject = 6, kFloat = 7
  };
  static constexpr Kind kUndefined = Kind::kUndefined, kNull = Kind::kNull, kBool = Kind::kBool,
                        kDouble = Kind::kDouble, kString = Kind::kString, kArray = Kind::kArray,
                        kObject = Kind::kObject, kFloat = Kind::kFloat;

  Value() noexcept : index_(kUndefined), d_(0) {}
  Value(Null) noexcept : index_(kNull), d_(0) {}
  Value(Undefined) noexcept : Value() {}
  Value(bool b) noexcept : index_(kBool), d_(0) { b_ = b; }
  Value(double d) noexcept : index_(kDouble), d_(d) {}
  Value(float f) noexcept : index_(kFloat), d_(0) { f_ = f; }
  // Integers become doubles: the tree has no integer alternative.
  template <class I, std::enable_if_t<std::is_integral_v<I> && !std::is_same_v<I, bool>, int> = 0>
  Value(I i) noexcept : Value(static_cast<double>(i)) {}
  Value(std::string s) : index_(kString), s_(new std::string(std::move(s))) {}
  Value(const char* s) : Value(std::string(s)) {}
  Value(Array a) : index_(kArray), a_(new Array(std::move(a))) {}
  Value(Object o) : index_(kObject), o_(new Object(std::move(o))) {}

  Value(const Value& other) : index_(kUndefined), d_(0) { copy_from(other); }
  Value(Value&& other) noexcept : index_(other.index_), d_(other.d_) { other.index_ = kUndefined; }
  Value& operator=(const Value& other) {
    if (this != &other) {
      Value tmp(other);
      swap(tmp);
    }
    return *this;
  }
  Value& operator=(Value&& other) noexcept {
    if (this != &other) {
      destroy();
      index_ = other.index_;
      d_ = other.d_;
      other.index_ = kUndefined;
    }
    return *this;
  }
  // Scalars own nothing: a million-element array dies without a million calls.
  ~Value() {
    if (index_ >= kString && index_ <= kObject) destroy();
  }

  void swap(Value& other) noexcept {
    std::swap(index_, other.index_);
    std::swap(d_, other.d_);
  }

  Kind index() const noexcept { return index_; }
  bool is_undefined() const noexcept { return index_ == kUndefined; }
  bool is_null() const noexcept { return index_ == kNull; }
  bool is_bool() const noexcept { return index_ == kBool; }
  bool is_double() const noexcept { return index_ == kDouble; }
  bool is_string() const noexcept { return index_ == kString; }
  bool is_array() const noexcept { return index_ == kArray; }
  bool is_object() const noexcept { return index_ == kObject; }
  bool is_float() const noexcept { return index_ == kFloat; }

  // Checked access: a reference to the held alternative, or std::runtime_error
  // "invalid conversion: <held> to <wanted>".
  template <class T> T& get() {
    if (std::int32_t(index_) != detail::alternative_index<T>::value)
      detail::throw_invalid_conversion(std::int32_t(index_), detail::alternative_index<T>::value);
    return *unchecked_ptr<T>();
  }
  template <class T> const T& get() const { return const_cast<Value*>(this)->get<T>(); }

  // Pointer to the held alternative, or null.
  template <class T> T* get_if() noexcept {
    return std::int32_t(index_) == detail::alternative_index<T>::value ? unchecked_ptr<T>() : nullptr;
  }
  template <class T> const T* get_if() const noexcept { return const_cast<Value*>(this)->get_if<T>(); }

  // Unchecked access for code that has already switched on index().
  bool as_bool() const noexcept { return b_; }
  double as_double() const noexcept { return d_; }
  float as_float() const noexcept { return f_; }
  const std::string& as_string() const noexcept { return *s_; }
  std::string& as_string() noexcept { return *s_; }
  const Array& as_array() const noexcept { return *a_; }
  Array& as_array() noexcept { return *a_; }
  const Object& as_object() const noexcept { return *o_; }
  Object& as_object() noexcept { return *o_; }

  friend bool operator==(const Value& a, const Value& b);

 private:
  template <class T> T* unchecked_ptr() noexcept {
    if constexpr (std::is_same_v<T, bool>) return &b_;
    else if constexpr (std::is_same_v<T, double>) return &d_;
    else if constexpr (std::is_same_v<T, float>) return &f_;
    else if constexpr (std::is_same_v<T, std::string>) return s_;
    else if constexpr (std::is_same_v<T, Array>) return a_;
    else if constexpr (std::is_same_v<T, Object>) return o_;
    else {
      static Undefined u;  // Undefined and Null carry nothing
      static Null n;
      if constexpr (std::is_same_v<T, Undefined>) return &u;
      else return &n;
    }
  }

  void copy_from(const Value& other);
  void destroy() noexcept {
    switch (index_) {
      case kString: delete s_; break;
      case kArray: delete a_; break;
      case kObject: delete o_; break;
      default: break;
    }
    index_ = kUndefined;
  }

  Kind index_;
  union {
    bool b_;
    double d_;
    float f_;
    std::string* s_;
    Array* a_;
    Object* o_;
  };
};

static_assert(sizeof(Value) == 16, "a Value is a tag and one word");

inline void Value::copy_from(const Value& other) {
  switch (other.index_) {
    case kUndefined: case kNull: case kBool: case kDouble: case kFloat:
      d_ = other.d_;
      break;
    case kString: s_ = new std::string(*other.s_); break;
    case kArray: a_ = new Array(*other.a_); break;
    case kObject: o_ = new Object(*other.o_); break;
    default: std::abort();  // only memory corruption gets here
  }
  index_ = other.index_;
}

// Calls f with the held alternative: Undefined, Null, bool, double,
// std::string, Array, Object or float (const references for const values).
template <class F, class V>
decltype(auto) visit_impl(F&& f, V& v) {
  switch (v.index()) {
    case Value::kUndefined: return f(Undefined{});
    case Value::kNull: return f(Null{});
    case Value::kBool: return f(v.as_bool());
    case Value::kDouble: return f(v.as_double());
    case Value::kString: return f(v.as_string());
    case Value::kArray: return f(v.as_array());
    case Value::kObject: return f(v.as_object());
    case Value::kFloat: return f(v.as_float());
    default: std::abort();
  }
}
template <class F> decltype(auto) visit(F&& f, const Value& v) { return visit_impl(std::forward<F>(f), v); }
template <class F> decltype(auto) visit(F&& f, Value& v) { return visit_impl(std::forward<F>(f), v); }

inline bool operator==(const Value& a, const Value& b) {
  if (a.index_ != b.index_) return false;
  switch (a.index_) {
    case Value::kUndefined: case Value::kNull: return true;
    case Value::kBool: return a.b_ == b.b_;
    case Value::kDouble: return a.d_ == b.d_;
    case Value::kFloat: return a.f_ == b.f_;
    case Value::kString: return *a.s_ == *b.s_;
    case Value::kArray: return *a.a_ == *b.a_;
    case Value::kObject: return *a.o_ == *b.o_;
    default: std::abort();
  }
}

}  // namespace foundation::json
