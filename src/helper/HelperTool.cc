// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "helper/HelperTool.h"

#include <unistd.h>

#include <atomic>
#include <cstdlib>

#include "connection/protocols/KLHelperCoupling.h"
#include "platform/SystemCall.h"
#include "platform/xpc/Connection.h"
#include "platform/xpc/Limits.h"
#include "values/product.h"

namespace hoist {
namespace {

// As long as the hoist waits for the endpoint.
constexpr std::chrono::seconds kCouplingLimit{20};

std::optional<std::string> readLine(int input) {
  std::string line;
  for (char c; line.size() < xpc::kMessageSize; line += c) {
    if (retryInterrupted([&] { return ::read(input, &c, 1); }) != 1) return std::nullopt;
    if (c == '\n') return line;
  }
  return std::nullopt;
}

std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> pieces;
  if (text.empty()) return pieces;
  std::size_t start = 0;
  for (std::size_t end; (end = text.find(separator, start)) != std::string::npos; start = end + 1) {
    pieces.push_back(text.substr(start, end - start));
  }
  pieces.push_back(text.substr(start));
  return pieces;
}

void say(std::string_view text) {
  while (!text.empty()) {
    ssize_t put =
        retryInterrupted([&] { return ::write(STDOUT_FILENO, text.data(), text.size()); });
    // Nobody listens any more: the hoist has given this launch up.
    if (put < 0) return;
    text.remove_prefix(static_cast<std::size_t>(put));
  }
}

}  // namespace

// Serves one object to every connection and counts them.
class HelperTool::OneObjectDelegate final : public xpc::ListenerDelegate,
                                            public std::enable_shared_from_this<OneObjectDelegate> {
 public:
  OneObjectDelegate(Ref<xpc::Exportable> object, Ref<xpc::Interface> interface,
                    std::function<void()> lastClientLeft)
      : object_(std::move(object)),
        interface_(std::move(interface)),
        lastClientLeft_(std::move(lastClientLeft)) {}

  bool shouldAcceptNewConnection(xpc::Listener&, const Ref<xpc::Connection>& connection) override {
    connection->setExportedInterface(interface_);
    connection->setExportedObject(object_);
    hadClients_ = true;
    ++clients_;
    connection->setInvalidationHandler([self = shared_from_this()] {
      if (--self->clients_ == 0 && self->lastClientLeft_) self->lastClientLeft_();
    });
    connection->resume();
    return true;
  }

  bool hadClients() const { return hadClients_; }

 private:
  const Ref<xpc::Exportable> object_;
  const Ref<xpc::Interface> interface_;
  const std::function<void()> lastClientLeft_;
  std::atomic<int> clients_ = 0;
  std::atomic<bool> hadClients_ = false;
};

std::optional<HelperInvocation> HelperInvocation::read(int input) {
  auto version = readLine(input);
  auto serviceName = version ? readLine(input) : std::nullopt;
  auto commandName = serviceName ? readLine(input) : std::nullopt;
  auto flags = commandName ? readLine(input) : std::nullopt;
  if (!flags) return std::nullopt;
  return HelperInvocation{*version, *serviceName, *commandName, split(*flags, ',')};
}

std::optional<HelperTool> HelperTool::start(std::string_view version) {
  auto invocation = HelperInvocation::read(STDIN_FILENO);
  if (!invocation) return std::nullopt;
  HelperTool tool(std::move(*invocation));
  if (tool.invocation_.version != version) {
    tool.refuse("BADVER " + std::string(version));
    return std::nullopt;
  }
  return tool;
}

void HelperTool::refuse(std::string_view explanation) {
  say("NO\n");
  say(explanation);
}

void HelperTool::serve(const Ref<xpc::Exportable>& object, const Ref<xpc::Interface>& interface,
                       std::function<void()> lastClientLeft) {
  listener_ = xpc::Listener::anonymousListener(xpc::Limits::forHelper());
  delegate_ = make<OneObjectDelegate>(object, interface, std::move(lastClientLeft));
  listener_->setDelegate(delegate_);
}

bool HelperTool::couple() {
  const char* parentService = std::getenv(product::kParentServiceVariable);
  if (!parentService || !listener_) return false;
  auto connection = xpc::Connection::initWithMachServiceName(parentService);
  connection->setRemoteObjectInterface(
      xpc::Interface::interfaceWithProtocol(klHelperCouplingProtocol()));
  auto taken = make<bool>(false);
  auto proxy = connection->remoteObjectProxyWithErrorHandler(
      [connection](const Ref<Error>&) { connection->invalidate(); });
  proxy->send<&KLHelperCoupling::connectWithEndpoint>(listener_->endpoint(),
                                                      invocation_.serviceName, [connection, taken] {
                                                        *taken = true;
                                                        connection->invalidate();
                                                      });
  connection->runUntil(Clock::instant() + kCouplingLimit);
  return *taken;
}

void HelperTool::accept() {
  say("OK\n");
  listener_->resume();
}

bool HelperTool::hasHadClients() const {
  return delegate_ && delegate_->hadClients();
}

}  // namespace hoist
