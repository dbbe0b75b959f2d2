// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// Message::parse has proven that the values lie where the signature puts them, so what is checked
// here is only that the caller asks for the values that are there: as long as it does, no step can
// leave the body.
#include "platform/dbus/MessageReader.h"

#include "platform/dbus/Validator.h"

namespace hoist::dbus {

MessageReader::MessageReader(Message& message)
    : message_(message),
      bytes_(message.frame().data()),
      position_(message.bodyOffset()),
      swapped_(message.swapped()) {
  std::string_view types = message.signature();
  levels_[0] = {types.data(), types.data() + types.size(), 0, 0};
}

std::string_view MessageReader::peekSignature() const {
  if (!hasMore()) return {};
  std::string_view types(level().types, level().typesEnd - level().types);
  return types.substr(0, completeTypeLength(types));
}

char MessageReader::peekType() const {
  return hasMore() ? *level().types : 0;
}

bool MessageReader::hasMore() const {
  return level().kind == 'a' ? position_ < level().end : level().types != level().typesEnd;
}

void MessageReader::expect(char type) const {
  if (peekType() != type) {
    char actual = peekType();
    throw TypeError(std::string("expected a value of type ") + type +
                    (actual ? std::string(", found ") + actual : std::string(", found none")));
  }
}

void MessageReader::advance(std::size_t typeLength) {
  if (level().kind != 'a') level().types += typeLength;
}

void MessageReader::align(std::size_t alignment) {
  position_ += paddingTo(position_, alignment);
}

const std::uint8_t* MessageReader::take(std::size_t size) {
  const std::uint8_t* place = bytes_ + position_;
  position_ += size;
  return place;
}

template <class T>
T MessageReader::readFixed(char type) {
  expect(type);
  advance(1);
  align(sizeof(T));
  return loadNumber<T>(take(sizeof(T)), swapped_);
}

std::uint8_t MessageReader::readByte() {
  return readFixed<std::uint8_t>('y');
}
bool MessageReader::readBoolean() {
  return readFixed<std::uint32_t>('b') != 0;
}
std::int16_t MessageReader::readInt16() {
  return readFixed<std::int16_t>('n');
}
std::uint16_t MessageReader::readUInt16() {
  return readFixed<std::uint16_t>('q');
}
std::int32_t MessageReader::readInt32() {
  return readFixed<std::int32_t>('i');
}
std::uint32_t MessageReader::readUInt32() {
  return readFixed<std::uint32_t>('u');
}
std::int64_t MessageReader::readInt64() {
  return readFixed<std::int64_t>('x');
}
std::uint64_t MessageReader::readUInt64() {
  return readFixed<std::uint64_t>('t');
}
double MessageReader::readDouble() {
  return readFixed<double>('d');
}

std::string_view MessageReader::readText(char type) {
  std::size_t length = readFixed<std::uint32_t>(type);
  return {reinterpret_cast<const char*>(take(length + 1)), length};
}

std::string_view MessageReader::readString() {
  return readText('s');
}
std::string_view MessageReader::readObjectPath() {
  return readText('o');
}

std::string_view MessageReader::readSignature() {
  std::size_t length = readFixed<std::uint8_t>('g');
  return {reinterpret_cast<const char*>(take(length + 1)), length};
}

FileDescriptor MessageReader::readFileDescriptor() {
  return message_.takeFileDescriptor(readFixed<std::uint32_t>('h'));
}

std::span<const std::uint8_t> MessageReader::readBytes() {
  enterArray();
  if (*level().types != 'y') throw TypeError("expected an array of bytes");
  std::size_t length = level().end - position_;
  std::span<const std::uint8_t> value(take(length), length);
  leave();
  return value;
}

void MessageReader::enter(char kind, std::string_view types, std::size_t end) {
  levels_[++depth_] = {types.data(), types.data() + types.size(), end, kind};
}

void MessageReader::enterArray() {
  expect('a');
  std::string_view type = peekSignature();
  advance(type.size());
  align(4);
  std::size_t length = loadNumber<std::uint32_t>(take(4), swapped_);
  align(alignmentOf(type[1]));
  enter('a', type.substr(1), position_ + length);
}

void MessageReader::enterStruct() {
  enterTuple('(');
}
void MessageReader::enterDictEntry() {
  enterTuple('{');
}

void MessageReader::enterTuple(char kind) {
  expect(kind);
  std::string_view type = peekSignature();
  advance(type.size());
  align(8);
  enter(kind, type.substr(1, type.size() - 2));
}

std::string_view MessageReader::enterVariant() {
  std::size_t length = readFixed<std::uint8_t>('v');
  std::string_view type(reinterpret_cast<const char*>(take(length + 1)), length);
  enter('v', type);
  return type;
}

void MessageReader::leave() {
  if (depth_ == 0) throw TypeError("no container is entered");
  if (hasMore()) throw TypeError("a container holds more values than expected");
  --depth_;
}

void MessageReader::skip() {
  std::string_view type = peekSignature();
  if (type.empty()) throw TypeError("expected a value, found none");
  advance(type.size());
  skipValue(type);
}

void MessageReader::skipValue(std::string_view type) {
  std::size_t alignment = alignmentOf(type[0]);
  align(alignment);
  switch (type[0]) {
    case 's':
    case 'o':
      take(loadNumber<std::uint32_t>(take(4), swapped_) + std::size_t{1});
      break;
    case 'g':
      take(*take(1) + std::size_t{1});
      break;
    case 'v': {
      std::size_t length = *take(1);
      skipValue({reinterpret_cast<const char*>(take(length + 1)), length});
      break;
    }
    case 'a': {
      std::size_t length = loadNumber<std::uint32_t>(take(4), swapped_);
      align(alignmentOf(type[1]));
      take(length);
      break;
    }
    case '(':
    case '{':
      type = type.substr(1, type.size() - 2);
      while (!type.empty()) {
        std::size_t length = completeTypeLength(type);
        skipValue(type.substr(0, length));
        type.remove_prefix(length);
      }
      break;
    default:
      take(alignment);
  }
}

void MessageReader::finish() const {
  if (depth_ != 0 || hasMore()) throw TypeError("the message holds more values than expected");
}

}  // namespace hoist::dbus
