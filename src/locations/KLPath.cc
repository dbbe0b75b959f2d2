// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "locations/KLPath.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include "exceptions/KLException.h"
#include "filesystem/PXDirectory.h"
#include "filesystem/PXPath.h"
#include "locations/KLStandardPath.h"
#include "locations/KLSubPath.h"
#include "logging/Logger.h"
#include "platform/FilePaths.h"
#include "platform/files/FileManager.h"
#include "values/ClassRegistry.h"

// What all locations do; which locations there are stands in NamedLocations.cc.

namespace hoist {
namespace {

constexpr const char* kAttributesKey = "attrs";

void logDictionary(const Ref<LogLineIdentifier>& line, const Dictionary& attributes) {
  Logger::defaultLogger()->logMapInLineDictionary(classification::Details, nullptr, line,
                                                  attributes);
}

// Why the folder could not be made, as far as it can be seen afterwards.
void logFailure(const std::string& path, const Ref<Error>& error) {
  auto line = Logger::logError(classification::Failure, "Cannot create support folder", error);
  Logger::logKeyValue(classification::Details, line, "Folder", Value(path));
  if (auto item = files::attributesOfItem(path)) {
    logDictionary(Logger::log(classification::Plain, line,
                              "Item already exists; probably a file where a folder should be"),
                  *item);
    return;
  }
  auto enclosing = deleteLastPathComponent(path);
  auto inside =
      Logger::logKeyValue(classification::Details, line, "Enclosing folder", Value(enclosing));
  if (auto folder = files::attributesOfItem(enclosing)) {
    logDictionary(inside, *folder);
  } else {
    Logger::log(classification::Failure, inside, "Enclosing folder does not exist");
  }
}

std::optional<std::int64_t> numberIn(const Dictionary& attributes, const char* key) {
  auto attribute = attributes.find(key);
  return attribute == attributes.end() ? std::nullopt : attribute->second.integerValue();
}

}  // namespace

KLPath::KLPath(std::optional<Dictionary> createAttributes)
    : createAttributes_(std::move(createAttributes)) {}

Ref<KLPath> KLPath::initWithAttributes(std::optional<Dictionary> attributes) {
  return make<KLPath>(std::move(attributes));
}

std::optional<std::string> KLPath::path() {
  if (!resolvedPath_) resolvedPath_ = constructPath();
  return resolvedPath_;
}

Ref<PXDirectory> KLPath::directory() {
  if (!resolvedDirectory_ && path()) resolvedDirectory_ = PXDirectory::directoryWithPath(*path());
  return resolvedDirectory_;
}

std::optional<std::string> KLPath::url() {
  if (resolvedDirectory_) return resolvedDirectory_->url();
  auto resolved = path();
  return resolved ? std::optional(fileURL(*resolved)) : std::nullopt;
}

bool KLPath::exists() {
  struct stat status;
  auto resolved = path();
  return resolved && ::lstat(resolved->c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

std::optional<std::string> KLPath::pathToFile(std::string_view name) {
  auto resolved = path();
  return resolved ? std::optional(appendPathComponent(*resolved, name)) : std::nullopt;
}

std::optional<std::string> KLPath::urlToFile(std::string_view name) {
  auto file = pathToFile(name);
  return file ? std::optional(fileURL(*file)) : std::nullopt;
}

Ref<PXFileInfo> KLPath::infoForFile(std::string_view name) {
  auto folder = directory();
  return folder ? folder->infoForName(name) : nullptr;
}

bool KLPath::containsFile(std::string_view name) {
  auto file = pathToFile(name);
  return file && files::fileExistsAtPath(*file);
}

void KLPath::create() {
  if (exists()) {
    warnOfForeignFolder();
    return;
  }
  auto folder = path().value_or("");
  auto error = files::createDirectory(folder, createAttributes_.value_or(Dictionary()));
  if (!error) {
    Logger::log(classification::Minutia, "Created folder " + folder);
    return;
  }
  // Somebody else, asked for the same folder, was faster.
  if (error->code() == EEXIST && exists()) return;
  logFailure(folder, error);
  KLException::exceptionWithName("IO", "Cannot create support folder")
      .setFolder(Value(folder))
      .raise();
}

// A folder that was to be one user's alone and is not says that somebody else made it.
void KLPath::warnOfForeignFolder() {
  if (!createAttributes_) return;
  auto mode = numberIn(*createAttributes_, files::kFilePosixPermissions);
  auto owner = numberIn(*createAttributes_, files::kFileOwnerAccountID);
  if (!mode || !owner || (*mode & 077) != 0) return;
  struct stat status;
  if (::lstat(path()->c_str(), &status) != 0) return;
  if (status.st_uid == *owner && (status.st_mode & 07777) == *mode) return;
  Logger::log(classification::Caution, [&] {
    return fmt::format("Folder {} belongs to user {} with mode {:04o}, not to user {} with {:04o}",
                       *path(), status.st_uid, status.st_mode & 07777, *owner, *mode);
  });
}

std::string KLPath::description() const {
  auto resolved = resolvedPath_ ? resolvedPath_ : constructPath();
  return fmt::format("{}.{} {{ path={} }}", className(), static_cast<const void*>(this),
                     describe(resolved));
}

void KLPath::encodeWithCoder(Encoder& encoder) const {
  encoder.encodeObject(kAttributesKey,
                       createAttributes_ ? std::optional<Value>(*createAttributes_) : std::nullopt);
}

std::optional<Dictionary> KLPath::decodeAttributes(Decoder& decoder) {
  auto attributes = decoder.decodePropertyList(kAttributesKey);
  if (!attributes || !attributes->dictionary()) return std::nullopt;
  return *attributes->dictionary();
}

void KLPath::registerClasses() {
  auto& registry = ClassRegistry::shared();
  registry.add({.name = "KLPath",
                .superclass = "",
                .decode = [](Decoder& decoder) { return make<KLPath>(decodeAttributes(decoder)); },
                .create = nullptr,
                .classObject = nullptr});
  registry.add({.name = "KLSubPath",
                .superclass = "KLPath",
                .decode = &KLSubPath::decode,
                .create = nullptr,
                .classObject = nullptr});
  registry.add({.name = "KLStandardPath",
                .superclass = "KLPath",
                .decode = &KLStandardPath::decode,
                .create = nullptr,
                .classObject = nullptr});
}

}  // namespace hoist
