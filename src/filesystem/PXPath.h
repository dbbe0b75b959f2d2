// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <compare>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Mutex.h"
#include "values/AbstractFile.h"
#include "values/Coder.h"
#include "values/Object.h"

namespace hoist {

class PXDirectory;
class PXFileInfo;
class PXVolumeInfo;

// One location in the file system; it never changes. The location is bytes (cPath, cName); the text
// forms show a byte that is no UTF-8 as U+FFFD, the URL leads back to the bytes. What is derived
// from the bytes is made when it is first asked for. Shared between threads freely.
class PXPath : public Object, public PXAbstractPath {
 protected:
  // Lets make<>() in and nobody else.
  struct Private {
    explicit Private() = default;
  };
  struct Bytes;

 public:
  PXPath(Private, Bytes bytes);
  ~PXPath() override;

  static Ref<PXPath> initWithCPath(std::string_view cPath);
  static Ref<PXPath> initWithPath(std::string_view path);
  // A URL without a path gives the empty path. The URL is kept as it is until flushInfo.
  static Ref<PXPath> initWithURL(std::string_view url);
  static Ref<PXPath> initWithCNameParentPath(std::string_view cName, const PXPath& parent);
  // An absolute path is taken as it is; one that begins with "." is joined to the base and resolved
  // on disk, or left joined when it does not resolve; another one is joined; an empty one is the
  // base itself.
  static Ref<PXPath> initWithCPathRelativeToPath(std::string_view cPath, const Ref<PXPath>& base);
  static Ref<PXPath> initWithPathObject(const PXPath& other);
  // The name need not be the path's last component.
  static Ref<PXPath> initAssumingNamePath(const std::string& cName, const std::string& cPath);

  static Ref<PXPath> pathWithPath(std::string_view path) { return initWithPath(path); }
  static Ref<PXPath> pathWithURL(std::string_view url) { return initWithURL(url); }
  static Ref<PXPath> realPath(std::string_view path);
  // Strings and URL objects of the collection, in its order; everything else, and a URL without a
  // path, is skipped.
  static std::vector<Ref<PXPath>> arrayFromPathsOrURLs(const std::vector<Value>& collection);
  // The real path of "/tmp".
  static Ref<PXPath> tempPath();
  // A child of tempPath like "prefix-0a1b2c3d.extension" that does not exist; nothing is created.
  static Ref<PXPath> tempPathWithPrefix(std::string_view prefix, std::string_view extension);

  const char* cName() const override { return bytes_.get() + nameOffset_; }
  const char* cPath() const override;
  std::string name() const override;
  // The name that the platform shows for the item; the name when there is no such item.
  std::string displayName() const override;
  std::string path() const override;
  // A relative path is one from the working folder.
  std::string url() const override;
  std::string extension() const override;

  // The folder that holds this location; null for a sub path that has lost its parent.
  virtual Ref<PXPath> parent() const;
  // The registered directory, else a fresh probe. Raises what PXFileInfo::infoForPathObject raises.
  Ref<PXFileInfo> fileInfo() const;
  // fileInfo when it is a directory, else null.
  Ref<PXDirectory> directory() const;
  // The object that represents this location at present; held weakly.
  Ref<PXFileInfo> directoryInfo() const;
  void setDirectoryInfo(const Ref<PXFileInfo>& info) const;
  // Unregisters an object that has gone, or is just going away.
  void forgetExpiredDirectoryInfo() const;

  // The volume of the location; that of the registered directory if there is one. Raises what
  // PXVolumeInfo::initWithPath raises.
  Ref<PXVolumeInfo> volumeInfo() const;

  // Forgets the URL; it is made anew when asked for.
  void flushInfo() const;

  Ref<PXPath> pathOfChild(std::string_view name) const;
  // The location itself for an empty text.
  Ref<PXPath> relativePath(std::string_view path) const;
  // The text that leads here from the base: empty for the base itself, the whole path when this is
  // not below the base.
  std::string pathRelativeToPath(const PXPath& base) const;
  // Whether the other is this location or below it on the same volume.
  bool containsPath(const PXPath& other) const;

