// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/KeyedArchiver.h"

#include "platform/ArchiveFormat.h"
#include "platform/Exception.h"
#include "platform/Scoped.h"
#include "values/ClassRegistry.h"

namespace hoist {

using namespace platform;

namespace {

[[noreturn]] void refuse(const std::string& why) {
  Exception(Exception::kInvalidArgumentException, "cannot archive: " + why).raise();
}

// The class, the classes it derives from, the root class.
std::vector<std::string> hierarchyOf(const std::string& className) {
  std::vector<std::string> names{className};
  auto info = ClassRegistry::shared().find(className);
  // Bounded, should the registered classes form a ring.
  while (info && !info->superclass.empty() && names.size() < kMaximumArchiveDepth) {
    names.push_back(info->superclass);
    info = ClassRegistry::shared().find(info->superclass);
  }
  names.emplace_back("NSObject");
  return names;
}

const void* addressOf(const Value& container) {
  return container.array() ? static_cast<const void*>(container.array()) : container.dictionary();
}

}  // namespace

KeyedArchiver::KeyedArchiver() : top_(plist_new_dict()), current_(top_.get()) {
  append(plist_new_string(std::string(kNullText).c_str()));
}

KeyedArchiver::KeyedArchiver(AllowedClasses classes)
    : classes_(std::move(classes)), top_(plist_new_dict()), current_(top_.get()) {
  append(plist_new_string(std::string(kNullText).c_str()));
}

KeyedArchiver::~KeyedArchiver() = default;

Data KeyedArchiver::archivedDataWithRootObject(const Value& root) {
  return KeyedArchiver().archived(root);
}

Data KeyedArchiver::archivedDataWithRootObject(const Value& root, AllowedClasses classes) {
  return KeyedArchiver(std::move(classes)).archived(root);
}

Data KeyedArchiver::archived(const Value& root) {
  encodeObject(kKeyedArchiveRootObjectKey, root);
  return finishEncoding();
}

Data KeyedArchiver::finishEncoding() {
  PropertyListNode archive(plist_new_dict());
  plist_dict_set_item(archive.get(), kVersionKey, plist_new_uint(kArchiveVersion));
  plist_t objects = plist_new_array();
  plist_dict_set_item(archive.get(), kObjectsKey, objects);
  for (auto& object : objects_) plist_array_append_item(objects, object.release());
  objects_.clear();
  plist_dict_set_item(archive.get(), kArchiverKey,
                      plist_new_string(std::string(kArchiverName).c_str()));
  plist_dict_set_item(archive.get(), kTopKey, top_.release());
  return writePropertyList(archive.get(), PropertyListFormat::Binary);
}

void KeyedArchiver::encodeObject(std::string_view key, const std::optional<Value>& value) {
  if (value) set(key, plist_new_uid(place(*value)));
}
void KeyedArchiver::encodeInteger(std::string_view key, std::int64_t value) {
  set(key, plist_new_uint(static_cast<std::uint64_t>(value)));
}
void KeyedArchiver::encodeBool(std::string_view key, bool value) {
  set(key, plist_new_bool(value));
}
void KeyedArchiver::encodeDouble(std::string_view key, double value) {
  set(key, plist_new_real(value));
}
void KeyedArchiver::encodeBytes(std::string_view key, std::span<const std::uint8_t> bytes) {
  set(key, nodeFromLeaf(Data(bytes), PropertyListFormat::Binary));
}

bool KeyedArchiver::isArchivable(const Object& object) const {
  if (!object.isCodable()) return false;
  return !classes_ || ClassRegistry::shared().isKindOf(object.className(), *classes_);
}

void KeyedArchiver::set(std::string_view key, plist_t node) {
  plist_dict_set_item(current_, writableText(archiveKey(key)).c_str(), node);
}

KeyedArchiver::UID KeyedArchiver::place(const Value& value) {
  switch (value.kind()) {
    case Value::Kind::String:
      return placeText(*value.string());
    case Value::Kind::Array:
    case Value::Kind::Dictionary:
      return placeContainer(value);
    case Value::Kind::Object:
      return placeObject(value);
    case Value::Kind::Null:
      return appendInstance(value.className(), plist_new_dict());
    case Value::Kind::Date: {
      plist_t dictionary = plist_new_dict();
      double time = value.date()->secondsSince(Date(kArchiveEpoch));
      plist_dict_set_item(dictionary, kTimeKey, plist_new_real(time));
      return appendInstance(value.className(), dictionary);
    }
    default:
      return append(nodeFromLeaf(value, PropertyListFormat::Binary));
  }
}

KeyedArchiver::UID KeyedArchiver::placeText(const std::string& text) {
  auto [known, isNew] = texts_.try_emplace(text, objects_.size());
  if (!isNew) return known->second;
  if (text != kNullText) return append(nodeFromLeaf(text, PropertyListFormat::Binary));
  // As plain text it would read as no object.
  plist_t dictionary = plist_new_dict();
  plist_dict_set_item(dictionary, kStringKey, plist_new_string(text.c_str()));
  return known->second = appendInstance("NSString", dictionary);
}

KeyedArchiver::UID KeyedArchiver::placeClass(const std::string& className) {
  auto [known, isNew] = classUIDs_.try_emplace(className, objects_.size());
  if (!isNew) return known->second;
  plist_t dictionary = plist_new_dict();
  plist_dict_set_item(dictionary, kClassNameKey, plist_new_string(className.c_str()));
  plist_t classes = plist_new_array();
  for (const std::string& name : hierarchyOf(className)) {
    plist_array_append_item(classes, plist_new_string(name.c_str()));
  }
  plist_dict_set_item(dictionary, kClassesKey, classes);
  return append(dictionary);
}

KeyedArchiver::UID KeyedArchiver::placeContainer(const Value& value) {
  auto known = shared_.find(addressOf(value));
  if (known != shared_.end()) return known->second;
  if (depth_ == kMaximumArchiveDepth) return placeDescription(value);
  Scoped deeper(depth_, depth_ + 1);

  plist_t dictionary = plist_new_dict();
  UID uid = appendInstance(value.className(), dictionary);
  shared_.emplace(addressOf(value), uid);
  kept_.push_back(value);
  plist_t elements = plist_new_array();
  auto add = [&](plist_t array, UID element) {
    plist_array_append_item(array, plist_new_uid(element));
  };
  if (const Dictionary* entries = value.dictionary()) {
    plist_t keys = plist_new_array();
    plist_dict_set_item(dictionary, kKeysKey, keys);
    for (const auto& entry : *entries) add(keys, placeText(entry.first));
  }
  plist_dict_set_item(dictionary, kElementsKey, elements);
  if (const Array* array = value.array()) {
    for (const Value& element : *array) add(elements, place(element));
  } else {
    for (const auto& entry : *value.dictionary()) add(elements, place(entry.second));
  }
  return uid;
}

KeyedArchiver::UID KeyedArchiver::placeObject(const Value& value) {
  Ref<Object> object = value.object();
  auto known = shared_.find(object.get());
  if (known != shared_.end()) return known->second;
  if (depth_ == kMaximumArchiveDepth || !isArchivable(*object)) return placeDescription(value);
  Scoped deeper(depth_, depth_ + 1);

  plist_t dictionary = plist_new_dict();
  UID uid = appendInstance(object->className(), dictionary);
  shared_.emplace(object.get(), uid);
  kept_.push_back(value);
  Scoped inside(current_, dictionary);
  object->encodeWithCoder(*this);
  return uid;
}

KeyedArchiver::UID KeyedArchiver::placeDescription(const Value& value) {
  if (classes_) return placeText(value.description());
  refuse(depth_ == kMaximumArchiveDepth ? "objects more than 64 deep" : value.className());
}

KeyedArchiver::UID KeyedArchiver::append(plist_t node) {
  objects_.emplace_back(node);
  return objects_.size() - 1;
}

KeyedArchiver::UID KeyedArchiver::appendInstance(const std::string& className, plist_t dictionary) {
  UID uid = append(dictionary);
  plist_dict_set_item(dictionary, kClassKey, plist_new_uid(placeClass(className)));
  return uid;
}

}  // namespace hoist
