// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdio>
#include <optional>
#include <string>

#include "connection/CommandInfo.h"
#include "connection/KLServiceConnection.h"
#include "helper/Commands.h"
#include "platform/xpc/Listener.h"
#include "platform/xpc/ServiceSocket.h"
#include "support/TemporaryFolder.h"

namespace hoist {

// A command of the example helper, served under a name as a helper serves it through its endpoint,
// and a client's connection to it.
class ServedCommand {
 public:
  explicit ServedCommand(const std::string& name, const std::vector<std::string>& flags = {})
      : command(example::makeCommand(name, flags)) {
    xpc::setRuntimeDirectory(folder_.path());
    listener_ =
        xpc::Listener::initWithMachServiceName("com.kelvo.example", xpc::Limits::forHelper());
    delegate_->command = command;
    delegate_->interface = CommandInfo::interfaceForName(name);
    listener_->setDelegate(delegate_);
    listener_->resume();
    client = KLServiceConnection::initWithServiceName("com.kelvo.example",
                                                      CommandInfo::protocolForName(name));
  }
  ~ServedCommand() {
    listener_->invalidate();
    xpc::setRuntimeDirectory(runtimeDirectory_);
  }
  ServedCommand(const ServedCommand&) = delete;
  ServedCommand& operator=(const ServedCommand&) = delete;

  // Sends a message and waits until it has been handled.
  template <auto Function, class... Arguments>
  void tell(Arguments&&... arguments) {
    EXPECT_TRUE(client->performSynchronousBlock([&](const xpc::Proxy& proxy) {
      proxy.send<Function>(std::forward<Arguments>(arguments)...);
    }));
  }
  // The one value of the answer.
  template <auto Function, class Result, class... Arguments>
  Result ask(const Arguments&... arguments) {
    auto answer = make<std::optional<Result>>();
    tell<Function>(arguments..., [answer](Result value) { *answer = std::move(value); });
    EXPECT_TRUE(*answer);
    return std::move(*answer).value_or(Result());
  }
  // What the command was told.
  Value told(const std::string& property) const {
    auto properties = command->properties();
    auto found = properties.find(property);
    return found == properties.end() ? Value() : found->second;
  }
  // What gdbus prints, errors included. The arguments are quoted for the shell.
  std::string gdbus(const std::string& operation, const std::string& arguments) const {
    std::string line = "gdbus " + operation + " --address unix:path=" + folder_.path() +
                       "/com.kelvo.example --dest com.kelvo.example --object-path / " + arguments +
                       " 2>&1";
    std::string output;
    FILE* pipe = ::popen(line.c_str(), "re");
    char buffer[4096];
    while (pipe && std::fgets(buffer, sizeof buffer, pipe)) output += buffer;
    if (pipe) ::pclose(pipe);
    return output;
  }

  const Ref<example::ExampleCommand> command;
  Ref<KLServiceConnection> client;

 private:
  struct Delegate final : xpc::ListenerDelegate {
    bool shouldAcceptNewConnection(xpc::Listener&,
                                   const Ref<xpc::Connection>& connection) override {
      connection->setExportedInterface(interface);
      connection->setExportedObject(command);
      connection->resume();
      return true;
    }
    Ref<example::ExampleCommand> command;
    Ref<xpc::Interface> interface;
  };

  const std::string runtimeDirectory_ = xpc::runtimeDirectory();
  TemporaryFolder folder_;
  const Ref<Delegate> delegate_ = make<Delegate>();
  Ref<xpc::Listener> listener_;
};

}  // namespace hoist
