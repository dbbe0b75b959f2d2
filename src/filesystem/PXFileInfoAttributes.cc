// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <unistd.h>

#include "exceptions/KLException.h"
#include "filesystem/PXFileInfo.h"
#include "filesystem/PXPath.h"
#include "logging/Logger.h"
#include "platform/ResourceValues.h"

// The attributes of an item: read together, kept, edited, written back together.
//
// Effective access is the exception: permission bits lie about it (access lists, immutable files,
// read-only and noexec mounts), so it is three questions to the kernel, asked only on demand.

namespace hoist {

using namespace attrlist;

namespace {

constexpr std::uint32_t kCommonRequest = ATTR_CMN_DEVID | ATTR_CMN_OBJTYPE | ATTR_CMN_SCRIPT |
                                         ATTR_CMN_CRTIME | ATTR_CMN_MODTIME | ATTR_CMN_CHGTIME |
                                         ATTR_CMN_OWNERID | ATTR_CMN_GRPID | ATTR_CMN_ACCESSMASK |
                                         ATTR_CMN_FLAGS | ATTR_CMN_USERACCESS | ATTR_CMN_FILEID;
static_assert(kCommonRequest == 0x2278F0A);
constexpr std::uint32_t kCommonRequestSize = 88;  // bytes, as the original platform packs it
constexpr std::uint32_t kReadOptions =
    FSOPT_NOFOLLOW | FSOPT_REPORT_FULLSIZE | FSOPT_PACK_INVAL_ATTRS;

std::uint16_t effectiveAccessTo(const char* path) {
  std::uint16_t access = 0;
  for (int mode : {R_OK, W_OK, X_OK}) {
    if (::faccessat(AT_FDCWD, path, mode, AT_EACCESS | AT_SYMLINK_NOFOLLOW) == 0) {
      access |= static_cast<std::uint16_t>(mode);
    }
  }
  return access;
}

CommonValues valuesOf(const CommonAttributes& record) {
  return {.script = record.script,
          .createdTime = record.createdTime,
          .modifiedTime = record.modifiedTime,
          .attributeChangedTime = record.attributeChangedTime,
          .ownerID = record.ownerID,
          .groupID = record.groupID,
          .access = record.access,
          .flags = record.fileFlags};
}

// The value; without one, the failure is logged.
template <class Result>
auto valueOrLog(const Result& result, const PXFileInfo& info, std::string_view reason) {
  if (!result.value) {
    auto exception = KLException::error(result.error, "IO", reason);
    Logger::logException(classification::Debug, nullptr, exception.setFileInfo(info));
  }
  return result.value;
}

}  // namespace

// Reading.

std::optional<CommonAttributes> PXFileInfo::attrs() const {
  SpinLockHolder lock(attrLock_);
  return readRecord() ? std::optional(record_) : std::nullopt;
}

bool PXFileInfo::readRecord() const {
  if (!hasFlag(kHasAttributes)) getCommonAttrs(-1);
  return hasFlag(kHasAttributes);
}

void PXFileInfo::getCommonAttrs(int file) const {
  AttributeSet request;
  prepareAttrRequest(request);
  request.common |= ATTR_CMN_RETURNED_ATTRS;
  auto& calls = AttributeCalls::current();
  ItemAttributes item;
  int result = file >= 0 ? calls.fgetattrlist(file, request, item, kReadOptions)
                         : calls.getattrlist(cPath(), request, item, kReadOptions);
  if (result != 0) {
    KLException::ioErrnoWithReason("failed to get attributes").setFileInfo(*this).raise();
  }
  parseAttrs(item);
}

std::uint32_t PXFileInfo::prepareAttrRequest(AttributeSet& request) const {
  request.common = kCommonRequest;
  return kCommonRequestSize;
}

void PXFileInfo::parseAttrs(const ItemAttributes& attributes) const {
  record_ = CommonAttributes(attributes);
  setFlag(kHasAttributes);
}

void PXFileInfo::flushAttributes() {
  SpinLockHolder lock(attrLock_);
  record_ = {};
  clearFlags(kHasAttributes | kHasACL | kHasEffectiveAccess);
}

template <class Field>
Field PXFileInfo::field(Field CommonAttributes::*field) const {
  SpinLockHolder lock(attrLock_);
  return readRecord() ? record_.*field : Field{};
}

std::uint32_t PXFileInfo::script() const {
  return field(&CommonAttributes::script);
}

timespec PXFileInfo::createdTimeSpec() const {
  return field(&CommonAttributes::createdTime);
}

timespec PXFileInfo::modifiedTimeSpec() const {
  return field(&CommonAttributes::modifiedTime);
}

timespec PXFileInfo::attributeChangedTimeSpec() const {
  return field(&CommonAttributes::attributeChangedTime);
}

std::optional<Date> PXFileInfo::createdDate() const {
  auto record = attrs();
  return record ? std::optional(Date::fromTimeSpec(record->createdTime)) : std::nullopt;
}

std::optional<Date> PXFileInfo::modifiedDate() const {
  auto record = attrs();
  return record ? std::optional(Date::fromTimeSpec(record->modifiedTime)) : std::nullopt;
}

std::optional<Date> PXFileInfo::attributeChangedDate() const {
  auto record = attrs();
  return record ? std::optional(Date::fromTimeSpec(record->attributeChangedTime)) : std::nullopt;
}

std::uint32_t PXFileInfo::ownerID() const {
  return field(&CommonAttributes::ownerID);
}

std::uint32_t PXFileInfo::groupID() const {
  return field(&CommonAttributes::groupID);
}

std::uint16_t PXFileInfo::access() const {
  return field(&CommonAttributes::access);
}

std::uint16_t PXFileInfo::effectiveAccess() const {
  SpinLockHolder lock(attrLock_);
  if (!readRecord()) return 0;
  if (!hasFlag(kHasEffectiveAccess)) {
    record_.effectiveAccess = effectiveAccessTo(cPath());
    setFlag(kHasEffectiveAccess);
  }
  return record_.effectiveAccess;
}

std::uint32_t PXFileInfo::fileFlags() const {
  return field(&CommonAttributes::fileFlags);
}

std::uint64_t PXFileInfo::localIdentifier() const {
  return field(&CommonAttributes::fileID);
}

std::uint32_t PXFileInfo::deviceID() const {
  return field(&CommonAttributes::device);
}

AccessControlList PXFileInfo::acl() const {
  SpinLockHolder lock(attrLock_);
  if (!readRecord()) return {};
  if (!hasFlag(kHasACL)) {
    record_.acl = AccessControlList::ofItem(cPath());
    setFlag(kHasACL);
  }
  return record_.acl;
}

// Editing.

template <class Field, class Value>
void PXFileInfo::edit(Field CommonAttributes::*field, Value value, std::uint32_t attribute) {
  SpinLockHolder lock(attrLock_);
  if (!readRecord()) return;
  record_.*field = static_cast<Field>(value);
  record_.modified |= attribute;
}

void PXFileInfo::setScript(std::uint32_t script) {
  edit(&CommonAttributes::script, script, ATTR_CMN_SCRIPT);
}

void PXFileInfo::setCreatedTimeSpec(const timespec& time) {
  edit(&CommonAttributes::createdTime, time, ATTR_CMN_CRTIME);
}

void PXFileInfo::setModifiedTimeSpec(const timespec& time) {
  edit(&CommonAttributes::modifiedTime, time, ATTR_CMN_MODTIME);
}

void PXFileInfo::setAttributeChangedTimeSpec(const timespec& time) {
  edit(&CommonAttributes::attributeChangedTime, time, ATTR_CMN_CHGTIME);
}

void PXFileInfo::setOwnerID(std::uint32_t owner) {
  edit(&CommonAttributes::ownerID, owner, ATTR_CMN_OWNERID);
}

void PXFileInfo::setGroupID(std::uint32_t group) {
  edit(&CommonAttributes::groupID, group, ATTR_CMN_GRPID);
}

void PXFileInfo::setAccess(std::uint16_t access) {
  edit(&CommonAttributes::access, access & CommonAttributes::kAccessBits, ATTR_CMN_ACCESSMASK);
}

void PXFileInfo::setFileFlags(std::uint32_t flags) {
  edit(&CommonAttributes::fileFlags, flags, ATTR_CMN_FLAGS);
}

std::uint32_t PXFileInfo::modifiedAttributes() const {
  SpinLockHolder lock(attrLock_);
  return hasFlag(kHasAttributes) ? record_.modified : 0;
}

void PXFileInfo::setModifiedAttributes() {
  if (auto modified = modifiedAttributes()) setCommonAttributes(modified);
}

void PXFileInfo::setCommonAttributes(std::uint32_t set) {
  set &= kWritableCommonAttributes;
  SpinLockHolder lock(attrLock_);
  if (!hasFlag(kHasAttributes) || set == 0) return;
  ItemAttributes after;
  bool isWritten = AttributeCalls::current().setattrlist(cPath(), record_.identity(), set,
                                                         valuesOf(record_), after) == 0;
  if (isWritten) record_.modified &= ~set;
  keepUpWith(after);
  if (!isWritten) {
    KLException::ioErrnoWithReason("unable to set attributes")
        .setFileInfo(*this)
        .setHexDetail(set, "attributeSet")
        .raise();
  }
}

void PXFileInfo::adoptItem() {
  SpinLockHolder lock(attrLock_);
  if (!hasFlag(kHasAttributes)) return;
  AttributeSet request;
  prepareAttrRequest(request);
  ItemAttributes now;
  bool isThere = AttributeCalls::current().getattrlist(cPath(), request, now, kReadOptions) == 0;
  if (isThere && now.objectType == vtype_) keepUpWith(now);
}

// Writing, and the undoing of it, changes these by itself; they must stay what the next write-back
// compares with.
void PXFileInfo::keepUpWith(const ItemAttributes& after) {
  if ((after.returned.common & ATTR_CMN_FILEID) == 0) return;
  record_.device = after.device;
  record_.fileID = after.fileID;
  if ((record_.modified & ATTR_CMN_CRTIME) == 0) record_.createdTime = after.createdTime;
  if ((record_.modified & ATTR_CMN_CHGTIME) == 0) {
    record_.attributeChangedTime = after.attributeChangedTime;
  }
}

// What a file browser knows.

bool PXFileInfo::isHidden() const {
  return valueOrLog(resource::isHidden(cPath()), *this, "problem obtaining isHidden attribute")
      .value_or(false);
}

bool PXFileInfo::isHiddenExtension() const {
  return valueOrLog(resource::isHiddenExtension(cPath()), *this,
                    "problem obtaining isHiddenExtension attribute")
      .value_or(false);
}

bool PXFileInfo::isExcludedFromBackup() const {
  return valueOrLog(resource::isExcludedFromBackup(cPath()), *this,
                    "problem obtaining isExcludedFromBackup attribute")
      .value_or(false);
}

std::optional<std::uint64_t> PXFileInfo::volumeIdentifier() const {
  return valueOrLog(resource::volumeIdentifier(cPath()), *this,
                    "problem obtaining volumeIdentifier attribute");
}

}  // namespace hoist
