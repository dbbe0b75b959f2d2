// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "platform/dbus/Message.h"

namespace hoist::dbus {

struct RecordedFrame {
  std::string name;
  Bytes frame;
};

// What dbus-send, busctl, gdbus, GDBus (both byte orders) and libdbus really sent to an EchoServer;
// files of recorded/.
const std::vector<RecordedFrame>& recordedFrames();

// So many descriptors of /dev/null.
FileDescriptors someFiles(std::size_t count);

}  // namespace hoist::dbus
