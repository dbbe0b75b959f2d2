// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "filesystem/PXPath.h"

#include <fmt/format.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <functional>

#include "filesystem/PXDirectory.h"
#include "filesystem/PXFileInfo.h"
#include "filesystem/PXPathDerived.h"
#include "filesystem/PXVolumeInfo.h"
#include "logging/Logger.h"
#include "platform/FilePaths.h"
#include "platform/ResourceValues.h"
#include "platform/URL.h"
#include "platform/volumes/FileSystemTypes.h"

namespace hoist {
namespace {

std::string_view upToNul(std::string_view bytes) {
  return bytes.substr(0, bytes.find('\0'));
}

// What a URL needs: it would take the first name of a relative path for a machine's.
std::string absolutePath(const char* path) {
  if (*path == '/' || *path == 0) return path;
  return joinPath(hoist::realPath(".").value_or("/"), path);
}

// An error and "no limit" both read as 0.
long limitOf(const char* path, int name) {
  return std::max(::pathconf(path, name), 0L);
}

}  // namespace

// Making.

PXPath::Bytes PXPath::Bytes::of(std::string_view cPath) {
  cPath = upToNul(cPath);
  return of(cPath, baseName(cPath));
}

PXPath::Bytes PXPath::Bytes::of(std::string_view cPath, std::string_view cName) {
  Bytes bytes{std::make_unique<char[]>(cPath.size() + 1 + cName.size() + 1),
              static_cast<std::uint32_t>(cPath.size() + 1)};
  cPath.copy(bytes.block.get(), cPath.size());
  cName.copy(bytes.block.get() + bytes.nameOffset, cName.size());
  return bytes;
}

PXPath::Bytes PXPath::Bytes::ofName(std::string_view cName) {
  Bytes bytes{std::make_unique<char[]>(cName.size() + 1), 0};
  cName.copy(bytes.block.get(), cName.size());
  return bytes;
}

PXPath::PXPath(Private, Bytes bytes)
    : nameOffset_(bytes.nameOffset), bytes_(std::move(bytes.block)) {}

PXPath::~PXPath() = default;

Ref<PXPath> PXPath::initWithCPath(std::string_view cPath) {
  return make<PXPath>(Private(), Bytes::of(cPath));
}

Ref<PXPath> PXPath::initWithPath(std::string_view path) {
  return initWithCPath(path);
}

Ref<PXPath> PXPath::initWithURL(std::string_view url) {
  auto path = initWithCPath(pathOfURL(url).value_or(""));
  SpinLockHolder lock(path->pathLock_);
  path->derived().url = stringFromFileSystemRepresentation(url);
  return path;
}

Ref<PXPath> PXPath::initWithCNameParentPath(std::string_view cName, const PXPath& parent) {
  cName = upToNul(cName);
  return make<PXPath>(Private(), Bytes::of(joinPath(parent.cPath(), cName), cName));
}

Ref<PXPath> PXPath::initWithCPathRelativeToPath(std::string_view cPath, const Ref<PXPath>& base) {
  cPath = upToNul(cPath);
  if (cPath.empty()) return base;
  if (cPath.front() == '/') return initWithCPath(cPath);
  std::string joined = joinPath(base->cPath(), cPath);
  if (cPath.front() != '.') return initWithCPath(joined);
  return initWithCPath(hoist::realPath(joined.c_str()).value_or(joined));
}

Ref<PXPath> PXPath::initWithPathObject(const PXPath& other) {
  auto copy = make<PXPath>(Private(), Bytes::of(other.cPath(), other.cName()));
  copy->shareDerived(other);
  return copy;
}

Ref<PXPath> PXPath::initAssumingNamePath(const std::string& cName, const std::string& cPath) {
  return make<PXPath>(Private(), Bytes::of(upToNul(cPath), upToNul(cName)));
}

Ref<PXPath> PXPath::realPath(std::string_view path) {
  return pathWithPath(path)->real();
}

std::vector<Ref<PXPath>> PXPath::arrayFromPathsOrURLs(const Array& collection) {
  std::vector<Ref<PXPath>> paths;
  for (const auto& element : collection) {
    if (auto text = element.string()) {
      paths.push_back(pathWithPath(*text));
    } else if (auto url = element.objectAs<URL>(); url && pathOfURL(url->absoluteString())) {
      paths.push_back(pathWithURL(url->absoluteString()));
    }
  }
  return paths;
}

Ref<PXPath> PXPath::tempPath() {
  static auto& path = *new Ref<PXPath>(realPath("/tmp"));
  return path;
}

Ref<PXPath> PXPath::tempPathWithPrefix(std::string_view prefix, std::string_view extension) {
  for (;;) {
    auto path =
        tempPath()->pathOfChild(fmt::format("{}-{:08x}.{}", prefix, ::arc4random(), extension));
    if (!path->exists()) return path;
  }
}

// What is derived.

PXPath::Derived& PXPath::derived() const {
  if (!derived_) derived_ = std::make_unique<Derived>();
  return *derived_;
}

void PXPath::shareDerived(const PXPath& other) {
  std::optional<std::string> name, path, url;
  {
    SpinLockHolder lock(other.pathLock_);
    if (!other.derived_) return;
    name = other.derived_->name;
    path = other.derived_->path;
    url = other.derived_->url;
  }
  SpinLockHolder lock(pathLock_);
  derived().name = std::move(name);
  derived().path = std::move(path);
  derived().url = std::move(url);
}

Ref<PXPath> PXPath::self() const {
  // Every path object was made by make<>() and is not constant: a path's methods are const because
  // its location never changes.
  auto object = std::const_pointer_cast<Object>(shared_from_this());
  return std::static_pointer_cast<PXPath>(object);
}

const char* PXPath::cPath() const {
  return bytes_.get();
}

std::string PXPath::name() const {
  SpinLockHolder lock(pathLock_);
  auto& name = derived().name;
  if (!name) name = stringFromFileSystemRepresentation(cName());
  return *name;
}

std::string PXPath::path() const {
  auto bytes = cPath();
  SpinLockHolder lock(pathLock_);
  auto& path = derived().path;
  if (!path) path = stringFromFileSystemRepresentation(bytes);
  return *path;
}

std::string PXPath::url() const {
  auto bytes = absolutePath(cPath());
  SpinLockHolder lock(pathLock_);
  auto& url = derived().url;
  if (!url) url = fileURL(bytes);
  return *url;
}

std::string PXPath::extension() const {
  return pathExtension(name());
}

std::string PXPath::displayName() const {
  auto result = resource::localizedName(cPath());
  if (result.value) return *result.value;
  Logger::log(classification::Debug, [&] {
    return fmt::format("-[PXPath displayName] could not obtain display name for {} ({})", path(),
                       result.error->description());
  });
  return name();
}

Ref<PXPath> PXPath::parent() const {
  return initWithCPath(directoryName(cPath()));
}

Ref<PXFileInfo> PXPath::fileInfo() const {
  if (auto info = directoryInfo()) return info;
  return PXFileInfo::infoForPathObject(self());
}

Ref<PXDirectory> PXPath::directory() const {
  auto info = fileInfo();
  return info && info->isDirectory() ? info->asDirectory() : nullptr;
}

Ref<PXFileInfo> PXPath::directoryInfo() const {
  SpinLockHolder lock(pathLock_);
  return derived_ ? derived_->directory.lock() : nullptr;
}

void PXPath::setDirectoryInfo(const Ref<PXFileInfo>& info) const {
  SpinLockHolder lock(pathLock_);
  derived().directory = info;
}

void PXPath::forgetExpiredDirectoryInfo() const {
  SpinLockHolder lock(pathLock_);
  if (derived_ && derived_->directory.expired()) derived_->directory.reset();
}

Ref<PXVolumeInfo> PXPath::volumeInfo() const {
  if (auto info = directoryInfo()) return info->volumeInfo();
  return PXVolumeInfo::initWithPath(cPath());
}

void PXPath::flushInfo() const {
  SpinLockHolder lock(pathLock_);
  if (derived_) derived_->url.reset();
}

// Related locations.

Ref<PXPath> PXPath::pathOfChild(std::string_view name) const {
  return initWithCNameParentPath(name, *this);
}

Ref<PXPath> PXPath::relativePath(std::string_view path) const {
  return initWithCPathRelativeToPath(path, self());
}

std::string PXPath::pathRelativeToPath(const PXPath& base) const {
  if (isEqual(base)) return "";
  // By bytes: different names can be shown as the same text.
  std::string_view whole = cPath();
  std::string_view start = base.cPath();
  if (start.empty() || start.size() >= whole.size() || !whole.starts_with(start)) return path();
  auto below = whole.substr(start.size());
  if (!start.ends_with('/')) {
    if (!below.starts_with('/')) return path();
    below.remove_prefix(1);
  }
  return stringFromFileSystemRepresentation(below);
}

bool PXPath::containsPath(const PXPath& other) const {
  std::string_view mine = cPath();
  std::string_view others = other.cPath();
  if (others == mine) return true;
  if (!others.starts_with(mine)) return false;
  if (mine != "/" && others[mine.size()] != '/') return false;
  return resource::volumeIdentifier(cPath()).value ==
         resource::volumeIdentifier(other.cPath()).value;
}

long PXPath::minTransferSize() const {
  return limitOf(cPath(), _PC_REC_MIN_XFER_SIZE);
}

long PXPath::maxTransferSize() const {
  return limitOf(cPath(), _PC_REC_MAX_XFER_SIZE);
}

long PXPath::fileSizeBits() const {
  return volumes::fileSizeBits(cPath());
}

bool PXPath::exists() const {
  struct stat item;
  return ::stat(cPath(), &item) == 0;
}

Ref<PXPath> PXPath::real() const {
  auto resolved = hoist::realPath(cPath());
  if (!resolved || *resolved == cPath()) return self();
  return initWithCPath(*resolved);
}

// Order and identity.

std::strong_ordering PXPath::compare(const Object& other) const {
  auto path = dynamic_cast<const PXPath*>(&other);
  if (!path) return std::strong_ordering::less;
  return std::string_view(cPath()) <=> std::string_view(path->cPath());
}

bool PXPath::isEqual(const Object& other) const {
  auto path = dynamic_cast<const PXPath*>(&other);
  return path && std::strcmp(cPath(), path->cPath()) == 0;
}

bool PXPath::isEqual(const Value& other) const {
  if (auto text = other.string()) return *text == path();
  auto object = other.object();
  return object && isEqual(*object);
}

std::size_t PXPath::hash() const {
  return std::hash<std::string>()(path());
}

std::string PXPath::description() const {
  return fmt::format("{}({})", Object::description(), path());
}

Ref<PXPath> PXPath::copy() const {
  return initWithPathObject(*this);
}

}  // namespace hoist
