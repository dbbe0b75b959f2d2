// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <compare>
#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>

#include "filesystem/AttributeRecord.h"
#include "filesystem/Listing.h"
#include "platform/Mutex.h"
#include "platform/attrlist/AttributeCalls.h"
#include "values/AbstractFile.h"
#include "values/Date.h"
#include "values/Object.h"

namespace hoist {

class PXDirectory;
class PXPath;
class PXRegularFile;
class PXSymbolicLink;
class PXVolumeInfo;

// One item of the file system: where it is, what it is, and its attributes, which are read by one
// call when the first of them is asked for and kept until flushed. Links are described themselves,
// never followed. The type is fixed; an item that changes its type on disk gets a new object by
// reevaluateType or a new probe.
//
// Devices, sockets and pipes are plain PXFileInfo; PXRegularFile, PXDirectory, PXSymbolicLink and
// PXNonexistentFile are the rest of the family. A missing item answers 0 or nothing everywhere.
//
// Reading is safe from any thread; edits of one object must not be made from several threads at
// once. Whatever reads attributes raises KLException "IO" / "failed to get attributes" when they
// cannot be read.
class PXFileInfo : public Object, public PXAbstractFile {
 protected:
  struct Private {
    explicit Private() = default;
  };

 public:
  PXFileInfo(Private, VnodeType type, Ref<PXPath> pathObject);
  PXFileInfo(Private, VnodeType type, const ListedItem& item);
  // Hands the siblings after it to the background queue, so that a chain of any length is released
  // one by one.
  ~PXFileInfo() override;

  // ---- Probing ----
  // Each answers an object of the class for the item's type; a PXNonexistentFile when nothing is
  // there; null for a type that no file has. Raises "IO" / "failed to probe object vtype" when the
  // item cannot be looked at.
  static Ref<PXFileInfo> infoForPathObject(const Ref<PXPath>& path);
  static Ref<PXFileInfo> infoForCPath(std::string_view cPath);
  static Ref<PXFileInfo> infoForPath(std::string_view path);
  static Ref<PXFileInfo> infoForURL(std::string_view url);
  // Looks at the open file instead of the path when there is one (-1 for none; borrowed). Answers
  // the existing object, attributes and all, when its type is still that of the item.
  static Ref<PXFileInfo> infoForFile(int file, const Ref<PXPath>& path,
                                     const Ref<PXFileInfo>& existing);
  // The same for an open file, with its attributes read from that very file, whatever the path
  // leads to meanwhile.
  static Ref<PXFileInfo> infoForOpenFile(int file, const Ref<PXPath>& path);

  // The object of the class for a type, without a look at the disk; null for types None and Bad.
  static Ref<PXFileInfo> initWithType(VnodeType type, const Ref<PXPath>& path);
  // One name out of reading a folder, with its attributes when they came along. It lies in the
  // listing. Its path object is only made when somebody asks for it.
  static Ref<PXFileInfo> initWithBatchAttr(const attrlist::BulkEntry& entry, Listing& listing);
  // The same for one entry of readdir: a name and a type byte.
  static Ref<PXFileInfo> initWithDirEntry(const char* cName, unsigned char entryType,
                                          const Ref<PXPath>& parentPath);

  Ref<PXFileInfo> reevaluateType();
  // The item at the location without links.
  Ref<PXFileInfo> hardened();

  // ---- Where ----
  Ref<PXPath> pathObject() const;
  // Keeps the attributes: for an item that has moved.
  void setPathObject(Ref<PXPath> path);
  const char* cName() const override;
  std::string name() const override;
  std::string displayName() const override;
  const char* cPath() const override;
  std::string path() const override;
  std::string url() const override;
  std::string extension() const override;

  // The volume that holds the item; null for a missing item. Raises what PXVolumeInfo::initWithPath
  // raises.
  virtual Ref<PXVolumeInfo> volumeInfo() const;
  // Relative to the root of the volume, as PXVolumeInfo::relativePathOfPath answers; the full path,
  // and a line for debugging, when that raises.
  std::optional<std::string> volumeRelativePath() const;

  // The object of the folder that this was listed by, if it still lives; else null.
  Ref<PXDirectory> livingParent() const;
  Ref<PXAbstractFile> abstractParent() const;
  // The living parent, else a fresh probe of the folder.
  virtual Ref<PXDirectory> parentDirectoryInfo() const;
  // The parent's display path and the display name, for people.
  virtual std::string displayPath() const;

