// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <atomic>
#include <string>
#include <string_view>

#include "platform/FileDescriptor.h"

// Where a service's name becomes a socket.
namespace hoist::xpc {

// The folder of the service sockets: the product's runtime directory, unless a test has set
// another. Any thread.
std::string runtimeDirectory();
void setRuntimeDirectory(std::string path);

// The path of the service's socket. Throws std::invalid_argument for a name that cannot be a file's
// name, or whose path is longer than a socket's address may be.
std::string socketPathForServiceName(std::string_view serviceName);

// A connected, close-on-exec stream socket. Waits while very many others connect, until the flag is
// set. Throws SystemCallError when nobody listens, std::invalid_argument as above.
FileDescriptor connectToService(const std::string& serviceName, const std::atomic<bool>& cancelled);

// A listening socket and, when this process made its file, the file.
struct ServiceSocket {
  FileDescriptor descriptor;
  std::string madePath;  // empty for a passed socket

  // A new one, mode 0666, in the runtime directory, which is made (mode 0755) when it is missing. A
  // stale file is replaced, a live one never. Throws SystemCallError.
  static ServiceSocket makeForServiceName(const std::string& serviceName);
  // Removes the file if this process made it and it is still the same one.
  void removeFile();

  dev_t madeDevice = 0;
  ino_t madeInode = 0;
};

}  // namespace hoist::xpc
