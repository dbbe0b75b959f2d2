// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include <string>

#include "exceptions/KLException.h"
#include "filesystem/PXDirectory.h"
#include "filesystem/PXPath.h"
#include "filesystem/PXVolumeInfo.h"
#include "logging/Logger.h"
#include "platform/FilePaths.h"
#include "platform/volumes/VolumeCalls.h"
#include "values/ClassRegistry.h"

// How volumes are found: all of them, the one of a path, the one that somebody else has sent.

namespace hoist {

using namespace volumes;

namespace {

constexpr const char* kMountPointKey = "mountpoint";
constexpr const char* kMountPointBytesKey = "mountpointBytes";

template <class Filter>
std::vector<Ref<PXVolumeInfo>> listVolumes(Filter&& accepts) {
  auto& calls = VolumeCalls::current();
  if (calls.getfsstat(nullptr) < 0) {
    KLException::ioErrnoWithReason("cannot get count of mounted volumes").raise();
  }
  std::vector<VolumeStatistics> records;
  if (calls.getfsstat(&records) < 0) {
    KLException::ioErrnoWithReason("cannot get stats of mounted volumes").raise();
  }
  std::vector<Ref<PXVolumeInfo>> volumes;
  for (auto& record : records) {
    if (!accepts(record)) continue;
    try {
      volumes.push_back(PXVolumeInfo::initWithPathOrStat(nullptr, &record));
    } catch (const Exception& exception) {
      Logger::logException(classification::Debug, exception);
    }
  }
  return volumes;
}

// The bytes of the mount point that was encoded.
std::string decodeMountPoint(Decoder& decoder) {
  if (!decoder.isKeyed()) {
    auto path = decoder.decodeObject({"NSString"});
    if (!path || !path->string()) throw DecodeError("a volume without its mount point");
    return *path->string();
  }
  if (auto bytes = decoder.decodeBytes(kMountPointBytesKey)) return std::string(bytes->view());
  auto path = decoder.decodeString(kMountPointKey);
  if (!path) throw DecodeError("a volume without its mount point");
  return *path;
}

}  // namespace

std::vector<Ref<PXVolumeInfo>> PXVolumeInfo::allVolumes() {
  return listVolumes([](const VolumeStatistics&) { return true; });
}

std::vector<Ref<PXVolumeInfo>> PXVolumeInfo::browsableVolumes() {
  return listVolumes(
      [](const VolumeStatistics& record) { return (record.flags & MNT_FLAG_DONTBROWSE) == 0; });
}

Ref<PXVolumeInfo> PXVolumeInfo::volumeInfoForPath(std::string_view path) {
  return volumeInfoForPathObject(*PXPath::pathWithPath(path));
}

Ref<PXVolumeInfo> PXVolumeInfo::volumeInfoForPathObject(const PXPath& path) {
  return initWithPath(path.cPath());
}

std::optional<std::string> PXVolumeInfo::relativePathOfPath(const Ref<PXPath>& path) const {
  auto root = rootDirectory();
  auto relative = path->pathRelativeToPath(root ? *root->pathObject() : *pathObj_);
  if (!relative.starts_with('/')) return relative;

  // Not below the mount point by its text; perhaps by way of a link or another mount point of the
  // same file system.
  if (!path->volumeInfo()->isEqual(*this)) return std::nullopt;
  auto last = path;
  for (;;) {
    auto parent = last->parent();
    if (!parent || parent->isEqual(*last)) return std::nullopt;
    if (!parent->volumeInfo()->isEqual(*this)) return path->pathRelativeToPath(*last);
    last = parent;
  }
}

void PXVolumeInfo::encodeWithCoder(Encoder& encoder) const {
  if (!encoder.isKeyed()) {
    encoder.encodeObject(Value(path()));
    return;
  }
  encoder.encodeObject(kMountPointKey, Value(path()));
  std::string_view bytes = cPath();
  if (bytes != path()) {
    encoder.encodeBytes(kMountPointBytesKey,
                        {reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
  }
}

void PXVolumeInfo::registerClass() {
  ClassRegistry::shared().add({.name = "PXVolumeInfo",
                               .superclass = "",
                               .decode = [](Decoder& decoder) -> Ref<Object> {
                                 auto mountPoint = decodeMountPoint(decoder);
                                 try {
                                   return initWithPath(mountPoint.c_str());
                                 } catch (const Exception& exception) {
                                   throw DecodeError("a volume that is not here: " +
                                                     exception.description());
                                 }
                               },
                               .create = nullptr,
                               .classObject = nullptr});
}

}  // namespace hoist
