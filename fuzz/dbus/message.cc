// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// Any bytes as a frame: refused, or read to the end and written anew to a frame that is taken and
// written the same again.
#include <fcntl.h>

#include <cstdlib>

#include "platform/dbus/CopyValues.h"

namespace {

using namespace hoist::dbus;

hoist::FileDescriptor someFile() {
  return hoist::FileDescriptor(open("/dev/null", O_RDONLY | O_CLOEXEC));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 1) return 0;
  FileDescriptors descriptors;
  for (int count = data[0] % 4; count > 0; --count) descriptors.push_back(someFile());
  try {
    Message message = Message::parse(Bytes(data + 1, data + size), std::move(descriptors));
    MessageReader skipping(message);
    while (skipping.hasMore()) skipping.skip();
    skipping.finish();
    if (message.type() > MessageType::kSignal) return 0;
    OutgoingMessage first = rewritten(message);
    Message copy = Message::parse(first.bytes, std::move(first.descriptors));
    if (rewritten(copy).bytes != first.bytes) std::abort();
  } catch (const ProtocolError&) {
  } catch (const TypeError& error) {
    // Only a descriptor that is referred to twice cannot be taken twice.
    if (std::string_view(error.what()).find("descriptor") == std::string_view::npos) std::abort();
  }
  return 0;
}
