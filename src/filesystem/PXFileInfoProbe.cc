// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include <cerrno>

#include "exceptions/KLException.h"
#include "filesystem/PXDirectory.h"
#include "filesystem/PXFileInfo.h"
#include "filesystem/PXNonexistentFile.h"
#include "filesystem/PXRegularFile.h"
#include "filesystem/PXSubPath.h"
#include "filesystem/PXSymbolicLink.h"
#include "platform/attrlist/StatxReply.h"

// How an information object comes to be, and which class of the family it is.

namespace hoist {
namespace {

constexpr attrlist::AttributeSet kTypeRequest = {
    .common = attrlist::ATTR_CMN_OBJTYPE | attrlist::ATTR_CMN_FULLPATH, .directory = 0, .file = 0};
constexpr std::uint32_t kProbeOptions = attrlist::FSOPT_NOFOLLOW | attrlist::FSOPT_REPORT_FULLSIZE;

}  // namespace

template <class Make>
Ref<PXFileInfo> PXFileInfo::makeOfType(VnodeType type, Make&& make) {
  Ref<PXFileInfo> info;
  switch (type) {
    case VnodeType::Regular:
      return make.template operator()<PXRegularFile>();
    case VnodeType::Directory:
      info = make.template operator()<PXDirectory>();
      info->made();
      return info;
    case VnodeType::SymbolicLink:
      return make.template operator()<PXSymbolicLink>();
    case VnodeType::None:
    case VnodeType::Bad:
      return nullptr;
    default:
      return make.template operator()<PXFileInfo>();
  }
}

Ref<PXFileInfo> PXFileInfo::initWithType(VnodeType type, const Ref<PXPath>& path) {
  return makeOfType(type, [&]<class Info>() { return make<Info>(Private(), type, path); });
}

Ref<PXFileInfo> PXFileInfo::infoForPathObject(const Ref<PXPath>& path) {
  return infoForFile(-1, path, nullptr);
}

Ref<PXFileInfo> PXFileInfo::infoForCPath(std::string_view cPath) {
  return infoForPathObject(PXPath::initWithCPath(cPath));
}

Ref<PXFileInfo> PXFileInfo::infoForPath(std::string_view path) {
  return infoForPathObject(PXPath::initWithPath(path));
}

Ref<PXFileInfo> PXFileInfo::infoForURL(std::string_view url) {
  return infoForPathObject(PXPath::initWithURL(url));
}

Ref<PXFileInfo> PXFileInfo::infoForFile(int file, const Ref<PXPath>& path,
                                        const Ref<PXFileInfo>& existing) {
  auto& calls = attrlist::AttributeCalls::current();
  attrlist::ItemAttributes item;
  int result = file >= 0 ? calls.fgetattrlist(file, kTypeRequest, item, kProbeOptions)
                         : calls.getattrlist(path->cPath(), kTypeRequest, item, kProbeOptions);
  if (result != 0) {
    if (errno != ENOENT && errno != ENOTDIR) {
      KLException::ioErrnoWithReason("failed to probe object vtype").setPathObject(*path).raise();
    }
    if (existing && !existing->exists()) return existing;
    return PXNonexistentFile::initWithPathObject(path);
  }
  auto type = static_cast<VnodeType>(item.objectType);
  if (existing && existing->type() == type) return existing;
  return initWithType(type, path);
}

Ref<PXFileInfo> PXFileInfo::infoForOpenFile(int file, const Ref<PXPath>& path) {
  auto info = infoForFile(file, path, nullptr);
  if (info) {
    SpinLockHolder lock(info->attrLock_);
    info->getCommonAttrs(file);
  }
  return info;
}

Ref<PXFileInfo> PXFileInfo::initWithBatchAttr(const attrlist::BulkEntry& entry, Listing& listing) {
  ListedItem item{listing, listing.keepName({entry.name, entry.nameLength}), entry};
  auto type = static_cast<VnodeType>(entry.attributes.objectType);
  return makeOfType(type, [&]<class Info>() { return listing.make<Info>(Private(), type, item); });
}

Ref<PXFileInfo> PXFileInfo::initWithDirEntry(const char* cName, unsigned char entryType,
                                             const Ref<PXPath>& parentPath) {
  return initWithType(static_cast<VnodeType>(attrlist::vnodeTypeOfEntry(entryType)),
                      PXSubPath::initAssumingCNameParentPath(cName, parentPath));
}

Ref<PXFileInfo> PXFileInfo::reevaluateType() {
  return infoForFile(-1, location(), self<PXFileInfo>());
}

Ref<PXFileInfo> PXFileInfo::hardened() {
  auto path = location()->hardenedReal();
  return path == location() ? self<PXFileInfo>() : infoForPathObject(path);
}

}  // namespace hoist