  // Transfer sizes in bytes and bits of a file size, as pathconf(3) knows them; 0 when it does not.
  long minTransferSize() const;
  long maxTransferSize() const;
  long fileSizeBits() const;

  // Whether an item is there; a dangling link is none.
  bool exists() const;
  // The location without links; the receiver when it has none or does not resolve.
  Ref<PXPath> real() const;
  // The same: Linux has no other redirections of folders.
  Ref<PXPath> hardenedReal() const { return real(); }

  // ---- Changing the file system. Failures raise "IO" with the path and, as text, the target. ----
  // Targets are bytes up to the first NUL; one that does not begin with "/" is relative to the
  // folder of this location. What is answered is the target's location, standardised; the receiver
  // keeps its own. Absent directory and name: those of the receiver.

  // Overwriting replaces the target at once, on one volume only: "cannot rename filesystem object",
  // detail "to". Otherwise the target must not exist, and may be on another volume: "cannot move
  // item", detail "target".
  Ref<PXPath> moveToDirectory(const std::optional<std::string>& directory,
                              const std::optional<std::string>& name, bool overwriting) const;
  Ref<PXPath> moveTo(const std::string& target, bool overwriting) const;
  // A folder with everything in it. Overwriting removes what is there first: "cannot overwrite
  // item"; then "cannot copy item"; detail "target". The copy is a clone where the volume can,
  // whether it is asked for or not.
  Ref<PXPath> copyToDirectory(const std::optional<std::string>& directory,
                              const std::optional<std::string>& name, bool overwriting,
                              bool clone = true) const;
  Ref<PXPath> copyTo(const std::string& target, bool overwriting, bool clone = true) const;
  // A folder with everything in it; the second raises "cannot delete item".
  bool tryToDeleteFile() const;
  void deleteFile() const;
  // Two items change places. Raises "cannot exchange files", API "rename", detail "with".
  void swapWith(const PXPath& other) const;
  // Sets access and modification time to now; failure is ignored.
  void touch() const;

  // By the bytes of the paths; anything that is no path comes after every path.
  std::strong_ordering compare(const Object& other) const;

  std::string className() const override { return "PXPath"; }
  // "<PXPath: 0xADDRESS>(PATH)".
  std::string description() const override;
  // Equal paths by bytes; a path also equals the string that is its path.
  bool isEqual(const Object& other) const override;
  bool isEqual(const Value& other) const;
  std::size_t hash() const override;
  // A new object of the same class.
  virtual Ref<PXPath> copy() const;

  bool isCodable() const override { return true; }
  // The bytes of cPath with the NUL; under "path" when keyed.
  void encodeWithCoder(Encoder& encoder) const override;
  // Makes PXPath and PXSubPath known to the class registry.
  static void registerClasses();

 protected:
  // What a path is made of: a block that holds the path, a NUL, the name and a NUL, or, for a sub
  // path, the name alone. One block, because folders are read into hundreds of thousands of these.
  struct Bytes {
    std::unique_ptr<char[]> block;
    std::uint32_t nameOffset;

    static Bytes of(std::string_view cPath);
    static Bytes of(std::string_view cPath, std::string_view cName);
    static Bytes ofName(std::string_view cName);
  };
  // What is made on demand.
  struct Derived;

  static std::string decodePath(Decoder& decoder);

  std::string targetInDirectory(const std::optional<std::string>& directory,
                                const std::optional<std::string>& name) const;
  std::string standardizedTarget(const std::string& bytes) const;

  Derived& derived() const REQUIRES(pathLock_);
  // Copies what the other has already made.
  void shareDerived(const PXPath& other);
  Ref<PXPath> self() const;

  mutable SpinLock pathLock_;
  const std::uint32_t nameOffset_;
  const std::unique_ptr<char[]> bytes_;
  mutable std::unique_ptr<Derived> derived_ GUARDED_BY(pathLock_);
};

}  // namespace hoist