  // ---- What ----
  VnodeType type() const override { return static_cast<VnodeType>(vtype_); }
  virtual bool exists() const { return true; }
  bool isDirectory() const { return type() == VnodeType::Directory; }
  bool isRegularFile() const { return type() == VnodeType::Regular; }
  bool isSymbolicLink() const { return type() == VnodeType::SymbolicLink; }
  // A file, a folder or a link: what a backup keeps.
  bool isPersistentObject() const { return isRegularFile() || isDirectory() || isSymbolicLink(); }
  bool isHardLink() const { return linkCount() > 1; }
  virtual Ref<PXRegularFile> asRegularFile() { return nullptr; }
  virtual Ref<PXSymbolicLink> asSymbolicLink() { return nullptr; }
  virtual Ref<PXDirectory> asDirectory() { return nullptr; }

  // ---- Attributes ----
  std::uint32_t script() const;
  timespec createdTimeSpec() const;
  timespec modifiedTimeSpec() const;
  timespec attributeChangedTimeSpec() const;
  std::optional<Date> createdDate() const;
  std::optional<Date> modifiedDate() const;
  std::optional<Date> attributeChangedDate() const;
  std::uint32_t ownerID() const;
  std::uint32_t groupID() const;
  // Permission, set-ID and sticky bits; 12 of them.
  std::uint16_t access() const;
  // What this process may do: read 4, write 2, execute 1.
  std::uint16_t effectiveAccess() const;
  std::uint32_t fileFlags() const;
  std::uint64_t localIdentifier() const;
  virtual std::uint32_t deviceID() const;
  virtual std::uint32_t linkCount() const { return 1; }
  // None for an item that only has permission bits.
  AccessControlList acl() const;

  // Setters change the record; what they changed is written by setModifiedAttributes.
  void setScript(std::uint32_t script);
  void setCreatedTimeSpec(const timespec& time);
  void setModifiedTimeSpec(const timespec& time);
  void setAttributeChangedTimeSpec(const timespec& time);
  void setOwnerID(std::uint32_t owner);
  void setGroupID(std::uint32_t group);
  void setAccess(std::uint16_t access);
  void setFileFlags(std::uint32_t flags);

  // The edited attributes that are not yet written, as ATTR_CMN_ bits.
  std::uint32_t modifiedAttributes() const;
  void setModifiedAttributes();
  // Writes the writable ones of the set to the item that was read, all or none. Does nothing when
  // no attribute was read. Raises "IO" / "unable to set attributes", with the set as detail
  // "attributeSet", and keeps them marked.
  void setCommonAttributes(std::uint32_t set);

  // The record as it is, read when it is not there; none for a missing item.
  std::optional<CommonAttributes> attrs() const;
  // Forgets the attributes, edited ones too.
  void flushAttributes();
  void releaseAttrs() { flushAttributes(); }

  // The size of the record in bytes.
  virtual std::uint32_t commonAttrSize() const { return sizeof(CommonAttributes); }
  // Adds what the class asks for; answers the bytes that the original platform packs it into.
  virtual std::uint32_t prepareAttrRequest(attrlist::AttributeSet& request) const;

  // ---- What a file browser knows. Trouble is logged for debugging and answers false or nothing
  // ----
  bool isHidden() const;
  bool isHiddenExtension() const;
  bool isExcludedFromBackup() const;
  std::optional<std::uint64_t> volumeIdentifier() const;

  // ---- Changing the file system: as the operations of PXPath, which say what is raised ----
  // The item has its new location afterwards.
  void moveToDirectory(const std::optional<std::string>& directory,
                       const std::optional<std::string>& name, bool overwriting);
  void moveTo(const std::string& target, bool overwriting);
  // Answer what is at the target then.
  Ref<PXFileInfo> copyToDirectory(const std::optional<std::string>& directory,
                                  const std::optional<std::string>& name, bool overwriting,
                                  bool clone = true) const;
  Ref<PXFileInfo> copyTo(const std::string& target, bool overwriting, bool clone = true) const;
  bool tryToDeleteFile();
  // Answers the missing item at the location.
  Ref<PXFileInfo> deleteFile();
  // Answers what is at the other's location then.
  Ref<PXFileInfo> swapWith(const PXFileInfo& other);

