// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// A frame is 16 fixed bytes, an array of header fields and the body. Both are checked here, the
// header when the message is made, the body when its descriptors are known.
#include "platform/dbus/Message.h"

#include "platform/dbus/Names.h"
#include "platform/dbus/Signature.h"
#include "platform/dbus/Validator.h"

namespace hoist::dbus {

namespace {

// Containers around a header field's value: the array of fields, the field, the variant.
constexpr unsigned kFieldDepth = 3;

void require(bool condition, const char* rule) {
  if (!condition) throw ProtocolError(rule);
}

std::string_view takeName(Cursor& cursor, bool (*isValid)(std::string_view)) {
  std::string_view name = cursor.takeText(cursor.takeLength());
  require(isValid(name), "a name in a header field is not valid");
  return name;
}

// The types of the known fields' values, by the fields' codes from 1 on.
constexpr std::string_view kFieldTypes = "osssussgu";

void takeKnownField(Cursor& cursor, unsigned code, Header& header) {
  switch (code) {
    case 1:
      header.path = cursor.takeObjectPath();
      break;
    case 2:
      header.interface = takeName(cursor, isValidInterfaceName);
      break;
    case 3:
      header.member = takeName(cursor, isValidMemberName);
      break;
    case 4:
      header.errorName = takeName(cursor, isValidErrorName);
      break;
    case 5:
      header.replySerial = cursor.takeLength();
      require(header.replySerial != 0, "a reply's serial is 0");
      break;
    case 6:
      header.destination = takeName(cursor, isValidBusName);
      break;
    case 7:
      header.sender = takeName(cursor, isValidBusName);
      break;
    case 8:
      header.signature = cursor.takeSignature();
      break;
    case 9:
      header.fileDescriptorCount = cursor.takeLength();
      break;
  }
}

void takeUnknownField(Cursor& cursor) {
  std::string_view type = cursor.takeSignature();
  require(!type.empty() && completeTypeLength(type) == type.size(),
          "a variant does not hold exactly one value");
  BodyValidator(cursor).checkValues(type, kFieldDepth);
}

void takeFields(Cursor& cursor, Header& header) {
  unsigned seen = 0;  // one bit a known code
  while (cursor.position < cursor.end) {
    cursor.align(8);
    unsigned code = *cursor.take(1);
    require(code != 0, "a header field has the code 0");
    if (code > kFieldTypes.size()) {
      takeUnknownField(cursor);
      continue;
    }
    const std::uint8_t* type = cursor.take(3);
    require(
        type[0] == 1 && type[1] == static_cast<std::uint8_t>(kFieldTypes[code - 1]) && type[2] == 0,
        "a header field has the wrong type");
    require(!(seen & (1u << code)), "a header field appears twice");
    seen |= 1u << code;
    takeKnownField(cursor, code, header);
  }
}

void checkRequiredFields(const Header& header) {
  switch (header.type) {
    case MessageType::kMethodCall:
      require(!header.path.empty() && !header.member.empty(), "a call has no path or no member");
      break;
    case MessageType::kSignal:
      require(!header.path.empty() && !header.interface.empty() && !header.member.empty(),
              "a signal has no path, interface or member");
      break;
    case MessageType::kMethodReturn:
      require(header.replySerial != 0, "an answer has no reply serial");
      break;
    case MessageType::kError:
      require(header.replySerial != 0 && !header.errorName.empty(),
              "an error has no reply serial or no name");
      break;
  }
  require(header.path != names::kLocalPath && header.interface != names::kLocal,
          "a reserved path or interface is used");
}

}  // namespace

FixedHeader readFixedHeader(const std::uint8_t* bytes) {
  require(bytes[0] == 'l' || bytes[0] == 'B', "a message has no known byte order");
  FixedHeader fixed;
  fixed.swapped = (bytes[0] == 'l') != (std::endian::native == std::endian::little);
  fixed.type = bytes[1];
  fixed.flags = bytes[2];
  require(fixed.type != 0, "a message has the type 0");
  require(bytes[3] == kProtocolVersion, "a message has another protocol version");

  std::size_t bodySize = loadNumber<std::uint32_t>(bytes + 4, fixed.swapped);
  fixed.serial = loadNumber<std::uint32_t>(bytes + 8, fixed.swapped);
  std::size_t fieldsSize = loadNumber<std::uint32_t>(bytes + 12, fixed.swapped);
  require(fixed.serial != 0, "a message has the serial 0");
  require(fieldsSize <= kMaximumArraySize, "an array is longer than 64 MiB");
  fixed.fieldsEnd = kFixedHeaderSize + fieldsSize;
  fixed.bodyOffset = fixed.fieldsEnd + paddingTo(fixed.fieldsEnd, 8);
  fixed.messageSize = fixed.bodyOffset + bodySize;
  require(fixed.messageSize <= kMaximumMessageSize, "a message is longer than 128 MiB");
  return fixed;
}

Message::Message(Bytes frame) : frame_(std::move(frame)) {
  require(frame_.size() >= kFixedHeaderSize, "a message is cut off");
  FixedHeader fixed = readFixedHeader(frame_.data());
  require(frame_.size() == fixed.messageSize, "a message is not as long as it says");
  swapped_ = fixed.swapped;
  bodyOffset_ = fixed.bodyOffset;
  header_.type = MessageType{fixed.type};
  header_.flags = fixed.flags;
  header_.serial = fixed.serial;

  Cursor cursor{frame_.data(), kFixedHeaderSize, fixed.fieldsEnd, swapped_};
  takeFields(cursor, header_);
  cursor.end = bodyOffset_;
  cursor.align(8);
  checkRequiredFields(header_);
}

void Message::complete(FileDescriptors descriptors) {
  require(descriptors.size() == header_.fileDescriptorCount,
          "not as many descriptors came as were announced");
  Cursor cursor{frame_.data(), bodyOffset_, frame_.size(), swapped_};
  BodyValidator validator(cursor);
  validator.checkValues(header_.signature, 0);
  require(cursor.position == cursor.end, "bytes are left over behind the last value");
  require(validator.refersToExactly(descriptors.size()),
          "the body does not refer to exactly the descriptors that came");
  descriptors_ = std::move(descriptors);
}

Message Message::parse(Bytes frame, FileDescriptors descriptors) {
  Message message(std::move(frame));
  message.complete(std::move(descriptors));
  return message;
}

std::string_view Message::errorText() const {
  if (type() != MessageType::kError || signature().empty() || signature()[0] != 's') return {};
  const std::uint8_t* place = frame_.data() + bodyOffset_;
  return {reinterpret_cast<const char*>(place + 4), loadNumber<std::uint32_t>(place, swapped_)};
}

FileDescriptor Message::takeFileDescriptor(std::uint32_t index) {
  borrowFileDescriptor(index);
  return std::move(descriptors_[index]);
}

int Message::borrowFileDescriptor(std::uint32_t index) const {
  if (index >= descriptors_.size() || !descriptors_[index]) {
    throw TypeError("a descriptor is not there or was taken already");
  }
  return descriptors_[index].get();
}

std::uint32_t OutgoingMessage::serial() const {
  return loadNumber<std::uint32_t>(bytes.data() + 8, false);
}

void OutgoingMessage::setSerial(std::uint32_t serial) {
  std::memcpy(bytes.data() + 8, &serial, sizeof serial);
}

}  // namespace hoist::dbus
