// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// Any bytes as a stream with descriptors somewhere in it. The first bytes say how it comes: each of
// them is the size of a read and, in its two top bits, how many descriptors came along.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "platform/dbus/FrameReader.h"

namespace {

using namespace hoist::dbus;

constexpr std::size_t kPlan = 8;
constexpr FrameLimits kLimits{.messageSize = 4096 + 1024, .fileDescriptors = 3};

void feed(FrameReader& reader, std::span<const std::uint8_t> plan,
          std::span<const std::uint8_t> bytes) {
  for (std::size_t step = 0; !bytes.empty(); ++step) {
    std::uint8_t instruction = plan[step % plan.size()];
    FileDescriptors descriptors;
    for (int count = instruction >> 6; count > 0; --count) {
      descriptors.emplace_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
    }
    auto space = reader.space();
    std::size_t size =
        std::min({space.size(), bytes.size(), std::size_t{1} + (instruction & 63) * 8});
    if (size == 0) std::abort();
    std::memcpy(space.data(), bytes.data(), size);
    bytes = bytes.subspan(size);
    reader.received(size, std::move(descriptors));
    while (auto message = reader.next()) {
      if (message->size() > kLimits.messageSize) std::abort();
      if (message->fileDescriptorCount() > kLimits.fileDescriptors) std::abort();
    }
    if (reader.heldBytes() > kLimits.messageSize + 4096) std::abort();
    if (reader.heldFileDescriptors() > kLimits.fileDescriptors) std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size <= kPlan) return 0;
  int before = dup(0);  // the lowest free descriptor
  close(before);
  {
    FrameReader reader(kLimits);
    try {
      feed(reader, {data, kPlan}, {data + kPlan, size - kPlan});
    } catch (const ProtocolError&) {
      if (reader.heldFileDescriptors() != 0) std::abort();
    }
  }
  int after = dup(0);
  close(after);
  if (before != after) std::abort();  // every descriptor is closed
  return 0;
}
