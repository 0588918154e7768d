#pragma once

// Host errors. A catalogued error is a message key (component, key,
// arguments); raising one throws ixtal::HostError, which unwinds to whoever
// called the builtin with the identifier, the arguments and the message
// formatted from the catalog.

#include <boost/exception/exception.hpp>
#include <boost/variant.hpp>
#include <exception>
#include <new>
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

 private:
  std::string identifier_;
  std::vector<resource_core::MsgArg> args_;
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
