// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <string>
#include <vector>

#include "platform/ArchiveFormat.h"
#include "platform/KeyedArchiver.h"
#include "platform/PropertyListNode.h"
#include "values/Coder.h"

namespace hoist {

// In a list of allowed classes: every class.
inline constexpr const char* kAnyClass = "NSObject";

// Reads keyed archives, in the binary or the XML form, of this program or of the original
// platform's NSKeyedArchiver. An object that is referred to several times is made once. A class
// that is not known is read as the nearest known one among those it says it derives from; the
// mutable kinds of strings, data, arrays and dictionaries are read as the plain ones.
//
// The archive may be hostile: an object that contains itself, one more than 64 objects deep, one
// that would be much larger than the archive were nothing shared, and a field of another type are
// refused with DecodeError. Belongs to one thread.
class KeyedUnarchiver final : public Decoder {
 public:
  // Raises hoist::Exception kInvalidArgumentException for bytes that are no keyed archive.
  explicit KeyedUnarchiver(const Data& archive);
  ~KeyedUnarchiver() override;

  // The object under the root key; nothing when there is none. Both raise hoist::Exception
  // kInvalidArgumentException for an archive that is refused, or holds a class that is not known or
  // not allowed.
  static std::optional<Value> unarchiveObjectWithData(const Data& archive);
  static std::optional<Value> unarchivedObjectOfClasses(const AllowedClasses& classes,
                                                        const Data& archive);

  // decodeObject, but raising like the two above.
  std::optional<Value> decodeTopLevelObject(std::string_view key, const AllowedClasses& classes);

  // The class that the object under the key would have, without making it; the class's own word
  // when it is not known. Nothing when there is no object.
  std::optional<std::string> classNameForKey(std::string_view key) const;

  bool isKeyed() const override { return true; }
  using Decoder::decodeBytes;
  using Decoder::decodeObject;
  bool containsKey(std::string_view key) const override;
  std::optional<Value> decodeObject(std::string_view key, const AllowedClasses& allowed) override;
  std::int64_t decodeInteger(std::string_view key) override;
  bool decodeBool(std::string_view key) override;
  double decodeDouble(std::string_view key) override;
  std::optional<Data> decodeBytes(std::string_view key) override;

 private:
  using UID = std::uint64_t;
  // What has been made of a place.
  struct Made;
  // The allowed classes, interned: an index into allowedSets_.
  using AllowedSet = std::size_t;

  plist_t nodeForKey(std::string_view key) const;
  std::optional<Value> scalarForKey(std::string_view key);
  AllowedSet intern(const AllowedClasses& allowed);
  plist_t objectAt(UID uid) const;
  std::optional<Value> object(UID uid, AllowedSet allowed);
  unsigned deeperByOne() const;
  Value make(plist_t node, AllowedSet allowed);
  Value makeInstance(plist_t node, AllowedSet allowed);
  Value makeDictionary(plist_t node, AllowedSet allowed);
  Value makeObject(const std::string& className, plist_t node);
  std::vector<Value> elements(plist_t node, const char* key, AllowedSet allowed);
  const std::string& classOf(plist_t node) const;
  std::string resolveClass(plist_t classNode) const;

  platform::PropertyListNode archive_;
  std::vector<plist_t> objects_;
  plist_t current_ = nullptr;  // the dictionary that keys are looked up in
  unsigned depth_ = 0;
  platform::ExpansionBudget budget_;
  std::vector<AllowedClasses> allowedSets_;
  std::map<UID, Made> made_;
  mutable std::map<UID, std::string> classNames_;
};

}  // namespace hoist
