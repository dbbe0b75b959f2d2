// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/KeyedUnarchiver.h"

#include <array>
#include <utility>

#include "platform/Exception.h"
#include "platform/Scoped.h"
#include "values/ClassRegistry.h"

// An archive is a flat list of objects that refer to each other by place. Nothing is made before it
// is asked for, and what is made at a place is kept, so that the next reference gets the same
// object. Each place also keeps what it costs written out: a second reference is charged like the
// first, because whoever describes or compares the result pays for both.

namespace hoist {

using namespace platform;

struct KeyedUnarchiver::Made {
  // Nothing while it is being made.
  std::optional<Value> value;
  // A container was checked against these only; what an object holds was checked by its class.
  AllowedSet allowed = 0;
  ExpansionBudget::Extent extent;
};

namespace {

constexpr const char* kReferenceInXML = "CF$UID";

[[noreturn]] void refuse(const std::string& why) {
  throw DecodeError(why);
}

[[noreturn]] void raiseIncomprehensible(const std::string& why) {
  Exception(Exception::kInvalidArgumentException, "incomprehensible archive: " + why).raise();
}

// The classes of values, and which one each name is read as.
constexpr std::array<std::pair<std::string_view, std::string_view>, 10> kValueClasses{{
    {"NSString", "NSString"},
    {"NSMutableString", "NSString"},
    {"NSData", "NSData"},
    {"NSMutableData", "NSData"},
    {"NSDate", "NSDate"},
    {"NSNull", "NSNull"},
    {"NSArray", "NSArray"},
    {"NSMutableArray", "NSArray"},
    {"NSDictionary", "NSDictionary"},
    {"NSMutableDictionary", "NSDictionary"},
}};

std::string knownClass(const std::string& name) {
  for (const auto& [from, to] : kValueClasses) {
    if (name == from) return std::string(to);
  }
  auto info = ClassRegistry::shared().find(name);
  return info && info->decode ? name : std::string();
}

std::optional<std::uint64_t> uidOf(plist_t node) {
  std::uint64_t uid = 0;
  if (plist_get_node_type(node) == PLIST_UID) {
    plist_get_uid_val(node, &uid);
    return uid;
  }
  if (plist_get_node_type(node) != PLIST_DICT || plist_dict_get_size(node) != 1) return {};
  plist_t reference = plist_dict_get_item(node, kReferenceInXML);
  if (plist_get_node_type(reference) != PLIST_UINT) return {};
  plist_get_uint_val(reference, &uid);
  return uid;
}

std::string textForKey(plist_t dictionary, const char* key) {
  plist_t node = plist_dict_get_item(dictionary, key);
  if (plist_get_node_type(node) != PLIST_STRING) refuse(std::string("no text under ") + key);
  return textOfNode(node);
}

Value makeString(plist_t node) {
  plist_t bytes = plist_dict_get_item(node, kBytesKey);
  if (plist_get_node_type(bytes) != PLIST_DATA) return textForKey(node, kStringKey);
  return leafFromNode(bytes)->data()->view();
}

Value makeData(plist_t node) {
  for (const char* key : {kDataKey, kBytesKey}) {
    plist_t bytes = plist_dict_get_item(node, key);
    if (plist_get_node_type(bytes) == PLIST_DATA) return *leafFromNode(bytes);
  }
  refuse("data without bytes");
}

Value makeDate(plist_t node) {
  auto time = leafFromNode(plist_dict_get_item(node, kTimeKey));
  if (!time || !time->isNumber()) refuse("a date without a time");
  return Date(kArchiveEpoch).plusSeconds(*time->doubleValue());
}

std::uint64_t payloadOf(const Value& value) {
  if (value.string()) return value.string()->size();
  return value.data() ? value.data()->size() : 0;
}

template <class Use>
auto raisingInvalidArgument(Use&& use) {
  try {
    return use();
  } catch (const DecodeError& error) {
    Exception(Exception::kInvalidArgumentException,
              std::string("cannot unarchive: ") + error.what())
        .raise();
  }
}

}  // namespace

KeyedUnarchiver::KeyedUnarchiver(const Data& archive) : budget_(archive.size()) {
  try {
    archive_ = parsePropertyList(archive.bytes());
  } catch (const PropertyListError& error) {
    raiseIncomprehensible(error.what());
  }
  plist_t objects = plist_dict_get_item(archive_.get(), kObjectsKey);
  auto version = leafFromNode(plist_dict_get_item(archive_.get(), kVersionKey));
  current_ = plist_dict_get_item(archive_.get(), kTopKey);
  if (version != Value(kArchiveVersion)) raiseIncomprehensible("not this version of an archive");
  if (plist_get_node_type(objects) != PLIST_ARRAY) raiseIncomprehensible("no objects");
  if (plist_get_node_type(current_) != PLIST_DICT) raiseIncomprehensible("no outermost objects");
  forEachElement(objects, [&](plist_t object) { objects_.push_back(object); });
}

KeyedUnarchiver::~KeyedUnarchiver() = default;

std::optional<Value> KeyedUnarchiver::unarchiveObjectWithData(const Data& archive) {
  return unarchivedObjectOfClasses({kAnyClass}, archive);
}

std::optional<Value> KeyedUnarchiver::unarchivedObjectOfClasses(const AllowedClasses& classes,
                                                                const Data& archive) {
  return KeyedUnarchiver(archive).decodeTopLevelObject(kKeyedArchiveRootObjectKey, classes);
}

std::optional<Value> KeyedUnarchiver::decodeTopLevelObject(std::string_view key,
                                                           const AllowedClasses& classes) {
  return raisingInvalidArgument([&] { return decodeObject(key, classes); });
}

std::optional<std::string> KeyedUnarchiver::classNameForKey(std::string_view key) const {
  return raisingInvalidArgument([&]() -> std::optional<std::string> {
    plist_t reference = nodeForKey(key);
    if (!reference) return std::nullopt;
    auto uid = uidOf(reference);
    if (!uid) refuse("a field that is no object");
    plist_t node = objectAt(*uid);
    if (!node) return std::nullopt;
    if (auto leaf = leafFromNode(node)) return leaf->className();
    const std::string& known = classOf(node);
    if (!known.empty()) return known;
    return textForKey(objectAt(*uidOf(plist_dict_get_item(node, kClassKey))), kClassNameKey);
  });
}

plist_t KeyedUnarchiver::nodeForKey(std::string_view key) const {
  return plist_dict_get_item(current_, archiveKey(key).c_str());
}

bool KeyedUnarchiver::containsKey(std::string_view key) const {
  return nodeForKey(key) != nullptr;
}

std::optional<Value> KeyedUnarchiver::decodeObject(std::string_view key,
                                                   const AllowedClasses& allowed) {
  plist_t node = nodeForKey(key);
  if (!node) return std::nullopt;
  auto uid = uidOf(node);
  if (!uid) refuse("a field that is no object: " + std::string(key));
  return object(*uid, intern(allowed));
}

// A plain number of the archive, or a number object.
std::optional<Value> KeyedUnarchiver::scalarForKey(std::string_view key) {
  plist_t node = nodeForKey(key);
  if (!node) return std::nullopt;
  auto uid = uidOf(node);
  auto value = uid ? leafFromNode(objectAt(*uid)) : leafFromNode(node);
  if (!value || (!value->isNumber() && !value->boolean())) {
    refuse("a field that is no number: " + std::string(key));
  }
  return value;
}

std::int64_t KeyedUnarchiver::decodeInteger(std::string_view key) {
  auto value = scalarForKey(key);
  return value ? *value->integerValue() : 0;
}

bool KeyedUnarchiver::decodeBool(std::string_view key) {
  auto value = scalarForKey(key);
  return value && *value->boolValue();
}

double KeyedUnarchiver::decodeDouble(std::string_view key) {
  auto value = scalarForKey(key);
  return value ? *value->doubleValue() : 0.0;
}

std::optional<Data> KeyedUnarchiver::decodeBytes(std::string_view key) {
  plist_t node = nodeForKey(key);
  if (!node) return std::nullopt;
  auto uid = uidOf(node);
  auto value = uid ? object(*uid, intern({"NSData"})) : leafFromNode(node);
  if (!value || !value->data()) refuse("a field that is no data: " + std::string(key));
  return *value->data();
}

KeyedUnarchiver::AllowedSet KeyedUnarchiver::intern(const AllowedClasses& allowed) {
  for (AllowedSet i = 0; i < allowedSets_.size(); ++i) {
    if (allowedSets_[i] == allowed) return i;
  }
  allowedSets_.push_back(allowed);
  return allowedSets_.size() - 1;
}

// Null for the place that stands for no object.
plist_t KeyedUnarchiver::objectAt(UID uid) const {
  if (uid >= objects_.size()) refuse("a reference to no place");
  plist_t node = objects_[uid];
  const char* text = plist_get_string_ptr(node, nullptr);  // null for any other kind
  return text && text == kNullText ? nullptr : node;
}

std::optional<Value> KeyedUnarchiver::object(UID uid, AllowedSet allowed) {
  plist_t node = objectAt(uid);
  if (!node) return std::nullopt;
  auto [known, isNew] = made_.try_emplace(uid);
  Made& made = known->second;
  if (!isNew) {
    if (!made.value) refuse("an object that contains itself");
    bool isContainer = made.value->array() || made.value->dictionary();
    if (!isContainer || made.allowed == allowed) {
      requireAllowed(made.value->className(), allowedSets_[allowed]);
      budget_.spend(made.extent);
      return made.value;
    }
    made.value.reset();
  }
  auto before = budget_.spent();
  Value value = make(node, allowed);
  budget_.spend({1, payloadOf(value)});
  made = {value, allowed, budget_.spentSince(before)};
  return value;
}

unsigned KeyedUnarchiver::deeperByOne() const {
  if (depth_ == kMaximumArchiveDepth) refuse("objects more than 64 deep");
  return depth_ + 1;
}

Value KeyedUnarchiver::make(plist_t node, AllowedSet allowed) {
  if (auto leaf = leafFromNode(node)) {
    requireAllowed(leaf->className(), allowedSets_[allowed]);
    return *leaf;
  }
  return makeInstance(node, allowed);
}

Value KeyedUnarchiver::makeInstance(plist_t node, AllowedSet allowed) {
  const std::string& className = classOf(node);
  if (className.empty()) refuse("an object of an unknown class");
  requireAllowed(className, allowedSets_[allowed]);
  if (className == "NSArray") return elements(node, kElementsKey, allowed);
  if (className == "NSDictionary") return makeDictionary(node, allowed);
  if (className == "NSString") return makeString(node);
  if (className == "NSData") return makeData(node);
  if (className == "NSDate") return makeDate(node);
  if (className == "NSNull") return Value();
  return makeObject(className, node);
}

std::vector<Value> KeyedUnarchiver::elements(plist_t node, const char* key, AllowedSet allowed) {
  plist_t array = plist_dict_get_item(node, key);
  if (plist_get_node_type(array) != PLIST_ARRAY) refuse(std::string("no list under ") + key);
  Scoped deeper(depth_, deeperByOne());
  std::vector<Value> values;
  forEachElement(array, [&](plist_t element) {
    auto uid = uidOf(element);
    auto value = uid ? object(*uid, allowed) : std::nullopt;
    if (!value) refuse("a list with something that is no object");
    values.push_back(std::move(*value));
  });
  return values;
}

Value KeyedUnarchiver::makeDictionary(plist_t node, AllowedSet allowed) {
  std::vector<Value> keys = elements(node, kKeysKey, intern({"NSString"}));
  std::vector<Value> values = elements(node, kElementsKey, allowed);
  if (keys.size() != values.size()) refuse("a dictionary with more keys or more values");
  Dictionary dictionary;
  for (std::size_t i = 0; i < keys.size(); ++i) {
    dictionary.insert_or_assign(*keys[i].string(), std::move(values[i]));
  }
  return dictionary;
}

Value KeyedUnarchiver::makeObject(const std::string& className, plist_t node) {
  auto info = ClassRegistry::shared().find(className);
  if (!info || !info->decode) refuse("an object of an unknown class");
  Scoped deeper(depth_, deeperByOne());
  Scoped inside(current_, node);
  Ref<Object> object = info->decode(*this);
  if (!object) refuse("a " + className + " that could not be made");
  return object;
}

// The known class of an object's dictionary; empty when it has none. Looked up once a class.
const std::string& KeyedUnarchiver::classOf(plist_t node) const {
  auto uid = uidOf(plist_dict_get_item(node, kClassKey));
  if (!uid) refuse("an object without a class");
  auto [known, isNew] = classNames_.try_emplace(*uid);
  if (isNew) known->second = resolveClass(objectAt(*uid));
  return known->second;
}

std::string KeyedUnarchiver::resolveClass(plist_t classNode) const {
  if (plist_get_node_type(classNode) != PLIST_DICT) refuse("a class that is none");
  std::string className = knownClass(textForKey(classNode, kClassNameKey));
  plist_t classes = plist_dict_get_item(classNode, kClassesKey);
  if (plist_get_node_type(classes) != PLIST_ARRAY) return className;
  forEachElement(classes, [&](plist_t name) {
    if (className.empty() && plist_get_node_type(name) == PLIST_STRING) {
      className = knownClass(textOfNode(name));
    }
  });
  return className;
}

}  // namespace hoist
