// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/dbus/Guid.h"

#include <sys/random.h>

#include <array>
#include <cstdint>
#include <fstream>

#include "platform/SystemCall.h"

namespace hoist::dbus {

namespace {

std::string readMachineId() {
  for (const char* path : {"/etc/machine-id", "/var/lib/dbus/machine-id"}) {
    std::ifstream file(path);
    std::string line;
    if (std::getline(file, line) && isValidGuid(line)) return line;
  }
  return makeGuid();
}

}  // namespace

std::string makeGuid() {
  std::array<std::uint8_t, 16> bytes;
  systemCall("getrandom", [&] { return getrandom(bytes.data(), bytes.size(), 0); });
  std::string text;
  text.reserve(2 * bytes.size());
  for (std::uint8_t byte : bytes) {
    text += "0123456789abcdef"[byte >> 4];
    text += "0123456789abcdef"[byte & 15];
  }
  return text;
}

bool isValidGuid(std::string_view text) {
  return text.size() == 32 &&
         text.find_first_not_of("0123456789abcdefABCDEF") == std::string_view::npos;
}

const std::string& machineId() {
  static const auto& id = *new std::string(readMachineId());
  return id;
}

}  // namespace hoist::dbus
