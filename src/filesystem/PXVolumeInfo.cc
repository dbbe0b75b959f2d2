// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "filesystem/PXVolumeInfo.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>

#include "exceptions/KLException.h"
#include "filesystem/PXDirectory.h"
#include "filesystem/PXPath.h"
#include "logging/Logger.h"
#include "platform/FilePaths.h"
#include "platform/SystemCall.h"
#include "platform/volumes/FileSystemAttributes.h"
#include "platform/volumes/VolumeCalls.h"

// The facts of one volume. How volumes are found, and paths on them, stands in
// PXVolumeInfoFinding.cc.

namespace hoist {

using namespace volumes;

Ref<PXVolumeInfo> PXVolumeInfo::initWithPathOrStat(const char* cPath,
                                                   const VolumeStatistics* statistics) {
  auto volume = make<PXVolumeInfo>(Private());
  if (cPath) {
    if (VolumeCalls::current().statfs(cPath, volume->stat_) != 0) {
      KLException::ioErrnoWithReason("problem getting volume statfs").setCPath(cPath).raise();
    }
  } else {
    volume->stat_ = *statistics;
  }
  volume->describe();
  return volume;
}

void PXVolumeInfo::describe() {
  VolumeAttributes attributes;
  if (VolumeCalls::current().getattrlist(stat_, attributes) != 0) {
    KLException::ioErrnoWithReason("problem getting volume attributes")
        .setCPath(stat_.mountPoint.c_str())
        .raise();
  }
  createTimeSpec_ = attributes.createdTime.value_or(timespec{});
  totalBytes_ = attributes.totalBytes.value_or(0);
  pathObj_ = PXPath::initAssumingNamePath(attributes.name.value_or(baseName(stat_.mountPoint)),
                                          stat_.mountPoint);
  capabilities_ = attributes.capabilities;
  validAttributes_ = attributes.validAttributes;
  nativeAttributes_ = attributes.nativeAttributes;
  uuid_ = attributes.uuid.value_or(std::array<std::uint8_t, 16>{});
  SpinLockHolder lock(propLock_);
  freeBytes_ = attributes.freeBytes.value_or(0);
  availBytes_ = attributes.availableBytes.value_or(0);
}

// Where.

const char* PXVolumeInfo::cName() const {
  return pathObj_->cName();
}

const char* PXVolumeInfo::cPath() const {
  return pathObj_->cPath();
}

std::string PXVolumeInfo::name() const {
  return pathObj_->name();
}

std::string PXVolumeInfo::displayName() const {
  return pathObj_->name();
}

std::string PXVolumeInfo::path() const {
  return pathObj_->path();
}

std::string PXVolumeInfo::url() const {
  return pathObj_->url();
}

std::string PXVolumeInfo::displayPath() const {
  return displayName() + ":";
}

Ref<PXDirectory> PXVolumeInfo::rootDirectory() const {
  if (!rootDirectory_) {
    auto info = PXFileInfo::infoForCPath(cPath());
    rootDirectory_ = info ? info->asDirectory() : nullptr;
    if (rootDirectory_) {
      rootDirectory_->setVolumeInfo(std::static_pointer_cast<PXVolumeInfo>(
          std::const_pointer_cast<Object>(shared_from_this())));
    }
  }
  return rootDirectory_;
}

// Identity.

std::uint64_t PXVolumeInfo::wholeDeviceIdentifier() const {
  auto attributes = nsAttributes();
  if (!attributes) return 0;
  return static_cast<std::uint64_t>((*attributes)[kFileSystemNumber].integerValue().value_or(0));
}

std::string PXVolumeInfo::deviceName() const {
  SpinLockHolder lock(propLock_);
  if (!deviceName_) deviceName_ = stringFromFileSystemRepresentation(stat_.mountedFrom);
  return *deviceName_;
}

const char* PXVolumeInfo::uuidCStr() const {
  if (uuid_ == std::array<std::uint8_t, 16>{}) return nullptr;
  SpinLockHolder lock(propLock_);
  if (!uuidStr_) {
    uuidStr_ = std::make_unique<std::array<char, 37>>();
    auto text = uuidStr_->data();
    for (std::size_t i = 0; i < uuid_.size(); ++i) {
      if (i == 4 || i == 6 || i == 8 || i == 10) *text++ = '-';
      text = fmt::format_to(text, "{:02X}", uuid_[i]);
    }
    *text = '\0';
  }
  return uuidStr_->data();
}

std::string PXVolumeInfo::syntheticUUID() const {
  if (auto uuid = uuidCStr()) return uuid;
  auto id = filesystemID();
  return fmt::format("FSID-{:04x}-{:04x}", id.device, id.typeDigest);
}

bool PXVolumeInfo::isEqual(const Object& other) const {
  auto volume = dynamic_cast<const PXVolumeInfo*>(&other);
  return volume && volume->filesystemID() == filesystemID();
}

std::size_t PXVolumeInfo::hash() const {
  // The sign extension of the first half is intended.
  auto id = filesystemID();
  auto first = static_cast<std::int64_t>(static_cast<std::int32_t>(id.device));
  return static_cast<std::size_t>(first) + (static_cast<std::size_t>(id.typeDigest) << 32);
}

std::string PXVolumeInfo::description() const {
  return fmt::format("{}(\"{}\",{})", className(), displayName(), path());
}

// Sizes.

std::uint64_t PXVolumeInfo::freeBytes() const {
  SpinLockHolder lock(propLock_);
  return freeBytes_;
}

std::uint64_t PXVolumeInfo::availableBytes() const {
  SpinLockHolder lock(propLock_);
  return availBytes_ != 0 ? availBytes_ : freeBytes_;
}

std::uint64_t PXVolumeInfo::maxFileSize() const {
  if (!has2TBFiles()) return 0x100000000;
  auto bits = pathObj_->fileSizeBits();
  if (bits == 0) return 0;
  return bits < 64 ? (std::uint64_t{1} << bits) - 1 : 0x7FFFFFFFFFFFFFFF;
}

std::optional<Dictionary> PXVolumeInfo::nsAttributes() const {
  SpinLockHolder lock(propLock_);
  if (!nsAttributes_) {
    auto result = attributesOfFileSystemForPath(cPath());
    // Another volume may be mounted over this one, or be all that is left in its place.
    if (result.value && (*result.value)[kFileSystemNumber].integerValue() != filesystemID().device)
      result = {std::nullopt, Error::posix(ENOENT, path())};
    nsAttributes_ = result.value;
    if (result.error) {
      Logger::log(classification::Debug, [&] {
        return fmt::format(
            "-[PXVolumeInfo nsAttributes] problem obtaining NSFileManager attributes for "
            "filesystem at {}: {}",
            path(), result.error->description());
      });
    }
  }
  return nsAttributes_;
}

void PXVolumeInfo::reloadStats() {
  {
    SpinLockHolder lock(propLock_);
    nsAttributes_.reset();
  }
  if (VolumeCalls::current().refresh(stat_) != 0) {
    int error = errno;
    Logger::log(classification::Debug, [&] {
      return fmt::format("-[PXVolumeInfo reloadStats] problem getting stats for device {}: {}({})",
                         path(), error, errorText(error));
    });
  }
}

void PXVolumeInfo::reloadSizes() {
  {
    SpinLockHolder lock(propLock_);
    nsAttributes_.reset();
  }
  VolumeAttributes sizes;
  if (VolumeCalls::current().getsizes(stat_, sizes) != 0) {
    int error = errno;
    Logger::log(classification::Debug, [&] {
      return fmt::format("-[PXVolumeInfo reloadSizes] problem getting sizes for device {}: {}({})",
                         path(), error, errorText(error));
    });
    return;
  }
  SpinLockHolder lock(propLock_);
  freeBytes_ = sizes.freeBytes.value_or(freeBytes_);
  availBytes_ = sizes.availableBytes.value_or(availBytes_);
}

void PXVolumeInfo::unmountForcibly(bool forcibly) {
  if (VolumeCalls::current().unmount(stat_, forcibly) != 0) {
    KLException::ioErrnoWithReason("cannot unmount volume")
        .setDetail(Value(displayName()), "name")
        .setStrPath(Value(path()))
        .setDecimalDetail(forcibly ? 1 : 0, "forcably")
        .raise();
  }
}

Ref<PXVolumeInfo> PXVolumeInfo::copy() const {
  auto copy = make<PXVolumeInfo>(Private());
  SpinLockHolder lock(propLock_);
  copy->pathObj_ = pathObj_;
  copy->stat_ = stat_;
  copy->totalBytes_ = totalBytes_;
  copy->createTimeSpec_ = createTimeSpec_;
  copy->capabilities_ = capabilities_;
  copy->validAttributes_ = validAttributes_;
  copy->nativeAttributes_ = nativeAttributes_;
  copy->uuid_ = uuid_;
  SpinLockHolder copyLock(copy->propLock_);
  copy->freeBytes_ = freeBytes_;
  copy->availBytes_ = availBytes_;
  copy->deviceName_ = deviceName_;
  copy->nsAttributes_ = nsAttributes_;
  if (uuidStr_) copy->uuidStr_ = std::make_unique<std::array<char, 37>>(*uuidStr_);
  return copy;
}

}  // namespace hoist
