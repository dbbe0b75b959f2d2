// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "filesystem/ChildList.h"
#include "filesystem/PXAbstractDirectory.h"
#include "filesystem/PXFileInfo.h"

namespace hoist {

class PXSubPath;
class PXVolumeInfo;

// A folder with its children, which are read in one pass, types and attributes included, when the
// first of them is asked for, and kept until flushed. It registers with its path object, by which
// its children and others find it again.
//
// A folder that cannot be opened stays unread and seems empty; the next question tries again. Other
// failures of reading raise "IO" / "failed to read directory".
//
// Reading is safe from any thread, and a folder on a volume that hangs stops only its own readers.
// A folder must not be flushed or sorted while another thread walks its children.
class PXDirectory final : public PXFileInfo, public PXAbstractDirectory {
 public:
  using PXFileInfo::PXFileInfo;
  PXDirectory(Private key, VnodeType type, const ListedItem& item)
      : PXFileInfo(key, type, item), directoryRecord_(item.entry.attributes) {}
  ~PXDirectory() override;

  // The folder at the path; null when there is none or something else is there.
  static Ref<PXDirectory> directoryWithPath(std::string_view path);

  // ---- Children ----
  Ref<PXFileInfo> firstObject() const;
  Ref<PXFileInfo> firstContentFile() const;
  Ref<PXFileInfo> firstRegularFile() const;
  Ref<PXFileInfo> firstDirectory() const;
  // The number of children; before they have been read, the names are only counted.
  std::uint64_t count() const;
  // Null when there is no such child.
  Ref<PXFileInfo> objectMatchingCName(std::string_view cName) const;
  Ref<PXFileInfo> objectMatchingName(std::string_view name) const;
  Ref<PXDirectory> subdirectoryMatchingCName(std::string_view cName) const;
  Ref<PXDirectory> subdirectoryMatchingName(std::string_view name) const;
  // Where a child of that name is or would be.
  Ref<PXSubPath> pathForCName(std::string_view cName) const;
  Ref<PXSubPath> pathForName(std::string_view name) const;
  // The listed child, else what a probe of its location finds.
  Ref<PXFileInfo> infoForCName(std::string_view cName) const;
  Ref<PXFileInfo> infoForName(std::string_view name) const;
  // Whether the other's path lies below this one's. A comparison of texts: never for "/".
  bool containsFile(const PXFileInfo& other) const;

  // Reads the children unless they are there.
  void lazyDirectoryRead() const;
  // Tells an empty folder from one that could not be opened.
  bool contentsAreRead() const { return hasFlag(kContentsRead); }
  void flushDirectoryContents();
  // By name, in the file browser's order; once.
  void sort();
  void resortUsing(const ChildList::Comparison& compare);

  // Hands out the children in pieces. Answers how many it has put into the span; 0 at the end.
  // Raises NSGenericException when the children were flushed in between.
  struct Enumeration {
    bool started = false;
    Ref<PXFileInfo> next;
    // The head of the list that is being enumerated.
    Ref<PXFileInfo> mutationMarker;
  };
  std::size_t countByEnumerating(Enumeration& state, std::span<Ref<PXFileInfo>> objects) const;

  // For range-based loops over the children, which stay alive meanwhile.
  class Iterator {
   public:
    explicit Iterator(Ref<PXFileInfo> child) : child_(std::move(child)) {}
    const Ref<PXFileInfo>& operator*() const { return child_; }
    Iterator& operator++() {
      child_ = child_->nextObj();
      return *this;
    }
    bool operator==(const Iterator&) const = default;

   private:
    Ref<PXFileInfo> child_;
  };
  Iterator begin() const { return Iterator(firstObject()); }
  Iterator end() const { return Iterator(nullptr); }

  Ref<PXAbstractFile> firstAbstractObject() const override { return firstObject(); }
  Ref<PXAbstractFile> firstAbstractContentFile() const override { return firstContentFile(); }
  Ref<PXAbstractFile> firstAbstractRegularFile() const override { return firstRegularFile(); }
  Ref<PXAbstractFile> firstAbstractDirectory() const override { return firstDirectory(); }
  Ref<PXAbstractFile> abstractObjectMatchingCName(std::string_view cName) const override {
    return objectMatchingCName(cName);
  }
  Ref<PXAbstractFile> abstractObjectMatchingName(std::string_view name) const override {
    return objectMatchingName(name);
  }
  Ref<PXAbstractFile> abstractSubdirectoryMatchingCName(std::string_view cName) const override {
    return subdirectoryMatchingCName(cName);
  }
  Ref<PXAbstractFile> abstractSubdirectoryMatchingName(std::string_view name) const override {
    return subdirectoryMatchingName(name);
  }

  // ---- The folder itself ----
  // Whether it is the root of a mount.
  bool isMountPoint() const;
  bool isPackage() const;
  std::uint32_t linkCount() const override;
  // Null for the root of a mount: the walk upwards stops there.
  Ref<PXDirectory> parentDirectoryInfo() const override;
  // Those of the volume for the root of a mount.
  std::string displayName() const override;
  std::string displayPath() const override;
  // "volume" or "folder".
  std::string logTypeDescription() const override;

  // Raises what PXVolumeInfo::initWithPath raises.
  Ref<PXVolumeInfo> volumeInfo() const override;
  // For the volume whose root this is: held weakly, because it holds this.
  void setVolumeInfo(const Ref<PXVolumeInfo>& info);

  // ---- New folders; the list of children is not updated ----
  // Raises "IO" / "could not create directory" with the mode as detail "mode".
  Ref<PXDirectory> createSubdirectoryWithName(std::string_view name, std::uint16_t mode) const;
  // Named like "prefix.0a1b2c3d" or, with an extension, "prefix.0a1b2c3d.extension".
  Ref<PXDirectory> createUniqueSubdirectoryWithPrefix(std::string_view prefix,
                                                      const std::optional<std::string>& extension,
                                                      std::uint16_t mode) const;

  Ref<PXDirectory> asDirectory() override { return self<PXDirectory>(); }
  std::string className() const override { return "PXDirectory"; }

  std::uint32_t commonAttrSize() const override {
    return sizeof(CommonAttributes) + sizeof(DirectoryAttributes);
  }
  std::uint32_t prepareAttrRequest(attrlist::AttributeSet& request) const override;

 private:
  void parseAttrs(const attrlist::ItemAttributes& attributes) const override REQUIRES(attrLock_);
  template <class Field>
  Field field(Field DirectoryAttributes::*field) const;
  void made() override;
  // Null when it is its own parent: the root of a file tree that is no mount's.
  Ref<PXDirectory> folderAbove() const;

  // What is known of the volume; else the other one, which is known from now on.
  Ref<PXVolumeInfo> keptVolumeInfo(const Ref<PXVolumeInfo>& other) const;

  mutable DirectoryAttributes directoryRecord_ GUARDED_BY(attrLock_);

  mutable SpinLock contentsLock_;
  mutable ChildList children_ GUARDED_BY(contentsLock_);

  mutable SpinLock volumeLock_;
  mutable Ref<PXVolumeInfo> volumeInfo_ GUARDED_BY(volumeLock_);
  WeakRef<PXVolumeInfo> circularVolInfo_ GUARDED_BY(volumeLock_);
};

}  // namespace hoist
