#pragma once

#include <cstdint>
#include <exception>
#include <string>
#include <variant>
#include <vector>

#include <boost/exception/exception.hpp>

// The host's exceptions. Every error that reaches the host carries a message identifier
// ("<component>:<key>") and its arguments; the text shown to people comes from the message
// catalogue (MessageCatalog.hpp).
namespace foundation::core::except {

// One message argument. The order of the alternatives is part of the contract.
using MessageArgument = std::variant<int64_t, std::string, std::u16string>;
using MessageArguments = std::vector<MessageArgument>;

class IException : public virtual boost::exception {
 public:
  virtual ~IException() = default;
  // The filled, human-readable text, UTF-8.
  virtual const std::string& message() const noexcept = 0;
};

class IUserException : public IException {};

class IMsgIDException : public IUserException {
 public:
  IMsgIDException(std::string component, std::string key, MessageArguments arguments);

  const std::string& component() const noexcept { return mComponent; }
  const std::string& key() const noexcept { return mKey; }
  std::string identifier() const { return mComponent + ":" + mKey; }
  const MessageArguments& arguments() const noexcept { return mArguments; }
  const std::string& message() const noexcept override { return mMessage; }

 private:
  std::string mComponent;
  std::string mKey;
  MessageArguments mArguments;
  std::string mMessage;
};

// One class per message key: Tag is an empty class named after the key, used only to make the
// type distinct so that callers can catch exactly that error.
template <class Tag, class StdBase = std::exception>
class Exception : public IMsgIDException, public StdBase {
 public:
  Exception(std::string component, std::string key, MessageArguments arguments)
      : IMsgIDException(std::move(component), std::move(key), std::move(arguments)) {}

  const char* what() const noexcept override { return message().c_str(); }
};

// Host-side identifiers (file system, interrupts). The library's own live in its Utils.
namespace host {
struct Interrupted {};
struct FileNotFound {};
struct IsDirectory {};
struct OpenFailed {};
struct UnknownScheme {};
struct InvalidIRI {};
struct WriteFailure {};
}  // namespace host

using InterruptException = Exception<host::Interrupted>;

inline constexpr const char* kHostComponent = "VANTRO:host";
inline constexpr const char* kVfsComponent = "VANTRO:vfs";

}  // namespace foundation::core::except
