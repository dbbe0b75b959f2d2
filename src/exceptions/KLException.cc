// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "exceptions/KLException.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "platform/AssertionHandler.h"
#include "platform/CharacterSets.h"
#include "platform/Utf8.h"
#include "values/ClassRegistry.h"

namespace hoist {
namespace {

// Longer paths are cut there.
constexpr std::size_t kMaximumCPath = 1024;

bool containsWhitespace(std::string_view text) {
  while (!text.empty()) {
    if (isWhitespace(takeCharacter(text))) return true;
  }
  return false;
}

std::string readableBuildVersion(std::uint32_t build) {
  return fmt::format("{}.{}.{}.{}", build >> 16, build >> 12 & 0xF, build >> 8 & 0xF, build & 0xFF);
}

}  // namespace

// Hidden keys are listed too: whoever reads a description is looking for the cause.
std::string KLExceptionState::description() const {
  std::string text = fmt::format("<{}> {}", name, describe(reason));
  const char* separator = " { ";
  for (const auto& [key, value] : userInfo) {
    std::string described = value.description();
    const char* quote = containsWhitespace(described) ? "'" : "";
    text += fmt::format("{}{}={}{}{}", separator, key, quote, described, quote);
    separator = ", ";
  }
  if (!userInfo.empty()) text += " }";
  return text;
}

KLException KLException::exceptionWithName(std::string_view name, std::string_view reason) {
  auto state = make<KLExceptionState>();
  state->name = name;
  state->reason = std::string(reason);
  return KLException(std::move(state));
}

KLException KLException::error(const Ref<Error>& error, std::string_view name,
                               std::string_view reason) {
  return exceptionWithName(name, reason).setError(error);
}

KLException KLException::errnoWithName(std::string_view name, std::string_view reason) {
  int number = errno;
  return exceptionWithName(name, reason).setPOSIXErr(number);
}

KLException KLException::ioErrnoWithReason(std::string_view reason) {
  return errnoWithName("IO", reason);
}

std::optional<KLException> KLException::from(const Exception& exception) {
  auto state = as<KLExceptionState>(exception.state());
  return state ? std::optional(KLException(std::move(state))) : std::nullopt;
}

Classification KLException::preferredLogClassForName(std::string_view name) {
  if (name == "Info") return classification::Plain;
  if (name == "Cancel") return classification::Caution;
  if (name == "Security") return classification::Warning;
  if (name == "Bug") return classification::Debug;
  return classification::Failure;
}

Classification KLException::preferredLogClassForException(const Exception& exception) {
  auto own = from(exception);
  return own ? own->preferredLogClass() : classification::Failure;
}

std::string KLException::getNameForPackageType(std::uint32_t type) {
  static constexpr const char* kNames[] = {"Invalid",   "Data",           "List",   "File",
                                           "Directory", "DeltaDirectory", "Session"};
  if (type < std::size(kNames)) return kNames[type];
  return fmt::format("Unknown({})", static_cast<std::int32_t>(type));
}

const ClassificationMap& KLException::userInfoLogClassifications() {
  static const auto& map = *new ClassificationMap{
      {detail_key::POSIXErr, classification::Minutia},
      {detail_key::OSErr, classification::Minutia},
      {detail_key::OSErrName, classification::Minutia},
      {detail_key::Path, classification::Minutia},
      {detail_key::API, classification::Debug},
      {detail_key::Object, classification::Debug},
      {detail_key::PkgType, classification::Debug},
      {detail_key::PkgNumber, classification::Debug},
      {detail_key::Class, classification::Debug},
      {detail_key::Cause, classification::Debug},
  };
  return map;
}

KLException& KLException::setDetail(const std::optional<Value>& value, std::string_view key) {
  auto& own = static_cast<KLExceptionState&>(*state());
  if (own.acceptsDetails) own.userInfo.insert_or_assign(std::string(key), value.value_or("(nil)"));
  return *this;
}

KLException& KLException::setHexDetail(std::uint64_t value, std::string_view key) {
  return setDetail(fmt::format("0x{:0{}x}", value, value < 0x10000 ? 4 : 8), key);
}

KLException& KLException::setLongLongHexDetail(std::uint64_t value, std::string_view key) {
  return setDetail(fmt::format("0x{:016x}", value), key);
}

KLException& KLException::setDecimalDetail(long value, std::string_view key) {
  return setDetail(value, key);
}

KLException& KLException::setLongLongDetail(std::int64_t value, std::string_view key) {
  return setDetail(value, key);
}

KLException& KLException::setError(const Ref<Error>& error) {
  if (!error) return *this;
  setDetail(error, detail_key::HiddenError);
  if (error->domain() == Error::kPOSIXDomain) {
    setPOSIXErr(static_cast<int>(error->code()));
  } else if (error->domain() == Error::kOSStatusDomain) {
    setDetail(error->code(), detail_key::OSErr);
  } else if (error->domain() == Error::kURLDomain) {
    if (auto url = error->failingURLString()) setStrPath(url);
  }
  if (auto text = error->localizedDescription()) setDetail(text, detail_key::Description);
  if (auto text = error->localizedFailureReason()) setDetail(text, detail_key::Error);
  return *this;
}

KLException& KLException::setPOSIXErr(int number) {
  setDecimalDetail(number, detail_key::POSIXErr);
  return setDetail(std::generic_category().message(number), detail_key::ErrDescription);
}

KLException& KLException::setPOSIXErr(int number, const std::optional<Value>& api) {
  return setPOSIXErr(number).setAPI(api);
}

KLException& KLException::setAPI(const std::optional<Value>& api) {
  return setDetail(api, detail_key::API);
}
KLException& KLException::setFile(const std::optional<Value>& file) {
  return setDetail(file, detail_key::File);
}
KLException& KLException::setFolder(const std::optional<Value>& folder) {
  return setDetail(folder, detail_key::Folder);
}
KLException& KLException::setObject(const std::optional<Value>& object) {
  return setDetail(object, detail_key::Object);
}
KLException& KLException::setStrPath(const std::optional<Value>& path) {
  return setDetail(path, detail_key::Path);
}
KLException& KLException::setPathObject(const PXAbstractPath& path) {
  return setDetail(path.path(), detail_key::Path);
}

KLException& KLException::setCPath(const char* path) {
  if (!path) return *this;
  return setStrPath(validUTF8(cutUTF8(path, kMaximumCPath)));
}

KLException& KLException::setFileInfo(const PXAbstractFile& file) {
  setDetail(file.name(), detail_key::Name);
  setStrPath(file.path());
  switch (file.type()) {
    case VnodeType::None:
      return *this;
    case VnodeType::Regular:
      return setDetail("regular file", detail_key::Type);
    case VnodeType::Directory:
      return setDetail("directory", detail_key::Type);
    case VnodeType::SymbolicLink:
      return setDetail("symblic link", detail_key::Type);
    default:
      return setDecimalDetail(static_cast<long>(file.type()), detail_key::Type);
  }
}

KLException& KLException::setFilePosition(std::int64_t position) {
  return setLongLongDetail(position, detail_key::Position);
}
KLException& KLException::setLength(std::int64_t length) {
  return setLongLongDetail(length, detail_key::Length);
}
KLException& KLException::setPackageType(std::uint32_t type) {
  return setDetail(getNameForPackageType(type), detail_key::PkgType);
}
KLException& KLException::setPackageNumber(std::uint32_t number) {
  return setDecimalDetail(number, detail_key::PkgNumber);
}
KLException& KLException::setClass(const std::optional<Value>& className) {
  return setDetail(className, detail_key::Class);
}
KLException& KLException::setClassOf(const hoist::Object& object) {
  return setClass(object.className());
}
KLException& KLException::setMessage(std::string_view selector) {
  return setDetail(selector, detail_key::Message);
}
KLException& KLException::setMessage(std::string_view selector, const hoist::Object& object) {
  return setDetail(fmt::format("[{} {}]", object.className(), selector), detail_key::Message);
}
KLException& KLException::setExpected(const std::optional<Value>& expected) {
  return setDetail(expected, detail_key::Expected);
}
KLException& KLException::setCause(const std::optional<Value>& cause) {
  return setDetail(cause, detail_key::Cause);
}
KLException& KLException::setVersion(std::uint32_t buildNumber) {
  return setDetail(readableBuildVersion(buildNumber), detail_key::Version);
}
KLException& KLException::setExplanation(const std::optional<Value>& explanation) {
  return setDetail(explanation, detail_key::Explain);
}

KLException& KLException::setPreferredLogClass(Classification classification) {
  return setDecimalDetail(classification, detail_key::LogClass);
}

Classification KLException::preferredLogClass() const {
  auto set = userInfo().find(detail_key::LogClass);
  auto number = set == userInfo().end() ? std::nullopt : set->second.integerValue();
  return number ? static_cast<Classification>(*number) : preferredLogClassForName(name());
}

KLException& KLException::setFlag(std::string_view key) {
  return setDetail(true, key);
}
KLException& KLException::clearFlag(std::string_view key) {
  return setDetail(false, key);
}
bool KLException::hasFlag(std::string_view key) const {
  return userInfo().contains(key);
}
KLException& KLException::setSoft(bool soft) {
  return soft ? setFlag(detail_key::SoftError) : clearFlag(detail_key::SoftError);
}

void KLException::registerClass() {
  Exception::registerClass();
  ClassRegistry::shared().add({.name = "KLException",
                               .superclass = "NSException",
                               .decode = [](Decoder& decoder) -> Ref<Object> {
                                 auto state = make<KLExceptionState>();
                                 state->decodeFields(decoder);
                                 state->acceptsDetails = false;
                                 return state;
                               },
                               .create = nullptr,
                               .classObject = nullptr});
}

void failAssertionInMethod(std::string_view method, const Exception* object, const char* file,
                           int line, const std::string& message) {
  failAssertion({method, file, line}, message, object);
}

}  // namespace hoist
