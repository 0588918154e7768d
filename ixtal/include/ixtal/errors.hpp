#pragma once

// Host errors. A catalogued error is a message key (component, key,
// arguments); raising one throws ixtal::HostError, which unwinds to whoever
// called the builtin with the identifier, the arguments and the message
// formatted from the catalog.

#include <boost/exception/exception.hpp>
#include <boost/variant.hpp>
#include <exception>
#include <cstdint>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "ixtal/export.hpp"

namespace resource_core {

// One message argument: a signed 64-bit integer, a UTF-8 text or a UTF-16 text.
using MsgArg = boost::variant<long, std::string, std::u16string>;

class IXTAL_API BaseMsgID {
 public:
  BaseMsgID(std::string component, std::string key, std::size_t nargs = 0)
      : component_(std::move(component)), key_(std::move(key)) {
    args_.reserve(nargs);
  }
  virtual ~BaseMsgID() = default;

  const std::string& component() const noexcept { return component_; }
  const std::string& key() const noexcept { return key_; }
  const std::vector<MsgArg>& args() const noexcept { return args_; }
  // component + ":" + key
  std::string id() const { return component_ + ":" + key_; }

 protected:
  void add_arg(MsgArg arg) { args_.push_back(std::move(arg)); }

 private:
  std::string component_;
  std::string key_;
  std::vector<MsgArg> args_;
};

}  // namespace resource_core

namespace ixtal {

// The catalog message of a key with its arguments filled in (UTF-8).
IXTAL_API std::string format_message(const resource_core::BaseMsgID& key);

// Where the value an error is about lies. A decode conversion error gives
// the path from the document's root ("$.lhs[3].pos[1]": indices from 0 as
// in the text, keys quoted as JSON strings unless they are plain names) and
// the value's first byte in the UTF-8 text, counted as for parse errors. An
// encode error gives the path through the host arrays to the array at
// fault, in the host's notation ("{3}.meta(2)"; empty for the argument
// itself), and no place in a text.
struct ErrorLocation {
  std::string path;
  bool in_text = false;       // whether the members below say where in the text
  std::uint64_t offset = 0;   // byte offset from 0
  std::uint64_t line = 0;     // from 1; only "\n" ends a line
  std::uint64_t column = 0;   // bytes from the line's start, from 0
  std::string context;        // the line around the value, at most 80 bytes either side
  std::uint64_t caret = 0;    // blanks before the caret under context
};

// The error every builtin failure reaches the host as.
class IXTAL_API HostError : public std::runtime_error {
 public:
  HostError(std::string identifier, std::vector<resource_core::MsgArg> args, std::string message)
      : std::runtime_error(message), identifier_(std::move(identifier)), args_(std::move(args)) {}
  explicit HostError(const resource_core::BaseMsgID& key)
      : HostError(key.id(), key.args(), format_message(key)) {}
  ~HostError() override;

  const std::string& identifier() const noexcept { return identifier_; }
  const std::vector<resource_core::MsgArg>& arguments() const noexcept { return args_; }
  std::string message() const { return what(); }

  // Where the value at fault lies, beside the catalogued error and never
  // part of it; null when the error is not about one value (parse errors
  // give their position in their arguments).
  const ErrorLocation* location() const noexcept { return location_ ? &*location_ : nullptr; }
  void set_location(ErrorLocation where) { location_ = std::move(where); }

 private:
  std::string identifier_;
  std::vector<resource_core::MsgArg> args_;
  std::optional<ErrorLocation> location_;
};

}  // namespace ixtal

namespace foundation::core::except {

class IXTAL_API IException {
 public:
  virtual ~IException();
  virtual const char* what() const noexcept = 0;
};

class IXTAL_API IMsgIDException : public IException {
 public:
  ~IMsgIDException() override;
  virtual IMsgIDException* clone() const = 0;
  [[noreturn]] virtual void rethrow() const = 0;
  virtual std::string GetID() const = 0;
  virtual const resource_core::BaseMsgID& GetBaseMsgIDObj() const = 0;

  std::string get_error_id() const { return GetID(); }
};

// The exception that carries one catalogued key.
template <class Key, class Base = std::exception, class Extra = void>
class Exception : public IMsgIDException, public Base, public virtual boost::exception {
 public:
  explicit Exception(const Key& key) : key_(key), id_(key.id()), message_(ixtal::format_message(key)) {}

  Exception* clone() const override { return new Exception(*this); }
  [[noreturn]] void rethrow() const override { throw *this; }
  const char* what() const noexcept override { return message_.c_str(); }
  std::string GetID() const override { return id_; }
  const resource_core::BaseMsgID& GetBaseMsgIDObj() const override { return key_; }

 private:
  Key key_;
  std::string id_;
  std::string message_;
};

// The host's out-of-memory error: raised by array creation when the element
// count overflows or memory cannot be had.
class IXTAL_API bad_alloc : public std::bad_alloc {
 public:
  const char* what() const noexcept override;
};

// Identifier of the host error that an out-of-memory failure becomes.
inline constexpr const char* kOutOfMemoryId = "IXTAL:nomem";

}  // namespace foundation::core::except
