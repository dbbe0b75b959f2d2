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
  // What becomes of an object that cannot be archived, or stands more than 64 objects deep: the
  // invalid-argument exception, or its description in its place.
  enum class Unarchivable { Refuse, Describe };

  explicit KeyedArchiver(Unarchivable unarchivable = Unarchivable::Refuse);
  ~KeyedArchiver() override;

  // An archive with the one object under the root key. Raises hoist::Exception
  // kInvalidArgumentException.
  static Data archivedDataWithRootObject(const Value& root,
                                         Unarchivable unarchivable = Unarchivable::Refuse);

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

  Unarchivable unarchivable_;
  unsigned depth_ = 0;
  platform::PropertyListNode top_;
  plist_t current_;  // the dictionary that keys go to: the top one, or that of an object
  std::vector<platform::PropertyListNode> objects_;
  std::map<std::string, UID> texts_;
  std::map<std::string, UID> classes_;
  std::map<const void*, UID> shared_;
  // Values whose address is in shared_: kept, so that no other value gets it.
  std::vector<Value> kept_;
};

}  // namespace hoist
