// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// Reading goes in two steps, because the fields of an object are asked for by name, in whatever
// order, and what may stand in them is known only then: first the message becomes plain values in
// which every object is still its name and fields (EncodedObject), then these are resolved against
// the allowed classes, each object's class asking for its own fields. The depth of it all is
// bounded by the protocol's 64 container levels, so recursion is, too.

#include "platform/xpc/Values.h"

#include "platform/dbus/Names.h"
#include "platform/xpc/FileHandle.h"
#include "values/ClassRegistry.h"

namespace hoist::xpc {
namespace {

constexpr std::string_view kObjectSignature = "(sa{sv})";
constexpr std::string_view kDateClass = "NSDate";
constexpr std::string_view kDateField = "seconds";
constexpr std::string_view kNullClass = "NSNull";

// ----- Writing -----------------------------------------------------------------------------------

void writeVariant(dbus::MessageWriter& writer, const Value& value);

// Writes the entries of an a{sv} that somebody has opened.
class WireEncoder final : public Encoder {
 public:
  explicit WireEncoder(dbus::MessageWriter& writer) : writer_(writer) {}

  using Encoder::encodeBytes;
  using Encoder::encodeObject;

  bool isKeyed() const override { return true; }

  void encodeObject(std::string_view key, const std::optional<Value>& value) override {
    if (value) entry(key, [&] { writeVariant(writer_, *value); });
  }
  void encodeInteger(std::string_view key, std::int64_t value) override {
    encodeObject(key, Value(static_cast<long long>(value)));
  }
  void encodeBool(std::string_view key, bool value) override { encodeObject(key, Value(value)); }
  void encodeDouble(std::string_view key, double value) override {
    encodeObject(key, Value(value));
  }
  void encodeBytes(std::string_view key, std::span<const std::uint8_t> bytes) override {
    entry(key, [&] {
      writer_.openVariant("ay");
      writer_.appendBytes(bytes);
      writer_.close();
    });
  }

 private:
  template <class WriteValue>
  void entry(std::string_view key, WriteValue writeValue) {
    writer_.openDictEntry();
    writeString(writer_, key);
    writeValue();
    writer_.close();
  }

  dbus::MessageWriter& writer_;
};

// An object of a value class, which no registry knows.
template <class WriteFields>
void writeNamedObject(dbus::MessageWriter& writer, std::string_view className,
                      WriteFields writeFields) {
  writer.openStruct();
  writer.appendString(className);
  writer.openArray();
  writeFields();
  writer.close();
  writer.close();
}

void writeDate(dbus::MessageWriter& writer, Date date) {
  writeNamedObject(writer, kDateClass,
                   [&] { WireEncoder(writer).encodeDouble(kDateField, date.secondsSince1970()); });
}

void writeArray(dbus::MessageWriter& writer, const Array& array) {
  writer.openArray();
  for (const Value& element : array) writeVariant(writer, element);
  writer.close();
}

std::string_view variantSignature(const Value& value) {
  switch (value.kind()) {
    case Value::Kind::Boolean:
      return "b";
    case Value::Kind::Integer:
      return "x";
    case Value::Kind::Double:
      return "d";
    case Value::Kind::String:
      return "s";
    case Value::Kind::Data:
      return "ay";
    case Value::Kind::Array:
      return "av";
    case Value::Kind::Dictionary:
      return "a{sv}";
    case Value::Kind::Null:
    case Value::Kind::Date:
      return kObjectSignature;
    case Value::Kind::Object:
      return value.objectAs<FileHandle>() ? "h" : kObjectSignature;
  }
  return {};
}

void writeVariantObject(dbus::MessageWriter& writer, const Ref<Object>& object) {
  if (auto handle = as<FileHandle>(object)) {
    writer.appendFileDescriptor(FileDescriptor::duplicate(handle->descriptor()));
  } else {
    writeObject(writer, *object);
  }
}

void writeVariant(dbus::MessageWriter& writer, const Value& value) {
  writer.openVariant(variantSignature(value));
  switch (value.kind()) {
    case Value::Kind::Null:
      writeNamedObject(writer, kNullClass, [] {});
      break;
    case Value::Kind::Boolean:
      writer.appendBoolean(*value.boolean());
      break;
    case Value::Kind::Integer:
      writer.appendInt64(*value.integer());
      break;
    case Value::Kind::Double:
      writer.appendDouble(*value.real());
      break;
    case Value::Kind::String:
      writeString(writer, *value.string());
      break;
    case Value::Kind::Data:
      writer.appendBytes(value.data()->bytes());
      break;
    case Value::Kind::Date:
      writeDate(writer, *value.date());
      break;
    case Value::Kind::Array:
      writeArray(writer, *value.array());
      break;
    case Value::Kind::Dictionary:
      writeDictionary(writer, *value.dictionary());
      break;
    case Value::Kind::Object:
      writeVariantObject(writer, value.object());
      break;
  }
  writer.close();
}

// ----- Reading: a message to plain values --------------------------------------------------------

// An object as it came: not yet one of its class.
struct EncodedObject final : Object {
  std::string name;
  Dictionary fields;

