// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// One buffer, written from front to back: because the signature is known beforehand the header is
// complete before the body begins, and only lengths and the serial are put in afterwards.
#include "platform/dbus/MessageWriter.h"

#include "platform/dbus/Names.h"
#include "platform/dbus/Validator.h"

namespace hoist::dbus {

namespace {

constexpr std::size_t kUsualSize = 256;           // most calls and answers fit; picked
constexpr std::size_t kMaximumDescriptors = 253;  // SCM_MAX_FD of the kernel
constexpr std::size_t kErrorTextSize = 4096;

void require(bool condition, const char* what) {
  if (!condition) throw EncodingError(what);
}

}  // namespace

MessageWriter::MessageWriter(const Header& header, std::size_t maximumSize)
    : maximumSize_(maximumSize) {
  bytes_.reserve(kUsualSize);
  writeHeader(header);
}

void MessageWriter::writeHeader(const Header& header) {
  require(isValidSignature(header.signature), "the signature is not valid");
  const std::uint8_t fixed[kFixedHeaderSize] = {
      std::endian::native == std::endian::little ? std::uint8_t{'l'} : std::uint8_t{'B'},
      static_cast<std::uint8_t>(header.type), header.flags, kProtocolVersion};
  std::memcpy(extend(1, sizeof fixed), fixed, sizeof fixed);
  writeFields(header);
  patch(12, static_cast<std::uint32_t>(bytes_.size() - kFixedHeaderSize));
  extend(8, 0);
  bodyOffset_ = bytes_.size();
}

void MessageWriter::writeFields(const Header& header) {
  bool isCall = header.type == MessageType::kMethodCall;
  bool isSignal = header.type == MessageType::kSignal;
  bool isError = header.type == MessageType::kError;
  require(isValidObjectPath(header.path) || (header.path.empty() && !isCall && !isSignal),
          "the object path is missing or not valid");
  require(isValidInterfaceName(header.interface) || (header.interface.empty() && !isSignal),
          "the interface is missing or not valid");
  require(isValidMemberName(header.member) || (header.member.empty() && !isCall && !isSignal),
          "the member is missing or not valid");
  require(isValidErrorName(header.errorName) || (header.errorName.empty() && !isError),
          "the error's name is missing or not valid");
  require(header.replySerial != 0 || isCall || isSignal, "the reply's serial is missing");
  require(header.destination.empty() || isValidBusName(header.destination),
          "the destination is not valid");
  require(header.sender.empty() || isValidBusName(header.sender), "the sender is not valid");

  if (!header.path.empty()) writeTextField(1, 'o', header.path);
  if (!header.interface.empty()) writeTextField(2, 's', header.interface);
  if (!header.member.empty()) writeTextField(3, 's', header.member);
  if (!header.errorName.empty()) writeTextField(4, 's', header.errorName);
  if (header.replySerial != 0) writeNumberField(5, header.replySerial);
  if (!header.destination.empty()) writeTextField(6, 's', header.destination);
  if (!header.sender.empty()) writeTextField(7, 's', header.sender);
  writeSignatureField(header.signature);
  // How many descriptors the values bring is not known yet, only whether there can be any.
  if (header.signature.find_first_of("hv") != std::string_view::npos) {
    writeNumberField(9, 0);
    descriptorCountOffset_ = bytes_.size() - 4;
  }
}

// Makes room for a field and writes what each begins with: code, and type of the value.
std::uint8_t* MessageWriter::startField(std::uint8_t code, char type, std::size_t valueSize) {
  std::uint8_t* place = extend(8, 4 + valueSize);
  place[0] = code;
  place[1] = 1;
  place[2] = static_cast<std::uint8_t>(type);
  return place + 4;
}

void MessageWriter::writeTextField(std::uint8_t code, char type, std::string_view text) {
  writeText(startField(code, type, 4 + text.size() + 1), text);
}

void MessageWriter::writeNumberField(std::uint8_t code, std::uint32_t number) {
  std::memcpy(startField(code, 'u', sizeof number), &number, sizeof number);
}

void MessageWriter::writeSignatureField(std::string_view signature) {
  levels_[0] = {0, 0, 0, 0, 0};
  if (signature.empty()) return;
  writeSignature(startField(8, 'g', 1 + signature.size() + 1), signature);
  auto end = static_cast<std::uint32_t>(bytes_.size() - 1);
  levels_[0].typesEnd = end;
  levels_[0].types = end - static_cast<std::uint32_t>(signature.size());
}

// Raw bytes.

// Pads to the alignment and makes room behind, all of it zero. Every byte of a message comes from
// here.
std::uint8_t* MessageWriter::extend(std::size_t alignment, std::size_t size) {
  std::size_t start = bytes_.size() + paddingTo(bytes_.size(), alignment);
  require(size <= maximumSize_ && start <= maximumSize_ - size, "the message is too long");
  bytes_.resize(start + size);
  return bytes_.data() + start;
}

void MessageWriter::patch(std::size_t offset, std::uint32_t number) {
  std::memcpy(bytes_.data() + offset, &number, sizeof number);
}

// The NUL behind a text is there already.
void MessageWriter::writeText(std::uint8_t* place, std::string_view text) {
  auto length = static_cast<std::uint32_t>(text.size());
  std::memcpy(place, &length, sizeof length);
  if (!text.empty()) std::memcpy(place + sizeof length, text.data(), text.size());
}

void MessageWriter::writeSignature(std::uint8_t* place, std::string_view signature) {
  place[0] = static_cast<std::uint8_t>(signature.size());
  if (!signature.empty()) std::memcpy(place + 1, signature.data(), signature.size());
}

// Values.

std::string_view MessageWriter::types() const {
  return {reinterpret_cast<const char*>(bytes_.data()) + level().types,
          level().typesEnd - level().types};
}

std::string_view MessageWriter::peekSignature() const {
  return types().substr(0, completeTypeLength(types()));
}

char MessageWriter::peekType() const {
  return types().empty() ? 0 : types()[0];
}

void MessageWriter::expect(char type) const {
  if (peekType() == type) return;
  throw EncodingError(std::string("a value of type ") + type +
                      " is not what the signature has here");
}

void MessageWriter::advance(std::size_t typeLength) {
  if (level().kind != 'a') level().types += static_cast<std::uint32_t>(typeLength);
}

template <class T>
void MessageWriter::appendFixed(char type, T value) {
  expect(type);
  advance(1);
  std::memcpy(extend(sizeof value, sizeof value), &value, sizeof value);
}

void MessageWriter::appendByte(std::uint8_t value) {
  appendFixed('y', value);
}
void MessageWriter::appendBoolean(bool value) {
  appendFixed('b', std::uint32_t{value});
}
void MessageWriter::appendInt16(std::int16_t value) {
  appendFixed('n', value);
}
void MessageWriter::appendUInt16(std::uint16_t value) {
  appendFixed('q', value);
}
void MessageWriter::appendInt32(std::int32_t value) {
  appendFixed('i', value);
}
void MessageWriter::appendUInt32(std::uint32_t value) {
  appendFixed('u', value);
}
void MessageWriter::appendInt64(std::int64_t value) {
  appendFixed('x', value);
}
void MessageWriter::appendUInt64(std::uint64_t value) {
  appendFixed('t', value);
}
void MessageWriter::appendDouble(double value) {
  appendFixed('d', value);
}

void MessageWriter::appendText(char type, std::string_view value) {
  expect(type);
  advance(1);
  writeText(extend(4, 4 + value.size() + 1), value);
}

void MessageWriter::appendString(std::string_view value) {
  require(isValidText(value), "a string is not UTF-8 or holds a NUL");
  appendText('s', value);
}

void MessageWriter::appendObjectPath(std::string_view value) {
  require(isValidObjectPath(value), "an object path is not valid");
  appendText('o', value);
}

void MessageWriter::appendSignature(std::string_view value) {
  require(isValidSignature(value), "a signature is not valid");
  expect('g');
  advance(1);
  writeSignature(extend(1, 1 + value.size() + 1), value);
}

void MessageWriter::appendFileDescriptor(FileDescriptor value) {
  require(static_cast<bool>(value), "there is no descriptor");
  require(descriptors_.size() < kMaximumDescriptors, "the message has too many descriptors");
  appendFixed('h', static_cast<std::uint32_t>(descriptors_.size()));
  descriptors_.push_back(std::move(value));
}

void MessageWriter::appendBytes(std::span<const std::uint8_t> value) {
  openArray();
  expect('y');
  std::uint8_t* place = extend(1, value.size());
  if (!value.empty()) std::memcpy(place, value.data(), value.size());
  close();
}

void MessageWriter::appendStrings(std::span<const std::string> values) {
  openArray();
  for (const auto& value : values) appendString(value);
  close();
}

// Containers.

void MessageWriter::enter(char kind, std::uint32_t types, std::uint32_t typesEnd) {
  require(depth_ < kMaximumDepth, "containers are nested too deep");
  auto size = static_cast<std::uint32_t>(bytes_.size());
  levels_[++depth_] = {types, typesEnd, 0, size, kind};
}

void MessageWriter::openArray() {
  expect('a');
  std::string_view type = peekSignature();
  std::uint32_t element = level().types + 1;
  auto end = static_cast<std::uint32_t>(level().types + type.size());
  std::size_t alignment = alignmentOf(type[1]);
  advance(type.size());
  extend(4, 4);
  auto lengthOffset = static_cast<std::uint32_t>(bytes_.size() - 4);
  extend(alignment, 0);
  enter('a', element, end);
  level().lengthOffset = lengthOffset;
}

void MessageWriter::openStruct() {
  openTuple('(');
}
void MessageWriter::openDictEntry() {
  openTuple('{');
}

void MessageWriter::openTuple(char kind) {
  expect(kind);
  std::size_t length = peekSignature().size();
  std::uint32_t inner = level().types + 1;
  advance(length);
  extend(8, 0);
  enter(kind, inner, static_cast<std::uint32_t>(inner + length - 2));
}

void MessageWriter::openVariant(std::string_view signature) {
  require(isSingleCompleteType(signature), "a variant's signature is not one complete type");
  expect('v');
  advance(1);
  writeSignature(extend(1, 1 + signature.size() + 1), signature);
  auto end = static_cast<std::uint32_t>(bytes_.size() - 1);
  enter('v', static_cast<std::uint32_t>(end - signature.size()), end);
}

void MessageWriter::close() {
  require(depth_ > 0, "no container is open");
  if (level().kind == 'a') {
    std::size_t length = bytes_.size() - level().begin;
    require(length <= kMaximumArraySize, "an array is longer than 64 MiB");
    patch(level().lengthOffset, static_cast<std::uint32_t>(length));
  } else {
    require(types().empty(), "a container is closed before its last value");
  }
  --depth_;
}

OutgoingMessage MessageWriter::finish(std::uint32_t serial) {
  require(depth_ == 0 && types().empty(), "the message is finished before its last value");
  patch(4, static_cast<std::uint32_t>(bytes_.size() - bodyOffset_));
  patch(8, serial);
  if (descriptorCountOffset_ != 0) {
    patch(descriptorCountOffset_, static_cast<std::uint32_t>(descriptors_.size()));
  }
  return {std::move(bytes_), std::move(descriptors_)};
}

// Usual messages.

Header methodCall(std::string_view path, std::string_view interface, std::string_view member,
                  std::string_view signature, std::uint8_t flags) {
  Header header;
  header.path = path;
  header.interface = interface;
  header.member = member;
  header.signature = signature;
  header.flags = flags;
  return header;
}

Header methodReturn(const Message& call, std::string_view signature) {
  Header header;
  header.type = MessageType::kMethodReturn;
  header.flags = kNoReplyExpected;
  header.replySerial = call.serial();
  header.signature = signature;
  return header;
}

Header errorReply(std::uint32_t replySerial, std::string_view errorName) {
  Header header;
  header.type = MessageType::kError;
  header.flags = kNoReplyExpected;
  header.replySerial = replySerial;
  header.errorName = errorName;
  header.signature = "s";
  return header;
}

OutgoingMessage makeError(std::uint32_t replySerial, std::string_view errorName,
                          std::string_view text) {
  MessageWriter writer(errorReply(replySerial, errorName));
  // A character that the cut has halved is mended like any other.
  writer.appendString(mendedText(text.substr(0, kErrorTextSize)));
  return writer.finish();
}

}  // namespace hoist::dbus
