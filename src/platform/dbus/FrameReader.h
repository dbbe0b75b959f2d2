// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "platform/dbus/Message.h"

namespace hoist::dbus {

struct FrameLimits {
  std::size_t messageSize = std::size_t{1} << 20;  // bytes of a message, header included
  std::size_t fileDescriptors = 16;  // of one message, complete or not; 0: none were negotiated
  // Where descriptors are withheld: a duplicate of it, which is borrowed, stands in the place of
  // each that a message announces.
  int standIn = -1;
};

// Cuts the stream of a connection into messages. Bytes and descriptors are put in as they come, in
// whatever portions; whole messages come out. Pure: does no I/O. One thread at a time.
//
// A descriptor is passed with some byte of its message. The kernel says only which read it came
// with, so a descriptor belongs to the first message that announces one more than it has got and
// whose bytes overlap that read.
//
// Use: receive into space(), call received(), then next() until it answers nothing. Every function
// throws ProtocolError for a stream that breaks a rule; all descriptors are closed then and the
// reader may not be used again.
class FrameReader {
 public:
  explicit FrameReader(FrameLimits limits = {}) : limits_(limits) {}

  // Where the next bytes may be put: never empty, valid until the next call. While a message is
  // unfinished it holds no more than that message may still take, so a large message is never
  // copied.
  std::span<std::uint8_t> space();
  // The first `size` bytes of space() have been filled by one read, which brought these descriptors
  // along.
  void received(std::size_t size, FileDescriptors descriptors = {});
  // The same for a read that brought descriptors along, nobody knows how many, which were withheld.
  void receivedWithheld(std::size_t size);
  // The same for bytes that stand elsewhere: what was read behind BEGIN.
  void append(std::span<const std::uint8_t> bytes, FileDescriptors descriptors = {});

  // The next whole message, or nothing as long as it is not complete. MessageTooLarge is thrown as
  // soon as its size is known.
  std::optional<Message> next();

  // What is held for messages that next() has not answered yet. Memory is at most twice heldBytes()
  // and 4 KiB more.
  std::size_t heldBytes() const { return end_ - begin_; }
  std::size_t heldFileDescriptors() const { return descriptors_.size(); }
  // Whether the first byte of a message is here but not its last one (after next() has answered
  // nothing).
  bool isMidMessage() const { return end_ != begin_; }

 private:
  struct Read {  // stream positions
    std::uint64_t begin;
    std::uint64_t end;
  };
  struct PassedDescriptor {
    FileDescriptor descriptor;
    Read read;  // that it came with
  };
  struct Withheld {
    Read reads;              // from the first to the last that brought some along
    bool announced = false;  // by a message that overlaps them
  };

  std::optional<Message> cutMessage();
  Read noteRead(std::size_t size, bool withDescriptors);
  FileDescriptors takeDescriptors(std::uint32_t announced);
  FileDescriptors takeStandIns(std::uint32_t announced);
  Bytes takeFrame();
  void makeRoom(std::size_t size);

  FrameLimits limits_;
  Bytes buffer_;
  std::size_t begin_ = 0;          // first byte in buffer_ that is not yet given out
  std::size_t end_ = 0;            // end of what has been received
  std::size_t frameSize_ = 0;      // of the message at begin_; 0 as long as it is not known
  std::uint64_t streamBegin_ = 0;  // stream position of begin_
  std::vector<PassedDescriptor> descriptors_;
  std::optional<Withheld> withheld_;
};

}  // namespace hoist::dbus