  std::string className() const override { return name; }
};

Value readAny(dbus::MessageReader& reader);

Value readVariant(dbus::MessageReader& reader) {
  reader.enterVariant();
  Value value = readAny(reader);
  reader.leave();
  return value;
}

Dictionary readEntries(dbus::MessageReader& reader) {
  Dictionary dictionary;
  reader.enterArray();
  while (reader.hasMore()) {
    reader.enterDictEntry();
    std::string key(reader.readString());
    dictionary.insert_or_assign(std::move(key), readAny(reader));
    reader.leave();
  }
  reader.leave();
  return dictionary;
}

Ref<EncodedObject> readEncodedObject(dbus::MessageReader& reader) {
  auto object = make<EncodedObject>();
  reader.enterStruct();
  object->name = reader.readString();
  object->fields = readEntries(reader);
  reader.leave();
  return object;
}

Value readAnyArray(dbus::MessageReader& reader) {
  std::string_view signature = reader.peekSignature();
  if (signature == "ay") return Data(reader.readBytes());
  if (signature.starts_with("a{")) return readEntries(reader);
  Array array;
  reader.enterArray();
  while (reader.hasMore()) array.push_back(readAny(reader));
  reader.leave();
  return array;
}

Value readAny(dbus::MessageReader& reader) {
  switch (reader.peekType()) {
    case 'b':
      return reader.readBoolean();
    case 'y':
      return static_cast<int>(reader.readByte());
    case 'n':
      return static_cast<int>(reader.readInt16());
    case 'q':
      return static_cast<int>(reader.readUInt16());
    case 'i':
      return reader.readInt32();
    case 'u':
      return reader.readUInt32();
    case 'x':
      return static_cast<long long>(reader.readInt64());
    case 't':
      return static_cast<unsigned long long>(reader.readUInt64());
    case 'd':
      return reader.readDouble();
    case 's':
      return reader.readString();
    case 'h':
      return Value(Ref<Object>(make<FileHandle>(reader.readFileDescriptor())));
    case 'v':
      return readVariant(reader);
    case '(':
      return Value(Ref<Object>(readEncodedObject(reader)));
    case 'a':
      return readAnyArray(reader);
    default:
      throw dbus::TypeError("a value is of a type that has no meaning there");
  }
}

// ----- Reading: plain values to objects ----------------------------------------------------------

void requireAllowed(std::string_view className, const AllowedClasses& allowed) {
  if (allowed.contains(className)) return;
  if (className == "NSBoolean" && allowed.contains("NSNumber")) return;
  if (ClassRegistry::shared().isKindOf(className, allowed)) return;
  throw DecodeError("an object of class " + std::string(className) + " is not allowed here");
}

Value resolve(const Value& value, const AllowedClasses& allowed);

// Over the fields of one object.
class WireDecoder final : public Decoder {
 public:
  explicit WireDecoder(const Dictionary& fields) : fields_(fields) {}

  using Decoder::decodeBytes;
  using Decoder::decodeObject;

  bool isKeyed() const override { return true; }
  bool containsKey(std::string_view key) const override { return find(key) != nullptr; }

  std::optional<Value> decodeObject(std::string_view key, const AllowedClasses& allowed) override {
    const Value* value = find(key);
    return value ? std::optional(resolve(*value, allowed)) : std::nullopt;
  }
  std::int64_t decodeInteger(std::string_view key) override {
    return scalar(key, &Value::integer).value_or(0);
  }
  bool decodeBool(std::string_view key) override {
    return scalar(key, &Value::boolean).value_or(false);
  }
  double decodeDouble(std::string_view key) override {
    const Value* value = find(key);
    if (!value) return 0;
    if (!value->isNumber()) mismatch(key);
    return *value->doubleValue();
  }
  std::optional<Data> decodeBytes(std::string_view key) override {
    const Value* value = find(key);
    if (!value) return std::nullopt;
    if (!value->data()) mismatch(key);
    return *value->data();
  }

