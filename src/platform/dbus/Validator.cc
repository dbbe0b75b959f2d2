// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// The rules of marshalling, applied once to a whole frame before anybody reads a value of it: a
// frame that breaks one must end the connection even where nobody would have looked. Recursion is
// bounded by kMaximumDepth.
#include "platform/dbus/Validator.h"

#include "platform/dbus/Names.h"
#include "platform/dbus/Signature.h"

namespace hoist::dbus {

void Cursor::takePadding(std::size_t size) {
  const std::uint8_t* padding = take(size);
  for (std::size_t i = 0; i < size; ++i) {
    if (padding[i] != 0) throw ProtocolError("padding is not zero");
  }
}

std::uint32_t Cursor::takeLength() {
  align(4);
  return loadNumber<std::uint32_t>(take(4), swapped);
}

std::string_view Cursor::takeText(std::size_t length) {
  const std::uint8_t* p = take(length + 1);
  if (p[length] != 0) throw ProtocolError("a text has no NUL at its end");
  return {reinterpret_cast<const char*>(p), length};
}

std::string_view Cursor::takeString() {
  std::string_view text = takeText(takeLength());
  if (!isValidText(text)) throw ProtocolError("a string is not UTF-8 or holds a NUL");
  return text;
}

std::string_view Cursor::takeObjectPath() {
  std::string_view path = takeText(takeLength());
  if (!isValidObjectPath(path)) throw ProtocolError("an object path is not valid");
  return path;
}

std::string_view Cursor::takeSignature() {
  std::string_view signature = takeText(*take(1));
  if (!isValidSignature(signature)) throw ProtocolError("a signature is not valid");
  return signature;
}

void BodyValidator::checkValues(std::string_view types, unsigned depth) {
  while (!types.empty()) {
    std::size_t length = completeTypeLength(types);
    checkValue(types.substr(0, length), depth);
    types.remove_prefix(length);
  }
}

void BodyValidator::checkValue(std::string_view type, unsigned depth) {
  switch (type[0]) {
    case 'y':
      cursor_.take(1);
      break;
    case 'b':
      if (cursor_.takeLength() > 1) throw ProtocolError("a boolean is neither 0 nor 1");
      break;
    case 'h':
      noteDescriptor(cursor_.takeLength());
      break;
    case 's':
      cursor_.takeString();
      break;
    case 'o':
      cursor_.takeObjectPath();
      break;
    case 'g':
      cursor_.takeSignature();
      break;
    case 'a':
      checkArray(type.substr(1), depth + 1);
      break;
    case 'v':
      checkVariant(depth + 1);
      break;
    case '(':
    case '{':
      if (depth == kMaximumDepth) throw ProtocolError("containers are nested too deep");
      cursor_.align(8);
      checkValues(type.substr(1, type.size() - 2), depth + 1);
      break;
    default:  // the numbers, whose size is their alignment
      cursor_.align(alignmentOf(type[0]));
      cursor_.take(alignmentOf(type[0]));
  }
}

void BodyValidator::checkArray(std::string_view elementType, unsigned depth) {
  if (depth > kMaximumDepth) throw ProtocolError("containers are nested too deep");
  std::size_t length = cursor_.takeLength();
  if (length > kMaximumArraySize) throw ProtocolError("an array is longer than 64 MiB");
  std::size_t alignment = alignmentOf(elementType[0]);
  cursor_.align(alignment);
  if (length > cursor_.left()) throw ProtocolError("a value reaches beyond its end");

  std::size_t outerEnd = cursor_.end;
  cursor_.end = cursor_.position + length;
  if (std::string_view("ynqiuxtd").find(elementType[0]) != std::string_view::npos) {
    // Any bytes will do, if there are whole elements of them.
    if (length % alignment != 0) throw ProtocolError("an array ends inside an element");
    cursor_.position = cursor_.end;
  }
  while (cursor_.position < cursor_.end) checkValue(elementType, depth);
  cursor_.end = outerEnd;
}

void BodyValidator::checkVariant(unsigned depth) {
  if (depth > kMaximumDepth) throw ProtocolError("containers are nested too deep");
  std::string_view signature = cursor_.takeSignature();
  if (signature.empty() || completeTypeLength(signature) != signature.size()) {
    throw ProtocolError("a variant does not hold exactly one value");
  }
  checkValue(signature, depth);
}

void BodyValidator::noteDescriptor(std::uint32_t index) {
  if (index >= 253) throw ProtocolError("a descriptor's index is out of range");
  descriptors_[index / 64] |= std::uint64_t{1} << (index % 64);
}

bool BodyValidator::refersToExactly(std::size_t count) const {
  for (std::size_t word = 0; word < 4; ++word) {
    std::size_t inWord = count > 64 * word ? count - 64 * word : 0;
    std::uint64_t expected = inWord >= 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << inWord) - 1;
    if (descriptors_[word] != expected) return false;
  }
  return true;
}

}  // namespace hoist::dbus
