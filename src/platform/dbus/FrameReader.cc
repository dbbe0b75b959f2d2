// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// A buffer of 4 KiB takes the usual messages, several a read. A message that does not fit grows the
// buffer as its bytes come, never beyond its own size, and takes the buffer along when it is
// complete. What a message merely announces costs nothing.
#include "platform/dbus/FrameReader.h"

#include <algorithm>
#include <cstring>

#include "platform/dbus/Validator.h"

namespace hoist::dbus {

namespace {

constexpr std::size_t kBufferSize = 4096;  // picked

}  // namespace

std::span<std::uint8_t> FrameReader::space() {
  std::size_t held = heldBytes();
  if (held == 0 && buffer_.size() != kBufferSize) buffer_ = Bytes(kBufferSize);
  if (held == 0) begin_ = end_ = 0;
  if (held >= frameSize_) {  // no message is known to be unfinished
    makeRoom(kBufferSize / 2);
    return {buffer_.data() + end_, buffer_.size() - end_};
  }
  std::size_t missing = frameSize_ - held;
  if (end_ == buffer_.size()) makeRoom(std::min(missing, std::max(held, kBufferSize)));
  return {buffer_.data() + end_, std::min(missing, buffer_.size() - end_)};
}

// Makes sure that so many bytes fit behind end_.
void FrameReader::makeRoom(std::size_t size) {
  if (buffer_.size() - end_ >= size) return;
  std::size_t held = heldBytes();
  if (held + size > buffer_.size()) {
    Bytes larger(held + size);
    if (held != 0) std::memcpy(larger.data(), buffer_.data() + begin_, held);
    buffer_ = std::move(larger);
  } else {
    std::memmove(buffer_.data(), buffer_.data() + begin_, held);
  }
  begin_ = 0;
  end_ = held;
}

void FrameReader::received(std::size_t size, FileDescriptors descriptors) {
  auto read = noteRead(size, !descriptors.empty());
  for (auto& descriptor : descriptors) descriptors_.push_back({std::move(descriptor), read});
}

void FrameReader::receivedWithheld(std::size_t size) {
  auto read = noteRead(size, true);
  if (withheld_ && !withheld_->announced) read.begin = withheld_->reads.begin;
  withheld_ = {read};
}

FrameReader::Read FrameReader::noteRead(std::size_t size, bool withDescriptors) {
  std::uint64_t begin = streamBegin_ + heldBytes();
  end_ += size;
  if (withDescriptors && (size == 0 || limits_.fileDescriptors == 0)) {
    descriptors_.clear();
    throw ProtocolError("descriptors came that were not negotiated");
  }
  return {begin, begin + size};
}

void FrameReader::append(std::span<const std::uint8_t> bytes, FileDescriptors descriptors) {
  makeRoom(bytes.size());
  if (!bytes.empty()) std::memcpy(buffer_.data() + end_, bytes.data(), bytes.size());
  received(bytes.size(), std::move(descriptors));
}

std::optional<Message> FrameReader::next() {
  try {
    return cutMessage();
  } catch (...) {
    descriptors_.clear();
    throw;
  }
}

std::optional<Message> FrameReader::cutMessage() {
  if (frameSize_ == 0 && heldBytes() >= kFixedHeaderSize) {
    FixedHeader fixed = readFixedHeader(buffer_.data() + begin_);
    if (fixed.messageSize > limits_.messageSize) {
      bool replyExpected =
          MessageType{fixed.type} == MessageType::kMethodCall && !(fixed.flags & kNoReplyExpected);
      throw MessageTooLarge(fixed.serial, replyExpected, fixed.messageSize, limits_.messageSize);
    }
    frameSize_ = fixed.messageSize;
  }
  if (frameSize_ == 0 || heldBytes() < frameSize_) {
    if (descriptors_.size() > limits_.fileDescriptors) {
      throw ProtocolError("an unfinished message has too many descriptors");
    }
    return std::nullopt;
  }
  Message message(takeFrame());
  message.complete(takeDescriptors(message.header().fileDescriptorCount));
  return message;
}

Bytes FrameReader::takeFrame() {
  std::size_t size = std::exchange(frameSize_, 0);
  streamBegin_ += size;
  if (begin_ == 0 && buffer_.size() == size && size > kBufferSize) {
    end_ = 0;
    return std::exchange(buffer_, {});
  }
  const std::uint8_t* frame = buffer_.data() + begin_;
  begin_ += size;
  return Bytes(frame, frame + size);
}

// For the message whose last byte is the one before streamBegin_.
FileDescriptors FrameReader::takeDescriptors(std::uint32_t announced) {
  if (announced > limits_.fileDescriptors)
    throw ProtocolError("too many descriptors are announced");
  if (withheld_) return takeStandIns(announced);
  auto last = descriptors_.begin();
  FileDescriptors taken;
  while (taken.size() < announced && last != descriptors_.end() &&
         last->read.begin < streamBegin_) {
    taken.push_back(std::move(last++->descriptor));
  }
  descriptors_.erase(descriptors_.begin(), last);
  if (!descriptors_.empty() && descriptors_.front().read.end <= streamBegin_) {
    throw ProtocolError("descriptors came that no message announces");
  }
  return taken;
}

// How many were withheld is not known: as many as each message announces that overlaps the reads.
FileDescriptors FrameReader::takeStandIns(std::uint32_t announced) {
  FileDescriptors taken;
  if (announced > 0 && withheld_->reads.begin < streamBegin_) {
    withheld_->announced = true;
    while (taken.size() < announced) taken.push_back(FileDescriptor::duplicate(limits_.standIn));
  }
  if (withheld_->reads.end <= streamBegin_) {
    if (!withheld_->announced) throw ProtocolError("descriptors came that no message announces");
    withheld_.reset();
  }
  return taken;
}

}  // namespace hoist::dbus