  // ---- Siblings: the rest of the list in which the folder holds its children. Whoever keeps a
  // child keeps that rest; its path object is free of it ----
  const Ref<PXFileInfo>& nextObj() const { return next_; }
  Ref<PXFileInfo> nextContentFile() const;
  Ref<PXFileInfo> nextRegularFile() const;
  Ref<PXFileInfo> nextDirectory() const;
  Ref<PXAbstractFile> nextAbstractObj() const { return nextObj(); }
  Ref<PXAbstractFile> nextAbstractContentFile() const { return nextContentFile(); }
  Ref<PXAbstractFile> nextAbstractRegularFile() const { return nextRegularFile(); }
  Ref<PXAbstractFile> nextAbstractDirectory() const { return nextDirectory(); }

  // By name, in the file browser's order.
  std::strong_ordering compareNames(const PXFileInfo& other) const;

  // "item", "file", "link", "folder" or "volume"; with the path; with the name.
  virtual std::string logTypeDescription() const { return "item"; }
  std::string logFullDescription() const;
  std::string logDescription() const;

  std::string className() const override { return "PXFileInfo"; }
  std::string description() const override { return path(); }
  // Equal paths by bytes. The hash is that of the object, not of the path.
  bool isEqual(const Object& other) const override;
  std::size_t hash() const override { return Object::hash(); }

 protected:
  // Bits of flags_.
  static constexpr std::uint8_t kHasACL = 2;
  static constexpr std::uint8_t kContentsRead = 4;
  static constexpr std::uint8_t kSortedByName = 8;
  static constexpr std::uint8_t kHasEffectiveAccess = 16;
  static constexpr std::uint8_t kHasAttributes = 32;
  static constexpr std::uint8_t kHasPathObject = 64;

  // What the template function make<Info>() makes for the class that describes the type.
  template <class Make>
  static Ref<PXFileInfo> makeOfType(VnodeType type, Make&& make);
  // Called once for a new object, when it is held: a folder registers with its path.
  virtual void made() {}

  template <class Info>
  Ref<Info> self() const;

  bool hasFlag(std::uint8_t flag) const { return (flags_ & flag) != 0; }
  void setFlag(std::uint8_t flag) const { flags_ |= flag; }
  void clearFlags(std::uint8_t flags) const { flags_ &= static_cast<std::uint8_t>(~flags); }

  // Reads the attributes by path, or from the open file when there is one (-1 for none).
  virtual void getCommonAttrs(int file) const REQUIRES(attrLock_);
  // Fills in the record; each class its own part.
  virtual void parseAttrs(const attrlist::ItemAttributes& attributes) const REQUIRES(attrLock_);
  // For an object that has given its item another location, or made it anew: the record, edits and
  // all, is that of the item which is there now.
  void adoptItem();
  // Reads the record unless it is there; answers whether it is.
  bool readRecord() const REQUIRES(attrLock_);

  mutable SpinLock attrLock_;

 private:
  friend class ChildList;

  // The first of the siblings after this one that the test admits.
  template <class Test>
  Ref<PXFileInfo> nextThat(Test&& test) const;

  // The path object, which is made here for a listed item.
  const Ref<PXPath>& location() const;

  void keepUpWith(const attrlist::ItemAttributes& after) REQUIRES(attrLock_);
  // Changes a field of the record, if there can be one, and marks it.
  template <class Field, class Value>
  void edit(Field CommonAttributes::*field, Value value, std::uint32_t attribute);
  template <class Field>
  Field field(Field CommonAttributes::*field) const;

  mutable SpinLock pathLock_;
  mutable std::atomic<std::uint8_t> flags_;
  const std::uint8_t vtype_;
  // Set once, before the flag that says so.
  mutable Ref<PXPath> pathObj_;
  // Of a child that its folder has listed; null for others. It lies in the listing itself.
  const Listing* const listing_ = nullptr;
  const char* const listedName_ = nullptr;
  Ref<PXFileInfo> next_;
  mutable CommonAttributes record_ GUARDED_BY(attrLock_);
};

template <class Info>
Ref<Info> PXFileInfo::self() const {
  // Every object was made by make<>() and is not constant.
  return std::static_pointer_cast<Info>(std::const_pointer_cast<Object>(shared_from_this()));
}

}  // namespace hoist
