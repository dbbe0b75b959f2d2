// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <string>
#include <vector>

#include "platform/PropertyListNode.h"
#include "values/Coder.h"

namespace hoist {

// The key under which an archive of one object holds it.
inline constexpr const char* kKeyedArchiveRootObjectKey = "root";

// Writes objects into a keyed archive: a binary property list in the layout of the original
// platform's NSKeyedArchiver, readable there. What is shared is written once: objects, arrays and
// dictionaries by identity, strings by their text. Belongs to one thread.
class KeyedArchiver final : public Encoder {
 public:
  // Archives every object that is codable. Any other, and what stands more than 64 objects deep,
  // raises hoist::Exception kInvalidArgumentException.
  KeyedArchiver();
  // Archives objects of these classes, and of those derived from them, as objects; in place of any
  // other, and of what stands too deep, its description. Raises nothing.
  explicit KeyedArchiver(AllowedClasses classes);
  ~KeyedArchiver() override;

  // An archive with the one object under the root key.
  static Data archivedDataWithRootObject(const Value& root);
  static Data archivedDataWithRootObject(const Value& root, AllowedClasses classes);

  // The archive of all that was encoded; ends the archiver's use.
  Data finishEncoding();

  bool isKeyed() const override { return true; }
  using Encoder::encodeBytes;
  using Encoder::encodeObject;
  void encodeObject(std::string_view key, const std::optional<Value>& value) override;
  void encodeInteger(std::string_view key, std::int64_t value) override;
  void encodeBool(std::string_view key, bool value) override;
  void encodeDouble(std::string_view key, double value) override;
  void encodeBytes(std::string_view key, std::span<const std::uint8_t> bytes) override;

 private:
  using UID = std::uint64_t;

  Data archived(const Value& root);
  bool isArchivable(const Object& object) const;
  void set(std::string_view key, plist_t node);
  // The place of the value among the objects, where it is put if it is not there yet.
  UID place(const Value& value);
  UID placeText(const std::string& text);
  UID placeClass(const std::string& className);
  UID placeContainer(const Value& value);
  UID placeObject(const Value& value);
  UID placeDescription(const Value& value);
  UID append(plist_t node);
  UID appendInstance(const std::string& className, plist_t dictionary);

  const std::optional<AllowedClasses> classes_;  // none: every class that is codable
  unsigned depth_ = 0;
  platform::PropertyListNode top_;
  plist_t current_;  // the dictionary that keys go to: the top one, or that of an object
  std::vector<platform::PropertyListNode> objects_;
  std::map<std::string, UID> texts_;
  std::map<std::string, UID> classUIDs_;
  std::map<const void*, UID> shared_;
  // Values whose address is in shared_: kept, so that no other value gets it.
  std::vector<Value> kept_;
};

}  // namespace hoist
