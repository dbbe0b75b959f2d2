// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "logging/Classification.h"
#include "platform/Exception.h"
#include "values/AbstractFile.h"
#include "values/Error.h"
#include "values/Value.h"

namespace hoist {

// Keys of the details. A key that begins with "." is hidden: machine-readable, logged as Subrosa.
namespace detail_key {
inline constexpr const char* POSIXErr = "POSIXErr";
inline constexpr const char* ErrDescription = "ErrDescription";
inline constexpr const char* OSErr = "OSErr";
inline constexpr const char* OSErrName = "OSErrName";
inline constexpr const char* API = "API";
inline constexpr const char* Object = "Object";
inline constexpr const char* Path = "Path";
inline constexpr const char* PkgType = "PkgType";
inline constexpr const char* PkgNumber = "PkgNumber";
inline constexpr const char* Class = "Class";
inline constexpr const char* Cause = "Cause";
inline constexpr const char* Name = "Name";
inline constexpr const char* Type = "Type";
inline constexpr const char* File = "File";
inline constexpr const char* Folder = "Folder";
inline constexpr const char* Position = "Position";
inline constexpr const char* Expected = "Expected";
inline constexpr const char* Message = "Message";
inline constexpr const char* Version = "Version";
inline constexpr const char* Length = "Length";
inline constexpr const char* Description = "Description";
inline constexpr const char* Error = "Error";
inline constexpr const char* HiddenError = ".Error";
inline constexpr const char* LogClass = ".LogClass";
inline constexpr const char* Explain = ".Explain";
inline constexpr const char* SoftError = ".SoftError";
// The helper that answered has an incompatible version.
inline constexpr const char* WrongVersion = ".WrongVersion";
}  // namespace detail_key

// What a KLException carries.
struct KLExceptionState final : ExceptionState {
  // Whether the user-info is the details that the setters fill. An exception that was remade from
  // an archive keeps its details readable in the user-info, but takes no more.
  bool acceptsDetails = true;

  std::string className() const override { return "KLException"; }
  // "<NAME> REASON", then " { KEY=VALUE, KEY='VALUE WITH BLANKS' }" if there are details.
  std::string description() const override;
};

// The exception that every part raises: a name that says what kind of failure it is ("IO", "Info",
// "Cancel", "Security", "Bug", "Process" ...), a fixed reason, and details. A handle, like every
// Exception. Setters return the exception itself, so that they chain up to the raise:
//
//   KLException::ioErrnoWithReason("cannot copy item").setAPI("rename").setFileInfo(file).raise();
//
// Setters never fail. An exception is filled by the thread that makes it, before it is raised.
class KLException : public Exception {
 public:
  static KLException exceptionWithName(std::string_view name, std::string_view reason);
  static KLException initWithName(std::string_view name, std::string_view reason) {
    return exceptionWithName(name, reason);
  }
  // With setError applied. error:name:reason:
  static KLException error(const Ref<Error>& error, std::string_view name, std::string_view reason);
  // With setPOSIXErr of the current errno.
  static KLException errnoWithName(std::string_view name, std::string_view reason);
  static KLException ioErrnoWithReason(std::string_view reason);

  // A handle to the same exception when it is a KLException, else nothing.
  static std::optional<KLException> from(const Exception& exception);

  // "Info" 0, "Cancel" 3, "Security" 4, "Bug" 9, any other name 5.
  static Classification preferredLogClassForName(std::string_view name);
  // The exception's own preference, 5 if it is no KLException.
  static Classification preferredLogClassForException(const Exception& exception);
  // "Unknown(TYPE)" for a type that has no name.
  static std::string getNameForPackageType(std::uint32_t type);
  // How the details that are not logged as Details are logged.
  static const ClassificationMap& userInfoLogClassifications();
  static constexpr bool supportsSecureCoding() { return true; }

  // Absent values are stored as "(nil)", so that a key that was set is never missing.
  KLException& setDetail(const std::optional<Value>& value, std::string_view key);
  // "0x00ff", from 0x10000 on "0x00010000".
  KLException& setHexDetail(std::uint64_t value, std::string_view key);
  // Sixteen digits.
  KLException& setLongLongHexDetail(std::uint64_t value, std::string_view key);
  KLException& setDecimalDetail(long value, std::string_view key);
  KLException& setLongLongDetail(std::int64_t value, std::string_view key);

  // The error itself and what it says about itself; by its domain, its number or its location.
  KLException& setError(const Ref<Error>& error);
  // The number and the C library's text for it; the name of the call that failed.
  KLException& setPOSIXErr(int number);
  KLException& setPOSIXErr(int number, const std::optional<Value>& api);
  KLException& setAPI(const std::optional<Value>& api);

  KLException& setFile(const std::optional<Value>& file);
  KLException& setFolder(const std::optional<Value>& folder);
  KLException& setObject(const std::optional<Value>& object);
  KLException& setStrPath(const std::optional<Value>& path);
  KLException& setPathObject(const PXAbstractPath& path);
  // At most the first 1024 bytes, never half a character; nothing for no path.
  KLException& setCPath(const char* path);
  // Name, path and what kind of item it is.
  KLException& setFileInfo(const PXAbstractFile& file);
  KLException& setFilePosition(std::int64_t position);
  KLException& setLength(std::int64_t length);

  // Any package that answers number() and type().
  template <class Package>
  KLException& setPackageInfo(const Package& package) {
    return setPackageNumber(package.number()).setPackageType(package.type());
  }
  KLException& setPackageType(std::uint32_t type);
  KLException& setPackageNumber(std::uint32_t number);

  KLException& setClass(const std::optional<Value>& className);
  KLException& setClassOf(const hoist::Object& object);
  KLException& setMessage(std::string_view selector);
  // "[CLASS SELECTOR]". setMessage:toObject:
  KLException& setMessage(std::string_view selector, const hoist::Object& object);
  KLException& setExpected(const std::optional<Value>& expected);
  KLException& setCause(const std::optional<Value>& cause);
  // Four numbers, of which the build number holds the last two in its low 12 bits: 140556 is
  // "2.2.5.12".
  KLException& setVersion(std::uint32_t buildNumber);
  // For the user.
  KLException& setExplanation(const std::optional<Value>& explanation);

  KLException& setPreferredLogClass(Classification classification);
  // What was set, else what the name says.
  Classification preferredLogClass() const;

  // A flag that was cleared is still there: only an exception that never had the key has none.
  KLException& setFlag(std::string_view key);
  KLException& clearFlag(std::string_view key);
  bool hasFlag(std::string_view key) const;

  KLException& setSoft(bool soft);
  bool isSoft() const { return hasFlag(detail_key::SoftError); }
  bool isHard() const { return !isSoft(); }

  // Makes the class known to the class registry, and with it the platform's exception.
  static void registerClass();

 protected:
  [[noreturn]] void throwSelf() const override { throw *this; }

 private:
  explicit KLException(Ref<KLExceptionState> state) : Exception(std::move(state)) {}
};

// Reports an assertion that does not hold, with function, file and line, and raises the given
// exception, or an AssertionFailure where there is none.
[[noreturn]] void failAssertionInMethod(std::string_view method, const Exception* object,
                                        const char* file, int line, const std::string& message);

}  // namespace hoist