 private:
  const Value* find(std::string_view key) const {
    auto found = fields_.find(key);
    return found == fields_.end() ? nullptr : &found->second;
  }
  template <class T>
  std::optional<T> scalar(std::string_view key, std::optional<T> (Value::*get)() const) const {
    const Value* value = find(key);
    if (!value) return std::nullopt;
    auto result = (value->*get)();
    if (!result) mismatch(key);
    return result;
  }
  [[noreturn]] static void mismatch(std::string_view key) {
    throw DecodeError("the field " + std::string(key) + " is of another type");
  }

  const Dictionary& fields_;
};

Value makeDate(const Dictionary& fields) {
  WireDecoder decoder(fields);
  if (!decoder.containsKey(kDateField)) throw DecodeError("a date has no seconds");
  return Date::fromSeconds(decoder.decodeDouble(kDateField));
}

// Whatever a class raises while it remakes an object refuses the message. Only its own words about
// the coding go back to the peer: others may tell what is none of its business.
Ref<Object> makeRegisteredObject(const EncodedObject& encoded) {
  auto info = ClassRegistry::shared().find(encoded.name);
  if (!info || !info->decode)
    throw DecodeError("objects of class " + encoded.name + " cannot be made here");
  Ref<Object> object;
  try {
    WireDecoder decoder(encoded.fields);
    object = info->decode(decoder);
  } catch (const DecodeError&) {
    throw;
  } catch (...) {
  }
  if (!object) throw DecodeError("an object of class " + encoded.name + " could not be made");
  return object;
}

Value resolveObject(const EncodedObject& encoded, const AllowedClasses& allowed) {
  requireAllowed(encoded.name, allowed);
  if (encoded.name == kNullClass) return Value();
  if (encoded.name == kDateClass) return makeDate(encoded.fields);
  return makeRegisteredObject(encoded);
}

Dictionary resolveEntries(const Dictionary& entries, const AllowedClasses& allowed) {
  Dictionary resolved;
  for (const auto& [key, value] : entries) {
    resolved.emplace_hint(resolved.end(), key, resolve(value, allowed));
  }
  return resolved;
}

Value resolve(const Value& value, const AllowedClasses& allowed) {
  if (auto encoded = value.objectAs<EncodedObject>()) return resolveObject(*encoded, allowed);
  requireAllowed(value.className(), allowed);
  if (const Array* array = value.array()) {
    Array resolved;
    resolved.reserve(array->size());
    for (const Value& element : *array) resolved.push_back(resolve(element, allowed));
    return resolved;
  }
  if (const Dictionary* dictionary = value.dictionary())
    return resolveEntries(*dictionary, allowed);
  return value;
}

}  // namespace

void writeString(dbus::MessageWriter& writer, std::string_view text) {
  if (dbus::isValidText(text)) {
    writer.appendString(text);
  } else {
    writer.appendString(dbus::mendedText(text));
  }
}

void writeDictionary(dbus::MessageWriter& writer, const Dictionary& dictionary) {
  writer.openArray();
  WireEncoder encoder(writer);
  for (const auto& [key, value] : dictionary) encoder.encodeObject(key, value);
  writer.close();
}

void writeObject(dbus::MessageWriter& writer, const Object& object) {
  if (!object.isCodable()) {
    throw dbus::EncodingError("an object of class " + object.className() + " cannot cross");
  }
  writeNamedObject(writer, object.className(), [&] {
    WireEncoder encoder(writer);
    object.encodeWithCoder(encoder);
  });
}

Dictionary readDictionary(dbus::MessageReader& reader, const AllowedClasses& allowed) {
  Dictionary entries = readEntries(reader);
  requireAllowed("NSDictionary", allowed);
  return resolveEntries(entries, allowed);
}

Ref<Object> readObject(dbus::MessageReader& reader, const AllowedClasses& allowed) {
  Value value = resolveObject(*readEncodedObject(reader), allowed);
  if (!value.object()) throw DecodeError("an object of a coded class is wanted here");
  return value.object();
}

}  // namespace hoist::xpc
